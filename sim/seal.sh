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
# The inside of the run is seal-inside.sh. PANEL_DIR itself is visible at its own path inside, so
# that a command can leave results there.
set -eu
here=$(cd "$(dirname "$0")" && pwd)

usage() {
    cat <<'USAGE'
usage: seal.sh --probe                        exit 0 when a sealed run can be made here
       seal.sh [--bind SRC:DST]... PANEL_DIR COMMAND [ARG...]
                                              --bind: a real folder made visible (and
                                              writable) at DST inside
       seal.sh --changes PANEL_DIR            what the last run changed outside the panel's
                                              directories, one line per path
USAGE
}
# Capabilities no simulated panel needs and no run may use on this machine.
dropped=-mknod,-sys_module,-sys_time,-sys_rawio,-sys_boot,-wake_alarm,-syslog,-mac_admin,-mac_override,-audit_control

case ${1:-} in
--probe)
    exec unshare --mount --pid --net --uts --ipc --fork --kill-child \
        sh -c 'mount --make-rprivate / && mount -t tmpfs probe /mnt' ;;
--changes)
    [ $# = 2 ] || { usage >&2; exit 2; }
    exec "$here/seal-changes.sh" "$(realpath "$2")" ;;
esac

binds=""
while [ "${1:-}" = --bind ]; do
    [ $# -ge 2 ] || { echo "$0: --bind needs SRC:DST" >&2; exit 2; }
    binds="$binds$2
"
    shift 2
done
[ $# -ge 2 ] || { usage >&2; exit 2; }
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
exec unshare --mount --pid --net --uts --ipc --cgroup --fork --kill-child sh -eu "$here/seal-inside.sh" "$@"
