// Bitmaps and widgets drawn offscreen through the frame's drawing path, and driven
// through the frame's event entry points (no window needed).
#include <gtest/gtest.h>

#include <cstring>
#include <fstream>
#include <string>

#include "XServer.h"
#include "gui/Bitmap.h"
#include "gui/BitmapView.h"
#include "gui/Buttons.h"
#include "gui/Font.h"
#include "gui/Frame.h"
#include "gui/Knob.h"
#include "gui/ParamDisplay.h"
#include "gui/Slider.h"
#include "gui/TextField.h"

namespace varitap::gui {
namespace {

using test::Image;
using test::Recorder;
using test::renderOffscreen;

class WidgetsTest : public ::testing::Test {
protected:
    void SetUp() override {
        frame = makeRef<Frame>(Rect(0, 0, 200, 120), &rec);
        frame->setBackgroundColor(kGreyColor);
    }
    RefPtr<Bitmap> bands(int w, int h, std::vector<Color> colours) {
        const std::string path = dir.path() + "/b" + std::to_string(++files) + ".png";
        EXPECT_TRUE(test::writeBandsPng(path, w, h, colours));
        return makeRef<Bitmap>(path);
    }
    test::TempDir dir;
    int files = 0;
    Recorder rec;
    RefPtr<Frame> frame;
};

TEST_F(WidgetsTest, FontsResolveThroughFontconfig) {
    retainFonts();
    for (int i = 0; i < kNumFonts; ++i) {
        EXPECT_NE(fontFace(i), nullptr) << i;
        EXPECT_STRNE(resolvedFontFamily(i), "") << i;
    }
    EXPECT_STREQ(fontFamily(42), "Helvetica");  // an unknown number falls back
    // Helvetica comes out as a metric-compatible sans face, not a fallback
    // to whatever is first (fonts-urw-base35 provides Nimbus Sans).
    EXPECT_NE(std::string(resolvedFontFamily(kNormalFont)).find("Sans"), std::string::npos)
        << resolvedFontFamily(kNormalFont);
    releaseFonts();
}

TEST_F(WidgetsTest, KnobDrawsHandleAndShadowAtItsValue) {
    auto knob = makeRef<Knob>(Rect(13, 62, 38, 87), &rec, 21);
    frame->addView(knob.get());
    for (float v : {0.0f, 0.5f, 1.0f}) {
        knob->setValue(v);
        const Image img = renderOffscreen(*frame);
        const Point end = Knob::handleEnd(knob->viewSize(), v);
        // White near the tip, shadow (darker than the grey) beside it.
        const Rect tip(end.x - 1, end.y - 1, end.x + 2, end.y + 2);
        EXPECT_GT(img.count(tip, 255, 255, 255, 60), 0) << v;
        const Rect shadow(end.x, end.y, end.x + 3, end.y + 3);
        EXPECT_GT(img.count(shadow, 60, 60, 60, 40), 0) << v;
        // Nothing white outside the knob.
        EXPECT_EQ(img.count(Rect(0, 0, 200, 60), 255, 255, 255, 60), 0);
    }
    // Where the pointer ends at each value: EditorArtTest.ArtLinesUpWithTheEditorsWidgetsWhichDoNotCollide.
}

TEST_F(WidgetsTest, KnobDragAndWheelChangeValueInsideOneGesture) {
    auto knob = makeRef<Knob>(Rect(10, 10, 35, 35), &rec, 21);
    frame->addView(knob.get());
    knob->setValue(0.5f);
    frame->dispatchMouseDown(Point{22, 22}, kLButton);
    EXPECT_EQ(frame->mouseCapture(), knob.get());
    frame->dispatchMouseMoved(Point{22, 7}, kLButton);     // 15 px up: +0.1
    EXPECT_NEAR(knob->value(), 0.6f, 1e-5);
    frame->dispatchMouseMoved(Point{300, -300}, kLButton);  // far away: clamped
    EXPECT_FLOAT_EQ(knob->value(), 1.0f);
    frame->dispatchMouseUp(Point{22, 52}, 0);               // release 30 px below start
    EXPECT_NEAR(knob->value(), 0.3f, 1e-5);
    EXPECT_EQ(frame->mouseCapture(), nullptr);
    EXPECT_EQ(rec.log, "b21;v21;v21;v21;e21;");
    frame->dispatchMouseMoved(Point{22, 0}, 0);  // no capture: nothing moves
    EXPECT_NEAR(knob->value(), 0.3f, 1e-5);

    rec.log.clear();
    frame->dispatchWheel(Point{20, 20}, 3.0f, 0);
    EXPECT_NEAR(knob->value(), 0.33f, 1e-5);
    EXPECT_EQ(rec.log, "b21;v21;e21;");
    knob->setValue(1.0f);
    rec.log.clear();
    frame->dispatchWheel(Point{20, 20}, 1.0f, 0);  // already at the top: no change reported
    EXPECT_EQ(rec.log, "");
}

TEST_F(WidgetsTest, OnOffButtonShowsTheStateOfItsValue) {
    auto art = bands(20, 20, {Color{255, 0, 0, 255}, Color{0, 255, 0, 255}});
    auto button = makeRef<OnOffButton>(Rect::fromSize(43, 43, 20, 10), &rec, 24, art.get());
    frame->addView(button.get());
    Image img = renderOffscreen(*frame);
    EXPECT_EQ(img.count(button->viewSize(), 255, 0, 0, 10), 200);
    frame->dispatchMouseDown(Point{50, 48}, kLButton);
    EXPECT_TRUE(button->isOn());
    img = renderOffscreen(*frame);
    EXPECT_EQ(img.count(button->viewSize(), 0, 255, 0, 10), 200);
    EXPECT_EQ(img.count(Rect(43, 53, 63, 63), 0, 255, 0, 10), 0);  // the lower half stays hidden
    frame->dispatchMouseDown(Point{50, 48}, kRButton);  // only the primary button toggles
    EXPECT_TRUE(button->isOn());
    frame->dispatchMouseDown(Point{50, 48}, kLButton);
    EXPECT_FALSE(button->isOn());
    EXPECT_EQ(rec.log, "b24;v24;e24;b24;v24;e24;");
}

TEST_F(WidgetsTest, SwitchStepsBothWaysAndDrawsItsPosition) {
    const std::vector<Color> colours{{255, 0, 0, 255}, {0, 255, 0, 255}, {0, 0, 255, 255},
                                     {255, 255, 0, 255}};
    auto art = bands(16, 40, colours);
    auto sw = makeRef<MultiPositionSwitch>(Rect::fromSize(11, 29, 16, 10), &rec, 91, 4, 10,
                                           art.get());
    frame->addView(sw.get());
    auto shown = [&] {
        const Image img = renderOffscreen(*frame);
        for (size_t i = 0; i < colours.size(); ++i) {
            if (img.count(sw->viewSize(), colours[i].red, colours[i].green, colours[i].blue, 10) ==
                160) {
                return static_cast<int>(i);
            }
        }
        return -1;
    };
    EXPECT_EQ(shown(), 0);
    const int upSteps[] = {1, 2, 3, 0};
    for (int expected : upSteps) {
        frame->dispatchMouseDown(Point{15, 31}, kLButton);
        EXPECT_EQ(sw->currentPosition(), expected);
        EXPECT_EQ(shown(), expected);
    }
    frame->dispatchMouseDown(Point{15, 31}, kRButton);  // down from 0 wraps to 3
    EXPECT_FLOAT_EQ(sw->value(), 1.0f);
    EXPECT_EQ(shown(), 3);
    frame->dispatchMouseDown(Point{15, 31}, kRButton);
    EXPECT_NEAR(sw->value(), 2.0f / 3, 1e-6);
    EXPECT_EQ(rec.changes, 6);
    EXPECT_EQ(rec.log.substr(0, 24), "b91;v91;e91;b91;v91;e91;");
    // A value set as 3.0 (outside 0..1) shows the last position and wraps up to 0.
    sw->setValue(3.0f);
    EXPECT_EQ(shown(), 3);
    frame->dispatchMouseDown(Point{15, 31}, kLButton);
    EXPECT_FLOAT_EQ(sw->value(), 0.0f);
}

TEST_F(WidgetsTest, SliderPlacesHandleAndFollowsThePointer) {
    auto handle = bands(7, 10, {kWhiteColor});
    auto slider = makeRef<HorizontalSlider>(Rect(11, 60, 74, 70), &rec, 26, handle.get(), 63);
    frame->addView(slider.get());
    slider->setValue(0.5f);
    Image img = renderOffscreen(*frame);
    const Rect white = img.inkBox(Rect(0, 55, 200, 75), test::Pixel{128, 128, 128}, 60);
    EXPECT_EQ(white, Rect(39, 60, 46, 70));  // 11 + 0.5 * (63 - 7)
    frame->dispatchMouseDown(Point{14, 65}, kLButton);
    EXPECT_FLOAT_EQ(slider->value(), 0.0f);
    frame->dispatchMouseMoved(Point{14 + 28, 90}, kLButton);
    EXPECT_FLOAT_EQ(slider->value(), 0.5f);
    frame->dispatchMouseUp(Point{500, 65}, 0);
    EXPECT_FLOAT_EQ(slider->value(), 1.0f);
    img = renderOffscreen(*frame);
    EXPECT_EQ(img.inkBox(Rect(0, 55, 200, 75), test::Pixel{128, 128, 128}, 60), Rect(67, 60, 74, 70));
    EXPECT_EQ(rec.log.substr(0, 4), "b26;");
    EXPECT_EQ(rec.log.substr(rec.log.size() - 4), "e26;");
    frame->dispatchWheel(Point{20, 65}, -10.0f, 0);
    EXPECT_NEAR(slider->value(), 0.9f, 1e-5);
}

TEST_F(WidgetsTest, ParamDisplayDrawsCallbackTextAlignedWithShadow) {
    auto display = makeRef<ParamDisplay>(Rect(20, 20, 120, 40));
    display->setStringConvert([](float v, char* text, size_t size) {
        std::snprintf(text, size, "%d%%", static_cast<int>(v * 100));
    });
    display->setValue(0.42f);
    char text[32];
    display->valueToString(display->value(), text, sizeof text);
    EXPECT_STREQ(text, "42%");
    display->setTransparent(true);
    display->setFont(kNormalFontVerySmall);
    display->setFontColor(kWhiteColor);
    display->setShadowColor(Color{255, 0, 0, 255});
    frame->addView(display.get());
    const test::Pixel grey{128, 128, 128};

    display->setHoriAlign(HoriAlign::Right);
    Image img = renderOffscreen(*frame);
    Rect ink = img.inkBox(display->viewSize(), grey);
    EXPECT_GE(ink.right, 117);
    EXPECT_GT(ink.left, 60);
    EXPECT_EQ(img.count(display->viewSize(), 255, 0, 0, 60), 0);  // no shadow style yet

    display->setHoriAlign(HoriAlign::Left);
    display->setStyle(ParamDisplay::kShadowText);
    img = renderOffscreen(*frame);
    ink = img.inkBox(display->viewSize(), grey);
    EXPECT_LE(ink.left, 22);
    EXPECT_LT(ink.right, 80);
    // The shadow shows beside the white text.
    EXPECT_GT(img.count(display->viewSize(), 255, 0, 0, 80), 3);
    EXPECT_GT(img.count(display->viewSize(), 255, 255, 255, 60), 3);

    display->setStyle(ParamDisplay::kNoTextStyle);
    img = renderOffscreen(*frame);
    EXPECT_TRUE(img.inkBox(display->viewSize(), grey).isEmpty());

    // Opaque: the back colour fills the rectangle.
    display->setStyle(0);
    display->setTransparent(false);
    display->setBackColor(Color{0, 0, 255, 255});
    img = renderOffscreen(*frame);
    EXPECT_GT(img.count(display->viewSize(), 0, 0, 255, 10), 1500);

    // Without a callback: two decimals with a point in any locale.
    auto plain = makeRef<ParamDisplay>(Rect(0, 0, 10, 10));
    plain->valueToString(0.5f, text, sizeof text);
    EXPECT_STREQ(text, "0.50");
    plain->valueToString(-1.234f, text, sizeof text);
    EXPECT_STREQ(text, "-1.23");
}

TEST_F(WidgetsTest, TextLabelAndBitmapViewDrawFixedContent) {
    std::string longText(300, 'w');
    auto label = makeRef<TextLabel>(Rect(4, 2, 60, 14), longText.c_str());
    EXPECT_EQ(std::string(label->text()).size(), 255u);
    label->setText(nullptr);
    EXPECT_STREQ(label->text(), "");
    label->setText("7");
    char text[8];
    label->valueToString(0.9f, text, sizeof text);
    EXPECT_STREQ(text, "7");

    auto art = bands(30, 20, {Color{0, 0, 255, 255}});
    auto view = makeRef<BitmapView>(Rect(100, 50, 200, 120), art.get());  // larger than the art
    frame->addView(view.get());
    label->setTransparent(true);
    frame->addView(label.get());
    const Image img = renderOffscreen(*frame);
    EXPECT_EQ(img.count(Rect(100, 50, 200, 120), 0, 0, 255, 10), 600);  // natural size only
    EXPECT_GT(img.count(label->viewSize(), 255, 255, 255, 100), 2);
}

TEST_F(WidgetsTest, ContainerBackgroundAndTransparency) {
    auto art = bands(40, 40, {Color{0, 255, 0, 255}});
    auto strip = makeRef<ViewContainer>(Rect(50, 10, 150, 110));
    strip->setBackgroundColor(Color{0, 0, 255, 255});
    strip->setBackground(art.get());
    frame->addView(strip.get());
    Image img = renderOffscreen(*frame);
    EXPECT_EQ(img.count(Rect(50, 10, 90, 50), 0, 255, 0, 10), 1600);
    EXPECT_EQ(img.count(Rect(50, 10, 150, 110), 0, 0, 255, 10), 10000 - 1600);
    strip->setTransparent(true);
    img = renderOffscreen(*frame);
    EXPECT_EQ(img.count(Rect(50, 10, 150, 110), 0, 0, 255, 10), 0);
    EXPECT_EQ(img.count(Rect(50, 10, 150, 110), 128, 128, 128, 10), 10000 - 1600);
    strip->setVisible(false);
    img = renderOffscreen(*frame);
    EXPECT_EQ(img.count(Rect(50, 10, 150, 110), 0, 255, 0, 10), 0);
    // A child is clipped to its container.
    strip->setVisible(true);
    auto wide = makeRef<BitmapView>(Rect(90, 0, 200, 20), bands(110, 20, {Color{255, 0, 0, 255}}).get());
    strip->addView(wide.get());
    img = renderOffscreen(*frame);
    EXPECT_EQ(img.count(Rect(0, 0, 200, 120), 255, 0, 0, 10), 10 * 20);
}

TEST_F(WidgetsTest, PushButtonFiresOnlyWhenReleasedInside) {
    auto ok = makeRef<PushButton>(Rect(10, 10, 60, 30), &rec, 1, "OK");
    frame->addView(ok.get());
    frame->dispatchMouseDown(Point{20, 20}, kLButton);
    frame->dispatchMouseMoved(Point{100, 100}, kLButton);
    frame->dispatchMouseUp(Point{100, 100}, 0);
    EXPECT_EQ(rec.changes, 0);
    frame->dispatchMouseDown(Point{20, 20}, kLButton);
    frame->dispatchMouseUp(Point{25, 25}, 0);
    EXPECT_EQ(rec.changes, 1);
    EXPECT_FLOAT_EQ(rec.last, 1.0f);   // the listener saw the press
    EXPECT_FLOAT_EQ(ok->value(), 0.0f);  // and the button is up again
}

TEST_F(WidgetsTest, TextFieldTypesOnlyWhileFocused) {
    auto field = makeRef<TextField>(Rect(40, 50, 180, 66));
    frame->addView(field.get());
    KeyEvent a;
    std::strcpy(a.text, "a");
    EXPECT_EQ(frame->dispatchKeyDown(a), 0);  // no focus yet
    EXPECT_EQ(field->text(), "");
    frame->dispatchMouseDown(Point{50, 55}, kLButton);
    EXPECT_TRUE(field->hasFocus());
    EXPECT_EQ(frame->focusView(), field.get());
    EXPECT_EQ(frame->dispatchKeyDown(a), 1);
    std::strcpy(a.text, "\xC3\xBC");  // ü
    frame->dispatchKeyDown(a);
    EXPECT_EQ(field->text(), "a\xC3\xBC");
    frame->setFocusView(nullptr);
    EXPECT_FALSE(field->hasFocus());
    EXPECT_EQ(frame->dispatchKeyDown(a), 0);
}

TEST_F(WidgetsTest, BitmapsLoadByResourceNumberTryingEachTypeInTheOverrideOrByPath) {
    char name[16];
    Bitmap::resourceName(123456, name, sizeof name);  // at least five digits
    EXPECT_STREQ(name, "bmp123456");
    ASSERT_TRUE(test::writeBandsPng(dir.path() + "/bmp00101.png", 21, 40,
                                    {kWhiteColor, kBlackColor}));
    // PNG data under another of the tried types loads as well.
    ASSERT_TRUE(test::writeBandsPng(dir.path() + "/bmp00200.bmp", 5, 6, {kWhiteColor}));
    // A file that is no PNG leaves the bitmap empty.
    std::ofstream(dir.path() + "/bmp00300.png") << "not a picture";
    Bitmap::setResourceDirectory(dir.path());

    Bitmap a(101);
    EXPECT_TRUE(a.isLoaded());
    EXPECT_EQ(a.width(), 21);
    EXPECT_EQ(a.height(), 40);
    Bitmap b(200);
    EXPECT_TRUE(b.isLoaded());
    EXPECT_EQ(b.width(), 5);
    Bitmap bad(300);
    EXPECT_FALSE(bad.isLoaded());
    EXPECT_EQ(bad.width(), 0);
    EXPECT_FALSE(Bitmap(3).isLoaded());

    // Without the override the lookup is in the bundle, which the test
    // program is not inside: nothing is found.
    Bitmap::setResourceDirectory("");
    EXPECT_FALSE(Bitmap(101).isLoaded());
    // By path; a failed reload empties the bitmap rather than keeping stale art.
    Bitmap byPath(dir.path() + "/bmp00101.png");
    EXPECT_EQ(byPath.height(), 40);
    EXPECT_FALSE(byPath.loadFile(dir.path() + "/nothing.png"));
    EXPECT_FALSE(byPath.isLoaded());
    EXPECT_EQ(byPath.width(), 0);
}

}  // namespace
}  // namespace varitap::gui
