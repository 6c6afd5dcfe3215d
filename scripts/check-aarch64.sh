#!/usr/bin/env bash
# 64-bit Arm: the CMake preset "aarch64" cross-compiles the layers that need
# nothing beyond the C++ runtime (object base, engine, filters, modulators)
# with Debian's aarch64 compiler and our warning flags, and its test runs
# the check of the vector loops against the scalar ones under qemu's
# user-mode emulation. Skips (exit 0 with a message) when the cross compiler
# or qemu is missing.
set -euo pipefail
cd "$(dirname "$0")/.."

if ! command -v aarch64-linux-gnu-g++ >/dev/null || ! command -v qemu-aarch64 >/dev/null; then
  echo "aarch64: aarch64-linux-gnu-g++ or qemu-aarch64 missing; skipped"
  exit 0
fi
cmake --preset aarch64 >/dev/null
cmake --build --preset aarch64 -j "$(nproc)"
ctest --preset aarch64
