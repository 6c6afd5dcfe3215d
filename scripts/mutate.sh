#!/usr/bin/env bash
# Mutation testing: how many small faults in the code do the tests find?
#
#   scripts/mutate.sh [--seed N] [--count N] [--only FOLDER/] [--list]
#                     [--report FILE] [--replay REPORT] [--test-timeout S]
#
# Samples --count (default 150; at least 15 per folder) of the possible
# one-token changes in engine/, modulation/, host/, persistence/, editor/ and
# gui/ with a fixed seed (default 13): comparison, arithmetic and logical
# operators flipped, constants moved by one, conditions negated, statements
# and early returns removed. For each, in turn: the change is written into
# the source file, the CMake preset "mutate" (build/mutate, -O1) rebuilds the
# test programs of the labels that cover the folder (varitap_tests_<label>),
# the tests of those labels run (the real-host tests left out) with a time
# limit per test, and the file is restored. Each change is reported as
# killed, timed out, survived or invalid (does not compile; not counted), in
# build/mutate/mutants.tsv with the tests that failed, and the score is
# (killed + timed out) / (killed + timed out + survived).
# --resume REPORT keeps the results of an interrupted run of the same sample.
# --rerun killed,timeout (with --replay) runs only the mutants that had those
# statuses and keeps the others as they were.
# --replay REPORT tries the mutants of an earlier report again (found by
# their line's text where lines moved), to compare two versions of the tests.
# The sources must be unchanged while it runs. Needs python3.
set -euo pipefail
cd "$(dirname "$0")/.."
exec python3 scripts/mutate.py "$@"
