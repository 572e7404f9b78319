#!/usr/bin/env bash
# The Windows installer under Wine, used as a person uses it:
#
#   tests/installer/test-installer.sh SETUP.exe [WORK]
#
# scripts/build-windows.sh --test runs it after the CTest run, on the setup it left in OUT. In a
# Wine prefix of its own, made anew in WORK (default build-windows/installer-test) so that
# nothing of an earlier run or of the other tests counts, and kept only after a failure, it
#   1. runs the setup silently (/S) into a folder it chooses (/D=, a name with a space);
#   2. checks the installed files (those of the zip beside SETUP byte for byte, when it is
#      there), the Start-menu entries and the uninstall key;
#   3. sets the backup path where a standard user's Stashwell keeps it (BackupPath below
#      HKEY_CURRENT_USER\Software\Korvex\QRV\Settings), lets the installed stashwell.exe make its
#      catalogue, adds a source folder of 3 files to it with sqlite3 (the catalogue is a Linux
#      file, the backup folder being a Linux folder seen as Z:\...), and checks the exact outcome
#      of "stashwell.exe backup" and "qrv.exe runs" and the store;
#   4. runs the uninstaller silently, as Windows' list of apps does (QuietUninstallString),
#      waits for the copy of itself that it leaves running, and checks that nothing it installed
#      is left, while the backups and the settings are.
# Each failed check prints a line. The last line is "Installer test: passed" or says how many
# checks failed, and then the status is 1.
set -euo pipefail

