#!/bin/sh
# Installs what is missing, builds, and runs every test; exits non-zero on any failure.
set -eu
cd "$(dirname "$0")/.."
scripts/install-deps.sh
scripts/build.sh
cd build
ctest --output-on-failure -j2
