#!/usr/bin/env bash
# Builds Varitap and runs every test: in the optimised build, in the
# ThreadSanitizer build (the tests labelled "threads" only), an aarch64
# cross build with an emulated check, a short fuzzing run of the presets
# reader and of the whole plug-in, and in the AddressSanitizer + UndefinedBehaviorSanitizer build, which runs last so
# that the output ends with its ctest summary. Installs missing Debian
# packages first (Debian's Qtractor, whose plug-in scanner checks the CLAP
# module, and Ardour for the real-host test where the shared harness that
# drives it is there). Exits non-zero when any build or test failed.
set -uo pipefail
cd "$(dirname "$0")/.."

# The real-host test drives Debian's Ardour through the team's shared
# harness; Ardour is installed only where that harness is.
realhost=()
[ -f ../shared/realhost/run-ardour.sh ] && [ "${VARITAP_REALHOST:-1}" != 0 ] && realhost=(ardour)
bash scripts/setup.sh qtractor "${realhost[@]}" || exit 1

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

# ThreadSanitizer: the preset builds the programs of the tests labelled
# "threads" (target varitap_tests_threads) and runs those tests only; other
# programs, such as ones that replace the allocation functions, need not
# work under it.
if build tsan; then run_tests tsan; else status=1; fi

# 64-bit Arm: the engine compiled for aarch64, its vector loops checked
# against the scalar ones under emulation.
echo "=== aarch64 ==="
bash scripts/check-aarch64.sh || status=1

# The presets reader and the whole plug-in under libFuzzer (clang,
# ASan+UBSan), for a fixed total time.
echo "=== fuzzing ==="
bash scripts/fuzz.sh "${VARITAP_FUZZ_SECONDS:-60}" || status=1

if build debug; then run_tests debug; else status=1; fi

exit $status
