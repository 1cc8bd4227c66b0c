#!/bin/sh
# Configures and builds everything into ./build (BUILD_TYPE defaults to RelWithDebInfo).
set -eu
cd "$(dirname "$0")/.."
cmake -S . -B build -DCMAKE_BUILD_TYPE="${BUILD_TYPE:-RelWithDebInfo}" >/dev/null
cmake --build build -j"$(nproc)"
