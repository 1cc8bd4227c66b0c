#!/bin/sh
# Builds the fuzz targets with clang and libFuzzer and runs each for a bounded time
# (FUZZ_SECONDS, default 60). New crashes are kept in fuzz/crashes/<target>/ to become
# regression inputs of the corpus; the exit status is non-zero when one was found.
set -eu
cd "$(dirname "$0")/.."
seconds=${FUZZ_SECONDS:-60}
CC=clang CXX=clang++ cmake -S . -B build-fuzz -DCMAKE_BUILD_TYPE=RelWithDebInfo -DKEL_FUZZ=ON \
    -DKEL_BUILD_TESTS=OFF >/dev/null
cmake --build build-fuzz -j"$(nproc)" --target fuzz_manifest fuzz_language fuzz_stick_manifest
status=0
for target in manifest language stick_manifest; do
    # Absolute paths: a target may change its working directory.
    work="$PWD/build-fuzz/corpus-$target"
    crashes="$PWD/fuzz/crashes/$target"
    mkdir -p "$work" "$crashes"
    echo "fuzzing $target for $seconds s"
    if ! build-fuzz/fuzz/fuzz_$target -max_total_time="$seconds" -timeout=20 -rss_limit_mb=2048 \
            -artifact_prefix="$crashes/" "$work" "$PWD/fuzz/corpus/$target" >"build-fuzz/$target.log" 2>&1; then
        echo "fuzz_$target found a problem: see build-fuzz/$target.log and $crashes/"
        status=1
    fi
    grep -E "^#[0-9]+.*DONE|stat::number_of_executed_units" "build-fuzz/$target.log" | tail -n 1 || true
done
exit $status
