#include "persistence/PresetLibrary.h"

#include <gtest/gtest.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/wait.h>

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <functional>
#include <memory>
#include <thread>

#include "PresetTestSupport.h"

namespace varitap {
namespace {

using namespace test;
using Lines = std::vector<std::string>;

// `folders` folders "<prefix><n>" of one preset "p" with 241 floats each:
// large enough that saving takes many system calls.
void fillLibrary(PresetLibrary& library, int folders, const std::string& prefix) {
    for (int f = 0; f < folders; ++f) {
        auto preset = makeRef<Preset>("p");
        for (int i = 0; i < 241; ++i)
            addValues(preset.get(), {PropertyValue::makeFloat(std::to_string(i).c_str(), i / 241.0)});
        library.addFolder((prefix + std::to_string(f)).c_str())->addPreset(preset.get());
    }
}

// Saves a library of fillLibrary's folders, or of empty folders of these names.
bool writeLibrary(const std::string& path, int folders, const std::string& prefix, Lines names = {}) {
    auto library = makeRef<PresetLibrary>();
    fillLibrary(*library, folders, prefix);
    for (const std::string& name : names) library->addFolder(name.c_str());
    return library->saveFile(path);
}

// The folders as "Folder: preset preset" lines, in order; factory folders and
// presets are marked with a leading "*".
Lines contents(const PresetLibrary& library) {
    Lines lines;
    for (uint32_t f = 0; f < library.folderCount(); ++f) {
        const PresetFolder* folder = library.folderAt(f);
        std::string line = (folder->isFactory() ? "*" : "") + folder->getName() + ":";
        for (uint32_t p = 0; p < folder->presetCount(); ++p)
            line += (folder->presetAt(p)->isFactory() ? " *" : " ") + folder->presetAt(p)->getName();
        lines.push_back(line);
    }
    return lines;
}

Lines fileContents(const std::string& path) {
    auto library = makeRef<PresetLibrary>();
    library->loadFile(path, false);
    return contents(*library);
}

PresetFolder* folderNamed(PresetLibrary& library, const std::string& name) {
    for (uint32_t f = 0; f < library.folderCount(); ++f)
        if (library.folderAt(f)->getName() == name) return library.folderAt(f);
    return nullptr;
}

void addPresets(PresetFolder* folder, std::initializer_list<const char*> names) {
    for (const char* name : names) {
        auto preset = makeRef<Preset>(name);
        addValues(preset.get(), {PropertyValue::makeLong("Version", 1), PropertyValue::makeFloat("20", 0.25)});
        folder->addPreset(preset.get());
    }
}

// Names in the folder other than `keep`.
Lines leftovers(const TempDir& folder, const std::string& keep) {
    Lines others;
    for (const auto& entry : std::filesystem::directory_iterator(folder.path()))
        if (entry.path().filename() != keep) others.push_back(entry.path().filename());
    return others;
}

// The exit status of body run in a child process (-1 when it did not exit);
// a write past a file size limit fails there instead of killing it.
int inChild(const std::function<int()>& body) {
    const pid_t child = fork();
    if (child == 0) {
        signal(SIGXFSZ, SIG_IGN);
        _exit(body());
    }
    int status = 0;
    if (child < 0 || waitpid(child, &status, 0) != child || !WIFEXITED(status)) return -1;
    return WEXITSTATUS(status);
}

// A tree edited, saved and read back; then a file whose entries are out of
// the usual order or of unusual kinds.
TEST(PresetLibraryTest, TreeRoundTripAndFactoryFlags) {
    TempDir folder;
    const std::string user = folder / "user.xml";
    {
        auto library = makeRef<PresetLibrary>();
        ASSERT_TRUE(library->loadFile(dataPath("folder-f-preset-p.xml"), true));
        // A preset added to a factory folder becomes a factory preset.
        library->folderAt(0)->addPreset(makeRef<Preset>("added").get());
        // Two user folders of the same name, one named like the factory one.
        PresetFolder* a = library->addFolder("Same");
        library->addFolder("Same");
        library->addFolder("F");
        library->addFolder(nullptr);
        a->addPreset(makeRef<Preset>("with name").get());
        auto nameless = makeRef<Preset>();
        a->addPreset(nameless.get());
        EXPECT_TRUE(a->removePreset(nameless.get()));
        EXPECT_TRUE(a->removePreset(nameless.get()));  // always true
        EXPECT_EQ(contents(*library), (Lines{"*F: *P *added", "Same: with name", "Same:", "F:", ":"}));
        ASSERT_TRUE(library->saveFile(user));
    }
    auto back = makeRef<PresetLibrary>();
    ASSERT_TRUE(back->loadFile(user, false));
    EXPECT_EQ(contents(*back), (Lines{"Same: with name", "Same:", "F:", ":"}));
    PresetFolder* gone = back->folderAt(1);
    EXPECT_TRUE(back->removeFolder(gone));
    EXPECT_FALSE(back->removeFolder(gone));
    EXPECT_EQ(back->folderCount(), 3u);

    writeFile(user,
              "<Presets version=\"1\"><array name=\"folder\">"
              "<array name=\"preset\"><float name=\"0\" value=\"0.5\" /></array>"
              "<array name=\"preset\"><long name=\"name\" value=\"3\" /><string name=\"x\" value=\"y\" /></array>"
              "<string name=\"other\" value=\"ignored\" />"
              "<string name=\"name\" value=\"Late Name\" />"
              "</array><long name=\"version\" value=\"1\" /></Presets>");
    auto library = makeRef<PresetLibrary>();
    ASSERT_TRUE(library->loadFile(user, false));
    // No "name" entry, and a number, give presets without names.
    ASSERT_EQ(contents(*library), (Lines{"Late Name:  "}));
    const PresetFolder* f = library->folderAt(0);
    EXPECT_EQ(f->presetAt(0)->findProperty("0")->getFloat(), 0.5);
    EXPECT_EQ(f->presetAt(1)->properties().count(), 1u);
    EXPECT_EQ(f->presetAt(1)->findProperty("x")->getString(), "y");
}

TEST(PresetLibraryTest, SharedLifeLoadsFactoryThenUserAndSavesItsChangesOnRelease) {
    TempDir folder;
    const std::string user = folder / "brelmo.varitap.presets.xml";
    ASSERT_TRUE(writeLibrary(user, 0, "", {"Mine"}));
    ASSERT_EQ(PresetLibrary::current(), nullptr);
    PresetLibrary* first = PresetLibrary::acquireForInstance(dataPath("folder-f-preset-p.xml"), user);
    ASSERT_EQ(PresetLibrary::current(), first);
    EXPECT_EQ(contents(*first), (Lines{"*F: *P", "Mine:"}));

    // A second instance shares it, with unsaved additions, and reads nothing again.
    first->addFolder("Unsaved");
    EXPECT_EQ(PresetLibrary::acquireForInstance(dataPath("full-preset.xml"), user), first);
    EXPECT_EQ(first->folderCount(), 3u);

    // An instance's end saves the changes; factory folders never go to the file.
    PresetLibrary::saveAndRelease();
    ASSERT_EQ(PresetLibrary::current(), first);
    EXPECT_EQ(fileContents(user), (Lines{"Mine:", "Unsaved:"}));
    PresetLibrary::saveAndRelease();
    EXPECT_EQ(PresetLibrary::current(), nullptr);  // the last release destroys it
    PresetLibrary::saveAndRelease();  // no library: nothing happens

    // Neither file: an empty library, saved only once it holds something.
    PresetLibrary* empty = PresetLibrary::acquireForInstance("", folder / "sub/dir/new.xml");
    EXPECT_EQ(empty->folderCount(), 0u);
    EXPECT_FALSE(empty->hasChanges());
    empty->retain();
    PresetLibrary::saveAndRelease();
    EXPECT_FALSE(fileExists(folder / "sub"));
    empty->addFolder("F");
    EXPECT_TRUE(empty->hasChanges());
    PresetLibrary::saveAndRelease();
    EXPECT_EQ(readFile(folder / "sub/dir/new.xml"),
              "<Presets version=\"1\">\n\t<array name=\"folder\">\n"
              "\t\t<string name=\"name\" value=\"F\" />\n\t</array>\n</Presets>\n");
    EXPECT_EQ(std::filesystem::status(folder / "sub/dir/new.xml").permissions() &
                  std::filesystem::perms::all,
              std::filesystem::perms::owner_read | std::filesystem::perms::owner_write);
}

// An unreadable user file is kept as a backup once; a symbolic link to the
// user file stays a link.
TEST(PresetLibraryTest, UnreadableUserFileIsKeptAsBackupOnceAndALinkStaysALink) {
    TempDir folder;
    const std::string user = folder / "brelmo.varitap.presets.xml";
    const std::string backup = user + ".bak";
    auto addAndSave = [](const std::string& path, const char* name) {
        PresetLibrary::acquireForInstance("", path)->addFolder(name);
        PresetLibrary::saveAndRelease();
    };

    // A name with "&" is written raw, and that file cannot be read back.
    ASSERT_TRUE(writeLibrary(user, 0, "", {"Rock & Roll"}));
    const std::string unreadable = readFile(user);
    ASSERT_NE(unreadable.find("Rock & Roll"), std::string::npos);
    addAndSave(user, "New");
    EXPECT_EQ(readFile(backup), unreadable);
    EXPECT_EQ(fileContents(user), Lines{"New:"});

    // A readable file is never backed up, and the backup stays as it was.
    addAndSave(user, "More");
    EXPECT_EQ(readFile(backup), unreadable);

    // An empty user file holds nothing worth keeping. Without a change, no
    // file is touched at all.
    writeFile(user, "");
    PresetLibrary::acquireForInstance("", user);
    PresetLibrary::saveAndRelease();
    EXPECT_EQ(readFile(user), "");
    addAndSave(user, "New");
    EXPECT_EQ(readFile(backup), unreadable);
    EXPECT_EQ(fileContents(user), Lines{"New:"});
    EXPECT_EQ(leftovers(folder, "brelmo.varitap.presets.xml"), Lines{"brelmo.varitap.presets.xml.bak"});

    // A user file that is there but cannot be opened is kept too (as root
    // every permission is granted, so a symbolic link loop stands in).
    const std::string blocked = folder / "blocked.xml";
    ASSERT_EQ(symlink("blocked.xml", blocked.c_str()), 0);
    addAndSave(blocked, "New");
    char target[64] = {};
    ASSERT_GT(readlink((blocked + ".bak").c_str(), target, sizeof target - 1), 0);
    EXPECT_STREQ(target, "blocked.xml");
    EXPECT_EQ(fileContents(blocked), Lines{"New:"});

    const std::string link = folder / "link.xml";
    writeFile(folder / "real.xml", readFile(dataPath("folder-f-preset-p.xml")));
    ASSERT_EQ(symlink((folder / "real.xml").c_str(), link.c_str()), 0);
    addAndSave(link, "Added");
    EXPECT_TRUE(std::filesystem::is_symlink(link));
    EXPECT_EQ(fileContents(folder / "real.xml"), (Lines{"F: P", "Added:"}));
}

TEST(PresetLibraryTest, FailedSaveLeavesTheOldFileWhole) {
    TempDir folder;
    const std::string user = folder / "user.xml";
    ASSERT_TRUE(writeLibrary(user, 0, "", {"Old"}));
    const std::string old = readFile(user);

    // In a child process, a file size limit makes the write fail part way.
    EXPECT_EQ(0, inChild([&] {
        struct rlimit limit = {4096, 4096};
        setrlimit(RLIMIT_FSIZE, &limit);
        return writeLibrary(user, 4, "Big") ? 1 : 0;
    })) << "the save should have reported failure";
    EXPECT_EQ(readFile(user), old);
    EXPECT_TRUE(leftovers(folder, "user.xml").empty());

    // A folder that cannot be written to: nothing changes either.
    EXPECT_FALSE(makeRef<PresetLibrary>()->saveFile("/proc/varitap-no-such-folder/user.xml"));

    // The shared library's save fails after it took in what another process
    // saved meanwhile; its next save neither loses nor repeats that.
    EXPECT_EQ(0, inChild([&] {
        PresetLibrary* shared = PresetLibrary::acquireForInstance("", user);
        auto other = makeRef<PresetLibrary>();
        other->loadFile(user, false);
        other->addFolder("Other");
        other->saveFile(user);
        fillLibrary(*shared, 2, "Big");
        struct rlimit limit = {4096, RLIM_INFINITY};
        setrlimit(RLIMIT_FSIZE, &limit);
        if (shared->saveChanges()) return 1;
        limit.rlim_cur = RLIM_INFINITY;
        setrlimit(RLIMIT_FSIZE, &limit);
        shared->removeFolder(shared->folderAt(2));  // "Big1"
        return shared->saveChanges() ? 0 : 1;
    }));
    EXPECT_EQ(fileContents(user), (Lines{"Old:", "Big0: p", "Other:"}));
}

// A child saves a large library over and over and is killed at moments
// spread over the first save and over later saves. Every time, the file must
// hold the old library or the new one, whole.
TEST(PresetLibraryTest, SaveKilledAtAnyMomentLeavesOldOrNewWhole) {
    TempDir folder;
    const std::string user = folder / "user.xml";
    ASSERT_TRUE(writeLibrary(user, 2, "Old"));
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
            fillLibrary(*library, 30, "New");
            for (;;) {
                library->saveFile(user);
                if (write(done[1], "x", 1) != 1) _exit(0);
            }
        }
        close(done[1]);
        char byte;
        if (round == 0) {
            ASSERT_EQ(read(done[0], &byte, 1), 1);
            const auto start = std::chrono::steady_clock::now();
            ASSERT_EQ(read(done[0], &byte, 1), 1);
            saveTime = std::chrono::duration_cast<std::chrono::microseconds>(std::chrono::steady_clock::now() - start)
                           .count();
        } else if (round % 2 == 1) {
            // Somewhere inside the first save: the old file must survive.
            usleep(static_cast<useconds_t>(saveTime * round / rounds));
        } else {
            // Somewhere inside a later save, after a complete one.
            ASSERT_EQ(read(done[0], &byte, 1), 1);
            usleep(static_cast<useconds_t>(saveTime * round / (rounds + 2)));
        }
        kill(child, SIGKILL);
        waitpid(child, nullptr, 0);
        close(done[0]);

