#include "gui/OptionMenu.h"

#include <cstdio>

#include "gui/Frame.h"

namespace varitap::gui {

namespace {

// Cuts a text to at most max bytes without splitting a UTF-8 character.
std::string cutUtf8(std::string s, size_t max) {
    if (s.size() <= max) return s;
    size_t n = max;
    while (n > 0 && (static_cast<unsigned char>(s[n]) & 0xC0) == 0x80) --n;
    s.resize(n);
    return s;
}

}  // namespace

OptionMenu::OptionMenu(const Rect& size, ControlListener* listener, int32_t tag, uint32_t style)
    : ParamDisplay(size, listener, tag, style) {}

OptionMenu::~OptionMenu() {
    for (Item& item : items_) {
        if (item.submenu) item.submenu->release();
    }
}

bool OptionMenu::addEntry(const char* text, int index) {
    if (!text || nbEntries() >= kMaxEntries) return false;
    if (index > nbEntries()) return false;
    Item item;
    item.text = cutUtf8(parseMenuEntry(text, item.flags), kMaxEntryLength);
    // A sub-menu marker given as plain text has no menu to open: it is shown
    // but cannot be chosen.
    if (item.flags & kMenuSubmenu) item.flags = kMenuDisabled;
    auto lock = lockFrame();
    if (index < 0) {
        items_.push_back(std::move(item));
    } else {
        items_.insert(items_.begin() + index, std::move(item));
    }
    setDirty();
    return true;
}

bool OptionMenu::addEntry(OptionMenu* submenu, const char* title) {
    if (!submenu || submenu == this || nbEntries() >= kMaxEntries) return false;
    Item item;
    uint32_t ignored = 0;
    item.text = cutUtf8(parseMenuEntry(title ? title : "", ignored), kMaxEntryLength);
    item.flags = kMenuSubmenu;
    item.submenu = submenu;
    submenu->retain();
    auto lock = lockFrame();
    items_.push_back(std::move(item));
    setDirty();
    return true;
}

bool OptionMenu::removeEntry(int index) {
    if (index < 0 || index >= nbEntries()) return false;
    auto lock = lockFrame();
    if (items_[static_cast<size_t>(index)].submenu) items_[static_cast<size_t>(index)].submenu->release();
    items_.erase(items_.begin() + index);
    setDirty();
    return true;
}

void OptionMenu::removeAllEntry() {
    auto lock = lockFrame();
    for (Item& item : items_) {
        if (item.submenu) item.submenu->release();
    }
    items_.clear();
    lastMenu_ = nullptr;
    lastIndex_ = -1;
    setDirty();
}

const char* OptionMenu::entry(int index) const {
    if (index < 0 || index >= nbEntries()) return nullptr;
    return items_[static_cast<size_t>(index)].text.c_str();
}

uint32_t OptionMenu::entryFlags(int index) const {
    if (index < 0 || index >= nbEntries()) return 0;
    return items_[static_cast<size_t>(index)].flags;
}

std::vector<uint32_t> OptionMenu::allFlags() const {
    std::vector<uint32_t> flags;
    flags.reserve(items_.size());
    for (const Item& item : items_) flags.push_back(item.flags);
    return flags;
}

OptionMenu* OptionMenu::submenu(int index) const {
    if (index < 0 || index >= nbEntries()) return nullptr;
    return items_[static_cast<size_t>(index)].submenu;
}

bool OptionMenu::checkEntry(int index, bool checked) {
    if (index < 0 || index >= nbEntries()) return false;
    uint32_t& f = items_[static_cast<size_t>(index)].flags;
    f = checked ? (f | kMenuChecked) : (f & ~kMenuChecked);
    return true;
}

bool OptionMenu::checkEntryAlone(int index) {
    if (index < 0 || index >= nbEntries()) return false;
    for (Item& item : items_) item.flags &= ~kMenuChecked;
    items_[static_cast<size_t>(index)].flags |= kMenuChecked;
    return true;
}

bool OptionMenu::isCheckEntry(int index) const {
    return (entryFlags(index) & kMenuChecked) != 0;
}

int OptionMenu::current() const {
    const float v = value();
    if (!(v >= 0.0f) || v >= static_cast<float>(nbEntries())) return -1;
    return static_cast<int>(v);
}

bool OptionMenu::setCurrent(int index) {
    if (index < 0 || index >= nbEntries()) return false;
    setValue(static_cast<float>(index));
    return true;
}

void OptionMenu::setLastChoice(OptionMenu* menu, int index) {
    lastMenu_ = menu;
    lastIndex_ = menu ? index : -1;
}

OptionMenu* OptionMenu::lastItemMenu(int& index) const {
    index = lastMenu_ ? lastIndex_ : -1;
    return lastMenu_;
}

bool OptionMenu::popup(Frame* frame, Point where) {
    setLastChoice(nullptr, -1);
    if (!frame || nbEntries() == 0) return false;
    RefPtr<OptionMenu> keep(this);  // a listener may drop the menu meanwhile
    if (!frame->popupMenu(*this, where) || !lastMenu_) return false;
    RefPtr<OptionMenu> chosen(lastMenu_);
    chosen->changeValueByUser(static_cast<float>(lastIndex_));
    return true;
}

bool OptionMenu::popup() {
    const Rect r = frameRect();
    return popup(frame(), Point{r.left, r.top});
}

void OptionMenu::valueToString(float value, char* text, size_t size) const {
    (void)value;
    if (!text || !size) return;
    const char* e = entry(current());
    std::snprintf(text, size, "%s", e ? e : "");
}

MouseResult OptionMenu::onMouseDown(Point where, uint32_t buttons) {
    (void)where;
    if (!(buttons & (kLButton | kRButton))) return MouseResult::kIgnored;
    Frame* f = frame();
    if (!f || nbEntries() == 0) return MouseResult::kHandled;
    const Rect r = frameRect();
    beginEdit();
    popup(f, Point{r.left, r.bottom});
    endEdit();
    return MouseResult::kHandled;
}

}  // namespace varitap::gui
