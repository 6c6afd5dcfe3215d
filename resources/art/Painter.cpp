#include "resources/art/Painter.h"

#include <algorithm>
#include <cmath>

namespace varitap::art {

cairo_surface_t* newCanvas(int width, int height, double scale) {
    // Products like 1.75 x 4 land a hair off whole numbers: those count as whole.
    auto pixels = [scale](int logical) {
        return static_cast<int>(std::ceil(logical * scale - 1e-9));
    };
    return cairo_image_surface_create(CAIRO_FORMAT_ARGB32, pixels(width), pixels(height));
}

cairo_t* drawingContext(cairo_surface_t* canvas, double scale) {
    cairo_t* cr = cairo_create(canvas);
    if (scale != 1.0) cairo_scale(cr, scale, scale);
    return cr;
}

void setColor(cairo_t* cr, const Color& c) { cairo_set_source_rgba(cr, c.r, c.g, c.b, c.a); }

void roundedRect(cairo_t* cr, double x, double y, double w, double h, double radius) {
    const double r = std::min({radius, w / 2.0, h / 2.0});
    cairo_new_sub_path(cr);
    cairo_arc(cr, x + w - r, y + r, r, -M_PI / 2, 0);
    cairo_arc(cr, x + w - r, y + h - r, r, 0, M_PI / 2);
    cairo_arc(cr, x + r, y + h - r, r, M_PI / 2, M_PI);
    cairo_arc(cr, x + r, y + r, r, M_PI, 3 * M_PI / 2);
    cairo_close_path(cr);
}

void fillVertical(cairo_t* cr, double y0, double y1, const Color& top, const Color& bottom) {
    cairo_pattern_t* p = cairo_pattern_create_linear(0, y0, 0, y1);
    cairo_pattern_add_color_stop_rgba(p, 0, top.r, top.g, top.b, top.a);
    cairo_pattern_add_color_stop_rgba(p, 1, bottom.r, bottom.g, bottom.b, bottom.a);
    cairo_set_source(cr, p);
    cairo_fill(cr);
    cairo_pattern_destroy(p);
}

void fillHorizontal(cairo_t* cr, double x0, double x1, const Color& left, const Color& right) {
    cairo_pattern_t* p = cairo_pattern_create_linear(x0, 0, x1, 0);
    cairo_pattern_add_color_stop_rgba(p, 0, left.r, left.g, left.b, left.a);
    cairo_pattern_add_color_stop_rgba(p, 1, right.r, right.g, right.b, right.a);
    cairo_set_source(cr, p);
    cairo_fill(cr);
    cairo_pattern_destroy(p);
}

void drawCard(cairo_t* cr, double x, double y, double w, double h, const Color& top,
              const Color& bottom) {
    cairo_save(cr);
    roundedRect(cr, x, y, w, h, 4);
    fillVertical(cr, y, y + h, top, bottom);
    // Dark outer edge, then a faint highlight one pixel inside along the top.
    roundedRect(cr, x + 0.5, y + 0.5, w - 1, h - 1, 3.5);
    setColor(cr, palette::kCardEdge);
    cairo_set_line_width(cr, 1);
    cairo_stroke(cr);
    cairo_move_to(cr, x + 3, y + 1.5);
    cairo_line_to(cr, x + w - 3, y + 1.5);
    setColor(cr, palette::kHighlight);
    cairo_stroke(cr);
    cairo_restore(cr);
}

void drawField(cairo_t* cr, const Rect& r, int grow) {
    cairo_save(cr);
    const double x = r.left - grow, y = r.top - grow;
    const double w = r.width() + 2 * grow, h = r.height() + 2 * grow;
    roundedRect(cr, x, y, w, h, 2);
    setColor(cr, palette::kField);
    cairo_fill(cr);
    // Inner shadow along the top edge and a light lip along the bottom: the
    // field reads as pressed into the card.
    cairo_set_line_width(cr, 1);
    cairo_move_to(cr, x + 1.5, y + 1.5);
    cairo_line_to(cr, x + w - 1.5, y + 1.5);
    setColor(cr, rgb(0x000000, 0.6));
    cairo_stroke(cr);
    cairo_move_to(cr, x + 1.5, y + h + 0.5);
    cairo_line_to(cr, x + w - 1.5, y + h + 0.5);
    setColor(cr, palette::kFieldEdge);
    cairo_stroke(cr);
    cairo_restore(cr);
}

void drawRule(cairo_t* cr, double x0, double x1, double y) {
    cairo_save(cr);
    cairo_set_line_width(cr, 1);
    cairo_move_to(cr, x0, y + 0.5);
    cairo_line_to(cr, x1, y + 0.5);
    setColor(cr, rgb(0x000000, 0.45));
    cairo_stroke(cr);
    cairo_move_to(cr, x0, y + 1.5);
    cairo_line_to(cr, x1, y + 1.5);
    setColor(cr, palette::kRule);
    cairo_stroke(cr);
    cairo_restore(cr);
}

void drawKnobDial(cairo_t* cr, const Rect& knob) {
    cairo_save(cr);
    const double cx = knob.centerX(), cy = knob.centerY();
    const double radius = knob.width() / 2.0;
    // Scale: 11 ticks over the pointer's sweep, the end ticks longer.
    cairo_set_line_cap(cr, CAIRO_LINE_CAP_ROUND);
    for (int i = 0; i <= 10; ++i) {
        const double deg = kKnobStartDegrees - kKnobSweepDegrees * i / 10.0;
        const double a = deg * M_PI / 180.0;
        const bool major = i == 0 || i == 5 || i == 10;
        const double r0 = radius - 1.0, r1 = radius + (major ? 2.0 : 1.0);
        cairo_move_to(cr, cx + r0 * std::cos(a), cy - r0 * std::sin(a));
        cairo_line_to(cr, cx + r1 * std::cos(a), cy - r1 * std::sin(a));
        setColor(cr, major ? palette::kLabel : palette::kTick);
        cairo_set_line_width(cr, major ? 1.2 : 0.9);
        cairo_stroke(cr);
    }
    // Drop shadow, body with a top-lit gradient, rim highlight.
    const double body = radius - 3.0;
    cairo_arc(cr, cx, cy + 1.2, body + 0.8, 0, 2 * M_PI);
    setColor(cr, rgb(0x000000, 0.55));
    cairo_fill(cr);
    cairo_arc(cr, cx, cy, body, 0, 2 * M_PI);
    fillVertical(cr, cy - body, cy + body, palette::kKnobRimTop, palette::kKnobRimBottom);
    // Inner cap: a flat, darker face so the white pointer stands out on it.
    cairo_arc(cr, cx, cy, body - 2.0, 0, 2 * M_PI);
    fillVertical(cr, cy - body, cy + body, palette::kKnobCapTop, palette::kKnobCapBottom);
    cairo_arc(cr, cx, cy, body - 0.5, M_PI * 1.15, M_PI * 1.85);
    setColor(cr, rgb(0xffffff, 0.18));
    cairo_set_line_width(cr, 1);
    cairo_stroke(cr);
    cairo_restore(cr);
}

void drawSliderGroove(cairo_t* cr, const Rect& slider, bool marks) {
    cairo_save(cr);
    // The handle's left edge moves from the slider's left over the handle's
    // travel (kept inside the slider), so its centre line runs from
    // left + w/2 to left + travel + w/2; the groove reaches a little beyond.
    const double half = kSliderHandleSize.width / 2.0;
    const int travel = sliderTravel(slider);
    const double x0 = slider.left + half - 3, x1 = slider.left + travel + half + 3;
    const double cy = slider.centerY();
    roundedRect(cr, x0, cy - 2, x1 - x0, 4, 2);
    setColor(cr, palette::kField);
    cairo_fill(cr);
    cairo_set_line_width(cr, 1);
    cairo_move_to(cr, x0 + 1, cy + 2.5);
    cairo_line_to(cr, x1 - 1, cy + 2.5);
    setColor(cr, palette::kFieldEdge);
    cairo_stroke(cr);
    // Small scale marks under the groove at 0, 25, 50, 75 and 100 percent.
    for (int i = 0; marks && i <= 4; ++i) {
        const double x = std::floor(slider.left + half + travel * i / 4.0) + 0.5;
        cairo_move_to(cr, x, slider.bottom - 1.5);
        cairo_line_to(cr, x, slider.bottom + (i % 2 == 0 ? 1.0 : 0.0));
        setColor(cr, palette::kTick);
        cairo_stroke(cr);
    }
    cairo_restore(cr);
}

static void selectFont(cairo_t* cr, double size, bool bold) {
    cairo_select_font_face(cr, "Helvetica", CAIRO_FONT_SLANT_NORMAL,
                           bold ? CAIRO_FONT_WEIGHT_BOLD : CAIRO_FONT_WEIGHT_NORMAL);
    cairo_set_font_size(cr, size);
}

double textWidth(cairo_t* cr, const std::string& text, double size, bool bold) {
    cairo_save(cr);
    selectFont(cr, size, bold);
    cairo_text_extents_t e;
    cairo_text_extents(cr, text.c_str(), &e);
    cairo_restore(cr);
    return e.x_advance;
}

void drawText(cairo_t* cr, const std::string& text, double x, double y, double size, bool bold,
              Align align, const Color& color, bool shadow) {
    cairo_save(cr);
    selectFont(cr, size, bold);
    cairo_text_extents_t e;
    cairo_text_extents(cr, text.c_str(), &e);
    double left = x;
    if (align == Align::kCenter) left = x - e.x_advance / 2.0;
    if (align == Align::kRight) left = x - e.x_advance;
    left = std::round(left);
    if (shadow) {
        cairo_move_to(cr, left + 1, y + 1);
        setColor(cr, rgb(0x000000, 0.85));
        cairo_show_text(cr, text.c_str());
    }
    cairo_move_to(cr, left, y);
    setColor(cr, color);
    cairo_show_text(cr, text.c_str());
    cairo_restore(cr);
}

void drawSpacedText(cairo_t* cr, const std::string& text, double x, double y, double size,
                    bool bold, double spacing, Align align, const Color& color, bool shadow) {
    double total = 0;
    for (size_t i = 0; i < text.size(); ++i) {
        total += textWidth(cr, text.substr(i, 1), size, bold);
        if (i + 1 < text.size()) total += spacing;
    }
    double left = x;
    if (align == Align::kCenter) left = x - total / 2.0;
    if (align == Align::kRight) left = x - total;
    for (size_t i = 0; i < text.size(); ++i) {
        const std::string letter = text.substr(i, 1);
        drawText(cr, letter, left, y, size, bold, Align::kLeft, color, shadow);
        left += textWidth(cr, letter, size, bold) + spacing;
    }
}

double Noise::next() {
    // xorshift32: small, fast and the same everywhere.
    state_ ^= state_ << 13;
    state_ ^= state_ >> 17;
    state_ ^= state_ << 5;
    return (state_ >> 8) / 16777216.0;
}

void addGrain(cairo_surface_t* surface, double amount, uint32_t seed) {
    cairo_surface_flush(surface);
    Noise noise(seed);
    unsigned char* data = cairo_image_surface_get_data(surface);
    const int stride = cairo_image_surface_get_stride(surface);
    const int width = cairo_image_surface_get_width(surface);
    const int height = cairo_image_surface_get_height(surface);
    for (int y = 0; y < height; ++y) {
        auto* row = reinterpret_cast<uint32_t*>(data + y * stride);
        for (int x = 0; x < width; ++x) {
            const uint32_t px = row[x];
            const int a = px >> 24;
            const int delta = static_cast<int>((noise.next() - 0.5) * 2.0 * amount * a);
            auto channel = [&](int shift) {
                const int v = static_cast<int>((px >> shift) & 0xff) + delta;
                return static_cast<uint32_t>(std::clamp(v, 0, a)) << shift;
            };
            row[x] = (px & 0xff000000u) | channel(16) | channel(8) | channel(0);
        }
    }
    cairo_surface_mark_dirty(surface);
}

}  // namespace varitap::art
