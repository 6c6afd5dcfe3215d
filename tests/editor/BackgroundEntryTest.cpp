#include "editor/BackgroundEntry.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

namespace varitap {
namespace {

namespace fs = std::filesystem;

// A bundle folder in a fresh temporary directory, removed afterwards.
class TempBundle {
public:
    TempBundle() {
        char pattern[] = "/tmp/varitap-backgrounds-XXXXXX";
        root_ = mkdtemp(pattern);
        fs::create_directories(backgrounds());
    }
    ~TempBundle() {
        std::error_code ignored;
        fs::remove_all(root_, ignored);
    }
    std::string bundle() const { return root_ + "/Varitap.vst"; }
    std::string backgrounds() const { return bundle() + "/Contents/Resources/Backgrounds"; }
    void addFile(const std::string& name) const { std::ofstream(backgrounds() + "/" + name) << "x"; }

private:
    std::string root_;
};

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
    TempBundle bundle;
    for (const char* name : {"a.png", "a.b.png", "default.png", "notes.txt", "Default.PNG"}) {
        bundle.addFile(name);  // file types are case-sensitive: "Default.PNG" is no picture
    }
    fs::create_directories(bundle.backgrounds() + "/folder.png");  // a folder, not a picture

    ObjectList list;
    RefPtr<BackgroundEntry> chosen = gatherBackgrounds(bundle.bundle(), "a.png", list);
    const std::vector<std::string> sorted = {"a.b.png", "a.png", "default.png"};
    ASSERT_EQ(list.count(), sorted.size());
    for (uint32_t i = 0; i < list.count(); ++i) {
        EXPECT_EQ(static_cast<BackgroundEntry*>(list.getAt(i))->fileName(), sorted[i]);
    }
    EXPECT_EQ(chosen.get(), list.getAt(1));  // the listed object itself, not a copy
    EXPECT_EQ(std::string(chosen->path()), bundle.backgrounds() + "/a.png");

    // Exact, case-sensitive match on the file name; anything else gives the
    // first entry. Each gathering replaces the list.
    chosen = gatherBackgrounds(bundle.bundle(), "default.png", list);
    EXPECT_EQ(chosen.get(), list.getAt(2));
    EXPECT_EQ(list.count(), 3u);
    for (const char* wanted : {"DEFAULT.png", "a", "b.png", "", static_cast<const char*>(nullptr)}) {
        chosen = gatherBackgrounds(bundle.bundle(), wanted, list);
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
        fs::remove_all(bundle.backgrounds() + "/" + name);
    }
    EXPECT_FALSE(gatherBackgrounds(bundle.bundle(), "default.png", list));
    EXPECT_EQ(list.count(), 0u);
    EXPECT_EQ(stale->retainCount(), 1);
    fs::remove_all(bundle.backgrounds());
    EXPECT_FALSE(gatherBackgrounds(bundle.bundle(), "default.png", list));
    EXPECT_FALSE(gatherBackgrounds("", "default.png", list));
    EXPECT_EQ(list.count(), 0u);
}

}  // namespace
}  // namespace varitap
