#include "gui/ViewContainer.h"

#include <algorithm>
#include <cmath>
#include <mutex>

#include "gui/Bitmap.h"
#include "gui/DrawContext.h"
#include "gui/Frame.h"

namespace varitap::gui {

ViewContainer::ViewContainer(const Rect& size) : View(size) {}

ViewContainer::~ViewContainer() {
    for (View* v : children_) {
        v->parent_ = nullptr;
        v->release();
    }
    children_.clear();
    if (background_) background_->release();
}

bool ViewContainer::addView(View* view) {
    if (!view || view->parent_ || view == this) return false;
    auto lock = lockFrame();
    view->retain();
    children_.push_back(view);
    view->parent_ = this;
    view->setDirty();
    if (view->isContainer()) static_cast<ViewContainer*>(view)->setDirtyAll();
    return true;
}

bool ViewContainer::removeView(View* view) {
    auto lock = lockFrame();
    auto it = std::find(children_.begin(), children_.end(), view);
    if (it == children_.end()) return false;
    Frame* f = frame();
    if (f) {
        f->forgetView(view);
        f->invalidate(view->frameRect());
    }
    children_.erase(it);
    view->parent_ = nullptr;
    view->release();
    return true;
}

void ViewContainer::removeAll() {
    auto lock = lockFrame();
    while (!children_.empty()) removeView(children_.back());
}

bool ViewContainer::isChild(const View* view) const {
    return std::find(children_.begin(), children_.end(), view) != children_.end();
}

View* ViewContainer::viewAt(int index) const {
    if (index < 0 || index >= viewCount()) return nullptr;
    return children_[static_cast<size_t>(index)];
}

void ViewContainer::setBackground(Bitmap* bitmap) {
    auto lock = lockFrame();
    if (bitmap) bitmap->retain();
    if (background_) background_->release();
    background_ = bitmap;
    setDirty();
}

View* ViewContainer::childAt(Point where) const {
    for (auto it = children_.rbegin(); it != children_.rend(); ++it) {
        View* v = *it;
        if (v->isVisible() && v->isMouseEnabled() && v->mouseRect().contains(where)) return v;
    }
    return nullptr;
}

void ViewContainer::drawBackground(DrawContext& dc) {
    const Rect& r = viewSize();
    if (!isTransparent()) {
        dc.setFillColor(backgroundColor_);
        dc.fillRect(r);
    }
    if (background_) {
        dc.drawBitmap(*background_,
                      Rect::fromSize(r.left, r.top, std::min(r.width(), background_->width()),
                                     std::min(r.height(), background_->height())));
    }
}

void ViewContainer::draw(DrawContext& dc) {
    const Rect& r = viewSize();
    drawBackground(dc);
    dc.save();
    dc.clipTo(r);
    dc.translate(r.left, r.top);
    double x1, y1, x2, y2;
    cairo_clip_extents(dc.cairo(), &x1, &y1, &x2, &y2);
    const Rect area(static_cast<int>(std::floor(x1)), static_cast<int>(std::floor(y1)),
                    static_cast<int>(std::ceil(x2)), static_cast<int>(std::ceil(y2)));
    drawChildren(dc, area);
    dc.restore();
}

void ViewContainer::drawChildren(DrawContext& dc, const Rect& area) {
    for (View* v : children_) {
        if (!v->isVisible()) continue;
        if (v->viewSize().intersect(area).isEmpty()) continue;
        v->draw(dc);
    }
}

MouseResult ViewContainer::onMouseDown(Point where, uint32_t buttons) {
    const Point local{where.x - viewSize().left, where.y - viewSize().top};
    View* v = childAt(local);
    return v ? v->onMouseDown(local, buttons) : MouseResult::kIgnored;
}

bool ViewContainer::onWheel(Point where, float distance, uint32_t buttons) {
    const Point local{where.x - viewSize().left, where.y - viewSize().top};
    View* v = childAt(local);
    return v ? v->onWheel(local, distance, buttons) : false;
}

int ViewContainer::onKeyDown(const KeyEvent& key) {
    // Topmost first; a copy keeps the walk safe if a handler changes the tree.
    std::vector<RefPtr<View>> views;
    views.reserve(children_.size());
    for (View* v : children_) views.emplace_back(v);
    for (auto it = views.rbegin(); it != views.rend(); ++it) {
        if ((*it)->isVisible() && (*it)->onKeyDown(key) == 1) return 1;
    }
    return 0;
}

void ViewContainer::setDirtyAll() {
    setDirty();
    for (View* v : children_) {
        if (v->isContainer()) {
            static_cast<ViewContainer*>(v)->setDirtyAll();
        } else {
            v->setDirty();
        }
    }
}

Rect ViewContainer::collectDirty(Point offset) {
    Rect area;
    if (isDirty()) {
        area = viewSize().offsetBy(offset.x, offset.y);
        setDirty(false);
    }
    const Point inner{offset.x + viewSize().left, offset.y + viewSize().top};
    for (View* v : children_) {
        if (v->isContainer()) {
            area = area.unite(static_cast<ViewContainer*>(v)->collectDirty(inner));
        } else if (v->isDirty()) {
            v->setDirty(false);
            area = area.unite(v->viewSize().offsetBy(inner.x, inner.y));
        }
    }
    return area;
}

}  // namespace varitap::gui
