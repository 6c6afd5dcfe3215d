#include "host/lv2/Lv2Ui.h"

#include <lv2/instance-access/instance-access.h>

#include <cstring>
#include <new>
#include <string>

#include "host/PluginEditor.h"
#include "host/lv2/Lv2Effect.h"

namespace varitap {

namespace {

const void* findFeature(const LV2_Feature* const* features, const char* uri) {
    for (const LV2_Feature* const* f = features; f && *f; ++f) {
        if ((*f)->URI && std::strcmp((*f)->URI, uri) == 0) return (*f)->data;
    }
    return nullptr;
}

Lv2Effect* effectOf(LV2UI_Handle handle) { return static_cast<Lv2Effect*>(handle); }

LV2UI_Handle instantiate(const LV2UI_Descriptor*, const char* pluginUri, const char*,
                         LV2UI_Write_Function writeFunction, LV2UI_Controller controller,
                         LV2UI_Widget* widget, const LV2_Feature* const* features) {
    try {
        if (!pluginUri || std::strcmp(pluginUri, Lv2Effect::kUri) != 0 || !widget) return nullptr;
        auto* effect = static_cast<Lv2Effect*>(const_cast<void*>(findFeature(features, LV2_INSTANCE_ACCESS_URI)));
        void* parent = const_cast<void*>(findFeature(features, LV2_UI__parent));
        if (!effect || !parent) return nullptr;
        PluginEditor* editor = effect->core().getEditor();
        if (!editor || !editor->open(parent)) return nullptr;
        const auto* touch = static_cast<const LV2UI_Touch*>(findFeature(features, LV2_UI__touch));
        effect->attachUi(writeFunction, controller, touch);
        if (const auto* resize = static_cast<const LV2UI_Resize*>(findFeature(features, LV2_UI__resize))) {
            if (resize->ui_resize) resize->ui_resize(resize->handle, PluginEditor::kWidth, PluginEditor::kHeight);
        }
        *widget = editor->nativeWindow();
        return effect;
    } catch (...) {
        return nullptr;
    }
}

void cleanup(LV2UI_Handle handle) {
    try {
        Lv2Effect* effect = effectOf(handle);
        effect->detachUi();
        if (PluginEditor* editor = effect->core().getEditor()) editor->close();
    } catch (...) {
    }
}

int idle(LV2UI_Handle handle) {
    try {
        PluginEditor* editor = effectOf(handle)->core().getEditor();
        if (!editor || !editor->isOpen()) return 1;
        editor->idle();
        return 0;
    } catch (...) {
        return 1;
    }
}

const void* extensionData(const char* uri) {
    static const LV2UI_Idle_Interface idleInterface = {idle};
    if (uri && std::strcmp(uri, LV2_UI__idleInterface) == 0) return &idleInterface;
    return nullptr;
}

const LV2UI_Descriptor kDescriptor = {
    nullptr, instantiate, cleanup, nullptr, extensionData,
};

}  // namespace

const LV2UI_Descriptor* lv2UiDescriptor() {
    static const std::string uri = std::string(Lv2Effect::kUri) + "#ui";
    static LV2UI_Descriptor descriptor = [] {
        LV2UI_Descriptor d = kDescriptor;
        d.URI = uri.c_str();
        return d;
    }();
    return &descriptor;
}

}  // namespace varitap
