#!/usr/bin/env bash
# What the benchmarks need beyond the build: the peer plug-in of the paired
# run (Debian's LSP plug-ins, VST 2 builds) and Python for its test signal.
set -euo pipefail
cd "$(dirname "$0")/.."
exec scripts/setup.sh python3 lsp-plugins-vst
