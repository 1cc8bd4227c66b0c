#!/bin/sh
# Prints what a kelsim run did: report line, log, panel changes, panel actions, screenshots.
set -u
panel=$1 stick=$2 run="$1/run"
log=""
# Only a log written by this run counts.
for candidate in "$stick/update.log" "$stick"/*/update.log; do
    [ -f "$candidate" ] && [ "$candidate" -nt "$run/before.txt" ] && log=$candidate && break
done
echo "== report"
if [ -n "$log" ]; then head -n 1 "$log"; else echo "(no log was written)"; fi
echo "== log"
if [ -n "$log" ]; then tail -n +2 "$log"; else echo "(none)"; fi
echo "== panel changes"
join -a1 -a2 -e '-' -o 0,1.2,1.3,2.2,2.3 "$run/before.txt" "$run/after.txt" 2>/dev/null | awk '
    $2 == "-" { print "added    " $1 " (" $4 " " $5 ")"; next }
    $4 == "-" { print "removed  " $1; next }
    $2 != $4 && $3 == $5 { print "mode     " $1 " " $2 " -> " $4; next }
    $3 != $5 || $2 != $4 { print "replaced " $1 " (" $4 " " $5 ")" }'
echo "== panel actions"
grep '^panel: ' "$run/stderr.txt" || echo "(none)"
echo "runtime after the run: $(cat "$run/runtime.txt" 2>/dev/null)"
echo "program exit status: $(cat "$run/status.txt" 2>/dev/null)"
echo "== screenshots"
ls "$panel/screenshots" 2>/dev/null | sed "s|^|$panel/screenshots/|" | tail -n 3
