// The built bundle under a host's threads, as Ardour and less careful hosts
// drive it. The process thread runs blocks of a sine and suspends/resumes
// the plug-in every hundred blocks (Ardour sends effMainsChanged from its
// process thread when an export starts) while the plug-in's modulators
// write automation through the host; three taps synchronised to "1/4" at a
// tempo that falls 1.5 % every block (50 down to 2.4 beats per minute, then
// again) reallocate their lines inside the blocks. Meanwhile one thread sets
// every other parameter and reads names, displays, labels and values back
// into 64-byte buffers, and another suspends, resumes and changes sample
// rate and block size in the middle of blocks, as hosts should not, yet some
// do. Crashes, or sanitizer reports, when another thread touches line
// memory. Run under ThreadSanitizer too (label "threads").
#include <gtest/gtest.h>

#include <atomic>
#include <cmath>
#include <cstring>
#include <thread>

#include "FakeHost.h"
#include "engine/ParameterLayout.h"

namespace varitap::test {
namespace {

using namespace vst;

using HostThreadsTest = BundleTest;

TEST_F(HostThreadsTest, ProcessAutomationTextsSuspendsAndRateChangesOnFourThreadsWhileTheLinesGrow) {
    // Ardour reports automation writing: the modulators then write through
    // the host (audioMasterAutomate) from the audio thread.
    host.time.flags = kVstTransportPlaying | kVstTempoValid | kVstAutomationWriting;
    host.time.sampleRate = 48000.0;
    Plugin plugin(library, host);
    ASSERT_TRUE(plugin);
    plugin.dispatch(effSetSampleRate, 0, 0, nullptr, 48000.0f);
    plugin.dispatch(effSetBlockSize, 0, 512);
    plugin.dispatch(effMainsChanged, 0, 1);
    // Every tap routed from input 1 to output 1, the first three synchronised.
    for (int t = 0; t < kTapCount; ++t) {
        plugin.set(kTapInputParameterBase + t, 1.5f / kInputSelectorScale);
        plugin.set(kTapOutputParameterBase + t, 1.5f / kOutputSelectorScale);
        if (t < 3) plugin.set(tapParameterIndex(t, kTapSync), 1.0f);
    }
    // Every modulator running, aimed at the delay, volume or feedback of one
    // of the other taps.
    for (int m = 0; m < kModulatorCount; ++m) {
        const int target = tapParameterIndex(3 + m % 7, m % 3);
        plugin.set(modulatorParameterIndex(m, kModulatorIndex), float(target));
        plugin.set(modulatorParameterIndex(m, kModulatorSpeed), 0.9f);
        plugin.set(modulatorParameterIndex(m, kModulatorSync), m % 2 ? 1.0f : 0.0f);
        plugin.set(modulatorParameterIndex(m, kModulatorPower), 1.0f);
    }

    std::atomic<bool> stop{false};
    std::atomic<long> reads{0}, mainsRounds{0};
    std::thread automation([&] {
        char text[64];
        for (unsigned i = 0; !stop.load(); ++i) {
            const int32_t index = int32_t(i % kParameterCount);
            const int slot = (index - kModulatorParameterBase) % kModulatorParameterCount;
            const bool modulatorTarget =
                index >= kModulatorParameterBase && (slot == kModulatorIndex || slot == kModulatorPower);
            const bool growingTap = index >= tapParameterIndex(0, 0) && index < tapParameterIndex(3, 0);
            // Synchronised lengths up to the longest note value make the
            // audio thread grow the other taps' lines too.
            if (!modulatorTarget && !growingTap) plugin.set(index, float((i * 7) % 101) / 100.0f);
            for (int32_t opcode : {effGetParamName, effGetParamDisplay, effGetParamLabel}) {
                // Cleared first as Ardour does (where nothing is written the
                // text stays empty); every text fits 31 characters.
                std::memset(text, 0, sizeof text);
                plugin.dispatch(opcode, index, 0, text);
                ASSERT_LE(strnlen(text, sizeof text), size_t(kNameTextMax)) << "opcode " << opcode << " index " << index;
            }
            EXPECT_TRUE(std::isfinite(plugin.get(index)));
            plugin.dispatch(effGetProgramName, 0, 0, text);
            reads.fetch_add(1);
        }
    });
    std::thread mains([&] {
        // Rates a hair apart: the tempo's fall, not the rate, grows the lines.
        const float rate[] = {48000.0f, 47952.0f, 47976.0f};
        for (unsigned i = 0; !stop.load(); ++i) {
            plugin.dispatch(effMainsChanged, 0, 0);
            plugin.dispatch(effMainsChanged, 0, 1);
            plugin.dispatch(effSetSampleRate, 0, 0, nullptr, rate[i % 3]);
            plugin.dispatch(effSetBlockSize, 0, VstIntPtr(256) << (i % 3));
            mainsRounds.fetch_add(1);
            std::this_thread::yield();
        }
    });

    // At least 600 blocks, and on until the automation thread went twice
    // through every parameter.
    Plugin::Buffers in(2, std::vector<float>(512)), out = in;
    bool finite = true;
    for (int b = 0; finite && (b < 600 || (reads.load() < 2 * kParameterCount && b < 100000)); ++b) {
        if (b % 100 == 50) {
            plugin.dispatch(effMainsChanged, 0, 0);
            plugin.dispatch(effMainsChanged, 0, 1);
        }
        // A grown line lowers the "Delay" value (its length over the
        // capacity): the host's automation puts it back on "1/4".
        host.time.tempo = 50.0 * std::pow(0.985, b % 200);
        for (int t = 0; t < 3; ++t) plugin.set(tapParameterIndex(t, kTapDelay), 0.55f);
        for (int c = 0; c < 2; ++c)
            for (int s = 0; s < 512; ++s) in[c][s] = std::sin(0.01f * float(s + 512 * b + c));
        host.time.samplePos = 512.0 * b;
        plugin.processReplacing(in, out, 512);
        for (int c = 0; c < 2; ++c)
            for (float x : out[c]) finite = finite && std::isfinite(x);
    }
    stop = true;
    automation.join();
    mains.join();
    EXPECT_TRUE(finite) << "a block came out with a sample that is not a number";
    EXPECT_GE(reads.load(), 2 * kParameterCount);
    EXPECT_GT(mainsRounds.load(), 0);
    EXPECT_FALSE(host.automated.empty()) << "the modulators wrote no automation";
}

}  // namespace
}  // namespace varitap::test
