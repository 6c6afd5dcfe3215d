#include "modulation/TapFilter.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <vector>

namespace varitap {
namespace {

constexpr double kPi = 3.14159265358979323846;

// The filter's steady-state gain for a sine at hz: peak of the last second
// over a second of settling.
double measureGain(int type, float cutoff, float resonance, double hz, float rate = 44100.0f) {
    TapFilter filter(rate);
    filter.setParameter(TapFilter::kType, float(type) / 4.0f);
    filter.setParameter(TapFilter::kCutoff, cutoff);
    filter.setParameter(TapFilter::kResonance, resonance);
    const int n = int(rate);
    std::vector<float> signal(n);
    double peak = 0.0;
    for (int pass = 0; pass < 2; ++pass) {
        for (int i = 0; i < n; ++i) signal[i] = float(std::sin(2.0 * kPi * hz * (i + pass * n + 0.25) / rate));
        filter.processInPlace(signal.data(), n);
        if (pass == 1)
            for (float x : signal) peak = std::max(peak, double(std::fabs(x)));
    }
    return peak;
}

TEST(TapFilterTest, CornerFrequenciesAndCoefficients) {
    const struct { int type; double cutoff, hz; } corners[] = {
        {TapFilter::kLowPass, 1.0, 7160.0},  {TapFilter::kHighPass, 0.0, 1.0}, {TapFilter::kNotch, 0.0, 20.0},
        {TapFilter::kBandPass, 0.5, 2660.0}, {TapFilter::kOff, 1.0, 88140.0},  {9, 0.0, 40.0}};
    for (const auto& c : corners) EXPECT_DOUBLE_EQ(TapFilter::cornerFrequency(c.type, c.cutoff), c.hz) << c.type;

    // Coefficients exist from construction: "Notch" at cutoff 0 (20 Hz),
    // resonance 0.
    TapFilter filter(44100.0f);
    EXPECT_EQ(filter.type(), TapFilter::kNotch);
    TapFilter::Coefficients c = filter.coefficients();
    EXPECT_DOUBLE_EQ(c.frequency, 2.0 * std::sin(kPi * 20.0 / 88200.0));
    EXPECT_DOUBLE_EQ(c.damping, 2.0);
    EXPECT_EQ(c.drive, 0.0);

    filter.setParameter(TapFilter::kType, 0.5f);  // "LowPass"
    filter.setParameter(TapFilter::kCutoff, 1.0f);
    c = filter.coefficients();
    EXPECT_DOUBLE_EQ(c.frequency, 2.0 * std::sin(kPi * 7160.0 / 88200.0));
    // Resonance 0: q is 2 unless the stability bound is lower.
    EXPECT_DOUBLE_EQ(c.damping, std::min(2.0, 2.0 / c.frequency - c.frequency / 2.0));
    filter.setParameter(TapFilter::kResonance, 1.0f);
    EXPECT_EQ(filter.coefficients().damping, 0.0);
    filter.setParameter(TapFilter::kResonance, 0.0625f);  // 2 (1 - 0.5) = 1
    EXPECT_DOUBLE_EQ(filter.coefficients().damping, 1.0);
    filter.setParameter(TapFilter::kDrive, 0.5f);  // a tenth of the parameter
    EXPECT_DOUBLE_EQ(filter.coefficients().drive, double(0.5f / 10.0f));

    // At 8000 Hz "***" at full cutoff is far above a quarter of the doubled
    // rate: the clamp holds f at sqrt 2 and q at the stability bound.
    TapFilter fast(8000.0f);
    fast.setParameter(TapFilter::kType, 0.0f);
    fast.setParameter(TapFilter::kCutoff, 1.0f);
    c = fast.coefficients();
    EXPECT_NEAR(c.frequency, std::sqrt(2.0), 1e-15);
    EXPECT_NEAR(c.damping, 2.0 / std::sqrt(2.0) - std::sqrt(2.0) / 2.0, 1e-15);
    // A sample rate of 0 never yields infinite coefficients.
    fast.setSampleRate(0.0f);
    EXPECT_TRUE(std::isfinite(fast.coefficients().frequency));
    EXPECT_TRUE(std::isfinite(fast.coefficients().damping));
}

// Cutoffs chosen for a 1000 Hz corner; with q = 2 each output has gain
// 1/q = 0.5 there (the notch has none). Rows with a tolerance expect about
// gain, the others less than gain.
TEST(TapFilterTest, MeasuredGainsAtTheCorners) {
    const float lowCut = (1000.0f - 160.0f) / 7000.0f, highCut = (1000.0f - 1.0f) / 5000.0f;
    const float bandCut = (1000.0f - 160.0f) / 5000.0f, notchCut = (1000.0f - 20.0f) / 7000.0f;
    const struct { int type; float cutoff; double hz, gain, tolerance; } rows[] = {
        {TapFilter::kLowPass, lowCut, 100.0, 1.0, 0.02},    {TapFilter::kLowPass, lowCut, 1000.0, 0.5, 0.02},
        {TapFilter::kLowPass, lowCut, 10000.0, 0.015, 0.0}, {TapFilter::kHighPass, highCut, 10000.0, 1.0, 0.08},
        {TapFilter::kHighPass, highCut, 1000.0, 0.5, 0.02}, {TapFilter::kHighPass, highCut, 100.0, 0.015, 0.0},
        {TapFilter::kBandPass, bandCut, 1000.0, 0.5, 0.02}, {TapFilter::kBandPass, bandCut, 50.0, 0.05, 0.0},
        {TapFilter::kNotch, notchCut, 1000.0, 0.01, 0.0},   {TapFilter::kNotch, notchCut, 50.0, 1.0, 0.02}};
    for (const auto& r : rows) {
        const double gain = measureGain(r.type, r.cutoff, 0.0f, r.hz);
        if (r.tolerance > 0.0)
            EXPECT_NEAR(gain, r.gain, r.tolerance) << r.type << " at " << r.hz;
        else
            EXPECT_LT(gain, r.gain) << r.type << " at " << r.hz;
    }
    // Resonance raises the low-pass peak at the corner.
    EXPECT_GT(measureGain(TapFilter::kLowPass, lowCut, 0.9f, 1000.0), 2.0);
}

// Exact zeros change nothing and write nothing.
TEST(TapFilterTest, SilenceKeepsTheState) {
    TapFilter filter(44100.0f);
    std::vector<float> in = {0.1f, -0.5f, 0.25f, 1.0f}, out(4, 9.0f);
    filter.setParameter(TapFilter::kType, 0.5f);
    filter.setParameter(TapFilter::kCutoff, 0.3f);
    filter.process(in.data(), out.data(), 4);
    const TapFilter::State before = filter.state();
    EXPECT_NE(before.low, 0.0);
    std::vector<float> zeros(64, 0.0f), untouched(64, 7.0f);
    filter.process(zeros.data(), untouched.data(), 64);
    const TapFilter::State after = filter.state();
    EXPECT_EQ(std::memcmp(&after, &before, sizeof after), 0);
    for (float x : untouched) EXPECT_EQ(x, 7.0f);
}

}  // namespace
}  // namespace varitap
