# Sourced by ./test: Wine for the Windows programs.
#
# One virtual display, one server and one desktop live through the run. Without a display the framework's message
# loop never delivers anything. A server that ends with the last program costs seconds at every start. And the first
# program that needs a desktop starts it, as a process that keeps the program's standard output open: whoever reads
# that output to its end would wait for the desktop's.

wine_server=
wine_display=
wine_window=
wine_watcher=

# wine_begin FOLDER: uses the prefix in this folder, which is made at first. Ends with the shell at the latest.
wine_begin() {
    mkdir -p "$1" || return
    WINEPREFIX=$(cd "$1" && pwd)
    export WINEPREFIX WINEARCH=win64 WINEDEBUG=-all LC_ALL=C.UTF-8
    # Neither .NET, nor HTML, nor entries in the desktop's menus are of any use here.
    export WINEDLLOVERRIDES='mscoree=;mshtml=;winemenubuilder.exe='

    if wineserver -k0; then
        echo "Wine runs already in $WINEPREFIX. If that is left over from a run that was killed, end it with" >&2
        echo "  WINEPREFIX=$WINEPREFIX wineserver -k" >&2
        return 1
    fi

    trap wine_end EXIT
    wine_begin_display && wine_begin_server && wine_set_up && wine_begin_desktop || return
    wine_watch_server &
    wine_watcher=$!
}

# The X server picks a display that is free, and tells its number.
wine_begin_display() {
    local number
    coproc WINE_X { exec Xvfb -displayfd 1 -screen 0 640x480x16 -nolisten tcp 2>"$WINEPREFIX/xvfb.log"; }
    wine_display=$WINE_X_PID

    if ! read -r -t 60 -u "${WINE_X[0]}" number; then
        echo "Xvfb did not start:" >&2
        cat "$WINEPREFIX/xvfb.log" >&2
        return 1
    fi

    export DISPLAY=:$number
}

wine_begin_server() {
    wineserver --foreground --persistent >"$WINEPREFIX/wineserver.log" 2>&1 &
    wine_server=$!

    while ! wineserver -k0; do # which only asks whether it is there
        kill -0 "$wine_server" || return
        sleep 0.05
    done
}

# Programs wait for ever for a server that has crashed, and whoever waits for them does too.
wine_watch_server() {
    while kill -0 "$wine_server" 2>/dev/null; do
        sleep 1
    done
    wine_kill_processes
}

# The server says so itself.
wine_server_has_crashed() {
    [ -n "$wine_server" ] && ! kill -0 "$wine_server" 2>/dev/null &&
        grep -q -e 'Assertion .* failed' -e 'wineserver crashed' "$WINEPREFIX/wineserver.log"
}

wine_set_up() {
    wine wineboot --init >/dev/null 2>&1 || return
    [ -e "$WINEPREFIX/set-up" ] && return

    # A crashed program just ends: nobody is there to close a dialogue box.
    wine reg add 'HKCU\Software\Wine\WineDbg' /v ShowCrashDialog /t REG_DWORD /d 0 /f >/dev/null &&
        wine winecfg -v win10 && touch "$WINEPREFIX/set-up"
}

# A window that nobody closes holds the desktop.
wine_begin_desktop() {
    local tries
    wine notepad </dev/null >/dev/null 2>&1 &
    wine_window=$!

    for tries in {1..600}; do
        wine_desktop_is_there && return
        sleep 0.1
    done

    echo "Wine made no desktop within a minute" >&2
    return 1
}

wine_desktop_is_there() {
    local process
    for process in $(wine_processes); do
        grep -qsz '^C:.*\\explorer\.exe' "/proc/$process/cmdline" && return
    done
    return 1
}

# The ids of all programs of Wine's that run in this prefix.
wine_processes() {
    local environ
    for environ in $(grep -lsxzF "WINEPREFIX=$WINEPREFIX" /proc/[0-9]*/environ); do
        environ=${environ%/environ}
        [[ $(readlink "$environ/exe") != */wine/* ]] || echo "${environ#/proc/}"
    done
}

wine_kill_processes() {
    local processes
    processes=$(wine_processes)
    [ -z "$processes" ] || kill -KILL $processes 2>/dev/null
}

# Ends what wine_begin has started; programs that still run under its server end with it.
wine_end() {
    [ -z "$wine_watcher" ] || { kill "$wine_watcher"; wait "$wine_watcher"; } 2>/dev/null
    # Programs that find no server start another.
    if wine_server_has_crashed; then
        wineserver -k
        wine_kill_processes
    fi
    [ -z "$wine_server" ] || { kill -INT "$wine_server"; wait "$wine_server"; } 2>/dev/null
    [ -z "$wine_window" ] || { kill -KILL "$wine_window"; wait "$wine_window"; } 2>/dev/null
    [ -z "$wine_display" ] || { kill "$wine_display"; wait "$wine_display"; } 2>/dev/null
    wine_server=
    wine_display=
    wine_window=
    wine_watcher=
    trap - EXIT
}
