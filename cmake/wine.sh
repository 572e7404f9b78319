#!/usr/bin/env bash
# Wine for the Windows build: one 64-bit Wine prefix per build folder, made on first use.
#
#   cmake/wine.sh PREFIX run PROGRAM.exe [ARGS...]   # what CTest runs each test program with
#   cmake/wine.sh PREFIX start                        # before a test run: the prefix made and
#                                                      # a Wine server kept running for it
#   cmake/wine.sh PREFIX stop                         # after it: that server ended
#
# With STASHWELL_WINE_DISPLAY=xvfb (the window's tests), a program runs on an X server (Xvfb),
# since Wine draws no window without one: the one that start began for the whole run, or one of
# its own for a program run without start. Such programs have a prefix of their own,
# PREFIX-window: Wine's desktop process, shared by every program of a prefix, stays on the
# display it first met, and in the shared prefix a program without a display (a test of the
# program run headless) could start it first, or again after it ended, and leave every window
# test after it without a window.
#
# Making a prefix takes Wine several seconds; two programs that start on a prefix not made yet
# would both make it and the second can hang, so the making is done once, under a lock, before
# any program runs. A server kept running (wineserver -p) spares each of the many short test
# programs the start of a server of its own; without one, each starts one as usual.
set -euo pipefail
prefix=${1:?usage: wine.sh PREFIX run|start|stop [PROGRAM ARGS...]}
mode=${2:?usage: wine.sh PREFIX run|start|stop [PROGRAM ARGS...]}
shift 2
base=$prefix
if [ "$mode" = run ] && [ "${STASHWELL_WINE_DISPLAY:-}" = xvfb ]; then
    prefix="$base-window"
fi

export WINEPREFIX=$prefix
export WINEARCH=win64
# Wine's own trace lines would mix with the programs' output that tests read.
export WINEDEBUG=${WINEDEBUG:--all}
# No .NET or HTML engine: the prefix is made without asking to download Mono or Gecko.
export WINEDLLOVERRIDES=${WINEDLLOVERRIDES:-mscoree,mshtml=}

made="$prefix/.stashwell-prefix-made"
make_prefix() {
    [ -e "$made" ] && return 0
    mkdir -p "$prefix"
    (
        flock 9
        if [ ! -e "$made" ]; then
            # wineboot's own notes ("configuration ... has been updated") go to a log, shown
            # only when the making fails.
            if ! wine cmd /c exit </dev/null >"$prefix.log" 2>&1; then
                echo "wine.sh: Wine could not make the prefix $prefix:" >&2
                cat "$prefix.log" >&2
                exit 1
            fi
            # Wine marks a name that begins with "." hidden, which Windows does not: the tests
            # make such files and expect them as Windows leaves them.
            if ! wine reg add 'HKCU\Software\Wine' /v ShowDotFiles /d Y /f </dev/null \
                >>"$prefix.log" 2>&1; then
                echo "wine.sh: Wine could not be told to show dot files:" >&2
                cat "$prefix.log" >&2
                exit 1
            fi
            touch "$made"
        fi
    ) 9>"$prefix.lock"
}

display_file="$base.display"
# new_display FILE: a new Xvfb on a free display number; its number, then its process number,
# written to FILE.
new_display() {
    local number
    number=$(mktemp "$prefix.number.XXXXXX")
    Xvfb -displayfd 1 -screen 0 1280x1024x24 -nolisten tcp >"$number" 2>/dev/null </dev/null &
    local pid=$!
    for _ in $(seq 100); do
        [ -s "$number" ] && break
        sleep 0.05
    done
    if [ ! -s "$number" ]; then
        echo "wine.sh: Xvfb did not start" >&2
        kill "$pid" 2>/dev/null || true
        rm -f "$number"
        exit 1
    fi
    printf '%s\n%s\n' "$(head -n1 "$number")" "$pid" >"$1"
    rm -f "$number"
}
xvfb_pid=
use_display() {
    local pid
    if [ -s "$display_file" ] && pid=$(sed -n 2p "$display_file") && kill -0 "$pid" 2>/dev/null; then
        export DISPLAY=":$(head -n1 "$display_file")"
        return
    fi
    local own
    own=$(mktemp "$prefix.own.XXXXXX")
    new_display "$own"
    export DISPLAY=":$(head -n1 "$own")"
    xvfb_pid=$(sed -n 2p "$own")
    rm -f "$own"
}

case $mode in
run)
    make_prefix
    [ "${STASHWELL_WINE_DISPLAY:-}" != xvfb ] || use_display
    # Now and then, under load, Wine fails a program before its test could run: it ends the
    # program at once, before its main printed anything (a test seen failing after 0.01 s with
    # no output at all), or a thread that GoogleTest itself starts cannot be made (its own check
    # fails with a "[ FATAL ]" line naming gtest-port.cc: "CreateThread failed with error 6").
    # Every program run here is a test program, so such a start is made once more, and said on
    # stderr; any other outcome, a failed test's included, stands.
    printed=$(mktemp "$prefix.out.XXXXXX")
    trap 'rm -f "$printed"; [ -z "$xvfb_pid" ] || kill "$xvfb_pid" 2>/dev/null || true' EXIT
    status=0
    wine "$@" | tee "$printed" || status=${PIPESTATUS[0]}
    if [ "$status" -ne 0 ] && { [ ! -s "$printed" ] ||
        grep -q '^\[ FATAL \] .*gtest-port\.cc' "$printed"; }; then
        echo "wine.sh: $1 failed with status $status before its test could run; started again" >&2
        status=0
        wine "$@" || status=$?
    fi
    exit "$status"
    ;;
start)
    mkdir -p "$prefix"
    # The X server of the window's tests, when this machine has one to start; Wine's desktop
    # process, started with the server below, stays on it.
    if command -v Xvfb >/dev/null; then
        if ! { [ -s "$display_file" ] && kill -0 "$(sed -n 2p "$display_file")" 2>/dev/null; }; then
            new_display "$display_file"
        fi
        export DISPLAY=":$(head -n1 "$display_file")"
    fi
    # The server and the programs Wine keeps running with it (services, devices) would hold on
    # to whatever output they were started with; a program whose output CTest reads would then
    # never seem to end. They get a log instead.
    # One that is already running for the prefix (a run before that was not stopped) will do.
    start_prefix() {
        wineserver -p </dev/null >>"$prefix.log" 2>&1 || true
        make_prefix
        wine cmd /c exit </dev/null >>"$prefix.log" 2>&1
    }
    start_prefix
    # The window tests' own prefix, on the display.
    if [ -n "${DISPLAY:-}" ]; then
        prefix="$base-window"
        made="$prefix/.stashwell-prefix-made"
        export WINEPREFIX=$prefix
        start_prefix
    fi
    ;;
stop)
    for each in "$base" "$base-window"; do
        [ -d "$each" ] && WINEPREFIX=$each wineserver -k 2>/dev/null || true
    done
    if [ -s "$display_file" ]; then
        kill "$(sed -n 2p "$display_file")" 2>/dev/null || true
        rm -f "$display_file"
    fi
    ;;
*)
    echo "wine.sh: unknown mode $mode" >&2
    exit 2
    ;;
esac
