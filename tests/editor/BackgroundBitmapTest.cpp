// Background pictures as the editor gathers, shows, switches and remembers
// them, from a resources folder made on the fly.
#include "editor/BackgroundBitmap.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>

#include "EditorTestSupport.h"
#include "editor/DelayEditor.h"
#include "gui/OptionMenu.h"

namespace varitap::test {
namespace {

namespace fs = std::filesystem;
using gui::Color;

constexpr Color kRed{200, 30, 30, 255};
constexpr Color kBlue{30, 40, 200, 255};

class BackgroundTest : public ::testing::Test {
protected:
    void SetUp() override {
        if (!gui::test::haveDisplay()) GTEST_SKIP() << "no X server";
        fs::create_directories(backgrounds());
    }
    std::string resources() const { return dir.path() + "/Varitap.vst/Contents/Resources"; }
    std::string backgrounds() const { return resources() + "/Backgrounds"; }
    void addPicture(const std::string& name, Color color) const {
        ASSERT_TRUE(gui::test::writeBandsPng(backgrounds() + "/" + name, 865, 400, {color}));
    }
    static std::string currentFile(const DelayEditor& editor) {
        BackgroundBitmap* b = editor.currentBackground();
        return b && b->entry() ? b->entry()->fileName() : std::string();
    }
    // A pixel of the editor's own background: the corner above the menu
    // handle, which no widget covers.
    static gui::test::Pixel corner(EditorHost& host) { return host.grabEditor().at(12, 2); }

    gui::test::TempDir dir;
    ConfigHome home;
};

TEST_F(BackgroundTest, ChoiceIsShownAtOnceAndRememberedOnlyWhenTheEditorGoes) {
    addPicture("a.b.png", kRed);
    addPicture("a.png", kBlue);
    {
        EditorHost host(resources());
        DelayEditor& editor = *host.editor();
        // Listed by display name (BackgroundEntryTest checks which files are
        // listed, in which order); with no stored choice and no default.png the
        // first one is used.
        EXPECT_EQ(currentFile(editor), "a.b.png");
        ContextMenu menu = editor.buildContextMenu(gui::Point{});
        ASSERT_EQ(menu.background->nbEntries(), 2);
        EXPECT_STREQ(menu.background->entry(0), "a.b");
        EXPECT_STREQ(menu.background->entry(1), "a");
        EXPECT_TRUE(menu.background->isCheckEntry(0));

        ASSERT_TRUE(host.openEditor());
        EXPECT_TRUE(corner(host).near(kRed.red, kRed.green, kRed.blue, 12));

        // Chosen from the menu: drawn at once, the option not yet written.
        EXPECT_TRUE(editor.carryOutChoice(menu, menu.background.get(), 1));
        EXPECT_EQ(currentFile(editor), "a.png");
        EXPECT_TRUE(corner(host).near(kBlue.red, kBlue.green, kBlue.blue, 12));
        EXPECT_TRUE(editor.buildContextMenu(gui::Point{}).background->isCheckEntry(1));
        EXPECT_EQ(home.readOptions().find("Background Bitmap"), std::string::npos);

        // Kept across closing and opening the window.
        host.closeEditor();
        ASSERT_TRUE(host.openEditor());
        EXPECT_TRUE(corner(host).near(kBlue.red, kBlue.green, kBlue.blue, 12));
        EXPECT_EQ(home.readOptions().find("Background Bitmap"), std::string::npos);
        host.closeInstance();  // deletes the editor object
        EXPECT_NE(home.readOptions().find("Background Bitmap=a.png"), std::string::npos);
    }
    // The next editor starts with the remembered picture.
    EditorHost next(resources());
    EXPECT_EQ(currentFile(*next.editor()), "a.png");
}

TEST_F(BackgroundTest, MissingOrBadPicturesLeaveTheEditorRunning) {
    {
        // No pictures: no background and an empty menu.
        EditorHost host(resources());
        EXPECT_EQ(host.editor()->backgrounds().count(), 0u);
        EXPECT_EQ(host.editor()->currentBackground(), nullptr);
        EXPECT_EQ(host.editor()->buildContextMenu(gui::Point{}).background->nbEntries(), 0);
        ASSERT_TRUE(host.openEditor());
        host.grabEditor();
    }
    // "default.png" is preferred to the first; choosing a picture that cannot
    // be decoded gives an empty background.
    addPicture("Amber.png", kRed);
    addPicture("default.png", kBlue);
    std::ofstream(backgrounds() + "/Broken.png") << "not a PNG";
    EditorHost host(resources());
    DelayEditor& editor = *host.editor();
    EXPECT_EQ(currentFile(editor), "default.png");
    ASSERT_TRUE(host.openEditor());
    ASSERT_TRUE(editor.chooseBackground(1));
    EXPECT_EQ(editor.currentBackground()->width(), 0);
    EXPECT_FALSE(editor.chooseBackground(3));  // no such entry: nothing changes
    EXPECT_EQ(currentFile(editor), "Broken.png");
    host.grabEditor();
}

}  // namespace
}  // namespace varitap::test
