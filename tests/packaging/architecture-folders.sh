#!/bin/sh
# The architecture page names every top-level folder of the sources, so that a folder added
# without a word there fails here.
set -eu
src=$(cd "$(dirname "$0")/../.." && pwd)
page="$src/docs/architecture.md"
missing=""
for folder in $(git -C "$src" ls-files | sed -n 's|^\([^/]*\)/.*|\1|p' | sort -u); do
    grep -q "\`$folder/\`" "$page" || missing="$missing $folder/"
done
if [ -n "$missing" ]; then
    echo "FAIL: docs/architecture.md does not name:$missing" >&2
    exit 1
fi
echo "docs/architecture.md names every top-level folder"
