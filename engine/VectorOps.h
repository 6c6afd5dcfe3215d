// The per-block loops of the engine, each in a scalar and a vector form
// (SSE2 on x86-64, NEON on aarch64; elsewhere the vector form is the scalar
// one), and on x86-64 processors with AVX2 a third set whose filter lanes
// are four wide. kernels() chooses the set once per call from
// hasVectorUnit() and the processor; tests call every set directly. The
// filters of several taps run side by side in lanes (one tap per lane, each
// lane doing exactly the scalar operations in the scalar order); loops
// outside this set have one form on purpose: the resampler gathers by
// computed index, and clearing is memset.
#pragma once

#include <cstdint>

namespace varitap {

// c[i] = a[i] + b[i]. c may be a or b.
void vadd(const float* a, const float* b, float* c, uint32_t n);
// c[i] = a[i] * s. c may be a.
void vsmul(const float* a, float s, float* c, uint32_t n);

// The loudest sample the engine takes in: 2^20, about +120 dB above full
// scale, far beyond any real signal yet far below where the lines' feedback
// sums could overflow. A sample past it, or one that is not a number (NaN,
// an infinity: a host's stale buffer, a broken plug-in before us), is a fault
// and enters the lines, the filters and the dry mix as silence.
inline constexpr float kSampleCeiling = 1048576.0f;

// destination[i] = source[i] when |source[i]| <= kSampleCeiling, else +0.
// destination may be source. Both forms give the same bits (a kept -0 stays
// -0, subnormals are kept as they are).
using Sanitize = void (*)(const float* source, float* destination, uint32_t n);

// One tap's delay loop over count samples: reads and writes the line at
// position (wrapping at length, which must be nonzero for the vector form),
// adds the delayed signal into output with a gain ramp from appliedVolume to
// volume, writes input plus feedback into the line. Returns the new position.
// line is 16-byte aligned and holds 4 guard samples past its capacity.
using TapLoop = uint32_t (*)(float* line, uint32_t position, uint32_t length, const float* input,
                             float* output, uint32_t count, float feedback, float appliedVolume,
                             float volume);

// destination[j] = wet[j] * (1 - mix) + dry[j] * mix. The vector form takes
// the exact-gain shortcuts (copying wet when 1 - mix is 1, dry when it is 0)
// and otherwise scales wet and dry in place before adding them.
using MixReplace = void (*)(float* wet, float* dry, float* destination, uint32_t n, float mix);

// One tap's line over count samples, writing (not adding) its delayed
// signal: out[i] = delayed * gain_i + 0 and line = delayed * feedback +
// input[i], sample by sample in the order of tapLoopScalar (the head wraps
// to 0 once it reaches length; length may be 0). gain_i is gains[i], or gain
// for every sample when gains is null. Within one pass from the head to the
// end of the line no sample depends on another, so the vector form runs
// such stretches four at a time. Returns the new position.
using TapDelay = uint32_t (*)(float* line, uint32_t position, uint32_t length, const float* input,
                              float* out, uint32_t count, float feedback, const float* gains,
                              float gain);

// The filters of up to kMaxLanes taps, one per lane, with their
// coefficients, state and chosen output. Lanes are padded to the kernel's
// width with zero coefficients (their state never moves).
struct FilterLanes {
    static constexpr int kMaxLanes = 12;
    // The state a lane outputs.
    enum Output : int32_t { kNotch = 0, kLow = 1, kHigh = 2, kBand = 3, kMixed = 4 };
    alignas(32) double frequency[kMaxLanes];
    alignas(32) double damping[kMaxLanes];
    alignas(32) double drive[kMaxLanes];
    alignas(32) double notch[kMaxLanes];
    alignas(32) double low[kMaxLanes];
    alignas(32) double high[kMaxLanes];
    alignas(32) double band[kMaxLanes];
    // All bits set where a lane outputs that state (for kMixed); a lane
    // with none of them outputs band.
    alignas(32) uint64_t pickNotch[kMaxLanes];
    alignas(32) uint64_t pickLow[kMaxLanes];
    alignas(32) uint64_t pickHigh[kMaxLanes];
    Output output;  // the state every lane outputs, or kMixed
};

// The filter's sample loop (TapFilter::run) for stride lanes side by side:
// samples[i * stride + lane] is sample i of a lane, filtered in place. stride
// is a multiple of the kernel's laneWidth and at most kMaxLanes. Per lane an
// exact zero leaves the state and the sample as they are.
using FilterLanesKernel = void (*)(float* samples, uint32_t count, uint32_t stride,
                                   FilterLanes& lanes);

struct Kernels {
    void (*vadd)(const float* a, const float* b, float* c, uint32_t n);
    void (*vsmul)(const float* a, float s, float* c, uint32_t n);
    TapLoop tapLoop;
    MixReplace mixReplace;
    Sanitize sanitize;
    TapDelay tapDelay;
    FilterLanesKernel filterLanes;
    uint32_t laneWidth;  // filter lanes per vector
};

// any thread. The set hasVectorUnit() selects (the AVX2 set where the
// processor has it and allowAvx2ForTesting has not turned it off): the one
// place where scalar or vector forms are chosen.
const Kernels& kernels();
const Kernels& scalarKernels();
const Kernels& vectorKernels();
// The AVX2 set, or null where the processor (or the build) has none.
const Kernels* avx2Kernels();
// any thread. false makes kernels() choose the SSE2 set on an AVX2
// processor (tests compare the engine in both); true restores the default.
void allowAvx2ForTesting(bool allowed);

// The forms themselves.
void vaddScalar(const float* a, const float* b, float* c, uint32_t n);
void vaddVector(const float* a, const float* b, float* c, uint32_t n);
void vsmulScalar(const float* a, float s, float* c, uint32_t n);
void vsmulVector(const float* a, float s, float* c, uint32_t n);
void sanitizeScalar(const float* source, float* destination, uint32_t n);
void sanitizeVector(const float* source, float* destination, uint32_t n);

// The tap's scalar loop: the gain starts at appliedVolume and grows by
// (volume - appliedVolume) / count each sample until it equals volume.
uint32_t tapLoopScalar(float* line, uint32_t position, uint32_t length, const float* input,
                       float* output, uint32_t count, float feedback, float appliedVolume,
                       float volume);
// The tap's 4-wide routine. It differs from the scalar loop on purpose:
// - its 4-lane loop runs only when input is 16-byte aligned and output is
//   not; otherwise every sample goes through its tail;
// - each 4-lane step reads the four line samples at the 16-byte boundary at
//   or below line + position, advances position by 4 and wraps it to 0 once it
//   reaches length (a length is thus rounded up to a multiple of 4);
// - the lane gain starts at volume and, when volume differs from
//   appliedVolume, grows by (volume - appliedVolume) / (4 count) per step;
// - the tail's gain starts at appliedVolume + step * (its first index) and
//   grows by step every sample without comparison.
// The 4-lane loop covers the whole groups of four (count / 4 of them) and the
// tail the remaining count % 4 samples, so nothing past count is ever read or
// written.
uint32_t tapLoopVector(float* line, uint32_t position, uint32_t length, const float* input,
                       float* output, uint32_t count, float feedback, float appliedVolume,
                       float volume);

uint32_t tapDelayScalar(float* line, uint32_t position, uint32_t length, const float* input,
                        float* out, uint32_t count, float feedback, const float* gains, float gain);
uint32_t tapDelayVector(float* line, uint32_t position, uint32_t length, const float* input,
                        float* out, uint32_t count, float feedback, const float* gains, float gain);
void filterLanesScalar(float* samples, uint32_t count, uint32_t stride, FilterLanes& lanes);
void filterLanesVector(float* samples, uint32_t count, uint32_t stride, FilterLanes& lanes);
#if defined(__x86_64__)
// Compiled for AVX2 in a file of its own; call it only where avx2Kernels()
// is not null.
void filterLanesAvx2(float* samples, uint32_t count, uint32_t stride, FilterLanes& lanes);
uint32_t tapDelayAvx2(float* line, uint32_t position, uint32_t length, const float* input,
                      float* out, uint32_t count, float feedback, const float* gains, float gain);
#endif

void mixReplaceScalar(float* wet, float* dry, float* destination, uint32_t n, float mix);
void mixReplaceVector(float* wet, float* dry, float* destination, uint32_t n, float mix);

// destination[j] += wet[j] * (1 - mix): the accumulating mix has one form.
void mixAccumulate(const float* wet, float* destination, uint32_t n, float mix);

}  // namespace varitap
