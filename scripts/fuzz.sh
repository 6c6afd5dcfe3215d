#!/usr/bin/env bash
# Fuzzes Varitap with libFuzzer under AddressSanitizer and
# UndefinedBehaviorSanitizer, for a fixed total time (default 60 s): a third
# on the presets file reader (from the test fixtures), the rest on the whole
# plug-in driven through its entry point by a fake host (from the seeds in
# tests/data/fuzz/plugin/). Built by the CMake preset "fuzz" (clang) in
# build/fuzz, apart from the normal gcc builds.
#
#   scripts/fuzz.sh [seconds]
#
# Exits non-zero when a fuzzer finds a crash, a leak, a hang (over 10 s for
# one input) or undefined behaviour; the input that did it is left in
# build/fuzz/artifacts/.
set -euo pipefail
cd "$(dirname "$0")/.."

seconds="${1:-60}"
out=build/fuzz
cmake --preset fuzz >/dev/null
cmake --build --preset fuzz -j "$(nproc)"
mkdir -p "$out/corpus/presets" "$out/corpus/plugin" "$out/artifacts"

cp tests/data/presets/*.xml "$out/corpus/presets/"
cp "$out"/Varitap.vst/Contents/Resources/*.xml "$out/corpus/presets/"
# The plug-in seeds are hex with comments, in the fuzzer's input format.
for hex in tests/data/fuzz/plugin/*.hex; do
  printf "$(sed 's/#.*//' "$hex" | tr -dc '0-9a-fA-F' | sed 's/../\\x&/g')" \
    >"$out/corpus/plugin/$(basename "$hex" .hex)"
done

# The plug-in fuzzer keeps the plug-in's configuration files in TMPDIR, in
# memory where possible; removed here also when a crash ends the fuzzer.
scratch=$(mktemp -d -p /dev/shm 2>/dev/null || mktemp -d)
trap 'rm -rf "$scratch"' EXIT

run() {
  local name=$1 corpus=$2 time=$3 max_len=$4
  echo "=== fuzzing: $name, $time s ==="
  TMPDIR="$scratch" "$out/tests/fuzz/$name" "$out/corpus/$corpus" -max_total_time="$time" -timeout=10 \
    -rss_limit_mb=2048 -max_len="$max_len" -artifact_prefix="$out/artifacts/$corpus-" -print_final_stats=1
}

# libFuzzer reads a time of 0 as no limit: each gets a second at least.
presets_time=$((seconds / 3 > 0 ? seconds / 3 : 1))
plugin_time=$((seconds - presets_time > 0 ? seconds - presets_time : 1))
status=0
run varitap_preset_file_fuzz presets "$presets_time" 65536 || status=1
run varitap_plugin_fuzz plugin "$plugin_time" 4096 || status=1
exit $status
