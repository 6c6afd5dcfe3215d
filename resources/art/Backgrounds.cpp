// The background pictures and the about box: full-size 865 x 400 pictures.
// Backgrounds stay dark and quiet: the translucent strips sit on them and the
// toolkit's white text must read everywhere.
#include <cmath>

#include "resources/art/Art.h"
#include "resources/art/ArtLayout.h"
#include "resources/art/Painter.h"

namespace varitap::art {

namespace {

cairo_surface_t* newPicture() {
    return cairo_image_surface_create(CAIRO_FORMAT_ARGB32, kEditorWidth, kEditorHeight);
}

void fillGradient(cairo_t* cr, const Color& top, const Color& bottom) {
    cairo_rectangle(cr, 0, 0, kEditorWidth, kEditorHeight);
    fillVertical(cr, 0, kEditorHeight, top, bottom);
}

// A soft radial light of colour c centred at (x, y).
void glow(cairo_t* cr, double x, double y, double radius, const Color& c) {
    cairo_pattern_t* p = cairo_pattern_create_radial(x, y, 0, x, y, radius);
    cairo_pattern_add_color_stop_rgba(p, 0, c.r, c.g, c.b, c.a);
    cairo_pattern_add_color_stop_rgba(p, 1, c.r, c.g, c.b, 0);
    cairo_rectangle(cr, 0, 0, kEditorWidth, kEditorHeight);
    cairo_set_source(cr, p);
    cairo_fill(cr);
    cairo_pattern_destroy(p);
}

// Darkens the corners.
void vignette(cairo_t* cr, double strength) {
    const double cx = kEditorWidth / 2.0, cy = kEditorHeight / 2.0;
    cairo_pattern_t* p = cairo_pattern_create_radial(cx, cy, 120, cx, cy, 520);
    cairo_pattern_add_color_stop_rgba(p, 0, 0, 0, 0, 0);
    cairo_pattern_add_color_stop_rgba(p, 1, 0, 0, 0, strength);
    cairo_rectangle(cr, 0, 0, kEditorWidth, kEditorHeight);
    cairo_set_source(cr, p);
    cairo_fill(cr);
    cairo_pattern_destroy(p);
}

// Echo rings: circles around (x, y) whose spacing and brightness shrink the
// way a delay's repeats fade.
void echoRings(cairo_t* cr, double x, double y, const Color& c, int count) {
    double r = 40, alpha = c.a;
    for (int i = 0; i < count; ++i) {
        cairo_arc(cr, x, y, r, 0, 2 * M_PI);
        cairo_set_source_rgba(cr, c.r, c.g, c.b, alpha);
        cairo_set_line_width(cr, 1.5);
        cairo_stroke(cr);
        r += 34 * std::pow(0.93, i);
        alpha *= 0.86;
    }
}

cairo_surface_t* drawGraphite() {
    cairo_surface_t* s = newPicture();
    cairo_t* cr = cairo_create(s);
    fillGradient(cr, rgb(0x343b45), rgb(0x15181c));
    // Fine horizontal brushing.
    Noise noise(7);
    cairo_set_line_width(cr, 1);
    for (int y = 0; y < kEditorHeight; ++y) {
        const double a = 0.015 + 0.03 * noise.next();
        cairo_move_to(cr, 0, y + 0.5);
        cairo_line_to(cr, kEditorWidth, y + 0.5);
        cairo_set_source_rgba(cr, 1, 1, 1, (y % 2) ? a : a * 0.3);
        cairo_stroke(cr);
    }
    glow(cr, 120, 420, 420, withAlpha(palette::kAmber, 0.10));
    vignette(cr, 0.45);
    cairo_destroy(cr);
    addGrain(s, 0.035, 11);
    return s;
}

cairo_surface_t* drawMidnight() {
    cairo_surface_t* s = newPicture();
    cairo_t* cr = cairo_create(s);
    fillGradient(cr, rgb(0x1d2d52), rgb(0x080c19));
    glow(cr, 700, 60, 380, rgb(0x4a6fd0, 0.25));
    echoRings(cr, 690, 470, rgb(0x9fb8ff, 0.10), 16);
    // A few faint stars.
    Noise noise(23);
    for (int i = 0; i < 90; ++i) {
        const double x = noise.next() * kEditorWidth, y = noise.next() * kEditorHeight * 0.6;
        cairo_arc(cr, x, y, 0.4 + noise.next() * 0.7, 0, 2 * M_PI);
        cairo_set_source_rgba(cr, 0.85, 0.9, 1, 0.15 + 0.35 * noise.next());
        cairo_fill(cr);
    }
    vignette(cr, 0.5);
    cairo_destroy(cr);
    addGrain(s, 0.03, 29);
    return s;
}

cairo_surface_t* drawEmber() {
    cairo_surface_t* s = newPicture();
    cairo_t* cr = cairo_create(s);
    fillGradient(cr, rgb(0x2a1410), rgb(0x0e0706));
    glow(cr, 180, 430, 520, rgb(0xd2521c, 0.45));
    glow(cr, 760, -40, 300, withAlpha(palette::kAmber, 0.12));
    // Diagonal light streaks.
    Noise noise(41);
    for (int i = 0; i < 26; ++i) {
        const double x = noise.next() * (kEditorWidth + 400) - 200;
        const double width = 6 + noise.next() * 40;
        cairo_move_to(cr, x, kEditorHeight);
        cairo_line_to(cr, x + 260, 0);
        cairo_line_to(cr, x + 260 + width, 0);
        cairo_line_to(cr, x + width, kEditorHeight);
        cairo_close_path(cr);
        cairo_set_source_rgba(cr, 1, 0.6, 0.3, 0.012 + 0.02 * noise.next());
        cairo_fill(cr);
    }
    vignette(cr, 0.5);
    cairo_destroy(cr);
    addGrain(s, 0.035, 43);
    return s;
}

cairo_surface_t* drawMoss() {
    cairo_surface_t* s = newPicture();
    cairo_t* cr = cairo_create(s);
    fillGradient(cr, rgb(0x1b3430), rgb(0x07110f));
    glow(cr, 430, 0, 420, rgb(0x3fbf9a, 0.18));
    // Slow overlapping sine bands, like sound waves seen from far away.
    for (int band = 0; band < 7; ++band) {
        const double base = 90 + band * 42, amp = 18 + band * 4, phase = band * 0.9;
        cairo_move_to(cr, 0, base);
        for (int x = 0; x <= kEditorWidth; x += 5) {
            cairo_line_to(cr, x, base + amp * std::sin(x / 140.0 + phase));
        }
        cairo_set_source_rgba(cr, 0.55, 0.95, 0.8, 0.07 - band * 0.006);
        cairo_set_line_width(cr, 10 - band);
        cairo_stroke(cr);
    }
    vignette(cr, 0.55);
    cairo_destroy(cr);
    addGrain(s, 0.03, 53);
    return s;
}

}  // namespace

const std::vector<Background>& backgrounds() {
    static const std::vector<Background> list = {
        {"default.png", drawGraphite},
        {"Midnight.png", drawMidnight},
        {"Ember.png", drawEmber},
        {"Moss.png", drawMoss},
    };
    return list;
}

cairo_surface_t* drawAboutBox(double scale) {
    cairo_surface_t* s = newCanvas(kEditorWidth, kEditorHeight, scale);
    cairo_t* cr = drawingContext(s, scale);
    fillGradient(cr, rgb(0x262c34), rgb(0x0d0f12));
    const double centerX = kEditorWidth / 2.0;
    glow(cr, centerX, 200, 460, withAlpha(palette::kAmber, 0.10));
    echoRings(cr, centerX, 200, withAlpha(palette::kAmber, 0.16), 20);
    vignette(cr, 0.6);

    // The card the texts sit on, centred in the editor.
    const double cardW = 540, cardH = 336;
    const double cardX = std::round(centerX - cardW / 2), cardY = 32;
    roundedRect(cr, cardX, cardY + 4, cardW, cardH, 10);
    setColor(cr, rgb(0x000000, 0.5));
    cairo_fill(cr);
    roundedRect(cr, cardX, cardY, cardW, cardH, 10);
    fillVertical(cr, cardY, cardY + cardH, rgb(0x2a3039, 0.97), rgb(0x14171c, 0.97));
    roundedRect(cr, cardX + 0.5, cardY + 0.5, cardW - 1, cardH - 1, 9.5);
    setColor(cr, rgb(0xffffff, 0.08));
    cairo_set_line_width(cr, 1);
    cairo_stroke(cr);
    cairo_rectangle(cr, cardX + 10, cardY + 1, cardW - 20, 2);
    setColor(cr, palette::kAmber);
    cairo_fill(cr);

    // Emblem left of the word mark: a source dot and its echoes, fading.
    const double ex = 262, ey = 112;
    cairo_arc(cr, ex, ey, 54, 0, 2 * M_PI);
    fillVertical(cr, ey - 54, ey + 54, rgb(0x15181d), rgb(0x262b33));
    cairo_arc(cr, ex, ey, 54, 0, 2 * M_PI);
    setColor(cr, rgb(0x000000, 0.7));
    cairo_set_line_width(cr, 2);
    cairo_stroke(cr);
    cairo_arc(cr, ex, ey, 51, 0, 2 * M_PI);
    setColor(cr, palette::kAmberDim);
    cairo_set_line_width(cr, 1.5);
    cairo_stroke(cr);
    cairo_arc(cr, ex - 26, ey, 6, 0, 2 * M_PI);
    setColor(cr, palette::kAmber);
    cairo_fill(cr);
    cairo_set_line_cap(cr, CAIRO_LINE_CAP_ROUND);
    for (int i = 0; i < 4; ++i) {
        const double r = 14 + i * 12;
        cairo_arc(cr, ex - 26, ey, r, -0.75, 0.75);
        cairo_set_source_rgba(cr, 0.96, 0.65, 0.14, 1.0 - i * 0.22);
        cairo_set_line_width(cr, 4.0 - i * 0.6);
        cairo_stroke(cr);
    }

    // Word mark over the version texts, which the overlay draws right-aligned
    // to x 660; the link goes under the subtitle.
    const double left = kAboutLink.left, right = kAboutVersion.right;
    const std::string mark = "VARITAP";
    const double markWidth = textWidth(cr, mark, 56, true);
    const double spacing = (right - left - markWidth) / (mark.size() - 1.0);
    double x = left;
    for (size_t i = 0; i < mark.size(); ++i) {
        const std::string letter = mark.substr(i, 1);
        drawText(cr, letter, x, 100, 56, true, Align::kLeft,
                 i < 4 ? palette::kWordMark : palette::kAmber);
        x += textWidth(cr, letter, 56, true) + spacing;
    }
    drawText(cr, "Multi-tap delay", left + 1, 126, 15, false, Align::kLeft, palette::kLabel);
    drawText(cr, "with modulation", left + 1, 144, 15, false, Align::kLeft, palette::kLabelDim);

    // Ten taps fading away: the product in one picture.
    const double barsLeft = cardX + 40, barsRight = cardX + cardW - 40;
    const double base = 292, top = 196;
    drawRule(cr, barsLeft - 10, barsRight + 10, base + 1);
    for (int i = 0; i < 10; ++i) {
        const double bx = barsLeft + i * (barsRight - barsLeft - 14) / 9.0;
        const double height = (base - top) * std::pow(0.8, i);
        roundedRect(cr, bx, base - height, 14, height, 2);
        const double a = 1.0 - i * 0.07;
        fillVertical(cr, base - height, base, withAlpha(palette::kAmberLit, a), withAlpha(palette::kAmberDeep, a));
        cairo_arc(cr, bx + 7, base - height - 7, 2.4, 0, 2 * M_PI);
        setColor(cr, withAlpha(palette::kCyan, a));
        cairo_fill(cr);
    }
    drawText(cr, "10 taps  \xC2\xB7  10 modulators  \xC2\xB7  tempo sync  \xC2\xB7  filters  \xC2\xB7  free routing",
             centerX, 320, 11, false, Align::kCenter, palette::kLabel);
    drawText(cr, "Click anywhere to close", centerX, cardY + cardH - 14, 9, false, Align::kCenter,
             palette::kLabelDim);

    cairo_destroy(cr);
    addGrain(s, 0.02, 61);
    return s;
}

}  // namespace varitap::art
