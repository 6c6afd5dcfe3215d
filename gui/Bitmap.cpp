#include "gui/Bitmap.h"

#include <cstdio>
#include <mutex>

#include "persistence/PluginBundle.h"

namespace varitap::gui {

namespace {

std::mutex& directoryMutex() {
    static std::mutex m;
    return m;
}

std::string& directoryOverride() {
    static std::string d;
    return d;
}

bool fileExists(const std::string& path) {
    FILE* f = std::fopen(path.c_str(), "rb");
    if (!f) return false;
    std::fclose(f);
    return true;
}

}  // namespace

Bitmap::Bitmap(int resourceNumber) { loadResource(resourceNumber); }

bool Bitmap::loadResource(int resourceNumber) {
    setPicture(nullptr, 0, 0, 1.0);
    resourceNumber_ = resourceNumber;
    char name[32];
    resourceName(resourceNumber, name, sizeof name);
    std::string dir;
    {
        std::lock_guard<std::mutex> lock(directoryMutex());
        dir = directoryOverride();
    }
    const std::string bundle = dir.empty() ? copyPluginBundle() : std::string();
    if (dir.empty() && bundle.empty()) return false;
    // The resource may carry any of the picture types; only PNG data decodes.
    for (const char* type : {"bmp", "png", "jpg", "pict"}) {
        const std::string path = dir.empty() ? bundleResourcePath(bundle, name, type)
                                             : dir + "/" + name + "." + type;
        if (!path.empty() && fileExists(path) && loadFile(path)) return true;
    }
    return false;
}

Bitmap::Bitmap(const std::string& path) { loadFile(path); }

Bitmap::~Bitmap() { setPicture(nullptr, 0, 0, 1.0); }

cairo_surface_t* Bitmap::surfaceFor(double scale) const {
    if (!surface_ || scale == scale_ || !(scale > 0.0)) return surface_;
    std::lock_guard<std::mutex> lock(resampledMutex_);
    if (resampled_ && resampledScale_ == scale) return resampled_;
    if (resampled_) cairo_surface_destroy(resampled_);
    const Rect pixels = PixelScale(scale).toDevice(Rect(0, 0, width_, height_));
    resampled_ = cairo_image_surface_create(CAIRO_FORMAT_ARGB32, pixels.width(), pixels.height());
    resampledScale_ = scale;
    cairo_t* cr = cairo_create(resampled_);
    cairo_scale(cr, scale / scale_, scale / scale_);
    cairo_set_source_surface(cr, surface_, 0, 0);
    // The edges keep their own pixels instead of fading into nothing.
    cairo_pattern_set_extend(cairo_get_source(cr), CAIRO_EXTEND_PAD);
    cairo_pattern_set_filter(cairo_get_source(cr), CAIRO_FILTER_GOOD);
    cairo_paint(cr);
    cairo_destroy(cr);
    return resampled_;
}

bool Bitmap::loadFile(const std::string& path) {
    cairo_surface_t* s = cairo_image_surface_create_from_png(path.c_str());
    return setPicture(s, cairo_image_surface_get_width(s), cairo_image_surface_get_height(s), 1.0);
}

bool Bitmap::setPicture(cairo_surface_t* picture, int width, int height, double scale) {
    if (surface_) cairo_surface_destroy(surface_);
    surface_ = nullptr;
    {
        std::lock_guard<std::mutex> lock(resampledMutex_);
        if (resampled_) cairo_surface_destroy(resampled_);
        resampled_ = nullptr;
        resampledScale_ = 0.0;
    }
    width_ = height_ = 0;
    scale_ = 1.0;
    if (!picture) return false;
    if (cairo_surface_status(picture) != CAIRO_STATUS_SUCCESS || !(scale > 0.0)) {
        cairo_surface_destroy(picture);
        return false;
    }
    surface_ = picture;
    width_ = width;
    height_ = height;
    scale_ = scale;
    return true;
}

void Bitmap::resourceName(int resourceNumber, char* name, size_t size) {
    std::snprintf(name, size, "bmp%05d", resourceNumber);
}

void Bitmap::setResourceDirectory(const std::string& directory) {
    std::lock_guard<std::mutex> lock(directoryMutex());
    directoryOverride() = directory;
}

std::string Bitmap::resourceDirectory() {
    {
        std::lock_guard<std::mutex> lock(directoryMutex());
        if (!directoryOverride().empty()) return directoryOverride();
    }
    const std::string bundle = copyPluginBundle();
    if (bundle.empty()) return std::string();
    return bundle + "/Contents/Resources";
}

}  // namespace varitap::gui
