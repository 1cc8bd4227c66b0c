#!/bin/sh
# Fault-injection suite: power cuts at many points of a realistic update, a full disk, a pulled
# stick, a runtime that never exits, a STOPPROC program that survives killall, a failing md5sum.
# Prints the figures and exits non-zero when a file of the package-wide or system/identity sets was
# lost (neither its old nor its new content, nor the old one in its ".bak") or a refused run
# changed the panel.
#   faults.sh [POWER_CUTS (default 60)]     (KEL_BUILD_DIR: the build to test, default ./build)
set -eu
here=$(cd "$(dirname "$0")" && pwd)
. "$here/work-lib.sh"
work_dir faults
cuts=${1:-60}
# The report markers as the log's first line shows them.
succeeded=$(text 2059) failed=$(text 2055 | sed 's/\\n$//')

# A realistic package: the sample plus a few MB in every set, so that faults land everywhere.
tree="$work/tree"
cp -R "$top/examples/sample/package" "$tree"
mkdir -p "$tree/files/data" "$tree/system/payload"
records=""
n=2
for i in 1 2 3 4 5 6; do
    blob "$tree/files/data/blob$i.bin" 3000000
    n=$((n + 1))
    records="$records[COPYFILE$n]\nSRCPATH=./files/data/blob$i.bin\nDESTPATH=/usr/vorn_app/data/blob$i.bin\nSIZE=auto\nCRC32=auto\nMODE=0\nPRIORITY=$n\n\n"
done
sed -i "s/^COPYFILENUM=2/COPYFILENUM=$n/" "$tree/update.ini"
printf "\n$records" >> "$tree/update.ini"
records="" n=2
for i in 1 2 3 4; do
    blob "$tree/system/payload/sys$i.bin" 3000000
    n=$((n + 1))
    records="$records[COPYFILE$n]\nSRCPATH=./payload/sys$i.bin\nDESTPATH=/usr/vorn_app/sys/sys$i.bin\nSIZE=auto\nCRC32=auto\nMODE=0\nPRIORITY=$n\n\n"
done
sed -i "s/^COPYFILENUM=2/COPYFILENUM=$n/" "$tree/system/update.ini"
printf "\n$records" >> "$tree/system/update.ini"
blob "$tree/vorn_app/libbig.so.1.0.0" 8000000
# An old log tree to delete, so that cuts land in the delete phase as well.
sed -i "s/^DELFILENUM=1/DELFILENUM=2/" "$tree/update.ini"
printf "\n[DELFILE2]\nSRCPATH=/usr/vorn_app/oldlogs\nMODE=2\nAUTHORITY=1\nPRIORITY=2\n" >> "$tree/update.ini"
# ps lists at most 15 characters of a program's name; the STOPPROC fault needs a short one.
sed -i 's/^STOPPROC=.*/STOPPROC=plcbridge/' "$tree/update.ini"
"$build/tools/kelpack" build "$tree" "$work/stick" --program "$build/src/kelloadui.bin" >/dev/null

# The panel before the update: the seed plus an old version of every destination above.
seed="$work/seed"
"$here/seed-panel.sh" "$seed"
mkdir -p "$seed/usr/vorn_app/data" "$seed/usr/vorn_app/sys"
for i in 1 2 3 4 5 6; do echo "old blob $i" > "$seed/usr/vorn_app/data/blob$i.bin"; done
for i in 1 2 3 4; do echo "old sys $i" > "$seed/usr/vorn_app/sys/sys$i.bin"; done
for d in a b; do
    mkdir -p "$seed/usr/vorn_app/oldlogs/$d"
    for i in 1 2 3; do echo "old log $i" > "$seed/usr/vorn_app/oldlogs/$d/log$i.txt"; done
done
destinations="config/panel.conf kelinfo/panel.id etc/time.conf
              data/blob1.bin data/blob2.bin data/blob3.bin data/blob4.bin data/blob5.bin data/blob6.bin
              sys/sys1.bin sys/sys2.bin sys/sys3.bin sys/sys4.bin"
