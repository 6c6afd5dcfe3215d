#include "FakeHost.h"

#include <dlfcn.h>
#include <gtest/gtest.h>
#include <stdlib.h>
#include <sys/mman.h>
#include <unistd.h>

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

// Channel pointer arrays as a host hands them over, each ending right before
// a page nobody may touch: a plug-in that reads or writes a channel pointer
// past the count the record declares faults at once, in every build.
class GuardedPointers {
public:
    explicit GuardedPointers(Plugin::Buffers& buffers) {
        page_ = static_cast<size_t>(sysconf(_SC_PAGESIZE));
        void* base = mmap(nullptr, 2 * page_, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
        if (base == MAP_FAILED || buffers.size() > page_ / sizeof(float*)) {
            ADD_FAILURE() << "no guarded page for " << buffers.size() << " channels";
            return;
        }
        base_ = static_cast<char*>(base);
        mprotect(base_ + page_, page_, PROT_NONE);
        pointers_ = reinterpret_cast<float**>(base_ + page_) - buffers.size();
        for (size_t i = 0; i < buffers.size(); ++i) pointers_[i] = buffers[i].data();
    }
    ~GuardedPointers() {
        if (base_) munmap(base_, 2 * page_);
    }
    GuardedPointers(const GuardedPointers&) = delete;
    GuardedPointers& operator=(const GuardedPointers&) = delete;
    float** get() const { return pointers_; }

private:
    size_t page_ = 0;
    char* base_ = nullptr;
    float** pointers_ = nullptr;
};

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
    GuardedPointers i(in), o(out);
    process(effect_, i.get(), o.get(), frames);
}

Arrangement::Arrangement(int32_t type, int32_t channels) {
    size_t speakers = static_cast<size_t>(std::max(channels, 8));
    bytes_.assign(offsetof(VstSpeakerArrangement, speakers) + speakers * sizeof(VstSpeakerProperties), 0);
    get()->type = type;
    get()->numChannels = channels;
}

}  // namespace varitap::test
