// A small VST 2 plug-in for the command-line host's tests, written against
// the project's own interface header: a stereo delay with gain whose delay is
// either a number of samples or one beat at the host's tempo. It asks the
// host what a real plug-in asks (version, vendor, pin connections, sample
// rate, time information) and reports the answers through effVendorSpecific,
// so that tests can check the host's side of the conversation.
//
// Built three ways: the normal plug-in (entry point VSTPluginMain), one that
// exports only the older entry name "main" (TEST_DELAY_MAIN_ONLY), and the
// same with a 1-in/4-out layout (TEST_DELAY_FOUR_OUTPUTS).
#include "host/vst2/VstInterface.h"

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <unistd.h>
#include <vector>

using namespace vst;

namespace {

constexpr int kGain = 0, kDelay = 1, kSync = 2, kParams = 3;
constexpr int kMaxDelay = 1000;            // "Delay" 1.0 in samples
constexpr size_t kLineSize = 1 << 20;      // enough for one beat at 20 BPM and 96 kHz
constexpr VstInt32 kInfoCode = fourCharCode('i', 'n', 'f', 'o');
constexpr VstInt32 kGrowCode = fourCharCode('g', 'r', 'o', 'w');
#ifdef TEST_DELAY_FOUR_OUTPUTS
constexpr int kInputs = 1, kOutputs = 4;
#else
constexpr int kInputs = 2, kOutputs = 2;
#endif

struct TestDelay {
    AEffect effect{};
    audioMasterCallback master = nullptr;
    float params[kParams] = {1.0f, 0.0f, 0.0f};
    float sampleRate = 44100.0f;
    VstIntPtr blockSize = 0;
    std::vector<float> lines[kOutputs];
    size_t position = 0;
    int hostVersion = 0;
    char hostVendor[kVstMaxVendorStrLen] = {};
    char pins[2][9] = {};  // "1" connected / "0" not, for the first eight pins
    VstIntPtr hostRate = 0, hostBlock = 0;
    int mains = 0;
    long blocks = 0;
    double nextSamplePos = 0.0;
    int timeErrors = 0;  // blocks whose time information did not follow on
    double tempo = 0.0;
    bool slow = std::getenv("TEST_DELAY_SLOW") != nullptr;

    VstIntPtr call(VstInt32 opcode, VstInt32 index = 0, VstIntPtr value = 0, void* ptr = nullptr) {
        return master(&effect, opcode, index, value, ptr, 0.0f);
    }

    void resume() {
        for (auto& line : lines) line.assign(kLineSize, 0.0f);
        position = 0;
        nextSamplePos = 0.0;
        for (int direction = 0; direction < 2; ++direction)
            for (int pin = 0; pin < 8; ++pin)
                pins[direction][pin] = call(audioMasterPinConnected, pin, direction) == 0 ? '1' : '0';
        hostRate = call(audioMasterGetSampleRate);
        hostBlock = call(audioMasterGetBlockSize);
    }

    size_t delaySamples() {
        if (params[kSync] <= 0.5f) return static_cast<size_t>(params[kDelay] * kMaxDelay);
        // One beat at the host's tempo; nothing is delayed without a tempo.
        return tempo > 0.0 ? static_cast<size_t>(60.0 / tempo * sampleRate) : 0;
    }

    void process(float** inputs, float** outputs, VstInt32 frames, bool replacing) {
        auto* info = reinterpret_cast<VstTimeInfo*>(call(audioMasterGetTime, 0, kVstTempoValid));
        tempo = 0.0;
        if (info && (info->flags & kVstTempoValid)) tempo = info->tempo;
        if (!info || !(info->flags & kVstTransportPlaying) || info->samplePos != nextSamplePos)
            ++timeErrors;
        nextSamplePos += frames;
        ++blocks;
        if (slow) ::usleep(5000);  // lets tests interrupt a render midway
        const size_t delay = delaySamples();
        for (VstInt32 i = 0; i < frames; ++i) {
            for (int c = 0; c < kOutputs; ++c) {
                float in = inputs[c < kInputs ? c : 0][i];
                std::vector<float>& line = lines[c];
                line[position] = in;
                float out = params[kGain] * line[(position + kLineSize - delay) % kLineSize];
                outputs[c][i] = replacing ? out : outputs[c][i] + out;
            }
            position = (position + 1) % kLineSize;
        }
    }

