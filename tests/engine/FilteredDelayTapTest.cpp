#include "modulation/FilteredDelayTap.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <string>
#include <vector>

#include "engine/ParameterLayout.h"
#include "modulation/ScratchPool.h"

namespace varitap {
namespace {

class FilteredDelayTapTest : public testing::Test {
protected:
    void SetUp() override { pool_ = ScratchPool::acquire(); }
    void TearDown() override { static_cast<RefObject*>(pool_)->release(); }
    ScratchPool* pool_ = nullptr;
};

std::vector<float> noise(size_t n, unsigned seed) {
    std::vector<float> x(n);
    for (size_t i = 0; i < n; ++i) {
        seed = seed * 1664525u + 1013904223u;
        x[i] = float(int32_t(seed >> 8) % 20000) / 20000.0f;
    }
    return x;
}

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

    const std::vector<float> input = noise(4096, 7);
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

    // Type "***" leaves the delayed signal as it is.
    FilteredDelayTap off;
    off.setDelaySamples(10);
    off.setFeedback(0.0f);
    off.setParameter(kTapFilterType, 0.0f);
    std::vector<float> impulse(64, 0.0f), result(64, 0.0f);
    impulse[0] = 1.0f;
    off.process(impulse.data(), result.data(), 64, 1.0f, false, 0.0);
    for (size_t i = 0; i < 64; ++i) EXPECT_EQ(result[i], i == 10 ? 0.5f : 0.0f) << i;
}

TEST_F(FilteredDelayTapTest, FilterFirstRunsTheFilterIntoTheLine) {
    FilteredDelayTap tap;
    tap.setFilterFirst(true);
    tap.setDelaySamples(8);
    tap.setFeedback(0.0f);
    tap.setParameter(kTapFilterType, 0.0f);
    std::vector<float> impulse(32, 0.0f), out(32, 0.0f);
    impulse[1] = 1.0f;
    tap.process(impulse.data(), out.data(), 32, 1.0f, false, 0.0);
    for (size_t i = 0; i < 32; ++i) EXPECT_EQ(out[i], i == 9 ? 0.5f : 0.0f) << i;
}

TEST_F(FilteredDelayTapTest, FilterRowsAndTheirTexts) {
    FilteredDelayTap tap;
    char text[64];
    auto text_of = [&](auto call) {
        std::strcpy(text, "untouched");
        call();
        return std::string(text);
    };
    EXPECT_EQ(text_of([&] { tap.getParameterName(kTapFilterType, text); }), "Filter Type");
    EXPECT_EQ(text_of([&] { tap.getParameterName(kTapResonance, text); }), "Resonance");
    EXPECT_EQ(text_of([&] { tap.getParameterName(7, text); }), "untouched");
    EXPECT_EQ(text_of([&] { tap.getParameterDisplay(kTapFilterType, text); }), "Notch");
    tap.setParameter(kTapFilterType, 0.74f);
    EXPECT_EQ(tap.getParameter(kTapFilterType), 0.5f);
    EXPECT_EQ(text_of([&] { tap.getParameterDisplay(kTapFilterType, text); }), "LowPass");
    EXPECT_EQ(text_of([&] { tap.getParameterLabel(kTapFilterType, text); }), "untouched");
    // Cutoff and resonance reach the filter and show nothing.
    tap.setParameter(kTapCutoff, 0.3f);
    tap.setParameter(kTapResonance, std::nanf(""));
    EXPECT_EQ(tap.filter().getParameter(TapFilter::kCutoff), 0.3f);
    EXPECT_EQ(tap.getParameter(kTapResonance), 0.0f);
    EXPECT_EQ(text_of([&] { tap.getParameterDisplay(kTapCutoff, text); }), "untouched");
    EXPECT_EQ(tap.getParameter(7), 0.0f);
    tap.setSampleRate(48000.0f);
    EXPECT_EQ(tap.filter().sampleRate(), 48000.0f);
}

}  // namespace
}  // namespace varitap
