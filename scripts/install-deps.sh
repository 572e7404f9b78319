#!/usr/bin/env bash
# Installs, with apt-get, the Debian 12 packages that building and testing Stashwell needs,
# skipping the work when every package is already there. With --only, the packages named after
# it instead (scripts/build-windows.sh names those of the Windows build).
set -euo pipefail

packages=(cmake ninja-build g++ pkg-config libsqlite3-dev libssl-dev libgtest-dev
    qt6-base-dev qt6-qpa-plugins libgl-dev fonts-dejavu-core xdg-utils
    dpkg-dev desktop-file-utils sqlite3 man-db
    # The window's probe of a display before Qt opens it (X11 and Wayland clients), and a real
    # X server for the tests of the window program on a display.
    libxcb1-dev libwayland-dev xvfb
    # The removable-drive tests: exFAT and FAT32 images made, on a loop device, through FUSE.
    mount exfatprogs exfat-fuse dosfstools fusefat
    # The notification tests: a private session bus.
    dbus-daemon)
if [ "${1:-}" = "--bench" ]; then
    packages+=(time borgbackup restic)
elif [ "${1:-}" = "--only" ]; then
    shift
    packages=("$@")
fi

missing=()
for p in "${packages[@]}"; do
    dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed" || missing+=("$p")
done
[ ${#missing[@]} -eq 0 ] && exit 0

echo "Installing: ${missing[*]}"
sudo=""
[ "$(id -u)" -eq 0 ] || sudo="sudo"
export DEBIAN_FRONTEND=noninteractive
$sudo apt-get update -q
$sudo apt-get install -y -q --no-install-recommends "${missing[@]}"
