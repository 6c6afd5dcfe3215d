// The frame in a real window under Xvfb: its life from opening to a lost
// parent, drawing and synthetic input through the X connection at several
// scales, and two frames at once.
#include "gui/Frame.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cstring>
#include <functional>
#include <string>
#include <thread>

#include "XServer.h"
#include "gui/BitmapView.h"
#include "gui/Buttons.h"
#include "gui/DrawContext.h"
#include "gui/Knob.h"
#include "gui/OptionMenu.h"
#include "gui/ParamDisplay.h"
#include "gui/Platform.h"

namespace varitap::gui {
namespace {

using test::differingFraction;
using test::Image;
using test::kRed;
using test::waitFor;

constexpr Color kBack{40, 60, 90, 255}, kLowBack{70, 40, 40, 255};

class FrameTest : public test::ScreenTest {
protected:
    // An editor-sized frame with a background of two bands, a knob, a
    // four-position switch showing red, green, blue or yellow, and a label.
    void build(int fallbackMs) {
        frame = makeRef<Frame>(Rect(0, 0, 865, 400), &rec);
        frame->setFallbackDelay(fallbackMs);
        frame->setBackground(bands(865, 400, {kBack, kLowBack}).get());
        knob = makeRef<Knob>(Rect(13, 62, 38, 87), &rec, 21);
        frame->addView(knob.get());
        auto art = bands(16, 40, {kRed, test::kGreen, test::kBlue, test::kYellow});
        switcher = makeRef<MultiPositionSwitch>(Rect::fromSize(100, 29, 16, 10), &rec, 91, 4, 10, art.get());
        frame->addView(switcher.get());
        label = makeRef<TextLabel>(Rect(200, 100, 400, 130), "Varitap 0.0.5", ParamDisplay::kShadowText);
        label->setTransparent(true);
        frame->addView(label.get());
    }
    // Pixels of a colour in a frame's switch as the server shows them.
    int switchShows(Frame& f, MultiPositionSwitch& s, Color c) {
        host.sync();
        return host.grab(f.windowId(), s.viewSize()).count(Rect(0, 0, 16, 10), c, 10);
    }
    // Idles the frame until done() holds (or two seconds pass).
    bool idleUntil(const std::function<bool()>& done) {
        return waitFor([&] {
            frame->idle();
            return done();
        });
    }
    // Waits until the window shows what the frame draws offscreen.
    bool shows(Image* shown) {
        const Image expected = test::renderOffscreen(*frame);
        const Rect size(0, 0, expected.width, expected.height);
        return waitFor([&] {
            *shown = host.grab(frame->windowId(), size);
            return differingFraction(*shown, expected, 24) < 0.002;
        });
    }

