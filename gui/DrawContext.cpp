#include "gui/DrawContext.h"

#include <algorithm>
#include <cmath>

#include "gui/Bitmap.h"
#include "gui/Font.h"

namespace varitap::gui {

DrawContext::DrawContext(cairo_t* cr, double scale)
    : cr_(cr), scale_(scale > 0.0 ? scale : 1.0) {
    if (scale_ != 1.0) cairo_scale(cr_, scale_, scale_);
    setFont(kSystemFont);
}

DrawContext::DeviceBox DrawContext::deviceBox(const Rect& r) const {
    double left = r.left, top = r.top, right = r.right, bottom = r.bottom;
    cairo_user_to_device(cr_, &left, &top);
    cairo_user_to_device(cr_, &right, &bottom);
    return {std::round(left), std::round(top), std::round(right), std::round(bottom)};
}

void DrawContext::deviceRectangle(double x, double y, double w, double h) {
    // The path is kept in device space once added: the matrix can go back.
    cairo_matrix_t user;
    cairo_get_matrix(cr_, &user);
    cairo_identity_matrix(cr_);
    cairo_rectangle(cr_, x, y, w, h);
    cairo_set_matrix(cr_, &user);
}

double DrawContext::deviceLineWidth() const {
    return std::max(1.0, std::round(lineWidth_ * scale_));
}

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
    // Odd widths sit on pixel centres so that a 1-pixel line covers one pixel;
    // in device pixels the line is a whole number of pixels wide and its
    // edges fall on pixel edges.
    const double shift = std::fmod(lineWidth_, 2.0) >= 0.5 ? 0.5 : 0.0;
    const double width = deviceLineWidth();
    double x0 = from.x + shift, y0 = from.y + shift, x1 = to.x + shift, y1 = to.y + shift;
    cairo_user_to_device(cr_, &x0, &y0);
    cairo_user_to_device(cr_, &x1, &y1);
    auto onEdges = [width](double c) { return std::round(c - width / 2.0) + width / 2.0; };
    cairo_save(cr_);
    cairo_identity_matrix(cr_);
    cairo_set_line_width(cr_, width);
    cairo_move_to(cr_, onEdges(x0), onEdges(y0));
    cairo_line_to(cr_, onEdges(x1), onEdges(y1));
    cairo_stroke(cr_);
    cairo_restore(cr_);
}

void DrawContext::drawRect(const Rect& r) {
    if (r.isEmpty()) return;
    applyColor(lineColor_);
    const DeviceBox box = deviceBox(r);
    const double width = deviceLineWidth();
    cairo_save(cr_);
    cairo_identity_matrix(cr_);
    cairo_set_line_width(cr_, width);
    cairo_rectangle(cr_, box.left + width / 2.0, box.top + width / 2.0,
                    box.right - box.left - width, box.bottom - box.top - width);
    cairo_stroke(cr_);
    cairo_restore(cr_);
}

void DrawContext::fillRect(const Rect& r) {
    if (r.isEmpty()) return;
    applyColor(fillColor_);
    const DeviceBox box = deviceBox(r);
    deviceRectangle(box.left, box.top, box.right - box.left, box.bottom - box.top);
    cairo_fill(cr_);
}

double DrawContext::stringWidth(const char* utf8) {
    if (!utf8 || !*utf8) return 0.0;
    applyFont();
    cairo_text_extents_t ext;
    cairo_text_extents(cr_, utf8, &ext);
    return ext.x_advance;
}

double DrawContext::layoutWidth(const char* utf8) {
    if (scale_ == 1.0) return stringWidth(utf8);
    cairo_save(cr_);
    cairo_identity_matrix(cr_);
    const double width = stringWidth(utf8);
    cairo_restore(cr_);
    return width;
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
    clipTo(r);
    applyColor(fontColor_);
    // The text's origin on a whole device pixel, where glyphs are hinted.
    double originX = x, originY = y;
    cairo_user_to_device(cr_, &originX, &originY);
    originX = std::round(originX);
    originY = std::round(originY);
    cairo_device_to_user(cr_, &originX, &originY);
    cairo_move_to(cr_, originX, originY);
    cairo_show_text(cr_, utf8);
    cairo_restore(cr_);
}

void DrawContext::drawBitmap(const Bitmap& bitmap, const Rect& dest, Point srcOffset) {
    if (!bitmap.surface() || dest.isEmpty()) return;
    cairo_save(cr_);
    clipTo(dest);
    // A bitmap drawn for this scale as it is, one of another scale (a photo)
    // resampled once for it: either way its pixels land on whole device
    // pixels, copied without further resampling.
    double x = dest.left - srcOffset.x, y = dest.top - srcOffset.y;
    cairo_user_to_device(cr_, &x, &y);
    cairo_identity_matrix(cr_);
    cairo_set_source_surface(cr_, bitmap.surfaceFor(scale_), std::round(x), std::round(y));
    cairo_paint(cr_);
    cairo_restore(cr_);
}

void DrawContext::translate(int dx, int dy) { cairo_translate(cr_, dx, dy); }

void DrawContext::save() { cairo_save(cr_); }

void DrawContext::clipTo(const Rect& r) {
    const DeviceBox box = deviceBox(r);
    deviceRectangle(box.left, box.top, box.right - box.left, box.bottom - box.top);
    cairo_clip(cr_);
}

void DrawContext::restore() {
    cairo_restore(cr_);
    applyFont();
}

}  // namespace varitap::gui
