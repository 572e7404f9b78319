#!/usr/bin/env bash
# Measures Stashwell against md5sum, cp -a + sync -f, restic and BorgBackup (their Debian
# packages, default settings, no encryption) on the same data, in the same invocation, each
# repetition running every tool in turn, and prints medians, ratios and the goals they meet.
#
#   bench/run.sh [large|small|all|cancel|restore|qrv|tree|instructions|scale|year]   (default all)
#
# Each repetition of a data set times: md5sum of every file; cp -a + sync -f; Stashwell's first
# and second headless backup (`stashwell backup`) with the quick check off, and in a backup
# folder of its own, first and second with the quick check on (the Setup row QuickCheck = 1);
# first and second again in a backup folder of its own on the same file system where the test
# shim (tests/shim) refuses anonymous temporary files, as exFAT does, so that new content takes
# the named way (a named temporary file renamed into place);
# for the small set, a first backup through the real main window (offscreen, clicking Backup);
# borg create first and second, and borg extract of the first archive into a new folder; restic
# backup first and second, and restic restore of the latest snapshot into a new folder. Every
# tool's time includes a sync -f of what it wrote. Every Stashwell backup folder excludes
# "*.nomatch" (a pattern that matches none of the data), so no file of the data is left out.
# After each run the script checks that every file was backed up: the Files rows of each
# Stashwell run, the files of restic's latest snapshot and of borg's first archive, and the
# files of the restored and extracted trees; a missing file prints an ERROR line and the script
# ends with status 1 once it has printed its results. Stashwell's own restore has no headless
# command; "restore" below measures it through the window.
# The floor is find -printf '%s %T@' over the data: one look at every file, what a run that
# finds nothing changed cannot do without.
# The goals, each printed with "met" or "NOT met": small set, first / faster of restic and borg
# first <= 0.70, second / faster of restic and borg second <= 0.80 and second / md5sum <= 1.00;
# large set, second / md5sum <= 0.60; both sets, quick second / borg second <= 0.25, quick
# second / floor <= 3.00, and named first / first and named second / second <= 1.10; small set,
# window first / headless first <= 1.10.
#
# "cancel" makes one 2 GiB file and clicks Cancel one second into its backup through the window,
# and tells how late the click was handled and how long the run took to stop after it.
# "restore" restores a run of TREE_FILES files in TREE_FOLDERS folders through the window into a
# new folder and compares it with cp -a.
# "scale" makes SCALE_FILES tiny files (500,000) and SCALE_BASE_FILES (100,000) and times every
# step of Stashwell on them with its peak memory, beside borg and restic: see bench_scale.
# "year" backs up YEAR_FILES tiny files (100,000) once, makes its catalogue hold 10 runs of them
# and, in a second backup folder, YEAR_RUNS (365) daily runs, and times on each the steps whose
# cost should not grow with the runs kept: see bench_year. Goal: each at most twice its cost
# with 10 runs. The 365-run catalogue takes about 8 GiB of disk with its metadata record.
# "qrv" backs up the small data set once, with Stashwell and with restic, then times per
# repetition: cp -a + sync -f of the data; `qrv restore 1 --to` a new folder, + sync -f; restic
# restore of the same tree into a new folder, + sync -f; and md5sum over every store file
# against `qrv check --read-data`, which reads the same store files and checks each one's
# signature. Goals: qrv restore / restic restore <= 0.80, qrv restore / (cp -a + sync -f) <= 1.50,
# check --read-data speed / md5sum speed >= 0.80.
#
# "instructions" (with BENCH_BASELINE) counts the instructions that this build's and the
# baseline's first and second headless backup of INSTRUCTION_FILES (3000) files made as the small
# set's execute, under Valgrind's callgrind: a count that the machine's load does not change, for a
# change whose cost is smaller than the noise of wall times (the byte progress and the run's
# tally, for instance). It prints each count and the ratios of this build to the baseline.
#
# Data sets: "large", LARGE_FILES files of LARGE_MIB MiB (about 2.0 GiB by default); "small",
# SMALL_FILES files of 1 to 64 KiB, spread evenly on a log scale (about 15 KiB on average, about
# 776 MB by default) over SMALL_FOLDERS folders two levels deep; in both every fifth file
# repeats the content of the file before it (20% duplicate content).
#
# With BENCH_BASELINE set to another build's stashwell program (an earlier commit's, say), each
# repetition of a data set also times that program's first and second headless backup (quick
# check off) in a backup folder of its own, next to this build's (the two take turns at going
# first), and the ratios of this build to it are printed: a change's cost measured side by side. "qrv" also times
# `qrv restore 1 --to` with --no-metadata, bytes only, and prints the ratio of the full restore
# to it.
#
# Environment: BENCH_DIR (default /tmp/stashwell-bench), BENCH_REPEAT (3), LARGE_FILES (40) x
# LARGE_MIB (51), SMALL_FILES (50000) in SMALL_FOLDERS (2000), TREE_FILES (50000) in
# TREE_FOLDERS (2000).
# Disk: every copy, backup, restore and extract is kept under BENCH_DIR/run-<time>, so with the
# default sizes and 3 repetitions "large" needs about 40 GiB free, "small" about 20 GiB,
# "cancel" about 5 GiB, "restore" about 13 GiB, "qrv" about 9 GiB and "all" about 87 GiB.
set -euo pipefail
here="$(cd "$(dirname "$0")/.." && pwd)"
"$here/scripts/install-deps.sh" --bench
cmake -S "$here" -B "$here/build-release" -G Ninja -DCMAKE_BUILD_TYPE=Release >/dev/null
cmake --build "$here/build-release" --target stashwell qrv make_data window_run fsshim >/dev/null
bin="$here/build-release/stashwell"
shim="$here/build-release/tests/libfsshim.so"
qrv="$here/build-release/qrv"
window_run="$here/build-release/window_run"

