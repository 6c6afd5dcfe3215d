// Interaction rules apart from drawing and windows: knob and slider
// dragging, wheel steps, switch stepping, menu navigation and single-line
// text editing. Each is a small value class that tests drive directly.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "gui/GuiTypes.h"

namespace varitap::gui {

// A knob follows the pointer: moving up or right raises the value by
// 1 / pixelsPerRange per pixel (ten times finer with Shift), clamped to 0..1.
class KnobDragHandler {
public:
    explicit KnobDragHandler(float pixelsPerRange = 150.0f) : pixelsPerRange_(pixelsPerRange) {}
    void begin(float value, Point where);
    // The value for the pointer now at `where`.
    float move(Point where, uint32_t modifiers);
    bool isActive() const { return active_; }
    void end() { active_ = false; }

    // One wheel notch changes a value by this much, clamped to 0..1.
    static float wheel(float value, float distance, float step = 0.01f);

private:
    float pixelsPerRange_;
    float startValue_ = 0.0f;
    Point start_;
    bool fine_ = false;
    bool active_ = false;
};

// Where a horizontal slider's handle sits and which value a pointer means.
// The handle's left edge moves over `travel` pixels from the slider's left;
// a travel that would push the handle outside the slider is shortened.
struct SliderGeometry {
    int left = 0;          // slider's left edge
    int width = 0;         // slider's width
    int handleWidth = 0;
    int travel = 0;
    bool minimumAtLeft = true;

    int effectiveTravel() const;
    // x of the handle's left edge for a value (clamped to 0..1).
    int handleLeft(float value) const;
    // The value that puts the handle's centre under x, clamped to 0..1.
    float valueAt(int x) const;
};

// Multi-position switch stepping: n positions at 0, 1/(n-1), ..., 1.
// Up past 1.0 wraps to 0.0, down below 0.0 wraps to 1.0.
struct SwitchStepper {
    static float stepUp(float value, int positions);
    static float stepDown(float value, int positions);
    // The position a value shows, 0..positions-1.
    static int position(float value, int positions);
};

// Menu item flags, parsed from the entry markers when an entry is added.
enum MenuItemFlags : uint32_t {
    kMenuDisabled = 1u << 0,   // "-G": greyed, not choosable
    kMenuSubmenu = 1u << 1,    // "-M": opens a sub-menu
    kMenuTitle = 1u << 2,      // "-T": a title, not choosable
    kMenuSeparator = 1u << 3,  // "-": a line
    kMenuChecked = 1u << 4,
};

// Parses an entry text: sets flags from the markers and returns the text
// that is shown (without the marker).
std::string parseMenuEntry(const char* text, uint32_t& flags);

// Keyboard and pointer navigation over one menu's items.
class MenuNavigator {
public:
    explicit MenuNavigator(std::vector<uint32_t> itemFlags) : flags_(std::move(itemFlags)) {}

    int highlighted() const { return highlighted_; }
    void setHighlighted(int index);
    // Whether an item can be highlighted or chosen (not a separator, title or
    // disabled entry).
    bool isSelectable(int index) const;
    // Moves to the next/previous selectable item, wrapping; stays when none.
    void down();
    void up();
    void home();
    void end();
    bool highlightedOpensSubmenu() const;

private:
    void step(int dir);

    std::vector<uint32_t> flags_;
    int highlighted_ = -1;
};

// Layout of a popped-up menu: item heights and the item under a point.
struct MenuLayout {
    static constexpr int kItemHeight = 18;
    static constexpr int kSeparatorHeight = 7;
    static constexpr int kPadding = 3;
    // Top of item index relative to the menu's top (padding included).
    static int itemTop(const std::vector<uint32_t>& flags, int index);
    static int itemHeight(uint32_t flags);
    static int totalHeight(const std::vector<uint32_t>& flags);
    // Index under y (relative to the menu's top), -1 when none.
    static int itemAt(const std::vector<uint32_t>& flags, int y);
    // Item rectangles (relative to the menu's top-left) in columns of
    // columnWidth: a column ends before an item that would reach maxHeight,
    // so that long menus (the 71 parameter names) fit on the screen.
    static std::vector<Rect> layoutColumns(const std::vector<uint32_t>& flags, int columnWidth,
                                           int maxHeight);
    // Size of the whole menu for such rectangles (padding included).
    static Point menuSize(const std::vector<Rect>& items, int columnWidth);
    // Index of the item holding p (menu coordinates), -1 when none.
    static int itemAt(const std::vector<Rect>& items, Point p);
    // Moves a menu of the given size at `where` so it lies on the screen:
    // it flips left/up when it would pass the right/bottom edge, then is
    // clamped to the screen.
    static Point placeOnScreen(Point where, int width, int height, int screenWidth,
                               int screenHeight);
};

// A single line of UTF-8 text with a cursor and a selection. The text never
// exceeds maxBytes bytes and never splits a character.
class TextEditBuffer {
public:
    explicit TextEditBuffer(size_t maxBytes = 255) : maxBytes_(maxBytes) {}

    const std::string& text() const { return text_; }
    void setText(const std::string& utf8);   // cursor at the end, nothing selected
    size_t cursor() const { return cursor_; }  // byte offset
    bool hasSelection() const { return anchor_ != cursor_; }
    size_t selectionStart() const { return anchor_ < cursor_ ? anchor_ : cursor_; }
    size_t selectionEnd() const { return anchor_ < cursor_ ? cursor_ : anchor_; }

    // Replaces the selection (if any) with utf8; false when it would not fit.
    bool insert(const char* utf8);
    void backspace();
    void deleteForward();
    // extend: Shift held, the selection grows instead of collapsing.
    void left(bool extend = false);
    void right(bool extend = false);
    void home(bool extend = false);
    void end(bool extend = false);
    void selectAll();
    // Applies a key: editing keys, Ctrl+A, printable text. True when used.
    bool handleKey(const KeyEvent& key);

private:
    void deleteSelection();
    size_t prevChar(size_t pos) const;
    size_t nextChar(size_t pos) const;

    std::string text_;
    size_t maxBytes_;
    size_t cursor_ = 0;
    size_t anchor_ = 0;
};

}  // namespace varitap::gui
