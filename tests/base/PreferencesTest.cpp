// The desktop services: options in the XDG configuration folder, addresses
// handed to xdg-open.
#include "persistence/Preferences.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <thread>
#include <utility>
#include <vector>

#include "TestSupport.h"
#include "persistence/OpenUrl.h"

namespace varitap {
namespace {

using test::fileExists;
using test::readFile;
using test::writeFile;
using Found = std::pair<bool, long>;
using Text = std::pair<bool, std::string>;

// Every test runs against its own empty configuration folder.
class PreferencesTest : public ::testing::Test {
protected:
    void SetUp() override {
        ASSERT_FALSE(config_.path().empty());
        ::setenv("XDG_CONFIG_HOME", config_.path().c_str(), 1);
    }
    std::string file() const { return config_ / "brelmo.varitap.conf"; }
    std::string backup() const { return config_ / "brelmo.varitap.conf.bak"; }

    // The configuration file is all the folder holds: no temporary file and
    // no backup are left behind.
    void expectOnlyTheFile() const {
        EXPECT_TRUE(fileExists(file()));
        EXPECT_EQ(std::distance(std::filesystem::directory_iterator(config_.path()), {}), 1);
    }

    // What a read answers, and what it leaves in a number that held -1 or in
    // a buffer (of size bytes) that held "untouched".
    static Found number(Preferences& preferences, const char* key, long fallback = 10000) {
        long value = -1;
        const bool found = preferences.getNumber(key, &value, fallback);
        return {found, value};
    }
    static Text text(Preferences& preferences, const char* key, const char* fallback = nullptr, size_t size = 64) {
        std::vector<char> buffer(std::max<size_t>(size, 16), '\0');
        std::strcpy(buffer.data(), "untouched");
        const bool found = preferences.getString(key, buffer.data(), size, fallback);
        return {found, buffer.data()};
    }

