// Every picture of the editor's art, drawn with cairo. Each function returns
// a new ARGB32 image surface that the caller destroys.
//
// The editor bitmaps are drawn from this vector source twice: at build time
// at scale 1 into the bundle's PNGs (varitap_artgen), and at run time by the
// editor at its own scale when that is not 100 % (the varitap_painter library),
// so that the art is as sharp at 200 % as at 100 %. scale is device pixels
// per logical pixel; a picture of w x h logical pixels has
// ceil(w * scale) x ceil(h * scale) pixels.
#pragma once

#include <cairo.h>

#include <string>
#include <vector>

namespace varitap::art {

cairo_surface_t* drawAboutBox(double scale = 1.0);       // bitmap 2
cairo_surface_t* drawMenuHandle(double scale = 1.0);     // bitmap 3
cairo_surface_t* drawStrip(double scale = 1.0);          // bitmap 100
cairo_surface_t* drawSyncButton(double scale = 1.0);     // bitmap 101
cairo_surface_t* drawSliderHandle(double scale = 1.0);   // bitmap 102
cairo_surface_t* drawPanel(double scale = 1.0);          // bitmap 200
cairo_surface_t* drawPowerButton(double scale = 1.0);    // bitmap 201
cairo_surface_t* drawTypeSwitch(double scale = 1.0);     // bitmap 202
cairo_surface_t* drawTableView(double scale = 1.0);      // bitmap 300
cairo_surface_t* drawTableToggle(double scale = 1.0);    // bitmap 301

// The editor bitmaps by resource number ("bmp%05d"), with their logical size.
struct EditorBitmap {
    int resourceNumber;
    int width;
    int height;
    cairo_surface_t* (*draw)(double scale);
};
const std::vector<EditorBitmap>& editorBitmaps();
// The entry of a resource number, null when the art has none.
const EditorBitmap* findEditorBitmap(int resourceNumber);

// The background pictures, 865 x 400 each; the first is "default.png".
struct Background {
    std::string fileName;
    cairo_surface_t* (*draw)();
};
const std::vector<Background>& backgrounds();

// The editor bitmaps by resource number, for the mock-up.
struct EditorBitmaps {
    cairo_surface_t* about;
    cairo_surface_t* menuHandle;
    cairo_surface_t* strip;
    cairo_surface_t* sync;
    cairo_surface_t* sliderHandle;
    cairo_surface_t* panel;
    cairo_surface_t* power;
    cairo_surface_t* type;
    cairo_surface_t* tableView;
    cairo_surface_t* tableToggle;
};

// A full 865 x 400 picture of the editor as the toolkit will show it:
// background, every bitmap at its place and sample values drawn the way the
// toolkit draws text, knobs and sliders. With outlines, the strips, panels
// and every knob and slider rectangle are outlined to judge the fit.
cairo_surface_t* drawPreview(const EditorBitmaps& bitmaps, cairo_surface_t* background,
                             bool outlines);
// The about overlay as shown: bitmap 2 with the version, date and link texts.
cairo_surface_t* drawAboutPreview(cairo_surface_t* about);

}  // namespace varitap::art
