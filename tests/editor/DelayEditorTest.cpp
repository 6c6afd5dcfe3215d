// The editor's layout and value mappings, opened in a stand-in host window:
// the tree built from the bitmaps, parameters reaching the widgets (also from
// another thread), widgets reaching the host as automation inside edit
// gestures, the routing and tempo menus, the modulator table and the speed
// display.
#include "editor/DelayEditor.h"

#include <gtest/gtest.h>
#include <xkbcommon/xkbcommon-keysyms.h>

#include <atomic>
#include <chrono>
#include <cmath>
#include <thread>

#include "EditorTestSupport.h"
#include "editor/EditorViews.h"
#include "engine/NoteValueTable.h"
#include "gui/Bitmap.h"
#include "gui/DrawContext.h"
#include "gui/Buttons.h"
#include "gui/Knob.h"
#include "gui/OptionMenu.h"
#include "gui/Slider.h"
#include "host/DelayEffect.h"

namespace varitap::test {
namespace {

using gui::Point;
using gui::Rect;

Point centerOf(const gui::View* view) {
    const Rect r = view->frameRect();
    return Point{(r.left + r.right) / 2, (r.top + r.bottom) / 2};
}

class DelayEditorTest : public ::testing::Test {
protected:
    void SetUp() override {
        if (!gui::test::haveDisplay() || !host.display().ok()) GTEST_SKIP() << "no X server";
        ASSERT_NE(host.effect(), nullptr);
        ASSERT_NE(host.editor(), nullptr);
        hostLog().clear();
    }
    DelayEditor& editor() { return *host.editor(); }
    void hostSets(int32_t index, float value) {
        host.aeffect()->setParameter(host.aeffect(), index, value);
    }
    float parameter(int32_t index) { return host.aeffect()->getParameter(host.aeffect(), index); }
    // Clicks at a point while a helper presses Escape on any menu that opens;
    // true when one opened.
    bool clickOpensMenu(Point at) {
        std::atomic<bool> opened{false};
        std::thread guard([&] {
            const xcb_window_t w = waitForMenus(host.display(), 1, 600);
            if (!w) return;
            opened = true;
            pressKey(host.display(), w, XKB_KEY_Escape);
        });
        host.click(at.x, at.y);
        guard.join();
        return opened;
    }

