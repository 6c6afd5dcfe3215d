// A double-sampled state-variable filter with four outputs (notch, low-pass,
// high-pass, band-pass), tuned by cutoff and resonance. Coefficients are
// computed when a parameter changes, under the filter's own lock; the block
// loop copies them out and runs with its state in locals.
#pragma once

#include <cstdint>

#include "engine/Relaxed.h"
#include "modulation/RecursiveMutex.h"

namespace varitap {

class TapFilter : public RefObject {
public:
    enum Type : int32_t { kOff = 0, kNotch = 1, kLowPass = 2, kHighPass = 3, kBandPass = 4 };
    enum Parameter : int { kCutoff = 0, kResonance = 1, kDrive = 2, kType = 3 };
    static constexpr int kTypeCount = 5;

    // The filter's coefficients and state, as the block loop uses them.
    struct Coefficients {
        double frequency;  // f
        double damping;    // q
        double drive;      // weight of the cubic limiting term
    };
    struct State {
        double notch = 0.0, low = 0.0, high = 0.0, band = 0.0;
    };

    // construction thread. Computes the coefficients at once, so that they
    // are defined before the first parameter or sample-rate call.
    explicit TapFilter(float sampleRate);
    ~TapFilter() override = default;

    // ui thread; both recompute the coefficients under the filter's lock.
    virtual void setSampleRate(float rate);
    // index: kCutoff (0..1), kResonance (0..1), kDrive (stored / 10),
    // kType (truncate(4 v)). Values are clamped to 0..1; NaN counts as 0.
    virtual void setParameter(int index, float value);
    // any thread. 0.0 for an unknown index.
    virtual float getParameter(int index) const;
    virtual int getNumParameters() const { return 4; }
    // Does nothing: resetting the tap leaves the filter state as it is.
    virtual void reset() {}
    // audio thread; takes the filter's lock to copy the coefficients.
    virtual void processInPlace(float* buffer, uint32_t count);
    virtual void process(const float* input, float* output, uint32_t count);

    // audio thread. Forgets the state: the filter starts from silence.
    void clearState() { state_ = State{}; }
    // audio thread. Whether the state has left every signal's range: not a
    // number, infinite, or past kRunawayLevel. The coefficients keep the
    // filter stable, so this means a fault upstream; the owner then clears
    // the state rather than let it sound, or stay NaN, for ever.
    bool hasRunAway() const { return hasRunAway(state_); }
    static bool hasRunAway(const State& state);
    // Far above any state a real signal gives, far below a state whose
    // output would overflow a float.
    static constexpr double kRunawayLevel = 1e30;

    int32_t type() const { return type_; }
    float sampleRate() const { return sampleRate_; }
    // any thread; takes the lock.
    Coefficients coefficients() const;
    State state() const { return state_; }
    void setState(const State& state) { state_ = state; }

    // The cutoff frequency in Hz for a type and a cutoff value, and the
    // coefficients for it.
    static double cornerFrequency(int32_t type, double cutoff);
    static Coefficients computeCoefficients(int32_t type, double cutoff, double resonance,
                                            double drive, double sampleRate);
    // The sample loop: the chosen output of the two passes per sample, with
    // exact zeros skipped. Exposed for tests and benchmarks.
    static void run(const float* input, float* output, uint32_t count, int32_t type,
                    const Coefficients& c, State& state);
    // The display name of a type ("***", "Notch", "LowPass", "HighPass",
    // "BandPass"); "***" for anything else.
    static const char* typeName(int32_t type);

private:
    void updateCoefficients();

    Relaxed<float> sampleRate_;             // Hz
    Relaxed<float> cutoff_{0.0f};           // parameter 0
    Relaxed<double> resonance_{0.0};        // parameter 1
    Relaxed<float> drive_{0.0f};            // parameter 2 / 10
    Relaxed<int32_t> type_{kNotch};         // parameter 3 as 0..4
    Coefficients coefficients_{};           // guarded by lock_
    State state_;                           // audio thread only
    mutable RecursiveMutex lock_;           // guards coefficients_
};

}  // namespace varitap
