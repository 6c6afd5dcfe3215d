// The VST 2.x extension of the effect base: the opcodes a 2.3 host adds
// (categories, capabilities, speaker arrangements, version) with their
// default answers, and the 2.x host services.
#pragma once

#include <cstdint>

#include "host/vst2/AudioEffect.h"

namespace varitap {

class AudioEffectX : public AudioEffect {
public:
    AudioEffectX(vst::audioMasterCallback audioMaster, int32_t numPrograms, int32_t numParams);

    // ui thread. Answers the 2.x opcodes, passes the rest to the base.
    vst::VstIntPtr dispatcher(int32_t opcode, int32_t index, vst::VstIntPtr value, void* ptr,
                              float opt) override;

    // Default answers of the 2.x opcodes (ui thread).
    virtual int32_t processEvents(void* events) {
        (void)events;
        return 0;
    }
    // 1 for every parameter index the effect has.
    virtual bool canParameterBeAutomated(int32_t index) { return index >= 0 && index < numParams; }
    virtual bool string2parameter(int32_t index, char* text) {
        (void)index;
        (void)text;
        return false;
    }
    virtual int32_t getNumCategories() { return 1; }
    virtual bool getProgramNameIndexed(int32_t category, int32_t index, char* text) {
        (void)category;
        (void)index;
        (void)text;
        return false;
    }
    virtual bool copyProgram(int32_t destination) {
        (void)destination;
        return false;
    }
    virtual vst::VstPlugCategory getPlugCategory() { return vst::kPlugCategEffect; }
    // The host offers its arrangements; the defaults refuse.
    virtual bool setSpeakerArrangement(vst::VstSpeakerArrangement* input,
                                       vst::VstSpeakerArrangement* output) {
        (void)input;
        (void)output;
        return false;
    }
    // Hands back arrangements the effect keeps owning.
    virtual bool getSpeakerArrangement(vst::VstSpeakerArrangement** input,
                                       vst::VstSpeakerArrangement** output) {
        if (input) *input = nullptr;
        if (output) *output = nullptr;
        return false;
    }
    virtual bool setBypass(bool on) {
        (void)on;
        return false;
    }
    virtual bool getEffectName(char* name) {
        (void)name;
        return false;
    }
    virtual bool getVendorString(char* text) {
        (void)text;
        return false;
    }
    virtual bool getProductString(char* text) {
        (void)text;
        return false;
    }
    virtual int32_t getVendorVersion() { return 0; }
    // 1 yes, -1 no, 0 unknown. The default knows nothing.
    virtual int32_t canDo(const char* text) {
        (void)text;
        return 0;
    }
    virtual int32_t getGetTailSize() { return 0; }
    virtual int32_t getVstVersion() { return vst::kVstVersion; }
    virtual bool keysRequired() { return false; }

    // Host services (any thread unless said).
    // ui thread. Copies the host's vendor name into text (at least
    // kVstMaxVendorStrLen bytes); false when the host gives none.
    virtual bool getHostVendorString(char* text);
    // Whether the host reports the pin connected (the host answers 0 for
    // "connected"; a host without the callback counts as connected).
    virtual bool isInputConnected(int32_t index);
    virtual bool isOutputConnected(int32_t index);
    // audio thread. The host's time record for these request flags, or null.
    // Not virtual: derived classes may offer their own view of it.
    vst::VstTimeInfo* getTimeInfo(int32_t filter);
    // ui thread. Tells the host that numInputs/numOutputs or the latency
    // changed.
    virtual bool ioChanged();
    // ui thread. Asks the host to give the editor's window a new size
    // (audioMasterSizeWindow); true when the host says it did.
    virtual bool sizeWindow(int32_t width, int32_t height);

    // Speaker arrangements (ui thread; they allocate). An arrangement for n
    // channels holds room for at least the eight speakers the record
    // declares, zeroed, with numChannels = n. A previous arrangement in *arr
    // is freed first.
    virtual bool allocateArrangement(vst::VstSpeakerArrangement** arr, int32_t channels);
    virtual bool deallocateArrangement(vst::VstSpeakerArrangement** arr);
    // *to becomes a copy of from (type, count and every speaker).
    virtual bool matchArrangement(vst::VstSpeakerArrangement** to,
                                  const vst::VstSpeakerArrangement* from);
};

}  // namespace varitap
