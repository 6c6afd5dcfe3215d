#include "persistence/SystemInfo.h"

#include <atomic>

#if defined(__aarch64__)
#include <asm/hwcap.h>
#include <sys/auxv.h>
#endif

namespace varitap {

namespace {

// What the processor reports: SSE2 is part of every x86-64 processor; on
// 64-bit Arm the kernel's hardware capabilities say whether Advanced SIMD
// (NEON) is there. Anything else runs the scalar loops.
bool processorHasVectorUnit() {
#if defined(__x86_64__) && defined(__SSE2__)
    return true;
#elif defined(__aarch64__)
    return (getauxval(AT_HWCAP) & HWCAP_ASIMD) != 0;
#else
    return false;
#endif
}

// Both flags are read on the audio thread at the top of every block loop:
// relaxed atomic loads, as cheap as plain ones. The processor's answer is
// known from load time, so loops that run before any SystemInfo exists (tools,
// tests) agree with those that run after; SystemInfo's creation stores it again.
std::atomic<bool> gProcessorVector{processorHasVectorUnit()};
std::atomic<bool> gForceScalar{false};

}  // namespace

SystemInfo::SystemInfo() { gProcessorVector.store(processorHasVectorUnit(), std::memory_order_relaxed); }

bool SystemInfo::hasVectorUnit() const { return varitap::hasVectorUnit(); }

bool hasVectorUnit() {
    return gProcessorVector.load(std::memory_order_relaxed) && !gForceScalar.load(std::memory_order_relaxed);
}

void forceScalarForTesting(bool scalar) { gForceScalar.store(scalar, std::memory_order_relaxed); }

}  // namespace varitap
