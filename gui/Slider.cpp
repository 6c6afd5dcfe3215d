#include "gui/Slider.h"

#include "gui/Bitmap.h"
#include "gui/DrawContext.h"
#include "gui/Frame.h"

namespace varitap::gui {

namespace {
constexpr int kPlainHandleWidth = 6;  // handle drawn as a bar when there is no bitmap
}

HorizontalSlider::HorizontalSlider(const Rect& size, ControlListener* listener, int32_t tag,
                                   Bitmap* handle, int handleTravel, bool minimumAtLeft)
    : Control(size, listener, tag),
      handle_(handle),
      travel_(handleTravel),
      minimumAtLeft_(minimumAtLeft) {
    if (handle_) handle_->retain();
}

HorizontalSlider::~HorizontalSlider() {
    if (handle_) handle_->release();
    if (background_) background_->release();
}

void HorizontalSlider::setBackground(Bitmap* bitmap) {
    if (bitmap) bitmap->retain();
    if (background_) background_->release();
    background_ = bitmap;
    setDirty();
}

SliderGeometry HorizontalSlider::geometry() const {
    SliderGeometry g;
    g.left = viewSize().left;
    g.width = viewSize().width();
    g.handleWidth = handle_ && handle_->isLoaded() ? handle_->width() : kPlainHandleWidth;
    g.travel = travel_;
    g.minimumAtLeft = minimumAtLeft_;
    return g;
}

void HorizontalSlider::draw(DrawContext& dc) {
    const Rect& r = viewSize();
    if (background_) dc.drawBitmap(*background_, r);
    const SliderGeometry g = geometry();
    const int x = g.handleLeft(value());
    if (handle_ && handle_->isLoaded()) {
        const int y = r.top + (r.height() - handle_->height()) / 2;
        dc.drawBitmap(*handle_, Rect::fromSize(x, y, handle_->width(), handle_->height()).intersect(r));
    } else {
        dc.setFillColor(kWhiteColor);
        dc.fillRect(Rect(x, r.top, x + g.handleWidth, r.bottom));
    }
}

MouseResult HorizontalSlider::onMouseDown(Point where, uint32_t buttons) {
    if (!(buttons & kLButton)) return MouseResult::kIgnored;
    beginEdit();
    dragging_ = true;
    if (Frame* f = frame()) f->captureMouse(this);
    const float v = geometry().valueAt(where.x);
    if (v != value()) changeValueByUser(v);
    return MouseResult::kCaptured;
}

void HorizontalSlider::onMouseMoved(Point where, uint32_t buttons) {
    (void)buttons;
    if (!dragging_) return;
    const float v = geometry().valueAt(where.x);
    if (v != value()) changeValueByUser(v);
}

void HorizontalSlider::onMouseUp(Point where, uint32_t buttons) {
    if (!dragging_) return;
    onMouseMoved(where, buttons);
    dragging_ = false;
    endDrag();
}

bool HorizontalSlider::onWheel(Point where, float distance, uint32_t buttons) {
    (void)where;
    return turnByWheel(distance, buttons, wheelStep_);
}

}  // namespace varitap::gui