    ConfigHome home;
    EditorHost host;
};

TEST_F(DelayEditorTest, AttachedEditorAnswersTheHostAndLaysOutStripsFromTheBitmaps) {
    vst::ERect* rect = nullptr;
    ASSERT_EQ(host.dispatch(vst::effEditGetRect, 0, 0, &rect), 1);
    ASSERT_NE(rect, nullptr);
    EXPECT_EQ(rect->right, 865);
    EXPECT_EQ(rect->bottom, 400);

    ASSERT_TRUE(host.openEditor());
    ASSERT_NE(host.editorWindow(), 0u);
    EXPECT_EQ(host.display().geometry(host.editorWindow()), Rect(0, 0, 865, 400));

    const gui::Bitmap* stripArt = editor().bitmap(DelayEditor::kStripBitmap);
    const gui::Bitmap* panelArt = editor().bitmap(DelayEditor::kPanelBitmap);
    ASSERT_TRUE(stripArt && stripArt->isLoaded() && panelArt && panelArt->isLoaded());
    const int w = stripArt->width();
    const int h = stripArt->height();
    for (int i = 0; i < kTapCount; ++i) {
        EXPECT_EQ(editor().tapStrip(i)->viewSize(), Rect::fromSize(32 + i * (w - 10), 1, w, h));
        EXPECT_EQ(editor().modulatorPanel(i)->viewSize(),
                  Rect::fromSize(32 + i * (w - 10), 1 + h - 4, w, panelArt->height()));
        EXPECT_EQ(editor().delayKnob(i)->tag(), 21 + 7 * i);
        EXPECT_EQ(editor().feedbackKnob(i)->tag(), 23 + 7 * i);
        EXPECT_EQ(editor().resonanceSlider(i)->tag(), 27 + 7 * i);
        EXPECT_EQ(editor().tempoMenu(i)->tag(), 30001 + i);
        EXPECT_EQ(editor().outputMenu(i)->tag(), 10 + i);
        EXPECT_EQ(editor().typeSwitch(i)->tag(), 91 + 15 * i);
        EXPECT_EQ(editor().powerButton(i)->tag(), 91 + 15 * i + 6);
        EXPECT_EQ(editor().tableToggle(i)->tag(), 10000 + i);
    }
    // The note menu lies exactly over the delay display, above it.
    EXPECT_EQ(editor().tempoMenu(0)->viewSize(), editor().delayDisplay(0)->viewSize());
    EXPECT_EQ(editor().tempoMenu(0)->nbEntries(), noteValueCount());

    // Keys reach the editor through the frame and come back to it without
    // running in circles.
    host.display().key(host.editorWindow(), XKB_KEY_a);
    host.display().key(host.editorWindow(), XKB_KEY_Return);
    host.settle(1);
    gui::KeyEvent key;
    key.virtualKey = gui::VirtualKey::Escape;
    EXPECT_EQ(editor().onKeyDown(key), 0);

    // Opening again without a close replaces the tree; closing removes it.
    ASSERT_TRUE(host.openEditor());
    host.closeEditor();
    EXPECT_EQ(editor().frame(), nullptr);
    EXPECT_EQ(editor().delayKnob(0), nullptr);
}

TEST_F(DelayEditorTest, WidgetsStartAtTheParameterMappingsAndFollowTheHost) {
    hostSets(0, 0.5f);                                        // input selector 22
    hostSets(13, 1.0f);                                       // output of tap 3: 24
    hostSets(20, 0.3f);
    hostSets(tapParameterIndex(2, kTapFilterType), 0.5f);     // LowPass
    hostSets(modulatorParameterIndex(1, kModulatorIndex), 21.0f);
    hostSets(modulatorParameterIndex(5, kModulatorType), 1.0f);
    hostSets(modulatorParameterIndex(6, kModulatorType), 2.0f / 3.0f);
    ASSERT_TRUE(host.openEditor());

    EXPECT_EQ(editor().inputMenu(0)->current(), 22);
    EXPECT_STREQ(editor().inputMenu(0)->entry(22), "Out 2");
    EXPECT_EQ(editor().outputMenu(3)->current(), 24);
    EXPECT_STREQ(editor().outputMenu(3)->entry(24), "Intern 4");
    EXPECT_FLOAT_EQ(editor().wetDryKnob()->value(), 0.3f);
    EXPECT_EQ(editor().filterMenu(2)->current(), 2);
    EXPECT_STREQ(editor().filterMenu(2)->entry(2), "LowPass");
    EXPECT_EQ(editor().indexMenu(1)->current(), 1);
    EXPECT_STREQ(editor().indexMenu(1)->entry(1), "#1: Delay");
    EXPECT_STREQ(editor().indexMenu(1)->entry(0), "Wet/Dry Mix Volume");
    EXPECT_EQ(editor().indexMenu(1)->nbEntries(), 71);
    // When built, the Type switch shows 3 x the parameter, and only Type 1.0
    // brings the table toggle into the panel.
    EXPECT_FLOAT_EQ(editor().typeSwitch(5)->value(), 3.0f);
    EXPECT_TRUE(editor().modulatorPanel(5)->isChild(editor().tableToggle(5)));
    EXPECT_FLOAT_EQ(editor().typeSwitch(6)->value(), 2.0f);
    EXPECT_FALSE(editor().modulatorPanel(6)->isChild(editor().tableToggle(6)));
    EXPECT_FALSE(editor().modulatorPanel(5)->isChild(editor().tableView(5)));

    // Later host updates set the plain value.
    hostSets(modulatorParameterIndex(6, kModulatorType), 1.0f / 3.0f);
    EXPECT_FLOAT_EQ(editor().typeSwitch(6)->value(), 1.0f / 3.0f);
    hostSets(tapParameterIndex(4, kTapFilterType), 1.0f);
    EXPECT_EQ(editor().filterMenu(4)->current(), 4);
    hostSets(modulatorParameterIndex(2, kModulatorIndex), 90.0f);
    EXPECT_STREQ(editor().indexMenu(2)->entry(editor().indexMenu(2)->current()), "#10: Resonance");

    // Automation from another thread (as hosts and modulators do) reaches
    // the widgets, and the next idle draws them.
    const Point end = gui::Knob::handleEnd(editor().wetDryKnob()->viewSize(), 1.0f);
    const Rect around(end.x - 1, end.y - 1, end.x + 2, end.y + 2);
    EXPECT_EQ(host.grabEditor().count(around, 255, 255, 255, 40), 0);
    std::thread automation([&] {
        hostSets(20, 1.0f);
        hostSets(tapParameterIndex(7, kTapDelay), 0.75f);
        hostSets(tapParameterIndex(1, kTapCutoff), 0.25f);
        hostSets(modulatorParameterIndex(4, kModulatorPower), 1.0f);
        hostSets(modulatorParameterIndex(0, kModulatorMin), 0.3f);
        hostSets(modulatorParameterIndex(8, kModulatorSpeed), 0.6f);
    });
    automation.join();
    EXPECT_FLOAT_EQ(editor().wetDryKnob()->value(), 1.0f);
    EXPECT_FLOAT_EQ(editor().delayKnob(7)->value(), 0.75f);
    EXPECT_FLOAT_EQ(editor().cutoffSlider(1)->value(), 0.25f);
    EXPECT_TRUE(editor().powerButton(4)->isOn());
    EXPECT_FLOAT_EQ(editor().minSlider(0)->value(), 0.3f);
    EXPECT_FLOAT_EQ(editor().speedKnob(8)->value(), 0.6f);
    EXPECT_GT(host.grabEditor().count(around, 255, 255, 255, 40), 0);
}

TEST_F(DelayEditorTest, RoutingMenusKeepAbsentChannelsListedButDisabled) {
    ASSERT_TRUE(host.openEditor());
    // Two inputs and two outputs: every entry stays at its index, those of
    // absent channels disabled.
    gui::OptionMenu& input = *editor().inputMenu(0);
    gui::OptionMenu& output = *editor().outputMenu(9);
    ASSERT_EQ(input.nbEntries(), 45);
    ASSERT_EQ(output.nbEntries(), 25);
    struct Entry {
        gui::OptionMenu* menu;
        int index;
        const char* text;  // null: not checked
        bool disabled;
    };
    auto check = [](std::initializer_list<Entry> table) {
        for (const Entry& e : table) {
            if (e.text) {
                EXPECT_STREQ(e.menu->entry(e.index), e.text) << e.index;
            }
            EXPECT_EQ((e.menu->entryFlags(e.index) & gui::kMenuDisabled) != 0, e.disabled) << e.index;
        }
    };
    check({{&input, 0, "***", false}, {&input, 2, "In 2", false}, {&input, 3, "In 3", true},
           {&input, 20, nullptr, true}, {&input, 21, "Out 1", false}, {&input, 22, nullptr, false},
           {&input, 23, nullptr, true}, {&input, 41, "Intern 1", false}, {&input, 44, "Intern 4", false},
           {&output, 2, nullptr, false}, {&output, 3, nullptr, true}, {&output, 21, "Intern 1", false}});

    // Choosing entry 21 selects output 1 as the tap's source.
    input.setValue(21.0f);
    editor().valueChanged(nullptr, &input);
    EXPECT_FLOAT_EQ(parameter(0), 21.0f / 44.0f);
    EXPECT_EQ(host.effect()->engine().inputSelector(0), 21);
    EXPECT_EQ(hostLog().automated().back().first, 0);

    // A wider configuration from the host enables more entries at once.
    vst::VstSpeakerArrangement in{};
    vst::VstSpeakerArrangement out{};
    in.type = out.type = vst::kSpeakerArrUserDefined;
    in.numChannels = 4;
    out.numChannels = 6;
    ASSERT_EQ(host.dispatch(vst::effSetSpeakerArrangement, 0, reinterpret_cast<vst::VstIntPtr>(&in),
                            &out),
              1);
    gui::OptionMenu* in5 = editor().inputMenu(5);
    gui::OptionMenu* out5 = editor().outputMenu(5);
    check({{in5, 4, nullptr, false}, {in5, 5, nullptr, true}, {in5, 26, nullptr, false},
           {in5, 27, nullptr, true}, {out5, 6, nullptr, false}, {out5, 7, nullptr, true}});
    // The refilled menus show the values as the routing clamp left them.
    EXPECT_EQ(editor().inputMenu(0)->current(), static_cast<int>(parameter(0) * 44.0f));
}

TEST_F(DelayEditorTest, TempoNoteMenuTakesClicksOnlyAfterTheUserSwitchesSyncOn) {
    const int tap = 4;
    const int32_t syncIndex = tapParameterIndex(tap, kTapSync);
    const int32_t delayIndex = tapParameterIndex(tap, kTapDelay);
    hostSets(syncIndex, 0.0f);
    ASSERT_TRUE(host.openEditor());
    const Point display = centerOf(editor().delayDisplay(tap));
    EXPECT_FALSE(clickOpensMenu(display));

    // Host automation switches the button but not the menu.
    hostSets(syncIndex, 1.0f);
    EXPECT_TRUE(editor().tapSyncButton(tap)->isOn());
    EXPECT_FALSE(clickOpensMenu(display));
    hostSets(syncIndex, 0.0f);

    // The user's own click on Sync does.
    host.click(centerOf(editor().tapSyncButton(tap)).x, centerOf(editor().tapSyncButton(tap)).y);
    EXPECT_FLOAT_EQ(parameter(syncIndex), 1.0f);
    hostLog().clear();
    const int chosen = 6;
    std::thread user([&] {
        const xcb_window_t w = waitForMenus(host.display(), 1);
        if (!w) return;
        pressKey(host.display(), w, XKB_KEY_Down, chosen + 1);
        pressKey(host.display(), w, XKB_KEY_Return);
    });
    host.click(display.x, display.y);
    user.join();
    const float expected = chosen / static_cast<float>(noteValueCount() - 1) + 0.000005f;
    EXPECT_FLOAT_EQ(host.effect()->program().values[delayIndex], expected);
    EXPECT_FLOAT_EQ(editor().delayKnob(tap)->value(), expected);
    EXPECT_EQ(editor().delayText(tap), noteValueName(chosen));
    const auto automated = hostLog().automated();
    ASSERT_FALSE(automated.empty());
    EXPECT_EQ(automated.back().first, delayIndex);
    // Only parameter numbers reach the host's edit notifications.
    for (const std::string& e : hostLog().events()) EXPECT_EQ(e.find("3000"), std::string::npos) << e;

    // Host automation switching Sync off leaves the menu taking clicks.
    hostSets(syncIndex, 0.0f);
    EXPECT_TRUE(clickOpensMenu(display));
}

TEST_F(DelayEditorTest, TypeOneShowsTheTableToggleAndLeavingItHidesBoth) {
    const int m = 3;
    ASSERT_TRUE(host.openEditor());
    gui::ViewContainer* panel = editor().modulatorPanel(m);
    EXPECT_FALSE(panel->isChild(editor().tableToggle(m)));
    hostSets(modulatorParameterIndex(m, kModulatorType), 1.0f);
    ASSERT_TRUE(panel->isChild(editor().tableToggle(m)));
    EXPECT_FALSE(panel->isChild(editor().tableView(m)));

    // The toggle brings the table editor in.
    const Point toggle = centerOf(editor().tableToggle(m));
    host.click(toggle.x, toggle.y);
    ASSERT_TRUE(panel->isChild(editor().tableView(m)));
    EXPECT_TRUE(editor().tableToggle(m)->isOn());

    // Dragging over the table writes the columns under the pointer inside one
    // gesture announced under the modulator's number.
    ModulatorTableView& table = *editor().tableView(m);
    const Rect plot = table.plotRect().offsetBy(panel->viewSize().left, panel->viewSize().top);
    hostLog().clear();
    host.drag(plot.left + 1, plot.bottom + 3, plot.right - 1, plot.top - 3);
    EXPECT_FLOAT_EQ(editor().getTableValue(m, 0), 0.0f);
    EXPECT_FLOAT_EQ(editor().getTableValue(m, 7), 1.0f);
    const auto events = hostLog().events();
    ASSERT_GE(events.size(), 2u);
    EXPECT_EQ(events.front(), "begin 3");
    EXPECT_EQ(events.back(), "end 3");
    // The curve is drawn: white in the top row of the last column, none in
    // the top row of the first.
    const Image drawn = host.grabEditor();
    saveScreenshot(drawn, "editor-table.png");
    const int columnWidth = plot.width() / 8;
    EXPECT_GT(drawn.count(Rect(plot.right - columnWidth + 2, plot.top - 1, plot.right - 2, plot.top + 2),
                          255, 255, 255, 40),
              3);
    EXPECT_EQ(drawn.count(Rect(plot.left + 2, plot.top - 1, plot.left + columnWidth - 2, plot.top + 2),
                          255, 255, 255, 40),
              0);
    // The wheel nudges the column under the pointer, clamped at the top.
    const Point column2{table.plotRect().left + table.plotRect().width() * 2 / 8 + 2,
                        table.plotRect().top + 10};
    const float before = editor().getTableValue(m, 2);
    table.onWheel(column2, 3.0f, 0);
    EXPECT_NEAR(editor().getTableValue(m, 2), std::min(1.0f, before + 0.03f), 1e-5f);
    table.onWheel(column2, 500.0f, 0);
    EXPECT_FLOAT_EQ(editor().getTableValue(m, 2), 1.0f);
    // Past the table: nothing read, nothing written.
    editor().setTableValue(m, 8, 0.5f);
    EXPECT_FLOAT_EQ(editor().getTableValue(m, 8), 0.0f);

    // The user steps the Type switch away from 1.0 (it wraps to 0.0): both go.
    const Point type = centerOf(editor().typeSwitch(m));
    host.click(type.x, type.y);
    EXPECT_FLOAT_EQ(parameter(modulatorParameterIndex(m, kModulatorType)), 0.0f);
    EXPECT_FALSE(panel->isChild(editor().tableToggle(m)));
    EXPECT_FALSE(panel->isChild(editor().tableView(m)));
    EXPECT_FALSE(editor().tableToggle(m)->isOn());
    // And a right click steps back down to the table type, toggle only.
    host.click(type.x, type.y, 3);
    EXPECT_FLOAT_EQ(parameter(modulatorParameterIndex(m, kModulatorType)), 1.0f);
    EXPECT_TRUE(panel->isChild(editor().tableToggle(m)));
    EXPECT_FALSE(panel->isChild(editor().tableView(m)));
}

TEST_F(DelayEditorTest, TypeChangeWhileAMenuIsOpenWaitsForTheNextIdleWithoutBlocking) {
    const int m = 7;
    ASSERT_TRUE(host.openEditor());
    gui::ViewContainer* panel = editor().modulatorPanel(m);
    double seconds = -1.0;
    bool shownDuringMenu = true;
    std::thread user([&] {
        const xcb_window_t w = waitForMenus(host.display(), 1);
        if (!w) return;
        // The menu's modal loop holds the frame: the update must not wait.
        const auto start = std::chrono::steady_clock::now();
        hostSets(modulatorParameterIndex(m, kModulatorType), 1.0f);
        seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
        shownDuringMenu = panel->isChild(editor().tableToggle(m));
        pressKey(host.display(), w, XKB_KEY_Escape);
    });
    host.click(10, 200);  // the menu strip
    user.join();
    ASSERT_GE(seconds, 0.0);
    EXPECT_LT(seconds, 0.05);
    EXPECT_FALSE(shownDuringMenu);
    EXPECT_FLOAT_EQ(editor().typeSwitch(m)->value(), 1.0f);  // the value itself at once
    host.settle(1);
    EXPECT_TRUE(panel->isChild(editor().tableToggle(m)));
}

// The audio thread's modulators write parameters too: off the frame's own
// thread a Type change stores the switch value and leaves the panel to the
// next idle, so adding a view never happens (or allocates) there.
TEST_F(DelayEditorTest, TypeChangeFromAnotherThreadWaitsForTheNextIdle) {
    const int m = 4;
    ASSERT_TRUE(host.openEditor());
    gui::ViewContainer* panel = editor().modulatorPanel(m);
    bool shownAtOnce = true;
    std::thread audio([&] {
        hostSets(modulatorParameterIndex(m, kModulatorType), 1.0f);
        shownAtOnce = panel->isChild(editor().tableToggle(m));
    });
    audio.join();
    EXPECT_FALSE(shownAtOnce);
    EXPECT_FLOAT_EQ(editor().typeSwitch(m)->value(), 1.0f);
    host.settle(1);
    EXPECT_TRUE(panel->isChild(editor().tableToggle(m)));
}

TEST_F(DelayEditorTest, SpeedDisplayShowsNanWhileTheSampleRateIsZero) {
    const int m = 2;
    hostSets(modulatorParameterIndex(m, kModulatorSync), 0.0f);
    hostSets(modulatorParameterIndex(m, kModulatorSpeed), 0.4f);
    host.dispatch(vst::effSetSampleRate, 0, 0, nullptr, 48000.0f);
    EXPECT_EQ(editor().speedText(m), "0.80");
    // The host sets a rate of 0: the modulators restart with it.
    host.dispatch(vst::effSetSampleRate, 0, 0, nullptr, 0.0f);
    EXPECT_EQ(editor().speedText(m), "nan");
    host.dispatch(vst::effSetSampleRate, 0, 0, nullptr, 96000.0f);
    EXPECT_EQ(editor().speedText(m), "0.80");
    // Synchronised, the note of (count - 1) x speed, negative speeds at note 0.
    hostSets(modulatorParameterIndex(m, kModulatorSync), 1.0f);
    hostSets(modulatorParameterIndex(m, kModulatorSpeed), 0.5f);
    EXPECT_EQ(editor().speedText(m), noteValueName((noteValueCount() - 1) / 2));
    hostSets(modulatorParameterIndex(m, kModulatorSpeed), -0.5f);
    EXPECT_EQ(editor().speedText(m), noteValueName(0));
    // Values no host should send still give a text.
    hostSets(modulatorParameterIndex(m, kModulatorSpeed), std::nanf(""));
    EXPECT_EQ(editor().speedText(m), noteValueName(0));
    hostSets(modulatorParameterIndex(m, kModulatorSpeed), 1e30f);
    const std::string huge = editor().speedText(m);
    bool named = huge == "Invalid";
    for (int n = 0; n < noteValueCount(); ++n) named = named || huge == noteValueName(n);
    EXPECT_TRUE(named) << huge;
    // The feedback display truncates toward zero.
    hostSets(tapParameterIndex(1, kTapFeedback), 0.678f);
    EXPECT_EQ(editor().feedbackText(1), "67%");
}

TEST_F(DelayEditorTest, KnobTurnedWithTheMouseReachesTheHostInsideOneGesture) {
    const int32_t index = tapParameterIndex(0, kTapFeedback);
    hostSets(index, 0.2f);
    ASSERT_TRUE(host.openEditor());
    hostLog().clear();
    const Point knob = centerOf(editor().feedbackKnob(0));
    host.drag(knob.x, knob.y, knob.x, knob.y - 30);
    const auto events = hostLog().events();
    ASSERT_GE(events.size(), 3u);
    EXPECT_EQ(events.front(), "begin 23");
    EXPECT_EQ(events.back(), "end 23");
    for (size_t i = 1; i + 1 < events.size(); ++i) EXPECT_EQ(events[i], "auto 23");
    EXPECT_GT(parameter(index), 0.3f);
    EXPECT_FLOAT_EQ(hostLog().automated().back().second, parameter(index));
    EXPECT_FLOAT_EQ(editor().feedbackKnob(0)->value(), parameter(index));
}

TEST(FittedDisplayTest, DropsDecimalsOnlyUntilTheTextFits) {
    cairo_surface_t* s = cairo_image_surface_create(CAIRO_FORMAT_RGB24, 10, 10);
    cairo_t* cr = cairo_create(s);
    {
        gui::DrawContext dc(cr);
        dc.setFont(gui::kNormalFontVerySmall);
        char text[32] = "-12.345678";
        FittedDisplay::fitDecimals(dc, text, 1000.0);
        EXPECT_STREQ(text, "-12.345678");
        const double whole = dc.stringWidth("-12.3");
        FittedDisplay::fitDecimals(dc, text, whole + 0.5);
        EXPECT_STREQ(text, "-12.3");
        FittedDisplay::fitDecimals(dc, text, 1.0);  // never into the integer part
        EXPECT_STREQ(text, "-12");
        char plain[32] = "123456";
        FittedDisplay::fitDecimals(dc, plain, 1.0);
        EXPECT_STREQ(plain, "123456");
    }
    cairo_destroy(cr);
    cairo_surface_destroy(s);
}

}  // namespace
}  // namespace varitap::test
