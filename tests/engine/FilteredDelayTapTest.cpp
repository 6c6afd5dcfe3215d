#include "modulation/FilteredDelayTap.h"

#include <gtest/gtest.h>

#include <cmath>
#include <vector>

#include "EngineFixture.h"
#include "modulation/ScratchPool.h"

namespace varitap {
namespace {

class FilteredDelayTapTest : public testing::Test {
protected:
    void SetUp() override { pool_ = ScratchPool::acquire(); }
    void TearDown() override { static_cast<RefObject*>(pool_)->release(); }

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

    ScratchPool* pool_ = nullptr;
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
