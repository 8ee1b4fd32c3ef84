#!/usr/bin/env bash
# scripts/unit_tests.sh PRESET COMMAND...: all unit tests of the program, in parts side by side because most of them
# wait. Shows what failed, without the lines of the slaves that the tests start. QUELTA_PREFIX is put in front of the
# command, QUELTA_FAILURES names the file that takes the failed tests.
set -uo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.." || exit 1
log=build/$1/unit_tests
parts=4
running=()
status=0
shift

for ((part = 0; part < parts; part++)); do
    GTEST_TOTAL_SHARDS=$parts GTEST_SHARD_INDEX=$part ${QUELTA_PREFIX:-} "$@" --gtest_brief=1 \
        </dev/null >"$log.$part.log" 2>&1 &
    running+=($!)
done

# The allocation tests, a program of their own in the same folder, are the last part.
${QUELTA_PREFIX:-} "${@/quelta_unit_tests/quelta_allocation_tests}" --gtest_brief=1 </dev/null >"$log.$parts.log" 2>&1 &
running+=($!)

for ((part = 0; part <= parts; part++)); do
    if wait "${running[part]}"; then
        grep -a '^\[==========\]\|^\[  PASSED\|^\[  SKIPPED' "$log.$part.log"
    else
        status=1
        grep -av '^standin: ' "$log.$part.log"
        grep -ao '^\[  FAILED  \] .*' "$log.$part.log" | sort -u | head -n 20 >>"${QUELTA_FAILURES:-/dev/null}"
    fi
done

exit "$status"