if [ $# -lt 1 ] || [ $# -gt 2 ]; then
    echo "usage: tests/installer/test-installer.sh SETUP.exe [WORK]" >&2
    exit 2
fi
root=$(cd "$(dirname "$0")/../.." && pwd)
[ -f "$1" ] || { echo "test-installer.sh: $1 is missing" >&2; exit 2; }
setup=$(cd "$(dirname "$1")" && pwd)/$(basename "$1")
work=${2:-$root/build-windows/installer-test}
version=$(sed -n 's/^project(Stashwell VERSION \([0-9.]*\).*/\1/p' "$root/CMakeLists.txt")
started=$SECONDS

failures=0
fail() {
    echo "Installer test: $*" >&2
    failures=$((failures + 1))
}
finish() {
    if [ "$failures" -eq 0 ]; then
        # The prefix (some 700 MB) is kept only to look into after a failure.
        wineserver -k 2>/dev/null || true
        rm -rf "$WINEPREFIX"
        echo "Installer test: passed ($((SECONDS - started)) s)"
        exit 0
    fi
    echo "Installer test: $failures checks failed (Wine prefix and files in $work)"
    exit 1
}
# A stage that failed ends the test: the next ones build on it.
stage_passed() {
    [ "$failures" -eq 0 ] || finish
}
# expect WHAT EXPECTED FOUND: one check of a text.
expect() {
    [ "$3" = "$2" ] && return 0
    fail "$1: not as expected (< expected, > found):"
    diff <(printf '%s\n' "$2" | cat -A) <(printf '%s\n' "$3" | cat -A) | sed 's/^/    /' >&2 || true
}

# --- Wine -------------------------------------------------------------------------------------

export WINEPREFIX=$work/wine
export WINEARCH=win64
export WINEDEBUG=-all
# No .NET or HTML engine (as in cmake/wine.sh), and no Linux menu entries or icons made for the
# installer's Start-menu entries (winemenubuilder would write them into the Linux home).
export WINEDLLOVERRIDES="mscoree,mshtml,winemenubuilder.exe="
# No window is to open: the setup and the uninstaller run silently, the programs unattended.
unset DISPLAY WAYLAND_DISPLAY
# The prefix's Wine server: none is kept running, so that once the last program of the prefix
# ends it ends too, a few seconds later, which is how the test waits for the uninstaller's copy
# (wineserver -w). One left by an interrupted run is ended first.
# WORK is emptied first, so it must be a folder of this test's (the mark) or a new one.
if [ -n "$(ls -A "$work" 2>/dev/null)" ] && [ ! -e "$work/.installer-test" ]; then
    echo "test-installer.sh: $work holds files of something else; give another WORK" >&2
    exit 2
fi
if [ -d "$WINEPREFIX" ]; then wineserver -k 2>/dev/null || true; fi
trap 'wineserver -k 2>/dev/null || true' EXIT
rm -rf "$work"
mkdir -p "$work"
touch "$work/.installer-test"
# wine PROGRAM ARGS... with a time limit, so that a program waiting for an answer fails the
# test instead of holding it.
win() {
    timeout 120 wine "$@" </dev/null
}
if ! win cmd /c exit >"$work/prefix.log" 2>&1; then
    fail "Wine could not make the prefix $WINEPREFIX ($work/prefix.log)"
    finish
fi

# Windows paths as Linux ones: drive C is the prefix's drive_c, Z the Linux root.
linux_path() {
    local path=${1//\\//}
    case $path in
    [Cc]:/*) echo "$WINEPREFIX/drive_c/${path:3}" ;;
    [Zz]:/*) echo "/${path:3}" ;;
    *) echo "$path" ;;
    esac
}
windows_path() {
    local path="Z:$1"
    echo "${path//\//\\}"
}
folder_of() { # the Windows path of a folder the Wine user has, by its variable's name
    linux_path "$(win cmd /c echo "%$1%" | tr -d '\r')"
}
start_menu="$(folder_of APPDATA)/Microsoft/Windows/Start Menu/Programs"
state_folder="$(folder_of LOCALAPPDATA)/Korvex/QRV"

# --- 1. The silent setup ----------------------------------------------------------------------

install_dir='C:\Test Programs\Stashwell'
installed=$(linux_path "$install_dir")
# /D= is the last word, without quotes even with a space in the folder. Wine would quote a word
# with a space when it makes the program's command line, so the command is given to cmd whole,
# as typed at a prompt.
status=0
win cmd /c "$(windows_path "$setup") /S /D=$install_dir" >"$work/setup.log" 2>&1 || status=$?
[ "$status" = 0 ] || fail "the silent setup ended with status $status ($work/setup.log)"
stage_passed

# --- 2. What it installed ---------------------------------------------------------------------

expect "the install folder's files" \
    "$(printf '%s\n' 'QRV Manual.pdf' README-Windows.txt Uninstall.exe qrv.exe stashwell.exe)" \
    "$(cd "$installed" 2>/dev/null && LC_ALL=C ls -A)"
# The zip of the same build holds the same files.
zip="$(dirname "$setup")/stashwell-$version-win64.zip"
if [ -f "$zip" ]; then
    mkdir "$work/zip"
    (cd "$work/zip" && cmake -E tar xf "$zip")
    for file in stashwell.exe qrv.exe 'QRV Manual.pdf' README-Windows.txt; do
        cmp -s "$installed/$file" "$work/zip/stashwell-$version-win64/$file" ||
            fail "the installed $file differs from the zip's"
    done
else
    expect "the readme's first line" "Stashwell $version for Windows (64-bit)" \
        "$(head -n 1 "$installed/README-Windows.txt" | tr -d '\r')"
    expect "the manual's first bytes" "%PDF-" "$(head -c 5 "$installed/QRV Manual.pdf")"
fi

# The Start-menu entries, each pointing at its installed file (a .lnk keeps its target's full
# path in the system's code page).
for entry in 'Stashwell:stashwell.exe' 'Stashwell Manual:QRV Manual.pdf'; do
    link="$start_menu/${entry%%:*}.lnk"
    target="$install_dir\\${entry#*:}"
    if [ ! -f "$link" ]; then
        fail "the Start-menu entry ${entry%%:*} is missing (no $link)"
    elif ! LC_ALL=C grep -aqF "$target" "$link"; then
        fail "the Start-menu entry ${entry%%:*} does not point at $target"
    fi
done

# The uninstall key: "wine reg query" lists each value as "    NAME    TYPE    DATA".
uninstall_key='HKCU\Software\Microsoft\Windows\CurrentVersion\Uninstall\Stashwell'
values=$(win reg query "$uninstall_key" 2>/dev/null | tr -d '\r') ||
    fail "the uninstall key $uninstall_key is missing"
value() {
    sed -n "s/^    $1    \(REG_[A-Z_]*\)    /\1 /p" <<<"$values"
}
expect "DisplayName" "REG_SZ Stashwell" "$(value DisplayName)"
expect "DisplayVersion" "REG_SZ $version" "$(value DisplayVersion)"
expect "Publisher" "REG_SZ Korvex" "$(value Publisher)"
expect "InstallLocation" "REG_SZ $install_dir" "$(value InstallLocation)"
expect "DisplayIcon" "REG_SZ $install_dir\\stashwell.exe" "$(value DisplayIcon)"
expect "UninstallString" "REG_SZ \"$install_dir\\Uninstall.exe\"" "$(value UninstallString)"
expect "QuietUninstallString" "REG_SZ \"$install_dir\\Uninstall.exe\" /S" \
    "$(value QuietUninstallString)"
expect "NoModify" "REG_DWORD 0x1" "$(value NoModify)"
expect "NoRepair" "REG_DWORD 0x1" "$(value NoRepair)"
[[ "$(value EstimatedSize)" =~ ^REG_DWORD\ 0x[0-9a-f]+$ ]] || fail "EstimatedSize is missing"
stage_passed

# --- 3. The installed programs ----------------------------------------------------------------

# run NAME ARGS...: an installed program, its output in $work/NAME.out and .err, its exit
# status in $ran.
run() {
    local name=$1
    shift
    ran=0
    win "$install_dir\\$name.exe" "$@" >"$work/$name.out" 2>"$work/$name.err" || ran=$?
}
# The text of a file, CRs shown as \r, for comparing console output exactly.
shown() {
    sed 's/\r$/\\r/' "$1"
}

backup=$work/backup
source=$work/source
mkdir -p "$backup" "$source/notes"
printf 'Dear reader,\nthis is the first file.\n' >"$source/letter.txt"
printf 'Buy milk.\n' >"$source/notes/todo.txt"
# Two of the store's 8 KiB blocks.
printf 'Line %03d of the long file, which spans more than one block.\n' $(seq 200) \
    >"$source/long.txt"
settings_key='HKCU\Software\Korvex\QRV\Settings'
win reg add "$settings_key" /v BackupPath /t REG_SZ /d "$(windows_path "$backup")" /f \
    >>"$work/setup.log" 2>&1 || fail "the backup path could not be set in $settings_key"

# The program makes its catalogue on its first unattended run: a compact of the empty folder.
run stashwell compact
expect "the exit status of \"stashwell.exe compact\" on an empty backup folder" 0 "$ran"
expect "the output of \"stashwell.exe compact\"" "" "$(shown "$work/stashwell.out")"
expect "the errors of \"stashwell.exe compact\"" "" "$(shown "$work/stashwell.err")"
catalogue=$backup/db/Backup.db
[ -s "$catalogue" ] || fail "\"stashwell.exe compact\" made no catalogue $catalogue"
stage_passed

# The source, as the catalogue stores a Windows path: an apostrophe becomes "/".
source_windows=$(windows_path "$source")
sqlite3 "$catalogue" "INSERT INTO Sources (source) VALUES ('${source_windows//\'//}');"
run stashwell backup
expect "the exit status of \"stashwell.exe backup\"" 0 "$ran"
expect "the output of \"stashwell.exe backup\"" "" "$(shown "$work/stashwell.out")"
expect "the errors of \"stashwell.exe backup\"" "" "$(shown "$work/stashwell.err")"
expect "the runs in the catalogue" 1 "$(sqlite3 "$catalogue" 'SELECT count(*) FROM Backups')"
expect "the files of run 1" 3 "$(sqlite3 "$catalogue" 'SELECT count(*) FROM Files WHERE bid = 1')"

# The store holds each file's content under its signature: MD5 of the content followed by one
# zero byte per started 8 KiB block, in Files/ab/cd/<signature>.QRV.
bytes=0
for file in letter.txt notes/todo.txt long.txt; do
    size=$(stat -c %s "$source/$file")
    bytes=$((bytes + size))
    sig=$({ cat "$source/$file"; head -c $(((size + 8191) / 8192)) /dev/zero; } | md5sum)
    sig=${sig%% *}
    stored="$backup/Files/${sig:0:2}/${sig:2:2}/$sig.QRV"
    cmp -s "$stored" "$source/$file" || fail "the store holds no copy of $file ($stored)"
done
expect "the number of store files" 3 "$(find "$backup/Files" -name '*.QRV' | wc -l)"

# qrv lists the run under its source: the columns of bid, date, files and bytes, the date the
# one the catalogue holds.
run qrv runs
date=$(sqlite3 "$catalogue" 'SELECT datebk FROM Backups WHERE bid = 1')
expect "the exit status of \"qrv.exe runs\"" 0 "$ran"
expect "the output of \"qrv.exe runs\"" \
    "$(printf '%s\\r\n' "$source_windows"
        printf '%8s  %-19s  %10s  %16s  %11s  %16s\\r\n' bid date files bytes 'added files' \
            'added bytes'
        printf '%8s  %-19s  %10s  %16s  %11s  %16s\\r\n' 1 "$date" 3 "$bytes" 3 "$bytes")" \
    "$(shown "$work/qrv.out")"
expect "the errors of \"qrv.exe runs\"" "" "$(shown "$work/qrv.err")"
stage_passed

# --- 4. The silent uninstall ------------------------------------------------------------------

# As Windows runs QuietUninstallString ("PROGRAM" /S, checked above): the uninstaller copies
# itself into the temporary folder, starts the copy and ends at once; the copy does the work.
# Once every program of the prefix has ended, the prefix's Wine server ends too, and
# wineserver -w returns.
quiet=$(value QuietUninstallString)
quiet=${quiet#REG_SZ \"}
status=0
win "${quiet%%\"*}" /S >"$work/uninstall.log" 2>&1 || status=$?
[ "$status" = 0 ] || fail "the silent uninstaller ended with status $status ($work/uninstall.log)"
timeout 60 wineserver -w || fail "the uninstaller was still running after a minute"

if [ -e "$installed" ]; then
    fail "the install folder $install_dir is still there, with:" \
        "$(cd "$installed" && ls -A | tr '\n' ' ')"
fi
for entry in Stashwell 'Stashwell Manual'; do
    [ ! -e "$start_menu/$entry.lnk" ] || fail "the Start-menu entry $entry is still there"
done
if win reg query "$uninstall_key" >/dev/null 2>&1; then
    fail "the uninstall key $uninstall_key is still there"
fi
# What is the user's stays: the settings, the state folder, the backup folder and its store.
expect "the backup path after the uninstall" "BackupPath    REG_SZ    $(windows_path "$backup")" \
    "$(win reg query "$settings_key" /v BackupPath 2>/dev/null | tr -d '\r' | sed -n 's/^    //p')"
[ -d "$state_folder" ] || fail "the uninstaller removed the state folder $state_folder"
[ -s "$catalogue" ] || fail "the uninstaller removed the catalogue $catalogue"
expect "the number of store files after the uninstall" 3 \
    "$(find "$backup/Files" -name '*.QRV' | wc -l)"
finish
