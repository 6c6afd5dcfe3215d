#include "engine/DelayTap.h"

#include <gtest/gtest.h>

#include <climits>
#include <cmath>
#include <cstdlib>
#include <numeric>
#include <string>
#include <vector>

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

TEST_P(DelayTapTest, ResampleStretchesTheStoredSignalWhenTheLengthDoubles) {
    for (bool resample : {true, false}) {
        DelayTap tap(1000);
        // Write 1..1200: in playback order from the head the line holds
        // 201..1200.
        fill(tap, 1000, resample, 1200, 400);
        ASSERT_EQ(tap.position(), 200u);
        EXPECT_EQ(tap.previousLength(), resample ? 1000u : 0u);

        tap.setDelaySamples(2000);
        const std::vector<float> output = runTap(tap, std::vector<float>(2000, 0.0f), 400);
        EXPECT_EQ(output[0], 201.0f);
        if (resample) {
            // The 800 samples ahead of the head (201..1000) are played over
            // 1600, every value about twice, in order, reaching the middle
            // halfway. Behind them the grown part is silence until the head
            // wraps onto the rest (1001..1200).
            for (size_t i = 1; i < 1600; ++i) ASSERT_GE(output[i], output[i - 1]) << i;
            for (size_t i = 2; i < 1600; ++i) ASSERT_LE(output[i] - output[i - 2], 2.0f) << i;
            EXPECT_EQ(output[1], 201.0f);
            EXPECT_NEAR(output[800], 600.0f, 4.0f);
            EXPECT_NEAR(output[1599], 1000.0f, 4.0f);
            EXPECT_EQ(output[1700], 0.0f);
            EXPECT_EQ(output[1800], 1001.0f);
            EXPECT_EQ(output[1999], 1200.0f);
            EXPECT_FALSE(tap.isResamplePending());
            EXPECT_EQ(tap.previousLength(), 2000u);
        } else {
            // The head jumps: the old signal ends after 800 samples and the
            // grown part is silence.
            EXPECT_EQ(output[799], 1000.0f);
            EXPECT_EQ(output[1000], 0.0f);
        }
    }
}

TEST_P(DelayTapTest, ResampleSqueezesTheStoredSignalWhenTheLengthHalves) {
    DelayTap tap(2000);
    fill(tap, 2000, true, 2400, 300);
    ASSERT_EQ(tap.position(), 400u);
    ASSERT_EQ(tap.previousLength(), 2000u);
    tap.setDelaySamples(1000);
    // Blocks that end before the line does (the stretch ends once a block
    // crosses the end of the line). Ahead of the head, 1200 stored samples
    // are played in 600: every other one, in order; then the head wraps onto
    // the newest samples.
    const std::vector<float> output = runTap(tap, std::vector<float>(1000, 0.0f), 256);
    EXPECT_EQ(output[0], 401.0f);
    for (size_t i = 1; i < 600; ++i) {
        ASSERT_GT(output[i], output[i - 1]) << i;
        ASSERT_LE(output[i] - output[i - 1], 3.0f) << i;
    }
    EXPECT_NEAR(output[599], 1600.0f, 4.0f);
    EXPECT_EQ(output[600], 2001.0f);
    EXPECT_EQ(output[999], 2400.0f);
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
