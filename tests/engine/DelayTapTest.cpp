// The engine's parts run alone: the delay tap, its filter, the two
// together, and the table modulator.
#include "engine/DelayTap.h"

#include <climits>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <numeric>
#include <utility>

#include "../base/TestSupport.h"
#include "EngineFixture.h"
#include "engine/NoteValueTable.h"
#include "modulation/FilteredDelayTap.h"
#include "modulation/TableModulator.h"
#include "modulation/TapFilter.h"
#include "persistence/Preferences.h"

namespace varitap {
namespace {

using test::runTap;

// A parameter text read through a buffer prefilled with "untouched".
template <class T>
std::string display(T& object, int index) {
    char text[64] = "untouched";
    object.getParameterDisplay(index, text);
    return text;
}

class DelayTapTest : public testing::TestWithParam<bool> {
protected:
    // The shared scratch pool, held as an engine holds it.
    RefPtr<ScratchPool> pool_ = RefPtr<ScratchPool>::adopt(ScratchPool::acquire());
    test::ScalarScope scalar_{GetParam()};
};

TEST_P(DelayTapTest, EchoesWithFeedbackRepeatsAndRampsTheVolumeOverOneBlock) {
    DelayTap tap(1000);
    tap.setDelaySamples(100);
    tap.setFeedback(0.5f);  // volume stays at its 0.5 default: no ramp
    std::vector<float> output = runTap(tap, test::impulse(1000, 3, 1.0f), 128);
    for (size_t i = 0; i < output.size(); ++i) {
        // 0.5, 0.25, 0.125, ...: volume times feedback to the (k - 1)th.
        const bool echo = i >= 103 && (i - 3) % 100 == 0;
        EXPECT_FLOAT_EQ(output[i], echo ? 0.5f * std::pow(0.5f, float((i - 3) / 100 - 1)) : 0.0f) << i;
    }

    // The ramp, then the next block holds the new volume.
    tap.setDelaySamples(1);
    tap.setFeedback(0.0f);
    runTap(tap, std::vector<float>(512, 1.0f), 512);
    tap.setVolume(1.0f);
    for (int block = 0; block < 2; ++block) {
        output = runTap(tap, std::vector<float>(512, 1.0f), 512);
        for (int i = 0; i < 512; ++i)
            ASSERT_NEAR(output[i], block ? 1.0f : 0.5f + 0.5f / 512.0f * float(i), block ? 0.0f : 2e-6f) << i;
        EXPECT_EQ(tap.appliedVolume(), 1.0f);
    }
}

TEST_P(DelayTapTest, SynchronisedLengthsFollowTheNoteTable) {
    // The echo of a "1/4" one beat later is measured through the engine.
    DelayTap tap(44100);
    tap.setDelaySamples(56000);
    tap.setSync(true);
    const float samplesPerBeat = 22050.0f;  // 120 BPM at 44.1 kHz
    // {parameter, samples per beat, length}: "1/4", "1/8D" (16537.5
    // truncated), "1/256"; without time information a beat is one sample.
    const struct { float value, perBeat; uint32_t length; } rows[] = {
        {0.55f, samplesPerBeat, 22050u}, {11.5f / 24.0f, samplesPerBeat, 16537u},
        {0.0f, 1.0f, 0u}, {0.55f, 1.0f, 1u}, {1.0f, samplesPerBeat, 352800u}};
    for (const auto& row : rows) {
        tap.setParameter(kTapDelay, row.value);
        EXPECT_EQ(tap.syncedLength(row.perBeat), row.length) << row.value;
    }
    // Indices outside the note table are "Invalid", of one beat.
    for (int index : {25, 26, 1000, INT_MAX, -1, -25, INT_MIN}) {
        EXPECT_STREQ(noteValueName(index), "Invalid") << index;
        EXPECT_EQ(noteValueBeats(index), 1.0f) << index;
    }
    // "4" grows the line to 352800 samples, which it keeps for shorter
    // lengths afterwards.
    runTap(tap, std::vector<float>(256, 0.25f), 256, samplesPerBeat);
    EXPECT_EQ(tap.getBufferSize(), 352800u);
    tap.setParameter(kTapDelay, 0.55f * 56000.0f / 352800.0f);
    runTap(tap, std::vector<float>(256, 0.25f), 256, samplesPerBeat);
    EXPECT_EQ(tap.getBufferSize(), 352800u);

    // Without a line (16 beats of 2^22 samples are over the limit) the input
    // passes undelayed at the volume in force; at a sensible tempo the line
    // works again.
    DelayTap small(1000);
    small.setDelaySamples(1000);
    small.setSync(true);
    small.setParameter(kTapDelay, 1.0f);
    for (float x : runTap(small, std::vector<float>(64, 0.5f), 64, 4194304.0f)) ASSERT_EQ(x, 0.5f * 0.5f);
    EXPECT_EQ(small.getBufferSize(), 1000u);
    EXPECT_EQ(small.appliedVolume(), 0.5f);
    EXPECT_EQ(runTap(small, std::vector<float>(64, 0.5f), 64, 10.0f)[0], 0.0f);
}

TEST_P(DelayTapTest, HeadAlignsToTheSongPosition) {
    DelayTap a(44100), b(44100);
    for (DelayTap* tap : {&a, &b}) {
        tap->setDelaySamples(56000);
        tap->setSync(true);
        tap->setParameter(kTapDelay, 0.55f);  // 22050 at 120 BPM
    }
    const std::vector<float> one(1, 0.0f), silence(64, 0.0f);
    runTap(a, one, 1, 22050.0f, 3 * 22050.0 + 100.0);
    EXPECT_EQ(a.position(), 101u);
    // Whole multiples of the length land on the length itself (kept in the
    // guard sample) and wrap on the next sample.
    runTap(b, one, 1, 22050.0f, 2 * 22050.0);
    EXPECT_EQ(b.position(), 0u);
    // Two taps of one length stay in phase with the song.
    a.setPosition(5);
    b.setPosition(9000);
    runTap(a, silence, 64, 22050.0f, 123456.0);
    runTap(b, silence, 64, 22050.0f, 123456.0);
    EXPECT_EQ(a.position(), b.position());
    EXPECT_EQ(a.position(), (123456u - 5u * 22050u) + 64u);

    // Length 0 with a song position: no endless subtraction, the head is 0.
    a.setParameter(kTapDelay, 0.0f);  // "1/256" of one sample per beat is 0
    runTap(a, silence, 64, 1.0f, 987654.0);
    EXPECT_EQ(a.position(), 0u);
    // Bad song positions put the head somewhere inside the line.
    a.setParameter(kTapDelay, 0.55f);
    for (double song : {-1.0e9, 1.0e300, std::nan(""), HUGE_VAL, -HUGE_VAL, 4294967296.0 * 3 + 7}) {
        for (float x : runTap(a, silence, 64, 22050.0f, song)) ASSERT_TRUE(std::isfinite(x));
        EXPECT_LE(a.position(), 22050u) << song;
    }
}

TEST_P(DelayTapTest, GrownLineIsSilenceAndGuardSamplesExist) {
    DelayTap tap(100);
    tap.setDelaySamples(100);
    tap.setFeedback(0.0f);
    runTap(tap, std::vector<float>(100, 0.75f), 100);
    tap.setDelaySamples(300);
    ASSERT_EQ(tap.getBufferSize(), 300u);
    ASSERT_NE(tap.line(), nullptr);
    for (uint32_t i = 0; i < 300 + DelayTap::kGuardSamples; ++i) ASSERT_EQ(tap.line()[i], i < 100 ? 0.75f : 0.0f) << i;
    // Shrinking keeps the start; a length above the new size refuses it.
    tap.setBufferSize(200);
    EXPECT_EQ(tap.getBufferSize(), 300u);
    tap.setDelaySamples(150);
    tap.setBufferSize(200);
    EXPECT_EQ(tap.getBufferSize(), 200u);
    EXPECT_EQ(tap.line()[99], 0.75f);
}

// Resample on: the samples ahead of the head are played over the new
// length's share, in order (each about twice when the length doubles, every
// other one when it halves; the stretch ends once a block crosses the end of
// the line), the grown part is silence, then the head wraps onto the newest
// samples. Off: the head jumps, the old signal ends and the grown part is
// silence. Written are 1..1.2 lengths: in playback order from the head the
// line holds 201..1200 (401..2400).
TEST_P(DelayTapTest, ResampleStretchesOrSqueezesTheStoredSignal) {
    struct Sample {
        size_t at;
        float value, tolerance;
    };
    const struct Row {
        uint32_t from, to, block;
        bool resample;
        size_t span;  // over which the played samples rise by minRise .. maxRise
        float minRise, maxRise;
        std::vector<Sample> samples;
    } rows[] = {
        {1000, 2000, 400, true, 1600, 0.0f, 1.0f,
         {{0, 201, 0}, {1, 201, 0}, {800, 600, 4}, {1599, 1000, 4}, {1700, 0, 0}, {1800, 1001, 0}, {1999, 1200, 0}}},
        {1000, 2000, 400, false, 0, 0.0f, 0.0f, {{0, 201, 0}, {799, 1000, 0}, {1000, 0, 0}}},
        {2000, 1000, 256, true, 600, 0.5f, 3.0f, {{0, 401, 0}, {599, 1600, 4}, {600, 2001, 0}, {999, 2400, 0}}},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(testing::Message() << row.from << " to " << row.to << " resample " << row.resample);
        DelayTap tap(row.from);
        tap.setDelaySamples(row.from);
        tap.setFeedback(0.0f);
        tap.setVolume(1.0f);
        tap.setResample(row.resample);
        std::vector<float> written(row.from * 6 / 5);
        std::iota(written.begin(), written.end(), 1.0f);
        runTap(tap, written, row.block);
        ASSERT_EQ(tap.position(), row.from / 5);
        EXPECT_EQ(tap.previousLength(), row.resample ? row.from : 0u);
        tap.setDelaySamples(row.to);
        const std::vector<float> output = runTap(tap, std::vector<float>(row.to, 0.0f), row.block);
        for (size_t i = 1; i < row.span; ++i) {
            ASSERT_GE(output[i] - output[i - 1], row.minRise) << i;
            ASSERT_LE(output[i] - output[i - 1], row.maxRise) << i;
        }
        for (const Sample& sample : row.samples)
            EXPECT_NEAR(output[sample.at], sample.value, sample.tolerance) << sample.at;
        EXPECT_FALSE(tap.isResamplePending());
        EXPECT_EQ(tap.previousLength(), row.resample ? row.to : 0u);
    }
}

// Texts the plug-in tests do not reach, the option for samples, and bad
// values.
TEST_P(DelayTapTest, ParameterTexts) {
    test::TempDir config;
    setenv("XDG_CONFIG_HOME", config.path().c_str(), 1);
    Preferences* preferences = Preferences::acquire();
    DelayTap tap(44100);
    tap.setDelaySamples(56000);
    tap.setParameter(kTapDelay, 0.5f);
    tap.setParameter(kTapVolume, 1.0f);
    tap.setParameter(kTapFeedback, 0.25f);
    EXPECT_EQ(tap.getDelaySamples(), 28000u);
    const std::pair<int, const char*> texts[] = {
        {kTapDelay, "634.9"}, {kTapVolume, "0.000000"}, {kTapFeedback, "0.250000"}, {kTapSync, "Off"}, {7, "untouched"}};
    for (const auto& [index, text] : texts) EXPECT_EQ(display(tap, index), text) << index;
    tap.setSampleRate(96000.0f);
    EXPECT_EQ(display(tap, kTapDelay), "291.6");
    preferences->setNumber(kOptionDelayTimeInSamples, 1);
    EXPECT_EQ(display(tap, kTapDelay), "  28000");
    preferences->release();
    tap.setParameter(kTapSync, 0.6f);
    EXPECT_EQ(display(tap, kTapSync), "On");

    // Bad values become the nearest sensible ones; "Delay" never grows the
    // line from the parameter.
    tap.setParameter(kTapDelay, std::nanf(""));
    EXPECT_EQ(tap.getDelaySamples(), 0u);
    tap.setParameter(kTapDelay, 1.0e30f);
    EXPECT_EQ(tap.getDelaySamples(), 56000u);
    EXPECT_EQ(tap.getBufferSize(), 56000u);
    tap.setParameter(kTapVolume, HUGE_VALF);
    EXPECT_EQ(tap.volume(), 1.0f);
}

// A tap of 300 samples fed back by 0.7 through a resonant "LowPass".
void filteredPatch(DelayTap& tap, TapFilter& filter) {
    tap.setDelaySamples(300);
    tap.setFeedback(0.7f);
    filter.setParameter(TapFilter::kType, 0.5f);
    filter.setParameter(TapFilter::kCutoff, 0.2f);
    filter.setParameter(TapFilter::kResonance, 0.5f);
}

TEST_P(DelayTapTest, FiltersTheDelayedSignalAfterTheLine) {
    // The same delay as a plain tap, then the same filter: equal to the bit.
    FilteredDelayTap tap;
    DelayTap plain(44100);
    TapFilter filter(44100.0f);
    filteredPatch(tap, tap.filter());
    filteredPatch(plain, filter);
    const std::vector<float> input = test::noise(4096, 7);
    std::vector<float> expected = runTap(plain, input, 512);
    for (size_t at = 0; at < input.size(); at += 512) filter.processInPlace(expected.data() + at, 512);
    EXPECT_EQ(runTap(tap, input, 512), expected);
    EXPECT_NE(expected[400], 0.0f);

    // Type "***" leaves the delayed signal as it is, before or after the line.
    for (bool filterFirst : {false, true}) {
        FilteredDelayTap off;
        off.setFilterFirst(filterFirst);
        off.setDelaySamples(8);
        off.setFeedback(0.0f);
        off.setParameter(kTapFilterType, 0.0f);
        EXPECT_EQ(runTap(off, test::impulse(32, 1, 1.0f), 32), test::impulse(32, 9, 0.5f)) << filterFirst;
    }

    // The filter rows reach the filter, quantised and cleaned.
    tap.setParameter(kTapFilterType, 0.74f);  // quantised to "LowPass"
    EXPECT_EQ(tap.getParameter(kTapFilterType), 0.5f);
    EXPECT_EQ(display(tap, kTapFilterType), "LowPass");
    tap.setParameter(kTapCutoff, 0.3f);
    tap.setParameter(kTapResonance, std::nanf(""));
    EXPECT_EQ(tap.filter().getParameter(TapFilter::kCutoff), 0.3f);
    EXPECT_EQ(tap.getParameter(kTapResonance), 0.0f);
    EXPECT_EQ(tap.getParameter(7), 0.0f);
    char text[16] = "untouched";
    tap.getParameterName(7, text);
    EXPECT_STREQ(text, "untouched");
}

// A filter state out of every signal's range (NaN, infinite, or past the
// runaway level, as a fault upstream could leave it) is caught at the end of
// its block: the tap adds nothing for that block and then sounds as a new
// tap, before or after its line. Without the catch, NaN would stay for ever.
TEST_P(DelayTapTest, ARunawayFilterStartsAgainFromSilence) {
    for (bool filterFirst : {false, true}) {
        for (double state : {std::nan(""), HUGE_VAL, 1e100}) {
            SCOPED_TRACE(testing::Message() << "filter first " << filterFirst << " state " << state);
            FilteredDelayTap tap, fresh;
            for (FilteredDelayTap* t : {&tap, &fresh}) {
                t->setFilterFirst(filterFirst);
                filteredPatch(*t, t->filter());
            }
            runTap(tap, test::noise(512, 3), 512);
            tap.filter().setState({state, 0.0, 0.0, state});
            EXPECT_EQ(runTap(tap, test::noise(512, 3), 512), std::vector<float>(512, 0.0f));
            EXPECT_EQ(tap.filter().state().band, 0.0);
            for (int b = 0; b < 4; ++b)
                ASSERT_EQ(runTap(tap, test::noise(512, 10 + b), 512), runTap(fresh, test::noise(512, 10 + b), 512))
                    << "block " << b;
        }
    }
}

INSTANTIATE_TEST_SUITE_P(ScalarAndVector, DelayTapTest, testing::Values(true, false), test::scalarOrVector);

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
        for (int i = 0; i < n; ++i) signal[i] = float(std::sin(2.0 * M_PI * hz * (i + pass * n + 0.25) / rate));
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
    EXPECT_DOUBLE_EQ(c.frequency, 2.0 * std::sin(M_PI * 20.0 / 88200.0));
    EXPECT_DOUBLE_EQ(c.damping, 2.0);
    EXPECT_EQ(c.drive, 0.0);

