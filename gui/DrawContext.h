// The drawing context handed to views: a thin wrapper around a cairo_t with
// the current line, fill and font settings. Coordinates are logical and those
// of the view's parent (the origin is moved as containers draw their
// children); the context's scale maps them to device pixels. This is the one
// place where the scale meets drawing: views never multiply by it.
#pragma once

#include <cairo.h>

#include "gui/GuiTypes.h"

namespace varitap::gui {

class Bitmap;

class DrawContext {
public:
    // Borrows cr; the caller keeps ownership. scale: device pixels per
    // logical pixel, applied to cr here. Clips, fills, outlines, straight
    // lines, text origins and pictures then keep their edges on whole device
    // pixels, so that they stay sharp at fractional scales too.
    explicit DrawContext(cairo_t* cr, double scale = 1.0);
    DrawContext(const DrawContext&) = delete;
    DrawContext& operator=(const DrawContext&) = delete;

    cairo_t* cairo() const { return cr_; }
    double scale() const { return scale_; }

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
    // Width in logical pixels of text in the current font, as drawn here.
    double stringWidth(const char* utf8);
    // The width the text has at scale 1, where glyphs are hinted to other
    // widths: a text cut to fit a field by it fits the same way at any scale.
    double layoutWidth(const char* utf8);
    // Draws the part of bitmap starting at srcOffset (logical pixels) into
    // dest. A bitmap drawn for this context's scale is copied pixel for pixel;
    // one of another scale (a photo that has no vector source) is resampled
    // smoothly, once (Bitmap::surfaceFor).
    void drawBitmap(const Bitmap& bitmap, const Rect& dest, Point srcOffset = Point());

    // Moves the origin (containers call this around their children).
    void translate(int dx, int dy);
    // Restricts drawing to r (its edges moved to the nearest device pixel
    // edges) until the matching restore().
    void save();
    void clipTo(const Rect& r);
    void restore();

private:
    // A rectangle's edges in device pixels, rounded to whole pixels.
    struct DeviceBox {
        double left, top, right, bottom;
    };
    DeviceBox deviceBox(const Rect& r) const;
    // Adds a device-space rectangle to the path (the matrix is kept).
    void deviceRectangle(double x, double y, double w, double h);
    // A line width in whole device pixels (at least one).
    double deviceLineWidth() const;
    void applyColor(Color c);
    void applyFont();

    cairo_t* cr_;
    double scale_;
    Point pen_;
    Color lineColor_ = kBlackColor;
    Color fillColor_ = kWhiteColor;
    Color fontColor_ = kBlackColor;
    double lineWidth_ = 1.0;
    int fontId_ = kSystemFont;
};

}  // namespace varitap::gui
