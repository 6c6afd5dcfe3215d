#include "editor/BackgroundEntry.h"

#include <gtest/gtest.h>
#include <stdlib.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <string>

#include "persistence/Preferences.h"

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
    void addFile(const std::string& name) const {
        std::ofstream(backgrounds() + "/" + name) << "not decoded here";
    }
    const std::string& root() const { return root_; }

private:
    std::string root_;
};

std::vector<std::string> fileNames(const ObjectList& list) {
    std::vector<std::string> names;
    for (uint32_t i = 0; i < list.count(); ++i) {
        names.push_back(static_cast<BackgroundEntry*>(list.getAt(i))->fileName());
    }
    return names;
}

TEST(BackgroundEntryTest, NamesComeFromTheLastPathComponent) {
    auto entry = makeRef<BackgroundEntry>("/opt/Varitap.vst/Contents/Resources/Backgrounds/a.b.png");
    EXPECT_STREQ(entry->fileName(), "a.b.png");
    EXPECT_EQ(entry->displayName(), "a.b");  // only the last "." ends the name

    auto plain = makeRef<BackgroundEntry>("a.png");
    EXPECT_STREQ(plain->fileName(), "a.png");  // no "/": the whole path
    EXPECT_EQ(plain->displayName(), "a");

    // A "." in a folder name is not the file's extension.
    auto dotted = makeRef<BackgroundEntry>("/my.folder/Backdrop");
    EXPECT_STREQ(dotted->fileName(), "Backdrop");
    EXPECT_EQ(dotted->displayName(), "Backdrop");

    auto trailing = makeRef<BackgroundEntry>("/some/folder/");
    EXPECT_STREQ(trailing->fileName(), "");
    EXPECT_EQ(trailing->displayName(), "");
}

TEST(BackgroundEntryTest, PathsAreKeptOnlyWhenTheyFit) {
    const std::string longest(BackgroundEntry::kMaxPathBytes, 'x');
    auto fits = makeRef<BackgroundEntry>(longest.c_str());
    EXPECT_EQ(std::string(fits->path()), longest);

    // One byte more would have to be cut, and a cut path names another file.
    auto tooLong = makeRef<BackgroundEntry>((longest + "y").c_str());
    EXPECT_STREQ(tooLong->path(), "");
    auto none = makeRef<BackgroundEntry>(nullptr);
    EXPECT_STREQ(none->path(), "");
}

TEST(BackgroundEntryTest, AppendingAComponentAddsASlashAndStopsAtTheLimit) {
    auto entry = makeRef<BackgroundEntry>("/bundle/Resources");
    EXPECT_TRUE(entry->appendPathComponent("Backgrounds"));
    EXPECT_TRUE(entry->appendPathComponent("default.png"));
    EXPECT_STREQ(entry->path(), "/bundle/Resources/Backgrounds/default.png");
    EXPECT_STREQ(entry->fileName(), "default.png");
    EXPECT_FALSE(entry->appendPathComponent(nullptr));

    // Exactly at the limit still fits; one byte over leaves the path as it was.
    const std::string base(1000, 'p');
    auto full = makeRef<BackgroundEntry>(base.c_str());
    const std::string last(BackgroundEntry::kMaxPathBytes - base.size() - 1, 'n');
    EXPECT_TRUE(full->appendPathComponent(last.c_str()));
    EXPECT_EQ(std::string(full->path()).size(), BackgroundEntry::kMaxPathBytes);
    const std::string before = full->path();
    EXPECT_FALSE(full->appendPathComponent("z"));
    EXPECT_EQ(std::string(full->path()), before);
}