baseline="${BENCH_BASELINE:-}"
if [ -n "$baseline" ] && [ ! -x "$baseline" ]; then
    echo "BENCH_BASELINE=$baseline is not a program" >&2
    exit 2
fi

which="${1:-all}"
root="${BENCH_DIR:-/tmp/stashwell-bench}"
repeat="${BENCH_REPEAT:-3}"
large_files="${LARGE_FILES:-40}"
large_mib="${LARGE_MIB:-51}"
small_files="${SMALL_FILES:-50000}"
small_folders="${SMALL_FOLDERS:-2000}"
tree_files="${TREE_FILES:-50000}"
tree_folders="${TREE_FOLDERS:-2000}"
run_id="$(date +%s)"
work="$root/run-$run_id"
mkdir -p "$work"
# restic and borg keep their caches and settings inside the run's folder and ask nothing.
export RESTIC_PASSWORD=bench RESTIC_CACHE_DIR="$work/restic-cache" BORG_BASE_DIR="$work/borg-base"
export BORG_UNKNOWN_UNENCRYPTED_REPO_ACCESS_IS_OK=yes BORG_RELOCATED_REPO_ACCESS_IS_OK=yes

median() { sort -g | awk '{a[NR]=$1} END {print (NR%2 ? a[(NR+1)/2] : (a[NR/2]+a[NR/2+1])/2)}'; }

# write_medians NAME KEY...: NAME.medians, one line "key wall_s peak_kib" per timed step KEY
# that ran, the medians of its repetitions.
write_medians() {
    local name="$1" f; shift
    : >"$work/$name.medians"
    for f in "$@"; do
        [ -s "$work/$name.$f" ] || continue
        echo "$f $(cut -d' ' -f1 "$work/$name.$f" | median) $(cut -d' ' -f2 "$work/$name.$f" | median)" \
            >>"$work/$name.medians"
    done
}

# timed OUT CMD...: runs CMD, appends "seconds peak_kib" to OUT.
timed() {
    local out="$1"; shift
    /usr/bin/time -f "%e %M" -o "$work/time.txt" "$@" >/dev/null
    cat "$work/time.txt" >>"$out"
}

# check WHAT GOT WANT: an ERROR line, and a failed script at its end, unless GOT equals WANT.
failures=0
check() {
    if [ "$2" != "$3" ]; then
        echo "ERROR: $1 holds $2 files, not the $3 of the data set" >&2
        failures=$((failures + 1))
    fi
}

make_instructions() {
    local count="${INSTRUCTION_FILES:-3000}"
    # As the small set: its files spread over folders of 25.
    "$here/build-release/make_data" "$1" spread "$count" $(( (count + 24) / 25 ))
}
make_large() { "$here/build-release/make_data" "$1" large "$large_files" "$large_mib"; }
make_small() { "$here/build-release/make_data" "$1" spread "$small_files" "$small_folders"; }

# make_set LABEL KIND DATA: makes the data set KIND ("large" or "small") in DATA, tells its size
# on stderr and answers "bytes files nonempty_files".
make_set() {
    local label="$1" kind="$2" data="$3"
    echo "== $label: making the data set" >&2
    "make_$kind" "$data" >&2
    sync -f "$data"
    local bytes files nonempty
    bytes=$(du -sb "$data" | cut -f1)
    files=$(find "$data" -type f | wc -l)
    nonempty=$(find "$data" -type f -size +0 | wc -l)
    echo "   $files files, $(( bytes / 1024 / 1024 )) MiB" >&2
    echo "$bytes $files $nonempty"
}

# set_setup HOME KEY VALUE: the Setup row KEY of HOME's catalogue, as SetSetupValue stores it.
set_setup() {
    sqlite3 "$1/backup/db/Backup.db" \
        "DELETE FROM Setup WHERE key = '$2'; INSERT INTO Setup (key, value) VALUES ('$2', '$3');"
}

# A backup folder of its own for one repetition, with the data set as its one source and an
# exclusion pattern that matches none of its files.
prepare_backup() {
    local home="$1" data="$2"
    mkdir -p "$home/config/Korvex" "$home/state"
    printf '[SOFTWARE\\Korvex\\QRV\\Settings]\nBackupPath=%s\n' "$home/backup" >"$home/config/Korvex/QRV.conf"
    mkdir -p "$home/backup"
    XDG_CONFIG_HOME="$home/config" XDG_STATE_HOME="$home/state" "$bin" nothing
    sqlite3 "$home/backup/db/Backup.db" "INSERT INTO Sources (source) VALUES ('$data');"
    set_setup "$home" Exclude '*.nomatch'
}

# The Files rows of run BID in HOME's catalogue.
run_files() {
    sqlite3 "$1/backup/db/Backup.db" "SELECT COUNT(*) FROM Files WHERE bid = $2;"
}

# stashwell_runs SET KIND HOME DATA NONEMPTY: Stashwell's first and second headless backup in
# HOME, timed into SET.KIND1 and SET.KIND2, each checked to hold every non-empty file; KIND is
# "stash" with the quick check off, "quick" with it on, "named" with it off where anonymous
# temporary files are refused below HOME's backup folder, and "base" the BENCH_BASELINE
# program with it off.
stashwell_runs() {
    local name="$1" kind="$2" home="$3" data="$4" nonempty="$5"
    local xdg=(env XDG_CONFIG_HOME="$home/config" XDG_STATE_HOME="$home/state")
    [ "$kind" = named ] && xdg+=(LD_PRELOAD="$shim" QRV_SHIM_ROOT="$home/backup" QRV_SHIM=no-tmpfile)
    local program="$bin"
    [ "$kind" = base ] && program="$baseline"
    timed "$work/$name.${kind}1" "${xdg[@]}" "$program" backup
    timed "$work/$name.${kind}2" "${xdg[@]}" "$program" backup
    local check_is="off"
    [ "$kind" = quick ] && check_is="on"
    check "stashwell first run, quick check $check_is ($home, bid 1)" "$(run_files "$home" 1)" "$nonempty"
    check "stashwell second run, quick check $check_is ($home, bid 2)" "$(run_files "$home" 2)" "$nonempty"
}

