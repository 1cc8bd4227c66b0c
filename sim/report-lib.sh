# What the text report (report.sh) and the HTML report (report-html.sh) both need, sourced with
# $here, $panel and $stick set.
# shellcheck shell=sh disable=SC2154

# Where a path of the panel lies on this machine: the panel's directories and /tmp are kept in
# the panel directory, the stick is the stick, and everything else is in the sealed layers.
on_machine() {
    case $1 in
        /usr/vorn_app/*|/etc/systemd/system/*) echo "$panel$1" ;;
        /tmp/*) echo "$panel$1" ;;
        /media/usb0/*) echo "$stick/${1#/media/usb0/}" ;;
        *) found=""
           while read -r layer point; do
               case $1 in "${point%/}"/*) found="$panel/.seal/upper/$layer/${1#"${point%/}"/}" ;; esac
           done < "$panel/.seal/layers"
           echo "$found" ;;
    esac
}

# The package tool: the one named, this build's, or the installed one; empty when there is none.
find_kelpack() {
    for candidate in "${KELSIM_KELPACK:-}" "$here/../build/tools/kelpack" "$(command -v kelpack || true)"; do
        if [ -n "$candidate" ] && [ -x "$candidate" ]; then echo "$candidate"; return; fi
    done
}
