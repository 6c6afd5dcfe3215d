#include "engine/DelayEngine.h"

#include <cmath>
#include <cstring>
#include <memory>
#include <random>
#include <utility>

#include "EngineFixture.h"
#include "KernelChecks.h"
#include "engine/FloatMode.h"
#include "engine/VectorOps.h"

namespace varitap {
namespace {

using namespace test;

class DelayEngineTest : public testing::TestWithParam<bool>, protected EngineRig {
protected:
    // One block of n frames into arrays that held fill, replacing or adding.
    Channels run(Channels in, uint32_t n, float fill = 0.0f, bool adding = false) {
        Channels out(2, n, fill);
        if (adding)
            engine.process(in.get(), out.get(), int32_t(n));
        else
            engine.processReplacing(in.get(), out.get(), int32_t(n));
        return out;
    }
    ScalarScope scalar{GetParam()};
};

TEST_P(DelayEngineTest, EchoAndWetDryMix) {
    plainTap(engine, 0, 100, 1, 1);  // In 1 -> Out 1
    Channels in(2, 512);
    in.set(0, impulse(512, 5, 1.0f));
    in.set(1, impulse(512, 7, -1.0f));
    engine.setWetDry(0.0f);  // all wet
    Channels out = run(in, 512, 9.0f);
    EXPECT_EQ(out[0], impulse(512, 105, 0.5f));
    EXPECT_EQ(out[1], std::vector<float>(512, 0.0f));
    engine.setWetDry(1.0f);  // all dry
    EXPECT_EQ(run(in, 512).data, in.data);

    // A quarter dry: both shares; the accumulating form adds only the wet
    // one. Two replacing blocks, then an adding one, each from an empty line
    // and with fresh inputs: the vector form of the replacing mix scales the
    // host's input array in place.
    engine.setWetDry(0.25f);
    engine.tap(0).setDelaySamples(2);
    Channels mixed(2, 16), added(2, 16);
    for (int b = 0; b < 3; ++b) {
        engine.tap(0).resetPosition();
        engine.tap(0).clearBuffer();
        (b < 2 ? mixed : added) = run(Channels(2, 16, 1.0f), 16, 2.0f, b == 2);
    }
    EXPECT_EQ(mixed[0][0], 0.25f);  // dry only before the echo
    EXPECT_EQ(mixed[0][2], 0.5f * 0.75f + 0.25f);
    EXPECT_EQ(mixed[1][3], 0.25f);
    EXPECT_EQ(added[0][0], 2.0f);
    EXPECT_EQ(added[0][2], 2.0f + 0.5f * 0.75f);
}

TEST_P(DelayEngineTest, ChainingThroughTheBusesInOneBlock) {
    Channels in(2, 512);
    in.set(0, impulse(512, 0, 1.0f));
    // Tap 0 writes Intern 1, tap 1 reads it: 100 + 50 samples, 0.5 * 0.5.
    // The reverse order carries nothing: tap 0 reads the bus before tap 1
    // writes it, and the bus is cleared at each block's start. An output's
    // wet bus as a source: what lower taps added this block (In 1 -> Out 2,
    // read by a tap to Out 1).
    const struct { int first, second, firstIn, firstOut, secondIn; uint32_t firstDelay, secondDelay; int heardAt; } rows[] = {
        {0, 1, 1, 21, 41, 100, 50, 150}, {1, 0, 1, 21, 41, 100, 50, -1}, {0, 1, 1, 2, 22, 10, 20, 30}};
    for (const auto& row : rows) {
        EngineRig rig;
        rig.engine.setWetDry(0.0f);
        plainTap(rig.engine, row.first, row.firstDelay, row.firstIn, row.firstOut);
        plainTap(rig.engine, row.second, row.secondDelay, row.secondIn, 1);
        for (int b = 0; b < 2; ++b) {
            Channels block = in, out(2, 512);
            rig.engine.processReplacing(block.get(), out.get(), 512);
            EXPECT_EQ(out[0], row.heardAt >= 0 ? impulse(512, row.heardAt, 0.25f) : std::vector<float>(512))
                << row.firstOut << " block " << b;
            EXPECT_EQ(out[1][10], row.firstOut == 2 ? 0.5f : 0.0f);
        }
    }
}

TEST_P(DelayEngineTest, UnconnectedPinsUseTheScratchBus) {
    engine.setWetDry(1.0f);
    host.outputUnplugged[0] = true;
    host.inputUnplugged[1] = true;
    Channels in = noiseChannels(256, 3, 4);
    // Output 1's signal went into the scratch bus, which output 2 then reads
    // as its dry part.
    Channels out = run(in, 256, 4.0f);
    EXPECT_EQ(out[0], std::vector<float>(256, 4.0f));
    EXPECT_EQ(out[1], in[0]);

    // Unconnected or missing pins carry silence either way; a tap without
    // an input writes silence whatever went before.
    host.outputUnplugged[0] = false;
    engine.setWetDry(0.0f);
    plainTap(engine, 0, 1, 2, 1);  // In 2 (unconnected) -> Out 1
    plainTap(engine, 1, 1, 1, 3);  // In 1 -> Out 3 (no such output)
    host.outputUnplugged[1] = true;
    plainTap(engine, 2, 1, 1, 2);  // In 1 -> Out 2 (unconnected)
    plainTap(engine, 3, 1, 0, 1);  // none -> Out 1
    for (int b = 0; b < 2; ++b) run(in, 256);
    EXPECT_EQ(run(in, 256)[0], std::vector<float>(256, 0.0f));
}

// A one-channel block: input 1 mixed with its echo on output 1. Pins at and
// past the counts are neither read nor written, even where the host's arrays
// go on: input 2 sounds as silence, output 2 keeps what it held.
TEST_P(DelayEngineTest, AOneChannelBlockKeepsToItsArrays) {
    ASSERT_TRUE(engine.setInputChannelCount(1));
    ASSERT_TRUE(engine.setHostOutputCount(1));
    EXPECT_FALSE(engine.setInputChannelCount(21));
    engine.setWetDry(0.5f);
    plainTap(engine, 0, 1, 1, 1);  // In 1 -> Out 1
    plainTap(engine, 1, 1, 2, 1);  // In 2 -> Out 1
    plainTap(engine, 2, 1, 1, 2);  // In 1 -> Out 2
    Channels in(2, 256, 6.0f);
    for (uint32_t i = 0; i < 256; ++i) in[0][i] = float(i % 7);
    const Channels out = run(in, 256, 6.0f);
    for (uint32_t i = 0; i < 256; ++i) {
        ASSERT_EQ(out.data[0][i], 0.5f * in[0][i] + (i ? 0.25f * in[0][i - 1] : 0.0f)) << i;
        ASSERT_EQ(out.data[1][i], 6.0f) << i;
    }
}

// The samples per beat follow the host's tempo (the echo of a synchronised
// tap at its length is heard through the plug-in); without time information
// a beat is one sample.
// While the host records automation, heads align to the song and modulators
// write as automation.
TEST_P(DelayEngineTest, TimeInformationSetsTheBeatAlignsHeadsAndRecordsModulators) {
    engine.setWetDry(0.0f);
    plainTap(engine, 0, 0, 1, 1);
    engine.tap(0).setSync(true);
    engine.tap(0).setDelaySamples(uint32_t(0.55f * 56000.0f));  // "1/4"
    const Channels in = noiseChannels(256, 1, 2);
    host.setTime(120.0, 0.0, 0);
    run(in, 64);
    EXPECT_EQ(engine.lastSamplesPerBeat(), 22050.0f);
    host.hasTimeInfo = false;
    run(in, 64);
    EXPECT_EQ(engine.lastSamplesPerBeat(), 1.0f);
    EXPECT_EQ(engine.lastTempo(), 0.0);

    TableModulator& modulator = engine.modulator(0);
    freeModulator(modulator, kWetDryParameter, 0.1f);
    host.setTime(120.0, 3 * 22050.0 + 1000.0, HostTimeInfo::kTransportPlaying);
    const int plainWrites = host.plainWrites;
    run(in, 256);
    EXPECT_EQ(host.plainWrites, plainWrites + 1);
    EXPECT_EQ(host.automatedWrites, 0);
    host.timeInfo.flags |= HostTimeInfo::kAutomationWriting;
    modulator.setSpeed(0.2f);
    run(in, 256);
    EXPECT_EQ(host.automatedWrites, 1);
    EXPECT_EQ(host.lastIndex, kWetDryParameter);
    EXPECT_EQ(engine.wetDry(), host.lastValue);
    EXPECT_EQ(engine.tap(0).position(), 1000u + 256u);
}

// Equal blocks from two engines fed in and referenceIn, then the same noise
// (fresh copies every block: the mix may scale the arrays it is given).
void expectSameBlocks(DelayEngine& engine, DelayEngine& reference, Channels in, Channels referenceIn, int blocks) {
    for (int b = 0; b < blocks; ++b) {
        Channels out(2, 512, 7.0f), referenceOut(2, 512, 7.0f);
        engine.processReplacing(Channels(in).get(), out.get(), 512);
        reference.processReplacing(Channels(referenceIn).get(), referenceOut.get(), 512);
        ASSERT_EQ(out.data, referenceOut.data) << "block " << b;
        in = referenceIn = noiseChannels(512, 100 + 2 * b, 101 + 2 * b);
    }
}

TEST_P(DelayEngineTest, SuspendAndResumeLeaveNothingOfThePast) {
    // Every tap filtered and fed back, with the modulators still (they would
    // move the settings), so that a new engine with the same settings is the
    // reference for "nothing of the past is heard".
    EngineRig fresh;
    for (DelayEngine* e : {&engine, &fresh.engine}) {
        busyPatch(*e);
        for (int m = 0; m < kModulatorCount; ++m) e->modulator(m).setPower(false);
    }
    // Modulators writing into their own settings (nothing audible): one into
    // its table, to see its phase restart; a sine, which starts at its
    // minimum, into its own "Power", which stops it after one block.
    TableModulator& modulator = engine.modulator(0);
    TableModulator& switching = engine.modulator(2);
    freeModulator(modulator, modulatorParameterIndex(0, kModulatorTableFirst), modulator.getSpeed());
    freeModulator(switching, modulatorParameterIndex(2, kModulatorPower), 0.5f);
    switching.setType(LfoModulator::kSine);
    switching.setMin(0.0f);
    switching.setMax(1.0f);
    for (int b = 0; b < 8; ++b) run(noiseChannels(512, b, b + 50), 512);
    EXPECT_GT(modulator.phase(), 0.0f);
    EXPECT_FALSE(switching.isPowered());
    EXPECT_EQ(switching.phase(), 512.0f);
    engine.suspend();
    engine.resume();
    // Requested only: the next block call carries it out, even one without
    // frames, whatever thread asked.
    EXPECT_EQ(engine.tap(0).position(), 8u * 512u % 1000u);
    run(Channels(2, 512), 0);
    EXPECT_EQ(engine.tap(0).position(), 0u);
    EXPECT_EQ(modulator.phase(), 0.0f);
    // Lines and filters hold nothing of the noise: the engine sounds as the
    // new one does, echoes, feedback and filter ringing alike.
    Channels in(2, 512);
    in[0][3] = 1.0f;
    in[1][9] = -0.5f;
    expectSameBlocks(engine, fresh.engine, in, in, 12);

    host.sampleRate = 96000.0f;
    engine.setSampleRate(96000.0f);
    // Rates reach taps, filters and (for their displays) modulators at once.
    EXPECT_EQ(engine.tap(5).sampleRate(), 96000.0f);
    EXPECT_EQ(engine.tap(5).filter().sampleRate(), 96000.0f);
    EXPECT_EQ(engine.modulator(5).sampleRate(), 96000.0f);
}

// A sample that is not a number or lies past the ceiling is read as silence,
// in the lines, the filters and the dry mix alike: the engine then sounds
// exactly as one given 0 there, at once and from then on. The ceiling
// itself is signal.
TEST_P(DelayEngineTest, BadInputSamplesAreReadAsSilence) {
    const float inf = HUGE_VALF, ceiling = kSampleCeiling;
    const std::pair<float, float> rows[] = {
        {std::nanf(""), 0.0f}, {inf, 0.0f},      {-inf, 0.0f},        {1e30f, 0.0f},
        {-2.0f * ceiling, 0.0f}, {std::nextafter(ceiling, inf), 0.0f}, {ceiling, ceiling},
        {-ceiling, -ceiling}};
    for (const auto& [bad, readAs] : rows) {
        SCOPED_TRACE(testing::Message() << bad);
        EngineRig rigs[2];
        for (EngineRig& rig : rigs) {
            rig.host.setTime(120.0, 0.0, 0);
            busyPatch(rig.engine);
            // Tap 9 also reads a bus: Out 1's, as the lower taps left it.
            rig.engine.setInputChannel(9, inputValue(21));
        }
        Channels in = noiseChannels(512, 1, 2), referenceIn = in;
        in[0][100] = bad;
        in[1][511] = bad;
        referenceIn[0][100] = readAs;
        referenceIn[1][511] = readAs;
        expectSameBlocks(rigs[0].engine, rigs[1].engine, in, referenceIn, 20);
    }

    // Buses are cleaned as taps read them: a chain of taps under full
    // feedback cannot build past the ceiling. Tap 0 sums a loud constant
    // into Intern 1 for ever; tap 1 hears it only while it is signal.
    plainTap(engine, 0, 0, 1, 21);
    engine.tap(0).setFeedback(1.0f);
    engine.tap(0).setVolume(1.0f);
    plainTap(engine, 1, 0, 41, 1);
    engine.setWetDry(0.0f);
    std::vector<float> heard;
    for (int b = 0; b < 3; ++b) {
        const Channels out = run(Channels(2, 512, ceiling / 4.0f), 512);
        heard.insert(heard.end(), out.data[0].begin(), out.data[0].end());
    }
    EXPECT_GT(heard[5], 0.0f);
    EXPECT_EQ(heard.back(), 0.0f);
    for (float x : heard) ASSERT_LE(x, ceiling);
}

// Feedback tails fall to exact silence with the filter on and off: without
// flushing, 0.95 times the smallest subnormal rounds back to it and a line
// never empties. The caller's floating-point mode is its own again after
// every call, whether it flushed already or not.
TEST_P(DelayEngineTest, TailsFallToExactSilenceUnderTheHostsOwnFloatMode) {
    plainTap(engine, 0, 64, 1, 1);
    plainTap(engine, 1, 64, 1, 2);
    for (int t = 0; t < 2; ++t) engine.tap(t).setFeedback(0.95f);
    engine.tap(1).setParameter(kTapFilterType, 0.5f);  // "LowPass"
    engine.tap(1).setParameter(kTapCutoff, 0.3f);
    engine.setWetDry(0.0f);
    Channels in(2, 512);
    in[0][0] = 1.0f;
    // 0.95^k passes the smallest normal float after some 1700 round trips of
    // 64 samples: 213 blocks.
    int silentFrom = -1;
    for (int b = 0; b < 400; ++b) {
        // Read just before the call: the test's own arithmetic raises flags.
        const FlushDenormals::Mode before = FlushDenormals::mode();
        const Channels out = run(in, 512);
        ASSERT_EQ(FlushDenormals::mode(), before) << "block " << b;
        in[0][0] = 0.0f;
        if (out.data != Channels(2, 512).data) silentFrom = -1;
        else if (silentFrom < 0) silentFrom = b;
    }
    EXPECT_GE(silentFrom, 100);
    EXPECT_LT(silentFrom, 300);
    for (int t = 0; t < 2; ++t) {
        const float* line = engine.tap(t).line();
        EXPECT_TRUE(std::all_of(line, line + engine.tap(t).getBufferSize(), [](float x) { return x == 0.0f; }));
    }
    // A caller that flushes already keeps that too.
    const FlushDenormals::Mode hostMode = FlushDenormals::mode();
    FlushDenormals::setMode(hostMode | FlushDenormals::kFlushBits);
    run(in, 512);
    const FlushDenormals::Mode after = FlushDenormals::mode();
    FlushDenormals::setMode(hostMode);
    EXPECT_EQ(after, hostMode | FlushDenormals::kFlushBits);
}

// Bad parameter values, tempos (without a usable one a beat is one sample
// and nothing is infinite) and song positions.
TEST_P(DelayEngineTest, BadValuesNeverCrashOrReachTheOutput) {
    const float bad[] = {std::nanf(""), HUGE_VALF, -HUGE_VALF, 1e30f, -1.0f, 2.0f};
    const double tempos[] = {0.0, -1.0, std::nan(""), HUGE_VAL, 1e-300, 140.0, 1e30};
    const double songs[] = {-1e9, 1e300, std::nan(""), 0.0, 4294967296.0 * 5};
    Channels in = noiseChannels(300, 1, 2), out(2, 300);
    int round = 0;
    for (float value : bad) {
        for (int32_t index = 0; index < kParameterCount; ++index) engine.setParameter(index, value);
        for (double song : songs) {
            const double tempo = tempos[round % 7];
            host.setTime(tempo, song, HostTimeInfo::kTransportPlaying | HostTimeInfo::kAutomationWriting);
            const int32_t frames = (round++ % 4) == 0 ? 0 : 300;
            engine.processReplacing(in.get(), out.get(), frames);
            engine.process(in.get(), out.get(), frames);
            for (int c = 0; c < 2; ++c)
                for (float x : out[c]) ASSERT_TRUE(std::isfinite(x)) << value << " " << song << " " << tempo;
            EXPECT_TRUE(std::isfinite(engine.lastSamplesPerBeat())) << tempo;
        }
        // What is stored reads back as a number, ready for a program.
        for (int32_t index = 0; index < kParameterCount; ++index)
            ASSERT_TRUE(std::isfinite(engine.getParameter(index))) << index << " " << value;
    }
}

// "Smooth Delay Time Changes": a 440 Hz sine through a tap whose delay moves
// to a random length (200..3999 samples) every block. Off, the head's jumps
// are steps far beyond the sine's own. On, no step between neighbouring
// samples is larger than the sine's steepest times 1.25: a fade over F
// samples between two values within an amplitude a of zero adds at most
// 2a / F per sample, a factor 1 + fs / (pi f F) on the sine's step
// 2 pi f a / fs, about 1.16 for the shortest fade here (200 samples, one
// pass of the shortest old delay).
TEST_P(DelayEngineTest, SmoothDelayTimeChangesFadeWhereTheHeadWouldJump) {
    constexpr uint32_t kBlock = 256;
    std::vector<float> sine(kBlock * 400);
    float sineStep = 0.0f;
    for (size_t i = 0; i < sine.size(); ++i) {
        sine[i] = 0.5f * float(std::sin(2.0 * M_PI * 440.0 * double(i) / 44100.0));
        if (i > 0) sineStep = std::max(sineStep, std::fabs(sine[i] - sine[i - 1]));
    }
    for (bool smooth : {false, true}) {
        EngineRig rig;
        plainTap(rig.engine, 0, 1000, 1, 1);
        rig.engine.tap(0).setVolume(1.0f);
        rig.engine.setWetDry(0.0f);
        rig.engine.setSmoothDelayChanges(smooth);
        std::mt19937 random(17);
        float step = 0.0f, previous = 0.0f, peak = 0.0f;
        for (size_t at = 0; at < sine.size(); at += kBlock) {
            rig.engine.tap(0).setDelaySamples(200 + uint32_t(random() % 3800));
            Channels in(2, kBlock), out(2, kBlock);
            std::copy_n(sine.begin() + at, kBlock, in[0].begin());
            rig.engine.processReplacing(in.get(), out.get(), int32_t(kBlock));
            for (float y : out[0]) {
                step = std::max(step, std::fabs(y - std::exchange(previous, y)));
                peak = std::max(peak, std::fabs(y));
            }
        }
        if (smooth) {
            EXPECT_LE(step, 1.25f * sineStep);
            EXPECT_GT(peak, 0.49f);  // the echo is heard, not faded away
        } else {
            EXPECT_GT(step, 8.0f * sineStep);
        }
    }
}

INSTANTIATE_TEST_SUITE_P(ScalarAndVector, DelayEngineTest, testing::Values(true, false), scalarOrVector);

// Scalar and vector forms, with separate or shared (in-place, as hosts pass
// them) arrays, give equal blocks to the bit, and allocate nothing, for a
// busy patch: every tap filtered, two synchronised (their lines sized once at
// this tempo), every modulator running, one moving a delay that fades. The
// transport runs and the host records automation now and then: heads
// realign, modulators write through both paths.
TEST(DelayEngineVectorTest, ScalarVectorAndInPlaceBlocksAreEqualAndAllocateNothing) {
    EngineRig rigs[4];
    for (EngineRig& rig : rigs) {
        busyPatch(rig.engine);
        rig.engine.tap(4).setSync(true);
        rig.engine.tap(7).setSync(true);
        rig.engine.setSmoothDelayChanges(true);
        rig.engine.modulator(0).setIndex(tapParameterIndex(0, kTapDelay));
    }
    std::vector<Channels> noises, ins(4, Channels(2, 512)), outs(4, Channels(2, 512));
    for (int b = 0; b < 40; ++b) noises.push_back(noiseChannels(512, 10 + b, 50 + b));
    int differences = 0;
    auto block = [&](int b) {
        const int32_t n = b % 3 == 0 ? 511 : 512;
        for (int e = 0; e < 4; ++e) {
            ScalarScope scalar(e < 2);
            rigs[e].host.setTime(120.0, 512.0 * b, HostTimeInfo::kTransportPlaying |
                                                       (b % 50 == 0 ? HostTimeInfo::kAutomationWriting : 0));
            for (int c = 0; c < 2; ++c) ins[e].set(c, noises[b % 40][c]);
            Channels& target = e % 2 ? ins[e] : outs[e];
            rigs[e].engine.processReplacing(ins[e].get(), target.get(), n);
            for (int c = 0; c < 2; ++c)
                differences += !std::equal(target[c].begin(), target[c].begin() + n, outs[0][c].begin());
            for (int c = 0; c < 2; ++c) ins[e].set(c, noises[b % 40][c]);
            rigs[e].engine.process(ins[e].get(), ins[e].get(), n);
        }
    };
    EXPECT_EQ(allocationsIn(block), 0);
    EXPECT_EQ(differences, 0);
    // The modulators did run and write.
    EXPECT_GT(rigs[0].host.plainWrites, 1000);
    EXPECT_GT(rigs[0].host.automatedWrites, 10);
}

// The waves against the plain form (taps one after another, each whole),
// sample for sample, for a few hundred random states: routings that chain
// taps through the internal and wet buses, unconnected pins (the scratch
// bus), every filter type, synchronised lengths that grow the lines, resample
// mode, modulators writing anything (other modulators included), silence
// that lets lines fall idle, and blocks of 1 to 4096 frames. Faults too:
// inputs with samples that are not numbers or lie past the ceiling, loud
// inputs that chained taps under full feedback would build past it (the
// buses' cleaning), and filter states that ran away. In every kernel set the
// processor has, each against the scalar plain form.
struct RandomPatch {
    std::mt19937 generator;

