#!/usr/bin/env bash
# Runs the end-to-end tests, or those of another folder, against the programs of a preset.
#
# usage: scripts/end_to_end.sh SYSTEM PRESET [--tests FOLDER] [PYTEST ARGUMENT...]
#
# QUELTA_PREFIX goes in front of the command. Failed tests are added to the file QUELTA_FAILURES.
set -uo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.." || exit 1
system=$1
folder=$PWD/build/$2
shift 2
tests=tests/e2e
if [ "${1:-}" = --tests ]; then
    tests=$2
    shift 2
fi
log=$folder/${tests//\//_}.log
read -ra launcher <<<"${QUELTA_PREFIX:-}"

QUELTA_SYSTEM=$system QUELTA_BIN_DIR=$folder/bin "${launcher[@]}" \
    /usr/bin/python3 -m pytest -q -o cache_dir="$folder/pytest_cache" "$@" "$tests" |
    tee "$log"
status=$?
[ "$status" -eq 0 ] || grep -ao '^\(FAILED\|ERROR\) tests/.*' "$log" |
    sort -u | head -n 20 >>"${QUELTA_FAILURES:-/dev/null}"
exit "$status"
