// Flush-to-zero for the length of one block. Feedback tails decay into
// subnormal numbers (below about 1e-38, far under anything audible) and stay
// there for ever: 0.95 times the smallest subnormal rounds back to itself, so
// a line never reaches silence, and on x86 every operation on such a number
// can cost a hundred normal ones. While a FlushDenormals lives, results that
// would be subnormal become zero and subnormal operands count as zero (x86-64:
// FTZ and DAZ in MXCSR; aarch64: FZ in FPCR, which does both). The caller's
// mode, the host's, is put back as it was when the guard goes out of scope.
#pragma once

#include <cstdint>

#if defined(__SSE2__)
#include <xmmintrin.h>
#endif

namespace varitap {

class FlushDenormals {
public:
#if defined(__SSE2__)
    // MXCSR bits: flush to zero (15), denormals are zero (6).
    static constexpr uint32_t kFlushBits = 0x8040u;
    using Mode = uint32_t;
    static Mode mode() { return _mm_getcsr(); }
    static void setMode(Mode mode) { _mm_setcsr(mode); }
#elif defined(__aarch64__)
    // FPCR bit 24, FZ.
    static constexpr uint64_t kFlushBits = uint64_t(1) << 24;
    using Mode = uint64_t;
    static Mode mode() {
        Mode mode;
        asm volatile("mrs %0, fpcr" : "=r"(mode));
        return mode;
    }
    static void setMode(Mode mode) { asm volatile("msr fpcr, %0" : : "r"(mode)); }
#else
    // No known control: subnormals stay as the platform computes them.
    static constexpr uint32_t kFlushBits = 0u;
    using Mode = uint32_t;
    static Mode mode() { return 0u; }
    static void setMode(Mode) {}
#endif

    // The calling thread's floating-point mode with flushing on: only the
    // flushing bits are changed (rounding stays the caller's).
    FlushDenormals() : saved_(mode()) {
        if ((saved_ & kFlushBits) != kFlushBits) setMode(saved_ | kFlushBits);
    }
    // The whole register as it was, the sticky exception flags the block
    // raised included: the caller finds it exactly as it left it.
    ~FlushDenormals() { setMode(saved_); }
    FlushDenormals(const FlushDenormals&) = delete;
    FlushDenormals& operator=(const FlushDenormals&) = delete;

private:
    Mode saved_;  // the mode to put back
};

}  // namespace varitap
