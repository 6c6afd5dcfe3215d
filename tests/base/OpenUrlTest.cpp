#include "persistence/OpenUrl.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>

#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <thread>

#include "TestSupport.h"

namespace varitap {
namespace {

using test::fileExists;
using test::readFile;

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
    openURL(address.c_str());
    int status = 0;
    EXPECT_TRUE(::waitpid(-1, &status, WNOHANG) == -1 && errno == ECHILD);
    EXPECT_FALSE(fileExists(record));
    EXPECT_EQ(::testing::internal::GetCapturedStderr(), "");
    ::setenv("PATH", savedPath.c_str(), 1);

    ASSERT_TRUE(test::writeFile(go, ""));
    for (int i = 0; i < 500 && !fileExists(record); ++i) std::this_thread::sleep_for(std::chrono::milliseconds(10));
    std::this_thread::sleep_for(std::chrono::milliseconds(300));  // for any other call
    EXPECT_EQ(readFile(record), "1 " + address + "\n");
    EXPECT_FALSE(fileExists(pwned));
}

}  // namespace
}  // namespace varitap
