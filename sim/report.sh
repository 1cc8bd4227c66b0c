#!/bin/sh
# Prints what a kelsim run did: report line, log, panel changes, changes elsewhere, panel actions,
# screenshots; writes the run's outcome (kelsim's exit status) to PANEL/run/verdict.
#   report.sh PANEL_DIR STICK_DIR
set -u
here=$(cd "$(dirname "$0")" && pwd)
panel=$1 stick=$2 run="$1/run"
shots=$(cat "$run/shots-dir")

. "$here/report-lib.sh"

# The log this run wrote: "-p PATH" or the default beside the package folder (or two levels up).
log=""
package=$KELSIM_PACKAGE
path=$(printf '%s\n' "$KELSIM_OPTIONS" | sed -n 's/.*-p \([^ ]*\).*/\1/p')
if [ -n "$path" ]; then
    case $path in /*) ;; *) path="/media/usb0/$package/$path" ;; esac
    set -- "$(on_machine "$(realpath -m "$path")")"
else
    set -- "$stick/update.log" "$stick/$package/update.log"
fi
for candidate; do
    [ -f "$candidate" ] && [ "$candidate" -nt "$run/before.txt" ] && log=$candidate && break
done
echo "== report"
if [ -n "$log" ]; then head -n 1 "$log"; else echo "(no log was written)"; fi
# The log grows by a run at a time (only its first line, the report, is rewritten): this run's
# lines are those after the size the same file had before, without the run's own header line.
echo "== log"
if [ -n "$log" ]; then
    before=$(awk -v p="/media/usb0/${log#"$stick"/}" -v inode="$(stat -c %i "$log")" \
        '$1 == p && $2 == "f" && $6 == inode { print $3 }' "$run/stick-before.txt")
    if [ -n "$before" ] && [ "$before" -gt 0 ] && [ "$(stat -c %s "$log")" -gt "$before" ]; then
        tail -c +"$((before + 1))" "$log" | tail -n +2
    else
        tail -n +2 "$log"
    fi
else
    echo "(none)"
fi

echo "== panel changes"
join -a1 -a2 -e '-' -o 0,1.2,1.3,2.2,2.3 "$run/before.txt" "$run/after.txt" 2>/dev/null | awk '
    $2 == "-" && $4 == "dir" { print "added    " $1; next }
    $2 == "-" { print "added    " $1 " (" $4 " " $5 ")"; next }
    $4 == "-" { print "removed  " $1; next }
    $2 != $4 && $3 == $5 { print "mode     " $1 " " $2 " -> " $4; next }
    $3 != $5 || $2 != $4 { print "replaced " $1 " (" $4 " " $5 ")" }'

echo "== changes elsewhere"
{
    # The simulator's own display files are not the program's doing.
    "$here/seal-changes.sh" "$panel" | grep -v -E ' /tmp/(\.X[0-9]+-lock|\.X11-unix/)'
    # The stick, written for real; the log is shown above.
    join -a1 -a2 -e '-' -o 0,1.2,1.3,1.4,1.5,2.2,2.3,2.4,2.5 "$run/stick-before.txt" \
        "$run/stick-after.txt" 2>/dev/null |
        awk -v logfile="$log" -v stick="$stick" '
            $2 == "d" || $6 == "d" || stick substr($1, 12) == logfile { next }
            $2 == "-" { print "added    " $1 " (" $9 ")"; next }
            $6 == "-" { print "removed  " $1; next }
            $3 != $7 || $4 != $8 || $5 != $9 { print "changed  " $1 " (" $9 ")" }'
} | sort -k 2,2

echo "== panel actions"
grep '^panel: ' "$run/stderr.txt" 2>/dev/null || echo "(none)"
echo "runtime after the run: $(cat "$run/runtime.txt" 2>/dev/null)"
echo "program exit status: $(cat "$run/status.txt" 2>/dev/null)"

# The panel's health: what the session saw inside the seal, then every file the package
# installed, still there with the package's bytes (as kelpack plans the run on this panel).
echo "== panel health"
cat "$run/health.txt" 2>/dev/null
kelpack=$(find_kelpack) bad=0
if [ -z "$kelpack" ]; then
    echo "--   installed files: not checked (no kelpack here; name one with KELSIM_KELPACK)"
else
    cut -d ' ' -f 1 "$run/before.txt" > "$run/panel-listing.txt"
    if "$kelpack" plan "$stick/$package" --panel "$run/panel-listing.txt" --files \
            > "$run/installed.txt" 2>"$run/plan-errors.txt"; then
        total=0 bad=0
        tab=$(printf '\t')
        while IFS="$tab" read -r path source; do
            total=$((total + 1))
            # Outside the panel's directories a file the run did not write is the machine's.
            where=$(on_machine "$path")
            [ -n "$where" ] || where=$path
            if [ ! -f "$where" ]; then problem="missing"
            elif [ -n "$source" ] && ! cmp -s "$where" "$stick/$package/$source"; then
                problem="other bytes than $package/$source"
            else continue
            fi
            bad=$((bad + 1))
            [ "$bad" -le 5 ] && echo "bad  installed file $path: $problem"
        done < "$run/installed.txt"
        [ "$bad" -gt 5 ] && echo "bad  ... and $((bad - 5)) more installed files"
        [ "$bad" = 0 ] && echo "ok   $total files the package installed, with its bytes"
    else
        echo "--   installed files: not checked (kelpack plan: $(head -n 1 "$run/plan-errors.txt"))"
    fi
fi
healthy=yes
grep -q '^bad ' "$run/health.txt" 2>/dev/null && healthy=no
[ "$bad" = 0 ] || healthy=no

# The screen as the program left it: the last frame grabbed as its windows went (or at its time
# limit), else the last periodic screenshot.
end=$(ls -t "$run/frames"/*.png 2>/dev/null | head -n 1)
[ -n "$end" ] || [ "$shots" = none ] || end=$(ls "$shots"/screen-*.png 2>/dev/null | tail -n 1)
echo "== screenshots"
if [ "$shots" != none ]; then
    if [ -n "$end" ]; then
        cp "$end" "$shots/end.png"
    elif [ -z "$KELSIM_GRAB_LIB" ]; then
        echo "(no end.png: the screen-grabbing shim libkelsim_grab.so was not found; build the" \
             "target kelsim_grab, or name it with KELSIM_GRAB_LIB)"
    else
        echo "(no end.png: the program showed no window and no screenshot was taken)"
    fi
    ls "$shots" | sed "s|^|$shots/|" | tail -n 3
fi
printf '%s\n' "$end" > "$run/end-screen"

# The outcome: a failure seen wins, then a run out of time, then the report's success.
report=$([ -n "$log" ] && head -n 1 "$log")
red=no
if [ "$KELSIM_INTERACTIVE" = 1 ] && [ -n "$end" ]; then
    case $(convert "$end" -format '%[pixel:p{5,5}]' info: 2>/dev/null) in red|'srgb(255,0,0)') red=yes ;; esac
fi
status=$(cat "$run/status.txt" 2>/dev/null)
if [ "$report" = "[失败]" ] || [ "$red" = yes ]; then verdict=1
elif [ -f "$run/timed-out" ]; then verdict=3
elif [ "$report" = "[成功]" ] && [ "$healthy" = no ]; then verdict=4
elif [ "$report" = "[成功]" ]; then verdict=0
elif [ "$KELSIM_INTERACTIVE" = 1 ] && [ "$status" = 0 ]; then verdict=0
else verdict=1
fi
echo "$verdict" > "$run/verdict"
case $verdict in
    0) echo "kelsim: the update succeeded" ;;
    1) echo "kelsim: the update failed" ;;
    3) echo "kelsim: the program did not end within the time limit" ;;
    4) echo "kelsim: the update reported success, but the panel is not healthy (see panel health)" ;;
esac
