#!/usr/bin/env bash
# Builds Stashwell in Release and starts it with the given words ("backup", "compact").
set -euo pipefail
here="$(cd "$(dirname "$0")" && pwd)"
"$here/scripts/install-deps.sh"
cmake -S "$here" -B "$here/build-release" -G Ninja -DCMAKE_BUILD_TYPE=Release \
    -DCMAKE_UNITY_BUILD=ON >/dev/null
cmake --build "$here/build-release" -j "$(nproc)" --target stashwell manual
exec "$here/build-release/stashwell" "$@"
