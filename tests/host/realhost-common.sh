# Shared by the real-host test scripts (sourced with the harness's path):
# the skip rules, harness_run, which repeats a run that Ardour itself
# aborted before its export, and the checks on the two renders every format
# makes: the echo settings and the "Init" program.
harness="${1:?usage: source realhost-common.sh HARNESS}"

# VARITAP_REALHOST=0 leaves Ardour out (it is the slowest test).
if [ "${VARITAP_REALHOST:-1}" = 0 ]; then
  echo "realhost: VARITAP_REALHOST=0; skipped"
  exit 77
fi
if [ ! -x /usr/bin/ardour7-lua ] || [ ! -x /usr/lib/ardour7/ardour-vst-scanner ] || [ ! -f "$harness" ]; then
  echo "realhost: Ardour 7 or the harness is missing (apt-get install ardour); skipped"
  exit 77
fi

# harness_run LOG ARGS...: the harness's output goes to LOG.
# Ardour 7.3's exporter now and then corrupts its own heap and aborts while
# it tears down an export ("free(): invalid pointer" under
# ExportGraphBuilder::reset or PortExportChannel's destructor). It does so
# with any plug-in and with none at all, more often on a loaded machine.
# After the export the harness shrugs it off; before, it retries on the
# session it has already saved, which then holds the plug-in twice, so that
# render means nothing. Such a run is repeated from scratch.
harness_run() {
  local to=$1
  shift
  local attempt rc
  for attempt in 1 2 3 4; do
    # A script may clear what an earlier attempt left behind.
    if declare -F before_attempt >/dev/null; then before_attempt; fi
    bash "$harness" "$@" >"$to" 2>&1
    rc=$?
    grep -q "died with signal" "$to" || return $rc
    echo "realhost: attempt $attempt: $(grep -m1 "died with signal" "$to")"
  done
  echo "realhost: FAIL Ardour died before the export in every attempt"
  return 1
}


fail=0
check() { if eval "$2"; then echo "realhost: PASS $1"; else echo "realhost: FAIL $1"; fail=1; fi; }

# A 0.5 impulse at 48 kHz with tap 1 free at 14400 samples (300 ms), no
# feedback, mix 0.5 and tap 2 unrouted (harness arguments).
echo_settings=(24=0 21=0.25715178 23=0 20=0.5 11=0 --expect-echo 300:0.05)

# echo_checks LOG: all 241 parameters listed with their names, the settings
# taken, the dry impulse and one echo 300 ms later, both at -12 dB (0.25).
echo_checks() {
  checked="$1"
  summary="$(grep '^REALHOST host=' "$checked")"
  peaks="$(grep '^REALHOST peaks_ms=' "$checked" | sed 's/^REALHOST peaks_ms=//')"
  check "241 parameters listed" '[ "$(grep -c "RH: paramlist " "$checked")" -eq 241 ]'
  check "parameter names" 'grep -q "paramlist 20 .Wet/Dry Mix Volume." "$checked" && grep -q "paramlist 97 .Auto #1 Power." "$checked"'
  check "all five settings taken" '[[ "$summary" == *" set=5/5 "* ]]'
  check "dry impulse and one echo at 300 ms, both -12 dB" '[ "$peaks" = "0.00:-12.0dB,300.00:-12.0dB" ]'
  check "finite, never over 0 dBFS" '[[ "$summary" == *" nonfinite=0 over_0dBFS=0 "* ]]'
}

# init_checks LOG: the "Init" program at Ardour's tempo (120 BPM): tap 1 a
# "1/4" (500 ms) on the left, tap 2 a "1/8D" (375 ms) on the right. Dry
# 0.5 x 0.563636 (-11.0 dB), echoes 0.5 x 0.436364 (-13.2 dB), then each
# repeat x 0.84217 (left) or x 0.83746 (right).
init_checks() {
  peaks="$(grep '^REALHOST peaks_ms=' "$1" | sed 's/^REALHOST peaks_ms=//')"
  check "Init: tempo-synchronised echoes at 375 and 500 ms with their repeats" \
    '[[ "$peaks" == "0.00:-11.0dB,375.00:-13.2dB,500.00:-13.2dB,750.00:-14.8dB,1000.00:-14.7dB,"* ]]'
}
