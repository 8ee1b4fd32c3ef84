#!/usr/bin/env bash
# scripts/end_to_end.sh SYSTEM PRESET [PYTEST ARGUMENT...]: the end-to-end tests against the programs of this preset.
# QUELTA_PREFIX is put in front of the command, QUELTA_FAILURES names the file that takes the failed tests.
set -uo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.." || exit 1
system=$1
folder=$PWD/build/$2
shift 2

QUELTA_SYSTEM=$system QUELTA_BIN_DIR=$folder/bin \
    ${QUELTA_PREFIX:-} /usr/bin/python3 -m pytest -q -o cache_dir="$folder/pytest_cache" "$@" tests/e2e |
    tee "$folder/end_to_end.log"
status=$?
[ "$status" -eq 0 ] ||
    grep -ao '^\(FAILED\|ERROR\) tests/.*' "$folder/end_to_end.log" | sort -u | head -n 20 >>"${QUELTA_FAILURES:-/dev/null}"
exit "$status"
