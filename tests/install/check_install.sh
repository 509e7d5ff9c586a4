#!/usr/bin/env bash
# Installs the build tree into a fresh prefix and uses it as a user would:
#   - the soname and the CMake package's version rule agree (before 1.0: same minor version);
#   - the consumer project builds through find_package(PlimBitmapLib) and through pkg-config
#     plimbitmap, and statically through pkg-config --static when the archive was installed;
#   - README's C example builds with pkg-config;
#   - the installed plim starts from the prefix without any library path set, and its manual
#     page reads cleanly with man -l;
#   - the licence, change log and README are installed.
# Each build must compile without warnings, link and run.
# Usage: check_install.sh BUILD_DIR CONSUMER_SOURCE_DIR README SCRATCH_DIR [extra compiler/linker flags]
set -euo pipefail
build=$1 consumer=$2 readme=$3 scratch=$4 flags=${5:-}
rm -rf "$scratch"
mkdir -p "$scratch"
prefix=$scratch/prefix

cmake --install "$build" --prefix "$prefix" >"$scratch/install.log"

pc_dir=$(dirname "$(find "$prefix" -name plimbitmap.pc -print -quit)")
export PKG_CONFIG_PATH=$pc_dir
libdir=$(pkg-config --variable=libdir plimbitmap)
version=$(pkg-config --modversion plimbitmap)
IFS=. read -r major minor _ <<<"$version"

echo "== soname and package version rule ($version)"
shared=$(find "$libdir" -name 'libPlimBitmapLib.so.*.*.*' -print -quit)
soname=$(objdump -p "$shared" | awk '/SONAME/ {print $2}')
if [ "$major" = 0 ]; then want_soname=libPlimBitmapLib.so.$major.$minor; else want_soname=libPlimBitmapLib.so.$major; fi
[ "$soname" = "$want_soname" ] || { echo "soname $soname, expected $want_soname"; exit 1; }
# find_package(PlimBitmapLib WANT) must succeed exactly for the versions the soname promises.
finds() {
  local dir=$scratch/find-$1
  mkdir -p "$dir"
  printf 'cmake_minimum_required(VERSION 3.20)\nproject(v LANGUAGES NONE)\nfind_package(PlimBitmapLib %s REQUIRED)\n' "$1" \
    >"$dir/CMakeLists.txt"
  cmake -S "$dir" -B "$dir/build" -DCMAKE_PREFIX_PATH="$prefix" >/dev/null 2>&1
}
finds "$major.$minor" || { echo "find_package($major.$minor) failed"; exit 1; }
if [ "$major" = 0 ]; then
  ! finds "$major.$((minor + 1))" || { echo "find_package($major.$((minor + 1))) accepted $version"; exit 1; }
  if [ "$minor" -gt 0 ]; then
    ! finds "$major.$((minor - 1))" || { echo "find_package($major.$((minor - 1))) accepted $version"; exit 1; }
  fi
fi
! finds "$((major + 1)).0" || { echo "find_package($((major + 1)).0) accepted $version"; exit 1; }

echo "== find_package(PlimBitmapLib)"
cmake -S "$consumer" -B "$scratch/cmake-build" -DCMAKE_PREFIX_PATH="$prefix" -DPLIM_WANT_VERSION="$major.$minor" \
      -DCMAKE_C_FLAGS="$flags" -DCMAKE_EXE_LINKER_FLAGS="$flags" >"$scratch/configure.log"
cmake --build "$scratch/cmake-build" >"$scratch/build.log"
"$scratch/cmake-build/consumer"

echo "== pkg-config plimbitmap"
# shellcheck disable=SC2046,SC2086
cc -std=c99 -Wall -Wextra -pedantic -Werror $flags "$consumer/main.c" -o "$scratch/consumer-pc" $(pkg-config --cflags --libs plimbitmap) \
   -Wl,-rpath,"$libdir"
"$scratch/consumer-pc"

if [ -f "$libdir/libPlimBitmapLib.a" ]; then
  echo "== pkg-config --static plimbitmap"
  # A prefix holding only the archive, so that the linker cannot fall back on the shared library:
  # the link succeeds only if Libs.private and Requires.private name everything the archive needs.
  static_prefix=$scratch/static-prefix
  cp -a "$prefix" "$static_prefix"
  rm -f "$static_prefix/${libdir#"$prefix/"}"/libPlimBitmapLib.so*
  # shellcheck disable=SC2046,SC2086
  cc -std=c99 -Wall -Wextra -pedantic -Werror $flags "$consumer/main.c" -o "$scratch/consumer-static" \
     $(PKG_CONFIG_PATH=$static_prefix/${pc_dir#"$prefix/"} pkg-config --static --cflags --libs plimbitmap)
  if readelf -d "$scratch/consumer-static" | grep -q 'NEEDED.*libPlimBitmapLib'; then
    echo "the static consumer still needs the shared library"; exit 1
  fi
  "$scratch/consumer-static"
fi

echo "== README's example"
awk '/^```c$/ {inside = 1; next} inside && /^```$/ {exit} inside {print}' "$readme" >"$scratch/tour.c"
grep -q main "$scratch/tour.c"
# shellcheck disable=SC2046,SC2086
cc -std=c99 -Wall -Wextra -pedantic -Werror $flags "$scratch/tour.c" -o "$scratch/tour" \
   $(pkg-config --cflags --libs plimbitmap) -Wl,-rpath,"$libdir"
(cd "$scratch" && ./tour >tour.out)
head -1 "$scratch/tour.out"
test -s "$scratch/tour.png"

echo "== the installed plim"
plim=$prefix/bin/plim
readelf -d "$plim" | grep -E 'RUNPATH|RPATH' | grep -q '\$ORIGIN/\.\./' ||
  { echo "plim has no run path relative to its own place"; exit 1; }
# Started from the prefix alone: no library path, no build tree to fall back on.
env -u LD_LIBRARY_PATH "$plim" --version | tee "$scratch/version.out"
grep -qx "plim $version (PlimBitmapLib $version)" "$scratch/version.out"

echo "== man -l plim.1"
page=$prefix/share/man/man1/plim.1
test -s "$page"
MANWIDTH=80 man --warnings -l "$page" >"$scratch/man.txt" 2>"$scratch/man.err"
grep -q '^NAME' "$scratch/man.txt" && grep -q 'plim - the PlimBitmapLib command-line tool' "$scratch/man.txt"
grep -q '^SYNOPSIS' "$scratch/man.txt" && grep -q '^EXIT STATUS' "$scratch/man.txt"
grep -q 'plim composite SRC DEST OUT' "$scratch/man.txt"
# Layout notes (a line in a narrow table cell that could not be justified, a table cell that
# crosses a page break) are cosmetic; anything else, such as an unknown macro, is not.
if grep -v -e 'cannot adjust line' -e 'will not fit on one page' "$scratch/man.err" | grep -q .; then
  echo "man reported problems:"; cat "$scratch/man.err"; exit 1
fi

echo "== licence, change log, README"
for doc in LICENSE CHANGELOG.md README.md; do
  test -s "$prefix/share/doc/PlimBitmapLib/$doc" || { echo "$doc not installed"; exit 1; }
done
grep -q '^MIT License' "$prefix/share/doc/PlimBitmapLib/LICENSE"

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
