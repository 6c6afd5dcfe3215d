#include "host/DelayEffect.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <new>

#include "host/PluginEditor.h"
#include "modulation/ModulatorBase.h"
#include "persistence/Preferences.h"
#include "persistence/PresetLibrary.h"
#include "persistence/PresetParameters.h"

namespace varitap {

namespace {

EditorFactory gEditorFactory = nullptr;

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

// The switch options every tap follows: read when an instance is made, set
// by the editor's Options menu.
struct TapOption {
    const char* key;
    void (DelayEngine::*apply)(bool on);
};
constexpr TapOption kTapOptions[] = {
    {kOptionDelayTimeResample, &DelayEngine::setResample},
    {kOptionSmoothDelayTimeChanges, &DelayEngine::setSmoothDelayChanges},
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

DelayEffect::DelayEffect(PluginHost& host, int32_t inputChannels, int32_t outputChannels)
    : host_(host) {
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
    for (const TapOption& tapOption : kTapOptions) {
        if (preferences_->getNumber(tapOption.key, &option, 0) && option != 0) (engine_.get()->*tapOption.apply)(true);
    }
    if (preferences_->getNumber(kOptionSmoothFactor, &option, 0) && option != 0) {
        setModulatorSmoothFactor(option);
    }

    setChannelCounts(inputChannels, outputChannels, inputChannels, outputChannels);

    setProgram(0);

    if (gEditorFactory) editor = gEditorFactory(*this);

    // The shared preset library: the first instance of the process loads the
    // factory file from the bundle and then the user file; later ones share it.
    PresetLibrary::acquireForInstance();
}

DelayEffect::~DelayEffect() {
    delete editor;
    editor = nullptr;
    // Every instance that closes rewrites the user presets file, then drops
    // its share of the library (the last one destroys it).
    PresetLibrary::saveAndRelease();

    programs_[0].reset();
    if (preferences_) preferences_->release();
    preferences_ = nullptr;
    // The engine frees the buses, taps and modulators and releases the
    // ScratchPool and SystemInfo.
    engine_.reset();
}

void DelayEffect::setChannelCounts(int32_t inputs, int32_t outputs, int32_t hostInputs,
                                   int32_t hostOutputs) {
    const auto channels = [](int32_t n) { return std::clamp<int32_t>(n, 0, kMaxChannels); };
    inputChannels_ = channels(inputs);
    outputChannels_ = channels(outputs);
    engine_->setOutputChannelCount(outputChannels_);
    engine_->setInputChannelCount(std::min(inputChannels_, channels(hostInputs)));
    engine_->setHostOutputCount(channels(hostOutputs));
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
    sampleRate = rate;
    engine_->setSampleRate(rate);
}

void DelayEffect::suspend() { engine_->suspend(); }

void DelayEffect::resume() { engine_->resume(); }

void DelayEffect::channelConfigurationChanged() {
    clampRouting();
    if (editor) editor->rebuildRoutingMenus();
}

void DelayEffect::clampRouting() {
    const int32_t nIn = inputChannels();
    const int32_t nOut = outputChannels();
    for (int32_t i = 0; i < 2 * kTapCount; ++i) {
        float clamped = 0.0f;
        if (clampedRoutingValue(i, getParameter(i), nIn, nOut, &clamped)) setParameterAutomated(i, clamped);
    }
}

void DelayEffect::setSwitchOption(const char* key, bool on) {
    if (!key) return;
    if (preferences_) preferences_->setNumber(key, on ? 1 : 0);
    for (const TapOption& tapOption : kTapOptions) {
        if (std::strcmp(key, tapOption.key) == 0) (engine_.get()->*tapOption.apply)(on);
    }
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

void DelayEffect::getProgramName(char* name, int maxChars) {
    if (name && maxChars >= 0) copyName(name, programs_[curProgram]->name, static_cast<size_t>(maxChars));
}

}  // namespace varitap
