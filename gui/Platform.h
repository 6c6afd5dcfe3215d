// The one interface between the toolkit and the window system; gui/x11/
// implements it. Views never see it: Frame and OptionMenu use it.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>

#include "gui/GuiTypes.h"

namespace varitap::gui {

class Frame;
class OptionMenu;

class PlatformFrame {
public:
    virtual ~PlatformFrame() = default;

    // Sizes are device pixels; the platform converts event positions and
    // drawing with its frame's pixelScale().
    // Child window of parent; false on any failure (nothing left open).
    virtual bool openChild(uintptr_t parent, const Rect& size) = 0;
    // Top-level dialog transient for the top-level window holding owner.
    virtual bool openDialog(uintptr_t owner, const Rect& size, const char* title) = 0;
    // A new window size for a new scale (caller holds the guard).
    virtual void resize(const Rect& size) = 0;
    virtual void close() = 0;
    virtual bool isOpen() const = 0;
    virtual uint32_t windowId() const = 0;
    virtual bool isParentGone() const = 0;
    // Handles pending events and draws what is dirty (caller holds the guard).
    virtual void idle() = 0;
    // Waits up to timeoutMs for an event (no guard needed).
    virtual void waitForEvents(int timeoutMs) = 0;
    // The descriptor of the window system connection while open, else -1:
    // readable when events wait for idle().
    virtual int connectionFd() const = 0;
    // Marks a frame area to draw at the next idle or timer tick.
    virtual void invalidate(const Rect& area) = 0;
    // Modal popup of a menu at frame point `where`; true when chosen.
    virtual bool popupMenu(OptionMenu& menu, Point where) = 0;
};

std::unique_ptr<PlatformFrame> createPlatformFrame(Frame& frame);

// ui. The scale the user gave the display for X programs: the Xft.dpi
// resource (in the root window's RESOURCE_MANAGER property) divided by 96.
// 0 when there is no display or no such resource. Opens a connection of its
// own for the question.
double displayScale();
// The Xft.dpi value in the text of a RESOURCE_MANAGER property, 0 when it
// holds none that is a positive number.
double xftDpi(const char* resources, size_t length);

}  // namespace varitap::gui
