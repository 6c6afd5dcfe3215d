// Varitap's editor: the 865 x 400 panel with ten tap strips, the modulator
// panel under each, the wet/dry knob, the menu strip on the left edge that
// opens the context menu, and the about overlay.
//
// Scale: the panel is laid out in 865 x 400 logical pixels at every scale;
// the window, the rectangle given to the host, the art (drawn anew from its
// vector source), the text and every mouse position follow the scale, which
// the frame and its drawing context apply in one place.
//
// Threads: open, close, idle, valueChanged, the menu and the backgrounds run
// on the host's user-interface thread. setParameter may come from any thread
// (host automation, the modulators on the audio thread); it only takes the
// editor's lock without waiting and sets widget values and dirty marks.
#pragma once

#include <atomic>
#include <cstdint>
#include <string>
#include <thread>
#include <vector>

#include "engine/ParameterLayout.h"
#include "gui/Control.h"
#include "gui/Frame.h"
#include "host/PluginEditor.h"
#include "modulation/RecursiveMutex.h"
#include "persistence/ObjectList.h"
#include "persistence/RefObject.h"

namespace varitap {

namespace gui {
class Bitmap;
class HorizontalSlider;
class Knob;
class MultiPositionSwitch;
class OnOffButton;
class OptionMenu;
class ParamDisplay;
class ViewContainer;
}  // namespace gui

class AboutOverlay;
class BackgroundBitmap;
class BackgroundEntry;
class DelayEffect;
class ModulatorTableView;
class Preset;
class PresetFolder;
class TableModulator;

// What the table editor view needs of its owner: the point values of a
// modulator's table. Reading past the table's length yields 0.0, writing past
// it does nothing.
class ModulatorTableAccess {
public:
    virtual ~ModulatorTableAccess() = default;
    virtual void setTableValue(int modulator, int point, float value) = 0;
    virtual float getTableValue(int modulator, int point) = 0;
};

// The context menu of one click: the tree and the texts its commands are
// recognised by. Built afresh for every click.
struct ContextMenu {
    RefPtr<gui::OptionMenu> top;
    RefPtr<gui::OptionMenu> presets;
    RefPtr<gui::OptionMenu> options;
    RefPtr<gui::OptionMenu> background;
    RefPtr<gui::OptionMenu> zoom;  // one entry per zoom step
    std::vector<RefPtr<gui::OptionMenu>> folders;  // one per library folder, tag = its index
    std::string removePresetText;                  // empty when there is no current preset
    bool optionChecked[3] = {};  // the switch options' check marks, in menu order
};

class DelayEditor : public PluginEditor,
                    public gui::ControlListener,
                    public gui::EditListener,
                    public ModulatorTableAccess {
public:
    // Editor bitmaps by resource number, in the order they are kept.
    enum BitmapSlot : int {
        kAboutBitmap,         // 2
        kMenuHandleBitmap,    // 3
        kStripBitmap,         // 100
        kSyncBitmap,          // 101
        kSliderHandleBitmap,  // 102
        kPanelBitmap,         // 200
        kPowerBitmap,         // 201
        kTypeBitmap,          // 202
        kTableBitmap,         // 300
        kTableToggleBitmap,   // 301
        kBitmapCount
    };
    static int bitmapResource(BitmapSlot slot);

    static constexpr int kWidth = 865;
    static constexpr int kHeight = 400;
    static constexpr int32_t kTableToggleTagBase = 10000;
    static constexpr int32_t kTempoMenuTagBase = 30001;
    // The menu strip along the left edge that opens the context menu.
    static constexpr gui::Rect menuStripRect() { return gui::Rect(0, 0, 32, 352); }

    // The scales the user can choose under "Zoom", in device pixels per
    // logical pixel (100 % to 200 %).
    static constexpr int kZoomStepCount = 5;
    static constexpr double kZoomSteps[kZoomStepCount] = {1.0, 1.25, 1.5, 1.75, 2.0};
    // The zoom step nearest to a scale, halfway up; scales outside the steps
    // give the nearest end. Used for the display's scale and stored zooms.
    static double nearestZoomStep(double scale);
    // The highest scale a host may set.
    static constexpr double kMaxScale = 4.0;

    // ui thread (construction of the plug-in instance, through the editor
    // factory, which hands the editor to the instance). Gathers the
    // backgrounds.
    explicit DelayEditor(DelayEffect* effect);
    // ui thread. Remembers the chosen background's file name in the options.
    ~DelayEditor() override;

    // ui thread. Builds the whole view tree inside the host's window (an X
    // window id in the pointer); an open editor is closed first. False when
    // the window cannot be had.
    bool open(void* parentWindow) override;
    // ui thread. Under the editor's lock: deletes the frame and every widget.
    void close() override;
    // ui thread. Events and redraws of dirty views.
    void idle() override;
    bool isOpen() const override;
    void* nativeWindow() const override;
    int connectionFd() const override { return frame_ ? frame_->connectionFd() : -1; }
    // ui thread. A key the frame did not use; 1 when used.
    int onKeyDown(const gui::KeyEvent& key);
    // ui thread (the host asks before and after opening). The window's size at the open editor's
    // scale, or, while closed, at the scale it would open at as far as that
    // is known without asking the display (which only opening does).
    void getSize(int32_t* width, int32_t* height) override;

    // Scale (ui thread). The editor opens at the first of these that has a
    // scale: the host's (setScale), the user's Zoom choice (the option "Editor
    // Zoom"), the display's (displayScale(): Xft.dpi / 96 at the nearest zoom
    // step), else 1.
    // The host's scale where the plug-in format has one (LV2 ui:scaleFactor,
    // CLAP set_scale), kept within 1..kMaxScale; 0 hands the choice back to
    // the user and the display. An open editor takes it at once.
    void setScale(double scale) override;
    // The open editor's scale, or, while closed, the one getSize reports.
    double scale() const;
    // The user picks zoom step `step`: it is stored in the options and the
    // open editor grows or shrinks at once when the host agrees to the new
    // window size (PluginHost::resizeEditor); a host that does not answer gets
    // it at the editor's next opening. Under a host's scale the choice is
    // only stored.
    void chooseZoom(int step);
    // any thread. A stored parameter changed: its widget follows, unless the
    // editor's lock is busy (the update is then dropped).
    void setParameter(int32_t index, float value) override;
    // ui thread. Refills both routing menus of every tap for the current
    // channel configuration (blocking on the editor's lock).
    void rebuildRoutingMenus() override;

    // ui thread. The user changed a widget.
    void valueChanged(gui::DrawContext* context, gui::Control* control) override;
    // ModulatorTableAccess: the plug-in's modulator tables.
    void setTableValue(int modulator, int point, float value) override;
    float getTableValue(int modulator, int point) override;
    // EditListener: the user starts or ends a gesture; the plug-in tells the
    // host.
    void beginEdit(int32_t index) override;
    void endEdit(int32_t index) override;

    // ui thread. Draws the about box's picture for the open editor's scale
    // when it is not yet (the about overlay calls it before showing it).
    void prepareAboutPicture();

    // ui thread. The context menu at a point of the menu strip: builds it,
    // pops it up, carries out the choice. False only when "About ..." was
    // chosen (the about overlay then shows the about box).
    bool handleMenuClick(gui::DrawContext* context, gui::Point where);
    // ui thread. The parts of handleMenuClick: the tree as the library and the
    // options are now, and the command for an entry chosen in one of its
    // menus (menu null: nothing chosen).
    ContextMenu buildContextMenu(gui::Point where);
    bool carryOutChoice(ContextMenu& menu, gui::OptionMenu* chosenMenu, int index);

    // Backgrounds (ui thread). The list gathered at construction, the one in
    // use (may be null) and a new choice by index, applied at once; the option
    // is written only when the editor object goes.
    void loadBackgrounds();
    const ObjectList& backgrounds() const { return backgrounds_; }
    BackgroundBitmap* currentBackground() const { return background_.get(); }
    bool chooseBackground(int index);

    // Read-outs (ui thread): the plug-in, the frame while open, the widgets.
    DelayEffect* plugin() const { return plugin_; }
    gui::Frame* frame() const { return frame_.get(); }
    gui::Bitmap* bitmap(BitmapSlot slot) const { return bitmaps_[slot].get(); }
    gui::ViewContainer* tapStrip(int tap) const { return tapStrip_[tap].get(); }
    gui::ViewContainer* modulatorPanel(int m) const { return modulatorPanel_[m].get(); }
    gui::OptionMenu* inputMenu(int tap) const { return inputMenu_[tap].get(); }
    gui::OptionMenu* outputMenu(int tap) const { return outputMenu_[tap].get(); }
    gui::Knob* delayKnob(int tap) const { return delayKnob_[tap].get(); }
    gui::Knob* volumeKnob(int tap) const { return volumeKnob_[tap].get(); }
    gui::Knob* feedbackKnob(int tap) const { return feedbackKnob_[tap].get(); }
    gui::OnOffButton* tapSyncButton(int tap) const { return tapSync_[tap].get(); }
    gui::ParamDisplay* delayDisplay(int tap) const { return delayDisplay_[tap].get(); }
    gui::ParamDisplay* feedbackDisplay(int tap) const { return feedbackDisplay_[tap].get(); }
    gui::ParamDisplay* volumeDisplay(int tap) const { return volumeDisplay_[tap].get(); }
    gui::OptionMenu* filterMenu(int tap) const { return filterMenu_[tap].get(); }
    gui::HorizontalSlider* cutoffSlider(int tap) const { return cutoff_[tap].get(); }
    gui::HorizontalSlider* resonanceSlider(int tap) const { return resonance_[tap].get(); }
    gui::OptionMenu* tempoMenu(int tap) const { return tempoMenu_[tap].get(); }
    gui::OnOffButton* powerButton(int m) const { return power_[m].get(); }
    gui::HorizontalSlider* minSlider(int m) const { return min_[m].get(); }
    gui::HorizontalSlider* maxSlider(int m) const { return max_[m].get(); }
    gui::Knob* speedKnob(int m) const { return speedKnob_[m].get(); }
    gui::ParamDisplay* speedDisplay(int m) const { return speedDisplay_[m].get(); }
    gui::OptionMenu* indexMenu(int m) const { return indexMenu_[m].get(); }
    gui::MultiPositionSwitch* typeSwitch(int m) const { return typeSwitch_[m].get(); }
    gui::OnOffButton* modulatorSyncButton(int m) const { return modSync_[m].get(); }
    ModulatorTableView* tableView(int m) const { return tableView_[m].get(); }
    gui::OnOffButton* tableToggle(int m) const { return tableToggle_[m].get(); }
    gui::Knob* wetDryKnob() const { return wetDry_.get(); }
    AboutOverlay* aboutOverlay() const { return about_.get(); }

    // The texts the displays show (ui thread; also what the displays draw).
    std::string delayText(int tap) const;
    std::string feedbackText(int tap) const;
    std::string volumeText(int tap) const;
    std::string speedText(int m) const;

private:
    // The speed display's text for a modulator: the note name when it is
    // synchronised, else "%.2f" of speed x 2.0 x (rate / rate), which shows
    // "nan" while the modulator's sample rate is 0.
    static std::string speedTextFor(const TableModulator& modulator);
    // One factory each for a tap strip and a modulator panel.
    void buildTapStrip(int tap, int left, int stripWidth, int stripHeight);
    void buildModulatorPanel(int m, int left, int top, int panelWidth, int panelHeight);
    // Puts a parameter's value on its widget (the editor's lock held).
    void showParameter(int32_t index, float value);
    void showModulatorType(int m, float value);
    // Moves the table toggle and view in or out of panel m for a Type value;
    // on the frame's own thread only.
    void placeTableViews(int m, float value);
    // ui thread: the Type changes that found the frame busy, shown now.
    void showPendingTypes();
    void fillRoutingMenus();
    void releaseWidgets();
    // Reads the display's scale (on opening: X11 starts there).
    void askDisplayScale();
    // The scale to open at: the host's, the user's zoom, the display's as
    // last asked, else 1.
    double openingScale() const;
    // Draws the editor bitmaps for a scale, in place (the about picture
    // waits for prepareAboutPicture at scales other than 1).
    void loadBitmaps(double scale);
    void loadBitmap(BitmapSlot slot, double scale);
    // Brings the open editor to a scale (nothing while closed: opening picks
    // it); with askHost the host must agree to the new window size first.
    void applyScale(double scale, bool askHost);
    // The frame's background: the current background bitmap when it has a
    // picture.
    void applyBackground();
    bool runNameDialogOverEditor(const char* prompt, char* result);
    // Command helpers of the context menu. The current preset is the
    // plug-in's last user preset while the library still lists it (another
    // instance's menu may have removed it); null otherwise.
    Preset* currentPreset() const;
    void removeCurrentPreset();
    void addPresetTo(PresetFolder* folder);

    DelayEffect* plugin_;                   // not owned
    RefPtr<BackgroundBitmap> background_;   // the current background, may be null
    RefPtr<gui::Bitmap> bitmaps_[kBitmapCount];  // loaded on the first open
    double scale_ = 1.0;          // the open editor's scale
    double hostScale_ = 0.0;      // the host's; 0: none
    double displayScale_ = 0.0;   // the display's step as last asked; 0: none
    double reportedScale_ = 1.0;  // the scale of the size the host was last given

    RefPtr<gui::Frame> frame_;  // while open
    RefPtr<gui::ViewContainer> tapStrip_[kTapCount];
    RefPtr<gui::OptionMenu> inputMenu_[kTapCount];
    RefPtr<gui::OptionMenu> outputMenu_[kTapCount];
    RefPtr<gui::Knob> delayKnob_[kTapCount];
    RefPtr<gui::Knob> volumeKnob_[kTapCount];
    RefPtr<gui::Knob> feedbackKnob_[kTapCount];
    RefPtr<gui::OnOffButton> tapSync_[kTapCount];
    RefPtr<gui::ParamDisplay> delayDisplay_[kTapCount];
    RefPtr<gui::ParamDisplay> feedbackDisplay_[kTapCount];
    RefPtr<gui::ParamDisplay> volumeDisplay_[kTapCount];
    RefPtr<gui::OptionMenu> filterMenu_[kTapCount];
    RefPtr<gui::HorizontalSlider> cutoff_[kTapCount];
    RefPtr<gui::HorizontalSlider> resonance_[kTapCount];
    RefPtr<gui::OptionMenu> tempoMenu_[kTapCount];

    RefPtr<gui::ViewContainer> modulatorPanel_[kModulatorCount];
    RefPtr<gui::OnOffButton> power_[kModulatorCount];
    RefPtr<gui::HorizontalSlider> min_[kModulatorCount];
    RefPtr<gui::HorizontalSlider> max_[kModulatorCount];
    RefPtr<gui::Knob> speedKnob_[kModulatorCount];
    RefPtr<gui::ParamDisplay> speedDisplay_[kModulatorCount];
    RefPtr<gui::OptionMenu> indexMenu_[kModulatorCount];
    RefPtr<gui::MultiPositionSwitch> typeSwitch_[kModulatorCount];
    RefPtr<gui::OnOffButton> modSync_[kModulatorCount];
    // The table views and toggles move in and out of their panels: the
    // editor keeps its own reference on each while the tree exists.
    RefPtr<ModulatorTableView> tableView_[kModulatorCount];
    RefPtr<gui::OnOffButton> tableToggle_[kModulatorCount];

    RecursiveMutex lock_;  // guards frame_ and every widget pointer
    // A Type change moves views in and out of a panel. Only the thread that
    // drives the frame (opens it and calls idle) does that, and only when the
    // frame's guard is free; any other caller (the audio thread's modulators,
    // another host thread) or a busy frame (a menu is open) leaves the change
    // to the next idle, so nothing there allocates or waits.
    std::atomic<bool> pendingType_[kModulatorCount] = {};
    std::thread::id frameThread_;  // under lock_
    RefPtr<gui::Knob> wetDry_;
    RefPtr<AboutOverlay> about_;
    ObjectList backgrounds_;  // BackgroundEntry, in the bundle's order
    std::string firstBackground_;  // file name of the background loadBackgrounds chose
};

// The plug-in module's editor factory (see setEditorFactory).
PluginEditor* createDelayEditor(DelayEffect& effect);

}  // namespace varitap
