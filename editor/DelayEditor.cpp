// The editor's layout and views: the view tree built on open, the value
// mappings between widgets and parameters in both directions, and the
// routing menus.
#include "editor/DelayEditor.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstdio>
#include <mutex>

#include "editor/BackgroundBitmap.h"
#include "editor/EditorDialogs.h"
#include "editor/EditorViews.h"
#include "engine/NoteValueTable.h"
#include "gui/Bitmap.h"
#include "gui/BitmapView.h"
#include "gui/Buttons.h"
#include "gui/Knob.h"
#include "gui/OptionMenu.h"
#include "gui/ParamDisplay.h"
#include "gui/Platform.h"
#include "gui/Slider.h"
#include "gui/ViewContainer.h"
#include "host/DelayEffect.h"
#include "persistence/Preferences.h"
#include "resources/art/Art.h"

namespace varitap {

using gui::Color;
using gui::Point;
using gui::Rect;

namespace {

constexpr int kBitmapResources[DelayEditor::kBitmapCount] = {2,   3,   100, 101, 102,
                                                             200, 201, 202, 300, 301};
constexpr int kSmallFont = gui::kNormalFontVerySmall;  // Helvetica 9
constexpr int kSliderTravel = 63;
constexpr int kRoutingChannels = kMaxChannels;  // entries per channel kind, present or not
constexpr Color kKnobHandle{255, 255, 255, 255};
constexpr Color kKnobShadow{0, 0, 0, 150};
constexpr const char* kFilterTypes[] = {"***", "Notch", "LowPass", "HighPass", "BandPass"};

int widthOf(const RefPtr<gui::Bitmap>& b) { return b ? b->width() : 0; }
int heightOf(const RefPtr<gui::Bitmap>& b) { return b ? b->height() : 0; }

RefPtr<gui::Knob> makeKnob(const Rect& r, gui::ControlListener* listener, int32_t tag) {
    auto knob = makeRef<gui::Knob>(r, listener, tag);
    knob->setHandleColor(kKnobHandle);
    knob->setShadowColor(kKnobShadow);
    return knob;
}

// A menu drawn as shadowed text over the art (routing, filter type, index).
RefPtr<gui::OptionMenu> makeTextMenu(const Rect& r, gui::ControlListener* listener, int32_t tag) {
    auto menu = makeRef<gui::OptionMenu>(r, listener, tag, gui::ParamDisplay::kShadowText);
    menu->setShadowColor(gui::kBlackColor);
    menu->setTransparent(true);
    menu->setFont(kSmallFont);
    return menu;
}

RefPtr<FittedDisplay> makeDisplay(const Rect& r, gui::HoriAlign align,
                                      gui::ParamDisplay::StringConvert convert) {
    auto display = makeRef<FittedDisplay>(r);
    display->setTransparent(true);
    display->setFont(kSmallFont);
    display->setHoriAlign(align);
    display->setMouseEnabled(false);
    display->setStringConvert(std::move(convert));
    return display;
}

RefPtr<gui::OnOffButton> makeButton(Point at, const RefPtr<gui::Bitmap>& bitmap,
                                    gui::ControlListener* listener, int32_t tag) {
    return makeRef<gui::OnOffButton>(
        Rect::fromSize(at.x, at.y, widthOf(bitmap), heightOf(bitmap) / 2), listener, tag,
        bitmap.get());
}

RefPtr<gui::HorizontalSlider> makeSlider(const Rect& r, const RefPtr<gui::Bitmap>& handle,
                                         gui::ControlListener* listener, int32_t tag) {
    return makeRef<gui::HorizontalSlider>(r, listener, tag, handle.get(), kSliderTravel, true);
}

// Truncation toward zero that stays defined for any value a host may send
// (NaN gives 0, huge values stop at the int range).
int truncatedInt(double value) {
    if (!(value == value)) return 0;
    if (value >= 2147483647.0) return 2147483647;
    if (value <= -2147483648.0) return -2147483647 - 1;
    return static_cast<int>(value);
}

void copyText(const char* from, char* text, size_t size) {
    if (text && size) std::snprintf(text, size, "%s", from ? from : "");
}

bool isTapTag(int32_t t, int* tap, int* k) {
    if (t < kTapParameterBase || t >= kModulatorParameterBase) return false;
    *tap = (t - kTapParameterBase) / kTapParameterCount;
    *k = (t - kTapParameterBase) % kTapParameterCount;
    return true;
}

bool isModulatorTag(int32_t t, int* m, int* j) {
    if (t < kModulatorParameterBase || t >= kParameterCount) return false;
    *m = (t - kModulatorParameterBase) / kModulatorParameterCount;
    *j = (t - kModulatorParameterBase) % kModulatorParameterCount;
    return true;
}

// An editor bitmap for a scale. At 100 % it is the bundle's PNG, which the
// art drew at that scale pixel for pixel; at any other scale the art draws
// it anew from its vector source, so that it is as sharp as at 100 %. A
// resource the art does not know is the bundle's PNG, which the drawing
// context then resamples.
void loadEditorBitmap(gui::Bitmap& bitmap, int resource, double scale) {
    if (scale != 1.0) {
        if (const art::EditorBitmap* art = art::findEditorBitmap(resource)) {
            if (bitmap.setPicture(art->draw(scale), art->width, art->height, scale)) return;
        }
    }
    bitmap.loadResource(resource);
}

// The editor's window in device pixels at a scale.
Rect windowSize(double scale) {
    return gui::PixelScale(scale).toDevice(Rect(0, 0, DelayEditor::kWidth, DelayEditor::kHeight));
}

}  // namespace

int DelayEditor::bitmapResource(BitmapSlot slot) { return kBitmapResources[slot]; }

DelayEditor::DelayEditor(DelayEffect* effect) : plugin_(effect) {
    loadBackgrounds();
}

DelayEditor::~DelayEditor() {
    close();
    // The choice is remembered by file name only now, so that trying
    // backgrounds out does not rewrite the options file each time, and only
    // when it differs from the one the editor started with: an editor left as
    // it was (a host's plug-in scan among them) writes nothing.
    if (background_ && background_->entry() && background_->entry()->fileName() != firstBackground_) {
        if (Preferences* preferences = Preferences::current()) {
            preferences->setString(kOptionBackgroundBitmap, background_->entry()->fileName());
        }
    }
    background_.reset();
    for (auto& b : bitmaps_) b.reset();
}

PluginEditor* createDelayEditor(DelayEffect& effect) { return new DelayEditor(&effect); }

// ---------------------------------------------------------------------------
// Building the tree

bool DelayEditor::open(void* parentWindow) {
    // Hosts may open twice without a close: the old tree goes first.
    close();
    PluginEditor::open(parentWindow);
    askDisplayScale();
    scale_ = openingScale();
    loadBitmaps(scale_);

    ScopedLock lock(lock_);
    frameThread_ = std::this_thread::get_id();
    for (auto& pending : pendingType_) pending = false;
    auto frame = makeRef<gui::Frame>(Rect(0, 0, kWidth, kHeight), this);
    frame->setScale(scale_);
    if (background_ && background_->isLoaded()) frame->setBackground(background_.get());
    frame->addView(makeRef<gui::BitmapView>(
                       Rect::fromSize(0, 5, widthOf(bitmaps_[kMenuHandleBitmap]),
                                      heightOf(bitmaps_[kMenuHandleBitmap])),
                       bitmaps_[kMenuHandleBitmap].get())
                       .get());
    frame->addView(makeRef<KeyRoutingView>(Rect(0, 0, kWidth, kHeight), *this).get());

    const int w = widthOf(bitmaps_[kStripBitmap]);
    const int h = heightOf(bitmaps_[kStripBitmap]);
    const int p = heightOf(bitmaps_[kPanelBitmap]);
    for (int i = 0; i < kTapCount; ++i) {
        const int left = 32 + i * (w - 10);
        buildTapStrip(i, left, w, h);
        buildModulatorPanel(i, left, 1 + h - 4, w, p);
        frame->addView(tapStrip_[i].get());
        frame->addView(modulatorPanel_[i].get());
    }

    wetDry_ = makeKnob(Rect(4, 357, 29, 382), this, kWetDryParameter);
    frame->addView(wetDry_.get());
    about_ = makeRef<AboutOverlay>(Rect(0, 0, kWidth, kHeight), menuStripRect(),
                                   bitmaps_[kAboutBitmap].get(), this);
    frame->addView(about_.get());

    // Every widget starts at the plug-in's current value. The Type switches
    // were set while their panels were built.
    for (int32_t index = 0; index < kParameterCount; ++index) {
        int m, j;
        if (isModulatorTag(index, &m, &j) && j == kModulatorType) continue;
        showParameter(index, plugin_->getParameter(index));
    }

    if (!frame->open(reinterpret_cast<uintptr_t>(parentWindow))) {
        frame->removeAll();
        releaseWidgets();
        PluginEditor::close();
        return false;
    }
    frame_ = frame;
    fillRoutingMenus();
    // A host that sized its window before the display's scale was known is
    // told the size it needs.
    if (scale_ != reportedScale_) {
        const Rect size = windowSize(scale_);
        if (plugin_->resizeEditor(size.width(), size.height())) reportedScale_ = scale_;
    }
    return true;
}

void* DelayEditor::nativeWindow() const {
    return frame_ ? reinterpret_cast<void*>(static_cast<uintptr_t>(frame_->windowId())) : nullptr;
}

void DelayEditor::loadBitmaps(double scale) {
    for (int slot = 0; slot < kBitmapCount; ++slot) {
        if (!bitmaps_[slot]) bitmaps_[slot] = makeRef<gui::Bitmap>();
        // The about picture is the one big drawing (some 0.1 s at 200 %, the
        // rest of the art together a few ms): at scales other than 100 % it
        // is drawn when the about box is first shown.
        if (slot != kAboutBitmap || scale == 1.0) loadBitmap(static_cast<BitmapSlot>(slot), scale);
    }
}

void DelayEditor::loadBitmap(BitmapSlot slot, double scale) {
    gui::Bitmap& bitmap = *bitmaps_[slot];
    // A picture that could not be read is tried again at the next opening.
    if (!bitmap.isLoaded() || bitmap.scale() != scale) {
        loadEditorBitmap(bitmap, kBitmapResources[slot], scale);
    }
}

void DelayEditor::prepareAboutPicture() {
    if (frame_) loadBitmap(kAboutBitmap, scale_);
}

// ---------------------------------------------------------------------------
// Scale

double DelayEditor::nearestZoomStep(double scale) {
    if (!(scale > kZoomSteps[0])) return kZoomSteps[0];  // also NaN
    const double last = kZoomSteps[kZoomStepCount - 1];
    if (scale >= last) return last;
    // The steps are a quarter apart.
    return kZoomSteps[static_cast<int>(std::floor((scale - kZoomSteps[0]) / 0.25 + 0.5))];
}

void DelayEditor::askDisplayScale() {
    const double display = gui::displayScale();
    displayScale_ = display > 0.0 ? nearestZoomStep(display) : 0.0;
}

double DelayEditor::openingScale() const {
    if (hostScale_ > 0.0) return hostScale_;
    long percent = 0;
    Preferences* preferences = Preferences::current();
    if (preferences && preferences->getNumber(kOptionEditorZoom, &percent, 0) && percent > 0) {
        return nearestZoomStep(static_cast<double>(percent) / 100.0);
    }
    return displayScale_ > 0.0 ? displayScale_ : 1.0;
}

double DelayEditor::scale() const { return frame_ ? scale_ : openingScale(); }

void DelayEditor::getSize(int32_t* width, int32_t* height) {
    reportedScale_ = scale();
    const Rect size = windowSize(reportedScale_);
    *width = size.width();
    *height = size.height();
}

void DelayEditor::setScale(double scale) {
    hostScale_ = std::isfinite(scale) && scale > 0.0 ? std::clamp(scale, 1.0, kMaxScale) : 0.0;
    applyScale(openingScale(), false);
}

void DelayEditor::chooseZoom(int step) {
    if (step < 0 || step >= kZoomStepCount) return;
    if (Preferences* preferences = Preferences::current()) {
        preferences->setNumber(kOptionEditorZoom, std::lround(kZoomSteps[step] * 100.0));
    }
    applyScale(openingScale(), true);
}

void DelayEditor::applyScale(double scale, bool askHost) {
    if (!frame_ || scale == scale_) return;
    const Rect size = windowSize(scale);
    if (askHost && !plugin_->resizeEditor(size.width(), size.height())) return;
    reportedScale_ = scale;
    // The pictures change under the views: the frame's drawing must wait.
    auto guard = frame_->lockFrame();
    scale_ = scale;
    loadBitmaps(scale);
    if (about_ && about_->aboutShown()) prepareAboutPicture();
    frame_->setScale(scale);
}

void DelayEditor::buildTapStrip(int i, int left, int w, int h) {
    auto strip = makeRef<gui::ViewContainer>(Rect::fromSize(left, 1, w, h));
    strip->setTransparent(true);
    tapStrip_[i] = strip;
    const int base = tapParameterIndex(i, 0);

    strip->addView(
        makeRef<gui::BitmapView>(Rect(0, 0, w, h), bitmaps_[kStripBitmap].get()).get());
    char number[16];
    std::snprintf(number, sizeof number, "%d", i + 1);
    auto title = makeRef<StaticTextView>(Rect(4, 2, w - 12, 14), number);
    title->setTransparent(true);
    title->setFont(kSmallFont);
    title->setMouseEnabled(false);
    strip->addView(title.get());

    inputMenu_[i] = makeTextMenu(Rect(45, 22, 75, 33), this, kTapInputParameterBase + i);
    outputMenu_[i] = makeTextMenu(Rect(45, 260, 75, 271), this, kTapOutputParameterBase + i);
    delayKnob_[i] = makeKnob(Rect(13, 62, 38, 87), this, base + kTapDelay);
    feedbackKnob_[i] = makeKnob(Rect(49, 98, 74, 123), this, base + kTapFeedback);
    volumeKnob_[i] = makeKnob(Rect(13, 134, 38, 159), this, base + kTapVolume);
    tapSync_[i] = makeButton(Point{43, 43}, bitmaps_[kSyncBitmap], this, base + kTapSync);
    delayDisplay_[i] = makeDisplay(Rect(48, 74, 72, 86), gui::HoriAlign::Center,
                                   [this, i](float, char* text, size_t size) {
                                       copyText(delayText(i).c_str(), text, size);
                                   });

    // The tempo note menu lies over the delay display and draws nothing of
    // its own: the display shows through, and a click on it opens the note
    // menu only while the user has switched Sync on.
    tempoMenu_[i] = makeRef<gui::OptionMenu>(Rect(48, 74, 72, 86), this, kTempoMenuTagBase + i,
                                             gui::ParamDisplay::kNoDrawStyle);
    tempoMenu_[i]->setTransparent(true);
    tempoMenu_[i]->setFont(kSmallFont);
    for (int n = 0; n < noteValueCount(); ++n) tempoMenu_[i]->addEntry(noteValueName(n));
    // On opening the menu follows the stored Sync value, so that a tap saved
    // with Sync on can be given a note at once; afterwards only the user's
    // own switching changes it.
    tempoMenu_[i]->setMouseEnabled(plugin_->getParameter(base + kTapSync) != 0.0f);

    feedbackDisplay_[i] = makeDisplay(Rect(12, 110, 36, 122), gui::HoriAlign::Right,
                                      [this, i](float, char* text, size_t size) {
                                          copyText(feedbackText(i).c_str(), text, size);
                                      });
    volumeDisplay_[i] = makeDisplay(Rect(48, 146, 72, 158), gui::HoriAlign::Right,
                                    [this, i](float, char* text, size_t size) {
                                        copyText(volumeText(i).c_str(), text, size);
                                    });
    filterMenu_[i] = makeTextMenu(Rect(13, 182, 68, 193), this, base + kTapFilterType);
    for (const char* type : kFilterTypes) filterMenu_[i]->addEntry(localized(type).c_str());
    cutoff_[i] = makeSlider(Rect(11, 211, 74, 221), bitmaps_[kSliderHandleBitmap], this,
                            base + kTapCutoff);
    resonance_[i] = makeSlider(Rect(11, 235, 74, 245), bitmaps_[kSliderHandleBitmap], this,
                               base + kTapResonance);

    for (gui::View* view :
         std::initializer_list<gui::View*>{inputMenu_[i].get(), outputMenu_[i].get(),
                                           delayKnob_[i].get(), feedbackKnob_[i].get(),
                                           volumeKnob_[i].get(), tapSync_[i].get(),
                                           delayDisplay_[i].get(), tempoMenu_[i].get(),
                                           feedbackDisplay_[i].get(), volumeDisplay_[i].get(),
                                           filterMenu_[i].get(), cutoff_[i].get(),
                                           resonance_[i].get()}) {
        strip->addView(view);
    }
}

void DelayEditor::buildModulatorPanel(int m, int left, int top, int w, int p) {
    auto panel = makeRef<gui::ViewContainer>(Rect::fromSize(left, top, w, p));
    panel->setTransparent(true);
    modulatorPanel_[m] = panel;
    const int base = modulatorParameterIndex(m, 0);

    panel->addView(makeRef<gui::BitmapView>(Rect(0, 0, w, p), bitmaps_[kPanelBitmap].get()).get());
    power_[m] = makeButton(Point{13, 13}, bitmaps_[kPowerBitmap], this, base + kModulatorPower);
    panel->addView(power_[m].get());

    const RefPtr<gui::Bitmap>& typeArt = bitmaps_[kTypeBitmap];
    const int typeHeight = heightOf(typeArt) / 4;
    typeSwitch_[m] = makeRef<gui::MultiPositionSwitch>(
        Rect::fromSize(11, 29, widthOf(typeArt), typeHeight), this, base + kModulatorType, 4,
        typeHeight, typeArt.get());
    // Built from 3 x the Type parameter (host updates later set the plain
    // value): only a Type of 1.0 gives 3.0 and so shows the table toggle.
    const float typeValue = 3.0f * plugin_->getParameter(base + kModulatorType);
    typeSwitch_[m]->setValue(typeValue);
    panel->addView(typeSwitch_[m].get());

    tableToggle_[m] = makeButton(Point{33, 32}, bitmaps_[kTableToggleBitmap], this,
                                 kTableToggleTagBase + m);
    tableToggle_[m]->setValue(0.0f);
    if (typeValue == 3.0f) panel->addView(tableToggle_[m].get());

    indexMenu_[m] = makeTextMenu(Rect(28, 12, 70, 23), this, base + kModulatorIndex);
    indexMenu_[m]->setHoriAlign(gui::HoriAlign::Left);
    char name[kNameTextMax + 1];
    for (int32_t n = kWetDryParameter; n < kModulatorParameterBase; ++n) {
        name[0] = '\0';
        plugin_->getParameterName(n, name);
        indexMenu_[m]->addEntry(name);
    }
    speedKnob_[m] = makeKnob(Rect(13, 46, 38, 71), this, base + kModulatorSpeed);
    speedDisplay_[m] = makeDisplay(Rect(48, 58, 72, 70), gui::HoriAlign::Center,
                                   [this, m](float, char* text, size_t size) {
                                       copyText(speedText(m).c_str(), text, size);
                                   });
    modSync_[m] = makeButton(Point{41, 29}, bitmaps_[kSyncBitmap], this, base + kModulatorSync);
    min_[m] = makeSlider(Rect(11, 84, 74, 94), bitmaps_[kSliderHandleBitmap], this,
                         base + kModulatorMin);
    max_[m] = makeSlider(Rect(11, 104, 74, 114), bitmaps_[kSliderHandleBitmap], this,
                         base + kModulatorMax);
    for (gui::View* view : std::initializer_list<gui::View*>{
             indexMenu_[m].get(), speedKnob_[m].get(), speedDisplay_[m].get(), modSync_[m].get(),
             min_[m].get(), max_[m].get()}) {
        panel->addView(view);
    }

    // The table view lives outside the panel until its toggle is switched on.
    const RefPtr<gui::Bitmap>& tableArt = bitmaps_[kTableBitmap];
    tableView_[m] = makeRef<ModulatorTableView>(
        Rect::fromSize(8, 44, widthOf(tableArt), heightOf(tableArt)), *this, m, tableArt.get());
}

void DelayEditor::releaseWidgets() {
    for (int i = 0; i < kTapCount; ++i) {
        tapStrip_[i].reset();
        inputMenu_[i].reset();
        outputMenu_[i].reset();
        delayKnob_[i].reset();
        volumeKnob_[i].reset();
        feedbackKnob_[i].reset();
        tapSync_[i].reset();
        delayDisplay_[i].reset();
        feedbackDisplay_[i].reset();
        volumeDisplay_[i].reset();
        filterMenu_[i].reset();
        cutoff_[i].reset();
        resonance_[i].reset();
        tempoMenu_[i].reset();
    }
    for (int m = 0; m < kModulatorCount; ++m) {
        modulatorPanel_[m].reset();
        power_[m].reset();
        min_[m].reset();
        max_[m].reset();
        speedKnob_[m].reset();
        speedDisplay_[m].reset();
        indexMenu_[m].reset();
        typeSwitch_[m].reset();
        modSync_[m].reset();
        tableView_[m].reset();
        tableToggle_[m].reset();
    }
    wetDry_.reset();
    about_.reset();
}

void DelayEditor::close() {
    ScopedLock lock(lock_);
    if (frame_) {
        frame_->close();
        frame_->removeAll();
        frame_.reset();
    }
    releaseWidgets();
    PluginEditor::close();
}

bool DelayEditor::isOpen() const { return frame_ != nullptr; }

void DelayEditor::idle() {
    if (!frame_) return;
    showPendingTypes();
    frame_->idle();
}

void DelayEditor::showPendingTypes() {
    ScopedLock lock(lock_);
    if (!frame_) return;
    // Hosts may idle the editor on another thread than the one that opened it.
    frameThread_ = std::this_thread::get_id();
    for (int m = 0; m < kModulatorCount; ++m) {
        if (pendingType_[m].exchange(false)) {
            placeTableViews(m, plugin_->getParameter(modulatorParameterIndex(m, kModulatorType)));
        }
    }
}

int DelayEditor::onKeyDown(const gui::KeyEvent& key) {
    // The frame offers the key to its views (the key routing view answers 0
    // when the key comes back to it).
    return frame_ ? frame_->dispatchKeyDown(key) : 0;
}

// ---------------------------------------------------------------------------
// Display texts

std::string DelayEditor::delayText(int tap) const {
    char text[64] = {};
    plugin_->engine().tap(tap).getParameterDisplay(kTapDelay, text);
    return text;
}

std::string DelayEditor::feedbackText(int tap) const {
    const float feedback = plugin_->getParameter(tapParameterIndex(tap, kTapFeedback));
    char text[32];
    std::snprintf(text, sizeof text, "%d%%", truncatedInt(feedback * 100.0));
    return text;
}

std::string DelayEditor::volumeText(int tap) const {
    char text[64] = {};
    plugin_->engine().tap(tap).getParameterDisplay(kTapVolume, text);
    return text;
}

std::string DelayEditor::speedText(int m) const {
    return speedTextFor(plugin_->engine().modulator(m));
}

std::string DelayEditor::speedTextFor(const TableModulator& modulator) {
    const float speed = modulator.getSpeed();
    if (modulator.isSynced()) {
        int note = truncatedInt(static_cast<float>(noteValueCount() - 1) * speed);
        if (note < 0) note = 0;
        return noteValueName(note);
    }
    // r / r is 1 for every usable sample rate and NaN while the rate is 0,
    // which shows "nan" until the host sets a rate: kept as it always was.
    const float r = modulator.sampleRate();
    const double shown = speed * 2.0 * (r / r);
    if (std::isnan(shown)) return "nan";
    if (std::isinf(shown)) return shown > 0 ? "inf" : "-inf";
    // "%.2f" in any host locale.
    char text[64];
    auto result = std::to_chars(text, text + sizeof text - 1, shown, std::chars_format::fixed, 2);
    *result.ptr = '\0';
    return text;
}

// ---------------------------------------------------------------------------
// Parameters to widgets

void DelayEditor::setParameter(int32_t index, float value) {
    ScopedTryLock lock(lock_);
    if (!lock.locked() || !frame_) return;
    showParameter(index, value);
}

void DelayEditor::showParameter(int32_t index, float value) {
    if (index < 0) return;
    if (index < kTapOutputParameterBase) {
        inputMenu_[index]->setValue(value * kInputSelectorScale);
        return;
    }
    if (index < kWetDryParameter) {
        outputMenu_[index - kTapOutputParameterBase]->setValue(value * kOutputSelectorScale);
        return;
    }
    if (index == kWetDryParameter) {
        wetDry_->setValue(value);
        return;
    }
    int i, k;
    if (isTapTag(index, &i, &k)) {
        switch (k) {
            case kTapDelay:
                delayKnob_[i]->setValue(value);
                delayDisplay_[i]->setDirty();
                break;
            case kTapVolume:
                volumeKnob_[i]->setValue(value);
                volumeDisplay_[i]->setDirty();
                break;
            case kTapFeedback:
                feedbackKnob_[i]->setValue(value);
                feedbackDisplay_[i]->setDirty();
                break;
            case kTapSync:
                // Whether the note menu takes clicks stays as it is: only the
                // user's own switching changes that.
                tapSync_[i]->setValue(value);
                delayDisplay_[i]->setDirty();
                break;
            case kTapFilterType:
                filterMenu_[i]->setValue(value * 4.0f);
                break;
            case kTapCutoff:
                cutoff_[i]->setValue(value);
                break;
            case kTapResonance:
                resonance_[i]->setValue(value);
                break;
        }
        return;
    }
    int m, j;
    if (!isModulatorTag(index, &m, &j)) return;
    switch (j) {
        case kModulatorType:
            showModulatorType(m, value);
            break;
        case kModulatorIndex:
            indexMenu_[m]->setValue(value - static_cast<float>(kWetDryParameter));
            break;
        case kModulatorSpeed:
            speedKnob_[m]->setValue(value);
            speedDisplay_[m]->setDirty();
            break;
        case kModulatorMin:
            min_[m]->setValue(value);
            break;
        case kModulatorMax:
            max_[m]->setValue(value);
            break;
        case kModulatorSync:
            modSync_[m]->setValue(value);
            speedDisplay_[m]->setDirty();
            break;
        case kModulatorPower:
            power_[m]->setValue(value);
            break;
        default:
            // A table step: the table view redraws with it.
            tableView_[m]->setDirty();
            break;
    }
}

void DelayEditor::showModulatorType(int m, float value) {
    typeSwitch_[m]->setValue(value);
    if (std::this_thread::get_id() != frameThread_) {
        pendingType_[m] = true;
        return;
    }
    placeTableViews(m, value);
}

void DelayEditor::placeTableViews(int m, float value) {
    gui::ViewContainer* panel = modulatorPanel_[m].get();
    // Never wait for the frame: a menu's modal loop may hold it.
    std::unique_lock<std::recursive_mutex> guard;
    if (gui::Frame* f = panel->frame()) {
        guard = std::unique_lock<std::recursive_mutex>(f->guard(), std::try_to_lock);
        if (!guard.owns_lock()) {
            pendingType_[m] = true;
            return;
        }
    }
    pendingType_[m] = false;
    panel->removeView(tableView_[m].get());
    panel->removeView(tableToggle_[m].get());
    if (value == 1.0f) panel->addView(tableToggle_[m].get());
    panel->setDirtyAll();
}

// ---------------------------------------------------------------------------
// Widgets to parameters

void DelayEditor::valueChanged(gui::DrawContext* context, gui::Control* control) {
    if (!control) return;
    float v = control->value();
    const int32_t t = control->tag();
    if (t < 0) return;
    if (t < kTapOutputParameterBase) {
        v = v / kInputSelectorScale;
    } else if (t < kWetDryParameter) {
        v = v / kOutputSelectorScale;
    }

    int i, k, m, j;
    if (isTapTag(t, &i, &k)) {
        switch (k) {
            case kTapDelay:
                delayDisplay_[i]->setDirty();
                break;
            case kTapVolume:
                volumeDisplay_[i]->setDirty();
                break;
            case kTapFeedback:
                feedbackDisplay_[i]->setDirty();
                break;
            case kTapSync:
                tempoMenu_[i]->setMouseEnabled(v != 0.0f);
                delayDisplay_[i]->setDirty();
                break;
            case kTapFilterType:
                v = v * 0.25f;
                break;
            default:
                break;
        }
    } else if (isModulatorTag(t, &m, &j)) {
        if (j == kModulatorIndex) {
            v = v + static_cast<float>(kWetDryParameter);
        } else if (j == kModulatorType) {
            gui::ViewContainer* panel = modulatorPanel_[m].get();
            auto guard = panel->lockFrame();
            if (v == 1.0f) {
                if (!panel->isChild(tableToggle_[m].get())) panel->addView(tableToggle_[m].get());
                panel->setDirtyAll();
            } else if (plugin_->getParameter(t) == 1.0f) {
                tableToggle_[m]->setValue(0.0f);
                panel->removeView(tableView_[m].get());
                panel->removeView(tableToggle_[m].get());
                panel->setDirtyAll();
            }
        }
    } else if (t >= kTableToggleTagBase && t <= kTableToggleTagBase + 10) {
        m = t - kTableToggleTagBase;
        if (m >= kModulatorCount) return;
        gui::ViewContainer* panel = modulatorPanel_[m].get();
        auto guard = panel->lockFrame();
        if (v == 1.0f) {
            panel->addView(tableView_[m].get());
        } else {
            panel->removeView(tableView_[m].get());
        }
        panel->setDirtyAll();
        return;
    } else if (t >= kTempoMenuTagBase && t <= kTempoMenuTagBase + 10) {
        i = t - kTempoMenuTagBase;
        if (i >= kTapCount) return;
        // The small addend keeps the tap's truncation on the chosen note.
        delayKnob_[i]->setValue(v / static_cast<float>(noteValueCount() - 1) + 0.000005f);
        valueChanged(context, delayKnob_[i].get());
        return;
    } else if (t >= kParameterCount) {
        return;
    }

    plugin_->setParameterAutomated(t, v);
    // Hosts that do not hand automation back: store it here.
    if (plugin_->repeatsAutomatedValues()) plugin_->setParameter(t, v);
}

void DelayEditor::setTableValue(int modulator, int point, float value) {
    if (modulator < 0 || modulator >= kModulatorCount) return;
    plugin_->engine().modulator(modulator).setTableValue(point, value);
}

float DelayEditor::getTableValue(int modulator, int point) {
    if (modulator < 0 || modulator >= kModulatorCount) return 0.0f;
    return plugin_->engine().modulator(modulator).getTableValue(point);
}

void DelayEditor::beginEdit(int32_t index) {
    // Only parameter numbers reach the host; the tempo menus' tags are not.
    if (index >= 0 && index < kParameterCount) plugin_->beginEdit(index);
}

void DelayEditor::endEdit(int32_t index) {
    if (index >= 0 && index < kParameterCount) plugin_->endEdit(index);
}

// ---------------------------------------------------------------------------
// Routing menus

void DelayEditor::rebuildRoutingMenus() {
    ScopedLock lock(lock_);
    fillRoutingMenus();
}

void DelayEditor::fillRoutingMenus() {
    if (!frame_ || !inputMenu_[0] || !outputMenu_[0]) return;
    // The plug-in names no channels, so every entry is numbered; channels the
    // configuration lacks stay listed, disabled, so that indices never shift.
    const int inputs = plugin_->inputChannels();
    const int outputs = plugin_->outputChannels();
    char text[32];
    auto addChannels = [&](gui::OptionMenu& menu, const char* kind, int present) {
        for (int n = 0; n < kRoutingChannels; ++n) {
            std::snprintf(text, sizeof text, n < present ? "%s %d" : "-G%s %d", kind, n + 1);
            menu.addEntry(text);
        }
    };
    auto addInternal = [&](gui::OptionMenu& menu) {
        for (int n = 1; n <= kInternalBusCount; ++n) {
            std::snprintf(text, sizeof text, "Intern %d", n);
            menu.addEntry(text);
        }
    };
    for (int i = 0; i < kTapCount; ++i) {
        gui::OptionMenu& input = *inputMenu_[i];
        input.removeAllEntry();
        input.addEntry("***");
        addChannels(input, "In", inputs);
        addChannels(input, "Out", outputs);
        addInternal(input);
        input.setValue(kInputSelectorScale * plugin_->getParameter(kTapInputParameterBase + i));

        gui::OptionMenu& output = *outputMenu_[i];
        output.removeAllEntry();
        output.addEntry("***");
        addChannels(output, "Out", outputs);
        addInternal(output);
        output.setValue(kOutputSelectorScale * plugin_->getParameter(kTapOutputParameterBase + i));
    }
}

}  // namespace varitap
