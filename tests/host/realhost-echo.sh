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
harness_run "$log" -l -o "$out" "$bundle" \
  24=0 21=0.25715178 23=0 20=0.5 11=0 --expect-echo 300:0.05
rc=$?
grep -v paramlist "$log"
[ $rc -eq 0 ] || { echo "realhost: run-ardour.sh failed (rc $rc)"; exit 1; }

fail=0
check() { if eval "$2"; then echo "realhost: PASS $1"; else echo "realhost: FAIL $1"; fail=1; fi; }
summary="$(grep '^REALHOST host=' "$log")"
peaks="$(grep '^REALHOST peaks_ms=' "$log" | sed 's/^REALHOST peaks_ms=//')"
check "241 parameters loaded" '[[ "$summary" == *" params=241 "* ]]'
check "241 parameters listed" '[ "$(grep -c "RH: paramlist " "$log")" -eq 241 ]'
check "parameter names" 'grep -q "paramlist 20 .Wet/Dry Mix Volume." "$log" && grep -q "paramlist 97 .Auto #1 Power." "$log"'
check "all five settings taken" '[[ "$summary" == *" set=5/5 "* ]]'
check "dry impulse and one echo at 300 ms, both -12 dB" '[ "$peaks" = "0.00:-12.0dB,300.00:-12.0dB" ]'
check "finite, never over 0 dBFS" '[[ "$summary" == *" nonfinite=0 over_0dBFS=0 "* ]]'

harness_run "$log" -o "$out" "$bundle"
rc=$?
grep '^REALHOST' "$log"
[ $rc -eq 0 ] || { echo "realhost: run-ardour.sh failed for the Init program (rc $rc)"; exit 1; }
peaks="$(grep '^REALHOST peaks_ms=' "$log" | sed 's/^REALHOST peaks_ms=//')"
# Dry 0.5 x 0.563636 (-11.0 dB), echoes 0.5 x 0.436364 (-13.2 dB), then
# each repeat x 0.84217 (left) or x 0.83746 (right).
check "Init: tempo-synchronised echoes at 375 and 500 ms with their repeats" \
  '[[ "$peaks" == "0.00:-11.0dB,375.00:-13.2dB,500.00:-13.2dB,750.00:-14.8dB,1000.00:-14.7dB,"* ]]'
exit $fail