    VstIntPtr dispatch(VstInt32 opcode, VstInt32 index, VstIntPtr value, void* ptr, float opt) {
        char* text = static_cast<char*>(ptr);
        switch (opcode) {
        case effClose:
            delete this;
            return 1;
        case effSetSampleRate:
            sampleRate = opt;
            return 1;
        case effSetBlockSize:
            blockSize = value;
            return 1;
        case effMainsChanged:
            mains = static_cast<int>(value);
            if (value) resume();
            return 1;
        case effGetParamName: {
            static const char* names[kParams] = {"Gain", "Delay", "Sync"};
            if (index >= 0 && index < kParams) std::strcpy(text, names[index]);
            return 0;
        }
        case effGetParamLabel:
            if (index == kDelay) std::strcpy(text, "smp");
            return 0;
        case effGetParamDisplay:
            if (index == kGain) std::snprintf(text, 9, "%.3f", params[kGain]);
            if (index == kDelay) std::snprintf(text, 9, "%d", static_cast<int>(params[kDelay] * kMaxDelay));
            if (index == kSync) std::strcpy(text, params[kSync] > 0.5f ? "On" : "Off");
            return 0;
        case effGetEffectName:
            std::strcpy(text, "TestDelay");
            return 1;
        case effVendorSpecific:
            if (index == kGrowCode) {
                // Misbehaves on purpose: more pins than the host set up.
                effect.numInputs = effect.numOutputs = 8;
                return 1;
            }
            if (index != kInfoCode || !ptr) return 0;
            std::snprintf(text, 512,
                          "version=%d vendor=%s in=%s out=%s rate=%g hostRate=%ld block=%ld "
                          "hostBlock=%ld mains=%d blocks=%ld timeErrors=%d tempo=%g",
                          hostVersion, hostVendor, pins[0], pins[1], sampleRate,
                          static_cast<long>(hostRate), static_cast<long>(blockSize),
                          static_cast<long>(hostBlock), mains, blocks, timeErrors, tempo);
            return 1;
        default:
            return 0;
        }
    }
};

TestDelay* self(AEffect* effect) { return static_cast<TestDelay*>(effect->object); }

AEffect* createTestDelay(audioMasterCallback master) {
    if (std::getenv("TEST_DELAY_REFUSE")) return nullptr;
    VstIntPtr version = master(nullptr, audioMasterVersion, 0, 0, nullptr, 0.0f);
    if (!version) return nullptr;
    auto* plugin = new TestDelay;
    plugin->master = master;
    AEffect& e = plugin->effect;
    e.magic = kEffectMagic;
    e.dispatcher = [](AEffect* e, VstInt32 opcode, VstInt32 index, VstIntPtr value, void* ptr, float opt) {
        return self(e)->dispatch(opcode, index, value, ptr, opt);
    };
    e.process = [](AEffect* e, float** in, float** out, VstInt32 frames) { self(e)->process(in, out, frames, false); };
    e.processReplacing = [](AEffect* e, float** in, float** out, VstInt32 frames) {
        self(e)->process(in, out, frames, true);
    };
    e.setParameter = [](AEffect* e, VstInt32 index, float value) {
        if (index >= 0 && index < kParams) self(e)->params[index] = value;
    };
    e.getParameter = [](AEffect* e, VstInt32 index) {
        return index >= 0 && index < kParams ? self(e)->params[index] : 0.0f;
    };
    e.numPrograms = 1;
    e.numParams = kParams;
    e.numInputs = kInputs;
    e.numOutputs = kOutputs;
    e.flags = std::getenv("TEST_DELAY_ACCUMULATE") ? 0 : effFlagsCanReplacing;
    e.ioRatio = 1.0f;
    e.object = plugin;
    e.uniqueID = fourCharCode('t', 'd', 'l', 'y');
    e.version = 1;
    plugin->hostVersion = static_cast<int>(version);
    // A real plug-in asks this while it is being made, before the host has
    // seen the AEffect record.
    master(&e, audioMasterGetVendorString, 0, 0, plugin->hostVendor, 0.0f);
    return &e;
}

}  // namespace

#ifdef TEST_DELAY_MAIN_ONLY
extern "C" __attribute__((visibility("default"))) AEffect* testDelayMain(audioMasterCallback master) asm("main");
extern "C" AEffect* testDelayMain(audioMasterCallback master) { return createTestDelay(master); }
#else
extern "C" __attribute__((visibility("default"))) AEffect* VSTPluginMain(audioMasterCallback master) {
    return createTestDelay(master);
}
#endif
