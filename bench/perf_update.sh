#!/bin/sh
# Whole updates against their copy floor: builds three packages, runs the real program on each in
# quiet mode through the simulator (RUNS times, median), and measures on the same file system the
# floor: cp -a of the same payload, the checksum passes the program must make (bare zlib CRC-32 or
# md5sum -c), and one sync. Prints the ratios, peak memory and the share of time spent in sync().
# The program runs with "-s -nr": quiet, starting at once, checking every item and set before it
# applies them. Its fixed cost (start-up, closing) is measured on a package with nothing to do and
# shown beside each ratio as the ratio of the rest; so is the half-second start delay that quiet
# runs without "-s" wait on purpose.
#   perf_update.sh [RUNS (default 3)]     (KEL_BUILD_DIR: the build to measure, default ./build;
#                                          KEL_BENCH_KEEP=1 keeps the packages for profiling)
set -eu
here=$(cd "$(dirname "$0")" && pwd)
top="$here/.."
build=$(realpath "${KEL_BUILD_DIR:-$top/build}")
runs=${1:-3}
work="$build/perf"
rm -rf "$work"
mkdir -p "$work"
kelpack="$build/tools/kelpack"
program="$build/src/kelloadui.bin"
crc="$build/bench/crc_floor"
echo "machine: $(nproc) cores; work directory $work ($(df -T "$work" | awk 'NR == 2 { print $2 }'))"

ms() { echo $(($(date +%s%N) / 1000000)); }
median() { sort -n | awk '{ v[NR] = $1 } END { print v[int((NR + 1) / 2)] }'; }
blob() { head -c "$2" /dev/urandom > "$1"; }
header() { # an update.ini that applies nothing but what follows
    printf '[UPDATE]\nUPSYSTEM=%s\nUPVORN_APP=%s\nUPPROJECT=%s\n' "$1" "$2" "$3"
}

# The program on a stick: median time, peak memory, sync() figures.
measure() { # name stick [program options, default -s -nr]
    times="" rss="" cpu="" sync_ms="" sync_calls=""
    for _ in $(seq "$runs"); do
        panel="$work/panel-$1"
        sync # no write-back of earlier work may fall into the timed run
        KELSIM_WRAPPER="env LD_PRELOAD=$build/bench/libsync_timer.so SYNC_TIMER_OUT=/tmp/sync.txt /usr/bin/time -f %M,%U,%S -o /tmp/rss.txt" \
            "$top/sim/kelsim" --fresh --panel "$panel" --runtime absent --timeout 900 --screenshots none \
            "$2" ${3:--s -nr} >"$work/$1.out" 2>&1 || true
        head -n 1 "$2/update.log" | grep -q "成功" || { echo "$1: the update failed"; sed -n 1,40p "$work/$1.out"; exit 1; }
        times="$times $(cat "$panel/run/elapsed-ms.txt")"
        rss="$rss $(tail -n 1 "$panel/tmp/rss.txt" | cut -d , -f 1)"
        cpu="$cpu $(tail -n 1 "$panel/tmp/rss.txt" | awk -F , '{ printf "%d", $2 * 1000 }')"
        counted=$(cat "$panel/tmp/sync.txt")
        sync_calls=${counted%% *} sync_ms="$sync_ms ${counted#* }"
    done
    program_ms=$(echo "$times" | tr ' ' '\n' | grep . | median)
    peak_kb=$(echo "$rss" | tr ' ' '\n' | grep . | sort -n | tail -n 1)
    sync_median=$(echo "$sync_ms" | tr ' ' '\n' | grep . | median)
    cpu_ms=$(echo "$cpu" | tr ' ' '\n' | grep . | median)
}

floor_run() { # commands timed as the floor, median of RUNS
    f=""
    for _ in $(seq "$runs"); do
        rm -rf "$work/floor"
        mkdir -p "$work/floor"
        sync
        start=$(ms)
        sh -c "$1" >/dev/null
        sync
        f="$f $(($(ms) - start))"
    done
    floor_ms=$(echo "$f" | tr ' ' '\n' | grep . | median)
}

