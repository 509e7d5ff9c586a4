#!/usr/bin/env bash
# plim demo: usage and exit codes, every listed file written and readable at its expected size,
# 24 different contact-sheet tiles, an index page that shows every picture and labels every tile,
# and a failed run leaving nothing behind.
# Usage: bash demo.sh <path to plim> <scratch dir>
source "$(dirname "$0")/harness.bash" "$@"

# --- usage and bad arguments ---
"$plim" demo --help >"$scratch/help.out" 2>"$scratch/help.err"
[ $? -eq 0 ] || fail "--help should exit 0"
grep -q "usage: plim demo OUTDIR" "$scratch/help.out" || fail "--help should print usage on stdout"
[ -s "$scratch/help.err" ] && fail "--help should print nothing on stderr"

expect_usage_error() {
    "$plim" demo "$@" >/dev/null 2>"$scratch/usage.err"
    local rc=$?
    [ $rc -eq 2 ] || fail "demo $* should exit 2, got $rc"
    [ "$(wc -l <"$scratch/usage.err")" -eq 1 ] && grep -q "^plim: demo: " "$scratch/usage.err" ||
        fail "demo $* should print one 'plim: demo:' line on stderr"
}
expect_usage_error
expect_usage_error "$scratch/a" "$scratch/b"
expect_usage_error --frobnicate "$scratch/a"
[ -e "$scratch/a" ] && fail "a usage error must not create OUTDIR"

# --- a successful run into a directory that does not exist yet ---
out="$scratch/out"
"$plim" demo "$out" >"$scratch/demo.out" 2>"$scratch/demo.err"
rc=$?
[ $rc -eq 0 ] || { fail "demo should exit 0, got $rc"; cat "$scratch/demo.err" >&2; }

sed -n 's/^wrote \(.*\) (.*)$/\1/p' "$scratch/demo.out" >"$scratch/listed"
for name in source.png destination.png mask.png contact-sheet.png contact-sheet.txt pattern.png \
    outline.svg scene.png grey.png inverted.png masked.png index.html; do
    grep -qx "$out/$name" "$scratch/listed" || fail "demo did not report writing $name"
done
while read -r path; do
    [ -s "$path" ] || fail "listed file $path is missing or empty"
done <"$scratch/listed"
# Nothing but the listed files (no stray temporaries).
[ "$(ls -A "$out" | wc -l)" -eq "$(wc -l <"$scratch/listed")" ] || fail "OUTDIR holds unlisted files: $(ls -A "$out")"

size_of() { identify -format "%wx%h" "$1" 2>/dev/null; }
for name in source.png destination.png mask.png scene.png grey.png inverted.png masked.png; do
    [ "$(size_of "$out/$name")" = "96x96" ] || fail "$name should be a 96x96 image, got '$(size_of "$out/$name")'"
done
[ "$(size_of "$out/contact-sheet.png")" = "632x424" ] || fail "contact sheet size: $(size_of "$out/contact-sheet.png")"
[ "$(size_of "$out/pattern.png")" = "384x288" ] || fail "pattern size: $(size_of "$out/pattern.png")"
[ "$(identify -format "%[channels]" "$out/grey.png")" = "gray" ] || fail "grey.png should be a grey image"
grep -q "<svg" "$out/outline.svg" && grep -q "<path" "$out/outline.svg" || fail "outline.svg lacks an svg path"

# The tile index: 24 lines, 24 different operations, printed as well as written.
[ "$(wc -l <"$out/contact-sheet.txt")" -eq 24 ] || fail "index should have 24 lines"
[ "$(sed 's/.*: //' "$out/contact-sheet.txt" | sort -u | wc -l)" -eq 24 ] || fail "index should name 24 operations"
grep -q "^row 1, column 1: clear$" "$out/contact-sheet.txt" || fail "first tile should be clear"
grep -q "^row 4, column 6: " "$out/contact-sheet.txt" || fail "last tile should be row 4, column 6"
while read -r line; do
    grep -qxF "$line" "$scratch/demo.out" || fail "tile line not printed: $line"
