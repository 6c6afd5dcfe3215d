// Bitmaps and widgets drawn offscreen through the frame's drawing path, and driven
// through the frame's event entry points (no window needed).
#include <gtest/gtest.h>

#include <cstring>
#include <fstream>
#include <functional>
#include <initializer_list>
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

using test::kBlue;
using test::kGreen;
using test::kRed;
using test::kYellow;
using test::renderOffscreen;

class WidgetsTest : public test::GuiTest {
protected:
    void SetUp() override {
        frame = makeRef<Frame>(Rect(0, 0, 200, 120), &rec);
        frame->setBackgroundColor(kGreyColor);
    }
    // What in r differs from the grey background, in the frame drawn now.
    Rect ink(const Rect& r) { return renderOffscreen(*frame).inkBox(r, test::Pixel{128, 128, 128}); }
};

// The knob's handle and shadow at three values, then dragged (up or right
// raises, 150 pixels for the whole range, ten times finer with Shift),
// clamped and turned by the wheel, each gesture reported as one edit.
TEST_F(WidgetsTest, KnobDrawsItsValueAndFollowsDragShiftAndWheel) {
    auto knob = makeRef<Knob>(Rect(13, 62, 38, 87), &rec, 21);
    frame->addView(knob.get());
    for (float v : {0.0f, 0.5f, 1.0f}) {
        knob->setValue(v);
        const test::Image img = renderOffscreen(*frame);
        const Point end = Knob::handleEnd(knob->viewSize(), v);
        // White near the tip, shadow (darker than the grey) beside it, nothing white outside the knob.
        EXPECT_GT(img.count(Rect(end.x - 1, end.y - 1, end.x + 2, end.y + 2), kWhiteColor, 60), 0) << v;
        EXPECT_GT(img.count(Rect(end.x, end.y, end.x + 3, end.y + 3), 60, 60, 60, 40), 0) << v;
        EXPECT_EQ(img.count(Rect(0, 0, 200, 60), kWhiteColor, 60), 0);
    }
    // Where the pointer ends at each value: EditorArtTest.ArtLinesUpWithTheEditorsWidgetsWhichDoNotCollide.

    knob->setValue(0.5f);
    frame->dispatchMouseDown(Point{22, 72}, kLButton);
    EXPECT_EQ(frame->mouseCapture(), knob.get());
    frame->dispatchMouseMoved(Point{22, 57}, kLButton);  // 15 px up: +0.1
    EXPECT_NEAR(knob->value(), 0.6f, 1e-5);
    frame->dispatchMouseMoved(Point{300, -300}, kLButton);  // far away: clamped
    EXPECT_FLOAT_EQ(knob->value(), 1.0f);
    frame->dispatchMouseUp(Point{37, 117}, 0);  // released 15 px right of and 45 px below the start
    EXPECT_NEAR(knob->value(), 0.3f, 1e-5);
    EXPECT_EQ(frame->mouseCapture(), nullptr);
    EXPECT_EQ(rec.log, "b21;v21;v21;v21;e21;");
    frame->dispatchMouseMoved(Point{22, 0}, 0);  // no capture: nothing moves
    EXPECT_NEAR(knob->value(), 0.3f, 1e-5);

    // Shift pressed mid-drag: no jump, then 1500 pixels for the range.
    frame->dispatchMouseDown(Point{22, 72}, kLButton);
    frame->dispatchMouseMoved(Point{22, 57}, kLButton | kShift);
    EXPECT_NEAR(knob->value(), 0.4f, 1e-5);
    frame->dispatchMouseUp(Point{22, 42}, kShift);
    EXPECT_NEAR(knob->value(), 0.41f, 1e-5);

    rec.log.clear();
    frame->dispatchWheel(Point{20, 70}, 3.0f, 0);
    EXPECT_NEAR(knob->value(), 0.44f, 1e-5);
    EXPECT_EQ(rec.log, "b21;v21;e21;");
    rec.log.clear();
    knob->setValue(1.0f);
    frame->dispatchWheel(Point{20, 70}, 1.0f, 0);  // at either end: clamped, no change reported
    knob->setValue(0.0f);
    frame->dispatchWheel(Point{20, 70}, -1.0f, 0);
    EXPECT_EQ(rec.log, "");
}

