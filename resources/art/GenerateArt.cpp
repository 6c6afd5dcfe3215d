// varitap_artgen: draws the editor's art and writes it as PNG files.
//
//   varitap_artgen <resources-folder> [<preview-folder>]
//
// Writes bmp00002.png ... bmp00301.png into the resources folder and the
// background pictures into its "Backgrounds" subfolder. With a preview
// folder, also writes mock-ups of the editor there: art-preview.png (every
// strip, panel, knob and slider rectangle outlined), one clean mock-up per
// background (art-mockup-<name>.png) and the about box (art-about.png).
// Exits with 1 when a file cannot be written.
#include <cairo.h>
#include <fontconfig/fontconfig.h>
#include <sys/stat.h>

#include <cstdio>
#include <map>
#include <string>

#include "resources/art/Art.h"

using namespace varitap::art;

namespace {

bool writePng(cairo_surface_t* surface, const std::string& path) {
    const bool ok = cairo_surface_write_to_png(surface, path.c_str()) == CAIRO_STATUS_SUCCESS;
    return ok;
}

bool makeFolder(const std::string& path) {
    struct stat st;
    if (stat(path.c_str(), &st) == 0) return S_ISDIR(st.st_mode);
    return mkdir(path.c_str(), 0755) == 0;
}

std::string stem(const std::string& fileName) {
    const size_t dot = fileName.rfind('.');
    return dot == std::string::npos ? fileName : fileName.substr(0, dot);
}

}  // namespace

int main(int argc, char** argv) {
    if (argc < 2) return 1;
    const std::string resources = argv[1];
    const std::string previews = argc > 2 ? argv[2] : "";
    bool ok = makeFolder(resources) && makeFolder(resources + "/Backgrounds");
    if (!previews.empty()) ok = ok && makeFolder(previews);
    if (!ok) return 1;

    // The editor bitmaps at scale 1, by resource number.
    std::map<int, cairo_surface_t*> drawn;
    for (const EditorBitmap& bitmap : editorBitmaps()) {
        cairo_surface_t* surface = bitmap.draw(1.0);
        drawn[bitmap.resourceNumber] = surface;
        char name[32];
        std::snprintf(name, sizeof name, "/bmp%05d.png", bitmap.resourceNumber);
        ok = writePng(surface, resources + name) && ok;
    }
    const EditorBitmaps b{drawn[2],   drawn[3],   drawn[100], drawn[101], drawn[102],
                          drawn[200], drawn[201], drawn[202], drawn[300], drawn[301]};

    for (const Background& background : backgrounds()) {
        cairo_surface_t* picture = background.draw();
        ok = writePng(picture, resources + "/Backgrounds/" + background.fileName) && ok;
        if (!previews.empty()) {
            if (&background == &backgrounds().front()) {
                cairo_surface_t* outlined = drawPreview(b, picture, true);
                ok = writePng(outlined, previews + "/art-preview.png") && ok;
                cairo_surface_destroy(outlined);
            }
            cairo_surface_t* mockup = drawPreview(b, picture, false);
            ok = writePng(mockup, previews + "/art-mockup-" + stem(background.fileName) + ".png") &&
                 ok;
            cairo_surface_destroy(mockup);
        }
        cairo_surface_destroy(picture);
    }
    if (!previews.empty()) {
        cairo_surface_t* about = drawAboutPreview(b.about);
        ok = writePng(about, previews + "/art-about.png") && ok;
        cairo_surface_destroy(about);
    }

    for (const auto& entry : drawn) cairo_surface_destroy(entry.second);
    // Give back cairo's and fontconfig's caches so that leak checkers in the
    // sanitizer build see a clean exit.
    cairo_debug_reset_static_data();
    FcFini();
    return ok ? 0 : 1;
}
