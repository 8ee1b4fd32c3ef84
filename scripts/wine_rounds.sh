#!/usr/bin/env bash
# Counts how often Wine's server dies under the Windows unit tests.
#
# usage: scripts/wine_rounds.sh [ROUNDS [SECONDS]]
# Runs the tests ROUNDS times (30), each under a new server and for at most SECONDS (900).
# Needs a build of the preset `windows`.
#
# Exit status: 0 if every round passed, 1 if a round failed or lost the server, 2 for wrong use.
set -uo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.." || exit 1
. scripts/steps.sh
. scripts/wine.sh
rounds=${1:-30}
seconds=${2:-900}
program=build/windows/bin/quelta_unit_tests.exe
died=0 failed_rounds=0 passed_rounds=0

if ! [[ $rounds =~ ^[1-9][0-9]*$ && $seconds =~ ^[1-9][0-9]*$ && -e $program ]]; then
    sed -n '4,6s/^# //p' "$0" >&2
    exit 2
fi

for ((round = 1; round <= rounds; round++)); do
    began=$SECONDS
    wine_begin build/windows/wine || exit 1
    limited --while "$wine_server" "$seconds" \
        scripts/unit_tests.sh windows wine "$program" >build/windows/round.log 2>&1
    status=$?

    # The programs may fail after a crash or before an orderly end, so the server's log decides.
    if wine_server_has_crashed; then
        died=$((died + 1))
        result="the server died: $(tail -n 1 "$WINEPREFIX/wineserver.log")"
    elif [ "$status" -eq 0 ]; then
        passed_rounds=$((passed_rounds + 1))
        result=passed
    else
        failed_rounds=$((failed_rounds + 1))
        result="failed with status $status"
    fi

    wine_end
    echo "round $round: $result ($((SECONDS - began)) s)"
    [ "$result" = passed ] || cp build/windows/round.log "build/windows/round.$round.log"
done

echo "$rounds rounds: $passed_rounds passed, $failed_rounds failed, the server died in $died"
[ "$passed_rounds" -eq "$rounds" ]
