// The vector kernel set against the scalar one, built for another
// architecture and run under emulation (scripts/check-aarch64.sh): the checks
// the engine tests run on x86-64 (tests/engine/KernelChecks.h), from a plain
// main(), since the cross build has no test framework.
#include <cstdio>
#include <string>

#include "../engine/KernelChecks.h"
#include "persistence/SystemInfo.h"

int main() {
    using namespace varitap;
    if (!hasVectorUnit()) {
        std::printf("no vector unit reported\n");
        return 1;
    }
    const std::string difference = test::kernelSetDifference(vectorKernels());
    std::printf("%s\n", difference.empty() ? "the vector kernels equal the scalar ones" : difference.c_str());
    return difference.empty() ? 0 : 1;
}
