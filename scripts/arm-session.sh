#!/bin/sh
# Runs COMMAND where ARM programs start as if they were native, through the qemu and with the
# libraries that scripts/prepare-arm.sh unpacked into DIR: in private user, mount and PID
# namespaces with a binfmt_misc instance of their own (Linux 6.7 or later), a root the sealed
# simulator (sim/seal.sh) can work in, and a session of their own. The machine's binfmt registrations are never read or changed, and nothing started in there
# can signal the machine's processes. Root only: the user namespace maps every user to itself.
#
#   scripts/arm-session.sh armhf|arm64 DIR COMMAND [ARG...]
set -eu
[ $# -ge 3 ] || { echo "usage: $0 armhf|arm64 DIR COMMAND [ARG...]" >&2; exit 2; }
arch=$1
# qemu's own magic and mask: little-endian ELF executables and shared objects of the machine type.
elf_mask='\xff\xff\xff\xff\xff\xff\xff\x00\xff\xff\xff\xff\xff\xff\xff\xff\xfe\xff\xff\xff'
case $arch in
    armhf) qemu=qemu-arm triplet=arm-linux-gnueabihf elf='\x7fELF\x01\x01\x01\x00\x00\x00\x00\x00\x00\x00\x00\x00\x02\x00\x28\x00' ;;
    arm64) qemu=qemu-aarch64 triplet=aarch64-linux-gnu elf='\x7fELF\x02\x01\x01\x00\x00\x00\x00\x00\x00\x00\x00\x00\x02\x00\xb7\x00' ;;
    *) echo "$0: unknown architecture '$arch': use armhf or arm64" >&2; exit 2 ;;
esac
dir=$(realpath "$2")
shift 2
[ "$(id -u)" = 0 ] || { echo "$0: must run as root (namespaces)" >&2; exit 2; }
[ -x "$dir/qemu/$qemu" ] && [ -d "$dir/sysroot/lib" ] ||
    { echo "$0: $dir holds no $arch root and emulator: run scripts/prepare-arm.sh $arch $dir" >&2; exit 2; }

if [ "${KEL_ARM_SESSION_STAGE:-}" = inside ]; then
    unset KEL_ARM_SESSION_STAGE
    mount --make-rprivate /
    mount -t binfmt_misc binfmt_misc /proc/sys/fs/binfmt_misc 2>/dev/null || {
        echo "$0: no binfmt_misc of its own in a user namespace here (needs Linux 6.7 or later," \
             "this is $(uname -r))" >&2
        exit 1
    }
    # P: the program keeps its argv[0]; F: qemu is opened now, whatever is mounted later.
    printf ':%s:M::%s:%s:%s:PF' "$qemu" "$elf" "$elf_mask" "$dir/qemu/$qemu" \
        > /proc/sys/fs/binfmt_misc/register
    export QEMU_LD_PREFIX="$dir/sysroot"
    # qemu finds paths in the root for open and stat, not for faccessat, with which Qt looks for
    # its plugin folder (arm64 has no older call): name the folder for the target's programs.
    export QEMU_SET_ENV="QT_PLUGIN_PATH=$dir/sysroot/usr/lib/$triplet/qt5/plugins"
    # A root the sealed simulator can overlay. In a user namespace the machine's root, with the
    # mounts below it locked to it, can never be an overlay's lower layer; a tmpfs with every
    # top-level folder of the machine bound into it can.
    cwd=$PWD
    root="$dir/session-root"
    mkdir -p "$root"
    mount -t tmpfs -o mode=755 session-root "$root"
    for entry in /* /.[!.]*; do
        name=${entry#/}
        if [ -L "$entry" ]; then
            cp -P "$entry" "$root/$name"
        elif [ -d "$entry" ]; then
            mkdir "$root/$name"
            mount --rbind "$entry" "$root/$name"
        fi
    done
    mkdir "$root/.machine-root"
    cd "$root"
    pivot_root . .machine-root
    cd /
    umount -l /.machine-root
    rmdir /.machine-root
    # The copy of the new root seen through the build folder's binding.
    umount -l "$root" 2>/dev/null || true
    cd "$cwd"
    # A session and process group of its own: a stray kill(0) reaches nothing outside.
    exec setsid "$@"
fi

# A user namespace first, left waiting until this (root) side has mapped every user and group to
# itself; then mount and PID namespaces owned by it, in which the session runs.
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
mkfifo "$work/mapped"
KEL_ARM_SESSION_STAGE=inside unshare --user sh -c 'read -r _ < "$1"; shift
    exec unshare --mount --pid --fork --kill-child --mount-proc "$@"' \
    sh "$work/mapped" "$(realpath "$0")" "$arch" "$dir" "$@" &
session=$!
own=$(readlink /proc/self/ns/user)
while kill -0 "$session" 2>/dev/null && [ "$(readlink "/proc/$session/ns/user")" = "$own" ]; do
    sleep 0.01
done
echo "0 0 4294967295" > "/proc/$session/uid_map"
echo "0 0 4294967295" > "/proc/$session/gid_map"
echo > "$work/mapped"
# unshare --fork holds back TERM until its child ends, and the session has a process group of its
# own: stopping this script must stop the whole session.
trap 'kill -KILL "$session" 2>/dev/null' INT TERM HUP
status=0
wait "$session" || status=$?
exit $status
