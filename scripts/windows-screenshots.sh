#!/usr/bin/env bash
# Screenshots of the Windows window (src/winui) under Wine on an X server of its own (Xvfb), at
# 96 and at 192 dots per inch:
#
#   scripts/windows-screenshots.sh [STASHWELL.exe [OUT]]
#
# STASHWELL.exe defaults to build-windows/stashwell.exe, OUT to docs/screenshots. It writes
# windows-backup.png, windows-restore.png, windows-configuration.png and windows-report.png
# (96 DPI) and the same four with "-scale2" before ".png" (192 DPI), and prints their names.
#
# Everything runs in a work folder of its own (the program copied there, a Wine prefix, a
# backup folder with two sources and one run), removed at the end unless KEEP_WORK=1. Each DPI
# gets a fresh start of the prefix's Wine server, with HKCU\Control Panel\Desktop\LogPixels set;
# the window is driven with the keyboard as a person would: Alt+2 and Alt+3 show the Restore and
# Configuration tabs, Alt+1 and Alt+B start a run, whose report window is captured by its title
# and closed with Alt+F4, and then the Backup tab, showing the run just made. Xvfb has no
# window manager, so Wine draws the windows' frames itself (X11 Driver\Decorated=N), as
# Windows would. It takes about a minute once the packages are there.
set -euo pipefail

root=$(cd "$(dirname "$0")/.." && pwd)
exe=$(realpath "${1:-$root/build-windows/stashwell.exe}")
out=$(realpath -m "${2:-$root/docs/screenshots}")
[ -f "$exe" ] || { echo "windows-screenshots.sh: no program at $exe" >&2; exit 1; }
mkdir -p "$out"

"$root/scripts/install-deps.sh" --only wine wine64 xvfb xdotool imagemagick x11-utils sqlite3

started=$SECONDS
work=$(mktemp -d "${TMPDIR:-/tmp}/stashwell-shots.XXXXXX")
# The program runs from a copy: the build folder may be rebuilt meanwhile.
cp "$exe" "$work/stashwell.exe"
export WINEPREFIX=$work/wine
export WINEARCH=win64
export WINEDEBUG=-all
export WINEDLLOVERRIDES=mscoree,mshtml=
unset STASHWELL_SETTINGS_KEY STASHWELL_PER_USER_STATE
log=$work/wine.log

xvfb_pid=
program_pid=
finish() {
    local status=$?
    set +e
    [ -z "$program_pid" ] || kill "$program_pid" 2>/dev/null
    if [ -d "$WINEPREFIX" ]; then
        wineserver -k 2>/dev/null
        wineserver -w 2>/dev/null
    fi
    [ -z "$program_pid" ] || wait "$program_pid" 2>/dev/null
    if [ -n "$xvfb_pid" ]; then
        kill "$xvfb_pid" 2>/dev/null
        wait "$xvfb_pid" 2>/dev/null
    fi
    if [ "$status" -ne 0 ]; then
        echo "windows-screenshots.sh: failed; Wine's output is in $log" >&2
        KEEP_WORK=1
    fi
    if [ "${KEEP_WORK:-}" = 1 ]; then
        echo "Work folder kept: $work" >&2
    else
        rm -rf "$work"
    fi
    exit "$status"
}
trap finish EXIT
trap 'exit 130' INT TERM

# An X server on a free display, large enough for the window at 192 DPI. Wine's desktop
# process stays on the display it first met, so DISPLAY is set before anything of Wine starts.
Xvfb -displayfd 1 -screen 0 2560x1600x24 -nolisten tcp >"$work/display" 2>/dev/null </dev/null &
xvfb_pid=$!
for _ in $(seq 100); do
    [ -s "$work/display" ] && break
    sleep 0.05
done
[ -s "$work/display" ] || { echo "windows-screenshots.sh: Xvfb did not start" >&2; exit 1; }
display=$(head -n1 "$work/display")
export DISPLAY=":$display"

