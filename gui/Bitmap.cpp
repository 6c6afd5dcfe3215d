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

Bitmap::Bitmap(int resourceNumber) : resourceNumber_(resourceNumber) {
    char name[32];
    resourceName(resourceNumber, name, sizeof name);
    std::string dir;
    {
        std::lock_guard<std::mutex> lock(directoryMutex());
        dir = directoryOverride();
    }
    const std::string bundle = dir.empty() ? copyPluginBundle() : std::string();
    if (dir.empty() && bundle.empty()) return;
    // The resource may carry any of the picture types; only PNG data decodes.
    for (const char* type : {"bmp", "png", "jpg", "pict"}) {
        const std::string path = dir.empty() ? bundleResourcePath(bundle, name, type)
                                             : dir + "/" + name + "." + type;
        if (!path.empty() && fileExists(path) && loadFile(path)) return;
    }
}

Bitmap::Bitmap(const std::string& path) { loadFile(path); }

Bitmap::~Bitmap() {
    if (surface_) cairo_surface_destroy(surface_);
}

bool Bitmap::loadFile(const std::string& path) {
    if (surface_) cairo_surface_destroy(surface_);
    surface_ = nullptr;
    width_ = height_ = 0;
    cairo_surface_t* s = cairo_image_surface_create_from_png(path.c_str());
    if (cairo_surface_status(s) != CAIRO_STATUS_SUCCESS) {
        cairo_surface_destroy(s);
        return false;
    }
    surface_ = s;
    width_ = cairo_image_surface_get_width(s);
    height_ = cairo_image_surface_get_height(s);
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
