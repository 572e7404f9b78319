#!/usr/bin/env bash
# Package test: builds the Debian package from a Release build folder with CPack, checks its
# file list, its Depends line and its menu entry, installs it with apt-get, and runs the
# installed programs on a private home (a headless backup, qrv runs, a verified restore, the
# manual, the man pages). The package is purged again at the end, also when a step failed.
# It proves what the build tests cannot: that the package installs on Debian 12, that its
# dependencies are enough to run the programs, and that the paths the programs rely on hold
# once installed. What it prints is a transcript of the commands and their answers, with the
# temporary folder shown as $T, short enough to quote.
#
#   tests/package/run.sh BUILD_DIR
#
# The install part needs root or sudo without a password; without either it is skipped (exit
# 0) after the package has been built and checked.
set -euo pipefail

build=$(cd "${1:?usage: tests/package/run.sh BUILD_DIR}" && pwd)
work=$(mktemp -d "${TMPDIR:-/tmp}/stashwell-package.XXXXXX")
# apt reads a local .deb as its _apt user, which must be able to enter the folder.
chmod 755 "$work"
export DEBIAN_FRONTEND=noninteractive

# --- Transcript -------------------------------------------------------------------------------

# A word as a shell would need it: bare when it is plain, else in double or single quotes.
shell_word() {
    local w=$1
    if [[ $w =~ ^[A-Za-z0-9_./=:,+@%-]+$ ]]; then
        printf '%s' "$w"
    elif [[ $w != *[\"\$\`\\]* ]]; then
        printf '"%s"' "$w"
    else
        printf "'%s'" "${w//\'/\'\\\'\'}"
    fi
}
# Text with the temporary folder written as $T.
short() { local t=$1; printf '%s\n' "${t//"$work"/\$T}"; }
say() { short "$*"; }
show_command() {
    local line="" w
    for w in "$@"; do line+="$(shell_word "$w") "; done
    say "\$ ${line% }"
}
# step CMD...: shows the command and its output (stdout and stderr, indented) and keeps the
# output in $output; a failure ends the test.
output=""
step() {
    show_command "$@"
    local rc=0
    output=$("$@" 2>&1) || rc=$?
    [ -z "$output" ] || short "$output" | sed 's/^/    /'
    if [ "$rc" -ne 0 ]; then
        say "    (exit status $rc)"
        return "$rc"
    fi
}
# quiet_step PATTERN CMD...: as step, but shows only the lines matching PATTERN (none when it
# is empty) unless the command fails.
quiet_step() {
    local pattern=$1 rc=0
    shift
    show_command "$@"
    output=$("$@" 2>&1) || rc=$?
    if [ "$rc" -ne 0 ]; then
        short "$output" | sed 's/^/    /'
        say "    (exit status $rc)"
        return "$rc"
    fi
    [ -z "$pattern" ] || short "$output" | { grep -E -- "$pattern" || true; } | sed 's/^/    /'
}
fail() {
    say "FAILED: $*"
    exit 1
}

# --- Clean-up, also after a failure --------------------------------------------------------------

sudo=""
installed=no
finish() {
    local rc=$?
    set +e
    if [ "$installed" = yes ]; then
        quiet_step '^(Removing|Purging)' $sudo apt-get purge -y -q stashwell || rc=1
    fi
    if [ "$rc" -eq 0 ]; then
        rm -rf "$work"
        say "package test passed"
    else
        printf 'package test FAILED (exit status %s); its files are kept in %s\n' "$rc" "$work"
    fi
    exit "$rc"
}
trap finish EXIT

printf 'T=%s\n' "$work"
say "build folder: $build"

# --- Build and check the package -----------------------------------------------------------------

# Brings the files the package holds up to date (nothing to do after ./test.sh has built).
quiet_step '' cmake --build "$build" --target stashwell qrv manual man_pages
quiet_step 'package:' cpack --config "$build/CPackConfig.cmake" -B "$work/pkg"
debs=("$work"/pkg/stashwell_*.deb)
[ ${#debs[@]} -eq 1 ] && [ -f "${debs[0]}" ] || fail "expected one stashwell_*.deb in $work/pkg"
deb=${debs[0]}
chmod 644 "$deb"
say "package: $(basename "$deb")"
step dpkg-deb --field "$deb" Package Version Architecture Section Depends Recommends

depends=$(dpkg-deb --field "$deb" Depends)
for name in libqt6core6 libqt6gui6 libqt6widgets6 libsqlite3-0 libssl3 qt6-qpa-plugins; do
    [[ ", $depends," =~ ,\ $name[\ ,] ]] || fail "Depends does not name $name"
done
say "Depends names Qt (core, gui, widgets), SQLite, OpenSSL and qt6-qpa-plugins"

# The package's files other than folders, as paths; a symlink as "path -> target".
show_command dpkg-deb --contents "$deb"
listing=$(dpkg-deb --contents "$deb" | awk '$1 !~ /^d/ { $1 = $2 = $3 = $4 = $5 = ""; sub(/^ +\./, ""); print }')
say "$listing" | sed 's/^/    /'
expected=(
    "/usr/lib/stashwell/stashwell"
    "/usr/lib/stashwell/qrv"
    "/usr/lib/stashwell/QRV Manual.pdf"
    "/usr/bin/stashwell -> ../lib/stashwell/stashwell"
    "/usr/bin/qrv -> ../lib/stashwell/qrv"
    "/usr/share/man/man1/stashwell.1.gz"
    "/usr/share/man/man1/qrv.1.gz"
    "/usr/share/applications/stashwell.desktop"
    "/usr/share/icons/hicolor/scalable/apps/stashwell.svg"
    "/usr/share/doc/stashwell/examples/systemd/stashwell-backup.service"
    "/usr/share/doc/stashwell/examples/systemd/stashwell-backup.timer"
)
for size in 16 24 32 48 64 128 256; do
    expected+=("/usr/share/icons/hicolor/${size}x${size}/apps/stashwell.png")
done
for path in "${expected[@]}"; do
    grep -qxF -- "$path" <<<"$listing" || fail "the package does not hold $path"
done
say "the package holds all ${#expected[@]} expected files"

# The package's own files, for the checks that also run without installing.
dpkg-deb --extract "$deb" "$work/root"

# --- Install ----------------------------------------------------------------------------------------

if [ "$(id -u)" -ne 0 ]; then
    if command -v sudo >/dev/null && sudo -n true 2>/dev/null; then
        sudo="sudo"
    else
        step desktop-file-validate "$work/root/usr/share/applications/stashwell.desktop"
        [ -z "$output" ] || fail "desktop-file-validate had remarks"
        say "not root and no sudo without a password: the install part is skipped"
        exit 0
    fi
fi
if dpkg-query -W -f='${Status}' stashwell 2>/dev/null | grep -q "install ok installed"; then
    # A developer's own installed Stashwell is neither replaced nor purged by a test run.
    say "stashwell $(dpkg-query -W -f='${Version}' stashwell) is installed on this machine: the install part is skipped"
    exit 0
fi
installed=yes
quiet_step '^(Unpacking|Setting up)' $sudo apt-get install -y -q "$deb"

step desktop-file-validate /usr/share/applications/stashwell.desktop
[ -z "$output" ] || fail "desktop-file-validate had remarks"
step readlink -f /usr/bin/stashwell /usr/bin/qrv
[ "$(readlink -f /usr/bin/stashwell)" = /usr/lib/stashwell/stashwell ] || fail "bad /usr/bin/stashwell"
[ "$(readlink -f /usr/bin/qrv)" = /usr/lib/stashwell/qrv ] || fail "bad /usr/bin/qrv"
step ls -l "/usr/lib/stashwell/QRV Manual.pdf"
[ -s "/usr/lib/stashwell/QRV Manual.pdf" ] || fail "the manual is empty"

# --- Run the installed programs on a private home, without a display ---------------------------------

export HOME="$work/home" XDG_CONFIG_HOME="$work/config" XDG_STATE_HOME="$work/state"
unset DISPLAY WAYLAND_DISPLAY QT_QPA_PLATFORM
mkdir -p "$HOME" "$XDG_CONFIG_HOME/Korvex" "$XDG_STATE_HOME"
say "HOME=\$T/home XDG_CONFIG_HOME=\$T/config XDG_STATE_HOME=\$T/state; DISPLAY, WAYLAND_DISPLAY, QT_QPA_PLATFORM unset"

source_dir="$work/source"
backup="$work/backup"
restored="$work/restored"
mkdir -p "$source_dir/notes" "$source_dir/data" "$backup"
printf 'first file\n' >"$source_dir/readme.txt"
printf "it's got an apostrophe\n" >"$source_dir/notes/it's mine.txt"
printf 'quarter three\n' >"$source_dir/notes/Q3 report.txt"
head -c 200000 /dev/urandom >"$source_dir/data/random.bin"
# No empty file: the manual says that 0-byte files are never backed up.
say "source: 4 files in \$T/source, among them \"notes/it's mine.txt\""

printf '[SOFTWARE\\Korvex\\QRV\\Settings]\nBackupPath=%s\n' "$backup" >"$XDG_CONFIG_HOME/Korvex/QRV.conf"
step cat "$XDG_CONFIG_HOME/Korvex/QRV.conf"

# With no source yet, a run only creates the catalogue.
step /usr/bin/stashwell backup
[ -f "$backup/db/Backup.db" ] || fail "the first run made no catalogue"
step sqlite3 "$backup/db/Backup.db" "INSERT INTO Sources (source) VALUES ('${source_dir//\'/\'\'}')"
step /usr/bin/stashwell backup

step /usr/bin/qrv runs
grep -qxF -- "$source_dir" <<<"$output" || fail "qrv runs does not show the source"
grep -qE '^ *1 ' <<<"$output" || fail "qrv runs does not show bid 1"

step /usr/bin/qrv restore 1 --to "$restored" --verify
step diff -r "$source_dir" "$restored"
say "the restored files are byte-identical to the source"

# --- The man pages ------------------------------------------------------------------------------------

# Docker's Debian images keep dpkg from unpacking /usr/share/man (path-exclude); there the
# pages are read from the package instead.
man_dir=/usr/share/man/man1
if [ ! -f "$man_dir/stashwell.1.gz" ]; then
    say "$man_dir/stashwell.1.gz was not unpacked (dpkg path-exclude): reading the pages from the package"
    man_dir="$work/root/usr/share/man/man1"
fi
for page in stashwell qrv; do
    show_command man -l "$man_dir/$page.1.gz"
    rendered=$(MANWIDTH=80 man --warnings -l "$man_dir/$page.1.gz" 2>"$work/man-$page.err") ||
        { cat "$work/man-$page.err"; fail "man could not render $page.1"; }
    # The NAME section, and any warning groff gave.
    sed -n '/^NAME/,/^$/p' <<<"$rendered" | sed '/^$/d; s/^/    /'
    [ ! -s "$work/man-$page.err" ] || sed 's/^/    warning: /' "$work/man-$page.err"
    grep -q "^ *$page " <<<"$rendered" || fail "the rendered $page.1 has no NAME line for $page"
done
