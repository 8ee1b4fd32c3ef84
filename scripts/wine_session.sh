#!/usr/bin/env bash
# Runs a virtual display, Wine's server and its desktop. wine_begin starts it under
# scripts/limited.py, which ends all of it. Prints the display and the server's process id when they
# are ready, and ends with the server or on SIGTERM.
#
# All three run as long as the tests. Without a display JUCE's message loop delivers nothing. A
# server that ends with the last program costs seconds at every start. Without a desktop, the first
# program that needs one starts it, as a process that inherits the program's standard output: a test
# that reads this output to its end would wait for the desktop.
set -u
server=

# SIGINT lets the server save the registry.
end_server() {
    trap '' TERM
    [ -z "$server" ] || { kill -INT "$server" && wait "$server"; }
    exit 0
}
trap end_server TERM

# Xvfb picks a free display and prints its number.
begin_display() {
    local number
    coproc display { exec Xvfb -displayfd 1 -screen 0 640x480x16 -nolisten tcp 2>"$WINEPREFIX/xvfb.log"; }

    if ! read -r -t 60 -u "${display[0]}" number; then
        echo "Xvfb did not start:" >&2
        cat "$WINEPREFIX/xvfb.log" >&2
        return 1
    fi

    export DISPLAY=:$number
}

begin_server() {
    wineserver --foreground --persistent >"$WINEPREFIX/wineserver.log" 2>&1 &
    server=$!

    until wineserver -k0; do # signal 0 only asks whether a server runs
        kill -0 "$server" || return
        sleep 0.05
    done
}

set_up() {
    wine wineboot --init >/dev/null 2>&1 || return
    [ -e "$WINEPREFIX/set-up" ] && return

    # A crashed program must end without a dialogue box, which nothing would close.
    wine reg add 'HKCU\Software\Wine\WineDbg' /v ShowCrashDialog /t REG_DWORD /d 0 /f >/dev/null &&
        wine winecfg -v win10 && touch "$WINEPREFIX/set-up"
}

# A window keeps the desktop alive.
begin_desktop() {
    wine notepad </dev/null >/dev/null 2>&1 &

    for _ in {1..600}; do
        desktop_is_there && return
        sleep 0.1
    done

    echo "Wine made no desktop within a minute" >&2
    return 1
}

# Succeeds if the desktop of this session runs. Its parent has ended, so the runner, a subreaper and
# this shell's parent, has adopted it.
desktop_is_there() {
    local commands command stat parent
    mapfile -t commands < <(grep -lsz '^C:.*\\explorer\.exe' /proc/[0-9]*/cmdline)
    for command in "${commands[@]}"; do
        read -r stat 2>/dev/null <"${command%/cmdline}/stat" || continue
        read -r _ parent _ <<<"${stat##*) }"
        [ "$parent" -ne "$PPID" ] || return 0
    done
    return 1
}

begin_display && begin_server && set_up && begin_desktop || exit
echo "$DISPLAY $server"
wait "$server"
