// A fake VST 2 host for the plug-in tests: loads the built bundle with
// dlopen, calls its entry point with a callback whose answers the test sets
// (version, vendor, pin connection, time information) and records what the
// plug-in tells it (automation, display updates). Every test program that
// includes it keeps the user's configuration out of reach.
#pragma once

#include <dlfcn.h>
#include <gtest/gtest.h>
#include <stdlib.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <filesystem>
#include <string>
#include <utility>
#include <vector>

#include "../base/TestSupport.h"
#include "host/vst2/VstInterface.h"

namespace varitap::test {

using vst::AEffect;
using vst::VstIntPtr;

// Every instance saves the user presets file and reads the options: the
// tests (and the plug-in fuzzer) keep both in a private configuration folder
// in TMPDIR (else /tmp), never the user's.
class PrivateConfigEnvironment : public ::testing::Environment {
public:
    void SetUp() override {
        // Hosts keep the system libraries the bundle uses loaded (they link
        // most of them themselves). Held here too, so that unloading the
        // bundle in the tests does not unload them with it: their own
        // one-time set-up (pixman's implementations, libxml2's parser
        // state) is theirs, and a leak check across loads must see only
        // Varitap's allocations.
        for (const char* library : {"libxml2.so.2", "libcairo.so.2", "libglib-2.0.so.0", "libxcb.so.1"})
            dlopen(library, RTLD_NOW | RTLD_LOCAL);
        const char* tmp = getenv("TMPDIR");
        std::string pattern = std::string(tmp ? tmp : "/tmp") + "/varitap-host-config-XXXXXX";
        if (mkdtemp(pattern.data())) {
            dir = pattern;
            setenv("XDG_CONFIG_HOME", dir.c_str(), 1);
        }
    }
    void TearDown() override {
        std::error_code ignored;
        if (!dir.empty()) std::filesystem::remove_all(dir, ignored);
    }
    std::string dir;  // empty when it could not be made
};

inline PrivateConfigEnvironment* const privateConfig = static_cast<PrivateConfigEnvironment*>(
    ::testing::AddGlobalTestEnvironment(new PrivateConfigEnvironment));

class FakeHost {
public:
    FakeHost() {
        current() = this;
        time.sampleRate = 44100.0;
        time.tempo = 120.0;
        time.flags = vst::kVstTempoValid;
    }
    ~FakeHost() {
        if (current() == this) current() = nullptr;
    }
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
    static VstIntPtr callback(AEffect*, int32_t opcode, int32_t index, VstIntPtr value, void* ptr, float opt) {
        return current() ? current()->answer(opcode, index, value, ptr, opt) : 0;
    }

private:
    static FakeHost*& current() {
        static FakeHost* host = nullptr;
        return host;
    }
    VstIntPtr answer(int32_t opcode, int32_t index, VstIntPtr value, void* ptr, float opt) {
        using namespace vst;
        switch (opcode) {
            case audioMasterVersion:
                return version;
            case audioMasterGetVendorString:
                if (vendor.empty() || !ptr) return 0;
                std::strncpy(static_cast<char*>(ptr), vendor.c_str(), kVstMaxVendorStrLen - 1);
                static_cast<char*>(ptr)[kVstMaxVendorStrLen - 1] = 0;
                return 1;
            case audioMasterPinConnected:
                // 0 means connected.
                return index < (value ? connectedOutputs : connectedInputs) ? 0 : 1;
            case audioMasterGetTime:
                timeRequests.push_back(static_cast<int32_t>(value));
                return giveTime ? reinterpret_cast<VstIntPtr>(&time) : 0;
            case audioMasterAutomate:
                automated.emplace_back(index, opt);
                return 0;
            case audioMasterUpdateDisplay:
                ++updateDisplayCount;
                return 1;
            default:
                return 0;
        }
    }
};

using MainProc = AEffect* (*)(vst::audioMasterCallback);

// A module of the built bundles (by default the VST 2 one), opened with
// dlopen, and one of its entry points.
class BundleLibrary {
public:
    explicit BundleLibrary(const char* symbol = "VSTPluginMain", const std::string& module = path()) {
        handle_ = dlopen(module.c_str(), RTLD_NOW | RTLD_LOCAL);
        if (handle_) symbol_ = dlsym(handle_, symbol);
    }
    ~BundleLibrary() {
        if (handle_) dlclose(handle_);
    }
    BundleLibrary(const BundleLibrary&) = delete;
    BundleLibrary& operator=(const BundleLibrary&) = delete;

