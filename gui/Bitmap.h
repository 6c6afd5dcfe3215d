// Pictures decoded from PNG files into cairo image surfaces: by resource
// number from the plug-in bundle ("bmp%05d") or by file path, or drawn by
// the caller for a scale. A bitmap's width and height are logical pixels;
// its picture has scale() device pixels for each of them.
#pragma once

#include <cairo.h>

#include <mutex>
#include <string>

#include "gui/GuiTypes.h"
#include "persistence/RefObject.h"

namespace varitap::gui {

class Bitmap : public RefObject {
public:
    // An empty bitmap (width and height 0, draws nothing).
    Bitmap() = default;
    // ui. Loads resource "bmp%05d" of the bundle, trying the types "bmp", "png",
    // "jpg" and "pict" in turn; a file that is not a PNG, or none at all,
    // leaves the bitmap empty.
    explicit Bitmap(int resourceNumber);
    // ui. Loads a PNG file; empty on failure.
    explicit Bitmap(const std::string& path);
    ~Bitmap() override;

    bool isLoaded() const { return surface_ != nullptr; }
    int width() const { return width_; }
    int height() const { return height_; }
    // Device pixels per logical pixel of the picture: 1 for a decoded file.
    double scale() const { return scale_; }
    int resourceNumber() const { return resourceNumber_; }
    // The decoded picture (ARGB32), or null; owned by the bitmap.
    cairo_surface_t* surface() const { return surface_; }
    // any thread (drawing). The picture for another scale: resampled smoothly
    // once and kept until the picture or the scale asked for changes; the
    // picture itself for its own scale. Owned by the bitmap; null when empty.
    cairo_surface_t* surfaceFor(double scale) const;

    // ui. The pictures below replace the current one in place, so that views
    // holding the bitmap show the new one at their next drawing (callers in
    // a frame hold its guard). Each leaves the bitmap empty on failure.
    // Loads a PNG file at scale 1; false on failure.
    bool loadFile(const std::string& path);
    // Loads the bundle's resource "bmp%05d" as the constructor does.
    bool loadResource(int resourceNumber);
    // Takes over a picture drawn at scale for width x height logical pixels
    // (the bitmap destroys it); false, and empty, for a null or failed one.
    bool setPicture(cairo_surface_t* picture, int width, int height, double scale);

    // "bmp%05d" of a resource number, into a buffer of at least 16 bytes.
    static void resourceName(int resourceNumber, char* name, size_t size);
    // ui. Where resources are looked for: the bundle's Contents/Resources
    // unless a directory was set (tests, the demo). An empty path restores
    // the bundle.
    static void setResourceDirectory(const std::string& directory);
    static std::string resourceDirectory();

private:
    cairo_surface_t* surface_ = nullptr;
    // The resampled copy surfaceFor() keeps, and its scale.
    mutable std::mutex resampledMutex_;
    mutable cairo_surface_t* resampled_ = nullptr;
    mutable double resampledScale_ = 0.0;
    int width_ = 0;
    int height_ = 0;
    double scale_ = 1.0;
    int resourceNumber_ = -1;
};

}  // namespace varitap::gui
