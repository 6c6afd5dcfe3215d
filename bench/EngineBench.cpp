// The engine's cost per frame. The worst case: ten taps reading the host
// inputs and adding into the wet buses, synchronised, feedback 0.5,
// band-pass filters, ten powered sine modulators moving the cutoffs; stereo,
// 512-frame blocks at 44.1 kHz, in the vector (AVX2 where the processor has
// it), SSE2 and scalar forms and the plain tap-by-tap form. Then the cost
// table of bench/README.md (active taps, filters, modulators, block size),
// all taps idle, and one tap's delay loop, filter loop and one channel's
// cleaning pass alone.
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
void countFrames(benchmark::State& state, uint32_t frames = kFrames) {
    state.counters["time_per_frame"] = benchmark::Counter(
        double(frames), benchmark::Counter::kIsIterationInvariantRate | benchmark::Counter::kInvert);
}

std::vector<float> noise(size_t n, unsigned seed) {
    std::vector<float> x(n);
    for (auto& v : x) {
        seed = seed * 1664525u + 1013904223u;
        v = float(int32_t(seed >> 8) % 20000) / 20000.0f - 0.5f;
    }
    return x;
}

// taps taps routed In 1/In 2 -> Out 1/Out 2 (the rest idle, routed to
// "***"), synchronised to note values of 1/16 to 1/2T (0.125 to 0.67 s at
// 120 bpm),
// feedback 0.5; band-pass filters when filters is set; one powered sine per
// active tap moving its cutoff when modulators is set.
void setUpEngine(DelayEngine& engine, int taps, bool filters, bool modulators) {
    for (int t = 0; t < kTapCount; ++t) {
        const bool active = t < taps;
        engine.setInputChannel(t, active ? (1.5f + float(t % 2)) / 44.0f : 0.0f);   // In 1 / In 2
        engine.setOutputChannel(t, active ? (1.5f + float(t % 2)) / 24.0f : 0.0f);  // Out 1 / Out 2
        FilteredDelayTap& tap = engine.tap(t);
        tap.setSync(true);
        tap.setParameter(kTapDelay, 0.3f + 0.04f * float(t));
        tap.setFeedback(0.5f);
        tap.setParameter(kTapFilterType, filters ? 1.0f : 0.0f);  // "BandPass" or "***"
        tap.setParameter(kTapCutoff, 0.2f + 0.05f * float(t));
        tap.setParameter(kTapResonance, 0.3f);
    }
    for (int m = 0; m < kModulatorCount; ++m) {
        TableModulator& modulator = engine.modulator(m);
        modulator.setIndex(tapParameterIndex(m, kTapCutoff));
        modulator.setType(0);  // sine
        modulator.setSync(false);
        modulator.setSpeed(0.2f + 0.05f * float(m));
        modulator.setMin(0.1f);
        modulator.setMax(0.9f);
        modulator.setPower(modulators && m < taps);
    }
    engine.setWetDry(0.5f);
}

struct Setup {
    int taps = kTapCount;
    bool filters = true;
    bool modulators = true;
    uint32_t frames = kFrames;
    bool scalar = false;
    bool avx2 = true;
    DelayEngine::TapSchedule schedule = DelayEngine::TapSchedule::kWaves;
    bool smooth = false;  // "Smooth Delay Time Changes"
    // Every block, every tap's note value moves by one row (kNoteValues), or
    // every tap, no longer synchronised, gets a free length of 300 to 309
    // samples (kShortLengths: a pass ends at a new length in every block, so
    // a fading tap fades all the time).
    enum Motion { kStill, kNoteValues, kShortLengths } motion = kStill;
};

