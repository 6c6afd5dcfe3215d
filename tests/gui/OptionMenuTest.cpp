#include "gui/OptionMenu.h"

#include <gtest/gtest.h>
#include <xkbcommon/xkbcommon-keysyms.h>

#include <string>

#include "XServer.h"
#include "gui/Frame.h"

namespace varitap::gui {
namespace {

using test::waitFor;

TEST(OptionMenuTest, EntriesParseMarkersCheckMarksChooseSubmenusAndRespectLimits) {
    auto menu = makeRef<OptionMenu>(Rect(0, 0, 50, 12), nullptr, 7, OptionMenu::kCheckStyle);
    // A sub-menu marker without a menu cannot be chosen; "-X" is no marker.
    const struct {
        const char* added;
        const char* shown;
        uint32_t flags;
    } entries[] = {{"***", "***", 0},           {"-GIn 3", "In 3", kMenuDisabled},
                   {"-", "", kMenuSeparator},   {"-TTitle", "Title", kMenuTitle},
                   {"-MNo menu", "No menu", kMenuDisabled}, {"-Xyz", "-Xyz", 0}};
    for (const auto& e : entries) EXPECT_TRUE(menu->addEntry(e.added));
    for (int i = 0; i < 6; ++i) {
        EXPECT_STREQ(menu->entry(i), entries[i].shown) << i;
        EXPECT_EQ(menu->entryFlags(i), entries[i].flags) << i;
    }
    EXPECT_EQ(menu->entry(6), nullptr);
    EXPECT_FALSE(menu->addEntry(nullptr));
    EXPECT_EQ(menu->entry(-1), nullptr);

    EXPECT_TRUE(menu->addEntry("first", 0));
    EXPECT_STREQ(menu->entry(0), "first");
    EXPECT_FALSE(menu->addEntry("far", 99));
    EXPECT_TRUE(menu->removeEntry(0));
    EXPECT_STREQ(menu->entry(0), "***");

    // Entries are cut to 255 bytes, never inside a character.
    std::string longText(254, 'x');
    longText += "\xC3\xA9zzz";
    EXPECT_TRUE(menu->addEntry(longText.c_str()));
    EXPECT_EQ(std::string(menu->entry(menu->nbEntries() - 1)), std::string(254, 'x'));

    // Check marks: individual marks add up; "alone" clears the others; a bad
    // index changes nothing.
    menu->removeAllEntry();
    EXPECT_EQ(menu->nbEntries(), 0);
    for (const char* e : {"a", "b", "c"}) menu->addEntry(e);
    EXPECT_TRUE(menu->checkEntry(0, true) && menu->checkEntry(2, true) && menu->checkEntry(0, false));
    EXPECT_TRUE(!menu->isCheckEntry(0) && menu->isCheckEntry(2));
    EXPECT_TRUE(menu->checkEntryAlone(1));
    EXPECT_FALSE(menu->checkEntryAlone(3));
    EXPECT_TRUE(!menu->isCheckEntry(2) && menu->isCheckEntry(1));

    EXPECT_TRUE(menu->setCurrent(2));
    char text[16];
    menu->valueToString(menu->value(), text, sizeof text);
    EXPECT_STREQ(text, "c");
    menu->setValue(0.0f);
    EXPECT_EQ(menu->current(), 0);
    menu->setValue(7.0f);  // an index past the end shows nothing
    EXPECT_EQ(menu->current(), -1);
    menu->valueToString(menu->value(), text, sizeof text);
    EXPECT_STREQ(text, "");

    OptionMenu* sub = new OptionMenu(Rect(), nullptr, 3);
    EXPECT_TRUE(menu->addEntry(sub, "Sub"));
    EXPECT_EQ(sub->retainCount(), 2);
    EXPECT_EQ(menu->submenu(3), sub);
    EXPECT_EQ(menu->entryFlags(3), static_cast<uint32_t>(kMenuSubmenu));
    EXPECT_FALSE(menu->addEntry(menu.get(), "Self"));
    sub->release();  // the menu's reference keeps it

    for (int i = menu->nbEntries(); i < OptionMenu::kMaxEntries; ++i) ASSERT_TRUE(menu->addEntry("e"));
    EXPECT_FALSE(menu->addEntry("one too many"));
    EXPECT_EQ(menu->nbEntries(), OptionMenu::kMaxEntries);
}

class MenuPopupTest : public test::ScreenTest {
protected:
    void SetUp() override {
        test::ScreenTest::SetUp();
        if (IsSkipped()) return;
        frame = makeRef<Frame>(Rect(0, 0, 400, 300));
        ASSERT_TRUE(frame->open(hostWindow));
        frame->idle();
    }
    int itemY(const std::vector<uint32_t>& flags, int index) {
        return MenuLayout::itemTop(flags, index) + MenuLayout::kItemHeight / 2;
    }
};

// The pointer picks an entry in a sub-menu that shows its check mark; then
// the keyboard goes into the sub-menu and chooses.
TEST_F(MenuPopupTest, PointerAndKeysChooseInASubmenuThatShowsItsCheckMark) {
    // "First", "Sub" >, "-", "Last", the sub-menu "Alpha", "Beta" (checked), "Gamma".
    auto top = makeRef<OptionMenu>(Rect(), nullptr, 0);
    auto sub = makeRef<OptionMenu>(Rect(), nullptr, 5, OptionMenu::kCheckStyle);
    for (const char* e : {"Alpha", "Beta", "Gamma"}) sub->addEntry(e);
    sub->checkEntryAlone(1);
    top->addEntry("First");
    top->addEntry(sub.get(), "Sub");
    top->addEntry("-");
    top->addEntry("Last");
    top->setFont(kNormalFontVerySmall);
    sub->setFont(kNormalFontVerySmall);
    test::Image subImage;
    bool chosen = false;
    test::playMenu(host, [&] { chosen = top->popup(frame.get(), Point{30, 30}); }, [&](xcb_window_t w1) {
        host.motion(w1, 10, itemY(top->allFlags(), 1), 0);  // hover "Sub"
        const xcb_window_t w2 = test::waitForMenus(host, 2);
        if (!w2) return;
        // Wait until the menu has drawn its entries, then look at it.
        const Rect area = host.geometry(w2).offsetBy(-host.geometry(w2).left, -host.geometry(w2).top);
        waitFor([&] {
            subImage = host.grab(w2, area);
            return subImage.count(Rect(18, 0, area.width(), area.height()), 0, 0, 0, 120) > 10;
        });
        const int y = itemY(sub->allFlags(), 2);
        host.motion(w2, 20, y, 0);
        host.click(w2, 20, y);
    });
    EXPECT_TRUE(chosen);
    int index = -1;
    EXPECT_EQ(top->lastItemMenu(index), sub.get());
    EXPECT_EQ(index, 2);
    EXPECT_FLOAT_EQ(sub->value(), 2.0f);
    // All menu windows gone (as the server sees them from the host's connection).
    EXPECT_TRUE(waitFor([&] { return host.popupWindows().empty(); }));

    // The check mark: dark ink in the check column on "Beta"'s row only.
    ASSERT_GT(subImage.width, 20);
    const auto flags = sub->allFlags();
    auto checkInk = [&](int i) {
        const int top = MenuLayout::itemTop(flags, i);
        return subImage.count(Rect(3, top + 2, 15, top + MenuLayout::kItemHeight - 2), 0, 0, 0, 90);
    };
    EXPECT_GT(checkInk(1), 4);
    EXPECT_EQ(checkInk(0), 0);
    EXPECT_EQ(checkInk(2), 0);
    // The entries' text is there too (ink right of the check column).
    const Rect alpha(18, MenuLayout::itemTop(flags, 0), subImage.width - 16, MenuLayout::itemTop(flags, 1));
    EXPECT_GT(subImage.count(alpha, 0, 0, 0, 120), 3);

    chosen = false;
    test::playMenu(host, [&] { chosen = top->popup(frame.get(), Point{10, 10}); }, [&](xcb_window_t w1) {
        host.key(w1, XKB_KEY_Down);   // First
        host.key(w1, XKB_KEY_Down);   // Sub
        host.key(w1, XKB_KEY_Right);  // opens it on Alpha
        if (!test::waitForMenus(host, 2)) return;
        host.key(w1, XKB_KEY_Down);   // Beta
        host.key(w1, XKB_KEY_Down);   // Gamma
        host.key(w1, XKB_KEY_Down);   // wraps to Alpha
        host.key(w1, XKB_KEY_Return);
    });
    EXPECT_TRUE(chosen);
    EXPECT_EQ(top->lastItemMenu(index), sub.get());
    EXPECT_EQ(index, 0);
}

// A menu taller than the screen, opened far outside: it stays on the screen
// in two columns; a press outside, a release before any press in it, and
// presses on a disabled entry or the title choose nothing; its last entry
// can be clicked.
TEST_F(MenuPopupTest, ClicksChooseOnlyChoosableEntriesOfAMenuThatStaysOnTheScreen) {
    auto menu = makeRef<OptionMenu>(Rect(), nullptr, 0);
    menu->addEntry("-TTitle");
    menu->addEntry("-GGrey");
    for (int i = 2; i < 71; ++i) menu->addEntry(("Parameter " + std::to_string(i + 20)).c_str());
    menu->setFont(kNormalFontVerySmall);
    const auto flags = menu->allFlags();
    Rect placed;
    test::playMenu(host, [&] { EXPECT_FALSE(menu->popup(frame.get(), Point{1500, 1200})); }, [&](xcb_window_t w1) {
        placed = host.geometry(w1);
        host.key(w1, XKB_KEY_Down);
        host.button(w1, -40, -40, 1, true);  // a press outside every menu window
    });
    EXPECT_EQ(menu->lastResult(), -1);
    EXPECT_TRUE(placed.left >= 0 && placed.top >= 0 && placed.right <= 1280 && placed.bottom <= 1024);
    EXPECT_GT(placed.width(), 2 * 60 - 1);  // two columns

    // The last entry sits at the bottom of the second column.
    const Rect last = MenuLayout::layoutColumns(flags, 1, 1024)[70];
    test::playMenu(host, [&] { EXPECT_TRUE(menu->popup(frame.get(), Point{5, 5})); }, [&](xcb_window_t w1) {
        // A release before any move or press in the menu (the end of the
        // click that opened it) chooses nothing, even over an entry.
        host.button(w1, 20, itemY(flags, 2), 1, false);
        host.button(w1, 20, itemY(flags, 1), 1, true);  // on "Grey": nothing
        host.button(w1, 20, itemY(flags, 1), 1, false);
        host.button(w1, 20, itemY(flags, 0), 1, true);  // on the title: nothing
        host.button(w1, 20, itemY(flags, 0), 1, false);
        const int x = host.geometry(w1).width() * 3 / 4;
        host.motion(w1, x, last.top + 2, 0);
        host.click(w1, x, last.top + 2);
    });
    EXPECT_EQ(menu->lastResult(), 70);
}

// An option menu placed as a control pops up below itself when pressed and
// reports the choice to its listener as its new value, inside one gesture.
TEST_F(MenuPopupTest, ControlMenuChoiceReachesListenerBetweenEditNotifications) {
    frame->setEditListener(&rec);
    auto menu = makeRef<OptionMenu>(Rect(45, 22, 75, 33), &rec, 4);
    for (const char* e : {"***", "In 1", "-GIn 2", "In 3"}) menu->addEntry(e);
    frame->addView(menu.get());
    frame->idle();
    const auto pressAndIdle = [&] {
        host.button(frame->windowId(), 50, 25, 1, true);
        waitFor([&] {
            frame->idle();
            return !rec.log.empty();
        });
    };
    Rect placed;
    test::playMenu(host, pressAndIdle, [&](xcb_window_t w1) {
        placed = host.geometry(w1);
        host.key(w1, XKB_KEY_End);     // "In 3"
        host.key(w1, XKB_KEY_Up);      // skips the disabled "In 2"
        host.key(w1, XKB_KEY_Return);  // "In 1"
    });
    EXPECT_EQ(rec.log, "b4;v4;e4;");
    EXPECT_FLOAT_EQ(rec.last, 1.0f);
    EXPECT_EQ(menu->current(), 1);
    const Point hostAt = host.rootPosition(hostWindow);
    EXPECT_EQ(placed.left, hostAt.x + 45);
    EXPECT_EQ(placed.top, hostAt.y + 33);
}

}  // namespace
}  // namespace varitap::gui
