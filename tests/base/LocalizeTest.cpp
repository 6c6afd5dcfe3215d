#include "persistence/Localize.h"

#include <gtest/gtest.h>

#include <clocale>
#include <cstdlib>
#include <cstring>
#include <string>

#include "ProbeBundle.h"

namespace varitap {
namespace {

using test::LoadedProbe;
using test::ProbeBundle;
using test::TempDir;

// localize() runs inside the probe library, placed in a bundle whose string
// table translates "Delay" and "#%d Input Channel" into German.
class LocalizeTest : public ::testing::Test {
protected:
    void SetUp() override {
        ASSERT_TRUE(bundle_.ok);
        probe_ = std::make_unique<LoadedProbe>(bundle_.library);
        ASSERT_TRUE(probe_->ok()) << dlerror();
    }
    TempDir root_;
    ProbeBundle bundle_{root_.path(), "Words"};
    std::unique_ptr<LoadedProbe> probe_;
};

TEST_F(LocalizeTest, TheCLocaleGivesEveryWordBackUnchanged) {
    // As a host that calls setlocale(LC_ALL, "") under LC_ALL=C; LANGUAGE is
    // then ignored by gettext, so even a German preference changes nothing.
    ::setenv("LC_ALL", "C", 1);
    ::setenv("LANGUAGE", "de", 1);
    ASSERT_NE(std::setlocale(LC_ALL, ""), nullptr);
    EXPECT_STREQ(probe_->localize("Delay"), "Delay");
    EXPECT_STREQ(probe_->localize("#%d Input Channel"), "#%d Input Channel");
    EXPECT_STREQ(probe_->localize("Volume"), "Volume");
    ::unsetenv("LC_ALL");
    ::unsetenv("LANGUAGE");
}

TEST_F(LocalizeTest, AGermanLocaleTranslatesFromTheBundlesTable) {
    ::unsetenv("LANGUAGE");
    ::unsetenv("LC_ALL");
    if (!test::useGermanLocale()) GTEST_SKIP() << "the de_DE.UTF-8 locale could not be built here";
    EXPECT_STREQ(probe_->localize("Delay"), "Verzögerung");
    EXPECT_STREQ(probe_->localize("#%d Input Channel"), "#%d Eingangskanal");
    EXPECT_STREQ(probe_->localize("Volume"), "Volume");  // not in the table
    // The empty word is never looked up (gettext would answer with the
    // table's header).
    EXPECT_STREQ(probe_->localize(""), "");
    EXPECT_STREQ(probe_->localize(nullptr), "");
    std::setlocale(LC_ALL, "C");
}

TEST_F(LocalizeTest, ResultsShareOneBufferOf1024Bytes) {
    const char* first = probe_->localize("Delay");
    const char* second = probe_->localize("Feedback");
    EXPECT_EQ(first, second);  // the next call overwrites the last result
    EXPECT_STREQ(first, "Feedback");

    // The input is never returned itself, and a long text is cut to fit.
    const std::string word = "Resonance";
    EXPECT_NE(probe_->localize(word.c_str()), word.c_str());
    const std::string longText(3000, 'x');
    EXPECT_EQ(std::strlen(probe_->localize(longText.c_str())), 1023u);
    // The cut never splits a UTF-8 character: 1022 letters and a two-byte
    // letter keep only the 1022.
    const std::string accented = std::string(1022, 'a') + "ü" + "tail";
    EXPECT_EQ(std::string(probe_->localize(accented.c_str())), std::string(1022, 'a'));
}

}  // namespace
}  // namespace varitap
