// The bridge between the instance's 241 parameters and a library Preset:
// capturing the current state as a preset and applying a preset (the values
// as persistence/PresetParameters.h reads them, shared with varitap-render).
#include <charconv>
#include <cstring>
#include <string>

#include "engine/ParameterLayout.h"
#include "host/DelayEffect.h"
#include "modulation/RecursiveMutex.h"
#include "persistence/Preset.h"
#include "persistence/PresetParameters.h"
#include "persistence/PropertyValue.h"

namespace varitap {

namespace {

constexpr int32_t kCurrentPresetVersion = 1;

void addLong(Preset& preset, const char* key, int32_t number) {
    PropertyValue* value = PropertyValue::makeLong(key, number);
    preset.addProperty(value);
    value->release();
}

// The program name shown by the host: at most 255 characters.
void copyProgramName(Program& program, const std::string& name) {
    const size_t length = name.size() < static_cast<size_t>(Program::kNameMax)
                              ? name.size()
                              : static_cast<size_t>(Program::kNameMax);
    std::memcpy(program.name, name.data(), length);
    program.name[length] = 0;
}

}  // namespace

Preset* DelayEffect::createPresetFromState(const char* name) {
    ScopedLock lock(modulatorLock());
    auto* preset = new Preset;
    addLong(*preset, "Version", kCurrentPresetVersion);
    addLong(*preset, "NumInputs", inputChannels());
    addLong(*preset, "NumOutputs", outputChannels());
    preset->setName(name);
    for (int32_t i = 0; i < kParameterCount; ++i) {
        char key[16];
        const auto result = std::to_chars(key, key + sizeof key - 1, i);
        *result.ptr = 0;
        PropertyValue* value = PropertyValue::makeFloat(key, getParameter(i));
        preset->addProperty(value);
        value->release();
    }
    copyProgramName(program(), preset->getName());
    updateDisplay();
    return preset;
}

void DelayEffect::applyPreset(Preset* preset) {
    if (!preset) return;
    ScopedLock lock(modulatorLock());
    // Kept while applying: a caller's only reference may be the library's.
    RefPtr<Preset> hold(preset);

    for (const auto& [index, x] : presetParameterValues(*preset)) {
        setParameterAutomated(index, x);
        // Some hosts do not pass automation back.
        if (repeatsAutomatedValues()) setParameter(index, x);
    }
    clampRouting();
    copyProgramName(program(), preset->getName());
    updateDisplay();
    if (!preset->isFactory()) lastUserPreset = hold;
}

}  // namespace varitap