TEST(BackgroundEntryTest, GatheringListsPngFilesAndPicksTheWantedOne) {
    TempBundle bundle;
    bundle.addFile("a.png");
    bundle.addFile("a.b.png");
    bundle.addFile("default.png");
    bundle.addFile("notes.txt");
    bundle.addFile("Default.PNG");  // not of type "png": file types are case-sensitive
    fs::create_directories(bundle.backgrounds() + "/folder.png");  // a folder, not a picture

    ObjectList list;
    RefPtr<BackgroundEntry> chosen = gatherBackgrounds(bundle.bundle(), "a.png", list);
    ASSERT_EQ(fileNames(list), (std::vector<std::string>{"a.b.png", "a.png", "default.png"}));
    EXPECT_EQ(static_cast<BackgroundEntry*>(list.getAt(0))->displayName(), "a.b");
    EXPECT_EQ(static_cast<BackgroundEntry*>(list.getAt(1))->displayName(), "a");
    ASSERT_TRUE(chosen);
    EXPECT_EQ(chosen.get(), list.getAt(1));  // the listed object itself, not a copy
    EXPECT_EQ(std::string(chosen->path()), bundle.backgrounds() + "/a.png");

    // Exact, case-sensitive match; the display name does not count. (Each
    // gathering replaces the list, so compare after it.)
    chosen = gatherBackgrounds(bundle.bundle(), "default.png", list);
    EXPECT_EQ(list.count(), 3u);
    EXPECT_EQ(chosen.get(), list.getAt(2));
    for (const char* wanted : {"DEFAULT.png", "a", "b.png", "", static_cast<const char*>(nullptr)}) {
        chosen = gatherBackgrounds(bundle.bundle(), wanted, list);
        EXPECT_EQ(chosen.get(), list.getAt(0)) << (wanted ? wanted : "(none)");
    }
    // The list holds its own reference on each entry.
    EXPECT_EQ(list.getAt(0)->retainCount(), 2);
    chosen.reset();
    EXPECT_EQ(list.getAt(0)->retainCount(), 1);
}

TEST(BackgroundEntryTest, AFolderWithoutPicturesGivesNoEntries) {
    TempBundle bundle;
    bundle.addFile("readme.txt");
    ObjectList list;
    auto stale = makeRef<BackgroundEntry>("/left/over.png");
    list.append(stale.get());
    EXPECT_FALSE(gatherBackgrounds(bundle.bundle(), "default.png", list));
    EXPECT_EQ(list.count(), 0u);
    EXPECT_EQ(stale->retainCount(), 1);  // the old entry was released

    fs::remove_all(bundle.backgrounds());
    EXPECT_FALSE(gatherBackgrounds(bundle.bundle(), "default.png", list));
    EXPECT_FALSE(gatherBackgrounds("", "default.png", list));
    EXPECT_EQ(list.count(), 0u);
}

TEST(BackgroundEntryTest, TheWantedNameComesFromTheStoredOption) {
    TempBundle home;
    const char* old = getenv("XDG_CONFIG_HOME");
    const std::string saved = old ? old : "";
    setenv("XDG_CONFIG_HOME", home.root().c_str(), 1);
    {
        auto prefs = RefPtr<Preferences>::adopt(Preferences::acquire());
        EXPECT_EQ(wantedBackgroundName(*prefs), "default.png");

        prefs->setString(kOptionBackgroundBitmap, "Ember.png");
        EXPECT_EQ(wantedBackgroundName(*prefs), "Ember.png");

        // The choice the editor stored picks that file; a stored name that is
        // not there any more falls back to the first file.
        TempBundle bundle;
        bundle.addFile("Ember.png");
        bundle.addFile("Aurora.png");
        ObjectList list;
        EXPECT_STREQ(gatherBackgrounds(bundle.bundle(), wantedBackgroundName(*prefs).c_str(), list)
                         ->fileName(),
                     "Ember.png");
        prefs->setString(kOptionBackgroundBitmap, "Gone.png");
        EXPECT_STREQ(gatherBackgrounds(bundle.bundle(), wantedBackgroundName(*prefs).c_str(), list)
                         ->fileName(),
                     "Aurora.png");
    }
    if (old) {
        setenv("XDG_CONFIG_HOME", saved.c_str(), 1);
    } else {
        unsetenv("XDG_CONFIG_HOME");
    }
}

}  // namespace
}  // namespace varitap
