// A fake LV2 host for the plug-in tests: loads the built Varitap.lv2 module
// with dlopen, finds the plug-in through lv2_descriptor, maps URIDs, passes
// options, connects every port and runs blocks with an optional
// time:Position event, as jalv or Ardour do.
#pragma once

#include <lv2/core/lv2.h>
#include <lv2/state/state.h>
#include <lv2/urid/urid.h>

#include <cstdint>
#include <map>
#include <string>
#include <vector>

namespace varitap::test {

// Port layout of the plug-in: the 241 parameters, then audio and the atom input.
inline constexpr uint32_t kLv2AudioIn = 241;
inline constexpr uint32_t kLv2AudioOut = 243;
inline constexpr uint32_t kLv2Control = 245;

class Lv2Library {
public:
    Lv2Library();
    ~Lv2Library();
    Lv2Library(const Lv2Library&) = delete;
    Lv2Library& operator=(const Lv2Library&) = delete;

    static std::string bundlePath();
    bool loaded() const { return descriptor_ != nullptr; }
    const LV2_Descriptor* descriptor() const { return descriptor_; }

private:
    void* handle_ = nullptr;
    const LV2_Descriptor* descriptor_ = nullptr;
};

// One instance, cleaned up by the destructor.
class Lv2Plugin {
public:
    // maxBlock 0: no options feature at all. mapUrids false: no urid:map.
    // optionRate: the sample rate option (default: sampleRate).
    Lv2Plugin(const Lv2Library& library, double sampleRate, int32_t maxBlock = 4096, bool mapUrids = true,
              float optionRate = 0.0f);
    ~Lv2Plugin();
    Lv2Plugin(const Lv2Plugin&) = delete;
    Lv2Plugin& operator=(const Lv2Plugin&) = delete;

    explicit operator bool() const { return handle_ != nullptr; }
    LV2_Handle handle() const { return handle_; }

    float control[241];  // the control ports' values, the parameters' defaults at first
    void activate();
    // Runs frames from in into out (two channels each, at least frames long).
    // With a position, the block carries a time:Position event (frame,
    // speed, beats per minute) at offset 0.
    struct Position {
        int64_t frame;
        float speed;
        float bpm;
    };
    void run(const float* const* in, float* const* out, uint32_t frames, const Position* position = nullptr);

    // State through state:interface, as key URI -> (type URI, bytes).
    struct Value {
        std::string type;
        std::vector<unsigned char> bytes;
        bool operator==(const Value& other) const { return type == other.type && bytes == other.bytes; }
    };
    using State = std::map<std::string, Value>;
    State save();
    void restore(const State& state);

    uint32_t urid(const std::string& uri);
    std::string uri(uint32_t urid) const;

private:
    static uint32_t mapUri(void* handle, const char* uri);
    static const void* retrieve(void* handle, uint32_t key, size_t* size, uint32_t* type, uint32_t* flags);
    static LV2_State_Status store(void* handle, uint32_t key, const void* value, size_t size, uint32_t type, uint32_t flags);

    const LV2_Descriptor* descriptor_;
    LV2_Handle handle_ = nullptr;
    std::vector<std::string> uris_;
    LV2_URID_Map map_{this, &Lv2Plugin::mapUri};
    bool active_ = false;
    alignas(8) unsigned char atoms_[256] = {};
    const State* restoring_ = nullptr;
    State* saving_ = nullptr;
};

}  // namespace varitap::test
