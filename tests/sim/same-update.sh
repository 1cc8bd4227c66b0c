#!/bin/sh
# Updates two sticks on fresh simulated panels and compares what each run did: the report, every
# log line, every panel change (path, mode, contents), the panel actions and the exit status. For
# builds of the same sources (another processor, another Qt) they must agree. Fails on any
# difference, and when the reference run wrote no log or changed nothing (nothing compared).
# Root (the simulator); ARM programs need scripts/arm-session.sh around it.
#
#   tests/sim/same-update.sh REFERENCE_STICK STICK [PROGRAM_OPTION...]   (default: -s -nr)
set -eu
[ $# -ge 2 ] || { echo "usage: $0 REFERENCE_STICK STICK [PROGRAM_OPTION...]" >&2; exit 2; }
top=$(cd "$(dirname "$0")/../.." && pwd)
reference=$(realpath "$1")
candidate=$(realpath "$2")
shift 2
# The simulator wants its panels outside /tmp.
mkdir -p "$top/build-scratch"
work=$(mktemp -d "$top/build-scratch/same-update-XXXXXX")
trap 'rm -rf "$work"' EXIT

# run NAME STICK [PROGRAM_OPTION...]: what the simulator reports, without screenshots, with this
# run's own folders named alike, and without the contents of ldconfig's aux-cache (the update
# runs ldconfig, which keys that file by the device numbers of the run's own sealed overlay).
run() {
    name=$1 stick=$2
    shift 2
    cp -R "$stick" "$work/$name-stick"
    "$top/sim/kelsim" --panel "$work/$name-panel" --screenshots none --timeout 300 \
        "$work/$name-stick" "$@" > "$work/$name.txt" 2>&1 || true
    sed -e '/^== screenshots/,$d' -e "s|$work/$name-|RUN/|g" \
        -e 's|^\([a-z]* *\)/var/cache/ldconfig/aux-cache (\([0-7]*\) [0-9a-f]*)|\1/var/cache/ldconfig/aux-cache (\2)|' \
        "$work/$name.txt" > "$work/$name.compared"
}
run reference "$reference" "$@"
run candidate "$candidate" "$@"

section() { sed -n "/^== $1\$/,/^== /p" "$work/$2.compared" | sed '1d;/^== /d'; }
if [ "$(section report reference)" = "(no log was written)" ] ||
        ! section "panel changes" reference | grep -q .; then
    echo "same-update: the reference run wrote no log or changed nothing:" >&2
    cat "$work/reference.txt" >&2
    exit 1
fi
if ! diff -u "$work/reference.compared" "$work/candidate.compared"; then
    echo "same-update: $candidate did not update as $reference did (- reference, + candidate)" >&2
    exit 1
fi
echo "same-update: same report ($(section report reference)), $(section log reference | wc -l) log" \
     "lines, $(section 'panel changes' reference | wc -l) panel changes, same panel actions and exit status"
