// What an open 865 x 400 frame costs: processor time while the host idles it
// every 20 ms and nothing changes, while the frame's own timer keeps watch
// alone (a host that stopped idling), and the wall time of a full redraw
// sent to the X server and waited for. The frame holds ten strips as dense
// as the editor's (knobs, shadowed texts, menus, sliders over the editor's
// own art). Needs an X server: see bench/README.md.
#include <time.h>
#include <xcb/xcb.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <string>
#include <thread>
#include <vector>

#include "gui/Bitmap.h"
#include "gui/Frame.h"
#include "gui/Knob.h"
#include "gui/OptionMenu.h"
#include "gui/ParamDisplay.h"
#include "gui/Slider.h"
#include "gui/ViewContainer.h"
#include "resources/art/Art.h"
#include "resources/art/ArtLayout.h"

namespace varitap::gui {
namespace {

double cpuSeconds() {
    timespec ts{};
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &ts);
    return static_cast<double>(ts.tv_sec) + static_cast<double>(ts.tv_nsec) * 1e-9;
}

// Processor time of this process over wall time while `wait` runs.
double cpuShare(const std::function<void()>& wait) {
    const double cpu = cpuSeconds();
    const auto t = std::chrono::steady_clock::now();
    wait();
    const double wall = std::chrono::duration<double>(std::chrono::steady_clock::now() - t).count();
    return (cpuSeconds() - cpu) / wall;
}

RefPtr<Bitmap> picture(cairo_surface_t* drawn, int width, int height) {
    auto bitmap = makeRef<Bitmap>();
    bitmap->setPicture(drawn, width, height, 1.0);
    return bitmap;
}

RefPtr<Frame> buildFrame(ControlListener* listener) {
    namespace a = art;
    auto frame = makeRef<Frame>(Rect(0, 0, a::kEditorWidth, a::kEditorHeight));
    frame->setBackground(picture(a::backgrounds().front().draw(), a::kEditorWidth, a::kEditorHeight).get());
    auto stripArt = picture(a::drawStrip(), a::kStripWidth, a::kStripHeight);
    auto handle = picture(a::drawSliderHandle(), a::kSliderHandleSize.width, a::kSliderHandleSize.height);
    auto rect = [](const a::Rect& r) { return Rect(r.left, r.top, r.right, r.bottom); };
    for (int i = 0; i < 10; ++i) {
        auto strip = makeRef<ViewContainer>(
            Rect::fromSize(a::kMenuStrip.right + i * a::kStripPitch, 1, a::kStripWidth, a::kStripHeight));
        strip->setTransparent(true);
        strip->setBackground(stripArt.get());
        int tag = 0;
        for (const a::Rect& k : {a::kDelayKnob, a::kFeedbackKnob, a::kVolumeKnob}) {
            strip->addView(makeRef<Knob>(rect(k), listener, tag++).get());
        }
        for (const a::Rect& d : {a::kDelayDisplay, a::kFeedbackDisplay, a::kVolumeDisplay}) {
            auto text = makeRef<ParamDisplay>(rect(d), nullptr, -1, ParamDisplay::kShadowText);
            text->setTransparent(true);
            text->setFont(kNormalFontVerySmall);
            text->setValue(0.25f * static_cast<float>(tag++));
            strip->addView(text.get());
        }
        for (const a::Rect& m : {a::kInputMenu, a::kOutputMenu, a::kFilterMenu}) {
            auto menu = makeRef<OptionMenu>(rect(m), listener, tag++, ParamDisplay::kShadowText);
            menu->setTransparent(true);
            menu->setFont(kNormalFontVerySmall);
            menu->addEntry("LowPass");
            strip->addView(menu.get());
        }
        for (const a::Rect& s : {a::kCutoffSlider, a::kResonanceSlider}) {
            strip->addView(makeRef<HorizontalSlider>(rect(s), listener, tag++, handle.get(), 63).get());
        }
        auto title = makeRef<TextLabel>(rect(a::kTitle), std::to_string(i + 1).c_str());
        title->setTransparent(true);
        strip->addView(title.get());
        frame->addView(strip.get());
    }
    return frame;
}

class Listener : public ControlListener {
public:
    void valueChanged(DrawContext*, Control*) override {}
};

int run() {
    int screen = 0;
    xcb_connection_t* c = xcb_connect(nullptr, &screen);
    if (xcb_connection_has_error(c)) {
        std::fprintf(stderr, "no X server (DISPLAY): see bench/README.md\n");
        return 1;
    }
    const xcb_screen_t* s = xcb_setup_roots_iterator(xcb_get_setup(c)).data;
    const xcb_window_t host = xcb_generate_id(c);
    xcb_create_window(c, XCB_COPY_FROM_PARENT, host, s->root, 0, 0, 865, 400, 0,
                      XCB_WINDOW_CLASS_INPUT_OUTPUT, s->root_visual, 0, nullptr);
    xcb_map_window(c, host);
    auto sync = [c] { std::free(xcb_get_input_focus_reply(c, xcb_get_input_focus(c), nullptr)); };
    sync();

    Listener listener;
    RefPtr<Frame> frame = buildFrame(&listener);
    if (!frame->open(host)) {
        std::fprintf(stderr, "the frame did not open\n");
        return 1;
    }
    frame->idle();
    // The host idles every 20 ms for two seconds; then it stops and the
    // frame's own timer keeps watch alone.
    const double idleShare = cpuShare([&] {
        for (int i = 0; i < 100; ++i) {
            frame->idle();
            std::this_thread::sleep_for(std::chrono::milliseconds(20));
        }
    });
    const double timerShare = cpuShare([] { std::this_thread::sleep_for(std::chrono::milliseconds(1500)); });

    // Full redraws, each sent to the server and waited for; a knob moves
    // each time.
    Knob* knob = static_cast<Knob*>(static_cast<ViewContainer*>(frame->viewAt(0))->viewAt(0));
    std::vector<double> ms;
    for (int i = 0; i < 60; ++i) {
        const auto t = std::chrono::steady_clock::now();
        knob->setValue(static_cast<float>(i % 10) / 10.0f);
        frame->redraw();
        frame->idle();
        sync();
        ms.push_back(std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - t).count());
    }
    std::sort(ms.begin(), ms.end());
    std::printf("idle frame, host idling every 20 ms: %.3f %% of a core\n", idleShare * 100.0);
    std::printf("idle frame, its own timer alone:     %.3f %% of a core\n", timerShare * 100.0);
    std::printf("full 865 x 400 redraw: fastest %.2f ms, median %.2f ms (60 rounds)\n", ms.front(),
                ms[ms.size() / 2]);
    frame->close();
    frame.reset();
    xcb_disconnect(c);
    return 0;
}

}  // namespace
}  // namespace varitap::gui

int main() { return varitap::gui::run(); }
