// Where each of Varitap's 241 host parameters lives, and the text sizes of
// the parameter texts. Every other file takes the layout from here.
#pragma once

#include <cstdint>

namespace varitap {

inline constexpr int kTapCount = 10;
inline constexpr int kModulatorCount = 10;

// 0..9: input channel of tap i; 10..19: output channel of tap i - 10.
inline constexpr int kTapInputParameterBase = 0;
inline constexpr int kTapOutputParameterBase = 10;
// 20: wet/dry mix (the dry share of the output).
inline constexpr int kWetDryParameter = 20;
// 21..90: seven per tap.
inline constexpr int kTapParameterBase = 21;
inline constexpr int kTapParameterCount = 7;
// 91..240: fifteen per modulator.
inline constexpr int kModulatorParameterBase = 91;
inline constexpr int kModulatorParameterCount = 15;
inline constexpr int kParameterCount =
    kModulatorParameterBase + kModulatorCount * kModulatorParameterCount;
static_assert(kTapParameterBase + kTapCount * kTapParameterCount == kModulatorParameterBase);
static_assert(kParameterCount == 241);

// Sub-indices of a tap's block of seven.
enum TapParameter : int {
    kTapDelay = 0,
    kTapVolume = 1,
    kTapFeedback = 2,
    kTapSync = 3,
    kTapFilterType = 4,
    kTapCutoff = 5,
    kTapResonance = 6,
};

// Sub-indices of a modulator's block of fifteen.
enum ModulatorParameter : int {
    kModulatorType = 0,
    kModulatorIndex = 1,
    kModulatorSpeed = 2,
    kModulatorMin = 3,
    kModulatorMax = 4,
    kModulatorSync = 5,
    kModulatorPower = 6,
    kModulatorTableFirst = 7,  // 7..14: the eight steps of the table
};
inline constexpr int kModulatorTableSteps = 8;

// Channel selectors: an input value v selects truncate(44 v), an output value
// truncate(24 v).
inline constexpr int kInputSelectorScale = 44;
inline constexpr int kOutputSelectorScale = 24;
// Input selectors: 0 none, 1..20 host input s - 1, 21..40 wet bus s - 21,
// 41..44 internal bus s - 41. Output selectors: 0 none, 1..20 wet bus s - 1,
// 21..24 internal bus s - 21.
inline constexpr int kMaxChannels = 20;
inline constexpr int kInternalBusCount = 4;
inline constexpr int kInputFirstHost = 1;
inline constexpr int kInputFirstWet = 21;
inline constexpr int kInputFirstInternal = 41;
inline constexpr int kOutputFirstWet = 1;
inline constexpr int kOutputFirstInternal = 21;

constexpr int tapParameterIndex(int tap, int sub) {
    return kTapParameterBase + tap * kTapParameterCount + sub;
}
constexpr int modulatorParameterIndex(int modulator, int sub) {
    return kModulatorParameterBase + modulator * kModulatorParameterCount + sub;
}

// Text sizes. A name is written with at most kNameTextMax characters (the
// caller's buffer holds kNameTextMax + 1 bytes); labels and displays with at
// most kDisplayTextMax characters, the size hosts reserve for parameter
// strings.
inline constexpr int kNameTextMax = 31;
inline constexpr int kDisplayTextMax = 8;

}  // namespace varitap
