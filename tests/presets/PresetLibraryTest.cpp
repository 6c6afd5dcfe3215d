#include "persistence/PresetLibrary.h"

#include <gtest/gtest.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/wait.h>

#include <filesystem>

#include "PresetTestSupport.h"

namespace varitap {
namespace {

using namespace test;

std::vector<std::string> folderNames(const PresetLibrary& library) {
    std::vector<std::string> names;
    for (uint32_t i = 0; i < library.folderCount(); ++i) names.push_back(library.folderAt(i)->getName());
    return names;
}

// A user file with n folders of one preset each, every preset carrying
// `values` floats: large enough that saving it takes many system calls.
void fillLibrary(PresetLibrary& library, int folders, int values, const char* prefix) {
    for (int f = 0; f < folders; ++f) {
        auto preset = makeRef<Preset>("p");
        for (int i = 0; i < values; ++i)
            addValues(preset.get(), {PropertyValue::makeFloat(std::to_string(i).c_str(), i / 241.0)});
        library.addFolder((prefix + std::to_string(f)).c_str())->addPreset(preset.get());
    }
}

std::vector<std::string> leftovers(const TempDir& folder, const std::string& keep) {
    std::vector<std::string> others;
    for (const auto& entry : std::filesystem::directory_iterator(folder.path())) {
        const std::string name = entry.path().filename();
        if (name != keep) others.push_back(name);
    }
    return others;
}

TEST(PresetLibraryTest, TreeRoundTripAndFactoryFlags) {
    TempDir folder;
    const std::string user = folder / "user.xml";
    {
        auto library = makeRef<PresetLibrary>();
        ASSERT_TRUE(library->loadFile(dataPath("folder-f-preset-p.xml"), true));
        PresetFolder* factory = library->folderAt(0);
        ASSERT_TRUE(factory->isFactory());
        ASSERT_EQ(factory->presetCount(), 1u);
        EXPECT_TRUE(factory->presetAt(0)->isFactory());
        // A preset added to a factory folder becomes a factory preset.
        auto added = makeRef<Preset>("added");
        factory->addPreset(added.get());
        EXPECT_TRUE(added->isFactory());

        // Two user folders of the same name, one named like the factory one.
        PresetFolder* a = library->addFolder("Same");
        library->addFolder("Same");
        library->addFolder("F");
        library->addFolder(nullptr);
        auto named = makeRef<Preset>("with name");
        a->addPreset(named.get());
        auto nameless = makeRef<Preset>();
        a->addPreset(nameless.get());
        EXPECT_FALSE(named->isFactory());
        EXPECT_TRUE(a->removePreset(nameless.get()));
        EXPECT_TRUE(a->removePreset(nameless.get()));  // always true
        EXPECT_EQ(a->presetCount(), 1u);
        ASSERT_TRUE(library->saveFile(user));
    }
    auto back = makeRef<PresetLibrary>();
    ASSERT_TRUE(back->loadFile(user, false));
    EXPECT_EQ(folderNames(*back), (std::vector<std::string>{"Same", "Same", "F", ""}));
    ASSERT_EQ(back->folderAt(0)->presetCount(), 1u);
    EXPECT_EQ(back->folderAt(0)->presetAt(0)->getName(), "with name");
    EXPECT_FALSE(back->folderAt(0)->isFactory());
    EXPECT_FALSE(back->folderAt(0)->presetAt(0)->isFactory());

    PresetFolder* gone = back->folderAt(1);
    EXPECT_TRUE(back->removeFolder(gone));
    EXPECT_FALSE(back->removeFolder(gone));
    EXPECT_EQ(back->folderCount(), 3u);
}

TEST(PresetLibraryTest, PresetsReadNamesAndKeepOtherEntries) {
    TempDir folder;
    writeFile(folder / "p.xml",
                   "<Presets version=\"1\"><array name=\"folder\">"
                   "<array name=\"preset\"><float name=\"0\" value=\"0.5\" /></array>"
                   "<array name=\"preset\"><long name=\"name\" value=\"3\" /><string name=\"x\" value=\"y\" /></array>"
                   "<string name=\"other\" value=\"ignored\" />"
                   "<string name=\"name\" value=\"Late Name\" />"
                   "</array><long name=\"version\" value=\"1\" /></Presets>");
    auto library = makeRef<PresetLibrary>();
    ASSERT_TRUE(library->loadFile(folder / "p.xml", false));
    ASSERT_EQ(library->folderCount(), 1u);
    PresetFolder* f = library->folderAt(0);
    EXPECT_EQ(f->getName(), "Late Name");
    ASSERT_EQ(f->presetCount(), 2u);
    EXPECT_EQ(f->presetAt(0)->getName(), "");  // no "name" entry
    EXPECT_EQ(f->presetAt(0)->findProperty("0")->getFloat(), 0.5);
    EXPECT_EQ(f->presetAt(1)->getName(), "");  // a number is no name
    EXPECT_EQ(f->presetAt(1)->properties().count(), 1u);
    EXPECT_EQ(f->presetAt(1)->findProperty("x")->getString(), "y");
}

TEST(PresetLibraryTest, SharedLifeLoadsFactoryThenUserAndSavesOnEveryRelease) {
    TempDir folder;
    const std::string user = folder / "brelmo.varitap.presets.xml";
    {
        auto seed = makeRef<PresetLibrary>();
        seed->addFolder("Mine");
        ASSERT_TRUE(seed->saveFile(user));
    }
    ASSERT_EQ(PresetLibrary::current(), nullptr);
    PresetLibrary* first = PresetLibrary::acquireForInstance(dataPath("folder-f-preset-p.xml"), user);
    ASSERT_EQ(PresetLibrary::current(), first);
    EXPECT_EQ(folderNames(*first), (std::vector<std::string>{"F", "Mine"}));
    EXPECT_TRUE(first->folderAt(0)->isFactory());
    EXPECT_FALSE(first->folderAt(1)->isFactory());

    // A second instance shares it, with unsaved additions, and reads nothing again.
    first->addFolder("Unsaved");
    PresetLibrary* second = PresetLibrary::acquireForInstance(dataPath("full-preset.xml"), user);
    EXPECT_EQ(second, first);
    EXPECT_EQ(first->folderCount(), 3u);

    // Each instance's end rewrites the user file; factory folders never go there.
    PresetLibrary::saveAndRelease();
    ASSERT_EQ(PresetLibrary::current(), first);
    auto saved = makeRef<PresetLibrary>();
    saved->loadFile(user, false);
    EXPECT_EQ(folderNames(*saved), (std::vector<std::string>{"Mine", "Unsaved"}));

    PresetLibrary::saveAndRelease();
    EXPECT_EQ(PresetLibrary::current(), nullptr);  // the last release destroys it
    PresetLibrary::saveAndRelease();  // no library: nothing happens

    // Neither file: an empty library, and a save creates the user file.
    PresetLibrary* empty = PresetLibrary::acquireForInstance("", folder / "sub/dir/new.xml");
    EXPECT_EQ(empty->folderCount(), 0u);
    PresetLibrary::saveAndRelease();
    EXPECT_EQ(readFile(folder / "sub/dir/new.xml"), readFile(dataPath("empty-library.xml")));
    EXPECT_EQ(std::filesystem::status(folder / "sub/dir/new.xml").permissions() &
                  std::filesystem::perms::all,
              std::filesystem::perms::owner_read | std::filesystem::perms::owner_write);
}

TEST(PresetLibraryTest, UnreadableUserFileIsKeptAsBackupOnce) {
    TempDir folder;
    const std::string user = folder / "brelmo.varitap.presets.xml";
    const std::string backup = user + ".bak";

    // A name with "&" is written raw, and that file cannot be read back.
    {
        auto library = makeRef<PresetLibrary>();
        library->addFolder("Rock & Roll");
        ASSERT_TRUE(library->saveFile(user));
    }
    const std::string unreadable = readFile(user);
    ASSERT_NE(unreadable.find("Rock & Roll"), std::string::npos);

    PresetLibrary* library = PresetLibrary::acquireForInstance("", user);
    EXPECT_EQ(library->folderCount(), 0u);
    library->addFolder("New");
    PresetLibrary::saveAndRelease();
    EXPECT_EQ(readFile(backup), unreadable);
    auto back = makeRef<PresetLibrary>();
    back->loadFile(user, false);
    EXPECT_EQ(folderNames(*back), (std::vector<std::string>{"New"}));

    // A readable file is never backed up, and the backup stays as it was.
    library = PresetLibrary::acquireForInstance("", user);
    PresetLibrary::saveAndRelease();
    EXPECT_EQ(readFile(backup), unreadable);

    // An empty user file holds nothing worth keeping.
    writeFile(user, "");
    library = PresetLibrary::acquireForInstance("", user);
    PresetLibrary::saveAndRelease();
    EXPECT_EQ(readFile(backup), unreadable);
    EXPECT_EQ(leftovers(folder, "brelmo.varitap.presets.xml"),
              std::vector<std::string>{"brelmo.varitap.presets.xml.bak"});

    // A user file that is there but cannot be opened is kept too (as root
    // every permission is granted, so a symbolic link loop stands in).
    const std::string blocked = folder / "blocked.xml";
    ASSERT_EQ(symlink("blocked.xml", blocked.c_str()), 0);
    library = PresetLibrary::acquireForInstance("", blocked);
    PresetLibrary::saveAndRelease();
    char target[64] = {};
    ASSERT_GT(readlink((blocked + ".bak").c_str(), target, sizeof target - 1), 0);
    EXPECT_STREQ(target, "blocked.xml");
    EXPECT_EQ(readFile(blocked), readFile(dataPath("empty-library.xml")));
}

TEST(PresetLibraryTest, SymlinkedUserFileStaysALink) {
    TempDir folder;
    std::filesystem::create_directory(folder / "dotfiles");
    const std::string real = folder / "dotfiles/presets.xml";
    const std::string user = folder / "brelmo.varitap.presets.xml";
    writeFile(real, readFile(dataPath("folder-f-preset-p.xml")));
    ASSERT_EQ(symlink(real.c_str(), user.c_str()), 0);
    PresetLibrary* library = PresetLibrary::acquireForInstance("", user);
    ASSERT_EQ(library->folderCount(), 1u);
    library->addFolder("Added");
    PresetLibrary::saveAndRelease();
    EXPECT_TRUE(std::filesystem::is_symlink(user));
    auto back = makeRef<PresetLibrary>();
    back->loadFile(real, false);
    EXPECT_EQ(folderNames(*back), (std::vector<std::string>{"F", "Added"}));
}

TEST(PresetLibraryTest, FailedSaveLeavesTheOldFileWhole) {
    TempDir folder;
    const std::string user = folder / "user.xml";
    {
        auto library = makeRef<PresetLibrary>();
        library->addFolder("Old");
        ASSERT_TRUE(library->saveFile(user));
    }
    const std::string old = readFile(user);

    // In a child process, a file size limit makes the write fail part way.
    const pid_t child = fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
        signal(SIGXFSZ, SIG_IGN);
        struct rlimit limit = {4096, 4096};
        setrlimit(RLIMIT_FSIZE, &limit);
        auto library = makeRef<PresetLibrary>();
        fillLibrary(*library, 4, 241, "Big");
        _exit(library->saveFile(user) ? 1 : 0);
    }
    int status = 0;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    ASSERT_TRUE(WIFEXITED(status));
    EXPECT_EQ(WEXITSTATUS(status), 0) << "the save should have reported failure";
    EXPECT_EQ(readFile(user), old);
    EXPECT_TRUE(leftovers(folder, "user.xml").empty());