bench_set() {
    local name="$1"
    local data="$work/$name-data" bytes files nonempty
    read -r bytes files nonempty < <(make_set "$name" "$name" "$data")
    find "$data" -type f -exec cat {} + >/dev/null   # the same page-cache state for every tool

    local keys=(floor md5 cp stash1 stash2 base1 base2 quick1 quick2 named1 named2 window borg1 borg2
        borgx restic1 restic2 restic_r)
    local f
    for f in "${keys[@]}"; do : >"$work/$name.$f"; done
    for r in $(seq 1 "$repeat"); do
        # The floor of a run that finds nothing changed: one look at every file.
        timed "$work/$name.floor" find "$data" -printf '%s %T@\n'
        timed "$work/$name.md5" bash -c "cd '$data' && find . -type f -print0 | xargs -0 md5sum"
        timed "$work/$name.cp" bash -c "cp -a '$data' '$work/$name-cp$r' && sync -f '$work/$name-cp$r'"
        # Stashwell with the quick check off, then in a backup folder of its own with it on.
        local home="$work/$name-home$r" quick_home="$work/$name-quick$r"
        prepare_backup "$home" "$data"
        # The baseline and this build take turns at going first, right after the copy: whichever
        # goes first meets the file system still busy with what the copy wrote.
        if [ -n "$baseline" ] && [ $((r % 2)) = 0 ]; then
            prepare_backup "$work/$name-base$r" "$data"
            stashwell_runs "$name" base "$work/$name-base$r" "$data" "$nonempty"
        fi
        stashwell_runs "$name" stash "$home" "$data" "$nonempty"
        if [ -n "$baseline" ] && [ $((r % 2)) = 1 ]; then
            prepare_backup "$work/$name-base$r" "$data"
            stashwell_runs "$name" base "$work/$name-base$r" "$data" "$nonempty"
        fi
        prepare_backup "$quick_home" "$data"
        set_setup "$quick_home" QuickCheck 1
        stashwell_runs "$name" quick "$quick_home" "$data" "$nonempty"
        local named_home="$work/$name-named$r"
        prepare_backup "$named_home" "$data"
        stashwell_runs "$name" named "$named_home" "$data" "$nonempty"
        local left
        left=$(find "$named_home/backup" -name '*.tmp' | wc -l)
        if [ "$left" != 0 ]; then
            echo "ERROR: $left temporary files left in $named_home/backup" >&2
            failures=$((failures + 1))
        fi
        if [ "$name" = small ]; then
            local window_home="$work/$name-window$r"
            prepare_backup "$window_home" "$data"
            timed "$work/$name.window" env XDG_CONFIG_HOME="$window_home/config" \
                XDG_STATE_HOME="$window_home/state" QT_QPA_PLATFORM=offscreen "$window_run"
            check "stashwell run through the window ($window_home, bid 1)" \
                "$(run_files "$window_home" 1)" "$nonempty"
        fi
        # Every tool ends with its data on disk, as Stashwell's run does before its commit.
        local borg_repo="$work/$name-borg$r" borg_to="$work/$name-borg-extract$r"
        borg init --encryption=none "$borg_repo" >/dev/null
        timed "$work/$name.borg1" bash -c "borg create '$borg_repo::first' '$data' && sync -f '$borg_repo'"
        timed "$work/$name.borg2" bash -c "borg create '$borg_repo::second' '$data' && sync -f '$borg_repo'"
        mkdir "$borg_to"
        timed "$work/$name.borgx" bash -c "cd '$borg_to' && borg extract '$borg_repo::first' && sync -f '$borg_to'"
        check "borg archive $borg_repo::first" \
            "$(borg list "$borg_repo::first" --format '{type}{NL}' | grep -cx -- - || true)" "$files"
        check "borg extract $borg_to" "$(find "$borg_to" -type f | wc -l)" "$files"
        local restic_repo="$work/$name-restic$r" restic_to="$work/$name-restic-restore$r"
        restic init -q --repo "$restic_repo"
        timed "$work/$name.restic1" bash -c "restic backup -q --repo '$restic_repo' '$data' && sync -f '$restic_repo'"
        timed "$work/$name.restic2" bash -c "restic backup -q --repo '$restic_repo' '$data' && sync -f '$restic_repo'"
        mkdir "$restic_to"
        timed "$work/$name.restic_r" bash -c "restic restore -q --repo '$restic_repo' latest --target '$restic_to' && sync -f '$restic_to'"
        check "restic snapshot latest of $restic_repo" \
            "$(restic ls --json -q --repo "$restic_repo" latest | grep -c '"type":"file"' || true)" "$files"
        check "restic restore $restic_to" "$(find "$restic_to" -type f | wc -l)" "$files"
    done

    write_medians "$name" "${keys[@]}"
    awk -v n="$name" -v b="$bytes" -v f="$files" -v r="$repeat" '
    { w[$1] = $2; m[$1] = $3 }
    # q(A, B): A / B, or "-" when B rounds to no time at all.
    function q(a, b) { return b > 0 ? sprintf("%.2f", a / b) : "-" }
    function row(label, k) {
        if (!(k in w)) return
        printf "   %-26s %8.2f %10s %10s %10.1f\n", label, w[k], \
            (w[k] > 0 ? sprintf("%.1f", mb / w[k]) : "-"), (w[k] > 0 ? sprintf("%.0f", f / w[k]) : "-"), m[k] / 1024
    }
    function info(label, a, b) { printf "   %-44s = %s\n", label, q(a, b) }
    function goal(label, a, b, limit,   v) {
        v = q(a, b)
        printf "   %-44s = %-5s   goal <= %.2f  %s\n", label, v, limit, \
            (v != "-" && a / b <= limit) ? "met" : "NOT met"
    }
    END {
        mb = b / 1048576
        printf "-- %s: %d files, %.0f MiB, medians of %d runs\n", n, f, mb, r
        printf "   %-26s %8s %10s %10s %10s\n", "", "wall s", "MiB/s", "files/s", "peak MiB"
        row("find -printf (floor)", "floor")
        row("md5sum", "md5")
        row("cp -a + sync -f", "cp")
        row("stashwell first", "stash1")
        row("stashwell second", "stash2")
        row("baseline first", "base1")
        row("baseline second", "base2")
        row("stashwell quick first", "quick1")
        row("stashwell quick second", "quick2")
        row("stashwell named first", "named1")
        row("stashwell named second", "named2")
        row("stashwell window first", "window")
        row("borg first", "borg1")
        row("borg second", "borg2")
        row("borg extract + sync -f", "borgx")
        row("restic first", "restic1")
        row("restic second", "restic2")
        row("restic restore + sync -f", "restic_r")
        first = w["stash1"]; second = w["stash2"]; md5 = w["md5"]; cp = w["cp"]
        fast1 = w["borg1"] < w["restic1"] ? w["borg1"] : w["restic1"]
        fast2 = w["borg2"] < w["restic2"] ? w["borg2"] : w["restic2"]
        info("first / (md5sum + cp)", first, md5 + cp)
        info("first files/s / cp files/s", cp, first)
        info("first / md5sum", first, md5)
        info("first / borg first", first, w["borg1"])
        info("first / restic first", first, w["restic1"])
        info("quick first / first", w["quick1"], first)
        info("quick second / second", w["quick2"], second)
        info("second / borg second", second, w["borg2"])
        if ("base1" in w) {
            info("first / baseline first", first, w["base1"])
            info("second / baseline second", second, w["base2"])
        }
        if (n == "small") {
            goal("first / faster of restic and borg first", first, fast1, 0.70)
            goal("second / faster of restic and borg second", second, fast2, 0.80)
            goal("second / md5sum", second, md5, 1.00)
        } else {
            info("first / faster of restic and borg first", first, fast1)
            info("second / faster of restic and borg second", second, fast2)
        }
        if (n == "large") goal("second / md5sum", second, md5, 0.60)
        goal("quick second / borg second", w["quick2"], w["borg2"], 0.25)
        goal("quick second / floor", w["quick2"], w["floor"], 3.00)
        goal("named first / first", w["named1"], first, 1.10)
        goal("named second / second", w["named2"], second, 1.10)
        if ("window" in w) goal("window first / headless first", w["window"], first, 1.10)
    }' "$work/$name.medians"
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

# The restore tab on a big run: TREE_BIG_FILES tiny files (100,000) in one folder, backed up
# once; per repetition, through the real window: the run chosen and its folder opened (the
# files loaded and sorted), a search by pattern typed with Enter, and the search cleared.
# Goals: open <= 1 s, search <= 0.3 s.
bench_tree() {
    local data="$work/tree-data" files="${TREE_BIG_FILES:-100000}"
    echo "== tree: making $files tiny files in one folder"
    rm -rf "$data"
    "$here/build-release/make_data" "$data" tiny "$files" 1
    local home="$work/tree-home"
    rm -rf "$home"
    prepare_backup "$home" "$data"
    XDG_CONFIG_HOME="$home/config" XDG_STATE_HOME="$home/state" "$bin" backup
    : >"$work/tree.times"
    for r in $(seq 1 "$repeat"); do
        /usr/bin/time -f "%e %M" -o "$work/time.txt" env XDG_CONFIG_HOME="$home/config" \
            XDG_STATE_HOME="$home/state" QT_QPA_PLATFORM=offscreen \
            "$window_run" --tree '*7.dat' 2>/dev/null >"$work/tree.one"
        echo "$(cat "$work/tree.one") $(cat "$work/time.txt")" >>"$work/tree.times"
    done
    # tree.times: open O search S clear C matches M choose L wall_s peak_kib
    local open search clear matches peak
    open=$(awk '{print $2}' "$work/tree.times" | median)
    search=$(awk '{print $4}' "$work/tree.times" | median)
    clear=$(awk '{print $6}' "$work/tree.times" | median)
    matches=$(awk '{print $8}' "$work/tree.times" | median)
    peak=$(awk '{print $12}' "$work/tree.times" | median)
    awk -v open="$open" -v search="$search" -v clear="$clear" -v matches="$matches" \
        -v peak="$peak" -v files="$files" -v r="$repeat" 'BEGIN {
        printf "-- tree: %d files in one folder, medians of %d runs through the window\n", files, r
        printf "   run chosen and its folder opened, sorted: %.3f s (goal <= 1: %s)\n", open,
            open <= 1 ? "met" : "NOT met"
        printf "   search *7.dat, %d matches: %.3f s (goal <= 0.3: %s)\n", matches, search,
            search <= 0.3 ? "met" : "NOT met"
        printf "   search cleared: %.3f s\n", clear
        printf "   peak memory of the window program: %.1f MiB\n", peak / 1024
    }'
}

