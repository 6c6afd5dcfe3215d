// The processing half of the plug-in instance: ten filtered taps, ten
// modulators, the routing matrix and its buses, the wet/dry mix, and the
// block operations that run them. It reaches the plug-in only through
// EngineHost (time information, pin connections, parameters, sample rate).
#pragma once

#include <atomic>
#include <cstdint>

#include "engine/EngineHost.h"
#include "engine/ParameterLayout.h"
#include "engine/Relaxed.h"
#include "modulation/FilteredDelayTap.h"
#include "modulation/RecursiveMutex.h"
#include "modulation/TableModulator.h"

namespace varitap {

class ScratchPool;
class SystemInfo;

class DelayEngine {
public:
    // Every bus holds this many samples: the longest block processed.
    static constexpr uint32_t kBusSamples = 44100;
    // The delay every tap starts with (the longest free delay).
    static constexpr uint32_t kInitialDelaySamples = 56000;
    // Request flags of the time information: tempo valid, automation writing.
    static constexpr int32_t kTimeRequestFlags =
        HostTimeInfo::kTempoValid | HostTimeInfo::kAutomationWriting;

    // construction thread. Retains (or creates) the shared ScratchPool and
    // SystemInfo, builds the taps (grown to 56000 samples, head at 0), the
    // modulators (target host, table of 8, restarted), the scratch and
    // internal buses and wet buses for two outputs. The host must outlive the
    // engine.
    explicit DelayEngine(EngineHost& host);
    ~DelayEngine();
    DelayEngine(const DelayEngine&) = delete;
    DelayEngine& operator=(const DelayEngine&) = delete;

    // audio thread. The block operations: one core, replacing or
    // accumulating in the final mix. Blocks of more than kBusSamples frames
    // (and negative counts) are refused and leave the outputs untouched.
    // Takes the modulator lock without waiting (skipping the modulators for
    // the block when busy), each filter's lock briefly and the ScratchPool's
    // lock. Allocates nothing in steady state. Every call first carries out
    // what suspend, resume and setSampleRate asked for. The block runs with
    // subnormals flushed to zero (FloatMode.h); the caller's mode is restored
    // before the call returns. Input samples that are not numbers or lie past
    // kSampleCeiling are read as silence (VectorOps.h). processReplacing
    // writes every host output below the host output count: outputs without
    // a wet bus get silence.
    void processReplacing(float** inputs, float** outputs, int32_t sampleFrames);
    void process(float** inputs, float** outputs, int32_t sampleFrames);

    // ui thread, never during a block (hosts change the configuration while
    // suspended). Rebuilds the wet buses for n outputs (0..20); false and no
    // change for other counts or when memory cannot be had.
    bool setOutputChannelCount(int32_t n);
    int32_t outputChannelCount() const { return numOutputs_; }
    // ui thread, never during a block. How many input and output arrays the
    // host passes to the block operations (0..20 each; default 2 and 2). Pins
    // at or above these counts are treated as unconnected: never read, never
    // written. Each input gets a bus for its cleaned samples; false and no
    // change when memory cannot be had.
    bool setInputChannelCount(int32_t n);
    int32_t inputChannelCount() const { return numInputs_; }
    bool setHostOutputCount(int32_t n);
    int32_t hostOutputCount() const { return numHostOutputs_; }

    // ui thread (or any other, also during a block). suspend: clears every
    // tap's line and filter state. resume: restarts the modulators, then
    // resets the tap heads. setSampleRate: passes the rate to every tap (the
    // display, the filter's coefficients under its lock) and every modulator,
    // then restarts the modulators.
    // The work on lines, heads and phases is only requested here: the audio
    // thread carries it out at the start of its next block call. A line may
    // be reallocated inside a block (a synchronised length that outgrows it),
    // so no other thread may touch line memory; hosts should not suspend
    // during a block, yet some do, and a request costs the audio thread no
    // lock and no wait. Requests merge: the three operations touch separate
    // state, so their order within one block does not matter.
    void suspend();
    void resume();
    void setSampleRate(float rate);
    // ui thread. Sets or clears every tap's resample flag at once.
    void setResample(bool on);
    // ui thread. "Smooth Delay Time Changes" for every tap at once
    // (DelayTap::setSmoothDelayChanges).
    void setSmoothDelayChanges(bool on);

    // any thread, no lock. The values of parameters 0..240 (channel
    // selectors, wet/dry, taps, modulators), without program storage or editor
    // notification, which belong to the plug-in. Other indices are ignored
    // (read as 0.0).
    void setParameter(int32_t index, float value);
    float getParameter(int32_t index) const;

    // any thread, no lock. Routing values, clamped to 0..1 (NaN as 0), and the
    // selector each maps to: truncate(44 v) for inputs, truncate(24 v) for
    // outputs.
    void setInputChannel(int tap, float value);
    void setOutputChannel(int tap, float value);
    float inputChannelValue(int tap) const { return inputChannelValue_[tap]; }
    float outputChannelValue(int tap) const { return outputChannelValue_[tap]; }
    int32_t inputSelector(int tap) const { return tapInputSelector_[tap]; }
    int32_t outputSelector(int tap) const { return tapOutputSelector_[tap]; }
    // The dry share of the output: 0 all wet, 1 all dry.
    void setWetDry(float value);
    float wetDry() const { return wetDry_; }

