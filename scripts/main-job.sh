#!/bin/sh
# From nothing to a whole update of the sample stick on a simulated panel, headless.
set -eu
cd "$(dirname "$0")/.."
scripts/install-deps.sh
scripts/build.sh
exec sim/kelsim --fresh --interactive --timeout 120 build/examples/stick
