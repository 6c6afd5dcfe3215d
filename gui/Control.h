// Controls: views with a tag, a float value and a listener told when the
// user changes the value.
#pragma once

#include <atomic>
#include <cstdint>

#include "gui/View.h"

namespace varitap::gui {

class Control;
class DrawContext;

class ControlListener {
public:
    virtual ~ControlListener() = default;
    // ui. The user changed control's value. context may be null (changes
    // made from events are not drawn at once).
    virtual void valueChanged(DrawContext* context, Control* control) = 0;
    // ui. A press with a modifier key; 1 when the listener took it.
    virtual int controlModifierClicked(DrawContext* context, Control* control, uint32_t buttons) {
        (void)context;
        (void)control;
        (void)buttons;
        return 0;
    }
};

class Control : public View {
public:
    Control(const Rect& size, ControlListener* listener = nullptr, int32_t tag = -1);

    int32_t tag() const { return tag_; }
    void setTag(int32_t tag) { tag_ = tag; }
    ControlListener* listener() const { return listener_; }
    void setListener(ControlListener* l) { listener_ = l; }

    // any thread. Stores the value as given (no clamping) and marks the
    // control dirty when it changed.
    virtual void setValue(float value);
    float value() const { return value_.load(std::memory_order_relaxed); }
    void setMin(float v) { min_ = v; }
    void setMax(float v) { max_ = v; }
    float min() const { return min_; }
    float max() const { return max_; }

    // ui. Tells the frame's edit listener that the user starts or ends a
    // gesture on this control's tag.
    void beginEdit();
    void endEdit();
    // ui. The user set a new value: store, mark dirty, tell the listener.
    void changeValueByUser(float value);

protected:
    // ui. The wheel as the dragged controls (knobs, sliders) take it:
    // distance notches of step each, a tenth of a step with Shift, clamped
    // to 0..1. A change is an edit gesture of its own; an unchanged value
    // (already at an end) tells no one. Always true: the control takes the
    // wheel event even at its ends.
    bool turnByWheel(float distance, uint32_t buttons, float step);
    // ui. The end of a drag that captured the mouse at the press: gives the
    // mouse back and ends the edit gesture the press began.
    void endDrag();

private:
    ControlListener* listener_;
    int32_t tag_;
    std::atomic<float> value_{0.0f};
    float min_ = 0.0f;
    float max_ = 1.0f;
};

}  // namespace varitap::gui
