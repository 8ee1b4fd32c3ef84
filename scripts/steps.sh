# shellcheck shell=bash
# Sourced by ./test and scripts/wine_rounds.sh: counted steps, and commands under a time limit.

passed=0
failed=0
mkdir -p build
export QUELTA_FAILURES=$PWD/build/failures.txt # one line per failed step or test
: >"$QUELTA_FAILURES"

# step NAME COMMAND...: runs the command and counts whether it passed.
step() {
    local name=$1 began=$SECONDS
    shift
    printf '\n=== %s\n' "$name"
    if "$@"; then
        passed=$((passed + 1))
        printf -- '--- %s: passed (%d s)\n' "$name" $((SECONDS - began))
    else
        failed=$((failed + 1))
        echo "$name" >>"$QUELTA_FAILURES"
        printf -- '--- %s: FAILED (%d s)\n' "$name" $((SECONDS - began))
        return 1
    fi
}

# limited [--while PID] SECONDS COMMAND...: ends the command and everything that it started when the
# time is up. scripts/limited.py describes the rest.
limited() {
    /usr/bin/python3 "$(dirname "${BASH_SOURCE[0]}")/limited.py" "$@"
}

# steps_end: lists the failures and prints the counts. CI reads the last line.
steps_end() {
    echo
    sed 's/^/failed: /' "$QUELTA_FAILURES"
    echo "$passed passed, $failed failed"
    [ "$failed" -eq 0 ]
}
