#include "gui/Font.h"

#include <cairo-ft.h>
#include <fontconfig/fontconfig.h>

#include <mutex>
#include <string>

namespace varitap::gui {

namespace {

struct FontSpec {
    const char* family;
    double size;
};

constexpr FontSpec kFonts[kNumFonts] = {
    {"Helvetica", 12}, {"Helvetica", 18}, {"Helvetica", 14}, {"Helvetica", 12},
    {"Helvetica", 10}, {"Helvetica", 9},  {"Helvetica", 9},  {"Symbol", 12},
};

// The faces of the open frames, created on first use. Several frames (each
// with its own drawing timer) may ask at once, hence the mutex; a face lives
// until the last open frame closes, so a face handed out stays valid while
// the frame that asked is open.
struct FontCache {
    std::mutex mutex;
    cairo_font_face_t* faces[kNumFonts] = {};
    std::string resolved[kNumFonts];
    int users = 0;
};

FontCache& cache() {
    static FontCache c;
    return c;
}

int clampId(int fontId) { return fontId >= 0 && fontId < kNumFonts ? fontId : 0; }

// Asks fontconfig for the best face of a family and wraps it for cairo.
cairo_font_face_t* matchFace(const char* family, std::string& resolved) {
    FcPattern* pattern = FcPatternCreate();
    if (!pattern) return nullptr;
    FcPatternAddString(pattern, FC_FAMILY, reinterpret_cast<const FcChar8*>(family));
    FcConfigSubstitute(nullptr, pattern, FcMatchPattern);
    FcDefaultSubstitute(pattern);
    FcResult result = FcResultNoMatch;
    FcPattern* match = FcFontMatch(nullptr, pattern, &result);
    FcPatternDestroy(pattern);
    if (!match) return nullptr;
    FcChar8* name = nullptr;
    if (FcPatternGetString(match, FC_FAMILY, 0, &name) == FcResultMatch && name) {
        resolved = reinterpret_cast<const char*>(name);
    }
    // cairo keeps its own reference on the pattern.
    cairo_font_face_t* face = cairo_ft_font_face_create_for_pattern(match);
    FcPatternDestroy(match);
    if (cairo_font_face_status(face) != CAIRO_STATUS_SUCCESS) {
        cairo_font_face_destroy(face);
        return nullptr;
    }
    return face;
}

}  // namespace

const char* fontFamily(int fontId) { return kFonts[clampId(fontId)].family; }

double fontSize(int fontId) { return kFonts[clampId(fontId)].size; }

cairo_font_face_t* fontFace(int fontId) {
    const int id = clampId(fontId);
    FontCache& c = cache();
    std::lock_guard<std::mutex> lock(c.mutex);
    if (!c.faces[id]) c.faces[id] = matchFace(kFonts[id].family, c.resolved[id]);
    return c.faces[id];
}

const char* resolvedFontFamily(int fontId) {
    const int id = clampId(fontId);
    fontFace(id);
    FontCache& c = cache();
    std::lock_guard<std::mutex> lock(c.mutex);
    return c.resolved[id].c_str();
}

void retainFonts() {
    FontCache& c = cache();
    std::lock_guard<std::mutex> lock(c.mutex);
    ++c.users;
}

void releaseFonts() {
    FontCache& c = cache();
    std::lock_guard<std::mutex> lock(c.mutex);
    if (c.users > 0) --c.users;
    if (c.users > 0) return;
    for (int i = 0; i < kNumFonts; ++i) {
        if (c.faces[i]) cairo_font_face_destroy(c.faces[i]);
        c.faces[i] = nullptr;
        c.resolved[i].clear();
    }
}

}  // namespace varitap::gui
