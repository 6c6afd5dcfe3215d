// The engine's cost per frame: the full block (ten taps reading the inputs,
// each filtered, feedback 0.5, ten modulators on, stereo, 512-frame blocks at
// 44.1 kHz) in its vector and scalar forms, and one tap's delay loop, filter
// loop and one channel's cleaning pass alone.
#include <benchmark/benchmark.h>

#include <cstdlib>
#include <vector>

#include "engine/DelayEngine.h"
#include "engine/VectorOps.h"
#include "modulation/TapFilter.h"
#include "persistence/SystemInfo.h"

namespace varitap {
namespace {

constexpr uint32_t kFrames = 512;

class BenchHost : public EngineHost {
public:
    const HostTimeInfo* getTimeInfo(int32_t) override { return &info; }
    bool isInputConnected(int32_t) override { return true; }
    bool isOutputConnected(int32_t) override { return true; }
    float getSampleRate() const override { return 44100.0f; }
    float getParameter(int32_t index) override { return engine->getParameter(index); }
    void setParameter(int32_t index, float value) override { engine->setParameter(index, value); }
    void setParameterAutomated(int32_t index, float value) override { engine->setParameter(index, value); }
    void getParameterName(int32_t, char*) override {}
    HostTimeInfo info;
    DelayEngine* engine = nullptr;
};

// Seconds per frame, shown with an SI prefix ("121n" is 121 ns).
void countFrames(benchmark::State& state) {
    state.counters["time_per_frame"] = benchmark::Counter(
        double(kFrames), benchmark::Counter::kIsIterationInvariantRate | benchmark::Counter::kInvert);
}

std::vector<float> noise(size_t n, unsigned seed) {
    std::vector<float> x(n);
    for (auto& v : x) {
        seed = seed * 1664525u + 1013904223u;
        v = float(int32_t(seed >> 8) % 20000) / 20000.0f - 0.5f;
    }
    return x;
}

void setUpBusyEngine(DelayEngine& engine) {
    for (int t = 0; t < kTapCount; ++t) {
        engine.setInputChannel(t, (1.5f + float(t % 2)) / 44.0f);   // In 1 / In 2
        engine.setOutputChannel(t, (1.5f + float(t % 2)) / 24.0f);  // Out 1 / Out 2
        FilteredDelayTap& tap = engine.tap(t);
        tap.setDelaySamples(2000 + 1500 * uint32_t(t));
        tap.setFeedback(0.5f);
        tap.setParameter(kTapFilterType, float(1 + t % 4) / 4.0f);
        tap.setParameter(kTapCutoff, 0.2f + 0.05f * float(t));
        tap.setParameter(kTapResonance, 0.3f);
    }
    for (int m = 0; m < kModulatorCount; ++m) {
        TableModulator& modulator = engine.modulator(m);
        modulator.setIndex(tapParameterIndex(m, m % 2 ? kTapCutoff : kTapVolume));
        modulator.setType(m % 4);
        modulator.setSync(false);
        modulator.setSpeed(0.2f + 0.05f * float(m));
        modulator.setMin(0.3f);
        modulator.setMax(0.7f);
        modulator.setPower(true);
    }
    engine.setWetDry(0.5f);
}

void fullBlock(benchmark::State& state, bool scalar) {
    forceScalarForTesting(scalar);
    BenchHost host;
    host.info.tempo = 120.0;
    host.info.flags = HostTimeInfo::kTempoValid;
    DelayEngine engine(host);
    host.engine = &engine;
    setUpBusyEngine(engine);
    const std::vector<float> source0 = noise(kFrames, 1), source1 = noise(kFrames, 2);
    std::vector<float> in0(kFrames), in1(kFrames), out0(kFrames), out1(kFrames);
    float* inputs[2] = {in0.data(), in1.data()};
    float* outputs[2] = {out0.data(), out1.data()};
    for (auto _ : state) {
        // Fresh inputs each block, as a host gives them (the vector mix
        // scales them in place).
        std::copy(source0.begin(), source0.end(), in0.begin());
        std::copy(source1.begin(), source1.end(), in1.begin());
        engine.processReplacing(inputs, outputs, int32_t(kFrames));
        benchmark::DoNotOptimize(out0.data());
    }
    countFrames(state);
    forceScalarForTesting(false);
}

void BM_FullBlockVector(benchmark::State& state) { fullBlock(state, false); }
void BM_FullBlockScalar(benchmark::State& state) { fullBlock(state, true); }

void delayLoop(benchmark::State& state, TapLoop loop, uint32_t outputOffset) {
    const uint32_t length = 22050;
    float* line = nullptr;
    if (posix_memalign(reinterpret_cast<void**>(&line), 16, (length + 4) * sizeof(float)) != 0) return;
    std::fill(line, line + length + 4, 0.1f);
    std::vector<float> input = noise(kFrames, 3), output(kFrames + 4);
    uint32_t position = 0;
    for (auto _ : state) {
        position = loop(line, position, length, input.data(), output.data() + outputOffset, kFrames,
                        0.5f, 0.5f, 0.5f);
        benchmark::DoNotOptimize(output.data());
    }
    std::free(line);
    countFrames(state);
}

// The engine's usual case: a 16-byte-aligned scratch block as output, which
// the 4-wide routine takes through its tail.
void BM_TapDelayLoopScalar(benchmark::State& state) { delayLoop(state, tapLoopScalar, 0); }
void BM_TapDelayLoopVector(benchmark::State& state) { delayLoop(state, tapLoopVector, 0); }
// Its 4-lane case: aligned input, unaligned output.
void BM_TapDelayLoopVectorLanes(benchmark::State& state) { delayLoop(state, tapLoopVector, 1); }

void BM_TapFilterLoop(benchmark::State& state) {
    TapFilter filter(44100.0f);
    filter.setParameter(TapFilter::kType, 0.5f);
    filter.setParameter(TapFilter::kCutoff, 0.3f);
    filter.setParameter(TapFilter::kResonance, 0.3f);
    const std::vector<float> input = noise(kFrames, 4);
    std::vector<float> buffer(kFrames);
    for (auto _ : state) {
        std::copy(input.begin(), input.end(), buffer.begin());
        filter.processInPlace(buffer.data(), kFrames);
        benchmark::DoNotOptimize(buffer.data());
    }
    countFrames(state);
}

// One input channel's cleaning pass (non-numbers and samples past the
// ceiling to silence), as each block does it for every input it reads.
void sanitizeLoop(benchmark::State& state, Sanitize sanitize) {
    const std::vector<float> input = noise(kFrames, 5);
    std::vector<float> clean(kFrames);
    for (auto _ : state) {
        sanitize(input.data(), clean.data(), kFrames);
        benchmark::DoNotOptimize(clean.data());
    }
    countFrames(state);
}
void BM_SanitizeScalar(benchmark::State& state) { sanitizeLoop(state, sanitizeScalar); }
void BM_SanitizeVector(benchmark::State& state) { sanitizeLoop(state, sanitizeVector); }

BENCHMARK(BM_FullBlockVector);
BENCHMARK(BM_FullBlockScalar);
BENCHMARK(BM_TapDelayLoopScalar);
BENCHMARK(BM_TapDelayLoopVector);
BENCHMARK(BM_TapDelayLoopVectorLanes);
BENCHMARK(BM_TapFilterLoop);
BENCHMARK(BM_SanitizeScalar);
BENCHMARK(BM_SanitizeVector);

}  // namespace
}  // namespace varitap

BENCHMARK_MAIN();
