// The editor art in the built bundle: every bitmap the editor loads is there
// with sizes under which the whole layout fits the 865 x 400 editor, stacked
// states are whole, the states of a button are told apart at a glance, and
// the places where the toolkit draws white text or white knob pointers stay
// dark on every background.
#include <cairo.h>
#include <fontconfig/fontconfig.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <map>
#include <string>
#include <vector>

#include "resources/art/Art.h"

namespace {

namespace fs = std::filesystem;

constexpr int kEditorWidth = 865;
constexpr int kEditorHeight = 400;

struct Rect {
    int left, top, right, bottom;
    int width() const { return right - left; }
    int height() const { return bottom - top; }
    bool inside(const Rect& outer) const {
        return left >= outer.left && top >= outer.top && right <= outer.right &&
               bottom <= outer.bottom;
    }
    bool overlaps(const Rect& o) const {
        return left < o.right && o.left < right && top < o.bottom && o.top < bottom;
    }
    Rect moved(int dx, int dy) const { return {left + dx, top + dy, right + dx, bottom + dy}; }
};

std::string resources() { return std::string(VARITAP_BUNDLE_DIR) + "/Contents/Resources"; }

// A decoded PNG, or a null surface when it cannot be read.
class Picture {
public:
    explicit Picture(const std::string& path)
        : surface_(cairo_image_surface_create_from_png(path.c_str())) {}
    ~Picture() { cairo_surface_destroy(surface_); }
    Picture(const Picture&) = delete;
    Picture& operator=(const Picture&) = delete;

    bool ok() const { return cairo_surface_status(surface_) == CAIRO_STATUS_SUCCESS; }
    int width() const { return cairo_image_surface_get_width(surface_); }
    int height() const { return cairo_image_surface_get_height(surface_); }
    cairo_surface_t* surface() const { return surface_; }

private:
    cairo_surface_t* surface_;
};

struct Pixel {
    double r, g, b, a;  // straight (not premultiplied), 0..1
};

Pixel pixelAt(cairo_surface_t* s, int x, int y) {
    cairo_surface_flush(s);
    const unsigned char* row =
        cairo_image_surface_get_data(s) + y * cairo_image_surface_get_stride(s);
    const uint32_t px = reinterpret_cast<const uint32_t*>(row)[x];
    const bool hasAlpha = cairo_image_surface_get_format(s) == CAIRO_FORMAT_ARGB32;
    const double a = hasAlpha ? (px >> 24) / 255.0 : 1.0;
    if (a == 0) return {0, 0, 0, 0};
    return {((px >> 16) & 0xff) / 255.0 / a, ((px >> 8) & 0xff) / 255.0 / a,
            (px & 0xff) / 255.0 / a, a};
}

double linear(double c) { return c <= 0.04045 ? c / 12.92 : std::pow((c + 0.055) / 1.055, 2.4); }

// Relative luminance of an opaque pixel, 0 (black) to 1 (white).
double luminance(const Pixel& p) {
    return 0.2126 * linear(p.r) + 0.7152 * linear(p.g) + 0.0722 * linear(p.b);
}

// Contrast of white text over a backdrop of that luminance (1 to 21).
double whiteContrast(double l) { return 1.05 / (l + 0.05); }

// Over the mostly opaque pixels of an area: mean and brightest luminance,
// and mean chroma (max - min channel, 0 for greys).
struct Stats {
    double mean = 0, max = 0, chroma = 0;
};

Stats stats(cairo_surface_t* s, const Rect& r) {
    Stats result;
    int n = 0;
    for (int y = r.top; y < r.bottom; ++y) {
        for (int x = r.left; x < r.right; ++x) {
            const Pixel p = pixelAt(s, x, y);
            if (p.a < 0.5) continue;
            const double l = luminance(p);
            result.mean += l;
            result.max = std::max(result.max, l);
            result.chroma += std::max({p.r, p.g, p.b}) - std::min({p.r, p.g, p.b});
            ++n;
        }
    }
    if (n) {
        result.mean /= n;
        result.chroma /= n;
    }
    return result;
}

// Mean absolute difference per channel (premultiplied) between two areas of
// a picture, 0 (same) to 1.
double difference(cairo_surface_t* s, const Rect& a, const Rect& b) {
    double sum = 0;
    for (int y = 0; y < a.height(); ++y) {
        for (int x = 0; x < a.width(); ++x) {
            const Pixel p = pixelAt(s, a.left + x, a.top + y);
            const Pixel q = pixelAt(s, b.left + x, b.top + y);
            sum += std::fabs(p.r * p.a - q.r * q.a) + std::fabs(p.g * p.a - q.g * q.a) +
                   std::fabs(p.b * p.a - q.b * q.a);
        }
    }
    return a.width() > 0 && a.height() > 0 ? sum / (3.0 * a.width() * a.height()) : 0;
}

class EditorArtTest : public ::testing::Test {
protected:
    void SetUp() override {
        for (int number : {2, 3, 100, 101, 102, 200, 201, 202, 300, 301}) {
            char name[32];
            std::snprintf(name, sizeof name, "/bmp%05d.png", number);
            bitmaps_[number] = std::make_unique<Picture>(resources() + name);
            ASSERT_TRUE(bitmaps_[number]->ok()) << "bitmap " << number << " missing or unreadable";
        }
        w_ = bitmap(100).width();
        h_ = bitmap(100).height();
        p_ = bitmap(200).height();
    }

