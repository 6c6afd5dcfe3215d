// The plug-in's 241 host parameters: storage in the program, the editor's
// notification, and the names, displays and labels the host reads. The
// values themselves live in the engine (routing, mix, taps, modulators).
#include <cstdio>
#include <cstring>

#include "engine/ParameterText.h"
#include "host/DelayEffect.h"
#include "host/PluginEditor.h"
#include "persistence/Localize.h"
#include "persistence/NumberFormat.h"

namespace varitap {

namespace {

// A translated format must still hold exactly one "%d" and no other
// conversion; otherwise the untranslated one is used.
const char* checkedFormat(const char* localized, const char* fallback, char* copy, size_t size) {
    int conversions = 0;
    bool ok = true;
    for (const char* p = localized; *p; ++p) {
        if (*p != '%') continue;
        if (p[1] == '%') {
            ++p;
        } else if (p[1] == 'd') {
            ++conversions;
            ++p;
        } else {
            ok = false;
        }
    }
    if (!ok || conversions != 1 || std::strlen(localized) >= size) return fallback;
    std::strcpy(copy, localized);
    return copy;
}

// "<format with %d>" for a number, the format passed through localize.
void numberedName(char* text, const char* format, int number) {
    char copy[1024];
    const char* f = checkedFormat(localize(format), format, copy, sizeof copy);
    // The format is one of ours or a checked translation of it.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
    if (std::snprintf(text, kNameTextMax + 1, f, number) < 0) text[0] = 0;
#pragma GCC diagnostic pop
}

}  // namespace

bool DelayEffect::isTapParameter(int32_t index, int* tap, int* sub) {
    if (index < kTapParameterBase || index >= kModulatorParameterBase) return false;
    *tap = (index - kTapParameterBase) / kTapParameterCount;
    *sub = (index - kTapParameterBase) % kTapParameterCount;
    return true;
}

bool DelayEffect::isModulatorParameter(int32_t index, int* modulator, int* sub) {
    if (index < kModulatorParameterBase || index >= kParameterCount) return false;
    *modulator = (index - kModulatorParameterBase) / kModulatorParameterCount;
    *sub = (index - kModulatorParameterBase) % kModulatorParameterCount;
    return true;
}

void DelayEffect::setParameter(int32_t index, float value) {
    if (index < 0) return;
    if (index < kParameterCount) {
        programs_[curProgram]->values[index] = value;
        engine_->setParameter(index, value);
    }
    // Also for indices past the layout: the editor decides what it shows.
    if (editor) editor->setParameter(index, value);
}

float DelayEffect::getParameter(int32_t index) {
    if (index < 0 || index >= kParameterCount) return 0.0f;
    return engine_->getParameter(index);
}

void DelayEffect::setParameterAutomated(int32_t index, float value) {
    setParameter(index, value);
    host_.automate(index, value);
}

void DelayEffect::getParameterName(int32_t index, char* text) {
    if (index < 0 || !text) return;
    int t = 0, s = 0;
    if (index < kTapOutputParameterBase) {
        numberedName(text, "#%d Input Channel", index + 1);
    } else if (index < kWetDryParameter) {
        numberedName(text, "#%d Output Channel", index - kTapOutputParameterBase + 1);
    } else if (index == kWetDryParameter) {
        copyLocalized(text, "Wet/Dry Mix Volume", kNameTextMax);
    } else if (isTapParameter(index, &t, &s)) {
        char word[kNameTextMax + 1] = {};
        engine_->tap(t).getParameterName(s, word);
        // Names longer than the host's limit are cut (snprintf's own cut).
        if (std::snprintf(text, kNameTextMax + 1, "#%d: %s", t + 1, word) < 0) text[0] = 0;
    } else {
        // Modulators, and past the layout the same formula continues (241 is
        // the "Type" of an eleventh modulator). Sub-indices above 6 have no
        // name: nothing is written.
        long offset = static_cast<long>(index) - kModulatorParameterBase;
        long m = offset / kModulatorParameterCount;
        int sub = static_cast<int>(offset % kModulatorParameterCount);
        const ModulatorParameterRow& row = TableModulator::parameterTable()[sub];
        if (!row.name) return;
        char word[kNameTextMax + 1] = {};
        copyLocalized(word, row.name, kNameTextMax);
        if (std::snprintf(text, kNameTextMax + 1, "Auto #%ld %s", m + 1, word) < 0) text[0] = 0;
    }
}

void DelayEffect::getParameterDisplay(int32_t index, char* text) {
    if (index < 0 || index >= kParameterCount || !text) return;
    int t = 0, s = 0;
    if (index < kTapOutputParameterBase) {
        formatLong(engine_->inputSelector(index), text);
    } else if (index < kWetDryParameter) {
        formatLong(engine_->outputSelector(index - kTapOutputParameterBase), text);
    } else if (index == kWetDryParameter) {
        formatFloatDecimals(engine_->wetDry(), text, -1);
    } else if (isTapParameter(index, &t, &s)) {
        engine_->tap(t).getParameterDisplay(s, text);
    } else if (isModulatorParameter(index, &t, &s)) {
        engine_->modulator(t).getParameterDisplay(s, text);
    }
}

void DelayEffect::getParameterLabel(int32_t index, char* label) {
    int t = 0, s = 0;
    if (label && isTapParameter(index, &t, &s)) engine_->tap(t).getParameterLabel(s, label);
}

}  // namespace varitap
