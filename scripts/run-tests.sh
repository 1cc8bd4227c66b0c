#!/bin/sh
# Installs what is missing, builds, and runs every test: the suite (with the simulator's end-to-end
# and fault-injection tests), the same suite under AddressSanitizer and UndefinedBehaviorSanitizer,
# each fuzz target for a bounded time, the armhf build with its unit tests and the sample update
# under qemu, and the Qt 6 build with its unit tests and the sample update. Exits non-zero on any
# failure; each stage ends with the seconds it took.
set -eu
cd "$(dirname "$0")/.."
# stage NAME COMMAND...: runs one stage and says how long it took.
stage() {
    name=$1
    shift
    echo "== $name"
    started=$(date +%s)
    "$@"
    echo "-- $name: $(($(date +%s) - started)) s"
}
stage "set-up" scripts/install-deps.sh qt6 armhf
stage "build" scripts/build.sh

stage "fuzzing (FUZZ_SECONDS=${FUZZ_SECONDS:-60} per target)" scripts/fuzz.sh

asan() {
    asan=${KEL_ASAN_BUILD_DIR:-build-asan}
    cmake -S . -B "$asan" -DCMAKE_BUILD_TYPE=Debug -DKEL_SANITIZE=ON >/dev/null
    cmake --build "$asan" -j"$(nproc)" >/dev/null
    ctest --test-dir "$asan" --output-on-failure -j2 -LE '^random$'
}
stage "the suite under the sanitizers" asan

stage "armhf: cross build, unit tests and sample update under qemu" scripts/build-arm.sh armhf

# The simulator's fault suite stays with the main build; the sample update is compared with it.
qt6() {
    cmake -S . -B build-qt6 -DCMAKE_BUILD_TYPE=RelWithDebInfo -DKEL_QT_MAJOR=6 \
        -DKEL_REFERENCE_BUILD_DIR="$PWD/build" >/dev/null
    cmake --build build-qt6 -j"$(nproc)" >/dev/null
    ctest --test-dir build-qt6 --output-on-failure -j2 -LE '^(faults|random)$'
}
stage "Qt 6: build, unit tests and sample update" qt6

stage "the suite" ctest --test-dir build --output-on-failure -j2
