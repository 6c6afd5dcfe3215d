// Buttons on stacked bitmaps (an on/off button, a multi-position switch)
// and the dialog's push button.
#pragma once

#include <string>

#include "gui/Control.h"

namespace varitap::gui {

class Bitmap;

// Two states stacked vertically in one bitmap: off on top, on below. A
// press with the primary button toggles between 0 and 1.
class OnOffButton : public Control {
public:
    OnOffButton(const Rect& size, ControlListener* listener, int32_t tag, Bitmap* bitmap);
    ~OnOffButton() override;

    bool isOn() const { return value() > 0.5f; }
    void draw(DrawContext& dc) override;
    MouseResult onMouseDown(Point where, uint32_t buttons) override;

private:
    Bitmap* bitmap_;  // one reference, may be null
};

// `positions` states stacked vertically, each heightOfOne pixels high; value
// 0, 1/(n-1), ..., 1. The primary button steps up, the right button steps
// down, both wrapping.
class MultiPositionSwitch : public Control {
public:
    MultiPositionSwitch(const Rect& size, ControlListener* listener, int32_t tag, int positions,
                        int heightOfOne, Bitmap* bitmap);
    ~MultiPositionSwitch() override;

    int positions() const { return positions_; }
    int currentPosition() const;
    void draw(DrawContext& dc) override;
    MouseResult onMouseDown(Point where, uint32_t buttons) override;

private:
    Bitmap* bitmap_;  // one reference, may be null
    int positions_;
    int heightOfOne_;
};

// A push button with a title. Pressing it (mouse, or Return/Escape through
// the frame when it has the default/cancel role) sets its value to 1 and
// tells the listener, then sets it back to 0.
class PushButton : public Control {
public:
    PushButton(const Rect& size, ControlListener* listener, int32_t tag, const char* title);

    const std::string& title() const { return title_; }
    void setFont(int fontId) { fontId_ = fontId; }
    void setDefaultLook(bool d) { defaultLook_ = d; setDirty(); }
    // ui. Carries out a press.
    void push();

    void draw(DrawContext& dc) override;
    MouseResult onMouseDown(Point where, uint32_t buttons) override;
    void onMouseMoved(Point where, uint32_t buttons) override;
    void onMouseUp(Point where, uint32_t buttons) override;

private:
    std::string title_;
    int fontId_ = kSystemFont;
    bool pressed_ = false;
    bool defaultLook_ = false;
};

}  // namespace varitap::gui
