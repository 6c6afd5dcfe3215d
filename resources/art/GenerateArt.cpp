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

    EditorBitmaps b{drawAboutBox(),    drawMenuHandle(),  drawStrip(),  drawSyncButton(),
                    drawSliderHandle(), drawPanel(),      drawPowerButton(), drawTypeSwitch(),
                    drawTableView(),   drawTableToggle()};
    const struct {
        int number;
        cairo_surface_t* surface;
    } files[] = {{2, b.about},    {3, b.menuHandle}, {100, b.strip}, {101, b.sync},
                 {102, b.sliderHandle}, {200, b.panel}, {201, b.power}, {202, b.type},
                 {300, b.tableView}, {301, b.tableToggle}};
    for (const auto& f : files) {
        char name[32];
        std::snprintf(name, sizeof name, "/bmp%05d.png", f.number);
        ok = writePng(f.surface, resources + name) && ok;
    }

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

    for (const auto& f : files) cairo_surface_destroy(f.surface);
    // Give back cairo's and fontconfig's caches so that leak checkers in the
    // sanitizer build see a clean exit.
    cairo_debug_reset_static_data();
    FcFini();
    return ok ? 0 : 1;
}
