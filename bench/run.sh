#!/usr/bin/env bash
# Measures Stashwell's first and second backup against md5sum, cp -a + sync -f, and the first and
# second backups of restic and BorgBackup (their Debian packages, default settings, no
# encryption) of the same data, in the same invocation, and prints medians and ratios.
#
#   bench/run.sh [large|small|all|cancel|restore]   (default all)
#
# The small set also runs a first backup through the real main window (offscreen, clicking
# Backup) beside the headless one. "cancel" makes one 2 GiB file and clicks Cancel one second
# into its backup through the window, and tells how late the click was handled and how long the
# run took to stop after it. "restore" restores a run of 50,000 files in 2,000 folders through the
# window into a new folder and compares it with cp -a.
#
# Environment: BENCH_DIR (default /tmp/stashwell-bench; keeps every copy it makes, so it needs
# about 45 GiB free with the default sizes),
# BENCH_REPEAT (3), LARGE_FILES (32) x LARGE_MIB (64), SMALL_FILES (50000), TREE_FILES (50000)
# in TREE_FOLDERS (2000).
# Data sets: "large", a few large files; "small", many files of 1 to 64 KiB; in both about 20%
# of the files repeat the content of another file.
set -euo pipefail
here="$(cd "$(dirname "$0")/.." && pwd)"
"$here/scripts/install-deps.sh" --bench
cmake -S "$here" -B "$here/build-release" -G Ninja -DCMAKE_BUILD_TYPE=Release >/dev/null
cmake --build "$here/build-release" --target stashwell make_data window_run >/dev/null
bin="$here/build-release/stashwell"
window_run="$here/build-release/window_run"

which="${1:-all}"
root="${BENCH_DIR:-/tmp/stashwell-bench}"
repeat="${BENCH_REPEAT:-3}"
large_files="${LARGE_FILES:-32}"
large_mib="${LARGE_MIB:-64}"
small_files="${SMALL_FILES:-50000}"
tree_files="${TREE_FILES:-50000}"
tree_folders="${TREE_FOLDERS:-2000}"
run_id="$(date +%s)"
work="$root/run-$run_id"
mkdir -p "$work"
# restic and borg keep their caches and settings inside the run's folder and ask nothing.
export RESTIC_PASSWORD=bench RESTIC_CACHE_DIR="$work/restic-cache" BORG_BASE_DIR="$work/borg-base"
export BORG_UNKNOWN_UNENCRYPTED_REPO_ACCESS_IS_OK=yes BORG_RELOCATED_REPO_ACCESS_IS_OK=yes

median() { sort -g | awk '{a[NR]=$1} END {print (NR%2 ? a[(NR+1)/2] : (a[NR/2]+a[NR/2+1])/2)}'; }

# timed OUT CMD...: runs CMD, appends "seconds peak_kib" to OUT.
timed() {
    local out="$1"; shift
    /usr/bin/time -f "%e %M" -o "$work/time.txt" "$@" >/dev/null
    cat "$work/time.txt" >>"$out"
}

make_large() { "$here/build-release/make_data" "$1" large "$large_files" "$large_mib"; }
make_small() { "$here/build-release/make_data" "$1" small "$small_files"; }

# A backup folder of its own for one repetition, with the data set as its one source.
prepare_backup() {
    local home="$1" data="$2"
    mkdir -p "$home/config/Korvex" "$home/state"
    printf '[SOFTWARE\\Korvex\\QRV\\Settings]\nBackupPath=%s\n' "$home/backup" >"$home/config/Korvex/QRV.conf"
    mkdir -p "$home/backup"
    XDG_CONFIG_HOME="$home/config" XDG_STATE_HOME="$home/state" "$bin" nothing
    sqlite3 "$home/backup/db/Backup.db" "INSERT INTO Sources (source) VALUES ('$data');"
}

