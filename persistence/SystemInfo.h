// The vector-unit probe behind hasVectorUnit.
#pragma once

#include "persistence/RefObject.h"

namespace varitap {

class SystemInfo : public SharedObject<SystemInfo> {
public:
    // construction thread. Asks the processor (SSE2 on x86-64, NEON on
    // aarch64) and sets the process-wide flag.
    SystemInfo();
    bool hasVectorUnit() const;
};

// any thread. Whether the per-block loops take their vector form. Set once
// from the processor's report; false when forced off for tests.
bool hasVectorUnit();

// Tests only: makes every loop take its scalar form (true) or follow the
// processor again (false).
void forceScalarForTesting(bool scalar);

}  // namespace varitap
