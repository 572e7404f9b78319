#!/usr/bin/env bash
# Only the catalogue layer (src/catalogue) speaks to SQLite: every other file asks the
# catalogue. The files that still include sqlite3.h while their calls move there are listed in
# pending-sqlite.txt; the list only shrinks: a file that includes the header and is not listed
# fails the check, and so does a listed file that no longer needs to be.
set -u
root=${1:?source root}
pending="$root/tests/layers/pending-sqlite.txt"
pattern='^[[:space:]]*#[[:space:]]*include[[:space:]]*[<"]sqlite3(ext)?\.h[>"]'
cd "$root" || exit 2
mapfile -t found < <(grep -rlE "$pattern" src --include='*.cpp' --include='*.h' | grep -v '^src/catalogue/' | sort)
mapfile -t listed < <(grep -v '^[[:space:]]*\(#\|$\)' "$pending" | sort)
status=0
for file in "${found[@]}"; do
    if ! printf '%s\n' "${listed[@]}" | grep -qxF "$file"; then
        echo "$file includes sqlite3.h; its SQLite calls belong in src/catalogue:"
        grep -nE "$pattern" "$file"
        status=1
    fi
done
for file in "${listed[@]}"; do
    if ! printf '%s\n' "${found[@]}" | grep -qxF "$file"; then
        echo "$file no longer includes sqlite3.h: take it out of $pending"
        status=1
    fi
done
[ "$status" = 0 ] && echo "${#found[@]} files outside src/catalogue still include sqlite3.h"
exit "$status"
