#!/usr/bin/env bash
# Configures and builds one build tree: build.sh DIR [extra CMake arguments...]
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
dir=$1
shift
cmake -S "$root" -B "$dir" -DCMAKE_BUILD_TYPE=RelWithDebInfo "$@" >/dev/null
cmake --build "$dir" -j"$(nproc)"
