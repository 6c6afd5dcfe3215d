// The toolkit's logic without a display: switch and menu arithmetic, text
// editing, and the view tree's ownership and event routing.
#include "gui/Interaction.h"

#include <gtest/gtest.h>

#include <iterator>
#include <utility>

#include "gui/Control.h"
#include "gui/Frame.h"
#include "gui/ViewContainer.h"

namespace varitap::gui {
namespace {

TEST(SwitchStepperTest, EdgesOfStepsAndPositions) {
    // A value outside 0..1 (set directly) wraps on the next step.
    EXPECT_FLOAT_EQ(SwitchStepper::stepUp(3.0f, 4), 0.0f);
    EXPECT_FLOAT_EQ(SwitchStepper::stepDown(-2.0f, 4), 1.0f);
    EXPECT_FLOAT_EQ(SwitchStepper::stepUp(0.0f, 2), 1.0f);  // a two-position switch turns on
    // Each step lands where a reader truncating 3 × v sees the next position
    // (three float steps of 1/3 reach the last one, not a wrap), down from the
    // last as well as up from the first; a value between positions moves by a
    // whole step.
    float up = 0.0f, down = 1.0f;
    for (int p = 1; p <= 3; ++p) {
        up = SwitchStepper::stepUp(up, 4);
        down = SwitchStepper::stepDown(down, 4);
        EXPECT_EQ(static_cast<int>(3.0f * up), p);
        EXPECT_EQ(static_cast<int>(3.0f * down), 3 - p);
    }
    EXPECT_FLOAT_EQ(SwitchStepper::stepUp(0.5f, 4), 0.5f + 1.0f / 3);
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
        EXPECT_EQ(nav.highlightedOpensSubmenu(), steps[i].second == 4) << "step " << i;
    }
    nav.setHighlighted(3);  // disabled: nothing highlighted
    EXPECT_EQ(nav.highlighted(), -1);
    nav.up();
    EXPECT_EQ(nav.highlighted(), 5);

