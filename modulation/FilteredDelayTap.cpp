#include "modulation/FilteredDelayTap.h"

#include <cstring>

#include "engine/ParameterLayout.h"
#include "engine/ParameterText.h"
#include "engine/VectorOps.h"
#include "modulation/ScratchPool.h"

namespace varitap {

namespace {

constexpr int kFilterRows = FilteredDelayTap::kParameterCount - DelayTap::kParameterCount;

const FilteredTapParameter kFilterParameters[kFilterRows] = {
    {"Filter Type", TapFilter::kType,
     [](const FilteredDelayTap& tap, char* text) {
         const int type = static_cast<int>(4.0f * tap.filter().getParameter(TapFilter::kType));
         copyLocalized(text, TapFilter::typeName(type), kDisplayTextMax);
     }},
    {"Cutoff", TapFilter::kCutoff, nullptr},
    {"Resonance", TapFilter::kResonance, nullptr},
};

const FilteredTapParameter* filterRow(int index) {
    const int row = index - DelayTap::kParameterCount;
    return row >= 0 && row < kFilterRows ? &kFilterParameters[row] : nullptr;
}

}  // namespace

const FilteredTapParameter* FilteredDelayTap::filterParameterTable() { return kFilterParameters; }

FilteredDelayTap::FilteredDelayTap()
    : DelayTap(kInitialCapacity),
      filter_(RefPtr<TapFilter>::adopt(new TapFilter(kInitialSampleRate))) {}

FilteredDelayTap::~FilteredDelayTap() = default;

void FilteredDelayTap::clearBuffer() { DelayTap::clearBuffer(); }

void FilteredDelayTap::silence() {
    DelayTap::clearBuffer();
    filter_->clearState();
}

void FilteredDelayTap::resetPosition() {
    filter_->reset();
    DelayTap::resetPosition();
}

void FilteredDelayTap::setSampleRate(float rate) {
    DelayTap::setSampleRate(rate);
    filter_->setSampleRate(rate);
}

void FilteredDelayTap::setParameter(int index, float value) {
    if (const FilteredTapParameter* row = filterRow(index))
        filter_->setParameter(row->filterParameter, value);
    else
        DelayTap::setParameter(index, value);
}

float FilteredDelayTap::getParameter(int index) const {
    if (const FilteredTapParameter* row = filterRow(index))
        return filter_->getParameter(row->filterParameter);
    return DelayTap::getParameter(index);
}

void FilteredDelayTap::process(float* input, float* output, uint32_t count, float samplesPerBeat,
                               bool alignToSong, double songPositionSamples) {
    ScratchBlock block(ScratchPool::current(), count);
    if (!block) return;  // no memory: the tap sits this block out
    float* scratch = block.data();
    const size_t bytes = size_t(count) * sizeof(float);
    // Once per block, four comparisons: a state that ran away mid-block
    // stays out of range (NaN and infinities absorb), so the end shows it.
    // What it produced this block is dropped with it.
    auto catchRunaway = [&] {
        if (!filter_->hasRunAway()) return;
        std::memset(scratch, 0, bytes);
        silence();
    };
    if (!filterFirst_) {
        std::memset(scratch, 0, bytes);
        DelayTap::process(input, scratch, count, samplesPerBeat, alignToSong, songPositionSamples);
        filter_->processInPlace(scratch, count);
        catchRunaway();
        vadd(scratch, output, output, count);
    } else {
        // Exact zeros are skipped by the filter, so the block is cleared
        // first: whatever it held before must not reach the line.
        std::memset(scratch, 0, bytes);
        filter_->process(input, scratch, count);
        catchRunaway();
        DelayTap::process(scratch, output, count, samplesPerBeat, alignToSong, songPositionSamples);
    }
}

void FilteredDelayTap::getParameterLabel(int index, char* text) const {
    if (!filterRow(index)) DelayTap::getParameterLabel(index, text);
}

void FilteredDelayTap::getParameterDisplay(int index, char* text) const {
    if (const FilteredTapParameter* row = filterRow(index)) {
        if (row->display) row->display(*this, text);
    } else {
        DelayTap::getParameterDisplay(index, text);
    }
}

void FilteredDelayTap::getParameterName(int index, char* text) const {
    if (const FilteredTapParameter* row = filterRow(index))
        copyLocalized(text, row->name, kNameTextMax);
    else
        DelayTap::getParameterName(index, text);
}

}  // namespace varitap