new_of() { # the new content of a destination, from the stick
    case $1 in
        config/panel.conf) echo "$work/stick/update/files/panel.conf" ;;
        kelinfo/panel.id) echo "$work/stick/update/kelinfo/panel.id" ;;
        etc/time.conf) echo "$work/stick/update/system/payload/time.conf" ;;
        data/*) echo "$work/stick/update/files/$1" ;;
        sys/*) echo "$work/stick/update/system/payload/${1#sys/}" ;;
    esac
}

panel="$work/panel"
runtime=absent
simulate() { # fresh panel from the seed, then one quiet run with the given fault variables
    rm -rf "$panel"
    cp -a "$seed" "$panel"
    rm -f "$work/stick/update.log"
    env "$@" "$here/kelsim" --panel "$panel" --runtime "$runtime" --timeout "${limit:-120}" \
        ${interactive:-} "$work/stick" ${options--s -nr} \
        > "$work/last-run.txt" 2>&1 || true
}
# Paths whose content, mode or presence the last run changed, on the panel or anywhere else in
# the sealed session (except the program's scratch files in /tmp and a replaced md5sum).
changed_paths() {
    { diff "$panel/run/before.txt" "$panel/run/after.txt" | awk '/^[<>]/ { print $2 }'
      "$here/seal.sh" --changes "$panel" | awk '{ print $2 }'; } |
        sort -u | grep -v -E '^(/usr/bin/md5sum|/tmp/.*)$' || true
}

# Checks every destination; prints the lost ones; returns their count in $lost.
check_files() {
    lost=0
    for d in $destinations; do
        f="$panel/usr/vorn_app/$d"
        old="$seed/usr/vorn_app/$d"
        new=$(new_of "$d")
        if [ -f "$f" ] && { cmp -s "$f" "$new" || { [ -f "$old" ] && cmp -s "$f" "$old"; }; }; then
            continue
        fi
        if [ ! -e "$f" ] && { [ ! -f "$old" ] || cmp -s "$f.bak" "$old"; }; then
            continue
        fi
        echo "    LOST $d ($1)"
        lost=$((lost + 1))
    done
}

# The phase of the update a cut log ended in, from the reference log's lines up to its length. A
# set's copies are logged as they are staged; once its last one is, its commit has begun.
# Each phase begins with its message; a staged copy is reported with message 2201. (The patterns
# reach awk through its environment, which keeps their backslashes.)
phase_of() {
    cut=$(wc -l < "$1") system="^$(text_pattern 2107)" runtime="^$(text_pattern 2112)" \
    project="^$(text_pattern 2118)" identity="^$(text_pattern 2124)" \
    package="^$(text_pattern 2084)" delete="^$(text_pattern 2089)" \
    rights="^$(text_pattern 2094)" staged="^$(text_pattern 2201)$" \
    awk '{ line[NR] = $0 } END {
        p = "start"
        for (i = 1; i <= ENVIRON["cut"] && i <= NR; i++) {
            s = line[i]
            if (s ~ ENVIRON["system"]) p = "system-copy"
            if (s ~ ENVIRON["runtime"]) p = "runtime"
            if (s ~ ENVIRON["project"]) p = "project"
            if (s ~ ENVIRON["identity"]) p = "identity-copy"
            if (s ~ ENVIRON["package"]) p = "package-copy"
            if (s ~ ENVIRON["delete"]) p = "delete"
            if (s ~ ENVIRON["rights"]) p = "rights-services-command"
            if (s ~ ENVIRON["staged"] && line[i + 1] !~ ENVIRON["staged"]) sub(/-copy$/, "-commit", p)
        }
        print p }' "$work/reference.log"
}

# Reference run, to know the whole log, how long a run takes and when its update begins (the log's
# first line): cuts during the program's start-up would all test the same thing.
simulate
# The second, warm run times the update as the cuts will see it.
simulate KELSIM_DURING='s=$(date +%s%N); until [ -s /media/usb0/update.log ]; do sleep 0.002; done
    echo $((($(date +%s%N) - s) / 1000000)) > /tmp/log-begins-ms'
cp "$work/stick/update.log" "$work/reference.log"
total=$(cat "$panel/run/elapsed-ms.txt")
begins=$(cat "$panel/tmp/log-begins-ms")
[ "$(head -n 1 "$work/reference.log")" = "$succeeded" ] || { echo "the reference run failed"; cat "$work/last-run.txt"; exit 1; }
echo "reference run: $total ms, the update from $begins ms on, $(wc -l < "$work/reference.log") log lines"

# After a run that was killed: checks the files and that the log holds every line written before
# the cut, in order, whole; counts the cut and its phase.
check_cut() {
    [ "$(cat "$panel/run/status.txt")" = 137 ] || [ "$(cat "$panel/run/status.txt")" = 9 ] || return 0
    injected=$((injected + 1))
    [ -f "$work/stick/update.log" ] || : > "$work/stick/update.log" # cut before the log began
    phase=$(phase_of "$work/stick/update.log")
    phases="$phases $phase"
    check_files "$1, phase $phase"
    lost_total=$((lost_total + lost))
    tail -n +2 "$work/stick/update.log" > "$work/cut.log"
    tail -n +2 "$work/reference.log" | head -n "$(wc -l < "$work/cut.log")" > "$work/prefix.log"
    if ! cmp -s "$work/cut.log" "$work/prefix.log"; then
        logs_bad=$((logs_bad + 1))
        echo "    LOG differs from the reference after the $1"
    fi
    case $phase in runtime|project) partial=$((partial + 1)) ;; esac
}
phase_counts() { echo "$phases" | tr ' ' '\n' | grep . | sort | uniq -c | awk '{ printf " %s %s", $2, $1 }'; }

# Power cuts spread over the update. Runs vary in length, so a cut near the end may come after the
# program ended: a second pass cuts between the points of the first until enough cuts landed.
injected=0 lost_total=0 partial=0 logs_bad=0 phases=""
i=1
while [ "$injected" -lt "$cuts" ] && [ $i -le $((2 * cuts)) ]; do
    at=$(awk -v t="$total" -v b="$begins" -v i="$i" -v n="$cuts" 'BEGIN {
        k = i <= n ? i : i - n - 0.5; printf "%.3f", (b + (t - b) * k / (n + 1)) / 1000 }')
    simulate KELSIM_KILL_AFTER="$at"
    [ -n "${FAULTS_DEBUG:-}" ] && echo "cut at $at: status $(cat "$panel/run/status.txt"), $(cat "$panel/run/elapsed-ms.txt") ms"
    check_cut "power cut at ${at}s"
    i=$((i + 1))
done
echo "power cut: $injected faults injected, $lost_total files lost, $logs_bad logs incomplete;" \
     "phases:$(phase_counts)"
echo "           cuts inside the runtime or project item (installed partly by design): $partial"

# Power cuts at the file system's own steps: the program killed just as it asks for each of its
# renames and removals (its children's are not counted), found by tracing a reference run.
timed_injected=$injected timed_lost=$lost_total timed_logs_bad=$logs_bad
injected=0 lost_total=0 logs_bad=0 partial=0 phases=""
mutations="renameat2 rename renameat unlink unlinkat rmdir" traced=0
simulate KELSIM_WRAPPER="strace -qq -o /tmp/mutations.txt -e trace=$(echo $mutations | tr ' ' ,)"
cp "$panel/tmp/mutations.txt" "$work/mutations.txt"
for call in $mutations; do
    count=$(grep -c "^$call(" "$work/mutations.txt" || true)
    traced=$((traced + count))
    n=1
    while [ "$n" -le "$count" ]; do
        simulate KELSIM_WRAPPER="strace -qq -o /dev/null -e trace=$call -e inject=$call:signal=KILL:when=$n"
        check_cut "cut before $call #$n"
        n=$((n + 1))
    done
done
precise_ok=no
[ "$traced" -gt 0 ] && [ "$injected" = "$traced" ] && precise_ok=yes
echo "cut before a rename or removal: $injected of $traced faults injected, $lost_total files lost," \
     "$logs_bad logs incomplete; phases:$(phase_counts)"
echo "           cuts inside the runtime or project item (installed partly by design): $partial"
injected=$((timed_injected + injected)) lost_total=$((timed_lost + lost_total))
logs_bad=$((timed_logs_bad + logs_bad))

# A full disk under the package-wide destinations.
set +e
simulate KELSIM_SETUP='mkdir -p /tmp/keep && cp -a /usr/vorn_app/data/. /tmp/keep/ &&
    mount -t tmpfs -o size=7m tmpfs /usr/vorn_app/data && cp -a /tmp/keep/. /usr/vorn_app/data/'
report=$(head -n 1 "$work/stick/update.log" 2>/dev/null)
data_files() { awk '$1 ~ /^\/usr\/vorn_app\/data\// { print $1, $3 }' "$1" | sort; }
data_files "$panel/run/before.txt" > "$work/b.txt"
data_files "$panel/run/after.txt" > "$work/a.txt"
changed=$(diff "$work/b.txt" "$work/a.txt" | grep -c '^[<>]')
staged=$(grep -c '\.tmp ' "$panel/run/after.txt")
full_ok=no
[ "$report" = "$failed" ] && [ "$changed" = 0 ] && [ "$staged" = 0 ] &&
    grep -q -E "$(text_pattern 2222)" "$work/stick/update.log" &&
    grep -q -E "$(text_pattern 2177)" "$work/stick/update.log" &&
    full_ok=yes
echo "full disk: 1 fault injected, report $report, $changed destination entries changed," \
     "$staged staged files left, red 2222 line and roll-back: $full_ok"

# A stick pulled at several moments of the run.
pulled=0 pulled_lost=0 pulled_failed=0
for fraction in 0.2 0.35 0.5 0.65 0.8; do
    at=$(awk -v t="$total" -v f="$fraction" 'BEGIN { printf "%.3f", t * f / 1000 }')
    simulate KELSIM_DURING="sleep $at; umount -l /media/usb0"
    pulled=$((pulled + 1))
    check_files "stick pulled at ${at}s"
    pulled_lost=$((pulled_lost + lost))
    [ "$(head -n 1 "$work/stick/update.log" 2>/dev/null)" = "$failed" ] && pulled_failed=$((pulled_failed + 1))
    grep -q '\.tmp ' "$panel/run/after.txt" && echo "    a staged .tmp file was left (stick pulled at ${at}s)"
done
echo "pulled stick: $pulled faults injected, $pulled_lost files lost, $pulled_failed runs reported $failed"

# A runtime that never exits: it runs as another user and the program may not signal it. Nobody is
# asked in either mode; the program waits, touching nothing, until something ends it.
runtime=unkillable
simulate KELSIM_DURING="sleep 5; pkill -44 -x kelloadui.bin" # SIGRTMIN+10, from a later run
quiet_changes=$(changed_paths | wc -l) quiet_status=$(cat "$panel/run/status.txt")
grep -q "runtime after the run: running" "$work/last-run.txt" || quiet_status="runtime gone"
(interactive=--interactive options="" limit=8; simulate)
interactive_changes=$(changed_paths | wc -l) interactive_status=$(cat "$panel/run/status.txt")
runtime=absent
waited=no
[ "$quiet_status" = 0 ] && [ "$interactive_status" = 124 ] && waited=yes
echo "runtime that never exits: 2 faults injected, $((quiet_changes + interactive_changes)) files" \
     "changed; waited until ended (quiet: by a later run, interactive: timed out): $waited"

# A STOPPROC program that survives killall -9: a zombie keeps its name in the process list.
simulate KELSIM_SETUP="cp /bin/true /tmp/plcbridge && (/tmp/plcbridge & exec sleep 1000) >/dev/null 2>&1 &"
stop_changes=$(changed_paths | wc -l)
stop_refused=no
grep -q -x "$(text 2221 | sed 's/%1/plcbridge/')" "$work/stick/update.log" && stop_refused=yes
echo "STOPPROC surviving killall: 1 fault injected, $stop_changes files changed, red 2221 line: $stop_refused"

# A failing md5sum: the runtime's checksum list cannot pass, so the installed runtime stays.
simulate KELSIM_SETUP="printf '#!/bin/sh\necho md5sum: input/output error >&2\nexit 1\n' > /usr/bin/md5sum"
md5_changes=$(changed_paths | grep -c -E '^/usr/vorn_app/(vorn_app|libvornui|libbig|kellogger|update.ini|version)')
md5_report=$(head -n 1 "$work/stick/update.log" 2>/dev/null)
echo "failing md5sum: 1 fault injected, $md5_changes runtime files changed, report $md5_report"

refused_changes=$((quiet_changes + interactive_changes + stop_changes + md5_changes))
total_lost=$((lost_total + pulled_lost))
echo "TOTAL: $((injected + 1 + pulled + 4)) faults injected, $total_lost files lost," \
     "$refused_changes files changed by refused runs"
[ "$total_lost" = 0 ] && [ "$full_ok" = yes ] && [ "$precise_ok" = yes ] && [ "$logs_bad" = 0 ] && [ "$waited" = yes ] &&
    [ "$stop_refused" = yes ] && [ "$refused_changes" = 0 ] && [ "$md5_report" = "$failed" ]
