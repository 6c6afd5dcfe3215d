// scripts/install.sh with a prefix: the bundle lands whole where it is asked
// to, replaces an earlier copy, and loads from there.
#include <dlfcn.h>
#include <gtest/gtest.h>
#include <stdlib.h>
#include <sys/stat.h>

#include <string>

#include "FakeHost.h"

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

TEST(Install, PrefixGetsOneWholeLoadableBundle) {
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
    EXPECT_EQ(std::system(("test $(ls -A '" + prefix + "' | wc -l) -eq 1").c_str()), 0);

    void* handle = dlopen(so.c_str(), RTLD_NOW | RTLD_LOCAL);
    ASSERT_NE(handle, nullptr) << dlerror();
    auto entry = reinterpret_cast<MainProc>(dlsym(handle, "VSTPluginMain"));
    ASSERT_NE(entry, nullptr);
    {
        FakeHost host;
        AEffect* effect = entry(&FakeHost::callback);
        ASSERT_NE(effect, nullptr);
        EXPECT_EQ(effect->numParams, 241);
        effect->dispatcher(effect, vst::effClose, 0, 0, nullptr, 0.0f);
    }
    dlclose(handle);

    // A build folder without a bundle is refused.
    std::string command = std::string("bash '") + VARITAP_SOURCE_DIR +
                          "/scripts/install.sh' --build /nonexistent --prefix '" + prefix + "' 2>/dev/null";
    EXPECT_NE(std::system(command.c_str()), 0);
    EXPECT_EQ(std::system(("rm -rf '" + prefix + "'").c_str()), 0);
}

}  // namespace
}  // namespace varitap::test
