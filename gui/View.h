// The base of every widget: a rectangle in its parent's coordinates, a
// separate rectangle that takes the mouse, visibility flags and a dirty mark.
#pragma once

#include <atomic>
#include <cstdint>
#include <mutex>

#include "gui/GuiTypes.h"
#include "persistence/RefObject.h"

namespace varitap::gui {

class DrawContext;
class Frame;
class ViewContainer;

// What a view did with a mouse press. kMouseCaptured: the view wants the
// moves and the release that follow (the frame sends them to it alone).
enum class MouseResult : uint8_t { kIgnored, kHandled, kCaptured };

class View : public RefObject {
public:
    explicit View(const Rect& size);
    ~View() override;

    // ui. Draws the view; dc's origin is the parent's top-left corner, so the
    // view draws inside viewSize().
    virtual void draw(DrawContext& dc);

    // ui. Mouse and keys. `where` is in the parent's coordinates (the space of
    // viewSize()); buttons holds MouseButtons bits and modifiers.
    virtual MouseResult onMouseDown(Point where, uint32_t buttons);
    virtual void onMouseMoved(Point where, uint32_t buttons);
    virtual void onMouseUp(Point where, uint32_t buttons);
    // One wheel notch is 1.0 (up positive). True when used.
    virtual bool onWheel(Point where, float distance, uint32_t buttons);
    // 1 when the key was used, 0 when not.
    virtual int onKeyDown(const KeyEvent& key);
    // ui. Keyboard focus arrives or leaves (TextField shows its cursor).
    virtual void onFocusChanged(bool focused);
    virtual bool wantsFocus() const { return false; }

    // any thread. Only stores the mark; the frame draws it on its own thread.
    virtual void setDirty(bool dirty = true) { dirty_.store(dirty, std::memory_order_relaxed); }
    bool isDirty() const { return dirty_.load(std::memory_order_relaxed); }

    const Rect& viewSize() const { return size_; }
    // ui. Moves or resizes the view; the mouse rectangle follows unless
    // keepMouseRect is set.
    virtual void setViewSize(const Rect& size, bool keepMouseRect = false);
    const Rect& mouseRect() const { return mouseRect_; }
    void setMouseRect(const Rect& r) { mouseRect_ = r; }

    bool isVisible() const { return visible_; }
    void setVisible(bool v);
    bool isTransparent() const { return transparent_; }
    void setTransparent(bool t) { transparent_ = t; setDirty(); }
    bool isMouseEnabled() const { return mouseEnabled_; }
    void setMouseEnabled(bool e) { mouseEnabled_ = e; }

    // The container holding the view (null when free), and the frame at the
    // root of its tree (null when not in one).
    ViewContainer* parent() const { return parent_; }
    virtual Frame* frame() const;
    // The view's rectangle in frame coordinates.
    Rect frameRect() const;
    // Converts a frame point into this view's parent coordinates.
    Point frameToParent(Point p) const;

    virtual bool isContainer() const { return false; }

    // Holds the guard of the frame the view is in (nothing when in none):
    // changes that a drawing thread must not see half done take it.
    std::unique_lock<std::recursive_mutex> lockFrame() const;

private:
    friend class ViewContainer;

    Rect size_;
    Rect mouseRect_;
    ViewContainer* parent_ = nullptr;
    std::atomic<bool> dirty_{true};
    bool visible_ = true;
    bool transparent_ = false;
    bool mouseEnabled_ = true;
};

}  // namespace varitap::gui
