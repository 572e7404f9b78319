#!/usr/bin/env bash
# Builds Stashwell and runs every test: first the whole build, then the Qt-free core and its
# tests again under AddressSanitizer and UndefinedBehaviorSanitizer, then the engine's tests,
# whose read-ahead runs worker threads, under ThreadSanitizer, and last the Debian package:
# built, installed, its programs run, and purged again.
set -euo pipefail
cd "$(dirname "$0")"
./scripts/install-deps.sh

jobs=$(nproc)
# The same Release build that ./run.sh starts.
cmake -S . -B build-release -G Ninja -DCMAKE_BUILD_TYPE=Release
cmake --build build-release -j "$jobs"
ctest --test-dir build-release --output-on-failure -j "$jobs"

cmake -S . -B build-sanitize -G Ninja -DCMAKE_BUILD_TYPE=Debug \
    -DSTASHWELL_CORE_ONLY=ON -DSTASHWELL_SANITIZE=ON
cmake --build build-sanitize -j "$jobs"
UBSAN_OPTIONS=print_stacktrace=1 \
    ctest --test-dir build-sanitize --output-on-failure -j "$jobs" -L core

cmake -S . -B build-tsan -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo -DSTASHWELL_CORE_ONLY=ON \
    -DSTASHWELL_SANITIZE_THREADS=ON
threaded=(engine_CSignatureAhead engine_CStore engine_CBackup)
cmake --build build-tsan -j "$jobs" --target "${threaded[@]}"
for t in "${threaded[@]}"; do
    TSAN_OPTIONS="halt_on_error=1 second_deadlock_stack=1" "build-tsan/tests/$t"
done

# The Debian package of the Release build: built with CPack, installed with apt-get, its
# programs run from /usr/bin on a private home, then purged (tests/package/run.sh).
tests/package/run.sh build-release
