// The context menu and its commands, the name-entry dialog and the about
// box, with the real preset library, options file and popup windows.
#include <sys/stat.h>

#include <cstdio>
#include <fstream>

#include "EditorTestSupport.h"
#include "persistence/Preferences.h"
#include "persistence/PresetLibrary.h"

namespace varitap::test {
namespace {

using gui::OptionMenu;
using gui::Point;
using gui::Rect;

std::vector<std::string> entries(const OptionMenu& menu) {
    std::vector<std::string> out;
    for (int i = 0; i < menu.nbEntries(); ++i) {
        out.push_back((menu.entryFlags(i) & gui::kMenuSeparator) ? "-" : menu.entry(i));
    }
    return out;
}

int indexOf(const OptionMenu& menu, const std::string& text) {
    for (int i = 0; i < menu.nbEntries(); ++i) {
        if (!(menu.entryFlags(i) & gui::kMenuSeparator) && text == menu.entry(i)) return i;
    }
    return -1;
}

// Builds the context menu afresh and carries out the entry of that text in
// one of its menus; the choice's answer.
using MenuOf = std::function<OptionMenu*(ContextMenu&)>;
bool choose(DelayEditor& editor, const MenuOf& which, const std::string& text) {
    ContextMenu menu = editor.buildContextMenu(Point{10, 100});
    OptionMenu* chosen = which(menu);
    return editor.carryOutChoice(menu, chosen, indexOf(*chosen, text));
}
const MenuOf kPresets = [](ContextMenu& menu) { return menu.presets.get(); };
const MenuOf kOptions = [](ContextMenu& menu) { return menu.options.get(); };
const MenuOf kZoom = [](ContextMenu& menu) { return menu.zoom.get(); };

// The check marks of a menu: "x.." is the first of three checked.
std::string checked(const OptionMenu& menu) {
    std::string marks;
    for (int i = 0; i < menu.nbEntries(); ++i) marks += menu.isCheckEntry(i) ? "x" : ".";
    return marks;
}

long stored(const char* key) {
    long number = -1;
    Preferences::current()->getNumber(key, &number, 0);
    return number;
}

class EditorMenuTest : public EditorTest {
protected:
    void SetUp() override {
        EditorTest::SetUp();
        if (IsSkipped() || HasFatalFailure()) return;
        library = PresetLibrary::current();
        ASSERT_NE(library, nullptr);
        ASSERT_TRUE(library->loadFile(VARITAP_BUNDLE_DIR "/Contents/Resources/varitap.factory.presets.xml",
                                      true));
        factoryFolders = library->folderCount();
        ASSERT_GT(factoryFolders, 0u);
    }
    ContextMenu menu() { return editor().buildContextMenu(Point{10, 100}); }
    // A user folder with presets of the given names, made from the state.
    PresetFolder* userFolder(const char* name, std::vector<const char*> presets) {
        PresetFolder* folder = library->addFolder(name);
        for (const char* p : presets) {
            Preset* preset = host.effect()->createPresetFromState(p);
            folder->addPreset(preset);
            preset->release();
        }
        return folder;
    }
    int folderIndex(PresetFolder* folder) {
        for (uint32_t i = 0; i < library->folderCount(); ++i) {
            if (library->folderAt(i) == folder) return static_cast<int>(i);
        }
        return -1;
    }
    MenuOf menuOf(PresetFolder* folder) {
        const auto f = static_cast<size_t>(folderIndex(folder));
        return [f](ContextMenu& menu) { return menu.folders.at(f).get(); };
    }
    // Opens the menu with a click in the menu strip; `user` plays the popup.
    bool clickMenuStrip(const std::function<void(xcb_window_t)>& user) {
        gui::test::playMenu(host.display(), [this] { host.click({10, 200}); }, user);
        return editor().aboutOverlay()->aboutShown();
    }