# listing DIR: a digest of what find tells of every entry below DIR: type, mode, time and path,
# and the size of all but folders (a folder's size is the file system's own).
listing() {
    (cd "$1" && find . \( -type d -printf '%y %m %T@ - %p\n' \) -o -printf '%y %m %T@ %s %p %l\n') |
        sort | md5sum
}

# The companion: a whole run of the small data set restored with qrv, against restic restore of
# the same tree and cp -a; the store read by qrv check --read-data, against md5sum.
bench_qrv() {
    local data="$work/qrv-data" bytes files nonempty
    read -r bytes files nonempty < <(make_set qrv small "$data")
    local home="$work/qrv-home" restic_repo="$work/qrv-restic"
    local xdg=(env XDG_CONFIG_HOME="$home/config" XDG_STATE_HOME="$home/state")
    prepare_backup "$home" "$data"
    "${xdg[@]}" "$bin" backup
    check "stashwell run ($home, bid 1)" "$(run_files "$home" 1)" "$nonempty"
    restic init -q --repo "$restic_repo"
    restic backup -q --repo "$restic_repo" "$data"
    local store="$home/backup/Files" store_bytes store_files
    store_bytes=$(find "$store" -type f -name '*.QRV' -printf '%s\n' | awk '{s += $1} END {print s}')
    store_files=$(find "$store" -type f -name '*.QRV' | wc -l)
    echo "   store: $store_files files, $(( store_bytes / 1024 / 1024 )) MiB"
    # The same page-cache state for every tool: what each one reads has just been read.
    find "$data" "$store" "$restic_repo" -type f -exec cat {} + >/dev/null

    local keys=(cp qrv_r qrv_b restic_r md5 qrv_c)
    local f
    for f in "${keys[@]}"; do : >"$work/qrv.$f"; done
    for r in $(seq 1 "$repeat"); do
        timed "$work/qrv.cp" bash -c "cp -a '$data' '$work/qrv-cp$r' && sync -f '$work/qrv-cp$r'"
        timed "$work/qrv.qrv_r" bash -c "${xdg[*]} '$qrv' restore 1 --to '$work/qrv-to$r' && sync -f '$work/qrv-to$r'"
        check "qrv restore $work/qrv-to$r" "$(find "$work/qrv-to$r" -type f | wc -l)" "$files"
        timed "$work/qrv.qrv_b" bash -c "${xdg[*]} '$qrv' restore 1 --no-metadata --to '$work/qrv-bytes$r' && sync -f '$work/qrv-bytes$r'"
        check "qrv restore --no-metadata $work/qrv-bytes$r" "$(find "$work/qrv-bytes$r" -type f | wc -l)" "$nonempty"
        mkdir "$work/qrv-restic-to$r"
        timed "$work/qrv.restic_r" bash -c "restic restore -q --repo '$restic_repo' latest --target '$work/qrv-restic-to$r' && sync -f '$work/qrv-restic-to$r'"
        check "restic restore $work/qrv-restic-to$r" "$(find "$work/qrv-restic-to$r" -type f | wc -l)" "$files"
        timed "$work/qrv.md5" bash -c "find '$store' -type f -name '*.QRV' -print0 | xargs -0 md5sum"
        timed "$work/qrv.qrv_c" "${xdg[@]}" "$qrv" check --read-data
    done
    # The restore gives back every file, the empty ones too, with its time and mode.
    if ! diff -r "$data" "$work/qrv-to1" >/dev/null ||
        [ "$(listing "$data")" != "$(listing "$work/qrv-to1")" ]; then
        echo "ERROR: the tree qrv restored differs from the data set" >&2
        failures=$((failures + 1))
    fi

    write_medians qrv "${keys[@]}"
    awk -v b="$bytes" -v sb="$store_bytes" -v f="$files" -v r="$repeat" '
    { w[$1] = $2; m[$1] = $3 }
    function row(label, k, bytes) {
        printf "   %-30s %8.2f %10.1f %10.0f %10.1f\n", label, w[k], bytes / 1048576 / w[k], \
            f / w[k], m[k] / 1024
    }
    function goal(label, v, limit, above) {
        printf "   %-44s = %-5.2f   goal %s %.2f  %s\n", label, v, above ? ">=" : "<=", limit, \
            (above ? v >= limit : v <= limit) ? "met" : "NOT met"
    }
    END {
        printf "-- qrv: %d files, %.0f MiB (store %.0f MiB), medians of %d runs\n", f, b / 1048576, \
            sb / 1048576, r
        printf "   %-30s %8s %10s %10s %10s\n", "", "wall s", "MiB/s", "files/s", "peak MiB"
        row("cp -a + sync -f", "cp", b)
        row("qrv restore + sync -f", "qrv_r", b)
        row("qrv restore --no-metadata", "qrv_b", b)
        row("restic restore + sync -f", "restic_r", b)
        row("md5sum of the store", "md5", sb)
        row("qrv check --read-data", "qrv_c", sb)
        goal("qrv restore / restic restore", w["qrv_r"] / w["restic_r"], 0.80, 0)
        goal("qrv restore / (cp -a + sync -f)", w["qrv_r"] / w["cp"], 1.50, 0)
        goal("check --read-data speed / md5sum speed", w["md5"] / w["qrv_c"], 0.80, 1)
        goal("qrv restore / restore --no-metadata", w["qrv_r"] / w["qrv_b"], 1.10, 0)
    }' "$work/qrv.medians"
}

