// Opening and closing the editor again and again while the audio thread
// processes (its modulators writing parameters) and the host automates every
// parameter from a thread of its own. Run under ThreadSanitizer as well.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <thread>
#include <vector>

#include "EditorTestSupport.h"
#include "editor/DelayEditor.h"
#include "engine/ParameterLayout.h"
#include "gui/Knob.h"

namespace varitap::test {
namespace {

using gui::test::openDescriptors;

int childWindows(HostDisplay& display, xcb_window_t w) {
    xcb_query_tree_reply_t* tree =
        xcb_query_tree_reply(display.connection(), xcb_query_tree(display.connection(), w), nullptr);
    if (!tree) return -1;
    const int n = xcb_query_tree_children_length(tree);
    free(tree);
    return n;
}

TEST(EditorThreadsTest, OpeningAndClosingAHundredTimesUnderAudioAndAutomation) {
    if (!gui::test::haveDisplay()) GTEST_SKIP() << "no X server";
    ConfigHome home;
    EditorHost host;
    ASSERT_NE(host.editor(), nullptr);
    vst::AEffect* effect = host.aeffect();
    // Busy modulators: each one powered, free-running and fast, aimed at a
    // tap parameter, so that the audio thread writes parameters too.
    for (int m = 0; m < kModulatorCount; ++m) {
        effect->setParameter(effect, modulatorParameterIndex(m, kModulatorIndex),
                             static_cast<float>(tapParameterIndex(m, kTapVolume)));
        effect->setParameter(effect, modulatorParameterIndex(m, kModulatorType),
                             static_cast<float>(m % 4) / 3.0f);
        effect->setParameter(effect, modulatorParameterIndex(m, kModulatorSync), 0.0f);
        effect->setParameter(effect, modulatorParameterIndex(m, kModulatorSpeed), 0.01f);
        effect->setParameter(effect, modulatorParameterIndex(m, kModulatorPower), 1.0f);
    }
    host.dispatch(vst::effMainsChanged, 0, 1);

    // One warm-up opening: fonts and bitmaps are loaded once for good.
    ASSERT_TRUE(host.openEditor());
    host.closeEditor();
    const int descriptors = openDescriptors();

    std::atomic<bool> stop{false};
    std::atomic<long> blocks{0};
    std::atomic<long> changes{0};
    std::thread audio([&] {
        std::vector<float> left(256), right(256);
        float* channels[2] = {left.data(), right.data()};
        while (!stop) {
            for (size_t i = 0; i < left.size(); ++i) left[i] = right[i] = (i % 64) / 64.0f - 0.5f;
            effect->processReplacing(effect, channels, channels, 256);
            ++blocks;
        }
    });
    std::thread automation([&] {
        unsigned seed = 12345;
        while (!stop) {
            seed = seed * 1103515245u + 12345u;
            const int32_t index = static_cast<int32_t>((seed >> 8) % kParameterCount);
            const float value = static_cast<float>((seed >> 4) % 1000) / 999.0f;
            // Every parameter, those the modulators write included.
            effect->setParameter(effect, index, value);
            ++changes;
        }
    });

    const auto start = std::chrono::steady_clock::now();
    for (int round = 0; round < 100; ++round) {
        ASSERT_EQ(host.dispatch(vst::effEditOpen, 0, 0,
                                reinterpret_cast<void*>(static_cast<uintptr_t>(host.hostWindow()))),
                  1)
            << "round " << round;
        host.dispatch(vst::effEditIdle);
        host.closeEditor();
        hostLog().clear();
    }
    const double seconds =
        std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    RecordProperty("open_close_ms", static_cast<int>(seconds * 10.0));  // per round
    std::printf("100 openings and closings: %.2f s\n", seconds);
    stop = true;
    audio.join();
    automation.join();
    EXPECT_GT(blocks.load(), 100);
    EXPECT_GT(changes.load(), 1000);

    // Nothing of the editor is left: no window under the host's, no menu,
    // no descriptor (X connections) and no editor tree.
    host.display().sync();
    EXPECT_EQ(childWindows(host.display(), host.hostWindow()), 0);
    EXPECT_TRUE(host.display().popupWindows().empty());
    EXPECT_EQ(openDescriptors(), descriptors);
    EXPECT_EQ(host.editor()->frame(), nullptr);
    // And it still opens and follows the host afterwards.
    ASSERT_TRUE(host.openEditor());
    effect->setParameter(effect, 20, 0.625f);
    EXPECT_FLOAT_EQ(host.editor()->wetDryKnob()->value(), 0.625f);
}

}  // namespace
}  // namespace varitap::test
