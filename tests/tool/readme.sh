#!/usr/bin/env bash
# README's plim examples, run exactly as they stand there (every line of a ```sh block that starts
# with "plim "), with plim on the PATH and sample files of the names they use.
# Usage: bash readme.sh <path to plim> <scratch dir>
source "$(dirname "$0")/harness.bash" "$@"
readme=$(cd "$(dirname "$0")/../.." && pwd)/README.md
cd "$scratch" || exit 1
PATH=$(dirname "$plim"):$PATH

# The files the examples name: a photo as JPEG and PNG, a logo with transparency, and a colour
# match list that turns red into green.
convert -size 320x240 gradient:orange-navy -depth 8 photo.png
convert photo.png photo.jpg
convert -size 96x96 xc:none -fill 'rgba(200,30,30,0.8)' -draw 'circle 48,48 48,10' -depth 8 logo.png
cat >colours.json <<'JSON'
{"replacement-components": 4,
 "entries": [{"options": ["ignoring-alpha", "all-components-must-match"],
              "components": [{"mode": "absolutely-if-within-range", "target": 1, "tolerance": 0.1},
                             {"mode": "absolutely-if-within-range", "target": 0, "tolerance": 0.1},
                             {"mode": "absolutely-if-within-range", "target": 0, "tolerance": 0.1}],
              "replacement": [0, 1, 0, 1]}]}
JSON

awk '/^```sh$/ {inside = 1; next} /^```$/ {inside = 0} inside && /^plim / {print}' "$readme" >examples.sh
count=$(wc -l <examples.sh)
[ "$count" -ge 8 ] || fail "README should show its plim examples in a sh block (found $count)"
while IFS= read -r line; do
    bash -o pipefail -c "$line" >example.out 2>example.err || fail "README example failed: $line: $(cat example.err)"
done <examples.sh

# What the examples promise, spot-checked.
[ -f photo.tiff ] && [ -f photo-small.jpg ] && [ -f thumb.png ] && [ -f thumb.tiff ] &&
    [ -f corner.png ] && [ -f out.png ] && [ -f wallpaper.png ] && [ -f logo.svg ] ||
    fail "README examples should have written their outputs: $(ls)"
[ -f pict/photo.pict ] && [ -f pict/logo.pict ] || fail "convert *.png --out-dir pict/ outputs: $(ls pict 2>&1)"
[ "$(identify -format %wx%h thumb.tiff)" = 160x120 ] && [ "$(identify -format %wx%h thumb.png)" = 80x60 ] ||
    fail "thumb.tiff should be 160x120 and thumb.png 80x60"
finish "README: $count plim examples ran"