    static std::string path() { return std::string(VARITAP_BUNDLE_DIR) + "/Contents/" + VARITAP_ARCH_DIR + "/Varitap.so"; }
    bool loaded() const { return symbol_ != nullptr; }
    void* symbol() const { return symbol_; }
    MainProc entry() const { return reinterpret_cast<MainProc>(symbol_); }

private:
    void* handle_ = nullptr;
    void* symbol_ = nullptr;
};

// One plug-in instance, closed (effClose) by the destructor.
class Plugin {
public:
    Plugin(const BundleLibrary& library, FakeHost&) {
        if (library.entry()) effect_ = library.entry()(&FakeHost::callback);
    }
    ~Plugin() { close(); }
    Plugin(const Plugin&) = delete;
    Plugin& operator=(const Plugin&) = delete;

    AEffect* effect() const { return effect_; }
    explicit operator bool() const { return effect_ != nullptr; }
    void close() {
        if (effect_) effect_->dispatcher(effect_, vst::effClose, 0, 0, nullptr, 0.0f);
        effect_ = nullptr;
    }

    VstIntPtr dispatch(int32_t opcode, int32_t index = 0, VstIntPtr value = 0, void* ptr = nullptr,
                       float opt = 0.0f) {
        return effect_->dispatcher(effect_, opcode, index, value, ptr, opt);
    }
    void set(int32_t index, float value) { effect_->setParameter(effect_, index, value); }
    float get(int32_t index) { return effect_->getParameter(effect_, index); }

    // Texts read through a buffer prefilled with kUntouched; a text the
    // plug-in did not write comes back as kUntouched.
    static constexpr const char* kUntouched = "<untouched>";
    std::string name(int32_t index) { return text(vst::effGetParamName, index); }
    std::string display(int32_t index) { return text(vst::effGetParamDisplay, index); }
    std::string label(int32_t index) { return text(vst::effGetParamLabel, index); }
    std::string programName() { return text(vst::effGetProgramName, 0); }
    std::string text(int32_t opcode, int32_t index) {
        char buffer[256] = {};
        std::strcpy(buffer, kUntouched);
        dispatch(opcode, index, 0, buffer);
        return buffer;
    }

    // Runs processReplacing (or process) on the host's channel arrays: one
    // pointer per buffer, each pointer array ending right before a page
    // nobody may touch, so that a plug-in that reads or writes a channel
    // pointer past the count the record declares faults at once, in every
    // build.
    using Buffers = std::vector<std::vector<float>>;
    void processReplacing(Buffers& in, Buffers& out, int32_t frames) { run(effect_->processReplacing, in, out, frames); }
    void processAccumulating(Buffers& in, Buffers& out, int32_t frames) { run(effect_->process, in, out, frames); }

private:
    void run(vst::AEffectProcessProc process, Buffers& in, Buffers& out, int32_t frames) {
        const size_t page = static_cast<size_t>(sysconf(_SC_PAGESIZE));
        void* pages = mmap(nullptr, 4 * page, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
        ASSERT_NE(pages, MAP_FAILED);
        float** arrays[2];
        Buffers* buffers[2] = {&in, &out};
        for (int k = 0; k < 2; ++k) {
            char* guard = static_cast<char*>(pages) + (2 * k + 1) * page;
            mprotect(guard, page, PROT_NONE);
            arrays[k] = reinterpret_cast<float**>(guard) - buffers[k]->size();
            for (size_t c = 0; c < buffers[k]->size(); ++c) arrays[k][c] = (*buffers[k])[c].data();
        }
        process(effect_, arrays[0], arrays[1], frames);
        munmap(pages, 4 * page);
    }
    AEffect* effect_ = nullptr;
};

// A speaker arrangement record of any channel count, as a host builds one.
class Arrangement {
public:
    Arrangement(int32_t type, int32_t channels) {
        const size_t speakers = static_cast<size_t>(std::max(channels, 8));
        bytes_.assign(offsetof(vst::VstSpeakerArrangement, speakers) + speakers * sizeof(vst::VstSpeakerProperties), 0);
        get()->type = type;
        get()->numChannels = channels;
    }
    vst::VstSpeakerArrangement* get() { return reinterpret_cast<vst::VstSpeakerArrangement*>(bytes_.data()); }

private:
    std::vector<unsigned char> bytes_;
};

// What a shell command writes to its standard output, and its exit status.
inline std::string commandOutput(const std::string& command, int* status = nullptr) {
    TempDir dir;
    const int result = std::system(("{ " + command + "; } > '" + dir / "output" + "'").c_str());
    if (status) *status = result;
    return readFile(dir / "output");
}

// The fixture of the tests on the built bundle: the library and a host whose
// answers a test may set before it makes its instances.
class BundleTest : public ::testing::Test {
protected:
    void SetUp() override { ASSERT_TRUE(library.loaded()) << BundleLibrary::path(); }
    BundleLibrary library;
    FakeHost host;
};

// The same with one instance made with the host's first answers.
class PluginTest : public BundleTest {
protected:
    void SetUp() override {
        BundleTest::SetUp();
        ASSERT_TRUE(plugin);
    }
    Plugin plugin{library, host};
};

}  // namespace varitap::test