# scale_steps NAME HOME DATA REPETITION NONEMPTY: Stashwell's steps on a big tree, each timed
# with its peak memory into NAME.<step>: the first and the quick second backup (the quick check
# on; nothing changed, every file recorded),
# a third with one run kept (retention deletes two), compact, the window's restore tree on the
# run (chosen, its top folder opened, a search), qrv ls, find, restore and check.
scale_steps() {
    local name="$1" home="$2" data="$3" r="$4" nonempty="$5"
    local xdg=(env XDG_CONFIG_HOME="$home/config" XDG_STATE_HOME="$home/state")
    prepare_backup "$home" "$data"
    set_setup "$home" QuickCheck 1
    timed "$work/$name.first" "${xdg[@]}" "$bin" backup
    timed "$work/$name.quick" "${xdg[@]}" "$bin" backup
    check "stashwell quick second run ($home, bid 2)" "$(run_files "$home" 2)" "$nonempty"
    set_setup "$home" MaxBackups 1
    timed "$work/$name.retain" "${xdg[@]}" "$bin" backup
    timed "$work/$name.compact" "${xdg[@]}" "$bin" compact
    local bid folder
    bid=$(sqlite3 "$home/backup/db/Backup.db" "SELECT MAX(bid) FROM Backups;")
    folder=$(sqlite3 "$home/backup/db/Backup.db" "SELECT path FROM Paths WHERE bid = $bid ORDER BY pid DESC LIMIT 1;")
    timed "$work/$name.tree" "${xdg[@]}" QT_QPA_PLATFORM=offscreen "$window_run" --tree '*7.dat'
    timed "$work/$name.ls" "${xdg[@]}" "$qrv" ls "$bid" "$folder"
    timed "$work/$name.find" "${xdg[@]}" "$qrv" find '*7.dat'
    timed "$work/$name.restore" bash -c "${xdg[*]} '$qrv' restore $bid --to '$work/$name-to$r' && sync -f '$work/$name-to$r'"
    timed "$work/$name.check" "${xdg[@]}" "$qrv" check
}

