#!/bin/sh
# Fault-injection suite: power cuts at many points of a realistic update, a full disk, a pulled
# stick. Prints the figures and exits non-zero when a file of the package-wide or system/identity
# sets was lost (neither its old nor its new content, nor the old one in its ".bak").
#   faults.sh [POWER_CUTS (default 60)]     (KEL_BUILD_DIR: the build to test, default ./build)
set -eu
here=$(cd "$(dirname "$0")" && pwd)
top="$here/.."
build=${KEL_BUILD_DIR:-$top/build}
cuts=${1:-60}
work="$build/faults"
rm -rf "$work"
mkdir -p "$work"

# A realistic package: the sample plus a few MB in every set, so that faults land everywhere.
tree="$work/tree"
cp -R "$top/examples/sample/package" "$tree"
mkdir -p "$tree/files/data" "$tree/system/payload"
blob() { head -c "$2" /dev/urandom > "$1"; }
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
"$build/tools/kelpack" build "$tree" "$work/stick" --program "$build/src/kelloadui.bin" >/dev/null

# The panel before the update: the seed plus an old version of every destination above.
seed="$work/seed"
"$here/seed-panel.sh" "$seed"
mkdir -p "$seed/usr/vorn_app/data" "$seed/usr/vorn_app/sys"
for i in 1 2 3 4 5 6; do echo "old blob $i" > "$seed/usr/vorn_app/data/blob$i.bin"; done
for i in 1 2 3 4; do echo "old sys $i" > "$seed/usr/vorn_app/sys/sys$i.bin"; done
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
simulate() { # fresh panel from the seed, then one quiet run with the given fault variables
    rm -rf "$panel"
    cp -a "$seed" "$panel"
    rm -f "$work/stick/update.log"
    env "$@" "$here/kelsim" --panel "$panel" --runtime absent --timeout 120 "$work/stick" -s -nr \
        > "$work/last-run.txt" 2>&1 || true
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

phase_of() { # the phase a log's last line belongs to
    case $(tail -n 1 "$1" 2>/dev/null) in
        *系统镜像*|*升级系统*) echo system ;;
        *运行环境*) echo runtime ;;
        *升级工程*|*工程*) echo project ;;
        *标识*) echo identity ;;
        *删除*) echo delete ;;
        *拷贝*|*crc*|*CRC*) echo copy ;;
        *) echo other ;;
    esac
}

# Reference run, to know the whole log and how long a run takes.
simulate
simulate # the second, warm run times the update as the cuts will see it
cp "$work/stick/update.log" "$work/reference.log"
total=$(cat "$panel/run/elapsed-ms.txt")
head -n 1 "$work/reference.log" | grep -q "成功" || { echo "the reference run failed"; cat "$work/last-run.txt"; exit 1; }
echo "reference run: $total ms, $(wc -l < "$work/reference.log") log lines"

# Power cuts spread over the whole run.
injected=0 lost_total=0 partial=0 logs_bad=0 phases=""
i=1
while [ $i -le "$cuts" ]; do
    at=$(awk -v t="$total" -v i="$i" -v n="$cuts" 'BEGIN { printf "%.3f", t * i / (n + 1) / 1000 }')
    simulate KELSIM_KILL_AFTER="$at"
    [ -n "${FAULTS_DEBUG:-}" ] && echo "cut at $at: status $(cat "$panel/run/status.txt"), $(cat "$panel/run/elapsed-ms.txt") ms"
    if [ "$(cat "$panel/run/status.txt")" = 137 ] || [ "$(cat "$panel/run/status.txt")" = 9 ]; then
        injected=$((injected + 1))
        [ -f "$work/stick/update.log" ] || : > "$work/stick/update.log" # cut before the log began
        phase=$(phase_of "$work/stick/update.log")
        phases="$phases $phase"
        check_files "power cut at ${at}s, phase $phase"
        lost_total=$((lost_total + lost))
        # Every line written before the cut is there, in order, whole.
        tail -n +2 "$work/stick/update.log" > "$work/cut.log"
        tail -n +2 "$work/reference.log" | head -n "$(wc -l < "$work/cut.log")" > "$work/prefix.log"
        if ! cmp -s "$work/cut.log" "$work/prefix.log"; then
            logs_bad=$((logs_bad + 1))
            echo "    LOG differs from the reference after a cut at ${at}s"
        fi
        case $phase in runtime|project) partial=$((partial + 1)) ;; esac
    fi
    i=$((i + 1))
done
echo "power cut: $injected faults injected, $lost_total files lost, $logs_bad logs incomplete;" \
     "phases:$(echo "$phases" | tr ' ' '\n' | grep . | sort | uniq -c | awk '{ printf " %s %s", $2, $1 }')"
echo "           cuts inside the runtime or project item (installed partly by design): $partial"

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
[ "$report" = "[失败]" ] && [ "$changed" = 0 ] && [ "$staged" = 0 ] &&
    grep -q "写入文件" "$work/stick/update.log" && grep -q "先前文件还原成功" "$work/stick/update.log" &&
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
    head -n 1 "$work/stick/update.log" 2>/dev/null | grep -q "失败" && pulled_failed=$((pulled_failed + 1))
    grep -q '\.tmp ' "$panel/run/after.txt" && echo "    a staged .tmp file was left (stick pulled at ${at}s)"
done
echo "pulled stick: $pulled faults injected, $pulled_lost files lost, $pulled_failed runs reported [失败]"

total_lost=$((lost_total + pulled_lost))
echo "TOTAL: $((injected + 1 + pulled)) faults injected, $total_lost files lost"
[ "$total_lost" = 0 ] && [ "$full_ok" = yes ] && [ "$logs_bad" = 0 ]
