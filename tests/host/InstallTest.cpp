// scripts/install.sh with a prefix: the bundles (VST 2, LV2 and CLAP) land
// whole where they are asked to, replace earlier copies, and load from there.
#include <gtest/gtest.h>
#include <stdlib.h>

#include <string>

#include "../base/TestSupport.h"
#include "FakeHost.h"
#include "tools/render/PluginInstance.h"

namespace varitap::test {
namespace {

int runInstall(const std::string& prefix, const std::string& build = VARITAP_BINARY_DIR) {
    return std::system((std::string("bash '") + VARITAP_SOURCE_DIR + "/scripts/install.sh' --build '" + build +
                        "' --prefix '" + prefix + "' >/dev/null 2>&1").c_str());
}

TEST(Install, PrefixGetsOneWholeLoadableBundleOfEachFormat) {
    TempDir folder;
    const std::string& prefix = folder.path();
    const std::string bundle = prefix + "/Varitap.vst";
    const std::string so = bundle + "/Contents/" + VARITAP_ARCH_DIR + "/Varitap.so";

    const std::string lv2 = prefix + "/Varitap.lv2";
    ASSERT_EQ(runInstall(prefix), 0);
    // Reinstalling replaces the copy (whole) and leaves no staging folder behind.
    ASSERT_EQ(std::system(("touch '" + bundle + "/stale'").c_str()), 0);
    ASSERT_EQ(runInstall(prefix), 0);
    EXPECT_FALSE(fileExists(bundle + "/stale"));
    for (const std::string& file : {so, bundle + "/Contents/Resources", lv2 + "/manifest.ttl", lv2 + "/Varitap.ttl",
                                    lv2 + "/Contents/Resources/varitap.factory.presets.xml",
                                    prefix + "/Varitap/Contents/Resources/varitap.factory.presets.xml"})
        EXPECT_TRUE(fileExists(file)) << file;
    EXPECT_EQ(std::system(("test $(ls -A '" + prefix + "' | wc -l) -eq 3").c_str()), 0);

    // The VST 2 and CLAP modules load from there as varitap-render loads them.
    for (const std::string& module : {so, prefix + "/Varitap/Contents/" VARITAP_ARCH_DIR "/Varitap.clap"}) {
        std::string error;
        auto plugin = render::loadPlugin(module, error);
        ASSERT_NE(plugin, nullptr) << module << ": " << error;
        EXPECT_EQ(plugin->numParams(), 241);
    }
    BundleLibrary module("lv2_descriptor", lv2 + "/Contents/" + VARITAP_ARCH_DIR + "/Varitap.so");
    ASSERT_TRUE(module.loaded());
    auto descriptor = reinterpret_cast<const void* (*)(uint32_t)>(module.symbol());
    EXPECT_NE(descriptor(0), nullptr);
    EXPECT_EQ(descriptor(1), nullptr);

    // A build folder without a bundle is refused.
    EXPECT_NE(runInstall(prefix, "/nonexistent"), 0);
}

}  // namespace
}  // namespace varitap::test