report() { # name target
    awk -v n="$1" -v p="$program_ms" -v f="$floor_ms" -v t="$2" -v kb="$peak_kb" -v s="$sync_median" \
        -v c="$sync_calls" -v z="$fixed_ms" 'BEGIN {
        r = p / f
        printf "%-36s program %6d ms  floor %6d ms  ratio %5.2f (target <= %s) %-6s without the fixed %d ms: %5.2f, also without sync(): %5.2f  peak %5.1f MiB  sync() %d calls, %.0f ms = %.0f%%\n",
               n, p, f, r, t, t == "-" ? "" : r <= t ? "ok" : "MISSED", z, (p - z) / f, (p - z - s) / f, kb / 1024, c, s, 100 * s / p }'
}

# 0. Nothing to do: the program's fixed cost.
tree="$work/tree-empty"
mkdir -p "$tree"
printf '[stick]\nfolder=update\n' > "$tree/kelpack.ini"
header false false false > "$tree/update.ini"
"$kelpack" build "$tree" "$work/stick-empty" --program "$program" >/dev/null
measure empty "$work/stick-empty" "-nr"
delayed_ms=$program_ms
measure empty "$work/stick-empty"
fixed_ms=$program_ms fixed_cpu_ms=$cpu_ms
echo "nothing to do: program $fixed_ms ms with -s -nr, $delayed_ms ms with -nr (its start delay)," \
     "peak $(awk -v kb="$peak_kb" 'BEGIN { printf "%.1f", kb / 1024 }') MiB"

# 1. One 512 MiB file in the package-wide copy set (CRC-checked).
tree="$work/tree-big"
mkdir -p "$tree/files"
blob "$tree/files/big.bin" $((512 * 1024 * 1024))
printf '[stick]\nfolder=update\n' > "$tree/kelpack.ini"
{ header false false false
  printf '[COPYFILE]\nCOPYFILENUM=1\n[COPYFILE1]\nSRCPATH=./files/big.bin\nDESTPATH=/usr/vorn_app/data/big.bin\nSIZE=auto\nCRC32=auto\nMODE=0\n'; } > "$tree/update.ini"
"$kelpack" build "$tree" "$work/stick-big" --program "$program" >/dev/null
measure big "$work/stick-big"
floor_run "$crc $work/stick-big/update/files/big.bin && cp -a $work/stick-big/update/files/big.bin $work/floor/ && $crc $work/floor/big.bin"
report "one 512 MiB file" 1.3

# 2. Many small files: N mode-0 records in the system item and N files in a mode-2 tree.
many() { # N
    tree="$work/tree-many$1"
    mkdir -p "$tree/system/files" "$tree/tree"
    printf '[stick]\nfolder=update\n' > "$tree/kelpack.ini"
    # Thousands of files from a few processes: split cuts one random stream into 4 KiB files.
    head -c $(($1 * 4096)) /dev/urandom | split -b 4096 -a 5 -d - "$tree/system/files/f"
    for d in $(seq 0 49); do
        mkdir -p "$tree/tree/d$d"
        head -c $(($1 / 50 * 4096)) /dev/urandom | split -b 4096 -a 5 -d - "$tree/tree/d$d/g"
    done
    awk -v n="$1" 'BEGIN {
        printf "[COPYFILE]\nCOPYFILENUM=%d\n", n
        for (i = 1; i <= n; i++)
            printf "[COPYFILE%d]\nSRCPATH=./files/f%05d\nDESTPATH=/usr/vorn_app/sys/f%05d\nSIZE=auto\nCRC32=auto\nMODE=0\nPRIORITY=1\n", i, i - 1, i - 1
    }' > "$tree/system/update.ini"
    { header true false false
      printf '[COPYFILE]\nCOPYFILENUM=1\n[COPYFILE1]\nSRCPATH=./tree\nDESTPATH=/usr/vorn_app/tree\nMODE=2\n'; } > "$tree/update.ini"
    "$kelpack" build "$tree" "$work/stick-many$1" --program "$program" >/dev/null
    measure "many$1" "$work/stick-many$1"
    s="$work/stick-many$1/update"
    floor_run "$crc $s/system/files/* && cp -a $s/system/files $work/floor/sys && $crc $work/floor/sys/* && cp -a $s/tree $work/floor/tree"
    report "$1 + $1 files of 4 KiB" -
}
many 500
small_ms=$((program_ms - fixed_ms)) small_cpu=$((cpu_ms - fixed_cpu_ms)) small_floor=$floor_ms
many 5000
# Wall and kernel times vary with the disk's write-back (each sync() of the log flushes what is
# dirty); the program's own processor time in user space does not, so it decides whether some step
# grows faster than the number of files. A tenth of the run is within its noise (clock ticks of
# 10 ms, the fixed cost subtracted), hence a verdict at 12x rather than 10x.
awk -v a="$small_ms" -v b="$((program_ms - fixed_ms))" -v ca="$small_cpu" -v cb="$((cpu_ms - fixed_cpu_ms))" \
    -v fa="$small_floor" -v fb="$floor_ms" 'BEGIN {
    printf "growth from 500 to 5,000 files (without the fixed cost): time %.1fx (floor %.1fx), user-space processor time %d -> %d ms = %.1fx; linear within that noise: %s\n",
           b / a, fb / fa, ca, cb, cb / ca, cb / ca <= 12 ? "yes" : "NO" }'

