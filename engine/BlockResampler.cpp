#include "engine/BlockResampler.h"

#include <algorithm>

#include "modulation/ScratchPool.h"

namespace varitap {

void BlockResampler::resample(const float* source, uint32_t sourceCount, float* destination,
                              uint32_t destinationCount) {
    if (sourceCount == 0 || destinationCount == 0) return;
    const float ratio = static_cast<float>(sourceCount) / static_cast<float>(destinationCount);
    // Source and destination may be the same run of a line. A longer
    // destination would overwrite samples still to be read, so the source is
    // copied out first; a shorter or equal one only reads ahead of its writes.
    ScratchBlock copy(sourceCount < destinationCount ? ScratchPool::current() : nullptr,
                      destinationCount);
    if (sourceCount < destinationCount) {
        if (!copy) return;
        std::copy(source, source + sourceCount, copy.data());
        source = copy.data();
    }
    // Rounding of i * ratio can never reach past the source's last sample.
    const uint32_t last = sourceCount - 1;
    auto pick = [&](uint32_t i) {
        return source[std::min(static_cast<uint32_t>(static_cast<float>(i) * ratio), last)];
    };
    uint32_t i = 0;
    for (; i + 8 <= destinationCount; i += 8) {
        destination[i] = pick(i);
        destination[i + 1] = pick(i + 1);
        destination[i + 2] = pick(i + 2);
        destination[i + 3] = pick(i + 3);
        destination[i + 4] = pick(i + 4);
        destination[i + 5] = pick(i + 5);
        destination[i + 6] = pick(i + 6);
        destination[i + 7] = pick(i + 7);
    }
    for (; i < destinationCount; ++i) destination[i] = pick(i);
}

}  // namespace varitap
