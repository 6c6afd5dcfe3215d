// The built bundle under a host's threads, as Ardour drives it: one thread
// processes and suspends/resumes the plug-in between blocks (Ardour sends
// effMainsChanged from its process thread when an export starts), while
// another sets every parameter and reads names, displays, labels and values
// back into 64-byte buffers, and the plug-in's modulators write automation
// from the audio thread; and a host that suspends and changes the sample
// rate from threads of its own in the middle of blocks. Run under
// ThreadSanitizer too (label "threads").
#include <gtest/gtest.h>

#include <atomic>
#include <cmath>
#include <cstring>
#include <memory>
#include <thread>

#include "FakeHost.h"
#include "engine/ParameterLayout.h"

namespace varitap::test {
namespace {

using namespace vst;

// A plug-in at 48 kHz, switched on, under a playing transport at the given
// tempo, its first `taps` taps routed from input 1 to output 1 (selector
// values 1/44, 1/24).
class HostThreadsTest : public BundleTest {
protected:
    void start(double tempo, int32_t flags, int taps) {
        host.time.tempo = tempo;
        host.time.flags = kVstTransportPlaying | kVstTempoValid | flags;
        host.time.sampleRate = 48000.0;
        instance = std::make_unique<Plugin>(library, host);
        ASSERT_TRUE(*instance);
        instance->dispatch(effSetSampleRate, 0, 0, nullptr, 48000.0f);
        instance->dispatch(effSetBlockSize, 0, 512);
        instance->dispatch(effMainsChanged, 0, 1);
        for (int t = 0; t < taps; ++t) {
            instance->set(kTapInputParameterBase + t, 1.5f / kInputSelectorScale);
            instance->set(kTapOutputParameterBase + t, 1.5f / kOutputSelectorScale);
        }
    }
    // Block b of a sine on both inputs, at song position 512 b: whether
    // every output sample came out finite.
    bool sineBlockIsFinite(int b) {
        for (int c = 0; c < 2; ++c)
            for (int s = 0; s < 512; ++s) in[c][s] = std::sin(0.01f * float(s + 512 * b + c));
        host.time.samplePos = 512.0 * b;
        instance->processReplacing(in, out, 512);
        for (int c = 0; c < 2; ++c)
            for (float x : out[c])
                if (!std::isfinite(x)) return false;
        return true;
    }
    std::unique_ptr<Plugin> instance;
    Plugin::Buffers in = Plugin::Buffers(2, std::vector<float>(512)), out = in;
};

TEST_F(HostThreadsTest, ProcessAndMainsChangedOnOneThreadWhileAnotherAutomatesAndReads) {
    // Ardour reports automation writing: the modulators then write through
    // the host (audioMasterAutomate) from the audio thread. Every tap routed.
    ASSERT_NO_FATAL_FAILURE(start(120.0, kVstAutomationWriting, kTapCount));
    Plugin& plugin = *instance;
    // Every modulator running, aimed at a tap's delay, volume or feedback.
    for (int m = 0; m < kModulatorCount; ++m) {
        const int target = tapParameterIndex(m, m % 3);
        plugin.set(modulatorParameterIndex(m, kModulatorIndex), float(target));
        plugin.set(modulatorParameterIndex(m, kModulatorSpeed), 0.9f);
        plugin.set(modulatorParameterIndex(m, kModulatorSync), m % 2 ? 1.0f : 0.0f);
        plugin.set(modulatorParameterIndex(m, kModulatorPower), 1.0f);
    }

    std::atomic<bool> stop{false};
    std::atomic<long> reads{0};
    std::thread automation([&] {
        char text[64];
        unsigned i = 0;
        while (!stop.load()) {
            const int32_t index = int32_t(i % kParameterCount);
            const int slot = (index - kModulatorParameterBase) % kModulatorParameterCount;
            const bool modulatorTarget =
                index >= kModulatorParameterBase && (slot == kModulatorIndex || slot == kModulatorPower);
            // Synchronised lengths up to the longest note value make the
            // audio thread grow the lines while this thread sets them.
            if (!modulatorTarget) plugin.set(index, float((i * 7) % 101) / 100.0f);
            for (int32_t opcode : {effGetParamName, effGetParamDisplay, effGetParamLabel}) {
                // Cleared first as Ardour does (where nothing is written the
                // text stays empty); every text fits 31 characters.
                std::memset(text, 0, sizeof text);
                plugin.dispatch(opcode, index, 0, text);
                ASSERT_LE(strnlen(text, sizeof text), size_t(kNameTextMax)) << "opcode " << opcode << " index " << index;
            }
            EXPECT_TRUE(std::isfinite(plugin.get(index)));
            plugin.dispatch(effGetProgramName, 0, 0, text);
            ++i;
            reads.fetch_add(1);
        }
    });

    // At least 600 blocks, and on until the other thread went twice through
    // every parameter.
    for (int b = 0; b < 600 || (reads.load() < 2 * kParameterCount && b < 100000); ++b) {
        if (b % 100 == 50) {
            plugin.dispatch(effMainsChanged, 0, 0);
            plugin.dispatch(effMainsChanged, 0, 1);
        }
        ASSERT_TRUE(sineBlockIsFinite(b)) << "block " << b;
    }
    stop = true;
    automation.join();
    EXPECT_GE(reads.load(), 2 * kParameterCount);
    EXPECT_FALSE(host.automated.empty()) << "the modulators wrote no automation";
}

// Hosts should not, yet some do: suspend and resume, sample rate and block
// size from two other threads while blocks run, and while the lines grow
// (three taps synchronised to "1/4" at a tempo that falls 1.5 % every block,
// so that their lines are reallocated inside every block). Crashes, or
// sanitizer reports, when another thread touches line memory.
TEST_F(HostThreadsTest, SuspendAndRateChangesFromOtherThreadsWhileTheLinesGrow) {
    ASSERT_NO_FATAL_FAILURE(start(50.0, 0, 3));
    Plugin& plugin = *instance;
    for (int t = 0; t < 3; ++t) plugin.set(tapParameterIndex(t, kTapSync), 1.0f);

    std::atomic<bool> stop{false};
    std::atomic<long> suspends{0}, rateChanges{0};
    std::thread mains([&] {
        while (!stop.load()) {
            plugin.dispatch(effMainsChanged, 0, 0);
            plugin.dispatch(effMainsChanged, 0, 1);
            suspends.fetch_add(1);
            std::this_thread::yield();
        }
    });
    std::thread rates([&] {
        // Rates a hair apart: the tempo's fall, not the rate, grows the lines.
        const float rate[] = {48000.0f, 47952.0f, 47976.0f};
        for (unsigned i = 0; !stop.load(); ++i) {
            plugin.dispatch(effSetSampleRate, 0, 0, nullptr, rate[i % 3]);
            plugin.dispatch(effSetBlockSize, 0, VstIntPtr(256) << (i % 3));
            rateChanges.fetch_add(1);
            std::this_thread::yield();
        }
    });

    int finiteBlocks = 0;
    for (int b = 0; b < 200 && finiteBlocks == b; ++b) {
        // 50 down to 2.4 beats per minute: lines from 1.2 s (past the 56000
        // samples they start with) up to 25 s. A grown line lowers the
        // "Delay" value (its length over the capacity): the host's
        // automation puts it back on "1/4".
        host.time.tempo = 50.0 * std::pow(0.985, b);
        for (int t = 0; t < 3; ++t) plugin.set(tapParameterIndex(t, kTapDelay), 0.55f);
        if (sineBlockIsFinite(b)) ++finiteBlocks;
    }
    stop = true;
    mains.join();
    rates.join();
    EXPECT_EQ(finiteBlocks, 200);
    EXPECT_GT(suspends.load(), 0);
    EXPECT_GT(rateChanges.load(), 0);
}

}  // namespace
}  // namespace varitap::test
