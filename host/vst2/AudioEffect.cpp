#include "host/vst2/AudioEffect.h"

#include <climits>
#include <cstring>

#include "host/PluginEditor.h"

namespace varitap {

using namespace vst;

AudioEffect::AudioEffect(audioMasterCallback audioMaster, int32_t numPrograms, int32_t numParams)
    : audioMaster(audioMaster), numPrograms(numPrograms), numParams(numParams) {
    std::memset(&cEffect, 0, sizeof(cEffect));
    cEffect.magic = kEffectMagic;
    cEffect.dispatcher = &AudioEffect::dispatchEffect;
    cEffect.process = &AudioEffect::processEffect;
    cEffect.setParameter = &AudioEffect::setParameterEffect;
    cEffect.getParameter = &AudioEffect::getParameterEffect;
    cEffect.processReplacing = &AudioEffect::processReplacingEffect;
    cEffect.numPrograms = numPrograms;
    cEffect.numParams = numParams;
    cEffect.numInputs = 1;
    cEffect.numOutputs = 2;
    cEffect.ioRatio = 1.0f;
    cEffect.object = this;
    cEffect.version = 1;
}

AudioEffect* AudioEffect::fromAeffect(AEffect* effect) {
    if (!effect || effect->magic != kEffectMagic) return nullptr;
    return static_cast<AudioEffect*>(effect->object);
}

const ERect& AudioEffect::editorRect() {
    static const ERect rect = {0, 0, PluginEditor::kHeight, PluginEditor::kWidth};
    return rect;
}

void AudioEffect::setEditor(PluginEditor* newEditor) {
    editor = newEditor;
    setFlag(effFlagsHasEditor, editor != nullptr);
}

VstIntPtr AudioEffect::dispatcher(int32_t opcode, int32_t index, VstIntPtr value, void* ptr,
                                  float opt) {
    char* text = static_cast<char*>(ptr);
    switch (opcode) {
        case effOpen:
            open();
            return 0;
        case effClose:
            // The instance deletes itself; nothing may touch it afterwards.
            close();
            delete this;
            return 1;
        case effSetProgram:
            if (value >= INT32_MIN && value < numPrograms) setProgram(static_cast<int32_t>(value));
            return 0;
        case effGetProgram:
            return getProgram();
        case effSetProgramName:
            if (text) setProgramName(text);
            return 0;
        case effGetProgramName:
            if (text) getProgramName(text);
            return 0;
        case effGetParamLabel:
            if (text) getParameterLabel(index, text);
            return 0;
        case effGetParamDisplay:
            if (text) getParameterDisplay(index, text);
            return 0;
        case effGetParamName:
            if (text) getParameterName(index, text);
            return 0;
        case effGetVu:
            return static_cast<VstIntPtr>(getVu() * 32767.0f);
        case effSetSampleRate:
            setSampleRate(opt);
            return 0;
        case effSetBlockSize:
            setBlockSize(static_cast<int32_t>(value));
            return 0;
        case effMainsChanged:
            if (value == 0) {
                suspend();
            } else {
                resume();
            }
            return 0;
        case effEditGetRect:
            // Hosts size their window before opening the editor: the
            // rectangle is answered whether or not an editor exists.
            // With an editor it is the editor's size at its scale, handed out
            // in a record that stays valid until the next request.
            if (!ptr) return 0;
            if (editor) {
                int32_t width = PluginEditor::kWidth, height = PluginEditor::kHeight;
                editor->getSize(&width, &height);
                editorSize_ = ERect{0, 0, static_cast<int16_t>(height), static_cast<int16_t>(width)};
                *static_cast<const ERect**>(ptr) = &editorSize_;
            } else {
                *static_cast<const ERect**>(ptr) = &editorRect();
            }
            return 1;
        case effEditOpen:
            return editor && editor->open(ptr) ? 1 : 0;
        case effEditClose:
            if (editor) editor->close();
            return editor ? 1 : 0;
        case effEditIdle:
            if (editor) editor->idle();
            return editor ? 1 : 0;
        case effIdentify:
            return fourCharCode('N', 'v', 'E', 'f');
        case effGetChunk:
            return ptr ? getChunk(static_cast<void**>(ptr), index != 0) : 0;
        case effSetChunk:
            return ptr ? setChunk(ptr, value, index != 0) : 0;
        default:
            return 0;
    }
}

void AudioEffect::process(float** inputs, float** outputs, int32_t sampleFrames) {
    (void)inputs;
    (void)outputs;
    (void)sampleFrames;
}

void AudioEffect::processReplacing(float** inputs, float** outputs, int32_t sampleFrames) {
    (void)inputs;
    (void)outputs;
    (void)sampleFrames;
}

void AudioEffect::setParameterAutomated(int32_t index, float value) {
    setParameter(index, value);
    callHost(audioMasterAutomate, index, 0, nullptr, value);
}

int32_t AudioEffect::getMasterVersion() {
    VstIntPtr version = callHost(audioMasterVersion);
    return version == 0 ? 1 : static_cast<int32_t>(version);
}

void AudioEffect::updateDisplay() { callHost(audioMasterUpdateDisplay); }

void AudioEffect::beginEdit(int32_t index) { callHost(audioMasterBeginEdit, index); }

void AudioEffect::endEdit(int32_t index) { callHost(audioMasterEndEdit, index); }

VstIntPtr AudioEffect::callHost(int32_t opcode, int32_t index, VstIntPtr value, void* ptr,
                                float opt) {
    if (!audioMaster) return 0;
    try {
        return audioMaster(&cEffect, opcode, index, value, ptr, opt);
    } catch (...) {
        return 0;
    }
}

// The trampolines: the host calls these through the record; each finds the
// instance, calls the virtual operation and stops every exception here.

VstIntPtr AudioEffect::dispatchEffect(AEffect* e, int32_t opcode, int32_t index, VstIntPtr value,
                                      void* ptr, float opt) {
    AudioEffect* effect = fromAeffect(e);
    if (!effect) return 0;
    try {
        return effect->dispatcher(opcode, index, value, ptr, opt);
    } catch (...) {
        return 0;
    }
}

void AudioEffect::processEffect(AEffect* e, float** inputs, float** outputs, int32_t frames) {
    AudioEffect* effect = fromAeffect(e);
    if (!effect || frames < 0) return;
    try {
        effect->process(inputs, outputs, frames);
    } catch (...) {
    }
}

void AudioEffect::processReplacingEffect(AEffect* e, float** inputs, float** outputs,
                                         int32_t frames) {
    AudioEffect* effect = fromAeffect(e);
    if (!effect || frames < 0) return;
    try {
        effect->processReplacing(inputs, outputs, frames);
    } catch (...) {
    }
}

void AudioEffect::setParameterEffect(AEffect* e, int32_t index, float value) {
    AudioEffect* effect = fromAeffect(e);
    if (!effect) return;
    try {
        effect->setParameter(index, value);
    } catch (...) {
    }
}

float AudioEffect::getParameterEffect(AEffect* e, int32_t index) {
    AudioEffect* effect = fromAeffect(e);
    if (!effect) return 0.0f;
    try {
        return effect->getParameter(index);
    } catch (...) {
        return 0.0f;
    }
}

}  // namespace varitap