# Scale: SCALE_FILES tiny files (500,000) in SCALE_FOLDERS folders (1,000), and a tree of
# SCALE_BASE_FILES (100,000) laid out the same way for how memory grows with the tree. Per
# repetition, on the big tree: find -printf '%s %T@' (the floor: one look at every file), the
# Stashwell steps of scale_steps, borg create first and second, restic backup first and second;
# on the base tree the Stashwell steps alone. Every step's wall time and peak resident memory
# (/usr/bin/time -v's "Maximum resident set size"). Goals: quick second / floor <= 3, quick
# second / borg second <= 0.25, every Stashwell step's peak <= 100 MiB on the big tree, and its
# growth from the base tree <= 10 MiB per 100,000 files.
bench_scale() {
    local files="${SCALE_FILES:-500000}" folders="${SCALE_FOLDERS:-1000}"
    local base_files="${SCALE_BASE_FILES:-100000}"
    local data="$work/scale-data" base_data="$work/scale-base-data"
    echo "== scale: making $files and $base_files tiny files"
    "$here/build-release/make_data" "$data" tiny "$files" "$folders"
    "$here/build-release/make_data" "$base_data" tiny "$base_files" $(( folders * base_files / files ))
    sync -f "$data"
    local nonempty base_nonempty
    nonempty=$(find "$data" -type f -size +0 | wc -l)
    base_nonempty=$(find "$base_data" -type f -size +0 | wc -l)
    local steps=(first quick retain compact tree ls find restore check)
    local keys=(floor borg1 borg2 restic1 restic2) f
    for f in "${steps[@]}"; do keys+=("$f" "base_$f"); done
    for f in "${keys[@]}"; do : >"$work/scale.$f"; done
    for r in $(seq 1 "$repeat"); do
        timed "$work/scale.floor" find "$data" -printf '%s %T@\n'
        scale_steps scale "$work/scale-home$r" "$data" "$r" "$nonempty"
        check "stashwell third run (scale-home$r, bid 3)" "$(run_files "$work/scale-home$r" 3)" "$nonempty"
        check "qrv restore $work/scale-to$r" "$(find "$work/scale-to$r" -type f | wc -l)" "$files"
        scale_steps scale.base "$work/scale-base-home$r" "$base_data" "$r" "$base_nonempty"
        for f in "${steps[@]}"; do tail -1 "$work/scale.base.$f" >>"$work/scale.base_$f"; done
        check "stashwell third run (scale-base-home$r, bid 3)" \
            "$(run_files "$work/scale-base-home$r" 3)" "$base_nonempty"
        local borg_repo="$work/scale-borg$r" restic_repo="$work/scale-restic$r"
        borg init --encryption=none "$borg_repo" >/dev/null
        timed "$work/scale.borg1" bash -c "borg create '$borg_repo::first' '$data' && sync -f '$borg_repo'"
        timed "$work/scale.borg2" bash -c "borg create '$borg_repo::second' '$data' && sync -f '$borg_repo'"
        restic init -q --repo "$restic_repo"
        timed "$work/scale.restic1" bash -c "restic backup -q --repo '$restic_repo' '$data' && sync -f '$restic_repo'"
        timed "$work/scale.restic2" bash -c "restic backup -q --repo '$restic_repo' '$data' && sync -f '$restic_repo'"
    done
    write_medians scale "${keys[@]}"
    awk -v f="$files" -v bf="$base_files" -v r="$repeat" '
    { w[$1] = $2; m[$1] = $3 / 1024 }
    function goal(label, v, limit) {
        printf "   %-44s = %-7.2f goal <= %.2f  %s\n", label, v, limit, v <= limit ? "met" : "NOT met"
    }
    END {
        printf "-- scale: %d tiny files (and %d for growth), medians of %d runs\n", f, bf, r
        printf "   %-30s %8s %10s %12s %14s\n", "", "wall s", "peak MiB", "base peak", "MiB/100k more"
        n = split("floor borg1 borg2 restic1 restic2", others, " ")
        split("find -printf (floor)|borg create first|borg create second|restic backup first|restic backup second", olabels, "|")
        for (i = 1; i <= n; ++i)
            printf "   %-30s %8.2f %10.1f\n", olabels[i], w[others[i]], m[others[i]]
        n = split("first quick retain compact tree ls find restore check", steps, " ")
        split("stashwell first|stashwell quick second|stashwell third, 1 run kept|stashwell compact|window restore tree|qrv ls|qrv find|qrv restore + sync -f|qrv check", labels, "|")
        worst = 0; growth = 0
        for (i = 1; i <= n; ++i) {
            s = steps[i]; g = (m[s] - m["base_" s]) / ((f - bf) / 100000)
            printf "   %-30s %8.2f %10.1f %12.1f %14.1f\n", labels[i], w[s], m[s], m["base_" s], g
            if (m[s] > worst) { worst = m[s]; worstLabel = labels[i] }
            if (g > growth) { growth = g; growthLabel = labels[i] }
        }
        goal("quick second / floor", w["quick"] / w["floor"], 3.00)
        goal("quick second / borg second", w["quick"] / w["borg2"], 0.25)
        goal("most peak MiB (" worstLabel ")", worst, 100)
        goal("most MiB per 100k more (" growthLabel ")", growth, 10)
        printf "   %-44s = %.1f / %.1f MiB\n", "borg / restic first peak", m["borg1"], m["restic1"]
    }' "$work/scale.medians"
}