    const Picture& bitmap(int number) { return *bitmaps_.at(number); }

    // Tap strip widgets, relative to the strip; the bitmap-sized ones follow
    // the art's sizes as the editor places them.
    std::map<std::string, Rect> stripWidgets() {
        const Picture& sync = bitmap(101);
        return {
            {"title", {4, 2, w_ - 12, 14}},
            {"input menu", {45, 22, 75, 33}},
            {"output menu", {45, 260, 75, 271}},
            {"delay knob", {13, 62, 38, 87}},
            {"feedback knob", {49, 98, 74, 123}},
            {"volume knob", {13, 134, 38, 159}},
            {"sync", {43, 43, 43 + sync.width(), 43 + sync.height() / 2}},
            {"delay display", {48, 74, 72, 86}},
            {"feedback display", {12, 110, 36, 122}},
            {"volume display", {48, 146, 72, 158}},
            {"filter menu", {13, 182, 68, 193}},
            {"cutoff slider", {11, 211, 74, 221}},
            {"resonance slider", {11, 235, 74, 245}},
        };
    }

    // Modulator panel widgets, relative to the panel.
    std::map<std::string, Rect> panelWidgets() {
        const Picture& power = bitmap(201);
        const Picture& type = bitmap(202);
        const Picture& toggle = bitmap(301);
        const Picture& sync = bitmap(101);
        return {
            {"power", {13, 13, 13 + power.width(), 13 + power.height() / 2}},
            {"type", {11, 29, 11 + type.width(), 29 + type.height() / 4}},
            {"table toggle", {33, 32, 33 + toggle.width(), 32 + toggle.height() / 2}},
            {"index menu", {28, 12, 70, 23}},
            {"speed knob", {13, 46, 38, 71}},
            {"speed display", {48, 58, 72, 70}},
            {"sync", {41, 29, 41 + sync.width(), 29 + sync.height() / 2}},
            {"min slider", {11, 84, 74, 94}},
            {"max slider", {11, 104, 74, 114}},
        };
    }

    Rect tableView() { return {8, 44, 8 + bitmap(300).width(), 44 + bitmap(300).height()}; }
    int stripLeft(int i) const { return 32 + i * (w_ - 10); }
    int panelTop() const { return 1 + h_ - 4; }

