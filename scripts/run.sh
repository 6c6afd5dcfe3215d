#!/usr/bin/env bash
# The one command for a fresh machine: installs the Debian packages Varitap
# needs, builds the optimised preset, installs the bundle where local hosts
# look for it, and renders the demo through the plug-in with varitap-render.
# Extra arguments go to varitap-render, e.g.
#   bash scripts/run.sh --preset "Folder/Name" --tempo 96
set -euo pipefail
cd "$(dirname "$0")/.."

bash scripts/setup.sh

cmake --preset release >/dev/null
cmake --build --preset release -j "$(nproc)"

if [ -f scripts/install.sh ]; then
  bash scripts/install.sh
else
  echo "run: scripts/install.sh is missing; the bundle stays in build/release/Varitap.vst"
fi

demo_dir="build/release/demo"
mkdir -p "$demo_dir"
wav="$(pwd)/$demo_dir/varitap-demo.wav"
png="$(pwd)/$demo_dir/varitap-demo.png"
build/release/tools/render/varitap-render \
  --plugin build/release/Varitap.vst -o "$wav" --plot "$png" "$@"

echo
echo "The demo rendered through Varitap:"
echo "  WAV: $wav"
echo "  PNG: $png"
