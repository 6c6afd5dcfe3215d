#include "persistence/Localize.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>

#include "ProbeBundle.h"

namespace varitap {
namespace {

// localize() runs inside the probe library, placed in a bundle whose string
// table translates "Delay" and "#%d Input Channel" into German.
TEST(LocalizeTest, WordsComeFromTheBundlesTableUnderAGermanLocaleOnly) {
    test::TempDir root;
    test::ProbeBundle bundle(root.path(), "Words");
    test::LoadedProbe probe(bundle.library);
    ASSERT_TRUE(probe.ok()) << dlerror();

    // As a host that calls setlocale(LC_ALL, "") under LC_ALL=C; LANGUAGE is
    // then ignored by gettext, so even a German preference changes nothing.
    ::setenv("LC_ALL", "C", 1);
    ::setenv("LANGUAGE", "de", 1);
    ASSERT_NE(std::setlocale(LC_ALL, ""), nullptr);
    for (const char* word : {"Delay", "#%d Input Channel", "Volume"}) EXPECT_STREQ(probe.localize(word), word);

    // Results share one buffer of 1024 bytes: the next call overwrites the
    // last result, the input is never returned itself, and a long text is
    // cut to fit, never inside a UTF-8 character (1022 letters and a
    // two-byte letter keep only the 1022).
    const char* first = probe.localize("Delay");
    EXPECT_EQ(probe.localize("Feedback"), first);
    EXPECT_STREQ(first, "Feedback");
    const std::string word = "Resonance";
    EXPECT_NE(probe.localize(word.c_str()), word.c_str());
    EXPECT_EQ(std::strlen(probe.localize(std::string(3000, 'x').c_str())), 1023u);
    const std::string accented = std::string(1022, 'a') + "ü" + "tail";
    EXPECT_EQ(std::string(probe.localize(accented.c_str())), std::string(1022, 'a'));

    ::unsetenv("LANGUAGE");
    ::unsetenv("LC_ALL");
    if (!test::useGermanLocale()) GTEST_SKIP() << "the de_DE.UTF-8 locale could not be built here";
    EXPECT_STREQ(probe.localize("Delay"), "Verzögerung");
    EXPECT_STREQ(probe.localize("#%d Input Channel"), "#%d Eingangskanal");
    EXPECT_STREQ(probe.localize("Volume"), "Volume");  // not in the table
    // The empty word is never looked up (gettext would answer with the
    // table's header).
    EXPECT_STREQ(probe.localize(""), "");
    EXPECT_STREQ(probe.localize(nullptr), "");
    std::setlocale(LC_ALL, "C");
}

}  // namespace
}  // namespace varitap
