#!/bin/sh
# Whole updates against their floor: builds three packages, runs the real program on each in quiet
# mode through the simulator (RUNS times, median), and measures on the same file system, in the
# same run, the floor: the best plain tools doing the work the update must do (cp -a of the
# payload, the checksum passes: bare zlib CRC-32 or md5sum -c, and one sync). Per case it prints
# the wall-clock ratio; the program's user-space and kernel processor time beside the floor tools'
# own and their ratios (stable across disks, unlike the wall clock); peak resident memory; the
# calls to sync() and fdatasync() with their time. Then how wall and processor time grow from 500
# to 5,000 files.
# The program runs with "-s -nr": quiet, starting at once, checking every item and set before it
# applies them. Its fixed cost (start-up, closing) is measured on a package with nothing to do and
# shown beside each ratio as the ratio of the rest. Each case has two floors: B1, the work the
# update must do; B2, that work as this run must do it, with one rename per staged file and the
# "-s" check's own passes over the stick. A target met against either floor is met.
#   perf_update.sh [RUNS (default 3)]     (KEL_BUILD_DIR: the build to measure, default ./build;
#                                          KEL_BENCH_KEEP=1 keeps the packages for profiling;
#                                          KEL_BENCH_LARGE=1 adds 20,000 + 20,000 files)
set -eu
here=$(cd "$(dirname "$0")" && pwd)
. "$here/../sim/work-lib.sh"
work_dir perf
runs=${1:-3}
kelpack="$build/tools/kelpack"
program="$build/src/kelloadui.bin"
crc="$build/bench/crc_floor"
renames="$build/bench/rename_floor"
echo "machine: $(nproc) cores; work directory $work ($(df -T "$work" | awk 'NR == 2 { print $2 }'))"

ms() { echo $(($(date +%s%N) / 1000000)); }
floors=0
median() { tr ' ' '\n' | grep . | sort -n | awk '{ v[NR] = $1 } END { print v[int((NR + 1) / 2)] }'; }
build_stick() { # tree stick: kelpack's warnings (these packages are unsigned) only when it fails
    "$kelpack" build "$1" "$2" --program "$program" >"$work/kelpack.log" 2>&1 ||
        { cat "$work/kelpack.log"; exit 1; }
}
header() { # an update.ini that applies nothing but what follows
    printf '[UPDATE]\nUPSYSTEM=%s\nUPVORN_APP=%s\nUPPROJECT=%s\n' "$1" "$2" "$3"
}

# The program on a stick: medians of wall time, user and kernel processor time, sync() and
# fdatasync() time; peak memory and call counts of the last run.
measure() { # name stick [program options, default -s -nr]
    walls="" users="" kernels="" rss="" sync_times="" datasync_times=""
    for run in $(seq "$runs"); do
        # A new panel each time, removed only at the end: on ext4 without a journal, files made
        # right after thousands were deleted wait for the inode allocator to pass the deleted
        # ones, which would be measured as the program's time.
        panel="$work/panel-$1-$run"
        sync # no write-back of earlier work may fall into the timed run
        KELSIM_WRAPPER="env LD_PRELOAD=$build/bench/libsync_timer.so SYNC_TIMER_OUT=/tmp/sync.txt /usr/bin/time -f %M,%U,%S -o /tmp/rss.txt" \
            "$top/sim/kelsim" --panel "$panel" --runtime absent --timeout 900 --screenshots none \
            "$2" ${3:--s -nr} >"$work/$1.out" 2>&1 || true
        [ "$(head -n 1 "$2/update.log")" = "$(text 2059)" ] || { echo "$1: the update failed"; sed -n 1,40p "$work/$1.out"; exit 1; }
        walls="$walls $(cat "$panel/run/elapsed-ms.txt")"
        IFS=, read -r kb user kernel < "$panel/tmp/rss.txt"
        rss="$rss $kb"
        users="$users $(awk -v t="$user" 'BEGIN { printf "%d", t * 1000 }')"
        kernels="$kernels $(awk -v t="$kernel" 'BEGIN { printf "%d", t * 1000 }')"
        read -r sync_calls sync_ms datasync_calls datasync_ms < "$panel/tmp/sync.txt"
        sync_times="$sync_times $sync_ms" datasync_times="$datasync_times $datasync_ms"
    done
    program_ms=$(echo "$walls" | median)
    user_ms=$(echo "$users" | median) kernel_ms=$(echo "$kernels" | median)
    cpu_ms=$((user_ms + kernel_ms))
    peak_kb=$(echo "$rss" | tr ' ' '\n' | grep . | sort -n | tail -n 1)
    sync_median=$(echo "$sync_times" | median) datasync_median=$(echo "$datasync_times" | median)
}

