// The drawing context handed to views: a thin wrapper around a cairo_t with
// the current line, fill and font settings. Coordinates are those of the
// view's parent (the origin is moved as containers draw their children).
#pragma once

#include <cairo.h>

#include "gui/GuiTypes.h"

namespace varitap::gui {

class Bitmap;

class DrawContext {
public:
    // Borrows cr; the caller keeps ownership.
    explicit DrawContext(cairo_t* cr);
    DrawContext(const DrawContext&) = delete;
    DrawContext& operator=(const DrawContext&) = delete;

    cairo_t* cairo() const { return cr_; }

    void setLineColor(Color c) { lineColor_ = c; }
    Color lineColor() const { return lineColor_; }
    void setLineWidth(double w) { lineWidth_ = w; }
    double lineWidth() const { return lineWidth_; }
    void setFillColor(Color c) { fillColor_ = c; }
    Color fillColor() const { return fillColor_; }
    void setFontColor(Color c) { fontColor_ = c; }
    Color fontColor() const { return fontColor_; }
    void setFont(int fontId);
    int font() const { return fontId_; }

    // Lines: pen position, then a line to a point in the line colour and width.
    void moveTo(Point p);
    void lineTo(Point p);
    void drawLine(Point from, Point to);
    // Outline of r (in the line colour) and/or its inside (in the fill colour).
    void drawRect(const Rect& r);
    void fillRect(const Rect& r);
    // Text in the font colour inside r, vertically centred, clipped to r.
    void drawString(const char* utf8, const Rect& r, HoriAlign align = HoriAlign::Center);
    // Width in pixels of text in the current font.
    double stringWidth(const char* utf8);
    // Draws the part of bitmap starting at srcOffset into dest (no scaling).
    void drawBitmap(const Bitmap& bitmap, const Rect& dest, Point srcOffset = Point());

    // Moves the origin (containers call this around their children).
    void translate(int dx, int dy);
    // Restricts drawing to r until the matching restore().
    void save();
    void clipTo(const Rect& r);
    void restore();

private:
    void applyColor(Color c);
    void applyFont();

    cairo_t* cr_;
    Point pen_;
    Color lineColor_ = kBlackColor;
    Color fillColor_ = kWhiteColor;
    Color fontColor_ = kBlackColor;
    double lineWidth_ = 1.0;
    int fontId_ = kSystemFont;
};

}  // namespace varitap::gui