        const size_t folders = fileContents(user).size();
        ASSERT_TRUE(folders == 2 || folders == 30) << "cut file with " << folders << " folders";
        EXPECT_TRUE(round % 2 == 1 || folders == 30) << "a finished save was lost";
        sawOld += folders == 2;
        // A killed save leaves its temporary file behind (never the real one).
        const Lines others = leftovers(folder, "user.xml");
        killedMidSave += !others.empty();
        for (const std::string& name : others) std::filesystem::remove(folder / name);
        ASSERT_TRUE(writeLibrary(user, 2, "Old"));  // back to the old library
    }
    EXPECT_GT(killedMidSave, rounds / 2);  // the kills did land inside saves
    EXPECT_GT(sawOld, 0);
}

// Another process, as a host that runs each plug-in in its own process has
// it: it loads the shared library from the user file when the parent says
// so, changes it with `change` when told again, and saves as its instance
// closes. Each step waits for the parent.
class OtherProcess {
public:
    OtherProcess(const std::string& user, std::function<void(PresetLibrary&)> change) {
        int toChild[2], toParent[2];
        if (pipe(toChild) != 0 || pipe(toParent) != 0) return;
        pid_ = fork();
        if (pid_ == 0) {
            close(toChild[1]);
            close(toParent[0]);
            char step;
            if (read(toChild[0], &step, 1) != 1) _exit(2);
            PresetLibrary* library = PresetLibrary::acquireForInstance("", user);
            if (write(toParent[1], "l", 1) != 1 || read(toChild[0], &step, 1) != 1) _exit(2);
            change(*library);
            PresetLibrary::saveAndRelease();
            _exit(write(toParent[1], "s", 1) == 1 ? 0 : 2);
        }
        close(toChild[0]);
        close(toParent[1]);
        toChild_ = toChild[1];
        toParent_ = toParent[0];
    }
    ~OtherProcess() {
        close(toChild_);
        close(toParent_);
        if (pid_ > 0) waitpid(pid_, nullptr, 0);
    }
    // Lets the child take its next step and waits until it took it.
    bool step() {
        char done;
        return write(toChild_, "x", 1) == 1 && read(toParent_, &done, 1) == 1;
    }

private:
    pid_t pid_ = -1;
    int toChild_ = -1, toParent_ = -1;
};

