#!/bin/sh
# Installs what a fresh Debian 12 machine lacks to build, test and simulate the updater, plus the
# extras named: qt6 (the Qt 6 build), armhf or arm64 (the cross compiler of a panel build; the
# target's libraries and the emulator are unpacked into its build folder by prepare-arm.sh),
# package (the tools that build, check and test Debian packages in a fresh Debian root). man-db
# and groff-base render the manual pages in a test, chromium and poppler-utils the simulator's
# HTML report.
#
#   scripts/install-deps.sh [qt6] [armhf] [arm64] [package]
set -eu
packages="cmake make g++ clang pkg-config time strace qtbase5-dev qtbase5-dev-tools zlib1g-dev psmisc procps
          libsodium-dev util-linux iproute2 attr libxcb1-dev xvfb xauth x11-apps imagemagick fonts-wqy-zenhei
          e2fsprogs ca-certificates libarchive-dev libssl-dev openssl swupdate python3 man-db groff-base
          chromium poppler-utils"
for extra; do
    case $extra in
        qt6) packages="$packages qt6-base-dev" ;;
        armhf|arm64) packages="$packages crossbuild-essential-$extra file debian-archive-keyring" ;;
        package) packages="$packages dpkg-dev file debootstrap lintian" ;;
        *) echo "$0: unknown extra '$extra': use qt6, armhf, arm64 or package" >&2; exit 2 ;;
    esac
done
missing=""
for p in $packages; do
    dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed" || missing="$missing $p"
done
if [ -n "$missing" ]; then
    echo "installing:$missing"
    export DEBIAN_FRONTEND=noninteractive
    apt-get update -qq
    # shellcheck disable=SC2086
    apt-get install -y -qq --no-install-recommends $missing >/dev/null
fi
