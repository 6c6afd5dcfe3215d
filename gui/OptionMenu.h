// Option menus: up to 1024 entries of at most 255 bytes, with the entry
// markers "-" (separator), "-G" (disabled), "-M" (sub-menu), "-T" (title)
// parsed when an entry is added, nested sub-menus, check marks and a tag.
// As a control it shows its current entry and pops up when pressed; its value
// is the index of the current entry.
#pragma once

#include <string>
#include <vector>

#include "gui/Interaction.h"
#include "gui/ParamDisplay.h"

namespace varitap::gui {

class Frame;

class OptionMenu : public ParamDisplay {
public:
    static constexpr int kMaxEntries = 1024;
    static constexpr size_t kMaxEntryLength = 255;
    enum MenuStyle : uint32_t {
        kCheckStyle = 1u << 8,  // draws a check mark beside checked entries
    };

    OptionMenu(const Rect& size, ControlListener* listener = nullptr, int32_t tag = -1,
               uint32_t style = 0);
    ~OptionMenu() override;

    // ui. Appends (index -1) or inserts an entry; markers become flags, a
    // text longer than 255 bytes is cut. False when the menu is full or the
    // index is out of range.
    bool addEntry(const char* text, int index = -1);
    // ui. Appends an entry that opens submenu (takes a reference).
    bool addEntry(OptionMenu* submenu, const char* title);
    bool removeEntry(int index);
    void removeAllEntry();

    int nbEntries() const { return static_cast<int>(items_.size()); }
    // The shown text of an entry (markers removed), null past the end.
    const char* entry(int index) const;
    uint32_t entryFlags(int index) const;
    std::vector<uint32_t> allFlags() const;
    OptionMenu* submenu(int index) const;

    // Check marks: individually, or "alone" (clears every other mark).
    bool checkEntry(int index, bool checked);
    bool checkEntryAlone(int index);
    bool isCheckEntry(int index) const;

    // Current entry (the value as an index); -1 when the value is none.
    int current() const;
    bool setCurrent(int index);

    // ui. Pops the menu up with its top-left corner at `where` (frame
    // coordinates) and runs until a choice, Escape or a click outside. True
    // when an entry was chosen; lastItemMenu() then tells where. The chosen
    // menu's value becomes the index and its listener is told.
    bool popup(Frame* frame, Point where);
    // ui. Pops up at the menu's own top-left corner, in the frame it is in.
    bool popup();
    // After a popup: the menu the choice was made in and the index, or null.
    OptionMenu* lastItemMenu(int& index) const;
    int lastResult() const { return lastIndex_; }
    // Records a choice (the platform's popup calls it; tests may too).
    void setLastChoice(OptionMenu* menu, int index);

    void valueToString(float value, char* text, size_t size) const override;
    MouseResult onMouseDown(Point where, uint32_t buttons) override;

private:
    struct Item {
        std::string text;
        uint32_t flags = 0;
        OptionMenu* submenu = nullptr;  // one reference
    };
    std::vector<Item> items_;
    OptionMenu* lastMenu_ = nullptr;    // not owned: this menu or one of its sub-menus
    int lastIndex_ = -1;
};

}  // namespace varitap::gui
