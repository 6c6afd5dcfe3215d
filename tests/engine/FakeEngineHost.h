// A plug-in instance stand-in for driving the engine without the VST layer:
// scripted time information and pin connections, parameters routed to the
// engine, writes counted. Allocates nothing after construction.
#pragma once

#include <cstdio>
#include <cstring>

#include "engine/DelayEngine.h"
#include "engine/EngineHost.h"
#include "engine/ParameterLayout.h"
#include "persistence/SystemInfo.h"

namespace varitap::test {

class FakeEngineHost : public EngineHost {
public:
    FakeEngineHost() {
        for (bool& c : inputConnected) c = true;
        for (bool& c : outputConnected) c = true;
    }

    const HostTimeInfo* getTimeInfo(int32_t requestFlags) override {
        ++timeRequests;
        lastRequestFlags = requestFlags;
        return hasTimeInfo ? &timeInfo : nullptr;
    }
    bool isInputConnected(int32_t index) override {
        return index >= 0 && index < kMaxChannels && inputConnected[index];
    }
    bool isOutputConnected(int32_t index) override {
        return index >= 0 && index < kMaxChannels && outputConnected[index];
    }
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
    void getParameterName(int32_t index, char* text) override {
        // Enough of the real naming for the modulator's "Index" display.
        if (index >= kTapParameterBase && index < kModulatorParameterBase && engine) {
            const int i = index - kTapParameterBase;
            char word[kNameTextMax + 1] = {};
            engine->tap(i / kTapParameterCount).getParameterName(i % kTapParameterCount, word);
            std::snprintf(text, 64, "#%d: %.31s", i / kTapParameterCount + 1, word);
        } else if (index == kWetDryParameter) {
            std::strcpy(text, "Wet/Dry Mix Volume");
        }
    }

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
    bool inputConnected[kMaxChannels];
    bool outputConnected[kMaxChannels];
    float values[kParameterCount] = {};
    int timeRequests = 0;
    int32_t lastRequestFlags = 0;
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

// Forces the scalar loops for one scope.
class ScalarScope {
public:
    explicit ScalarScope(bool scalar) { forceScalarForTesting(scalar); }
    ~ScalarScope() { forceScalarForTesting(false); }
};

}  // namespace varitap::test
