# Shared by the real-host test scripts (sourced with the harness's path):
# the skip rules and harness_run, which repeats a run that Ardour itself
# aborted before its export.
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
    bash "$harness" "$@" >"$to" 2>&1
    rc=$?
    grep -q "died with signal" "$to" || return $rc
    echo "realhost: attempt $attempt: $(grep -m1 "died with signal" "$to")"
  done
  echo "realhost: FAIL Ardour died before the export in every attempt"
  return 1
}

