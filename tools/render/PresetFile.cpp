#include "tools/render/PresetFile.h"

#include "persistence/PresetParameters.h"
#include "tools/render/PluginInstance.h"

namespace render {

std::string factoryPresetsPath(const std::string& bundle) {
    if (bundle.empty()) return {};
    return bundle + "/Contents/Resources/" + varitap::kFactoryPresetsResource + "." +
           varitap::kFactoryPresetsType;
}

std::string userPresetsPath() { return varitap::PresetLibrary::userPresetsPath(); }

void loadPresetLibrary(varitap::PresetLibrary& library, const std::string& bundle) {
    library.loadFile(factoryPresetsPath(bundle), true);
    library.loadFile(userPresetsPath(), false);
}

std::vector<PresetEntry> listPresets(const varitap::PresetLibrary& library) {
    std::vector<PresetEntry> entries;
    for (uint32_t f = 0; f < library.folderCount(); ++f) {
        const varitap::PresetFolder* folder = library.folderAt(f);
        for (uint32_t p = 0; p < folder->presetCount(); ++p) {
            varitap::Preset* preset = folder->presetAt(p);
            entries.push_back({folder->getName() + "/" + preset->getName(), preset});
        }
    }
    return entries;
}

varitap::Preset* findPreset(const varitap::PresetLibrary& library, const std::string& fullName) {
    for (const PresetEntry& entry : listPresets(library))
        if (entry.fullName == fullName) return entry.preset;
    return nullptr;
}

void applyPreset(HostedPlugin& plugin, varitap::Preset& preset) {
    for (const auto& [index, value] : varitap::presetParameterValues(preset, plugin.numParams()))
        plugin.setParameter(index, value);

    // Varitap's routing parameters: ten tap inputs, ten tap outputs.
    const int routing = 2 * varitap::kTapCount;
    if (plugin.isVaritap() && plugin.numParams() >= routing) {
        const int inputs = plugin.numInputs(), outputs = plugin.numOutputs();
        for (int i = 0; i < routing; ++i) {
            float clamped = 0.0f;
            if (varitap::clampedRoutingValue(i, plugin.getParameter(i), inputs, outputs, &clamped))
                plugin.setParameter(i, clamped);
        }
    }
    // Hosts show the preset's name as the program name.
    plugin.setProgramName(preset.getName());
}

}  // namespace render
