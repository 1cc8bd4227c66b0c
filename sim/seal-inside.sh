#!/bin/sh
# The inside of a sealed run (see seal.sh), started by seal.sh as the first process of its new
# mount, PID, network, UTS, IPC and cgroup namespaces: builds the panel's root file system over
# the machine's, moves into it and runs the command there with the capabilities no panel needs
# dropped. Its settings come from seal.sh in SEAL_PANEL, SEAL_BINDS, SEAL_DROPPED and SEAL_CWD.
#
#   seal-inside.sh COMMAND [ARG...]
set -eu
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
awk '{ for (i = 1; $i != "-"; i++) ; print $5, $(i + 1) }' /proc/self/mountinfo | sort -u -k1,1 |
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
# The panel's /tmp: the machine's /tmp below, the panel's changes above.
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