bench_set() {
    local name="$1"
    local data="$work/$name-data"
    echo "== $name: making the data set"
    "make_$name" "$data"
    sync -f "$data"
    local bytes files
    bytes=$(du -sb "$data" | cut -f1)
    files=$(find "$data" -type f | wc -l)
    echo "   $files files, $(( bytes / 1024 / 1024 )) MiB"
    find "$data" -type f -exec cat {} + >/dev/null   # the same page-cache state for every tool

    local f
    for f in md5 cp first second borg1 borg2 restic1 restic2 window; do : >"$work/$name.$f"; done
    for r in $(seq 1 "$repeat"); do
        timed "$work/$name.md5" bash -c "cd '$data' && find . -type f -print0 | xargs -0 md5sum"
        timed "$work/$name.cp" bash -c "cp -a '$data' '$work/$name-cp$r' && sync -f '$work/$name-cp$r'"
        local home="$work/$name-home$r"
        prepare_backup "$home" "$data"
        local xdg=(env XDG_CONFIG_HOME="$home/config" XDG_STATE_HOME="$home/state")
        timed "$work/$name.first" "${xdg[@]}" "$bin" backup
        timed "$work/$name.second" "${xdg[@]}" "$bin" backup
        if [ "$name" = small ]; then
            local window_home="$work/$name-window$r"
            prepare_backup "$window_home" "$data"
            timed "$work/$name.window" env XDG_CONFIG_HOME="$window_home/config" \
                XDG_STATE_HOME="$window_home/state" QT_QPA_PLATFORM=offscreen "$window_run"
        fi
        # Every tool ends with its data on disk, as Stashwell's run does before its commit.
        local borg_repo="$work/$name-borg$r" restic_repo="$work/$name-restic$r"
        borg init --encryption=none "$borg_repo" >/dev/null
        timed "$work/$name.borg1" bash -c "borg create '$borg_repo::first' '$data' && sync -f '$borg_repo'"
        timed "$work/$name.borg2" bash -c "borg create '$borg_repo::second' '$data' && sync -f '$borg_repo'"
        restic init -q --repo "$restic_repo"
        timed "$work/$name.restic1" bash -c "restic backup -q --repo '$restic_repo' '$data' && sync -f '$restic_repo'"
        timed "$work/$name.restic2" bash -c "restic backup -q --repo '$restic_repo' '$data' && sync -f '$restic_repo'"
    done

    local md5 cp first second first_mem second_mem borg1 borg2 restic1 restic2
    md5=$(cut -d' ' -f1 "$work/$name.md5" | median)
    cp=$(cut -d' ' -f1 "$work/$name.cp" | median)
    first=$(cut -d' ' -f1 "$work/$name.first" | median)
    second=$(cut -d' ' -f1 "$work/$name.second" | median)
    borg1=$(cut -d' ' -f1 "$work/$name.borg1" | median)
    borg2=$(cut -d' ' -f1 "$work/$name.borg2" | median)
    restic1=$(cut -d' ' -f1 "$work/$name.restic1" | median)
    restic2=$(cut -d' ' -f1 "$work/$name.restic2" | median)
    first_mem=$(cut -d' ' -f2 "$work/$name.first" | median)
    second_mem=$(cut -d' ' -f2 "$work/$name.second" | median)
    awk -v n="$name" -v b="$bytes" -v f="$files" -v md5="$md5" -v cp="$cp" -v first="$first" \
        -v second="$second" -v fm="$first_mem" -v sm="$second_mem" -v r="$repeat" \
        -v b1="$borg1" -v b2="$borg2" -v r1="$restic1" -v r2="$restic2" 'BEGIN {
        mb = b / 1048576
        printf "-- %s: %d files, %.0f MiB, medians of %d runs\n", n, f, mb, r
        printf "   %-22s %8s %10s %10s %10s\n", "", "wall s", "MiB/s", "files/s", "peak MiB"
        printf "   %-22s %8.2f %10.1f %10.0f\n", "md5sum", md5, mb / md5, f / md5
        printf "   %-22s %8.2f %10.1f %10.0f\n", "cp -a + sync -f", cp, mb / cp, f / cp
        printf "   %-22s %8.2f %10.1f %10.0f %10.1f\n", "stashwell first", first, mb / first, f / first, fm / 1024
        printf "   %-22s %8.2f %10.1f %10.0f %10.1f\n", "stashwell second", second, mb / second, f / second, sm / 1024
        printf "   %-22s %8.2f %10.1f %10.0f\n", "borg first", b1, mb / b1, f / b1
        printf "   %-22s %8.2f %10.1f %10.0f\n", "borg second", b2, mb / b2, f / b2
        printf "   %-22s %8.2f %10.1f %10.0f\n", "restic first", r1, mb / r1, f / r1
        printf "   %-22s %8.2f %10.1f %10.0f\n", "restic second", r2, mb / r2, f / r2
        fast1 = b1 < r1 ? b1 : r1; fast2 = b2 < r2 ? b2 : r2
        printf "   first / (md5sum + cp)      = %.2f\n", first / (md5 + cp)
        printf "   second / md5sum            = %.2f\n", second / md5
        printf "   first files/s / cp files/s = %.2f\n", (f / first) / (f / cp)
        printf "   first / md5sum             = %.2f\n", first / md5
        printf "   first / borg first         = %.2f\n", first / b1
        printf "   first / faster of restic and borg  = %.2f\n", first / fast1
        printf "   second / faster of restic and borg = %.2f\n", second / fast2
    }'
    if [ -s "$work/$name.window" ]; then
        local window
        window=$(cut -d' ' -f1 "$work/$name.window" | median)
        awk -v w="$window" -v first="$first" 'BEGIN {
            printf "   stashwell first through the window (offscreen) %.2f s\n", w
            printf "   window first / headless first = %.2f\n", w / first
        }'
    fi
}

