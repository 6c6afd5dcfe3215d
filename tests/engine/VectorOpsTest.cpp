#include "engine/VectorOps.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <vector>

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
