// Small drawing helpers over cairo shared by every picture of the art: the
// palette, rounded shapes, cards, inset fields, knob scales and text.
#pragma once

#include <cairo.h>

#include <cstdint>
#include <string>

#include "resources/art/ArtLayout.h"

namespace varitap::art {

struct Color {
    double r, g, b, a;
};

// 0xRRGGBB with an alpha of 0..1.
constexpr Color rgb(uint32_t hex, double alpha = 1.0) {
    return {((hex >> 16) & 0xff) / 255.0, ((hex >> 8) & 0xff) / 255.0, (hex & 0xff) / 255.0, alpha};
}

// One palette for everything: graphite cards, amber for "on" and for the
// product's accent, cyan for the modulators' small screens.
namespace palette {
inline constexpr Color kCardTop = rgb(0x2c323b, 0.74);  // tap cards, translucent
inline constexpr Color kCardBottom = rgb(0x1c2027, 0.80);
inline constexpr Color kPanelTop = rgb(0x262b33, 0.80);  // modulator cards, a shade darker
inline constexpr Color kPanelBottom = rgb(0x181b21, 0.85);
inline constexpr Color kCardEdge = rgb(0x07080a, 0.85);
inline constexpr Color kHighlight = rgb(0xffffff, 0.08);
inline constexpr Color kHeaderTop = rgb(0x434b57, 0.95);
inline constexpr Color kHeaderBottom = rgb(0x323842, 0.95);
inline constexpr Color kField = rgb(0x0a0c0f, 0.92);  // behind the toolkit's white text
inline constexpr Color kFieldEdge = rgb(0xffffff, 0.10);
inline constexpr Color kLabel = rgb(0xb4bdc8);
inline constexpr Color kLabelDim = rgb(0x7c8692);
inline constexpr Color kWordMark = rgb(0xe6eaef);
inline constexpr Color kRule = rgb(0xffffff, 0.07);
inline constexpr Color kAmber = rgb(0xf5a524);
inline constexpr Color kAmberLit = rgb(0xffc45a);  // top of a lit button
inline constexpr Color kAmberDeep = rgb(0xc76d10);
inline constexpr Color kAmberDim = rgb(0x5a3f1c);
inline constexpr Color kOnInk = rgb(0x2a1700);  // text and icons on lit buttons
inline constexpr Color kCyan = rgb(0x5fd3e8);
inline constexpr Color kTick = rgb(0x8d97a3);
inline constexpr Color kButtonTop = rgb(0x48505b);
inline constexpr Color kButtonDark = rgb(0x1d2127);
inline constexpr Color kLedOff = rgb(0x15181c);
inline constexpr Color kLedOn = rgb(0xfff4d6);
inline constexpr Color kKnobRimTop = rgb(0x4d545f);
inline constexpr Color kKnobRimBottom = rgb(0x1a1c21);
inline constexpr Color kKnobCapTop = rgb(0x242930);
inline constexpr Color kKnobCapBottom = rgb(0x333842);
inline constexpr Color kHandleLight = rgb(0xedeff4);
inline constexpr Color kHandleShade = rgb(0x8c949f);
inline constexpr Color kScreenTop = rgb(0x0c1c22);
inline constexpr Color kScreen = rgb(0x081418);
}  // namespace palette

constexpr Color withAlpha(const Color& c, double alpha) { return {c.r, c.g, c.b, alpha}; }

enum class Align { kLeft, kCenter, kRight };

// The art is drawn in logical pixels at any scale (device pixels per logical
// pixel): the bundle's PNGs at 1, the editor's bitmaps at its own scale when
// it runs at another. newCanvas makes an ARGB32 picture for width x height
// logical pixels at a scale (the size rounded up to whole device pixels);
// drawingContext makes a context on it that draws in logical pixels.
cairo_surface_t* newCanvas(int width, int height, double scale);
cairo_t* drawingContext(cairo_surface_t* canvas, double scale);

void setColor(cairo_t* cr, const Color& c);
void roundedRect(cairo_t* cr, double x, double y, double w, double h, double radius);
// Fills the current path with a vertical gradient from top to bottom colour.
void fillVertical(cairo_t* cr, double y0, double y1, const Color& top, const Color& bottom);
// The same, from left to right.
void fillHorizontal(cairo_t* cr, double x0, double x1, const Color& left, const Color& right);

// A translucent card with a dark edge and a faint top highlight.
void drawCard(cairo_t* cr, double x, double y, double w, double h, const Color& top,
              const Color& bottom);
// A recessed dark field behind text the toolkit draws (menus, displays).
void drawField(cairo_t* cr, const Rect& r, int grow = 1);
// A thin engraved horizontal rule.
void drawRule(cairo_t* cr, double x0, double x1, double y);
// The dial under a toolkit knob: tick scale and a dark body. The toolkit
// draws its white pointer line over it.
void drawKnobDial(cairo_t* cr, const Rect& knob);
// The groove a slider handle runs in, covering the handle's whole travel,
// with scale marks under it when there is room.
void drawSliderGroove(cairo_t* cr, const Rect& slider, bool marks);

// Text in Helvetica at size pixels. The baseline is at y; x is the left,
// centre or right end according to align. With shadow, a black copy is drawn
// one pixel down first, as the toolkit does for its own text.
void drawText(cairo_t* cr, const std::string& text, double x, double y, double size, bool bold,
              Align align, const Color& color, bool shadow = true);
// Width of a text in Helvetica at size pixels.
double textWidth(cairo_t* cr, const std::string& text, double size, bool bold);
// Text with extra spacing between letters (small capitals labels).
void drawSpacedText(cairo_t* cr, const std::string& text, double x, double y, double size,
                    bool bold, double spacing, Align align, const Color& color, bool shadow = true);

// Deterministic pseudo-random numbers for textures (same art on every build).
class Noise {
public:
    explicit Noise(uint32_t seed) : state_(seed ? seed : 1) {}
    // Uniform in [0, 1).
    double next();

private:
    uint32_t state_;
};

// Adds fine grain to the whole surface: every pixel's brightness moves by up
// to amount (0..1), the same way in every colour channel.
void addGrain(cairo_surface_t* surface, double amount, uint32_t seed);

}  // namespace varitap::art
