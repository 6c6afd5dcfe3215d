// The per-block loops of the engine, each in a scalar and a vector form
// (SSE2 on x86-64, NEON on aarch64; elsewhere the vector form is the scalar
// one). kernels() chooses the set once per call from hasVectorUnit(); tests
// call either set directly. Loops outside this set have one form on purpose:
// the filter's sample loop is a chain of dependent operations (no lanes to
// fill), the resampler gathers by computed index, and clearing is memset.
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

struct Kernels {
    void (*vadd)(const float* a, const float* b, float* c, uint32_t n);
    void (*vsmul)(const float* a, float s, float* c, uint32_t n);
    TapLoop tapLoop;
    MixReplace mixReplace;
    Sanitize sanitize;
};

// any thread. The set hasVectorUnit() selects: the one place where scalar or
// vector forms are chosen.
const Kernels& kernels();
const Kernels& scalarKernels();
const Kernels& vectorKernels();

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

void mixReplaceScalar(float* wet, float* dry, float* destination, uint32_t n, float mix);
void mixReplaceVector(float* wet, float* dry, float* destination, uint32_t n, float mix);

// destination[j] += wet[j] * (1 - mix): the accumulating mix has one form.
void mixAccumulate(const float* wet, float* destination, uint32_t n, float mix);

}  // namespace varitap
