#include "engine/DelayEngine.h"

#include <algorithm>
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

// Rows of the waves' working memory, kChunkFrames floats each.
constexpr uint32_t kLaneRow = 0;                                  // interleaved filter lanes
constexpr uint32_t kGainRow = kLaneRow + FilterLanes::kMaxLanes;  // one tap's gain ramp
constexpr uint32_t kSilenceRow = kGainRow + 1;                    // zeros
constexpr uint32_t kOnesRow = kSilenceRow + 1;                     // ones
constexpr uint32_t kWaveRows = kOnesRow + 1;

float* allocateWaveMemory() {
    void* memory = nullptr;
    const size_t bytes = size_t(kWaveRows) * DelayEngine::kChunkFrames * sizeof(float);
    if (posix_memalign(&memory, 32, bytes) != 0) return nullptr;
    std::memset(memory, 0, bytes);
    float* rows = static_cast<float*>(memory);
    std::fill_n(rows + size_t(kOnesRow) * DelayEngine::kChunkFrames, DelayEngine::kChunkFrames, 1.0f);
    return rows;
}

// lanes rows of count samples into samples[i * lanes + l], four rows at a
// time, and back (the first `used` rows).
void interleave(const float* const* rows, uint32_t lanes, float* samples, uint32_t count) {
    uint32_t l = 0;
    for (; l + 4 <= lanes; l += 4) {
        const float *r0 = rows[l], *r1 = rows[l + 1], *r2 = rows[l + 2], *r3 = rows[l + 3];
        float* out = samples + l;
        for (uint32_t i = 0; i < count; ++i, out += lanes) {
            out[0] = r0[i];
            out[1] = r1[i];
            out[2] = r2[i];
            out[3] = r3[i];
        }
    }
    for (; l < lanes; ++l) {
        const float* r = rows[l];
        float* out = samples + l;
        for (uint32_t i = 0; i < count; ++i, out += lanes) *out = r[i];
    }
}

void deinterleave(const float* samples, uint32_t lanes, float* const* rows, uint32_t used,
                  uint32_t count) {
    uint32_t l = 0;
    for (; l + 4 <= used; l += 4) {
        float *r0 = rows[l], *r1 = rows[l + 1], *r2 = rows[l + 2], *r3 = rows[l + 3];
        const float* in = samples + l;
        for (uint32_t i = 0; i < count; ++i, in += lanes) {
            r0[i] = in[0];
            r1[i] = in[1];
            r2[i] = in[2];
            r3[i] = in[3];
        }
    }
    for (; l < used; ++l) {
        float* r = rows[l];
        const float* in = samples + l;
        for (uint32_t i = 0; i < count; ++i, in += lanes) r[i] = *in;
    }
}

bool allZero(const float* samples, uint32_t n) {
    for (uint32_t i = 0; i < n; ++i)
        if (samples[i] != 0.0f) return false;
    return true;
}

bool contains(const float* const* list, int count, const float* buffer) {
    for (int i = 0; i < count; ++i)
        if (list[i] == buffer) return true;
    return false;
}

// The state a filter type outputs.
FilterLanes::Output laneOutput(int32_t type) {
    switch (type) {
        case TapFilter::kLowPass: return FilterLanes::kLow;
        case TapFilter::kHighPass: return FilterLanes::kHigh;
        case TapFilter::kBandPass: return FilterLanes::kBand;
        default: return FilterLanes::kNotch;
    }
}

}  // namespace

// One tap's part in a block run in waves.
struct DelayEngine::TapJob {
    bool running;           // false: skipped (silent) for the whole block
    bool silenceSource;     // reads the silence row (no chunk offset)
    bool inputSilent;       // every source sample is an exact zero
    bool cleanSource;       // the source is a bus, cleaned as the tap reads it
    bool runaway;           // the filter ran away: the tap adds silence, then is silenced
    bool filtered;          // the filter is on
    bool compareRamp;       // the gain stops at the volume (tapLoopScalar's ramp)
    bool ramp;              // the gain moves during the block
    float* source;
    float* destination;     // null: the signal is discarded
    TapBlock block;
    uint32_t position;      // the head, carried from chunk to chunk
    float gain;             // the next sample's gain
    float step;             // its increment
    int32_t type;           // filter type
    TapFilter::Coefficients coefficients;
    TapFilter::State state;
};

