#include "XServer.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstring>
#include <filesystem>
#include <iterator>
#include <memory>
#include <thread>

#include "gui/DrawContext.h"

// The screen of the private server; programs that show big windows (the
// editor at 200 %) ask for a larger one.
#ifndef VARITAP_XVFB_SCREEN
#define VARITAP_XVFB_SCREEN "1280x1024x24"
#endif

namespace varitap::gui::test {

namespace {

// Starts Xvfb with -displayfd so that it picks a free display number itself,
// and points DISPLAY at it; the server ends with the test program.
class XvfbEnvironment : public ::testing::Environment {
public:
    void SetUp() override {
        int fds[2];
        if (pipe(fds) != 0) return;
        const std::string fd = std::to_string(fds[1]);
        // The server must end with this program even when a test crashes, and
        // must not hold the program's output open (ctest waits for it).
        pid_ = fork();
        if (pid_ == 0) {
            prctl(PR_SET_PDEATHSIG, SIGKILL);
            const int null = open("/dev/null", O_RDWR);
            for (int stdio : {0, 1, 2}) dup2(null, stdio);
            ::close(fds[0]);
            execlp("Xvfb", "Xvfb", "-displayfd", fd.c_str(), "-screen", "0", VARITAP_XVFB_SCREEN,
                   "-nolisten", "tcp", "-noreset", static_cast<char*>(nullptr));
            _exit(127);
        }
        // Without a server (no fork, no Xvfb) the pipe ends before a number.
        ::close(fds[1]);
        std::string number;
        pollfd p{fds[0], POLLIN, 0};
        char ch;
        while (poll(&p, 1, 10000) > 0 && read(fds[0], &ch, 1) == 1 && ch != '\n') number += ch;
        ::close(fds[0]);
        if (number.empty()) return;
        setenv("DISPLAY", (":" + number).c_str(), 1);
        running = true;
    }
    void TearDown() override {
        if (pid_ <= 0) return;
        kill(pid_, SIGTERM);
        waitpid(pid_, nullptr, 0);
    }
    static inline bool running = false;

private:
    pid_t pid_ = -1;
};

[[maybe_unused]] ::testing::Environment* const kXvfb =
    ::testing::AddGlobalTestEnvironment(new XvfbEnvironment);

}  // namespace

bool haveDisplay() { return XvfbEnvironment::running; }

int openDescriptors() {
    const std::filesystem::directory_iterator fds("/proc/self/fd");
    return static_cast<int>(std::distance(begin(fds), end(fds)));
}

Image Image::adopt(cairo_surface_t* s) {
    Image img;
    if (cairo_surface_status(s) == CAIRO_STATUS_SUCCESS) {
        cairo_surface_flush(s);
        const bool opaque = cairo_image_surface_get_format(s) == CAIRO_FORMAT_RGB24;
        img = Image(cairo_image_surface_get_width(s), cairo_image_surface_get_height(s));
        for (int y = 0; y < img.height; ++y) {
            const auto* row = reinterpret_cast<const uint32_t*>(cairo_image_surface_get_data(s) +
                                                                y * cairo_image_surface_get_stride(s));
            for (int x = 0; x < img.width; ++x) img.words[static_cast<size_t>(y * img.width + x)] = opaque ? row[x] | 0xff000000u : row[x];
        }
    }
    cairo_surface_destroy(s);
    return img;
}

bool Image::writePng(const std::string& path) const {
    if (words.empty()) return false;
    cairo_surface_t* s = cairo_image_surface_create_for_data(
        reinterpret_cast<unsigned char*>(const_cast<uint32_t*>(words.data())), CAIRO_FORMAT_ARGB32, width, height,
        width * 4);
    const bool ok = cairo_surface_write_to_png(s, path.c_str()) == CAIRO_STATUS_SUCCESS;
    cairo_surface_destroy(s);
    return ok;
}

namespace {
// Calls f(x, y) for each pixel of r that lies in an image of the given size.
template <typename F>
void forEachPixel(const Rect& r, int width, int height, F f) {
    const Rect in = r.intersect(Rect(0, 0, width, height));
    for (int y = in.top; y < in.bottom; ++y) {
        for (int x = in.left; x < in.right; ++x) f(x, y);
    }
}
}  // namespace

int Image::count(const Rect& r, uint8_t R, uint8_t G, uint8_t B, int tol) const {
    int n = 0;
    forEachPixel(r, width, height, [&](int x, int y) { n += at(x, y).near(R, G, B, tol) ? 1 : 0; });
    return n;
}

Rect Image::inkBox(const Rect& r, Pixel bg, int tol) const {
    Rect box;
    forEachPixel(r, width, height, [&](int x, int y) {
        if (!at(x, y).near(bg.r, bg.g, bg.b, tol)) box = box.unite(Rect(x, y, x + 1, y + 1));
    });
    return box;
}

namespace {
// An xcb reply, freed at the end of the scope.
template <typename T>
std::unique_ptr<T, decltype(&std::free)> owned(T* reply) {
    return {reply, &std::free};
}
}  // namespace

HostDisplay::HostDisplay() {
    if (!haveDisplay()) return;
    c_ = xcb_connect(nullptr, nullptr);
    if (!xcb_connection_has_error(c_)) {
        screen_ = xcb_setup_roots_iterator(xcb_get_setup(c_)).data;
        return;
    }
    xcb_disconnect(c_);
    c_ = nullptr;
}

xcb_window_t HostDisplay::createWindow(int w, int h) {
    const xcb_window_t win = xcb_generate_id(c_);
    const uint32_t values[] = {screen_->black_pixel, XCB_EVENT_MASK_STRUCTURE_NOTIFY};
    xcb_create_window(c_, XCB_COPY_FROM_PARENT, win, screen_->root, 10, 10,
                      static_cast<uint16_t>(w), static_cast<uint16_t>(h), 0,
                      XCB_WINDOW_CLASS_INPUT_OUTPUT, screen_->root_visual,
                      XCB_CW_BACK_PIXEL | XCB_CW_EVENT_MASK, values);
    xcb_map_window(c_, win);
    sync();
    return win;
}

void HostDisplay::resizeWindow(xcb_window_t w, int width, int height) {
    const uint32_t size[] = {static_cast<uint32_t>(width), static_cast<uint32_t>(height)};
    xcb_configure_window(c_, w, XCB_CONFIG_WINDOW_WIDTH | XCB_CONFIG_WINDOW_HEIGHT, size);
    sync();
}

Image HostDisplay::grab(xcb_window_t w, const Rect& r) {
    const auto reply = owned(xcb_get_image_reply(
        c_,
        xcb_get_image(c_, XCB_IMAGE_FORMAT_Z_PIXMAP, w, static_cast<int16_t>(r.left), static_cast<int16_t>(r.top),
                      static_cast<uint16_t>(r.width()), static_cast<uint16_t>(r.height()), ~0u),
        nullptr));
    if (!reply || xcb_get_image_data_length(reply.get()) < r.width() * r.height() * 4) return Image();
    return Image::adopt(cairo_image_surface_create_for_data(xcb_get_image_data(reply.get()), CAIRO_FORMAT_RGB24,
                                                            r.width(), r.height(), r.width() * 4));
}

// Button and motion events share one layout; only the type and detail differ
// (button 0 sends a motion).
static_assert(sizeof(xcb_button_press_event_t) == sizeof(xcb_motion_notify_event_t));
void HostDisplay::button(xcb_window_t w, int x, int y, int b, bool press, uint16_t state) {
    const Point root = rootPosition(w);
    xcb_button_press_event_t e{};
    e.response_type = b == 0 ? XCB_MOTION_NOTIFY : press ? XCB_BUTTON_PRESS : XCB_BUTTON_RELEASE;
    e.detail = static_cast<xcb_button_t>(b);
    e.root = screen_->root;
    e.event = w;
    e.root_x = static_cast<int16_t>(root.x + x);
    e.root_y = static_cast<int16_t>(root.y + y);
    e.event_x = static_cast<int16_t>(x);
    e.event_y = static_cast<int16_t>(y);
    e.state = state;
    e.same_screen = 1;
    xcb_send_event(c_, 0, w, XCB_EVENT_MASK_NO_EVENT, reinterpret_cast<const char*>(&e));
    sync();
}

// The key is found in the core keyboard map: a keysym in a key's first
// column needs no modifier, one in its second needs Shift.
void HostDisplay::key(xcb_window_t w, uint32_t keysym, uint16_t state) {
    const xcb_setup_t* setup = xcb_get_setup(c_);
    const int keys = setup->max_keycode - setup->min_keycode + 1;
    const auto map = owned(xcb_get_keyboard_mapping_reply(
        c_, xcb_get_keyboard_mapping(c_, setup->min_keycode, static_cast<uint8_t>(keys)), nullptr));
    if (!map) return;
    const xcb_keysym_t* syms = xcb_get_keyboard_mapping_keysyms(map.get());
    const int perKey = map->keysyms_per_keycode;
    int i = 0;
    while (i < keys * perKey && (syms[i] != keysym || i % perKey > 1)) ++i;
    if (i == keys * perKey) return;
    xcb_key_press_event_t e{};
    e.response_type = XCB_KEY_PRESS;
    e.detail = static_cast<xcb_keycode_t>(setup->min_keycode + i / perKey);
    e.root = screen_->root;
    e.event = w;
    e.state = static_cast<uint16_t>(i % perKey == 1 ? state | XCB_MOD_MASK_SHIFT : state);
    e.same_screen = 1;
    xcb_send_event(c_, 0, w, XCB_EVENT_MASK_NO_EVENT, reinterpret_cast<const char*>(&e));
    sync();
}

std::vector<xcb_window_t> HostDisplay::children(xcb_window_t w, xcb_window_t* parent) {
    const auto tree = owned(xcb_query_tree_reply(c_, xcb_query_tree(c_, w), nullptr));
    if (!tree) return {};
    if (parent) *parent = tree->parent;
    const xcb_window_t* first = xcb_query_tree_children(tree.get());
    return std::vector<xcb_window_t>(first, first + xcb_query_tree_children_length(tree.get()));
}

std::vector<xcb_window_t> HostDisplay::topWindows(bool overrideRedirect) {
    std::vector<xcb_window_t> out;
    for (xcb_window_t child : children(screen_->root)) {
        const auto a = owned(xcb_get_window_attributes_reply(c_, xcb_get_window_attributes(c_, child), nullptr));
        if (a && (a->override_redirect != 0) == overrideRedirect && a->map_state == XCB_MAP_STATE_VIEWABLE) {
            out.push_back(child);
        }
    }
    return out;
}

Point HostDisplay::rootPosition(xcb_window_t w) {
    const auto t = owned(
        xcb_translate_coordinates_reply(c_, xcb_translate_coordinates(c_, w, screen_->root, 0, 0), nullptr));
    return t ? Point{t->dst_x, t->dst_y} : Point{};
}

Rect HostDisplay::geometry(xcb_window_t w) {
    const auto g = owned(xcb_get_geometry_reply(c_, xcb_get_geometry(c_, w), nullptr));
    return g ? Rect::fromSize(g->x, g->y, g->width, g->height) : Rect();
}

xcb_atom_t HostDisplay::atom(const char* name) {
    const auto r = owned(xcb_intern_atom_reply(
        c_, xcb_intern_atom(c_, 0, static_cast<uint16_t>(std::strlen(name)), name), nullptr));
    return r ? r->atom : static_cast<xcb_atom_t>(XCB_ATOM_NONE);
}

std::vector<uint32_t> HostDisplay::property32(xcb_window_t w, const char* name) {
    const auto r = owned(xcb_get_property_reply(
        c_, xcb_get_property(c_, 0, w, atom(name), XCB_GET_PROPERTY_TYPE_ANY, 0, 64), nullptr));
    if (!r || r->format != 32) return {};
    const auto* v = static_cast<const uint32_t*>(xcb_get_property_value(r.get()));
    return std::vector<uint32_t>(v, v + xcb_get_property_value_length(r.get()) / 4);
}

bool waitFor(const std::function<bool()>& step, int ms) {
    const auto end = std::chrono::steady_clock::now() + std::chrono::milliseconds(ms);
    while (std::chrono::steady_clock::now() < end) {
        if (step()) return true;
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    return step();
}

xcb_window_t waitForMenus(HostDisplay& display, size_t n, int ms) {
    std::vector<xcb_window_t> menus;
    waitFor([&] { return (menus = display.popupWindows()).size() == n; }, ms);
    return menus.size() == n ? menus.back() : 0;
}

void playMenu(HostDisplay& display, const std::function<void()>& open, const std::function<void(xcb_window_t)>& user,
              int ms) {
    waitFor([&] { return display.popupWindows().empty(); });  // the last menu's windows gone
    std::thread t([&] {
        if (const xcb_window_t w = waitForMenus(display, 1, ms)) user(w);
    });
    open();
    t.join();
}

double differingFraction(const Image& a, const Image& b, int tolerance) {
    if (a.width != b.width || a.height != b.height || a.words.empty()) return 1.0;
    int n = 0;
    forEachPixel(Rect(0, 0, a.width, a.height), a.width, a.height, [&](int x, int y) {
        const Pixel p = b.at(x, y);
        n += a.at(x, y).near(p.r, p.g, p.b, tolerance) ? 0 : 1;
    });
    return static_cast<double>(n) / static_cast<double>(a.words.size());
}

bool writeBandsPng(const std::string& path, int w, int h, const std::vector<Color>& bands) {
    Image img(w, h);
    for (int y = 0; y < h; ++y) {
        const Color c = bands[static_cast<size_t>(y) * bands.size() / static_cast<size_t>(h)];
        const uint32_t word = 0xff000000u | uint32_t{c.red} << 16 | uint32_t{c.green} << 8 | c.blue;
        std::fill_n(img.words.begin() + y * w, w, word);
    }
    return img.writePng(path);
}

RefPtr<Bitmap> GuiTest::bands(int w, int h, const std::vector<Color>& colours) {
    const std::string path = dir.path() + "/bands" + std::to_string(++files_) + ".png";
    EXPECT_TRUE(writeBandsPng(path, w, h, colours));
    return makeRef<Bitmap>(path);
}

void ScreenTest::SetUp() {
    if (!haveDisplay() || !host.ok()) GTEST_SKIP() << "no X server";
    hostWindow = host.createWindow(865, 400);
}

Image renderOffscreen(Frame& frame) {
    const Rect r = frame.pixelScale().toDevice(frame.viewSize());
    cairo_surface_t* s = cairo_image_surface_create(CAIRO_FORMAT_RGB24, r.width(), r.height());
    cairo_t* cr = cairo_create(s);
    {
        DrawContext dc(cr, frame.scale());
        frame.drawArea(dc, frame.viewSize());
    }
    cairo_destroy(cr);
    return Image::adopt(s);
}

}  // namespace varitap::gui::test

// fontconfig leaks a few hundred bytes while parsing its configuration files
// the first time it is used (inside FcInitLoadConfigAndFonts, once per
// process); that is not the toolkit's memory, so the leak checker skips it.
extern "C" __attribute__((visibility("default"))) const char* __lsan_default_suppressions() { return "leak:libfontconfig.so\n"; }