// Two processes load the same user file; each changes it and saves as its
// last instance closes. What either saved survives, what either removed
// stays removed, and a folder one removed while the other added to it keeps
// only the added presets. A process that changed nothing leaves the file be.
TEST(PresetLibraryTest, TwoProcessesSavingKeepEachOthersChanges) {
    TempDir folder;
    const std::string user = folder / "brelmo.varitap.presets.xml";
    {
        auto seed = makeRef<PresetLibrary>();
        addPresets(seed->addFolder("Keep"), {"a", "b"});
        addPresets(seed->addFolder("Drop"), {"d"});
        addPresets(seed->addFolder("Busy"), {"e"});
        addPresets(seed->addFolder("Same"), {"s"});
        addPresets(seed->addFolder("Same"), {"t"});
        addPresets(seed->addFolder("Back"), {"g"});
        ASSERT_TRUE(seed->saveFile(user));
    }
    OtherProcess other(user, [](PresetLibrary& library) {
        library.removeFolder(library.folderAt(4));  // the second "Same"
        addPresets(folderNamed(library, "Back"), {"h"});
        addPresets(library.addFolder("Theirs"), {"c1", "c2"});
        folderNamed(library, "Keep")->removePreset(folderNamed(library, "Keep")->presetAt(0));
        library.removeFolder(folderNamed(library, "Drop"));
        library.removeFolder(folderNamed(library, "Busy"));
    });
    ASSERT_TRUE(other.step());  // both processes have loaded the file
    PresetLibrary* library = PresetLibrary::acquireForInstance("", user);
    addPresets(library->addFolder("Mine"), {"m"});
    addPresets(folderNamed(*library, "Keep"), {"k"});
    addPresets(folderNamed(*library, "Busy"), {"x"});
    library->removeFolder(folderNamed(*library, "Back"));
    ASSERT_TRUE(other.step());  // the other process saved first
    EXPECT_EQ(fileContents(user), (Lines{"Keep: b", "Same: s", "Back: g h", "Theirs: c1 c2"}));
    PresetLibrary::saveAndRelease();
    const Lines merged = {"Keep: b k", "Busy: x", "Same: s", "Mine: m", "Back: h", "Theirs: c1 c2"};
    EXPECT_EQ(fileContents(user), merged);

    // A process that changes nothing does not write, even over a file
    // another process changed since it loaded it.
    EXPECT_EQ(contents(*PresetLibrary::acquireForInstance("", user)), merged);
    writeFile(user, readFile(user) + "\n");
    struct stat before, after;
    ASSERT_EQ(stat(user.c_str(), &before), 0);
    PresetLibrary::saveAndRelease();
    ASSERT_EQ(stat(user.c_str(), &after), 0);
    EXPECT_EQ(after.st_ino, before.st_ino);
    EXPECT_EQ(after.st_size, before.st_size);
}

