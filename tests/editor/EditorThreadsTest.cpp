// Opening and closing the editor again and again while the audio thread
// processes (its modulators writing parameters) and the host automates every
// parameter from a thread of its own. Run under ThreadSanitizer as well.
#include "EditorTestSupport.h"

namespace varitap::test {
namespace {

using EditorThreadsTest = EditorTest;

TEST_F(EditorThreadsTest, OpeningAndClosingAHundredTimesUnderAudioAndAutomation) {
    // Busy modulators: each one powered, free-running and fast, aimed at a
    // tap parameter, so that the audio thread writes parameters too.
    for (int m = 0; m < kModulatorCount; ++m) {
        hostSets(modulatorParameterIndex(m, kModulatorIndex), static_cast<float>(tapParameterIndex(m, kTapVolume)));
        hostSets(modulatorParameterIndex(m, kModulatorType), static_cast<float>(m % 4) / 3.0f);
        hostSets(modulatorParameterIndex(m, kModulatorSync), 0.0f);
        hostSets(modulatorParameterIndex(m, kModulatorSpeed), 0.01f);
        hostSets(modulatorParameterIndex(m, kModulatorPower), 1.0f);
    }
    host.dispatch(vst::effMainsChanged, 0, 1);

    std::atomic<bool> stop{false};
    std::atomic<long> changes{0};
    std::thread automation([&] {
        unsigned seed = 12345;
        while (!stop) {
            seed = seed * 1103515245u + 12345u;
            const int32_t index = static_cast<int32_t>((seed >> 8) % kParameterCount);
            const float value = static_cast<float>((seed >> 4) % 1000) / 999.0f;
            hostSets(index, value);  // every parameter, those the modulators write included
            ++changes;
        }
    });
    std::vector<float> left(256), right(256);
    float* channels[2] = {left.data(), right.data()};
    openAndCloseAHundredTimes(
        host.display(), host.hostWindow(),
        [&] {
            const bool opened = host.dispatch(vst::effEditOpen, 0, 0, host.parent()) == 1;
            host.dispatch(vst::effEditIdle);
            return opened;
        },
        [&] {
            host.closeEditor();
            host.log.clear();
        },
        [&] {
            for (size_t i = 0; i < left.size(); ++i) left[i] = right[i] = (i % 64) / 64.0f - 0.5f;
            host.aeffect()->processReplacing(host.aeffect(), channels, channels, 256);
        });
    stop = true;
    automation.join();
    EXPECT_GT(changes.load(), 1000);
    EXPECT_EQ(host.editor()->frame(), nullptr);
    // And it still opens and follows the host afterwards.
    ASSERT_TRUE(host.openEditor());
    hostSets(20, 0.625f);
    EXPECT_FLOAT_EQ(host.editor()->wetDryKnob()->value(), 0.625f);
}

}  // namespace
}  // namespace varitap::test
