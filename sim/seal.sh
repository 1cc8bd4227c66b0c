#!/bin/sh
# Runs a command as root on a simulated panel sealed off from this machine. Whatever the command
# does to files, processes, the network or the display stays inside:
#   - the whole file system is a copy-on-write overlay: changes land in PANEL/.seal, never on the
#     machine (every other real mount gets an overlay of its own, or a read-only view);
#   - PANEL/usr/vorn_app and PANEL/etc/systemd/system are bound over the panel's directories;
#   - /tmp is the panel's own: the machine's /tmp shows through, changes land in PANEL/tmp;
#   - /proc (with /proc/sys read-only), /sys (read-only), /dev (null, zero, full, random,
#     urandom, tty, a private pts and shm) and /run are private views;
#   - private mount, PID, network, UTS, IPC and cgroup namespaces;
#   - no process inside may make device nodes, load modules, set the clock or use raw I/O.
#
#   seal.sh --probe                               exit 0 when a sealed run can be made here
#   seal.sh [--bind SRC:DST]... PANEL_DIR COMMAND [ARG...]
#                                                 --bind: a real folder made visible (and
#                                                 writable) at DST inside
#   seal.sh --changes PANEL_DIR                   what the last run changed outside the panel's
#                                                 directories, one line per path
# PANEL_DIR itself is visible at its own path inside, so that a command can leave results there.
set -eu
here=$(cd "$(dirname "$0")" && pwd)
# Capabilities no simulated panel needs and no run may use on this machine.
dropped=-mknod,-sys_module,-sys_time,-sys_rawio,-sys_boot,-wake_alarm,-syslog,-mac_admin,-mac_override,-audit_control

case ${1:-} in
--probe)
    exec unshare --mount --pid --net --uts --ipc --fork --kill-child \
        sh -c 'mount --make-rprivate / && mount -t tmpfs probe /mnt' ;;
