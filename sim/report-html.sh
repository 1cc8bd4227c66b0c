#!/bin/sh
# Writes the report of the last kelsim run on PANEL_DIR as one web page that needs nothing else
# (no script, no network: the screens are inside it), made from the text report that report.sh
# printed (PANEL_DIR/run/report.txt) and the run's files: the outcome, the final screen and the
# changes first, then the screens with their times, the log in the colours the panel showed, the
# panel's actions and health, and the package's plan (kelpack info). It reads on a phone and
# prints on A4. FILE must not exist.
#   report-html.sh PANEL_DIR STICK_DIR FILE.html EXIT_STATUS
set -eu
here=$(cd "$(dirname "$0")" && pwd)
panel=$1 stick=$2 out=$3 status=$4 run="$1/run"
. "$here/report-lib.sh"
# The escaping goes byte by byte.
export LC_ALL=C
parts="$run/html" tab=$(printf '\t')
rm -rf "$parts"
mkdir "$parts"
render() { part=$1; shift; awk -v part="$part" -f "$here/report-html.awk" "$@"; }

# The text report's sections, one file each.
awk -v dir="$parts" '
    /^== (report|log|panel changes|changes elsewhere|panel actions|panel health|screenshots)$/ {
        f = dir "/" substr($0, 4); gsub(/ /, "-", f); printf "" > f; next }
    f { print > f }' "$run/report.txt"
# What the exit status means; kelsim's own verdict replaces the report's when the run failed.
if [ "$status" = "$(cat "$run/verdict")" ]; then
    meaning=$(tail -n 1 "$run/report.txt" | sed 's/^kelsim: //')
else
    meaning="the simulated panel could not run the program"
fi

# Each change line with the size of the file it left there ("-" for none: removed, a folder, a link).
sizes() {
    while IFS= read -r line; do
        rest=${line#?????????}
        case $line in
            removed*) path="" ;;
            mode*) path=${rest% * -> *} ;;
            *) path=${rest% (*} ;;
        esac
        where=""
        [ -z "$path" ] || where=$(on_machine "$path")
        size=-
        if [ -n "$where" ] && [ -f "$where" ] && [ ! -L "$where" ]; then size=$(stat -c %s "$where"); fi
        printf '%s %s\n' "$size" "$line"
    done < "$1"
}
changes() { # the rows of one group of changes
    printf '<tr class="group"><th colspan="5">%s</th></tr>\n' "$1"
    if [ -s "$2" ]; then
        sizes "$2" > "$parts/sized"
        render changes "$parts/sized"
    else
        echo '<tr><td colspan="5">None.</td></tr>'
    fi
}

