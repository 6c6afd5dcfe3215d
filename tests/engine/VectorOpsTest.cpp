#include "engine/VectorOps.h"
#include "modulation/TapFilter.h"
#include "persistence/SystemInfo.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <cstring>
#include <random>
#include <vector>

namespace varitap {
namespace {

constexpr float kSentinel = -12345.5f;
constexpr uint32_t kGuard = 16;
const uint32_t kCounts[] = {0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 32, 64, 65, 100, 999, 4095};

// A float array at a chosen offset (in floats) from a 16-byte boundary, with
// sentinel zones on both sides.
class Guarded {
public:
    Guarded(uint32_t n, uint32_t offset, uint32_t seed) : n_(n), storage_(n + 2 * kGuard + 8) {
        auto base = reinterpret_cast<uintptr_t>(storage_.data() + kGuard);
        base = (base + 15) & ~uintptr_t(15);
        data_ = reinterpret_cast<float*>(base) + offset;
        std::fill(storage_.begin(), storage_.end(), kSentinel);
        std::mt19937 random(seed);
        std::uniform_real_distribution<float> dist(-1.0f, 1.0f);
        for (uint32_t i = 0; i < n; ++i) data_[i] = dist(random);
    }
    float* data() { return data_; }
    bool guardsIntact() const {
        for (size_t k = 0; k < storage_.size(); ++k) {
            const float* p = storage_.data() + k;
            if ((p < data_ || p >= data_ + n_) && *p != kSentinel) return false;
        }
        return true;
    }
    std::vector<float> copy() const { return std::vector<float>(data_, data_ + n_); }

private:
    uint32_t n_;
    std::vector<float> storage_;
    float* data_;
};

bool sameBits(const std::vector<float>& a, const std::vector<float>& b) {
    return a.size() == b.size() &&
           (a.empty() || std::memcmp(a.data(), b.data(), a.size() * sizeof(float)) == 0);
}

bool aligned16(const void* p) { return (reinterpret_cast<uintptr_t>(p) & 15u) == 0; }

// A scalar model of the tap's 4-wide routine, written from its description:
// 4-lane steps only for an aligned input and an unaligned output, lane gains
// starting at volume, whole groups of the line at the boundary below the
// position, the tail's gain without comparison.
uint32_t modelTapVector(float* line, uint32_t position, uint32_t length, const float* input,
                        float* output, uint32_t count, float feedback, float applied,
                        float volume) {
    if (count == 0) return position;
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

TEST(VectorOpsTest, ElementwiseKernelsMatchScalarOverCountsAndAlignments) {
    for (uint32_t count : kCounts) {
        for (uint32_t offset = 0; offset < 4; ++offset) {
            SCOPED_TRACE(testing::Message() << "count " << count << " offset " << offset);
            Guarded a(count, offset, 1), b(count, (offset + 1) % 4, 2);
            Guarded c1(count, offset, 3), c2(count, offset, 3);
            vaddScalar(a.data(), b.data(), c1.data(), count);
            vaddVector(a.data(), b.data(), c2.data(), count);
            ASSERT_EQ(c1.copy(), c2.copy());
            vsmulScalar(a.data(), 0.37f, c1.data(), count);
            vsmulVector(a.data(), 0.37f, c2.data(), count);
            ASSERT_EQ(c1.copy(), c2.copy());
            for (float mix : {0.0f, 0.3f, 1.0f}) {
                mixReplaceScalar(a.data(), b.data(), c1.data(), count, mix);
                mixReplaceVector(a.data(), b.data(), c2.data(), count, mix);
                ASSERT_EQ(c1.copy(), c2.copy()) << "mix " << mix;
            }
            // In place, as the mix (onto the dry input) and the tap's
            // fallback use them.
            mixReplaceScalar(a.data(), b.data(), c1.data(), count, 0.25f);
            mixReplaceVector(a.data(), b.data(), b.data(), count, 0.25f);
            ASSERT_EQ(b.copy(), c1.copy());
            std::vector<float> expected = a.copy();
            for (float& x : expected) x *= -2.5f;
            vsmulVector(a.data(), -2.5f, a.data(), count);
            ASSERT_EQ(a.copy(), expected);
            ASSERT_TRUE(a.guardsIntact() && b.guardsIntact() && c1.guardsIntact() && c2.guardsIntact());

            // Cleaning: every kind of value on every lane (11 is prime to
            // 4), compared bit for bit (-0 stays -0, a subnormal is kept).
            const float specials[] = {std::nanf(""),  HUGE_VALF,      -HUGE_VALF,
                                      1e30f,          -kSampleCeiling, kSampleCeiling,
                                      std::nextafter(kSampleCeiling, HUGE_VALF), -0.0f, 1e-40f,
                                      -std::nanf("")};
            Guarded d(count, offset, 5), e1(count, (offset + 2) % 4, 6), e2(count, (offset + 2) % 4, 6);
            std::vector<float> clean(count);
            for (uint32_t k = 0; k < count; ++k) {
                if (k % 11 < 10) d.data()[k] = specials[k % 11];
                const float x = d.data()[k];
                clean[k] = std::fabs(x) <= kSampleCeiling ? x : 0.0f;
            }
            sanitizeScalar(d.data(), e1.data(), count);
            sanitizeVector(d.data(), e2.data(), count);
            ASSERT_TRUE(sameBits(e1.copy(), clean));
            ASSERT_TRUE(sameBits(e2.copy(), clean));
            sanitizeVector(d.data(), d.data(), count);
            ASSERT_TRUE(sameBits(d.copy(), clean));
            ASSERT_TRUE(d.guardsIntact() && e1.guardsIntact() && e2.guardsIntact());
        }
    }
}

TEST(VectorOpsTest, TapVectorRoutineMatchesItsScalarModel) {
    const uint32_t lengths[] = {1, 5, 8, 13, 64, 1000};
    for (uint32_t count : kCounts) {
        for (uint32_t inOffset : {0u, 1u}) {
            for (uint32_t outOffset : {0u, 3u}) {
                for (uint32_t length : lengths) {
                    for (uint32_t start : {0u, 2u, length - 1, length}) {
                        if (start > length) continue;
                        for (float applied : {0.5f, 0.8f}) {
                            Guarded input(count, inOffset, 10 + count);
                            Guarded out1(count, outOffset, 20 + count), out2(count, outOffset, 20 + count);
                            Guarded line1(length + 4, 0, 30 + length), line2(length + 4, 0, 30 + length);
                            const uint32_t p1 = tapLoopVector(line1.data(), start, length, input.data(),
                                                              out1.data(), count, 0.3f, applied, 0.8f);
                            const uint32_t p2 = modelTapVector(line2.data(), start, length, input.data(),
                                                               out2.data(), count, 0.3f, applied, 0.8f);
                            SCOPED_TRACE(testing::Message() << "count " << count << " in+" << inOffset
                                                            << " out+" << outOffset << " len " << length
                                                            << " start " << start << " applied " << applied);
                            ASSERT_EQ(p1, p2);
                            ASSERT_EQ(out1.copy(), out2.copy());
                            ASSERT_EQ(line1.copy(), line2.copy());
                            ASSERT_TRUE(out1.guardsIntact() && line1.guardsIntact() && input.guardsIntact());
                            // Every alignment but the lanes' is the scalar loop.
                            if (inOffset == 0 && outOffset != 0) continue;
                            Guarded out3(count, outOffset, 20 + count), line3(length + 4, 0, 30 + length);
                            ASSERT_EQ(tapLoopScalar(line3.data(), start, length, input.data(), out3.data(),
                                                    count, 0.3f, applied, 0.8f), p1);
                            ASSERT_EQ(out3.copy(), out1.copy());
                            ASSERT_EQ(line3.copy(), line1.copy());
                        }
                    }
                }
            }
        }
    }
}

// The sets whose lane kernels must equal the scalar set's: SSE2 (or NEON)
// and, where the processor has it, AVX2.
std::vector<const Kernels*> laneSets() {
    std::vector<const Kernels*> sets = {&vectorKernels()};
    if (avx2Kernels()) sets.push_back(avx2Kernels());
    return sets;
}

// The tap delay kernel: every set against the scalar one, and the scalar one
// against the tap's vector routine (its tail, as the engine's aligned scratch
// takes it) over lengths that wrap within the block, including 0 and a head
// at the end of the line; constant gains and a ramp.
TEST(VectorOpsTest, TapDelayFormsMatchTheTapRoutine) {
    const uint32_t lengths[] = {0, 1, 2, 3, 5, 8, 13, 64, 1000};
    for (uint32_t count : kCounts) {
        for (uint32_t length : lengths) {
            for (uint32_t start : {0u, 2u, length ? length - 1 : 0u, length}) {
                if (start > length) continue;
                for (uint32_t offset : {0u, 1u}) {
                    for (bool ramp : {false, true}) {
                        SCOPED_TRACE(testing::Message() << "count " << count << " len " << length << " start "
                                                        << start << " offset " << offset << " ramp " << ramp);
                        const float applied = 0.5f, volume = ramp ? 0.8f : 0.5f;
                        const float step = (volume - applied) / float(count ? count : 1);
                        std::vector<float> gains(count);
                        float g = applied + step * 0.0f;
                        for (float& x : gains) x = g, g += step;
                        Guarded input(count, offset, 40 + count);
                        Guarded reference(count, 0, 1), line0(length + 4, 0, 50 + length);
                        std::fill(reference.data(), reference.data() + count, 0.0f);
                        const uint32_t p0 = tapLoopVector(line0.data(), start, length ? length : 1, input.data(),
                                                          reference.data(), count, 0.3f, applied, volume);
                        Guarded out1(count, offset, 2), line1(length + 4, 0, 50 + length);
                        const uint32_t p1 =
                            tapDelayScalar(line1.data(), start, length ? length : 1, input.data(), out1.data(),
                                           count, 0.3f, ramp ? gains.data() : nullptr, applied);
                        ASSERT_EQ(p1, p0);
                        ASSERT_EQ(out1.copy(), reference.copy());
                        ASSERT_EQ(line1.copy(), line0.copy());
                        for (const Kernels* set : laneSets()) {
                            Guarded out2(count, offset, 3), line2(length + 4, 0, 50 + length);
                            Guarded out3(count, offset, 3), line3(length + 4, 0, 50 + length);
                            const float* g2 = ramp ? gains.data() : nullptr;
                            ASSERT_EQ(set->tapDelay(line2.data(), start, length, input.data(), out2.data(), count,
                                                    0.3f, g2, applied),
                                      tapDelayScalar(line3.data(), start, length, input.data(), out3.data(), count,
                                                     0.3f, g2, applied));
                            ASSERT_EQ(out2.copy(), out3.copy());
                            ASSERT_EQ(line2.copy(), line3.copy());
                            ASSERT_TRUE(out2.guardsIntact() && line2.guardsIntact() && input.guardsIntact());
                        }
                    }
                }
            }
        }
    }
}

// Filter lanes: the scalar set's lanes against TapFilter's own loop, one
// lane at a time, and every set against the scalar one, bit for bit, for
// every lane count, each output type alone and mixed, with exact zeros
// (including whole silent lanes) in the input.
TEST(VectorOpsTest, FilterLanesMatchTheFilterLoop) {
    std::mt19937 random(7);
    std::uniform_real_distribution<float> dist(-1.0f, 1.0f);
    for (uint32_t count : kCounts) {
        for (uint32_t lanes = 1; lanes <= uint32_t(FilterLanes::kMaxLanes); ++lanes) {
            for (int output = FilterLanes::kNotch; output <= FilterLanes::kMixed; ++output) {
                SCOPED_TRACE(testing::Message() << "count " << count << " lanes " << lanes << " output " << output);
                FilterLanes filter{};
                int32_t types[FilterLanes::kMaxLanes];
                for (uint32_t l = 0; l < lanes; ++l) {
                    // TapFilter's types 1..4 output notch, low, high, band.
                    const int pick = output == FilterLanes::kMixed ? int(random() % 4) : output;
                    types[l] = TapFilter::kNotch + pick;
                    const TapFilter::Coefficients c = TapFilter::computeCoefficients(
                        types[l], (dist(random) + 1.0f) / 2.0f, (dist(random) + 1.0f) / 2.0f,
                        l % 3 == 0 ? 0.05 : 0.0, 44100.0);
                    filter.frequency[l] = c.frequency;
                    filter.damping[l] = c.damping;
                    filter.drive[l] = c.drive;
                    filter.notch[l] = dist(random);
                    filter.low[l] = dist(random);
                    filter.high[l] = dist(random);
                    filter.band[l] = dist(random);
                    filter.pickNotch[l] = pick == 0 ? ~uint64_t(0) : 0;
                    filter.pickLow[l] = pick == 1 ? ~uint64_t(0) : 0;
                    filter.pickHigh[l] = pick == 2 ? ~uint64_t(0) : 0;
                }
                filter.output = FilterLanes::Output(output);
                std::vector<float> samples(size_t(count) * lanes);
                for (size_t i = 0; i < samples.size(); ++i) {
                    const uint32_t lane = uint32_t(i % lanes);
                    samples[i] = lane == 4 || random() % 5 == 0 ? 0.0f : dist(random);
                }
                // The plain filter, lane by lane.
                std::vector<float> expected = samples;
                for (uint32_t l = 0; l < lanes; ++l) {
                    std::vector<float> lane(count);
                    for (uint32_t i = 0; i < count; ++i) lane[i] = samples[i * lanes + l];
                    TapFilter::State state{filter.notch[l], filter.low[l], filter.high[l], filter.band[l]};
                    TapFilter::run(lane.data(), lane.data(), count, types[l],
                                   TapFilter::Coefficients{filter.frequency[l], filter.damping[l], filter.drive[l]},
                                   state);
                    for (uint32_t i = 0; i < count; ++i) expected[i * lanes + l] = lane[i];
                }
                FilterLanes scalar = filter;
                std::vector<float> scalarSamples = samples;
                filterLanesScalar(scalarSamples.data(), count, lanes, scalar);
                ASSERT_EQ(scalarSamples, expected);
                for (const Kernels* set : laneSets()) {
                    if (lanes % set->laneWidth != 0) continue;
                    FilterLanes vector = filter;
                    std::vector<float> vectorSamples = samples;
                    set->filterLanes(vectorSamples.data(), count, lanes, vector);
                    ASSERT_EQ(vectorSamples, expected) << "width " << set->laneWidth;
                    ASSERT_EQ(0, std::memcmp(vector.band, scalar.band, sizeof scalar.band));
                    ASSERT_EQ(0, std::memcmp(vector.low, scalar.low, sizeof scalar.low));
                    ASSERT_EQ(0, std::memcmp(vector.notch, scalar.notch, sizeof scalar.notch));
                    ASSERT_EQ(0, std::memcmp(vector.high, scalar.high, sizeof scalar.high));
                }
            }
        }
    }
}

TEST(VectorOpsTest, KernelsFollowTheVectorUnitFlag) {
    forceScalarForTesting(true);
    EXPECT_EQ(kernels().tapLoop, scalarKernels().tapLoop);
    EXPECT_EQ(kernels().sanitize, sanitizeScalar);
    forceScalarForTesting(false);
    EXPECT_EQ(kernels().tapLoop, hasVectorUnit() ? vectorKernels().tapLoop : scalarKernels().tapLoop);
}

}  // namespace
}  // namespace varitap
