// A knob drawn as a line handle from its centre over whatever lies below,
// with a handle colour and a shadow colour. Dragged up/right or wheeled.
#pragma once

#include "gui/Control.h"
#include "gui/Interaction.h"

namespace varitap::gui {

class Knob : public Control {
public:
    Knob(const Rect& size, ControlListener* listener, int32_t tag);

    void setHandleColor(Color c) { handleColor_ = c; setDirty(); }
    Color handleColor() const { return handleColor_; }
    void setShadowColor(Color c) { shadowColor_ = c; setDirty(); }
    Color shadowColor() const { return shadowColor_; }
    void setWheelStep(float step) { wheelStep_ = step; }

    // The handle runs over 270 degrees: value 0 points down-left (225 degrees
    // counter-clockwise from 3 o'clock), value 1 down-right (-45 degrees).
    static double angleForValue(float value);
    // End point of the handle for the view's rectangle (also used by tests).
    static Point handleEnd(const Rect& r, float value);

    void draw(DrawContext& dc) override;
    MouseResult onMouseDown(Point where, uint32_t buttons) override;
    void onMouseMoved(Point where, uint32_t buttons) override;
    void onMouseUp(Point where, uint32_t buttons) override;
    bool onWheel(Point where, float distance, uint32_t buttons) override;

private:
    KnobDragHandler drag_;
    Color handleColor_ = kWhiteColor;
    Color shadowColor_{0, 0, 0, 150};
    float wheelStep_ = 0.01f;
};

}  // namespace varitap::gui
