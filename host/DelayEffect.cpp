#include "host/DelayEffect.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <new>

#include "host/AEffEditor.h"
#include "modulation/ModulatorBase.h"
#include "persistence/Preferences.h"
#include "persistence/PresetLibrary.h"
#include "persistence/PresetParameters.h"

namespace varitap {

using namespace vst;

namespace {

EditorFactory gEditorFactory = nullptr;

// The VST version from which a "Steinberg" host is trusted with its pin
// counts.
constexpr int32_t kVst23 = 2300;

struct InitValue {
    int32_t index;
    float value;
};

// The "Init" program: tap 1 from input 1 to output 1 and tap 2 from input 2
// to output 2, both synchronised, with the mix a little towards dry.
constexpr InitValue kInitValues[] = {
    {0, 0.022728f},  {1, 0.045455f},  {10, 0.041667f}, {11, 0.083334f}, {20, 0.563636f},
    {21, 0.568268f}, {22, 1.0f},      {23, 0.84217f},  {24, 1.0f},      {28, 0.460661f},
    {29, 1.0f},      {30, 0.83746f},  {31, 1.0f},
};

// The capabilities answered with 1; everything else is unknown (0).
constexpr const char* kCanDo[] = {
    "receiveVstTimeInfo", "1in1out", "1in2out", "2in1out", "2in2out", "2in4out",
    "4in2out",            "4in4out", "4in8out", "8in4out", "8in8out",
};

// Copies at most max characters and a terminator.
void copyName(char* to, const char* from, size_t max) {
    size_t n = strnlen(from, max);
    std::memcpy(to, from, n);
    to[n] = 0;
}

}  // namespace

void setEditorFactory(EditorFactory factory) { gEditorFactory = factory; }

EditorFactory editorFactory() { return gEditorFactory; }

float initProgramValue(int32_t index) {
    for (const InitValue& v : kInitValues) {
        if (v.index == index) return v.value;
    }
    return 0.0f;
}

AEffect* createDelayEffect(audioMasterCallback audioMaster) {
    if (!audioMaster) return nullptr;
    try {
        if (audioMaster(nullptr, audioMasterVersion, 0, 0, nullptr, 0.0f) == 0) return nullptr;
        DelayEffect* effect = new (std::nothrow) DelayEffect(audioMaster);
        return effect ? effect->getAeffect() : nullptr;
    } catch (...) {
        return nullptr;
    }
}

DelayEffect::DelayEffect(audioMasterCallback audioMaster)
    : AudioEffectX(audioMaster, kNumPrograms, kParameterCount) {
    // The engine builds the taps (grown to 56000 samples, heads at 0), the
    // modulators (aimed at this instance, tables of eight, restarted) and the
    // buses, and retains the shared ScratchPool and SystemInfo.
    engine_ = std::make_unique<DelayEngine>(*this);

    programs_[0] = std::make_unique<Program>();
    Program& init = *programs_[0];
    copyName(init.name, "Init", Program::kNameMax);
    for (int32_t i = 0; i < kParameterCount; ++i) init.values[i] = initProgramValue(i);

    preferences_ = Preferences::acquire(kPreferencesDomain);
    long option = 0;
    if (preferences_->getNumber(kOptionDelayTimeResample, &option, 0) && option != 0) {
        engine_->setResample(true);
    }
    if (preferences_->getNumber(kOptionSmoothFactor, &option, 0) && option != 0) {
        setModulatorSmoothFactor(option);
    }

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
    applyChannelCounts();

    canProcessReplacing();
    setUniqueID(kUniqueId);

    setProgram(0);

    if (gEditorFactory) {
        // The editor attaches itself, which sets effFlagsHasEditor.
        AEffEditor* made = gEditorFactory(*this);
        if (made && editor != made) setEditor(made);
    }

    // The shared preset library: the first instance of the process loads the
    // factory file from the bundle and then the user file; later ones share it.
    PresetLibrary::acquireForInstance();
}

DelayEffect::~DelayEffect() {
    delete editor;
    setEditor(nullptr);
    // Every instance that closes rewrites the user presets file, then drops
    // its share of the library (the last one destroys it).
    PresetLibrary::saveAndRelease();

    programs_[0].reset();
    if (preferences_) preferences_->release();
    preferences_ = nullptr;
    deallocateArrangement(&inputArrangement);
    deallocateArrangement(&outputArrangement);
    // The engine frees the buses, taps and modulators and releases the
    // ScratchPool and SystemInfo.
    engine_.reset();
}

// Routing and the wet buses follow the arrangements; the arrays a block
// operation touches follow the record, whose counts the host sized its
// arrays by: an arrangement wider than the record never reaches past them,
// and a narrower output arrangement still has every output of the record
// written (silence where no wet bus feeds it).
void DelayEffect::applyChannelCounts() {
    engine_->setOutputChannelCount(outputChannels());
    engine_->setInputChannelCount(std::min(inputChannels(), cEffect.numInputs));
    engine_->setHostOutputCount(cEffect.numOutputs);
}

void DelayEffect::process(float** inputs, float** outputs, int32_t sampleFrames) {
    engine_->process(inputs, outputs, sampleFrames);
}

void DelayEffect::processReplacing(float** inputs, float** outputs, int32_t sampleFrames) {
    engine_->processReplacing(inputs, outputs, sampleFrames);
}

void DelayEffect::setSampleRate(float rate) {
    // A rate of 0 is stored as given: modulators then hold still, filters sit
    // at their clamp and the editor's speed display reads "nan". Negative or
    // non-finite rates mean nothing and are ignored.
    if (!std::isfinite(rate) || rate < 0.0f) return;
    AudioEffectX::setSampleRate(rate);
    engine_->setSampleRate(rate);
}

void DelayEffect::setBlockSize(int32_t size) { AudioEffectX::setBlockSize(size); }

void DelayEffect::suspend() { engine_->suspend(); }

void DelayEffect::resume() { engine_->resume(); }

int32_t DelayEffect::canDo(const char* text) {
    if (!text) return 0;
    for (const char* known : kCanDo) {
        if (std::strcmp(text, known) == 0) return 1;
    }
    return 0;
}

bool DelayEffect::acceptArrangement(VstSpeakerArrangement** arr, const VstSpeakerArrangement* from,
                                    bool* accepted) {
    VstSpeakerArrangement* made = nullptr;
    bool ok;
    if (from->numChannels > kMaxChannels) {
        *accepted = false;
        ok = allocateArrangement(&made, kMaxChannels);
        if (ok) made->type = kSpeakerArrUserDefined;
    } else {
        ok = matchArrangement(&made, from);
    }
    if (!ok) return false;
    deallocateArrangement(arr);
    *arr = made;
    return true;
}

bool DelayEffect::setSpeakerArrangement(VstSpeakerArrangement* input, VstSpeakerArrangement* output) {
    // A negative channel count is as unusable as a missing arrangement.
    if (!input || !output || input->numChannels < 0 || output->numChannels < 0) return false;
    bool result = true;
    // Both are tried: one side that could be copied is kept even when the
    // other failed (and then stays as it was).
    const bool inputCopied = acceptArrangement(&inputArrangement, input, &result);
    const bool outputCopied = acceptArrangement(&outputArrangement, output, &result);
    applyChannelCounts();
    if (!result || !inputCopied || !outputCopied) return false;
    clampRouting();
    if (editor) editor->rebuildRoutingMenus();
    return true;
}

bool DelayEffect::getSpeakerArrangement(VstSpeakerArrangement** input, VstSpeakerArrangement** output) {
    if (input) *input = inputArrangement;
    if (output) *output = outputArrangement;
    return true;
}

void DelayEffect::clampRouting() {
    const int32_t nIn = inputChannels();
    const int32_t nOut = outputChannels();
    for (int32_t i = 0; i < 2 * kTapCount; ++i) {
        float clamped = 0.0f;
        if (clampedRoutingValue(i, getParameter(i), nIn, nOut, &clamped)) setParameterAutomated(i, clamped);
    }
}

const HostTimeInfo* DelayEffect::getTimeInfo(int32_t requestFlags) {
    const VstTimeInfo* info = AudioEffectX::getTimeInfo(requestFlags);
    if (!info) return nullptr;
    timeInfo_.samplePos = info->samplePos;
    timeInfo_.sampleRate = info->sampleRate;
    timeInfo_.tempo = info->tempo;
    timeInfo_.flags = info->flags;
    return &timeInfo_;
}

void DelayEffect::setDelayTimeResample(bool on) {
    if (preferences_) preferences_->setNumber(kOptionDelayTimeResample, on ? 1 : 0);
    engine_->setResample(on);
}

// Programs

void DelayEffect::setProgram(int32_t program) {
    if (program < 0 || program >= kNumPrograms) return;
    curProgram = program;
    Program& p = *programs_[program];
    for (int32_t i = 0; i < kParameterCount; ++i) setParameter(i, p.values[i]);
}

void DelayEffect::setProgramName(const char* name) {
    if (name) copyName(programs_[curProgram]->name, name, Program::kNameMax);
}

void DelayEffect::getProgramName(char* name) {
    // Hosts size this buffer for kVstMaxProgNameLen characters; a longer
    // name (a preset may have up to 255) is cut there rather than overrun it.
    if (name) copyName(name, programs_[curProgram]->name, kVstMaxProgNameLen);
}

}  // namespace varitap
