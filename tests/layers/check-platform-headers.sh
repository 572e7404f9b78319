#!/usr/bin/env bash
# Only the platform layer (src/platform) includes the operating system's own headers (POSIX,
# Linux, Windows), and the Win32 window (src/winui), which is drawn with them. The files that still do so while their calls move behind the platform layer
# are listed in pending-platform.txt; the list only shrinks: a file that includes such a header
# and is not listed fails the check, and so does a listed file that no longer needs to be.
set -u
root=${1:?source root}
pending="$root/tests/layers/pending-platform.txt"
pattern='^[[:space:]]*#[[:space:]]*include[[:space:]]*<(unistd|fcntl|dirent|pwd|grp|poll|spawn|dlfcn|termios|sched|syslog|utime|glob|fnmatch|windows|winbase|winioctl|io|direct|shlobj|bcrypt)\.h>|^[[:space:]]*#[[:space:]]*include[[:space:]]*<(sys|linux|arpa|netinet)/'
cd "$root" || exit 2
mapfile -t found < <(grep -rlE "$pattern" src --include='*.cpp' --include='*.h' | grep -v '^src/platform/\|^src/winui/' | sort)
mapfile -t listed < <(grep -v '^[[:space:]]*\(#\|$\)' "$pending" | sort)
status=0
for file in "${found[@]}"; do
    if ! printf '%s\n' "${listed[@]}" | grep -qxF "$file"; then
        echo "$file includes an operating-system header; its calls belong in src/platform:"
        grep -nE "$pattern" "$file"
        status=1
    fi
done
for file in "${listed[@]}"; do
    if ! printf '%s\n' "${found[@]}" | grep -qxF "$file"; then
        echo "$file no longer includes an operating-system header: take it out of $pending"
        status=1
    fi
done
[ "$status" = 0 ] && echo "${#found[@]} files outside src/platform still include operating-system headers"
exit "$status"