    test::TempDir config_;
};

TEST_F(PreferencesTest, NumbersAndStringsRoundTripThroughTheKeyFile) {
    Preferences preferences, other;
    preferences.setNumber(kOptionDelayTimeInSamples, 1);
    preferences.setNumber(kOptionSmoothFactor, -2147483648L);
    preferences.setString(kOptionBackgroundBitmap, "Hintergrund ü.png");
    preferences.setString("Odd Value", "a\nb=c [d] \\ ");
    EXPECT_EQ(number(preferences, kOptionDelayTimeInSamples), Found(true, 1));
    EXPECT_EQ(number(preferences, kOptionSmoothFactor), Found(true, -2147483648L));
    EXPECT_EQ(text(preferences, kOptionBackgroundBitmap), Text(true, "Hintergrund ü.png"));
    EXPECT_EQ(text(preferences, "Odd Value"), Text(true, "a\nb=c [d] \\ "));
    // A stored number read as a string is its text.
    EXPECT_EQ(text(preferences, kOptionDelayTimeInSamples, "x"), Text(true, "1"));
    // Another instance, made before the writes, sees them at its next read.
    EXPECT_EQ(number(other, kOptionSmoothFactor), Found(true, -2147483648L));

    // The file is a plain key file with the options' own key names.
    const std::string contents = readFile(file());
    EXPECT_EQ(contents.find("[brelmo.varitap]"), 0u);
    for (const char* line : {"DelayTimeDisplayInSamples=1\n", "Automation Smooth Factor=-2147483648\n"})
        EXPECT_NE(contents.find(line), std::string::npos) << line;
}

TEST_F(PreferencesTest, DefaultsAndGetStringBufferRules) {
    Preferences preferences;
    EXPECT_EQ(preferences.path(), file());
    EXPECT_EQ(number(preferences, kOptionSmoothFactor), Found(false, 10000));
    // No default and no value: the buffer keeps what it had. Reading never
    // creates the file.
    EXPECT_EQ(text(preferences, kOptionBackgroundBitmap), Text(false, "untouched"));
    EXPECT_FALSE(fileExists(file()));
    // A default that does not fit is copied cut, with no terminator, and
    // nothing beyond size is touched.
    char small[9] = "########";
    EXPECT_FALSE(preferences.getString(kOptionBackgroundBitmap, small, 4, "default.png"));
    EXPECT_EQ(std::string(small, 8), "defa####");

    // A value fits when it fits with its terminator, else the default
    // stands; a background name longer than 1023 bytes is not used.
    const std::string longName(1024, 'n');
    const struct { std::string value; size_t size; bool fits; } rows[] = {
        {"1234567", 8, true}, {"12345678", 8, false}, {longName, 1024, false}, {longName.substr(1), 1024, true}};
    for (const auto& row : rows) {
        preferences.setString(kOptionBackgroundBitmap, row.value.c_str());
        EXPECT_EQ(text(preferences, kOptionBackgroundBitmap, "d", row.size), Text(row.fits, row.fits ? row.value : "d"))
            << row.value.size();
    }

    // Nothing to write into: nothing happens.
    char keep[16] = "unchanged";
    EXPECT_FALSE(preferences.getString(kOptionBackgroundBitmap, nullptr, 10, "x"));
    EXPECT_FALSE(preferences.getString(kOptionBackgroundBitmap, keep, 0, "x"));
    EXPECT_STREQ(keep, "unchanged");
}

TEST_F(PreferencesTest, AStoredNonNumberReadsAsAbsentAndBadKeysFailQuietly) {
    ASSERT_TRUE(writeFile(file(), "[brelmo.varitap]\nAutomation Smooth Factor=fast\nDelay Time Resample=1.5\n"
                                  "DelayTimeDisplayInSamples=12abc\nHuge=99999999999999999999999\n"
                                  "Spaced=  42  \nZero=0\nPlus=+7\n"));
    Preferences preferences;
    // 0 is a value (callers treat it as none); blanks around a number are allowed.
    const std::pair<const char*, Found> rows[] = {
        {kOptionSmoothFactor, {false, 10000}}, {kOptionDelayTimeResample, {false, 10000}},
        {kOptionDelayTimeInSamples, {false, 10000}}, {"Huge", {false, 10000}},
        {"Spaced", {true, 42}}, {"Zero", {true, 0}}, {"Plus", {true, 7}}};
    for (const auto& [key, expected] : rows) EXPECT_EQ(number(preferences, key), expected) << key;

    // Keys that cannot be made fail quietly; nothing is written.
    ASSERT_TRUE(std::filesystem::remove(file()));
    ::testing::internal::CaptureStderr();
    for (const char* key : {static_cast<const char*>(nullptr), "", "a=b", "[x]", " lead", "trail ", "two\nlines"}) {
        EXPECT_EQ(number(preferences, key, 1), Found(false, -1));  // left alone
        preferences.setNumber(key, 3);
        preferences.setString(key, "v");
        EXPECT_EQ(text(preferences, key), Text(false, "untouched"));
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
    auto key = [](int p, int k) { return "Key " + std::to_string(p) + " " + std::to_string(k); };
    pid_t children[kProcesses];
    for (int p = 0; p < kProcesses; ++p) {
        children[p] = fork();
        ASSERT_GE(children[p], 0);
        if (children[p] == 0) {
            Preferences preferences;
            for (int k = 0; k < kKeysEach; ++k) preferences.setNumber(key(p, k).c_str(), p * 1000 + k);
            _exit(0);
        }
    }
    for (pid_t child : children) ASSERT_EQ(waitpid(child, nullptr, 0), child);
    Preferences preferences;
    for (int p = 0; p < kProcesses; ++p)
        for (int k = 0; k < kKeysEach; ++k) EXPECT_EQ(number(preferences, key(p, k).c_str()), Found(true, p * 1000 + k));
    expectOnlyTheFile();
}

// A write replaces the file atomically and keeps what others wrote; an
// unparsable file reads as empty and is kept as .bak by the next write.
TEST_F(PreferencesTest, WritesReplaceTheFileAtomicallyAndKeepWhatOthersWrote) {
    ASSERT_TRUE(writeFile(file(), "# written by hand\n[brelmo.varitap]\nBackground Bitmap=green.png\n"
                                  "Future Option=kept\n[another group]\nx=1\n"));
    struct stat before, after;
    ASSERT_EQ(::stat(file().c_str(), &before), 0);
    Preferences preferences;
    preferences.setNumber(kOptionDelayTimeResample, 1);
    ASSERT_EQ(::stat(file().c_str(), &after), 0);
    EXPECT_NE(before.st_ino, after.st_ino);  // a new file renamed over the old one
    const std::string contents = readFile(file());
    for (const char* kept : {"# written by hand", "Background Bitmap=green.png", "Future Option=kept",
                             "[another group]", "x=1", "Delay Time Resample=1"})
        EXPECT_NE(contents.find(kept), std::string::npos) << kept;
    expectOnlyTheFile();

    const std::string broken = "this is not a key file\n[[[\n\x01\x02";
    ASSERT_TRUE(writeFile(file(), broken));
    EXPECT_EQ(number(preferences, kOptionDelayTimeResample, 0), Found(false, 0));
    EXPECT_EQ(text(preferences, kOptionBackgroundBitmap, "default.png"), Text(false, "default.png"));
    EXPECT_EQ(readFile(file()), broken);  // reading changes nothing
    EXPECT_FALSE(fileExists(backup()));
    preferences.setNumber(kOptionDelayTimeInSamples, 1);
    EXPECT_EQ(readFile(backup()), broken);
    EXPECT_EQ(number(preferences, kOptionDelayTimeInSamples), Found(true, 1));
    // The next write finds a good file: the backup stays as it was.
    preferences.setNumber(kOptionDelayTimeResample, 1);
    EXPECT_EQ(readFile(backup()), broken);
    EXPECT_EQ(number(preferences, kOptionDelayTimeInSamples), Found(true, 1));
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
    const std::string savedHome = std::getenv("HOME") ? std::getenv("HOME") : "";
    const std::string home = config_ / "home";
    ::setenv("HOME", home.c_str(), 1);
    ::unsetenv("XDG_CONFIG_HOME");
    EXPECT_EQ(userConfigDirectory(), home + "/.config");
    // Relative or empty: ignored.
    for (const char* ignored : {"relative/path", ""}) {
        ::setenv("XDG_CONFIG_HOME", ignored, 1);
        EXPECT_EQ(userConfigDirectory(), home + "/.config") << ignored;
    }
    ::setenv("HOME", savedHome.c_str(), 1);
}

// A stand-in xdg-open first on PATH waits (up to five seconds) until the
// test lets it go, then records how many arguments it got and the first one,
// one line per call. Nothing is recorded while openURL runs: it does not wait
// for the handler, and it leaves no child behind (the shell is reaped; the
// handler is not ours). Whatever is not a plain address is refused, silently.
TEST(OpenUrlTest, HandsOnlyAPlainAddressOverAsOneArgumentWithoutWaiting) {
    test::TempDir folder;
    const std::string record = folder / "record", go = folder / "go", pwned = folder / "pwned";
    const std::string script = folder / "xdg-open";
    ASSERT_TRUE(test::writeFile(script, "#!/bin/sh\nfor i in $(seq 50); do [ -e '" + go +
                                            "' ] && break; sleep 0.1; done\nprintf '%s %s\\n' \"$#\" \"$1\" >> '" +
                                            record + "'\n"));
    ASSERT_EQ(::chmod(script.c_str(), 0755), 0);
    const std::string savedPath = std::getenv("PATH") ? std::getenv("PATH") : "/usr/bin:/bin";
    ::setenv("PATH", (folder.path() + ":" + savedPath).c_str(), 1);

    ::testing::internal::CaptureStderr();
    for (const char* bad : {static_cast<const char*>(nullptr), "", "--help", "-x", "with space", "tab\there",
                            "line\nbreak", "https://ex\xc3\xa4mple.org/"})
        openURL(bad);
    // Shell syntax in an address is only text: quotes, $( ), backquotes.
    const std::string address =
        "https://example.org/a?b=1&c='2'\"x\";$(touch${IFS}" + pwned + ")`touch${IFS}" + pwned + "`#frag";
    // Several calls: a shell that happens to exit before a non-waiting reap
    // would hide a missing wait once, hardly five times.
    std::string calls;
    for (int i = 0; i < 5; ++i) {
        openURL(address.c_str());
        EXPECT_TRUE(::waitpid(-1, nullptr, WNOHANG) == -1 && errno == ECHILD);
        calls += "1 " + address + "\n";
    }
    EXPECT_FALSE(fileExists(record));
    EXPECT_EQ(::testing::internal::GetCapturedStderr(), "");
    ::setenv("PATH", savedPath.c_str(), 1);

    ASSERT_TRUE(test::writeFile(go, ""));
    for (int i = 0; i < 500 && !fileExists(record); ++i) std::this_thread::sleep_for(std::chrono::milliseconds(10));
    std::this_thread::sleep_for(std::chrono::milliseconds(300));  // for any other call
    EXPECT_EQ(readFile(record), calls);
    EXPECT_FALSE(fileExists(pwned));
}

}  // namespace
}  // namespace varitap