DelayEngine::DelayEngine(EngineHost& host)
    : host_(host), pool_(ScratchPool::acquire()), systemInfo_(SystemInfo::acquire()) {
    waveMemory_ = allocateWaveMemory();
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
    std::free(waveMemory_);
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

void DelayEngine::setSmoothDelayChanges(bool on) {
    for (auto& tap : taps_) tap->setSmoothDelayChanges(on);
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
    return bus ? bus : scratchBus_;
}

// Buses carry what earlier taps added in this block; they are cleaned in
// place as a tap reads them, so that chains of taps (each line able to hold
// a few times 2^44 under full feedback) can never build up to an overflow.
bool DelayEngine::isBus(const float* buffer) const {
    for (const float* bus : internalBuses_)
        if (buffer == bus) return true;
    for (int32_t i = 0; i < numOutputs_; ++i)
        if (buffer == wetBuses_[i]) return true;
    return false;
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

    if (schedule_ == TapSchedule::kWaves)
        runTapsInWaves(inputs, n, samplesPerBeat, automationWriting, songPosition);
    else
        runTapsSequential(inputs, n, samplesPerBeat, automationWriting, songPosition);

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

void DelayEngine::runTapsSequential(float** inputs, uint32_t n, float samplesPerBeat,
                                    bool alignToSong, double songPosition) {
    const size_t bytes = n * sizeof(float);
    for (int t = 0; t < kTapCount; ++t) {
        float* destination = resolveDestination(tapOutputSelector_[t]);
        float* source = resolveSource(tapInputSelector_[t], inputs, n);
        if (isBus(source)) kernels().sanitize(source, source, n);
        taps_[t]->process(source, destination, n, samplesPerBeat, alignToSong, songPosition);
        if (source == scratchBus_ || destination == scratchBus_) std::memset(scratchBus_, 0, bytes);
    }
}

// The taps in waves: a wave is a run of taps in index order in which no tap
// reads a bus that an earlier tap of the wave adds into. Within a wave every
// tap's line runs first over the whole block, each into its own row (so every
// source is read before anything is added), then the wave's filters run side
// by side, kChunkFrames at a time, then each tap's signal is added into its
// destination in tap order, so every sum rounds as it would tap by tap.
//
// The scratch bus is cleared after each tap that uses it in the plain form:
// the first tap to use it reads what it held, every later reader reads
// silence, and what is added into it is never heard.
void DelayEngine::runTapsInWaves(float** inputs, uint32_t n, float samplesPerBeat,
                                 bool alignToSong, double songPosition) {
    bool filterFirst = false;
    for (auto& tap : taps_) filterFirst = filterFirst || tap->isFilterFirst();
    // One row of n samples per tap: what each tap adds this block.
    ScratchBlock signals(pool_, kTapCount * n);
    if (!waveMemory_ || !signals || filterFirst) {
        runTapsSequential(inputs, n, samplesPerBeat, alignToSong, songPosition);
        return;
    }
    const bool compareRamp = kernels().tapLoop == tapLoopScalar;
    float* silence = waveMemory_ + size_t(kSilenceRow) * kChunkFrames;
    TapJob jobs[kTapCount];
    // Buffers that running taps add into (or scale in place), so far.
    const float* written[2 * kTapCount];
    int writtenCount = 0;
    bool scratchUsed = false;
    for (int t = 0; t < kTapCount; ++t) {
        TapJob& job = jobs[t];
        FilteredDelayTap& tap = *taps_[t];
        float* destination = resolveDestination(tapOutputSelector_[t]);
        float* source = resolveSource(tapInputSelector_[t], inputs, n);
        job.silenceSource = source == scratchBus_ && scratchUsed;
        scratchUsed = scratchUsed || source == scratchBus_ || destination == scratchBus_;
        job.source = job.silenceSource ? silence : source;
        job.destination = destination == scratchBus_ ? nullptr : destination;
        job.block = tap.beginBlock(n, samplesPerBeat, alignToSong, songPosition);
        job.position = job.block.position;
        // Buses are cleared at the start of the block: one that no earlier
        // tap has added into is silent without looking. What earlier taps
        // add is cleaned chunk by chunk just before the line reads it (no
        // tap of a wave reads what an earlier tap of the wave adds to, so
        // the bus holds then what the plain form cleans).
        const bool clearedBus = isBus(source);
        job.cleanSource = clearedBus;
        job.inputSilent = job.silenceSource ||
                          (!contains(written, writtenCount, source) && (clearedBus || allZero(source, n)));
        const TapBlock& block = job.block;
        TapFilter& filter = tap.filter();
        job.running = true;
        if (!block.line) {
            // Passing the input through scales it in place.
            if (!job.silenceSource) written[writtenCount++] = source;
        } else if (!block.smooth && job.inputSilent && tap.isLineSilent() && std::isfinite(block.feedback) &&
                   std::isfinite(block.appliedVolume) && std::isfinite(block.volume)) {
            // Silence in, silence in the line (and no fade, which may still
            // sound): nothing to hear, nothing to filter; only the head moves.
            tap.skipBlock(block, n);
            // The filter's state is checked after every block, as in
            // FilteredDelayTap::process (silence leaves it as it is).
            if (filter.hasRunAway()) tap.silence();
            job.running = false;
            continue;
        }
        job.type = filter.type();
        job.filtered = job.type != TapFilter::kOff;
        if (job.filtered) {
            job.coefficients = filter.coefficients();  // under the filter's lock
            job.state = filter.state();
        }
        // A filter that is off keeps its state as it is; the lanes check the
        // others' after running them.
        job.runaway = !job.filtered && filter.hasRunAway();
        // The gain ramp of the loop the plain form runs: tapLoopScalar's
        // stops at the volume; the vector routine's tail starts at
        // appliedVolume + step * 0 and adds step every sample.
        job.compareRamp = compareRamp || block.length == 0;
        job.step = (block.volume - block.appliedVolume) / static_cast<float>(n);
        // A fading tap runs DelayTap::runSmooth in both forms, with its ramp.
        job.gain = job.compareRamp || block.smooth ? block.appliedVolume : block.appliedVolume + job.step * 0.0f;
        job.ramp = job.step != 0.0f;
        if (job.destination) written[writtenCount++] = job.destination;
    }

    // Waves: cut where a tap reads what an earlier tap of the wave adds to.
    int waveStart[kTapCount + 1];
    int waves = 0;
    const float* waveWrites[kTapCount];
    int waveWriteCount = 0;
    for (int t = 0; t < kTapCount; ++t) {
        if (!jobs[t].running) continue;
        if (waves == 0 || contains(waveWrites, waveWriteCount, jobs[t].source)) {
            waveStart[waves++] = t;
            waveWriteCount = 0;
        }
        if (jobs[t].destination) waveWrites[waveWriteCount++] = jobs[t].destination;
    }
    waveStart[waves] = kTapCount;

    for (int w = 0; w < waves; ++w) runWave(jobs, waveStart[w], waveStart[w + 1], n, signals.data());

    for (int t = 0; t < kTapCount; ++t) {
        const TapJob& job = jobs[t];
        if (!job.running) continue;
        if (job.block.line) taps_[t]->endBlock(job.block, n, job.position, job.inputSilent);
        if (job.runaway)
            taps_[t]->silence();
        else if (job.filtered)
            taps_[t]->filter().setState(job.state);
    }
    if (scratchUsed) std::memset(scratchBus_, 0, n * sizeof(float));
}

void DelayEngine::runWave(TapJob* jobs, int first, int end, uint32_t n, float* signals) {
    const Kernels& k = kernels();
    auto row = [this](uint32_t r) { return waveMemory_ + size_t(r) * kChunkFrames; };
    auto signal = [signals, n](int t) { return signals + size_t(t) * n; };
    float* gains = row(kGainRow);
    float* silence = row(kSilenceRow);

    // Every line of the wave over the whole block, each into its own row.
    for (int t = first; t < end; ++t) {
        TapJob& job = jobs[t];
        if (!job.running) continue;
        const TapBlock& block = job.block;
        for (uint32_t offset = 0; offset < n; offset += kChunkFrames) {
            const uint32_t count = n - offset < kChunkFrames ? n - offset : kChunkFrames;
            float* out = signal(t) + offset;
            float* source = job.silenceSource ? silence : job.source + offset;
            if (job.cleanSource) k.sanitize(source, source, count);
            if (!block.line) {
                std::memset(out, 0, count * sizeof(float));
                DelayTap::addUndelayed(source, out, count, block.volume);
                if (job.silenceSource) std::memset(silence, 0, kChunkFrames * sizeof(float));
                continue;
            }
            if (block.smooth) {
                std::memset(out, 0, count * sizeof(float));
                job.position = taps_[t]->runSmooth(block, job.position, source, out, count, job.gain, job.step);
                continue;
            }
            if (job.ramp) {
                float gain = job.gain;
                if (job.compareRamp) {
                    for (uint32_t i = 0; i < count; ++i) {
                        gains[i] = gain;
                        if (gain != block.volume) gain += job.step;
                    }
                } else {
                    for (uint32_t i = 0; i < count; ++i) {
                        gains[i] = gain;
                        gain += job.step;
                    }
                }
                job.gain = gain;
            }
            job.position = k.tapDelay(block.line, job.position, block.length, source, out, count,
                                      block.feedback, job.ramp ? gains : nullptr, job.gain);
        }
    }

    // The wave's filters side by side, one tap per lane.
    int lanes[FilterLanes::kMaxLanes];
    int laneCount = 0;
    for (int t = first; t < end; ++t)
        if (jobs[t].running && jobs[t].filtered) lanes[laneCount++] = t;
    if (laneCount > 0) {
        const uint32_t stride = (uint32_t(laneCount) + k.laneWidth - 1) / k.laneWidth * k.laneWidth;
        FilterLanes filter;
        filter.output = laneOutput(jobs[lanes[0]].type);
        for (uint32_t l = 0; l < stride; ++l) {
            const bool used = l < uint32_t(laneCount);
            const TapJob* job = used ? &jobs[lanes[l]] : nullptr;
            const FilterLanes::Output output = used ? laneOutput(job->type) : FilterLanes::kBand;
            if (used && output != filter.output) filter.output = FilterLanes::kMixed;
            // Padding lanes: no coefficients, so their state stays at zero.
            filter.frequency[l] = used ? job->coefficients.frequency : 0.0;
            filter.damping[l] = used ? job->coefficients.damping : 0.0;
            filter.drive[l] = used ? job->coefficients.drive : 0.0;
            filter.notch[l] = used ? job->state.notch : 0.0;
            filter.low[l] = used ? job->state.low : 0.0;
            filter.high[l] = used ? job->state.high : 0.0;
            filter.band[l] = used ? job->state.band : 0.0;
            filter.pickNotch[l] = output == FilterLanes::kNotch ? ~uint64_t(0) : 0;
            filter.pickLow[l] = output == FilterLanes::kLow ? ~uint64_t(0) : 0;
            filter.pickHigh[l] = output == FilterLanes::kHigh ? ~uint64_t(0) : 0;
        }
        // Padding lanes read a row of ones: a nonzero sample, so that no
        // lane of theirs is ever taken for silence.
        float* interleaved = row(kLaneRow);
        for (uint32_t offset = 0; offset < n; offset += kChunkFrames) {
            const uint32_t count = n - offset < kChunkFrames ? n - offset : kChunkFrames;
            float* rows[FilterLanes::kMaxLanes];
            for (uint32_t l = 0; l < stride; ++l)
                rows[l] = l < uint32_t(laneCount) ? signal(lanes[l]) + offset : row(kOnesRow);
            interleave(rows, stride, interleaved, count);
            k.filterLanes(interleaved, count, stride, filter);
            deinterleave(interleaved, stride, rows, uint32_t(laneCount), count);
        }
        for (int l = 0; l < laneCount; ++l) {
            TapJob& job = jobs[lanes[l]];
            job.state.notch = filter.notch[l];
            job.state.low = filter.low[l];
            job.state.high = filter.high[l];
            job.state.band = filter.band[l];
            job.runaway = TapFilter::hasRunAway(job.state);
        }
    }

    // Into the destinations, in tap order. As in FilteredDelayTap::process,
    // a tap whose filter ran away adds silence (zeros are still added, so
    // every sum rounds as in the plain form); it is silenced at the end.
    for (int t = first; t < end; ++t) {
        const TapJob& job = jobs[t];
        if (!job.running || !job.destination) continue;
        if (job.runaway) std::memset(signal(t), 0, n * sizeof(float));
        k.vadd(signal(t), job.destination, job.destination, n);
    }
}

}  // namespace varitap
