#!/bin/sh
# Lists what the last sealed run on PANEL_DIR (see seal.sh) changed outside the panel's
# directories: every entry of the overlays' upper layers and of the panel's /tmp that differs
# from the machine, as "added", "replaced", "mode" or "removed" lines sorted by path.
#   seal-changes.sh PANEL_DIR
set -eu
panel=$1 seal=$1/.seal
[ -f "$seal/layers" ] || exit 0
line() { printf '%s\n' "$*"; }
file_line() { # verb path upper-file
    line "$1 $2 ($(stat -c %a "$3") $(sha256sum < "$3" | cut -c 1-16))"
}
{ cat "$seal/layers"; echo "tmp /tmp"; } | while read -r layer point; do
    if [ "$layer" = tmp ]; then upper="$panel/tmp"; else upper="$seal/upper/$layer"; fi
    [ -d "$upper" ] || continue
    (cd "$upper" && find . -mindepth 1 -printf '%y %p\n') | while read -r type rel; do
        rel=${rel#./}
        path="${point%/}/$rel"
        entry="$upper/$rel"
        case $type in
        c)  # a whiteout (device 0:0) hides the machine's entry
            [ "$(stat -c %t:%T "$entry")" = 0:0 ] && line "removed  $path" ;;
        d)
            grep -qxF "$path" "$seal/made" 2>/dev/null && continue
            if [ ! -d "$path" ] || [ -L "$path" ]; then
                line "added    $path/"
            elif [ "$(getfattr --absolute-names --only-values -n trusted.overlay.opaque "$entry" 2>/dev/null)" = y ]; then
                # Removed and made anew: what the machine holds there is hidden.
                find "$path" -mindepth 1 -maxdepth 1 -printf '%f\n' | while read -r name; do
                    [ -e "$entry/$name" ] || [ -L "$entry/$name" ] || line "removed  $path/$name"
                done
            fi ;;
        f)
            if [ -f "$path" ] && [ ! -L "$path" ]; then
                if ! cmp -s "$path" "$entry"; then
                    file_line "replaced" "$path" "$entry"
                elif [ "$(stat -c %a "$path")" != "$(stat -c %a "$entry")" ]; then
                    line "mode     $path $(stat -c %a "$path") -> $(stat -c %a "$entry")"
                fi
            elif [ -e "$path" ] || [ -L "$path" ]; then
                file_line "replaced" "$path" "$entry"
            else
                file_line "added   " "$path" "$entry"
            fi ;;
        l)
            target=$(readlink "$entry")
            if [ ! -L "$path" ]; then
                verb="added   "; [ -e "$path" ] && verb="replaced"
                line "$verb $path (link $target)"
            elif [ "$(readlink "$path")" != "$target" ]; then
                line "replaced $path (link $target)"
            fi ;;
        esac
    done
done | sort -k 2,2
