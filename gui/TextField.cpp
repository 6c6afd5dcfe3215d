#include "gui/TextField.h"

#include "gui/DrawContext.h"
#include "gui/Frame.h"

namespace varitap::gui {

namespace {
constexpr int kTextInset = 3;
const Color kSelectionColor{170, 200, 255, 255};
}  // namespace

TextField::TextField(const Rect& size, size_t maxBytes) : View(size), buffer_(maxBytes) {}

void TextField::setText(const char* utf8) {
    auto lock = lockFrame();
    buffer_.setText(utf8 ? utf8 : "");
    setDirty();
}

void TextField::draw(DrawContext& dc) {
    const Rect& r = viewSize();
    dc.setFillColor(kWhiteColor);
    dc.fillRect(r);
    dc.setLineColor(focused_ ? Color{60, 100, 200, 255} : kGreyColor);
    dc.setLineWidth(1.0);
    dc.drawRect(r);
    dc.setFont(fontId_);
    const std::string& t = buffer_.text();
    const Rect textRect(r.left + kTextInset, r.top, r.right - kTextInset, r.bottom);
    // Pixel offsets of the selection and cursor within the text.
    auto xAt = [&](size_t byte) {
        return textRect.left + static_cast<int>(dc.stringWidth(t.substr(0, byte).c_str()) + 0.5);
    };
    if (focused_ && buffer_.hasSelection()) {
        dc.setFillColor(kSelectionColor);
        dc.fillRect(Rect(xAt(buffer_.selectionStart()), r.top + 2, xAt(buffer_.selectionEnd()),
                         r.bottom - 2));
    }
    dc.setFontColor(kBlackColor);
    dc.drawString(t.c_str(), textRect, HoriAlign::Left);
    if (focused_) {
        const int x = xAt(buffer_.cursor());
        dc.setLineColor(kBlackColor);
        dc.drawLine(Point{x, r.top + 2}, Point{x, r.bottom - 3});
    }
}

MouseResult TextField::onMouseDown(Point where, uint32_t buttons) {
    (void)where;
    if (!(buttons & kLButton)) return MouseResult::kIgnored;
    if (Frame* f = frame()) f->setFocusView(this);
    buffer_.end();
    setDirty();
    return MouseResult::kHandled;
}

int TextField::onKeyDown(const KeyEvent& key) {
    if (!focused_) return 0;
    if (!buffer_.handleKey(key)) return 0;
    setDirty();
    return 1;
}

void TextField::onFocusChanged(bool focused) {
    focused_ = focused;
    setDirty();
}

}  // namespace varitap::gui
