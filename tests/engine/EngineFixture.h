// Driving the engine without the VST layer: a fake plug-in instance, host
// channel buffers and the patches the tests share.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "engine/DelayEngine.h"
#include "engine/EngineHost.h"
#include "engine/ParameterLayout.h"
#include "modulation/ScratchPool.h"
#include "persistence/SystemInfo.h"

namespace varitap::test {

// A plug-in instance stand-in: scripted time information and pin
// connections, parameters routed to the engine (or kept in `values` without
// one), writes counted. Allocates nothing after construction.
class FakeEngineHost : public EngineHost {
public:
    const HostTimeInfo* getTimeInfo(int32_t) override { return hasTimeInfo ? &timeInfo : nullptr; }
    bool isInputConnected(int32_t i) override { return i >= 0 && i < kMaxChannels && !inputUnplugged[i]; }
    bool isOutputConnected(int32_t i) override { return i >= 0 && i < kMaxChannels && !outputUnplugged[i]; }
    float getSampleRate() const override { return sampleRate; }

    float getParameter(int32_t index) override {
        if (engine) return engine->getParameter(index);
        return index >= 0 && index < kParameterCount ? values[index] : 0.0f;
    }
    void setParameter(int32_t index, float value) override {
        ++plainWrites;
        store(index, value);
    }
    void setParameterAutomated(int32_t index, float value) override {
        ++automatedWrites;
        store(index, value);
    }
    void getParameterName(int32_t, char*) override {}

    void setTime(double tempo, double samplePos, int32_t flags) {
        hasTimeInfo = true;
        timeInfo.tempo = tempo;
        timeInfo.samplePos = samplePos;
        timeInfo.sampleRate = sampleRate;
        timeInfo.flags = flags | HostTimeInfo::kTempoValid;
    }

    DelayEngine* engine = nullptr;
    HostTimeInfo timeInfo;
    bool hasTimeInfo = false;
    float sampleRate = 44100.0f;
    bool inputUnplugged[kMaxChannels] = {};
    bool outputUnplugged[kMaxChannels] = {};
    float values[kParameterCount] = {};
    int plainWrites = 0;
    int automatedWrites = 0;
    int32_t lastIndex = -1;
    float lastValue = 0.0f;

private:
    void store(int32_t index, float value) {
        lastIndex = index;
        lastValue = value;
        if (engine)
            engine->setParameter(index, value);
        else if (index >= 0 && index < kParameterCount)
            values[index] = value;
    }
};

// The heap allocations (operator new, and malloc outside AddressSanitizer
// builds) made by block(20) .. block(19 + blocks), after 20 calls that warm
// the scratch pool.
long allocationsIn(const std::function<void(int)>& block, int blocks = 1000);

// An engine and its fake host, wired both ways.
struct EngineRig {
    EngineRig() { host.engine = &engine; }
    FakeEngineHost host;
    DelayEngine engine{host};
};

// Runs a tap over a signal in blocks and collects what it adds to silence;
// with a song position, the transport plays from there in every block.
template <class Tap>
std::vector<float> runTap(Tap& tap, std::vector<float> input, uint32_t block, float samplesPerBeat = 1.0f,
                          std::optional<double> song = std::nullopt) {
    std::vector<float> output(input.size(), 0.0f);
    for (size_t at = 0; at < input.size(); at += block) {
        const uint32_t n = uint32_t(std::min<size_t>(block, input.size() - at));
        tap.process(input.data() + at, output.data() + at, n, samplesPerBeat, song.has_value(), song.value_or(0.0));
    }
    return output;
}

// Forces the scalar loops for one scope.
class ScalarScope {
public:
    explicit ScalarScope(bool scalar) { forceScalarForTesting(scalar); }
    ~ScalarScope() { forceScalarForTesting(false); }
};

// Names the instances of a suite parameterised on "scalar loops forced".
inline std::string scalarOrVector(const testing::TestParamInfo<bool>& info) {
    return info.param ? "Scalar" : "Vector";
}

// Host channel arrays. get() points the host's array at the samples each
// time, so that copies hand over their own; set() copies samples in.
struct Channels {
    Channels(int count, uint32_t frames, float fill = 0.0f) : data(count, std::vector<float>(frames, fill)) {}
    float** get() {
        pointers.clear();
        for (auto& channel : data) pointers.push_back(channel.data());
        return pointers.data();
    }
    std::vector<float>& operator[](int i) { return data[i]; }
    void set(int i, const std::vector<float>& samples) {
        std::copy(samples.begin(), samples.begin() + std::min(samples.size(), data[i].size()),
                  data[i].begin());
    }
    std::vector<std::vector<float>> data;
    std::vector<float*> pointers;
};

inline float inputValue(int selector) { return (float(selector) + 0.5f) / 44.0f; }
inline float outputValue(int selector) { return (float(selector) + 0.5f) / 24.0f; }

// A tap with a plain delay: filter off, no feedback, volume 0.5 (no ramp).
inline void plainTap(DelayEngine& engine, int t, uint32_t delay, int in, int out) {
    FilteredDelayTap& tap = engine.tap(t);
    tap.setDelaySamples(delay);
    tap.setFeedback(0.0f);
    tap.setParameter(kTapFilterType, 0.0f);
    engine.setInputChannel(t, inputValue(in));
    engine.setOutputChannel(t, outputValue(out));
}

// Every tap routed, filtered and fed back, every modulator running.
inline void busyPatch(DelayEngine& engine) {
    for (int t = 0; t < kTapCount; ++t) {
        engine.setInputChannel(t, inputValue(1 + t % 2));
        engine.setOutputChannel(t, outputValue(1 + (t + 1) % 2));
        FilteredDelayTap& tap = engine.tap(t);
        tap.setDelaySamples(1000 + 337 * uint32_t(t));
        tap.setFeedback(0.5f);
        tap.setParameter(kTapFilterType, float(1 + t % 4) / 4.0f);
        tap.setParameter(kTapCutoff, 0.1f + 0.08f * float(t));
        tap.setParameter(kTapResonance, 0.3f);
    }
    for (int m = 0; m < kModulatorCount; ++m) {
        TableModulator& modulator = engine.modulator(m);
        modulator.setIndex(tapParameterIndex(m, m % 2 ? kTapCutoff : kTapVolume));
        modulator.setType(m % 5);
        modulator.setSync(m % 2 == 0);
        modulator.setSpeed(0.3f + 0.05f * float(m));
        modulator.setMin(0.2f);
        modulator.setMax(0.8f);
        modulator.setPower(true);
    }
    engine.setWetDry(0.3f);
}

// n samples of silence but for value at `at`.
inline std::vector<float> impulse(uint32_t n, uint32_t at, float value) {
    std::vector<float> x(n, 0.0f);
    x[at] = value;
    return x;
}

inline std::vector<float> noise(size_t n, unsigned seed) {
    std::vector<float> x(n);
    for (size_t i = 0; i < n; ++i) {
        seed = seed * 1664525u + 1013904223u;
        x[i] = float(int32_t(seed >> 8) % 20000) / 20000.0f;
    }
    return x;
}

// Two channels of noise, one from each seed.
inline Channels noiseChannels(uint32_t frames, unsigned first, unsigned second) {
    Channels channels(2, frames);
    channels.set(0, noise(frames, first));
    channels.set(1, noise(frames, second));
    return channels;
}

// A modulator set free running at speed, aimed at index, on.
inline void freeModulator(TableModulator& modulator, int32_t index, float speed) {
    modulator.setIndex(index);
    modulator.setSync(false);
    modulator.setSpeed(speed);
    modulator.setPower(true);
}

}  // namespace varitap::test
