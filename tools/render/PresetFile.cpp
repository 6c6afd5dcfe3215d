#include "tools/render/PresetFile.h"

#include "tools/render/PluginInstance.h"

#include <libxml/parser.h>
#include <libxml/tree.h>

#include <cstdio>
#include <cstdlib>
#include <algorithm>
#include <cstring>

namespace render {

namespace {

constexpr int kVaritapRoutingParameters = 20;  // ten tap inputs, ten tap outputs

bool isElement(const xmlNode* node, const char* name) {
    return node->type == XML_ELEMENT_NODE && std::strcmp(reinterpret_cast<const char*>(node->name), name) == 0;
}

bool attribute(const xmlNode* node, const char* name, std::string& value) {
    xmlChar* text = xmlGetProp(node, reinterpret_cast<const xmlChar*>(name));
    if (!text) return false;
    value = reinterpret_cast<const char*>(text);
    xmlFree(text);
    return true;
}

// One element of the format: <float|long|string name=".." value=".."/> or
// <array name="..">. Elements without a name, numbers and strings without a
// value, and unknown elements are not values.
bool readValue(const xmlNode* node, PresetValue& value) {
    if (node->type != XML_ELEMENT_NODE || !attribute(node, "name", value.key)) return false;
    std::string text;
    if (isElement(node, "array")) {
        value.type = PresetValue::kArray;
        return true;
    }
    if (!attribute(node, "value", text)) return false;
    if (isElement(node, "float")) {
        // Scanned like "%f" into a single float; text that does not scan is 0.
        float number = 0.0f;
        std::sscanf(text.c_str(), "%f", &number);
        value.type = PresetValue::kFloat;
        std::memcpy(&value.cell, &number, sizeof(number));
        return true;
    }
    if (isElement(node, "long")) {
        long number = 0;
        std::sscanf(text.c_str(), "%ld", &number);
        value.type = PresetValue::kLong;
        value.cell = static_cast<uint32_t>(number);  // the format keeps 32 bits
        return true;
    }
    if (isElement(node, "string")) {
        value.type = PresetValue::kString;
        value.text = text;
        return true;
    }
    return false;
}

// A string value's text; any other kind reads as the empty string.
std::string stringOf(const PresetValue& value) {
    return value.type == PresetValue::kString ? value.text : std::string();
}

void readPreset(const xmlNode* array, Preset& preset) {
    for (const xmlNode* child = array->children; child; child = child->next) {
        PresetValue value;
        if (!readValue(child, value)) continue;
        if (value.key == "name")
            preset.name = stringOf(value);
        else
            preset.values.push_back(value);
    }
}

void readFolder(const xmlNode* array, bool factory, std::vector<Preset>& presets) {
    std::string folderName;
    std::vector<Preset> found;
    for (const xmlNode* child = array->children; child; child = child->next) {
        PresetValue value;
        if (!readValue(child, value)) continue;
        if (value.key == "name") {
            folderName = stringOf(value);
        } else if (value.key == "preset" && value.type == PresetValue::kArray) {
            Preset preset;
            preset.factory = factory;
            readPreset(child, preset);
            found.push_back(std::move(preset));
        }
    }
    // The folder's name may follow its presets in a hand-written file.
    for (Preset& preset : found) {
        preset.folder = folderName;
        presets.push_back(std::move(preset));
    }
}

std::string configFolder() {
    const char* xdg = std::getenv("XDG_CONFIG_HOME");
    if (xdg && *xdg) return xdg;
    const char* home = std::getenv("HOME");
    return std::string(home ? home : "") + "/.config";
}

}  // namespace

float PresetValue::asFloat() const {
    if (type != kFloat && type != kLong) return 0.0f;
    float number;
    std::memcpy(&number, &cell, sizeof(number));
    return number;
}

int32_t PresetValue::asLong() const {
    if (type != kFloat && type != kLong) return 0;
    return static_cast<int32_t>(cell);
}

std::string userPresetsPath() { return configFolder() + "/brelmo.varitap.presets.xml"; }

std::string factoryPresetsPath(const std::string& bundle) {
    if (bundle.empty()) return {};
    return bundle + "/Contents/Resources/varitap.factory.presets.xml";
}

bool PresetCollection::loadFile(const std::string& path, bool factory) {
    if (path.empty()) return false;
    xmlDoc* document = xmlReadFile(path.c_str(), nullptr,
                                   XML_PARSE_NONET | XML_PARSE_NOERROR | XML_PARSE_NOWARNING);
    if (!document) return false;
    const xmlNode* root = xmlDocGetRootElement(document);
    bool ok = root && isElement(root, "Presets");
    if (ok) {
        for (const xmlNode* child = root->children; child; child = child->next) {
            PresetValue value;
            if (readValue(child, value) && value.key == "folder" && value.type == PresetValue::kArray)
                readFolder(child, factory, presets_);
        }
    }
    xmlFreeDoc(document);
    return ok;
}

void PresetCollection::loadLibrary(const std::string& bundle) {
    loadFile(factoryPresetsPath(bundle), true);
    loadFile(userPresetsPath(), false);
}

const Preset* PresetCollection::find(const std::string& fullName) const {
    for (const Preset& preset : presets_)
        if (preset.fullName() == fullName) return &preset;
    return nullptr;
}

std::vector<std::pair<int, float>> presetParameterValues(const Preset& preset, int parameterCount) {
    // A preset without "Version" counts as version 0, written when Varitap
    // had two inputs, two outputs and three internal buses.
    int32_t version = 0;
    for (const PresetValue& value : preset.values) {
        if (value.key == "Version") {
            version = value.asLong();
            break;
        }
    }
    std::vector<std::pair<int, float>> result;
    for (const PresetValue& value : preset.values) {
        int index = 0;
        if (std::sscanf(value.key.c_str(), "%d", &index) != 1) continue;  // "Version", "NumInputs", ...
        if (index < 0 || index >= parameterCount) continue;
        float x = value.asFloat();
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

void applyPreset(PluginInstance& plugin, const Preset& preset) {
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
    std::strncpy(name, preset.name.c_str(), vst::kVstMaxProgNameLen);
    plugin.effect()->dispatcher(plugin.effect(), vst::effSetProgramName, 0, 0, name, 0.0f);
}

}  // namespace render
