#!/usr/bin/env bash
# The LV2 plug-in in a real host: Debian's Ardour 7 (headless, through the
# shared run-ardour.sh harness, the plug-in given by name with LV2_PATH on
# the built bundle's folder) renders a 0.5 impulse at 48 kHz with tap 1 free
# at 14400 samples (300 ms), no feedback, mix 0.5 and tap 2 unrouted: the
# dry impulse and one echo 300 ms later, both at -12 dB, as the VST 2 plug-in
# renders it. The session Ardour saved (plug-in, ports and the plug-in's
# state) is then reopened in a fresh Ardour process and exported again: the
# same samples. Last the "Init" program, which follows the tempo Ardour
# sends as time:Position (120 BPM): echoes at 375 and 500 ms with repeats.
# Exits 77 (skipped) when Ardour or the harness is not installed.
set -u
lv2dir="$(readlink -f "${1:?usage: realhost-lv2.sh LV2_DIR HARNESS}")"
harness="${2:?usage: realhost-lv2.sh LV2_DIR HARNESS}"

source "$(dirname "$0")/realhost-common.sh" "$harness"
export LV2_PATH="$lv2dir:/usr/lib/lv2"

log="$(mktemp /tmp/varitap-realhost-lv2.XXXXXX)"
out="$log.wav"
saved="$log.session"
work=""
trap 'rm -rf "$log" "$out" "$saved" ${work:+"$work"}' EXIT
# Each attempt saves its own session copy and work folder; an aborted one's
# go first (the harness refuses an existing --session-out folder).
before_attempt() {
  local kept
  kept="$(sed -n 's/^run-ardour: work folder kept: //p' "$log" | tail -1)"
  rm -rf "$saved" ${kept:+"$kept"}
}
harness_run "$log" --type LV2 -l -k --session-out "$saved" -o "$out" Varitap "${echo_settings[@]}"
rc=$?
work="$(sed -n 's/^run-ardour: work folder kept: //p' "$log" | tail -1)"
grep -v paramlist "$log"
[ $rc -eq 0 ] || { echo "realhost: run-ardour.sh failed (rc $rc)"; exit 1; }
echo_checks "$log"
check "found by name as an LV2 plug-in" '[[ "$summary" == *" type=LV2 found=true loaded=true "* ]]'

# The saved session, reopened: Ardour 7.3 may abort while it tears the
# export down (see realhost-common.sh); the file is complete by then.
need="$(sed -n 's/^need=//p' "$work/meta.txt")"
reopened="$work/reopened"
mkdir -p "$reopened"
for attempt in 1 2 3; do
  env XDG_CONFIG_HOME="$work/cfg" XDG_CACHE_HOME="$work/cache" RH_SESSION_DIR="$saved" RH_NEED="$need" \
    RH_OUT_DIR="$reopened" timeout 300 /usr/bin/ardour7-lua "$(dirname "$0")/realhost-lv2-reopen.lua" \
    </dev/null >"$log.reopen" 2>&1
  grep -q '^REOPEN exported' "$log.reopen" && break
  echo "realhost: reopening, attempt $attempt: $(grep -m1 -E 'REOPEN FAIL|signal|Abort' "$log.reopen")"
done
rm -f "$log.reopen"
bytes=$((need * 2 * 4))
check "the reopened session renders the same samples" \
  '[ -f "$reopened/reopened.wav" ] && cmp -s <(tail -c "$bytes" "$out") <(tail -c "$bytes" "$reopened/reopened.wav")'
if [ $fail -ne 0 ]; then
  ls -l "$out" "$reopened"
  cmp -l <(tail -c "$bytes" "$out") <(tail -c "$bytes" "$reopened/reopened.wav") | head -3
fi

harness_run "$log" --type LV2 -o "$out" Varitap
rc=$?
grep '^REALHOST' "$log"
[ $rc -eq 0 ] || { echo "realhost: run-ardour.sh failed for the Init program (rc $rc)"; exit 1; }
init_checks "$log"
exit $fail
