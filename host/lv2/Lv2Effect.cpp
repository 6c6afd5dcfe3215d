#include "host/lv2/Lv2Effect.h"

#include <lv2/atom/util.h>
#include <lv2/buf-size/buf-size.h>
#include <lv2/options/options.h>
#include <lv2/parameters/parameters.h>
#include <lv2/time/time.h>

#include <cmath>
#include <cstring>
#include <new>
#include <string>

#include "engine/DelayEngine.h"

namespace varitap {

namespace {

constexpr uint32_t kPieceFrames = DelayEngine::kBusSamples;

const void* findFeature(const LV2_Feature* const* features, const char* uri) {
    for (const LV2_Feature* const* f = features; f && *f; ++f) {
        if ((*f)->URI && std::strcmp((*f)->URI, uri) == 0) return (*f)->data;
    }
    return nullptr;
}

std::string stateKey(const char* name) { return std::string(Lv2Effect::kUri) + "#" + name; }

}  // namespace

Lv2Effect* Lv2Effect::create(double sampleRate, const LV2_Feature* const* features) {
    // Without urid:map (offline hosts such as lv2apply) there is no
    // transport and no state: 120 BPM, stopped.
    auto* map = static_cast<LV2_URID_Map*>(const_cast<void*>(findFeature(features, LV2_URID__map)));
    if (map && !map->map) map = nullptr;
    Lv2Effect* effect = new (std::nothrow) Lv2Effect(map);
    if (!effect) return nullptr;
    // The options: the largest block the host runs, and the sample rate,
    // which stands in when the instantiation's rate means nothing.
    const Uris& u = effect->uris_;
    const auto* options = static_cast<const LV2_Options_Option*>(findFeature(features, LV2_OPTIONS__options));
    for (const LV2_Options_Option* o = options; map && o && o->key; ++o) {
        if (!o->value) continue;
        if (o->key == u.maxBlockLength && o->type == u.atomInt && o->size == sizeof(int32_t)) {
            effect->core_->setBlockSize(*static_cast<const int32_t*>(o->value));
        } else if (o->key == u.sampleRate && o->type == u.atomFloat && o->size == sizeof(float) &&
                   !(sampleRate > 0.0 && std::isfinite(sampleRate))) {
            sampleRate = *static_cast<const float*>(o->value);
        }
    }
    effect->core_->setSampleRate(static_cast<float>(sampleRate));
    effect->time_.sampleRate = effect->core_->getSampleRate();
    return effect;
}

Lv2Effect::Lv2Effect(LV2_URID_Map* map) : mapped_(map != nullptr) {
    // Unmapped URIs stay 0, which no atom or option carries.
    auto u = [map](const char* uri) { return map ? map->map(map->handle, uri) : LV2_URID(0); };
    uris_.atomBlank = u(LV2_ATOM__Blank);
    uris_.atomObject = u(LV2_ATOM__Object);
    uris_.atomFloat = u(LV2_ATOM__Float);
    uris_.atomDouble = u(LV2_ATOM__Double);
    uris_.atomInt = u(LV2_ATOM__Int);
    uris_.atomLong = u(LV2_ATOM__Long);
    uris_.atomString = u(LV2_ATOM__String);
    uris_.atomVector = u(LV2_ATOM__Vector);
    uris_.atomSequence = u(LV2_ATOM__Sequence);
    uris_.timePosition = u(LV2_TIME__Position);
    uris_.timeFrame = u(LV2_TIME__frame);
    uris_.timeSpeed = u(LV2_TIME__speed);
    uris_.timeBeatsPerMinute = u(LV2_TIME__beatsPerMinute);
    uris_.programName = u(stateKey("programName").c_str());
    uris_.parameters = u(stateKey("parameters").c_str());
    uris_.maxBlockLength = u(LV2_BUF_SIZE__maxBlockLength);
    uris_.sampleRate = u(LV2_PARAMETERS__sampleRate);

    // When the host sends no transport: 120 BPM, stopped, at the start.
    time_.tempo = kDefaultTempo;
    time_.flags = HostTimeInfo::kTempoValid;
    silence_.reset(new float[kPieceFrames]());
    discard_.reset(new float[kPieceFrames]());
    core_ = std::make_unique<DelayEffect>(*this, kChannels, kChannels);
    for (int32_t i = 0; i < kParameterCount; ++i) lastControl_[i] = core_->program().values[i];
}

Lv2Effect::~Lv2Effect() = default;

void Lv2Effect::connectPort(uint32_t port, void* data) {
    if (port < kInputPort) {
        controls_[port] = static_cast<const float*>(data);
    } else if (port < kOutputPort) {
        inputs_[port - kInputPort] = static_cast<const float*>(data);
    } else if (port < kControlPort) {
        outputs_[port - kOutputPort] = static_cast<float*>(data);
    } else if (port == kControlPort) {
        control_ = static_cast<const LV2_Atom_Sequence*>(data);
    }
}

namespace {

// A number atom of any of the four numeric types; false for anything else.
bool numberOf(const LV2_Atom* atom, LV2_URID f, LV2_URID d, LV2_URID i, LV2_URID l, double* out) {
    if (!atom) return false;
    if (atom->type == f && atom->size >= sizeof(float)) {
        *out = reinterpret_cast<const LV2_Atom_Float*>(atom)->body;
    } else if (atom->type == d && atom->size >= sizeof(double)) {
        *out = reinterpret_cast<const LV2_Atom_Double*>(atom)->body;
    } else if (atom->type == i && atom->size >= sizeof(int32_t)) {
        *out = reinterpret_cast<const LV2_Atom_Int*>(atom)->body;
    } else if (atom->type == l && atom->size >= sizeof(int64_t)) {
        *out = static_cast<double>(reinterpret_cast<const LV2_Atom_Long*>(atom)->body);
    } else {
        return false;
    }
    return std::isfinite(*out);
}

}  // namespace

void Lv2Effect::readPosition(const LV2_Atom_Object* position) {
    const LV2_Atom* frame = nullptr;
    const LV2_Atom* speed = nullptr;
    const LV2_Atom* bpm = nullptr;
    lv2_atom_object_get(position, uris_.timeFrame, &frame, uris_.timeSpeed, &speed,
                        uris_.timeBeatsPerMinute, &bpm, 0);
    const Uris& u = uris_;
    double value = 0.0;
    if (numberOf(bpm, u.atomFloat, u.atomDouble, u.atomInt, u.atomLong, &value) && value > 0.0) {
        time_.tempo = value;
    }
    if (numberOf(speed, u.atomFloat, u.atomDouble, u.atomInt, u.atomLong, &value)) {
        if (value != 0.0) {
            time_.flags |= HostTimeInfo::kTransportPlaying;
        } else {
            time_.flags &= ~HostTimeInfo::kTransportPlaying;
        }
    }
    if (numberOf(frame, u.atomFloat, u.atomDouble, u.atomInt, u.atomLong, &value) && value >= 0.0) {
        time_.samplePos = value;
    }
}

void Lv2Effect::followPorts() {
    for (int32_t i = 0; i < kParameterCount; ++i) {
        if (!controls_[i]) continue;
        const float v = *controls_[i];
        // Bitwise, so that a NaN the host leaves in place is applied once.
        if (std::memcmp(&v, &lastControl_[i], sizeof v) == 0) continue;
        lastControl_[i] = v;
        core_->setParameter(i, v);
    }
}

void Lv2Effect::processPiece(uint32_t offset, uint32_t frames) {
    float* in[kChannels];
    float* out[kChannels];
    for (int c = 0; c < kChannels; ++c) {
        // The engine reads its inputs only; null ports stand on silence.
        in[c] = inputs_[c] ? const_cast<float*>(inputs_[c]) + offset : silence_.get();
        out[c] = outputs_[c] ? outputs_[c] + offset : discard_.get();
    }
    core_->processReplacing(in, out, static_cast<int32_t>(frames));
    if (time_.flags & HostTimeInfo::kTransportPlaying) time_.samplePos += frames;
}

void Lv2Effect::run(uint32_t frames) {
    if (mapped_ && control_ && control_->atom.type == uris_.atomSequence) {
        LV2_ATOM_SEQUENCE_FOREACH(control_, event) {
            const LV2_Atom& body = event->body;
            if (body.type != uris_.atomObject && body.type != uris_.atomBlank) continue;
            const auto* object = reinterpret_cast<const LV2_Atom_Object*>(&body);
            if (object->body.otype == uris_.timePosition) readPosition(object);
        }
    }
    followPorts();
    // Blocks longer than the engine's buses run in pieces.
    for (uint32_t offset = 0; offset < frames; offset += kPieceFrames) {
        const uint32_t n = frames - offset < kPieceFrames ? frames - offset : kPieceFrames;
        processPiece(offset, n);
    }
}

const HostTimeInfo* Lv2Effect::getTimeInfo(int32_t requestFlags) {
    (void)requestFlags;
    return &time_;
}

void Lv2Effect::attachUi(LV2UI_Write_Function writeFunction, LV2UI_Controller controller,
                         const LV2UI_Touch* touch, const LV2UI_Resize* resize) {
    uiWrite_ = writeFunction;
    uiController_ = controller;
    uiTouch_ = touch && touch->touch ? touch : nullptr;
    uiResize_ = resize && resize->ui_resize ? resize : nullptr;
    uiThread_ = std::this_thread::get_id();
}

void Lv2Effect::detachUi() {
    uiThread_ = std::thread::id();
    uiWrite_ = nullptr;
    uiController_ = nullptr;
    uiTouch_ = nullptr;
    uiResize_ = nullptr;
}

bool Lv2Effect::resizeEditor(int32_t width, int32_t height) {
    return uiResize_ && uiResize_->ui_resize(uiResize_->handle, width, height) == 0;
}

bool Lv2Effect::onUiThread() const {
    const std::thread::id ui = uiThread_;
    return ui != std::thread::id() && ui == std::this_thread::get_id();
}

void Lv2Effect::automate(int32_t index, float value) {
    if (index < 0 || index >= kParameterCount || !onUiThread() || !uiWrite_) return;
    uiWrite_(uiController_, static_cast<uint32_t>(index), sizeof value, 0, &value);
}

void Lv2Effect::touch(int32_t index, bool grabbed) {
    if (index < 0 || index >= kParameterCount || !onUiThread() || !uiTouch_) return;
    uiTouch_->touch(uiTouch_->handle, static_cast<uint32_t>(index), grabbed);
}

LV2_State_Status Lv2Effect::save(LV2_State_Store_Function store, LV2_State_Handle handle) {
    if (!mapped_) return LV2_STATE_ERR_NO_FEATURE;
    char name[Program::kNameMax + 1];
    core_->getProgramName(name, Program::kNameMax);
    const uint32_t flags = LV2_STATE_IS_POD | LV2_STATE_IS_PORTABLE;
    LV2_State_Status status =
        store(handle, uris_.programName, name, std::strlen(name) + 1, uris_.atomString, flags);
    if (status != LV2_STATE_SUCCESS) return status;
    struct {
        LV2_Atom_Vector_Body body;
        float values[kParameterCount];
    } vector{};
    vector.body.child_size = sizeof(float);
    vector.body.child_type = uris_.atomFloat;
    for (int32_t i = 0; i < kParameterCount; ++i) vector.values[i] = core_->program().values[i];
    return store(handle, uris_.parameters, &vector, sizeof vector, uris_.atomVector, flags);
}

LV2_State_Status Lv2Effect::restore(LV2_State_Retrieve_Function retrieve, LV2_State_Handle handle) {
    if (!mapped_) return LV2_STATE_ERR_NO_FEATURE;
    size_t size = 0;
    uint32_t type = 0;
    uint32_t flags = 0;
    const void* value = retrieve(handle, uris_.programName, &size, &type, &flags);
    if (value && type == uris_.atomString && size > 0) {
        const char* text = static_cast<const char*>(value);
        const std::string name(text, strnlen(text, size));
        core_->setProgramName(name.c_str());
    }
    value = retrieve(handle, uris_.parameters, &size, &type, &flags);
    if (value && type == uris_.atomVector && size >= sizeof(LV2_Atom_Vector_Body)) {
        const auto* body = static_cast<const LV2_Atom_Vector_Body*>(value);
        if (body->child_type == uris_.atomFloat && body->child_size == sizeof(float)) {
            const size_t count = (size - sizeof(LV2_Atom_Vector_Body)) / sizeof(float);
            const auto* values = reinterpret_cast<const float*>(body + 1);
            for (size_t i = 0; i < count && i < static_cast<size_t>(kParameterCount); ++i) {
                float v;
                std::memcpy(&v, values + i, sizeof v);
                if (!std::isfinite(v)) continue;
                core_->setParameter(static_cast<int32_t>(i), v);
                lastControl_[i] = v;
            }
        }
    }
    return LV2_STATE_SUCCESS;
}

}  // namespace varitap
