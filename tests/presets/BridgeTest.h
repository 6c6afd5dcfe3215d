// The fixture of the preset bridge and corpus tests: instances made directly
// from the host layer (the same code the bundle's entry point runs) under
// the fake host of the host tests, with XDG_CONFIG_HOME in a temporary
// folder, so the user presets file that every instance's destruction writes
// stays out of the real configuration.
#pragma once

#include <gtest/gtest.h>
#include <stdlib.h>

#include <memory>
#include <string>

#include "../host/FakeHost.h"
#include "PresetTestSupport.h"
#include "host/DelayEffect.h"
#include "host/vst2/Vst2Effect.h"

namespace varitap::test {

// Every test of this program runs in this fixture, so nothing else needs
// the old XDG_CONFIG_HOME.
class BridgeTest : public ::testing::Test {
protected:
    void SetUp() override { setenv("XDG_CONFIG_HOME", config_.path().c_str(), 1); }

    // A VST 2 instance; -> and * reach the plug-in instance behind it.
    struct Effect {
        std::unique_ptr<Vst2Effect> vst2;
        DelayEffect* operator->() const { return &vst2->core(); }
        DelayEffect& operator*() const { return vst2->core(); }
        void reset() { vst2.reset(); }
    };

    Effect makeEffect() {
        Effect effect{std::make_unique<Vst2Effect>(&FakeHost::callback)};
        effect.vst2->setSampleRate(44100.0f);
        effect.vst2->resume();
        return effect;
    }

    std::string programName(const Effect& effect) {
        char name[512] = {};
        vst::AEffect* record = effect.vst2->getAeffect();
        record->dispatcher(record, vst::effGetProgramName, 0, 0, name, 0.0f);
        return name;
    }

    TempDir config_;
    FakeHost host_;
};

}  // namespace varitap::test
