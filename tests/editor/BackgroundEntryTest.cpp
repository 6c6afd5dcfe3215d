#include "editor/BackgroundEntry.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "../gui/XServer.h"

namespace varitap {
namespace {

namespace fs = std::filesystem;

TEST(BackgroundEntryTest, NamesComeFromTheLastPathComponent) {
    struct Case {
        const char* path;
        const char* fileName;
        const char* displayName;
    };
    for (const Case& c : {Case{"/opt/Varitap.vst/Resources/Backgrounds/a.b.png", "a.b.png", "a.b"},
                          Case{"a.png", "a.png", "a"},  // no "/": the whole path
                          Case{"/my.folder/Backdrop", "Backdrop", "Backdrop"},
                          Case{"/some/folder/", "", ""}}) {
        auto entry = makeRef<BackgroundEntry>(c.path);
        EXPECT_STREQ(entry->fileName(), c.fileName) << c.path;
        EXPECT_EQ(entry->displayName(), c.displayName) << c.path;
    }
}

TEST(BackgroundEntryTest, PathsAreKeptWholeOrNotAtAll) {
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
    const std::string base(1000, 'p');
    auto full = makeRef<BackgroundEntry>(base.c_str());
    const std::string last(BackgroundEntry::kMaxPathBytes - base.size() - 1, 'n');
    EXPECT_TRUE(full->appendPathComponent(last.c_str()));
    const std::string before = full->path();
    EXPECT_EQ(before.size(), BackgroundEntry::kMaxPathBytes);
    EXPECT_FALSE(full->appendPathComponent("z"));
    EXPECT_EQ(std::string(full->path()), before);
}

TEST(BackgroundEntryTest, GatheringListsPngFilesAndPicksTheWantedOne) {
    gui::test::TempDir dir;
    const std::string bundle = dir.path() + "/Varitap.vst";
    const std::string backgrounds = bundle + "/Contents/Resources/Backgrounds";
    fs::create_directories(backgrounds + "/folder.png");  // a folder, not a picture
    for (const char* name : {"a.png", "a.b.png", "default.png", "notes.txt", "Default.PNG"}) {
        std::ofstream(backgrounds + "/" + name) << "x";  // case-sensitive: "Default.PNG" is no picture
    }

    ObjectList list;
    RefPtr<BackgroundEntry> chosen = gatherBackgrounds(bundle, "a.png", list);
    const std::vector<std::string> sorted = {"a.b.png", "a.png", "default.png"};
    ASSERT_EQ(list.count(), sorted.size());
    for (uint32_t i = 0; i < list.count(); ++i) {
        EXPECT_EQ(static_cast<BackgroundEntry*>(list.getAt(i))->fileName(), sorted[i]);
    }
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
    EXPECT_EQ(list.getAt(0)->retainCount(), 2);
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

}  // namespace
}  // namespace varitap
