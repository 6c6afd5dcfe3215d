#include "tools/render/DemoSignal.h"

#include <algorithm>
#include <cmath>
#include <cstdint>

namespace render {

namespace {

constexpr double kPi = 3.14159265358979323846;

// Small linear congruential generator: fixed seed, same noise on every run.
struct Noise {
    uint32_t state = 0x2545f491u;
    float next() {
        state = state * 1664525u + 1013904223u;
        return static_cast<float>(state >> 8) / 8388608.0f - 1.0f;  // -1 .. 1
    }
};

// Karplus-Strong pluck: a burst of noise in a loop of one period, averaged
// on each pass so that the string loses its brightness as it rings.
void addPluck(std::vector<float>& out, double sampleRate, int64_t start, double frequency,
              float gain, float pan, Noise& noise) {
    int period = std::max(2, static_cast<int>(sampleRate / frequency));
    std::vector<float> loop(period);
    for (float& s : loop) s = noise.next();
    int64_t length = static_cast<int64_t>(sampleRate * 0.9);
    int64_t frames = static_cast<int64_t>(out.size() / 2);
    float left = gain * std::sqrt(1.0f - pan), right = gain * std::sqrt(pan);
    for (int64_t i = 0; i < length && start + i < frames; ++i) {
        int k = static_cast<int>(i % period);
        float sample = loop[k];
        loop[k] = 0.498f * (loop[k] + loop[(k + 1) % period]);
        float fade = i > length - 2000 ? static_cast<float>(length - i) / 2000.0f : 1.0f;
        out[2 * (start + i)] += sample * left * fade;
        out[2 * (start + i) + 1] += sample * right * fade;
    }
}

// A short sine with a falling pitch: a soft kick in the middle.
void addKick(std::vector<float>& out, double sampleRate, int64_t start, float gain) {
    int64_t length = static_cast<int64_t>(sampleRate * 0.25);
    int64_t frames = static_cast<int64_t>(out.size() / 2);
    double phase = 0.0;
    for (int64_t i = 0; i < length && start + i < frames; ++i) {
        double t = static_cast<double>(i) / sampleRate;
        double frequency = 45.0 + 90.0 * std::exp(-t * 30.0);
        phase += 2.0 * kPi * frequency / sampleRate;
        float sample = static_cast<float>(std::sin(phase) * std::exp(-t * 14.0)) * gain;
        out[2 * (start + i)] += sample;
        out[2 * (start + i) + 1] += sample;
    }
}

}  // namespace

std::vector<float> makeDemoSignal(double sampleRate, double tempo) {
    if (sampleRate < 1000.0) sampleRate = 1000.0;
    if (tempo < 20.0) tempo = 20.0;
    const double eighth = 30.0 / tempo * sampleRate;  // samples per eighth note
    const int steps = 16;                             // two bars of eighths
    const int64_t frames = static_cast<int64_t>(eighth * steps + sampleRate * 0.5);
    std::vector<float> out(static_cast<size_t>(frames) * kDemoChannels, 0.0f);

    // A minor pentatonic phrase; 0 is a rest.
    const double notes[steps] = {220.0, 0, 0, 329.63, 0, 0, 261.63, 0,
                                 196.0, 0, 0, 293.66, 0, 0, 392.0,  0};
    Noise noise;
    for (int step = 0; step < steps; ++step) {
        int64_t start = static_cast<int64_t>(step * eighth);
        if (notes[step] > 0.0) {
            float pan = (step / 3) % 2 ? 0.8f : 0.2f;
            addPluck(out, sampleRate, start, notes[step], 0.6f, pan, noise);
        }
        if (step % 8 == 0) addKick(out, sampleRate, start, 0.5f);
    }
    float peak = 0.0f;
    for (float s : out) peak = std::max(peak, std::fabs(s));
    if (peak > 0.0f)
        for (float& s : out) s *= 0.5f / peak;
    return out;
}

}  // namespace render