    float unit() { return std::uniform_real_distribution<float>(0.0f, 1.0f)(generator); }
    int below(int n) { return std::uniform_int_distribution<int>(0, n - 1)(generator); }
    bool chance(float p) { return unit() < p; }

    // A value for parameter index, biased towards the interesting ones.
    float value(int index) {
        if (index < kTapOutputParameterBase) {
            static const int kSources[] = {0, 1, 2, 3, 21, 22, 23, 41, 42, 43, 44};
            return inputValue(chance(0.1f) ? below(45) : kSources[below(11)]);
        }
        if (index < kWetDryParameter) {
            static const int kDestinations[] = {0, 1, 2, 3, 21, 22, 23, 24};
            return outputValue(kDestinations[below(8)]);
        }
        if (index >= kModulatorParameterBase) {
            const int sub = (index - kModulatorParameterBase) % kModulatorParameterCount;
            if (sub == kModulatorIndex) return float(below(kParameterCount));
            if (sub == kModulatorPower) return chance(0.4f) ? 1.0f : 0.0f;
            return unit();
        }
        if (index == kWetDryParameter) return unit();
        const int sub = (index - kTapParameterBase) % kTapParameterCount;
        switch (sub) {
            case kTapDelay:
                // Short lines wrap within a block; long ones do not.
                return chance(0.3f) ? float(below(40)) / 56000.0f : chance(0.3f) ? unit() * 0.05f : unit();
            case kTapSync: return chance(0.3f) ? 1.0f : 0.0f;
            case kTapFeedback: return chance(0.3f) ? 0.0f : unit();
            default: return unit();
        }
    }

};

TEST(DelayEngineWavesTest, WavesMatchThePlainFormInEveryKernelSet) {
    using Schedule = DelayEngine::TapSchedule;
    struct Form {
        bool scalar, avx2;
        Schedule schedule;
    };
    std::vector<Form> forms;
    for (bool scalar : {true, false})
        for (Schedule schedule : {Schedule::kSequential, Schedule::kWaves}) forms.push_back({scalar, false, schedule});
    if (avx2Kernels()) forms.push_back({false, true, Schedule::kWaves});
    const size_t count = forms.size();
    for (unsigned state = 0; state < 300; ++state) {
        SCOPED_TRACE("state " + std::to_string(state));
        RandomPatch patch{std::mt19937(state)};
        std::vector<std::unique_ptr<EngineRig>> rigs(count);
        // Tempo (slow ones grow synchronised lines), transport, pins.
        const double tempo = patch.chance(0.3f) ? 20.0 + 30.0 * patch.unit() : 60.0 + 120.0 * patch.unit();
        const bool playing = patch.chance(0.5f);
        const bool writing = patch.chance(0.3f);
        const bool resample = patch.chance(0.3f);
        // Every third state holds and fades where a delay would jump (one
        // tap's length changes every block); the others sound as without it.
        const bool smooth = state % 3 == 1;
        const int unconnected = patch.chance(0.3f) ? patch.below(2) : -1;
        const int outputs = patch.chance(0.2f) ? 3 : 2;
        float values[kParameterCount];
        for (int i = 0; i < kParameterCount; ++i) values[i] = patch.value(i);
        for (size_t e = 0; e < count; ++e) {
            rigs[e] = std::make_unique<EngineRig>();
            auto& [host, engine] = *rigs[e];
            host.setTime(tempo, 0.0, (playing ? HostTimeInfo::kTransportPlaying : 0) |
                                         (writing ? HostTimeInfo::kAutomationWriting : 0));
            if (unconnected >= 0) host.outputUnplugged[unconnected] = true;
            engine.setOutputChannelCount(outputs);
            engine.setResample(resample);
            engine.setSmoothDelayChanges(smooth);
            engine.setTapSchedule(forms[e].schedule);
            for (int i = 0; i < kParameterCount; ++i) engine.setParameter(i, values[i]);
        }
        for (int block = 0; block < 6; ++block) {
            // Mostly sizes up to 600, sometimes up to 4096; odd ones often.
            const uint32_t n = patch.chance(0.15f) ? 1 + uint32_t(patch.below(4096))
                                                   : 1 + uint32_t(patch.below(600));
            Channels in(2, n);
            // Noise, or silence (so that lines can fall idle), or a burst,
            // or loud noise; now and then with bad samples in it.
            const float bad[] = {std::nanf(""), HUGE_VALF, -HUGE_VALF, 2.0f * kSampleCeiling};
            for (int c = 0; c < 2; ++c) {
                const int kind = patch.below(4);
                if (kind == 0) in.set(c, noise(n, state * 31 + unsigned(block * 2 + c)));
                if (kind == 2) in[c][patch.below(int(n))] = 0.5f;
                if (kind == 3) {
                    in.set(c, noise(n, state * 31 + unsigned(block * 2 + c)));
                    for (float& x : in[c]) x *= 0.5f * kSampleCeiling;
                }
                if (patch.chance(0.2f))
                    for (int i = 0; i < 3; ++i) in[c][patch.below(int(n))] = bad[patch.below(4)];
            }
            // A filter state that ran away (as a fault upstream could leave
            // it), on a tap that may be filtered or not, running or idle.
            const int runaway = patch.chance(0.15f) ? patch.below(kTapCount) : -1;
            const double runawayStates[] = {std::nan(""), HUGE_VAL, 1e100};
            const double runawayState = runawayStates[patch.below(3)];
            // A few parameters move between blocks (ramps, routing, lengths).
            std::vector<std::pair<int, float>> changes(patch.below(4));
            for (auto& [index, value] : changes) {
                index = patch.below(kParameterCount);
                value = patch.value(index);
            }
            if (smooth) {
                const int index = tapParameterIndex(patch.below(kTapCount), kTapDelay);
                changes.emplace_back(index, patch.value(index));
            }
            std::vector<std::vector<float>> heard(count);
            for (size_t e = 0; e < count; ++e) {
                ScalarScope scalar(forms[e].scalar);
                allowAvx2ForTesting(forms[e].avx2);
                auto& [host, engine] = *rigs[e];
                for (const auto& [index, value] : changes) engine.setParameter(index, value);
                if (runaway >= 0) engine.tap(runaway).filter().setState({0.0, runawayState, 0.0, 0.0});
                Channels input = in, out(outputs, n, 7.0f);
                engine.processReplacing(input.get(), out.get(), int32_t(n));
                host.timeInfo.samplePos += n;
                for (int c = 0; c < outputs; ++c) heard[e].insert(heard[e].end(), out[c].begin(), out[c].end());
                for (int b = 0; b < 4; ++b)
                    heard[e].insert(heard[e].end(), engine.internalBus(b), engine.internalBus(b) + n);
                // The heads too: a silent line's head is heard only later,
                // when a length changes.
                for (int t = 0; t < kTapCount; ++t) {
                    heard[e].push_back(float(engine.tap(t).position()));
                    heard[e].push_back(engine.tap(t).appliedVolume());
                }
            }
            allowAvx2ForTesting(true);
            for (size_t e = 1; e < count; ++e) {
                ASSERT_EQ(0, std::memcmp(heard[e].data(), heard[0].data(), heard[e].size() * sizeof(float)))
                    << "block " << block << " of " << n << " frames, form " << e;
            }
        }
    }
}

// The sets whose kernels must equal the scalar set's (the tap's own 4-lane
// routine checked with them): SSE2 (or NEON) and, where the processor has
// it, AVX2.
TEST(VectorOpsTest, EveryKernelSetMatchesTheScalarSet) {
    std::vector<const Kernels*> sets = {&vectorKernels()};
    if (avx2Kernels()) sets.push_back(avx2Kernels());
    for (const Kernels* set : sets) EXPECT_EQ(kernelSetDifference(*set), "") << "lane width " << set->laneWidth;
}

// The scalar set when the flag forces it, else AVX2 where the processor has
// it and the switch allows it, else SSE2 (or NEON). The flag is the vector
// unit's answer too: an instance made later does not undo it, and it
// outlives the last instance (loops keep asking).
TEST(VectorOpsTest, KernelsFollowTheVectorUnitFlag) {
    SystemInfo* info = SystemInfo::acquire();
#if defined(__x86_64__) || defined(__aarch64__)
    // SSE2 belongs to every x86-64 processor; Advanced SIMD to every Linux aarch64 one.
    EXPECT_TRUE(info->hasVectorUnit());
#endif
    const bool native = hasVectorUnit();
    forceScalarForTesting(true);
    SystemInfo* again = SystemInfo::acquire();
    EXPECT_FALSE(info->hasVectorUnit() || hasVectorUnit());
    EXPECT_EQ(&kernels(), &scalarKernels());
    EXPECT_EQ(kernels().sanitize, sanitizeScalar);
    forceScalarForTesting(false);
    again->release();
    info->release();
    EXPECT_EQ(hasVectorUnit(), native);
    const Kernels* vector = hasVectorUnit() ? &vectorKernels() : &scalarKernels();
    EXPECT_EQ(&kernels(), hasVectorUnit() && avx2Kernels() ? avx2Kernels() : vector);
    allowAvx2ForTesting(false);
    EXPECT_EQ(&kernels(), vector);
    allowAvx2ForTesting(true);
}

}  // namespace
}  // namespace varitap
