#include "persistence/PresetParameters.h"

#include <cerrno>
#include <cmath>
#include <cstdlib>
#include <string>

#include "persistence/Preset.h"
#include "persistence/PropertyValue.h"

namespace varitap {

namespace {

// A key is a parameter index when it starts with a decimal number (leading
// blanks and a sign allowed, anything may follow).
bool parameterIndexOf(const std::string& key, int32_t parameterCount, int32_t* index) {
    const char* text = key.c_str();
    char* end = nullptr;
    errno = 0;
    const long number = std::strtol(text, &end, 10);
    if (end == text || errno == ERANGE) return false;
    if (number < 0 || number >= parameterCount) return false;
    *index = static_cast<int32_t>(number);
    return true;
}

// Truncation toward zero of a stored value: large numbers are limited first
// (not-a-number becomes the upper limit), so that the conversion stays
// defined; every use limits its result far inside this range anyway.
int32_t truncated(float x) {
    const double limited = std::fmax(-1.0e6, std::fmin(1.0e6, static_cast<double>(x)));
    return static_cast<int32_t>(limited);
}

// A first-layout value moved to the current layout.
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

ParameterValues presetParameterValues(Preset& preset, int32_t parameterCount) {
    const PropertyValue* versionValue = preset.findProperty("Version");
    const int32_t version = versionValue ? versionValue->getLong() : 0;
    ParameterValues values;
    PropertyList& properties = preset.properties();
    for (uint32_t i = 0, n = properties.count(); i < n; ++i) {
        const PropertyValue* value = properties.at(i);
        int32_t index = 0;
        if (!parameterIndexOf(value->key(), parameterCount, &index)) continue;
        // A Long's cell is read as a float, as the property model does.
        float x = static_cast<float>(value->getFloat());
        // Not-a-number and infinities would poison the signal path and the
        // selector arithmetic.
        if (!std::isfinite(x)) continue;
        if (version == 0) x = convertFromFirstVersion(index, x);
        values.emplace_back(index, x);
    }
    return values;
}

bool clampedRoutingValue(int32_t index, float value, int32_t inputs, int32_t outputs, float* clamped) {
    if (index >= kTapInputParameterBase && index < kTapInputParameterBase + kTapCount) {
        const int32_t s = truncated(kInputSelectorScale * value);
        if (s > inputs && s < 20) {
            *clamped = static_cast<float>(inputs) / kInputSelectorScale;
            return true;
        }
        if (s > outputs && s < 40) {
            *clamped = static_cast<float>(outputs + 20) / kInputSelectorScale;
            return true;
        }
        return false;
    }
    if (index >= kTapOutputParameterBase && index < kTapOutputParameterBase + kTapCount) {
        const int32_t s = truncated(kOutputSelectorScale * value);
        if (s > outputs && s < 20) {
            *clamped = static_cast<float>(outputs) / kOutputSelectorScale;
            return true;
        }
    }
    return false;
}

}  // namespace varitap
