#!/usr/bin/env bash
# Builds Stashwell for 64-bit Windows on Debian 12, with mingw-w64, and with --test runs the
# Windows tests under Wine. One command on a fresh machine (as root, or a user with sudo):
#
#   scripts/build-windows.sh [--test | --prepare] [--upto LAYER] [--build DIR]
#                            [--manual-from BUILD] [OUT] [-- CMAKE_ARGS...]
#
# It installs what is missing (the mingw-w64 compilers, Wine, GoogleTest's sources, what
# fetching SQLite needs, and NSIS), gets SQLite (scripts/fetch-sqlite.sh), configures the build
# folder (default build-windows, reused) with cmake/mingw-w64-x86_64.cmake, builds, and leaves
# stashwell.exe, qrv.exe, stashwell-<version>-win64.zip and the installer
# Stashwell-<version>-setup.exe in OUT (default build-windows/dist), saying what this level does
# not make yet.
#
#   --test               run the Windows tests (tests/windows-tests.txt) under Wine with CTest
#                        and print "Windows tests: N passed, M skipped, K failed", then the
#                        installer's test (tests/installer/test-installer.sh), which prints
#                        "Installer test: passed"; a failed test fails the script
#   --prepare            only install what is missing and get SQLite, then stop (./test.sh
#                        does this while its Linux stages build)
#   --upto LAYER         the highest layer to build: platform, support, catalogue, engine, app
#                        (and stashwell.exe) or cli (and qrv.exe, the zip); default below
#   --build DIR          the build folder
#   --manual-from BUILD  a Linux build folder whose "QRV Manual.pdf" goes into the zip; without
#                        it the manual is printed by a small host build of its own
#                        (cmake/manual, in DIR-manual), which needs Qt 6
#   -- CMAKE_ARGS        given to CMake when it configures, e.g.
#                        -DCMAKE_CXX_COMPILER_LAUNCHER=ccache -DCMAKE_C_COMPILER_LAUNCHER=ccache
set -euo pipefail
cd "$(dirname "$0")/.."
root=$PWD

# The highest layer whose operating-system calls all go through the platform layer's Windows
# half, so that it builds for Windows; raised as the porting lands.
upto=cli
build=build-windows
out=""
manual_from=""
run_tests=0
prepare_only=0
cmake_args=()
while [ $# -gt 0 ]; do
    case $1 in
    --test) run_tests=1 ;;
    --prepare) prepare_only=1 ;;
    --upto) upto=${2:?--upto needs a layer}; shift ;;
    --build) build=${2:?--build needs a folder}; shift ;;
    --manual-from) manual_from=${2:?--manual-from needs a build folder}; shift ;;
    --) shift; cmake_args=("$@"); break ;;
    -*) echo "build-windows.sh: unknown option $1" >&2; exit 2 ;;
    *) out=$1 ;;
    esac
    shift
done
layers=(platform support catalogue engine app cli)
level=-1
for i in "${!layers[@]}"; do [ "${layers[$i]}" = "$upto" ] && level=$i; done
if [ "$level" -lt 0 ]; then
    echo "build-windows.sh: --upto is one of ${layers[*]}" >&2
    exit 2
fi
reaches() { # reaches LAYER: whether this build makes LAYER
    local i
    for i in "${!layers[@]}"; do [ "${layers[$i]}" = "$1" ] && [ "$i" -le "$level" ] && return 0; done
    return 1
}
mkdir -p "$build"
build=$(cd "$build" && pwd)
out=${out:-$build/dist}

# --- Packages ---------------------------------------------------------------------------------

# Installed with apt-get when missing (after apt-get update), as ./test.sh installs its own.
packages=(cmake ninja-build g++-mingw-w64-x86-64-posix wine wine64 libgtest-dev)
# scripts/fetch-sqlite.sh: apt-get source, and the amalgamation made from the source.
reaches catalogue && packages+=(dpkg-dev tcl make gcc)
# The installer (makensis), and the catalogue's rows that its test writes (sqlite3).
reaches cli && packages+=(nsis sqlite3)
# The manual's host build.
reaches cli && [ -z "$manual_from" ] &&
    packages+=(g++ qt6-base-dev qt6-qpa-plugins libgl-dev fonts-dejavu-core)
scripts/install-deps.sh --only "${packages[@]}"
if reaches catalogue && ! apt-cache policy libsqlite3-0 | grep -q 'Candidate: [0-9]'; then
    # fetch-sqlite.sh asks apt where the machine's SQLite comes from; a machine whose package
    # lists were cleaned (as in containers) knows it again after an update.
    sudo=""
    [ "$(id -u)" -eq 0 ] || sudo="sudo"
    $sudo apt-get update -q
fi

if reaches catalogue; then
    scripts/fetch-sqlite.sh "$build/sqlite"
    cmake_args+=("-DSTASHWELL_SQLITE_DIR=$build/sqlite")
fi
[ "$prepare_only" = 0 ] || exit 0

# --- Build ------------------------------------------------------------------------------------

skipped=()
if reaches cli; then
    if [ -n "$manual_from" ]; then
        manual="$(cd "$manual_from" && pwd)/QRV Manual.pdf"
        [ -f "$manual" ] || { echo "build-windows.sh: $manual is missing" >&2; exit 1; }
    else
        cmake -S cmake/manual -B "$build-manual" -G Ninja -DCMAKE_BUILD_TYPE=Release
        cmake --build "$build-manual" -j "$(nproc)"
        manual="$build-manual/QRV Manual.pdf"
    fi
    cmake_args+=("-DSTASHWELL_MANUAL_PDF=$manual")
