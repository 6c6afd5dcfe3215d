#include "editor/EditorDialogs.h"

#include <cstdio>
#include <cstring>

#include "editor/DelayEditor.h"
#include "gui/Bitmap.h"
#include "gui/Buttons.h"
#include "gui/DrawContext.h"
#include "gui/Frame.h"
#include "gui/TextField.h"
#include "persistence/Localize.h"
#include "persistence/OpenUrl.h"

namespace varitap {

using gui::Color;
using gui::MouseResult;
using gui::Point;
using gui::Rect;

namespace {

// The dialog's command identifiers, as the buttons' tags.
constexpr int32_t kOkCommand = 1;      // "ok  "
constexpr int32_t kCancelCommand = 0;  // "not!"

constexpr Color kDialogBackground{232, 232, 232, 255};

// Ends the dialog's modal loop with the pressed button's command.
class DialogCommands : public gui::ControlListener {
public:
    explicit DialogCommands(gui::Frame& frame) : frame_(frame) {}
    void valueChanged(gui::DrawContext* context, gui::Control* control) override {
        (void)context;
        if (control->value() > 0.5f) frame_.endModal(control->tag());
    }

private:
    gui::Frame& frame_;
};

}  // namespace

std::string localized(const char* text) {
    // localize() answers in one shared buffer: copy it at once.
    const char* translated = text ? localize(text) : nullptr;
    return translated ? std::string(translated) : std::string(text ? text : "");
}

bool runNameDialog(const char* title, const char* prompt, const char* defaultText,
                   char* resultBuffer, uintptr_t parentWindow, double scale) {
    if (!resultBuffer) return false;
    auto frame = makeRef<gui::Frame>(Rect(0, 0, 400, 140));
    frame->setScale(scale);
    DialogCommands commands(*frame);
    frame->setFallbackDelay(0);
    frame->setBackgroundColor(kDialogBackground);

    auto promptView = makeRef<StaticTextView>(Rect(20, 14, 380, 30), prompt);
    promptView->setTransparent(true);
    promptView->setFontColor(gui::kBlackColor);
    promptView->setHoriAlign(gui::HoriAlign::Left);
    // The field holds what fits the result buffer; longer input cannot be typed.
    auto field = makeRef<gui::TextField>(Rect(40, 50, 380, 66), kNameBufferSize - 1);
    if (defaultText) field->setText(defaultText);
    auto ok = makeRef<gui::PushButton>(Rect(311, 100, 380, 120), &commands, kOkCommand, "OK");
    auto cancel =
        makeRef<gui::PushButton>(Rect(230, 100, 299, 120), &commands, kCancelCommand,
                                           localized("Cancel").c_str());
    ok->setDefaultLook(true);
    frame->addView(promptView.get());
    frame->addView(field.get());
    frame->addView(ok.get());
    frame->addView(cancel.get());
    frame->setDefaultButton(ok.get());
    frame->setCancelButton(cancel.get());

    if (!frame->openDialog(parentWindow, title)) return false;
    frame->setFocusView(field.get());
    const bool confirmed = frame->runModal() == kOkCommand;
    if (confirmed) {
        const std::string& text = field->text();
        // A name that does not fit the buffer is taken as no name at all.
        if (text.size() < kNameBufferSize) {
            std::memcpy(resultBuffer, text.c_str(), text.size() + 1);
        } else {
            resultBuffer[0] = '\0';
        }
    }
    frame->close();
    frame->removeAll();
    return confirmed;
}

StaticTextView::StaticTextView(const Rect& size, const char* text, uint32_t style)
    : ParamDisplay(size, nullptr, -1, style) {
    std::snprintf(text_, sizeof text_, "%s", text ? text : "");
}

void StaticTextView::valueToString(float value, char* text, size_t size) const {
    (void)value;
    if (text && size) std::snprintf(text, size, "%s", text_);
}

LinkTextView::LinkTextView(const Rect& size, const char* text, const char* address,
                           uint32_t style)
    : StaticTextView(size, text, style) {
    if (address) {
        const size_t length = std::strlen(address);
        address_ = new char[length + 1];
        std::memcpy(address_, address, length + 1);
    }
}

LinkTextView::~LinkTextView() { delete[] address_; }

MouseResult LinkTextView::onMouseDown(Point where, uint32_t buttons) {
    (void)where;
    if (!(buttons & gui::kLButton)) return MouseResult::kIgnored;
    if (address_) openURL(address_);
    return MouseResult::kHandled;
}

AboutOverlay::AboutOverlay(const Rect& size, const Rect& menuStrip, gui::Bitmap* picture,
                           DelayEditor* editor)
    : ViewContainer(size), menuStrip_(menuStrip), editor_(editor) {
    setTransparent(true);
    setBackground(picture);
    setMouseRect(menuStrip_);

    char version[64];
    std::snprintf(version, sizeof version, "Version %s", kVersionString);
    auto versionView = makeRef<StaticTextView>(Rect(540, 110, 660, 130), version,
                                               gui::ParamDisplay::kShadowText);
    auto dateView = makeRef<StaticTextView>(Rect(540, 130, 660, 150), kBuildDate,
                                            gui::ParamDisplay::kShadowText);
    dateView->setFont(gui::kNormalFontVerySmall);
    auto linkView = makeRef<LinkTextView>(Rect(337, 155, 528, 170), kHomePageAddress,
                                          kHomePageAddress, gui::ParamDisplay::kShadowText);
    linkView->setFont(gui::kNormalFontVerySmall);
    linkView->setFontColor(gui::kYellowColor);
    for (StaticTextView* view : {versionView.get(), dateView.get()}) {
        view->setHoriAlign(gui::HoriAlign::Right);
    }
    for (StaticTextView* view :
         {versionView.get(), dateView.get(), static_cast<StaticTextView*>(linkView.get())}) {
        view->setTransparent(true);
        view->setShadowColor(gui::kBlackColor);
        addView(view);
    }
    // Only the link takes presses; the labels let them reach the overlay.
    versionView->setMouseEnabled(false);
    dateView->setMouseEnabled(false);
    link_ = linkView.get();
}

void AboutOverlay::showAbout(bool shown) {
    if (shown && editor_) editor_->prepareAboutPicture();
    aboutShown_ = shown;
    setMouseRect(shown ? viewSize() : menuStrip_);
    setDirtyAll();
    if (gui::Frame* f = frame()) f->redraw();
}

void AboutOverlay::draw(gui::DrawContext& dc) {
    if (!aboutShown_) return;
    ViewContainer::draw(dc);
}

MouseResult AboutOverlay::onMouseDown(Point where, uint32_t buttons) {
    if (!aboutShown_) {
        if (!menuStrip_.contains(where) || !editor_) return MouseResult::kIgnored;
        RefPtr<AboutOverlay> keep(this);
        if (!editor_->handleMenuClick(nullptr, where)) showAbout(true);
        return MouseResult::kHandled;
    }
    // The about box is up: the link takes its own presses, anything else
    // closes the box.
    if (ViewContainer::onMouseDown(where, buttons) != MouseResult::kIgnored) {
        return MouseResult::kHandled;
    }
    showAbout(false);
    return MouseResult::kHandled;
}

}  // namespace varitap
