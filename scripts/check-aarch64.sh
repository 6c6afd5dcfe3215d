#!/usr/bin/env bash
# 64-bit Arm: compiles the platform-independent layers (object base, locks,
# options-free services, delay engine, filters, modulators) with Debian's
# aarch64 cross compiler and our warning flags, then runs the vector-against-
# scalar check of the per-block loops (lane kernels included, with and
# without flush to zero) under qemu's user-mode emulation.
# Skips (exit 0 with a message) when the cross compiler or qemu is missing.
set -euo pipefail
cd "$(dirname "$0")/.."

cxx=aarch64-linux-gnu-g++
if ! command -v "$cxx" >/dev/null || ! command -v qemu-aarch64 >/dev/null; then
  echo "aarch64: $cxx or qemu-aarch64 missing; skipped"
  exit 0
fi

out=build/aarch64
mkdir -p "$out"
flags=(-std=c++17 -O2 -ffp-contract=off -Wall -Wextra -Werror -I.)
# Everything that needs no library beyond the C++ runtime.
sources=(engine/*.cpp modulation/*.cpp persistence/RefObject.cpp persistence/ObjectList.cpp
         persistence/SystemInfo.cpp persistence/NumberFormat.cpp)
objects=()
for source in "${sources[@]}"; do
  object="$out/$(echo "$source" | tr / _).o"
  "$cxx" "${flags[@]}" -c "$source" -o "$object"
  objects+=("$object")
done
echo "aarch64: ${#sources[@]} files compiled"
"$cxx" "${flags[@]}" -static tests/cross/VectorKernelsCheck.cpp engine/VectorOps.cpp engine/VectorOpsAvx2.cpp \
  persistence/SystemInfo.cpp persistence/RefObject.cpp -o "$out/vector-kernels-check"
qemu-aarch64 "$out/vector-kernels-check"