--changes)
    [ $# = 2 ] || { echo "usage: $0 --changes PANEL_DIR" >&2; exit 2; }
    exec "$here/seal-changes.sh" "$(realpath "$2")" ;;
esac

binds=""
while [ "${1:-}" = --bind ]; do
    [ $# -ge 2 ] || { echo "$0: --bind needs SRC:DST" >&2; exit 2; }
    binds="$binds$2
"
    shift 2
done
[ $# -ge 2 ] || { sed -n '13,19p' "$0" | sed 's/^# \{0,1\}//' >&2; exit 2; }
[ "$(id -u)" = 0 ] || { echo "$0: must run as root (namespaces and mounts)" >&2; exit 2; }
mkdir -p "$1"
panel=$(realpath "$1")
shift
seal="$panel/.seal"
mkdir -p "$panel/usr/vorn_app" "$panel/etc/systemd/system" "$panel/tmp"
# One run at a time per panel: an overlay's upper layer cannot serve two mounts.
exec 9>"$panel/.lock"
if ! flock -n 9; then
    echo "$0: $panel is in use by another run; waiting for it" >&2
    flock 9
fi
rm -rf "$seal"
# The panel's /tmp starts empty, as after a restart.
find "$panel/tmp" -mindepth 1 -delete
mkdir -p "$seal/upper" "$seal/work" "$seal/root"

export SEAL_PANEL="$panel" SEAL_BINDS="$binds" SEAL_DROPPED="$dropped" SEAL_CWD="$PWD"
exec unshare --mount --pid --net --uts --ipc --cgroup --fork --kill-child sh -eu -c '
panel=$SEAL_PANEL seal=$SEAL_PANEL/.seal root=$SEAL_PANEL/.seal/root
mount --make-rprivate /
# Mount points this run makes inside the overlay (and their missing parents): not changes of the
# command.
made() {
    for d in "$@"; do
        p=$d missing=""
        while [ "$p" != / ] && [ ! -e "$root$p" ] && [ ! -L "$root$p" ]; do
            missing="$p
$missing"
            p=$(dirname "$p")
        done
        [ -n "$missing" ] || continue
        mkdir -p "$root$d"
        printf "%s" "$missing" >> "$seal/made"
    done
}
: > "$seal/made"
mkdir -p "$seal/upper/0" "$seal/work/0"
mount -t overlay overlay -o "lowerdir=/,upperdir=$seal/upper/0,workdir=$seal/work/0" "$root"
echo "0 /" > "$seal/layers"
# Every other real file system of the machine: its own overlay, or a read-only view.
n=0
awk '\''{ for (i = 1; $i != "-"; i++) ; print $5, $(i + 1) }'\'' /proc/self/mountinfo | sort -u -k1,1 |
while read -r point type; do
    case $point in /|/proc|/proc/*|/sys|/sys/*|/dev|/dev/*|/run|/run/*|/tmp|"$panel"|"$panel"/*) continue ;; esac
    case $point in *\\*) continue ;; esac # names with escaped blanks: left as the root shows them
    [ -d "$point" ] && [ -d "$root$point" ] || continue
    n=$((n + 1))
    mkdir -p "$seal/upper/$n" "$seal/work/$n"
    if mount -t overlay overlay -o "lowerdir=$point,upperdir=$seal/upper/$n,workdir=$seal/work/$n" "$root$point" 2>/dev/null; then
        echo "$n $point" >> "$seal/layers"
    elif mount --bind "$point" "$root$point"; then
        mount -o remount,bind,ro "$root$point" || umount -l "$root$point"
    fi
done
# The panel'"'"'s /tmp: the machine'"'"'s /tmp below, the panel'"'"'s changes above.
mkdir -p "$seal/work/tmp"
mount -t overlay overlay -o "lowerdir=/tmp,upperdir=$panel/tmp,workdir=$seal/work/tmp" "$root/tmp"

mount -t proc proc "$root/proc"
for p in sys sysrq-trigger irq bus fs; do
    [ -e "$root/proc/$p" ] && mount --bind "$root/proc/$p" "$root/proc/$p" && mount -o remount,bind,ro "$root/proc/$p"
done
mount -t sysfs -o ro,nosuid,nodev,noexec sysfs "$root/sys" 2>/dev/null || mount -t tmpfs -o ro sys "$root/sys"
mount -t tmpfs -o mode=755,nosuid dev "$root/dev"
for d in null zero full random urandom tty; do
    touch "$root/dev/$d" && mount --bind "/dev/$d" "$root/dev/$d"
done
mkdir -p "$root/dev/pts" "$root/dev/shm"
mount -t devpts -o newinstance,ptmxmode=0666,mode=620 devpts "$root/dev/pts"
ln -s pts/ptmx "$root/dev/ptmx"
mount -t tmpfs -o mode=1777,nosuid,nodev shm "$root/dev/shm"
ln -s /proc/self/fd "$root/dev/fd"
ln -s /proc/self/fd/0 "$root/dev/stdin"; ln -s /proc/self/fd/1 "$root/dev/stdout"; ln -s /proc/self/fd/2 "$root/dev/stderr"
mount -t tmpfs -o mode=755,nosuid,nodev run "$root/run"

made /usr/vorn_app /etc/systemd/system
mount --bind "$panel/usr/vorn_app" "$root/usr/vorn_app"
mount --bind "$panel/etc/systemd/system" "$root/etc/systemd/system"
made "$panel"
mount --bind "$panel" "$root$panel"
printf "%s" "$SEAL_BINDS" | while IFS=: read -r src dst; do
    [ -n "$src" ] || continue
    made "$dst"
    mount --bind "$src" "$root$dst"
done
ip link set lo up 2>/dev/null || true

cd "$root"
pivot_root . .
umount -l .
cd "$SEAL_CWD" 2>/dev/null || cd /
unset SEAL_PANEL SEAL_BINDS SEAL_CWD
exec setpriv --bounding-set="$SEAL_DROPPED" env -u SEAL_DROPPED "$@"
' seal "$@"
