// The X11 side of a frame: its own XCB connection, the window (a child of
// the host's window, or a top-level dialog), a cairo surface on it with an
// image back buffer, the keyboard, the redraw-only fallback timer and the
// modal menu popups.
#pragma once

#include <cairo.h>
#include <xcb/xcb.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <deque>
#include <mutex>
#include <thread>

#include "gui/Platform.h"
#include "gui/x11/X11Keyboard.h"

namespace varitap::gui::x11 {

class X11Frame : public PlatformFrame {
public:
    explicit X11Frame(Frame& frame) : frame_(frame) {}
    ~X11Frame() override;

    bool openChild(uintptr_t parent, const Rect& size) override;
    bool openDialog(uintptr_t owner, const Rect& size, const char* title) override;
    void resize(const Rect& size) override;
    void close() override;
    bool isOpen() const override { return connection_ != nullptr && !windowGone_; }
    uint32_t windowId() const override { return window_; }
    bool isParentGone() const override { return windowGone_; }
    void idle() override;
    void waitForEvents(int timeoutMs) override;
    int connectionFd() const override { return connection_ ? xcb_get_file_descriptor(connection_) : -1; }
    void invalidate(const Rect& area) override;
    bool popupMenu(OptionMenu& menu, Point where) override;

    xcb_connection_t* connection() const { return connection_; }
    xcb_screen_t* screen() const { return screen_; }
    X11Keyboard& keyboard() { return keyboard_; }
    // Draws the dirty part of the frame into the window (caller holds the guard).
    void drawDirty();
    // Handles one event of the frame's window; redrawOnly keeps everything
    // but drawing for the next idle (the timer thread's mode).
    void handleEvent(xcb_generic_event_t* event, bool redrawOnly);

private:
    bool connect();
    bool createSurfaces(xcb_visualid_t visual, const Rect& size);
    bool showWindow(xcb_visualid_t visual, const Rect& size, bool dialog);
    void timerLoop();
    xcb_atom_t atom(const char* name);
    xcb_window_t topLevelOf(xcb_window_t window);
    void disconnect();

    Frame& frame_;
    xcb_connection_t* connection_ = nullptr;
    xcb_screen_t* screen_ = nullptr;
    xcb_window_t window_ = 0;
    xcb_atom_t deleteWindowAtom_ = 0;
    cairo_surface_t* windowSurface_ = nullptr;
    cairo_surface_t* backBuffer_ = nullptr;
    X11Keyboard keyboard_;
    std::atomic<bool> windowGone_{false};
    bool dialog_ = false;
    bool fontsHeld_ = false;
    int width_ = 0;   // device pixels
    int height_ = 0;

    // Events the timer took off the connection but may not act on.
    std::deque<xcb_generic_event_t*> pending_;

    std::thread timer_;
    std::mutex timerMutex_;
    std::condition_variable timerWake_;
    bool timerStop_ = false;
    std::atomic<int64_t> lastIdleMs_{0};
};

}  // namespace varitap::gui::x11
