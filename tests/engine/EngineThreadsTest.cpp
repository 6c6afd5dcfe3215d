// The engine with other threads: the modulator lock held elsewhere, and
// parameters changed while blocks run.
#include <gtest/gtest.h>

#include <atomic>
#include <cmath>
#include <future>
#include <thread>

#include "EngineFixture.h"
#include "engine/DelayEngine.h"

namespace varitap {
namespace {

using namespace test;

class EngineThreadsTest : public testing::Test, protected EngineRig {};

TEST_F(EngineThreadsTest, BusyModulatorLockSkipsOnlyTheModulators) {
    plainTap(engine, 0, 10, 1, 1);
    engine.setWetDry(0.0f);
    TableModulator& modulator = engine.modulator(0);
    modulator.setIndex(kWetDryParameter);
    modulator.setSync(false);
    modulator.setSpeed(0.5f);
    modulator.setPower(true);

    std::promise<void> held, done;
    std::thread restorer([&] {
        // As a preset restore does: the whole modulator state, waiting.
        ScopedLock lock(engine.modulatorLock());
        held.set_value();
        done.get_future().wait();
    });
    held.get_future().wait();
    Channels in(2, 256), out(2, 256);
    in[0][0] = 1.0f;
    engine.processReplacing(in.get(), out.get(), 256);
    // The taps ran, the modulators did not move.
    EXPECT_EQ(out[0][10], 0.5f);
    EXPECT_EQ(modulator.phase(), 0.0f);
    EXPECT_EQ(host.plainWrites, 0);
    done.set_value();
    restorer.join();
    engine.processReplacing(in.get(), out.get(), 256);
    EXPECT_EQ(modulator.phase(), 256.0f);
}

TEST_F(EngineThreadsTest, ParametersChangeWhileBlocksRun) {
    busyPatch(engine);
    host.setTime(120.0, 0.0, HostTimeInfo::kTransportPlaying);
    std::atomic<bool> stop{false};
    std::thread editor([&] {
        // The editor and the host's automation: every parameter but the
        // routing, over and over.
        unsigned i = 0;
        while (!stop.load()) {
            const int32_t index = kWetDryParameter + int32_t(i % (kParameterCount - kWetDryParameter));
            const int sub = (index - kModulatorParameterBase) % kModulatorParameterCount;
            // Keep the modulators pointed at their taps.
            if (index < kModulatorParameterBase || sub != kModulatorIndex)
                engine.setParameter(index, float(i % 97) / 96.0f);
            char text[64];
            if (index >= kTapParameterBase && index < kModulatorParameterBase) {
                const int t = (index - kTapParameterBase) / kTapParameterCount;
                engine.tap(t).getParameterDisplay((index - kTapParameterBase) % kTapParameterCount, text);
            }
            ++i;
        }
    });
    Channels in(2, 512), out(2, 512);
    for (int b = 0; b < 300; ++b) {
        in.set(0, noise(512, b));
        in.set(1, noise(512, b + 7));
        host.timeInfo.samplePos = 512.0 * b;
        engine.processReplacing(in.get(), out.get(), 512);
        for (int c = 0; c < 2; ++c)
            for (float x : out[c]) ASSERT_TRUE(std::isfinite(x));
    }
    stop = true;
    editor.join();
}

}  // namespace
}  // namespace varitap
