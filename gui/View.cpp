#include "gui/View.h"

#include "gui/Frame.h"
#include "gui/ViewContainer.h"

namespace varitap::gui {

View::View(const Rect& size) : size_(size), mouseRect_(size) {}

View::~View() = default;

void View::draw(DrawContext& dc) { (void)dc; }

MouseResult View::onMouseDown(Point where, uint32_t buttons) {
    (void)where;
    (void)buttons;
    return MouseResult::kIgnored;
}

void View::onMouseMoved(Point where, uint32_t buttons) {
    (void)where;
    (void)buttons;
}

void View::onMouseUp(Point where, uint32_t buttons) {
    (void)where;
    (void)buttons;
}

bool View::onWheel(Point where, float distance, uint32_t buttons) {
    (void)where;
    (void)distance;
    (void)buttons;
    return false;
}

int View::onKeyDown(const KeyEvent& key) {
    (void)key;
    return 0;
}

void View::onFocusChanged(bool focused) { (void)focused; }

void View::setViewSize(const Rect& size, bool keepMouseRect) {
    // The area left behind needs drawing as much as the new one.
    if (parent_) parent_->setDirty();
    size_ = size;
    if (!keepMouseRect) mouseRect_ = size;
    setDirty();
}

void View::setVisible(bool v) {
    if (visible_ == v) return;
    visible_ = v;
    setDirty();
}

Frame* View::frame() const { return parent_ ? parent_->frame() : nullptr; }

Rect View::frameRect() const {
    Rect r = size_;
    for (const ViewContainer* p = parent_; p; p = p->parent()) {
        r = r.offsetBy(p->viewSize().left, p->viewSize().top);
    }
    return r;
}

Point View::frameToParent(Point p) const {
    for (const ViewContainer* c = parent_; c; c = c->parent()) {
        p.x -= c->viewSize().left;
        p.y -= c->viewSize().top;
    }
    return p;
}

std::unique_lock<std::recursive_mutex> View::lockFrame() const {
    if (Frame* f = frame()) return std::unique_lock<std::recursive_mutex>(f->guard());
    return std::unique_lock<std::recursive_mutex>();
}

}  // namespace varitap::gui
