// Every vector kernel set against the scalar set, bit for bit, over the
// counts 0..15, 32, 64, 65, 100, 999 and 4095, every alignment, and guard
// zones around every buffer: the elementwise loops, the cleaning pass (also
// against its definition), the tap delay over lengths that wrap within a
// block (also against the tap's vector routine; constant gains and a ramp),
// and the filter lanes (every lane count, each output type
// and mixed, exact zeros and whole silent lanes, with and without flush to
// zero). The engine tests run it on every set the processor has; the check
// built for other processors runs it under emulation, without a test
// framework, so a check answers with the first difference it finds, or ""
// when there is none.
#pragma once

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <random>
#include <sstream>
#include <string>
#include <vector>

#include "engine/FloatMode.h"
#include "engine/VectorOps.h"

namespace varitap::test {

constexpr float kSentinel = -12345.5f;
constexpr uint32_t kGuard = 16;
inline const uint32_t kCounts[] = {0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 32, 64, 65, 100, 999, 4095};

// A float array at a chosen offset (in floats) from a 16-byte boundary, with
// sentinel zones on both sides, filled from seed.
class Guarded {
public:
    Guarded(uint32_t n, uint32_t offset, uint32_t seed) : n_(n), storage_(n + 2 * kGuard + 8, kSentinel) {
        auto base = reinterpret_cast<uintptr_t>(storage_.data() + kGuard);
        data_ = reinterpret_cast<float*>((base + 15) & ~uintptr_t(15)) + offset;
        std::mt19937 random(seed);
        std::uniform_real_distribution<float> dist(-1.0f, 1.0f);
        for (uint32_t i = 0; i < n; ++i) data_[i] = dist(random);
    }
    Guarded(const Guarded&) = delete;
    Guarded& operator=(const Guarded&) = delete;
    float* data() { return data_; }
    bool guardsIntact() const {
        for (const float& x : storage_)
            if ((&x < data_ || &x >= data_ + n_) && x != kSentinel) return false;
        return true;
    }
    std::vector<float> copy() const { return std::vector<float>(data_, data_ + n_); }

private:
    uint32_t n_;
    std::vector<float> storage_;
    float* data_;
};

inline bool sameBits(const std::vector<float>& a, const std::vector<float>& b) {
    return a.size() == b.size() && (a.empty() || std::memcmp(a.data(), b.data(), a.size() * sizeof(float)) == 0);
}
// Same bits, and neither wrote outside its array.
inline bool same(const Guarded& a, const Guarded& b) {
    return sameBits(a.copy(), b.copy()) && a.guardsIntact() && b.guardsIntact();
}

// " differs: count 3 offset 1", from name, value pairs.
template <class... T>
std::string differsAt(const T&... namesAndValues) {
    std::ostringstream text;
    text << " differs:";
    ((text << ' ' << namesAndValues), ...);
    return text.str();
}

inline std::string elementwiseDifference(const Kernels& set) {
    const Kernels& scalar = scalarKernels();
    // Every kind of value on every lane (11 is prime to 4).
    const float specials[] = {std::nanf(""), HUGE_VALF, -HUGE_VALF, 1e30f, -kSampleCeiling, kSampleCeiling,
                              std::nextafter(kSampleCeiling, HUGE_VALF), -0.0f, 1e-40f, -std::nanf("")};
    for (uint32_t count : kCounts) {
        for (uint32_t offset = 0; offset < 4; ++offset) {
            const uint32_t other = (offset + 1) % 4;
            const std::string at = differsAt("count", count, "offset", offset);
            Guarded a(count, offset, 1), b(count, other, 2), c1(count, offset, 3), c2(count, offset, 3);
            scalar.vadd(a.data(), b.data(), c1.data(), count);
            set.vadd(a.data(), b.data(), c2.data(), count);
            if (!same(c1, c2)) return "vadd" + at;
            scalar.vsmul(a.data(), 0.37f, c1.data(), count);
            set.vsmul(a.data(), 0.37f, c2.data(), count);
            if (!same(c1, c2)) return "vsmul" + at;
            // The mix may scale both sources in place: each form gets its own
            // copies, and the vector form also writes onto its dry source.
            for (float mix : {0.0f, 0.3f, 1.0f, 0.25f}) {
                Guarded wet1(count, offset, 4), dry1(count, other, 5), wet2(count, offset, 4), dry2(count, other, 5);
                scalar.mixReplace(wet1.data(), dry1.data(), c1.data(), count, mix);
                Guarded& result = mix == 0.25f ? dry2 : c2;
                set.mixReplace(wet2.data(), dry2.data(), result.data(), count, mix);
                if (!same(c1, result) || !wet2.guardsIntact() || !dry2.guardsIntact())
                    return "mixReplace" + at + " mix " + std::to_string(mix);
            }
            std::vector<float> scaled = a.copy();
            for (float& x : scaled) x *= -2.5f;
            set.vsmul(a.data(), -2.5f, a.data(), count);
            if (!sameBits(a.copy(), scaled) || !a.guardsIntact()) return "vsmul in place" + at;

            // Cleaning, against its definition: -0 stays -0, a subnormal is kept.
            Guarded d(count, offset, 6), e1(count, other, 7), e2(count, other, 7);
            std::vector<float> clean(count);
            for (uint32_t k = 0; k < count; ++k) {
                if (k % 11 < 10) d.data()[k] = specials[k % 11];
                clean[k] = std::fabs(d.data()[k]) <= kSampleCeiling ? d.data()[k] : 0.0f;
            }
            scalar.sanitize(d.data(), e1.data(), count);
            set.sanitize(d.data(), e2.data(), count);
            if (!sameBits(e1.copy(), clean) || !same(e1, e2)) return "sanitize" + at;
            set.sanitize(d.data(), d.data(), count);
            if (!sameBits(d.copy(), clean) || !d.guardsIntact()) return "sanitize in place" + at;
        }
    }
    return "";
}

// The gains of a ramp from applied towards volume over count samples, as the
// engine hands them to the tap delay.
inline std::vector<float> rampGains(uint32_t count, float applied, float volume) {
    const float step = (volume - applied) / float(count ? count : 1);
    std::vector<float> gains(count);
    float g = applied;
    for (float& x : gains) x = g, g += step;
    return gains;
}

inline bool aligned16(const void* p) { return (reinterpret_cast<uintptr_t>(p) & 15u) == 0; }

// A scalar model of the tap's 4-wide routine, written from its description:
// 4-lane steps only for an aligned input and an unaligned output, lane gains
// starting at volume, whole groups of the line at the boundary below the
// position, the tail's gain without comparison.
inline uint32_t modelTapVector(float* line, uint32_t position, uint32_t length, const float* input, float* output,
                               uint32_t count, float feedback, float applied, float volume) {
    const float step = (volume - applied) / float(count);
    uint32_t i = 0;
    if (aligned16(input) && !aligned16(output)) {
        float gain[4] = {volume, volume, volume, volume};
        const float increment = volume != applied ? (volume - applied) / (4.0f * float(count)) : 0.0f;
        for (; i + 4 <= count; i += 4) {
            const uint32_t group = position & ~3u;
            for (int lane = 0; lane < 4; ++lane) {
                const float delayed = line[group + lane];
                line[group + lane] = delayed * feedback + input[i + lane];
                output[i + lane] = output[i + lane] + delayed * gain[lane];
            }
            position += 4;
            if (position >= length) position = 0;
            if (volume != applied)
                for (float& g : gain) g += increment;
        }
    }
    float gain = applied + step * float(i);
    for (; i < count; ++i) {
        const float delayed = line[position];
        line[position] = delayed * feedback + input[i];
        output[i] += delayed * gain;
        position = position + 1 >= length ? 0 : position + 1;
        gain += step;
    }
    return position;
}

// The tap delay of the set against the scalar set's, and the tap's own
// vector routine (as the engine's aligned scratch takes it, adding into
// silence, or with its 4-lane steps against their model), over lengths that
// wrap within a block.
inline std::string tapDelayDifference(const Kernels& set) {
    for (uint32_t count : kCounts) {
        for (uint32_t length : {0u, 1u, 2u, 3u, 5u, 8u, 13u, 64u, 1000u}) {
            for (uint32_t start : {0u, 2u, length ? length - 1 : 0u, length}) {
                if (start > length) continue;
                for (uint32_t offset : {0u, 1u}) {
                    for (uint32_t outOffset : {offset, 3u}) {
                        for (bool ramp : {false, true}) {
                            const std::string at = differsAt("count", count, "length", length, "start", start,
                                                             "offset", offset, "out", outOffset, "ramp", ramp);
                            const float volume = ramp ? 0.8f : 0.5f;
                            const std::vector<float> gains = rampGains(count, 0.5f, volume);
                            const float* g = ramp ? gains.data() : nullptr;
                            Guarded input(count, offset, 40 + count), out1(count, outOffset, 3),
                                out2(count, outOffset, 3);
                            Guarded line1(length + 4, 0, 50 + length), line2(length + 4, 0, 50 + length);
                            const uint32_t p1 = scalarKernels().tapDelay(line1.data(), start, length, input.data(),
                                                                         out1.data(), count, 0.3f, g, 0.5f);
                            const uint32_t p2 = set.tapDelay(line2.data(), start, length, input.data(),
                                                             out2.data(), count, 0.3f, g, 0.5f);
                            if (p1 != p2 || !same(out1, out2) || !same(line1, line2) || !input.guardsIntact())
                                return "tapDelay" + at;
                            if (length == 0) continue;
                            Guarded tail(count, outOffset, 1), line0(length + 4, 0, 50 + length);
                            const bool lanes = aligned16(input.data()) && !aligned16(tail.data());
                            if (!lanes) std::fill(tail.data(), tail.data() + count, 0.0f);
                            const uint32_t p0 = tapLoopVector(line0.data(), start, length, input.data(),
                                                              tail.data(), count, 0.3f, 0.5f, volume);
                            if (lanes) {
                                Guarded modelOut(count, outOffset, 1), modelLine(length + 4, 0, 50 + length);
                                const uint32_t p3 = modelTapVector(modelLine.data(), start, length, input.data(),
                                                                   modelOut.data(), count, 0.3f, 0.5f, volume);
                                if (p0 != p3 || !same(tail, modelOut) || !same(line0, modelLine))
                                    return "the tap's 4-lane routine against its model" + at;
                            } else if (p0 != p1 || !same(tail, out1) || !same(line0, line1)) {
                                return "tapDelay against the tap routine" + at;
                            }
                        }
                    }
                }
            }
        }
    }
    return "";
}

// Filter lanes with random stable coefficients and states; picks[l] is the
// state lane l outputs (0 notch, 1 low, 2 high, 3 band). Tiny states underflow
// under flush to zero.
inline FilterLanes randomLanes(uint32_t lanes, int output, std::mt19937& random, int* picks, bool tiny) {
    std::uniform_real_distribution<double> unit(0.0, 1.0);
    FilterLanes filter{};
    for (uint32_t l = 0; l < lanes; ++l) {
        const int pick = picks[l] = output == FilterLanes::kMixed ? int(random() % 4) : output;
        filter.frequency[l] = 0.02 + 0.8 * unit(random);
        filter.damping[l] = 0.1 + 1.8 * unit(random);
        filter.drive[l] = l % 3 == 0 ? 0.05 : 0.0;
        const double scale = tiny ? 1e-300 : 1.0;
        for (double* state : {filter.notch, filter.low, filter.high, filter.band})
            state[l] = scale * (unit(random) - 0.5);
        filter.pickNotch[l] = pick == 0 ? ~uint64_t(0) : 0;
        filter.pickLow[l] = pick == 1 ? ~uint64_t(0) : 0;
        filter.pickHigh[l] = pick == 2 ? ~uint64_t(0) : 0;
    }
    filter.output = FilterLanes::Output(output);
    return filter;
}

// Interleaved samples with exact zeros, lane 4 silent throughout.
inline std::vector<float> laneSamples(uint32_t count, uint32_t lanes, std::mt19937& random, bool tiny) {
    std::uniform_real_distribution<float> dist(-1.0f, 1.0f);
    std::vector<float> samples(size_t(count) * lanes);
    for (size_t i = 0; i < samples.size(); ++i)
        samples[i] = i % lanes == 4 || random() % 5 == 0 ? 0.0f : (tiny ? 1e-39f : 1.0f) * dist(random);
    return samples;
}

inline std::string filterLanesDifference(const Kernels& set) {
    std::mt19937 random(7);
    int picks[FilterLanes::kMaxLanes];
    for (uint32_t count : kCounts) {
        for (uint32_t lanes = set.laneWidth; lanes <= uint32_t(FilterLanes::kMaxLanes); lanes += set.laneWidth) {
            for (int output = FilterLanes::kNotch; output <= FilterLanes::kMixed; ++output) {
                for (bool flush : {false, true}) {
                    FilterLanes scalar = randomLanes(lanes, output, random, picks, flush), vector = scalar;
                    std::vector<float> s = laneSamples(count, lanes, random, flush), v = s;
                    {
                        FlushDenormals mode;
                        if (!flush) FlushDenormals::setMode(FlushDenormals::mode() & ~FlushDenormals::kFlushBits);
                        scalarKernels().filterLanes(s.data(), count, lanes, scalar);
                        set.filterLanes(v.data(), count, lanes, vector);
                    }
                    if (!sameBits(s, v) || std::memcmp(&scalar, &vector, sizeof scalar) != 0)
                        return "filterLanes" +
                               differsAt("count", count, "lanes", lanes, "output", output, "flush", flush);
                }
            }
        }
    }
    return "";
}

inline std::string kernelSetDifference(const Kernels& set) {
    for (auto check : {elementwiseDifference, tapDelayDifference, filterLanesDifference})
        if (std::string difference = check(set); !difference.empty()) return difference;
    return "";
}

}  // namespace varitap::test
