#!/bin/sh
# Runs a command as on a panel, without touching this machine's system paths: in a private mount
# and PID namespace, PANEL_DIR/usr/vorn_app, PANEL_DIR/etc/systemd/system and PANEL_DIR/tmp are
# bound over /usr/vorn_app, /etc/systemd/system and /tmp; /usr gets a throw-away overlay so that
# mount points and files such as /usr/sbin/CheckVornApp can be made there.
#
#   run-in-sandbox.sh --probe                  exit 0 when namespaces can be made here
#   run-in-sandbox.sh PANEL_DIR COMMAND [ARG]  PANEL_DIR and the command's paths must lie outside /tmp
set -eu

if [ "${1:-}" = "--probe" ]; then
    exec unshare --mount --pid --fork --mount-proc true
fi
[ $# -ge 2 ] || { echo "usage: $0 PANEL_DIR COMMAND [ARG...]" >&2; exit 2; }
panel=$(realpath "$1")
shift
case "$panel/" in /tmp/*) echo "$0: PANEL_DIR must lie outside /tmp" >&2; exit 2 ;; esac
mkdir -p "$panel/usr/vorn_app" "$panel/etc/systemd/system" "$panel/tmp" \
         "$panel/.overlay/usr" "$panel/.overlay/usr.work" "$panel/.overlay/etc" "$panel/.overlay/etc.work"

exec unshare --mount --pid --fork --kill-child --mount-proc sh -eu -c '
panel=$1; shift
mount --make-rprivate /
mount -t overlay overlay -o "lowerdir=/usr,upperdir=$panel/.overlay/usr,workdir=$panel/.overlay/usr.work" /usr
mkdir -p /usr/vorn_app
mount --bind "$panel/usr/vorn_app" /usr/vorn_app
if [ ! -d /etc/systemd/system ]; then
    mount -t overlay overlay -o "lowerdir=/etc,upperdir=$panel/.overlay/etc,workdir=$panel/.overlay/etc.work" /etc
    mkdir -p /etc/systemd/system
fi
mount --bind "$panel/etc/systemd/system" /etc/systemd/system
mount --bind "$panel/tmp" /tmp
exec "$@"
' sandbox "$panel" "$@"
