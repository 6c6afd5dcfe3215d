#include "gui/Interaction.h"

#include <algorithm>
#include <cmath>
#include <cstring>

namespace varitap::gui {

// ---- knob ----------------------------------------------------------------

void KnobDragHandler::begin(float value, Point where) {
    startValue_ = value;
    start_ = where;
    fine_ = false;
    active_ = true;
}

float KnobDragHandler::move(Point where, uint32_t modifiers) {
    const bool fine = (modifiers & kShift) != 0;
    if (fine != fine_) {
        // Switching precision mid-drag restarts from here so the value does not jump.
        startValue_ = move(where, fine_ ? static_cast<uint32_t>(kShift) : 0u);
        start_ = where;
        fine_ = fine;
        return startValue_;
    }
    const float range = pixelsPerRange_ * (fine_ ? 10.0f : 1.0f);
    const float delta = static_cast<float>((where.x - start_.x) + (start_.y - where.y)) / range;
    return std::clamp(startValue_ + delta, 0.0f, 1.0f);
}

float KnobDragHandler::wheel(float value, float distance, float step) {
    return std::clamp(value + distance * step, 0.0f, 1.0f);
}

// ---- slider --------------------------------------------------------------

int SliderGeometry::effectiveTravel() const {
    return std::max(0, std::min(travel, width - handleWidth));
}

int SliderGeometry::handleLeft(float value) const {
    float v = std::clamp(value, 0.0f, 1.0f);
    if (!minimumAtLeft) v = 1.0f - v;
    return left + static_cast<int>(std::lround(v * static_cast<float>(effectiveTravel())));
}

float SliderGeometry::valueAt(int x) const {
    const int t = effectiveTravel();
    if (t <= 0) return 0.0f;
    float v = static_cast<float>(x - left - handleWidth / 2) / static_cast<float>(t);
    v = std::clamp(v, 0.0f, 1.0f);
    return minimumAtLeft ? v : 1.0f - v;
}

// ---- switch --------------------------------------------------------------

namespace {
constexpr float kStepSlack = 1e-4f;  // float steps of 1/3 must land on 1.0, not past it

// Float steps drift off the positions: 1 - 1/3 is 0.6666666f, which a reader
// that truncates 3 × v takes for the second position instead of the third. A
// result within the slack of a position is put exactly on it; values the host
// left between positions still move by whole steps.
float onPosition(float v, int positions) {
    const float scaled = v * static_cast<float>(positions - 1);
    const float nearest = std::round(scaled);
    return std::fabs(scaled - nearest) < kStepSlack ? nearest / static_cast<float>(positions - 1) : v;
}
}  // namespace

float SwitchStepper::stepUp(float value, int positions) {
    if (positions < 2) return 0.0f;
    const float step = 1.0f / static_cast<float>(positions - 1);
    const float v = value + step;
    if (v > 1.0f + kStepSlack) return 0.0f;
    return std::min(onPosition(v, positions), 1.0f);
}

float SwitchStepper::stepDown(float value, int positions) {
    if (positions < 2) return 0.0f;
    const float step = 1.0f / static_cast<float>(positions - 1);
    const float v = value - step;
    if (v < -kStepSlack) return 1.0f;
    return std::max(onPosition(v, positions), 0.0f);
}

int SwitchStepper::position(float value, int positions) {
    if (positions < 2 || !(value == value)) return 0;
    const long p = std::lround(value * static_cast<float>(positions - 1));
    return static_cast<int>(std::clamp<long>(p, 0, positions - 1));
}

// ---- menus ---------------------------------------------------------------

std::string parseMenuEntry(const char* text, uint32_t& flags) {
    flags = 0;
    if (!text) return std::string();
    if (text[0] == '-') {
        if (text[1] == '\0') {
            flags = kMenuSeparator;
            return std::string();
        }
        switch (text[1]) {
            case 'G': flags = kMenuDisabled; return std::string(text + 2);
            case 'M': flags = kMenuSubmenu; return std::string(text + 2);
            case 'T': flags = kMenuTitle; return std::string(text + 2);
            default: break;
        }
    }
    return std::string(text);
}

void MenuNavigator::setHighlighted(int index) {
    highlighted_ = isSelectable(index) ? index : -1;
}

bool MenuNavigator::isSelectable(int index) const {
    if (index < 0 || index >= static_cast<int>(flags_.size())) return false;
    return (flags_[static_cast<size_t>(index)] & (kMenuDisabled | kMenuTitle | kMenuSeparator)) == 0;
}

void MenuNavigator::step(int dir) {
    const int n = static_cast<int>(flags_.size());
    if (n == 0) return;
    int i = highlighted_;
    if (i < 0) i = dir > 0 ? -1 : n;
    for (int k = 0; k < n; ++k) {
        i = ((i + dir) % n + n) % n;
        if (isSelectable(i)) {
            highlighted_ = i;
            return;
        }
    }
}

void MenuNavigator::down() { step(1); }
void MenuNavigator::up() { step(-1); }

void MenuNavigator::home() {
    highlighted_ = -1;
    step(1);
}

void MenuNavigator::end() {
    highlighted_ = -1;
    step(-1);
}

bool MenuNavigator::highlightedOpensSubmenu() const {
    return isSelectable(highlighted_) &&
           (flags_[static_cast<size_t>(highlighted_)] & kMenuSubmenu) != 0;
}

int MenuLayout::itemHeight(uint32_t flags) {
    return (flags & kMenuSeparator) ? kSeparatorHeight : kItemHeight;
}

int MenuLayout::itemTop(const std::vector<uint32_t>& flags, int index) {
    int y = kPadding;
    for (int i = 0; i < index && i < static_cast<int>(flags.size()); ++i) {
        y += itemHeight(flags[static_cast<size_t>(i)]);
    }
    return y;
}

int MenuLayout::totalHeight(const std::vector<uint32_t>& flags) {
    return itemTop(flags, static_cast<int>(flags.size())) + kPadding;
}

int MenuLayout::itemAt(const std::vector<uint32_t>& flags, int y) {
    int top = kPadding;
    for (size_t i = 0; i < flags.size(); ++i) {
        const int h = itemHeight(flags[i]);
        if (y >= top && y < top + h) return static_cast<int>(i);
        top += h;
    }
    return -1;
}

std::vector<Rect> MenuLayout::layoutColumns(const std::vector<uint32_t>& flags, int columnWidth,
                                            int maxHeight) {
    std::vector<Rect> rects;
    rects.reserve(flags.size());
    int column = 0;
    int y = kPadding;
    for (uint32_t f : flags) {
        const int h = itemHeight(f);
        if (y > kPadding && y + h + kPadding > maxHeight) {
            ++column;
            y = kPadding;
        }
        rects.push_back(Rect::fromSize(column * columnWidth, y, columnWidth, h));
        y += h;
    }
    return rects;
}

Point MenuLayout::menuSize(const std::vector<Rect>& items, int columnWidth) {
    int right = columnWidth;
    int bottom = kPadding;
    for (const Rect& r : items) {
        right = std::max(right, r.right);
        bottom = std::max(bottom, r.bottom);
    }
    return Point{right, bottom + kPadding};
}

int MenuLayout::itemAt(const std::vector<Rect>& items, Point p) {
    for (size_t i = 0; i < items.size(); ++i) {
        if (items[i].contains(p)) return static_cast<int>(i);
    }
    return -1;
}

Point MenuLayout::placeOnScreen(Point where, int width, int height, int screenWidth,
                                int screenHeight) {
    Point p = where;
    if (p.x + width > screenWidth) p.x = where.x - width;
    if (p.y + height > screenHeight) p.y = where.y - height;
    p.x = std::max(0, std::min(p.x, screenWidth - width));
    p.y = std::max(0, std::min(p.y, screenHeight - height));
    return p;
}

// ---- text ----------------------------------------------------------------

namespace {
bool isContinuation(char c) { return (static_cast<unsigned char>(c) & 0xC0) == 0x80; }

// Longest prefix of s (at most max bytes) that ends on a character boundary.
size_t fitUtf8(const std::string& s, size_t max) {
    if (s.size() <= max) return s.size();
    size_t n = max;
    while (n > 0 && isContinuation(s[n])) --n;
    return n;
}
}  // namespace

void TextEditBuffer::setText(const std::string& utf8) {
    text_ = utf8.substr(0, fitUtf8(utf8, maxBytes_));
    cursor_ = anchor_ = text_.size();
}

size_t TextEditBuffer::prevChar(size_t pos) const {
    if (pos == 0) return 0;
    --pos;
    while (pos > 0 && isContinuation(text_[pos])) --pos;
    return pos;
}

size_t TextEditBuffer::nextChar(size_t pos) const {
    if (pos >= text_.size()) return text_.size();
    ++pos;
    while (pos < text_.size() && isContinuation(text_[pos])) ++pos;
    return pos;
}

void TextEditBuffer::deleteSelection() {
    const size_t a = selectionStart();
    const size_t b = selectionEnd();
    text_.erase(a, b - a);
    cursor_ = anchor_ = a;
}

bool TextEditBuffer::insert(const char* utf8) {
    if (!utf8) return false;
    const size_t len = std::strlen(utf8);
    const size_t after = text_.size() - (selectionEnd() - selectionStart()) + len;
    if (after > maxBytes_) return false;
    deleteSelection();
    text_.insert(cursor_, utf8, len);
    cursor_ += len;
    anchor_ = cursor_;
    return true;
}

void TextEditBuffer::backspace() {
    if (hasSelection()) {
        deleteSelection();
        return;
    }
    const size_t p = prevChar(cursor_);
    text_.erase(p, cursor_ - p);
    cursor_ = anchor_ = p;
}

void TextEditBuffer::deleteForward() {
    if (hasSelection()) {
        deleteSelection();
        return;
    }
    const size_t n = nextChar(cursor_);
    text_.erase(cursor_, n - cursor_);
    anchor_ = cursor_;
}

void TextEditBuffer::left(bool extend) {
    if (!extend && hasSelection()) {
        cursor_ = anchor_ = selectionStart();
        return;
    }
    cursor_ = prevChar(cursor_);
    if (!extend) anchor_ = cursor_;
}

void TextEditBuffer::right(bool extend) {
    if (!extend && hasSelection()) {
        cursor_ = anchor_ = selectionEnd();
        return;
    }
    cursor_ = nextChar(cursor_);
    if (!extend) anchor_ = cursor_;
}

void TextEditBuffer::home(bool extend) {
    cursor_ = 0;
    if (!extend) anchor_ = cursor_;
}

void TextEditBuffer::end(bool extend) {
    cursor_ = text_.size();
    if (!extend) anchor_ = cursor_;
}

void TextEditBuffer::selectAll() {
    anchor_ = 0;
    cursor_ = text_.size();
}

bool TextEditBuffer::handleKey(const KeyEvent& key) {
    const bool shift = (key.modifiers & kShift) != 0;
    switch (key.virtualKey) {
        case VirtualKey::Backspace: backspace(); return true;
        case VirtualKey::Delete: deleteForward(); return true;
        case VirtualKey::Left: left(shift); return true;
        case VirtualKey::Right: right(shift); return true;
        case VirtualKey::Home: home(shift); return true;
        case VirtualKey::End: end(shift); return true;
        case VirtualKey::None: break;
        default: return false;
    }
    if ((key.modifiers & kControl) != 0) {
        if (key.text[0] == 'a' || key.text[0] == 'A' || key.keysym == 'a' || key.keysym == 'A') {
            selectAll();
            return true;
        }
        return false;
    }
    const unsigned char first = static_cast<unsigned char>(key.text[0]);
    if (first < 0x20 || first == 0x7F) return false;  // empty or a control character
    insert(key.text);
    return true;
}

}  // namespace varitap::gui
