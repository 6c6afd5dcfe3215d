#include "modulation/TableModulator.h"

#include <climits>
#include <cmath>
#include <new>

#include "engine/EngineHost.h"
#include "engine/NoteValueTable.h"
#include "engine/ParameterLayout.h"
#include "engine/ParameterText.h"
#include "persistence/NumberFormat.h"

namespace varitap {

namespace {

constexpr double kPi = 3.14159265358979323846;

// The "Index" value carries a parameter number itself: truncated, with NaN
// as 0 and the int range as its bounds.
int parameterNumber(float value) {
    if (!(value == value)) return 0;
    if (value >= float(INT_MAX)) return INT_MAX;
    if (value <= float(INT_MIN)) return INT_MIN;
    return static_cast<int>(value);
}

void copyWord(char* text, const char* word) { copyLocalized(text, word, kDisplayTextMax); }

template <int step>
ModulatorParameterRow tableStep() {
    return {nullptr, [](TableModulator& m, float v) { m.setTableValue(step, unitValue(v)); },
            [](const TableModulator& m) { return m.getTableValue(step); }, nullptr};
}

const ModulatorParameterRow kRows[TableModulator::kParameterCount] = {
    {"Type", [](TableModulator& m, float v) { m.setType(int32_t(3.0f * unitValue(v))); },
     [](const TableModulator& m) { return float(m.getType()) / 3.0f; }, nullptr},
    {"Index", [](TableModulator& m, float v) { m.setIndex(parameterNumber(v)); },
     [](const TableModulator& m) { return float(m.getIndex()); },
     [](const TableModulator& m, char* text) {
         if (!m.target()) return;
         char name[256] = {};
         m.target()->getParameterName(m.getIndex(), name);
         copyText(text, name, kNameTextMax);
     }},
    {"Speed", [](TableModulator& m, float v) { m.setSpeed(unitValue(v)); },
     [](const TableModulator& m) { return m.getSpeed(); },
     [](const TableModulator& m, char* text) {
         const int row = int(float(noteValueCount() - 1) * m.getSpeed());
         copyText(text, noteValueName(row), kDisplayTextMax);
     }},
    // "Min" and "Max" are values of the target's range, not fractions: any
    // number is kept as given (a preset may hold 12.25 or -3), only a value
    // that is not a finite number is ignored. What the wave then writes is
    // clamped by the target's own setter, and a mapping that overflows is
    // not finite and never written (ModulatorBase::write).
    {"Min", [](TableModulator& m, float v) { if (std::isfinite(v)) m.setMin(v); },
     [](const TableModulator& m) { return m.getMin(); },
     [](const TableModulator& m, char* text) { formatFloat(m.getMin(), text); }},
    {"Max", [](TableModulator& m, float v) { if (std::isfinite(v)) m.setMax(v); },
     [](const TableModulator& m) { return m.getMax(); },
     [](const TableModulator& m, char* text) { formatFloat(m.getMax(), text); }},
    {"Sync", [](TableModulator& m, float v) { m.setSync(v > 0.5f); },
     [](const TableModulator& m) { return m.isSynced() ? 1.0f : 0.0f; },
     [](const TableModulator& m, char* text) { copyWord(text, m.isSynced() ? "Yes" : "No"); }},
    // The "Power" display follows the sync flag, not the power: kept as the
    // product has always shown it.
    {"Power", [](TableModulator& m, float v) { m.setPower(v > 0.5f); },
     [](const TableModulator& m) { return m.isPowered() ? 1.0f : 0.0f; },
     [](const TableModulator& m, char* text) { copyWord(text, m.isSynced() ? "On" : "Off"); }},
    tableStep<0>(), tableStep<1>(), tableStep<2>(), tableStep<3>(),
    tableStep<4>(), tableStep<5>(), tableStep<6>(), tableStep<7>(),
};
static_assert(kModulatorTableFirst + kModulatorTableSteps == TableModulator::kParameterCount);

}  // namespace

const ModulatorParameterRow* TableModulator::parameterTable() { return kRows; }

TableModulator::TableModulator(EngineHost* target) : LfoModulator(target) {}

TableModulator::~TableModulator() { delete[] table_; }

void TableModulator::setTableSize(int32_t n) {
    if (n == tableSize_ || n <= 0) return;
    Relaxed<float>* table = new (std::nothrow) Relaxed<float>[size_t(n)];
    ScopedLock lock(lock_);
    delete[] table_;
    table_ = table;
    if (!table) {
        tableSize_ = 0;
        return;
    }
    for (int32_t i = 0; i < n; ++i) table[i] = (i % 2) ? float(i) / float(n) : 0.0f;
    tableSize_ = n;
}

float TableModulator::getTableValue(int32_t i) const {
    return i >= 0 && i < tableSize_ ? table_[i].load() : 0.0f;
}

void TableModulator::setTableValue(int32_t i, float value) {
    if (i >= 0 && i < tableSize_) table_[i] = value;
}

void TableModulator::process(double tempo, double songPosition, uint32_t count, bool playing,
                             bool automationWriting) {
    const int32_t type = type_;
    if (type < kSteps) {
        LfoModulator::process(tempo, songPosition, count, playing, automationWriting);
        return;
    }
    float current = 0.0f;
    double d = 0.0;
    if (!beginBlock(tempo, songPosition, count, playing, &current, &d)) return;
    ScopedTryLock lock(lock_);
    if (!lock) return;  // the table is being replaced: no write this block
    const int32_t size = tableSize_;
    if (size <= 0 || !table_) return;
    double r = 0.0;
    const double phase = phase_;
    if (type == kTableSine) {
        r = 0.5 + 0.5 * std::sin(kPi * phase / d + 1.5 * kPi);
    } else if (type == kSteps) {
        // A synchronised step lasts one note length, a free one 2D samples.
        const double period = std::trunc(size * (sync_ ? d : 2.0 * d) + 1.0);
        double p = std::trunc(phase);
        if (!(p > 0.0)) p = 0.0;
        if (p > period) p = std::fmod(p - 1.0, period) + 1.0;
        r = p / period;
    }
    // r reaches 1 at the top of the sine (and at the end of a step period):
    // the index is held to the last entry.
    int32_t entry = int32_t(double(size) * r);
    if (entry >= size) entry = size - 1;
    if (entry < 0) entry = 0;
    const float t = table_[entry];
    const float min = min_, max = max_;
    const float value = max > min ? min + t * (max - min) : min - t * (min - max);
    if (value != current) write(value, automationWriting);
}

void TableModulator::setParameter(int index, float value) {
    if (index >= 0 && index < kParameterCount) kRows[index].set(*this, value);
}

float TableModulator::getParameter(int index) const {
    return index >= 0 && index < kParameterCount ? kRows[index].get(*this) : 0.0f;
}

void TableModulator::getParameterName(int index, char* text) const {
    if (index >= 0 && index < kParameterCount && kRows[index].name)
        copyLocalized(text, kRows[index].name, kNameTextMax);
}

void TableModulator::getParameterDisplay(int index, char* text) const {
    if (index >= 0 && index < kParameterCount && kRows[index].display)
        kRows[index].display(*this, text);
}

}  // namespace varitap
