// Opens a window of its own, plays the host around a toolkit frame and puts
// every widget in it: knobs, on/off buttons, a four-position switch,
// sliders, option menus with sub-menus and check marks, parameter displays,
// labels, a bitmap view, and a push button that runs the modal name dialog.
// A right click on the left strip opens a context menu.
//
//   varitap-guidemo [resource-directory] [--screenshot file.png]
//
// Without a directory the art is drawn into a temporary folder first. With
// --screenshot the frame is drawn once into a PNG file and the demo ends.
#include <cairo.h>
#include <unistd.h>
#include <xcb/xcb.h>

#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <thread>

#include "gui/Bitmap.h"
#include "gui/BitmapView.h"
#include "gui/Buttons.h"
#include "gui/DrawContext.h"
#include "gui/Frame.h"
#include "gui/Knob.h"
#include "gui/OptionMenu.h"
#include "gui/ParamDisplay.h"
#include "gui/Slider.h"
#include "gui/TextField.h"

using namespace varitap;
using namespace varitap::gui;

namespace {

constexpr int kWidth = 865;
constexpr int kHeight = 400;

// Stacked bands of colour with a thin border, as button and switch art.
void writeArt(const std::string& path, int w, int h, int bands, double hue) {
    cairo_surface_t* s = cairo_image_surface_create(CAIRO_FORMAT_ARGB32, w, h * bands);
    cairo_t* cr = cairo_create(s);
    for (int i = 0; i < bands; ++i) {
        const double k = bands > 1 ? static_cast<double>(i) / (bands - 1) : 1.0;
        cairo_set_source_rgb(cr, 0.2 + 0.6 * k * hue, 0.25 + 0.5 * k, 0.3 + 0.4 * (1 - hue) * k);
        cairo_rectangle(cr, 0, i * h, w, h);
        cairo_fill(cr);
        cairo_set_source_rgb(cr, 0.05, 0.05, 0.05);
        cairo_rectangle(cr, 0.5, i * h + 0.5, w - 1, h - 1);
        cairo_set_line_width(cr, 1);
        cairo_stroke(cr);
    }
    cairo_destroy(cr);
    cairo_surface_write_to_png(s, path.c_str());
    cairo_surface_destroy(s);
}

void writeBackground(const std::string& path) {
    cairo_surface_t* s = cairo_image_surface_create(CAIRO_FORMAT_ARGB32, kWidth, kHeight);
    cairo_t* cr = cairo_create(s);
    cairo_pattern_t* p = cairo_pattern_create_linear(0, 0, 0, kHeight);
    cairo_pattern_add_color_stop_rgb(p, 0, 0.18, 0.22, 0.30);
    cairo_pattern_add_color_stop_rgb(p, 1, 0.08, 0.09, 0.12);
    cairo_set_source(cr, p);
    cairo_paint(cr);
    cairo_pattern_destroy(p);
    cairo_set_source_rgb(cr, 0.3, 0.32, 0.4);
    cairo_rectangle(cr, 0, 0, 32, 352);
    cairo_fill(cr);
    cairo_destroy(cr);
    cairo_surface_write_to_png(s, path.c_str());
    cairo_surface_destroy(s);
}

class Demo : public ControlListener, public EditListener {
public:
    void valueChanged(DrawContext*, Control* c) override {
        char text[128];
        std::snprintf(text, sizeof text, "tag %d = %.3f", c->tag(), static_cast<double>(c->value()));
        if (status) status->setText(text);
        if (c->tag() == 900 && c->value() > 0.5f) askName();
        if (c->tag() == 0 && display) display->setValue(c->value());
    }
    void beginEdit(int32_t index) override { std::printf("begin edit %d\n", index); }
    void endEdit(int32_t index) override { std::printf("end edit %d\n", index); }

