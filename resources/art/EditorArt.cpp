// The small editor bitmaps: tap strip, modulator panel, buttons, switch,
// slider handle, table screen and the menu strip handle; and the list of
// every editor bitmap by resource number.
#include <algorithm>
#include <cmath>

#include "resources/art/Art.h"
#include "resources/art/ArtLayout.h"
#include "resources/art/Painter.h"

namespace varitap::art {

namespace {

constexpr double kLabelSize = 9.0;  // the toolkit's small font, Helvetica 9

// A label in the art, in the toolkit's small font, a shade dimmer than the
// white values so that values stand out from what they name.
void label(cairo_t* cr, const char* text, double x, double baseline, Align align) {
    drawText(cr, text, x, baseline, kLabelSize, false, align, palette::kLabel);
}

// The header band along the top of a card, with a coloured accent line.
void drawHeader(cairo_t* cr, double x, double y, double w, double h, const Color& accent) {
    cairo_save(cr);
    roundedRect(cr, x + 1, y + 1, w - 2, h, 3);
    fillVertical(cr, y, y + h, palette::kHeaderTop, palette::kHeaderBottom);
    cairo_rectangle(cr, x + 3, y + 1, w - 6, 1.5);
    setColor(cr, accent);
    cairo_fill(cr);
    cairo_move_to(cr, x + 1, y + h + 1.5);
    cairo_line_to(cr, x + w - 1, y + h + 1.5);
    setColor(cr, rgb(0x000000, 0.5));
    cairo_set_line_width(cr, 1);
    cairo_stroke(cr);
    cairo_restore(cr);
}

// A raised rectangular button face, lit (amber) or not.
void drawButtonFace(cairo_t* cr, double x, double y, double w, double h, bool lit) {
    roundedRect(cr, x, y, w, h, 2.5);
    setColor(cr, rgb(0x000000, 0.75));
    cairo_fill(cr);
    roundedRect(cr, x + 1, y + 1, w - 2, h - 2, 1.8);
    if (lit) {
        fillVertical(cr, y + 1, y + h - 1, palette::kAmberLit, palette::kAmberDeep);
    } else {
        fillVertical(cr, y + 1, y + h - 1, palette::kButtonTop, palette::kButtonDark);
    }
    cairo_move_to(cr, x + 2.5, y + 1.5);
    cairo_line_to(cr, x + w - 2.5, y + 1.5);
    setColor(cr, rgb(0xffffff, lit ? 0.45 : 0.15));
    cairo_set_line_width(cr, 1);
    cairo_stroke(cr);
}

}  // namespace

cairo_surface_t* drawStrip(double scale) {
    cairo_surface_t* s = newCanvas(kStripWidth, kStripHeight, scale);
    cairo_t* cr = drawingContext(s, scale);
    const double cardW = kCardRight - kCardLeft;
    drawCard(cr, kCardLeft, 0, cardW, kStripCardBottom, palette::kCardTop, palette::kCardBottom);
    drawHeader(cr, kCardLeft, 0, cardW, 15, palette::kAmber);

    // Routing in.
    label(cr, "In", 13, 31, Align::kLeft);
    drawField(cr, kInputMenu);
    drawRule(cr, kCardLeft + 4, kCardRight - 4, 38);

    // Time, feedback and level: each knob with its value readout, the label
    // above the readout.
    label(cr, "Delay", kDelayDisplay.centerX(), 70, Align::kCenter);
    drawKnobDial(cr, kDelayKnob);
    drawField(cr, kDelayDisplay);
    label(cr, "Fdbk", kFeedbackDisplay.centerX(), 106, Align::kCenter);
    drawKnobDial(cr, kFeedbackKnob);
    drawField(cr, kFeedbackDisplay);
    label(cr, "Vol", kVolumeDisplay.centerX(), 142, Align::kCenter);
    drawKnobDial(cr, kVolumeKnob);
    drawField(cr, kVolumeDisplay);
    drawRule(cr, kCardLeft + 4, kCardRight - 4, 166);

    // Filter.
    label(cr, "Filter", 13, 178, Align::kLeft);
    drawField(cr, kFilterMenu);
    label(cr, "Cutoff", 13, 207, Align::kLeft);
    drawSliderGroove(cr, kCutoffSlider, true);
    label(cr, "Reso", 13, 231, Align::kLeft);
    drawSliderGroove(cr, kResonanceSlider, true);
    drawRule(cr, kCardLeft + 4, kCardRight - 4, 251);

    // Routing out.
    label(cr, "Out", 13, 269, Align::kLeft);
    drawField(cr, kOutputMenu);

    cairo_destroy(cr);
    return s;
}

cairo_surface_t* drawPanel(double scale) {
    cairo_surface_t* s = newCanvas(kStripWidth, kPanelHeight, scale);
    cairo_t* cr = drawingContext(s, scale);
    const double cardW = kCardRight - kCardLeft;
    drawCard(cr, kCardLeft, kPanelCardTop, cardW, kPanelCardBottom - kPanelCardTop,
             palette::kPanelTop, palette::kPanelBottom);
    // A cyan accent line marks the modulator section, as amber marks the taps.
    cairo_rectangle(cr, kCardLeft + 3, kPanelCardTop + 1, cardW - 6, 1.5);
    setColor(cr, palette::kCyan);
    cairo_fill(cr);
    drawSpacedText(cr, "MOD", kCardRight - 5, 10, 6.5, true, 0.8, Align::kRight,
                   palette::kLabelDim, false);

    drawField(cr, kIndexMenu);
    label(cr, "Speed", kSpeedDisplay.centerX(), 55, Align::kCenter);
    drawKnobDial(cr, kSpeedKnob);
    drawField(cr, kSpeedDisplay);
    label(cr, "Min", 13, 82, Align::kLeft);
    drawSliderGroove(cr, kMinSlider, false);
    label(cr, "Max", 13, 102, Align::kLeft);
    drawSliderGroove(cr, kMaxSlider, false);

    cairo_destroy(cr);
    return s;
}

cairo_surface_t* drawSyncButton(double scale) {
    cairo_surface_t* s = newCanvas(kSyncSize.width, kSyncSize.height, scale);
    cairo_t* cr = drawingContext(s, scale);
    const double w = kSyncSize.width, h = kSyncSize.height / 2.0;
    for (int state = 0; state < 2; ++state) {
        const bool on = state == 1;
        const double y = state * h;
        drawButtonFace(cr, 0, y, w, h, on);
        // LED at the left, the word to its right.
        cairo_arc(cr, 5, y + h / 2, 1.6, 0, 2 * M_PI);
        setColor(cr, on ? palette::kLedOn : palette::kLedOff);
        cairo_fill(cr);
        if (!on) {
            cairo_arc(cr, 5, y + h / 2, 1.6, 0, 2 * M_PI);
            setColor(cr, palette::kAmberDim);
            cairo_set_line_width(cr, 0.8);
            cairo_stroke(cr);
        }
        drawText(cr, "SYNC", 18, y + 10, 6.5, true, Align::kCenter,
                 on ? palette::kOnInk : palette::kLabel, !on);
    }
    cairo_destroy(cr);
    return s;
}

cairo_surface_t* drawSliderHandle(double scale) {
    cairo_surface_t* s = newCanvas(kSliderHandleSize.width, kSliderHandleSize.height, scale);
    cairo_t* cr = drawingContext(s, scale);
    const double w = kSliderHandleSize.width, h = kSliderHandleSize.height;
    roundedRect(cr, 0, 0, w, h, 2);
    setColor(cr, rgb(0x000000, 0.8));
    cairo_fill(cr);
    roundedRect(cr, 1, 0.5, w - 2, h - 1.5, 1.5);
    fillHorizontal(cr, 0, w, palette::kHandleLight, palette::kHandleShade);
    // The amber index line marks the handle's value position.
    cairo_rectangle(cr, std::floor(w / 2), 2, 1, h - 4);
    setColor(cr, palette::kAmberDeep);
    cairo_fill(cr);
    cairo_destroy(cr);
    return s;
}

cairo_surface_t* drawPowerButton(double scale) {
    cairo_surface_t* s = newCanvas(kPowerSize.width, kPowerSize.height, scale);
    cairo_t* cr = drawingContext(s, scale);
    const double size = kPowerSize.width, h = kPowerSize.height / 2.0;
    for (int state = 0; state < 2; ++state) {
        const bool on = state == 1;
        const double cx = size / 2, cy = state * h + h / 2, r = size / 2 - 0.5;
        cairo_arc(cr, cx, cy, r, 0, 2 * M_PI);
        setColor(cr, rgb(0x000000, 0.8));
        cairo_fill(cr);
        cairo_arc(cr, cx, cy, r - 1, 0, 2 * M_PI);
        if (on) {
            fillVertical(cr, cy - r, cy + r, palette::kAmberLit, palette::kAmberDeep);
        } else {
            fillVertical(cr, cy - r, cy + r, palette::kButtonTop, palette::kButtonDark);
        }
        // The power symbol: an open ring with a bar through its gap.
        const Color ink = on ? palette::kOnInk : palette::kLabel;
        cairo_set_line_width(cr, 1.3);
        cairo_set_line_cap(cr, CAIRO_LINE_CAP_ROUND);
        cairo_arc(cr, cx, cy + 0.3, 3.2, -M_PI / 2 + 0.75, 3 * M_PI / 2 - 0.75);
        setColor(cr, ink);
        cairo_stroke(cr);
        cairo_move_to(cr, cx, cy - 4);
        cairo_line_to(cr, cx, cy - 0.2);
        cairo_stroke(cr);
    }
    cairo_destroy(cr);
    return s;
}

namespace {

// The wave drawn in one position of the Type switch, x and result in 0..1.
double typeWave(int type, double x) {
    switch (type) {
        case 0:
            return 0.5 + 0.5 * std::sin(2 * M_PI * x);
        case 1:
            return x < 0.5 ? 1.0 : 0.0;
        case 2:
            // Two teeth, so that the drop reads as a ramp that restarts.
            return x < 0.5 ? x * 2 : x * 2 - 1;
        default: {
            static const double steps[8] = {0.3, 0.75, 1.0, 0.55, 0.15, 0.45, 0.85, 0.0};
            return steps[std::min(7, static_cast<int>(x * 8))];
        }
    }
}

// A small dark screen, the look shared by the Type switch and the table view.
void drawScreen(cairo_t* cr, double x, double y, double w, double h) {
    roundedRect(cr, x, y, w, h, 2.5);
    setColor(cr, rgb(0x000000, 0.85));
    cairo_fill(cr);
    roundedRect(cr, x + 1, y + 1, w - 2, h - 2, 2);
    fillVertical(cr, y, y + h, palette::kScreenTop, palette::kScreen);
    cairo_move_to(cr, x + 2, y + h - 0.5);
    cairo_line_to(cr, x + w - 2, y + h - 0.5);
    setColor(cr, palette::kFieldEdge);
    cairo_set_line_width(cr, 1);
    cairo_stroke(cr);
}

}  // namespace

cairo_surface_t* drawTypeSwitch(double scale) {
    cairo_surface_t* s = newCanvas(kTypeSize.width, kTypeSize.height, scale);
    cairo_t* cr = drawingContext(s, scale);
    const double w = kTypeSize.width, h = kTypeSize.height / 4.0;
    for (int type = 0; type < 4; ++type) {
        const double y = type * h;
        drawScreen(cr, 0, y, w, h - 1);
        // The wave, with a soft glow under a crisp line.
        const double x0 = 3.5, x1 = w - 3.5, top = y + 3.5, bottom = y + h - 4.5;
        auto trace = [&] {
            cairo_new_path(cr);
            const int n = 64;
            for (int i = 0; i <= n; ++i) {
                const double t = static_cast<double>(i) / n;
                const double v = typeWave(type, t);
                const double px = x0 + (x1 - x0) * t, py = bottom - (bottom - top) * v;
                if (i == 0) {
                    cairo_move_to(cr, px, py);
                } else if (type != 0) {
                    // Square, ramp and table jump: draw their edges upright.
                    double cx, cy;
                    cairo_get_current_point(cr, &cx, &cy);
                    cairo_line_to(cr, px, cy);
                    cairo_line_to(cr, px, py);
                } else {
                    cairo_line_to(cr, px, py);
                }
            }
        };
        cairo_set_line_join(cr, CAIRO_LINE_JOIN_ROUND);
        trace();
        setColor(cr, withAlpha(palette::kCyan, 0.25));
        cairo_set_line_width(cr, 3);
        cairo_stroke(cr);
        trace();
        setColor(cr, palette::kCyan);
        cairo_set_line_width(cr, 1.1);
        cairo_stroke(cr);
    }
    cairo_destroy(cr);
    return s;
}

cairo_surface_t* drawTableView(double scale) {
    cairo_surface_t* s = newCanvas(kTableViewSize.width, kTableViewSize.height, scale);
    cairo_t* cr = drawingContext(s, scale);
    const double w = kTableViewSize.width, h = kTableViewSize.height;
    drawScreen(cr, 0, 0, w, h);
    // Alternate columns of the plot area a shade lighter, so the eight points
    // read as cells; the toolkit's grid and curve go over them.
    const double plotW = w - 2 * kTableInset, plotH = h - 2 * kTableInset;
    for (int c = 0; c < kTableColumns; c += 2) {
        cairo_rectangle(cr, kTableInset + plotW * c / kTableColumns, kTableInset,
                        plotW / kTableColumns, plotH);
        setColor(cr, withAlpha(palette::kCyan, 0.06));
        cairo_fill(cr);
    }
    cairo_rectangle(cr, kTableInset - 0.5, kTableInset - 0.5, plotW + 1, plotH + 1);
    setColor(cr, withAlpha(palette::kCyan, 0.35));
    cairo_set_line_width(cr, 1);
    cairo_stroke(cr);
    cairo_destroy(cr);
    return s;
}

cairo_surface_t* drawTableToggle(double scale) {
    cairo_surface_t* s = newCanvas(kTableToggleSize.width, kTableToggleSize.height, scale);
    cairo_t* cr = drawingContext(s, scale);
    const double w = kTableToggleSize.width, h = kTableToggleSize.height / 2.0;
    for (int state = 0; state < 2; ++state) {
        const bool on = state == 1;
        const double y = state * h;
        drawButtonFace(cr, 0, y, w, h, on);
        // Three bars of a table, the toggle's icon.
        static const double bars[3] = {3, 6, 4};
        for (int b = 0; b < 3; ++b) {
            cairo_rectangle(cr, 1.5 + b * 1.7, y + h - 2.5 - bars[b], 1.2, bars[b]);
        }
        setColor(cr, on ? palette::kOnInk : palette::kLabel);
        cairo_fill(cr);
    }
    cairo_destroy(cr);
    return s;
}

cairo_surface_t* drawMenuHandle(double scale) {
    cairo_surface_t* s = newCanvas(kMenuHandleSize.width, kMenuHandleSize.height, scale);
    cairo_t* cr = drawingContext(s, scale);
    const double w = kMenuHandleSize.width;
    // The handle covers the menu strip from y 5 to 350 in editor coordinates.
    const double tabBottom = kMenuStrip.bottom - 2 - kMenuHandleTop;
    drawCard(cr, 2, 0, w - 2, tabBottom, palette::kCardTop, palette::kCardBottom);
    cairo_rectangle(cr, 5, 1, w - 8, 1.5);
    setColor(cr, palette::kAmber);
    cairo_fill(cr);

    // Menu glyph: three bars and a small down-pointing caret.
    for (int i = 0; i < 3; ++i) {
        roundedRect(cr, 9, 9 + i * 4, 11, 2, 1);
    }
    setColor(cr, palette::kLabel);
    cairo_fill(cr);
    cairo_move_to(cr, 21.5, 13);
    cairo_line_to(cr, 25.5, 13);
    cairo_line_to(cr, 23.5, 15.5);
    cairo_close_path(cr);
    cairo_fill(cr);
    drawRule(cr, 7, w - 5, 25);

    // The word mark, reading upwards along the strip.
    cairo_save(cr);
    cairo_translate(cr, w / 2 + 6.5, tabBottom / 2 + 18);
    cairo_rotate(cr, -M_PI / 2);
    drawSpacedText(cr, "VARI", -1, 0, 16, true, 2.5, Align::kRight, palette::kWordMark);
    drawSpacedText(cr, "TAP", 1.5, 0, 16, true, 2.5, Align::kLeft, palette::kAmber);
    cairo_restore(cr);
    cairo_save(cr);
    cairo_translate(cr, w / 2 + 3.5, tabBottom - 12);
    cairo_rotate(cr, -M_PI / 2);
    drawSpacedText(cr, "MENU", 0, 0, 7, true, 1.2, Align::kLeft, palette::kLabelDim, false);
    cairo_restore(cr);

    // The wet/dry knob sits below the strip.
    const double knobTop = kWetDryKnob.top - kMenuHandleTop - 5;
    drawCard(cr, 2, knobTop, w - 2, kMenuHandleSize.height - knobTop, palette::kCardTop,
             palette::kCardBottom);
    const Rect knob{kWetDryKnob.left, kWetDryKnob.top - kMenuHandleTop,
                    kWetDryKnob.right, kWetDryKnob.bottom - kMenuHandleTop};
    drawKnobDial(cr, knob);
    drawText(cr, "Mix", kWetDryKnob.centerX(), kMenuHandleSize.height - 4, kLabelSize, false, Align::kCenter,
             palette::kLabel);

    cairo_destroy(cr);
    return s;
}

const std::vector<EditorBitmap>& editorBitmaps() {
    static const std::vector<EditorBitmap> list = {
        {2, kAboutSize.width, kAboutSize.height, drawAboutBox},
        {3, kMenuHandleSize.width, kMenuHandleSize.height, drawMenuHandle},
        {100, kStripWidth, kStripHeight, drawStrip},
        {101, kSyncSize.width, kSyncSize.height, drawSyncButton},
        {102, kSliderHandleSize.width, kSliderHandleSize.height, drawSliderHandle},
        {200, kStripWidth, kPanelHeight, drawPanel},
        {201, kPowerSize.width, kPowerSize.height, drawPowerButton},
        {202, kTypeSize.width, kTypeSize.height, drawTypeSwitch},
        {300, kTableViewSize.width, kTableViewSize.height, drawTableView},
        {301, kTableToggleSize.width, kTableToggleSize.height, drawTableToggle},
    };
    return list;
}

const EditorBitmap* findEditorBitmap(int resourceNumber) {
    for (const EditorBitmap& b : editorBitmaps()) {
        if (b.resourceNumber == resourceNumber) return &b;
    }
    return nullptr;
}

}  // namespace varitap::art
