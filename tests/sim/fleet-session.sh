#!/bin/sh
# One delivery over the network to a simulated panel, run inside sim/seal.sh (private network:
# loopback only). The gate's package files of the build BUILD are installed as on a panel; the
# hawkBit stand-in offers IMAGE; the panel's SWUpdate, started as kelswu-start starts it, takes
# it; when its first action is over without a closing feedback, it is stopped and started again,
# as after the panel's restart.
#
#   fleet-session.sh RUN_DIR IMAGE BUILD
#
# RUN_DIR receives feedback.jsonl (every feedback the server got), install.log, ddi.log,
# swupdate-N.log. Exit status: 0 the server heard a closing feedback, 1 it did not within the time
# limit or the gate's files could not be installed.
set -u
here=$(cd "$(dirname "$0")" && pwd)
run=$1 image=$2 build=$3
port=8480
limit=${FLEET_LIMIT:-60}
cmake --install "$build" --component gate --prefix /usr >"$run/install.log" 2>&1 || exit 1
: >"$run/feedback.jsonl"
python3 "$here/ddi_standin.py" "$port" "$image" "$run/feedback.jsonl" 2>"$run/ddi.log" &
export KELSWU_URL="http://127.0.0.1:$port" KELSWU_POLL=1 KELSWU_DEVICE=panel-1
for _ in $(seq 100); do
    python3 -c "import socket; socket.create_connection(('127.0.0.1', $port))" 2>/dev/null && break
    sleep 0.1
done

# Waits until the server heard one of the given feedback texts; false after the time limit.
heard() {
    deadline=$(($(date +%s) + limit))
    while [ "$(date +%s)" -lt "$deadline" ]; do
        for text; do grep -q "$text" "$run/feedback.jsonl" && return 0; done
        sleep 0.5
    done
    return 1
}
# Runs SWUpdate (start N) until the server heard one of the texts, then stops all of it at once,
# as a restart would.
session() {
    n=$1
    shift
    setsid "$here/../../packaging/swupdate/kelswu-start" -l 4 >"$run/swupdate-$n.log" 2>&1 &
    pid=$!
    heard "$@"
    found=$?
    kill -KILL -"$pid" 2>/dev/null
    wait "$pid" 2>/dev/null
    return $found
}

session 1 '"execution": "closed"' 'All Chunks Installed.' || exit 1
grep -q '"execution": "closed"' "$run/feedback.jsonl" && exit 0
session 2 '"execution": "closed"'