void runEngine(benchmark::State& state, const Setup& setup) {
    forceScalarForTesting(setup.scalar);
    allowAvx2ForTesting(setup.avx2);
    BenchHost host;
    host.info.tempo = 120.0;
    host.info.flags = HostTimeInfo::kTempoValid;
    DelayEngine engine(host);
    host.engine = &engine;
    engine.setTapSchedule(setup.schedule);
    setUpEngine(engine, setup.taps, setup.filters, setup.modulators);
    engine.setSmoothDelayChanges(setup.smooth);
    const uint32_t n = setup.frames;
    // Stereo noise, a fresh stretch each block.
    const std::vector<float> source0 = noise(size_t(n) * 64, 1), source1 = noise(size_t(n) * 64, 2);
    std::vector<float> in0(n), in1(n), out0(n), out1(n);
    float* inputs[2] = {in0.data(), in1.data()};
    float* outputs[2] = {out0.data(), out1.data()};
    size_t block = 0;
    for (auto _ : state) {
        // Fresh inputs each block, as a host gives them (the vector mix
        // scales them in place).
        const size_t at = (block++ % 64) * n;
        std::copy(source0.begin() + at, source0.begin() + at + n, in0.begin());
        std::copy(source1.begin() + at, source1.begin() + at + n, in1.begin());
        for (int t = 0; setup.motion != Setup::kStill && t < kTapCount; ++t) {
            FilteredDelayTap& tap = engine.tap(t);
            if (setup.motion == Setup::kNoteValues) {
                tap.setParameter(kTapDelay, 0.3f + 0.04f * float(t) + float(block % 2) / 24.0f);
            } else {
                tap.setSync(false);
                tap.setDelaySamples(300 + uint32_t(block * 7 + size_t(t)) % 10);
            }
        }
        engine.processReplacing(inputs, outputs, int32_t(n));
        benchmark::DoNotOptimize(out0.data());
    }
    countFrames(state, n);
    forceScalarForTesting(false);
    allowAvx2ForTesting(true);
}

// The worst case in each form.
void BM_WorstCase(benchmark::State& state) { runEngine(state, Setup{}); }
void BM_WorstCaseSse2(benchmark::State& state) {
    Setup setup;
    setup.avx2 = false;
    runEngine(state, setup);
}
void BM_WorstCaseScalar(benchmark::State& state) {
    Setup setup;
    setup.scalar = true;
    runEngine(state, setup);
}
// With "Smooth Delay Time Changes" (range 1) or without, lengths that stay
// (range 0 = Setup::kStill) or move every block.
void BM_WorstCaseMotion(benchmark::State& state) {
    Setup setup;
    setup.motion = Setup::Motion(state.range(0));
    setup.smooth = state.range(1) != 0;
    runEngine(state, setup);
}
void BM_WorstCasePlain(benchmark::State& state) {
    Setup setup;
    setup.schedule = DelayEngine::TapSchedule::kSequential;
    runEngine(state, setup);
}

// The cost table: {active taps, filters, modulators, block frames}.
void BM_Cost(benchmark::State& state) {
    Setup setup;
    setup.taps = int(state.range(0));
    setup.filters = state.range(1) != 0;
    setup.modulators = state.range(2) != 0;
    setup.frames = uint32_t(state.range(3));
    runEngine(state, setup);
}

// Every tap idle: routed to "***" (no source, no destination), lines silent.
void BM_AllTapsIdle(benchmark::State& state) {
    Setup setup;
    setup.taps = 0;
    runEngine(state, setup);
}

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

BENCHMARK(BM_WorstCase);
BENCHMARK(BM_WorstCaseSse2);
BENCHMARK(BM_WorstCaseScalar);
BENCHMARK(BM_WorstCasePlain);
BENCHMARK(BM_WorstCaseMotion)->ArgsProduct({{Setup::kStill, Setup::kNoteValues, Setup::kShortLengths}, {0, 1}});
BENCHMARK(BM_AllTapsIdle);
BENCHMARK(BM_Cost)->ArgsProduct({{1, 2, 5, 10}, {0, 1}, {0, 1}, {16, 64, 512, 4096}});
BENCHMARK(BM_TapDelayLoopScalar);
BENCHMARK(BM_TapDelayLoopVector);
BENCHMARK(BM_TapDelayLoopVectorLanes);
BENCHMARK(BM_TapFilterLoop);
BENCHMARK(BM_SanitizeScalar);
BENCHMARK(BM_SanitizeVector);

}  // namespace
}  // namespace varitap

BENCHMARK_MAIN();
