// How a preset becomes parameter values: the one rule that the plug-in's
// applyPreset and the command-line host (varitap-render) both follow, so that
// a preset sounds the same through either.
//
// A preset's values are taken in the preset's order. A key that starts with a
// decimal number (as "%d" reads it) names a parameter; other keys ("Version",
// "NumInputs", ...) and numbers outside 0..parameterCount - 1 are skipped.
// Values that are not finite (a damaged file) are skipped. A preset without
// "Version", or with version 0, was saved in the first layout (two inputs,
// two outputs, three internal buses, modulator targets that could aim at the
// routing) and is converted; every other version is taken as it is stored.
// Float-to-integer conversions of stored values are limited first, so any
// number a file holds converts defined.
#pragma once

#include <cstdint>
#include <utility>
#include <vector>

#include "engine/ParameterLayout.h"

namespace varitap {

class Preset;

using ParameterValues = std::vector<std::pair<int32_t, float>>;

// any non-audio thread. The (parameter index, value) pairs to set, in order.
ParameterValues presetParameterValues(Preset& preset, int32_t parameterCount = kParameterCount);

// The routing clamp that follows a preset or a new channel configuration:
// whether the routing parameter index (0..19) with this value names a channel
// that inputs/outputs lack, and the value it then moves to. An input
// selector of 20 is never clamped to the inputs, and input selectors 21..39
// are compared with the output count itself, not outputs + 20 (so with two
// outputs Out 1 moves to Out 2).
bool clampedRoutingValue(int32_t index, float value, int32_t inputs, int32_t outputs, float* clamped);

}  // namespace varitap
