// The vector forms of the per-block loops against their scalar forms, built
// for another architecture and run under emulation (scripts/check-aarch64.sh).
// The loops whose results must be equal are compared bit for bit over the
// counts and alignments the x86-64 tests use. Plain main(): the cross build has
// no test framework.
#include <cmath>
#include <cstdio>
#include <cstring>
#include <vector>

#include "engine/FloatMode.h"
#include "engine/VectorOps.h"
#include "persistence/SystemInfo.h"

using namespace varitap;

namespace {

int failures = 0;
int checks = 0;

void expectSame(const char* what, const float* a, const float* b, uint32_t n, int offset) {
    ++checks;
    if (std::memcmp(a, b, n * sizeof(float)) != 0) {
        ++failures;
        std::printf("%s differs: count %u, offset %d\n", what, n, offset);
    }
}

// The lane kernels: the tap delay over lengths that wrap within the block,
// and the filter lanes (every lane count, each output type and mixed, exact
// zeros included), vector against scalar, both with and without flush to
// zero (tiny states then underflow).
void checkLaneKernels(const std::vector<float>& a, const std::vector<float>& b) {
    for (uint32_t n : {0u, 1u, 2u, 3u, 4u, 5u, 7u, 8u, 15u, 32u, 64u, 65u, 100u, 999u}) {
        for (uint32_t length : {0u, 1u, 3u, 5u, 8u, 13u, 1000u}) {
            for (bool ramp : {false, true}) {
                std::vector<float> lineS(a.begin(), a.begin() + length + 4), lineV(lineS);
                std::vector<float> outS(n + 1), outV(n + 1);
                const float* gains = ramp ? b.data() : nullptr;
                const uint32_t start = length / 2;
                const uint32_t pS = tapDelayScalar(lineS.data(), start, length, b.data() + 1, outS.data() + 1, n,
                                                   0.4f, gains, 0.7f);
                const uint32_t pV = tapDelayVector(lineV.data(), start, length, b.data() + 1, outV.data() + 1, n,
                                                   0.4f, gains, 0.7f);
                expectSame("tapDelay out", outS.data(), outV.data(), n + 1, int(length));
                expectSame("tapDelay line", lineS.data(), lineV.data(), length + 4, int(length));
                ++checks;
                if (pS != pV) ++failures, std::printf("tapDelay head differs: count %u, length %u\n", n, length);
            }
        }
        for (uint32_t lanes = 2; lanes <= uint32_t(FilterLanes::kMaxLanes); lanes += 2) {
            for (int output = FilterLanes::kNotch; output <= FilterLanes::kMixed; ++output) {
                for (int flush = 0; flush < 2; ++flush) {
                    FilterLanes filter{};
                    for (uint32_t l = 0; l < lanes; ++l) {
                        const int pick = output == FilterLanes::kMixed ? int(l % 4) : output;
                        filter.frequency[l] = 0.05 + 0.1 * l;
                        filter.damping[l] = 0.2 + 0.15 * l;
                        filter.drive[l] = l % 3 == 0 ? 0.05 : 0.0;
                        filter.band[l] = flush ? 1e-300 : 0.1 * l;
                        filter.low[l] = flush ? -1e-305 : -0.05 * l;
                        filter.pickNotch[l] = pick == 0 ? ~uint64_t(0) : 0;
                        filter.pickLow[l] = pick == 1 ? ~uint64_t(0) : 0;
                        filter.pickHigh[l] = pick == 2 ? ~uint64_t(0) : 0;
                    }
                    filter.output = FilterLanes::Output(output);
                    std::vector<float> s(size_t(n) * lanes), v;
                    for (size_t i = 0; i < s.size(); ++i)
                        s[i] = (i % 7 == 0 || i % lanes == 1) ? 0.0f : (flush ? 1e-39f : 1.0f) * a[i % a.size()];
                    v = s;
                    FilterLanes scalar = filter, vector = filter;
                    if (flush) {
                        FlushDenormals mode;
                        filterLanesScalar(s.data(), n, lanes, scalar);
                        filterLanesVector(v.data(), n, lanes, vector);
                    } else {
                        filterLanesScalar(s.data(), n, lanes, scalar);
                        filterLanesVector(v.data(), n, lanes, vector);
                    }
                    expectSame("filterLanes", s.data(), v.data(), uint32_t(s.size()), int(lanes));
                    ++checks;
                    if (std::memcmp(&scalar, &vector, sizeof scalar) != 0)
                        ++failures, std::printf("filterLanes state differs: count %u, lanes %u\n", n, lanes);
                }
            }
        }
    }
}

}  // namespace

int main() {
    if (!hasVectorUnit()) {
        std::printf("no vector unit reported\n");
        return 1;
    }
    std::vector<float> a(4200), b(4200);
    for (size_t i = 0; i < a.size(); ++i) {
        a[i] = 0.001f * static_cast<float>(i % 977) - 0.4f;
        b[i] = 0.37f - 0.0007f * static_cast<float>(i % 613);
    }
    std::vector<float> s(4200), v(4200);
    // Values the cleaning pass must drop or keep, on every lane (11 is prime
    // to 4).
    const float specials[] = {std::nanf(""), HUGE_VALF, -HUGE_VALF, 1e30f, -kSampleCeiling,
                              kSampleCeiling, std::nextafter(kSampleCeiling, HUGE_VALF), -0.0f,
                              1e-40f, -std::nanf("")};
    std::vector<float> odd(a);
    for (size_t i = 0; i < odd.size(); ++i)
        if (i % 11 < 10) odd[i] = specials[i % 11];
    for (uint32_t n : {0u, 1u, 2u, 3u, 4u, 5u, 7u, 8u, 15u, 32u, 64u, 65u, 100u, 999u, 4095u}) {
        for (int offset = 0; offset < 4; ++offset) {
            const float* in = a.data() + offset;
            vaddScalar(in, b.data() + 1, s.data() + offset, n);
            vaddVector(in, b.data() + 1, v.data() + offset, n);
            expectSame("vadd", s.data() + offset, v.data() + offset, n, offset);
            vsmulScalar(in, 0.3f, s.data(), n);
            vsmulVector(in, 0.3f, v.data(), n);
            expectSame("vsmul", s.data(), v.data(), n, offset);
            // The mix scales both sources in place: each form gets fresh copies.
            for (float mix : {0.0f, 0.3f, 1.0f}) {
                std::vector<float> wetS(a), dryS(b), wetV(a), dryV(b);
                mixReplaceScalar(wetS.data() + offset, dryS.data() + offset, s.data(), n, mix);
                mixReplaceVector(wetV.data() + offset, dryV.data() + offset, v.data(), n, mix);
                expectSame("mixReplace", s.data(), v.data(), n, offset);
            }
            sanitizeScalar(odd.data() + offset, s.data(), n);
            sanitizeVector(odd.data() + offset, v.data(), n);
            expectSame("sanitize", s.data(), v.data(), n, offset);
        }
    }
    checkLaneKernels(a, b);
    std::printf("%d passed, %d failed\n", checks - failures, failures);
    return failures == 0 ? 0 : 1;
}
