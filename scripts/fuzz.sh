#!/usr/bin/env bash
# Runs every fuzz target, one per core at a time. New inputs stay in the build folder; an input that
# crashes a target fails the run, which names it.
#
# usage: scripts/fuzz.sh BIN_DIR SECONDS, the time for each target
set -uo pipefail
bin=$(cd "$1" && pwd) || exit 1
export bin seconds=$2
cd "$(dirname "${BASH_SOURCE[0]}")/.." || exit 1

fuzz_one() {
    local name=$1 work="$bin/../fuzzing/$1"
    mkdir -p "$work/found" "$work/crashes"
    if "$bin/fuzz_$name" -max_total_time="$seconds" -max_len=4096 -rss_limit_mb=2048 -timeout=10 \
        -artifact_prefix="$work/crashes/" "$work/found" "tests/fuzz/corpus/$name" >"$work/log" 2>&1; then
        echo "  $name: $(grep -o 'Done [0-9]* runs' "$work/log" | tail -n 1)"
    else
        echo "  $name: FAILED, input kept in $work/crashes"
        tail -n 40 "$work/log"
        return 1
    fi
}
export -f fuzz_one

find tests/fuzz/corpus -mindepth 1 -maxdepth 1 -printf '%f\n' | sort |
    xargs -P "$(nproc)" -I{} bash -c 'fuzz_one {}'
