// Every picture of the editor's art, drawn with cairo. Each function returns
// a new ARGB32 image surface that the caller destroys.
#pragma once

#include <cairo.h>

#include <string>
#include <vector>

namespace varitap::art {

cairo_surface_t* drawAboutBox();       // bitmap 2
cairo_surface_t* drawMenuHandle();     // bitmap 3
cairo_surface_t* drawStrip();          // bitmap 100
cairo_surface_t* drawSyncButton();     // bitmap 101
cairo_surface_t* drawSliderHandle();   // bitmap 102
cairo_surface_t* drawPanel();          // bitmap 200
cairo_surface_t* drawPowerButton();    // bitmap 201
cairo_surface_t* drawTypeSwitch();     // bitmap 202
cairo_surface_t* drawTableView();      // bitmap 300
cairo_surface_t* drawTableToggle();    // bitmap 301

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
