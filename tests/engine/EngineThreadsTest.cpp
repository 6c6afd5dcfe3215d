// The engine with another thread holding the modulator lock.

#include <future>
#include <thread>

#include "EngineFixture.h"

namespace varitap {
namespace {

using namespace test;

class EngineThreadsTest : public testing::Test, protected EngineRig {};

TEST_F(EngineThreadsTest, BusyModulatorLockSkipsOnlyTheModulators) {
    plainTap(engine, 0, 10, 1, 1);
    engine.setWetDry(0.0f);
    TableModulator& modulator = engine.modulator(0);
    freeModulator(modulator, kWetDryParameter, 0.5f);

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

}  // namespace
}  // namespace varitap
