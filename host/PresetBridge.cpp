// The bridge between the instance's 241 parameters and a library Preset:
// capturing the current state as a preset and applying a preset, including
// the conversion of presets saved by the first format version (two inputs,
// two outputs, three internal buses, and modulator targets that could point
// at the routing parameters).
#include <charconv>
#include <cerrno>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <string>

#include "engine/ParameterLayout.h"
#include "host/DelayEffect.h"
#include "modulation/RecursiveMutex.h"
#include "persistence/Preset.h"
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

// A key is a parameter index when it starts with a decimal number (as "%d"
// reads it: leading blanks and a sign allowed, anything may follow). Numbers
// outside 0..240 are not parameters and are ignored.
bool parameterIndexOf(const std::string& key, int32_t* index) {
    const char* text = key.c_str();
    char* end = nullptr;
    errno = 0;
    const long number = std::strtol(text, &end, 10);
    if (end == text || errno == ERANGE) return false;
    if (number < 0 || number >= kParameterCount) return false;
    *index = static_cast<int32_t>(number);
    return true;
}

// Truncation of a value read from a file: large numbers are limited first, so
// that the conversion to an integer stays defined (the results are limited to
// at most 1.0 anyway).
int32_t truncated(float x) {
    const double limited = std::fmax(-1.0e6, std::fmin(1.0e6, static_cast<double>(x)));
    return static_cast<int32_t>(limited);
}

// A first-version value moved to the current layout.
float convertFromFirstVersion(int32_t index, float x) {
    if (index >= kTapInputParameterBase && index < kTapInputParameterBase + kTapCount) {
        // Old inputs 0..2 stay; old outputs 1..2 (3..4) go to Out 1..2
        // (21..22); old internal buses (5..7) to Intern 1..3 (41..43).
        int32_t t = truncated(8.0f * x);
        if (t >= 3 && t <= 4) {
            t += 18;
        } else if (t >= 5) {
            t += 36;
        }
        return std::fmin(static_cast<float>(t) / 44.0f, 1.0f);
    }
    if (index >= kTapOutputParameterBase && index < kTapOutputParameterBase + kTapCount) {
        // Old internal buses (3..5) go to Intern 1..3 (21..23).
        int32_t t = truncated(6.0f * x);
        if (t >= 3) t += 18;
        return std::fmin(static_cast<float>(t) / 24.0f, 1.0f);
    }
    if (index > kModulatorParameterBase && index < kParameterCount &&
        (index - kModulatorParameterBase) % kModulatorParameterCount == kModulatorIndex) {
        // A modulator "Index": no old preset may aim at a routing parameter.
        if (x <= 19.0f) x = 20.0f;
    }
    return x;
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

    const PropertyValue* versionValue = preset->findProperty("Version");
    const int32_t version = versionValue ? versionValue->getLong() : 0;

    PropertyList& values = preset->properties();
    for (uint32_t i = 0; i < values.count(); ++i) {
        const PropertyValue* value = values.at(i);
        int32_t index = 0;
        if (!parameterIndexOf(value->key(), &index)) continue;
        float x = static_cast<float>(value->getFloat());
        // Not-a-number and infinities from a damaged file would poison the
        // signal path and the selector arithmetic; such values are skipped.
        if (!std::isfinite(x)) continue;
        if (version == 0) x = convertFromFirstVersion(index, x);
        setParameterAutomated(index, x);
        // Some hosts do not pass automation back.
        if (repeatsAutomatedValues()) setParameter(index, x);
    }
    clampRouting();
    copyProgramName(program(), preset->getName());
    updateDisplay();
    if (!preset->isFactory()) lastUserPreset = preset;
}

}  // namespace varitap
