#!/bin/sh
# Cross-builds the updater for an ARM panel into build-armhf/ or build-arm64/ and tests it under
# qemu: the unit tests, then the sample stick's whole update through the simulator, which must do
# exactly what this machine's build (./build) does. Everything comes from Debian's archive: the
# cross compiler as packages, the target's root and the emulator unpacked into the build folder.
#
#   scripts/build-arm.sh armhf|arm64
set -eu
arch=${1:-}
case $arch in
    armhf|arm64) ;;
    *) echo "usage: $0 armhf|arm64" >&2; exit 2 ;;
esac
cd "$(dirname "$0")/.."
top=$PWD out="$PWD/build-$arch"
scripts/install-deps.sh "$arch"
# This machine's package tool packs the ARM program, and its sample update is the reference.
[ -f build/CMakeCache.txt ] || cmake -S . -B build -DCMAKE_BUILD_TYPE="${BUILD_TYPE:-RelWithDebInfo}" >/dev/null
cmake --build build -j"$(nproc)" --target kelpack sample_stick >/dev/null
scripts/prepare-arm.sh "$arch" "$out"
cmake -S . -B "$out" -DCMAKE_BUILD_TYPE="${BUILD_TYPE:-RelWithDebInfo}" \
    -DCMAKE_TOOLCHAIN_FILE="$top/cmake/arm-linux.toolchain.cmake" -DKEL_ARM_ARCH="$arch" \
    -DKEL_ARM_DIR="$out" -DKEL_HOST_KELPACK="$top/build/tools/kelpack" \
    -DKEL_REFERENCE_BUILD_DIR="$top/build" >/dev/null
cmake --build "$out" -j"$(nproc)"
file -L "$out/src/kelloadui.bin"
# Unit tests through the emulator (and the programs they start, through the session's binfmt
# rule), then the sample update compared with this machine's.
scripts/arm-session.sh "$arch" "$out" sh -c 'cd "$1" &&
    ctest --output-on-failure -j2 -LE "^(sim|faults|random)$" &&
    ctest --output-on-failure -R "^sim/same-update$"' sh "$out"