    // The editor as the frame draws it: background, menu handle, then each
    // strip and its panel.
    cairo_surface_t* compose(const std::string& backgroundPath) {
        Picture background(backgroundPath);
        EXPECT_TRUE(background.ok()) << backgroundPath;
        cairo_surface_t* s =
            cairo_image_surface_create(CAIRO_FORMAT_ARGB32, kEditorWidth, kEditorHeight);
        cairo_t* cr = cairo_create(s);
        cairo_set_source_rgb(cr, 0, 0, 0);
        cairo_paint(cr);
        auto place = [&](cairo_surface_t* image, int x, int y) {
            cairo_set_source_surface(cr, image, x, y);
            cairo_paint(cr);
        };
        place(background.surface(), 0, 0);
        place(bitmap(3).surface(), 0, 5);
        for (int i = 0; i < 10; ++i) {
            place(bitmap(100).surface(), stripLeft(i), 1);
            place(bitmap(200).surface(), stripLeft(i), panelTop());
        }
        cairo_destroy(cr);
        return s;
    }

    std::map<int, std::unique_ptr<Picture>> bitmaps_;
    int w_ = 0, h_ = 0, p_ = 0;
};

TEST_F(EditorArtTest, LayoutFitsTheEditorAndWidgetsDoNotCollide) {
    // Ten strips overlapping by 10 pixels after the 32-pixel menu strip;
    // panels under them, covering their last 4 rows.
    ASSERT_GT(w_, 10);
    EXPECT_LE(stripLeft(9) + w_, kEditorWidth);
    EXPECT_EQ(bitmap(200).width(), w_);
    EXPECT_LE(panelTop() + p_, kEditorHeight);
    EXPECT_LE(bitmap(3).width(), 32);  // the menu handle
    EXPECT_LE(5 + bitmap(3).height(), kEditorHeight);
    EXPECT_EQ(bitmap(2).width(), kEditorWidth);  // the about picture
    EXPECT_EQ(bitmap(2).height(), kEditorHeight);

    // Widgets lie on their strip (above the panel) or panel and apart; only
    // the tempo note menu over the delay display and the table view over the
    // speed knob and sliders overlap on purpose, and are not listed.
    auto check = [](const std::map<std::string, Rect>& widgets, const Rect& area) {
        for (auto a = widgets.begin(); a != widgets.end(); ++a) {
            EXPECT_TRUE(a->second.inside(area)) << a->first;
            for (auto b = std::next(a); b != widgets.end(); ++b) {
                EXPECT_FALSE(a->second.overlaps(b->second)) << a->first << " / " << b->first;
            }
        }
    };
    check(stripWidgets(), {0, 0, w_, h_ - 4});
    check(panelWidgets(), {0, 0, w_, p_});
    EXPECT_TRUE(tableView().inside({0, 0, w_, p_}));

    // Stacked states divide evenly.
    for (int number : {101, 201, 301}) EXPECT_EQ(bitmap(number).height() % 2, 0) << number;
    EXPECT_EQ(bitmap(202).height() % 4, 0);

    // The slider handle fits the sliders' height and leaves them room to move.
    const Picture& handle = bitmap(102);
    EXPECT_LE(handle.height(), 10);
    EXPECT_GT(handle.width(), 0);
    EXPECT_GE(63 - handle.width(), 48) << "handle travel too short";
}

TEST_F(EditorArtTest, ButtonStatesReadAtAGlance) {
    // On/off bitmaps: off on top, on below. "On" lights up in the accent
    // colour: brighter than "off" and strongly coloured where "off" is grey.
    for (int number : {101, 201, 301}) {
        const Picture& b = bitmap(number);
        const int half = b.height() / 2;
        const Rect off{0, 0, b.width(), half}, on{0, half, b.width(), 2 * half};
        EXPECT_GT(difference(b.surface(), off, on), 0.08) << "bitmap " << number;
        const Stats lookOff = stats(b.surface(), off), lookOn = stats(b.surface(), on);
        EXPECT_GT(lookOn.mean, 1.2 * lookOff.mean) << "bitmap " << number;
        EXPECT_GT(lookOn.chroma, lookOff.chroma + 0.25) << "bitmap " << number;
    }
    // The four Type positions each look different from the others.
    const Picture& type = bitmap(202);
    const int q = type.height() / 4;
    for (int a = 0; a < 4; ++a) {
        for (int b = a + 1; b < 4; ++b) {
            EXPECT_GT(difference(type.surface(), {0, a * q, type.width(), (a + 1) * q},
                                 {0, b * q, type.width(), (b + 1) * q}),
                      0.015)
                << a << " / " << b;
        }
    }
}

TEST_F(EditorArtTest, BackgroundsAreFullSizeAndKeepWhiteTextReadable) {
    // White text and knob pointers need a contrast of at least 7:1 on
    // average and 3:1 at the brightest pixel.
    auto readable = [](cairo_surface_t* s, const Rect& r) {
        const Stats st = stats(s, r);
        return whiteContrast(st.mean) >= 7.0 && whiteContrast(st.max) >= 3.0;
    };
    // The pointer runs from a knob's centre to 3 pixels short of its edge:
    // the square inside that circle.
    auto core = [](const Rect& k) { return Rect{k.left + 6, k.top + 6, k.right - 6, k.bottom - 6}; };
    const auto strip = stripWidgets();
    const auto panel = panelWidgets();
    std::vector<std::pair<std::string, Rect>> inStrip, inPanel;
    for (const char* name : {"title", "input menu", "output menu", "delay display",
                             "feedback display", "volume display", "filter menu"}) {
        inStrip.emplace_back(name, strip.at(name));
    }
    for (const char* name : {"delay knob", "feedback knob", "volume knob"}) {
        inStrip.emplace_back(name, core(strip.at(name)));
    }
    for (const char* name : {"index menu", "speed display"}) inPanel.emplace_back(name, panel.at(name));
    inPanel.emplace_back("speed knob", core(panel.at("speed knob")));

    std::vector<std::string> names;
    for (const auto& entry : fs::directory_iterator(resources() + "/Backgrounds")) {
        if (entry.path().extension() != ".png") continue;
        const std::string name = entry.path().filename();
        names.push_back(name);
        {
            Picture picture(entry.path());
            ASSERT_TRUE(picture.ok()) << name;
            EXPECT_EQ(picture.width(), kEditorWidth) << name;
            EXPECT_EQ(picture.height(), kEditorHeight) << name;
            // Opaque: the frame draws nothing under its background.
            for (int y = 0; y < kEditorHeight; y += 7) {
                for (int x = 0; x < kEditorWidth; x += 7) {
                    ASSERT_EQ(pixelAt(picture.surface(), x, y).a, 1.0) << name;
                }
            }
        }
        cairo_surface_t* editor = compose(entry.path());
        for (int i = 0; i < 10; ++i) {
            for (const auto& [what, r] : inStrip) {
                EXPECT_TRUE(readable(editor, r.moved(stripLeft(i), 1))) << name << " tap " << i << " " << what;
            }
            for (const auto& [what, r] : inPanel) {
                EXPECT_TRUE(readable(editor, r.moved(stripLeft(i), panelTop())))
                    << name << " tap " << i << " " << what;
            }
        }
        // The wet/dry knob sits on the menu handle's art.
        EXPECT_GE(whiteContrast(stats(editor, {10, 363, 23, 376}).mean), 7.0) << name;
        cairo_surface_destroy(editor);
    }
    EXPECT_GE(names.size(), 3u);
    EXPECT_NE(std::find(names.begin(), names.end(), "default.png"), names.end());

    // The about box: the version and date in white, the link in yellow
    // (luminance 0.93), all with black shadows.
    for (const Rect& r : {Rect{540, 110, 660, 130}, Rect{540, 130, 660, 150},
                          Rect{337, 155, 528, 170}}) {
        EXPECT_TRUE(readable(bitmap(2).surface(), r));
    }
}

// The painter's text fills cairo's and fontconfig's caches; they are given
// back when the program ends, as the art generator does, so that the leak
// checker of the sanitizer build sees a clean exit.
class FontCaches : public ::testing::Environment {
public:
    void TearDown() override {
        cairo_debug_reset_static_data();
        FcFini();
    }
};
[[maybe_unused]] ::testing::Environment* const kFontCaches =
    ::testing::AddGlobalTestEnvironment(new FontCaches);

// A picture through PNG and back, as the bundle's files are made and read.
cairo_surface_t* throughPng(cairo_surface_t* picture) {
    std::string bytes;
    cairo_surface_write_to_png_stream(
        picture,
        [](void* out, const unsigned char* data, unsigned int length) {
            static_cast<std::string*>(out)->append(reinterpret_cast<const char*>(data), length);
            return CAIRO_STATUS_SUCCESS;
        },
        &bytes);
    size_t at = 0;
    std::pair<std::string*, size_t*> in{&bytes, &at};
    return cairo_image_surface_create_from_png_stream(
        [](void* source, unsigned char* data, unsigned int length) {
            auto* s = static_cast<std::pair<std::string*, size_t*>*>(source);
            if (*s->second + length > s->first->size()) return CAIRO_STATUS_READ_ERROR;
            std::memcpy(data, s->first->data() + *s->second, length);
            *s->second += length;
            return CAIRO_STATUS_SUCCESS;
        },
        &in);
}

TEST_F(EditorArtTest, BundleBitmapsAreThePaintersDrawingWhichDrawsAtAnyScale) {
    ASSERT_EQ(varitap::art::editorBitmaps().size(), bitmaps_.size());
    for (const varitap::art::EditorBitmap& art : varitap::art::editorBitmaps()) {
        const Picture& file = bitmap(art.resourceNumber);
        EXPECT_EQ(file.width(), art.width) << art.resourceNumber;
        EXPECT_EQ(file.height(), art.height) << art.resourceNumber;
        // At 100 % the editor shows the bundle's PNG: pixel for pixel what the
        // painter draws at scale 1.
        cairo_surface_t* drawn = art.draw(1.0);
        cairo_surface_t* decoded = throughPng(drawn);
        ASSERT_EQ(cairo_surface_status(decoded), CAIRO_STATUS_SUCCESS);
        bool same = cairo_image_surface_get_width(decoded) == file.width() &&
                    cairo_image_surface_get_height(decoded) == file.height();
        for (int y = 0; same && y < file.height(); ++y) {
            const unsigned char* a = cairo_image_surface_get_data(decoded) +
                                     y * cairo_image_surface_get_stride(decoded);
            const unsigned char* b = cairo_image_surface_get_data(file.surface()) +
                                     y * cairo_image_surface_get_stride(file.surface());
            same = std::memcmp(a, b, static_cast<size_t>(file.width()) * 4) == 0;
        }
        EXPECT_TRUE(same) << "bitmap " << art.resourceNumber;
        // At other scales the same picture, drawn for more pixels: the size
        // rounded up, and at 200 % each 2 x 2 block is close to its pixel at 100 %.
        cairo_surface_t* odd = art.draw(1.75);
        auto roundedUp = [](double v) { return static_cast<int>(std::ceil(v)); };
        EXPECT_EQ(cairo_image_surface_get_width(odd), roundedUp(1.75 * art.width));
        EXPECT_EQ(cairo_image_surface_get_height(odd), roundedUp(1.75 * art.height));
        cairo_surface_t* twice = art.draw(2.0);
        ASSERT_EQ(cairo_image_surface_get_width(twice), 2 * art.width);
        ASSERT_EQ(cairo_image_surface_get_height(twice), 2 * art.height);
        double sum = 0;
        for (int y = 0; y < art.height; ++y) {
            for (int x = 0; x < art.width; ++x) {
                const Pixel one = pixelAt(drawn, x, y);
                double block = 0;
                for (int k = 0; k < 4; ++k) {
                    const Pixel p = pixelAt(twice, 2 * x + k % 2, 2 * y + k / 2);
                    block += (p.r + p.g + p.b) * p.a / 4;
                }
                sum += std::fabs(block - (one.r + one.g + one.b) * one.a) / 3;
            }
        }
        EXPECT_LT(sum / (art.width * art.height), 0.03) << "bitmap " << art.resourceNumber;
        for (cairo_surface_t* s : {drawn, decoded, odd, twice}) cairo_surface_destroy(s);
    }
}

}  // namespace