fi

# The libraries are compiled as a few unity sources each (CMAKE_UNITY_BUILD), which takes the
# cross build about a third less time.
cmake -S . -B "$build" -G Ninja -DCMAKE_TOOLCHAIN_FILE="$root/cmake/mingw-w64-x86_64.cmake" \
    -DCMAKE_BUILD_TYPE=Release -DCMAKE_UNITY_BUILD=ON -DSTASHWELL_WINDOWS_UPTO="$upto" \
    "${cmake_args[@]}"
cmake --build "$build" -j "$(nproc)"

# --- What it leaves in OUT --------------------------------------------------------------------

mkdir -p "$out"
made=()
for program in stashwell qrv; do
    rm -f "$out/$program.exe"
    if [ -f "$build/$program.exe" ]; then
        cp "$build/$program.exe" "$out/"
        made+=("$program.exe")
    fi
done
reaches app || skipped+=("stashwell.exe (made from app up)")
reaches cli || skipped+=("qrv.exe, the zip and the installer (made at cli)")
rm -f "$out"/stashwell-*-win64.zip "$out"/Stashwell-*-setup.exe
setup=""
if [ -f "$build/CPackConfig.cmake" ]; then
    # strip writes a time stamp into a Windows program's header, the time of the strip unless
    # SOURCE_DATE_EPOCH gives one. The time the programs were linked, for the zip and the
    # installer alike, gives both the same programs byte for byte, however often they are made.
    stamp=$(stat -c %Y "$build/stashwell.exe" "$build/qrv.exe" | sort -n | tail -n 1)
    (cd "$build" && SOURCE_DATE_EPOCH=$stamp cpack -G ZIP -B "$build/package" >/dev/null)
    cp "$build"/package/stashwell-*-win64.zip "$out/"
    made+=("$(basename "$build"/package/stashwell-*-win64.zip)")
    # The installer of the same files (packaging/windows/stashwell.nsi), its programs stripped
    # anew with the same time stamp.
    rm -f "$build/installer/stashwell.exe" "$build/installer/qrv.exe"
    SOURCE_DATE_EPOCH=$stamp cmake --build "$build" --target installer
    cp "$build"/installer/Stashwell-*-setup.exe "$out/"
    setup=$(basename "$build"/installer/Stashwell-*-setup.exe)
    made+=("$setup")
fi
echo
echo "Windows build at $upto, in $out: ${made[*]:-nothing to leave there yet}"
[ ${#skipped[@]} -eq 0 ] || printf '  not made at this level: %s\n' "${skipped[@]}"
left_out="$build/windows-tests-left-out.txt"
if [ -s "$left_out" ]; then
    echo "  tests left out at this level:"
    sed 's/^/    /' "$left_out"
fi

[ "$run_tests" = 1 ] || exit 0

# --- Tests under Wine -------------------------------------------------------------------------

# One Wine server for the whole run, in the build folder's own prefix (cmake/wine.sh).
wine="$root/cmake/wine.sh"
"$wine" "$build/wine" start
trap '"$wine" "$build/wine" stop' EXIT
junit="$build/windows-junit.xml"
rm -f "$junit"
status=0
ctest --test-dir "$build" --output-on-failure -j "$(nproc)" --output-junit "$junit" || status=$?

# The counts from CTest's JUnit file: a test skipped by GTEST_SKIP is one that CTest did not
# run because its output matched the skip pattern, any other test not run counts as failed.
# The skipped ones are listed with the first line of their reason, as ./test.sh does.
echo
if [ -f "$junit" ]; then
    awk '
        /<testcase / {
            match($0, /name="[^"]*"/)
            name = substr($0, RSTART + 6, RLENGTH - 7)
            state = $0 ~ /status="run"/ ? "passed" : $0 ~ /status="notrun"/ ? "notrun" : "failed"
            reason = ""; next_is_reason = 0; next
        }
        state == "notrun" && /SKIP_REGULAR_EXPRESSION_MATCHED/ { state = "skipped"; next }
        next_is_reason { reason = $0; next_is_reason = 0; next }
        /: Skipped$/ { next_is_reason = 1; next }
        /<\/testcase>/ {
            if (state == "notrun") state = "failed"
            count[state]++
            if (state == "skipped") skips[++n] = "  " name ": " (reason == "" ? "no reason given" : reason)
            if (state == "failed") fails[++f] = "  " name
            state = ""
        }
        END {
            printf "Windows tests: %d passed, %d skipped, %d failed\n",
                count["passed"], count["skipped"], count["failed"]
            for (i = 1; i <= n; i++) print skips[i]
            if (f) print "Failed:"
            for (i = 1; i <= f; i++) print fails[i]
        }
    ' "$junit" | sed -e 's/&lt;/</g; s/&gt;/>/g; s/&quot;/"/g' -e "s/&apos;/'/g" -e 's/&amp;/\&/g'
else
    echo "Windows tests: 0 passed, 0 skipped, 0 failed (CTest wrote no results)"
fi

# --- The installer under Wine -----------------------------------------------------------------

# Installed silently, its programs run, and uninstalled, in a Wine prefix of the test's own
# (tests/installer/test-installer.sh); it prints "Installer test: passed" or what failed.
if [ -n "$setup" ]; then
    echo
    tests/installer/test-installer.sh "$out/$setup" "$build/installer-test" || status=1
fi
exit "$status"
