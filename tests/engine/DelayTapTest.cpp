#include "engine/DelayTap.h"

#include <climits>
#include <cmath>
#include <cstdlib>
#include <numeric>

#include "../base/TestSupport.h"
#include "EngineFixture.h"
#include "engine/NoteValueTable.h"
#include "persistence/Preferences.h"

namespace varitap {
namespace {

using test::display;
using test::runTap;

class DelayTapTest : public testing::TestWithParam<bool> {
protected:
    // A tap of length samples at full volume, no feedback, that has taken in
    // 1..written in blocks of block.
    static void fill(DelayTap& tap, uint32_t length, bool resample, size_t written, uint32_t block) {
        tap.setDelaySamples(length);
        tap.setFeedback(0.0f);
        tap.setVolume(1.0f);
        tap.setResample(resample);
        std::vector<float> ramp(written);
        std::iota(ramp.begin(), ramp.end(), 1.0f);
        runTap(tap, ramp, block);
    }

    RefPtr<ScratchPool> pool_ = test::holdScratchPool();
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
        fill(tap, row.from, row.resample, row.from * 6 / 5, row.block);
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

INSTANTIATE_TEST_SUITE_P(ScalarAndVector, DelayTapTest, testing::Values(true, false), test::scalarOrVector);

}  // namespace
}  // namespace varitap
