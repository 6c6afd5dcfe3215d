#include "editor/EditorViews.h"

#include <algorithm>
#include <cstring>

#include "editor/DelayEditor.h"
#include "gui/Bitmap.h"
#include "gui/DrawContext.h"
#include "gui/Frame.h"

namespace varitap {

using gui::Color;
using gui::MouseResult;
using gui::Point;
using gui::Rect;

namespace {

constexpr Color kCurveColor{255, 255, 255, 255};
constexpr Color kGridColor{255, 255, 255, 30};

}  // namespace

ModulatorTableView::ModulatorTableView(const Rect& size, ModulatorTableAccess& access,
                                       int modulator, gui::Bitmap* background)
    : View(size), access_(access), modulator_(modulator), background_(background) {
    if (background_) background_->retain();
}

ModulatorTableView::~ModulatorTableView() {
    if (background_) background_->release();
}

Rect ModulatorTableView::plotRect() const { return viewSize().insetBy(kInset, kInset); }

int ModulatorTableView::columnAt(Point where) const {
    const Rect plot = plotRect();
    const float columnWidth = static_cast<float>(plot.width()) / kColumns;
    if (columnWidth <= 0.0f) return 0;
    const int column = static_cast<int>(static_cast<float>(where.x - plot.left) / columnWidth);
    return std::clamp(column, 0, kColumns - 1);
}

float ModulatorTableView::valueAt(Point where) const {
    const Rect plot = plotRect();
    if (plot.height() <= 0) return 0.0f;
    const float value =
        static_cast<float>(plot.bottom - where.y) / static_cast<float>(plot.height());
    return std::clamp(value, 0.0f, 1.0f);
}

void ModulatorTableView::draw(gui::DrawContext& dc) {
    const Rect& r = viewSize();
    if (background_) {
        dc.drawBitmap(*background_, Rect::fromSize(r.left, r.top, background_->width(),
                                                   background_->height()));
    }
    const Rect plot = plotRect();
    if (plot.isEmpty()) return;

    // Grid: tenths of the height, one line per column border.
    dc.setLineColor(kGridColor);
    dc.setLineWidth(1.0);
    for (int k = 0; k <= 10; ++k) {
        const int y = plot.bottom - plot.height() * k / 10;
        dc.drawLine(Point{plot.left, y}, Point{plot.right, y});
    }
    for (int c = 0; c <= kColumns; ++c) {
        const int x = plot.left + plot.width() * c / kColumns;
        dc.drawLine(Point{x, plot.top}, Point{x, plot.bottom});
    }

    // The curve: one step per column, joined by vertical lines.
    dc.setLineColor(kCurveColor);
    dc.setLineWidth(2.0);
    auto yFor = [&](float v) {
        return plot.bottom - static_cast<int>(std::clamp(v, 0.0f, 1.0f) * plot.height() + 0.5f);
    };
    int previousY = 0;
    for (int c = 0; c < kColumns; ++c) {
        const int x0 = plot.left + plot.width() * c / kColumns;
        const int x1 = plot.left + plot.width() * (c + 1) / kColumns;
        const int y = yFor(access_.getTableValue(modulator_, c));
        if (c > 0 && y != previousY) dc.drawLine(Point{x0, previousY}, Point{x0, y});
        dc.drawLine(Point{x0, y}, Point{x1, y});
        previousY = y;
    }
}

void ModulatorTableView::writeAt(Point where) {
    const int column = columnAt(where);
    const float value = valueAt(where);
    if (access_.getTableValue(modulator_, column) != value) {
        access_.setTableValue(modulator_, column, value);
        setDirty();
    }
}

MouseResult ModulatorTableView::onMouseDown(Point where, uint32_t buttons) {
    if (!(buttons & gui::kLButton)) return MouseResult::kIgnored;
    gui::Frame* f = frame();
    // The gesture is announced under the modulator's own number, not a
    // parameter index of the table (kept as the plug-in has always done).
    if (f) f->beginEdit(modulator_);
    dragging_ = true;
    writeAt(where);
    if (f) f->captureMouse(this);
    return MouseResult::kCaptured;
}

void ModulatorTableView::onMouseMoved(Point where, uint32_t buttons) {
    if (!dragging_ || !(buttons & gui::kLButton)) return;
    writeAt(where);
}

void ModulatorTableView::onMouseUp(Point where, uint32_t buttons) {
    (void)where;
    (void)buttons;
    if (!dragging_) return;
    dragging_ = false;
    if (gui::Frame* f = frame()) {
        f->releaseMouse(this);
        f->endEdit(modulator_);
    }
}

bool ModulatorTableView::onWheel(Point where, float distance, uint32_t buttons) {
    (void)buttons;
    if (!plotRect().contains(where)) return false;
    const int column = columnAt(where);
    const float old = access_.getTableValue(modulator_, column);
    const float value = std::clamp(old + 0.01f * distance, 0.0f, 1.0f);
    if (value != old) {
        access_.setTableValue(modulator_, column, value);
        setDirty();
    }
    return true;
}

void FittedDisplay::fitDecimals(gui::DrawContext& dc, char* text, double maxWidth) {
    const char* point = std::strchr(text, '.');
    if (!point) return;
    size_t length = std::strlen(text);
    const size_t keep = static_cast<size_t>(point - text);  // the integer part stays whole
    while (length > keep && dc.layoutWidth(text) > maxWidth) {
        text[--length] = '\0';
    }
}

void FittedDisplay::draw(gui::DrawContext& dc) {
    if (style() & (kNoDrawStyle | kNoTextStyle)) {
        ParamDisplay::draw(dc);
        return;
    }
    const Rect& r = viewSize();
    if (!isTransparent()) {
        dc.setFillColor(backColor());
        dc.fillRect(r);
    }
    char text[256];
    valueToString(value(), text, sizeof text);
    dc.setFont(font());
    fitDecimals(dc, text, r.width() - 1);
    drawText(dc, text, r);
}

KeyRoutingView::KeyRoutingView(const Rect& size, DelayEditor& editor)
    : View(size), editor_(editor) {
    setTransparent(true);
    // Keys only: presses go to the widgets above and below it.
    setMouseEnabled(false);
}

int KeyRoutingView::onKeyDown(const gui::KeyEvent& key) {
    if (forwarding_) return 0;
    forwarding_ = true;
    const int used = editor_.onKeyDown(key);
    forwarding_ = false;
    return used;
}

}  // namespace varitap
