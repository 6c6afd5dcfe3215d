#include "persistence/OpenUrl.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <string>
#include <thread>

#include "TestSupport.h"

namespace varitap {
namespace {

using test::fileExists;
using test::readFile;
using test::TempDir;

// A stand-in xdg-open first on PATH records how many arguments it got and
// the first one, one line per call.
class OpenUrlTest : public ::testing::Test {
protected:
    void SetUp() override {
        ASSERT_FALSE(folder_.path().empty());
        savedPath_ = std::getenv("PATH") ? std::getenv("PATH") : "/usr/bin:/bin";
        installStandIn("printf '%s %s\\n' \"$#\" \"$1\" >> \"$VARITAP_TEST_RECORD\"\n");
        ::setenv("VARITAP_TEST_RECORD", record().c_str(), 1);
        ::setenv("PATH", (folder_.path() + ":" + savedPath_).c_str(), 1);
    }
    void TearDown() override {
        ::setenv("PATH", savedPath_.c_str(), 1);
        ::unsetenv("VARITAP_TEST_RECORD");
    }

    void installStandIn(const std::string& body) {
        const std::string script = folder_ / "xdg-open";
        ASSERT_TRUE(test::writeFile(script, "#!/bin/sh\n" + body));
        ASSERT_EQ(::chmod(script.c_str(), 0755), 0);
    }
    std::string record() const { return folder_ / "record"; }

    // The record once it holds at least lines lines (the stand-in runs in the
    // background), or what it holds after five seconds.
    std::string waitForRecord(size_t lines) const {
        std::string text;
        for (int i = 0; i < 500; ++i) {
            text = readFile(record());
            size_t count = 0;
            for (char c : text) count += c == '\n';
            if (count >= lines) break;
            std::this_thread::sleep_for(std::chrono::milliseconds(10));
        }
        return text;
    }

    static bool noChildLeft() {
        int status = 0;
        return ::waitpid(-1, &status, WNOHANG) == -1 && errno == ECHILD;
    }

    TempDir folder_;
    std::string savedPath_;
};

TEST_F(OpenUrlTest, HandsTheAddressOverAsOneArgumentAndLeavesNoChild) {
    const std::string pwned = folder_ / "pwned";
    // Shell syntax in an address is only text: quotes, $( ), backquotes.
    const std::string address =
        "https://example.org/a?b=1&c='2'\"x\";$(touch${IFS}" + pwned + ")`touch${IFS}" + pwned + "`#frag";
    openURL(address.c_str());
    EXPECT_TRUE(noChildLeft());
    EXPECT_EQ(waitForRecord(1), "1 " + address + "\n");
    EXPECT_FALSE(fileExists(pwned));
}

TEST_F(OpenUrlTest, ReturnsAtOnceWhileTheHandlerStillRuns) {
    installStandIn("sleep 2\nprintf '%s\\n' \"$1\" >> \"$VARITAP_TEST_RECORD\"\n");
    const auto start = std::chrono::steady_clock::now();
    openURL("https://example.org/");
    const auto took = std::chrono::steady_clock::now() - start;
    EXPECT_LT(took, std::chrono::milliseconds(1500));
    EXPECT_TRUE(noChildLeft());  // the shell is reaped; the handler is not ours
    EXPECT_EQ(readFile(record()), "");
}

TEST_F(OpenUrlTest, RefusesWhatIsNotAPlainAddressSilently) {
    ::testing::internal::CaptureStderr();
    for (const char* bad : {static_cast<const char*>(nullptr), "", "--help", "-x", "with space",
                            "tab\there", "line\nbreak", "https://ex\xc3\xa4mple.org/"})
        openURL(bad);
    openURL("https://example.org/last");
    EXPECT_EQ(waitForRecord(1), "1 https://example.org/last\n");
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
    EXPECT_EQ(readFile(record()), "1 https://example.org/last\n");
    EXPECT_EQ(::testing::internal::GetCapturedStderr(), "");
    EXPECT_TRUE(noChildLeft());
}

}  // namespace
}  // namespace varitap
