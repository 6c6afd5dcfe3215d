// A single-line UTF-8 text field: typing, Backspace, Delete, cursor keys,
// Home/End, Ctrl+A select all. Takes keyboard focus when pressed.
#pragma once

#include <string>

#include "gui/Interaction.h"
#include "gui/View.h"

namespace varitap::gui {

class TextField : public View {
public:
    explicit TextField(const Rect& size, size_t maxBytes = 255);

    const std::string& text() const { return buffer_.text(); }
    void setText(const char* utf8);
    TextEditBuffer& buffer() { return buffer_; }
    void setFont(int fontId) { fontId_ = fontId; setDirty(); }
    bool hasFocus() const { return focused_; }

    void draw(DrawContext& dc) override;
    MouseResult onMouseDown(Point where, uint32_t buttons) override;
    int onKeyDown(const KeyEvent& key) override;
    void onFocusChanged(bool focused) override;
    bool wantsFocus() const override { return true; }

private:
    TextEditBuffer buffer_;
    int fontId_ = kSystemFont;
    bool focused_ = false;
};

}  // namespace varitap::gui
