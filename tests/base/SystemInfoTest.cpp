#include "persistence/SystemInfo.h"

#include <gtest/gtest.h>

namespace varitap {
namespace {

TEST(SystemInfoTest, TheProcessorsAnswerAndTheTestSwitch) {
    SystemInfo* info = SystemInfo::acquire();
#if defined(__x86_64__) || defined(__aarch64__)
    // SSE2 belongs to every x86-64 processor; Advanced SIMD to every Linux aarch64 one.
    EXPECT_TRUE(info->hasVectorUnit());
    EXPECT_TRUE(hasVectorUnit());
#endif
    const bool native = hasVectorUnit();
    forceScalarForTesting(true);
    EXPECT_FALSE(hasVectorUnit());
    EXPECT_FALSE(info->hasVectorUnit());
    // A later instance's probe does not undo the switch.
    SystemInfo* again = SystemInfo::acquire();
    EXPECT_FALSE(hasVectorUnit());
    forceScalarForTesting(false);
    EXPECT_EQ(hasVectorUnit(), native);
    again->release();
    info->release();
    // The flag outlives the object: loops keep asking after the last instance.
    EXPECT_EQ(hasVectorUnit(), native);
}

}  // namespace
}  // namespace varitap
