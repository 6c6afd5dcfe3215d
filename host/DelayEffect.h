// Varitap's plug-in instance: the effect the host loads. It answers the host
// (identity, channel configuration, capabilities), owns the 241-parameter
// model and the single "Init" program, and drives the DelayEngine, to which
// it is the EngineHost (time information, pins, the parameter path).
#pragma once

#include <cstdint>
#include <memory>

#include "engine/DelayEngine.h"
#include "engine/EngineHost.h"
#include "engine/ParameterLayout.h"
#include "host/AudioEffectX.h"
#include "persistence/Preset.h"

namespace varitap {

class AEffEditor;
class DelayEffect;
class Preferences;

// The editor is made through this hook so that the host layer does not
// depend on the editor layer: the plug-in module installs the factory of its
// editor before any instance exists. Without a factory an instance has no
// editor and does not report effFlagsHasEditor.
using EditorFactory = AEffEditor* (*)(DelayEffect& effect);
// construction thread (module set-up). Null removes the factory.
void setEditorFactory(EditorFactory factory);
EditorFactory editorFactory();

// The entry point's work: refuses hosts from before VST 2 (audioMasterVersion
// answers 0) and a null callback, creates one instance and returns its
// record, or null when the instance could not be made.
vst::AEffect* createDelayEffect(vst::audioMasterCallback audioMaster);

// The single host program: one value per parameter and a name.
struct Program {
    static constexpr int kNameMax = 255;
    Relaxed<float> values[kParameterCount];  // mirrors every accepted parameter value; written by
                                             // the host, the editor and the audio thread's modulators
    char name[kNameMax + 1];        // zero-terminated
};

// The "Init" program's values (every other index is 0.0).
float initProgramValue(int32_t index);

class DelayEffect : public AudioEffectX, public EngineHost {
public:
    static constexpr int32_t kNumPrograms = 1;
    static constexpr int32_t kUniqueId = vst::fourCharCode('v', 'r', 't', 'p');
    static constexpr int32_t kMaxChannels = varitap::kMaxChannels;

    // construction thread. Asks the host for its vendor, version and pins to
    // choose the channel counts, reads the user options, applies the "Init"
    // program and creates the editor when a factory is installed.
    explicit DelayEffect(vst::audioMasterCallback audioMaster);
    // ui thread (effClose). Deletes the editor first, then releases the
    // shared objects.
    ~DelayEffect() override;

    // Parameters (any thread, no lock). Indices 0..240; negative indices are
    // ignored, 241 and above only reach the editor's notification.
    void setParameter(int32_t index, float value) override;
    float getParameter(int32_t index) override;
    void setParameterAutomated(int32_t index, float value) override;
    // ui thread. Texts for the host; nothing is written for an index outside
    // the layout (names continue the modulator formula past 240).
    void getParameterLabel(int32_t index, char* label) override;
    void getParameterDisplay(int32_t index, char* text) override;
    void getParameterName(int32_t index, char* text) override;

    // audio thread. Both run the engine's block; blocks over 44100 frames are
    // refused.
    void process(float** inputs, float** outputs, int32_t sampleFrames) override;
    void processReplacing(float** inputs, float** outputs, int32_t sampleFrames) override;

    // Programs (ui thread). Only program 0 exists.
    void setProgram(int32_t program) override;
    void setProgramName(const char* name) override;
    void getProgramName(char* name) override;

    // ui thread, or any other thread even while a block runs (some hosts
    // send them from a thread of their own): the work on lines, heads and
    // modulator phases is carried out by the audio thread at its next block
    // (DelayEngine::suspend).
    void setSampleRate(float rate) override;
    void setBlockSize(int32_t size) override;
    void suspend() override;
    void resume() override;
    // ui thread.
    vst::VstPlugCategory getPlugCategory() override { return vst::kPlugCategRoomFx; }
    bool setSpeakerArrangement(vst::VstSpeakerArrangement* input,
                               vst::VstSpeakerArrangement* output) override;
    bool getSpeakerArrangement(vst::VstSpeakerArrangement** input,
                               vst::VstSpeakerArrangement** output) override;
    int32_t canDo(const char* text) override;

    // EngineHost (see engine/EngineHost.h for the threads).
    const HostTimeInfo* getTimeInfo(int32_t requestFlags) override;
    bool isInputConnected(int32_t index) override { return AudioEffectX::isInputConnected(index); }
    bool isOutputConnected(int32_t index) override { return AudioEffectX::isOutputConnected(index); }
    float getSampleRate() const override { return AudioEffectX::getSampleRate(); }

    // ui thread (the editor's Options command). Writes the option
    // "Delay Time Resample" and sets or clears every tap's resample flag.
    void setDelayTimeResample(bool on);

    // ui thread. Moves tap routing that points past the current channel
    // configuration back inside it, as automation. Runs after a successful
    // setSpeakerArrangement and after a preset is applied.
    void clampRouting();

    // The preset bridge (ui thread, under the modulator lock): the current
    // parameters as a new Preset owned by the caller, and a preset applied to
    // the instance.
    Preset* createPresetFromState(const char* name);
    void applyPreset(Preset* preset);
    // The last user preset applied, or null. Held, so that it outlives its
    // removal from the shared library (by this instance's menu or another's);
    // the editor offers it only while the library still lists it.
    RefPtr<Preset> lastUserPreset;

    // Read-outs for the editor, the preset bridge and tests.
    DelayEngine& engine() { return *engine_; }
    const DelayEngine& engine() const { return *engine_; }
    RecursiveMutex& modulatorLock() { return engine_->modulatorLock(); }
    Program& program() { return *programs_[0]; }
    int32_t getHostVstVersion() const { return hostVstVersion; }
    const vst::VstSpeakerArrangement* getInputArrangement() const { return inputArrangement; }
    const vst::VstSpeakerArrangement* getOutputArrangement() const { return outputArrangement; }
    int32_t inputChannels() const { return inputArrangement ? inputArrangement->numChannels : 0; }
    int32_t outputChannels() const { return outputArrangement ? outputArrangement->numChannels : 0; }

private:
    // Replaces *arr by a copy of from, or by a user-defined arrangement of
    // kMaxChannels when from has more channels; false for the latter. The
    // old arrangement stays when memory cannot be had.
    bool acceptArrangement(vst::VstSpeakerArrangement** arr, const vst::VstSpeakerArrangement* from,
                           bool* accepted);
    // Tells the engine how many channels the host hands over (the record's
    // counts) and routes and mixes (the arrangements'). ui thread, never
    // during a block.
    void applyChannelCounts();
    // The tap or modulator behind a parameter index, with its sub-index.
    static bool isTapParameter(int32_t index, int* tap, int* sub);
    static bool isModulatorParameter(int32_t index, int* modulator, int* sub);

    int32_t hostVstVersion = 0;                             // 2300 means 2.3
    vst::VstSpeakerArrangement* inputArrangement = nullptr;   // owned
    vst::VstSpeakerArrangement* outputArrangement = nullptr;  // owned
    std::unique_ptr<DelayEngine> engine_;                   // taps, modulators, buses
    std::unique_ptr<Program> programs_[kNumPrograms];       // the "Init" program
    Preferences* preferences_ = nullptr;                    // retained shared store
    HostTimeInfo timeInfo_;  // the last time information, as the engine reads it (audio thread)
};

}  // namespace varitap