echo "Making a Wine prefix in $WINEPREFIX"
wine cmd /c exit </dev/null >>"$log" 2>&1
# Debian's Wine 8 draws the frame's buttons with the letters 0, 1 and r unless its Marlett font
# (their glyphs) is in the prefix's own Fonts folder too.
for fonts in /usr/share/wine/fonts /usr/lib/wine/fonts; do
    if [ -f "$fonts/marlett.ttf" ]; then
        cp "$fonts/marlett.ttf" "$WINEPREFIX/drive_c/windows/Fonts/"
        break
    fi
done
reg() { wine reg add "$@" /f </dev/null >>"$log" 2>&1; }
reg 'HKCU\Software\Wine\X11 Driver' /v Decorated /d N
reg 'HKLM\Software\Microsoft\Windows NT\CurrentVersion\Fonts' /v 'Marlett (TrueType)' /d marlett.ttf

# A backup folder with two sources a person would have, and one run made unattended. The
# sources are C:\Users\ann\Documents and ...\Photos (in the prefix's drive C:), the backup folder
# E:\Stashwell, on a drive E: that Wine maps to a folder of the work folder.
data=$WINEPREFIX/drive_c/users/ann
drive=$work/drive-e
mkdir -p "$data/Documents/Letters" "$data/Documents/Taxes 2025" "$data/Photos/2025 Summer" \
    "$data/Photos/Garden" "$drive/Stashwell"
ln -s "$drive" "$WINEPREFIX/dosdevices/e:"
printf 'Dear Ann,\r\nthank you for the photos.\r\n' >"$data/Documents/Letters/To Ann.txt"
printf 'Dear Sir or Madam,\r\nplease find enclosed...\r\n' >"$data/Documents/Letters/Insurance.txt"
awk 'BEGIN { for (i = 1; i <= 3000; i++) printf "%d;groceries;%d.50\r\n", i, i % 90 }' \
    >"$data/Documents/Budget.csv"
head -c 1200000 /dev/urandom >"$data/Documents/Taxes 2025/Return.pdf"
head -c 2400000 /dev/urandom >"$data/Photos/2025 Summer/Beach.jpg"
head -c 1900000 /dev/urandom >"$data/Photos/2025 Summer/Harbour.jpg"
head -c 1600000 /dev/urandom >"$data/Photos/Garden/Roses.jpg"
reg 'HKLM\SOFTWARE\Korvex\QRV\Settings' /v BackupPath /d 'E:\Stashwell'
# The first start makes the catalogue; its sources are then added as Windows writes them.
wine "$work/stashwell.exe" backup </dev/null >>"$log" 2>&1
catalogue=$drive/Stashwell/db/Backup.db
[ -f "$catalogue" ] || { echo "windows-screenshots.sh: no catalogue was made" >&2; exit 1; }
sqlite3 "$catalogue" "INSERT INTO Sources (source) VALUES
    ('C:\Users\ann\Documents'), ('C:\Users\ann\Photos');"
wine "$work/stashwell.exe" backup </dev/null >>"$log" 2>&1 ||
    { echo "windows-screenshots.sh: the unattended backup failed" >&2; exit 1; }

# The id of the visible X window whose name matches, once it is there (up to 60 s).
find_window() {
    local id
    for _ in $(seq 300); do
        id=$(xdotool search --onlyvisible --name "$1" 2>/dev/null | head -n1) || true
        [ -n "$id" ] && { echo "$id"; return 0; }
        sleep 0.2
    done
    echo "windows-screenshots.sh: no window \"$1\" appeared" >&2
    return 1
}
pixels() { import -window "$1" -depth 8 rgb:- 2>/dev/null | md5sum; }
# Waits until the window shows something else than `$2` (a pixels sum; "" for anything), and
# then until it stays the same for half a second, at most 20 s in all.
settle() {
    local id=$1 before=$2 now previous=
    for _ in $(seq 100); do
        now=$(pixels "$id")
        if [ "$now" != "$before" ] && [ "$now" = "$previous" ]; then return 0; fi
        [ "$now" = "$before" ] || previous=$now
        sleep 0.25
    done
    echo "windows-screenshots.sh: window $id did not settle" >&2
    return 1
}
capture() {
    import -window "$1" -strip -define png:exclude-chunks=date,time "$2"
    written+=("$2")
}
focus() { xdotool windowfocus "$1" 2>/dev/null || true; sleep 0.2; }

