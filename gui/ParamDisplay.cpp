#include "gui/ParamDisplay.h"

#include <cmath>
#include <cstdio>
#include <cstring>

#include "gui/DrawContext.h"

namespace varitap::gui {

ParamDisplay::ParamDisplay(const Rect& size, ControlListener* listener, int32_t tag, uint32_t style)
    : Control(size, listener, tag), style_(style) {}

void ParamDisplay::valueToString(float value, char* text, size_t size) const {
    if (!text || size == 0) return;
    text[0] = '\0';
    if (convert_) {
        convert_(value, text, size);
        text[size - 1] = '\0';
        return;
    }
    // Two decimals with a point whatever the host's locale says.
    if (!std::isfinite(value)) {
        std::snprintf(text, size, "%s", std::isnan(value) ? "nan" : (value < 0 ? "-inf" : "inf"));
        return;
    }
    const long long hundredths = std::llround(static_cast<double>(value) * 100.0);
    const long long whole = std::llabs(hundredths) / 100;
    const long long frac = std::llabs(hundredths) % 100;
    std::snprintf(text, size, "%s%lld.%02lld", hundredths < 0 ? "-" : "", whole, frac);
}

void ParamDisplay::drawText(DrawContext& dc, const char* text, const Rect& r) {
    if (!text || !*text) return;
    dc.setFont(fontId_);
    if (style_ & kShadowText) {
        // The shadow sits one pixel right and one down of the text.
        dc.setFontColor(shadowColor_);
        dc.drawString(text, r.offsetBy(1, 1), align_);
    }
    dc.setFontColor(fontColor_);
    dc.drawString(text, r, align_);
}

void ParamDisplay::draw(DrawContext& dc) {
    if (style_ & kNoDrawStyle) return;
    const Rect& r = viewSize();
    if (!isTransparent()) {
        dc.setFillColor(backColor_);
        dc.fillRect(r);
    }
    if (style_ & kFrameStyle) {
        dc.setLineColor(frameColor_);
        dc.setLineWidth(1.0);
        dc.drawRect(r);
    }
    if (style_ & kNoTextStyle) return;
    char text[256];
    valueToString(value(), text, sizeof text);
    drawText(dc, text, r);
}

TextLabel::TextLabel(const Rect& size, const char* text, uint32_t style)
    : ParamDisplay(size, nullptr, -1, style) {
    setText(text);
}

void TextLabel::setText(const char* text) {
    auto lock = lockFrame();
    std::snprintf(text_, sizeof text_, "%s", text ? text : "");
    setDirty();
}

void TextLabel::valueToString(float value, char* text, size_t size) const {
    (void)value;
    if (text && size) std::snprintf(text, size, "%s", text_);
}

}  // namespace varitap::gui
