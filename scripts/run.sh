#!/usr/bin/env bash
# Sets up the machine, builds the library and runs the example program.
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
cd "$root"
bash scripts/setup.sh
bash scripts/build.sh build
./build/examples/plim_example
