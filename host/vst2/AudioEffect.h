// The VST 2 effect base: owns the AEffect record the host talks to, routes the
// host's dispatcher and process calls to virtual operations, and wraps the
// host callback. Written against the published VST 2 numbers (VstInterface.h).
//
// Threads: the dispatcher runs on the host's ui thread, process and
// processReplacing on its audio thread, setParameter/getParameter on either.
// No exception leaves a trampoline: each catches everything and answers 0.
#pragma once

#include <cstdint>

#include "engine/Relaxed.h"
#include "host/vst2/VstInterface.h"

namespace varitap {

class PluginEditor;

class AudioEffect {
public:
    // construction thread. Fills the AEffect record: magic, the trampolines,
    // the counts, flags 0, ioRatio 1, object = this. Sample rate 44100, block
    // size 1024, current program 0, no editor.
    AudioEffect(vst::audioMasterCallback audioMaster, int32_t numPrograms, int32_t numParams);
    // ui thread (effClose).
    virtual ~AudioEffect() = default;
    AudioEffect(const AudioEffect&) = delete;
    AudioEffect& operator=(const AudioEffect&) = delete;

    // The record handed to the host.
    vst::AEffect* getAeffect() { return &cEffect; }
    // The instance behind a record, or null for a null or foreign record.
    static AudioEffect* fromAeffect(vst::AEffect* effect);

    // ui thread. Answers one host opcode; the base knows the VST 1 set.
    virtual vst::VstIntPtr dispatcher(int32_t opcode, int32_t index, vst::VstIntPtr value, void* ptr,
                                      float opt);

    // ui thread. Called for effOpen and effClose (before the delete).
    virtual void open() {}
    virtual void close() {}

    // Programs (ui thread).
    virtual void setProgram(int32_t program) { curProgram = program; }
    virtual int32_t getProgram() { return curProgram; }
    virtual void setProgramName(const char* name) { (void)name; }
    virtual void getProgramName(char* name) { (void)name; }

    // Parameters (any thread).
    virtual void setParameter(int32_t index, float value) {
        (void)index;
        (void)value;
    }
    virtual float getParameter(int32_t index) {
        (void)index;
        return 0.0f;
    }
    virtual void setParameterAutomated(int32_t index, float value);
    // ui thread. Texts for the host; buffers are the host's.
    virtual void getParameterLabel(int32_t index, char* label) {
        (void)index;
        (void)label;
    }
    virtual void getParameterDisplay(int32_t index, char* text) {
        (void)index;
        (void)text;
    }
    virtual void getParameterName(int32_t index, char* text) {
        (void)index;
        (void)text;
    }
    virtual float getVu() { return 0.0f; }

    // Chunks: none by default (answers 0).
    virtual vst::VstIntPtr getChunk(void** data, bool isPreset) {
        (void)data;
        (void)isPreset;
        return 0;
    }
    virtual vst::VstIntPtr setChunk(void* data, vst::VstIntPtr byteSize, bool isPreset) {
        (void)data;
        (void)byteSize;
        (void)isPreset;
        return 0;
    }

    // ui thread.
    virtual void setSampleRate(float rate) { sampleRate = rate; }
    virtual void setBlockSize(int32_t size) { blockSize = size; }
    virtual void suspend() {}
    virtual void resume() {}

    // audio thread. The base adds or writes nothing.
    virtual void process(float** inputs, float** outputs, int32_t sampleFrames);
    virtual void processReplacing(float** inputs, float** outputs, int32_t sampleFrames);

    // any thread.
    virtual float getSampleRate() const { return sampleRate; }
    virtual int32_t getBlockSize() const { return blockSize; }
    int32_t getNumPrograms() const { return numPrograms; }
    int32_t getNumParams() const { return numParams; }
    PluginEditor* getEditor() const { return editor; }

    // ui thread. The editor that answers the editor opcodes (not owned: the
    // plug-in instance that made it deletes it; null detaches); sets or
    // clears effFlagsHasEditor.
    virtual void setEditor(PluginEditor* newEditor);

    // Host services (any thread; they call the host).
    // The host's VST version; 1 for a host that answers 0.
    virtual int32_t getMasterVersion();
    // ui thread. Tells the host to read names and displays again.
    virtual void updateDisplay();
    virtual void beginEdit(int32_t index);
    virtual void endEdit(int32_t index);

    // Record fields (construction thread).
    void setUniqueID(int32_t id) { cEffect.uniqueID = id; }
    void setNumInputs(int32_t n) { cEffect.numInputs = n; }
    void setNumOutputs(int32_t n) { cEffect.numOutputs = n; }
    void setInitialDelay(int32_t delay) { cEffect.initialDelay = delay; }
    void setEffectVersion(int32_t version) { cEffect.version = version; }
    void canProcessReplacing(bool state = true) { setFlag(vst::effFlagsCanReplacing, state); }
    void programsAreChunks(bool state = true) { setFlag(vst::effFlagsProgramChunks, state); }
    void canMono(bool state = true) { setFlag(vst::effFlagsCanMono, state); }
    void hasVu(bool state = true) { setFlag(vst::effFlagsHasVu, state); }
    void hasClip(bool state = true) { setFlag(vst::effFlagsHasClip, state); }

    // The editor rectangle answered for effEditGetRect when there is no
    // editor: top 0, left 0, bottom 400, right 865.
    static const vst::ERect& editorRect();

protected:
    // Calls the host; 0 when there is no callback or the host throws.
    vst::VstIntPtr callHost(int32_t opcode, int32_t index = 0, vst::VstIntPtr value = 0,
                            void* ptr = nullptr, float opt = 0.0f);
    void setFlag(int32_t flag, bool state) {
        if (state) {
            cEffect.flags |= flag;
        } else {
            cEffect.flags &= ~flag;
        }
    }

    // Set on the ui thread, read on the audio thread: plain 32-bit values
    // without a lock, well-defined for the compiler and the thread sanitizer.
    Relaxed<float> sampleRate{44100.0f};  // Hz, until the host sets it
    PluginEditor* editor = nullptr;      // not owned, may be null
    vst::audioMasterCallback audioMaster;  // the host's callback
    int32_t numPrograms;
    int32_t numParams;
    int32_t curProgram = 0;
    Relaxed<int32_t> blockSize{1024};
    vst::AEffect cEffect;

private:
    vst::ERect editorSize_{};  // the editor's size as effEditGetRect last handed it out
    // The trampolines stored in the record; each catches every exception.
    static vst::VstIntPtr dispatchEffect(vst::AEffect* e, int32_t opcode, int32_t index,
                                         vst::VstIntPtr value, void* ptr, float opt);
    static void processEffect(vst::AEffect* e, float** inputs, float** outputs, int32_t frames);
    static void processReplacingEffect(vst::AEffect* e, float** inputs, float** outputs,
                                       int32_t frames);
    static void setParameterEffect(vst::AEffect* e, int32_t index, float value);
    static float getParameterEffect(vst::AEffect* e, int32_t index);
};

}  // namespace varitap