# 3. A realistic mix: a runtime of ~150 MiB, a project of ~30 MiB in 800 files, system files.
tree="$work/tree-mix"
mkdir -p "$tree/vorn_app" "$tree/project" "$tree/system"
printf '[stick]\nfolder=update\n' > "$tree/kelpack.ini"
for i in $(seq 1 24); do blob "$tree/vorn_app/libpart$i.so.2.1.0" $((6 * 1024 * 1024)); done
blob "$tree/vorn_app/libvornui.so.2.1.0" $((6 * 1024 * 1024))
blob "$tree/vorn_app/vorn_app" $((2 * 1024 * 1024))
printf '[UPDATEINFO]\nfile_num=1\n[FILE1]\nfile_name=*\nsrc_path=./\ndes_path=/usr/vorn_app/\ndelaycopy_file=libvornui+\n[ACCESSRIGHT]\nfile_num=1\n[EXE1]\nfile_name=vorn_app\n[PREPARE]\ntip=runtime 2.1\nversion=V 2.1.0\n' > "$tree/vorn_app/update.ini"
{ printf '[GLOBAL]\nFILENUM=800\n'
  for i in $(seq 1 800); do
      blob "$tree/project/p$i.scr" 39000
      printf '[FILE%d]\nNAME=p%d.scr\nCRC=auto\nSIZE=auto\nDESPATH=/usr/vorn_app/project\n' $i $i
  done; } > "$tree/project/project.ini"
mkdir -p "$tree/system/files"
{ printf '[COPYFILE]\nCOPYFILENUM=5\n'
  for i in 1 2 3 4 5; do
      blob "$tree/system/files/s$i" 200000
      printf '[COPYFILE%d]\nSRCPATH=./files/s%d\nDESTPATH=/usr/vorn_app/etc/s%d\nSIZE=auto\nCRC32=auto\nMODE=0\n' $i $i $i
  done; } > "$tree/system/update.ini"
header true true true > "$tree/update.ini"
"$kelpack" build "$tree" "$work/stick-mix" --program "$program" >/dev/null
measure mix "$work/stick-mix"
s="$work/stick-mix/update"
floor_run "cd $s/vorn_app && md5sum -c --quiet version.2.1.0 && cp -a $s/vorn_app $work/floor/app && cd $work/floor/app && md5sum -c --quiet version.2.1.0 && $crc $s/project/*.scr && cp -a $s/project $work/floor/project && $crc $work/floor/project/*.scr && cp -a $s/system/files $work/floor/sys"
report "runtime 150 MiB + project 800 files" 1.6
[ -n "${KEL_BENCH_KEEP:-}" ] || rm -rf "$work"
