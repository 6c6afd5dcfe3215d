// The editor's own views: the modulator table editor and the view that hands
// the frame's key presses to the editor.
#pragma once

#include <cstdint>

#include "gui/ParamDisplay.h"
#include "gui/View.h"

namespace varitap {

class DelayEditor;
class ModulatorTableAccess;

namespace gui {
class Bitmap;
}

// Edits one modulator's point table: drawn over bitmap 300 as a grid and a
// stepped curve, 0.0 at the bottom of the plot area and 1.0 at its top.
// Dragging with the first button writes the column under the pointer; the
// wheel nudges it by 0.01 a notch.
class ModulatorTableView : public gui::View {
public:
    static constexpr int kColumns = 8;
    static constexpr int kInset = 6;

    // ui thread. size: the view in its panel (the size of bitmap 300).
    ModulatorTableView(const gui::Rect& size, ModulatorTableAccess& access, int modulator,
                       gui::Bitmap* background);
    ~ModulatorTableView() override;

    int modulator() const { return modulator_; }
    // The plot area, in the panel's coordinates.
    gui::Rect plotRect() const;
    // The column and value a point of the panel stands for, clamped to the
    // plot (column 0..7, value 0..1).
    int columnAt(gui::Point where) const;
    float valueAt(gui::Point where) const;

    void draw(gui::DrawContext& dc) override;
    gui::MouseResult onMouseDown(gui::Point where, uint32_t buttons) override;
    void onMouseMoved(gui::Point where, uint32_t buttons) override;
    void onMouseUp(gui::Point where, uint32_t buttons) override;
    bool onWheel(gui::Point where, float distance, uint32_t buttons) override;

private:
    // Writes the value at the point's column when it differs.
    void writeAt(gui::Point where);

    ModulatorTableAccess& access_;
    int modulator_;
    gui::Bitmap* background_;  // one reference, may be null
    bool dragging_ = false;
};

// A parameter display whose number is shortened to its field: decimals that
// would run past the field's width are dropped (never integer digits), so
// that "0.000000" shows as "0.000" in a narrow field instead of being
// clipped to "00000".
class FittedDisplay : public gui::ParamDisplay {
public:
    using gui::ParamDisplay::ParamDisplay;
    void draw(gui::DrawContext& dc) override;
    // The text cut to fit maxWidth pixels as laid out by dc at 100 %, so that
    // a field shows the same digits at every scale.
    static void fitDecimals(gui::DrawContext& dc, char* text, double maxWidth);
};

// A transparent full-size view that receives the frame's key presses and
// hands them to the editor; a flag answers 0 when the key comes back to it
// through the frame.
class KeyRoutingView : public gui::View {
public:
    KeyRoutingView(const gui::Rect& size, DelayEditor& editor);
    int onKeyDown(const gui::KeyEvent& key) override;
    void draw(gui::DrawContext& dc) override {
        (void)dc;
    }

private:
    DelayEditor& editor_;
    bool forwarding_ = false;
};

}  // namespace varitap