# Cancel clicked through the window one second into the backup of one 2 GiB file.
bench_cancel() {
    local data="$work/cancel-data"
    echo "== cancel: making one 2 GiB file"
    "$here/build-release/make_data" "$data" large 1 2048
    : >"$work/cancel.times"
    for r in $(seq 1 "$repeat"); do
        local home="$work/cancel-home$r"
        prepare_backup "$home" "$data"
        XDG_CONFIG_HOME="$home/config" XDG_STATE_HOME="$home/state" QT_QPA_PLATFORM=offscreen \
            "$window_run" --cancel-after 1000 2>/dev/null >>"$work/cancel.times"
    done
    local late stopped
    late=$(awk '{print $2}' "$work/cancel.times" | median)
    stopped=$(awk '{print $4}' "$work/cancel.times" | median)
    echo "-- cancel: medians of $repeat runs"
    echo "   the Cancel click was handled ${late} ms after it was made"
    echo "   the run had stopped ${stopped} ms after the click was handled"
}

# Restore through the window: a run of TREE_FILES files in TREE_FOLDERS folders chosen in the
# Select Backup dialog (the folder tree filled), its root ticked and everything restored to a
# new folder with Restore to, then sync -f; against cp -a + sync -f of the same tree.
bench_restore() {
    local data="$work/restore-data"
    echo "== restore: making the data set"
    "$here/build-release/make_data" "$data" tree "$tree_files" "$tree_folders"
    sync -f "$data"
    local bytes files folders
    bytes=$(du -sb "$data" | cut -f1)
    files=$(find "$data" -type f | wc -l)
    folders=$(find "$data" -mindepth 1 -type d | wc -l)
    echo "   $files files in $folders folders, $(( bytes / 1024 / 1024 )) MiB"
    local home="$work/restore-home"
    prepare_backup "$home" "$data"
    XDG_CONFIG_HOME="$home/config" XDG_STATE_HOME="$home/state" "$bin" backup
    find "$data" -type f -exec cat {} + >/dev/null
    : >"$work/restore.cp"; : >"$work/restore.window"; : >"$work/restore.total"
    for r in $(seq 1 "$repeat"); do
        timed "$work/restore.cp" bash -c "cp -a '$data' '$work/restore-cp$r' && sync -f '$work/restore-cp$r'"
        local to="$work/restore-to$r"
        mkdir -p "$to"
        /usr/bin/time -f "%e %M" -o "$work/time.txt" env XDG_CONFIG_HOME="$home/config" \
            XDG_STATE_HOME="$home/state" QT_QPA_PLATFORM=offscreen \
            "$window_run" --restore "$to" 2>/dev/null >>"$work/restore.window"
        local start end
        start=$(date +%s%N); sync -f "$to"; end=$(date +%s%N)
        echo "$(tail -1 "$work/restore.window") sync $(( (end - start) / 1000000 ))e-3 $(cat "$work/time.txt")" \
            >>"$work/restore.total"
    done
    # restore.total: fill F tick K restore R sync S wall_s peak_kib
    local cp fill tick restore sync peak
    cp=$(cut -d' ' -f1 "$work/restore.cp" | median)
    fill=$(awk '{print $2}' "$work/restore.total" | median)
    tick=$(awk '{print $4}' "$work/restore.total" | median)
    restore=$(awk '{print $4 + $6 + $8}' "$work/restore.total" | median)
    peak=$(awk '{print $10}' "$work/restore.total" | median)
    awk -v cp="$cp" -v fill="$fill" -v tick="$tick" -v restore="$restore" -v peak="$peak" \
        -v r="$repeat" 'BEGIN {
        printf "-- restore: medians of %d runs\n", r
        printf "   choosing the run: folder tree filled in %.3f s\n", fill
        printf "   ticking the root: %.3f s\n", tick
        printf "   tick + Restore to + sync -f: %.2f s; cp -a + sync -f: %.2f s\n", restore, cp
        printf "   restore / (cp -a + sync -f) = %.2f\n", restore / cp
        printf "   peak memory of the window program: %.1f MiB\n", peak / 1024
    }'
    if ! diff -r "$data" "$work/restore-to1" >/dev/null; then
        echo "   the restored tree differs from the data set" >&2
        return 1
    fi
}

case "$which" in
    large) bench_set large ;;
    small) bench_set small ;;
    all) bench_set large; bench_set small; bench_cancel; bench_restore ;;
    cancel) bench_cancel ;;
    restore) bench_restore ;;
    *) echo "usage: bench/run.sh [large|small|all|cancel|restore]" >&2; exit 2 ;;
esac
echo "(data and copies left in $work; remove it when done)"
