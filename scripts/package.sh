#!/bin/sh
# Builds the Debian package kelpack-tools for this machine into build-package/: kelpack, kelsim
# with its scripts, the sample package tree, and the panel program for this machine and for
# armhf panels (built and tested under qemu by build-arm.sh), with their manual pages and
# kelpack's bash completion; lintian's errors fail it. The armhf program is also left as a
# file of its own, build-package/armhf/kelloadui.bin (stripped, with SHA256SUMS), for integrators
# who build their own panel images. Then the package is installed into a fresh Debian 12 root and
# its tools are run from there, sealed off from this machine (tests/packaging/install-test.sh).
#
#   scripts/package.sh
set -eu
cd "$(dirname "$0")/.."
out="$PWD/build-package"
scripts/install-deps.sh package armhf
scripts/build-arm.sh armhf
mkdir -p "$out/armhf"
arm-linux-gnueabihf-strip -o "$out/armhf/kelloadui.bin" build-armhf/src/kelloadui.bin
(cd "$out/armhf" && sha256sum kelloadui.bin > SHA256SUMS)
cmake -S . -B "$out" -DCMAKE_BUILD_TYPE=Release -DKEL_BUILD_TESTS=OFF \
    -DKEL_PANEL_PROGRAM_ARMHF="$out/armhf/kelloadui.bin" >/dev/null
cmake --build "$out" -j"$(nproc)" >/dev/null
rm -f "$out"/kelpack-tools_*.deb
(cd "$out" && cpack --config CPackKelpackTools.cmake >/dev/null)
deb=$(ls "$out"/kelpack-tools_*.deb)
# Debian's own checks of the package: an error fails, the warnings left are shown.
status=0
lintian --fail-on error "$deb" > "$out/lintian.txt" 2>&1 || status=$?
sed -n 's/^\([EW]\): /lintian \1: /p' "$out/lintian.txt"
if [ "$status" != 0 ] || grep -q '^E:' "$out/lintian.txt"; then
    echo "$0: lintian finds errors in $deb (see $out/lintian.txt)" >&2
    exit 1
fi
dpkg-deb --info "$deb" | sed -n 's/^ \(Package\|Version\|Architecture\|Depends\|Recommends\|Installed-Size\):/\1:/p'
echo "package: $deb ($(du -k "$deb" | cut -f 1) KB); armhf program: $out/armhf/kelloadui.bin"
tests/packaging/install-test.sh "$deb" "$out"
