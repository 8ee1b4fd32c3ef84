#!/usr/bin/env bash
# Shows the daemon's main job with a stand-in slave and two console masters.
#
# usage: demo.sh BIN_DIR
#
# Exit status: 0 if every step succeeded, 1 if one failed, 2 for wrong use.
set -u

readonly step_limit=10  # seconds
readonly alias="demo"

if [ $# -ne 1 ] || [ ! -d "$1" ]; then
    echo "usage: demo.sh BIN_DIR, the folder of the built programs" >&2
    exit 2
fi

work=$(mktemp -d) || exit 1
declare -A running=()  # pid of each process that has not been reaped -> its name

# Copies, because the daemon looks for its log flags beside its executable.
for program in quelta_daemon quelta_master quelta_standin_slave; do
    if ! cp "$1/$program" "$work/" 2>/dev/null; then
        echo "demo: there is no $program in $1; build it first" >&2
        rm -rf "$work"
        exit 2
    fi
done

# Ends the newest process first, so that a master can give its slave back to the daemon.
clean_up() {
    local pid
    for pid in $(printf '%s\n' "${!running[@]}" | sort -rn); do
        kill -TERM "$pid" 2>/dev/null
        ended_within 15 "$pid" || kill -KILL "$pid" 2>/dev/null
    done
    rm -rf "$work"
}
trap clean_up EXIT

say() { echo "demo: $*"; }

# show LOG TEXT [COUNT]: prints the last lines of the log that contain the text.
show() { grep -F -- "$2" "$work/$1" | tail -n "${3:-1}" | sed 's/^/        /'; }

fail() {
    say "FAILED: expected $*" >&2
    local log
    for log in "$work"/*.log; do
        echo "---- end of $(basename "$log")" >&2
        tail -n 20 "$log" >&2
    done
    exit 1
}

# within SECONDS COMMAND...: retries the command until it succeeds or the time is up.
within() {
    local end=$((SECONDS + $1 + 1))
    shift
    until "$@"; do
        [ "$SECONDS" -lt "$end" ] || return 1
        sleep 0.05
    done
}

# has LOG TEXT [COUNT]: succeeds if at least COUNT lines (1) contain the text.
has() { [ "$(grep -cF -- "$2" "$work/$1")" -ge "${3:-1}" ]; }

ended() { ! kill -0 "$1" 2>/dev/null; }
ended_within() { within "$1" ended "$2"; }

# expect LOG TEXT [COUNT]: waits for the text in the log and prints its lines.
expect() {
    within "$step_limit" has "$@" || fail "\"$2\" in $1"
    show "$@"
}

# start NAME COMMAND...: starts it in the background with its output in NAME.log; its pid in
# $started.
start() {
    local name=$1
    shift
    : >"$work/$name.log"
    "$@" >"$work/$name.log" 2>&1 &
    started=$!
    running[$started]=$name
}

# expect_end PID STATUS: waits until the process ends and checks its exit status.
expect_end() {
    local name=${running[$1]} status
    ended_within "$step_limit" "$1" || fail "$name to end"
    wait "$1"
    status=$?
    unset "running[$1]"
    [ "$status" -eq "$2" ] || fail "$name to end with status $2, not $status"
}

port_is_free() {
    ! grep -q "^ *[0-9]*: [0-9A-F]*:$(printf %04X "$1") " /proc/net/udp /proc/net/tcp 2>/dev/null
}

start_daemon() {
    printf 'daemon 1\ndaemonDetail 1\n' >"$work/quelta_daemon_log_flags.txt"

    for _ in 1 2 3 4 5; do
        port=$((20000 + RANDOM % 10000))
        port_is_free "$port" || continue
        start daemon "$work/quelta_daemon" --port "$port" --slave "$work/quelta_standin_slave" --alias "$alias"
        daemon=$started
        within "$step_limit" has daemon.log "start listening for masters on port $port" ||
            fail "the daemon to listen"

        # If the port is taken after all, the bind error is the daemon's next line: try the
        # next port.
        "$work/quelta_master" scan "127.0.0.1:$port" --timeout 3 >"$work/scan.log" 2>&1 && return
        has daemon.log "failed to bind to address" || fail "the daemon to answer a scan"
        kill -TERM "$daemon"
        expect_end "$daemon" 0
    done

    fail "a free port"
}

# scan TEXT: scans the node and fails unless the table contains the text.
scan() {
    "$work/quelta_master" scan "$node" >"$work/scan.log" 2>&1 || fail "the scan to succeed"
    has scan.log "$1" || fail "\"$1\" in the table"
    sed 's/^/        /' "$work/scan.log"
}

say "1. the daemon starts, asks its slave for version and GPUs, and waits for masters"
start_daemon
node=127.0.0.1:$port
show daemon.log "  slave alias:   $alias"
show daemon.log "  version:"
show daemon.log "  provided GPUs:"
show daemon.log "start listening for masters on port $port"

say "2. a master finds it by beacon: it is free"
scan " free"

say "3. the first master starts the slave"
start first "$work/quelta_master" hold "$node" --text "first master"
first=$started
expect first.log "$node starting for "
expect first.log "$node running"
expect daemon.log "that the slave is initialized and running"

say "4. the slave's heart beats: the daemon's log"
expect daemon.log "received heartbeat message 'SLAVE_STATUS' from slave" 3

say "5. a second master steals it: the slave is stopped and started anew"
start second "$work/quelta_master" steal "$node" --text "second master"
second=$started
expect daemon.log "stopping Quelta slave for master"
expect second.log "$node starting for "
expect second.log "$node running"
expect first.log "$node stolen by "
expect_end "$first" 1
scan "second master"

say "6. the second master gives it back: the slave is stopped, the node is free again"
kill -INT "$second"
expect daemon.log "received stop request from master"
expect second.log "$node stopped: the node is free"
expect_end "$second" 0
scan " free"

say "7. the daemon is told to end (Ctrl-C)"
kill -INT "$daemon"
expect_end "$daemon" 0
expect daemon.log "closing down all existing master connections"
expect daemon.log "Stopped logging on"

# One slave for the information run and one for each master.
slaves=$(sed -n 's/^standin: pid: //p' "$work/daemon.log")
[ "$(echo "$slaves" | wc -w)" -eq 3 ] || fail "three slaves to have run"
for pid in $slaves; do
    ended "$pid" || fail "no slave to be left"
done

say "all of it happened, in $SECONDS s"
