#include "gui/Knob.h"

#include <cmath>

#include "gui/DrawContext.h"
#include "gui/Frame.h"

namespace varitap::gui {

namespace {
constexpr double kPi = 3.14159265358979323846;
constexpr int kHandleInset = 3;  // pixels between the handle's tip and the knob's edge
}  // namespace

Knob::Knob(const Rect& size, ControlListener* listener, int32_t tag)
    : Control(size, listener, tag) {}

double Knob::angleForValue(float value) {
    double v = value;
    if (!(v >= 0.0)) v = 0.0;  // also NaN
    if (v > 1.0) v = 1.0;
    return (225.0 - v * 270.0) * kPi / 180.0;
}

Point Knob::handleEnd(const Rect& r, float value) {
    const double cx = r.left + r.width() / 2.0;
    const double cy = r.top + r.height() / 2.0;
    const double radius = std::min(r.width(), r.height()) / 2.0 - kHandleInset;
    const double a = angleForValue(value);
    return Point{static_cast<int>(std::lround(cx + radius * std::cos(a))),
                 static_cast<int>(std::lround(cy - radius * std::sin(a)))};
}

void Knob::draw(DrawContext& dc) {
    const Rect& r = viewSize();
    const Point centre{r.left + r.width() / 2, r.top + r.height() / 2};
    const Point end = handleEnd(r, value());
    dc.setLineWidth(1.0);
    // The shadow one pixel right and down, then the handle over it.
    dc.setLineColor(shadowColor_);
    dc.drawLine(Point{centre.x + 1, centre.y + 1}, Point{end.x + 1, end.y + 1});
    dc.setLineColor(handleColor_);
    dc.drawLine(centre, end);
}

MouseResult Knob::onMouseDown(Point where, uint32_t buttons) {
    if (!(buttons & kLButton)) return MouseResult::kIgnored;
    if ((buttons & (kControl | kAlt)) && listener() &&
        listener()->controlModifierClicked(nullptr, this, buttons) == 1) {
        return MouseResult::kHandled;
    }
    beginEdit();
    drag_.begin(value(), where);
    if (Frame* f = frame()) f->captureMouse(this);
    return MouseResult::kCaptured;
}

void Knob::onMouseMoved(Point where, uint32_t buttons) {
    if (!drag_.isActive()) return;
    const float v = drag_.move(where, buttons);
    if (v != value()) changeValueByUser(v);
}

void Knob::onMouseUp(Point where, uint32_t buttons) {
    if (!drag_.isActive()) return;
    onMouseMoved(where, buttons);
    drag_.end();
    endDrag();
}

bool Knob::onWheel(Point where, float distance, uint32_t buttons) {
    (void)where;
    return turnByWheel(distance, buttons, wheelStep_);
}

}  // namespace varitap::gui
