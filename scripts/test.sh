#!/usr/bin/env bash
# Builds Varitap and runs every test: in the optimised build, in the
# ThreadSanitizer build (the tests labelled "threads" only) and in the
# AddressSanitizer + UndefinedBehaviorSanitizer build, which runs last so
# that the output ends with its ctest summary. Installs missing Debian
# packages first. Exits non-zero when any build or test failed.
set -uo pipefail
cd "$(dirname "$0")/.."

bash scripts/setup.sh || exit 1

jobs=$(nproc)
status=0

build() {
  local preset=$1
  echo "=== $preset build ==="
  cmake --preset "$preset" >/dev/null && cmake --build --preset "$preset" -j "$jobs"
}

run_tests() {
  local preset=$1
  echo "=== $preset tests ==="
  ctest --preset "$preset" -j "$jobs" --timeout 600 || status=1
}

if build release; then run_tests release; else status=1; fi

if build tsan; then
  # The preset selects the tests labelled "threads"; skip when there are none.
  if ctest --preset tsan -N 2>/dev/null | grep -q 'Total Tests: [1-9]'; then
    run_tests tsan
  else
    echo "=== tsan tests: none labelled threads ==="
  fi
else
  status=1
fi

if build debug; then run_tests debug; else status=1; fi

exit $status
