#include "modulation/FilteredDelayTap.h"

#include <gtest/gtest.h>

#include <cmath>
#include <vector>

#include "EngineFixture.h"

namespace varitap {
namespace {

class FilteredDelayTapTest : public testing::Test {
protected:

    // One impulse through a tap with the filter off.
    static void expectPlainEcho(FilteredDelayTap& tap) {
        tap.setDelaySamples(8);
        tap.setFeedback(0.0f);
        tap.setParameter(kTapFilterType, 0.0f);
        std::vector<float> impulse(32, 0.0f), out(32, 0.0f);
        impulse[1] = 1.0f;
        tap.process(impulse.data(), out.data(), 32, 1.0f, false, 0.0);
        for (size_t i = 0; i < 32; ++i) EXPECT_EQ(out[i], i == 9 ? 0.5f : 0.0f) << i;
    }

    RefPtr<ScratchPool> pool_ = test::holdScratchPool();
};

TEST_F(FilteredDelayTapTest, FiltersTheDelayedSignalAfterTheLine) {
    // The same delay as a plain tap, then the same filter: equal to the bit.
    FilteredDelayTap tap;
    DelayTap plain(44100);
    TapFilter filter(44100.0f);
    for (DelayTap* t : {static_cast<DelayTap*>(&tap), &plain}) {
        t->setDelaySamples(300);
        t->setFeedback(0.6f);
    }
    tap.setParameter(kTapFilterType, 0.5f);
    tap.setParameter(kTapCutoff, 0.2f);
    tap.setParameter(kTapResonance, 0.5f);
    filter.setParameter(TapFilter::kType, 0.5f);
    filter.setParameter(TapFilter::kCutoff, 0.2f);
    filter.setParameter(TapFilter::kResonance, 0.5f);

    const std::vector<float> input = test::noise(4096, 7);
    std::vector<float> out(4096, 0.25f), expected(4096, 0.25f), delayed(512);
    for (size_t at = 0; at < input.size(); at += 512) {
        std::vector<float> in1(input.begin() + at, input.begin() + at + 512), in2 = in1;
        tap.process(in1.data(), out.data() + at, 512, 1.0f, false, 0.0);
        std::fill(delayed.begin(), delayed.end(), 0.0f);
        plain.process(in2.data(), delayed.data(), 512, 1.0f, false, 0.0);
        filter.processInPlace(delayed.data(), 512);
        for (size_t i = 0; i < 512; ++i) expected[at + i] += delayed[i];
    }
    EXPECT_EQ(out, expected);
    EXPECT_NE(out[400], 0.25f);

    // Type "***" leaves the delayed signal as it is, before or after the line.
    FilteredDelayTap off, first;
    first.setFilterFirst(true);
    expectPlainEcho(off);
    expectPlainEcho(first);
}

// A filter state out of every signal's range (NaN, infinite, or past the
// runaway level, as a fault upstream could leave it) is caught at the end of
// its block: the tap adds nothing for that block and then sounds as a new
// tap, before or after its line. Without the catch, NaN would stay for ever.
TEST_F(FilteredDelayTapTest, ARunawayFilterStartsAgainFromSilence) {
    const double bad[] = {std::nan(""), HUGE_VAL, 1e100};
    for (bool filterFirst : {false, true}) {
        for (double state : bad) {
            SCOPED_TRACE(testing::Message() << "filter first " << filterFirst << " state " << state);
            FilteredDelayTap tap, fresh;
            for (FilteredDelayTap* t : {&tap, &fresh}) {
                t->setFilterFirst(filterFirst);
                t->setDelaySamples(300);
                t->setFeedback(0.7f);
                t->setParameter(kTapFilterType, 0.5f);
                t->setParameter(kTapCutoff, 0.2f);
                t->setParameter(kTapResonance, 0.8f);
            }
            std::vector<float> in = test::noise(512, 3), out(512, 0.25f);
            tap.process(in.data(), out.data(), 512, 1.0f, false, 0.0);
            tap.filter().setState({state, 0.0, 0.0, state});
            std::fill(out.begin(), out.end(), 0.25f);
            tap.process(in.data(), out.data(), 512, 1.0f, false, 0.0);
            for (float x : out) ASSERT_EQ(x, 0.25f);
            EXPECT_EQ(tap.filter().state().band, 0.0);
            for (int b = 0; b < 4; ++b) {
                std::vector<float> in1 = test::noise(512, 10 + b), in2 = in1, out1(512, 0.0f), out2(512, 0.0f);
                tap.process(in1.data(), out1.data(), 512, 1.0f, false, 0.0);
                fresh.process(in2.data(), out2.data(), 512, 1.0f, false, 0.0);
                ASSERT_EQ(out1, out2) << "block " << b;
            }
        }
    }
}

TEST_F(FilteredDelayTapTest, FilterRowsReachTheFilter) {
    FilteredDelayTap tap;
    tap.setParameter(kTapFilterType, 0.74f);  // quantised to "LowPass"
    EXPECT_EQ(tap.getParameter(kTapFilterType), 0.5f);
    EXPECT_EQ(test::display(tap, kTapFilterType), "LowPass");
    tap.setParameter(kTapCutoff, 0.3f);
    tap.setParameter(kTapResonance, std::nanf(""));
    EXPECT_EQ(tap.filter().getParameter(TapFilter::kCutoff), 0.3f);
    EXPECT_EQ(tap.getParameter(kTapResonance), 0.0f);
    EXPECT_EQ(tap.getParameter(7), 0.0f);
    char text[16] = "untouched";
    tap.getParameterName(7, text);
    EXPECT_STREQ(text, "untouched");
}

}  // namespace
}  // namespace varitap
