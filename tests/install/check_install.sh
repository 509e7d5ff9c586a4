#!/usr/bin/env bash
# Installs the build tree into a fresh prefix, then builds the consumer project against it twice:
# through find_package(PlimBitmapLib) and through pkg-config plimbitmap, and builds README's C example
# with pkg-config. Each build must compile without warnings, link and run.
# Usage: check_install.sh BUILD_DIR CONSUMER_SOURCE_DIR README SCRATCH_DIR [extra compiler/linker flags]
set -euo pipefail
build=$1 consumer=$2 readme=$3 scratch=$4 flags=${5:-}
rm -rf "$scratch"
mkdir -p "$scratch"
prefix=$scratch/prefix

cmake --install "$build" --prefix "$prefix" >"$scratch/install.log"

echo "== find_package(PlimBitmapLib)"
cmake -S "$consumer" -B "$scratch/cmake-build" -DCMAKE_PREFIX_PATH="$prefix" \
      -DCMAKE_C_FLAGS="$flags" -DCMAKE_EXE_LINKER_FLAGS="$flags" >"$scratch/configure.log"
cmake --build "$scratch/cmake-build" >"$scratch/build.log"
"$scratch/cmake-build/consumer"

echo "== pkg-config plimbitmap"
pc_dir=$(dirname "$(find "$prefix" -name plimbitmap.pc -print -quit)")
export PKG_CONFIG_PATH=$pc_dir
libdir=$(pkg-config --variable=libdir plimbitmap)
# shellcheck disable=SC2046,SC2086
cc -std=c99 -Wall -Wextra -pedantic -Werror $flags "$consumer/main.c" -o "$scratch/consumer-pc" $(pkg-config --cflags --libs plimbitmap) \
   -Wl,-rpath,"$libdir"
"$scratch/consumer-pc"

echo "== README's example"
awk '/^```c$/ {inside = 1; next} inside && /^```$/ {exit} inside {print}' "$readme" >"$scratch/tour.c"
grep -q main "$scratch/tour.c"
# shellcheck disable=SC2046,SC2086
cc -std=c99 -Wall -Wextra -pedantic -Werror $flags "$scratch/tour.c" -o "$scratch/tour" \
   $(pkg-config --cflags --libs plimbitmap) -Wl,-rpath,"$libdir"
(cd "$scratch" && ./tour >tour.out)
head -1 "$scratch/tour.out"
test -s "$scratch/tour.png"

# The Objective-C classes, when this build made them: README's example against the installed
# headers and library.
if [ -n "$(find "$prefix" -name 'libPlimBitmapObjects.so*' -print -quit)" ]; then
  echo "== README's Objective-C example"
  awk '/^```objc$/ {inside = 1; next} inside && /^```$/ {exit} inside {print}' "$readme" >"$scratch/tour.m"
  grep -q main "$scratch/tour.m"
  # shellcheck disable=SC2046,SC2086
  (cd "$scratch" && cc -Wall -Werror $flags tour.m $(gnustep-config --objc-flags) $(pkg-config --cflags plimbitmap) \
     -o tour-objc -L"$libdir" -lPlimBitmapObjects $(pkg-config --libs plimbitmap) $(gnustep-config --gui-libs) \
     -Wl,-rpath,"$libdir")
  # Under the sanitizers, the same leak suppressions as the classes' own suites (the Objective-C
  # runtime's class tables).
  supp=$(cd "$(dirname "$readme")" && pwd)/tests/objects/lsan.supp
  (cd "$scratch" && DISPLAY= LSAN_OPTIONS=suppressions=$supp:print_suppressions=0:fast_unwind_on_malloc=0 \
     ./tour-objc 2>tour-objc.log)
  grep -q "Invalid parameter not satisfying: mImage != nil" "$scratch/tour-objc.log"
  test -s "$scratch/objc-tour.png"
fi
