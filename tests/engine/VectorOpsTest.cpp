#include "engine/VectorOps.h"

#include <gtest/gtest.h>

#include "KernelChecks.h"
#include "persistence/SystemInfo.h"

namespace varitap {
namespace {

using namespace test;

// The sets whose kernels must equal the scalar set's (the tap's own 4-lane
// routine checked with them): SSE2 (or NEON) and, where the processor has
// it, AVX2.
TEST(VectorOpsTest, EveryKernelSetMatchesTheScalarSet) {
    std::vector<const Kernels*> sets = {&vectorKernels()};
    if (avx2Kernels()) sets.push_back(avx2Kernels());
    for (const Kernels* set : sets) EXPECT_EQ(kernelSetDifference(*set), "") << "lane width " << set->laneWidth;
}

// The scalar set when the flag forces it, else AVX2 where the processor has
// it and the switch allows it, else SSE2 (or NEON). The flag is the vector
// unit's answer too: an instance made later does not undo it, and it
// outlives the last instance (loops keep asking).
TEST(VectorOpsTest, KernelsFollowTheVectorUnitFlag) {
    SystemInfo* info = SystemInfo::acquire();
#if defined(__x86_64__) || defined(__aarch64__)
    // SSE2 belongs to every x86-64 processor; Advanced SIMD to every Linux aarch64 one.
    EXPECT_TRUE(info->hasVectorUnit());
#endif
    const bool native = hasVectorUnit();
    forceScalarForTesting(true);
    SystemInfo* again = SystemInfo::acquire();
    EXPECT_FALSE(info->hasVectorUnit() || hasVectorUnit());
    EXPECT_EQ(&kernels(), &scalarKernels());
    EXPECT_EQ(kernels().sanitize, sanitizeScalar);
    forceScalarForTesting(false);
    again->release();
    info->release();
    EXPECT_EQ(hasVectorUnit(), native);
    const Kernels* vector = hasVectorUnit() ? &vectorKernels() : &scalarKernels();
    EXPECT_EQ(&kernels(), hasVectorUnit() && avx2Kernels() ? avx2Kernels() : vector);
    allowAvx2ForTesting(false);
    EXPECT_EQ(&kernels(), vector);
    allowAvx2ForTesting(true);
}

}  // namespace
}  // namespace varitap