// Processes that all loaded the same file and save at the same moment: the
// configuration folder's lock lets each merge with what the others wrote.
TEST(PresetLibraryTest, SimultaneousSavesOfManyProcessesAllSurvive) {
    TempDir folder;
    const std::string user = folder / "brelmo.varitap.presets.xml";
    ASSERT_TRUE(writeLibrary(user, 20, "Old"));
    const int processes = 6;
    std::vector<std::unique_ptr<OtherProcess>> others;
    for (int i = 0; i < processes; ++i) {
        others.push_back(std::make_unique<OtherProcess>(user, [i](PresetLibrary& library) {
            fillLibrary(library, 1, "New" + std::to_string(i) + "-");
        }));
        ASSERT_TRUE(others.back()->step());
    }
    // All loaded; now all change and save at once.
    std::vector<std::thread> releases;
    for (auto& other : others) releases.emplace_back([&other] { other->step(); });
    for (auto& release : releases) release.join();
    const Lines saved = fileContents(user);
    EXPECT_EQ(saved.size(), 20u + processes);
    for (int i = 0; i < processes; ++i) {
        const std::string name = "New" + std::to_string(i) + "-0: p";
        EXPECT_NE(std::find(saved.begin(), saved.end(), name), saved.end()) << name;
    }
}

// The instances' own use of this path runs in the bridge tests. No other
// test of this program reads HOME or XDG_CONFIG_HOME.
TEST(PresetLibraryTest, UserFileLivesInTheConfigFolder) {
    TempDir folder;
    unsetenv("XDG_CONFIG_HOME");
    setenv("HOME", folder.path().c_str(), 1);
    EXPECT_EQ(PresetLibrary::userPresetsPath(), folder / ".config/brelmo.varitap.presets.xml");
    setenv("XDG_CONFIG_HOME", (folder / "config").c_str(), 1);
    EXPECT_EQ(PresetLibrary::userPresetsPath(), folder / "config/brelmo.varitap.presets.xml");
}

}  // namespace
}  // namespace varitap
