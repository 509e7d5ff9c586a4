#!/usr/bin/env bash
# Sets up the machine, builds the library and the plim tool, and runs the demo on built-in sample images.
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
cd "$root"
bash scripts/setup.sh
bash scripts/build.sh build
./build/tools/plim/plim demo build/demo
