// Background pictures: the entries naming them, the gathering of a bundle's
// Backgrounds folder, and the pictures as the editor shows, switches and
// remembers them, from a resources folder made on the fly.
#include "editor/BackgroundEntry.h"

#include <filesystem>
#include <fstream>

#include "EditorTestSupport.h"
#include "editor/BackgroundBitmap.h"

namespace varitap::test {
namespace {

namespace fs = std::filesystem;

TEST(BackgroundEntryTest, NamesComeFromTheLastPathComponentAndPathsAreKeptWholeOrNotAtAll) {
    const struct {
        const char* path;
        const char* fileName;
        const char* displayName;
    } cases[] = {{"/opt/Varitap.vst/Resources/Backgrounds/a.b.png", "a.b.png", "a.b"},
                 {"a.png", "a.png", "a"},  // no "/": the whole path
                 {"/my.folder/Backdrop", "Backdrop", "Backdrop"},
                 {"/some/folder/", "", ""}};
    for (const auto& c : cases) {
        auto entry = makeRef<BackgroundEntry>(c.path);
        EXPECT_STREQ(entry->fileName(), c.fileName) << c.path;
        EXPECT_EQ(entry->displayName(), c.displayName) << c.path;
    }

    // A cut path would name another file: one byte over the limit keeps none.
    const std::string longest(BackgroundEntry::kMaxPathBytes, 'x');
    EXPECT_EQ(std::string(makeRef<BackgroundEntry>(longest.c_str())->path()), longest);
    EXPECT_STREQ(makeRef<BackgroundEntry>((longest + "y").c_str())->path(), "");
    EXPECT_STREQ(makeRef<BackgroundEntry>(nullptr)->path(), "");
    auto entry = makeRef<BackgroundEntry>("/bundle/Resources");
    EXPECT_TRUE(entry->appendPathComponent("Backgrounds"));
    EXPECT_TRUE(entry->appendPathComponent("default.png"));
    EXPECT_STREQ(entry->path(), "/bundle/Resources/Backgrounds/default.png");
    EXPECT_FALSE(entry->appendPathComponent(nullptr));
    // Exactly at the limit still fits; one byte over leaves the path as it was.
    auto full = makeRef<BackgroundEntry>(std::string(1000, 'p').c_str());
    EXPECT_TRUE(full->appendPathComponent(std::string(BackgroundEntry::kMaxPathBytes - 1001, 'n').c_str()));
    const std::string before = full->path();
    EXPECT_EQ(before.size(), BackgroundEntry::kMaxPathBytes);
    EXPECT_FALSE(full->appendPathComponent("z"));
    EXPECT_EQ(std::string(full->path()), before);
}

TEST(BackgroundEntryTest, GatheringListsPngFilesAndPicksTheWantedOne) {
    TempDir dir;
    const std::string bundle = dir.path() + "/Varitap.vst";
    const std::string backgrounds = bundle + "/Contents/Resources/Backgrounds";
    fs::create_directories(backgrounds + "/folder.png");  // a folder, not a picture
    for (const char* name : {"a.png", "a.b.png", "default.png", "notes.txt", "Default.PNG"}) {
        std::ofstream(backgrounds + "/" + name) << "x";  // case-sensitive: "Default.PNG" is no picture
    }

    ObjectList list;
    RefPtr<BackgroundEntry> chosen = gatherBackgrounds(bundle, "a.png", list);
    std::vector<std::string> listed;
    for (uint32_t i = 0; i < list.count(); ++i) listed.push_back(static_cast<BackgroundEntry*>(list.getAt(i))->fileName());
    EXPECT_EQ(listed, (std::vector<std::string>{"a.b.png", "a.png", "default.png"}));
    EXPECT_EQ(chosen.get(), list.getAt(1));  // the listed object itself, not a copy
    EXPECT_EQ(std::string(chosen->path()), backgrounds + "/a.png");

    // Exact, case-sensitive match on the file name; anything else gives the
    // first entry. Each gathering replaces the list.
    chosen = gatherBackgrounds(bundle, "default.png", list);
    EXPECT_EQ(chosen.get(), list.getAt(2));
    EXPECT_EQ(list.count(), 3u);
    for (const char* wanted : {"DEFAULT.png", "a", "b.png", "", static_cast<const char*>(nullptr)}) {
        chosen = gatherBackgrounds(bundle, wanted, list);
        EXPECT_EQ(chosen.get(), list.getAt(0)) << (wanted ? wanted : "(none)");
    }
    // The list holds its own reference on each entry.
    chosen.reset();
    EXPECT_EQ(list.getAt(0)->retainCount(), 1);

    // No pictures, no folder, no bundle: no entries, old ones released.
    auto stale = makeRef<BackgroundEntry>("/left/over.png");
    list.append(stale.get());
    for (const char* name : {"a.png", "a.b.png", "default.png", "folder.png"}) {
        fs::remove_all(backgrounds + "/" + name);
    }
    EXPECT_FALSE(gatherBackgrounds(bundle, "default.png", list));
    EXPECT_EQ(list.count(), 0u);
    EXPECT_EQ(stale->retainCount(), 1);
    fs::remove_all(backgrounds);
    EXPECT_FALSE(gatherBackgrounds(bundle, "default.png", list));
    EXPECT_FALSE(gatherBackgrounds("", "default.png", list));
    EXPECT_EQ(list.count(), 0u);
}

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

    TempDir dir;
    ConfigHome home;
};

TEST_F(BackgroundTest, ChoiceIsShownAtOnceAndRememberedOnlyWhenTheEditorGoes) {
    {
        // No pictures: no background and an empty menu; the editor opens.
        EditorHost host(resources());
        EXPECT_EQ(host.editor()->backgrounds().count(), 0u);
        EXPECT_EQ(host.editor()->currentBackground(), nullptr);
        EXPECT_EQ(host.editor()->buildContextMenu(gui::Point{}).background->nbEntries(), 0);
        ASSERT_TRUE(host.openEditor());
        host.grabEditor();
    }
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
    EXPECT_EQ(currentFile(*EditorHost(resources()).editor()), "a.png");

    // With nothing stored "default.png" is preferred to the first; choosing
    // a picture that cannot be decoded gives an empty background.
    ConfigHome nothingStored;
    addPicture("default.png", kBlue);
    std::ofstream(backgrounds() + "/Broken.png") << "not a PNG";
    EditorHost host(resources());
    DelayEditor& editor = *host.editor();
    EXPECT_EQ(currentFile(editor), "default.png");
    ASSERT_TRUE(host.openEditor());
    ASSERT_TRUE(editor.chooseBackground(0));  // Broken.png, first in byte order
    EXPECT_EQ(currentFile(editor), "Broken.png");
    EXPECT_EQ(editor.currentBackground()->width(), 0);
    EXPECT_FALSE(editor.chooseBackground(4));  // no such entry: nothing changes
    EXPECT_EQ(currentFile(editor), "Broken.png");
    host.grabEditor();
}

}  // namespace
}  // namespace varitap::test
