#!/usr/bin/env bash
# Sets up the machine, builds, and runs every test twice: in the normal build and under
# AddressSanitizer + UndefinedBehaviorSanitizer (LeakSanitizer included). Then the thread test
# runs under ThreadSanitizer, and the fuzz targets, built with clang, replay their seeds and
# saved crash inputs under ASan/UBSan. Any failure or sanitizer report fails the run.
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
cd "$root"

bash scripts/setup.sh

echo "== normal build"
bash scripts/build.sh build
(cd build && ctest --output-on-failure -j"$(nproc)")

echo "== sanitizer build (ASan + UBSan)"
bash scripts/build.sh build-asan -DPLIM_SANITIZE=ON -DPLIM_BUILD_BENCH=OFF
export ASAN_OPTIONS=detect_leaks=1:abort_on_error=1:strict_string_checks=1:detect_stack_use_after_return=1
export UBSAN_OPTIONS=halt_on_error=1:print_stacktrace=1
(cd build-asan && ctest --output-on-failure -j"$(nproc)")

echo "== thread test under ThreadSanitizer"
cmake -S . -B build-tsan -DCMAKE_BUILD_TYPE=RelWithDebInfo -DPLIM_SANITIZE_THREAD=ON -DPLIM_BUILD_BENCH=OFF >/dev/null
cmake --build build-tsan -j"$(nproc)" --target plim_threads_tests
(cd build-tsan && TSAN_OPTIONS=halt_on_error=1:second_deadlock_stack=1 ctest --output-on-failure -R '^Threads\.')

echo "== fuzz targets (clang, ASan + UBSan): seeds and saved crash inputs"
CC=clang-14 CXX=clang++-14 cmake -S . -B build-fuzz -DCMAKE_BUILD_TYPE=RelWithDebInfo -DPLIM_FUZZ=ON \
  -DPLIM_BUILD_TESTS=OFF -DPLIM_BUILD_BENCH=OFF >/dev/null
cmake --build build-fuzz -j"$(nproc)" --target plim_fuzz_targets
bash fuzz/replay.sh build-fuzz
