// Renders through Varitap's own bundle. Skips while the bundle is not built.
#include "RenderTestSupport.h"

#include <gtest/gtest.h>

using namespace rendertest;

namespace {

bool varitapBuilt() { return fileExists(VARITAP_BUNDLE_DIR "/Contents/" VARITAP_ARCH_DIR "/Varitap.so"); }

}  // namespace

TEST(VaritapRenderTest, LoadsThroughTheBundle) {
    if (!varitapBuilt()) GTEST_SKIP() << "Varitap bundle not built";
    TempDir dir;
    RunResult result = runRender({"--plugin", VARITAP_BUNDLE_DIR, "--list-params"}, dir.path());
    ASSERT_EQ(result.status, 0) << result.err;
    EXPECT_NE(result.out.find("#1: Delay"), std::string::npos) << result.out;
}
