// scripts/install.sh with a prefix: the bundles (VST 2, LV2 and CLAP) land
// whole where they are asked to, replace earlier copies, and load from there.
#include <dlfcn.h>
#include <gtest/gtest.h>
#include <stdlib.h>
#include <sys/stat.h>

#include <string>

#include "tools/render/PluginInstance.h"

namespace varitap::test {
namespace {

bool exists(const std::string& path) {
    struct stat st;
    return stat(path.c_str(), &st) == 0;
}

int runInstall(const std::string& prefix) {
    std::string command = std::string("bash '") + VARITAP_SOURCE_DIR + "/scripts/install.sh' --build '" +
                          VARITAP_BINARY_DIR + "' --prefix '" + prefix + "' >/dev/null";
    return std::system(command.c_str());
}

TEST(Install, PrefixGetsOneWholeLoadableBundleOfEachFormat) {
    char pattern[] = "/tmp/varitap-install-XXXXXX";
    ASSERT_NE(mkdtemp(pattern), nullptr);
    const std::string prefix = pattern;
    const std::string bundle = prefix + "/Varitap.vst";
    const std::string so = bundle + "/Contents/" + VARITAP_ARCH_DIR + "/Varitap.so";

    ASSERT_EQ(runInstall(prefix), 0);
    EXPECT_TRUE(exists(so));
    EXPECT_TRUE(exists(bundle + "/Contents/Resources"));
    // Reinstalling replaces the copy and leaves no staging folder behind.
    ASSERT_EQ(std::system(("touch '" + bundle + "/stale'").c_str()), 0);
    ASSERT_EQ(runInstall(prefix), 0);
    EXPECT_FALSE(exists(bundle + "/stale"));
    EXPECT_EQ(std::system(("test $(ls -A '" + prefix + "' | wc -l) -eq 3").c_str()), 0);

    // The VST 2 and CLAP modules load from there as varitap-render loads them.
    for (const std::string& module : {so, prefix + "/Varitap/Contents/" VARITAP_ARCH_DIR "/Varitap.clap"}) {
        std::string error;
        auto plugin = render::loadPlugin(module, error);
        ASSERT_NE(plugin, nullptr) << module << ": " << error;
        EXPECT_EQ(plugin->numParams(), 241);
    }
    EXPECT_TRUE(exists(prefix + "/Varitap/Contents/Resources/varitap.factory.presets.xml"));

    const std::string lv2 = prefix + "/Varitap.lv2";
    EXPECT_TRUE(exists(lv2 + "/manifest.ttl"));
    EXPECT_TRUE(exists(lv2 + "/Varitap.ttl"));
    EXPECT_TRUE(exists(lv2 + "/Contents/Resources/varitap.factory.presets.xml"));
    void* handle = dlopen((lv2 + "/Contents/" + VARITAP_ARCH_DIR + "/Varitap.so").c_str(), RTLD_NOW | RTLD_LOCAL);
    ASSERT_NE(handle, nullptr) << dlerror();
    using Descriptor = const void* (*)(uint32_t);
    auto descriptor = reinterpret_cast<Descriptor>(dlsym(handle, "lv2_descriptor"));
    ASSERT_NE(descriptor, nullptr);
    EXPECT_NE(descriptor(0), nullptr);
    EXPECT_EQ(descriptor(1), nullptr);
    dlclose(handle);

    // A build folder without a bundle is refused.
    std::string command = std::string("bash '") + VARITAP_SOURCE_DIR +
                          "/scripts/install.sh' --build /nonexistent --prefix '" + prefix + "' 2>/dev/null";
    EXPECT_NE(std::system(command.c_str()), 0);
    EXPECT_EQ(std::system(("rm -rf '" + prefix + "'").c_str()), 0);
}

}  // namespace
}  // namespace varitap::test
