// A fake VST 2 host for the plug-in tests: loads the built bundle with
// dlopen, calls its entry point with a callback whose answers the test sets
// (version, vendor, pin connection, time information) and records what the
// plug-in tells it (automation, display updates).
#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "host/vst2/VstInterface.h"

namespace varitap::test {

using vst::AEffect;
using vst::VstIntPtr;

class FakeHost {
public:
    FakeHost();
    ~FakeHost();
    FakeHost(const FakeHost&) = delete;
    FakeHost& operator=(const FakeHost&) = delete;

    // What the host answers.
    VstIntPtr version = 2400;
    std::string vendor = "Varitap Test Host";  // empty: the vendor request fails
    int connectedInputs = 64;                  // pins below these counts are connected
    int connectedOutputs = 64;
    bool giveTime = true;
    vst::VstTimeInfo time{};

    // What the plug-in told it.
    std::vector<std::pair<int32_t, float>> automated;
    int updateDisplayCount = 0;
    std::vector<int32_t> timeRequests;

    // The callback handed to the plug-in; answers for the one live host.
    static VstIntPtr callback(AEffect* effect, int32_t opcode, int32_t index, VstIntPtr value,
                              void* ptr, float opt);

private:
    VstIntPtr answer(int32_t opcode, int32_t index, VstIntPtr value, void* ptr, float opt);
    static FakeHost* current;
};

using MainProc = AEffect* (*)(vst::audioMasterCallback);

// The built bundle's shared object, opened with dlopen.
class BundleLibrary {
public:
    explicit BundleLibrary(const char* symbol = "VSTPluginMain");
    ~BundleLibrary();
    BundleLibrary(const BundleLibrary&) = delete;
    BundleLibrary& operator=(const BundleLibrary&) = delete;

    static std::string path();
    bool loaded() const { return handle_ != nullptr && entry_ != nullptr; }
    MainProc entry() const { return entry_; }

private:
    void* handle_ = nullptr;
    MainProc entry_ = nullptr;
};

// One plug-in instance, closed (effClose) by the destructor.
class Plugin {
public:
    Plugin(const BundleLibrary& library, FakeHost& host);
    ~Plugin() { close(); }
    Plugin(const Plugin&) = delete;
    Plugin& operator=(const Plugin&) = delete;

    AEffect* effect() const { return effect_; }
    explicit operator bool() const { return effect_ != nullptr; }
    void close();

    VstIntPtr dispatch(int32_t opcode, int32_t index = 0, VstIntPtr value = 0, void* ptr = nullptr,
                       float opt = 0.0f);
    void set(int32_t index, float value) { effect_->setParameter(effect_, index, value); }
    float get(int32_t index) { return effect_->getParameter(effect_, index); }

    // Texts read through a buffer prefilled with kUntouched; a text the
    // plug-in did not write comes back as kUntouched.
    static constexpr const char* kUntouched = "<untouched>";
    std::string name(int32_t index) { return text(vst::effGetParamName, index); }
    std::string display(int32_t index) { return text(vst::effGetParamDisplay, index); }
    std::string label(int32_t index) { return text(vst::effGetParamLabel, index); }
    std::string programName() { return text(vst::effGetProgramName, 0); }
    std::string text(int32_t opcode, int32_t index);

    // Runs processReplacing (or process) on the host's channel arrays: one
    // pointer per buffer, the pointer arrays ending at an inaccessible page.
    using Buffers = std::vector<std::vector<float>>;
    void processReplacing(Buffers& in, Buffers& out, int32_t frames) { run(effect_->processReplacing, in, out, frames); }
    void processAccumulating(Buffers& in, Buffers& out, int32_t frames) { run(effect_->process, in, out, frames); }

private:
    void run(vst::AEffectProcessProc process, Buffers& in, Buffers& out, int32_t frames);
    AEffect* effect_ = nullptr;
};

// A speaker arrangement record of any channel count, as a host builds one.
class Arrangement {
public:
    Arrangement(int32_t type, int32_t channels);
    vst::VstSpeakerArrangement* get() { return reinterpret_cast<vst::VstSpeakerArrangement*>(bytes_.data()); }

private:
    std::vector<unsigned char> bytes_;
};

// The fixture of the tests on the built bundle: the library and a host whose
// answers a test may set before it makes its instances.
class BundleTest : public ::testing::Test {
protected:
    void SetUp() override { ASSERT_TRUE(library.loaded()) << BundleLibrary::path(); }
    BundleLibrary library;
    FakeHost host;
};

}  // namespace varitap::test
