#!/bin/sh
# Installs the kelpack-tools package into a fresh Debian 12 root and runs the tools from their
# installed paths, sealed off from this machine and from that root (sim/seal.sh over the fresh
# root): apt resolves the package's Depends there; kelpack --version, init and verify of a starter
# tree, build --arch armhf (the installed ARM program), info and verify of that stick, and
# build --arch amd64 with kelsim for the starter tree and the sample, whose updates must succeed.
# The root (debootstrap minbase) and the packages the tools need are downloaded once into
# DIR/fresh-root; every run starts from it unchanged. Root only.
#
#   tests/packaging/install-test.sh PACKAGE.deb DIR
set -eu
[ $# = 2 ] || { echo "usage: $0 PACKAGE.deb DIR" >&2; exit 2; }
[ "$(id -u)" = 0 ] || { echo "$0: must run as root (namespaces, debootstrap)" >&2; exit 2; }
deb=$(realpath "$1")
mkdir -p "$2"
dir=$(realpath "$2")
top=$(cd "$(dirname "$0")/../.." && pwd)
root="$dir/fresh-root"
mirror=${KEL_DEBIAN_MIRROR:-http://deb.debian.org/debian}
package=$(basename "$deb")

# The fresh root, made in a mount namespace of its own: debootstrap's mounts stay in there.
if [ ! -f "$dir/fresh-root.complete" ]; then
    rm -rf "$root"
    unshare --mount --fork sh -c 'mount --make-rprivate / &&
        debootstrap --variant=minbase bookworm "$1" "$2" > "$1.log" 2>&1' sh "$root" "$mirror" ||
        { tail -n 20 "$root.log" >&2; echo "$0: debootstrap failed (see $root.log)" >&2; exit 1; }
    echo "deb $mirror bookworm main" > "$root/etc/apt/sources.list"
    echo "deb $mirror bookworm-updates main" >> "$root/etc/apt/sources.list"
    touch "$dir/fresh-root.complete"
fi
# What the package needs, downloaded into the root's own apt cache while there is a network
# (inside the seal there is none).
mkdir -p "$root/mnt/package"
cp "$deb" "$root/mnt/package/$package"
unshare --mount --fork sh -c 'mount --make-rprivate / && mount -t proc proc "$1/proc" &&
    chroot "$1" apt-get -q update > "$1/var/log/kel-update.log" 2>&1 &&
    chroot "$1" apt-get -q -y --download-only install "/mnt/package/$2" > "$1/var/log/kel-download.log" 2>&1' \
    sh "$root" "$package" ||
    { tail -n 20 "$root/var/log/kel-download.log" >&2; echo "$0: the package's Depends do not resolve" >&2; exit 1; }
echo "install-test: $(du -sm "$root/var/cache/apt/archives" | cut -f 1) MB of packages for kelpack-tools"

# The fresh root becomes the root of a private mount and PID namespace, with the simulator's seal
# bound in; the seal then keeps everything the test does out of the root. kelsim seals its own
# run inside: its panel lies in the outer seal's panel folder, as an overlay (the outer seal's
# root) cannot hold another overlay's changes.
rm -rf "$dir/install-panel"
mkdir -p "$dir/install-panel"
mkdir -p "$root/mnt/seal"
unshare --mount --pid --fork --kill-child sh -eu -c '
root=$1 top=$2 panel=$3 package=$4
mount --make-rprivate /
mount --bind "$root" "$root"
mount --bind "$top/sim" "$root/mnt/seal"
mkdir -p "$root$panel"
mount --bind "$panel" "$root$panel"
mount -t proc proc "$root/proc"
mount --rbind /dev "$root/dev"
cd "$root"
mkdir -p .machine-root
pivot_root . .machine-root
cd /
umount -l /.machine-root
rmdir /.machine-root
export PATH=/usr/sbin:/usr/bin:/sbin:/bin LANG=C.UTF-8
exec /mnt/seal/seal.sh "$panel" sh -eu -c "
    apt-get -q -y install /mnt/package/$package > /tmp/install.log 2>&1 ||
        { tail -n 20 /tmp/install.log; exit 1; }
    echo \"install-test: installed \$(dpkg-query -W -f=\"\\\${Package} \\\${Version}\" kelpack-tools)\"
    kelpack --version
    kelsim --version
    kelpack init /root/tree
    kelpack verify /root/tree
    kelpack build /root/tree /root/stick-armhf --arch armhf
    kelpack info /root/stick-armhf/update | grep -x \"   start kelloadui.bin (built for armhf; the stick was built for armhf)\"
    kelpack verify /root/stick-armhf/update
    for tree in /root/tree /usr/share/kelpack-tools/sample; do
        rm -rf /root/stick
        kelpack build \$tree /root/stick --arch amd64
        kelsim --panel $panel/kelsim-panel --fresh --screenshots none /root/stick > /tmp/kelsim.txt 2>&1 ||
            { cat /tmp/kelsim.txt; exit 1; }
        sed -n \"/^== report/,/^== log/p\" /tmp/kelsim.txt
        tail -n 1 /tmp/kelsim.txt
    done
"
' sh "$root" "$top" "$dir/install-panel" "$package"
rm -rf "$dir/install-panel"
echo "install-test: the installed tools work"
