#!/usr/bin/env bash
# Varitap in a real host: Debian's Ardour 7 (headless, through the shared
# run-ardour.sh harness) renders a 0.5 impulse at 48 kHz through the built
# bundle with tap 1 free at 14400 samples (300 ms), no feedback, mix 0.5 and
# tap 2 unrouted. Expected: all 241 parameters listed, the dry impulse at
# 0 ms and one echo exactly 300 ms later, both at -12 dB (0.25). Then the
# "Init" program as it stands, which follows Ardour's tempo (120 BPM): tap 1
# a "1/4" (500 ms) on the left, tap 2 a "1/8D" (375 ms) on the right, with
# their feedback repeats.
# Exits 77 (skipped) when Ardour or the harness is not installed.
set -u
bundle="${1:?usage: realhost-echo.sh BUNDLE HARNESS}"
harness="${2:?usage: realhost-echo.sh BUNDLE HARNESS}"

source "$(dirname "$0")/realhost-common.sh" "$harness"

log="$(mktemp /tmp/varitap-realhost.XXXXXX)"
out="$log.wav"
trap 'rm -f "$log" "$out"' EXIT
harness_run "$log" -l -o "$out" "$bundle" "${echo_settings[@]}"
rc=$?
grep -v paramlist "$log"
[ $rc -eq 0 ] || { echo "realhost: run-ardour.sh failed (rc $rc)"; exit 1; }
echo_checks "$log"
check "241 parameters loaded" '[[ "$summary" == *" params=241 "* ]]'

harness_run "$log" -o "$out" "$bundle"
rc=$?
grep '^REALHOST' "$log"
[ $rc -eq 0 ] || { echo "realhost: run-ardour.sh failed for the Init program (rc $rc)"; exit 1; }
init_checks "$log"
exit $fail
