#!/usr/bin/env bash
# plim's failures: bad arguments exit 2, unreadable/corrupt/unsupported input and failed writes
# exit 1, each with one "plim: <sub>: " line on stderr, and no output file (not even a temporary)
# left behind.
# Usage: bash errors.sh <path to plim> <scratch dir>
source "$(dirname "$0")/harness.bash" "$@"
cd "$scratch" || exit 1
convert -size 8x8 xc:'rgba(0,128,255,0.75)' -depth 8 in.png
head -c 40 in.png >truncated.png
printf 'this is not an image at all\n' >text.png
: >empty.png
printf 'plain text\n' >file.txt
echo '{"entries": [ {"components": 3 } ]' >broken.json
echo '{"entries": [{"components": [{"mode": "sideways"}], "options": ["ignoring-intensities"], "replacement": [1,1,1,1]}]}' >badmode.json

# expect CODE SUB ARGS...: exit code, exactly one stderr line starting "plim: SUB: ", nothing
# new in the scratch directory.
expect() {
    local code=$1 sub=$2
    shift 2
    local before after
    before=$(ls -A | sort)
    "$plim" "$sub" "$@" >out.txt 2>err.txt
    local rc=$?
    [ $rc -eq "$code" ] || fail "plim $sub $* should exit $code, got $rc"
    [ "$(wc -l <err.txt)" -eq 1 ] && grep -q "^plim: $sub: " err.txt ||
        fail "plim $sub $* should print one 'plim: $sub:' line, got: $(cat err.txt)"
    rm -f out.txt err.txt
    after=$(ls -A | sort)
    [ "$before" = "$after" ] || fail "plim $sub $* left files behind: $(comm -13 <(echo "$before") <(echo "$after"))"
}

# --- bad arguments (2) ---
expect 2 crop in.png
expect 2 crop in.png out.png 1,2,3
expect 2 crop in.png out.png a,b,c,d
expect 2 scale in.png out.png 0,5
expect 2 flip in.png out.png extra
expect 2 gray in.png out.png --bogus
expect 2 convert in.png out.bmp
expect 2 convert in.png out.png --format gif
expect 2 convert in.png out.png --format
expect 2 composite in.png in.png out.png
expect 2 composite in.png in.png out.png --op frobnicate
expect 2 composite in.png in.png out.png --op xor --src-rect 0,0,1,1
expect 2 tile in.png in.png out.png --dest-rect 0,0,8,8
expect 2 tile in.png in.png out.png --src-rect 0,0,4,4 --dest-rect 0,0,8,8 --origin middle
expect 2 trace in.png out.svg --threshold 2
expect 2 match list.json 1,2
expect 2 recolor in.png out.png
expect 2 info
# Strict numbers: whole numbers where whole numbers are meant, plain decimals elsewhere.
for rect in 1.5,0,2,2 0x10,0,2,2 1e3,0,2,2 +1,0,2,2 " 1,0,2,2" 1,0,2,0 1,0,2,-2 1,0,2,2, 99999999,0,1,1; do
    expect 2 crop in.png out.png "$rect"
done
for size in 1.5,3 1e2,10 0x10,10 , 10 50 0% -5% 1e2% 70000,10; do
    expect 2 scale in.png out.png "$size"
done
expect 2 match list.json 1e-1,0,0,1
expect 2 match list.json 0x1,0,0,1
expect 2 match list.json inf,0,0,1
expect 2 trace in.png out.svg --threshold 0x1
expect 2 composite in.png in.png out.png --op xor --src-rect 0,0,1.5,1 --dest-rect 0,0,1,1
expect 2 tile in.png in.png out.png --src-rect 0,0,4,4 --dest-rect 0,0,8e1,8
# Output options: --quality is for JPEG and WebP only and runs from 1 to 100; formats are named.
expect 2 convert in.png out.png --quality 50
expect 2 convert in.png out.jpg --quality 0
expect 2 convert in.png out.jpg --quality 101
expect 2 convert in.png out.jpg --quality 7.5
expect 2 convert in.png out.webp --quality 0
expect 2 invert in.png out.tiff --quality 80
expect 2 invert in.png out.png --format gif
# trace writes SVG only; help knows its subcommands.
expect 2 trace in.png out.png
expect 2 trace in.png out
expect 2 help nosuch
# Two inputs that would be written to one name: refused before anything is made.
mkdir sub && cp in.png sub/in.png
expect 2 convert in.png sub/in.png --out-dir new-dir
expect 2 convert in.png truncated.png --out-dir new-dir --format png --quality 80
rm -r sub
"$plim" >/dev/null 2>err.txt; [ $? -eq 2 ] || fail "plim without a subcommand should exit 2"
"$plim" frobnicate >/dev/null 2>err.txt; [ $? -eq 2 ] && grep -q "unknown subcommand" err.txt ||
    fail "an unknown subcommand should exit 2"
rm -f err.txt

# --- missing, corrupt and unsupported input (1) ---
expect 1 flip missing.png out.png
mkdir folder.png
printf 'not a picture at all' >bad.pict
# The message names the file and the library's reason; a loader's own message joins that line.
for case in "missing.png|cannot read 'missing.png': file not found" \
            "folder.png|cannot read 'folder.png': not a regular file" \
            "empty.png|cannot load 'empty.png': the data is empty" \
            "truncated.png|cannot load 'truncated.png': the data is truncated" \
            "text.png|cannot load 'text.png': unsupported format" \
            "bad.pict|cannot load 'bad.pict': the data is corrupt (Corrupt PICT data found, cannot load image)"; do
    in=${case%%|*}
    expect 1 flip "$in" out.png
    [ "$("$plim" flip "$in" out.png 2>&1)" = "plim: flip: ${case#*|}" ] ||
        fail "flip $in should say '${case#*|}', got: $("$plim" flip "$in" out.png 2>&1)"
done
rmdir folder.png
rm bad.pict
expect 1 invert truncated.png out.png
expect 1 invert text.png out.png
expect 1 invert empty.png out.png
expect 1 info text.png
expect 1 convert file.txt out.png
expect 1 mask in.png missing.png out.png
convert -size 4x4 xc:gray small.png
expect 1 mask in.png small.png out.png
expect 1 recolor in.png out.png missing.json
expect 1 recolor in.png out.png broken.json
expect 1 match badmode.json 0,0,0,0
expect 1 crop in.png out.png 20,20,2,2

# --- outputs that cannot be written (1) ---
expect 1 convert in.png file.txt/out.png
expect 1 convert in.png no/such/dir/out.png
expect 1 trace in.png file.txt/out.svg
expect 1 convert in.png --out-dir file.txt
expect 1 convert in.png --out-dir file.txt/below

# A failed run keeps an existing output as it was.
cp in.png keep.png
"$plim" invert text.png keep.png 2>/dev/null
cmp -s in.png keep.png || fail "a failed run must not touch an existing output"
# Among several inputs, a bad one fails the run but the good ones are still converted.
mkdir batch
"$plim" convert in.png text.png --out-dir batch 2>err.txt
[ $? -eq 1 ] || fail "a batch with a bad input should exit 1"
[ -f batch/in.png ] && [ ! -e batch/text.png ] || fail "batch: only the good input is written"
[ -z "$(ls -A batch | grep '^\.')" ] || fail "batch left temporary files"

finish "all plim error checks passed"
