// A fake LV2 host for the plug-in tests: loads the built Varitap.lv2 module
// with dlopen, finds the plug-in through lv2_descriptor, maps URIDs, passes
// options, connects every port and runs blocks with an optional
// time:Position event, as jalv or Ardour do.
#pragma once

#include <lv2/atom/forge.h>
#include <lv2/buf-size/buf-size.h>
#include <lv2/core/lv2.h>
#include <lv2/options/options.h>
#include <lv2/state/state.h>
#include <lv2/time/time.h>
#include <lv2/urid/urid.h>

#include <algorithm>
#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "FakeHost.h"
#include "engine/ParameterLayout.h"
#include "host/ParameterInfo.h"

namespace varitap::test {

// The LV2 bundle's module and its plug-in, through lv2_descriptor.
class Lv2Library : public BundleLibrary {
public:
    Lv2Library() : BundleLibrary("lv2_descriptor", bundlePath() + "/Contents/" VARITAP_ARCH_DIR "/Varitap.so") {
        using Entry = const LV2_Descriptor* (*)(uint32_t);
        if (symbol()) descriptor_ = reinterpret_cast<Entry>(symbol())(0);
    }

    static std::string bundlePath() { return VARITAP_LV2_BUNDLE_DIR; }
    bool loaded() const { return descriptor_ != nullptr; }
    const LV2_Descriptor* descriptor() const { return descriptor_; }

private:
    const LV2_Descriptor* descriptor_ = nullptr;
};

// One instance, cleaned up by the destructor.
class Lv2Plugin {
public:
    // maxBlock 0: no options feature at all. mapUrids false: no urid:map.
    // optionRate: the sample rate option (default: sampleRate).
    Lv2Plugin(const Lv2Library& library, double sampleRate, int32_t maxBlock = 4096, bool mapUrids = true,
              float optionRate = 0.0f)
        : descriptor_(library.descriptor()) {
        for (int32_t i = 0; i < kParameterCount; ++i) control[i] = parameterInfo(i).defaultValue;
        const LV2_Feature mapFeature{LV2_URID__map, &map_};
        const int32_t minBlock = 0;
        const float rate = optionRate > 0.0f ? optionRate : static_cast<float>(sampleRate);
        const LV2_Options_Option options[] = {
            {LV2_OPTIONS_INSTANCE, 0, urid(LV2_BUF_SIZE__minBlockLength), sizeof(int32_t), urid(LV2_ATOM__Int), &minBlock},
            {LV2_OPTIONS_INSTANCE, 0, urid(LV2_BUF_SIZE__maxBlockLength), sizeof(int32_t), urid(LV2_ATOM__Int), &maxBlock},
            {LV2_OPTIONS_INSTANCE, 0, urid("http://lv2plug.in/ns/ext/parameters#sampleRate"), sizeof(float),
             urid(LV2_ATOM__Float), &rate},
            {LV2_OPTIONS_INSTANCE, 0, 0, 0, 0, nullptr},
        };
        const LV2_Feature optionsFeature{LV2_OPTIONS__options, const_cast<LV2_Options_Option*>(options)};
        std::vector<const LV2_Feature*> features;
        if (mapUrids) features.push_back(&mapFeature);
        if (maxBlock > 0) features.push_back(&optionsFeature);
        features.push_back(nullptr);
        handle_ = descriptor_->instantiate(descriptor_, sampleRate, VARITAP_LV2_BUNDLE_DIR "/", features.data());
        if (!handle_) return;
        for (uint32_t i = 0; i < kParameterCount; ++i) descriptor_->connect_port(handle_, i, &control[i]);
    }
    ~Lv2Plugin() {
        if (!handle_) return;
        if (active_) descriptor_->deactivate(handle_);
        descriptor_->cleanup(handle_);
    }
    Lv2Plugin(const Lv2Plugin&) = delete;
    Lv2Plugin& operator=(const Lv2Plugin&) = delete;

    explicit operator bool() const { return handle_ != nullptr; }

