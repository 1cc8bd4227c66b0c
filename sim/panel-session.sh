#!/bin/sh
# The simulated panel, run by kelsim inside a sealed session (see seal.sh): a display, the
# stand-in runtime, the program with its time limit, screenshots, and the panel's state before
# and after. Results go to $KELSIM_PANEL/run.
set -eu
run="$KELSIM_PANEL/run"
stick=/media/usb0

snapshot() { # path, mode, link target or sha of every file in the panel's directories
    list="$run/paths.txt"
    find /usr/vorn_app /etc/systemd/system /var/lib/kelgate \( -type f -o -type l \) 2>/dev/null |
        sort > "$list"
    # A few processes for the whole list, not a few per file: packages hold thousands of files.
    tr '\n' '\0' < "$list" | xargs -0 -r sh -c '
        find "$@" -maxdepth 0 \( -type l -printf "L %p %l\n" \) -o \( -type f -printf "M %p %m\n" \)
        find "$@" -maxdepth 0 -type f -exec sha256sum {} +' sh |
        awk -v list="$list" '
            $1 == "M" { mode[$2] = $3; next } $1 == "L" { link[$2] = $3; next } { hash[$2] = substr($1, 1, 16) }
            END { while ((getline f < list) > 0)
                      if (f in link) print f " link " link[f]; else if (f in hash) print f " " mode[f] " " hash[f] }'
    # Folders too, so that those the run makes or removes are seen.
    find /usr/vorn_app /etc/systemd/system /var/lib/kelgate -mindepth 1 -type d -printf '%p/ dir -\n' 2>/dev/null
}
# The runtime program, its libraries and the boot units of the panel as the run leaves it, one
# line each: "ok", "bad" or "--" (not checked), then what was looked at.
health() {
    program=/usr/vorn_app/vorn_app
    if [ ! -f "$program" ]; then echo "bad  runtime program $program: missing"
    elif [ ! -x "$program" ]; then echo "bad  runtime program $program: not executable ($(stat -c %a "$program"))"
    else echo "ok   runtime program $program ($(stat -c %a "$program"))"
    fi
    if [ -f "$program" ] && [ "$(head -c 4 "$program" | tail -c 3)" = ELF ]; then
        if libraries=$(LD_LIBRARY_PATH=/usr/vorn_app ldd "$program" 2>/dev/null); then
            missing=$(printf '%s\n' "$libraries" | awk '/not found/ { printf "%s ", $1 }')
            if [ -n "$missing" ]; then echo "bad  its libraries: not found: $missing"
            else echo "ok   its libraries resolve ($(printf '%s\n' "$libraries" | grep -c '=>') found)"
            fi
        else
            echo "--   its libraries: ldd cannot read a program of this processor here"
        fi
    fi
    wants=/etc/systemd/system/multi-user.target.wants
    for link in "$wants"/*; do
        [ -L "$link" ] || continue
        if [ -e "$link" ]; then echo "ok   boot unit ${link##*/}"
        else echo "bad  boot unit ${link##*/}: links to $(readlink "$link"), which is missing"
        fi
    done
    while read -r unit; do
        [ -e "$wants/${unit##*/}" ] || echo "bad  runtime's boot unit ${unit##*/}: gone or no longer started at boot"
    done < "$run/runtime-units.txt"
}
# The stick is the user's own folder, written for real: size, time and mode show what changed.
stick_state() { find "$stick" -mindepth 1 -printf '%p %y %s %T@ %m %i\n' | sort; }

