// The editor's small windows: the name-entry dialog, the text views of the
// about box and the about overlay drawn over the whole editor.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

#include "gui/ParamDisplay.h"
#include "gui/ViewContainer.h"

namespace varitap {

class DelayEditor;

namespace gui {
class Bitmap;
}

// The product's home page, shown and opened by the about box and opened by
// "Visit Homepage ...". Varitap's vendor prefix is "brelmo" (its options live
// under "brelmo.varitap"), and the project is published under that name, so
// the project's own repository page is the home page.
inline constexpr const char* kHomePageAddress = "https://github.com/brelmo/varitap";
inline constexpr const char* kVersionString = "0.0.5";
// The build date in the compiler's __DATE__ form, as the about box has always
// shown it.
inline constexpr const char* kBuildDate = "Jul  3 2004";

// ui thread. A text the user sees, through the bundle's string table (the
// text itself when it has no translation).
std::string localized(const char* text);

// Size of the result buffer of runNameDialog, terminator included.
inline constexpr size_t kNameBufferSize = 256;

// ui thread. A modal window asking for one line of text: a prompt, a text
// field (pre-filled with defaultText when given) and the buttons OK (Return)
// and Cancel (Escape), transient for the host's window that holds
// parentWindow (an X window id; 0 centres it on the screen). True when the
// user confirmed with OK: resultBuffer (kNameBufferSize bytes) then holds the
// text as terminated UTF-8. A name that would not fit in 255 bytes is
// returned as an empty name. False without a word when the window cannot be
// made. title and defaultText may be null. scale: the editor's, which the
// dialog takes (its layout is 400 x 140 logical pixels).
bool runNameDialog(const char* title, const char* prompt, const char* defaultText,
                   char* resultBuffer, uintptr_t parentWindow, double scale = 1.0);

// A parameter display that draws a fixed string (at most 255 bytes; null is
// empty) instead of a value.
class StaticTextView : public gui::ParamDisplay {
public:
    StaticTextView(const gui::Rect& size, const char* text, uint32_t style = 0);
    const char* text() const { return text_; }
    void valueToString(float value, char* text, size_t size) const override;

private:
    char text_[256] = {};
};

// A StaticTextView that keeps a web address of its own: a press with the
// first button hands it to openURL.
class LinkTextView : public StaticTextView {
public:
    LinkTextView(const gui::Rect& size, const char* text, const char* address, uint32_t style = 0);
    ~LinkTextView() override;
    const char* address() const { return address_; }
    gui::MouseResult onMouseDown(gui::Point where, uint32_t buttons) override;

private:
    char* address_ = nullptr;  // own heap copy
};

// Covers the whole editor. While the about box is hidden it draws nothing and
// takes presses only in the menu strip, which open the context menu; while
// shown it draws bitmap 2 with the version, the build date and the home-page
// link, and a press anywhere but on the link hides it again.
class AboutOverlay : public gui::ViewContainer {
public:
    AboutOverlay(const gui::Rect& size, const gui::Rect& menuStrip, gui::Bitmap* picture,
                 DelayEditor* editor);

    bool aboutShown() const { return aboutShown_; }
    // ui thread. Shows or hides the about box.
    void showAbout(bool shown);
    LinkTextView* link() const { return link_; }

    void draw(gui::DrawContext& dc) override;
    gui::MouseResult onMouseDown(gui::Point where, uint32_t buttons) override;

private:
    gui::Rect menuStrip_;
    DelayEditor* editor_;  // not owned
    LinkTextView* link_ = nullptr;  // a child
    bool aboutShown_ = false;
};

}  // namespace varitap
