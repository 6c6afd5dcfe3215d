// Mock-ups of the editor: the art placed at the layout's coordinates with
// sample values drawn the way the toolkit draws them (white 9-pixel text
// with a black shadow, white line knobs with a translucent black shadow),
// to judge fit and legibility before the editor exists.
#include <cmath>
#include <cstdio>
#include <string>

#include "resources/art/Art.h"
#include "resources/art/ArtLayout.h"
#include "resources/art/Painter.h"

namespace varitap::art {

namespace {

constexpr double kFontSize = 9.0;

void blit(cairo_t* cr, cairo_surface_t* image, double x, double y) {
    cairo_set_source_surface(cr, image, x, y);
    cairo_paint(cr);
}

// One state of a bitmap that stacks count states vertically.
void blitState(cairo_t* cr, cairo_surface_t* image, double x, double y, int state, int count) {
    const int h = cairo_image_surface_get_height(image) / count;
    const int w = cairo_image_surface_get_width(image);
    cairo_save(cr);
    cairo_rectangle(cr, x, y, w, h);
    cairo_clip(cr);
    cairo_set_source_surface(cr, image, x, y - state * h);
    cairo_paint(cr);
    cairo_restore(cr);
}

// Toolkit text: white, black shadow one pixel down and right, vertically
// centred in the rectangle.
void toolkitText(cairo_t* cr, const std::string& text, const Rect& r, Align align,
                 const Color& color = rgb(0xffffff)) {
    cairo_save(cr);
    cairo_rectangle(cr, r.left, r.top, r.width(), r.height());
    cairo_clip(cr);
    const double baseline = std::round(r.centerY() + kFontSize * 0.36);
    double x = r.left + 1;
    if (align == Align::kCenter) x = r.centerX();
    if (align == Align::kRight) x = r.right - 2;
    drawText(cr, text, x, baseline, kFontSize, false, align, color);
    cairo_restore(cr);
}

void toolkitKnob(cairo_t* cr, const Rect& r, double value) {
    // As the toolkit draws it: integer end points, one-pixel line on pixel centres.
    const double cx = r.left + r.width() / 2 + 0.5, cy = r.top + r.height() / 2 + 0.5;
    const double len = r.width() / 2.0 - kKnobPointerInset;
    const double a = (kKnobStartDegrees - kKnobSweepDegrees * value) * M_PI / 180.0;
    cairo_save(cr);
    cairo_set_line_width(cr, 1);
    for (int pass = 0; pass < 2; ++pass) {
        const double d = pass == 0 ? 1 : 0;
        cairo_move_to(cr, cx + d, cy + d);
        cairo_line_to(cr, std::round(cx - 0.5 + len * std::cos(a)) + 0.5 + d,
                      std::round(cy - 0.5 - len * std::sin(a)) + 0.5 + d);
        if (pass == 0) {
            cairo_set_source_rgba(cr, 0, 0, 0, 150 / 255.0);
        } else {
            cairo_set_source_rgba(cr, 1, 1, 1, 1);
        }
        cairo_stroke(cr);
    }
    cairo_restore(cr);
}

void toolkitSlider(cairo_t* cr, cairo_surface_t* handle, const Rect& r, double value) {
    blit(cr, handle, r.left + std::round(sliderTravel(r) * value), r.top);
}

void outline(cairo_t* cr, const Rect& r, double ox, double oy, const Color& c) {
    cairo_save(cr);
    cairo_rectangle(cr, ox + r.left + 0.5, oy + r.top + 0.5, r.width() - 1, r.height() - 1);
    setColor(cr, c);
    cairo_set_line_width(cr, 1);
    cairo_stroke(cr);
    cairo_restore(cr);
}

Rect offset(const Rect& r, double x, double y) {
    return {r.left + static_cast<int>(x), r.top + static_cast<int>(y),
            r.right + static_cast<int>(x), r.bottom + static_cast<int>(y)};
}

// Plausible settings for tap i, so that the mock-up shows varied states.
struct TapSample {
    const char* input;
    const char* output;
    double delay, feedback, volume;
    bool sync;
    const char* delayText;
    const char* filter;
    double cutoff, resonance;
};

const TapSample kTaps[10] = {
    {"In 1", "Out 1", 0.25, 0.40, 0.80, true, "1/8", "LowPass", 0.55, 0.20},
    {"In 2", "Out 2", 0.37, 0.35, 0.75, true, "1/8D", "***", 0.50, 0.00},
    {"In 1", "Out 2", 0.12, 0.10, 0.60, false, "152.3", "HighPass", 0.30, 0.45},
    {"Intern 1", "Out 1", 0.50, 0.65, 0.55, true, "1/4", "BandPass", 0.70, 0.60},
    {"In 2", "Intern 1", 0.08, 0.00, 0.90, false, "95.24", "***", 0.50, 0.00},
    {"***", "***", 0.00, 0.00, 0.00, false, "0.000", "***", 0.50, 0.00},
    {"In 1", "Out 1", 0.62, 0.55, 0.45, true, "1/2T", "Notch", 0.45, 0.80},
    {"Out 1", "Out 2", 0.31, 0.25, 0.35, false, "520.8", "LowPass", 0.25, 0.10},
    {"In 2", "Intern 2", 0.90, 0.80, 0.30, true, "1", "***", 0.50, 0.00},
    {"Intern 2", "Out 2", 0.44, 0.30, 0.50, false, "1087.", "HighPass", 0.60, 0.35},
};

struct ModSample {
    bool power;
    int type;  // 0 sine, 1 square, 2 ramp, 3 table
    const char* target;
    double speed;
    const char* speedText;
    bool sync;
    double min, max;
    bool tableShown;
};

const ModSample kMods[10] = {
    {true, 0, "#1: Cutoff", 0.40, "1/4", true, 0.20, 0.80, false},
    {false, 0, "#1: Delay", 0.20, "0.40", false, 0.00, 1.00, false},
    {true, 2, "#3: Volume", 0.55, "1.10", false, 0.10, 0.60, false},
    {true, 3, "#4: Resonance", 0.30, "1/8", true, 0.00, 1.00, true},
    {false, 1, "#5: Delay", 0.20, "0.40", false, 0.00, 1.00, false},
    {false, 0, "#1: Delay", 0.20, "0.40", false, 0.00, 1.00, false},
    {true, 1, "#7: Feedback", 0.70, "1/16", true, 0.30, 0.70, false},
    {true, 3, "#8: Cutoff", 0.25, "0.50", false, 0.00, 1.00, false},
    {false, 2, "Wet/Dry Mix Volume", 0.20, "0.40", false, 0.00, 1.00, false},
    {true, 0, "#10: Cutoff", 0.85, "1.70", false, 0.25, 0.75, false},
};

void drawTableCurve(cairo_t* cr, double x, double y) {
    const double left = x + kTableInset, top = y + kTableInset;
    const double right = x + kTableViewSize.width - kTableInset;
    const double bottom = y + kTableViewSize.height - kTableInset;
    cairo_save(cr);
    cairo_set_line_width(cr, 1);
    cairo_set_source_rgba(cr, 1, 1, 1, 30 / 255.0);
    for (int i = 0; i <= 10; ++i) {
        const double gy = std::round(top + (bottom - top) * i / 10.0) + 0.5;
        cairo_move_to(cr, left, gy);
        cairo_line_to(cr, right, gy);
    }
    for (int c = 0; c <= kTableColumns; ++c) {
        const double gx = std::round(left + (right - left) * c / kTableColumns) + 0.5;
        cairo_move_to(cr, gx, top);
        cairo_line_to(cr, gx, bottom);
    }
    cairo_stroke(cr);
    static const double values[kTableColumns] = {0.1, 0.45, 0.9, 0.7, 0.3, 0.55, 1.0, 0.2};
    cairo_set_line_width(cr, 2);
    cairo_set_source_rgba(cr, 1, 1, 1, 1);
    const double colW = (right - left) / kTableColumns;
    for (int c = 0; c < kTableColumns; ++c) {
        const double vy = bottom - (bottom - top) * values[c];
        if (c == 0) {
            cairo_move_to(cr, left, vy);
        } else {
            cairo_line_to(cr, left + c * colW, vy);
        }
        cairo_line_to(cr, left + (c + 1) * colW, vy);
    }
    cairo_stroke(cr);
    cairo_restore(cr);
}

}  // namespace

cairo_surface_t* drawPreview(const EditorBitmaps& b, cairo_surface_t* background, bool outlines) {
    cairo_surface_t* s =
        cairo_image_surface_create(CAIRO_FORMAT_ARGB32, kEditorWidth, kEditorHeight);
    cairo_t* cr = cairo_create(s);
    cairo_set_source_rgb(cr, 0, 0, 0);
    cairo_paint(cr);
    blit(cr, background, 0, 0);
    blit(cr, b.menuHandle, 0, kMenuHandleTop);

    const Color strong = rgb(0xff3df0, 0.75), weak = rgb(0x3dfff0, 0.55);
    for (int i = 0; i < 10; ++i) {
        const double x = 32 + i * kStripPitch, y = 1;
        const TapSample& t = kTaps[i];
        blit(cr, b.strip, x, y);
        char number[8];
        std::snprintf(number, sizeof number, "%d", i + 1);
        toolkitText(cr, number, offset(kTitle, x, y), Align::kCenter);
        toolkitText(cr, t.input, offset(kInputMenu, x, y), Align::kCenter);
        toolkitText(cr, t.output, offset(kOutputMenu, x, y), Align::kCenter);
        toolkitKnob(cr, offset(kDelayKnob, x, y), t.delay);
        toolkitKnob(cr, offset(kFeedbackKnob, x, y), t.feedback);
        toolkitKnob(cr, offset(kVolumeKnob, x, y), t.volume);
        blitState(cr, b.sync, x + kTapSync.left, y + kTapSync.top, t.sync ? 1 : 0, 2);
        toolkitText(cr, t.delayText, offset(kDelayDisplay, x, y), Align::kCenter);
        char percent[8];
        std::snprintf(percent, sizeof percent, "%d%%", static_cast<int>(t.feedback * 100));
        toolkitText(cr, percent, offset(kFeedbackDisplay, x, y), Align::kRight);
        char gain[16];
        if (t.volume > 0) {
            std::snprintf(gain, sizeof gain, "%.1f", 20 * std::log10(t.volume));
        } else {
            std::snprintf(gain, sizeof gain, "-oo");
        }
        toolkitText(cr, gain, offset(kVolumeDisplay, x, y), Align::kRight);
        toolkitText(cr, t.filter, offset(kFilterMenu, x, y), Align::kCenter);
        toolkitSlider(cr, b.sliderHandle, offset(kCutoffSlider, x, y), t.cutoff);
        toolkitSlider(cr, b.sliderHandle, offset(kResonanceSlider, x, y), t.resonance);

        const double py = kPanelTop;
        const ModSample& m = kMods[i];
        blit(cr, b.panel, x, py);
        blitState(cr, b.power, x + kPower.left, py + kPower.top, m.power ? 1 : 0, 2);
        blitState(cr, b.type, x + kType.left, py + kType.top, m.type, 4);
        if (m.type == 3) {
            blitState(cr, b.tableToggle, x + kTableToggle.left, py + kTableToggle.top,
                      m.tableShown ? 1 : 0, 2);
        }
        toolkitText(cr, m.target, offset(kIndexMenu, x, py), Align::kLeft);
        toolkitKnob(cr, offset(kSpeedKnob, x, py), m.speed);
        toolkitText(cr, m.speedText, offset(kSpeedDisplay, x, py), Align::kCenter);
        blitState(cr, b.sync, x + kModSync.left, py + kModSync.top, m.sync ? 1 : 0, 2);
        toolkitSlider(cr, b.sliderHandle, offset(kMinSlider, x, py), m.min);
        toolkitSlider(cr, b.sliderHandle, offset(kMaxSlider, x, py), m.max);
        if (m.tableShown) {
            blit(cr, b.tableView, x + kTableView.left, py + kTableView.top);
            drawTableCurve(cr, x + kTableView.left, py + kTableView.top);
        }

        if (outlines) {
            outline(cr, {0, 0, kStripWidth, kStripHeight}, x, y, weak);
            outline(cr, {0, 0, kStripWidth, kPanelHeight}, x, py, weak);
            for (const Rect& r : {kDelayKnob, kFeedbackKnob, kVolumeKnob, kCutoffSlider,
                                  kResonanceSlider}) {
                outline(cr, r, x, y, strong);
            }
            for (const Rect& r : {kSpeedKnob, kMinSlider, kMaxSlider}) {
                outline(cr, r, x, py, strong);
            }
        }
    }
    toolkitKnob(cr, kWetDryKnob, 0.5);
    if (outlines) {
        outline(cr, kWetDryKnob, 0, 0, strong);
        outline(cr, kMenuStrip, 0, 0, weak);
    }
    cairo_destroy(cr);
    return s;
}

cairo_surface_t* drawAboutPreview(cairo_surface_t* about) {
    cairo_surface_t* s =
        cairo_image_surface_create(CAIRO_FORMAT_ARGB32, kEditorWidth, kEditorHeight);
    cairo_t* cr = cairo_create(s);
    blit(cr, about, 0, 0);
    // Version in the toolkit's default font (Helvetica 12), date and link in
    // the small font; the link in yellow.
    cairo_save(cr);
    drawText(cr, "Version 0.0.5", kAboutVersion.right - 2,
             std::round(kAboutVersion.centerY() + 12 * 0.36), 12, false, Align::kRight,
             rgb(0xffffff));
    cairo_restore(cr);
    toolkitText(cr, "Jul  3 2004", kAboutDate, Align::kRight);
    toolkitText(cr, "https://varitap.example.org", kAboutLink, Align::kCenter, rgb(0xffff00));
    cairo_destroy(cr);
    return s;
}

}  // namespace varitap::art
