#!/bin/sh
# Installs what is missing, builds, and runs every test: the suite (with the simulator's end-to-end
# and fault-injection tests), the same suite under AddressSanitizer and UndefinedBehaviorSanitizer,
# and each fuzz target for a bounded time. Exits non-zero on any failure; the last line is CTest's.
set -eu
cd "$(dirname "$0")/.."
scripts/install-deps.sh
scripts/build.sh

echo "== fuzzing (FUZZ_SECONDS=${FUZZ_SECONDS:-60} per target)"
scripts/fuzz.sh

echo "== the suite under the sanitizers"
asan=${KEL_ASAN_BUILD_DIR:-build-asan}
cmake -S . -B "$asan" -DCMAKE_BUILD_TYPE=Debug -DKEL_SANITIZE=ON >/dev/null
cmake --build "$asan" -j"$(nproc)" >/dev/null
(cd "$asan" && ctest --output-on-failure -j2)

echo "== the suite"
cd build
ctest --output-on-failure -j2
