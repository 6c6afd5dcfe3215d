// The plug-in's modulator: the LFO waves plus a step sequence through an
// eight-value table (type 3) and the table read at a sine-shaped position
// (type 4). Its fifteen parameters are a table of rows.
#pragma once

#include "modulation/LfoModulator.h"
#include "modulation/RecursiveMutex.h"

namespace varitap {

class TableModulator;

// One row of the modulator's parameter table (local indices 0..14). A null
// name or display writes nothing.
struct ModulatorParameterRow {
    const char* name;
    void (*set)(TableModulator& m, float value);
    float (*get)(const TableModulator& m);
    void (*display)(const TableModulator& m, char* text);
};

class TableModulator : public LfoModulator {
public:
    static constexpr int kParameterCount = 15;

    explicit TableModulator(EngineHost* target);
    ~TableModulator() override;

    // audio thread. Types 0..2 as LfoModulator; types 3 and 4 take the table
    // lock without waiting (a busy lock skips this block's write) and write on
    // any exact change.
    void process(double tempo, double songPosition, uint32_t count, bool playing,
                 bool automationWriting) override;

    // ui thread; takes the table lock (waiting). Does nothing when n is the
    // current size or not positive; fills entry i with i / n for odd i and 0
    // for even i.
    void setTableSize(int32_t n);
    int32_t tableSize() const { return tableSize_; }
    // any thread. 0.0 (ignored) for i outside the table.
    float getTableValue(int32_t i) const;
    void setTableValue(int32_t i, float value);

    // The fifteen parameters (local index 0..14), any thread for set and get,
    // ui thread for the texts. Name: the word of sub-indices 0..6 (7..14 write
    // nothing). Display: "Index" is the target parameter's name, "Speed" a
    // note name, "Min"/"Max" numbers, "Sync" "Yes"/"No", "Power" "On"/"Off"
    // by the sync flag; "Type" and the steps write nothing.
    void setParameter(int index, float value);
    float getParameter(int index) const;
    void getParameterName(int index, char* text) const;
    void getParameterDisplay(int index, char* text) const;

    static const ModulatorParameterRow* parameterTable();

private:
    Relaxed<float>* table_ = nullptr;  // step values; replaced only under lock_
    Relaxed<int32_t> tableSize_{0};  // entries in table_
    RecursiveMutex lock_;            // guards the table
};

}  // namespace varitap
