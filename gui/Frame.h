// The root of a view tree and its window: a child window of the host's
// window (the editor), or a top-level modal dialog. The window, its X
// connection and cairo surface live between open() and close().
//
// Threads: the host's idle calls (idle()) handle events and draw dirty
// views; when no idle has come for about 250 ms a timer thread of the frame
// draws dirty views and exposed areas by itself (nothing else: no listener,
// no host call). Every X and cairo call for a frame runs under the frame's
// guard, one thread at a time; tree changes take the same guard.
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <mutex>

#include "gui/ViewContainer.h"

namespace varitap::gui {

class Control;
class OptionMenu;
class PlatformFrame;

// Told when the user starts and ends a gesture on a control (for the host's
// automation recording). ui thread. Every control's tag comes through, also
// tags that stand for no parameter; the listener picks what it forwards.
class EditListener {
public:
    virtual ~EditListener() = default;
    virtual void beginEdit(int32_t index) = 0;
    virtual void endEdit(int32_t index) = 0;
};

class Frame : public ViewContainer {
public:
    explicit Frame(const Rect& size, EditListener* editListener = nullptr);
    ~Frame() override;  // closes

    // ui. Opens the frame as a child window of the host's window (an X
    // window id). False, and nothing open, when the display or the window
    // cannot be had. Opening an open frame closes it first.
    bool open(uintptr_t parentWindow);
    // ui. Opens a top-level dialog window transient for the top-level window
    // that holds ownerWindow (0: none), dialog type, modal state, with a title.
    bool openDialog(uintptr_t ownerWindow, const char* title);
    // ui. Closes: timer joined, surfaces, windows, flush, disconnect.
    void close();
    bool isOpen() const;
    // The frame's X window id, 0 when closed.
    uint32_t windowId() const;
    // True when the parent window went away under the open frame.
    bool isParentGone() const;
    // ui. The descriptor of the frame's X connection while open, else -1: a
    // host's event loop calls idle() when it becomes readable.
    int connectionFd() const;

    // The frame's scale, device pixels per logical pixel (1 until set). The
    // views, their rectangles and mouse positions stay logical; the window is
    // the frame's size times the scale, and its events and drawing are
    // converted at the window system's edge with pixelScale().
    // ui. Set before opening, or on an open frame: its window is resized and
    // everything is drawn again (the caller has replaced its pictures for the
    // new scale first, under the guard).
    void setScale(double scale);
    double scale() const { return pixelScale_.factor(); }
    const PixelScale& pixelScale() const { return pixelScale_; }

    // ui. Handles pending events, then draws dirty views.
    void idle();
    // any thread. Marks the whole frame for drawing at the next idle or timer.
    void redraw();
    // ui. Marks an area (frame coordinates) for drawing at the next idle.
    void invalidate(const Rect& area);
    // ui, under the guard. The area to draw now: everything after redraw(),
    // else the invalidated area and the dirty views (whose marks it clears).
    Rect takeDirtyArea();
    // The frame and its views as drawn now into dc (the path window drawing
    // uses; tests draw into an image surface with it). At a fractional scale
    // the drawing context puts the area's edges on the nearest device pixel
    // edges, as it does those of every view, so that each device pixel is
    // drawn by the views it belongs to.
    void drawArea(DrawContext& dc, const Rect& area);

    void setEditListener(EditListener* l) { editListener_ = l; }
    EditListener* editListener() const { return editListener_; }
    void beginEdit(int32_t index);
    void endEdit(int32_t index);

    // Keyboard focus (a view in this frame, or null).
    void setFocusView(View* view);
    View* focusView() const { return focusView_; }
    // Mouse capture: moves and the release go to view alone until released.
    void captureMouse(View* view);
    void releaseMouse(View* view);
    View* mouseCapture() const { return captureView_; }

    // Dialog roles: Return presses the default button, Escape the cancel
    // button, when the focused view does not use the key.
    void setDefaultButton(Control* c) { defaultButton_ = c; }
    void setCancelButton(Control* c) { cancelButton_ = c; }

    // ui. Runs events until endModal; returns its result (-1 when the window
    // closes or fails first).
    int runModal();
    void endModal(int result);
    bool isModalRunning() const { return modalRunning_; }

    // ui. Event entry points used by the platform (and by tests): points in
    // frame coordinates.
    void dispatchMouseDown(Point where, uint32_t buttons);
    void dispatchMouseMoved(Point where, uint32_t buttons);
    void dispatchMouseUp(Point where, uint32_t buttons);
    void dispatchWheel(Point where, float distance, uint32_t buttons);
    int dispatchKeyDown(const KeyEvent& key);
    // A view leaves the tree: forget it as focus, capture or button role.
    void forgetView(View* view);

    // ui. Pops a menu up at `where` (frame coordinates); true when chosen.
    bool popupMenu(OptionMenu& menu, Point where);

    Frame* frame() const override { return const_cast<Frame*>(this); }
    // The guard of every X/cairo call and tree change of this frame.
    std::recursive_mutex& guard() { return guard_; }
    PlatformFrame* platform() const { return platform_.get(); }

    // The timer's delay without idle before it draws by itself (ms); tests
    // shorten it. 0 turns the timer off for the next open.
    void setFallbackDelay(int milliseconds) { fallbackDelayMs_ = milliseconds; }
    int fallbackDelay() const { return fallbackDelayMs_; }

private:
    class BusyScope;

    std::recursive_mutex guard_;
    std::unique_ptr<PlatformFrame> platform_;
    // A frame closed from inside its own event handling (a listener closing
    // the editor) keeps the closed platform object until that handling ends.
    std::unique_ptr<PlatformFrame> retired_;
    int busy_ = 0;
    EditListener* editListener_;
    View* focusView_ = nullptr;      // not owned: a view in the tree
    View* captureView_ = nullptr;    // not owned
    Control* defaultButton_ = nullptr;
    Control* cancelButton_ = nullptr;
    bool modalRunning_ = false;
    int modalResult_ = -1;
    int fallbackDelayMs_ = 250;
    PixelScale pixelScale_;
    std::atomic<bool> redrawAll_{true};
    Rect invalidArea_;
};

}  // namespace varitap::gui
