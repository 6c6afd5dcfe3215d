// The AVX2 forms of the tap delay and filter-lane kernels: eight floats per
// step in the delay, four doubles per pack in the filter. Compiled with
// -mavx2 (never -mfma: products and sums round one by one, as in the scalar
// forms); VectorOps.cpp calls them only on processors with AVX2.
#if defined(__x86_64__)

#include <immintrin.h>

#include "engine/LaneKernels.h"

namespace varitap {

namespace {

struct Avx2Floats {
    using V = __m256;
    static constexpr uint32_t W = 8;
    static VARITAP_LANE_INLINE V loadu(const float* p) { return _mm256_loadu_ps(p); }
    static VARITAP_LANE_INLINE void storeu(float* p, V v) { _mm256_storeu_ps(p, v); }
    static VARITAP_LANE_INLINE V splat(float x) { return _mm256_set1_ps(x); }
    static VARITAP_LANE_INLINE V add(V a, V b) { return _mm256_add_ps(a, b); }
    static VARITAP_LANE_INLINE V mul(V a, V b) { return _mm256_mul_ps(a, b); }
};

struct Avx2Doubles {
    using D = __m256d;
    using M = __m256d;
    static constexpr int W = 4;
    static VARITAP_LANE_INLINE D load(const float* p) { return _mm256_cvtps_pd(_mm_loadu_ps(p)); }
    static VARITAP_LANE_INLINE void store(float* p, D y) { _mm_storeu_ps(p, _mm256_cvtpd_ps(y)); }
    static VARITAP_LANE_INLINE void storeKeeping(float* p, D y, M keep) {
        // The low half of each 64-bit mask, as four float masks.
        const __m256 wide = _mm256_permutevar8x32_ps(_mm256_castpd_ps(keep),
                                                     _mm256_setr_epi32(0, 2, 4, 6, 0, 2, 4, 6));
        const __m128 mask = _mm256_castps256_ps128(wide);
        _mm_storeu_ps(p, _mm_blendv_ps(_mm256_cvtpd_ps(y), _mm_loadu_ps(p), mask));
    }
    static VARITAP_LANE_INLINE D loadd(const double* p) { return _mm256_loadu_pd(p); }
    static VARITAP_LANE_INLINE void stored(double* p, D v) { _mm256_storeu_pd(p, v); }
    static VARITAP_LANE_INLINE M loadMask(const uint64_t* p) {
        return _mm256_castsi256_pd(_mm256_loadu_si256(reinterpret_cast<const __m256i*>(p)));
    }
    static VARITAP_LANE_INLINE D splat(double x) { return _mm256_set1_pd(x); }
    static VARITAP_LANE_INLINE D add(D a, D b) { return _mm256_add_pd(a, b); }
    static VARITAP_LANE_INLINE D sub(D a, D b) { return _mm256_sub_pd(a, b); }
    static VARITAP_LANE_INLINE D mul(D a, D b) { return _mm256_mul_pd(a, b); }
    static VARITAP_LANE_INLINE M isZero(D x) { return _mm256_cmp_pd(x, _mm256_setzero_pd(), _CMP_EQ_OQ); }
    static VARITAP_LANE_INLINE bool any(M m) { return _mm256_movemask_pd(m) != 0; }
    static VARITAP_LANE_INLINE D select(M m, D a, D b) { return _mm256_blendv_pd(b, a, m); }
};

}  // namespace

uint32_t tapDelayAvx2(float* line, uint32_t position, uint32_t length, const float* input,
                      float* out, uint32_t count, float feedback, const float* gains, float gain) {
    return lanes::tapDelay<Avx2Floats>(line, position, length, input, out, count, feedback, gains, gain);
}

void filterLanesAvx2(float* samples, uint32_t count, uint32_t stride, FilterLanes& lanes) {
    lanes::filterLanesFor<Avx2Doubles>(samples, count, stride, lanes);
}

}  // namespace varitap

#endif
