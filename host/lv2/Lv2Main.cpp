// The LV2 plug-in module's entry points, lv2_descriptor (the plug-in) and
// lv2ui_descriptor (its editor as an X11 UI, in the same module so that the
// UI reaches the instance and the process-wide objects it shares), and the
// trampolines behind the plug-in's descriptor. No exception leaves a
// trampoline. The linker version script keeps every other symbol hidden.
#include <lv2/core/lv2.h>
#include <lv2/state/state.h>

#include <cstring>

#include "editor/DelayEditor.h"
#include "host/lv2/Lv2Effect.h"
#include "host/lv2/Lv2Ui.h"

using varitap::Lv2Effect;

// Every instance of the module gets the editor, installed when the module loads.
[[maybe_unused]] static const bool kEditorInstalled = (varitap::setEditorFactory(&varitap::createDelayEditor), true);

namespace {

Lv2Effect* effectOf(LV2_Handle handle) { return static_cast<Lv2Effect*>(handle); }

LV2_Handle instantiate(const LV2_Descriptor*, double sampleRate, const char*,
                       const LV2_Feature* const* features) {
    try {
        return Lv2Effect::create(sampleRate, features);
    } catch (...) {
        return nullptr;
    }
}

void connectPort(LV2_Handle handle, uint32_t port, void* data) { effectOf(handle)->connectPort(port, data); }

void activate(LV2_Handle handle) {
    try {
        effectOf(handle)->activate();
    } catch (...) {
    }
}

void run(LV2_Handle handle, uint32_t frames) {
    try {
        effectOf(handle)->run(frames);
    } catch (...) {
    }
}

void deactivate(LV2_Handle handle) {
    try {
        effectOf(handle)->deactivate();
    } catch (...) {
    }
}

void cleanup(LV2_Handle handle) {
    try {
        delete effectOf(handle);
    } catch (...) {
    }
}

LV2_State_Status save(LV2_Handle handle, LV2_State_Store_Function store, LV2_State_Handle state,
                      uint32_t, const LV2_Feature* const*) {
    if (!store) return LV2_STATE_ERR_UNKNOWN;
    try {
        return effectOf(handle)->save(store, state);
    } catch (...) {
        return LV2_STATE_ERR_UNKNOWN;
    }
}

LV2_State_Status restore(LV2_Handle handle, LV2_State_Retrieve_Function retrieve, LV2_State_Handle state,
                         uint32_t, const LV2_Feature* const*) {
    if (!retrieve) return LV2_STATE_ERR_UNKNOWN;
    try {
        return effectOf(handle)->restore(retrieve, state);
    } catch (...) {
        return LV2_STATE_ERR_UNKNOWN;
    }
}

const void* extensionData(const char* uri) {
    static const LV2_State_Interface state = {save, restore};
    if (uri && std::strcmp(uri, LV2_STATE__interface) == 0) return &state;
    return nullptr;
}

const LV2_Descriptor kDescriptor = {
    Lv2Effect::kUri, instantiate, connectPort, activate, run, deactivate, cleanup, extensionData,
};

}  // namespace

extern "C" LV2_SYMBOL_EXPORT const LV2_Descriptor* lv2_descriptor(uint32_t index) {
    return index == 0 ? &kDescriptor : nullptr;
}

extern "C" LV2_SYMBOL_EXPORT const LV2UI_Descriptor* lv2ui_descriptor(uint32_t index) {
    return index == 0 ? varitap::lv2UiDescriptor() : nullptr;
}