done <"$out/contact-sheet.txt"

# The index page: every picture shown with its name, and the 24 tiles labelled in sheet order.
index="$out/index.html"
for name in source.png destination.png mask.png contact-sheet.png pattern.png outline.svg scene.png \
    grey.png inverted.png masked.png; do
    grep -q "<img src=\"$name\"" "$index" && grep -q "<b>$name</b>" "$index" ||
        fail "index.html should show $name with its name"
done
[ "$(grep -c '<div class="tile"' "$index")" -eq 24 ] || fail "index.html should show 24 tiles"
sed -n 's/.*: //p' "$out/contact-sheet.txt" >"$scratch/sheet-order"
grep -o '<div class="tile"[^>]*></div><figcaption>[^<]*' "$index" | sed 's/.*<figcaption>//' >"$scratch/page-order"
cmp -s "$scratch/sheet-order" "$scratch/page-order" || fail "index.html labels the tiles out of order"
# Each label sits on its own tile: the offsets step by 104 px (96 + 8) along rows of six.
grep -q 'background-position: -8px -8px"></div><figcaption>clear<' "$index" &&
    grep -q 'background-position: -528px -320px"></div><figcaption>exclusion<' "$index" ||
    fail "index.html tile offsets"
if command -v xmllint >/dev/null; then
    xmllint --html --noout "$index" 2>"$scratch/lint.err" || fail "index.html: $(cat "$scratch/lint.err")"
fi

# The 24 tiles (96 px, 8 px frame) must all differ, and visibly: more than a few hundred pixels
# apart even allowing a small per-pixel tolerance.
tiles="$scratch/tiles"
mkdir -p "$tiles"
for i in $(seq 0 23); do
    convert "$out/contact-sheet.png" -crop "96x96+$((8 + i % 6 * 104))+$((8 + i / 6 * 104))" +repage \
        -define png:color-type=6 -strip "$tiles/$i.png" 2>/dev/null || fail "cannot crop tile $i"
done
[ "$(for i in $(seq 0 23); do convert "$tiles/$i.png" rgba:- | md5sum; done | sort -u | wc -l)" -eq 24 ] ||
    fail "contact sheet tiles are not pairwise different"
for i in $(seq 0 23); do
    for j in $(seq $((i + 1)) 23); do
        ae=$(compare -metric AE -fuzz 3% "$tiles/$i.png" "$tiles/$j.png" null: 2>&1)
        ae=${ae%% *}
        [ "${ae%%.*}" -ge 300 ] 2>/dev/null || fail "tiles $i and $j differ in only '$ae' pixels"
    done
done

# Running again into the existing directory replaces the files.
"$plim" demo "$out" >/dev/null 2>&1 || fail "demo into an existing OUTDIR should succeed"

# --- failures: exit 1, a message, nothing left behind ---
touch "$scratch/plain-file"
"$plim" demo "$scratch/plain-file/out" >/dev/null 2>"$scratch/fail.err"
rc=$?
[ $rc -eq 1 ] || fail "OUTDIR under a regular file should exit 1, got $rc"
grep -q "^plim: demo: " "$scratch/fail.err" || fail "failure should print a 'plim: demo:' line"
[ -f "$scratch/plain-file" ] && [ ! -s "$scratch/plain-file" ] || fail "the regular file was changed"

"$plim" demo "$scratch/plain-file" >/dev/null 2>&1
[ $? -eq 1 ] || fail "OUTDIR that is a regular file should exit 1"
[ -f "$scratch/plain-file" ] && [ ! -s "$scratch/plain-file" ] || fail "the regular file was changed"

"$plim" demo "$scratch/missing/deeper" >/dev/null 2>&1
[ $? -eq 1 ] || fail "OUTDIR two levels deep should exit 1"
[ -e "$scratch/missing" ] && fail "a failed run must not create directories"

finish "demo: all checks passed"
