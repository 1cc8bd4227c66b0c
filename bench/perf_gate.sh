#!/bin/sh
# What the gate's copy step costs: kelgate checks a signed stick, copies its files into a private
# RAM folder, checks every SHA-256 there and starts that copy (here a stand-in program that only
# exits, so that the figures are the gate's own). Per stick it prints the gate's wall time, its
# user and kernel processor time and its peak memory (resident set plus the RAM folder's bytes),
# medians of RUNS runs, beside the floor measured in the same run: cp of the files into a tmpfs
# plus sha256sum of the copy, and a check without the copy (sha256sum of the files on the stick).
#   perf_gate.sh [RUNS (default 3)] [RUNTIME_MIB (default 150)]
#                                         (KEL_BUILD_DIR: the build to measure, default ./build)
# Runs as root: the gate mounts its RAM folder in a mount namespace of its own, and everything
# else stays in the work directory.
set -eu
here=$(cd "$(dirname "$0")" && pwd)
build=$(realpath "${KEL_BUILD_DIR:-$here/../build}")
runs=${1:-3}
mib=${2:-150}
work="$build/perf-gate"
kelpack="$build/tools/kelpack"
gate="$build/tools/kelgate/kelgate"
[ "$(id -u)" = 0 ] || { echo "perf_gate.sh: must run as root (the gate mounts its RAM folder)" >&2; exit 2; }
rm -rf "$work"
mkdir -p "$work/panel/keys"
"$kelpack" keygen "$work/vendor" >/dev/null
cp "$work/vendor.pub" "$work/panel/keys/"
echo KEL-700 > "$work/panel/model"
echo "machine: $(nproc) cores, $(awk '/MemTotal/ { print int($2 / 1024) }' /proc/meminfo) MiB; sticks in $work ($(df -T "$work" | awk 'NR == 2 { print $2 }'))"

median() { tr ' ' '\n' | grep . | sort -n | awk '{ v[NR] = $1 } END { print v[int((NR + 1) / 2)] }'; }
ms() { echo $(($(date +%s%N) / 1000000)); }
ratio() { awk -v a="$1" -v b="$2" 'BEGIN { printf "%.2f", (b > 0 ? a / b : 0) }'; }

stick() { # name: a signed stick whose program only exits
    s="$work/$1"
    printf '#!/bin/sh\nexit 0\n' > "$s/update/kelloadui.bin"
    chmod 755 "$s/update/kelloadui.bin"
    rm -f "$s/update/kelgate.manifest" "$s/update/kelgate.sig"
    "$kelpack" sign "$s/update" "$work/vendor.key" --version 1.2.0 --models KEL-700 >/dev/null
}

measure() { # name
    s="$work/$1"
    files=$(find "$s/update" "$s/config" "$s/language" "$s/qws" -type f 2>/dev/null | grep -vc 'kelgate\.\(manifest\|sig\)$')
    bytes=$(find "$s/update" "$s/config" "$s/language" "$s/qws" -type f -printf '%s\n' 2>/dev/null | awk '{ t += $1 } END { print t + 0 }')
    walls="" users="" kernels="" floors="" floor_cpu="" olds="" rss=0
    for _ in $(seq "$runs"); do
        sync; echo 3 > /proc/sys/vm/drop_caches 2>/dev/null || true
        rm -rf "$work/state" "$work/run"
        cd "$s/update"
        t0=$(ms)
        /usr/bin/time -f '%U %S %M' -o "$work/time.txt" "$gate" --config "$work/panel" \
            --state "$work/state" --run "$work/run" --notice-seconds 0 ./kelloadui.bin -s -nr \
            2>"$work/gate.err" || { cat "$work/gate.err" >&2; exit 1; }
        walls="$walls $(($(ms) - t0))"
        read -r u k m < "$work/time.txt"
        users="$users $(awk -v v="$u" 'BEGIN { print int(v * 1000) }')"
        kernels="$kernels $(awk -v v="$k" 'BEGIN { print int(v * 1000) }')"
        rss=$m
        # The floor: the same files copied into a private tmpfs and summed there.
        sync; echo 3 > /proc/sys/vm/drop_caches 2>/dev/null || true
        cd "$s"
        t0=$(ms)
        /usr/bin/time -f '%U %S' -o "$work/floor-time.txt" unshare --mount sh -c '
            mount --make-rprivate / && mount -t tmpfs floor "$1" &&
            for d in update config language qws; do [ ! -d "$d" ] || cp -a "$d" "$1"/; done &&
            cd "$1" &&
            find . -type f -exec sha256sum {} + >/dev/null' floor "$work/run-floor" 2>/dev/null ||
            { mkdir -p "$work/run-floor"; continue; }
        floors="$floors $(($(ms) - t0))"
        read -r u k < "$work/floor-time.txt"
        floor_cpu="$floor_cpu $(awk -v u="$u" -v k="$k" 'BEGIN { print int((u + k) * 1000) }')"
        sync; echo 3 > /proc/sys/vm/drop_caches 2>/dev/null || true
        t0=$(ms)
        find update config language qws -type f -exec sha256sum {} + >/dev/null 2>&1 || true
        olds="$olds $(($(ms) - t0))"
    done
    wall=$(echo "$walls" | median) user=$(echo "$users" | median) kernel=$(echo "$kernels" | median)
    floor=$(echo "$floors" | median) fcpu=$(echo "$floor_cpu" | median) old=$(echo "$olds" | median)
    echo "$1: $files files, $((bytes / 1048576)) MiB"
    echo "  gate wall $wall ms, floor (cp to tmpfs + sha256sum) $floor ms: $(ratio "$wall" "$floor")x; sha256sum in place alone $old ms"
    echo "  gate processor $((user + kernel)) ms (user $user, kernel $kernel), floor tools $fcpu ms: $(ratio $((user + kernel)) "$fcpu")x"
    echo "  peak memory: gate $((rss / 1024)) MiB resident + RAM folder $((bytes / 1048576)) MiB"
}

mkdir -p "$work/sample" "$work/runtime/update/vorn_app" "$work/run-floor"
cp -a "$build/examples/stick/." "$work/sample/"
stick sample
cp -a "$build/examples/stick/." "$work/runtime/"
head -c $((mib * 1048576)) /dev/urandom > "$work/runtime/update/vorn_app/vorn_app.big"
stick runtime
measure sample
measure runtime