    RefPtr<Knob> knob;
    RefPtr<MultiPositionSwitch> switcher;
    RefPtr<TextLabel> label;
};

// A listener that closes the frame and drops the last reference to it from
// inside the frame's own event handling.
class Closer : public ControlListener {
public:
    void valueChanged(DrawContext*, Control*) override {
        ++calls;
        frame->close();
        frame.reset();
    }
    RefPtr<Frame> frame;
    int calls = 0;
};

// One frame from a failed opening through drawing, the fallback timer with
// no idle from the host, opening over itself and a parent destroyed under
// it, to opening again in a new host window and being closed and dropped
// from inside its own event handling.
TEST_F(FrameTest, LivesFromOpeningToALostParentAndIsClosedFromInside) {
    build(100);
    // A window id that does not exist fails quietly, and the frame still opens later.
    EXPECT_FALSE(frame->open(0x3fffff7));
    EXPECT_FALSE(frame->isOpen());
    frame->idle();
    ASSERT_TRUE(frame->open(hostWindow));
    EXPECT_TRUE(frame->isOpen());
    xcb_window_t parent = 0;
    host.children(frame->windowId(), &parent);
    EXPECT_EQ(parent, hostWindow);
    EXPECT_EQ(host.geometry(frame->windowId()), Rect(0, 0, 865, 400));
    frame->idle();
    // The frame draws on its own connection: wait until the server shows it.
    Image shown;
    EXPECT_TRUE(shows(&shown));
    EXPECT_TRUE(shown.at(500, 50).near(40, 60, 90, 4));   // background, upper band
    EXPECT_TRUE(shown.at(500, 350).near(70, 40, 40, 4));  // lower band
    EXPECT_EQ(switchShows(*frame, *switcher, kRed), 160);

    // No idle from here: the timer alone draws a change...
    switcher->setValue(1.0f);
    EXPECT_TRUE(waitFor([&] { return switchShows(*frame, *switcher, test::kYellow) == 160; }, 3000));
    // ...and does not act on a click (that could reach the host), which the next idle handles.
    host.click(frame->windowId(), 105, 33);
    std::this_thread::sleep_for(std::chrono::milliseconds(400));
    EXPECT_EQ(rec.log, "");
    frame->idle();
    EXPECT_EQ(rec.log, "b91;v91;e91;");
    EXPECT_FLOAT_EQ(switcher->value(), 0.0f);
    // An exposed area is repainted by the timer too.
    xcb_clear_area(host.connection(), 1, frame->windowId(), 0, 0, 0, 0);
    EXPECT_TRUE(waitFor([&] { return switchShows(*frame, *switcher, kRed) == 160; }));
    frame->close();
    EXPECT_FALSE(frame->isOpen());
    EXPECT_EQ(frame->windowId(), 0u);

    // Opening an open frame closes it first: one window under the host's,
    // and after the close no window and no descriptor left behind.
    const int fds = test::openDescriptors();
    ASSERT_TRUE(frame->open(hostWindow));
    frame->idle();
    ASSERT_TRUE(frame->open(hostWindow));
    // (The server removes a closed connection's windows in its own time.)
    EXPECT_TRUE(waitFor([&] { return host.children(hostWindow).size() == 1; }));
    frame->close();
    EXPECT_TRUE(waitFor([&] { return host.children(hostWindow).empty(); }));
    EXPECT_EQ(test::openDescriptors(), fds);

    // The host window destroyed under the open frame: it keeps drawing and
    // handling for a while (the timer too) as a host would.
    ASSERT_TRUE(frame->open(hostWindow));
    frame->idle();
    host.destroyWindow(hostWindow);
    for (int i = 0; i < 20; ++i) {
        knob->setValue(static_cast<float>(i) / 20.0f);
        frame->redraw();
        frame->idle();
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    EXPECT_TRUE(idleUntil([&] { return frame->isParentGone(); }));
    // A menu cannot open any more, and says so.
    auto menu = makeRef<OptionMenu>(Rect());
    menu->addEntry("x");
    EXPECT_FALSE(menu->popup(frame.get(), Point{1, 1}));
    frame->close();
    ASSERT_TRUE(frame->open(host.createWindow(865, 400)));

    Closer closer;
    auto button = makeRef<OnOffButton>(Rect(500, 300, 550, 350), &closer, 1, nullptr);
    frame->addView(button.get());
    frame->idle();
    const xcb_window_t w = frame->windowId();
    Frame* raw = frame.get();
    raw->retain();  // keep it observable for the checks below
    closer.frame = std::move(frame);
    host.click(w, 510, 310);
    host.button(w, 510, 310, 1, true);  // after the close: never handled
    ASSERT_TRUE(waitFor([&] {
        if (raw->isOpen()) raw->idle();
        return closer.calls > 0;
    }));
    EXPECT_EQ(closer.calls, 1);
    EXPECT_FALSE(raw->isOpen());
    EXPECT_EQ(raw->retainCount(), 1);
    raw->release();
    EXPECT_EQ(button->retainCount(), 1);  // the frame and its tree are gone
}

// A view that draws a white line across its middle.
class LineView : public View {
public:
    using View::View;
    void draw(DrawContext& dc) override {
        const Rect& r = viewSize();
        dc.setLineColor(kWhiteColor);
        dc.setLineWidth(1.0);
        const int y = (r.top + r.bottom) / 2;
        dc.drawLine(Point{r.left, y}, Point{r.right, y});
    }
};

// A frame at 150 % and then, while open, at 200 %: the window and the pixels
// grow, the views and mouse positions stay logical, fills keep their edges on
// whole device pixels, a picture drawn for the scale is copied as it is and a
// photo of scale 1 is resampled smoothly.
TEST_F(FrameTest, ScaledFrameDrawsAndTakesInputInLogicalPixels) {
    frame = makeRef<Frame>(Rect(0, 0, 200, 100), &rec);
    frame->setFallbackDelay(0);
    frame->setScale(1.5);
    frame->setBackground(bands(200, 100, {kBack, kLowBack}).get());
    knob = makeRef<Knob>(Rect(13, 12, 38, 37), &rec, 21);
    knob->setValue(0.5f);
    frame->addView(knob.get());
    // A red field with a white frame whose edges fall on half device pixels
    // at 150 %, and a white line at logical row 80.
    auto field = makeRef<ParamDisplay>(Rect(101, 11, 131, 21), nullptr, -1,
                                       ParamDisplay::kNoTextStyle | ParamDisplay::kFrameStyle);
    field->setBackColor(kRed);
    field->setFrameColor(kWhiteColor);
    frame->addView(field.get());
    frame->addView(makeRef<LineView>(Rect(0, 75, 100, 85)).get());
    // A picture drawn for 150 %: 30 x 15 device pixels in bands of green,
    // blue and green for 20 x 10 logical pixels, placed at an odd spot.
    const std::string art = dir.path() + "/art.png";
    ASSERT_TRUE(test::writeBandsPng(art, 30, 15, {test::kGreen, test::kBlue, test::kGreen}));
    auto picture = makeRef<Bitmap>();
    ASSERT_TRUE(picture->setPicture(cairo_image_surface_create_from_png(art.c_str()), 20, 10, 1.5));
    auto pictureView = makeRef<BitmapView>(Rect::fromSize(151, 61, 20, 10), picture.get());
    frame->addView(pictureView.get());

    ASSERT_TRUE(frame->open(hostWindow));
    frame->idle();
    const xcb_window_t w = frame->windowId();
    EXPECT_EQ(host.geometry(w), Rect(0, 0, 300, 150));
    Image shown;
    EXPECT_TRUE(shows(&shown));
    ASSERT_EQ(shown.width, 300);
    // The field from device column round(151.5) = 152 to round(196.5) = 197
    // (exclusive), rows 17 to 32: a frame two whole pixels wide, red inside,
    // and nothing half drawn at its edges. The line: rows 120 and 121.
    auto is = [&](int x, int y, Color c) { return shown.at(x, y).near(c.red, c.green, c.blue, 0); };
    for (int x = 148; x < 202; ++x) {
        const Color c = x < 152 || x >= 197 ? kBack : x < 154 || x >= 195 ? kWhiteColor : kRed;
        EXPECT_TRUE(is(x, 24, c)) << x;
    }
    for (int y = 14; y < 36; ++y) {
        const Color c = y < 17 || y >= 32 ? kBack : y < 19 || y >= 30 ? kWhiteColor : kRed;
        EXPECT_TRUE(is(170, y, c)) << y;
    }
    for (int y = 117; y < 125; ++y) {
        EXPECT_TRUE(is(60, y, y == 120 || y == 121 ? kWhiteColor : kLowBack)) << y;
    }
    // The picture: its 15 rows whole, from round(91.5) = 92, unblended.
    for (int y = 90; y < 109; ++y) {
        const Color c = y < 92 || y >= 107 ? kLowBack : y < 97 || y >= 102 ? test::kGreen : test::kBlue;
        EXPECT_TRUE(is(240, y, c)) << y;
    }

    // 45 device pixels up are 30 logical pixels: +0.2 on the knob.
    const Point centre = frame->pixelScale().toDevice(Point{25, 24});
    host.button(w, centre.x, centre.y, 1, true);
    host.motion(w, centre.x, centre.y - 45, XCB_BUTTON_MASK_1);
    host.button(w, centre.x, centre.y - 45, 1, false, XCB_BUTTON_MASK_1);
    ASSERT_TRUE(idleUntil([&] { return rec.log.find("e21;") != std::string::npos; }));
    EXPECT_NEAR(knob->value(), 0.7f, 1e-5);
    // Only the knob was drawn again, every device pixel it touches whole.
    const Image turned = test::renderOffscreen(*frame);
    EXPECT_TRUE(idleUntil([&] { return differingFraction(host.grab(w, Rect(0, 0, 300, 150)), turned, 8) == 0.0; }));

    // 200 % while open: a window twice the size, drawn anew; the photo's band
    // edge (logical row 50) is resampled smoothly, the drawn picture is not.
    frame->setScale(2.0);
    frame->idle();
    EXPECT_EQ(host.geometry(w), Rect(0, 0, 400, 200));
    EXPECT_TRUE(shows(&shown));
    EXPECT_TRUE(is(10, 97, kBack));
    EXPECT_FALSE(shown.at(10, 99).near(40, 60, 90, 2));
    EXPECT_FALSE(shown.at(10, 99).near(70, 40, 40, 2));
    EXPECT_TRUE(is(10, 102, kLowBack));
    const Point knobNow = frame->pixelScale().toDevice(Point{25, 24});
    host.click(w, knobNow.x, knobNow.y, 4);  // the wheel over the knob
    ASSERT_TRUE(idleUntil([&] { return knob->value() > 0.705f; }));
    EXPECT_NEAR(knob->value(), 0.71f, 1e-5);
}

TEST(PixelScaleTest, ConvertsBetweenLogicalAndDevicePixelsAndReadsXftDpi) {
    struct Case {
        double scale;
        Rect logical, device, backToLogical;
        Point devicePoint, logicalPoint;
    };
    const Case cases[] = {
        {1.0, {3, 4, 10, 20}, {3, 4, 10, 20}, {3, 4, 10, 20}, {7, 9}, {7, 9}},
        {2.0, {3, 4, 10, 20}, {6, 8, 20, 40}, {3, 4, 10, 20}, {7, 9}, {3, 4}},
        {1.5, {3, 4, 865, 400}, {4, 6, 1298, 600}, {2, 4, 866, 400}, {2, 3}, {1, 2}},
        {1.25, {1, 4, 865, 400}, {1, 5, 1082, 500}, {0, 4, 866, 400}, {4, 6}, {3, 4}},
        {1.75, {4, 3, 865, 400}, {7, 5, 1514, 700}, {4, 2, 866, 400}, {6, 7}, {3, 4}},
    };
    for (const Case& c : cases) {
        const PixelScale s(c.scale);
        EXPECT_EQ(s.toDevice(c.logical), c.device) << c.scale;
        EXPECT_EQ(s.toLogical(c.device), c.backToLogical) << c.scale;
        EXPECT_EQ(s.toLogical(c.devicePoint), c.logicalPoint) << c.scale;
    }
    // A host's scale whose products miss whole numbers by a rounding error.
    EXPECT_EQ(PixelScale(1.1).toDevice(Rect(0, 0, 50, 30)), Rect(0, 0, 55, 33));
    EXPECT_EQ(PixelScale(0.0).factor(), 1.0);

    const struct {
        const char* resources;
        double dpi;
    } dpis[] = {
        {"Xft.dpi:\t192\n", 192.0},
        {"Xcursor.size:\t24\nXft.antialias:\t1\nXft.dpi:   144.5\nXft.hinting:\t1\n", 144.5},
        {"Xft.dpi:\t120", 120.0},                // no final line break
        {"*.dpi:\t192\nXft.dpix:\t192\n", 0.0},  // other names
        {"Xft.dpi:\tlarge\n", 0.0},
        {"Xft.dpi:\t-96\n", 0.0},
        {"", 0.0},
    };
    for (const auto& d : dpis) {
        EXPECT_EQ(xftDpi(d.resources, std::strlen(d.resources)), d.dpi) << d.resources;
    }
    EXPECT_EQ(xftDpi(nullptr, 5), 0.0);
    // Only the given length is read.
    EXPECT_EQ(xftDpi("Xft.dpi:\t192", 11), 19.0);
}

TEST_F(FrameTest, TwoFramesDrawOnTheirOwnTimersAtOnce) {
    // Two editors open at once, the host idling neither, values changing on
    // another thread: both timers draw, sharing the font cache.
    build(20);
    RefPtr<Frame> first = frame;
    RefPtr<MultiPositionSwitch> firstSwitch = switcher;
    build(20);
    const xcb_window_t secondHost = host.createWindow(865, 400);
    const uint32_t below[] = {10, 500};  // side by side would not fit; one under the other
    xcb_configure_window(host.connection(), secondHost, XCB_CONFIG_WINDOW_X | XCB_CONFIG_WINDOW_Y,
                         below);
    host.sync();
    ASSERT_TRUE(first->open(hostWindow));
    ASSERT_TRUE(frame->open(secondHost));
    std::atomic<bool> stop{false};
    std::thread automation([&] {
        for (int i = 0; !stop; ++i) {
            label->setValue(static_cast<float>(i));
            first->redraw();
            frame->redraw();
            std::this_thread::sleep_for(std::chrono::milliseconds(2));
        }
    });
    firstSwitch->setValue(1.0f);
    switcher->setValue(2.0f / 3.0f);
    const bool bothShown = waitFor([&] {
        return switchShows(*first, *firstSwitch, test::kYellow) == 160 &&
               switchShows(*frame, *switcher, test::kBlue) == 160;
    });
    stop = true;
    automation.join();
    EXPECT_TRUE(bothShown);
}

}  // namespace
}  // namespace varitap::gui