    filter.setParameter(TapFilter::kType, 0.5f);  // "LowPass"
    filter.setParameter(TapFilter::kCutoff, 1.0f);
    c = filter.coefficients();
    EXPECT_DOUBLE_EQ(c.frequency, 2.0 * std::sin(M_PI * 7160.0 / 88200.0));
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

constexpr int kTarget = 30;  // any parameter of the fake

class TableModulatorTest : public testing::Test {
protected:
    void SetUp() override {
        modulator.setTarget(&host);
        modulator.setTableSize(8);
        modulator.restart();
        modulator.setIndex(kTarget);
        modulator.setPower(true);
    }
    void TearDown() override { setModulatorSmoothFactor(kDefaultSmoothFactor); }

    // One block with the transport stopped.
    void block(uint32_t n, double tempo = 120.0) { modulator.process(tempo, 0.0, n, false, false); }
    // One block with the transport playing from song; the value it left.
    float playAt(double song, double tempo = 0.0, uint32_t n = 512, bool recording = false) {
        modulator.process(tempo, song, n, true, recording);
        return value();
    }
    void freeRunning(float speed) { test::freeModulator(modulator, kTarget, speed); }
    float value() const { return host.values[kTarget]; }

    test::FakeEngineHost host;
    TableModulator modulator{&host};
};

// Free, the sine's cycle is four times "Speed" in seconds; synchronised, one
// note value is half a cycle, and while the transport plays the phase is the
// song position. The value is computed at each block's end.
TEST_F(TableModulatorTest, WavesFollowTheSpeedFreeOrSynchronised) {
    freeRunning(0.5f);  // half-period 2 * 44100 * 0.5: a cycle of 88200
    int maxBlock = -1, minBlock = -1;
    float highest = -1.0f, lowest = 2.0f;
    for (int b = 1; b <= 300; ++b) {
        block(441);
        EXPECT_EQ(modulator.phase(), float(441 * b));
        if (b > 50 && value() > highest) highest = value(), maxBlock = b;
        if (b > 150 && value() < lowest) lowest = value(), minBlock = b;
    }
    EXPECT_EQ(maxBlock, 100);  // top at 44100 samples
    EXPECT_EQ(minBlock, 200);  // bottom again at 88200
    EXPECT_GT(highest, 0.9999f);
    EXPECT_LT(lowest, 0.0001f);

    modulator.restart();
    modulator.setSync(true);
    modulator.setSpeed(13.5f / 24.0f);  // "1/4": D is one beat, a cycle two
    for (int b = 0; b < 50; ++b) block(441, 120.0);  // 22050 samples: the top
    EXPECT_GT(value(), 0.9999f);
    for (int b = 0; b < 50; ++b) block(441, 120.0);
    EXPECT_LT(value(), 0.0001f);
    EXPECT_NEAR(playAt(11025.0, 120.0, 441), 0.5f, 1e-4f);
    EXPECT_EQ(modulator.phase(), 11025.0f);

    // Square, then (from a restart) ramp over P = truncate(2D + 1) = 88201
    // samples, falling when max < min and starting again past one period: each
    // step one block.
    freeRunning(0.5f);
    const struct { int type; float min, max; uint32_t frames; double value, tolerance; } steps[] = {
        {LfoModulator::kSquare, 0.2f, 0.7f, 1000, 0.7f, 0.0},
        {LfoModulator::kSquare, 0.2f, 0.7f, 44000, 0.2f, 0.0},  // past 44100: the second half
        {LfoModulator::kRamp, 0.0f, 1.0f, 22050, 22050.0 / 88201.0, 1e-6},
        {LfoModulator::kRamp, 1.0f, 0.0f, 22050, 1.0 - 44100.0 / 88201.0, 1e-6},
        {LfoModulator::kRamp, 0.0f, 1.0f, 88201, 44100.0 / 88201.0, 1e-6}};
    for (const auto& step : steps) {
        if (step.type != modulator.getType()) modulator.restart();
        modulator.setType(step.type);
        modulator.setMin(step.min);
        modulator.setMax(step.max);
        block(step.frames);
        EXPECT_NEAR(value(), step.value, step.tolerance) << step.frames;
    }
}

TEST_F(TableModulatorTest, SmoothFactorQuantisesTheWrites) {
    freeRunning(0.5f);
    auto writes = [&](int blocks, uint32_t n) {
        modulator.restart();
        host.values[kTarget] = 0.0f;
        const int before = host.plainWrites;
        for (int b = 0; b < blocks; ++b) block(n);
        return host.plainWrites - before;
    };
    const int fine = writes(200, 441);  // one cycle
    setModulatorSmoothFactor(10);
    const int coarse = writes(200, 441);
    // Steps of 0.1 up and down: at most twenty writes.
    EXPECT_LE(coarse, 20);
    EXPECT_GE(coarse, 16);
    EXPECT_GE(fine, 190);
    // 0 means "not set": the factor stays.
    setModulatorSmoothFactor(0);
    EXPECT_EQ(modulatorSmoothFactor(), 10);

    // With S = 10000 a move of less than 1/10000 (the sine one sample off
    // its minimum) writes nothing.
    setModulatorSmoothFactor(10000);
    EXPECT_EQ(writes(1, 1), 0);
}

// Off, at speed 0, or synchronised without a usable tempo: no period, so
// no movement and nothing written, whatever the wave. An infinite phase
// starts again at 0.
TEST_F(TableModulatorTest, StandsStillWhenOffOrWithoutPeriod) {
    const struct { float speed; bool power, sync; double tempo; } rows[] = {
        {0.0f, true, false, 120.0}, {0.5f, false, false, 120.0},   {0.5f, true, true, 0.0},
        {0.5f, true, true, -120.0}, {0.5f, true, true, HUGE_VAL}, {0.5f, true, true, std::nan("")}};
    for (const auto& row : rows) {
        for (int type = 0; type <= 4; ++type) {
            modulator.setType(type);
            modulator.setSpeed(row.speed);
            modulator.setPower(row.power);
            modulator.setSync(row.sync);
            block(512, row.tempo);
            ASSERT_EQ(modulator.phase(), 0.0f) << row.speed << " " << row.power << " " << row.tempo << " " << type;
        }
    }
    EXPECT_EQ(host.plainWrites, 0);
    modulator.setType(0);
    modulator.process(120.0, HUGE_VAL, 512, true, false);
    EXPECT_EQ(modulator.phase(), 0.0f);
}

TEST_F(TableModulatorTest, TableWavesStepOneNotePerStepAndReachTheLastEntry) {
    modulator.setTableValue(8, 0.5f);  // past the table: ignored
    for (auto [step, value] : {std::pair<int, float>{0, 0.0f}, {1, 0.125f}, {6, 0.0f}, {7, 0.875f}, {8, 0.0f}})
        EXPECT_EQ(modulator.getTableValue(step), value) << step;

    modulator.setParameter(kModulatorType, 1.0f);  // type 3
    EXPECT_EQ(modulator.getType(), 3);
    modulator.setSpeed(13.5f / 24.0f);  // "1/4" at 120 BPM: 22050 per step
    for (int i = 0; i < 8; ++i) modulator.setTableValue(i, float(i + 1) / 10.0f);
    for (int beat = 0; beat < 10; ++beat) {
        EXPECT_EQ(playAt(beat * 22050.0 + 100.0, 120.0), float(beat % 8 + 1) / 10.0f) << beat;
        EXPECT_EQ(playAt(beat * 22050.0 + 21900.0, 120.0), float(beat % 8 + 1) / 10.0f) << beat;
    }
    // Free: a step lasts 2D samples.
    freeRunning(0.25f);  // D = 22050.0022
    EXPECT_EQ(playAt(44000.0), 0.1f);
    EXPECT_EQ(playAt(44200.0), 0.2f);
    // Writes happen on any exact change, through automation when recording.
    const int automated = host.automatedWrites;
    EXPECT_EQ(playAt(88300.0, 0.0, 512, true), 0.3f);
    EXPECT_EQ(host.automatedWrites, automated + 1);

    // The table sine at its top reads the last entry.
    modulator.setType(LfoModulator::kTableSine);
    freeRunning(0.5f);
    for (int i = 0; i < 8; ++i) modulator.setTableValue(i, float(i) / 8.0f);
    // D = 44100.0044: the top of the sine is at phase D, where r rounds to 1.
    const double d = 2.0 * 44100.0 * (0.5 + 1e-07);
    EXPECT_EQ(playAt(d, 0.0, 1), 7.0f / 8.0f);
    EXPECT_EQ(playAt(2.0 * d, 0.0, 1), 0.0f);
    // Negative and huge song positions stay inside the table; a NaN
    // "Index" is parameter 0.
    modulator.setType(LfoModulator::kSteps);
    for (double song : {-5.0e9, 3.0e38, 1.0e300, -1.0}) EXPECT_TRUE(std::isfinite(playAt(song, 0.0, 1))) << song;
    modulator.setParameter(kModulatorIndex, std::nanf(""));
    EXPECT_EQ(modulator.getIndex(), 0);
}

}  // namespace
}  // namespace varitap