    // A folder that cannot be written to: nothing changes either.
    auto library = makeRef<PresetLibrary>();
    EXPECT_FALSE(library->saveFile("/proc/varitap-no-such-folder/user.xml"));
}

// A child saves a large library over and over and is killed at moments
// spread over the first save and over later saves. Every time, the file must
// hold the old library or the new one, whole.
TEST(PresetLibraryTest, SaveKilledAtAnyMomentLeavesOldOrNewWhole) {
    TempDir folder;
    const std::string user = folder / "user.xml";
    {
        auto library = makeRef<PresetLibrary>();
        fillLibrary(*library, 2, 241, "Old");
        ASSERT_TRUE(library->saveFile(user));
    }
    auto microseconds = [] {
        timespec t;
        clock_gettime(CLOCK_MONOTONIC, &t);
        return t.tv_sec * 1000000LL + t.tv_nsec / 1000;
    };
    long long saveTime = 0;  // measured in the first round
    int killedMidSave = 0, sawOld = 0;
    const int rounds = 12;
    for (int round = 0; round < rounds; ++round) {
        int done[2];
        ASSERT_EQ(pipe(done), 0);
        const pid_t child = fork();
        ASSERT_GE(child, 0);
        if (child == 0) {
            close(done[0]);
            auto library = makeRef<PresetLibrary>();
            fillLibrary(*library, 30, 241, "New");
            for (;;) {
                library->saveFile(user);
                if (write(done[1], "x", 1) != 1) _exit(0);
            }
        }
        close(done[1]);
        char byte;
        if (round == 0) {
            ASSERT_EQ(read(done[0], &byte, 1), 1);
            const long long start = microseconds();
            ASSERT_EQ(read(done[0], &byte, 1), 1);
            saveTime = microseconds() - start;
        } else if (round % 2 == 1) {
            // Somewhere inside the first save: the old file must survive.
            usleep(static_cast<useconds_t>(saveTime * round / rounds));
        } else {
            // Somewhere inside a later save, after a complete one.
            ASSERT_EQ(read(done[0], &byte, 1), 1);
            usleep(static_cast<useconds_t>(saveTime * round / (rounds + 2)));
        }
        kill(child, SIGKILL);
        int status = 0;
        waitpid(child, &status, 0);
        close(done[0]);

        auto back = makeRef<PresetLibrary>();
        back->loadFile(user, false);
        const uint32_t folders = back->folderCount();
        ASSERT_TRUE(folders == 2 || folders == 30) << "cut file with " << folders << " folders";
        if (round % 2 == 0) {
            EXPECT_EQ(folders, 30u) << "a finished save was lost";
        }
        if (folders == 2) ++sawOld;
        // A killed save leaves its temporary file behind (never the real one).
        const auto others = leftovers(folder, "user.xml");
        if (!others.empty()) ++killedMidSave;
        for (const std::string& name : others) std::filesystem::remove(folder / name);
        // Back to the old library for the next round.
        auto old = makeRef<PresetLibrary>();
        fillLibrary(*old, 2, 241, "Old");
        ASSERT_TRUE(old->saveFile(user));
    }
    EXPECT_GT(killedMidSave, rounds / 2);  // the kills did land inside saves
    EXPECT_GT(sawOld, 0);
}

// The instances' own use of this path runs in the bridge tests.
TEST(PresetLibraryTest, UserFileLivesInTheConfigFolder) {
    TempDir folder;
    const char* oldConfig = std::getenv("XDG_CONFIG_HOME");
    const std::string savedConfig = oldConfig ? oldConfig : "";
    const std::string savedHome = std::getenv("HOME") ? std::getenv("HOME") : "";
    unsetenv("XDG_CONFIG_HOME");
    setenv("HOME", folder.path().c_str(), 1);
    EXPECT_EQ(PresetLibrary::userPresetsPath(), folder / ".config/brelmo.varitap.presets.xml");
    setenv("XDG_CONFIG_HOME", (folder / "config").c_str(), 1);
    EXPECT_EQ(PresetLibrary::userPresetsPath(), folder / "config/brelmo.varitap.presets.xml");
    if (oldConfig) setenv("XDG_CONFIG_HOME", savedConfig.c_str(), 1); else unsetenv("XDG_CONFIG_HOME");
    setenv("HOME", savedHome.c_str(), 1);
}

}  // namespace
}  // namespace varitap
