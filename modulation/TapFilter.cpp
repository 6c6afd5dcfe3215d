#include "modulation/TapFilter.h"

#include <algorithm>
#include <cmath>

#include "engine/ParameterText.h"

namespace varitap {

namespace {

constexpr double kPi = 3.14159265358979323846;

const char* const kTypeNames[TapFilter::kTypeCount] = {"***", "Notch", "LowPass", "HighPass",
                                                       "BandPass"};

// Which state a type reads.
enum Output { kNotchOut, kLowOut, kHighOut, kBandOut };

template <Output out>
void runLoop(const float* input, float* output, uint32_t count, const TapFilter::Coefficients& c,
             TapFilter::State& s) {
    // The two passes per sample form one chain of dependent operations: the
    // state lives in locals for the whole loop.
    const double f = c.frequency, q = c.damping, drive = c.drive;
    double notch = s.notch, low = s.low, high = s.high, band = s.band;
    for (uint32_t i = 0; i < count; ++i) {
        const double x = input[i];
        if (x == 0.0) continue;  // silence costs nothing and leaves the state
        notch = x - q * band;
        low = low + f * band;
        high = notch - low;
        band = f * high + band - drive * band * band * band;
        const double y1 = out == kNotchOut ? notch : out == kLowOut ? low : out == kHighOut ? high : band;
        notch = x - q * band;
        low = low + f * band;
        high = notch - low;
        band = f * high + band - drive * band * band * band;
        const double y2 = out == kNotchOut ? notch : out == kLowOut ? low : out == kHighOut ? high : band;
        output[i] = static_cast<float>(0.5 * y1 + 0.5 * y2);
    }
    s.notch = notch;
    s.low = low;
    s.high = high;
    s.band = band;
}

}  // namespace

TapFilter::TapFilter(float sampleRate) : sampleRate_(sampleRate) { updateCoefficients(); }

double TapFilter::cornerFrequency(int32_t type, double cutoff) {
    switch (type) {
        case kNotch: return cutoff * 7000.0 + 20.0;
        case kLowPass: return cutoff * 7000.0 + 160.0;
        case kHighPass: return cutoff * 5000.0 + 1.0;
        case kBandPass: return cutoff * 5000.0 + 160.0;
        default: return cutoff * 88100.0 + 40.0;
    }
}

TapFilter::Coefficients TapFilter::computeCoefficients(int32_t type, double cutoff,
                                                       double resonance, double drive,
                                                       double sampleRate) {
    const double fc = cornerFrequency(type, cutoff);
    double x = fc / (2.0 * sampleRate);
    // A rate of 0 (or a negative or NaN one) gives no sensible ratio: the
    // clamp at a quarter holds the filter in its stable range then too.
    if (!(x <= 0.25)) x = 0.25;
    const double f = 2.0 * std::sin(kPi * x);
    double q = std::min(2.0, 2.0 / f - f / 2.0);
    q = std::min(q, 2.0 * (1.0 - std::pow(resonance, 0.25)));
    return Coefficients{f, q, drive};
}

void TapFilter::updateCoefficients() {
    const Coefficients c = computeCoefficients(type_, cutoff_, resonance_, drive_, sampleRate_);
    ScopedLock lock(lock_);
    coefficients_ = c;
}

void TapFilter::setSampleRate(float rate) {
    sampleRate_ = rate;
    updateCoefficients();
}

void TapFilter::setParameter(int index, float value) {
    const float v = unitValue(value);
    switch (index) {
        case kCutoff: cutoff_ = v; break;
        case kResonance: resonance_ = v; break;
        case kDrive: drive_ = v / 10.0f; break;
        case kType: type_ = static_cast<int32_t>(4.0f * v); break;
        default: return;
    }
    updateCoefficients();
}

float TapFilter::getParameter(int index) const {
    switch (index) {
        case kCutoff: return cutoff_;
        case kResonance: return static_cast<float>(resonance_.load());
        case kDrive: return 10.0f * drive_;
        case kType: return static_cast<float>(type_) * 0.25f;
        default: return 0.0f;
    }
}

TapFilter::Coefficients TapFilter::coefficients() const {
    ScopedLock lock(lock_);
    return coefficients_;
}

void TapFilter::run(const float* input, float* output, uint32_t count, int32_t type,
                    const Coefficients& c, State& state) {
    switch (type) {
        case kLowPass: runLoop<kLowOut>(input, output, count, c, state); break;
        case kHighPass: runLoop<kHighOut>(input, output, count, c, state); break;
        case kBandPass: runLoop<kBandOut>(input, output, count, c, state); break;
        default: runLoop<kNotchOut>(input, output, count, c, state); break;
    }
}

void TapFilter::process(const float* input, float* output, uint32_t count) {
    const int32_t type = type_;
    if (type == kOff) {
        if (output != input) std::copy(input, input + count, output);
        return;
    }
    const Coefficients c = coefficients();  // the lock is released before the loop
    run(input, output, count, type, c, state_);
}

bool TapFilter::hasRunAway(const State& state) {
    // A NaN fails every comparison: !(|x| <= level) holds for it too.
    for (double x : {state.notch, state.low, state.high, state.band}) {
        if (!(std::fabs(x) <= kRunawayLevel)) return true;
    }
    return false;
}

void TapFilter::processInPlace(float* buffer, uint32_t count) { process(buffer, buffer, count); }

const char* TapFilter::typeName(int32_t type) {
    return type >= 0 && type < kTypeCount ? kTypeNames[type] : kTypeNames[kOff];
}

}  // namespace varitap
