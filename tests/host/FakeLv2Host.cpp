#include "FakeLv2Host.h"

#include <dlfcn.h>
#include <lv2/atom/atom.h>
#include <lv2/buf-size/buf-size.h>
#include <lv2/options/options.h>
#include <lv2/time/time.h>
#include <lv2/urid/urid.h>

#include <algorithm>
#include <cstring>

#include "engine/ParameterLayout.h"
#include "host/ParameterInfo.h"

namespace varitap::test {

std::string Lv2Library::bundlePath() { return VARITAP_LV2_BUNDLE_DIR; }

Lv2Library::Lv2Library() {
    const std::string path = bundlePath() + "/Contents/" VARITAP_ARCH_DIR "/Varitap.so";
    handle_ = dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL);
    if (!handle_) return;
    using Entry = const LV2_Descriptor* (*)(uint32_t);
    auto entry = reinterpret_cast<Entry>(dlsym(handle_, "lv2_descriptor"));
    if (entry) descriptor_ = entry(0);
}

Lv2Library::~Lv2Library() {
    if (handle_) dlclose(handle_);
}

Lv2Plugin::Lv2Plugin(const Lv2Library& library, double sampleRate, int32_t maxBlock, bool mapUrids,
                     float optionRate)
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
    for (uint32_t i = 0; i < 241; ++i) descriptor_->connect_port(handle_, i, &control[i]);
}

Lv2Plugin::~Lv2Plugin() {
    if (!handle_) return;
    if (active_) descriptor_->deactivate(handle_);
    descriptor_->cleanup(handle_);
}

void Lv2Plugin::activate() {
    descriptor_->activate(handle_);
    active_ = true;
}

void Lv2Plugin::run(const float* const* in, float* const* out, uint32_t frames, const Position* position) {
    auto* sequence = reinterpret_cast<LV2_Atom_Sequence*>(atoms_);
    sequence->atom.type = urid(LV2_ATOM__Sequence);
    sequence->atom.size = sizeof(LV2_Atom_Sequence_Body);
    sequence->body.unit = 0;
    sequence->body.pad = 0;
    if (position) {
        // One event: an object of type time:Position with three properties.
        struct PositionEvent {
            LV2_Atom_Event event;
            LV2_Atom_Object_Body object;
            LV2_Atom_Property_Body frameKey;
            int64_t frame;
            LV2_Atom_Property_Body speedKey;
            float speed;
            uint32_t pad1;
            LV2_Atom_Property_Body bpmKey;
            float bpm;
            uint32_t pad2;
        } e{};
        e.event.time.frames = 0;
        e.event.body.type = urid(LV2_ATOM__Object);
        e.object.otype = urid(LV2_TIME__Position);
        e.frameKey = {urid(LV2_TIME__frame), 0, {sizeof(int64_t), urid(LV2_ATOM__Long)}};
        e.frame = position->frame;
        e.speedKey = {urid(LV2_TIME__speed), 0, {sizeof(float), urid(LV2_ATOM__Float)}};
        e.speed = position->speed;
        e.bpmKey = {urid(LV2_TIME__beatsPerMinute), 0, {sizeof(float), urid(LV2_ATOM__Float)}};
        e.bpm = position->bpm;
        // The object's size: its body and the properties, without the last pad.
        e.event.body.size = static_cast<uint32_t>(sizeof e - sizeof(LV2_Atom_Event) - sizeof e.pad2);
        std::memcpy(atoms_ + sizeof(LV2_Atom_Sequence), &e, sizeof e);
        sequence->atom.size += static_cast<uint32_t>(sizeof e);
    }
    for (uint32_t c = 0; c < 2; ++c) {
        descriptor_->connect_port(handle_, kLv2AudioIn + c, const_cast<float*>(in[c]));
        descriptor_->connect_port(handle_, kLv2AudioOut + c, out[c]);
    }
    descriptor_->connect_port(handle_, kLv2Control, atoms_);
    descriptor_->run(handle_, frames);
}

uint32_t Lv2Plugin::urid(const std::string& uri) {
    auto it = std::find(uris_.begin(), uris_.end(), uri);
    if (it != uris_.end()) return static_cast<uint32_t>(it - uris_.begin() + 1);
    uris_.push_back(uri);
    return static_cast<uint32_t>(uris_.size());
}

std::string Lv2Plugin::uri(uint32_t id) const {
    return id >= 1 && id <= uris_.size() ? uris_[id - 1] : std::string();
}

uint32_t Lv2Plugin::mapUri(void* handle, const char* uri) { return static_cast<Lv2Plugin*>(handle)->urid(uri); }

Lv2Plugin::State Lv2Plugin::save() {
    State state;
    auto* iface = static_cast<const LV2_State_Interface*>(descriptor_->extension_data(LV2_STATE__interface));
    if (!iface) return state;
    saving_ = &state;
    iface->save(handle_, &Lv2Plugin::store, this, LV2_STATE_IS_POD | LV2_STATE_IS_PORTABLE, nullptr);
    saving_ = nullptr;
    return state;
}

void Lv2Plugin::restore(const State& state) {
    auto* iface = static_cast<const LV2_State_Interface*>(descriptor_->extension_data(LV2_STATE__interface));
    if (!iface) return;
    restoring_ = &state;
    iface->restore(handle_, &Lv2Plugin::retrieve, this, 0, nullptr);
    restoring_ = nullptr;
}

LV2_State_Status Lv2Plugin::store(void* handle, uint32_t key, const void* value, size_t size, uint32_t type, uint32_t) {
    auto* self = static_cast<Lv2Plugin*>(handle);
    const auto* bytes = static_cast<const unsigned char*>(value);
    (*self->saving_)[self->uri(key)] = Value{self->uri(type), std::vector<unsigned char>(bytes, bytes + size)};
    return LV2_STATE_SUCCESS;
}

const void* Lv2Plugin::retrieve(void* handle, uint32_t key, size_t* size, uint32_t* type, uint32_t* flags) {
    auto* self = static_cast<Lv2Plugin*>(handle);
    auto it = self->restoring_->find(self->uri(key));
    if (it == self->restoring_->end()) return nullptr;
    *size = it->second.bytes.size();
    *type = self->urid(it->second.type);
    *flags = LV2_STATE_IS_POD | LV2_STATE_IS_PORTABLE;
    return it->second.bytes.data();
}

}  // namespace varitap::test
