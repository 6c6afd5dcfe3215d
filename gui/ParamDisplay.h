// A parameter display: draws its value as text through a string-conversion
// callback, with font, colours, alignment and an optional shadowed style.
// TextLabel shows a fixed string instead.
#pragma once

#include <functional>
#include <string>

#include "gui/Control.h"

namespace varitap::gui {

class ParamDisplay : public Control {
public:
    enum Style : uint32_t {
        kShadowText = 1u << 0,  // text drawn over a shadow one pixel right and down
        kNoTextStyle = 1u << 1, // draws no text (the background still, unless transparent)
        kNoDrawStyle = 1u << 2, // draws nothing at all
        kFrameStyle = 1u << 3,  // a one-pixel outline in the frame colour
    };
    // Fills text (size bytes, terminated) for a value.
    using StringConvert = std::function<void(float value, char* text, size_t size)>;

    ParamDisplay(const Rect& size, ControlListener* listener = nullptr, int32_t tag = -1,
                 uint32_t style = 0);

    void setStyle(uint32_t s) { style_ = s; setDirty(); }
    uint32_t style() const { return style_; }
    void setFont(int fontId) { fontId_ = fontId; setDirty(); }
    int font() const { return fontId_; }
    void setFontColor(Color c) { fontColor_ = c; setDirty(); }
    Color fontColor() const { return fontColor_; }
    void setBackColor(Color c) { backColor_ = c; setDirty(); }
    Color backColor() const { return backColor_; }
    void setFrameColor(Color c) { frameColor_ = c; setDirty(); }
    void setShadowColor(Color c) { shadowColor_ = c; setDirty(); }
    Color shadowColor() const { return shadowColor_; }
    void setHoriAlign(HoriAlign a) { align_ = a; setDirty(); }
    HoriAlign horiAlign() const { return align_; }
    void setStringConvert(StringConvert convert) { convert_ = std::move(convert); setDirty(); }

    // The text shown for a value: the callback's, else "%.2f".
    virtual void valueToString(float value, char* text, size_t size) const;

    void draw(DrawContext& dc) override;

protected:
    // Draws text in the display's font, alignment and style inside r.
    void drawText(DrawContext& dc, const char* text, const Rect& r);

private:
    StringConvert convert_;
    uint32_t style_;
    int fontId_ = kSystemFont;
    Color fontColor_ = kWhiteColor;
    Color backColor_ = kBlackColor;
    Color frameColor_ = kBlackColor;
    Color shadowColor_ = kBlackColor;
    HoriAlign align_ = HoriAlign::Center;
};

// A display of a fixed string (at most 255 bytes) instead of a value.
class TextLabel : public ParamDisplay {
public:
    TextLabel(const Rect& size, const char* text, uint32_t style = 0);
    // ui. Null means empty.
    void setText(const char* text);
    const char* text() const { return text_; }
    void valueToString(float value, char* text, size_t size) const override;

private:
    char text_[256] = {};
};

}  // namespace varitap::gui
