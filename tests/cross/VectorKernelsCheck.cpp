// The vector forms of the per-block loops against their scalar forms, built
// for another architecture and run under emulation (scripts/check-aarch64.sh).
// The loops whose results must be equal are compared bit for bit over the
// counts and alignments the x86-64 tests use. Plain main(): the cross build has
// no test framework.
#include <cmath>
#include <cstdio>
#include <cstring>
#include <vector>

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
    std::printf("%d passed, %d failed\n", checks - failures, failures);
    return failures == 0 ? 0 : 1;
}
