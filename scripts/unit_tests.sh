#!/usr/bin/env bash
# Runs the unit tests, in shards side by side because most tests wait. Shows what failed, without
# the output of the slaves that the tests start.
#
# usage: scripts/unit_tests.sh [-k NAME] PRESET COMMAND...
#   -k NAME    runs only tests with NAME in their full name, and shows all their output
#   COMMAND    ends with the path of quelta_unit_tests; runs quelta_allocation_tests beside it too
#
# QUELTA_PREFIX goes in front of the command. Failed tests are added to the file QUELTA_FAILURES.
set -uo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.." || exit 1

readonly shards=4
name=
if [ "$1" = -k ]; then
    name=$2
    shift 2
fi
logs=build/$1/unit_tests
unit_tests=${!#}
allocation_tests=$(dirname "$unit_tests")/$(basename "${unit_tests/%unit_tests*/allocation_tests}")
[[ $unit_tests != *.exe ]] || allocation_tests+=.exe
read -ra launcher <<<"${QUELTA_PREFIX:-}"
launcher+=("${@:2:$#-2}")

note_failures() {
    grep -ao '^\[  FAILED  \] .*' "$1" | sort -u | head -n 20 >>"${QUELTA_FAILURES:-/dev/null}"
}

# run_named PROGRAM: runs its tests with $name in their name, if it has any.
run_named() {
    local filter="--gtest_filter=*$name*" log=$logs.named.log
    local tests
    tests=$("${launcher[@]}" "$1" --gtest_list_tests "$filter" </dev/null 2>/dev/null)
    [[ $tests == *$'\n  '* ]] || return 0
    found=yes
    "${launcher[@]}" "$1" "$filter" </dev/null 2>&1 | tee "$log" && return
    status=1
    note_failures "$log"
}

# begin LOG PROGRAM: starts a program in the background; the environment selects its shard.
begin() {
    "${launcher[@]}" "$2" --gtest_brief=1 </dev/null >"$1" 2>&1 &
    running[$!]=$1
}

# finish PID: waits for it, and shows its summary or, if it failed, its output.
finish() {
    local log=${running[$1]}
    if wait "$1"; then
        grep -a '^\[==========\]\|^\[  PASSED\|^\[  SKIPPED' "$log"
    else
        status=1
        grep -av '^standin: ' "$log"
        note_failures "$log"
    fi
}

status=0
if [ -n "$name" ]; then
    found=
    run_named "$unit_tests"
    [ ! -e "$allocation_tests" ] || run_named "$allocation_tests"
    [ -n "$found" ] || { echo "no unit test has '$name' in its name" >&2; status=1; }
    exit "$status"
fi

declare -A running=() # pid -> log
for ((shard = 0; shard < shards; shard++)); do
    GTEST_TOTAL_SHARDS=$shards GTEST_SHARD_INDEX=$shard begin "$logs.$shard.log" "$unit_tests"
done
[ ! -e "$allocation_tests" ] || begin "$logs.allocation.log" "$allocation_tests"
for pid in "${!running[@]}"; do
    finish "$pid"
done
exit "$status"