# year_catalogue HOME RUNS: HOME's catalogue, which holds one real run (bid 1), made to hold
# RUNS daily runs of the same files, the newest the real one's copy of yesterday; written
# directly with sqlite3 (the two indexes of Files dropped and made again after, as SQLite makes
# an index fastest), with the metadata record and the quick check's file to match.
year_catalogue() {
    local home="$1" runs="$2" db="$1/backup/db" bid day dates="$work/year-dates.sql"
    : >"$dates"
    for bid in $(seq 1 "$runs"); do
        day=$(date -d "-$((runs - bid + 1)) days" '+%d/%m/%Y %H:%M:%S')
        echo "($bid, '$day')" >>"$dates"
    done
    local values
    values=$(paste -sd, "$dates")
    sqlite3 "$db/Backup.db" <<SQL
PRAGMA cache_size = -400000;
PRAGMA temp_store = FILE;
CREATE TEMP TABLE Days (bid INTEGER PRIMARY KEY, datebk TEXT);
INSERT INTO Days VALUES $values;
BEGIN;
DROP INDEX IDX_Files_1;
DROP INDEX IDX_Files_2;
UPDATE Backups SET datebk = (SELECT datebk FROM Days WHERE Days.bid = 1) WHERE bid = 1;
INSERT INTO Backups (bid, source, datebk)
    SELECT Days.bid, Backups.source, Days.datebk FROM Days, Backups WHERE Days.bid > 1 AND Backups.bid = 1;
INSERT INTO Files (bid, md5, path, file, backup, size, filedate)
    SELECT Days.bid, md5, path, file, backup, size, filedate FROM Days, Files
    WHERE Days.bid > 1 AND Files.bid = 1 ORDER BY Days.bid, Files.fid;
INSERT INTO Paths (bid, path)
    SELECT Days.bid, path FROM Days, Paths WHERE Days.bid > 1 AND Paths.bid = 1 ORDER BY Days.bid, Paths.pid;
CREATE INDEX IDX_Files_1 ON Files (file);
CREATE INDEX IDX_Files_2 ON Files (bid, path);
COMMIT;
SQL
    sqlite3 "$db/Metadata.db" <<SQL
PRAGMA cache_size = -200000;
CREATE TEMP TABLE Days (bid INTEGER PRIMARY KEY, datebk TEXT);
INSERT INTO Days VALUES $values;
BEGIN;
UPDATE Runs SET datebk = (SELECT datebk FROM Days WHERE Days.bid = 1) WHERE bid = 1;
INSERT INTO Runs (bid, datebk) SELECT bid, datebk FROM Days WHERE bid > 1;
INSERT INTO Entries SELECT Days.bid, path, seq, kind, mtime, mode, owner, grp, target
    FROM Days, Entries WHERE Days.bid > 1 AND Entries.bid = 1 ORDER BY Days.bid, Entries.path;
INSERT INTO Tallies SELECT Days.bid, seen, added, addedBytes, stored, empty, hidden, system,
    excluded, unreadable, problems FROM Days, Tallies WHERE Days.bid > 1 AND Tallies.bid = 1;
COMMIT;
SQL
    sqlite3 "$db/QuickCheck.db" \
        "UPDATE Runs SET bid = $runs, datebk = '$(tail -1 "$dates" | cut -d"'" -f2)';"
}

# year_steps NAME HOME DATA RUNS: the steps whose cost should not grow with the runs kept, on
# HOME's catalogue of RUNS runs, each timed into NAME.<step>: a quick run with nothing changed;
# a run where one file in a hundred changed (the sizes of stored content read, new content
# copied); the run chooser's list and the restore tree's top folder, through the window; qrv
# ls of that folder and qrv find; a quick run that also drops the oldest run; Compact.
# Before them one run, not timed, settles the catalogue: SQLite made its indexes with full
# pages, so the first run after splits a page of IDX_Files_1 for nearly every file (as the first
# run after a Compact does). Each timed step begins with nothing left to write: a run ends with
# a flush of its whole file system, which would otherwise also write what came before it.
year_steps() {
    local name="$1" home="$2" data="$3" runs="$4"
    local xdg=(env XDG_CONFIG_HOME="$home/config" XDG_STATE_HOME="$home/state")
    set_setup "$home" MaxBackups 30000
    "${xdg[@]}" "$bin" backup
    sync
    timed "$work/$name.quick" "${xdg[@]}" "$bin" backup
    find "$data" -type f -name '*00.dat' -exec sh -c 'for f; do echo changed >>"$f"; done' _ {} +
    sync
    timed "$work/$name.changed" "${xdg[@]}" "$bin" backup
    local bid folder
    bid=$(sqlite3 "$home/backup/db/Backup.db" "SELECT MAX(bid) FROM Backups;")
    folder=$(sqlite3 "$home/backup/db/Backup.db" "SELECT path FROM Paths WHERE bid = $bid ORDER BY pid DESC LIMIT 1;")
    "${xdg[@]}" QT_QPA_PLATFORM=offscreen "$window_run" --tree '*7.dat' >"$work/$name.window" 2>/dev/null
    awk '{print $10, 0}' "$work/$name.window" >>"$work/$name.choose"
    awk '{print $2, 0}' "$work/$name.window" >>"$work/$name.open"
    timed "$work/$name.ls" "${xdg[@]}" "$qrv" ls "$bid" "$folder"
    timed "$work/$name.find" "${xdg[@]}" "$qrv" find '*7.dat'
    set_setup "$home" MaxBackups "$((runs + 3))"
    sync
    timed "$work/$name.retain" "${xdg[@]}" "$bin" backup
    sync
    timed "$work/$name.compact" "${xdg[@]}" "$bin" compact
}

