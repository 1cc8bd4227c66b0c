#!/bin/sh
# Installs what a fresh Debian 12 machine lacks to build, test and simulate the updater.
set -eu
packages="cmake make g++ clang pkg-config time strace qtbase5-dev qtbase5-dev-tools zlib1g-dev psmisc procps
          libsodium-dev util-linux iproute2 attr libxcb1-dev xvfb xauth x11-apps imagemagick fonts-wqy-zenhei
          e2fsprogs ca-certificates"
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