    void askName() {
        auto dialog = makeRef<Frame>(Rect(0, 0, 400, 140));
        struct Buttons : ControlListener {
            Frame* f;
            void valueChanged(DrawContext*, Control* c) override {
                if (c->value() > 0.5f) f->endModal(c->tag());
            }
        } buttons;
        buttons.f = dialog.get();
        dialog->setBackgroundColor(Color{225, 225, 225, 255});
        auto prompt = makeRef<TextLabel>(Rect(20, 14, 380, 30), "Enter a name for the new Preset :");
        prompt->setFontColor(kBlackColor);
        prompt->setTransparent(true);
        prompt->setHoriAlign(HoriAlign::Left);
        auto field = makeRef<TextField>(Rect(40, 50, 380, 66));
        auto ok = makeRef<PushButton>(Rect(311, 100, 380, 120), &buttons, 1, "OK");
        auto cancel = makeRef<PushButton>(Rect(230, 100, 299, 120), &buttons, 0, "Cancel");
        ok->setDefaultLook(true);
        dialog->addView(prompt.get());
        dialog->addView(field.get());
        dialog->addView(ok.get());
        dialog->addView(cancel.get());
        dialog->setDefaultButton(ok.get());
        dialog->setCancelButton(cancel.get());
        dialog->setFocusView(field.get());
        if (!dialog->openDialog(hostWindow, "Varitap")) return;
        const int result = dialog->runModal();
        dialog->close();
        std::string text = result == 1 ? "Name: \"" + field->text() + "\"" : "Name dialog cancelled";
        if (status) status->setText(text.c_str());
    }

    uint32_t hostWindow = 0;
    RefPtr<TextLabel> status;
    RefPtr<ParamDisplay> display;
};

// Left strip: opens a context menu with sub-menus and check marks.
class MenuStrip : public View {
public:
    MenuStrip(const Rect& r, TextLabel* status) : View(r), status_(status) {}
    MouseResult onMouseDown(Point where, uint32_t) override {
        auto top = makeRef<OptionMenu>(Rect(where.x, where.y, where.x, where.y));
        auto presets = makeRef<OptionMenu>(Rect());
        auto folder = makeRef<OptionMenu>(Rect(), nullptr, 3);
        for (const char* p : {"Slapback", "Ping Pong", "Dub Echo"}) folder->addEntry(p);
        folder->addEntry("-");
        folder->addEntry("Add Preset ...");
        presets->addEntry(folder.get(), "User");
        presets->addEntry("-");
        presets->addEntry("Add Folder ...");
        auto options = makeRef<OptionMenu>(Rect(), nullptr, 0, OptionMenu::kCheckStyle);
        options->addEntry("Resample (experimental)");
        options->addEntry("Show Delay Time in Samples");
        options->checkEntry(0, resample_);
        options->checkEntry(1, samples_);
        auto backgrounds = makeRef<OptionMenu>(Rect(), nullptr, 0, OptionMenu::kCheckStyle);
        for (const char* b : {"default", "dark", "light"}) backgrounds->addEntry(b);
        backgrounds->checkEntryAlone(background_);
        options->addEntry(backgrounds.get(), "Background");
        top->addEntry("-TVaritap");
        top->addEntry(presets.get(), "Presets");
        top->addEntry("-");
        top->addEntry(options.get(), "Options");
        top->addEntry("-");
        top->addEntry("-GDisabled entry");
        top->addEntry("About ...");
        for (OptionMenu* m : {top.get(), presets.get(), folder.get(), options.get(), backgrounds.get()}) {
            m->setFont(kNormalFontVerySmall);
        }
        Frame* f = frame();
        f->addView(top.get());
        int index = -1;
        std::string text = "nothing chosen";
        if (top->popup()) {
            OptionMenu* chosen = top->lastItemMenu(index);
            text = std::string("chose \"") + chosen->entry(index) + "\" (menu tag " +
                   std::to_string(chosen->tag()) + ", index " + std::to_string(index) + ")";
            if (chosen == options.get()) (index == 0 ? resample_ : samples_) ^= true;
            if (chosen == backgrounds.get()) background_ = index;
        }
        f->removeView(top.get());
        status_->setText(text.c_str());
        return MouseResult::kHandled;
    }

private:
    TextLabel* status_;
    bool resample_ = false;
    bool samples_ = true;
    int background_ = 0;
};

}  // namespace

