// Sine, square and rising-ramp modulators, free (period from "Speed") or
// synchronised to the host's tempo (a note value from "Speed").
#pragma once

#include "modulation/ModulatorBase.h"

namespace varitap {

class LfoModulator : public ModulatorBase {
public:
    enum Type : int32_t { kSine = 0, kSquare = 1, kRamp = 2, kSteps = 3, kTableSine = 4 };

    explicit LfoModulator(EngineHost* target);
    ~LfoModulator() override = default;

    void restart() override;
    // Types 0..2; no lock. Writes only on a change quantised by the smooth
    // factor. Any other type below 3 writes the current value back (nothing).
    void process(double tempo, double songPosition, uint32_t count, bool playing,
                 bool automationWriting) override;

    // any thread, no lock.
    void setType(int32_t type) { type_ = type; }
    int32_t getType() const { return type_; }
    void setSpeed(float speed);
    float getSpeed() const { return speed_; }
    void setSync(bool sync) { sync_ = sync; }
    bool isSynced() const { return sync_; }
    float phase() const { return phase_; }
    float sampleRate() const { return sampleRate_; }
    // any thread. The rate alone, without the restart's phase reset.
    void setSampleRate(float rate) { sampleRate_ = rate; }

    // The half-period D in samples for a speed: free, 2 * rate * (speed +
    // 1e-7); synchronised, rate * 60 / tempo * (note length of
    // truncate(24 speed)). Synchronised with a tempo that is not a positive
    // finite number there is no period: returns false.
    static bool periodBase(bool sync, float speed, double tempo, float sampleRate, double* d);
    // The wave value for types 0..2 (current for any other type).
    static float waveValue(int32_t type, double phase, double d, float min, float max,
                           float current);

protected:
    // The common beginning of a block: false when the modulator stands still
    // (power off, free with speed 0, synchronised without a tempo). Otherwise
    // advances the phase and gives the target's current value and D.
    bool beginBlock(double tempo, double songPosition, uint32_t count, bool playing,
                    float* current, double* d);

    Relaxed<int32_t> type_{kSine};        // waveform
    Relaxed<float> phase_{0.0f};          // running time in samples
    Relaxed<float> speed_{0.8f};          // period (free) or note value (sync)
    Relaxed<float> sampleRate_{44100.0f};  // Hz
    Relaxed<bool> sync_{true};            // speed selects a note value
};

}  // namespace varitap