    MenuNavigator none({kMenuSeparator, kMenuDisabled});
    none.down();
    EXPECT_EQ(none.highlighted(), -1);
}

TEST(MenuLayoutTest, ItemPositionsColumnsAndScreenPlacement) {
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

    // Long menus wrap into columns.
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
    const auto one = MenuLayout::layoutColumns(f, 80, 1000);
    EXPECT_EQ(one[2].top, MenuLayout::itemTop(f, 2));
    EXPECT_EQ(MenuLayout::menuSize(one, 80).y, MenuLayout::totalHeight(f));
    // An item taller than the limit still gets a place (no endless columns).
    EXPECT_EQ(MenuLayout::layoutColumns({0, 0}, 50, 5).size(), 2u);
}

TEST(TextEditBufferTest, EditsUtf8ByCharacterWithinByteLimitAndLeavesReturnAndControlKeysAlone) {
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

    // Return is left for the dialog's default button; control characters
    // and keys without text are not typed.
    KeyEvent ret;
    ret.virtualKey = VirtualKey::Return;
    EXPECT_FALSE(b.handleKey(ret));
    KeyEvent control;
    control.text[0] = '\x01';
    EXPECT_FALSE(b.handleKey(control));
    KeyEvent empty;
    EXPECT_FALSE(b.handleKey(empty));
    EXPECT_EQ(b.text(), "hello");
}

// A view that records the presses it gets (in its parent's coordinates).
class PressProbe : public View {
public:
    using View::View;
    MouseResult onMouseDown(Point where, uint32_t buttons) override {
        ++presses;
        last = where;
        lastButtons = buttons;
        return MouseResult::kHandled;
    }
    bool onWheel(Point where, float distance, uint32_t) override {
        last = where;
        wheel += distance;
        return true;
    }
    int onKeyDown(const KeyEvent& key) override {
        ++keys;
        return key.virtualKey == VirtualKey::Tab ? 1 : 0;
    }
    int presses = 0;
    int keys = 0;
    float wheel = 0;
    Point last;
    uint32_t lastButtons = 0;
};

// A container at `area` inside `root`, holding `child`.
RefPtr<ViewContainer> addStrip(ViewContainer& root, Rect area, View* child) {
    auto strip = makeRef<ViewContainer>(area);
    root.addView(strip.get());
    strip->addView(child);
    return strip;
}

TEST(ViewContainerTest, HoldsOneReferencePerChildAndRoutesInputToTheTopmostChildInLocalCoordinates) {
    auto root = makeRef<ViewContainer>(Rect(0, 0, 200, 200));
    auto below = makeRef<PressProbe>(Rect(0, 0, 100, 100));
    auto strip = addStrip(*root, Rect(50, 20, 150, 120), below.get());
    // The strip's reference alone keeps `above` and goes with the strip (ASan
    // would see a leak or a double free).
    auto* above = new PressProbe(Rect(10, 10, 30, 30));
    EXPECT_TRUE(strip->addView(above));
    EXPECT_EQ(above->retainCount(), 2);
    EXPECT_EQ(above->parent(), strip.get());
    EXPECT_FALSE(strip->addView(above));  // already in a container
    EXPECT_FALSE(root->addView(above));
    EXPECT_FALSE(strip->addView(nullptr));
    EXPECT_FALSE(strip->addView(strip.get()));
    EXPECT_TRUE(strip->removeView(above));
    EXPECT_EQ(above->parent(), nullptr);
    EXPECT_FALSE(strip->removeView(above));
    EXPECT_TRUE(strip->addView(above));
    above->release();
    EXPECT_EQ(strip->viewAt(1), above);
    EXPECT_EQ(above->retainCount(), 1);

    root->onMouseDown(Point{70, 40}, kLButton);  // (20, 20) inside the strip: both overlap
    EXPECT_EQ(above->presses, 1);
    EXPECT_EQ(below->presses, 0);
    EXPECT_EQ(above->last, (Point{20, 20}));
    EXPECT_EQ(above->lastButtons, static_cast<uint32_t>(kLButton));

    // A hidden or mouse-disabled child is passed over; so is one whose mouse
    // rectangle does not hold the point even when its size does.
    above->setMouseEnabled(false);
    root->onMouseDown(Point{70, 40}, kLButton);
    above->setMouseEnabled(true);
    above->setVisible(false);
    root->onMouseDown(Point{70, 40}, kLButton);
    above->setVisible(true);
    above->setMouseRect(Rect(25, 25, 30, 30));
    root->onMouseDown(Point{70, 40}, kLButton);
    EXPECT_EQ(below->presses, 3);
    root->onMouseDown(Point{76, 46}, kLButton);
    EXPECT_EQ(above->presses, 2);

    // The container's own mouse rectangle limits what reaches its children
    // (an overlay taking clicks only in a strip).
    strip->setMouseRect(Rect(50, 20, 60, 120));
    EXPECT_EQ(root->onMouseDown(Point{100, 50}, kLButton), MouseResult::kIgnored);
    root->onMouseDown(Point{55, 50}, kLButton);
    EXPECT_EQ(below->presses, 4);

    // Wheel follows the same rule.
    root->onWheel(Point{55, 50}, -2.0f, 0);
    EXPECT_FLOAT_EQ(below->wheel, -2.0f);

    // Keys go to the topmost child first, on to the next until one uses them.
    KeyEvent tab;
    tab.virtualKey = VirtualKey::Tab;
    EXPECT_EQ(root->onKeyDown(tab), 1);
    EXPECT_EQ(above->keys, 1);
    EXPECT_EQ(below->keys, 0);
    tab.virtualKey = VirtualKey::Up;  // used by neither: both see it
    EXPECT_EQ(root->onKeyDown(tab), 0);
    EXPECT_EQ(above->keys, 2);
    EXPECT_EQ(below->keys, 1);
}

TEST(ViewContainerTest, DirtyViewsAreCollectedInFrameCoordinatesAndRemovedOnesForgotten) {
    auto frame = makeRef<Frame>(Rect(0, 0, 300, 200));
    auto child = makeRef<Control>(Rect(10, 20, 30, 40));
    auto strip = addStrip(*frame, Rect(100, 50, 200, 150), child.get());
    frame->takeDirtyArea();  // everything starts dirty
    EXPECT_TRUE(frame->takeDirtyArea().isEmpty());
    strip->setBackground(nullptr);  // a new picture, even none, repaints the container
    EXPECT_EQ(frame->takeDirtyArea(), Rect(100, 50, 200, 150));

    // A value (set from any thread) only marks the control, and only when it
    // changes; it is kept as given.
    child->setValue(0.0f);
    EXPECT_TRUE(frame->takeDirtyArea().isEmpty());
    child->setValue(3.0f);
    EXPECT_FLOAT_EQ(child->value(), 3.0f);
    EXPECT_EQ(frame->takeDirtyArea(), Rect(110, 70, 130, 90));
    EXPECT_FALSE(child->isDirty());

    // Removing a view leaves its old area to repaint; the focus and the
    // mouse capture go with the container of the view that had them.
    frame->setFocusView(child.get());
    frame->captureMouse(child.get());
    frame->removeView(strip.get());
    EXPECT_EQ(frame->takeDirtyArea(), Rect(100, 50, 200, 150));
    EXPECT_EQ(frame->focusView(), nullptr);
    EXPECT_EQ(frame->mouseCapture(), nullptr);
    EXPECT_EQ(child->frame(), nullptr);

    frame->redraw();
    EXPECT_EQ(frame->takeDirtyArea(), Rect(0, 0, 300, 200));
    EXPECT_TRUE(frame->takeDirtyArea().isEmpty());
}

}  // namespace
}  // namespace varitap::gui