    FilteredDelayTap& tap(int t) { return *taps_[t]; }
    const FilteredDelayTap& tap(int t) const { return *taps_[t]; }
    TableModulator& modulator(int m) { return *modulators_[m]; }
    const TableModulator& modulator(int m) const { return *modulators_[m]; }
    // Held (waiting) by whoever changes modulator state as a whole, such as
    // saving and restoring presets; the block operations only try it.
    RecursiveMutex& modulatorLock() { return modulatorLock_; }

    // audio or ui thread, between blocks. How the taps of a block are run:
    // kWaves (the default) groups them into waves by their routing and runs
    // each wave's filters side by side in vector lanes; kSequential runs
    // them one after another, each whole (the plain form the waves are
    // compared with sample for sample). Both give the same samples.
    enum class TapSchedule { kWaves, kSequential };
    void setTapSchedule(TapSchedule schedule) { schedule_ = schedule; }
    TapSchedule tapSchedule() const { return schedule_; }

    // Read-outs for tests: the buses and the values derived from the last
    // time information.
    const float* internalBus(int i) const { return internalBuses_[i]; }
    const float* scratchBus() const { return scratchBus_; }
    float lastSamplesPerBeat() const { return samplesPerBeat_; }
    double lastTempo() const { return tempo_; }

    // The samples per beat for a tempo and sample rate: 60 / tempo * rate in
    // single precision; 1.0 when the tempo is not a positive finite number
    // (no tempo means lengths of a few samples, never an infinite one).
    static float samplesPerBeatFor(double tempo, float sampleRate);

    // Frames the lines and filters of a wave run at a time: the interleaved
    // filter lanes stay in the first-level cache.
    static constexpr uint32_t kChunkFrames = 256;

private:
    struct TapJob;
    // Bits of requests_.
    enum Request : uint32_t { kSilenceTaps = 1, kRestartModulators = 2, kResetHeads = 4 };
    void request(uint32_t what);
    void carryOutRequests();
    void run(float** inputs, float** outputs, int32_t sampleFrames, bool replacing);
    void runTapsSequential(float** inputs, uint32_t n, float samplesPerBeat, bool alignToSong,
                           double songPosition);
    void runTapsInWaves(float** inputs, uint32_t n, float samplesPerBeat, bool alignToSong,
                        double songPosition);
    void runWave(TapJob* jobs, int first, int end, uint32_t n, float* signals);
    // Host input pin, cleaned into its input bus once per block; null when
    // the pin cannot be read.
    float* hostInput(int32_t pin, float** inputs, uint32_t n);
    // What a tap reads: a cleaned host input, a wet or internal bus (not
    // cleaned here: see isBus) or the scratch bus.
    float* resolveSource(int32_t selector, float** inputs, uint32_t n);
    // Whether buffer is a wet or an internal bus: what earlier taps of the
    // block add into, cleaned in place as a tap reads it.
    bool isBus(const float* buffer) const;
    float* resolveDestination(int32_t selector);
    void freeWetBuses();

    EngineHost& host_;
    ScratchPool* pool_ = nullptr;        // retained shared pool
    SystemInfo* systemInfo_ = nullptr;   // retained shared probe
    float** wetBuses_ = nullptr;         // numOutputs_ buses of kBusSamples, null-ended
    int32_t numOutputs_ = 0;             // wet buses
    int32_t numInputs_ = 0;              // host input arrays that may be read
    float* inputBuses_[kMaxChannels] = {};  // the host inputs, cleaned (one per pin below numInputs_)
    uint32_t cleanedInputs_ = 0;         // bit i: inputBuses_[i] holds this block's input i
    int32_t numHostOutputs_ = 2;         // host output arrays that may be written
    float* scratchBus_ = nullptr;        // no connection: silence source and discard sink
    float* internalBuses_[kInternalBusCount] = {};  // "Intern 1..4"
    // The waves' working memory (audio thread), kChunkFrames per row:
    // kMaxLanes rows of interleaved filter lanes, a row of gains, a row of
    // silence and a row of ones. Each tap's signal for the block is in a
    // ScratchPool block.
    float* waveMemory_ = nullptr;
    TapSchedule schedule_ = TapSchedule::kWaves;
    Relaxed<float> wetDry_{0.0f};        // dry share of the output
    RefPtr<FilteredDelayTap> taps_[kTapCount];      // run in index order
    RefPtr<TableModulator> modulators_[kModulatorCount];
    Relaxed<float> inputChannelValue_[kTapCount];
    Relaxed<float> outputChannelValue_[kTapCount];
    Relaxed<int32_t> tapInputSelector_[kTapCount];   // source of each tap
    Relaxed<int32_t> tapOutputSelector_[kTapCount];  // destination of each tap
    RecursiveMutex modulatorLock_;
    std::atomic<uint32_t> requests_{0};  // Request bits posted for the audio thread
    // Derived from the last block's time information (audio thread).
    double tempo_ = 0.0;
    float samplesPerBeat_ = 1.0f;
};

}  // namespace varitap
