#include "engine/DelayEngine.h"

#include <cmath>
#include <cstdlib>
#include <cstring>

#include "engine/FloatMode.h"
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
    setInputChannelCount(2);
}

DelayEngine::~DelayEngine() {
    freeWetBuses();
    for (float* bus : inputBuses_) std::free(bus);
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
    // Input buses are kept once made: a later, smaller count leaves them for
    // the next larger one.
    for (int32_t i = 0; i < n; ++i) {
        if (!inputBuses_[i]) inputBuses_[i] = allocateBus();
        if (!inputBuses_[i]) return false;
    }
    numInputs_ = n;
    return true;
}

bool DelayEngine::setHostOutputCount(int32_t n) {
    if (n < 0 || n > kMaxChannels) return false;
    numHostOutputs_ = n;
    return true;
}

void DelayEngine::request(uint32_t what) {
    // Release: what the caller stored before (a sample rate) is seen by the
    // audio thread that takes the request.
    requests_.fetch_or(what, std::memory_order_release);
}

void DelayEngine::suspend() { request(kSilenceTaps); }

void DelayEngine::resume() { request(kRestartModulators | kResetHeads); }

void DelayEngine::setSampleRate(float rate) {
    for (auto& tap : taps_) tap->setSampleRate(rate);
    // The rate itself at once, for displays; the phases with the restart.
    for (auto& modulator : modulators_) modulator->setSampleRate(rate);
    request(kRestartModulators);
}

void DelayEngine::carryOutRequests() {
    if (requests_.load(std::memory_order_relaxed) == 0) return;
    const uint32_t requests = requests_.exchange(0, std::memory_order_acquire);
    if (requests & kSilenceTaps) {
        for (auto& tap : taps_) tap->silence();
    }
    if (requests & kRestartModulators) {
        for (auto& modulator : modulators_) modulator->restart();
    }
    if (requests & kResetHeads) {
        for (auto& tap : taps_) tap->resetPosition();
    }
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

// The host's samples are copied, never cleaned in place: the host may hand
// the same input to others after us.
float* DelayEngine::hostInput(int32_t pin, float** inputs, uint32_t n) {
    if (pin >= numInputs_ || !inputs || !inputs[pin] || !host_.isInputConnected(pin)) return nullptr;
    float* bus = inputBuses_[pin];
    const uint32_t bit = 1u << pin;
    if (!(cleanedInputs_ & bit)) {
        kernels().sanitize(inputs[pin], bus, n);
        cleanedInputs_ |= bit;
    }
    return bus;
}

// Buses carry what earlier taps added in this block; they are cleaned in
// place as a tap reads them, so that chains of taps (each line able to hold
// a few times 2^44 under full feedback) can never build up to an overflow.
float* DelayEngine::resolveSource(int32_t selector, float** inputs, uint32_t n) {
    float* bus = nullptr;
    if (selector >= kInputFirstHost && selector < kInputFirstWet) {
        if (float* input = hostInput(selector - kInputFirstHost, inputs, n)) return input;
    } else if (selector >= kInputFirstWet && selector < kInputFirstInternal) {
        const int32_t wet = selector - kInputFirstWet;
        if (wet < numOutputs_ && host_.isOutputConnected(wet)) bus = wetBuses_[wet];
    } else if (selector >= kInputFirstInternal &&
               selector < kInputFirstInternal + kInternalBusCount) {
        bus = internalBuses_[selector - kInputFirstInternal];
    }
    if (!bus) return scratchBus_;
    kernels().sanitize(bus, bus, n);
    return bus;
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
    // The one place the block's floating-point mode is set (and restored on
    // every return).
    FlushDenormals flush;
    carryOutRequests();
    if (sampleFrames < 0 || sampleFrames > int32_t(kBusSamples) || !wetBuses_ || !scratchBus_)
        return;
    if (sampleFrames == 0) return;  // nothing to produce, nothing to advance
    const uint32_t n = uint32_t(sampleFrames);
    const size_t bytes = n * sizeof(float);
    cleanedInputs_ = 0;

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
        float* source = resolveSource(tapInputSelector_[t], inputs, n);
        taps_[t]->process(source, destination, n, samplesPerBeat, automationWriting, songPosition);
        if (source == scratchBus_ || destination == scratchBus_) std::memset(scratchBus_, 0, bytes);
    }

    const MixReplace mix = kernels().mixReplace;
    const float wetDry = wetDry_;
    for (int32_t i = 0; i < numOutputs_; ++i) {
        float* input = hostInput(i, inputs, n);
        float* dry = input ? input : scratchBus_;
        float* wet = wetBuses_[i];
        float* destination = i < numHostOutputs_ && outputs && outputs[i] && host_.isOutputConnected(i)
                                 ? outputs[i]
                                 : scratchBus_;
        if (replacing)
            mix(wet, dry, destination, n, wetDry);
        else
            mixAccumulate(wet, destination, n, wetDry);
    }
    // Host outputs past the wet buses (a mono arrangement on a stereo
    // record): nothing feeds them, and a replacing block must still write
    // them.
    if (replacing && outputs) {
        for (int32_t i = numOutputs_; i < numHostOutputs_; ++i)
            if (outputs[i]) std::memset(outputs[i], 0, bytes);
    }
}

}  // namespace varitap
