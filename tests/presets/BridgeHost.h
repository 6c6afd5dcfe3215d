// A minimal VST 2 host for the preset bridge and corpus tests: one callback
// that answers version, vendor, pins and time information, and records
// automation and display updates. Instances are made directly from the host
// layer (the same code the bundle's entry point runs). Each test runs with
// XDG_CONFIG_HOME in a temporary folder, so the user presets file that every
// instance's destruction writes stays out of the real configuration.
#pragma once

#include <gtest/gtest.h>
#include <stdlib.h>

#include <cstring>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "PresetTestSupport.h"
#include "host/DelayEffect.h"
#include "host/vst2/Vst2Effect.h"
#include "host/vst2/VstInterface.h"

namespace varitap::test {

struct BridgeHost {
    vst::VstIntPtr version = 2400;
    double tempo = 120.0;
    vst::VstTimeInfo time{};
    std::vector<std::pair<int32_t, float>> automated;
    int updateDisplayCount = 0;

    static BridgeHost*& current() {
        static BridgeHost* host = nullptr;
        return host;
    }

    static vst::VstIntPtr callback(vst::AEffect*, int32_t opcode, int32_t index, vst::VstIntPtr value,
                                   void* ptr, float opt) {
        (void)value;
        BridgeHost* host = current();
        if (!host) return 0;
        switch (opcode) {
            case vst::audioMasterVersion:
                return host->version;
            case vst::audioMasterAutomate:
                host->automated.emplace_back(index, opt);
                return 0;
            case vst::audioMasterUpdateDisplay:
                ++host->updateDisplayCount;
                return 1;
            case vst::audioMasterPinConnected:
                return 0;  // connected
            case vst::audioMasterGetVendorString:
                if (ptr) std::strcpy(static_cast<char*>(ptr), "Preset Test Host");
                return 1;
            case vst::audioMasterGetTime:
                host->time = vst::VstTimeInfo{};
                host->time.sampleRate = 44100.0;
                host->time.tempo = host->tempo;
                host->time.flags = vst::kVstTempoValid;
                return reinterpret_cast<vst::VstIntPtr>(&host->time);
            default:
                return 0;
        }
    }
};

// A temporary XDG_CONFIG_HOME and a host for the test's duration (every test
// of this program runs in this fixture, so nothing else needs the old value).
class BridgeTest : public ::testing::Test {
protected:
    void SetUp() override {
        setenv("XDG_CONFIG_HOME", config_.path().c_str(), 1);
        BridgeHost::current() = &host_;
    }
    void TearDown() override { BridgeHost::current() = nullptr; }

    // A VST 2 instance; -> and * reach the plug-in instance behind it.
    struct Effect {
        std::unique_ptr<Vst2Effect> vst2;
        DelayEffect* operator->() const { return &vst2->core(); }
        DelayEffect& operator*() const { return vst2->core(); }
        void reset() { vst2.reset(); }
    };

    Effect makeEffect() {
        Effect effect{std::make_unique<Vst2Effect>(&BridgeHost::callback)};
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
    BridgeHost host_;
};

}  // namespace varitap::test
