#include "gui/x11/X11Frame.h"

#include <cairo-xcb.h>
#include <poll.h>

#include <charconv>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <string_view>

#include "gui/DrawContext.h"
#include "gui/Font.h"
#include "gui/Frame.h"

namespace varitap::gui {

std::unique_ptr<PlatformFrame> createPlatformFrame(Frame& frame) {
    return std::make_unique<x11::X11Frame>(frame);
}

namespace x11 {

namespace {

int64_t nowMs() {
    return std::chrono::duration_cast<std::chrono::milliseconds>(
               std::chrono::steady_clock::now().time_since_epoch())
        .count();
}

xcb_visualtype_t* findVisual(xcb_screen_t* screen, xcb_visualid_t id) {
    for (auto d = xcb_screen_allowed_depths_iterator(screen); d.rem; xcb_depth_next(&d)) {
        for (auto v = xcb_depth_visuals_iterator(d.data); v.rem; xcb_visualtype_next(&v)) {
            if (v.data->visual_id == id) return v.data;
        }
    }
    return nullptr;
}

uint32_t buttonsFromState(uint16_t state) {
    uint32_t b = X11Keyboard::modifiersFromState(state);
    if (state & XCB_BUTTON_MASK_1) b |= kLButton;
    if (state & XCB_BUTTON_MASK_2) b |= kMButton;
    if (state & XCB_BUTTON_MASK_3) b |= kRButton;
    return b;
}

uint32_t buttonBit(xcb_button_t detail) {
    switch (detail) {
        case 1: return kLButton;
        case 2: return kMButton;
        case 3: return kRButton;
        default: return 0;
    }
}

constexpr int kTimerTickMs = 50;

}  // namespace

X11Frame::~X11Frame() { close(); }

bool X11Frame::connect() {
    int screenNumber = 0;
    connection_ = xcb_connect(nullptr, &screenNumber);
    if (!connection_ || xcb_connection_has_error(connection_)) {
        if (connection_) xcb_disconnect(connection_);
        connection_ = nullptr;
        return false;
    }
    auto it = xcb_setup_roots_iterator(xcb_get_setup(connection_));
    for (int i = 0; i < screenNumber && it.rem; ++i) xcb_screen_next(&it);
    screen_ = it.rem ? it.data : nullptr;
    if (!screen_) {
        xcb_disconnect(connection_);
        connection_ = nullptr;
        return false;
    }
    keyboard_.setup(connection_);
    return true;
}

xcb_atom_t X11Frame::atom(const char* name) {
    auto cookie = xcb_intern_atom(connection_, 0, static_cast<uint16_t>(std::strlen(name)), name);
    xcb_intern_atom_reply_t* reply = xcb_intern_atom_reply(connection_, cookie, nullptr);
    if (!reply) return XCB_ATOM_NONE;
    const xcb_atom_t a = reply->atom;
    std::free(reply);
    return a;
}

xcb_window_t X11Frame::topLevelOf(xcb_window_t window) {
    // Walks up until the window whose parent is the root.
    xcb_window_t w = window;
    for (int depth = 0; depth < 64 && w; ++depth) {
        xcb_query_tree_reply_t* tree =
            xcb_query_tree_reply(connection_, xcb_query_tree(connection_, w), nullptr);
        if (!tree) return 0;
        const xcb_window_t parent = tree->parent;
        const xcb_window_t root = tree->root;
        std::free(tree);
        if (parent == root || parent == 0) return w;
        w = parent;
    }
    return 0;
}

bool X11Frame::createSurfaces(xcb_visualid_t visualId, const Rect& size) {
    xcb_visualtype_t* visual = findVisual(screen_, visualId);
    if (!visual) return false;
    width_ = size.width();
    height_ = size.height();
    windowSurface_ = cairo_xcb_surface_create(connection_, window_, visual, width_, height_);
    backBuffer_ = cairo_image_surface_create(CAIRO_FORMAT_RGB24, width_, height_);
    return cairo_surface_status(windowSurface_) == CAIRO_STATUS_SUCCESS &&
           cairo_surface_status(backBuffer_) == CAIRO_STATUS_SUCCESS;
}

// The common end of both kinds of opening: surfaces for the new window, the
// window shown, the shared fonts held. Closes everything on failure.
bool X11Frame::showWindow(xcb_visualid_t visual, const Rect& size, bool dialog) {
    if (!createSurfaces(visual, size)) {
        close();
        return false;
    }
    xcb_map_window(connection_, window_);
    xcb_flush(connection_);
    retainFonts();
    fontsHeld_ = true;
    dialog_ = dialog;
    return true;
}

bool X11Frame::openChild(uintptr_t parentId, const Rect& size) {
    close();
    if (size.isEmpty() || !connect()) return false;
    const auto parent = static_cast<xcb_window_t>(parentId);
    // The host's window must exist on our connection; its depth and visual
    // are the child's (CopyFromParent).
    xcb_get_window_attributes_reply_t* attrs = xcb_get_window_attributes_reply(
        connection_, xcb_get_window_attributes(connection_, parent), nullptr);
    if (!attrs) {
        disconnect();
        return false;
    }
    const xcb_visualid_t visual = attrs->visual;
    std::free(attrs);

    window_ = xcb_generate_id(connection_);
    const uint32_t mask = XCB_CW_BACK_PIXMAP | XCB_CW_EVENT_MASK;
    const uint32_t values[] = {
        XCB_BACK_PIXMAP_NONE,
        XCB_EVENT_MASK_EXPOSURE | XCB_EVENT_MASK_BUTTON_PRESS | XCB_EVENT_MASK_BUTTON_RELEASE |
            XCB_EVENT_MASK_BUTTON_MOTION | XCB_EVENT_MASK_KEY_PRESS |
            XCB_EVENT_MASK_STRUCTURE_NOTIFY};
    xcb_void_cookie_t c = xcb_create_window_checked(
        connection_, XCB_COPY_FROM_PARENT, window_, parent, 0, 0,
        static_cast<uint16_t>(size.width()), static_cast<uint16_t>(size.height()), 0,
        XCB_WINDOW_CLASS_INPUT_OUTPUT, XCB_COPY_FROM_PARENT, mask, values);
    if (xcb_generic_error_t* err = xcb_request_check(connection_, c)) {
        std::free(err);
        window_ = 0;
        disconnect();
        return false;
    }
    if (!showWindow(visual, size, false)) return false;
    lastIdleMs_ = nowMs();
    if (frame_.fallbackDelay() > 0) {
        timerStop_ = false;
        timer_ = std::thread(&X11Frame::timerLoop, this);
    }
    return true;
}

bool X11Frame::openDialog(uintptr_t ownerId, const Rect& size, const char* title) {
    close();
    if (size.isEmpty() || !connect()) return false;
    const auto owner = static_cast<xcb_window_t>(ownerId);
    const xcb_window_t ownerTop = owner ? topLevelOf(owner) : 0;

    // Centred on the owner's top-level window, else on the screen.
    int x = (screen_->width_in_pixels - size.width()) / 2;
    int y = (screen_->height_in_pixels - size.height()) / 2;
    if (ownerTop) {
        xcb_get_geometry_reply_t* g =
            xcb_get_geometry_reply(connection_, xcb_get_geometry(connection_, ownerTop), nullptr);
        xcb_translate_coordinates_reply_t* t = xcb_translate_coordinates_reply(
            connection_, xcb_translate_coordinates(connection_, ownerTop, screen_->root, 0, 0),
            nullptr);
        if (g && t) {
            x = t->dst_x + (g->width - size.width()) / 2;
            y = t->dst_y + (g->height - size.height()) / 2;
        }
        std::free(g);
        std::free(t);
    }

    window_ = xcb_generate_id(connection_);
    const uint32_t mask = XCB_CW_BACK_PIXEL | XCB_CW_EVENT_MASK;
    const uint32_t values[] = {
        screen_->white_pixel,
        XCB_EVENT_MASK_EXPOSURE | XCB_EVENT_MASK_BUTTON_PRESS | XCB_EVENT_MASK_BUTTON_RELEASE |
            XCB_EVENT_MASK_BUTTON_MOTION | XCB_EVENT_MASK_KEY_PRESS |
            XCB_EVENT_MASK_STRUCTURE_NOTIFY};
    xcb_void_cookie_t c = xcb_create_window_checked(
        connection_, XCB_COPY_FROM_PARENT, window_, screen_->root, static_cast<int16_t>(x),
        static_cast<int16_t>(y), static_cast<uint16_t>(size.width()),
        static_cast<uint16_t>(size.height()), 0, XCB_WINDOW_CLASS_INPUT_OUTPUT,
        screen_->root_visual, mask, values);
    if (xcb_generic_error_t* err = xcb_request_check(connection_, c)) {
        std::free(err);
        window_ = 0;
        disconnect();
        return false;
    }

    const xcb_atom_t utf8 = atom("UTF8_STRING");
    if (title && *title) {
        const auto len = static_cast<uint32_t>(std::strlen(title));
        xcb_change_property(connection_, XCB_PROP_MODE_REPLACE, window_, XCB_ATOM_WM_NAME,
                            XCB_ATOM_STRING, 8, len, title);
        xcb_change_property(connection_, XCB_PROP_MODE_REPLACE, window_, atom("_NET_WM_NAME"),
                            utf8, 8, len, title);
    }
    if (ownerTop) {
        xcb_change_property(connection_, XCB_PROP_MODE_REPLACE, window_,
                            XCB_ATOM_WM_TRANSIENT_FOR, XCB_ATOM_WINDOW, 32, 1, &ownerTop);
    }
    const xcb_atom_t dialogType = atom("_NET_WM_WINDOW_TYPE_DIALOG");
    xcb_change_property(connection_, XCB_PROP_MODE_REPLACE, window_, atom("_NET_WM_WINDOW_TYPE"),
                        XCB_ATOM_ATOM, 32, 1, &dialogType);
    const xcb_atom_t modal = atom("_NET_WM_STATE_MODAL");
    xcb_change_property(connection_, XCB_PROP_MODE_REPLACE, window_, atom("_NET_WM_STATE"),
                        XCB_ATOM_ATOM, 32, 1, &modal);
    deleteWindowAtom_ = atom("WM_DELETE_WINDOW");
    xcb_change_property(connection_, XCB_PROP_MODE_REPLACE, window_, atom("WM_PROTOCOLS"),
                        XCB_ATOM_ATOM, 32, 1, &deleteWindowAtom_);
    // WM_NORMAL_HINTS: program position, fixed size (min = max).
    uint32_t hints[18] = {};
    hints[0] = (1u << 2) | (1u << 4) | (1u << 5);  // PPosition, PMinSize, PMaxSize
    hints[1] = static_cast<uint32_t>(x);
    hints[2] = static_cast<uint32_t>(y);
    hints[5] = hints[7] = static_cast<uint32_t>(size.width());
    hints[6] = hints[8] = static_cast<uint32_t>(size.height());
    xcb_change_property(connection_, XCB_PROP_MODE_REPLACE, window_, XCB_ATOM_WM_NORMAL_HINTS,
                        XCB_ATOM_WM_SIZE_HINTS, 32, 18, hints);

    return showWindow(screen_->root_visual, size, true);
}

void X11Frame::resize(const Rect& size) {
    if (!connection_ || windowGone_ || size.isEmpty()) return;
    width_ = size.width();
    height_ = size.height();
    const uint32_t values[] = {static_cast<uint32_t>(width_), static_cast<uint32_t>(height_)};
    // Waited for: the window has its new size before anything is drawn in it.
    const uint16_t mask = XCB_CONFIG_WINDOW_WIDTH | XCB_CONFIG_WINDOW_HEIGHT;
    std::free(xcb_request_check(connection_,
                                xcb_configure_window_checked(connection_, window_, mask, values)));
    cairo_xcb_surface_set_size(windowSurface_, width_, height_);
    if (backBuffer_) cairo_surface_destroy(backBuffer_);
    backBuffer_ = cairo_image_surface_create(CAIRO_FORMAT_RGB24, width_, height_);
}

void X11Frame::disconnect() {
    keyboard_.reset();
    if (connection_) xcb_disconnect(connection_);
    connection_ = nullptr;
    screen_ = nullptr;
}

void X11Frame::close() {
    if (timer_.joinable()) {
        {
            std::lock_guard<std::mutex> lock(timerMutex_);
            timerStop_ = true;
        }
        timerWake_.notify_all();
        timer_.join();
    }
    std::lock_guard<std::recursive_mutex> lock(frame_.guard());
    for (xcb_generic_event_t* e : pending_) std::free(e);
    pending_.clear();
    // Surfaces, windows, flush, disconnect, in that order.
    cairo_device_t* device = nullptr;
    if (windowSurface_) {
        device = cairo_device_reference(cairo_surface_get_device(windowSurface_));
        cairo_surface_finish(windowSurface_);
        cairo_surface_destroy(windowSurface_);
        windowSurface_ = nullptr;
    }
    if (backBuffer_) cairo_surface_destroy(backBuffer_);
    backBuffer_ = nullptr;
    if (device) {
        // cairo keeps per-connection state; it must go before the connection.
        cairo_device_finish(device);
        cairo_device_destroy(device);
    }
    if (connection_ && window_ && !windowGone_) xcb_destroy_window(connection_, window_);
    window_ = 0;
    if (connection_) xcb_flush(connection_);
    disconnect();
    if (fontsHeld_) releaseFonts();
    fontsHeld_ = false;
    windowGone_ = false;
}

void X11Frame::invalidate(const Rect& area) { frame_.invalidate(area); }

void X11Frame::handleEvent(xcb_generic_event_t* event, bool redrawOnly) {
    const uint8_t type = event->response_type & 0x7F;
    switch (type) {
        case 0:
            // An X error of one of our requests (e.g. the window died with its
            // parent): nothing to do, the connection stays usable.
            return;
        case XCB_EXPOSE: {
            auto* e = reinterpret_cast<xcb_expose_event_t*>(event);
            if (e->window == window_) {
                frame_.invalidate(frame_.pixelScale().toLogical(
                    Rect::fromSize(e->x, e->y, e->width, e->height)));
            }
            return;
        }
        case XCB_DESTROY_NOTIFY: {
            auto* e = reinterpret_cast<xcb_destroy_notify_event_t*>(event);
            if (e->window == window_) windowGone_ = true;
            return;
        }
        default: break;
    }
    if (redrawOnly) {
        // Everything else may reach a listener and the host: it waits for idle.
        pending_.push_back(event);
        return;
    }
    // Positions reach the frame in logical pixels.
    const PixelScale& scale = frame_.pixelScale();
    switch (type) {
        case XCB_BUTTON_PRESS: {
            auto* e = reinterpret_cast<xcb_button_press_event_t*>(event);
            const Point p = scale.toLogical(Point{e->event_x, e->event_y});
            const uint32_t mods = X11Keyboard::modifiersFromState(e->state);
            if (e->detail == 4 || e->detail == 5) {
                frame_.dispatchWheel(p, e->detail == 4 ? 1.0f : -1.0f, buttonsFromState(e->state));
            } else if (const uint32_t b = buttonBit(e->detail)) {
                frame_.dispatchMouseDown(p, b | mods);
            }
            break;
        }
        case XCB_BUTTON_RELEASE: {
            auto* e = reinterpret_cast<xcb_button_release_event_t*>(event);
            if (buttonBit(e->detail)) {
                frame_.dispatchMouseUp(scale.toLogical(Point{e->event_x, e->event_y}),
                                       buttonsFromState(e->state) & ~buttonBit(e->detail));
            }
            break;
        }
        case XCB_MOTION_NOTIFY: {
            auto* e = reinterpret_cast<xcb_motion_notify_event_t*>(event);
            frame_.dispatchMouseMoved(scale.toLogical(Point{e->event_x, e->event_y}),
                                      buttonsFromState(e->state));
            break;
        }
        case XCB_KEY_PRESS: {
            auto* e = reinterpret_cast<xcb_key_press_event_t*>(event);
            frame_.dispatchKeyDown(keyboard_.translate(e->detail, e->state));
            break;
        }
        case XCB_CLIENT_MESSAGE: {
            auto* e = reinterpret_cast<xcb_client_message_event_t*>(event);
            if (dialog_ && e->format == 32 && e->data.data32[0] == deleteWindowAtom_) {
                frame_.endModal(-1);
            }
            break;
        }
        default: break;
    }
}

void X11Frame::drawDirty() {
    if (!connection_ || windowGone_ || !backBuffer_) return;
    const Rect area = frame_.takeDirtyArea();
    if (area.isEmpty()) return;
    cairo_t* cr = cairo_create(backBuffer_);
    {
        DrawContext dc(cr, frame_.scale());
        frame_.drawArea(dc, area);
    }
    cairo_destroy(cr);
    cairo_surface_flush(backBuffer_);
    // Every device pixel the area touches (those it shares with a neighbour
    // hold what was drawn for them last).
    const Rect pixels = frame_.pixelScale().toDevice(area).intersect(Rect(0, 0, width_, height_));
    cr = cairo_create(windowSurface_);
    cairo_set_operator(cr, CAIRO_OPERATOR_SOURCE);
    cairo_set_source_surface(cr, backBuffer_, 0, 0);
    cairo_rectangle(cr, pixels.left, pixels.top, pixels.width(), pixels.height());
    cairo_fill(cr);
    cairo_destroy(cr);
    cairo_surface_flush(windowSurface_);
    xcb_flush(connection_);
}

void X11Frame::idle() {
    if (!connection_) return;
    lastIdleMs_ = nowMs();
    // Events the timer set aside come first, in their order.
    while (!pending_.empty() && connection_) {
        xcb_generic_event_t* e = pending_.front();
        pending_.pop_front();
        handleEvent(e, false);
        std::free(e);
    }
    while (connection_) {
        xcb_generic_event_t* e = xcb_poll_for_event(connection_);
        if (!e) break;
        handleEvent(e, false);
        std::free(e);
    }
    if (connection_ && xcb_connection_has_error(connection_)) windowGone_ = true;
    drawDirty();
}

void X11Frame::waitForEvents(int timeoutMs) {
    if (!connection_) return;
    pollfd fd{xcb_get_file_descriptor(connection_), POLLIN, 0};
    poll(&fd, 1, timeoutMs);
}

void X11Frame::timerLoop() {
    std::unique_lock<std::mutex> lock(timerMutex_);
    while (!timerStop_) {
        timerWake_.wait_for(lock, std::chrono::milliseconds(kTimerTickMs));
        if (timerStop_) break;
        if (nowMs() - lastIdleMs_.load() < frame_.fallbackDelay()) continue;
        // Never wait for the guard: the user-interface thread may hold it for
        // a menu or while closing.
        std::unique_lock<std::recursive_mutex> guard(frame_.guard(), std::try_to_lock);
        if (!guard.owns_lock() || !connection_) continue;
        while (xcb_generic_event_t* e = xcb_poll_for_event(connection_)) {
            const bool keep = (e->response_type & 0x7F) != 0 &&
                              (e->response_type & 0x7F) != XCB_EXPOSE &&
                              (e->response_type & 0x7F) != XCB_DESTROY_NOTIFY;
            handleEvent(e, true);
            if (!keep) std::free(e);
        }
        drawDirty();
    }
}

}  // namespace x11

double xftDpi(const char* resources, size_t length) {
    // One "name:<blanks>value" per line, as xrdb writes them.
    constexpr std::string_view kName = "Xft.dpi:";
    std::string_view text(resources ? resources : "", resources ? length : 0);
    while (!text.empty()) {
        const size_t end = text.find('\n');
        std::string_view line = text.substr(0, end);
        text = end == std::string_view::npos ? std::string_view() : text.substr(end + 1);
        if (line.substr(0, kName.size()) != kName) continue;
        line.remove_prefix(kName.size());
        while (!line.empty() && (line.front() == ' ' || line.front() == '\t')) {
            line.remove_prefix(1);
        }
        double dpi = 0.0;
        const auto result = std::from_chars(line.data(), line.data() + line.size(), dpi);
        if (result.ec == std::errc() && std::isfinite(dpi) && dpi > 0.0) return dpi;
    }
    return 0.0;
}

double displayScale() {
    int screenNumber = 0;
    xcb_connection_t* c = xcb_connect(nullptr, &screenNumber);
    if (!c || xcb_connection_has_error(c)) {
        if (c) xcb_disconnect(c);
        return 0.0;
    }
    // The resources live on the first screen's root window.
    double dpi = 0.0;
    const xcb_screen_t* screen = xcb_setup_roots_iterator(xcb_get_setup(c)).data;
    if (screen) {
        xcb_get_property_reply_t* reply = xcb_get_property_reply(
            c,
            xcb_get_property(c, 0, screen->root, XCB_ATOM_RESOURCE_MANAGER, XCB_ATOM_STRING, 0,
                             1u << 20),
            nullptr);
        if (reply && reply->format == 8) {
            dpi = xftDpi(static_cast<const char*>(xcb_get_property_value(reply)),
                         static_cast<size_t>(xcb_get_property_value_length(reply)));
        }
        std::free(reply);
    }
    xcb_disconnect(c);
    return dpi / 96.0;
}

}  // namespace varitap::gui
