#!/bin/sh
# The line kelsim keeps on a terminal while a run goes on: the percent the panel's progress bar
# shows, the last message line the program wrote and the time since the program started, e.g.
#   kelsim:  42%  开始拷贝指定文件...  3.1 s
# rewritten in place on standard error (the terminal) about four times a second.
#   progress.sh RUN_DIR          until it receives SIGTERM, or kelsim (its parent) is gone
#   progress.sh --last RUN_DIR   once with the run's final state, then erases the line
# RUN_DIR is PANEL/run; the shim records the bar and the message lines in its frames folder. The
# run's program and its messages come from the stick: nothing of them reaches the terminal but
# printable text, cut to the terminal's width so that the line never wraps.
set -eu
last=0
[ "$1" = --last ] && { last=1; shift; }
run=$1

# A number that a file of the run holds, or nothing. The program could write these files: a
# regular file only (a fifo would stop the ticker), and a number the shell can count with (one
# it cannot ends the shell, and the line would stay).
number() {
    [ -f "$1" ] || return 0
    value=$(head -c 32 "$1" 2>/dev/null | tr -d ' \n') || return 0
    case $value in '' | *[!0-9]* | ????????????????????* | 9??????????????????) ;;
        *) printf '%s' "$value" ;;
    esac
}

show() {
    columns=$(stty size 0<&2 2>/dev/null | cut -d ' ' -f 2) || columns=""
    case $columns in '' | *[!0-9]* | 0) columns=${COLUMNS:-} ;; esac
    case $columns in '' | *[!0-9]* | 0) columns=80 ;; esac
    percent=$(number "$run/frames/progress")
    tenths=""
    ms=$(number "$run/elapsed-ms.txt")
    started=$(number "$run/started-ns")
    # Once the program has ended, its own running time: kelsim's work after it is not counted.
    if [ -n "$ms" ]; then
        tenths=$((ms / 100))
    elif [ -n "$started" ]; then
        tenths=$((($(date +%s%N) - started) / 100000000))
        [ "$tenths" -ge 0 ] || tenths=""
    fi
    colours=/dev/null
    [ -f "$run/frames/colours" ] && colours=$run/frames/colours
    # The last complete line: the dot marks the end, and the record two before it is the last
    # one that ended in a line break (the program may be writing the next one).
    { tail -c 16384 "$colours"; printf '\n.\n'; } |
        LC_ALL=C awk -v columns="$columns" -v percent="$percent" -v tenths="$tenths" '
        BEGIN { for (i = 1; i < 256; i++) byte[sprintf("%c", i)] = i }
        { line[NR] = $0 }
        # Printable text: valid UTF-8 without control characters (C0, DEL, C1), each of them a
        # "?"; every character beyond ASCII counts two columns, as wide CJK characters take.
        function printable(s, budget,    out, width, n, i, b, need, lo, hi, j, c, w, cut) {
            n = length(s); out = ""; width = 0; cut = 0
            for (i = 1; i <= n; i += need + 1) {
                b = byte[substr(s, i, 1)]; need = 0; lo = 128; hi = 191
                if (b >= 32 && b < 127) { c = substr(s, i, 1); w = 1 }
                else if (b == 9) { c = " "; w = 1 }
                else if (b < 194 || b > 244) { c = "?"; w = 1 }
                else {
                    need = b < 224 ? 1 : b < 240 ? 2 : 3
                    if (b == 224) lo = 160; if (b == 237) hi = 159
                    if (b == 240) lo = 144; if (b == 244) hi = 143
                    for (j = 1; j <= need; j++) {
                        c = byte[substr(s, i + j, 1)]
                        if (c < (j == 1 ? lo : 128) || c > (j == 1 ? hi : 191)) break
                    }
                    if (j <= need) { c = "?"; w = 1; need = 0 }
                    else if (b == 194 && byte[substr(s, i + 1, 1)] < 160) { c = "?"; w = 1 }
                    else { c = substr(s, i, need + 1); w = 2 }
                }
                if (width + w > budget) { cut = 1; break }
                out = out c; width += w
            }
            if (!cut) return out
            # Cut: the end makes room for the dots.
            while (width > budget - 3 && out != "") {
                c = byte[substr(out, length(out), 1)]
                while (c >= 128 && c < 192) { out = substr(out, 1, length(out) - 1); c = byte[substr(out, length(out), 1)] }
                width -= c >= 128 ? 2 : 1
                out = substr(out, 1, length(out) - 1)
            }
            return out "..."
        }
        END {
            text = NR >= 3 ? line[NR - 2] : ""
            sub(/^#[0-9a-f][0-9a-f][0-9a-f][0-9a-f][0-9a-f][0-9a-f] /, "", text)
            sub(/[\r ]+$/, "", text)
            if (text == "" && tenths == "") text = "starting the panel"
            head = "kelsim:" (percent != "" && percent <= 100 ? sprintf(" %3d%%", percent) : "")
            tail = tenths != "" ? sprintf("%d.%d s", int(tenths / 10), tenths % 10) : ""
            # One column stays free: a line that fills the last one wraps on some terminals.
            room = columns - 1 - length(head) - 2 - length(tail) - 2
            out = head
            if (text != "" && room >= 8) out = out "  " printable(text, room)
            else if (length(head "  " tail) > columns - 1) tail = ""
            if (tail != "") out = out "  " tail
            if (out == head) out = substr(out, 1, columns - 1)
            printf "\r%s\033[K", out
        }' >&2
}

if [ "$last" = 1 ]; then
    show
    printf '\r\033[K' >&2
    exit 0
fi
trap 'exit 0' TERM
while kill -0 "$PPID" 2>/dev/null; do
    show
    sleep 0.2
done
