#include "gui/Control.h"

#include "gui/Frame.h"
#include "gui/Interaction.h"

namespace varitap::gui {

Control::Control(const Rect& size, ControlListener* listener, int32_t tag)
    : View(size), listener_(listener), tag_(tag) {}

void Control::setValue(float value) {
    if (value_.exchange(value, std::memory_order_relaxed) != value) setDirty();
}

void Control::beginEdit() {
    if (Frame* f = frame()) f->beginEdit(tag_);
}

void Control::endEdit() {
    if (Frame* f = frame()) f->endEdit(tag_);
}

void Control::changeValueByUser(float value) {
    setValue(value);
    setDirty();
    if (listener_) listener_->valueChanged(nullptr, this);
}

bool Control::turnByWheel(float distance, uint32_t buttons, float step) {
    if (buttons & kShift) step /= 10.0f;
    const float v = KnobDragHandler::wheel(value(), distance, step);
    if (v != value()) {
        beginEdit();
        changeValueByUser(v);
        endEdit();
    }
    return true;
}

void Control::endDrag() {
    if (Frame* f = frame()) f->releaseMouse(this);
    endEdit();
}

}  // namespace varitap::gui
