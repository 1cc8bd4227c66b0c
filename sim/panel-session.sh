#!/bin/sh
# The simulated panel, inside kelsim's private namespaces (see kelsim).
set -eu
panel=$KELSIM_PANEL run="$KELSIM_PANEL/run"
mkdir -p "$panel/.overlay/usr" "$panel/.overlay/usr.work"
mount --make-rprivate /
mount -t overlay overlay -o "lowerdir=/usr,upperdir=$panel/.overlay/usr,workdir=$panel/.overlay/usr.work" /usr
mount --bind "$panel/usr/vorn_app" /usr/vorn_app 2>/dev/null ||
    { mkdir -p /usr/vorn_app && mount --bind "$panel/usr/vorn_app" /usr/vorn_app; }
mount --bind "$panel/etc/systemd/system" /etc/systemd/system
mount --bind "$panel/tmp" /tmp
mkdir -p /media
mount -t tmpfs stickmount /media
mkdir -p /media/usb0
mount --bind "$KELSIM_STICK" /media/usb0

snapshot() { # path, mode, link target or sha of every file the update may touch
    list="$run/paths.txt"
    { find /usr/vorn_app /etc/systemd/system \( -type f -o -type l \) 2>/dev/null
      # Elsewhere in /usr only what the overlay holds can have changed.
      (cd "$panel/.overlay/usr" && find . \( -type f -o -type l \) | sed 's|^\.|/usr|'); } |
        sort > "$list"
    # A few processes for the whole list, not a few per file: packages hold thousands of files.
    tr '\n' '\0' < "$list" | xargs -0 -r sh -c '
        find "$@" -maxdepth 0 \( -type l -printf "L %p %l\n" \) -o \( -type f -printf "M %p %m\n" \)
        find "$@" -maxdepth 0 -type f -exec sha256sum {} +' sh |
        awk -v list="$list" '
            $1 == "M" { mode[$2] = $3; next } $1 == "L" { link[$2] = $3; next } { hash[$2] = substr($1, 1, 16) }
            END { while ((getline f < list) > 0)
                      if (f in link) print f " link " link[f]; else if (f in hash) print f " " mode[f] " " hash[f] }'
}
snapshot > "$run/before.txt"
# Fault injection: a shell snippet run on the prepared panel before the program starts.
[ -n "${KELSIM_SETUP:-}" ] && sh -c "$KELSIM_SETUP"

# The display: Xvfb at the panel's screen size, private to this session. A kept panel directory
# may still hold the lock and socket of an earlier session's display.
rm -f /tmp/.X7-lock /tmp/.X11-unix/X7
Xvfb :7 -screen 0 "${KELSIM_SCREEN}x24" -nolisten tcp >"$run/xvfb.log" 2>&1 &
# A loaded machine may need a while to bring the display up; without it the program cannot start.
for _ in $(seq 300); do [ -e /tmp/.X11-unix/X7 ] && break; sleep 0.1; done
[ -e /tmp/.X11-unix/X7 ] || { echo "kelsim: the virtual display did not start" >&2; exit 1; }
export DISPLAY=:7 QT_QPA_PLATFORM=xcb
shot() { [ "$KELSIM_SHOTS" = none ] || import -window root "png:$KELSIM_SHOTS/$1.png" 2>/dev/null || true; }

case $KELSIM_RUNTIME in
    obey) bash -c 'exec -a /usr/vorn_app/vorn_app sleep 100000' & ;;
    ignore) bash -c "trap '' TERM; exec -a /usr/vorn_app/vorn_app sleep 100000" & ;;
    unkillable) setpriv --reuid=65534 --regid=65534 --clear-groups \
                    bash -c 'exec -a /usr/vorn_app/vorn_app sleep 100000' & ;;
esac
# Without the right to signal other users' processes, every request to the runtime fails.
guard=""
[ "$KELSIM_RUNTIME" = unkillable ] && guard="setpriv --bounding-set=-kill --inh-caps=-kill"
sleep 0.2

cd "/media/usb0/$KELSIM_PACKAGE"
started=$(date +%s%N)
# shellcheck disable=SC2086
# The program's own status and running time, recorded the moment it ends.
(
    set +e
    # shellcheck disable=SC2086
    timeout "$KELSIM_LIMIT" $guard ${KELSIM_WRAPPER:-} ./kelloadui.bin $KELSIM_OPTIONS >"$run/stdout.txt" 2>"$run/stderr.txt"
    echo $? > "$run/status.txt"
    echo $((($(date +%s%N) - started) / 1000000)) > "$run/elapsed-ms.txt"
) &
program=$!
# Fault injection: a power cut after so many seconds (SIGKILL, nothing runs after it).
if [ -n "${KELSIM_KILL_AFTER:-}" ]; then
    (sleep "$KELSIM_KILL_AFTER"; pkill -KILL -x kelloadui.bin) &
fi
# Fault injection: a snippet run in the background while the program runs.
[ -n "${KELSIM_DURING:-}" ] && sh -c "$KELSIM_DURING" &
n=0
while sleep 1 && kill -0 "$program" 2>/dev/null; do
    n=$((n + 1))
    shot "$(printf 'screen-%03d' "$n")"
done
wait "$program" || true
[ "$n" -gt 0 ] && cp "$KELSIM_SHOTS/$(printf 'screen-%03d' "$n").png" "$KELSIM_SHOTS/end.png" 2>/dev/null || true
snapshot > "$run/after.txt"
pgrep -f /usr/vorn_app/vorn_app >/dev/null && echo running > "$run/runtime.txt" || echo stopped > "$run/runtime.txt"
sync