floor_run() { # commands timed as the floor, median of RUNS: wall, and the tools' processor time
    walls="" users="" kernels=""
    for _ in $(seq "$runs"); do
        floors=$((floors + 1))
        mkdir -p "$work/floor-$floors"
        ln -sfn "floor-$floors" "$work/floor" # the same new folder for the floor as for the program
        sync
        start=$(ms)
        /usr/bin/time -f "%U %S" -o "$work/floor-cpu.txt" sh -c "$1" >/dev/null
        sync
        walls="$walls $(($(ms) - start))"
        read -r user kernel < "$work/floor-cpu.txt"
        users="$users $(awk -v t="$user" 'BEGIN { printf "%d", t * 1000 }')"
        kernels="$kernels $(awk -v t="$kernel" 'BEGIN { printf "%d", t * 1000 }')"
    done
    floor_ms=$(echo "$walls" | median)
    floor_user=$(echo "$users" | median) floor_kernel=$(echo "$kernels" | median)
}

floors() { # the B1 commands, then what B2 adds to them
    floor_run "$1"
    b1_ms=$floor_ms b1_user=$floor_user b1_kernel=$floor_kernel
    floor_run "$1 && $2"
    b2_ms=$floor_ms b2_user=$floor_user b2_kernel=$floor_kernel
}

# name, wall target, user-time target (a ratio to the floor tools, "-", or an absolute "NNNms");
# processor time (user + kernel) is held to 1.5 times the floor tools'.
report() {
    awk -v n="$1" -v p="$program_ms" -v t="$2" -v ut="$3" -v kb="$peak_kb" \
        -v s="$sync_median" -v sc="$sync_calls" -v d="$datasync_median" -v dc="$datasync_calls" \
        -v z="$fixed_ms" -v pu="$user_ms" -v pk="$kernel_ms" \
        -v f1="$b1_ms" -v u1="$b1_user" -v k1="$b1_kernel" \
        -v f2="$b2_ms" -v u2="$b2_user" -v k2="$b2_kernel" '
    function verdict(ok) { return ok ? "ok" : "MISSED" }
    function ratio(a, b) { return b > 0 ? a / b : 0 }
    BEGIN {
        printf "%s\n", n
        r1 = ratio(p, f1); r2 = ratio(p, f2)
        printf "  wall      program %6d ms  floor B1 %6d ms ratio %5.2f, B2 %6d ms ratio %5.2f (target <= %s) %s; without the fixed %d ms: %5.2f (B2)\n",
               p, f1, r1, f2, r2, t, t == "-" ? "" : verdict(r1 <= t || r2 <= t), z, ratio(p - z, f2)
        c1 = ratio(pu + pk, u1 + k1); c2 = ratio(pu + pk, u2 + k2)
        printf "  processor program user %5d + kernel %5d ms; floor tools B1 user %5d + kernel %5d ms, B2 user %5d + kernel %5d ms\n",
               pu, pk, u1, k1, u2, k2
        if (ut ~ /ms$/) uv = "user <= " ut " " verdict(pu <= ut + 0)
        else if (ut == "-") uv = "user: no target"
        else uv = "user ratio <= " ut " " verdict(ratio(pu, u1) <= ut || ratio(pu, u2) <= ut)
        printf "            user+kernel ratio B1 %5.2f, B2 %5.2f (<= 1.5 %s); user ratio B1 %5.2f, B2 %5.2f; %s\n",
               c1, c2, verdict(c1 <= 1.5 || c2 <= 1.5), ratio(pu, u1), ratio(pu, u2), uv
        printf "  memory    peak %5.1f MiB (< 48 %s)   sync() %d calls %.0f ms = %.0f%%   fdatasync() %d calls %.0f ms = %.0f%%\n",
               kb / 1024, verdict(kb < 48 * 1024), sc, s, 100 * s / p, dc, d, 100 * d / p
    }'
}

