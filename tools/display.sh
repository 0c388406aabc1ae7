# shellcheck shell=bash
# Sourced by ./run and ./test: a virtual screen of one's own.
#
# start_display SIZE   starts Xvfb on a free number and exports DISPLAY; false if it does not start
# stop_display         ends it; to be called before the script ends

display_pid=

start_display() {
    local number
    number=$(mktemp)
    Xvfb -displayfd 3 -screen 0 "$1" -nolisten tcp -noreset 3>"$number" >/dev/null 2>&1 </dev/null &
    display_pid=$!
    # The server writes its number once it takes connections.
    for _ in $(seq 100); do
        [ -s "$number" ] && break
        kill -0 "$display_pid" 2>/dev/null || break
        sleep 0.1
    done
    if [ ! -s "$number" ]; then
        stop_display
        rm -f "$number"
        return 1
    fi
    DISPLAY=":$(cat "$number")"
    export DISPLAY
    unset WAYLAND_DISPLAY XAUTHORITY
    rm -f "$number"
}

stop_display() {
    [ -n "$display_pid" ] || return 0
    kill "$display_pid" 2>/dev/null
    wait "$display_pid" 2>/dev/null
    display_pid=
}
