// The eight numbered fonts, matched through fontconfig and drawn by cairo.
#pragma once

#include <cairo.h>

#include "gui/GuiTypes.h"

namespace varitap::gui {

// Family name asked of fontconfig for a font number ("Helvetica" or
// "Symbol"); numbers outside 0..7 fall back to font 0.
const char* fontFamily(int fontId);
// Size in points (one point is one pixel on screen).
double fontSize(int fontId);

// ui. The cairo face of a font number, through fontconfig's family matching;
// the face is created on first use and kept until releaseFonts(). Null only
// when fontconfig finds no font at all.
cairo_font_face_t* fontFace(int fontId);
// The family fontconfig actually chose (e.g. "Nimbus Sans"); empty when none.
const char* resolvedFontFamily(int fontId);

// ui. Frames hold the font cache while open: the last release frees the
// faces so that an unloaded plug-in leaves nothing behind.
void retainFonts();
void releaseFonts();

}  // namespace varitap::gui