# 0. Nothing to do: the program's fixed cost.
tree="$work/tree-empty"
mkdir -p "$tree"
printf '[stick]\nfolder=update\n' > "$tree/kelpack.ini"
header false false false > "$tree/update.ini"
build_stick "$tree" "$work/stick-empty"
measure empty "$work/stick-empty"
fixed_ms=$program_ms fixed_cpu_ms=$cpu_ms
echo "nothing to do: program $fixed_ms ms (user $user_ms + kernel $kernel_ms ms)," \
     "peak $(awk -v kb="$peak_kb" 'BEGIN { printf "%.1f", kb / 1024 }') MiB;" \
     "start-up and closing <= 80 ms $([ "$fixed_ms" -le 80 ] && echo ok || echo MISSED)"

# 1. One 512 MiB file in the package-wide copy set (CRC-checked).
tree="$work/tree-big"
mkdir -p "$tree/files"
blob "$tree/files/big.bin" $((512 * 1024 * 1024))
printf '[stick]\nfolder=update\n' > "$tree/kelpack.ini"
{ header false false false
  printf '[COPYFILE]\nCOPYFILENUM=1\n[COPYFILE1]\nSRCPATH=./files/big.bin\nDESTPATH=/usr/vorn_app/data/big.bin\nSIZE=auto\nCRC32=auto\nMODE=0\n'; } > "$tree/update.ini"
build_stick "$tree" "$work/stick-big"
measure big "$work/stick-big"
floors "$crc $work/stick-big/update/files/big.bin && cp -a $work/stick-big/update/files/big.bin $work/floor/ && $crc $work/floor/big.bin" \
    "$crc $work/stick-big/update/files/big.bin && $renames $work/floor/big.bin"
report "one 512 MiB file (CRC-checked copy)" 1.15 1.5

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
    build_stick "$tree" "$work/stick-many$1"
    measure "many$1" "$work/stick-many$1"
    s="$work/stick-many$1/update"
    floors "$crc $s/system/files/* && cp -a $s/system/files $work/floor/sys && $crc $work/floor/sys/* && cp -a $s/tree $work/floor/tree" \
        "$crc $s/system/files/* && find $work/floor/ -type f -exec $renames {} +"
    case $1 in
        500) report "$1 + $1 files of 4 KiB" - - ;;
        *) report "$1 + $1 files of 4 KiB" 2 300ms ;;
    esac
    grown_ms=$((program_ms - fixed_ms)) grown_cpu=$((cpu_ms - fixed_cpu_ms)) grown_floor=$b2_ms
}
# Without the fixed cost, the program's growth with the files against the floor's own growth.
growth() { # from, to
    awk -v from="$1" -v to="$2" -v a="$small_ms" -v b="$grown_ms" -v ca="$small_cpu" -v cb="$grown_cpu" \
        -v fa="$small_floor" -v fb="$grown_floor" 'BEGIN {
        g = b / a; fg = fb / fa; cg = cb / ca
        printf "growth from %d to %d files (without the fixed cost): wall %d -> %d ms = %.1fx (floor B2 %.1fx), processor %d -> %d ms = %.1fx; within 1.1x of the floor'"'"'s growth: %s\n",
               from, to, a, b, g, fg, ca, cb, cg, g <= 1.1 * fg && cg <= 1.1 * fg ? "ok" : "MISSED" }'
    small_ms=$grown_ms small_cpu=$grown_cpu small_floor=$grown_floor
}
many 500
small_ms=$grown_ms small_cpu=$grown_cpu small_floor=$grown_floor
many 5000
growth 500 5000
if [ -n "${KEL_BENCH_LARGE:-}" ]; then
    many 20000
    growth 5000 20000
fi

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
build_stick "$tree" "$work/stick-mix"
measure mix "$work/stick-mix"
s="$work/stick-mix/update"
floors "cd $s/vorn_app && md5sum -c --quiet version.2.1.0 && cp -a $s/vorn_app $work/floor/app && cd $work/floor/app && md5sum -c --quiet version.2.1.0 && $crc $s/project/*.scr && cp -a $s/project $work/floor/project && $crc $work/floor/project/*.scr && cp -a $s/system/files $work/floor/sys" \
    "cd $s/vorn_app && md5sum -c --quiet version.2.1.0 && $crc $s/project/*.scr $s/system/files/* && $renames $work/floor/sys/*"
report "runtime 150 MiB + project 800 files" 1.3 1.5
[ -n "${KEL_BENCH_KEEP:-}" ] || rm -rf "$work"