snapshot | sort > "$run/before.txt"
# The units that start the runtime at boot before the run.
grep -l "^ExecStart=/usr/vorn_app/vorn_app" /etc/systemd/system/*.service > "$run/runtime-units.txt" 2>/dev/null || true
stick_state > "$run/stick-before.txt"
# Fault injection: a shell snippet run on the prepared panel before the program starts.
[ -n "${KELSIM_SETUP:-}" ] && sh -c "$KELSIM_SETUP"

# The display: a private Xvfb at the panel's screen size, at the first free display number. The
# keymaps it compiles for its clients are its own scratch, not changes of the run.
[ ! -d /var/lib/xkb ] || mount -t tmpfs -o mode=755,nosuid,nodev xkb /var/lib/xkb
exec 3>"$run/display"
Xvfb -displayfd 3 -screen 0 "${KELSIM_SCREEN}x24" -nolisten tcp >"$run/xvfb.log" 2>&1 &
exec 3>&-
# A loaded machine may need a while to bring the display up; without it the program cannot start.
for _ in $(seq 300); do [ -s "$run/display" ] && break; sleep 0.1; done
[ -s "$run/display" ] || { echo "kelsim: the virtual display did not start (see $run/xvfb.log)" >&2; exit 1; }
export DISPLAY=":$(cat "$run/display")" QT_QPA_PLATFORM=xcb
frames="$run/frames"
mkdir -p "$frames"
shot() { import -window root "png:$1" 2>/dev/null || true; }

case $KELSIM_RUNTIME in
    obey) bash -c 'exec -a /usr/vorn_app/vorn_app sleep 100000' & ;;
    ignore) bash -c "trap '' TERM; exec -a /usr/vorn_app/vorn_app sleep 100000" & ;;
    unkillable) setpriv --reuid=65534 --regid=65534 --clear-groups \
                    bash -c 'exec -a /usr/vorn_app/vorn_app sleep 100000' & ;;
esac
# The program may not mount (a remount could open the machine's settings to it); without the
# right to signal other users' processes, every request to the runtime fails.
drop=-sys_admin
[ "$KELSIM_RUNTIME" = unkillable ] && drop="$drop,-kill"
# The frames the program leaves behind are grabbed by a shim in the program itself.
preload=""
[ -n "$KELSIM_GRAB_LIB" ] && preload="LD_PRELOAD=$KELSIM_GRAB_LIB KELSIM_GRAB_DIR=$frames"
# The panel's gate checks the stick first; its notice stays long enough for a screenshot.
gate=""
[ -n "$KELSIM_GATE" ] && gate="$KELSIM_GATE --notice-seconds 3"
sleep 0.2

cd "$stick/$KELSIM_PACKAGE"
started=$(date +%s%N)
# The screens' times are counted from here.
echo "$started" > "$run/started-ns"
# The program's own status and running time, recorded the moment it ends.
(
    set +e -f
    # The program's options come one a line, each passed whole.
    IFS='
'
    # shellcheck disable=SC2086
    set -- $KELSIM_OPTIONS
    IFS=' 	
'
    # shellcheck disable=SC2086
    setpriv --bounding-set="$drop" --inh-caps="$drop" \
        env $preload ASAN_OPTIONS="${ASAN_OPTIONS:+$ASAN_OPTIONS:}verify_asan_link_order=0" \
        ${KELSIM_WRAPPER:-} $gate ./kelloadui.bin "$@" >"$run/stdout.txt" 2>"$run/stderr.txt"
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
deadline=$(($(date +%s) + KELSIM_LIMIT))
while sleep 1 && kill -0 "$program" 2>/dev/null; do
    n=$((n + 1))
    [ "$KELSIM_SHOTS" = none ] || shot "$KELSIM_SHOTS/$(printf 'screen-%03d' "$n").png"
    if [ "$(date +%s)" -ge "$deadline" ]; then
        # The screen as the program left it when its time ran out.
        shot "$frames/limit.png"
        echo timeout > "$run/timed-out"
        pkill -TERM -x kelloadui.bin || true
        sleep 2
        pkill -KILL -x kelloadui.bin || true
        break
    fi
done
wait "$program" || true
# As the timeout command reports a run it had to end.
[ -f "$run/timed-out" ] && echo 124 > "$run/status.txt"
snapshot | sort > "$run/after.txt"
health > "$run/health.txt"
stick_state > "$run/stick-after.txt"
pgrep -f /usr/vorn_app/vorn_app >/dev/null && echo running > "$run/runtime.txt" || echo stopped > "$run/runtime.txt"
sync
