#include "FakeHost.h"

#include <dlfcn.h>
#include <gtest/gtest.h>
#include <stdlib.h>

#include <algorithm>
#include <cstddef>
#include <cstring>

namespace varitap::test {

using namespace vst;

namespace {

// Every instance saves the user presets file and reads the options: the
// tests keep both in a private configuration folder, never the user's.
class PrivateConfigEnvironment : public ::testing::Environment {
public:
    void SetUp() override {
        // Hosts keep the system libraries the bundle uses loaded (they link
        // most of them themselves). Held here too, so that unloading the
        // bundle in the tests does not unload them with it: their own
        // one-time set-up (pixman's implementations, libxml2's parser
        // state) is theirs, and a leak check across loads must see only
        // Varitap's allocations.
        for (const char* library : {"libxml2.so.2", "libcairo.so.2", "libglib-2.0.so.0", "libxcb.so.1"}) {
            dlopen(library, RTLD_NOW | RTLD_LOCAL);
        }
        char pattern[] = "/tmp/varitap-host-config-XXXXXX";
        if (mkdtemp(pattern)) {
            dir_ = pattern;
            setenv("XDG_CONFIG_HOME", dir_.c_str(), 1);
        }
    }
    void TearDown() override {
        if (dir_.empty()) return;
        std::string command = "rm -rf '" + dir_ + "'";
        if (std::system(command.c_str()) != 0) dir_.clear();
    }

private:
    std::string dir_;
};

[[maybe_unused]] ::testing::Environment* const privateConfig =
    ::testing::AddGlobalTestEnvironment(new PrivateConfigEnvironment);

}  // namespace

FakeHost* FakeHost::current = nullptr;

FakeHost::FakeHost() {
    current = this;
    time.sampleRate = 44100.0;
    time.tempo = 120.0;
    time.flags = kVstTempoValid;
}

FakeHost::~FakeHost() {
    if (current == this) current = nullptr;
}

VstIntPtr FakeHost::callback(AEffect*, int32_t opcode, int32_t index, VstIntPtr value, void* ptr,
                             float opt) {
    return current ? current->answer(opcode, index, value, ptr, opt) : 0;
}

VstIntPtr FakeHost::answer(int32_t opcode, int32_t index, VstIntPtr value, void* ptr, float opt) {
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

std::string BundleLibrary::path() {
    return std::string(VARITAP_BUNDLE_DIR) + "/Contents/" + VARITAP_ARCH_DIR + "/Varitap.so";
}

BundleLibrary::BundleLibrary(const char* symbol) {
    handle_ = dlopen(path().c_str(), RTLD_NOW | RTLD_LOCAL);
    if (handle_) entry_ = reinterpret_cast<MainProc>(dlsym(handle_, symbol));
}

BundleLibrary::~BundleLibrary() {
    if (handle_) dlclose(handle_);
}

Plugin::Plugin(const BundleLibrary& library, FakeHost&) {
    if (library.entry()) effect_ = library.entry()(&FakeHost::callback);
}

void Plugin::close() {
    if (effect_) effect_->dispatcher(effect_, effClose, 0, 0, nullptr, 0.0f);
    effect_ = nullptr;
}

VstIntPtr Plugin::dispatch(int32_t opcode, int32_t index, VstIntPtr value, void* ptr, float opt) {
    return effect_->dispatcher(effect_, opcode, index, value, ptr, opt);
}

std::string Plugin::text(int32_t opcode, int32_t index) {
    char buffer[256];
    std::memset(buffer, 0, sizeof buffer);
    std::strcpy(buffer, kUntouched);
    dispatch(opcode, index, 0, buffer);
    return buffer;
}

void Plugin::run(AEffectProcessProc process, Buffers& in, Buffers& out, int32_t frames) {
    std::vector<float*> i, o;
    for (auto& c : in) i.push_back(c.data());
    for (auto& c : out) o.push_back(c.data());
    process(effect_, i.data(), o.data(), frames);
}

Arrangement::Arrangement(int32_t type, int32_t channels) {
    size_t speakers = static_cast<size_t>(std::max(channels, 8));
    bytes_.assign(offsetof(VstSpeakerArrangement, speakers) + speakers * sizeof(VstSpeakerProperties), 0);
    get()->type = type;
    get()->numChannels = channels;
}

}  // namespace varitap::test
