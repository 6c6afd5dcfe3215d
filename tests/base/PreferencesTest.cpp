#include "persistence/Preferences.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <string>
#include <vector>

#include "TestSupport.h"

namespace varitap {
namespace {

using test::fileExists;
using test::readFile;
using test::TempDir;
using test::writeFile;

// Every test runs against its own empty configuration folder.
class PreferencesTest : public ::testing::Test {
protected:
    void SetUp() override {
        ASSERT_FALSE(config_.path().empty());
        ::setenv("XDG_CONFIG_HOME", config_.path().c_str(), 1);
    }
    std::string file() const { return config_ / "brelmo.varitap.conf"; }
    std::string backup() const { return config_ / "brelmo.varitap.conf.bak"; }

    // Names in the configuration folder, to spot left-over temporary files.
    std::vector<std::string> folderEntries() const {
        std::vector<std::string> names;
        for (const auto& entry : std::filesystem::directory_iterator(config_.path()))
            names.push_back(entry.path().filename());
        std::sort(names.begin(), names.end());
        return names;
    }

    TempDir config_;
};

TEST_F(PreferencesTest, NumbersAndStringsRoundTripThroughTheKeyFile) {
    Preferences preferences, other;
    preferences.setNumber(kOptionDelayTimeInSamples, 1);
    preferences.setNumber(kOptionSmoothFactor, -2147483648L);
    preferences.setString(kOptionBackgroundBitmap, "Hintergrund ü.png");
    preferences.setString("Odd Value", "a\nb=c [d] \\ ");

    long number = 0;
    EXPECT_TRUE(preferences.getNumber(kOptionDelayTimeInSamples, &number, 7));
    EXPECT_EQ(number, 1);
    EXPECT_TRUE(preferences.getNumber(kOptionSmoothFactor, &number, 7));
    EXPECT_EQ(number, -2147483648L);
    char text[64];
    EXPECT_TRUE(preferences.getString(kOptionBackgroundBitmap, text, sizeof(text), nullptr));
    EXPECT_STREQ(text, "Hintergrund ü.png");
    EXPECT_TRUE(preferences.getString("Odd Value", text, sizeof(text), nullptr));
    EXPECT_STREQ(text, "a\nb=c [d] \\ ");

    // The file is a plain key file with the options' own key names.
    const std::string contents = readFile(file());
    EXPECT_EQ(contents.find("[brelmo.varitap]"), 0u);
    EXPECT_NE(contents.find("DelayTimeDisplayInSamples=1\n"), std::string::npos);
    EXPECT_NE(contents.find("Automation Smooth Factor=-2147483648\n"), std::string::npos);

    // A stored number read as a string is its text.
    EXPECT_TRUE(preferences.getString(kOptionDelayTimeInSamples, text, sizeof(text), "x"));
    EXPECT_STREQ(text, "1");
    // Another instance, made before the writes, sees them at its next read.
    EXPECT_TRUE(other.getNumber(kOptionSmoothFactor, &number, 7));
    EXPECT_EQ(number, -2147483648L);
}

TEST_F(PreferencesTest, DefaultsAndGetStringBufferRules) {
    Preferences preferences;
    EXPECT_EQ(preferences.path(), file());
    long number = 123;
    EXPECT_FALSE(preferences.getNumber(kOptionSmoothFactor, &number, 10000));
    EXPECT_EQ(number, 10000);
    // A default that does not fit is copied cut, with no terminator, and
    // nothing beyond size is touched.
    char small[8];
    std::memset(small, '#', sizeof(small));
    EXPECT_FALSE(preferences.getString(kOptionBackgroundBitmap, small, 4, "default.png"));
    EXPECT_EQ(std::string(small, 8), "defa####");

    // No default and no value: the buffer keeps what it had.
    char keep[16] = "unchanged";
    EXPECT_FALSE(preferences.getString(kOptionBackgroundBitmap, keep, sizeof(keep), nullptr));
    EXPECT_STREQ(keep, "unchanged");
    EXPECT_FALSE(fileExists(file()));  // reading never creates the file

    // A value fits when it fits with its terminator.
    preferences.setString(kOptionBackgroundBitmap, "1234567");
    std::memset(small, '#', sizeof(small));
    EXPECT_TRUE(preferences.getString(kOptionBackgroundBitmap, small, 8, "d"));
    EXPECT_STREQ(small, "1234567");
    preferences.setString(kOptionBackgroundBitmap, "12345678");
    std::memset(small, '#', sizeof(small));
    EXPECT_FALSE(preferences.getString(kOptionBackgroundBitmap, small, 8, "d"));
    EXPECT_STREQ(small, "d");  // the default stays

    // A background name longer than 1023 bytes is not used.
    const std::string longName(1024, 'n');
    preferences.setString(kOptionBackgroundBitmap, longName.c_str());
    char name[1024];
    EXPECT_FALSE(preferences.getString(kOptionBackgroundBitmap, name, sizeof(name), "default.png"));
    EXPECT_STREQ(name, "default.png");
    preferences.setString(kOptionBackgroundBitmap, longName.substr(1).c_str());
    EXPECT_TRUE(preferences.getString(kOptionBackgroundBitmap, name, sizeof(name), "default.png"));
    EXPECT_EQ(std::string(name), longName.substr(1));

    // Nothing to write into: nothing happens.
    EXPECT_FALSE(preferences.getString(kOptionBackgroundBitmap, nullptr, 10, "x"));
    EXPECT_FALSE(preferences.getString(kOptionBackgroundBitmap, keep, 0, "x"));
    EXPECT_STREQ(keep, "unchanged");
}

TEST_F(PreferencesTest, AStoredNonNumberReadsAsAbsent) {
    ASSERT_TRUE(writeFile(file(), "[brelmo.varitap]\nAutomation Smooth Factor=fast\nDelay Time Resample=1.5\n"
                                  "DelayTimeDisplayInSamples=12abc\nHuge=99999999999999999999999\n"
                                  "Spaced=  42  \nZero=0\nPlus=+7\n"));
    Preferences preferences;
    struct Case {
        const char* key;
        bool found;
        long number;  // with the default 10000
    };
    // 0 is a value (callers treat it as none); blanks around a number are allowed.
    for (const Case& c : {Case{kOptionSmoothFactor, false, 10000}, Case{kOptionDelayTimeResample, false, 10000},
                          Case{kOptionDelayTimeInSamples, false, 10000}, Case{"Huge", false, 10000},
                          Case{"Spaced", true, 42}, Case{"Zero", true, 0}, Case{"Plus", true, 7}}) {
        long number = -1;
        EXPECT_EQ(preferences.getNumber(c.key, &number, 10000), c.found) << c.key;
        EXPECT_EQ(number, c.number) << c.key;
    }
}

TEST_F(PreferencesTest, KeysThatCannotBeMadeFailQuietly) {
    Preferences preferences;
    ::testing::internal::CaptureStderr();
    for (const char* key : {static_cast<const char*>(nullptr), "", "a=b", "[x]", " lead", "trail ", "two\nlines"}) {
        long number = 55;
        EXPECT_FALSE(preferences.getNumber(key, &number, 1));
        EXPECT_EQ(number, 55);  // left alone
        preferences.setNumber(key, 3);
        preferences.setString(key, "v");
        char text[8] = "keep";
        EXPECT_FALSE(preferences.getString(key, text, sizeof(text), nullptr));
        EXPECT_STREQ(text, "keep");
    }
    preferences.setString(kOptionBackgroundBitmap, "\xff\xfe not UTF-8");
    preferences.setString(kOptionBackgroundBitmap, nullptr);
    EXPECT_FALSE(preferences.getNumber(kOptionSmoothFactor, nullptr, 1));
    EXPECT_EQ(::testing::internal::GetCapturedStderr(), "");  // silent, GLib included
    EXPECT_FALSE(fileExists(file()));
}

TEST_F(PreferencesTest, ConcurrentWritersInSeveralProcessesLoseNothing) {
    constexpr int kProcesses = 4;
    constexpr int kKeysEach = 25;
    pid_t children[kProcesses];
    for (int p = 0; p < kProcesses; ++p) {
        children[p] = fork();
        ASSERT_GE(children[p], 0);
        if (children[p] == 0) {
            Preferences preferences;
            for (int k = 0; k < kKeysEach; ++k) {
                const std::string key = "Key " + std::to_string(p) + " " + std::to_string(k);
                preferences.setNumber(key.c_str(), p * 1000 + k);
            }
            _exit(0);
        }
    }
    for (pid_t child : children) {
        int status = 0;
        ASSERT_EQ(waitpid(child, &status, 0), child);
    }
    Preferences preferences;
    int found = 0;
    for (int p = 0; p < kProcesses; ++p) {
        for (int k = 0; k < kKeysEach; ++k) {
            const std::string key = "Key " + std::to_string(p) + " " + std::to_string(k);
            long number = -1;
            if (preferences.getNumber(key.c_str(), &number, -1) && number == p * 1000 + k) ++found;
        }
    }
    EXPECT_EQ(found, kProcesses * kKeysEach);
    EXPECT_EQ(folderEntries(), std::vector<std::string>{"brelmo.varitap.conf"});
}

TEST_F(PreferencesTest, WritesReplaceTheFileAtomicallyAndKeepWhatOthersWrote) {
    ASSERT_TRUE(writeFile(file(),
                          "# written by hand\n"
                          "[brelmo.varitap]\n"
                          "Background Bitmap=green.png\n"
                          "Future Option=kept\n"
                          "[another group]\n"
                          "x=1\n"));
    struct stat before;
    ASSERT_EQ(::stat(file().c_str(), &before), 0);

    Preferences preferences;
    preferences.setNumber(kOptionDelayTimeResample, 1);

    struct stat after;
    ASSERT_EQ(::stat(file().c_str(), &after), 0);
    EXPECT_NE(before.st_ino, after.st_ino);  // a new file renamed over the old one
    const std::string contents = readFile(file());
    for (const char* kept : {"# written by hand", "Background Bitmap=green.png", "Future Option=kept",
                             "[another group]", "x=1", "Delay Time Resample=1"})
        EXPECT_NE(contents.find(kept), std::string::npos) << kept;
    // No temporary file and no backup of a good file are left behind.
    EXPECT_EQ(folderEntries(), std::vector<std::string>{"brelmo.varitap.conf"});
}

TEST_F(PreferencesTest, AnUnparsableFileReadsAsEmptyAndIsKeptAsBakByTheNextWrite) {
    const std::string broken = "this is not a key file\n[[[\n\x01\x02";
    ASSERT_TRUE(writeFile(file(), broken));
    Preferences preferences;
    long number = 9;
    EXPECT_FALSE(preferences.getNumber(kOptionDelayTimeResample, &number, 0));
    EXPECT_EQ(number, 0);
    char text[16];
    EXPECT_FALSE(preferences.getString(kOptionBackgroundBitmap, text, sizeof(text), "default.png"));
    EXPECT_STREQ(text, "default.png");
    EXPECT_EQ(readFile(file()), broken);  // reading changes nothing
    EXPECT_FALSE(fileExists(backup()));

    preferences.setNumber(kOptionDelayTimeInSamples, 1);
    EXPECT_EQ(readFile(backup()), broken);
    EXPECT_TRUE(preferences.getNumber(kOptionDelayTimeInSamples, &number, 0));
    EXPECT_EQ(number, 1);

    // The next write finds a good file: the backup stays as it was.
    preferences.setNumber(kOptionDelayTimeResample, 1);
    EXPECT_EQ(readFile(backup()), broken);
    EXPECT_TRUE(preferences.getNumber(kOptionDelayTimeInSamples, &number, 0));
}

TEST_F(PreferencesTest, TheFolderIsMadeWhenMissingAndFollowsTheXdgRules) {
    const std::string nested = config_ / "deeper/config";
    ::setenv("XDG_CONFIG_HOME", nested.c_str(), 1);
    {
        Preferences preferences;
        EXPECT_EQ(preferences.path(), nested + "/brelmo.varitap.conf");
        preferences.setNumber(kOptionDelayTimeResample, 1);
        EXPECT_TRUE(fileExists(nested + "/brelmo.varitap.conf"));
    }
    const char* oldHome = std::getenv("HOME");
    const std::string savedHome = oldHome ? oldHome : "";
    const std::string home = config_ / "home";
    ::setenv("HOME", home.c_str(), 1);
    ::unsetenv("XDG_CONFIG_HOME");
    EXPECT_EQ(userConfigDirectory(), home + "/.config");
    ::setenv("XDG_CONFIG_HOME", "relative/path", 1);  // not absolute: ignored
    EXPECT_EQ(userConfigDirectory(), home + "/.config");
    ::setenv("XDG_CONFIG_HOME", "", 1);
    EXPECT_EQ(userConfigDirectory(), home + "/.config");
    ::setenv("HOME", savedHome.c_str(), 1);
}

}  // namespace
}  // namespace varitap
