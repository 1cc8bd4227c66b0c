# Sourced by the suites that build packages and run them through the simulator (sim/faults.sh,
# bench/perf_update.sh): the build they test, a fresh work folder, random payloads, and the
# program's built-in texts by number, so that a log is read by what the program means to say
# rather than by a copy of its words.
#
#   work_dir NAME         sets top, build (KEL_BUILD_DIR, default ./build) and work ($build/NAME,
#                         made anew)
#   blob FILE BYTES       FILE filled with random bytes
#   text ID               the built-in text of message ID, as the program writes it
#   text_pattern ID       an extended regular expression that matches text ID, whatever its
#                         %1, %2 ... stand for

work_dir() {
    top=$(cd "$(dirname "$0")/.." && pwd)
    build=$(realpath "${KEL_BUILD_DIR:-$top/build}")
    work="$build/$1"
    rm -rf "$work"
    mkdir -p "$work"
}

blob() { head -c "$2" /dev/urandom > "$1"; }

text() {
    awk -v id="[$1]" '$0 == id { found = 1; next }
        found && /^string = "/ { sub(/^string = "/, ""); sub(/"$/, ""); print; exit }' \
        "$top/src/app/resource/lan/0000.lan"
}

text_pattern() {
    text "$1" | sed -e 's/[][\.*^$()+?{}|/]/\\&/g' -e 's/%[0-9]/.*/g'
}