# Alt+N shows tab N. Under Wine, the release of Alt after a key that an accelerator took opens
# the menu bar (File highlighted), as after Alt alone; Escape leaves it again, and is ignored
# by the window when the menu bar was not opened.
tab_key() {
    xdotool key "alt+$1"
    sleep 0.2
    xdotool key Escape
}

written=()
shoot() {
    local dpi=$1 suffix=$2 main report
    # The Wine server reads the dots per inch when it starts.
    reg 'HKCU\Control Panel\Desktop' /v LogPixels /t REG_DWORD /d "$dpi"
    wineserver -k 2>/dev/null || true
    wineserver -w 2>/dev/null || true
    echo "Starting the window at $dpi DPI"
    wine "$work/stashwell.exe" </dev/null >>"$log" 2>&1 &
    program_pid=$!
    main=$(find_window '^Korvex QRV')
    settle "$main" ""
    focus "$main"

    local shown
    shown=$(pixels "$main")
    tab_key 2
    settle "$main" "$shown"
    capture "$main" "$out/windows-restore$suffix.png"
    shown=$(pixels "$main")
    tab_key 3
    settle "$main" "$shown"
    capture "$main" "$out/windows-configuration$suffix.png"

    shown=$(pixels "$main")
    tab_key 1
    settle "$main" "$shown"
    xdotool key alt+b
    report=$(find_window '^Backup report$')
    settle "$report" ""
    capture "$report" "$out/windows-report$suffix.png"
    shown=$(pixels "$main")
    focus "$report"
    xdotool key alt+F4
    for _ in $(seq 100); do
        xwininfo -id "$report" 2>/dev/null | grep -q IsViewable || break
        sleep 0.1
    done
    if xwininfo -id "$report" 2>/dev/null | grep -q IsViewable; then
        echo "windows-screenshots.sh: the report window did not close" >&2
        return 1
    fi
    settle "$main" "$shown"
    capture "$main" "$out/windows-backup$suffix.png"

    focus "$main"
    xdotool key ctrl+q
    for _ in $(seq 100); do
        kill -0 "$program_pid" 2>/dev/null || break
        sleep 0.1
    done
    if kill "$program_pid" 2>/dev/null; then
        echo "windows-screenshots.sh: the window did not close on Ctrl+Q; ended" >&2
    fi
    wait "$program_pid" 2>/dev/null || true
    program_pid=
}

shoot 96 ""
shoot 192 "-scale2"

# At 192 DPI every shot is to be twice as large as its 96-DPI one.
for name in backup restore configuration report; do
    small=$(identify -format '%w %h' "$out/windows-$name.png")
    large=$(identify -format '%w %h' "$out/windows-$name-scale2.png")
    read -r w1 h1 <<<"$small"
    read -r w2 h2 <<<"$large"
    if [ $((w2 * 100 / w1)) -lt 190 ] || [ $((w2 * 100 / w1)) -gt 210 ] ||
        [ $((h2 * 100 / h1)) -lt 190 ] || [ $((h2 * 100 / h1)) -gt 210 ]; then
        echo "windows-screenshots.sh: $name is ${w1}x$h1 at 96 DPI but ${w2}x$h2 at 192" >&2
    fi
done

echo "Wrote, in $((SECONDS - started)) s:"
for file in "${written[@]}"; do
    printf '  %s (%s)\n' "${file#"$root"/}" "$(identify -format '%wx%h' "$file")"
done
