#include "host/lv2/Lv2Ui.h"

#include <lv2/atom/atom.h>
#include <lv2/instance-access/instance-access.h>
#include <lv2/options/options.h>
#include <lv2/urid/urid.h>

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

// The host's ui:scaleFactor among the UI's options, or 0 when it gives none
// (the editor then follows the user's Zoom choice or the display).
double hostScale(const LV2_Feature* const* features) {
    const auto* map = static_cast<const LV2_URID_Map*>(findFeature(features, LV2_URID__map));
    const auto* options = static_cast<const LV2_Options_Option*>(findFeature(features, LV2_OPTIONS__options));
    if (!map || !map->map || !options) return 0.0;
    const LV2_URID scaleFactor = map->map(map->handle, LV2_UI__scaleFactor);
    const LV2_URID atomFloat = map->map(map->handle, LV2_ATOM__Float);
    for (const LV2_Options_Option* o = options; o->key || o->value; ++o) {
        if (o->key == scaleFactor && o->type == atomFloat && o->size == sizeof(float) && o->value) {
            return *static_cast<const float*>(o->value);
        }
    }
    return 0.0;
}

LV2UI_Handle instantiate(const LV2UI_Descriptor*, const char* pluginUri, const char*,
                         LV2UI_Write_Function writeFunction, LV2UI_Controller controller,
                         LV2UI_Widget* widget, const LV2_Feature* const* features) {
    try {
        if (!pluginUri || std::strcmp(pluginUri, Lv2Effect::kUri) != 0 || !widget) return nullptr;
        auto* effect = static_cast<Lv2Effect*>(const_cast<void*>(findFeature(features, LV2_INSTANCE_ACCESS_URI)));
        void* parent = const_cast<void*>(findFeature(features, LV2_UI__parent));
        if (!effect || !parent) return nullptr;
        PluginEditor* editor = effect->core().getEditor();
        if (!editor) return nullptr;
        editor->setScale(hostScale(features));
        if (!editor->open(parent)) return nullptr;
        const auto* touch = static_cast<const LV2UI_Touch*>(findFeature(features, LV2_UI__touch));
        const auto* resize = static_cast<const LV2UI_Resize*>(findFeature(features, LV2_UI__resize));
        effect->attachUi(writeFunction, controller, touch, resize);
        int32_t width = PluginEditor::kWidth, height = PluginEditor::kHeight;
        editor->getSize(&width, &height);
        effect->resizeEditor(width, height);
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
