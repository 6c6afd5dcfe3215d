#include "tools/render/PluginInstance.h"

#include "RenderTestSupport.h"

#include <gtest/gtest.h>

#include <cstdlib>

using namespace render;
using namespace rendertest;

namespace {

// What the test plug-in was told by the host.
std::string hostInfo(PluginInstance& plugin) {
    char text[512] = {};
    plugin.effect()->dispatcher(plugin.effect(), vst::effVendorSpecific, vst::fourCharCode('i', 'n', 'f', 'o'),
                                0, text, 0.0f);
    return text;
}

}  // namespace

TEST(PluginInstanceTest, FindsTheSharedObjectAndTheBundleBothWays) {
    PluginLocation location;
    std::string error;
    ASSERT_TRUE(locatePlugin(TEST_DELAY_BUNDLE, location, error)) << error;
    EXPECT_EQ(location.bundle, TEST_DELAY_BUNDLE);
    EXPECT_EQ(location.sharedObject, TEST_DELAY_SO);

    // Through a relative path with a detour, as hosts sometimes load.
    std::string detour = std::string(TEST_DELAY_BUNDLE) + "/Contents/../Contents/" VARITAP_ARCH_DIR "/TestDelay.so";
    ASSERT_TRUE(locatePlugin(detour, location, error));
    EXPECT_EQ(location.bundle, TEST_DELAY_BUNDLE);
    EXPECT_EQ(location.sharedObject, TEST_DELAY_SO);

    ASSERT_TRUE(locatePlugin(TEST_DELAY_MAIN_SO, location, error));
    EXPECT_EQ(location.bundle, "");  // a bare .so has no bundle
    // Missing paths and folders are refused through the program itself.
}

TEST(PluginInstanceTest, RefusesWhatIsNotAVst2PlugInAndSaysWhy) {
    TempDir dir;
    std::string error;
    EXPECT_EQ(PluginInstance::load(NOT_A_PLUGIN_SO, error), nullptr);
    EXPECT_NE(error.find("no VSTPluginMain or main"), std::string::npos) << error;
    std::ofstream(dir / "fake.so") << "not an ELF file";
    EXPECT_EQ(PluginInstance::load(dir / "fake.so", error), nullptr);
    EXPECT_NE(error.find("(cannot load it"), std::string::npos) << error;

    ::setenv("TEST_DELAY_REFUSE", "1", 1);
    EXPECT_EQ(PluginInstance::load(TEST_DELAY_BUNDLE, error), nullptr);
    ::unsetenv("TEST_DELAY_REFUSE");
    EXPECT_NE(error.find("refused to start"), std::string::npos) << error;
}

TEST(PluginInstanceTest, AnswersThePlugInLikeAHost) {
    for (const char* path : {TEST_DELAY_BUNDLE, TEST_DELAY_MAIN_SO}) {
        auto plugin = loadOrFail(path);
        ASSERT_NE(plugin, nullptr);
        EXPECT_EQ(plugin->effectName(), "TestDelay");
        EXPECT_EQ(plugin->numParams(), 3);
        EXPECT_EQ(plugin->findParameter("Delay"), 1);
        EXPECT_EQ(plugin->findParameter("delay"), -1);
        EXPECT_FALSE(plugin->isVaritap());
        plugin->setParameter(1, 0.25f);
        EXPECT_EQ(plugin->parameterDisplay(1), "250");
        EXPECT_EQ(plugin->parameterLabel(1), "smp");

        plugin->start(22050.0, 300, 1, 2, 90.0);
        std::string info = hostInfo(*plugin);
        // Asked during construction, before the host knew the record.
        EXPECT_NE(info.find("version=2300 vendor=varitap-render "), std::string::npos) << info;
        EXPECT_NE(info.find("in=10000000 out=11000000"), std::string::npos) << info;
        EXPECT_NE(info.find("rate=22050 hostRate=22050 block=300 hostBlock=300 mains=1"), std::string::npos)
            << info;
        for (int i = 0; i < 5; ++i) plugin->process(i == 4 ? 17 : 300);
        EXPECT_DOUBLE_EQ(plugin->transport().samplePos, 1217.0);
        info = hostInfo(*plugin);
        EXPECT_NE(info.find("blocks=5 timeErrors=0 tempo=90"), std::string::npos) << info;
        plugin->stop();
        EXPECT_NE(hostInfo(*plugin).find("mains=0"), std::string::npos);
    }
}

TEST(PluginInstanceTest, ProcessesInBothModesWithTheSameResult) {
    std::vector<float> replaced, accumulated;
    for (bool accumulate : {false, true}) {
        if (accumulate) ::setenv("TEST_DELAY_ACCUMULATE", "1", 1);
        auto plugin = loadOrFail(TEST_DELAY_BUNDLE);
        ::unsetenv("TEST_DELAY_ACCUMULATE");
        ASSERT_NE(plugin, nullptr);
        EXPECT_EQ(!!(plugin->effect()->flags & vst::effFlagsCanReplacing), !accumulate);
        plugin->setParameter(1, 0.1f);  // 100 samples
        plugin->start(44100.0, 64, 2, 2, 120.0);
        std::vector<float>& out = accumulate ? accumulated : replaced;
        for (int block = 0; block < 4; ++block) {
            for (int c = 0; c < 2; ++c)
                for (int i = 0; i < 64; ++i) plugin->inputs()[c][i] = (block == 0 && i == 10) ? 1.0f : 0.0f;
            // Whatever the buffers held before must not leak into the result.
            for (int c = 0; c < 2; ++c)
                for (int i = 0; i < 64; ++i) plugin->outputs()[c][i] = 7.0f;
            plugin->process(64);
            out.insert(out.end(), plugin->outputs()[1], plugin->outputs()[1] + 64);
        }
    }
    ASSERT_EQ(replaced.size(), 256u);
    EXPECT_EQ(replaced, accumulated);
    for (size_t i = 0; i < replaced.size(); ++i) EXPECT_FLOAT_EQ(replaced[i], i == 110 ? 1.0f : 0.0f) << i;
}

TEST(PluginInstanceTest, APlugInThatGrowsItsPinsAfterStartIsNotRun) {
    auto plugin = loadOrFail(TEST_DELAY_BUNDLE);
    ASSERT_NE(plugin, nullptr);
    plugin->start(44100.0, 32, 2, 2, 120.0);
    for (int i = 0; i < 32; ++i) plugin->inputs()[0][i] = plugin->inputs()[1][i] = 1.0f;
    plugin->process(32);
    EXPECT_FLOAT_EQ(plugin->outputs()[0][0], 1.0f);
    plugin->effect()->dispatcher(plugin->effect(), vst::effVendorSpecific, vst::fourCharCode('g', 'r', 'o', 'w'),
                                 0, nullptr, 0.0f);
    plugin->process(32);  // would write eight outputs into two buffers
    for (int c = 0; c < 2; ++c)
        for (int i = 0; i < 32; ++i) EXPECT_EQ(plugin->outputs()[c][i], 0.0f);
}