// An on/off button, a four-position switch, a picture larger than its art and
// a container in one frame: after each step, the pixels of a colour in an area.
TEST_F(WidgetsTest, PicturesFollowTheStatesOfButtonSwitchAndContainer) {
    auto button = makeRef<OnOffButton>(Rect::fromSize(3, 3, 20, 10), &rec, 24, bands(20, 20, {kRed, kGreen}).get());
    auto sw = makeRef<MultiPositionSwitch>(Rect::fromSize(30, 20, 16, 10), &rec, 91, 4, 10,
                                           bands(16, 40, {kRed, kGreen, kBlue, kYellow}).get());
    auto picture = makeRef<BitmapView>(Rect(0, 50, 50, 120), bands(30, 20, {kBlue}).get());
    // A container with a colour, a picture and a child reaching out of it.
    auto strip = makeRef<ViewContainer>(Rect(50, 10, 150, 110));
    strip->setBackgroundColor(kBlue);
    strip->setBackground(bands(40, 40, {kGreen}).get());
    strip->addView(makeRef<BitmapView>(Rect(90, 0, 200, 20), bands(110, 20, {kRed}).get()).get());
    // Art that did not load draws nothing and leaves the views after it to draw.
    auto noArt = makeRef<OnOffButton>(Rect(0, 0, 2, 2), &rec, 25, makeRef<Bitmap>(dir.path() + "/none.png").get());
    for (View* v : std::initializer_list<View*>{noArt.get(), button.get(), sw.get(), picture.get(), strip.get()}) {
        frame->addView(v);
    }
    auto press = [this](Point where, uint32_t buttons) {
        return [this, where, buttons] { frame->dispatchMouseDown(where, buttons); };
    };
    const auto toggle = press(Point{10, 8}, kLButton);
    const auto up = press(Point{34, 22}, kLButton);
    const auto down = press(Point{34, 22}, kRButton);
    const Rect b = button->viewSize(), s = sw->viewSize(), st = strip->viewSize();
    const struct {
        const char* what;
        std::function<void()> act;
        Rect area;
        Color colour;
        int pixels;
    } steps[] = {
        {"button off", {}, b, kRed, 200},
        {"button on", toggle, b, kGreen, 200},
        {"only the art's top half", {}, Rect::fromSize(3, 13, 20, 10), kGreen, 0},
        {"the secondary button leaves it on", press(Point{10, 8}, kRButton), b, kGreen, 200},
        {"button off again", toggle, b, kRed, 200},
        {"switch at 0", {}, s, kRed, 160},
        {"switch up to 1", up, s, kGreen, 160},
        {"switch up to 2", up, s, kBlue, 160},
        {"switch up to 3", up, s, kYellow, 160},
        {"switch wraps up to 0", up, s, kRed, 160},
        {"switch wraps down to 3", down, s, kYellow, 160},
        {"switch down to 2", down, s, kBlue, 160},
        {"a value of 3.0 shows the last position", [&] { sw->setValue(3.0f); }, s, kYellow, 160},
        {"and wraps up to 0", up, s, kRed, 160},
        {"a picture at its natural size only", {}, picture->viewSize(), kBlue, 600},
        {"the container's picture", {}, Rect(50, 10, 90, 50), kGreen, 1600},
        {"its child, clipped to it", {}, st, kRed, 10 * 20},
        {"nothing of the child outside", {}, Rect(150, 0, 200, 120), kRed, 0},
        {"the container's colour", {}, st, kBlue, 10000 - 1600 - 200},
        {"a transparent container", [&] { strip->setTransparent(true); }, st, kBlue, 0},
        {"shows the frame's grey", {}, st, kGreyColor, 10000 - 1600 - 200},
        {"a hidden container", [&] { strip->setVisible(false); }, st, kGreen, 0},
    };
    for (const auto& step : steps) {
        SCOPED_TRACE(step.what);
        if (step.act) step.act();
        EXPECT_EQ(renderOffscreen(*frame).count(step.area, step.colour, 10), step.pixels);
    }
    std::string log = "b24;v24;e24;b24;v24;e24;";
    for (int i = 0; i < 7; ++i) log += "b91;v91;e91;";
    EXPECT_EQ(rec.log, log);
}

