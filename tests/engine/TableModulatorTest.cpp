#include "modulation/TableModulator.h"

#include <cmath>
#include <utility>

#include "EngineFixture.h"

namespace varitap {
namespace {

using test::FakeEngineHost;

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

    FakeEngineHost host;
    TableModulator modulator{&host};
};

// Free, the sine's cycle is four times "Speed" in seconds; synchronised, one
// note value is half a cycle, and while the transport plays the phase is the
// song position. The value is computed at each block's end.
TEST_F(TableModulatorTest, SineFollowsTheSpeedFreeOrSynchronised) {
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

// Square, then (from a restart) ramp over P = truncate(2D + 1) = 88201
// samples, falling when max < min and starting again past one period: each
// step one block.
TEST_F(TableModulatorTest, SquareAndRampWaves) {
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

TEST_F(TableModulatorTest, StepSequenceLastsOneNotePerStepWhenSynchronised) {
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
}

TEST_F(TableModulatorTest, TableSineAtItsTopReadsTheLastEntry) {
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
