// Plain value types of the toolkit: colours, points, rectangles, mouse
// buttons, modifier keys, key events and the numbered fonts.
#pragma once

#include <algorithm>
#include <cmath>
#include <cstdint>

namespace varitap::gui {

// Four 8-bit components; alpha 255 is opaque.
struct Color {
    uint8_t red = 0;
    uint8_t green = 0;
    uint8_t blue = 0;
    uint8_t alpha = 255;

    bool operator==(const Color& o) const {
        return red == o.red && green == o.green && blue == o.blue && alpha == o.alpha;
    }
    bool operator!=(const Color& o) const { return !(*this == o); }
};

constexpr Color kBlackColor{0, 0, 0, 255};
constexpr Color kWhiteColor{255, 255, 255, 255};
constexpr Color kGreyColor{128, 128, 128, 255};
constexpr Color kYellowColor{255, 255, 0, 255};
constexpr Color kTransparentColor{0, 0, 0, 0};

struct Point {
    int x = 0;
    int y = 0;

    bool operator==(const Point& o) const { return x == o.x && y == o.y; }
    bool operator!=(const Point& o) const { return !(*this == o); }
};

// Integer rectangle, origin at the top left; right and bottom are exclusive.
struct Rect {
    int left = 0;
    int top = 0;
    int right = 0;
    int bottom = 0;

    Rect() = default;
    constexpr Rect(int l, int t, int r, int b) : left(l), top(t), right(r), bottom(b) {}
    static constexpr Rect fromSize(int l, int t, int w, int h) { return Rect(l, t, l + w, t + h); }

    int width() const { return right - left; }
    int height() const { return bottom - top; }
    bool isEmpty() const { return right <= left || bottom <= top; }
    bool contains(Point p) const { return p.x >= left && p.x < right && p.y >= top && p.y < bottom; }
    Rect offsetBy(int dx, int dy) const { return Rect(left + dx, top + dy, right + dx, bottom + dy); }
    Rect insetBy(int dx, int dy) const { return Rect(left + dx, top + dy, right - dx, bottom - dy); }
    // Common part; an empty rectangle when they do not overlap.
    Rect intersect(const Rect& o) const {
        Rect r(std::max(left, o.left), std::max(top, o.top), std::min(right, o.right),
               std::min(bottom, o.bottom));
        return r.isEmpty() ? Rect() : r;
    }
    // Smallest rectangle holding both; an empty side is ignored.
    Rect unite(const Rect& o) const {
        if (isEmpty()) return o;
        if (o.isEmpty()) return *this;
        return Rect(std::min(left, o.left), std::min(top, o.top), std::max(right, o.right),
                    std::max(bottom, o.bottom));
    }
    bool operator==(const Rect& o) const {
        return left == o.left && top == o.top && right == o.right && bottom == o.bottom;
    }
    bool operator!=(const Rect& o) const { return !(*this == o); }
};

// Device pixels per logical pixel, and the conversions between the two
// spaces where the toolkit meets the window system. Views, their rectangles,
// mouse positions and drawing calls are logical: the editor is 865 x 400 at
// any scale, and only its window and the pixels in it grow.
class PixelScale {
public:
    explicit PixelScale(double factor = 1.0) : factor_(factor > 0.0 ? factor : 1.0) {}
    double factor() const { return factor_; }

    // The smallest device rectangle that covers a logical one.
    Rect toDevice(const Rect& r) const {
        return Rect(down(r.left * factor_), down(r.top * factor_), up(r.right * factor_),
                    up(r.bottom * factor_));
    }
    // The smallest logical rectangle that covers a device one.
    Rect toLogical(const Rect& r) const {
        return Rect(down(r.left / factor_), down(r.top / factor_), up(r.right / factor_),
                    up(r.bottom / factor_));
    }
    // The device pixel nearest to a logical point, and the logical pixel that
    // holds a device pixel.
    Point toDevice(Point p) const {
        return Point{static_cast<int>(std::lround(p.x * factor_)),
                     static_cast<int>(std::lround(p.y * factor_))};
    }
    Point toLogical(Point p) const { return Point{down(p.x / factor_), down(p.y / factor_)}; }

private:
    // Products like 1.75 x 4 land a hair off whole numbers: those count as whole.
    static int down(double v) { return static_cast<int>(std::floor(v + 1e-9)); }
    static int up(double v) { return static_cast<int>(std::ceil(v - 1e-9)); }

    double factor_;
};

// Mouse buttons and modifier keys, combined in one bit set.
enum MouseButtons : uint32_t {
    kLButton = 1u << 0,   // primary
    kMButton = 1u << 1,
    kRButton = 1u << 2,   // secondary
    kShift = 1u << 8,
    kControl = 1u << 9,
    kAlt = 1u << 10,
    kDoubleClick = 1u << 16,
};

// Keys the toolkit acts on by themselves; everything else arrives as text.
enum class VirtualKey : uint8_t {
    None = 0,
    Return,
    Escape,
    Backspace,
    Delete,
    Tab,
    Left,
    Right,
    Up,
    Down,
    Home,
    End,
};

struct KeyEvent {
    VirtualKey virtualKey = VirtualKey::None;
    char text[8] = {};         // UTF-8 of a printable key, terminated; empty otherwise
    uint32_t modifiers = 0;    // kShift, kControl, kAlt
    uint32_t keysym = 0;       // the X keysym, 0 when unknown
};

// Fonts by number: 0 Helvetica 12, 1 Helvetica 18, 2 Helvetica 14,
// 3 Helvetica 12, 4 Helvetica 10, 5 and 6 Helvetica 9, 7 Symbol 12.
enum FontId : int {
    kSystemFont = 0,
    kNormalFontVeryBig = 1,
    kNormalFontBig = 2,
    kNormalFont = 3,
    kNormalFontSmall = 4,
    kNormalFontSmaller = 5,
    kNormalFontVerySmall = 6,
    kSymbolFont = 7,
    kNumFonts = 8,
};

enum class HoriAlign : uint8_t { Left, Center, Right };

}  // namespace varitap::gui
