// Test support for the toolkit: a private Xvfb server per test program, a
// second X connection that plays the host (windows, pixels, synthetic input),
// picture files made on the fly and a listener that logs what it hears.
#pragma once

#include <cairo.h>
#include <gtest/gtest.h>
#include <xcb/xcb.h>

#include <cstdint>
#include <cstdlib>
#include <functional>
#include <string>
#include <vector>

#include "../base/TestSupport.h"
#include "gui/Bitmap.h"
#include "gui/Control.h"
#include "gui/Frame.h"
#include "gui/GuiTypes.h"

namespace varitap::gui::test {

// True once the private server runs (DISPLAY points at it).
bool haveDisplay();

// File descriptors this process has open (for leak checks over many
// open/close cycles).
int openDescriptors();

struct Pixel {
    uint8_t r = 0, g = 0, b = 0, a = 255;
    bool near(uint8_t R, uint8_t G, uint8_t B, int tol = 40) const {
        return std::abs(r - R) <= tol && std::abs(g - G) <= tol && std::abs(b - B) <= tol;
    }
};

// An image read back from the server, drawn offscreen or read from a PNG:
// rows of cairo's 32-bit pixels (alpha premultiplied; opaque unless the
// picture has an alpha channel). Image(w, h) is opaque black.
struct Image {
    int width = 0;
    int height = 0;
    std::vector<uint32_t> words;
    Image() = default;
    Image(int w, int h) : width(w), height(h), words(static_cast<size_t>(w * h), 0xff000000u) {}
    // The pixels of a cairo image surface, which it destroys.
    static Image adopt(cairo_surface_t* surface);
    // Empty when the file cannot be read.
    static Image readPng(const std::string& path) { return adopt(cairo_image_surface_create_from_png(path.c_str())); }
    bool writePng(const std::string& path) const;
    Pixel at(int x, int y) const {
        const uint32_t w = words[static_cast<size_t>(y * width + x)];
        return Pixel{static_cast<uint8_t>(w >> 16), static_cast<uint8_t>(w >> 8), static_cast<uint8_t>(w),
                     static_cast<uint8_t>(w >> 24)};
    }
    // Pixels in r that are close to a colour.
    int count(const Rect& r, uint8_t R, uint8_t G, uint8_t B, int tol = 40) const;
    int count(const Rect& r, Color c, int tol = 40) const { return count(r, c.red, c.green, c.blue, tol); }
    // Bounding box of pixels differing from a background colour by more than tol.
    Rect inkBox(const Rect& r, Pixel background, int tol = 60) const;
};

class HostDisplay {
public:
    HostDisplay();
    ~HostDisplay() {
        if (c_) xcb_disconnect(c_);
    }
    bool ok() const { return c_ != nullptr; }
    xcb_connection_t* connection() const { return c_; }
    xcb_window_t root() const { return screen_->root; }

    // A mapped top-level window that plays the host's editor window.
    xcb_window_t createWindow(int w, int h);
    void destroyWindow(xcb_window_t w) {
        xcb_destroy_window(c_, w);
        sync();
    }
    void resizeWindow(xcb_window_t w, int width, int height);
    void sync() { std::free(xcb_get_input_focus_reply(c_, xcb_get_input_focus(c_), nullptr)); }

    Image grab(xcb_window_t w, const Rect& r);

    // Synthetic events sent straight to a window (coordinates in window space).
    void button(xcb_window_t w, int x, int y, int button, bool press, uint16_t state = 0);
    void motion(xcb_window_t w, int x, int y, uint16_t state) { button(w, x, y, 0, false, state); }
    // A press and release of a button.
    void click(xcb_window_t w, int x, int y, int b = 1) {
        button(w, x, y, b, true);
        button(w, x, y, b, false, b > 3 ? 0 : static_cast<uint16_t>(XCB_BUTTON_MASK_1 << (b - 1)));
    }
    // A key by keysym; Shift is added when the keysym needs it.
    void key(xcb_window_t w, uint32_t keysym, uint16_t state = 0);
    void typeText(xcb_window_t w, const char* ascii) {
        for (const char* p = ascii; *p; ++p) key(w, static_cast<unsigned char>(*p));
    }

    // The children of a window, and its parent when asked.
    std::vector<xcb_window_t> children(xcb_window_t w, xcb_window_t* parent = nullptr);
    // Children of the root that are mapped and override-redirect (menus),
    // or mapped and not (top-level windows).
    std::vector<xcb_window_t> topWindows(bool overrideRedirect);
    std::vector<xcb_window_t> popupWindows() { return topWindows(true); }
    // Root position of a window.
    Point rootPosition(xcb_window_t w);
    Rect geometry(xcb_window_t w);
    std::vector<uint32_t> property32(xcb_window_t w, const char* name);
    xcb_atom_t atom(const char* name);

private:
    xcb_connection_t* c_ = nullptr;
    xcb_screen_t* screen_ = nullptr;
};

// Runs `step` until it returns true or ms pass; true when it did.
bool waitFor(const std::function<bool()>& step, int ms = 2000);
// The newest override-redirect menu window once n are up, or 0.
xcb_window_t waitForMenus(HostDisplay& display, size_t n, int ms = 3000);
// Once no menu is up, runs `open` (which opens a menu and runs its loop)
// while `user` plays the first menu window from another thread once it is up
// (not at all when none opens within ms).
void playMenu(HostDisplay& display, const std::function<void()>& open, const std::function<void(xcb_window_t)>& user,
              int ms = 3000);
// Fraction of pixels whose channels differ by more than tolerance.
double differingFraction(const Image& a, const Image& b, int tolerance);

// Writes a w x h PNG made of horizontal bands of the given opaque colours
// (top to bottom, equal heights).
bool writeBandsPng(const std::string& path, int w, int h, const std::vector<Color>& bands);

using varitap::test::TempDir;

// A listener that logs what controls and the frame report: "v<tag>;" for a
// value change, "b<index>;" and "e<index>;" for the edit notifications.
class Recorder : public ControlListener, public EditListener {
public:
    void valueChanged(DrawContext*, Control* c) override {
        last = c->value();
        log += "v" + std::to_string(c->tag()) + ";";
    }
    void beginEdit(int32_t i) override { log += "b" + std::to_string(i) + ";"; }
    void endEdit(int32_t i) override { log += "e" + std::to_string(i) + ";"; }
    float last = -1;
    std::string log;
};

constexpr Color kRed{255, 0, 0, 255}, kGreen{0, 255, 0, 255}, kBlue{0, 0, 255, 255}, kYellow{255, 255, 0, 255};

// A frame, a listener and a folder for pictures: bands() writes a picture of
// horizontal bands there and loads it.
class GuiTest : public ::testing::Test {
protected:
    RefPtr<Bitmap> bands(int w, int h, const std::vector<Color>& colours);
    TempDir dir;
    Recorder rec;
    RefPtr<Frame> frame;

private:
    int files_ = 0;
};

// The same with an 865 x 400 host window on the private server (skipped
// without one).
class ScreenTest : public GuiTest {
protected:
    void SetUp() override;
    HostDisplay host;
    xcb_window_t hostWindow = 0;
};

// The frame drawn offscreen through the same path the window uses, at the
// frame's scale.
Image renderOffscreen(Frame& frame);

}  // namespace varitap::gui::test
