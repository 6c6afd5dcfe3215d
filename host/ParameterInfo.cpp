#include "host/ParameterInfo.h"

#include <cctype>
#include <cstdio>

#include "engine/ParameterLayout.h"
#include "host/DelayEffect.h"
#include "modulation/FilteredDelayTap.h"
#include "modulation/TableModulator.h"
#include "modulation/TapFilter.h"

namespace varitap {

namespace {

// "Filter Type" -> "filter_type".
std::string symbolWord(const char* word) {
    std::string symbol;
    for (const char* p = word; *p; ++p) {
        const unsigned char c = static_cast<unsigned char>(*p);
        symbol += std::isalnum(c) ? static_cast<char>(std::tolower(c)) : '_';
    }
    return symbol;
}

std::string numbered(const char* format, int number) {
    char text[64];
    std::snprintf(text, sizeof text, format, number);
    return text;
}

// Channel selectors: the choice k is the value k / scale, as the editor's
// routing menus write it.
void addSelectorChoices(ParameterInfo& info, int scale, bool input) {
    info.kind = ParameterInfo::kChoice;
    info.choices.push_back({0.0f, "None"});
    const int firstWet = input ? kInputFirstWet : kOutputFirstWet;
    const int firstInternal = input ? kInputFirstInternal : kOutputFirstInternal;
    for (int k = 1; k <= scale; ++k) {
        std::string label;
        if (input && k < firstWet) {
            label = numbered("In %d", k - kInputFirstHost + 1);
        } else if (k < firstInternal) {
            label = numbered("Out %d", k - firstWet + 1);
        } else {
            label = numbered("Intern %d", k - firstInternal + 1);
        }
        info.choices.push_back({static_cast<float>(k) / static_cast<float>(scale), label});
    }
}

const char* const kModulatorTypeNames[] = {"Sine", "Square", "Ramp", "Table"};

void describeTap(ParameterInfo& info, int tap, int sub) {
    const char* word = sub < DelayTap::kParameterCount
                           ? DelayTap::parameterTable()[sub].name
                           : FilteredDelayTap::filterParameterTable()[sub - DelayTap::kParameterCount].name;
    info.symbol = numbered("tap%d_", tap + 1) + symbolWord(word);
    info.name = numbered("#%d: ", tap + 1) + word;
    if (sub == kTapSync) info.kind = ParameterInfo::kToggle;
    if (sub == kTapFilterType) {
        // truncate(4 v): 0 off, 1 notch, 2 low-pass, 3 high-pass, 4 band-pass.
        info.kind = ParameterInfo::kChoice;
        for (int k = 0; k < TapFilter::kTypeCount; ++k) {
            info.choices.push_back({0.25f * static_cast<float>(k), k == TapFilter::kOff ? "Off" : TapFilter::typeName(k)});
        }
    }
}

void describeModulator(ParameterInfo& info, int m, int sub) {
    const char* word = TableModulator::parameterTable()[sub].name;
    if (word) {
        info.symbol = numbered("mod%d_", m + 1) + symbolWord(word);
        info.name = numbered("Auto #%d ", m + 1) + word;
    } else {
        // The table's steps have no name of their own.
        const int step = sub - kModulatorTableFirst + 1;
        info.symbol = numbered("mod%d_", m + 1) + numbered("step%d", step);
        info.name = numbered("Auto #%d ", m + 1) + numbered("Step %d", step);
    }
    switch (sub) {
        case kModulatorType:
            // truncate(3 v): the switch's four positions.
            info.kind = ParameterInfo::kChoice;
            for (int k = 0; k < 4; ++k) info.choices.push_back({static_cast<float>(k) / 3.0f, kModulatorTypeNames[k]});
            break;
        case kModulatorIndex:
            info.kind = ParameterInfo::kInteger;
            info.maximum = static_cast<float>(kParameterCount - 1);
            break;
        case kModulatorSync:
        case kModulatorPower:
            info.kind = ParameterInfo::kToggle;
            break;
        default:
            break;
    }
}

}  // namespace

ParameterInfo parameterInfo(int32_t index) {
    ParameterInfo info;
    if (index < 0 || index >= kParameterCount) return info;
    info.defaultValue = initProgramValue(index);
    if (index < kTapOutputParameterBase) {
        info.symbol = numbered("tap%d_input", index + 1);
        info.name = numbered("#%d Input Channel", index + 1);
        addSelectorChoices(info, kInputSelectorScale, true);
    } else if (index < kWetDryParameter) {
        const int tap = index - kTapOutputParameterBase;
        info.symbol = numbered("tap%d_output", tap + 1);
        info.name = numbered("#%d Output Channel", tap + 1);
        addSelectorChoices(info, kOutputSelectorScale, false);
    } else if (index == kWetDryParameter) {
        info.symbol = "wet_dry";
        info.name = "Wet/Dry Mix Volume";
    } else if (index < kModulatorParameterBase) {
        const int offset = index - kTapParameterBase;
        describeTap(info, offset / kTapParameterCount, offset % kTapParameterCount);
    } else {
        const int offset = index - kModulatorParameterBase;
        describeModulator(info, offset / kModulatorParameterCount, offset % kModulatorParameterCount);
    }
    return info;
}

}  // namespace varitap
