#!/bin/bash
# The manual pages and kelpack's bash completion, as the Debian packages install them:
# - each page in docs/man passes groff's checks with every warning on, renders with man -l at
#   80 columns without a message and without a line wider than that, and names every option of
#   its program's usage text (read from the sources, so that a new option needs its page);
# - the completion script parses, registers itself for kelpack, and offers every command and
#   every option of kelpack's usage text, the processors of --arch, and folders where a command
#   takes a folder.
# Bash, not sh: it sources the completion as bash does.
set -eu
top=$(cd "$(dirname "$0")/../.." && pwd)
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
failures=0
fail() { echo "FAIL: $*" >&2; failures=$((failures + 1)); }

# options FILE FIRST_LINE_PATTERN END_PATTERN: the --options of a usage text in FILE.
options() { sed -n "/$2/,/$3/p" "$1" | grep -o -- '--[a-z][a-z-]*' | sort -u; }

check_page() { # check_page PAGE OPTION...
    local page=$top/docs/man/$1 name=${1%.*}
    shift
    [ -f "$page" ] || { fail "$page is missing"; return; }
    groff -ww -man -z "$page" 2> "$work/groff.err" || fail "groff fails on $page"
    [ ! -s "$work/groff.err" ] || fail "groff warns on $page: $(cat "$work/groff.err")"
    MANWIDTH=80 LC_ALL=C man -l "$page" > "$work/page.txt" 2> "$work/man.err" ||
        fail "man -l fails on $page"
    [ ! -s "$work/man.err" ] || fail "man -l $page says: $(cat "$work/man.err")"
    if ! grep -q "^NAME" "$work/page.txt" || ! grep -Eq "^ *$name +- " "$work/page.txt"; then
        fail "$page renders without its NAME line"
    fi
    local wide
    wide=$(awk 'length > 80' "$work/page.txt")
    [ -z "$wide" ] || fail "$page renders lines wider than 80 columns: $wide"
    local option
    for option; do
        grep -q -- "$option\b" "$work/page.txt" || fail "$page does not describe $option"
    done
}

# shellcheck disable=SC2046
check_page kelpack.1 $(options "$top/tools/kelpack/main.cpp" '^const char kUsage' ';$')
# shellcheck disable=SC2046
check_page kelsim.1 $(options "$top/sim/kelsim" '^# usage:' '^# Exit status')
# shellcheck disable=SC2046
check_page kelgate.8 $(options "$top/src/gate/kel_gate.cpp" '^const char kUsageText' ';$')

completion=$top/packaging/bash-completion/kelpack
if ! bash -n "$completion"; then
    fail "$completion does not parse"
    echo "$failures failures" >&2
    exit 1
fi
# shellcheck source=SCRIPTDIR/../../packaging/bash-completion/kelpack
. "$completion"
complete -p kelpack 2> /dev/null | grep -q -- '-F _kelpack kelpack$' ||
    fail "$completion does not register _kelpack for kelpack"

# offered CWORD WORD...: what completing word CWORD of the command line WORD... offers, one a line.
offered() {
    COMP_CWORD=$1
    shift
    COMP_WORDS=("$@")
    COMPREPLY=()
    _kelpack
    [ ${#COMPREPLY[@]} = 0 ] || printf '%s\n' "${COMPREPLY[@]}"
}

verbs=$(sed -n 's/^ *"\(usage: \)\{0,1\} *kelpack \([a-z][a-z]*\).*/\2/p' \
        "$top/tools/kelpack/main.cpp" | sort -u)
[ "$(echo "$verbs" | wc -l)" -ge 10 ] || fail "the commands of kelpack's usage text were not found"
# Completion functions run without errexit, as bash runs them.
offered 1 kelpack "" > "$work/verbs" || :
for verb in $verbs; do
    grep -qx "$verb" "$work/verbs" || fail "completion does not offer the command $verb"
done
[ "$(offered 1 kelpack sw)" = swu ] || fail "completion of 'kelpack sw' is not swu"

# Every option of the usage text is offered by the command it belongs to, at some position.
: > "$work/options"
for verb in $verbs; do
    for cword in 2 3 4; do
        set -- kelpack "$verb" a b c
        set -- "${@:1:cword}" --
        offered "$cword" "$@" >> "$work/options" || :
    done
done
for option in $(options "$top/tools/kelpack/main.cpp" '^const char kUsage' ';$'); do
    grep -qx -- "$option" "$work/options" || fail "completion does not offer $option"
done
[ "$(offered 2 kelpack build --)" != "$(offered 2 kelpack verify --)" ] ||
    fail "completion offers the same options to build and verify"
[ "$(offered 5 kelpack build tree out --arch "" | sort | tr '\n' ' ')" = "amd64 arm64 armhf " ] ||
    fail "completion of --arch does not offer the processors"

# A command that takes a folder is offered folders only, whole whatever their names; one that
# takes files, files too.
mkdir "$work/files" "$work/files/tree" "$work/files/old tree"
: > "$work/files/image.swu"
cd "$work/files"
[ "$(offered 2 kelpack build "" | sort | tr '\n' /)" = "old tree/tree/" ] ||
    fail "build is not offered just the folders"
[ "$(offered 2 kelpack verify t)" = tree ] || fail "verify t is not offered the folder tree"
[ "$(offered 2 kelpack verify "" | sort | tr '\n' /)" = "image.swu/old tree/tree/" ] ||
    fail "verify is not offered the image and the folders"

[ "$failures" = 0 ] || { echo "$failures failures" >&2; exit 1; }
echo "manual pages and completion: fine"
