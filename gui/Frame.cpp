#include "gui/Frame.h"

#include "gui/Buttons.h"
#include "gui/DrawContext.h"
#include "gui/Font.h"
#include "gui/OptionMenu.h"
#include "gui/Platform.h"

namespace varitap::gui {

namespace {

bool isSelfOrInside(const View* view, const View* maybeAncestor) {
    for (const View* v = view; v; v = v->parent()) {
        if (v == maybeAncestor) return true;
    }
    return false;
}

}  // namespace

Frame::Frame(const Rect& size, EditListener* editListener)
    : ViewContainer(Rect(0, 0, size.width(), size.height())), editListener_(editListener) {}

Frame::~Frame() {
    close();
    // Children go with the container; nothing may point at them afterwards.
    focusView_ = captureView_ = nullptr;
    defaultButton_ = cancelButton_ = nullptr;
}

bool Frame::open(uintptr_t parentWindow) {
    close();
    std::lock_guard<std::recursive_mutex> lock(guard_);
    platform_ = createPlatformFrame(*this);
    if (!platform_ || !platform_->openChild(parentWindow, pixelScale_.toDevice(viewSize()))) {
        platform_.reset();
        return false;
    }
    redraw();
    return true;
}

bool Frame::openDialog(uintptr_t ownerWindow, const char* title) {
    close();
    std::lock_guard<std::recursive_mutex> lock(guard_);
    platform_ = createPlatformFrame(*this);
    if (!platform_ ||
        !platform_->openDialog(ownerWindow, pixelScale_.toDevice(viewSize()), title)) {
        platform_.reset();
        return false;
    }
    redraw();
    return true;
}

void Frame::close() {
    // The platform joins its timer before taking the guard, so that a timer
    // waiting for the guard cannot deadlock the close.
    std::unique_ptr<PlatformFrame> p;
    {
        std::lock_guard<std::recursive_mutex> lock(guard_);
        p = std::move(platform_);
    }
    if (p) p->close();
    if (busy_ > 0) {
        retired_ = std::move(p);
    }
    p.reset();
    captureView_ = nullptr;
    modalRunning_ = false;
}

// Marks the frame as inside its platform's event handling for a scope.
class Frame::BusyScope {
public:
    explicit BusyScope(Frame& f) : f_(f) { ++f_.busy_; }
    ~BusyScope() {
        if (--f_.busy_ == 0) f_.retired_.reset();
    }
    BusyScope(const BusyScope&) = delete;
    BusyScope& operator=(const BusyScope&) = delete;

private:
    Frame& f_;
};

bool Frame::isOpen() const { return platform_ && platform_->isOpen(); }

uint32_t Frame::windowId() const { return platform_ ? platform_->windowId() : 0; }

bool Frame::isParentGone() const { return platform_ && platform_->isParentGone(); }

int Frame::connectionFd() const { return platform_ ? platform_->connectionFd() : -1; }

void Frame::idle() {
    RefPtr<Frame> keep(this);
    std::lock_guard<std::recursive_mutex> lock(guard_);
    BusyScope busy(*this);
    if (platform_) platform_->idle();
}

void Frame::setScale(double scale) {
    std::lock_guard<std::recursive_mutex> lock(guard_);
    if (!(scale > 0.0) || scale == pixelScale_.factor()) return;
    pixelScale_ = PixelScale(scale);
    if (platform_ && platform_->isOpen()) platform_->resize(pixelScale_.toDevice(viewSize()));
    setDirtyAll();
    redraw();
}

void Frame::redraw() { redrawAll_.store(true, std::memory_order_relaxed); }

void Frame::invalidate(const Rect& area) {
    std::lock_guard<std::recursive_mutex> lock(guard_);
    invalidArea_ = invalidArea_.unite(area.intersect(viewSize()));
}

Rect Frame::takeDirtyArea() {
    std::lock_guard<std::recursive_mutex> lock(guard_);
    Rect area = collectDirty(Point());
    area = area.unite(invalidArea_);
    invalidArea_ = Rect();
    if (redrawAll_.exchange(false, std::memory_order_relaxed)) area = viewSize();
    return area.intersect(viewSize());
}

void Frame::drawArea(DrawContext& dc, const Rect& area) {
    std::lock_guard<std::recursive_mutex> lock(guard_);
    dc.save();
    dc.clipTo(area);
    drawBackground(dc);
    drawChildren(dc, area);
    dc.restore();
}

void Frame::beginEdit(int32_t index) {
    if (editListener_) editListener_->beginEdit(index);
}

void Frame::endEdit(int32_t index) {
    if (editListener_) editListener_->endEdit(index);
}

void Frame::setFocusView(View* view) {
    if (view == focusView_) return;
    View* old = focusView_;
    focusView_ = view;
    if (old) old->onFocusChanged(false);
    if (view) view->onFocusChanged(true);
}

void Frame::captureMouse(View* view) { captureView_ = view; }

void Frame::releaseMouse(View* view) {
    if (captureView_ == view) captureView_ = nullptr;
}

void Frame::forgetView(View* view) {
    if (isSelfOrInside(focusView_, view)) focusView_ = nullptr;
    if (isSelfOrInside(captureView_, view)) captureView_ = nullptr;
    if (isSelfOrInside(defaultButton_, view)) defaultButton_ = nullptr;
    if (isSelfOrInside(cancelButton_, view)) cancelButton_ = nullptr;
}

void Frame::dispatchMouseDown(Point where, uint32_t buttons) {
    RefPtr<Frame> keep(this);
    captureView_ = nullptr;
    onMouseDown(where, buttons);
}

void Frame::dispatchMouseMoved(Point where, uint32_t buttons) {
    if (!captureView_) return;
    RefPtr<View> v(captureView_);
    v->onMouseMoved(v->frameToParent(where), buttons);
}

void Frame::dispatchMouseUp(Point where, uint32_t buttons) {
    if (!captureView_) return;
    RefPtr<View> v(captureView_);
    v->onMouseUp(v->frameToParent(where), buttons);
    captureView_ = nullptr;
}

void Frame::dispatchWheel(Point where, float distance, uint32_t buttons) {
    RefPtr<Frame> keep(this);
    onWheel(where, distance, buttons);
}

namespace {
void pressRole(Control* c) {
    RefPtr<Control> keep(c);
    if (auto* button = dynamic_cast<PushButton*>(c)) {
        button->push();
    } else {
        c->changeValueByUser(1.0f);
    }
}
}  // namespace

int Frame::dispatchKeyDown(const KeyEvent& key) {
    RefPtr<Frame> keep(this);
    if (focusView_) {
        RefPtr<View> focus(focusView_);
        if (focus->onKeyDown(key) == 1) return 1;
    }
    if (onKeyDown(key) == 1) return 1;
    if (key.virtualKey == VirtualKey::Return && defaultButton_) {
        pressRole(defaultButton_);
        return 1;
    }
    if (key.virtualKey == VirtualKey::Escape && cancelButton_) {
        pressRole(cancelButton_);
        return 1;
    }
    return 0;
}

int Frame::runModal() {
    RefPtr<Frame> keep(this);
    modalRunning_ = true;
    modalResult_ = -1;
    while (modalRunning_ && isOpen()) {
        {
            BusyScope busy(*this);
            platform_->waitForEvents(20);
        }
        idle();
    }
    modalRunning_ = false;
    return modalResult_;
}

void Frame::endModal(int result) {
    modalResult_ = result;
    modalRunning_ = false;
}

bool Frame::popupMenu(OptionMenu& menu, Point where) {
    RefPtr<Frame> keep(this);
    std::lock_guard<std::recursive_mutex> lock(guard_);
    if (!platform_ || !platform_->isOpen()) return false;
    BusyScope busy(*this);
    return platform_->popupMenu(menu, where);
}

}  // namespace varitap::gui
