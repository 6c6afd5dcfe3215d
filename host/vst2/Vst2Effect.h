// Varitap as a VST 2.3 plug-in: the interface layer's AEffect record and
// dispatcher over the format-independent DelayEffect. This is what is VST 2
// alone: the channel counts chosen from the host's vendor, version and pins,
// the speaker arrangements, the capabilities and category, the program-name
// length, and the host callbacks behind the instance's PluginHost.
#pragma once

#include <cstdint>
#include <memory>

#include "host/DelayEffect.h"
#include "host/PluginHost.h"
#include "host/vst2/AudioEffectX.h"

namespace varitap {

// The entry point's work: refuses hosts from before VST 2 (audioMasterVersion
// answers 0) and a null callback, creates one instance and returns its
// record, or null when the instance could not be made.
vst::AEffect* createDelayEffect(vst::audioMasterCallback audioMaster);

class Vst2Effect : public AudioEffectX, public PluginHost {
public:
    static constexpr int32_t kUniqueId = vst::fourCharCode('v', 'r', 't', 'p');

    // construction thread. Asks the host for its vendor, version and pins to
    // choose the channel counts, then creates the instance (which applies the
    // "Init" program and creates the editor when a factory is installed).
    explicit Vst2Effect(vst::audioMasterCallback audioMaster);
    // ui thread (effClose). The instance goes first (its editor, then the
    // shared objects), then the arrangements.
    ~Vst2Effect() override;

    // The instance behind a record made by createDelayEffect, or null.
    static Vst2Effect* fromRecord(vst::AEffect* effect);
    DelayEffect& core() { return *core_; }

    // Parameters, programs and processing go to the instance as they come.
    void setParameter(int32_t index, float value) override { core_->setParameter(index, value); }
    float getParameter(int32_t index) override { return core_->getParameter(index); }
    void setParameterAutomated(int32_t index, float value) override {
        core_->setParameterAutomated(index, value);
    }
    void getParameterLabel(int32_t index, char* label) override { core_->getParameterLabel(index, label); }
    void getParameterDisplay(int32_t index, char* text) override { core_->getParameterDisplay(index, text); }
    void getParameterName(int32_t index, char* text) override { core_->getParameterName(index, text); }
    void process(float** inputs, float** outputs, int32_t sampleFrames) override {
        core_->process(inputs, outputs, sampleFrames);
    }
    void processReplacing(float** inputs, float** outputs, int32_t sampleFrames) override {
        core_->processReplacing(inputs, outputs, sampleFrames);
    }
    void setProgram(int32_t program) override;
    void setProgramName(const char* name) override { core_->setProgramName(name); }
    // Hosts size this buffer for kVstMaxProgNameLen characters; a longer
    // name (a preset may have up to 255) is cut there rather than overrun it.
    void getProgramName(char* name) override { core_->getProgramName(name, vst::kVstMaxProgNameLen); }

    // ui thread.
    void setSampleRate(float rate) override;
    void setBlockSize(int32_t size) override;
    void suspend() override { core_->suspend(); }
    void resume() override { core_->resume(); }
    vst::VstPlugCategory getPlugCategory() override { return vst::kPlugCategRoomFx; }
    bool setSpeakerArrangement(vst::VstSpeakerArrangement* input,
                               vst::VstSpeakerArrangement* output) override;
    bool getSpeakerArrangement(vst::VstSpeakerArrangement** input,
                               vst::VstSpeakerArrangement** output) override;
    int32_t canDo(const char* text) override;

    // PluginHost: the host callbacks (threads as there).
    const HostTimeInfo* getTimeInfo(int32_t requestFlags) override;
    bool isInputConnected(int32_t index) override { return AudioEffectX::isInputConnected(index); }
    bool isOutputConnected(int32_t index) override { return AudioEffectX::isOutputConnected(index); }
    void automate(int32_t index, float value) override;
    void beginEdit(int32_t index) override { AudioEffectX::beginEdit(index); }
    void endEdit(int32_t index) override { AudioEffectX::endEdit(index); }
    void updateDisplay() override { AudioEffectX::updateDisplay(); }
    bool resizeEditor(int32_t width, int32_t height) override { return sizeWindow(width, height); }
    // Hosts before 2.3 did not always pass automation back.
    bool repeatsAutomatedValues() const override { return hostVstVersion < kVst23; }

    int32_t getHostVstVersion() const { return hostVstVersion; }
    const vst::VstSpeakerArrangement* getInputArrangement() const { return inputArrangement; }
    const vst::VstSpeakerArrangement* getOutputArrangement() const { return outputArrangement; }

private:
    // The VST version from which a "Steinberg" host is trusted with its pin
    // counts.
    static constexpr int32_t kVst23 = 2300;

    // Replaces *arr by a copy of from, or by a user-defined arrangement of
    // kMaxChannels when from has more channels; false for the latter. The
    // old arrangement stays when memory cannot be had.
    bool acceptArrangement(vst::VstSpeakerArrangement** arr, const vst::VstSpeakerArrangement* from,
                           bool* accepted);
    // Tells the instance how many channels the host hands over and mixes into.
    void applyChannelCounts();

    int32_t hostVstVersion = 0;                               // 2300 means 2.3
    vst::VstSpeakerArrangement* inputArrangement = nullptr;   // owned
    vst::VstSpeakerArrangement* outputArrangement = nullptr;  // owned
    HostTimeInfo timeInfo_;  // the last time information, as the engine reads it (audio thread)
    std::unique_ptr<DelayEffect> core_;
};

}  // namespace varitap
