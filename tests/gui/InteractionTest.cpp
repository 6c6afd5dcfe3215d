#include "gui/Interaction.h"

#include <gtest/gtest.h>

#include <iterator>
#include <utility>

namespace varitap::gui {
namespace {

TEST(KnobDragHandlerTest, FollowsPointerClampsAndRefinesWithShift) {
    KnobDragHandler h(100.0f);
    h.begin(0.5f, Point{10, 50});
    EXPECT_FLOAT_EQ(h.move(Point{30, 50}, 0), 0.7f);   // right raises
    EXPECT_FLOAT_EQ(h.move(Point{10, 900}, 0), 0.0f);  // clamped
    // Shift mid-drag: no jump, then ten times finer from there.
    h.begin(0.5f, Point{0, 0});
    EXPECT_FLOAT_EQ(h.move(Point{0, -10}, 0), 0.6f);
    EXPECT_FLOAT_EQ(h.move(Point{0, -10}, kShift), 0.6f);
    EXPECT_NEAR(h.move(Point{0, -20}, kShift), 0.61f, 1e-6);
    h.end();
    EXPECT_FALSE(h.isActive());
    EXPECT_FLOAT_EQ(KnobDragHandler::wheel(0.995f, 1.0f, 0.01f), 1.0f);
    EXPECT_FLOAT_EQ(KnobDragHandler::wheel(0.0f, -1.0f, 0.01f), 0.0f);
}

TEST(SliderGeometryTest, HandleTravelAndPointerMapping) {
    SliderGeometry g;
    g.left = 11;
    g.width = 63;
    g.handleWidth = 7;
    g.travel = 63;  // longer than the slider allows: shortened to 56
    EXPECT_EQ(g.effectiveTravel(), 56);
    EXPECT_EQ(g.handleLeft(7.0f), 67);
    EXPECT_FLOAT_EQ(g.valueAt(-500), 0.0f);
    g.minimumAtLeft = false;
    EXPECT_EQ(g.handleLeft(0.0f), 67);
    EXPECT_FLOAT_EQ(g.valueAt(11 + 3), 1.0f);
    g.travel = 30;
    g.minimumAtLeft = true;
    EXPECT_EQ(g.handleLeft(1.0f), 41);
    g.handleWidth = 100;  // handle wider than the slider: it cannot move
    EXPECT_EQ(g.effectiveTravel(), 0);
    EXPECT_FLOAT_EQ(g.valueAt(40), 0.0f);
}

TEST(SwitchStepperTest, EdgesOfStepsAndPositions) {
    // Three float steps of 1/3 reach exactly the last position, not a wrap.
    EXPECT_FLOAT_EQ(SwitchStepper::stepUp(SwitchStepper::stepUp(1.0f / 3, 4), 4), 1.0f);
    // A value outside 0..1 (set directly) wraps on the next step.
    EXPECT_FLOAT_EQ(SwitchStepper::stepUp(3.0f, 4), 0.0f);
    EXPECT_FLOAT_EQ(SwitchStepper::stepDown(-2.0f, 4), 1.0f);
    EXPECT_FLOAT_EQ(SwitchStepper::stepUp(0.0f, 2), 1.0f);  // a two-position switch turns on
    EXPECT_EQ(SwitchStepper::position(2.0f / 3, 4), 2);
    EXPECT_EQ(SwitchStepper::position(3.0f, 4), 3);
    EXPECT_EQ(SwitchStepper::position(-1.0f, 4), 0);
    EXPECT_EQ(SwitchStepper::position(0.49f, 2), 0);
    EXPECT_EQ(SwitchStepper::position(0.51f, 2), 1);
}

TEST(MenuNavigatorTest, SkipsUnselectableItemsAndWraps) {
    MenuNavigator nav({kMenuTitle, 0, kMenuSeparator, kMenuDisabled, kMenuSubmenu, 0});
    EXPECT_EQ(nav.highlighted(), -1);
    using M = MenuNavigator;
    // The fourth step down wraps past the title.
    const std::pair<void (M::*)(), int> steps[] = {{&M::down, 1}, {&M::down, 4}, {&M::down, 5}, {&M::down, 1},
                                                   {&M::up, 5},   {&M::home, 1}, {&M::end, 5}};
    for (size_t i = 0; i < std::size(steps); ++i) {
        (nav.*steps[i].first)();
        EXPECT_EQ(nav.highlighted(), steps[i].second) << "step " << i;
        if (i == 1) {
            EXPECT_TRUE(nav.highlightedOpensSubmenu());
        }
    }
    nav.setHighlighted(3);  // disabled: nothing highlighted
    EXPECT_EQ(nav.highlighted(), -1);
    nav.up();
    EXPECT_EQ(nav.highlighted(), 5);

    MenuNavigator none({kMenuSeparator, kMenuDisabled});
    none.down();
    EXPECT_EQ(none.highlighted(), -1);
}

TEST(MenuLayoutTest, ItemPositionsAndScreenPlacement) {
    const std::vector<uint32_t> f{0, kMenuSeparator, 0};
    EXPECT_EQ(MenuLayout::itemAt(f, 0), -1);
    EXPECT_EQ(MenuLayout::itemAt(f, MenuLayout::kPadding), 0);
    EXPECT_EQ(MenuLayout::itemAt(f, MenuLayout::itemTop(f, 2) - 1), 1);
    EXPECT_EQ(MenuLayout::itemAt(f, MenuLayout::itemTop(f, 2)), 2);
    EXPECT_EQ(MenuLayout::itemAt(f, 1000), -1);

    EXPECT_EQ(MenuLayout::placeOnScreen(Point{100, 100}, 50, 40, 800, 600), (Point{100, 100}));
    // Past the right/bottom edge: opens to the left/up of the point.
    EXPECT_EQ(MenuLayout::placeOnScreen(Point{780, 590}, 50, 40, 800, 600), (Point{730, 550}));
    // Taller than the screen: pinned to the top.
    EXPECT_EQ(MenuLayout::placeOnScreen(Point{10, 300}, 50, 900, 800, 600), (Point{10, 0}));
}

TEST(MenuLayoutTest, LongMenusWrapIntoColumns) {
    const int H = MenuLayout::kItemHeight;
    const int P = MenuLayout::kPadding;
    // Room for exactly three items per column.
    const int maxHeight = 2 * P + 3 * H;
    std::vector<uint32_t> flags(7, 0);
    const auto rects = MenuLayout::layoutColumns(flags, 100, maxHeight);
    ASSERT_EQ(rects.size(), 7u);
    EXPECT_EQ(rects[2], Rect(0, P + 2 * H, 100, P + 3 * H));
    EXPECT_EQ(rects[3], Rect(100, P, 200, P + H));  // next column starts at the top
    EXPECT_EQ(rects[6], Rect(200, P, 300, P + H));
    EXPECT_EQ(MenuLayout::menuSize(rects, 100), (Point{300, maxHeight}));
    EXPECT_EQ(MenuLayout::itemAt(rects, Point{150, P + H + 1}), 4);
    EXPECT_EQ(MenuLayout::itemAt(rects, Point{250, P + H + 1}), -1);  // below the last one
    EXPECT_EQ(MenuLayout::itemAt(rects, Point{50, 0}), -1);           // in the padding

    // A short menu stays one column, matching the single-column helpers.
    const std::vector<uint32_t> mixed{0, kMenuSeparator, 0};
    const auto one = MenuLayout::layoutColumns(mixed, 80, 1000);
    EXPECT_EQ(one[2].top, MenuLayout::itemTop(mixed, 2));
    EXPECT_EQ(MenuLayout::menuSize(one, 80).y, MenuLayout::totalHeight(mixed));
    // An item taller than the limit still gets a place (no endless columns).
    EXPECT_EQ(MenuLayout::layoutColumns({0, 0}, 50, 5).size(), 2u);
}

TEST(TextEditBufferTest, EditsUtf8ByCharacterWithinByteLimit) {
    TextEditBuffer b(10);
    EXPECT_TRUE(b.insert("ab"));
    EXPECT_TRUE(b.insert("\xC3\xA9"));  // é, two bytes
    EXPECT_EQ(b.text(), "ab\xC3\xA9");
    EXPECT_EQ(b.cursor(), 4u);
    b.left();
    EXPECT_EQ(b.cursor(), 2u);  // one character, two bytes
    b.backspace();
    EXPECT_EQ(b.text(), "a\xC3\xA9");
    b.end();
    b.backspace();
    EXPECT_EQ(b.text(), "a");
    EXPECT_TRUE(b.insert("123456789"));
    EXPECT_FALSE(b.insert("x"));  // 11 bytes would not fit
    EXPECT_EQ(b.text(), "a123456789");
    b.selectAll();
    EXPECT_TRUE(b.insert("z"));   // replaces the selection
    EXPECT_EQ(b.text(), "z");
    b.home();
    b.deleteForward();
    EXPECT_EQ(b.text(), "");
    b.backspace();  // nothing to delete, nothing breaks
    b.deleteForward();
    EXPECT_EQ(b.cursor(), 0u);

    b.setText("abc\xE2\x82\xAC" "defghij");  // cut at 10 bytes
    EXPECT_EQ(b.text(), "abc\xE2\x82\xAC" "defg");
    b.setText("abcdefgh\xE2\x82\xAC");
    EXPECT_EQ(b.text(), "abcdefgh");

    b.setText("hello");
    b.home();
    b.right(true);
    b.right(true);
    EXPECT_EQ(b.selectionStart(), 0u);
    EXPECT_EQ(b.selectionEnd(), 2u);
    b.right();  // collapses to the selection's end
    EXPECT_FALSE(b.hasSelection());
    EXPECT_EQ(b.cursor(), 2u);
}

TEST(TextEditBufferTest, LeavesReturnControlAndEmptyKeysAlone) {
    TextEditBuffer b;
    KeyEvent ret;
    ret.virtualKey = VirtualKey::Return;
    EXPECT_FALSE(b.handleKey(ret));  // left for the dialog's default button
    KeyEvent control;
    control.text[0] = '\x01';
    EXPECT_FALSE(b.handleKey(control));
    KeyEvent empty;
    EXPECT_FALSE(b.handleKey(empty));
    EXPECT_EQ(b.text(), "");
}

}  // namespace
}  // namespace varitap::gui
