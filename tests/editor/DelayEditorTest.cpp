// The editor's layout and value mappings, opened in a stand-in host window:
// the tree built from the bitmaps, parameters reaching the widgets (also from
// another thread), widgets reaching the host as automation inside edit
// gestures, the routing and tempo menus, the modulator table and the speed
// display.
#include <chrono>

#include "EditorTestSupport.h"
#include "engine/NoteValueTable.h"
#include "gui/Bitmap.h"
#include "gui/DrawContext.h"
#include "gui/Interaction.h"
#include "persistence/PresetLibrary.h"

namespace varitap::test {
namespace {

using gui::Point;
using gui::Rect;

class DelayEditorTest : public EditorTest {
protected:
    void TearDown() override {
        if (host.display().ok()) xcb_delete_property(host.display().connection(), host.display().root(), XCB_ATOM_RESOURCE_MANAGER);
    }
    // Clicks at a point while a helper presses Escape on any menu that opens;
    // true when one opened.
    bool clickOpensMenu(Point at) {
        bool opened = false;
        auto escape = [&](xcb_window_t w) {
            opened = true;
            host.display().key(w, XKB_KEY_Escape);
        };
        gui::test::playMenu(host.display(), [&] { host.click(at); }, escape, 600);
        return opened;
    }
};

TEST_F(DelayEditorTest, AttachedEditorAnswersTheHostAndTagsItsWidgetsWithTheirParameters) {
    ASSERT_TRUE(host.openEditor());
    ASSERT_NE(host.editorWindow(), 0u);
    EXPECT_EQ(host.display().geometry(host.editorWindow()), Rect(0, 0, 865, 400));

    // The layout is checked against the art in EditorArtTest.
    for (int i = 0; i < kTapCount; ++i) {
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

TEST_F(DelayEditorTest, WidgetsAndDisplaysStartAtTheParameterMappingsAndFollowTheHost) {
    hostSets(0, 0.5f);                                        // input selector 22
    hostSets(13, 1.0f);                                       // output of tap 3: 24
    hostSets(20, 0.3f);
    hostSets(tapParameterIndex(2, kTapFilterType), 0.5f);     // LowPass
    hostSets(modulatorParameterIndex(1, kModulatorIndex), 21.0f);
    hostSets(modulatorParameterIndex(5, kModulatorType), 1.0f);
    hostSets(modulatorParameterIndex(6, kModulatorType), 2.0f / 3.0f);
    ASSERT_TRUE(host.openEditor());

    EXPECT_EQ(editor().inputMenu(0)->current(), 22);
    EXPECT_EQ(editor().outputMenu(3)->current(), 24);
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

    // The speed display at sample rates (0: the modulators restart with
    // it); synchronised, the note of (count - 1) x speed, negative speeds and
    // values no host should send at note 0.
    const int m = 2;
    const struct {
        float sync, speed, rate;  // rate < 0: left as it is
        std::string text;
    } speeds[] = {{0, 0.4f, 48000, "0.80"}, {0, 0.4f, 0, "nan"}, {0, 0.4f, 96000, "0.80"},
                  {1, 0.5f, -1, noteValueName((noteValueCount() - 1) / 2)}, {1, -0.5f, -1, noteValueName(0)},
                  {1, std::nanf(""), -1, noteValueName(0)}};
    for (const auto& c : speeds) {
        hostSets(modulatorParameterIndex(m, kModulatorSync), c.sync);
        hostSets(modulatorParameterIndex(m, kModulatorSpeed), c.speed);
        if (c.rate >= 0) host.dispatch(vst::effSetSampleRate, 0, 0, nullptr, c.rate);
        EXPECT_EQ(editor().speedText(m), c.text) << c.speed << " at " << c.rate;
    }
    hostSets(modulatorParameterIndex(m, kModulatorSpeed), 1e30f);
    const std::string huge = editor().speedText(m);
    bool named = huge == "Invalid";
    for (int n = 0; n < noteValueCount(); ++n) named = named || huge == noteValueName(n);
    EXPECT_TRUE(named) << huge;
    // The feedback display truncates toward zero.
    hostSets(tapParameterIndex(1, kTapFeedback), 0.678f);
    EXPECT_EQ(editor().feedbackText(1), "67%");
}

TEST_F(DelayEditorTest, RoutingMenusKeepAbsentChannelsListedButDisabled) {
    ASSERT_TRUE(host.openEditor());
    // Two inputs and two outputs: every entry stays at its index, those of
    // absent channels disabled.
    gui::OptionMenu& input = *editor().inputMenu(0);
    gui::OptionMenu& output = *editor().outputMenu(9);
    ASSERT_EQ(input.nbEntries(), 45);
    ASSERT_EQ(output.nbEntries(), 25);
    // The disabled marks of some entries: "x" disabled, "." enabled.
    auto disabled = [](const gui::OptionMenu* menu, std::initializer_list<int> indexes) {
        std::string marks;
        for (int i : indexes) marks += menu->entryFlags(i) & gui::kMenuDisabled ? "x" : ".";
        return marks;
    };
    EXPECT_EQ(disabled(&input, {0, 2, 3, 20, 21, 22, 23, 41, 44}), "..xx..x..");
    EXPECT_EQ(disabled(&output, {2, 3, 21}), ".x.");
    const std::pair<int, const char*> texts[] = {{0, "***"},  {2, "In 2"},      {3, "In 3"},
                                                 {21, "Out 1"}, {41, "Intern 1"}, {44, "Intern 4"}};
    for (const auto& [i, text] : texts) EXPECT_STREQ(input.entry(i), text) << i;
    EXPECT_STREQ(output.entry(21), "Intern 1");

    // Choosing entry 21 selects output 1 as the tap's source.
    input.setValue(21.0f);
    editor().valueChanged(nullptr, &input);
    EXPECT_FLOAT_EQ(parameter(0), 21.0f / 44.0f);
    EXPECT_EQ(host.effect()->engine().inputSelector(0), 21);
    EXPECT_EQ(host.log.lastValue().first, 0);

    // A wider configuration from the host enables more entries at once.
    vst::VstSpeakerArrangement in{}, out{};
    in.type = out.type = vst::kSpeakerArrUserDefined;
    in.numChannels = 4;
    out.numChannels = 6;
    ASSERT_EQ(host.dispatch(vst::effSetSpeakerArrangement, 0, reinterpret_cast<vst::VstIntPtr>(&in), &out), 1);
    EXPECT_EQ(disabled(editor().inputMenu(5), {4, 5, 26, 27}), ".x.x");
    EXPECT_EQ(disabled(editor().outputMenu(5), {6, 7}), ".x");
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
    host.click(centerOf(editor().tapSyncButton(tap)));
    EXPECT_FLOAT_EQ(parameter(syncIndex), 1.0f);
    host.log.clear();
    const int chosen = 6;
    gui::test::playMenu(host.display(), [&] { host.click(display); }, [&](xcb_window_t w) {
        for (int i = 0; i <= chosen; ++i) host.display().key(w, XKB_KEY_Down);
        host.display().key(w, XKB_KEY_Return);
    });
    const float expected = chosen / static_cast<float>(noteValueCount() - 1) + 0.000005f;
    EXPECT_FLOAT_EQ(host.effect()->program().values[delayIndex], expected);
    EXPECT_FLOAT_EQ(editor().delayKnob(tap)->value(), expected);
    EXPECT_EQ(editor().delayText(tap), noteValueName(chosen));
    EXPECT_EQ(host.log.lastValue().first, delayIndex);
    // Only parameter numbers reach the host's edit notifications.
    for (const std::string& e : host.log.events()) EXPECT_EQ(e.find("3000"), std::string::npos) << e;

    // Host automation switching Sync off leaves the menu taking clicks.
    hostSets(syncIndex, 0.0f);
    EXPECT_TRUE(clickOpensMenu(display));
}

TEST_F(DelayEditorTest, TypeOneShowsTheTableToggleAndLeavingItHidesBothAtOnceOrAtTheNextIdle) {
    const int m = 0;  // its table gestures go out under number 0, the first there is
    ASSERT_TRUE(host.openEditor());
    gui::ViewContainer* panel = editor().modulatorPanel(m);
    EXPECT_FALSE(panel->isChild(editor().tableToggle(m)));
    hostSets(modulatorParameterIndex(m, kModulatorType), 1.0f);
    ASSERT_TRUE(panel->isChild(editor().tableToggle(m)));
    EXPECT_FALSE(panel->isChild(editor().tableView(m)));

    // The toggle brings the table editor in.
    host.click(centerOf(editor().tableToggle(m)));
    ASSERT_TRUE(panel->isChild(editor().tableView(m)));
    EXPECT_TRUE(editor().tableToggle(m)->isOn());

    // Dragging over the table writes the columns under the pointer inside one
    // gesture announced under the modulator's number.
    ModulatorTableView& table = *editor().tableView(m);
    const Rect plot = table.plotRect().offsetBy(panel->viewSize().left, panel->viewSize().top);
    host.log.clear();
    host.drag({plot.left + 1, plot.bottom + 3}, {plot.right - 1, plot.top - 3});
    EXPECT_FLOAT_EQ(editor().getTableValue(m, 0), 0.0f);
    EXPECT_FLOAT_EQ(editor().getTableValue(m, 7), 1.0f);
    const auto events = host.log.events();
    ASSERT_GE(events.size(), 2u);
    EXPECT_EQ(events.front(), "begin 0");
    EXPECT_EQ(events.back(), "end 0");
    // The curve is drawn: white in the top row of the last column, none in
    // the top row of the first.
    const Image drawn = host.grabEditor();
    const auto white = [&drawn](const Rect& r) { return drawn.count(r, 255, 255, 255, 40); };
    const int columnWidth = plot.width() / 8;
    EXPECT_GT(white(Rect(plot.right - columnWidth + 2, plot.top - 1, plot.right - 2, plot.top + 2)), 3);
    EXPECT_EQ(white(Rect(plot.left + 2, plot.top - 1, plot.left + columnWidth - 2, plot.top + 2)), 0);
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
    host.click(type);
    EXPECT_FLOAT_EQ(parameter(modulatorParameterIndex(m, kModulatorType)), 0.0f);
    EXPECT_FALSE(panel->isChild(editor().tableToggle(m)));
    EXPECT_FALSE(panel->isChild(editor().tableView(m)));
    EXPECT_FALSE(editor().tableToggle(m)->isOn());
    // And a right click steps back down to the table type, toggle only.
    host.click(type, 3);
    EXPECT_FLOAT_EQ(parameter(modulatorParameterIndex(m, kModulatorType)), 1.0f);
    EXPECT_TRUE(panel->isChild(editor().tableToggle(m)));
    EXPECT_FALSE(panel->isChild(editor().tableView(m)));
    // Up from the last type wraps to the first, then steps a third (four types).
    host.click(type);
    host.click(type);
    EXPECT_FLOAT_EQ(parameter(modulatorParameterIndex(m, kModulatorType)), 1.0f / 3.0f);

    // A Type change moves views in and out of a panel. While a menu's modal
    // loop holds the frame, and off the frame's own thread (the audio thread's
    // modulators write parameters too), it stores the switch value at once,
    // never waits, and leaves the panel to the next idle, so adding a view
    // never happens (or allocates) there.
    for (const bool menuOpen : {true, false}) {
        SCOPED_TRACE(menuOpen ? "menu open" : "another thread");
        const int n = menuOpen ? 7 : 4;
        gui::ViewContainer* itsPanel = editor().modulatorPanel(n);
        double seconds = -1.0;
        bool shownAtOnce = true;
        std::thread other([&] {
            const xcb_window_t w = menuOpen ? waitForMenus(host.display(), 1) : 0;
            if (menuOpen && !w) return;
            const auto start = std::chrono::steady_clock::now();
            hostSets(modulatorParameterIndex(n, kModulatorType), 1.0f);
            seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
            shownAtOnce = itsPanel->isChild(editor().tableToggle(n));
            if (w) host.display().key(w, XKB_KEY_Escape);
        });
        if (menuOpen) host.click({10, 200});  // the menu strip
        other.join();
        ASSERT_GE(seconds, 0.0);
        EXPECT_LT(seconds, 0.05);
        EXPECT_FALSE(shownAtOnce);
        EXPECT_FLOAT_EQ(editor().typeSwitch(n)->value(), 1.0f);  // the value itself at once
        host.settle(1);
        EXPECT_TRUE(itsPanel->isChild(editor().tableToggle(n)));
    }
}

// A host older than VST 2.3 may not hand automation back: after a preset or
// an edit the plug-in stores each value once more, over whatever the host
// wrote meanwhile. A 2.3 host's own value stands.
TEST_F(DelayEditorTest, HostsOlderThanVst23GetTheChosenValueStoredAgain) {
    const int32_t index = tapParameterIndex(2, kTapVolume);
    const struct {
        bool preset;
        int32_t version;
        float stored;
    } cases[] = {{true, 2200, 0.25f}, {true, 2300, 0.75f}, {false, 2200, 0.25f}, {false, 2300, 0.75f}};
    for (const auto& c : cases) {
        SCOPED_TRACE(std::string(c.preset ? "preset, host " : "edit, host ") + std::to_string(c.version));
        EditorHost old(std::string(), c.version);
        old.aeffect()->setParameter(old.aeffect(), index, 0.25f);
        Preset* preset = old.effect()->createPresetFromState("Quarter");
        old.aeffect()->setParameter(old.aeffect(), index, 0.5f);
        ASSERT_TRUE(old.openEditor());
        old.writesBackIndex = index;
        old.writesBackValue = 0.75f;
        if (c.preset) {
            old.effect()->applyPreset(preset);
        } else {
            old.editor()->volumeKnob(2)->setValue(0.25f);
            old.editor()->valueChanged(nullptr, old.editor()->volumeKnob(2));
        }
        preset->release();
        EXPECT_FLOAT_EQ(old.aeffect()->getParameter(old.aeffect(), index), c.stored);
    }
}

// A picture at 200 % brought back to 100 %: each 2 x 2 block averaged.
Image halved(Image big) {
    cairo_surface_t* from = cairo_image_surface_create_for_data(reinterpret_cast<unsigned char*>(big.words.data()),
                                                                CAIRO_FORMAT_ARGB32, big.width, big.height, big.width * 4);
    cairo_surface_t* to = cairo_image_surface_create(CAIRO_FORMAT_ARGB32, big.width / 2, big.height / 2);
    cairo_t* cr = cairo_create(to);
    cairo_scale(cr, 0.5, 0.5);
    // Bilinear sampling halfway between two pixels in each direction.
    cairo_set_source_surface(cr, from, 0, 0);
    cairo_pattern_set_filter(cairo_get_source(cr), CAIRO_FILTER_BILINEAR);
    cairo_paint(cr);
    cairo_destroy(cr);
    cairo_surface_destroy(from);
    return Image::adopt(to);
}

// Presses the first button at a point of a window; if the window is still
// up after a while, Escape closes it, so that a press that missed fails the
// test instead of leaving a modal loop running.
void pressAndEnsureClosed(HostDisplay& display, xcb_window_t w, Point at,
                          const std::function<bool()>& closed) {
    display.click(w, at.x, at.y);
    if (!gui::test::waitFor(closed, 2000)) display.key(w, XKB_KEY_Escape);
}

TEST_F(DelayEditorTest, AtTheDisplaysTwoHundredPercentInputLandsWhereThingsAreDrawn) {
    const int32_t feedback = tapParameterIndex(0, kTapFeedback);
    const int32_t sync = tapParameterIndex(2, kTapSync);
    hostSets(feedback, 0.2f);
    hostSets(sync, 0.0f);
    ASSERT_TRUE(host.openEditor());
    const Image normal = host.grabEditor();
    host.closeEditor();

    // Xft.dpi 192 is 200 %. Until the editor has opened and asked the display
    // (queries never touch X11) the host hears 865 x 400; on opening the
    // editor asks for the size it needs.
    // The display's resources are set as xrdb sets them (the root window's
    // RESOURCE_MANAGER property); TearDown removes them.
    const char* resources = "Xcursor.size:\t24\nXft.dpi:\t192\n";
    xcb_change_property(host.display().connection(), XCB_PROP_MODE_REPLACE, host.display().root(),
                        XCB_ATOM_RESOURCE_MANAGER, XCB_ATOM_STRING, 8, static_cast<uint32_t>(std::strlen(resources)),
                        resources);
    host.display().sync();
    EXPECT_EQ(host.editorRect(), Rect(0, 0, 865, 400));
    host.log.clear();
    ASSERT_TRUE(host.openEditor());
    EXPECT_EQ(editor().scale(), 2.0);
    EXPECT_EQ(host.log.events(), std::vector<std::string>{"size 1730x800"});
    EXPECT_EQ(host.editorRect(), Rect(0, 0, 1730, 800));
    EXPECT_EQ(host.display().geometry(host.editorWindow()), Rect(0, 0, 1730, 800));
    // The art is drawn for 200 % (not stretched); the layout stays logical.
    EXPECT_EQ(editor().bitmap(DelayEditor::kStripBitmap)->scale(), 2.0);
    EXPECT_EQ(editor().tapStrip(9)->viewSize(), Rect::fromSize(32 + 9 * 82, 1, 92, 280));

    // Brought back to 100 %, the picture is the editor at 100 %: every part
    // is drawn at twice its place and size.
    const Image big = host.grabEditor();
    saveScreenshot(big, "editor-zoom-200.png");
    ASSERT_EQ(big.width, 1730);
    // Glyphs hinted at 18 pixels differ from those at 9 (some 2 % of the
    // pixels); the whole drawn one logical pixel off would differ in 6 to 8 %.
    EXPECT_LT(differingFraction(halved(big), normal, 40), 0.04);

    // A click on a button and a drag on a knob at their drawn places: 60
    // device pixels are 30 logical ones, +0.2 on the knob, inside one gesture.
    const gui::PixelScale& scale = editor().frame()->pixelScale();
    host.click(scale.toDevice(centerOf(editor().tapSyncButton(2))));
    EXPECT_FLOAT_EQ(parameter(sync), 1.0f);
    const Point knob = scale.toDevice(centerOf(editor().feedbackKnob(0)));
    host.log.clear();
    host.drag(knob, {knob.x, knob.y - 60});
    EXPECT_NEAR(parameter(feedback), 0.4f, 1e-4f);
    expectOneGesture(host.log.events(), feedback);
    EXPECT_FLOAT_EQ(host.log.lastValue().second, parameter(feedback));
    EXPECT_FLOAT_EQ(editor().feedbackKnob(0)->value(), parameter(feedback));

    // The context menu opens where the menu strip was clicked, twice the
    // size; the pointer over "About ..." lights exactly that entry's rows,
    // and a click there shows the about box, its picture drawn for 200 %.
    const std::vector<uint32_t> topFlags = {gui::kMenuSubmenu, gui::kMenuSeparator,
                                            gui::kMenuSubmenu, gui::kMenuSeparator, 0, 0};
    const int aboutTop = 2 * gui::MenuLayout::itemTop(topFlags, 5);
    const int aboutBottom = aboutTop + 2 * gui::MenuLayout::kItemHeight;
    Rect popup;
    Image lit;
    gui::test::playMenu(host.display(), [&] { host.click({20, 400}); }, [&](xcb_window_t top) {
        popup = host.display().geometry(top);
        host.display().motion(top, popup.width() / 2, aboutTop + 9, 0);
        gui::test::waitFor([] { return false; }, 150);
        lit = host.display().grab(top, Rect(0, 0, popup.width(), popup.height()));
        pressAndEnsureClosed(host.display(), top, Point{popup.width() / 2, aboutBottom - 9},
                             [&] { return host.display().popupWindows().empty(); });
    });
    const Point editorAt = host.display().rootPosition(host.editorWindow());
    EXPECT_EQ(popup.left, editorAt.x + 20);
    EXPECT_EQ(popup.top, editorAt.y + 400);
    EXPECT_EQ(popup.height(), 2 * gui::MenuLayout::totalHeight(topFlags));
    ASSERT_EQ(lit.height, popup.height());
    const int width = lit.width - 4;
    EXPECT_GT(lit.count(Rect(2, aboutTop, 2 + width, aboutBottom), 50, 100, 200, 10), width * 24);
    EXPECT_EQ(lit.count(Rect(0, 0, lit.width, aboutTop), 50, 100, 200, 10), 0);
    EXPECT_EQ(lit.count(Rect(0, aboutBottom, lit.width, lit.height), 50, 100, 200, 10), 0);
    ASSERT_TRUE(editor().aboutOverlay()->aboutShown());
    EXPECT_EQ(editor().bitmap(DelayEditor::kAboutBitmap)->scale(), 2.0);
    host.click({1200, 600});
    EXPECT_FALSE(editor().aboutOverlay()->aboutShown());

    // The name dialog takes the editor's scale: 800 x 280, the typed name
    // drawn in its field, its OK button pressed where it is drawn.
    ContextMenu menu = editor().buildContextMenu(Point{10, 100});
    const int addFolder = menu.presets->nbEntries() - 1;
    ASSERT_STREQ(menu.presets->entry(addFolder), "Add Folder ...");
    Rect dialogSize;
    Image typed;
    std::thread namer([&] {
        const xcb_window_t dialog = waitForDialog(host.display());
        if (!dialog) return;
        dialogSize = host.display().geometry(dialog);
        host.display().typeText(dialog, "Dub");
        gui::test::waitFor([] { return false; }, 150);
        typed = host.display().grab(dialog, Rect(0, 0, dialogSize.width(), dialogSize.height()));
        pressAndEnsureClosed(host.display(), dialog, Point{2 * 345, 2 * 110},
                             [&] { return waitForDialog(host.display(), 0) == 0; });
    });
    EXPECT_TRUE(editor().carryOutChoice(menu, menu.presets.get(), addFolder));
    namer.join();
    EXPECT_EQ(dialogSize.width(), 800);
    EXPECT_EQ(dialogSize.height(), 280);
    // Dark ink inside the field (logical 40..380 x 50..66), none below it.
    EXPECT_GT(typed.count(Rect(82, 102, 200, 130), 0, 0, 0, 90), 40);
    EXPECT_EQ(typed.count(Rect(82, 140, 200, 190), 0, 0, 0, 90), 0);
    PresetLibrary* library = PresetLibrary::current();
    ASSERT_GT(library->folderCount(), 0u);
    EXPECT_EQ(library->folderAt(library->folderCount() - 1)->getName(), "Dub");
}

TEST(FittedDisplayTest, DropsDecimalsOnlyUntilTheTextFits) {
    cairo_surface_t* surface = cairo_image_surface_create(CAIRO_FORMAT_RGB24, 10, 10);
    // The text fitted to a width (< 0: just room for "-12.3") at a scale.
    const auto fit = [surface](double scale, const char* number, double width) {
        cairo_t* cr = cairo_create(surface);
        char text[32];
        std::snprintf(text, sizeof text, "%s", number);
        {
            gui::DrawContext dc(cr, scale);
            dc.setFont(gui::kNormalFontVerySmall);
            FittedDisplay::fitDecimals(dc, text, width >= 0 ? width : dc.stringWidth("-12.3") + 0.5);
        }
        cairo_destroy(cr);
        return std::string(text);
    };
    EXPECT_EQ(fit(1.0, "-12.345678", 1000.0), "-12.345678");
    EXPECT_EQ(fit(1.0, "-12.345678", -1), "-12.3");
    EXPECT_EQ(fit(1.0, "-12.345678", 1.0), "-12");  // never into the integer part
    EXPECT_EQ(fit(1.0, "123456", 1.0), "123456");
    // A field shows the same digits at every scale, though glyphs are hinted
    // to other widths there.
    for (double scale : {1.25, 1.5, 1.75, 2.0}) {
        for (const char* number : {"0.000", "-1.250", "10.000", "0.333"}) {
            EXPECT_EQ(fit(scale, number, 23.0), fit(1.0, number, 23.0)) << scale << " " << number;
        }
    }
    cairo_surface_destroy(surface);
}

}  // namespace
}  // namespace varitap::test
