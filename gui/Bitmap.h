// Pictures decoded from PNG files into cairo image surfaces: by resource
// number from the plug-in bundle ("bmp%05d") or by file path.
#pragma once

#include <cairo.h>

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
    int resourceNumber() const { return resourceNumber_; }
    // The decoded picture (ARGB32), or null; owned by the bitmap.
    cairo_surface_t* surface() const { return surface_; }

    // Loads a PNG file in place of the current picture; false (and empty) on failure.
    bool loadFile(const std::string& path);

    // "bmp%05d" of a resource number, into a buffer of at least 16 bytes.
    static void resourceName(int resourceNumber, char* name, size_t size);
    // ui. Where resources are looked for: the bundle's Contents/Resources
    // unless a directory was set (tests, the demo). An empty path restores
    // the bundle.
    static void setResourceDirectory(const std::string& directory);
    static std::string resourceDirectory();

private:
    cairo_surface_t* surface_ = nullptr;
    int width_ = 0;
    int height_ = 0;
    int resourceNumber_ = -1;
};

}  // namespace varitap::gui