# A year of runs: YEAR_FILES tiny files (100,000) in YEAR_FOLDERS folders (200), backed up once
# with the quick check on; that catalogue made to hold 10 runs and, in a copy, YEAR_RUNS (365),
# and the steps of year_steps timed on each (medians of BENCH_REPEAT, each on a fresh copy).
# Goal: every step on YEAR_RUNS runs costs at most twice what it costs on 10.
bench_year() {
    local files="${YEAR_FILES:-100000}" folders="${YEAR_FOLDERS:-200}" runs="${YEAR_RUNS:-365}"
    local steps=(quick changed choose open ls find retain compact) f kept
    for kept in 10 "$runs"; do
        for f in "${steps[@]}"; do : >"$work/year$kept.$f"; done
    done
    for r in $(seq 1 "$repeat"); do
        for kept in 10 "$runs"; do
            local data="$work/year-data" home="$work/year-home"
            rm -rf "$data" "$home"
            echo "== year: $files tiny files backed up, the catalogue made to hold $kept runs"
            "$here/build-release/make_data" "$data" tiny "$files" "$folders"
            prepare_backup "$home" "$data"
            set_setup "$home" QuickCheck 1
            XDG_CONFIG_HOME="$home/config" XDG_STATE_HOME="$home/state" "$bin" backup
            year_catalogue "$home" "$kept"
            echo "   catalogue: $(du -m "$home/backup/db/Backup.db" | cut -f1) MiB," \
                "metadata $(du -m "$home/backup/db/Metadata.db" | cut -f1) MiB"
            year_steps "year$kept" "$home" "$data" "$kept"
        done
    done
    for kept in 10 "$runs"; do write_medians "year$kept" "${steps[@]}"; done
    awk -v few="$work/year10.medians" -v f="$files" -v n="$runs" -v r="$repeat" '
    BEGIN {
        while ((getline line < few) > 0) { split(line, a, " "); w10[a[1]] = a[2]; m10[a[1]] = a[3] }
    }
    { w[$1] = $2; m[$1] = $3 }
    END {
        printf "-- year: %d tiny files, %d runs kept against 10, medians of %d runs\n", f, n, r
        printf "   %-40s %9s %9s %8s %9s %9s\n", "", "10 runs", n " runs", "ratio", "MiB 10", "MiB " n
        k = split("quick changed choose open ls find retain compact", steps, " ")
        split("quick run, nothing changed|run, 1 file in 100 changed|window: run chooser listed|window: top folder opened|qrv ls of the top folder|qrv find *7.dat (every run)|quick run dropping the oldest run|compact", labels, "|")
        for (i = 1; i <= k; ++i) {
            s = steps[i]
            # /usr/bin/time counts hundredths: a step that took none with 10 runs has no ratio.
            if (w10[s] > 0) {
                ratio = sprintf("%8.2f", w[s] / w10[s]); verdict = w[s] / w10[s] <= 2 ? "met" : "NOT met"
            } else {
                ratio = sprintf("%8s", "-"); verdict = w[s] > 0 ? "NOT met" : "under 0.01 s with both"
            }
            printf "   %-40s %9.3f %9.3f %s %9.1f %9.1f  %s\n", labels[i], w10[s], w[s], ratio,
                m10[s] / 1024, m[s] / 1024, verdict
        }
    }' "$work/year$runs.medians"
}

# bench_instructions: the instructions of this build's and the baseline's first and second runs.
bench_instructions() {
    if [ -z "$baseline" ]; then
        echo "bench/run.sh instructions: set BENCH_BASELINE to the program to compare with" >&2
        exit 2
    fi
    command -v valgrind >/dev/null || "$here/scripts/install-deps.sh" --only valgrind
    local data="$work/instructions-data"
    local files nonempty
    read -r _ files nonempty < <(make_set instructions instructions "$data")
    local kind program run home
    for kind in stash base; do
        program="$bin"
        [ "$kind" = base ] && program="$baseline"
        home="$work/instructions-$kind"
        prepare_backup "$home" "$data"
        for run in 1 2; do
            XDG_CONFIG_HOME="$home/config" XDG_STATE_HOME="$home/state" valgrind --tool=callgrind \
                --callgrind-out-file="$home/callgrind.$run" "$program" backup >/dev/null 2>"$home/valgrind.$run"
            check "$kind run $run under callgrind ($home, bid $run)" "$(run_files "$home" "$run")" \
                "$nonempty"
            echo "$kind$run $(awk '/^(summary|totals):/ {print $2; exit}' "$home/callgrind.$run")" \
                >>"$work/instructions.counts"
        done
    done
    awk -v f="$files" '
    { n[$1] = $2 }
    END {
        printf "-- instructions: %d files, first and second headless backup under callgrind\n", f
        printf "   %-26s %16s %16s\n", "", "first", "second"
        printf "   %-26s %16d %16d\n", "stashwell", n["stash1"], n["stash2"]
        printf "   %-26s %16d %16d\n", "baseline", n["base1"], n["base2"]
        printf "   %-26s %16.4f %16.4f\n", "stashwell / baseline", n["stash1"] / n["base1"], \
            n["stash2"] / n["base2"]
    }' "$work/instructions.counts"
}

case "$which" in
    large) bench_set large ;;
    small) bench_set small ;;
    all) bench_set large; bench_set small; bench_cancel; bench_restore; bench_qrv ;;
    cancel) bench_cancel ;;
    restore) bench_restore ;;
    qrv) bench_qrv ;;
    tree) bench_tree ;;
    instructions) bench_instructions ;;
    scale) bench_scale ;;
    year) bench_year ;;
    *) echo "usage: bench/run.sh [large|small|all|cancel|restore|qrv|tree|instructions|scale|year]" >&2; exit 2 ;;
esac
echo "(data and copies left in $work; remove it when done)"
if [ "$failures" -gt 0 ]; then
    echo "ERROR: $failures file-count checks failed; see the ERROR lines above" >&2
    exit 1
fi
