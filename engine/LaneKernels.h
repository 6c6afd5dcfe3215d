// The bodies of the tap delay and filter-lane kernels, written once over a
// "pack" of lanes and instantiated by each kernel file for its own vector
// unit (VectorOps.cpp: scalar, SSE2 or NEON; VectorOpsAvx2.cpp: AVX2). Only
// those two files include it; every pack type lives in an unnamed namespace
// there, so each file's instantiations stay its own.
//
// A float pack F: type V of F::W floats; loadu, storeu, splat, add, mul.
// A double pack P: types D (P::W doubles) and M (a per-lane mask); load
// (P::W floats widened), store (narrowed), storeKeeping (narrowed, but lanes
// set in the mask keep the floats already there), loadd, stored, loadMask,
// splat, add, sub, mul, isZero, any, select(m, a, b) = m ? a : b.
#pragma once

#include <cstdint>

#include "engine/VectorOps.h"

// Pack operations and the per-sample pieces are inlined in every build: in
// an unoptimised (debug) build a call per lane operation would cost many
// times the operation itself.
#define VARITAP_LANE_INLINE inline __attribute__((always_inline))

namespace varitap::lanes {

// One tap's line (see TapDelay): stretches from the head to the end of the
// line have no sample depending on another, so they run F::W at a time.
template <class F>
uint32_t tapDelay(float* line, uint32_t position, uint32_t length, const float* input, float* out,
                  uint32_t count, float feedback, const float* gains, float gain) {
    using V = typename F::V;
    const V fb = F::splat(feedback);
    const V zero = F::splat(0.0f);
    const V gv = F::splat(gain);
    uint32_t i = 0;
    while (i < count) {
        const uint32_t left = count - i;
        const uint32_t run = position < length ? (length - position < left ? length - position : left) : 1;
        float* l = line + position;
        const float* in = input + i;
        float* o = out + i;
        uint32_t j = 0;
        if (gains) {
            const float* g = gains + i;
            for (; j + F::W <= run; j += F::W) {
                const V d = F::loadu(l + j);
                F::storeu(l + j, F::add(F::mul(d, fb), F::loadu(in + j)));
                F::storeu(o + j, F::add(F::mul(d, F::loadu(g + j)), zero));
            }
            for (; j < run; ++j) {
                const float d = l[j];
                l[j] = d * feedback + in[j];
                o[j] = d * g[j] + 0.0f;
            }
        } else {
            for (; j + F::W <= run; j += F::W) {
                const V d = F::loadu(l + j);
                F::storeu(l + j, F::add(F::mul(d, fb), F::loadu(in + j)));
                F::storeu(o + j, F::add(F::mul(d, gv), zero));
            }
            for (; j < run; ++j) {
                const float d = l[j];
                l[j] = d * feedback + in[j];
                o[j] = d * gain + 0.0f;
            }
        }
        i += run;
        position += run;
        if (position >= length) position = 0;
    }
    return position;
}

template <int Out, class P>
VARITAP_LANE_INLINE typename P::D pick(typename P::D notch, typename P::D low, typename P::D high,
                          typename P::D band, [[maybe_unused]] typename P::M isNotch,
                          [[maybe_unused]] typename P::M isLow,
                          [[maybe_unused]] typename P::M isHigh) {
    if constexpr (Out == FilterLanes::kNotch) {
        return notch;
    } else if constexpr (Out == FilterLanes::kLow) {
        return low;
    } else if constexpr (Out == FilterLanes::kHigh) {
        return high;
    } else if constexpr (Out == FilterLanes::kBand) {
        return band;
    } else {
        return P::select(isNotch, notch, P::select(isLow, low, P::select(isHigh, high, band)));
    }
}

// TapFilter's two passes per sample for N packs of lanes side by side: the
// chains of different taps are independent, so their latencies overlap.
template <class P, int N, int Out>
void filterLanes(float* samples, uint32_t count, uint32_t stride, FilterLanes& s) {
    using D = typename P::D;
    using M = typename P::M;
    constexpr int W = P::W;
    D f[N], q[N], drive[N], notch[N], low[N], high[N], band[N];
    M isNotch[N], isLow[N], isHigh[N];
    for (int v = 0; v < N; ++v) {
        f[v] = P::loadd(s.frequency + v * W);
        q[v] = P::loadd(s.damping + v * W);
        drive[v] = P::loadd(s.drive + v * W);
        notch[v] = P::loadd(s.notch + v * W);
        low[v] = P::loadd(s.low + v * W);
        high[v] = P::loadd(s.high + v * W);
        band[v] = P::loadd(s.band + v * W);
        isNotch[v] = P::loadMask(s.pickNotch + v * W);
        isLow[v] = P::loadMask(s.pickLow + v * W);
        isHigh[v] = P::loadMask(s.pickHigh + v * W);
    }
    const D half = P::splat(0.5);
    for (uint32_t i = 0; i < count; ++i) {
        float* row = samples + size_t(i) * stride;
#pragma GCC unroll 16
        for (int v = 0; v < N; ++v) {
            float* p = row + v * W;
            const D x = P::load(p);
            const M silent = P::isZero(x);
            // notch = x - q band; low += f band; high = notch - low;
            // band = f high + band - drive band band band; twice.
            const D n1 = P::sub(x, P::mul(q[v], band[v]));
            const D l1 = P::add(low[v], P::mul(f[v], band[v]));
            const D h1 = P::sub(n1, l1);
            const D b1 = P::sub(P::add(P::mul(f[v], h1), band[v]),
                                P::mul(P::mul(P::mul(drive[v], band[v]), band[v]), band[v]));
            const D y1 = pick<Out, P>(n1, l1, h1, b1, isNotch[v], isLow[v], isHigh[v]);
            const D n2 = P::sub(x, P::mul(q[v], b1));
            const D l2 = P::add(l1, P::mul(f[v], b1));
            const D h2 = P::sub(n2, l2);
            const D b2 = P::sub(P::add(P::mul(f[v], h2), b1),
                                P::mul(P::mul(P::mul(drive[v], b1), b1), b1));
            const D y2 = pick<Out, P>(n2, l2, h2, b2, isNotch[v], isLow[v], isHigh[v]);
            const D y = P::add(P::mul(half, y1), P::mul(half, y2));
            if (P::any(silent)) {
                // Silence leaves a lane's state and sample as they were.
                notch[v] = P::select(silent, notch[v], n2);
                low[v] = P::select(silent, low[v], l2);
                high[v] = P::select(silent, high[v], h2);
                band[v] = P::select(silent, band[v], b2);
                P::storeKeeping(p, y, silent);
            } else {
                notch[v] = n2;
                low[v] = l2;
                high[v] = h2;
                band[v] = b2;
                P::store(p, y);
            }
        }
    }
    for (int v = 0; v < N; ++v) {
        P::stored(s.notch + v * W, notch[v]);
        P::stored(s.low + v * W, low[v]);
        P::stored(s.high + v * W, high[v]);
        P::stored(s.band + v * W, band[v]);
    }
}

// The instance for stride / P::W packs (1 up to kMaxLanes / P::W).
template <class P, int Out, int N = 1>
void filterLanesOf(int packs, float* samples, uint32_t count, uint32_t stride, FilterLanes& s) {
    if constexpr (N < FilterLanes::kMaxLanes / P::W) {
        if (packs > N) {
            filterLanesOf<P, Out, N + 1>(packs, samples, count, stride, s);
            return;
        }
    }
    filterLanes<P, N, Out>(samples, count, stride, s);
}

template <class P>
void filterLanesFor(float* samples, uint32_t count, uint32_t stride, FilterLanes& s) {
    const int packs = int(stride / P::W);
    if (packs < 1 || count == 0) return;
    switch (s.output) {
        case FilterLanes::kNotch: filterLanesOf<P, FilterLanes::kNotch>(packs, samples, count, stride, s); break;
        case FilterLanes::kLow: filterLanesOf<P, FilterLanes::kLow>(packs, samples, count, stride, s); break;
        case FilterLanes::kHigh: filterLanesOf<P, FilterLanes::kHigh>(packs, samples, count, stride, s); break;
        case FilterLanes::kBand: filterLanesOf<P, FilterLanes::kBand>(packs, samples, count, stride, s); break;
        default: filterLanesOf<P, FilterLanes::kMixed>(packs, samples, count, stride, s); break;
    }
}

}  // namespace varitap::lanes
