# Sourced by ./test and other scripts: steps that are counted, and commands under a time limit.

passed=0
failed=0
mkdir -p build
export QUELTA_FAILURES=$PWD/build/failures.txt # scripts add the tests that failed, a line each
: >"$QUELTA_FAILURES"

# step NAME COMMAND...: runs it and keeps count.
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

# limited [--while PID] SECONDS COMMAND...: ends everything that the command started when the time is up.
limited() {
    /usr/bin/python3 "$(dirname "${BASH_SOURCE[0]}")/limited.py" "$@"
}

# steps_end: says what failed, and fails if anything did.
steps_end() {
    echo
    sed 's/^/failed: /' "$QUELTA_FAILURES"
    echo "$passed passed, $failed failed"
    [ "$failed" -eq 0 ]
}
