#include "tools/render/PluginInstance.h"

#include "RenderTestSupport.h"

#include <gtest/gtest.h>

using namespace render;
using namespace rendertest;

using PluginInstanceTest = RenderTest;

TEST_F(PluginInstanceTest, FindsTheSharedObjectAndTheBundleBothWays) {
    PluginLocation location;
    std::string error;
    // Through the bundle, the shared object, and a path with a detour, as hosts sometimes load.
    for (const std::string& path : {kBundle, kSharedObject, kBundle + "/Contents/../Contents/" VARITAP_ARCH_DIR "/Varitap.so"}) {
        ASSERT_TRUE(locatePlugin(path, location, error)) << path << ": " << error;
        EXPECT_EQ(location.bundle, kBundle);
        EXPECT_EQ(location.sharedObject, kSharedObject);
    }
    ASSERT_TRUE(locatePlugin(NOT_A_PLUGIN_SO, location, error));
    EXPECT_EQ(location.bundle, "");  // a bare .so has no bundle
    // Missing paths and folders are refused through the program itself.
}

TEST_F(PluginInstanceTest, RefusesWhatIsNotAVst2PlugInAndSaysWhy) {
    std::string error;
    EXPECT_EQ(PluginInstance::load(NOT_A_PLUGIN_SO, error), nullptr);
    EXPECT_NE(error.find("no VSTPluginMain or main"), std::string::npos) << error;
    std::ofstream(dir / "fake.so") << "not an ELF file";
    EXPECT_EQ(PluginInstance::load(dir / "fake.so", error), nullptr);
    EXPECT_NE(error.find("(cannot load it"), std::string::npos) << error;
    // Its only entry point is the older name "main", and it makes no instance.
    EXPECT_EQ(PluginInstance::load(REFUSING_PLUGIN_SO, error), nullptr);
    EXPECT_NE(error.find("refused to start"), std::string::npos) << error;
}

// A block of the transport follows the last, the short last one included.
// (Where the tempo and the rate put the echoes, and the parameters' displays:
// RenderToolTest.EchoesLandOnTheSampleWithTempoRateAndTail and
// RenderToolTest.ListsParametersWithTheirDisplays.)
TEST_F(PluginInstanceTest, AnswersThePlugInLikeAHost) {
    auto plugin = load();
    ASSERT_NE(plugin, nullptr);
    EXPECT_EQ(plugin->numParams(), 241);
    EXPECT_EQ(plugin->findParameter("#1: Delay"), 21);
    EXPECT_EQ(plugin->findParameter("#1: delay"), -1);
    EXPECT_TRUE(plugin->isVaritap());

    plugin->start(22050.0, 300, 2, 2, 90.0);
    for (int block = 0; block < 50; ++block) {
        const int frames = block == 49 ? 17 : 300;
        for (int c = 0; c < 2; ++c) std::fill_n(plugin->inputs()[c], frames, 0.0f);
        plugin->process(frames);
    }
    EXPECT_DOUBLE_EQ(plugin->transport().samplePos, 14717.0);
}

// A plug-in without processReplacing is called to add to buffers that the
// host clears first (Varitap's accumulating call adds the echoes); one that
// grows its pins after the start (which would write more outputs than there
// are buffers) is not run.
TEST_F(PluginInstanceTest, ProcessesInBothModesAndNotWithGrownPins) {
    std::vector<float> replaced, accumulated;
    for (bool accumulate : {false, true}) {
        auto plugin = load();
        ASSERT_NE(plugin, nullptr);
        if (accumulate) plugin->effect()->flags &= ~vst::effFlagsCanReplacing;
        plugin->start(48000.0, 64, 2, 2, 120.0);
        std::vector<float>& out = accumulate ? accumulated : replaced;
        for (int block = 0; block < 400; ++block) {
            for (int c = 0; c < 2; ++c) {
                for (int i = 0; i < 64; ++i) plugin->inputs()[c][i] = (block == 0 && i == 10) ? 1.0f : 0.0f;
                std::fill_n(plugin->outputs()[c], 64, 7.0f);  // must not leak into the result
            }
            plugin->process(64);
            out.insert(out.end(), plugin->outputs()[1], plugin->outputs()[1] + 64);
        }
        plugin->effect()->numInputs = plugin->effect()->numOutputs = 8;
        for (int c = 0; c < 2; ++c) std::fill_n(plugin->outputs()[c], 64, 7.0f);
        plugin->process(64);
        for (int c = 0; c < 2; ++c) EXPECT_EQ(std::count(plugin->outputs()[c], plugin->outputs()[c] + 64, 0.0f), 64);
    }
    EXPECT_EQ(peaks(replaced, 1, 0, 1e-4f), (std::vector<long>{10, 18010}));  // three quarters of a beat
    EXPECT_EQ(peaks(accumulated, 1, 0, 1e-4f), std::vector<long>{18010});
}
