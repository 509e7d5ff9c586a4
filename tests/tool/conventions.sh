#!/usr/bin/env bash
# The conventions users bring from other image tools: --version, "-" for standard input and
# output, a JPEG quality, scaling by percent or by one side, --out-dir that makes its folder,
# machine-readable info, and an operation the library cannot do reported instead of hidden.
# Usage: bash conventions.sh <path to plim> <scratch dir>
source "$(dirname "$0")/harness.bash" "$@"
cd "$scratch" || exit 1
size() { identify -format '%wx%h' "$1" 2>/dev/null; }

convert -size 20x10 gradient:red-blue -depth 8 PNG24:in.png
convert -size 64x48 plasma:fractal -seed 7 -depth 8 PNG24:photo.png 2>/dev/null ||
    convert -size 64x48 gradient:yellow-navy -depth 8 PNG24:photo.png

# --- --version: the tool's version and the library's, the same in one build ---
"$plim" --version >version.out 2>&1 || fail "--version should exit 0"
grep -Eqx 'plim ([0-9]+\.[0-9]+\.[0-9]+) \(PlimBitmapLib \1\)' version.out ||
    fail "--version: $(cat version.out)"

# --- standard input and output ---
"$plim" scale - - 50% <in.png >half.png || fail "scale from stdin to stdout"
[ "$(size half.png)" = 10x5 ] || fail "stdin/stdout scale gave $(size half.png)"
"$plim" convert in.png - --format jpeg | head -c 2 | od -An -tx1 | grep -q 'ff d8' ||
    fail "convert to stdout with --format jpeg should write JPEG"
"$plim" info - <in.png | grep -q "width: 20" || fail "info should read stdin"
"$plim" invert in.png - | "$plim" flip - - | "$plim" info - | grep -q "format: PNG" ||
    fail "a pipe of plim commands"
"$plim" trace in.png - | grep -q '<svg' || fail "trace should write SVG to stdout"
"$plim" composite - - out.png --op srcover <in.png 2>err.txt
[ $? -eq 1 ] && grep -q "only once" err.txt || fail "stdin twice should be refused: $(cat err.txt)"
[ -e out.png ] && fail "a failed run must not write its output"

# --- JPEG quality: what the file's quantisation tables say, as ImageMagick reads them ---
for q in 30 90; do
    "$plim" convert photo.png q$q.jpg --quality $q || fail "convert --quality $q"
    [ "$(identify -format '%Q' q$q.jpg)" = $q ] || fail "--quality $q gave $(identify -format '%Q' q$q.jpg)"
done
"$plim" convert photo.png plain.jpg || fail "convert to JPEG"
[ "$(identify -format '%Q' plain.jpg)" = 75 ] || fail "default quality: $(identify -format '%Q' plain.jpg)"
[ "$(stat -c %s q30.jpg)" -lt "$(stat -c %s q90.jpg)" ] || fail "quality 30 should make a smaller file"
"$plim" scale photo.png small.jpg 50% --quality 40 && [ "$(identify -format '%Q' small.jpg)" = 40 ] ||
    fail "every image-writing subcommand takes --quality"

# --- scale by percent or by one side (aspect ratio kept, rounded) ---
for case in "50%:10x5" "12.5%:3x1" "33%:7x3" "300,:300x150" ",5:10x5" "7,:7x4" "40,2:40x2" "1%:1x1"; do
    size_arg=${case%%:*} want=${case#*:}
    "$plim" scale in.png s.png "$size_arg" || fail "scale $size_arg"
    [ "$(size s.png)" = "$want" ] || fail "scale $size_arg gave $(size s.png), want $want"
done

# --- --out-dir makes its folder, parents included, and keeps the names ---
"$plim" convert in.png photo.png --out-dir deep/er/out --format tiff || fail "--out-dir into a new folder"
[ -f deep/er/out/in.tiff ] && [ -f deep/er/out/photo.tiff ] || fail "--out-dir outputs: $(ls -R deep)"
"$plim" convert in.png photo.png --out-dir pict/ --format pict || fail "--out-dir with a trailing slash"
[ -f pict/in.pict ] && [ -f pict/photo.pict ] || fail "--out-dir pict/ outputs"

# --- info --json: valid JSON, one object per file, errors included ---
if command -v jq >/dev/null; then
    convert -size 3x2 xc:red red.bmp
    "$plim" info --json in.png red.bmp missing.png >info.json 2>/dev/null
    [ $? -eq 1 ] || fail "info --json with a missing file should exit 1"
    jq -e 'length == 3 and .[0].file == "in.png" and .[0].format == "PNG" and .[0].width == 20
           and .[0].height == 10 and .[0].bits_per_pixel == 32 and .[0].opaque == true
           and .[0].alpha_info == "kCGImageAlphaNoneSkipFirst" and .[0].colour_model == "RGB"
           and .[1].format == "BMP" and (.[2].error | test("missing.png"))' info.json >/dev/null ||
        fail "info --json: $(cat info.json)"
else
    echo "jq not installed: info --json checked for its first line only"
    "$plim" info --json in.png | head -1 | grep -qx '\[' || fail "info --json should print an array"
fi

# --- an operation the library cannot do exits 1 with a reason and writes nothing ---
# ImageMagick writes this as a 1-bit grey PNG. If crop and scale work on it they must really
# have worked; otherwise plim must say so.
convert -size 10x6 xc:white -fill black -draw 'rectangle 0,0 4,2' -type bilevel bilevel.png
check_done_or_refused() {  # SUBCOMMAND ARG EXPECTED_SIZE
    rm -f result.png
    "$plim" "$1" bilevel.png result.png "$2" 2>err.txt
    local rc=$?
    if [ $rc -eq 0 ]; then
        [ "$(size result.png)" = "$3" ] || fail "$1 of a 1-bit PNG exited 0 with size $(size result.png)"
    else
        [ $rc -eq 1 ] && grep -q "^plim: $1: " err.txt || fail "$1 of a 1-bit PNG: exit $rc, $(cat err.txt)"
        [ -e result.png ] && fail "a refused $1 must not write its output"
    fi
}
check_done_or_refused crop 0,0,5,3 5x3
check_done_or_refused scale 20,12 20x12

finish "all plim convention checks passed"
