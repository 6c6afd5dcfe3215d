#include "host/vst2/Vst2Effect.h"

#include <cstring>
#include <new>

namespace varitap {

using namespace vst;

namespace {

// The capabilities answered with 1; everything else is unknown (0).
constexpr const char* kCanDo[] = {
    "receiveVstTimeInfo", "1in1out", "1in2out", "2in1out", "2in2out", "2in4out",
    "4in2out",            "4in4out", "4in8out", "8in4out", "8in8out",
};

int32_t channelsOf(const VstSpeakerArrangement* arrangement) {
    return arrangement ? arrangement->numChannels : 0;
}

}  // namespace

AEffect* createDelayEffect(audioMasterCallback audioMaster) {
    if (!audioMaster) return nullptr;
    try {
        if (audioMaster(nullptr, audioMasterVersion, 0, 0, nullptr, 0.0f) == 0) return nullptr;
        Vst2Effect* effect = new (std::nothrow) Vst2Effect(audioMaster);
        return effect ? effect->getAeffect() : nullptr;
    } catch (...) {
        return nullptr;
    }
}

Vst2Effect* Vst2Effect::fromRecord(AEffect* effect) {
    return static_cast<Vst2Effect*>(AudioEffect::fromAeffect(effect));
}

Vst2Effect::Vst2Effect(audioMasterCallback audioMaster)
    : AudioEffectX(audioMaster, DelayEffect::kNumPrograms, kParameterCount) {
    constexpr int32_t kMaxChannels = DelayEffect::kMaxChannels;
    setNumInputs(kMaxChannels);
    setNumOutputs(kMaxChannels);

    // Only a 2.3 host that calls itself "Steinberg" is trusted with its pin
    // counts; every other host first sees stereo in, stereo out.
    // The buffer is larger than the 64 bytes hosts may fill, and its last
    // byte stays 0 whatever they write.
    char vendor[256] = {};
    bool steinberg = getHostVendorString(vendor);
    vendor[sizeof vendor - 1] = 0;
    steinberg = steinberg && std::strcmp(vendor, "Steinberg") == 0;
    canMono();
    int32_t nIn = kMaxChannels;
    int32_t nOut = kMaxChannels;
    if (steinberg) {
        for (nIn = 0; nIn < kMaxChannels && isInputConnected(nIn);) ++nIn;
        for (nOut = 0; nOut < kMaxChannels && isOutputConnected(nOut);) ++nOut;
    }
    hostVstVersion = getMasterVersion();
    if (hostVstVersion < kVst23 || !steinberg) {
        nIn = 2;
        nOut = 2;
    }
    setNumInputs(nIn);
    setNumOutputs(nOut);

    if (allocateArrangement(&inputArrangement, nIn)) inputArrangement->type = kSpeakerArrUserDefined;
    if (allocateArrangement(&outputArrangement, nOut)) outputArrangement->type = kSpeakerArrUserDefined;

    canProcessReplacing();
    setUniqueID(kUniqueId);

    core_ = std::make_unique<DelayEffect>(*this, channelsOf(inputArrangement),
                                          channelsOf(outputArrangement));
    // The instance's editor (if any) answers the editor opcodes and sets
    // effFlagsHasEditor.
    setEditor(core_->getEditor());
}

Vst2Effect::~Vst2Effect() {
    setEditor(nullptr);
    core_.reset();
    deallocateArrangement(&inputArrangement);
    deallocateArrangement(&outputArrangement);
}

void Vst2Effect::applyChannelCounts() {
    // Routing and the wet buses follow the arrangements; the arrays a block
    // touches follow the record, whose counts the host sized its arrays by.
    core_->setChannelCounts(channelsOf(inputArrangement), channelsOf(outputArrangement),
                            cEffect.numInputs, cEffect.numOutputs);
}

void Vst2Effect::setProgram(int32_t program) {
    if (program < 0 || program >= DelayEffect::kNumPrograms) return;
    curProgram = program;
    core_->setProgram(program);
}

void Vst2Effect::setSampleRate(float rate) {
    // The instance ignores rates that mean nothing; the record keeps its rate.
    core_->setSampleRate(rate);
    AudioEffectX::setSampleRate(core_->getSampleRate());
}

void Vst2Effect::setBlockSize(int32_t size) {
    AudioEffectX::setBlockSize(size);
    core_->setBlockSize(size);
}

int32_t Vst2Effect::canDo(const char* text) {
    if (!text) return 0;
    for (const char* known : kCanDo) {
        if (std::strcmp(text, known) == 0) return 1;
    }
    return 0;
}

bool Vst2Effect::acceptArrangement(VstSpeakerArrangement** arr, const VstSpeakerArrangement* from,
                                   bool* accepted) {
    VstSpeakerArrangement* made = nullptr;
    bool ok;
    if (from->numChannels > DelayEffect::kMaxChannels) {
        *accepted = false;
        ok = allocateArrangement(&made, DelayEffect::kMaxChannels);
        if (ok) made->type = kSpeakerArrUserDefined;
    } else {
        ok = matchArrangement(&made, from);
    }
    if (!ok) return false;
    deallocateArrangement(arr);
    *arr = made;
    return true;
}

bool Vst2Effect::setSpeakerArrangement(VstSpeakerArrangement* input, VstSpeakerArrangement* output) {
    // A negative channel count is as unusable as a missing arrangement.
    if (!input || !output || input->numChannels < 0 || output->numChannels < 0) return false;
    bool result = true;
    // Both are tried: one side that could be copied is kept even when the
    // other failed (and then stays as it was).
    const bool inputCopied = acceptArrangement(&inputArrangement, input, &result);
    const bool outputCopied = acceptArrangement(&outputArrangement, output, &result);
    applyChannelCounts();
    if (!result || !inputCopied || !outputCopied) return false;
    core_->channelConfigurationChanged();
    return true;
}

bool Vst2Effect::getSpeakerArrangement(VstSpeakerArrangement** input, VstSpeakerArrangement** output) {
    if (input) *input = inputArrangement;
    if (output) *output = outputArrangement;
    return true;
}

const HostTimeInfo* Vst2Effect::getTimeInfo(int32_t requestFlags) {
    const VstTimeInfo* info = AudioEffectX::getTimeInfo(requestFlags);
    if (!info) return nullptr;
    timeInfo_.samplePos = info->samplePos;
    timeInfo_.sampleRate = info->sampleRate;
    timeInfo_.tempo = info->tempo;
    timeInfo_.flags = info->flags;
    return &timeInfo_;
}

void Vst2Effect::automate(int32_t index, float value) {
    callHost(audioMasterAutomate, index, 0, nullptr, value);
}

}  // namespace varitap