# A screen is embedded when it is a whole PNG: its signature at the start, its end chunk last.
whole_png() {
    [ "$(head -c 8 "$1" | od -An -tx1 | tr -d ' \n')" = 89504e470d0a1a0a ] &&
        [ "$(tail -c 12 "$1" | od -An -tx1 | tr -d ' \n')" = 0000000049454e44ae426082 ]
}
started=$(cat "$run/started-ns" 2>/dev/null || echo 0)
seconds() { # since the program started, when the file was written
    stat -c %.3Y "$1" | awk -v started="$started" '{ printf "%.1f s", $1 - started / 1e9 }'
}
taken() { # how a screen was taken, when not on the clock
    case $1 in
        */limit.png) echo ", at the time limit" ;;
        "$run"/frames/*) echo ", as the windows went" ;;
    esac
}
image() { # FILE ALT
    printf '<img alt="%s" src="data:image/png;base64,' "$2"
    base64 -w 0 "$1"
    printf '">'
}
# The screens in the order they were taken: the periodic screenshots and the frames grabbed as
# the windows went; one that shows the same as the one before adds nothing.
shots=$(cat "$run/shots-dir")
{
    [ "$shots" = none ] || ls "$shots"/screen-*.png || true
    ls "$run/frames"/*.png || true
} 2>/dev/null | while IFS= read -r file; do
    printf '%s %s\n' "$(stat -c %.3Y "$file")" "$file"
done | sort -n | cut -d ' ' -f 2- | {
    # "FIRST<tab>LAST": a screen and the last one after it that showed the same.
    first="" last=""
    while IFS= read -r file; do
        whole_png "$file" || continue
        if [ -n "$first" ] && cmp -s "$first" "$file"; then last=$file; continue; fi
        [ -z "$first" ] || printf '%s\t%s\n' "$first" "$last"
        first=$file last=$file
    done
    [ -z "$first" ] || printf '%s\t%s\n' "$first" "$last"
} > "$parts/screens"
# A long run keeps its last screens.
kept=40
total=$(wc -l < "$parts/screens")
end=$(cat "$run/end-screen" 2>/dev/null || true)
[ -n "$end" ] && [ -f "$end" ] && whole_png "$end" || end=""

kelpack=$(find_kelpack)
if [ -n "$kelpack" ]; then
    "$kelpack" info "$stick/$KELSIM_PACKAGE" > "$parts/info" 2>&1 || true
else
    echo "(no kelpack here; name one with KELSIM_KELPACK)" > "$parts/info"
fi
colours="$run/frames/colours"

{
    cat <<'EOF'
<!DOCTYPE html>
<html lang="en">
<head>
<meta charset="utf-8">
<meta name="viewport" content="width=device-width, initial-scale=1">
<style>
:root { --red: #d00000; --green: #17752a; --line: #d6d6d6; }
* { box-sizing: border-box; }
body { margin: 0 auto; padding: 0.8rem; max-width: 62rem; color: #111; background: #fff;
       font: 15px/1.4 "DejaVu Sans", "WenQuanYi Zen Hei", sans-serif; }
h1 { font-size: 1.4rem; margin: 0.2rem 0; }
h2 { font-size: 1.1rem; margin: 1.4rem 0 0.4rem; border-bottom: 2px solid #222; }
.sub { margin: 0 0 0.6rem; color: #555; overflow-wrap: anywhere; }
.outcome { border: 3px solid var(--green); border-radius: 6px; padding: 0.4rem 0.8rem; }
.outcome.failed { border-color: var(--red); }
.outcome .meaning { font-size: 1.15rem; font-weight: bold; margin: 0.2rem 0; }
.outcome dl { display: grid; grid-template-columns: max-content 1fr; gap: 0.1rem 1rem; margin: 0.3rem 0; }
.outcome dt { color: #555; }
.outcome dd { margin: 0; font-weight: bold; }
.ok, .report.ok { color: var(--green); }
.fail, .bad, .red, .report.fail { color: var(--red); }
.unchecked, .unshown { color: #777; }
img { max-width: 100%; height: auto; display: block; border: 1px solid #888; }
figure { margin: 0; }
figcaption { font-size: 0.85rem; color: #444; }
.final { margin: 0.8rem 0; }
.final figcaption { font-weight: bold; color: #111; font-size: 1rem; }
.timeline { list-style: none; padding: 0; display: grid; gap: 0.6rem;
            grid-template-columns: repeat(auto-fill, minmax(11rem, 1fr)); }
.scroll { overflow-x: auto; }
table { border-collapse: collapse; width: 100%; font-size: 0.85rem; table-layout: fixed; }
thead th:nth-child(1) { width: 5.5em; }
thead th:nth-child(3) { width: 4em; }
thead th:nth-child(4) { width: 5em; }
thead th:nth-child(5) { width: 11.5em; }
th, td { text-align: left; padding: 0.15rem 0.4rem; border-bottom: 1px solid var(--line); vertical-align: top; }
thead th { border-bottom: 2px solid #222; }
tr.group th { background: #eee; }
td { overflow-wrap: anywhere; }
td:nth-child(4) { text-align: right; }
td:nth-child(5), .log, pre { font-family: "DejaVu Sans Mono", "WenQuanYi Zen Hei Mono", monospace; }
tr.added td:first-child { color: var(--green); }
tr.removed td:first-child { color: var(--red); }
.log { font-size: 0.8rem; padding-left: 2.6rem; margin: 0; }
.log li { white-space: pre-wrap; word-break: break-all; }
p.report { font-weight: bold; font-family: "DejaVu Sans Mono", "WenQuanYi Zen Hei Mono", monospace; margin: 0.3rem 0; }
.raw { background: #ffe9a8; color: #000; }
pre { font-size: 0.8rem; white-space: pre-wrap; word-break: break-all; background: #f5f5f5; padding: 0.4rem; }
ul { padding-left: 1.2rem; }
@media (max-width: 40rem) {
  body { font-size: 14px; padding: 0.5rem; }
  thead { display: none; }
  table, tbody, tr, td, th { display: block; }
  tr { border-bottom: 1px solid var(--line); padding: 0.2rem 0; }
  td { display: inline-block; border: none; padding: 0 0.4rem 0 0; }
  td.path { display: block; }
  .log { padding-left: 1.8rem; }
}
@page { size: A4; margin: 12mm; }
@media print {
  body { max-width: none; padding: 0; font-size: 10pt; }
  * { print-color-adjust: exact; -webkit-print-color-adjust: exact; }
  .final img { max-height: 100mm; width: auto; }
  .timeline { grid-template-columns: repeat(4, 1fr); }
  h2 { break-after: avoid; }
  figure, tr, .outcome { break-inside: avoid; }
  .scroll { overflow: visible; }
}
</style>
EOF
    printf '<title>kelsim report: %s</title>\n</head>\n<body>\n' "$(basename "$stick" | render pre -v plain=1)"
    printf '<h1>kelsim report</h1>\n<p class="sub">Stick %s, package %s, run of %s</p>\n' \
        "$(printf '%s\n' "$stick" | render pre)" "$(printf '%s\n' "$KELSIM_PACKAGE" | render pre)" \
        "$(date -d "@$((started / 1000000000))" '+%Y-%m-%d %H:%M:%S')"
    render outcome -v status="$status" -v meaning="$meaning" "$parts/report" "$parts/panel-health"

    echo '<section class="final">'
    if [ -n "$end" ]; then
        printf '<figure>'
        image "$end" "The final screen"
        printf '<figcaption>Final screen, %s after the start%s</figcaption></figure>\n' \
            "$(seconds "$end")" "$(taken "$end")"
    else
        echo '<p>No final screen: the program showed no window, or no screen was grabbed.</p>'
    fi
    echo '</section>'

    echo '<section><h2>Changes</h2><div class="scroll"><table>'
    echo '<thead><tr><th>Change</th><th>Path</th><th>Mode</th><th>Bytes</th><th>Hash</th></tr></thead><tbody>'
    changes "On the panel" "$parts/panel-changes"
    changes "Elsewhere: in the seal (never on this machine) and on the stick" "$parts/changes-elsewhere"
    echo '</tbody></table></div></section>'

    echo '<section><h2>Screens</h2>'
    if [ "$total" -gt "$kept" ]; then
        echo "<p>The first $((total - kept)) of $total different screens are left out.</p>"
    fi
    if [ "$total" = 0 ]; then
        echo '<p>No screens were taken.</p>'
    else
        echo '<ol class="timeline">'
        tail -n "$kept" "$parts/screens" | while IFS="$tab" read -r file last; do
            when=$(seconds "$file")
            [ "$last" = "$file" ] || when="$when to $(seconds "$last")"
            printf '<li><figure>'
            image "$file" "Screen at $when"
            printf '<figcaption>%s%s</figcaption></figure></li>\n' "$when" "$(taken "$last")"
        done
        echo '</ol>'
    fi
    echo '</section>'

    echo '<section><h2>Log</h2>'
    known=0
    if [ -f "$colours" ]; then
        known=1
        echo '<p>The report line, then this run'"'"'s lines in the colours the panel showed them;' \
             'grey lines went to the log alone.</p>'
    else
        echo '<p>This run'"'"'s lines; their colours were not recorded (the shim libkelsim_grab.so was not' \
             'loaded into the program).</p>'
        colours=/dev/null
    fi
    render log -v colours="$colours" -v known="$known" "$colours" "$parts/report" "$parts/log"
    echo '</section>'

    echo '<section><h2>Panel actions</h2><ul>'
    render lines "$parts/panel-actions"
    echo '</ul></section>'

    echo '<section><h2>Panel health</h2><ul class="health">'
    render health "$parts/panel-health"
    echo '</ul></section>'

    echo '<section><h2>Package (kelpack info)</h2><pre>'
    render pre "$parts/info"
    echo '</pre></section>'
    echo '</body>'
    echo '</html>'
} > "$parts/page.html"
# Written once it is whole, and never over a file that is already there.
(set -C && cat "$parts/page.html" > "$out")
rm -rf "$parts"
