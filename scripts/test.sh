#!/usr/bin/env bash
# Builds Varitap and runs every test: once in the optimised build and once in
# the AddressSanitizer + UndefinedBehaviorSanitizer build. Installs missing
# Debian packages first.
set -euo pipefail
cd "$(dirname "$0")/.."

bash scripts/setup.sh

jobs=$(nproc)
status=0
for preset in release debug; do
  echo "=== $preset build ==="
  cmake --preset "$preset" >/dev/null
  cmake --build --preset "$preset" -j "$jobs"
  echo "=== $preset tests ==="
  ctest --preset "$preset" -j "$jobs" --timeout 600 || status=1
done
exit $status
