#include "tools/render/Renderer.h"

#include "RenderTestSupport.h"

#include <gtest/gtest.h>

using namespace render;
using namespace rendertest;

namespace {

using RendererTest = RenderTest;

// Renders and collects the interleaved stereo output.
std::vector<float> renderAll(PluginInstance& plugin, AudioSource& source, const RenderSettings& settings,
                             RenderResult& result) {
    std::vector<float> out;
    std::string error;
    BlockSink sink = [&](const float*, const float* output, int frames) {
        out.insert(out.end(), output, output + 2 * frames);
        return true;
    };
    EXPECT_TRUE(renderSource(plugin, source, settings, 2, sink, result, error)) << error;
    return out;
}

}  // namespace

TEST(RendererCountTest, ChannelCountsFollowTheInputWithinThePlugInsPins) {
    // {pins, file channels, outputs written, inputs fed}: mono feeds both inputs.
    const int cases[][4] = {{2, 1, 2, 2}, {2, 6, 2, 2}, {8, 2, 2, 2}, {8, 4, 4, 4}, {1, 2, 1, 1}, {8, 3, 3, 3}, {1, 1, 1, 1}};
    for (const auto& c : cases) {
        EXPECT_EQ(outputChannelCount(c[0], c[1]), c[2]) << c[0] << " " << c[1];
        EXPECT_EQ(connectedInputCount(c[0], c[1]), c[3]) << c[0] << " " << c[1];
    }
}

// 1000 mono frames at 8000 Hz and 480 BPM (a beat is 1000 frames) with an
// impulse at frame 600: the dry signal on both sides, the right echo (three
// quarters of a beat) in the tail, the left one after it.
TEST_F(RendererTest, MonoReachesBothInputsAndTheTailKeepsLateEchoes) {
    auto plugin = load();
    ASSERT_NE(plugin, nullptr);
    std::vector<float> mono(1000, 0.0f);
    mono[600] = 1.0f;
    MemorySource source(mono, 1, 8000.0);
    RenderSettings settings;
    settings.tempo = 480.0;
    settings.blockSize = 128;
    settings.tailSeconds = 0.05;  // 400 frames
    RenderResult result;
    auto out = renderAll(*plugin, source, settings, result);
    EXPECT_EQ(result.frames, 1400);
    EXPECT_DOUBLE_EQ(result.audioSeconds, 1400.0 / 8000.0);
    ASSERT_EQ(out.size(), 2800u);
    EXPECT_EQ(peaks(out, 2, 0, 1e-4f), std::vector<long>{600});
    EXPECT_EQ(peaks(out, 2, 1, 1e-4f), (std::vector<long>{600, 1350}));
    EXPECT_FLOAT_EQ(out[2 * 1350 + 1], kWet);
    EXPECT_FLOAT_EQ(out[2 * 600], kDry);
    EXPECT_FLOAT_EQ(out[2 * 600 + 1], kDry);
}

TEST_F(RendererTest, BlockSizeDoesNotChangeTheResult) {
    std::vector<float> stereo(2 * 5000, 0.0f);
    for (int f = 0; f < 5000; f += 50) {
        stereo[2 * f] = 0.1f * (f / 500 + 1);
        stereo[2 * f + 1] = -0.05f * (f / 250 + 1);
    }
    std::vector<float> reference;
    for (int block : {500, 1, 7, 64}) {
        auto plugin = load();
        ASSERT_NE(plugin, nullptr);
        MemorySource source(stereo, 2, 8000.0);
        RenderSettings settings;
        settings.tempo = 480.0;
        settings.blockSize = block;
        RenderResult result;
        auto out = renderAll(*plugin, source, settings, result);
        if (reference.empty()) reference = out;
        EXPECT_EQ(out, reference) << "block " << block;
    }
    EXPECT_EQ(reference.size(), 2u * (5000 + 2 * 8000));
}
