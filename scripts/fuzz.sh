#!/usr/bin/env bash
# Fuzzes the presets file reader and the preset library's readProperties with
# libFuzzer under AddressSanitizer and UndefinedBehaviorSanitizer, for a fixed
# time (default 60 s), starting from the test fixtures. Built with clang in its
# own folder, apart from the normal gcc build.
#
#   scripts/fuzz.sh [seconds]
#
# Exits non-zero when the fuzzer finds a crash, a leak, a hang (over 10 s for
# one input) or undefined behaviour; the input that did it is left in
# build/fuzz/artifacts/.
set -euo pipefail
cd "$(dirname "$0")/.."

seconds="${1:-60}"
out=build/fuzz
mkdir -p "$out/obj" "$out/corpus" "$out/artifacts"

cxx="${CXX_FUZZ:-clang++}"
flags=(-std=c++17 -g -O1 -fsanitize=fuzzer-no-link,address,undefined -fno-sanitize-recover=undefined
       -I. $(pkg-config --cflags libxml-2.0))
sources=(
  persistence/RefObject.cpp persistence/ObjectList.cpp persistence/PropertyValue.cpp
  persistence/ByteStream.cpp persistence/XmlPropertyWriter.cpp persistence/XmlReaderBase.cpp
  persistence/PresetXmlReader.cpp persistence/Preset.cpp persistence/PresetLibrary.cpp
  tests/fuzz/PresetFileFuzz.cpp
)
objects=()
for source in "${sources[@]}"; do
  object="$out/obj/$(echo "$source" | tr / _).o"
  if [ ! -e "$object" ] || [ "$source" -nt "$object" ]; then
    "$cxx" "${flags[@]}" -c "$source" -o "$object"
  fi
  objects+=("$object")
done
"$cxx" -fsanitize=fuzzer,address,undefined "${objects[@]}" $(pkg-config --libs libxml-2.0) \
  -o "$out/preset-file-fuzz"

cp tests/data/presets/*.xml "$out/corpus/"
[ -d build/release/Varitap.vst ] && cp build/release/Varitap.vst/Contents/Resources/*.xml "$out/corpus/" 2>/dev/null || true

"$out/preset-file-fuzz" "$out/corpus" -max_total_time="$seconds" -timeout=10 -rss_limit_mb=2048 \
  -max_len=65536 -artifact_prefix="$out/artifacts/" -print_final_stats=1
