// A delay tap with a TapFilter in its path: the seven parameters "Delay",
// "Volume", "Feedback", "Sync", "Filter Type", "Cutoff", "Resonance". By
// default the filter follows the delay line.
#pragma once

#include "engine/DelayTap.h"
#include "modulation/TapFilter.h"

namespace varitap {

class FilteredDelayTap;

// One row of the filter rows of a tap's table (local indices 4..6).
struct FilteredTapParameter {
    const char* name;
    int filterParameter;  // the TapFilter parameter it maps to
    void (*display)(const FilteredDelayTap& tap, char* text);  // null: nothing written
};

class FilteredDelayTap : public DelayTap {
public:
    static constexpr int kParameterCount = 7;
    static constexpr uint32_t kInitialCapacity = 44100;
    static constexpr float kInitialSampleRate = 44100.0f;

    // construction thread. A tap of kInitialCapacity samples and a filter at
    // kInitialSampleRate.
    FilteredDelayTap();
    ~FilteredDelayTap() override;

    // Line only.
    void clearBuffer() override;
    // audio thread. The line and the filter's state: nothing of the past
    // sounds again (suspend, and a filter that ran away).
    void silence();
    // The filter's reset (which keeps its state), then the head.
    void resetPosition() override;
    // Millisecond display and the filter's coefficients.
    void setSampleRate(float rate) override;
    // Local indices 0..6; others are ignored (reads give 0.0).
    void setParameter(int index, float value) override;
    float getParameter(int index) const override;
    // audio thread. Takes a ScratchPool block of count floats (the pool's
    // lock) and the filter's lock; with no block the tap does nothing this
    // block. Filter after the delay: the delayed signal is filtered, then
    // added into output. A filter that has run away (TapFilter::hasRunAway)
    // is caught at the end of its block: the tap adds silence for that block
    // and starts again from silence (line and filter cleared).
    void process(float* input, float* output, uint32_t count, float samplesPerBeat,
                 bool alignToSong, double songPositionSamples) override;
    void getParameterLabel(int index, char* text) const override;
    void getParameterDisplay(int index, char* text) const override;
    void getParameterName(int index, char* text) const override;

    TapFilter& filter() { return *filter_; }
    const TapFilter& filter() const { return *filter_; }
    // Filter before the delay when true. Nothing in the parameters sets it;
    // kept for tests and future use.
    void setFilterFirst(bool first) { filterFirst_ = first; }
    bool isFilterFirst() const { return filterFirst_; }

    static const FilteredTapParameter* filterParameterTable();

private:
    RefPtr<TapFilter> filter_;   // owned filter
    bool filterFirst_ = false;   // placement: false = after the delay
};

}  // namespace varitap
