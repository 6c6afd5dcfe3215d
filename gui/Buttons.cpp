#include "gui/Buttons.h"

#include "gui/Bitmap.h"
#include "gui/DrawContext.h"
#include "gui/Frame.h"
#include "gui/Interaction.h"

namespace varitap::gui {

// ---- on/off button -------------------------------------------------------

OnOffButton::OnOffButton(const Rect& size, ControlListener* listener, int32_t tag, Bitmap* bitmap)
    : Control(size, listener, tag), bitmap_(bitmap) {
    if (bitmap_) bitmap_->retain();
}

OnOffButton::~OnOffButton() {
    if (bitmap_) bitmap_->release();
}

void OnOffButton::draw(DrawContext& dc) {
    if (!bitmap_) return;
    const Rect& r = viewSize();
    dc.drawBitmap(*bitmap_, r, Point{0, isOn() ? r.height() : 0});
}

MouseResult OnOffButton::onMouseDown(Point where, uint32_t buttons) {
    (void)where;
    if (!(buttons & kLButton)) return MouseResult::kIgnored;
    beginEdit();
    changeValueByUser(isOn() ? 0.0f : 1.0f);
    endEdit();
    return MouseResult::kHandled;
}

// ---- multi-position switch -----------------------------------------------

MultiPositionSwitch::MultiPositionSwitch(const Rect& size, ControlListener* listener, int32_t tag,
                                         int positions, int heightOfOne, Bitmap* bitmap)
    : Control(size, listener, tag),
      bitmap_(bitmap),
      positions_(positions < 1 ? 1 : positions),
      heightOfOne_(heightOfOne) {
    if (bitmap_) bitmap_->retain();
}

MultiPositionSwitch::~MultiPositionSwitch() {
    if (bitmap_) bitmap_->release();
}

int MultiPositionSwitch::currentPosition() const {
    return SwitchStepper::position(value(), positions_);
}

void MultiPositionSwitch::draw(DrawContext& dc) {
    if (!bitmap_) return;
    dc.drawBitmap(*bitmap_, viewSize(), Point{0, currentPosition() * heightOfOne_});
}

MouseResult MultiPositionSwitch::onMouseDown(Point where, uint32_t buttons) {
    (void)where;
    float v;
    if (buttons & kLButton) {
        v = SwitchStepper::stepUp(value(), positions_);
    } else if (buttons & kRButton) {
        v = SwitchStepper::stepDown(value(), positions_);
    } else {
        return MouseResult::kIgnored;
    }
    beginEdit();
    changeValueByUser(v);
    endEdit();
    return MouseResult::kHandled;
}

// ---- push button ---------------------------------------------------------

PushButton::PushButton(const Rect& size, ControlListener* listener, int32_t tag, const char* title)
    : Control(size, listener, tag), title_(title ? title : "") {}

void PushButton::push() {
    changeValueByUser(1.0f);
    setValue(0.0f);
}

void PushButton::draw(DrawContext& dc) {
    const Rect& r = viewSize();
    dc.setFillColor(pressed_ ? Color{150, 150, 150, 255} : Color{215, 215, 215, 255});
    dc.fillRect(r);
    dc.setLineColor(kBlackColor);
    dc.setLineWidth(defaultLook_ ? 2.0 : 1.0);
    dc.drawRect(r);
    dc.setFont(fontId_);
    dc.setFontColor(kBlackColor);
    dc.drawString(title_.c_str(), r, HoriAlign::Center);
}

MouseResult PushButton::onMouseDown(Point where, uint32_t buttons) {
    (void)where;
    if (!(buttons & kLButton)) return MouseResult::kIgnored;
    pressed_ = true;
    setDirty();
    if (Frame* f = frame()) f->captureMouse(this);
    return MouseResult::kCaptured;
}

void PushButton::onMouseMoved(Point where, uint32_t buttons) {
    (void)buttons;
    const bool inside = viewSize().contains(where);
    if (inside != pressed_) {
        pressed_ = inside;
        setDirty();
    }
}

void PushButton::onMouseUp(Point where, uint32_t buttons) {
    (void)buttons;
    const bool fire = pressed_ && viewSize().contains(where);
    pressed_ = false;
    setDirty();
    if (Frame* f = frame()) f->releaseMouse(this);
    if (fire) push();
}

}  // namespace varitap::gui
