// What a plug-in instance needs of its host and tells it, in the same terms
// for every plug-in format. Each format's glue under host/ implements it for
// its instance: VST 2 from audioMasterGetTime and the other host callbacks,
// LV2 from time:Position atoms and its port connections, CLAP from the
// process call's transport and its event queues.
#pragma once

#include <cstdint>

#include "engine/EngineHost.h"

namespace varitap {

class PluginHost {
public:
    virtual ~PluginHost() = default;

    // audio thread. Tempo, song position, playing and automation writing for
    // a request with these HostTimeInfo flags, or null when the host gives
    // none. The record stays valid until the next call.
    virtual const HostTimeInfo* getTimeInfo(int32_t requestFlags) = 0;
    // audio thread. Whether the host feeds input pin index, or reads output
    // pin index.
    virtual bool isInputConnected(int32_t index) = 0;
    virtual bool isOutputConnected(int32_t index) = 0;

    // any thread (the editor, a preset, the modulators on the audio thread).
    // The instance moved a parameter itself; the host shows and records it.
    virtual void automate(int32_t index, float value) = 0;
    // ui thread. The user starts and ends a gesture on a parameter.
    virtual void beginEdit(int32_t index) = 0;
    virtual void endEdit(int32_t index) = 0;
    // ui thread. Names, displays or the program name changed.
    virtual void updateDisplay() = 0;
    // ui thread. True for hosts that may not pass a value sent with automate
    // back to the instance (VST 2 hosts before 2.3): the sender then sets it
    // on the instance a second time.
    virtual bool repeatsAutomatedValues() const { return false; }
    // ui thread. The open editor wants its window this many host pixels wide
    // and high (its scale changed); true when the host resized it.
    virtual bool resizeEditor(int32_t width, int32_t height) {
        (void)width;
        (void)height;
        return false;
    }
};

}  // namespace varitap
