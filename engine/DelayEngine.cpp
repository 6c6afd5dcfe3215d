#include "engine/DelayEngine.h"

#include <cmath>
#include <cstdlib>
#include <cstring>

#include "engine/ParameterText.h"
#include "engine/VectorOps.h"
#include "modulation/ScratchPool.h"
#include "persistence/SystemInfo.h"

namespace varitap {

namespace {

// A zeroed bus of kBusSamples, 16-byte aligned for the 4-lane loops.
float* allocateBus() {
    void* memory = nullptr;
    if (posix_memalign(&memory, 16, DelayEngine::kBusSamples * sizeof(float)) != 0) return nullptr;
    std::memset(memory, 0, DelayEngine::kBusSamples * sizeof(float));
    return static_cast<float*>(memory);
}

}  // namespace

DelayEngine::DelayEngine(EngineHost& host)
    : host_(host), pool_(ScratchPool::acquire()), systemInfo_(SystemInfo::acquire()) {
    scratchBus_ = allocateBus();
    for (float*& bus : internalBuses_) bus = allocateBus();
    for (auto& tap : taps_) {
        tap = RefPtr<FilteredDelayTap>::adopt(new FilteredDelayTap);
        // Every line is grown at once to the longest free delay.
        tap->setDelaySamples(kInitialDelaySamples);
        tap->setPosition(0);
    }
    for (auto& modulator : modulators_) {
        modulator = RefPtr<TableModulator>::adopt(new TableModulator(&host_));
        modulator->setTarget(&host_);
        modulator->setTableSize(kModulatorTableSteps);
        modulator->restart();
    }
    for (int t = 0; t < kTapCount; ++t) {
        inputChannelValue_[t] = 0.0f;
        outputChannelValue_[t] = 0.0f;
        tapInputSelector_[t] = 0;
        tapOutputSelector_[t] = 0;
    }
    setOutputChannelCount(2);
}

DelayEngine::~DelayEngine() {
    freeWetBuses();
    std::free(scratchBus_);
    for (float* bus : internalBuses_) std::free(bus);
    if (systemInfo_) systemInfo_->release();
    // ScratchPool::release(void*) hides the reference release.
    if (pool_) static_cast<RefObject*>(pool_)->release();
}

void DelayEngine::freeWetBuses() {
    if (!wetBuses_) return;
    for (float** bus = wetBuses_; *bus; ++bus) std::free(*bus);
    delete[] wetBuses_;
    wetBuses_ = nullptr;
    numOutputs_ = 0;
}

bool DelayEngine::setOutputChannelCount(int32_t n) {
    if (n < 0 || n > kMaxChannels) return false;
    float** buses = new (std::nothrow) float*[size_t(n) + 1];
    if (!buses) return false;
    for (int32_t i = 0; i <= n; ++i) buses[i] = nullptr;
    for (int32_t i = 0; i < n; ++i) {
        buses[i] = allocateBus();
        if (!buses[i]) {
            for (int32_t j = 0; j < i; ++j) std::free(buses[j]);
            delete[] buses;
            return false;
        }
    }
    freeWetBuses();
    wetBuses_ = buses;
    numOutputs_ = n;
    return true;
}

bool DelayEngine::setInputChannelCount(int32_t n) {
    if (n < 0 || n > kMaxChannels) return false;
    numInputs_ = n;
    return true;
}

bool DelayEngine::setHostOutputCount(int32_t n) {
    if (n < 0 || n > kMaxChannels) return false;
    numHostOutputs_ = n;
    return true;
}

void DelayEngine::suspend() {
    for (auto& tap : taps_) tap->clearBuffer();
}

void DelayEngine::resume() {
    for (auto& modulator : modulators_) modulator->restart();
    for (auto& tap : taps_) tap->resetPosition();
}

void DelayEngine::setSampleRate(float rate) {
    for (auto& tap : taps_) tap->setSampleRate(rate);
    for (auto& modulator : modulators_) modulator->restart();
}

void DelayEngine::setResample(bool on) {
    for (auto& tap : taps_) tap->setResample(on);
}

void DelayEngine::setInputChannel(int tap, float value) {
    if (tap < 0 || tap >= kTapCount) return;
    inputChannelValue_[tap] = unitValue(value);
    tapInputSelector_[tap] = int32_t(unitValue(value) * float(kInputSelectorScale));
}

void DelayEngine::setOutputChannel(int tap, float value) {
    if (tap < 0 || tap >= kTapCount) return;
    outputChannelValue_[tap] = unitValue(value);
    tapOutputSelector_[tap] = int32_t(unitValue(value) * float(kOutputSelectorScale));
}

void DelayEngine::setWetDry(float value) { wetDry_ = unitValue(value); }

void DelayEngine::setParameter(int32_t index, float value) {
    if (index < 0 || index >= kParameterCount) return;
    if (index < kTapOutputParameterBase) {
        setInputChannel(index - kTapInputParameterBase, value);
    } else if (index < kWetDryParameter) {
        setOutputChannel(index - kTapOutputParameterBase, value);
    } else if (index == kWetDryParameter) {
        setWetDry(value);
    } else if (index < kModulatorParameterBase) {
        const int i = index - kTapParameterBase;
        taps_[i / kTapParameterCount]->setParameter(i % kTapParameterCount, value);
    } else {
        const int i = index - kModulatorParameterBase;
        modulators_[i / kModulatorParameterCount]->setParameter(i % kModulatorParameterCount, value);
    }
}

float DelayEngine::getParameter(int32_t index) const {
    if (index < 0 || index >= kParameterCount) return 0.0f;
    if (index < kTapOutputParameterBase) return inputChannelValue_[index - kTapInputParameterBase];
    if (index < kWetDryParameter) return outputChannelValue_[index - kTapOutputParameterBase];
    if (index == kWetDryParameter) return wetDry_;
    if (index < kModulatorParameterBase) {
        const int i = index - kTapParameterBase;
        return taps_[i / kTapParameterCount]->getParameter(i % kTapParameterCount);
    }
    const int i = index - kModulatorParameterBase;
    return modulators_[i / kModulatorParameterCount]->getParameter(i % kModulatorParameterCount);
}

const float* DelayEngine::wetBus(int i) const {
    return i >= 0 && i < numOutputs_ ? wetBuses_[i] : nullptr;
}

float DelayEngine::samplesPerBeatFor(double tempo, float sampleRate) {
    if (!(tempo > 0.0) || !std::isfinite(tempo)) return 1.0f;
    const float samplesPerBeat = float(60.0 / tempo * double(sampleRate));
    return std::isfinite(samplesPerBeat) && samplesPerBeat >= 0.0f ? samplesPerBeat : 1.0f;
}

float* DelayEngine::resolveSource(int32_t selector, float** inputs) {
    if (selector >= kInputFirstHost && selector < kInputFirstWet) {
        const int32_t pin = selector - kInputFirstHost;
        if (pin < numInputs_ && inputs && inputs[pin] && host_.isInputConnected(pin))
            return inputs[pin];
    } else if (selector >= kInputFirstWet && selector < kInputFirstInternal) {
        const int32_t bus = selector - kInputFirstWet;
        if (bus < numOutputs_ && host_.isOutputConnected(bus)) return wetBuses_[bus];
    } else if (selector >= kInputFirstInternal &&
               selector < kInputFirstInternal + kInternalBusCount) {
        if (float* bus = internalBuses_[selector - kInputFirstInternal]) return bus;
    }
    return scratchBus_;
}

// Selectors of 25 and up never come from the parameter mapping; like 0 they
// mean no connection.
float* DelayEngine::resolveDestination(int32_t selector) {
    if (selector >= kOutputFirstWet && selector < kOutputFirstInternal) {
        const int32_t bus = selector - kOutputFirstWet;
        if (bus < numOutputs_ && host_.isOutputConnected(bus)) return wetBuses_[bus];
    } else if (selector >= kOutputFirstInternal &&
               selector < kOutputFirstInternal + kInternalBusCount) {
        if (float* bus = internalBuses_[selector - kOutputFirstInternal]) return bus;
    }
    return scratchBus_;
}

void DelayEngine::processReplacing(float** inputs, float** outputs, int32_t sampleFrames) {
    run(inputs, outputs, sampleFrames, true);
}

void DelayEngine::process(float** inputs, float** outputs, int32_t sampleFrames) {
    run(inputs, outputs, sampleFrames, false);
}

void DelayEngine::run(float** inputs, float** outputs, int32_t sampleFrames, bool replacing) {
    if (sampleFrames < 0 || sampleFrames > int32_t(kBusSamples) || !wetBuses_ || !scratchBus_)
        return;
    if (sampleFrames == 0) return;  // nothing to produce, nothing to advance
    const uint32_t n = uint32_t(sampleFrames);
    const size_t bytes = n * sizeof(float);

    for (int32_t i = 0; i < numOutputs_; ++i) std::memset(wetBuses_[i], 0, bytes);
    for (float* bus : internalBuses_)
        if (bus) std::memset(bus, 0, bytes);

    double tempo = 0.0;
    float samplesPerBeat = 1.0f;
    double songPosition = 0.0;
    bool playing = false;
    bool automationWriting = false;
    if (const HostTimeInfo* info = host_.getTimeInfo(kTimeRequestFlags)) {
        tempo = info->tempo;
        samplesPerBeat = samplesPerBeatFor(tempo, host_.getSampleRate());
        if (info->flags & HostTimeInfo::kTransportPlaying) {
            songPosition = info->samplePos;
            playing = true;
        }
        if (info->flags & HostTimeInfo::kAutomationWriting) automationWriting = true;
    }
    tempo_ = tempo;
    samplesPerBeat_ = samplesPerBeat;

    {
        // The editor or a preset change holding the lock only costs the
        // modulators this block.
        ScopedTryLock lock(modulatorLock_);
        if (lock) {
            for (auto& modulator : modulators_)
                modulator->process(tempo, songPosition, n, playing, automationWriting);
        }
    }

    for (int t = 0; t < kTapCount; ++t) {
        float* destination = resolveDestination(tapOutputSelector_[t]);
        float* source = resolveSource(tapInputSelector_[t], inputs);
        taps_[t]->process(source, destination, n, samplesPerBeat, automationWriting, songPosition);
        if (source == scratchBus_ || destination == scratchBus_) std::memset(scratchBus_, 0, bytes);
    }

    const MixReplace mix = kernels().mixReplace;
    const float wetDry = wetDry_;
    for (int32_t i = 0; i < numOutputs_; ++i) {
        const bool inputConnected = i < numInputs_ && inputs && inputs[i] && host_.isInputConnected(i);
        float* dry = inputConnected ? inputs[i] : scratchBus_;
        float* wet = wetBuses_[i];
        float* destination = i < numHostOutputs_ && outputs && outputs[i] && host_.isOutputConnected(i)
                                 ? outputs[i]
                                 : scratchBus_;
        if (replacing)
            mix(wet, dry, destination, n, wetDry);
        else
            mixAccumulate(wet, destination, n, wetDry);
    }
}

}  // namespace varitap
