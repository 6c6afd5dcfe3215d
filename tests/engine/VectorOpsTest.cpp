#include "engine/VectorOps.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <vector>

#include "KernelChecks.h"
#include "persistence/SystemInfo.h"

namespace varitap {
namespace {

using namespace test;

// The sets whose kernels must equal the scalar set's: SSE2 (or NEON) and,
// where the processor has it, AVX2.
TEST(VectorOpsTest, EveryKernelSetMatchesTheScalarSet) {
    std::vector<const Kernels*> sets = {&vectorKernels()};
    if (avx2Kernels()) sets.push_back(avx2Kernels());
    for (const Kernels* set : sets) EXPECT_EQ(kernelSetDifference(*set), "") << "lane width " << set->laneWidth;
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

// The scalar set when the flag forces it, else AVX2 where the processor has
// it and the switch allows it, else SSE2 (or NEON).
TEST(VectorOpsTest, KernelsFollowTheVectorUnitFlag) {
    forceScalarForTesting(true);
    EXPECT_EQ(&kernels(), &scalarKernels());
    EXPECT_EQ(kernels().sanitize, sanitizeScalar);
    forceScalarForTesting(false);
    const Kernels* vector = hasVectorUnit() ? &vectorKernels() : &scalarKernels();
    EXPECT_EQ(&kernels(), hasVectorUnit() && avx2Kernels() ? avx2Kernels() : vector);
    allowAvx2ForTesting(false);
    EXPECT_EQ(&kernels(), vector);
    allowAvx2ForTesting(true);
}

}  // namespace
}  // namespace varitap
