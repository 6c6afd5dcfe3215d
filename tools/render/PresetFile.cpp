#include "tools/render/PresetFile.h"

#include "tools/render/PluginInstance.h"

#include <algorithm>
#include <cstdio>
#include <cstring>

namespace render {

namespace {

constexpr int kVaritapRoutingParameters = 20;  // ten tap inputs, ten tap outputs

}  // namespace

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

std::vector<std::pair<int, float>> presetParameterValues(varitap::Preset& preset, int parameterCount) {
    // A preset without "Version" counts as version 0, written when Varitap
    // had two inputs, two outputs and three internal buses. The first
    // "Version" counts; one stored as a float is its bit pattern.
    const varitap::PropertyValue* versionValue = preset.findProperty("Version");
    const int32_t version = versionValue ? versionValue->getLong() : 0;
    std::vector<std::pair<int, float>> result;
    const varitap::PropertyList& values = preset.properties();
    for (uint32_t i = 0, n = values.count(); i < n; ++i) {
        const varitap::PropertyValue* value = values.at(i);
        int index = 0;
        if (std::sscanf(value->key().c_str(), "%d", &index) != 1) continue;  // "Version", "NumInputs", ...
        if (index < 0 || index >= parameterCount) continue;
        // A Long gives its integer's bits as a float, strings and arrays 0,
        // as in Varitap's property model.
        float x = static_cast<float>(value->getFloat());
        if (version == 0) {
            if (index <= 9) {
                // Old inputs: 0 none, 1..2 In, 3..4 Out 1..2, 5.. internal buses.
                int t = static_cast<int>(8.0f * x);
                if (t >= 3 && t <= 4)
                    t += 18;
                else if (t >= 5)
                    t += 36;
                x = std::min(static_cast<float>(t) / 44.0f, 1.0f);
            } else if (index <= 19) {
                // Old outputs: 0 none, 1..2 Out, 3.. internal buses.
                int t = static_cast<int>(6.0f * x);
                if (t >= 3) t += 18;
                x = std::min(static_cast<float>(t) / 24.0f, 1.0f);
            } else if (index >= 92 && (index - 91) % 15 == 1) {
                // A modulator's target: never one of the routing parameters.
                if (x <= 19.0f) x = 20.0f;
            }
        }
        result.emplace_back(index, x);
    }
    return result;
}

void applyPreset(PluginInstance& plugin, varitap::Preset& preset) {
    for (const auto& [index, value] : presetParameterValues(preset, plugin.numParams()))
        plugin.setParameter(index, value);

    if (plugin.isVaritap() && plugin.numParams() >= kVaritapRoutingParameters) {
        // Varitap's clamp for routing that names pins it does not have, with
        // its comparisons as Varitap makes them.
        const int nIn = plugin.numInputs();
        const int nOut = plugin.numOutputs();
        for (int i = 0; i < kVaritapRoutingParameters; ++i) {
            float v = plugin.getParameter(i);
            if (i <= 9) {
                int s = static_cast<int>(44.0f * v);
                if (s > nIn && s < 20)
                    plugin.setParameter(i, static_cast<float>(nIn) / 44.0f);
                else if (s > nOut && s < 40)
                    plugin.setParameter(i, static_cast<float>(nOut + 20) / 44.0f);
            } else {
                int s = static_cast<int>(24.0f * v);
                if (s > nOut && s < 20) plugin.setParameter(i, static_cast<float>(nOut) / 24.0f);
            }
        }
    }
    // Hosts show the preset's name as the program name (at most 24 characters).
    char name[vst::kVstMaxProgNameLen + 1] = {};
    std::strncpy(name, preset.getName().c_str(), vst::kVstMaxProgNameLen);
    plugin.effect()->dispatcher(plugin.effect(), vst::effSetProgramName, 0, 0, name, 0.0f);
}

}  // namespace render
