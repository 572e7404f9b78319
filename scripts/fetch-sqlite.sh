#!/usr/bin/env bash
# Gets SQLite for the Windows build, which compiles it in: Debian ships no mingw SQLite, so this
# takes Debian's own sqlite3 source package (the version the machine's libsqlite3-0 comes
# from, with Debian's patches), makes the one-file amalgamation sqlite3.c and its sqlite3.h
# from it, and leaves both in DIR once their SHA-256 sums match third_party/sqlite3.c.sha256.
#
#   scripts/fetch-sqlite.sh DIR
#
# A DIR that already holds the checked files is left as it is, without a download. The source
# is fetched with apt-get through an apt configuration of its own (a sources.list with one
# deb-src line for the mirror and suite that the machine's libsqlite3-0 comes from, its own
# state and cache folders), so the system's apt is not changed and root is not needed. Making
# the amalgamation needs dpkg-source (dpkg-dev), tclsh (tcl), make and a C compiler.
#
# When the sums differ (Debian published a new sqlite3 version), nothing is left in DIR and
# the script fails: look at the new version, then put its sums in third_party/sqlite3.c.sha256.
set -euo pipefail

here=$(cd "$(dirname "$0")/.." && pwd)
sums="$here/third_party/sqlite3.c.sha256"
dir=${1:?usage: scripts/fetch-sqlite.sh DIR}
mkdir -p "$dir"
dir=$(cd "$dir" && pwd)

# matches FOLDER: whether FOLDER holds sqlite3.c and sqlite3.h with the listed sums.
matches() {
    local name want have
    for name in sqlite3.c sqlite3.h; do
        want=$(awk -v n="$name" '$2 == n { print $1 }' "$sums")
        [ -n "$want" ] || { echo "fetch-sqlite.sh: $sums has no sum for $name" >&2; exit 1; }
        [ -f "$1/$name" ] || return 1
        have=$(sha256sum "$1/$name" | cut -d' ' -f1)
        [ "$have" = "$want" ] || return 1
    done
}

if matches "$dir"; then
    echo "SQLite: $dir holds the checked sqlite3.c and sqlite3.h"
    exit 0
fi

for tool in apt-get apt-cache dpkg-source tclsh make cc; do
    command -v "$tool" >/dev/null || {
        echo "fetch-sqlite.sh: $tool is missing (apt-get install dpkg-dev tcl make gcc)" >&2
        exit 1
    }
done

# The mirror, suite and component that the candidate libsqlite3-0 comes from, as apt-cache
# madison names them: "libsqlite3-0 | 3.40.1-2+deb12u2 | http://deb.debian.org/debian
# bookworm/main amd64 Packages".
version=$(apt-cache policy libsqlite3-0 | awk '/Candidate:/ { print $2 }')
origin=$(apt-cache madison libsqlite3-0 |
    awk -F' [|] ' -v v="$version" '$2 == v && $3 ~ / Packages$/ { print $3; exit }')
read -r mirror suite_component _ <<<"$origin"
suite=${suite_component%%/*}
component=${suite_component#*/}
if [ -z "$version" ] || [ "$version" = "(none)" ] || [ -z "$mirror" ] || [ -z "$suite" ]; then
    echo "fetch-sqlite.sh: apt knows no libsqlite3-0 to take the source from (run apt-get update)" >&2
    exit 1
fi
# The source version: a binary-only rebuild's "+bN" is not part of it.
source_version=${version%+b[0-9]*}

work=$(mktemp -d "$dir/fetch.XXXXXX")
mkdir -p "$work/etc/parts" "$work/etc/sources.list.d" "$work/state/lists/partial" \
    "$work/cache/archives/partial" "$work/src" "$work/build"
echo "deb-src $mirror $suite $component" >"$work/etc/sources.list"
{
    # The system's download settings (a proxy, retries, date checks) still hold.
    apt-config dump Acquire
    cat <<EOF
Dir::Etc::SourceList "$work/etc/sources.list";
Dir::Etc::SourceParts "$work/etc/sources.list.d";
Dir::Etc::Parts "$work/etc/parts";
Dir::Etc::Main "/dev/null";
Dir::State "$work/state";
Dir::Cache "$work/cache";
APT::Sandbox::User "$(id -un)";
EOF
} >"$work/etc/apt.conf"

echo "SQLite: getting Debian's source package sqlite3 $source_version from $mirror $suite"
(
    export APT_CONFIG="$work/etc/apt.conf"
    apt-get -q update >"$work/apt.log" 2>&1 &&
        cd "$work/src" && apt-get -q source "sqlite3=$source_version" >>"$work/apt.log" 2>&1
) || {
    cat "$work/apt.log" >&2
    echo "fetch-sqlite.sh: apt-get could not get the source (above); kept in $work" >&2
    exit 1
}

echo "SQLite: making the amalgamation"
tree=$(find "$work/src" -mindepth 1 -maxdepth 1 -type d -name 'sqlite3-*' | head -n 1)
(
    cd "$work/build" &&
        "$tree/configure" --disable-tcl --disable-readline >"$work/make.log" 2>&1 &&
        make sqlite3.c >>"$work/make.log" 2>&1
) || {
    tail -n 30 "$work/make.log" >&2
    echo "fetch-sqlite.sh: the amalgamation could not be made (above); kept in $work" >&2
    exit 1
}

if ! matches "$work/build"; then
    echo "fetch-sqlite.sh: the SQLite made from sqlite3 $source_version is not the one the" >&2
    echo "build was checked with; its sums, and those in $sums:" >&2
    (cd "$work/build" && sha256sum sqlite3.c sqlite3.h) >&2
    grep -v '^#' "$sums" >&2
    echo "Kept in $work/build; when it is the SQLite to build with, put its sums in $sums." >&2
    exit 1
fi
mv "$work/build/sqlite3.c" "$work/build/sqlite3.h" "$dir/"
rm -rf "$work"
echo "SQLite: $dir holds the checked sqlite3.c and sqlite3.h of sqlite3 $source_version"
