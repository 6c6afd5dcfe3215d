// Stretches or squeezes a run of samples into another length by picking the
// nearest earlier sample (no interpolation). Used by a tap's "Delay Time
// Resample" mode.
#pragma once

#include <cstdint>

#include "persistence/RefObject.h"

namespace varitap {

class BlockResampler : public RefObject {
public:
    BlockResampler() = default;
    ~BlockResampler() override = default;

    // audio thread. destination[i] = source[truncate(i * sourceCount /
    // destinationCount)] with the ratio in single precision. source and
    // destination may overlap (the tap stretches its line in place): when the
    // destination is the longer one, the source is first copied into a block
    // of the shared ScratchPool (taking the pool's lock); with no block to be
    // had nothing is done. Empty runs do nothing.
    virtual void resample(const float* source, uint32_t sourceCount, float* destination,
                          uint32_t destinationCount);
};

}  // namespace varitap
