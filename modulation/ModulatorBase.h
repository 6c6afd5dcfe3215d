// A modulator moves one of the plug-in's own parameters over time, once per
// audio block, through the plug-in's ordinary parameter path.
#pragma once

#include <cstdint>

#include "engine/Relaxed.h"
#include "persistence/RefObject.h"

namespace varitap {

class EngineHost;

// The process-wide "Automation Smooth Factor" S: the sine, square and ramp
// waves write only when truncate(current * S) != truncate(value * S).
inline constexpr long kDefaultSmoothFactor = 10000;
// construction thread (the plug-in sets it from the option). 0 keeps the
// current factor, as an option stored as 0 means "not set".
void setModulatorSmoothFactor(long factor);
// any thread.
long modulatorSmoothFactor();

class ModulatorBase : public RefObject {
public:
    // construction thread. target is not owned and may be null.
    explicit ModulatorBase(EngineHost* target);
    ~ModulatorBase() override = default;

    // Setters: any thread, no lock.
    // The target parameter's number (raw 0..240, not a fraction).
    virtual void setIndex(int index);
    virtual int getIndex() const;
    virtual void setMin(float value);
    virtual void setMax(float value);
    virtual float getMin() const;
    virtual float getMax() const;
    // audio thread (the engine's resume and sample-rate requests) or
    // construction: takes the target's sample rate and sets the phase to 0.
    virtual void restart() {}
    // audio thread, under the plug-in's modulator lock. tempo in beats per
    // minute (0 when unknown), songPosition in samples (0 unless playing),
    // count the block length, automationWriting the host's flag.
    virtual void process(double tempo, double songPosition, uint32_t count, bool playing,
                         bool automationWriting) = 0;
    virtual void setTarget(EngineHost* target);
    virtual void setPower(bool on);
    virtual bool isPowered() const;

    EngineHost* target() const { return target_; }

protected:
    // Writes value to the target parameter: as automation (telling the host)
    // when automationWriting, else as a plain set. A value that is not finite
    // is never written.
    void write(float value, bool automationWriting);

    EngineHost* target_;            // whose parameters are read and written
    Relaxed<int32_t> index_{0};     // target parameter number
    Relaxed<float> min_{0.0f};      // value at the bottom of the wave
    Relaxed<float> max_{1.0f};      // value at the top of the wave
    Relaxed<bool> power_{false};    // the modulator runs
};

}  // namespace varitap
