// Varitap's plug-in instance, the same for every plug-in format: it owns the
// 241-parameter model, the single "Init" program, the editor and the channel
// configuration, and drives the DelayEngine, to which it is the EngineHost
// (time information, pins, the parameter path). What it needs of the host and
// tells it passes through a PluginHost; each format's glue (host/vst2/,
// host/lv2/) creates the instance and translates its host's calls.
#pragma once

#include <cstdint>
#include <memory>

#include "engine/DelayEngine.h"
#include "engine/EngineHost.h"
#include "engine/ParameterLayout.h"
#include "engine/Relaxed.h"
#include "host/PluginHost.h"
#include "persistence/Preset.h"

namespace varitap {

class DelayEffect;
class PluginEditor;
class Preferences;
class Preset;
class RecursiveMutex;

// The editor is made through this hook so that the host layer does not
// depend on the editor layer: the plug-in module installs the factory of its
// editor before any instance exists. Without a factory an instance has no
// editor (and tells its host it has none).
using EditorFactory = PluginEditor* (*)(DelayEffect& effect);
// construction thread (module set-up). Null removes the factory.
void setEditorFactory(EditorFactory factory);
EditorFactory editorFactory();

// The single host program: one value per parameter and a name.
struct Program {
    static constexpr int kNameMax = 255;
    Relaxed<float> values[kParameterCount];  // mirrors every accepted parameter value; written by
                                             // the host, the editor and the audio thread's modulators
    char name[kNameMax + 1];        // zero-terminated
};

// The "Init" program's values (every other index is 0.0).
float initProgramValue(int32_t index);

class DelayEffect : public EngineHost {
public:
    static constexpr int32_t kNumPrograms = 1;
    static constexpr int32_t kMaxChannels = varitap::kMaxChannels;
    static constexpr float kDefaultSampleRate = 44100.0f;
    static constexpr int32_t kDefaultBlockSize = 1024;

    // construction thread. Starts with the given channel counts, reads the
    // user options, applies the "Init" program, creates the editor when a
    // factory is installed and retains the shared preset library. The host
    // outlives the instance.
    DelayEffect(PluginHost& host, int32_t inputChannels, int32_t outputChannels);
    // ui thread. Deletes the editor first, then saves the user presets and
    // releases the shared objects.
    ~DelayEffect() override;
    DelayEffect(const DelayEffect&) = delete;
    DelayEffect& operator=(const DelayEffect&) = delete;

    // Parameters (any thread, no lock). Indices 0..240; negative indices are
    // ignored, 241 and above only reach the editor's notification.
    void setParameter(int32_t index, float value) override;
    float getParameter(int32_t index) override;
    // Stores the value and tells the host (PluginHost::automate).
    void setParameterAutomated(int32_t index, float value) override;
    // ui thread. Texts for the host; nothing is written for an index outside
    // the layout (names continue the modulator formula past 240).
    void getParameterLabel(int32_t index, char* label);
    void getParameterDisplay(int32_t index, char* text);
    void getParameterName(int32_t index, char* text) override;

    // audio thread. Both run the engine's block; blocks over 44100 frames are
    // refused. process adds into the outputs, processReplacing writes them.
    void process(float** inputs, float** outputs, int32_t sampleFrames);
    void processReplacing(float** inputs, float** outputs, int32_t sampleFrames);

    // Programs (ui thread). Only program 0 exists.
    void setProgram(int32_t program);
    int32_t getProgram() const { return curProgram; }
    void setProgramName(const char* name);
    // Copies at most maxChars characters of the name and a terminator.
    void getProgramName(char* name, int maxChars);

    // ui thread, or any other thread even while a block runs (some hosts
    // send them from a thread of their own): the work on lines, heads and
    // modulator phases is carried out by the audio thread at its next block
    // (DelayEngine::suspend).
    void setSampleRate(float rate);
    void setBlockSize(int32_t size) { blockSize = size; }
    int32_t getBlockSize() const { return blockSize; }
    void suspend();
    void resume();

