#!/bin/sh
# The panel's installer of the stick archive in an SWUpdate image made by "kelpack swu". Images
# carry no scripts: SWUpdate hands the archive to the "kelswu" handler in swupdate_handlers.lua,
# installed beside this file, which writes it to ARCHIVE and runs "kelswu ARCHIVE". A nonzero exit
# fails the installation, and what this prints reaches SWUpdate's log and the server's feedback.
# It unpacks the stick into a fresh folder beside ARCHIVE and runs its updater through the panel's
# gate, quietly and without a restart. The updater exits 0 even when the update fails: the result
# is the report line at the top of its log.
set -u
if [ $# != 1 ]; then
    echo "usage: kelswu ARCHIVE (SWUpdate's kelswu handler runs it)" >&2
    exit 2
fi
tarball=$1
state=$(dirname "$tarball")
stick=$state/stick
log=$state/update.log
# Written on success: the next start of SWUpdate confirms the installation to the server.
installed=$state/installed
gate=/usr/bin/kelgate
lines=${KELSWU_FEEDBACK_LINES:-20}
# How long the gate's red notice of a refused stick stays on the panel's screen: SWUpdate waits.
notice=${KELSWU_NOTICE_SECONDS:-10}

rm -rf "$stick" "$log" "$installed"
mkdir -p "$stick"
if ! tar -xf "$tarball" -C "$stick" --no-same-owner; then
    echo "kelswu: $tarball cannot be unpacked into $stick: check the free space of $state" >&2
    exit 1
fi
rm -f "$tarball"
program=$(find "$stick" -mindepth 2 -maxdepth 2 -name kelloadui.bin | head -n 1)
if [ -z "$program" ]; then
    echo "kelswu: the stick in $tarball has no package folder with kelloadui.bin: rebuild the image" >&2
    exit 1
fi
if [ ! -x "$gate" ]; then
    echo "kelswu: the panel's gate $gate is missing: install kelgate on the panel" >&2
    exit 1
fi
cd "$(dirname "$program")" || exit 1
"$gate" --notice-seconds "$notice" "$program" -s -nr "-p $log"
status=$?
tail -n "$lines" "$log" 2>/dev/null
if [ "$(head -n 1 "$log" 2>/dev/null)" = "[成功]" ]; then
    : >"$installed"
    exit 0
fi
echo "kelswu: the update failed (exit status $status): see $log" >&2
exit 1
