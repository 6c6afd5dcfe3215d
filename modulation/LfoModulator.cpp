#include "modulation/LfoModulator.h"

#include <cmath>

#include "engine/EngineHost.h"
#include "engine/NoteValueTable.h"
#include "engine/ParameterText.h"

namespace varitap {

namespace {
constexpr double kPi = 3.14159265358979323846;

// p = truncate(phase), reduced as repeated subtraction of period would do
// (into 1..period once past it). A negative phase counts as 0.
double wrapPhase(double phase, double period) {
    double p = std::trunc(phase);
    if (!(p > 0.0)) return 0.0;
    if (p > period) p = std::fmod(p - 1.0, period) + 1.0;
    return p;
}

// min + r (max - min), or min - r (min - max) when max <= min.
float between(float min, float max, double r) {
    return max > min ? float(min + r * (max - min)) : float(min - r * (min - max));
}
}  // namespace

LfoModulator::LfoModulator(EngineHost* target) : ModulatorBase(target) {
    if (target) sampleRate_ = target->getSampleRate();
}

void LfoModulator::restart() {
    if (target_) sampleRate_ = target_->getSampleRate();
    phase_ = 0.0f;
}

void LfoModulator::setSpeed(float speed) { speed_ = speed; }

bool LfoModulator::periodBase(bool sync, float speed, double tempo, float sampleRate, double* d) {
    if (sync) {
        // Without a tempo (0, or anything not positive and finite) a
        // synchronised modulator has no period and holds still.
        if (!(tempo > 0.0) || !std::isfinite(tempo)) return false;
        const int row = static_cast<int>(speed * static_cast<float>(noteValueCount() - 1));
        *d = double(sampleRate) * (60.0 / tempo) * double(noteValueBeats(row));
    } else {
        *d = 2.0 * double(sampleRate) * (double(speed) + 1e-07);
    }
    return std::isfinite(*d) && *d > 0.0;
}

float LfoModulator::waveValue(int32_t type, double phase, double d, float min, float max,
                              float current) {
    switch (type) {
        case kSine:
            return float(min + (max - min) * (0.5 + 0.5 * std::sin(kPi * phase / d + 1.5 * kPi)));
        case kSquare:
            return std::sin(kPi * phase / d) > 0.0 ? max : min;
        case kRamp: {
            const double period = std::trunc(2.0 * d + 1.0);
            return between(min, max, wrapPhase(phase, period) / period);
        }
        default:
            return current;
    }
}

bool LfoModulator::beginBlock(double tempo, double songPosition, uint32_t count, bool playing,
                              float* current, double* d) {
    if (!power_ || !target_) return false;
    const bool sync = sync_;
    const float speed = speed_;
    if (!sync && speed == 0.0f) return false;
    if (!periodBase(sync, speed, tempo, sampleRate_, d)) return false;
    *current = target_->getParameter(index_);
    float phase = playing ? float(songPosition) : phase_ + float(count);
    if (!std::isfinite(phase)) phase = 0.0f;
    phase_ = phase;
    return true;
}

void LfoModulator::process(double tempo, double songPosition, uint32_t count, bool playing,
                           bool automationWriting) {
    float current = 0.0f;
    double d = 0.0;
    if (!beginBlock(tempo, songPosition, count, playing, &current, &d)) return;
    const float value = waveValue(type_, phase_, d, min_, max_, current);
    // Quantised to steps of 1/S, so that tiny moves do not flood the host.
    const double s = double(modulatorSmoothFactor());
    if (std::trunc(double(current) * s) != std::trunc(double(value) * s))
        write(value, automationWriting);
}

}  // namespace varitap
