#include "engine/VectorOps.h"

#include <atomic>
#include <cmath>
#include <cstring>

#include "engine/LaneKernels.h"
#include "persistence/SystemInfo.h"

#if defined(__SSE2__)
#include <emmintrin.h>
#define VARITAP_SSE2 1
#elif defined(__ARM_NEON) || defined(__aarch64__)
#include <arm_neon.h>
#define VARITAP_NEON 1
#endif

namespace varitap {

namespace {

// 4-lane helpers over the platform's vector unit. Multiplication and
// addition are kept separate (never fused) so that every lane rounds exactly
// as the scalar forms do.
#if VARITAP_SSE2
using Vec4 = __m128;
inline Vec4 load4(const float* p) { return _mm_load_ps(p); }
inline Vec4 loadu4(const float* p) { return _mm_loadu_ps(p); }
inline void store4(float* p, Vec4 v) { _mm_store_ps(p, v); }
inline void storeu4(float* p, Vec4 v) { _mm_storeu_ps(p, v); }
inline Vec4 splat4(float x) { return _mm_set1_ps(x); }
inline Vec4 add4(Vec4 a, Vec4 b) { return _mm_add_ps(a, b); }
inline Vec4 mul4(Vec4 a, Vec4 b) { return _mm_mul_ps(a, b); }
// x where |x| <= ceiling, else +0 (a NaN compares false).
inline Vec4 within4(Vec4 x, Vec4 ceiling) {
    const Vec4 magnitude = _mm_andnot_ps(_mm_set1_ps(-0.0f), x);
    return _mm_and_ps(_mm_cmple_ps(magnitude, ceiling), x);
}
#elif VARITAP_NEON
using Vec4 = float32x4_t;
inline Vec4 load4(const float* p) { return vld1q_f32(p); }
inline Vec4 loadu4(const float* p) { return vld1q_f32(p); }
inline void store4(float* p, Vec4 v) { vst1q_f32(p, v); }
inline void storeu4(float* p, Vec4 v) { vst1q_f32(p, v); }
inline Vec4 splat4(float x) { return vdupq_n_f32(x); }
inline Vec4 add4(Vec4 a, Vec4 b) { return vaddq_f32(a, b); }
inline Vec4 mul4(Vec4 a, Vec4 b) { return vmulq_f32(a, b); }
inline Vec4 within4(Vec4 x, Vec4 ceiling) {
    const uint32x4_t keep = vcleq_f32(vabsq_f32(x), ceiling);
    return vreinterpretq_f32_u32(vandq_u32(keep, vreinterpretq_u32_f32(x)));
}
#endif

#if VARITAP_SSE2 || VARITAP_NEON
inline bool aligned16(const void* p) { return (reinterpret_cast<uintptr_t>(p) & 15u) == 0; }
#endif

// The packs of LaneKernels.h. One float or one double: the scalar forms.
struct ScalarFloats {
    using V = float;
    static constexpr uint32_t W = 1;
    static VARITAP_LANE_INLINE V loadu(const float* p) { return *p; }
    static VARITAP_LANE_INLINE void storeu(float* p, V v) { *p = v; }
    static VARITAP_LANE_INLINE V splat(float x) { return x; }
    static VARITAP_LANE_INLINE V add(V a, V b) { return a + b; }
    static VARITAP_LANE_INLINE V mul(V a, V b) { return a * b; }
};

struct ScalarDoubles {
    using D = double;
    using M = bool;
    static constexpr int W = 1;
    static VARITAP_LANE_INLINE D load(const float* p) { return *p; }
    static VARITAP_LANE_INLINE void store(float* p, D y) { *p = static_cast<float>(y); }
    static VARITAP_LANE_INLINE void storeKeeping(float* p, D y, M keep) {
        if (!keep) *p = static_cast<float>(y);
    }
    static VARITAP_LANE_INLINE D loadd(const double* p) { return *p; }
    static VARITAP_LANE_INLINE void stored(double* p, D v) { *p = v; }
    static VARITAP_LANE_INLINE M loadMask(const uint64_t* p) { return *p != 0; }
    static VARITAP_LANE_INLINE D splat(double x) { return x; }
    static VARITAP_LANE_INLINE D add(D a, D b) { return a + b; }
    static VARITAP_LANE_INLINE D sub(D a, D b) { return a - b; }
    static VARITAP_LANE_INLINE D mul(D a, D b) { return a * b; }
    static VARITAP_LANE_INLINE M isZero(D x) { return x == 0.0; }
    static VARITAP_LANE_INLINE bool any(M m) { return m; }
    static VARITAP_LANE_INLINE D select(M m, D a, D b) { return m ? a : b; }
};

#if VARITAP_SSE2
struct VectorFloats {
    using V = __m128;
    static constexpr uint32_t W = 4;
    static VARITAP_LANE_INLINE V loadu(const float* p) { return _mm_loadu_ps(p); }
    static VARITAP_LANE_INLINE void storeu(float* p, V v) { _mm_storeu_ps(p, v); }
    static VARITAP_LANE_INLINE V splat(float x) { return _mm_set1_ps(x); }
    static VARITAP_LANE_INLINE V add(V a, V b) { return _mm_add_ps(a, b); }
    static VARITAP_LANE_INLINE V mul(V a, V b) { return _mm_mul_ps(a, b); }
};

struct VectorDoubles {
    using D = __m128d;
    using M = __m128d;
    static constexpr int W = 2;
    static VARITAP_LANE_INLINE __m128 loadPair(const float* p) {
        return _mm_castsi128_ps(_mm_loadl_epi64(reinterpret_cast<const __m128i*>(p)));
    }
    static VARITAP_LANE_INLINE void storePair(float* p, __m128 v) {
        _mm_storel_epi64(reinterpret_cast<__m128i*>(p), _mm_castps_si128(v));
    }
    static VARITAP_LANE_INLINE D load(const float* p) { return _mm_cvtps_pd(loadPair(p)); }
    static VARITAP_LANE_INLINE void store(float* p, D y) { storePair(p, _mm_cvtpd_ps(y)); }
    static VARITAP_LANE_INLINE void storeKeeping(float* p, D y, M keep) {
        const __m128 k = _mm_castpd_ps(keep);
        const __m128 mask = _mm_shuffle_ps(k, k, _MM_SHUFFLE(2, 0, 2, 0));
        storePair(p, _mm_or_ps(_mm_and_ps(mask, loadPair(p)), _mm_andnot_ps(mask, _mm_cvtpd_ps(y))));
    }
    static VARITAP_LANE_INLINE D loadd(const double* p) { return _mm_loadu_pd(p); }
    static VARITAP_LANE_INLINE void stored(double* p, D v) { _mm_storeu_pd(p, v); }
    static VARITAP_LANE_INLINE M loadMask(const uint64_t* p) {
        return _mm_castsi128_pd(_mm_loadu_si128(reinterpret_cast<const __m128i*>(p)));
    }
    static VARITAP_LANE_INLINE D splat(double x) { return _mm_set1_pd(x); }
    static VARITAP_LANE_INLINE D add(D a, D b) { return _mm_add_pd(a, b); }
    static VARITAP_LANE_INLINE D sub(D a, D b) { return _mm_sub_pd(a, b); }
    static VARITAP_LANE_INLINE D mul(D a, D b) { return _mm_mul_pd(a, b); }
    static VARITAP_LANE_INLINE M isZero(D x) { return _mm_cmpeq_pd(x, _mm_setzero_pd()); }
    static VARITAP_LANE_INLINE bool any(M m) { return _mm_movemask_pd(m) != 0; }
    static VARITAP_LANE_INLINE D select(M m, D a, D b) { return _mm_or_pd(_mm_and_pd(m, a), _mm_andnot_pd(m, b)); }
};
#elif VARITAP_NEON
struct VectorFloats {
    using V = float32x4_t;
    static constexpr uint32_t W = 4;
    static VARITAP_LANE_INLINE V loadu(const float* p) { return vld1q_f32(p); }
    static VARITAP_LANE_INLINE void storeu(float* p, V v) { vst1q_f32(p, v); }
    static VARITAP_LANE_INLINE V splat(float x) { return vdupq_n_f32(x); }
    static VARITAP_LANE_INLINE V add(V a, V b) { return vaddq_f32(a, b); }
    static VARITAP_LANE_INLINE V mul(V a, V b) { return vmulq_f32(a, b); }
};

struct VectorDoubles {
    using D = float64x2_t;
    using M = uint64x2_t;
    static constexpr int W = 2;
    static VARITAP_LANE_INLINE D load(const float* p) { return vcvt_f64_f32(vld1_f32(p)); }
    static VARITAP_LANE_INLINE void store(float* p, D y) { vst1_f32(p, vcvt_f32_f64(y)); }
    static VARITAP_LANE_INLINE void storeKeeping(float* p, D y, M keep) {
        vst1_f32(p, vbsl_f32(vmovn_u64(keep), vld1_f32(p), vcvt_f32_f64(y)));
    }
    static VARITAP_LANE_INLINE D loadd(const double* p) { return vld1q_f64(p); }
    static VARITAP_LANE_INLINE void stored(double* p, D v) { vst1q_f64(p, v); }
    static VARITAP_LANE_INLINE M loadMask(const uint64_t* p) { return vld1q_u64(p); }
    static VARITAP_LANE_INLINE D splat(double x) { return vdupq_n_f64(x); }
    static VARITAP_LANE_INLINE D add(D a, D b) { return vaddq_f64(a, b); }
    static VARITAP_LANE_INLINE D sub(D a, D b) { return vsubq_f64(a, b); }
    static VARITAP_LANE_INLINE D mul(D a, D b) { return vmulq_f64(a, b); }
    static VARITAP_LANE_INLINE M isZero(D x) { return vceqq_f64(x, vdupq_n_f64(0.0)); }
    static VARITAP_LANE_INLINE bool any(M m) { return vmaxvq_u32(vreinterpretq_u32_u64(m)) != 0; }
    static VARITAP_LANE_INLINE D select(M m, D a, D b) { return vbslq_f64(m, a, b); }
};
#else
using VectorFloats = ScalarFloats;
using VectorDoubles = ScalarDoubles;
#endif

const Kernels kScalar = {vaddScalar,     vsmulScalar,    tapLoopScalar,     mixReplaceScalar,
                         sanitizeScalar, tapDelayScalar, filterLanesScalar, 1};
const Kernels kVector = {vaddVector,     vsmulVector,    tapLoopVector,     mixReplaceVector,
                         sanitizeVector, tapDelayVector, filterLanesVector, uint32_t(VectorDoubles::W)};

#if defined(__x86_64__)
const Kernels kAvx2 = {vaddVector,     vsmulVector,  tapLoopVector,   mixReplaceVector,
                       sanitizeVector, tapDelayAvx2, filterLanesAvx2, 4};
bool processorHasAvx2() {
    // This may run before the runtime's own processor probe has: probe first.
    __builtin_cpu_init();
    return __builtin_cpu_supports("avx2");
}
const bool gProcessorAvx2 = processorHasAvx2();
#endif
std::atomic<bool> gAllowAvx2{true};

}  // namespace

const Kernels& scalarKernels() { return kScalar; }
const Kernels& vectorKernels() { return kVector; }

const Kernels* avx2Kernels() {
#if defined(__x86_64__)
    return gProcessorAvx2 ? &kAvx2 : nullptr;
#else
    return nullptr;
#endif
}

void allowAvx2ForTesting(bool allowed) { gAllowAvx2.store(allowed, std::memory_order_relaxed); }

const Kernels& kernels() {
    if (!hasVectorUnit()) return kScalar;
    if (const Kernels* avx2 = avx2Kernels(); avx2 && gAllowAvx2.load(std::memory_order_relaxed))
        return *avx2;
    return kVector;
}

uint32_t tapDelayScalar(float* line, uint32_t position, uint32_t length, const float* input,
                        float* out, uint32_t count, float feedback, const float* gains, float gain) {
    return lanes::tapDelay<ScalarFloats>(line, position, length, input, out, count, feedback, gains, gain);
}

uint32_t tapDelayVector(float* line, uint32_t position, uint32_t length, const float* input,
                        float* out, uint32_t count, float feedback, const float* gains, float gain) {
    return lanes::tapDelay<VectorFloats>(line, position, length, input, out, count, feedback, gains, gain);
}

void filterLanesScalar(float* samples, uint32_t count, uint32_t stride, FilterLanes& lanes) {
    lanes::filterLanesFor<ScalarDoubles>(samples, count, stride, lanes);
}

void filterLanesVector(float* samples, uint32_t count, uint32_t stride, FilterLanes& lanes) {
    lanes::filterLanesFor<VectorDoubles>(samples, count, stride, lanes);
}

void vadd(const float* a, const float* b, float* c, uint32_t n) { kernels().vadd(a, b, c, n); }
void vsmul(const float* a, float s, float* c, uint32_t n) { kernels().vsmul(a, s, c, n); }

void vaddScalar(const float* a, const float* b, float* c, uint32_t n) {
    for (uint32_t i = 0; i < n; ++i) c[i] = a[i] + b[i];
}

void vsmulScalar(const float* a, float s, float* c, uint32_t n) {
    for (uint32_t i = 0; i < n; ++i) c[i] = a[i] * s;
}

void vaddVector(const float* a, const float* b, float* c, uint32_t n) {
    uint32_t i = 0;
#if VARITAP_SSE2 || VARITAP_NEON
    for (; i + 4 <= n; i += 4) storeu4(c + i, add4(loadu4(a + i), loadu4(b + i)));
#endif
    for (; i < n; ++i) c[i] = a[i] + b[i];
}

void vsmulVector(const float* a, float s, float* c, uint32_t n) {
    uint32_t i = 0;
#if VARITAP_SSE2 || VARITAP_NEON
    const Vec4 sv = splat4(s);
    for (; i + 4 <= n; i += 4) storeu4(c + i, mul4(loadu4(a + i), sv));
#endif
    for (; i < n; ++i) c[i] = a[i] * s;
}

void sanitizeScalar(const float* source, float* destination, uint32_t n) {
    for (uint32_t i = 0; i < n; ++i) {
        const float x = source[i];
        destination[i] = std::fabs(x) <= kSampleCeiling ? x : 0.0f;
    }
}

void sanitizeVector(const float* source, float* destination, uint32_t n) {
    uint32_t i = 0;
#if VARITAP_SSE2 || VARITAP_NEON
    const Vec4 ceiling = splat4(kSampleCeiling);
    for (; i + 4 <= n; i += 4) storeu4(destination + i, within4(loadu4(source + i), ceiling));
#endif
    sanitizeScalar(source + i, destination + i, n - i);
}

uint32_t tapLoopScalar(float* line, uint32_t position, uint32_t length, const float* input,
                       float* output, uint32_t count, float feedback, float appliedVolume,
                       float volume) {
    if (count == 0) return position;
    const float step = (volume - appliedVolume) / static_cast<float>(count);
    float gain = appliedVolume;
    for (uint32_t i = 0; i < count; ++i) {
        const float delayed = line[position];
        line[position] = delayed * feedback + input[i];
        output[i] += delayed * gain;
        if (++position >= length) position = 0;
        if (gain != volume) gain += step;
    }
    return position;
}

uint32_t tapLoopVector(float* line, uint32_t position, uint32_t length, const float* input,
                       float* output, uint32_t count, float feedback, float appliedVolume,
                       float volume) {
    if (count == 0) return position;
    const float step = (volume - appliedVolume) / static_cast<float>(count);
    uint32_t i = 0;
#if VARITAP_SSE2 || VARITAP_NEON
    if (aligned16(input) && !aligned16(output)) {
        const uint32_t groups = count / 4;
        const bool ramp = volume != appliedVolume;
        const Vec4 fb = splat4(feedback);
        const Vec4 increment = splat4(ramp ? (volume - appliedVolume) / (4.0f * count) : 0.0f);
        Vec4 gain = splat4(volume);
        for (uint32_t g = 0; g < groups; ++g, i += 4) {
            // line is 16-byte aligned, so the boundary at or below
            // line + position is line + (position & ~3).
            float* group = line + (position & ~3u);
            const Vec4 delayed = load4(group);
            store4(group, add4(mul4(delayed, fb), load4(input + i)));
            storeu4(output + i, add4(loadu4(output + i), mul4(delayed, gain)));
            position += 4;
            if (position >= length) position = 0;
            if (ramp) gain = add4(gain, increment);
        }
    }
#endif
    float gain = appliedVolume + step * static_cast<float>(i);
    for (; i < count; ++i) {
        const float delayed = line[position];
        line[position] = delayed * feedback + input[i];
        output[i] += delayed * gain;
        if (++position >= length) position = 0;
        gain += step;
    }
    return position;
}

void mixReplaceScalar(float* wet, float* dry, float* destination, uint32_t n, float mix) {
    const float wetGain = 1.0f - mix;
    for (uint32_t j = 0; j < n; ++j) destination[j] = wet[j] * wetGain + dry[j] * mix;
}

void mixReplaceVector(float* wet, float* dry, float* destination, uint32_t n, float mix) {
    const float wetGain = 1.0f - mix;
    if (wetGain == 1.0f) {
        if (destination != wet) std::memmove(destination, wet, n * sizeof(float));
    } else if (wetGain == 0.0f) {
        if (destination != dry) std::memmove(destination, dry, n * sizeof(float));
    } else {
        // As the vector library is used here: both sources are scaled in
        // place (the host's input array included), then summed.
        vsmulVector(wet, wetGain, wet, n);
        vsmulVector(dry, mix, dry, n);
        vaddVector(wet, dry, destination, n);
    }
}

void mixAccumulate(const float* wet, float* destination, uint32_t n, float mix) {
    const float wetGain = 1.0f - mix;
    for (uint32_t j = 0; j < n; ++j) destination[j] += wet[j] * wetGain;
}

}  // namespace varitap