int main(int argc, char** argv) {
    std::string dir;
    std::string screenshot;
    for (int i = 1; i < argc; ++i) {
        if (std::strcmp(argv[i], "--screenshot") == 0 && i + 1 < argc) {
            screenshot = argv[++i];
        } else {
            dir = argv[i];
        }
    }
    if (dir.empty()) {
        char tmpl[] = "/tmp/varitap-guidemo-XXXXXX";
        if (!mkdtemp(tmpl)) return 1;
        dir = tmpl;
        writeArt(dir + "/bmp00101.png", 21, 11, 2, 0.2);
        writeArt(dir + "/bmp00102.png", 7, 10, 1, 0.9);
        writeArt(dir + "/bmp00202.png", 18, 12, 4, 0.7);
        writeArt(dir + "/bmp00003.png", 22, 40, 1, 0.5);
        writeBackground(dir + "/background.png");
    }
    Bitmap::setResourceDirectory(dir);

    int screenNumber = 0;
    xcb_connection_t* c = xcb_connect(nullptr, &screenNumber);
    if (xcb_connection_has_error(c)) {
        std::fprintf(stderr, "varitap-guidemo: no X display\n");
        return 1;
    }
    auto it = xcb_setup_roots_iterator(xcb_get_setup(c));
    for (int i = 0; i < screenNumber; ++i) xcb_screen_next(&it);
    xcb_screen_t* screen = it.data;
    const xcb_window_t host = xcb_generate_id(c);
    const uint32_t values[] = {screen->black_pixel, XCB_EVENT_MASK_STRUCTURE_NOTIFY};
    xcb_create_window(c, XCB_COPY_FROM_PARENT, host, screen->root, 50, 50, kWidth, kHeight, 0,
                      XCB_WINDOW_CLASS_INPUT_OUTPUT, screen->root_visual,
                      XCB_CW_BACK_PIXEL | XCB_CW_EVENT_MASK, values);
    const char* title = "Varitap toolkit demo";
    xcb_change_property(c, XCB_PROP_MODE_REPLACE, host, XCB_ATOM_WM_NAME, XCB_ATOM_STRING, 8,
                        static_cast<uint32_t>(std::strlen(title)), title);
    auto intern = [&](const char* name) {
        xcb_intern_atom_reply_t* r = xcb_intern_atom_reply(
            c, xcb_intern_atom(c, 0, static_cast<uint16_t>(std::strlen(name)), name), nullptr);
        const xcb_atom_t a = r ? r->atom : 0;
        std::free(r);
        return a;
    };
    const xcb_atom_t protocols = intern("WM_PROTOCOLS");
    const xcb_atom_t deleteWindow = intern("WM_DELETE_WINDOW");
    xcb_change_property(c, XCB_PROP_MODE_REPLACE, host, protocols, XCB_ATOM_ATOM, 32, 1,
                        &deleteWindow);
    xcb_map_window(c, host);
    xcb_flush(c);

    Demo demo;
    demo.hostWindow = host;
    auto frame = makeRef<Frame>(Rect(0, 0, kWidth, kHeight), &demo);
    frame->setBackground(makeRef<Bitmap>(dir + "/background.png").get());
    frame->setBackgroundColor(Color{30, 30, 40, 255});

    auto status = makeRef<TextLabel>(Rect(300, 370, 860, 392), "Click, drag and wheel the widgets");
    status->setTransparent(true);
    status->setHoriAlign(HoriAlign::Left);
    status->setStyle(ParamDisplay::kShadowText);
    demo.status = status;

    auto strip = makeRef<MenuStrip>(Rect(0, 0, 32, 352), status.get());
    frame->addView(strip.get());
    frame->addView(makeRef<BitmapView>(Rect(5, 5, 27, 45), makeRef<Bitmap>(3).get()).get());

    auto switchArt = makeRef<Bitmap>(202);
    auto buttonArt = makeRef<Bitmap>(101);
    auto handle = makeRef<Bitmap>(102);
    for (int i = 0; i < 4; ++i) {
        const int x = 50 + i * 90;
        auto panel = makeRef<ViewContainer>(Rect(x, 10, x + 85, 300));
        panel->setBackgroundColor(Color{50, 55, 70, 255});
        auto title = makeRef<TextLabel>(Rect(4, 2, 73, 14), std::to_string(i + 1).c_str());
        title->setFont(kNormalFontVerySmall);
        title->setTransparent(true);
        panel->addView(title.get());
        auto routing = makeRef<OptionMenu>(Rect(45, 22, 75, 33), &demo, 10 * i + 1,
                                           ParamDisplay::kShadowText);
        routing->setFont(kNormalFontVerySmall);
        routing->setTransparent(true);
        routing->addEntry("***");
        // Inputs 3..6 are missing in this configuration: listed, disabled.
        for (int n = 1; n <= 6; ++n) {
            const std::string entry = (n > 2 ? "-GIn " : "In ") + std::to_string(n);
            routing->addEntry(entry.c_str());
        }
        panel->addView(routing.get());
        auto knob = makeRef<Knob>(Rect(13, 62, 38, 87), &demo, 10 * i + 2);
        knob->setValue(0.25f * static_cast<float>(i));
        panel->addView(knob.get());
        auto shown = makeRef<ParamDisplay>(Rect(40, 74, 80, 86), nullptr, -1, ParamDisplay::kShadowText);
        shown->setFont(kNormalFontVerySmall);
        shown->setTransparent(true);
        shown->setHoriAlign(HoriAlign::Right);
        shown->setStringConvert([](float v, char* text, size_t size) {
            std::snprintf(text, size, "%d%%", static_cast<int>(v * 100.0f));
        });
        shown->setValue(knob->value());
        panel->addView(shown.get());
        if (i == 0) demo.display = shown;
        auto sync = makeRef<OnOffButton>(Rect::fromSize(43, 43, buttonArt->width(),
                                                        buttonArt->height() / 2),
                                         &demo, 10 * i + 3, buttonArt.get());
        panel->addView(sync.get());
        auto type = makeRef<MultiPositionSwitch>(
            Rect::fromSize(11, 100, switchArt->width(), switchArt->height() / 4), &demo,
            10 * i + 4, 4, switchArt->height() / 4, switchArt.get());
        panel->addView(type.get());
        auto cutoff = makeRef<HorizontalSlider>(Rect(11, 211, 74, 221), &demo, 10 * i + 5,
                                                handle.get(), 63);
        cutoff->setValue(0.5f);
        panel->addView(cutoff.get());
        auto filter = makeRef<OptionMenu>(Rect(13, 182, 68, 193), &demo, 10 * i + 6,
                                          ParamDisplay::kShadowText);
        filter->setFont(kNormalFontVerySmall);
        filter->setTransparent(true);
        for (const char* e : {"***", "Notch", "LowPass", "HighPass", "BandPass"}) filter->addEntry(e);
        panel->addView(filter.get());
        frame->addView(panel.get());
    }
    auto wet = makeRef<Knob>(Rect(4, 357, 29, 382), &demo, 20);
    wet->setValue(0.5f);
    frame->addView(wet.get());
    auto name = makeRef<PushButton>(Rect(420, 330, 520, 352), &demo, 900, "Name ...");
    frame->addView(name.get());
    frame->addView(status.get());

    if (!frame->open(host)) {
        std::fprintf(stderr, "varitap-guidemo: the frame did not open\n");
        xcb_disconnect(c);
        return 1;
    }
    bool running = true;
    if (!screenshot.empty()) {
        frame->idle();
        cairo_surface_t* s = cairo_image_surface_create(CAIRO_FORMAT_RGB24, kWidth, kHeight);
        cairo_t* cr = cairo_create(s);
        {
            DrawContext dc(cr);
            frame->drawArea(dc, frame->viewSize());
        }
        cairo_destroy(cr);
        cairo_surface_write_to_png(s, screenshot.c_str());
        cairo_surface_destroy(s);
        running = false;
    }
    while (running) {
        while (xcb_generic_event_t* e = xcb_poll_for_event(c)) {
            const uint8_t type = e->response_type & 0x7F;
            if (type == XCB_CLIENT_MESSAGE &&
                reinterpret_cast<xcb_client_message_event_t*>(e)->data.data32[0] == deleteWindow) {
                running = false;
            }
            if (type == XCB_DESTROY_NOTIFY) running = false;
            std::free(e);
        }
        if (xcb_connection_has_error(c)) running = false;
        frame->idle();
        std::this_thread::sleep_for(std::chrono::milliseconds(30));
    }
    frame->close();
    xcb_disconnect(c);
    return 0;
}
