#!/bin/sh
# Builds a ready-to-copy update stick from a readable package tree:
#   build-stick.sh KELPACK PROGRAM PACKAGE_TREE OUTDIR
# Every "*.in" manifest gets its @CRC32:path@ (upper case, for update manifests), @crc:path@
# (lower case, for project manifests) and @SIZE:path@ filled in, paths relative to the manifest's
# folder; "update.ini" manifests are then scrambled, the runtime folder gets its md5 list, and the
# program is put in the package folder "update" with "config/" beside it.
set -eu
kelpack=$1 program=$2 tree=$3 out=$4

rm -rf "$out"
mkdir -p "$out/config" "$out/language"
cp -R "$tree" "$out/update"
cp "$program" "$out/update/kelloadui.bin"
printf '[tool_language]\ntype=0\n' > "$out/config/vornUpdateSet.ini"

fill() { # manifest.in -> manifest.plain, tokens resolved against the manifest's folder
    template=$1 plain=$2.plain
    dir=$(dirname "$template")
    cp "$template" "$plain"
    for token in $(grep -o '@[A-Za-z0-9]*:[^@]*@' "$template" | sort -u); do
        kind=${token#@}; kind=${kind%%:*}
        file=${token#*:}; file=${file%@}
        set -- $("$kelpack" crc "$dir/$file")
        case $kind in
            CRC32) value=$1 ;;
            crc) value=$2 ;;
            SIZE) value=$3 ;;
            *) echo "unknown token $token" >&2; exit 1 ;;
        esac
        sed -i "s|$token|$value|g" "$plain"
    done
}

find "$out/update" -name '*.in' | while read -r template; do
    target=${template%.in}
    fill "$template" "$target"
    rm "$template"
    case $(basename "$target") in
        update.ini) "$kelpack" scramble "$target.plain" "$target" && rm "$target.plain" ;;
        *) mv "$target.plain" "$target" ;;
    esac
done

# The runtime's md5 list names every file of its folder except the list itself.
runtime="$out/update/vorn_app"
if [ -d "$runtime" ]; then
    "$kelpack" unscramble "$runtime/update.ini" "$out/runtime-manifest.txt"
    version=$(sed -n 's/^version=.* \([^ ]*\)$/\1/p' "$out/runtime-manifest.txt")
    rm "$out/runtime-manifest.txt"
    (cd "$runtime" && find . -maxdepth 1 -type f ! -name "version.*" -printf '%f\n' | sort |
        xargs md5sum > "version.$version")
fi
echo "stick built in $out"
