# shellcheck shell=bash
# Sourced by ./test and by scripts: Wine for the Windows programs.
#
# scripts/wine_session.sh runs Wine's server and what it needs as one tree of processes under a time
# limit, and wine_end ends that tree. Run Windows programs under a limit of their own too: they wait
# for ever for a server that has died. `limited --while "$wine_server" SECONDS COMMAND...` ends them
# when it dies.

wine_scripts=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
wine_session_limit=14400 # seconds
wine_start_limit=300
wine_session=
wine_server=

# wine_begin FOLDER: starts Wine with the prefix in this folder, which it creates if necessary. Wine
# ends with the shell at the latest.
wine_begin() {
    mkdir -p "$1" || return
    WINEPREFIX=$(cd "$1" && pwd)
    export WINEPREFIX WINEARCH=win64 WINEDEBUG=-all LC_ALL=C.UTF-8
    # The tests need no .NET, no HTML and no menu entries.
    export WINEDLLOVERRIDES='mscoree=;mshtml=;winemenubuilder.exe='

    if timeout 60 wineserver -k0; then
        echo "Wine is already running in $WINEPREFIX. If a killed run left it, end it with" >&2
        echo "  WINEPREFIX=$WINEPREFIX wineserver -k" >&2
        return 1
    fi

    trap wine_end EXIT
    coproc wine_coproc {
        exec /usr/bin/python3 "$wine_scripts/limited.py" "$wine_session_limit" \
            "$wine_scripts/wine_session.sh" 2>"$WINEPREFIX/session.log"
    }
    wine_session=${wine_coproc_PID?}

    if ! read -r -t "$wine_start_limit" -u "${wine_coproc[0]}" DISPLAY wine_server; then
        echo "Wine did not start within $wine_start_limit s:" >&2
        wine_end
        cat "$WINEPREFIX/session.log" >&2
        return 1
    fi

    export DISPLAY
}

# Succeeds if the server has died of its own fault; its log says so.
wine_server_has_crashed() {
    [ -n "$wine_server" ] && ! kill -0 "$wine_server" 2>/dev/null &&
        grep -q -e 'Assertion .* failed' -e 'wineserver crashed' "$WINEPREFIX/wineserver.log"
}

# Ends everything that wine_begin started. Programs that still run under its server end with it.
wine_end() {
    [ -z "$wine_session" ] || { kill "$wine_session"; wait "$wine_session"; } 2>/dev/null
    wine_session=
    wine_server=
    trap - EXIT
}