    float control[241];  // the control ports' values, the parameters' defaults at first
    void activate() {
        descriptor_->activate(handle_);
        active_ = true;
    }
    // Runs frames from in into out (two channels each, at least frames long).
    // With a position, the block carries a time:Position event (frame,
    // speed, beats per minute) at offset 0.
    struct Position {
        int64_t frame;
        float speed;
        float bpm;
    };
    void run(const float* const* in, float* const* out, uint32_t frames, const Position* position = nullptr) {
        LV2_Atom_Forge forge;
        lv2_atom_forge_init(&forge, &map_);
        lv2_atom_forge_set_buffer(&forge, atoms_, sizeof atoms_);
        LV2_Atom_Forge_Frame sequence, object;
        lv2_atom_forge_sequence_head(&forge, &sequence, 0);
        if (position) {
            lv2_atom_forge_frame_time(&forge, 0);
            lv2_atom_forge_object(&forge, &object, 0, urid(LV2_TIME__Position));
            lv2_atom_forge_key(&forge, urid(LV2_TIME__frame));
            lv2_atom_forge_long(&forge, position->frame);
            lv2_atom_forge_key(&forge, urid(LV2_TIME__speed));
            lv2_atom_forge_float(&forge, position->speed);
            lv2_atom_forge_key(&forge, urid(LV2_TIME__beatsPerMinute));
            lv2_atom_forge_float(&forge, position->bpm);
            lv2_atom_forge_pop(&forge, &object);
        }
        lv2_atom_forge_pop(&forge, &sequence);
        // The ports after the parameters: two inputs, two outputs, the atom input.
        for (uint32_t c = 0; c < 2; ++c) {
            descriptor_->connect_port(handle_, kParameterCount + c, const_cast<float*>(in[c]));
            descriptor_->connect_port(handle_, kParameterCount + 2 + c, out[c]);
        }
        descriptor_->connect_port(handle_, kParameterCount + 4, atoms_);
        descriptor_->run(handle_, frames);
    }

    // State through state:interface, as key URI -> (type URI, bytes).
    struct Value {
        std::string type;
        std::vector<unsigned char> bytes;
        bool operator==(const Value& other) const { return type == other.type && bytes == other.bytes; }
    };
    using State = std::map<std::string, Value>;
    State save() {
        State state;
        if (const LV2_State_Interface* iface = stateInterface()) {
            state_ = &state;
            iface->save(handle_, &Lv2Plugin::store, this, LV2_STATE_IS_POD | LV2_STATE_IS_PORTABLE, nullptr);
        }
        return state;
    }
    void restore(const State& state) {
        if (const LV2_State_Interface* iface = stateInterface()) {
            state_ = const_cast<State*>(&state);  // only read while restoring
            iface->restore(handle_, &Lv2Plugin::retrieve, this, 0, nullptr);
        }
    }

    uint32_t urid(const std::string& uri) {
        auto it = std::find(uris_.begin(), uris_.end(), uri);
        if (it != uris_.end()) return static_cast<uint32_t>(it - uris_.begin() + 1);
        uris_.push_back(uri);
        return static_cast<uint32_t>(uris_.size());
    }
    std::string uri(uint32_t id) const { return id >= 1 && id <= uris_.size() ? uris_[id - 1] : std::string(); }

private:
    const LV2_State_Interface* stateInterface() const {
        return static_cast<const LV2_State_Interface*>(descriptor_->extension_data(LV2_STATE__interface));
    }
    static uint32_t mapUri(void* handle, const char* uri) { return static_cast<Lv2Plugin*>(handle)->urid(uri); }
    static LV2_State_Status store(void* handle, uint32_t key, const void* value, size_t size, uint32_t type, uint32_t) {
        auto* self = static_cast<Lv2Plugin*>(handle);
        const auto* bytes = static_cast<const unsigned char*>(value);
        (*self->state_)[self->uri(key)] = Value{self->uri(type), std::vector<unsigned char>(bytes, bytes + size)};
        return LV2_STATE_SUCCESS;
    }
    static const void* retrieve(void* handle, uint32_t key, size_t* size, uint32_t* type, uint32_t* flags) {
        auto* self = static_cast<Lv2Plugin*>(handle);
        auto it = self->state_->find(self->uri(key));
        if (it == self->state_->end()) return nullptr;
        *size = it->second.bytes.size();
        *type = self->urid(it->second.type);
        *flags = LV2_STATE_IS_POD | LV2_STATE_IS_PORTABLE;
        return it->second.bytes.data();
    }

    const LV2_Descriptor* descriptor_;
    LV2_Handle handle_ = nullptr;
    std::vector<std::string> uris_;
    LV2_URID_Map map_{this, &Lv2Plugin::mapUri};
    bool active_ = false;
    alignas(8) unsigned char atoms_[256] = {};
    State* state_ = nullptr;  // the state being saved or restored
};

}  // namespace varitap::test
