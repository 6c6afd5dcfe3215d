#include "tools/render/Renderer.h"

#include "RenderTestSupport.h"

#include <gtest/gtest.h>

#include <cmath>

using namespace render;
using namespace rendertest;

namespace {

// Renders and collects the interleaved output.
std::vector<float> renderAll(PluginInstance& plugin, AudioSource& source, const RenderSettings& settings,
                             int channels, RenderResult& result) {
    std::vector<float> out;
    std::string error;
    BlockSink sink = [&](const float*, const float* output, int frames) {
        out.insert(out.end(), output, output + static_cast<size_t>(frames) * channels);
        return true;
    };
    EXPECT_TRUE(renderSource(plugin, source, settings, channels, sink, result, error)) << error;
    return out;
}

}  // namespace

TEST(RendererTest, ChannelCountsFollowTheInputWithinThePlugInsPins) {
    // {pins, file channels, outputs written, inputs fed}: mono feeds both inputs.
    const int cases[][4] = {{2, 1, 2, 2}, {2, 6, 2, 2}, {8, 2, 2, 2}, {8, 4, 4, 4}, {1, 2, 1, 1}, {8, 3, 3, 3}, {1, 1, 1, 1}};
    for (const auto& c : cases) {
        EXPECT_EQ(outputChannelCount(c[0], c[1]), c[2]) << c[0] << " " << c[1];
        EXPECT_EQ(connectedInputCount(c[0], c[1]), c[3]) << c[0] << " " << c[1];
    }
}

TEST(RendererTest, MonoReachesBothInputsAndTheTailKeepsLateEchoes) {
    auto plugin = loadOrFail(TEST_DELAY_BUNDLE);
    ASSERT_NE(plugin, nullptr);
    plugin->setParameter(1, 0.5f);  // 500 samples
    // 1000 mono frames with an impulse 200 frames before the end: its echo
    // falls 300 frames after the input ends.
    std::vector<float> mono(1000, 0.0f);
    mono[800] = 0.5f;
    MemorySource source(mono, 1, 8000.0);
    RenderSettings settings;
    settings.blockSize = 128;
    settings.tailSeconds = 0.05;  // 400 frames
    RenderResult result;
    auto out = renderAll(*plugin, source, settings, 2, result);
    EXPECT_EQ(result.frames, 1400);
    EXPECT_DOUBLE_EQ(result.audioSeconds, 1400.0 / 8000.0);
    ASSERT_EQ(out.size(), 2800u);
    for (long f = 0; f < 1400; ++f) {
        float expected = f == 1300 ? 0.5f : 0.0f;
        EXPECT_FLOAT_EQ(out[2 * f], expected) << f;
        EXPECT_FLOAT_EQ(out[2 * f + 1], expected) << f;
    }

    // Without a tail the echo is cut.
    source.rewind();
    settings.tailSeconds = 0.0;
    out = renderAll(*plugin, source, settings, 2, result);
    EXPECT_EQ(result.frames, 1000);
    for (float s : out) EXPECT_EQ(s, 0.0f);
}

TEST(RendererTest, BlockSizeDoesNotChangeTheResultAndExtraPinsGetSilence) {
    auto plugin = loadOrFail(TEST_DELAY_FOUR_SO);  // one input, four outputs
    ASSERT_NE(plugin, nullptr);
    plugin->setParameter(1, 0.125f);  // 125 samples
    std::vector<float> stereo(2 * 500, 0.0f);
    for (int f = 0; f < 500; f += 50) {
        stereo[2 * f] = 0.1f * (f / 50 + 1);  // left only
        stereo[2 * f + 1] = -1.0f;            // right: no pin for it
    }
    std::vector<float> reference;
    for (int block : {500, 1, 7, 64}) {
        MemorySource source(stereo, 2, 44100.0);
        RenderSettings settings;
        settings.blockSize = block;
        settings.tailSeconds = 0.002;  // 88 frames
        RenderResult result;
        auto out = renderAll(*plugin, source, settings, outputChannelCount(4, 2), result);
        if (reference.empty()) {
            reference = out;
            // Output 2 repeats the one input (the plug-in feeds every output from it).
            ASSERT_EQ(out.size(), 2u * (500 + 88));
            EXPECT_FLOAT_EQ(out[2 * 125], 0.1f);
            EXPECT_FLOAT_EQ(out[2 * 125 + 1], 0.1f);
            EXPECT_FLOAT_EQ(out[2 * 575], 1.0f);
            EXPECT_FLOAT_EQ(*std::min_element(out.begin(), out.end()), 0.0f);  // right never heard
        } else {
            EXPECT_EQ(out, reference) << "block " << block;
        }
    }
}
