#include "gui/DrawContext.h"

#include <cmath>

#include "gui/Bitmap.h"
#include "gui/Font.h"

namespace varitap::gui {

DrawContext::DrawContext(cairo_t* cr) : cr_(cr) { setFont(kSystemFont); }

void DrawContext::applyColor(Color c) {
    cairo_set_source_rgba(cr_, c.red / 255.0, c.green / 255.0, c.blue / 255.0, c.alpha / 255.0);
}

void DrawContext::setFont(int fontId) {
    fontId_ = fontId;
    applyFont();
}

void DrawContext::applyFont() {
    if (cairo_font_face_t* face = fontFace(fontId_)) cairo_set_font_face(cr_, face);
    cairo_set_font_size(cr_, fontSize(fontId_));
}

void DrawContext::moveTo(Point p) { pen_ = p; }

void DrawContext::lineTo(Point p) {
    drawLine(pen_, p);
    pen_ = p;
}

void DrawContext::drawLine(Point from, Point to) {
    applyColor(lineColor_);
    cairo_set_line_width(cr_, lineWidth_);
    // Odd widths sit on pixel centres so that a 1-pixel line covers one pixel.
    const double shift = std::fmod(lineWidth_, 2.0) >= 0.5 ? 0.5 : 0.0;
    cairo_move_to(cr_, from.x + shift, from.y + shift);
    cairo_line_to(cr_, to.x + shift, to.y + shift);
    cairo_stroke(cr_);
}

void DrawContext::drawRect(const Rect& r) {
    if (r.isEmpty()) return;
    applyColor(lineColor_);
    cairo_set_line_width(cr_, lineWidth_);
    const double half = lineWidth_ / 2.0;
    cairo_rectangle(cr_, r.left + half, r.top + half, r.width() - lineWidth_,
                    r.height() - lineWidth_);
    cairo_stroke(cr_);
}

void DrawContext::fillRect(const Rect& r) {
    if (r.isEmpty()) return;
    applyColor(fillColor_);
    cairo_rectangle(cr_, r.left, r.top, r.width(), r.height());
    cairo_fill(cr_);
}

double DrawContext::stringWidth(const char* utf8) {
    if (!utf8 || !*utf8) return 0.0;
    applyFont();
    cairo_text_extents_t ext;
    cairo_text_extents(cr_, utf8, &ext);
    return ext.x_advance;
}

void DrawContext::drawString(const char* utf8, const Rect& r, HoriAlign align) {
    if (!utf8 || !*utf8 || r.isEmpty()) return;
    applyFont();
    cairo_font_extents_t fe;
    cairo_font_extents(cr_, &fe);
    const double w = stringWidth(utf8);
    double x = r.left;
    if (align == HoriAlign::Center) {
        x = r.left + (r.width() - w) / 2.0;
    } else if (align == HoriAlign::Right) {
        x = r.right - w;
    }
    // Baseline so that the ascent and descent are centred in the rectangle.
    const double y = r.top + (r.height() - (fe.ascent + fe.descent)) / 2.0 + fe.ascent;
    cairo_save(cr_);
    cairo_rectangle(cr_, r.left, r.top, r.width(), r.height());
    cairo_clip(cr_);
    applyColor(fontColor_);
    cairo_move_to(cr_, std::round(x), std::round(y));
    cairo_show_text(cr_, utf8);
    cairo_restore(cr_);
}

void DrawContext::drawBitmap(const Bitmap& bitmap, const Rect& dest, Point srcOffset) {
    if (!bitmap.surface() || dest.isEmpty()) return;
    cairo_save(cr_);
    cairo_rectangle(cr_, dest.left, dest.top, dest.width(), dest.height());
    cairo_clip(cr_);
    cairo_set_source_surface(cr_, bitmap.surface(), dest.left - srcOffset.x,
                             dest.top - srcOffset.y);
    cairo_paint(cr_);
    cairo_restore(cr_);
}

void DrawContext::translate(int dx, int dy) { cairo_translate(cr_, dx, dy); }

void DrawContext::save() { cairo_save(cr_); }

void DrawContext::clipTo(const Rect& r) {
    cairo_rectangle(cr_, r.left, r.top, r.width(), r.height());
    cairo_clip(cr_);
}

void DrawContext::restore() {
    cairo_restore(cr_);
    applyFont();
}

}  // namespace varitap::gui