    PresetLibrary* library = nullptr;
    uint32_t factoryFolders = 0;
};

// The options are written and take effect; then the whole tree shows the
// folders and the stored options as they are now; then the zoom steps.
TEST_F(EditorMenuTest, TreeShowsFoldersOptionsAndBackgroundsAsTheyAreNowAndZoomIsCheckedStoredAndResizesTheOpenEditor) {
    ASSERT_TRUE(host.openEditor());
    const int tap = 5;
    hostSets(tapParameterIndex(tap, kTapSync), 0.0f);
    hostSets(tapParameterIndex(tap, kTapDelay), 0.5f);
    const std::string milliseconds = editor().delayText(tap);

    choose(editor(), kOptions, "Show Delay Time in Samples");
    EXPECT_EQ(stored(kOptionDelayTimeInSamples), 1);
    EXPECT_NE(editor().delayText(tap), milliseconds);
    EXPECT_EQ(editor().delayText(tap).find('.'), std::string::npos);  // whole samples

    choose(editor(), kOptions, "Show Delay Time in Samples");
    EXPECT_EQ(stored(kOptionDelayTimeInSamples), 0);
    EXPECT_EQ(editor().delayText(tap), milliseconds);
    choose(editor(), kOptions, "Resample (experimental)");
    EXPECT_EQ(stored(kOptionDelayTimeResample), 1);
    EXPECT_TRUE(host.effect()->engine().tap(tap).isResampling());
    choose(editor(), kOptions, "Smooth Delay Time Changes");
    EXPECT_EQ(stored(kOptionSmoothDelayTimeChanges), 1);
    EXPECT_TRUE(host.effect()->engine().tap(tap).smoothsDelayChanges());

    PresetFolder* mine = userFolder("Mine", {"Warm", "Cold"});
    Preferences::current()->setNumber(kOptionDelayTimeInSamples, 1);
    const ContextMenu tree = menu();
    EXPECT_EQ(entries(*tree.top), (std::vector<std::string>{"Presets", "-", "Options", "-",
                                                            "Visit Homepage ...", "About ..."}));
    EXPECT_EQ(tree.top->submenu(0), tree.presets.get());
    EXPECT_EQ(tree.top->submenu(2), tree.options.get());

    // Factory folders list their presets only; the user's folder can grow
    // and go. With no current preset the list ends with "Add Folder ...".
    ASSERT_EQ(tree.folders.size(), library->folderCount());
    for (uint32_t f = 0; f < factoryFolders; ++f) {
        const OptionMenu& folderMenu = *tree.folders[f];
        EXPECT_EQ(folderMenu.tag(), static_cast<int32_t>(f));
        EXPECT_EQ(static_cast<uint32_t>(folderMenu.nbEntries()), library->folderAt(f)->presetCount());
        EXPECT_EQ(indexOf(folderMenu, "Add Preset ..."), -1);
        EXPECT_EQ(indexOf(folderMenu, "Remove Folder"), -1);
        EXPECT_STREQ(tree.presets->entry(static_cast<int>(f)), library->folderAt(f)->getName().c_str());
    }
    const OptionMenu& mineMenu = *tree.folders[static_cast<size_t>(folderIndex(mine))];
    EXPECT_EQ(entries(mineMenu), (std::vector<std::string>{"Warm", "Cold", "-", "Add Preset ...",
                                                           "-", "Remove Folder"}));
    EXPECT_STREQ(tree.presets->entry(tree.presets->nbEntries() - 1), "Add Folder ...");

    // Options: check marks from the stored options; the Background and Zoom menus.
    EXPECT_EQ(entries(*tree.options), (std::vector<std::string>{"Resample (experimental)",
                                                                "Smooth Delay Time Changes",
                                                                "Show Delay Time in Samples",
                                                                "Background", "Zoom"}));
    EXPECT_EQ(checked(*tree.options), "xxx..");
    EXPECT_EQ(tree.options->submenu(3), tree.background.get());
    EXPECT_EQ(tree.options->submenu(4), tree.zoom.get());

    // A current preset adds its removal at the end.
    host.effect()->lastUserPreset = RefPtr<Preset>(mine->presetAt(1));
    const ContextMenu withPreset = menu();
    EXPECT_STREQ(withPreset.presets->entry(withPreset.presets->nbEntries() - 1), "Remove Preset 'Cold'");

    // The Zoom menu.
    auto windowSize = [&] { return host.display().geometry(host.editorWindow()); };
    const std::string options = home.readOptions();
    EXPECT_EQ(entries(*menu().zoom), (std::vector<std::string>{"100%", "125%", "150%", "175%", "200%"}));
    EXPECT_EQ(checked(*menu().zoom), "x....");
    EXPECT_EQ(home.readOptions(), options);  // nothing is written until the user picks

    // 150 %: stored, the host asked for the size, the open editor resized.
    host.log.clear();
    EXPECT_TRUE(choose(editor(), kZoom, "150%"));
    EXPECT_EQ(stored(kOptionEditorZoom), 150);
    EXPECT_EQ(host.log.events(), std::vector<std::string>{"size 1298x600"});
    EXPECT_EQ(editor().frame()->scale(), 1.5);
    EXPECT_EQ(windowSize(), Rect(0, 0, 1298, 600));
    EXPECT_EQ(host.editorRect(), Rect(0, 0, 1298, 600));
    const Image zoomed = host.grabEditor();
    saveScreenshot(zoomed, "editor-zoom-150.png");
    EXPECT_EQ(zoomed.width, 1298);
    // Not a blank window: the art fills it.
    EXPECT_GT(differingFraction(zoomed, Image(1298, 600), 40), 0.5);
    EXPECT_EQ(checked(*menu().zoom), "..x..");

    // A host that keeps its window: the choice is stored and shown at the
    // next opening.
    host.setGrantsResize(false);
    choose(editor(), kZoom, "200%");
    EXPECT_EQ(stored(kOptionEditorZoom), 200);
    EXPECT_EQ(editor().frame()->scale(), 1.5);
    EXPECT_EQ(windowSize(), Rect(0, 0, 1298, 600));
    host.closeEditor();
    EXPECT_EQ(host.editorRect(), Rect(0, 0, 1730, 800));
    ASSERT_TRUE(host.openEditor());
    EXPECT_EQ(windowSize(), Rect(0, 0, 1730, 800));

    // The host's own scale comes first and greys the choice; 0 gives it back.
    editor().setScale(1.25);
    EXPECT_EQ(windowSize(), Rect(0, 0, 1082, 500));
    EXPECT_EQ(checked(*menu().zoom), ".x...");
    EXPECT_TRUE(menu().zoom->entryFlags(4) & gui::kMenuDisabled);
    editor().setScale(0.0);
    EXPECT_EQ(windowSize(), Rect(0, 0, 1730, 800));
    editor().setScale(9.0);
    EXPECT_EQ(editor().scale(), DelayEditor::kMaxScale);
    editor().setScale(0.0);
    choose(editor(), kZoom, "100%");
    EXPECT_EQ(stored(kOptionEditorZoom), 100);

    // Stored values and display scales go to the nearest step.
    const struct {
        double scale, step;
    } steps[] = {{0.5, 1.0}, {1.1, 1.0}, {1.125, 1.25}, {1.3, 1.25}, {1.5, 1.5},
                 {1.6, 1.5}, {1.7, 1.75}, {1.9, 2.0}, {3.0, 2.0}, {std::nan(""), 1.0}};
    for (const auto& s : steps) EXPECT_EQ(DelayEditor::nearestZoomStep(s.scale), s.step) << s.scale;
    host.closeEditor();
    Preferences::current()->setNumber(kOptionEditorZoom, 130);
    EXPECT_EQ(editor().scale(), 1.25);
}

TEST_F(EditorMenuTest, CommandsAreMatchedByTextPresetsApplyAndNamesAreAsked) {
    const int32_t delay = tapParameterIndex(3, kTapDelay);
    hostSets(delay, 0.25f);
    PresetFolder* mine = userFolder("Mine", {"Quarter", "Remove Folder"});
    PresetFolder* other = userFolder("Other", {"Add Preset ..."});
    hostSets(delay, 0.75f);
    const uint32_t before = library->folderCount();

    // An ordinary preset is applied and becomes the current one.
    EXPECT_TRUE(choose(editor(), menuOf(mine), "Quarter"));
    EXPECT_EQ(host.effect()->lastUserPreset.get(), mine->presetAt(0));
    EXPECT_NEAR(host.effect()->program().values[delay], 0.25f, 1e-6f);

    // A preset named like a command (the first entry of that text) carries
    // out the command instead.
    EXPECT_TRUE(choose(editor(), menuOf(mine), "Remove Folder"));
    EXPECT_EQ(library->folderCount(), before - 1);
    EXPECT_EQ(folderIndex(mine), -1);
    // The current preset went with its folder and is no longer current.
    EXPECT_EQ(host.effect()->lastUserPreset.get(), nullptr);
    EXPECT_EQ(indexOf(*menu().presets, "Remove Preset 'Quarter'"), -1);
    // "Add Preset ..." opens the name dialog: cancelled, nothing is added.
    EXPECT_TRUE(answeringDialog(host.display(), nullptr, XKB_KEY_Escape,
                                [&] { return choose(editor(), menuOf(other), "Add Preset ..."); }));
    EXPECT_EQ(other->presetCount(), 1u);

    // Removing the current preset looks only in writable folders.
    host.effect()->lastUserPreset = RefPtr<Preset>(other->presetAt(0));
    EXPECT_TRUE(choose(editor(), kPresets, "Remove Preset 'Add Preset ...'"));
    EXPECT_EQ(other->presetCount(), 0u);
    EXPECT_EQ(host.effect()->lastUserPreset.get(), nullptr);

    Preset* factoryPreset = library->folderAt(0)->presetAt(0);
    ASSERT_NE(factoryPreset, nullptr);
    host.effect()->lastUserPreset = RefPtr<Preset>(factoryPreset);
    ContextMenu fourth = menu();
    const uint32_t factoryCount = library->folderAt(0)->presetCount();
    editor().carryOutChoice(fourth, fourth.presets.get(), fourth.presets->nbEntries() - 1);
    EXPECT_EQ(library->folderAt(0)->presetCount(), factoryCount);
    EXPECT_EQ(library->folderAt(0)->presetAt(0), factoryPreset);

    // An empty confirmed folder name adds nothing; one letter is a name.
    // (Adding a folder through the dialog at 200 % is checked in DelayEditorTest.)
    const uint32_t folders = library->folderCount();
    auto addFolder = [&] { return choose(editor(), kPresets, "Add Folder ..."); };
    answeringDialog(host.display(), nullptr, XKB_KEY_Return, addFolder);
    EXPECT_EQ(library->folderCount(), folders);
    answeringDialog(host.display(), "X", XKB_KEY_Return, addFolder);
    ASSERT_EQ(library->folderCount(), folders + 1);
    // "Add Preset ..." in the new folder stores the current state by name.
    PresetFolder* added = library->folderAt(folders);
    hostSets(20, 0.125f);
    answeringDialog(host.display(), "Slapback", XKB_KEY_Return, [&] { return choose(editor(), menuOf(added), "Add Preset ..."); });
    ASSERT_EQ(added->presetCount(), 1u);
    EXPECT_EQ(added->presetAt(0)->getName(), "Slapback");
    EXPECT_EQ(added->presetAt(0)->retainCount(), 1);  // the folder's reference only
}

// Two instances in one process share the library. When the other instance's
// menu removes the folder of the preset this one is using, this instance's
// menu no longer offers to remove it and carries on working.
TEST_F(EditorMenuTest, PresetRemovedByAnotherInstanceLeavesThisMenuWhole) {
    EditorHost other;
    ASSERT_NE(other.editor(), nullptr);
    auto lastEntry = [](const OptionMenu& menu) { return std::string(menu.entry(menu.nbEntries() - 1)); };
    PresetFolder* shared = userFolder("Shared", {"Quarter"});
    PresetFolder* kept = userFolder("Kept", {"Half"});
    choose(editor(), menuOf(shared), "Quarter");
    choose(*other.editor(), menuOf(shared), "Quarter");
    ASSERT_EQ(lastEntry(*menu().presets), "Remove Preset 'Quarter'");

    choose(*other.editor(), menuOf(shared), "Remove Folder");
    EXPECT_EQ(lastEntry(*other.editor()->buildContextMenu(Point{}).presets), "Add Folder ...");
    ContextMenu mine = menu();
    EXPECT_EQ(indexOf(*mine.presets, "Remove Preset 'Quarter'"), -1);
    EXPECT_EQ(lastEntry(*mine.presets), "Add Folder ...");
    choose(editor(), menuOf(kept), "Half");
    EXPECT_EQ(lastEntry(*menu().presets), "Remove Preset 'Half'");
}


TEST_F(EditorMenuTest, NameDialogIsATransientModalWindowThatAnswersOkCancelAndClose) {
    ASSERT_TRUE(host.openEditor());
    HostDisplay& d = host.display();
    auto press = [](uint32_t key) {
        return [key](HostDisplay& d, xcb_window_t w) { d.key(w, key); };
    };
    const xcb_window_t owner = host.editorWindow();
    const struct {
        const char* defaultText;
        std::function<void(HostDisplay&, xcb_window_t)> user;
        bool confirmed;
        const char* result;
        xcb_window_t owner;
    } cases[] = {
        // Pre-filled text is confirmed as it is, terminated.
        {"Tape Echo", press(XKB_KEY_Return), true, "Tape Echo", owner},
        // Escape, the Cancel button and the window manager's close cancel
        // and leave the buffer alone.
        {"Tape Echo", press(XKB_KEY_Escape), false, "unchanged", owner},
        {"abc", [](HostDisplay& d, xcb_window_t w) { d.click(w, 250, 110); }, false, "unchanged", owner},
        {"abc",
         [](HostDisplay& d, xcb_window_t w) {
             xcb_client_message_event_t e{};
             e.response_type = XCB_CLIENT_MESSAGE;
             e.format = 32;
             e.window = w;
             e.type = d.atom("WM_PROTOCOLS");
             e.data.data32[0] = d.atom("WM_DELETE_WINDOW");
             xcb_send_event(d.connection(), 0, w, XCB_EVENT_MASK_NO_EVENT, reinterpret_cast<const char*>(&e));
             d.sync();
         },
         false, "unchanged", owner},
        // Return on an empty field confirms an empty name; with no owner the
        // dialog is centred on the screen.
        {nullptr, press(XKB_KEY_Return), true, "", 0},
        // Typed, selected and typed over, edited in the middle and at the end.
        {nullptr,
         [](HostDisplay& d, xcb_window_t w) {
             d.typeText(w, "Old");
             d.key(w, XKB_KEY_a, XCB_MOD_MASK_CONTROL);
             d.typeText(w, "Nmae");
             for (uint32_t k : {XKB_KEY_Left, XKB_KEY_Left, XKB_KEY_BackSpace, XKB_KEY_Right}) d.key(w, k);
             d.typeText(w, "m");
             d.key(w, XKB_KEY_End);
             d.typeText(w, " Echo");
             d.key(w, XKB_KEY_Return);
         },
         true, "Name Echo", owner},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.result);
        char result[kNameBufferSize] = "unchanged";
        std::vector<uint32_t> transient, type, state;
        Rect placed;
        std::thread user([&] {
            const xcb_window_t w = waitForDialog(d);
            if (!w) return;
            transient = d.property32(w, "WM_TRANSIENT_FOR");
            type = d.property32(w, "_NET_WM_WINDOW_TYPE");
            state = d.property32(w, "_NET_WM_STATE");
            placed = d.geometry(w);
            c.user(d, w);
        });
        EXPECT_EQ(runNameDialog("Varitap", "Name:", c.defaultText, result, c.owner), c.confirmed);
        user.join();
        EXPECT_STREQ(result, c.result);
        // A real top-level dialog: transient for the host's top-level window
        // (the editor's window is its child), of dialog type, modal, centred
        // on the owner.
        EXPECT_EQ(type, std::vector<uint32_t>{d.atom("_NET_WM_WINDOW_TYPE_DIALOG")});
        EXPECT_EQ(state, std::vector<uint32_t>{d.atom("_NET_WM_STATE_MODAL")});
        if (c.owner) {
            EXPECT_EQ(transient, std::vector<uint32_t>{host.hostWindow()});
            EXPECT_EQ(placed, Rect::fromSize(10 + (865 - 400) / 2, 10 + (400 - 140) / 2, 400, 140));
        } else {
            EXPECT_TRUE(transient.empty());
            EXPECT_EQ(placed.left, (1920 - 400) / 2);
        }
    }
    // No buffer: nothing to fill, no window.
    EXPECT_FALSE(runNameDialog("Varitap", "Name:", nullptr, nullptr, 0));
}

TEST_F(EditorMenuTest, DismissedMenuChangesNothingAndAboutBoxAndHomepageHandTheAddressToTheBrowser) {
    // A stand-in xdg-open that writes the address it is given.
    gui::test::TempDir tools;
    const std::string urlFile = tools.path() + "/opened.txt";
    const std::string script = tools.path() + "/xdg-open";
    std::ofstream(script) << "#!/bin/sh\necho \"$1\" >> '" << urlFile << "'\n";
    chmod(script.c_str(), 0755);
    const std::string oldPath = getenv("PATH") ? getenv("PATH") : "";
    setenv("PATH", (tools.path() + ":" + oldPath).c_str(), 1);
    auto opened = [&] {  // the addresses handed over since the last call
        std::string text;
        gui::test::waitFor([&] { return !(text = readFile(urlFile)).empty(); }, 3000);
        std::remove(urlFile.c_str());
        return text;
    };

    ContextMenu menu = this->menu();
    EXPECT_TRUE(editor().carryOutChoice(menu, menu.top.get(), 4));  // "Visit Homepage ..."
    EXPECT_EQ(opened(), std::string(kHomePageAddress) + "\n");
    // "About ..." is the one choice that answers false.
    EXPECT_FALSE(editor().carryOutChoice(menu, menu.top.get(), 5));
    // Nothing chosen, or an index past the menu: nothing happens.
    EXPECT_TRUE(editor().carryOutChoice(menu, nullptr, -1));
    EXPECT_TRUE(editor().carryOutChoice(menu, menu.background.get(), 99));

    // A menu dismissed three levels deep changes nothing and leaves the frame.
    ASSERT_TRUE(host.openEditor());
    userFolder("Mine", {"One"});
    const uint32_t folders = library->folderCount();
    const std::string options = home.readOptions();
    const int views = editor().frame()->viewCount();
    const Image before = host.grabEditor();
    Image menuShot;
    EXPECT_FALSE(clickMenuStrip([&](xcb_window_t top) {
        host.display().key(top, XKB_KEY_Down);   // Presets
        host.display().key(top, XKB_KEY_Right);  // its folders
        if (!waitForMenus(host.display(), 2)) return;
        host.display().key(top, XKB_KEY_Right);  // the first folder
        if (!waitForMenus(host.display(), 3)) return;
        gui::test::waitFor([] { return false; }, 150);
        const Point at = host.display().rootPosition(host.hostWindow());
        menuShot = host.display().grab(host.display().root(), Rect(at.x, at.y, at.x + 865, at.y + 400));
        host.display().key(top, XKB_KEY_Escape);
    }));
    EXPECT_TRUE(host.display().popupWindows().empty());
    EXPECT_EQ(library->folderCount(), folders);
    EXPECT_EQ(home.readOptions(), options);
    EXPECT_TRUE(host.log.events().empty());
    EXPECT_EQ(editor().frame()->viewCount(), views);
    // The menus were on screen over the editor.
    ASSERT_EQ(menuShot.width, 865);
    saveScreenshot(menuShot, "editor-presets-menu.png");
    EXPECT_GT(differingFraction(menuShot, before, 30), 0.01);

    const bool shown = clickMenuStrip([&](xcb_window_t top) {
        host.display().key(top, XKB_KEY_Up);  // wraps to the last: "About ..."
        host.display().key(top, XKB_KEY_Return);
    });
    ASSERT_TRUE(shown);
    EXPECT_EQ(editor().aboutOverlay()->mouseRect(), Rect(0, 0, 865, 400));
    const Image about = host.grabEditor();
    saveScreenshot(about, "editor-about.png");
    EXPECT_GT(differingFraction(about, before, 30), 0.1);
    // The link's yellow text is drawn where it belongs.
    EXPECT_GT(about.count(Rect(337, 155, 528, 170), 255, 255, 0, 60), 20);
    EXPECT_STREQ(editor().aboutOverlay()->link()->address(), kHomePageAddress);

    // A click on the link opens the page and leaves the box up.
    host.click({432, 162});
    EXPECT_EQ(opened(), std::string(kHomePageAddress) + "\n");
    EXPECT_TRUE(editor().aboutOverlay()->aboutShown());
    // A click anywhere else closes it; the editor shows again.
    host.click({600, 300});
    EXPECT_FALSE(editor().aboutOverlay()->aboutShown());
    EXPECT_EQ(editor().aboutOverlay()->mouseRect(), DelayEditor::menuStripRect());
    EXPECT_LT(differingFraction(host.grabEditor(), before, 30), 0.01);
    // While hidden, a press outside the menu strip does not reach the overlay.
    host.click({600, 300});
    EXPECT_FALSE(editor().aboutOverlay()->aboutShown());
    setenv("PATH", oldPath.c_str(), 1);
}

}  // namespace
}  // namespace varitap::test
