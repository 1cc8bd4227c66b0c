#!/bin/sh
# Unpacks what building and running for an ARM panel needs from Debian's archive into DIR, never
# into the machine: DIR/sysroot, the target's root with its Qt 5, zlib and C/C++ development files,
# and DIR/qemu, the user-mode emulator of bookworm-backports (bookworm's qemu 7.2 refuses the
# clone(CLONE_PIDFD) with which Qt 5.15 starts every child process). apt runs with its own
# configuration, state and cache in DIR/apt; packages are unpacked with dpkg-deb, never installed.
# A complete DIR is kept as it is.
#
#   scripts/prepare-arm.sh armhf|arm64 DIR
set -eu
[ $# = 2 ] || { echo "usage: $0 armhf|arm64 DIR" >&2; exit 2; }
arch=$1
case $arch in
    armhf) triplet=arm-linux-gnueabihf qemu=qemu-arm ;;
    arm64) triplet=aarch64-linux-gnu qemu=qemu-aarch64 ;;
    *) echo "$0: unknown architecture '$arch': use armhf or arm64" >&2; exit 2 ;;
esac
mkdir -p "$2"
dir=$(realpath "$2")
mirror=${KEL_DEBIAN_MIRROR:-http://deb.debian.org/debian}
keyring=/usr/share/keyrings/debian-archive-keyring.gpg
# The program, its unit tests and a run on a simulated screen: Qt's widgets, test library and
# platform plugins, zlib, xcb (the simulator's screen grabber), libsodium (stick signatures),
# libarchive and libcrypto (SWUpdate images),
# the target's C and C++ files.
packages="qtbase5-dev libqt5test5 zlib1g-dev libxcb1-dev libsodium-dev libarchive-dev libssl-dev libc6-dev libstdc++-12-dev"
stamp="$dir/prepared"
[ -f "$stamp" ] && [ "$(cat "$stamp")" = "$arch $packages $mirror" ] && exit 0
for tool in moc rcc uic qmake; do
    [ -x "/usr/lib/qt5/bin/$tool" ] ||
        { echo "$0: /usr/lib/qt5/bin/$tool is missing: apt-get install qtbase5-dev-tools" >&2; exit 1; }
done

# private_apt NAME ARCH SUITE...: an apt of its own in DIR/apt/NAME (APT_CONFIG is read before
# anything else, so the machine's apt.conf, apt.conf.d and sources stay out), index updated.
private_apt() {
    state="$dir/apt/$1"
    rm -rf "$state"
    mkdir -p "$state/parts" "$state/lists/partial" "$state/archives/partial"
    : > "$state/status"
    apt_arch=$2
    shift 2
    for suite; do echo "deb [signed-by=$keyring] $mirror $suite main"; done > "$state/sources.list"
    cat > "$state/apt.conf" <<CONF
Dir::Etc::main "/dev/null";
Dir::Etc::parts "$state/parts";
Dir::Etc::sourcelist "$state/sources.list";
Dir::Etc::sourceparts "$state/parts";
Dir::Etc::preferences "/dev/null";
Dir::Etc::preferencesparts "$state/parts";
Dir::State "$state";
Dir::State::status "$state/status";
Dir::State::lists "$state/lists";
Dir::Cache "$state";
Dir::Cache::archives "$state/archives";
APT::Architecture "$apt_arch";
APT::Architectures { "$apt_arch"; };
APT::Install-Recommends "false";
APT::Sandbox::User "root";
Debug::NoLocking "true";
CONF
    export APT_CONFIG="$state/apt.conf"
    apt-get -q update > "$state/update.log" 2>&1 ||
        { cat "$state/update.log" >&2; echo "$0: the archive's $apt_arch index ($*) could not be read" >&2; exit 1; }
}
megabytes() { du -cm "$@" | tail -n 1 | cut -f 1; }

rm -rf "$dir/sysroot" "$dir/qemu" "$dir/fontconfig-cache" "$stamp"
# The target's packages and everything they need, unpacked into the root.
private_apt sysroot "$arch" bookworm bookworm-updates
# shellcheck disable=SC2086
apt-get -q -y --download-only install $packages > "$dir/apt/sysroot/download.log" 2>&1 ||
    { cat "$dir/apt/sysroot/download.log" >&2; echo "$0: the $arch packages could not be downloaded" >&2; exit 1; }
set -- "$dir"/apt/sysroot/archives/*.deb
echo "prepare-arm: $# $arch packages, $(megabytes "$@") MB from $mirror"
mkdir -p "$dir/sysroot"
for deb; do dpkg-deb -x "$deb" "$dir/sysroot"; done
# Links to absolute paths would leave the root: point them at the same path inside it.
find "$dir/sysroot" -type l -lname '/*' | while read -r link; do
    ln -sfnr "$dir/sysroot$(readlink "$link")" "$link"
done
# Qt's code generators run here: the machine's own (the same Qt 5.15) stand in for the target's,
# which CMake would otherwise find beside the target's Qt.
for tool in moc rcc uic qmake; do
    ln -sfn "/usr/lib/qt5/bin/$tool" "$dir/sysroot/usr/lib/qt5/bin/$tool"
done
# qemu looks every absolute path the program opens up in the root first, and falls back to the
# machine's: the panel's own paths must never resolve in the root, and the machine's fonts are the
# ones the program shows. A path missing in the root is the machine's, so the target's font
# caches go to a folder of ours rather than the machine's /var/cache/fontconfig.
rm -rf "$dir/sysroot/etc/systemd" "$dir/sysroot/tmp" "$dir/sysroot/media" "$dir/sysroot/usr/vorn_app" \
       "$dir/sysroot/usr/share/fonts"
mkdir -p "$dir/fontconfig-cache"
sed -i -e '/<cachedir/d' -e "s|</fontconfig>|<cachedir>$dir/fontconfig-cache</cachedir>\n</fontconfig>|" \
    "$dir/sysroot/etc/fonts/fonts.conf"
[ -d "$dir/sysroot/usr/lib/$triplet" ] || { echo "$0: $dir/sysroot/usr/lib/$triplet is missing" >&2; exit 1; }

# The emulator: a static program, only the one for this target kept.
private_apt qemu amd64 bookworm-backports
(cd "$dir/apt/qemu/archives" && apt-get -q download qemu-user > ../download.log 2>&1) ||
    { cat "$dir/apt/qemu/download.log" >&2; echo "$0: qemu-user could not be downloaded" >&2; exit 1; }
set -- "$dir"/apt/qemu/archives/qemu-user_*.deb
echo "prepare-arm: $(basename "$1"), $(megabytes "$1") MB"
mkdir -p "$dir/qemu"
dpkg-deb --fsys-tarfile "$1" | tar -x -C "$dir/qemu" --strip-components=3 "./usr/bin/$qemu"
"$dir/qemu/$qemu" --version | head -n 1

rm -rf "$dir"/apt/*/archives
# The target's font caches of this machine's fonts, made now: a program that had to make them
# would do it in every sealed simulator run, and list them as its changes.
QEMU_LD_PREFIX="$dir/sysroot" "$dir/qemu/$qemu" "$dir/sysroot/usr/bin/fc-cache"

echo "prepare-arm: $(megabytes "$dir/sysroot" "$dir/qemu") MB unpacked into $dir"
echo "$arch $packages $mirror" > "$stamp"
