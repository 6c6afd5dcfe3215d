#include "gui/ViewContainer.h"

#include <gtest/gtest.h>

#include "gui/Control.h"
#include "gui/Frame.h"

namespace varitap::gui {
namespace {

// A view that records the presses it gets (in its parent's coordinates).
class PressProbe : public View {
public:
    explicit PressProbe(const Rect& r, MouseResult answer = MouseResult::kHandled)
        : View(r), answer_(answer) {}
    MouseResult onMouseDown(Point where, uint32_t buttons) override {
        ++presses;
        last = where;
        lastButtons = buttons;
        return answer_;
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

private:
    MouseResult answer_;
};

TEST(ViewContainerTest, HoldsOneReferencePerChild) {
    auto container = makeRef<ViewContainer>(Rect(0, 0, 100, 100));
    View* v = new View(Rect(0, 0, 10, 10));
    EXPECT_EQ(v->retainCount(), 1);
    EXPECT_TRUE(container->addView(v));
    EXPECT_EQ(v->retainCount(), 2);
    EXPECT_EQ(v->parent(), container.get());
    EXPECT_FALSE(container->addView(v));  // already in a container
    auto other = makeRef<ViewContainer>(Rect(0, 0, 10, 10));
    EXPECT_FALSE(other->addView(v));
    EXPECT_FALSE(container->addView(nullptr));
    EXPECT_FALSE(container->addView(container.get()));
    EXPECT_TRUE(container->removeView(v));
    EXPECT_EQ(v->parent(), nullptr);
    EXPECT_FALSE(container->removeView(v));
    EXPECT_TRUE(container->addView(v));
    v->release();  // the container's reference keeps it
    EXPECT_EQ(container->viewAt(0), v);
    EXPECT_EQ(v->retainCount(), 1);
    container.reset();  // and releases it: ASan would see a leak or a double free
}

TEST(ViewContainerTest, PressGoesToTopmostChildUnderPointInLocalCoordinates) {
    auto root = makeRef<ViewContainer>(Rect(0, 0, 200, 200));
    auto strip = makeRef<ViewContainer>(Rect(50, 20, 150, 120));
    auto below = makeRef<PressProbe>(Rect(0, 0, 100, 100));
    auto above = makeRef<PressProbe>(Rect(10, 10, 30, 30));
    root->addView(strip.get());
    strip->addView(below.get());
    strip->addView(above.get());

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
}

TEST(ViewContainerTest, KeysGoTopmostFirstUntilOneUsesThem) {
    auto root = makeRef<ViewContainer>(Rect(0, 0, 100, 100));
    auto a = makeRef<PressProbe>(Rect(0, 0, 10, 10));
    auto b = makeRef<PressProbe>(Rect(0, 0, 10, 10));
    root->addView(a.get());
    root->addView(b.get());
    KeyEvent tab;
    tab.virtualKey = VirtualKey::Tab;
    EXPECT_EQ(root->onKeyDown(tab), 1);
    EXPECT_EQ(b->keys, 1);
    EXPECT_EQ(a->keys, 0);
    tab.virtualKey = VirtualKey::Up;  // used by neither: both see it
    EXPECT_EQ(root->onKeyDown(tab), 0);
    EXPECT_EQ(b->keys, 2);
    EXPECT_EQ(a->keys, 1);
}

TEST(ViewContainerTest, DirtyViewsAreCollectedInFrameCoordinates) {
    auto frame = makeRef<Frame>(Rect(0, 0, 300, 200));
    auto strip = makeRef<ViewContainer>(Rect(100, 50, 200, 150));
    auto child = makeRef<View>(Rect(10, 20, 30, 40));
    frame->addView(strip.get());
    strip->addView(child.get());
    frame->takeDirtyArea();  // everything starts dirty
    EXPECT_TRUE(frame->takeDirtyArea().isEmpty());

    child->setDirty();
    EXPECT_EQ(frame->takeDirtyArea(), Rect(110, 70, 130, 90));
    EXPECT_FALSE(child->isDirty());

    // Removing a view leaves its old area to repaint.
    strip->removeView(child.get());
    EXPECT_EQ(frame->takeDirtyArea(), Rect(110, 70, 130, 90));

    frame->redraw();
    EXPECT_EQ(frame->takeDirtyArea(), Rect(0, 0, 300, 200));
    EXPECT_TRUE(frame->takeDirtyArea().isEmpty());
}

TEST(ViewContainerTest, FrameForgetsRemovedFocusAndCapture) {
    auto frame = makeRef<Frame>(Rect(0, 0, 100, 100));
    auto box = makeRef<ViewContainer>(Rect(0, 0, 50, 50));
    auto inner = makeRef<View>(Rect(0, 0, 10, 10));
    frame->addView(box.get());
    box->addView(inner.get());
    frame->setFocusView(inner.get());
    frame->captureMouse(inner.get());
    frame->removeView(box.get());  // the focused view goes with its container
    EXPECT_EQ(frame->focusView(), nullptr);
    EXPECT_EQ(frame->mouseCapture(), nullptr);
    EXPECT_EQ(inner->frame(), nullptr);
}

// Values set from another thread only mark the control; nothing else runs.
TEST(ControlTest, SetValueStoresUnclampedAndMarksDirtyOnlyOnChange) {
    Control c(Rect(0, 0, 10, 10));
    c.setDirty(false);
    c.setValue(0.0f);
    EXPECT_FALSE(c.isDirty());
    c.setValue(3.0f);  // kept as given
    EXPECT_TRUE(c.isDirty());
    EXPECT_FLOAT_EQ(c.value(), 3.0f);
    c.bounceValue();
    EXPECT_FLOAT_EQ(c.value(), 1.0f);
}

}  // namespace
}  // namespace varitap::gui
