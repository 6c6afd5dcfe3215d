#!/usr/bin/env bash
# Debian's Qtractor plug-in scanner on the built CLAP module: fed
# "CLAP:<path>" as Qtractor feeds it, it must list Varitap, stereo in and
# out, with its 241 parameters. Skipped (77) where Qtractor is not installed.
# Usage: realhost-qtractor-scan.sh MODULE.clap
set -uo pipefail
module="${1:?module}"
scanner=/usr/lib/$(uname -m)-linux-gnu/qtractor/qtractor_plugin_scan
[ -x "$scanner" ] || { echo "skipped: $scanner is not installed"; exit 77; }
[ -f "$module" ] || { echo "no module $module"; exit 1; }
listing=$(echo "CLAP:$module" | timeout 60 "$scanner" 2>&1)
echo "$listing"
# TYPE|NAME|AUDIO IN:OUT|MIDI IN:OUT|PARAMETERS:OUTPUTS|FLAGS|PATH|INDEX|ID
echo "$listing" | grep -q "^CLAP|Varitap|2:2|0:0|241:0|[^|]*|$module|0|" || {
  echo "Qtractor does not list Varitap with 241 parameters"
  exit 1
}
