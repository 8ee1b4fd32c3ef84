#!/usr/bin/env bash
# Started by wine_begin under scripts/limited.py, which ends all of it: a virtual display, Wine's server, its desktop.
# When they are ready, prints the display and the server's process id. Ends with the server, or on SIGTERM.
#
# All three live through the run. Without a display JUCE's message loop never delivers anything. A server that ends with
# the last program costs seconds at every start. And the first program that needs a desktop starts it, as a process that
# keeps the program's standard output open: a test that reads this output to its end would wait for the desktop's.
set -u
server=

# The server saves the registry when it ends this way.
end_server() {
    trap '' TERM
    [ -z "$server" ] || { kill -INT "$server" && wait "$server"; }
    exit 0
}
trap end_server TERM

# The X server picks a display that is free, and tells its number.
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

    until wineserver -k0; do # which only asks whether it is there
        kill -0 "$server" || return
        sleep 0.05
    done
}

set_up() {
    wine wineboot --init >/dev/null 2>&1 || return
    [ -e "$WINEPREFIX/set-up" ] && return

    # A crashed program just ends: nobody is there to close a dialogue box.
    wine reg add 'HKCU\Software\Wine\WineDbg' /v ShowCrashDialog /t REG_DWORD /d 0 /f >/dev/null &&
        wine winecfg -v win10 && touch "$WINEPREFIX/set-up"
}

# A window that nobody closes holds the desktop.
begin_desktop() {
    local tries
    wine notepad </dev/null >/dev/null 2>&1 &

    for tries in {1..600}; do
        desktop_is_there && return
        sleep 0.1
    done

    echo "Wine made no desktop within a minute" >&2
    return 1
}

# Its parent has ended, so it is a child of the runner, which is this shell's parent.
desktop_is_there() {
    local process stat
    for process in $(grep -lsz '^C:.*\\explorer\.exe' /proc/[0-9]*/cmdline); do
        read -r stat <"${process%/cmdline}/stat" || continue
        set -- ${stat##*) }
        [ "$2" -ne "$PPID" ] || return 0
    done 2>/dev/null
    return 1
}

begin_display && begin_server && set_up && begin_desktop || exit
echo "$DISPLAY $server"
wait "$server"
