#!/usr/bin/env bash
# Builds Stashwell and runs every test: first the whole build, then the Qt-free core and its
# tests again under AddressSanitizer and UndefinedBehaviorSanitizer, then the tests of the
# service context and of the engine, whose read-ahead runs worker threads, under
# ThreadSanitizer, then the Debian package: built,
# installed, its programs run, and purged again, and last the Windows build: cross-built with
# mingw-w64, its tests run under Wine. At the end it lists the Release tests that were skipped,
# with their reasons.
set -euo pipefail
cd "$(dirname "$0")"
./scripts/install-deps.sh

# The Windows stage's packages and SQLite's source (scripts/build-windows.sh --prepare) are got
# in the background while the Linux stages build: on a fresh machine their download and
# unpacking take minutes that need little of the processors. The package stage, the next to use
# apt-get, waits for them first.
mkdir -p build-windows
windows_prepare_log="$PWD/build-windows/prepare.log"
scripts/build-windows.sh --prepare --manual-from build-release >"$windows_prepare_log" 2>&1 &
windows_prepare=$!
windows_prepared() {
    local status=0
    wait "$windows_prepare" || status=$?
    cat "$windows_prepare_log"
    if [ "$status" != 0 ]; then
        echo "test.sh: getting what the Windows stage needs failed (status $status)" >&2
        exit "$status"
    fi
}

# The tests that the Release run skipped, each with the first line of the reason it gave, so
# that a CI log shows what this machine could not test (mounting drive images needs root, a
# free loop device and /dev/fuse). Printed last, also when a step fails.
junit="$PWD/build-release/ctest-junit.xml"
skipped_summary() {
    [ -f "$junit" ] || return 0
    echo
    awk '
        /<testcase / {
            match($0, /name="[^"]*"/)
            name = substr($0, RSTART + 6, RLENGTH - 7)
            notrun = $0 ~ /status="notrun"/
            reason = ""; next_is_reason = 0; next
        }
        notrun && next_is_reason { reason = $0; next_is_reason = 0; next }
        notrun && /: Skipped$/ { next_is_reason = 1; next }
        /<\/testcase>/ {
            if (notrun) lines[++n] = "  " name ": " (reason == "" ? "no reason given" : reason)
            notrun = 0
        }
        END {
            printf "Release tests skipped: %d\n", n
            for (i = 1; i <= n; i++) print lines[i]
        }
    ' "$junit" | sed -e 's/&lt;/</g; s/&gt;/>/g; s/&quot;/"/g' -e "s/&apos;/'/g" -e 's/&amp;/\&/g'
}
trap skipped_summary EXIT

# Each stage says when it begins, so a log shows where the time goes.
stage() { echo "== test.sh: $1, at ${SECONDS} s"; }

jobs=$(nproc)
rm -f "$junit"
stage "the Release build and its tests"
# The same Release build that ./run.sh starts, its libraries compiled as a few unity sources
# each (CMAKE_UNITY_BUILD), as the sanitizer builds below are: with the tests' shared
# precompiled header it takes the build from about nine minutes to about five on two cores.
cmake -S . -B build-release -G Ninja -DCMAKE_BUILD_TYPE=Release -DCMAKE_UNITY_BUILD=ON
cmake --build build-release -j "$jobs"
ctest --test-dir build-release --output-on-failure -j "$jobs" --output-junit "$junit"

stage "the core under AddressSanitizer and UndefinedBehaviorSanitizer"
# Unity sources here too.
cmake -S . -B build-sanitize -G Ninja -DCMAKE_BUILD_TYPE=Debug -DCMAKE_UNITY_BUILD=ON \
    -DSTASHWELL_CORE_ONLY=ON -DSTASHWELL_SANITIZE=ON
cmake --build build-sanitize -j "$jobs"
UBSAN_OPTIONS=print_stacktrace=1 \
    ctest --test-dir build-sanitize --output-on-failure -j "$jobs" -L core

stage "the threaded tests under ThreadSanitizer"
cmake -S . -B build-tsan -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo -DSTASHWELL_CORE_ONLY=ON \
    -DCMAKE_UNITY_BUILD=ON -DSTASHWELL_SANITIZE_THREADS=ON
threaded=(support_CServiceContext support_CBufferPool engine_CSignatureAhead engine_CStore engine_CBackup
    catalogue_CMetadataDB catalogue_CDatabase engine_CQuickCheck)
cmake --build build-tsan -j "$jobs" --target "${threaded[@]}"
for t in "${threaded[@]}"; do
    TSAN_OPTIONS="halt_on_error=1 second_deadlock_stack=1" "build-tsan/tests/$t"
done

# The Debian package of the Release build: built with CPack, installed with apt-get, its
# programs run from /usr/bin on a private home, then purged (tests/package/run.sh).
stage "the Debian package"
windows_prepared
tests/package/run.sh build-release

# The Windows build (scripts/build-windows.sh, docs/windows.md): the programs and the zip, with
# the manual of the Release build, and the tests of tests/windows-tests.txt under Wine, counted
# as "Windows tests: N passed, M skipped, K failed"; a failed one fails this script.
stage "the Windows build and its tests under Wine"
scripts/build-windows.sh --test --manual-from build-release
stage "done"