TEST_F(WidgetsTest, SliderPlacesHandleFollowsThePointerAndKeepsItsHandleInside) {
    auto slider = makeRef<HorizontalSlider>(Rect(11, 60, 74, 70), &rec, 26, bands(7, 10, {kWhiteColor}).get(), 63);
    frame->addView(slider.get());
    slider->setValue(0.5f);
    EXPECT_EQ(ink(Rect(0, 55, 200, 75)), Rect(39, 60, 46, 70));  // 11 + 0.5 * (63 - 7)
    frame->dispatchMouseDown(Point{14, 65}, kLButton);
    EXPECT_FLOAT_EQ(slider->value(), 0.0f);
    frame->dispatchMouseMoved(Point{14 + 28, 90}, kLButton);
    EXPECT_FLOAT_EQ(slider->value(), 0.5f);
    frame->dispatchMouseUp(Point{500, 65}, 0);
    EXPECT_FLOAT_EQ(slider->value(), 1.0f);
    EXPECT_EQ(ink(Rect(0, 55, 200, 75)), Rect(67, 60, 74, 70));
    EXPECT_EQ(rec.log.substr(0, 4), "b26;");
    EXPECT_EQ(rec.log.substr(rec.log.size() - 4), "e26;");
    frame->dispatchWheel(Point{20, 65}, -10.0f, 0);
    EXPECT_NEAR(slider->value(), 0.9f, 1e-5);

    // Its geometry: the travel shortened to 56 keeps the handle inside; then
    // other travels, handle widths and directions.
    SliderGeometry g = slider->geometry();
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

TEST_F(WidgetsTest, ParamDisplayAndTextLabelDrawTheirTextAlignedWithShadow) {
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
    display->setShadowColor(kRed);
    frame->addView(display.get());
    const Rect r = display->viewSize();

    display->setHoriAlign(HoriAlign::Right);
    EXPECT_GE(ink(r).right, 117);
    EXPECT_GT(ink(r).left, 60);
    EXPECT_EQ(renderOffscreen(*frame).count(r, kRed, 60), 0);  // no shadow style yet
    display->setHoriAlign(HoriAlign::Left);
    display->setStyle(ParamDisplay::kShadowText);
    EXPECT_LE(ink(r).left, 22);
    EXPECT_LT(ink(r).right, 80);
    // The shadow shows beside the white text.
    EXPECT_GT(renderOffscreen(*frame).count(r, kRed, 80), 3);
    EXPECT_GT(renderOffscreen(*frame).count(r, kWhiteColor, 60), 3);
    display->setStyle(ParamDisplay::kNoTextStyle);
    EXPECT_TRUE(ink(r).isEmpty());
    // Opaque: the back colour fills the rectangle.
    display->setStyle(0);
    display->setTransparent(false);
    display->setBackColor(kBlue);
    EXPECT_GT(renderOffscreen(*frame).count(r, kBlue, 10), 1500);

    // Without a callback: two decimals with a point in any locale.
    auto plain = makeRef<ParamDisplay>(Rect(0, 0, 10, 10));
    plain->valueToString(0.5f, text, sizeof text);
    EXPECT_STREQ(text, "0.50");
    plain->valueToString(-1.234f, text, sizeof text);
    EXPECT_STREQ(text, "-1.23");

    // A label shows its own text (at most 255 bytes) whatever the value.
    auto label = makeRef<TextLabel>(Rect(4, 82, 60, 94), std::string(300, 'w').c_str());
    EXPECT_EQ(std::string(label->text()).size(), 255u);
    label->setText(nullptr);
    EXPECT_STREQ(label->text(), "");
    label->setText("7");
    label->valueToString(0.9f, text, sizeof text);
    EXPECT_STREQ(text, "7");
    label->setTransparent(true);
    label->setFont(kNumFonts);  // an unknown font number: the first font
    frame->addView(label.get());
    EXPECT_GT(renderOffscreen(*frame).count(label->viewSize(), kWhiteColor, 100), 2);

    // The last user's release lets go of every face, the first font's too:
    // one reference for each font number that has the first font's face.
    retainFonts();
    cairo_font_face_t* held = cairo_font_face_reference(fontFace(0));
    unsigned int cached = 0;
    for (int id = 0; id < kNumFonts; ++id) cached += fontFace(id) == held ? 1 : 0;
    const unsigned int references = cairo_font_face_get_reference_count(held);
    releaseFonts();
    EXPECT_EQ(cairo_font_face_get_reference_count(held), references - cached);
    cairo_font_face_destroy(held);
}

// The name dialog's widgets: a push button fires only when released inside
// it, a text field takes keys only while it has the focus.
TEST_F(WidgetsTest, PushButtonFiresOnlyWhenReleasedInsideAndTextFieldTypesOnlyWhileFocused) {
    auto ok = makeRef<PushButton>(Rect(10, 10, 60, 30), &rec, 1, "OK");
    frame->addView(ok.get());
    frame->dispatchMouseDown(Point{20, 20}, kLButton);
    frame->dispatchMouseMoved(Point{100, 100}, kLButton);
    frame->dispatchMouseUp(Point{25, 25}, 0);  // dragged out: a release back inside does not count
    EXPECT_EQ(rec.log, "");
    frame->dispatchMouseDown(Point{20, 20}, kLButton);
    frame->dispatchMouseUp(Point{25, 25}, 0);
    EXPECT_EQ(rec.log, "v1;");
    EXPECT_FLOAT_EQ(rec.last, 1.0f);   // the listener saw the press
    EXPECT_FLOAT_EQ(ok->value(), 0.0f);  // and the button is up again
    EXPECT_EQ(renderOffscreen(*frame).count(Rect(10, 10, 60, 11), kBlackColor, 10), 50);  // its frame

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
    ASSERT_TRUE(test::writeBandsPng(dir.path() + "/bmp00101.png", 21, 40, {kWhiteColor, kBlackColor}));
    // PNG data under another of the tried types loads as well; a file that is
    // no PNG leaves the bitmap empty.
    ASSERT_TRUE(test::writeBandsPng(dir.path() + "/bmp00200.bmp", 5, 6, {kWhiteColor}));
    std::ofstream(dir.path() + "/bmp00300.png") << "not a picture";
    Bitmap::setResourceDirectory(dir.path());
    const struct {
        int number, width, height;
    } resources[] = {{101, 21, 40}, {200, 5, 6}, {300, 0, 0}, {3, 0, 0}};
    for (const auto& r : resources) {
        const Bitmap b(r.number);
        EXPECT_EQ(b.isLoaded(), r.width > 0) << r.number;
        EXPECT_EQ(b.width(), r.width) << r.number;
        EXPECT_EQ(b.height(), r.height) << r.number;
    }
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