    // ui thread, never during a block. The channels routing and mixing use
    // (at most kMaxChannels each), and how many channel arrays the host passes
    // to a block: the engine never reads an input past either count, and
    // writes every one of the host's outputs (silence where no wet bus feeds
    // it), however wide the routing is. Routing itself is left alone.
    void setChannelCounts(int32_t inputs, int32_t outputs, int32_t hostInputs, int32_t hostOutputs);
    // ui thread. After the host has settled a new channel configuration:
    // the routing clamp, then the editor's routing menus follow.
    void channelConfigurationChanged();

    // EngineHost (see engine/EngineHost.h for the threads): time and pins
    // come from the host.
    const HostTimeInfo* getTimeInfo(int32_t requestFlags) override { return host_.getTimeInfo(requestFlags); }
    bool isInputConnected(int32_t index) override { return host_.isInputConnected(index); }
    bool isOutputConnected(int32_t index) override { return host_.isOutputConnected(index); }
    float getSampleRate() const override { return sampleRate; }

    // ui thread. The user's gestures and changed texts, passed to the host.
    void beginEdit(int32_t index) { host_.beginEdit(index); }
    void endEdit(int32_t index) { host_.endEdit(index); }
    void updateDisplay() { host_.updateDisplay(); }
    // ui thread. The open editor asks for a window of a new size.
    bool resizeEditor(int32_t width, int32_t height) { return host_.resizeEditor(width, height); }
    // ui thread. Whether a value sent as automation is set a second time
    // (see PluginHost::repeatsAutomatedValues).
    bool repeatsAutomatedValues() const { return host_.repeatsAutomatedValues(); }

    // ui thread. The editor (owned, may be null); a new one replaces the
    // pointer without deleting the old.
    PluginEditor* getEditor() const { return editor; }
    void setEditor(PluginEditor* newEditor) { editor = newEditor; }

    // ui thread (the editor's Options command). Writes a switch option (0 or
    // 1) and applies it to this instance: "Delay Time Resample" and "Smooth
    // Delay Time Changes" to every tap at once; the others are read where
    // they are used. Instances made later read them all when they are made.
    void setSwitchOption(const char* key, bool on);

    // ui thread. Moves tap routing that points past the current channel
    // configuration back inside it, as automation. Runs after a new channel
    // configuration and after a preset is applied.
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

    // Read-outs for the editor, the preset bridge, the format glue and tests.
    DelayEngine& engine() { return *engine_; }
    const DelayEngine& engine() const { return *engine_; }
    RecursiveMutex& modulatorLock() { return engine_->modulatorLock(); }
    Program& program() { return *programs_[0]; }
    int32_t inputChannels() const { return inputChannels_; }
    int32_t outputChannels() const { return outputChannels_; }

private:
    // The tap or modulator behind a parameter index, with its sub-index.
    static bool isTapParameter(int32_t index, int* tap, int* sub);
    static bool isModulatorParameter(int32_t index, int* modulator, int* sub);

    PluginHost& host_;                                  // the format's glue
    // Set on the ui thread, read on the audio thread: plain 32-bit values
    // without a lock, well-defined for the compiler and the thread sanitizer.
    Relaxed<float> sampleRate{kDefaultSampleRate};      // Hz, until the host sets it
    Relaxed<int32_t> blockSize{kDefaultBlockSize};      // until the host sets it
    int32_t curProgram = 0;                             // always 0
    PluginEditor* editor = nullptr;                     // owned, may be null
    int32_t inputChannels_ = 0;                         // the host's channel counts
    int32_t outputChannels_ = 0;
    std::unique_ptr<DelayEngine> engine_;               // taps, modulators, buses
    std::unique_ptr<Program> programs_[kNumPrograms];   // the "Init" program
    Preferences* preferences_ = nullptr;                // retained shared store
};

}  // namespace varitap
