#!/usr/bin/env bash
# Every plim subcommand on generated inputs: exit code 0 and an output whose size and pixels show
# that the operation happened.
# Usage: bash commands.sh <path to plim> <scratch dir>
source "$(dirname "$0")/harness.bash" "$@"
run() { "$plim" "$@" >"$scratch/last.out" 2>"$scratch/last.err" || fail "plim $* exited $?: $(cat "$scratch/last.err")"; }
size() { identify -format '%wx%h' "$1" 2>/dev/null; }
# A pixel as straight 8-bit "r,g,b,a", whatever the file's colour type.
pixel() {
    convert "$1" -colorspace sRGB -format \
        "%[fx:round(255*p{$2}.r)],%[fx:round(255*p{$2}.g)],%[fx:round(255*p{$2}.b)],%[fx:round(255*p{$2}.a)]" \
        info: 2>/dev/null
}

cd "$scratch" || exit 1

# Half-transparent red with an opaque blue disc in the middle; a solid white image; a black square
# with a white top-left pixel (8-bit RGB, not the 1-bit PNG ImageMagick would pick); a grey ramp;
# the same little picture as BMP and GIF.
convert -size 20x10 xc:'rgba(255,0,0,0.5)' -fill blue -draw 'circle 10,5 10,8' -depth 8 in.png
convert -size 20x10 xc:white white.png
convert -size 4x4 xc:black -fill white -draw 'point 0,0' PNG24:corner_dot.png
convert -size 10x20 gradient:white-black -rotate 90 -depth 8 -type Grayscale ramp.png
convert -size 3x2 xc:red red.bmp
convert -size 3x2 xc:red red.gif

# --- help ---
for sub in info convert crop scale flip gray color add-alpha remove-alpha invert clear opaque \
    alpha mask composite tile trace recolor match; do
    "$plim" $sub --help >help.out 2>help.err || fail "$sub --help should exit 0"
    grep -q "^usage: plim $sub" help.out || fail "$sub --help should print its usage"
    [ -s help.err ] && fail "$sub --help wrote on stderr"
done
"$plim" --help | grep -q "plim composite" || fail "plim --help should list the subcommands"
"$plim" help >/dev/null || fail "plim help should exit 0"

# --- info ---
run info in.png ramp.png
grep -q "format: PNG" last.out && grep -q "width: 20" last.out && grep -q "height: 10" last.out ||
    fail "info: format and size"
grep -q "alpha info: kCGImageAlphaPremultipliedFirst" last.out && grep -q "opaque: no" last.out ||
    fail "info: alpha of in.png"
grep -q "colour model: grey" last.out || fail "info: the ramp should be grey"
grep -q "description: <PlimCFImage" last.out || fail "info: description"
run info red.bmp red.gif
[ "$(grep -c 'format: BMP' last.out)" = 1 ] && [ "$(grep -c 'format: GIF' last.out)" = 1 ] ||
    fail "info should name BMP and GIF: $(grep format: last.out)"

# --- convert to every format, read back ---
for ext in png jpg tiff pict pct; do
    run convert in.png "conv.$ext"
    "$plim" info "conv.$ext" >info.out 2>&1 && grep -q "width: 20" info.out ||
        fail "convert to $ext does not read back at 20x10"
done
[ "$(head -c 4 conv.png | od -An -c | tr -d ' ')" = "211PNG" ] || fail "conv.png is not PNG"
[ "$(head -c 2 conv.tiff)" = "II" ] || [ "$(head -c 2 conv.tiff)" = "MM" ] || fail "conv.tiff is not TIFF"
# A PCT file is the PICT data behind a 512-byte header.
[ $(($(stat -c %s conv.pct) - $(stat -c %s conv.pict))) -eq 512 ] || fail "pct should be pict + 512 bytes"
run convert in.png forced.out --format jpeg
[ "$(od -An -tx1 -N2 forced.out | tr -d ' ')" = "ffd8" ] || fail "--format jpeg should write JPEG"
# Several inputs into a directory, no terminal so no progress bar on stderr.
mkdir outdir
run convert in.png white.png ramp.png --out-dir outdir --format tiff
[ -f outdir/in.tiff ] && [ -f outdir/white.tiff ] && [ -f outdir/ramp.tiff ] || fail "--out-dir outputs"
[ -s last.err ] && fail "convert --out-dir without a terminal should print nothing"
# On a terminal the same run redraws a progress bar ending at 3/3.
if command -v script >/dev/null; then
    mkdir ttydir
    script -qec "'$plim' convert in.png white.png ramp.png --out-dir ttydir" /dev/null >tty.out 2>&1
    grep -q "3/3" tty.out && grep -q $'\r' tty.out || fail "no progress bar on a terminal"
    [ -f ttydir/ramp.png ] || fail "convert under a terminal should still write its outputs"
fi

# --- geometry ---
run crop in.png crop.png 9,4,2,3
[ "$(size crop.png)" = 2x3 ] || fail "crop size"
# X,Y from the top-left: (9,4)..(10,6) lies inside the blue disc.
[ "$(pixel crop.png 0,0)" = "0,0,255,255" ] || fail "crop should keep the disc: $(pixel crop.png 0,0)"
run crop corner_dot.png corner.png 0,0,1,1
[ "$(pixel corner.png 0,0)" = "255,255,255,255" ] || fail "crop 0,0 should be the top-left corner"
run scale in.png scale.png 40,5
[ "$(size scale.png)" = 40x5 ] || fail "scale size"
run flip corner_dot.png flip.png
[ "$(pixel flip.png 0,3)" = "255,255,255,255" ] ||
    fail "flip should move the top row to the bottom: $(pixel flip.png 0,3)"

# --- channel and colour-model operations ---
run gray in.png gray.png
"$plim" info gray.png | grep -q "colour model: grey" || fail "gray should give a grey image"
run color ramp.png color.png
"$plim" info color.png | grep -q "colour model: RGB" || fail "color should give an RGB image"
run add-alpha white.png add.png
"$plim" info add.png | grep -q "alpha info: kCGImageAlphaPremultipliedFirst" || fail "add-alpha"
run remove-alpha in.png removed.png
"$plim" info removed.png | grep -q "opaque: yes" || fail "remove-alpha should be opaque"
run opaque in.png opaque.png
"$plim" info opaque.png | grep -q "opaque: yes" || fail "opaque"
run invert white.png invert.png
[ "$(pixel invert.png 3,3)" = "0,0,0,255" ] || fail "invert of white: $(pixel invert.png 3,3)"
run clear in.png clear.png
[ "$(pixel clear.png 0,0)" = "0,0,0,0" ] || fail "clear: $(pixel clear.png 0,0)"
run alpha in.png alpha.png
[ "$(pixel alpha.png 10,5)" = "255,255,255,255" ] || fail "alpha of the disc: $(pixel alpha.png 10,5)"
run mask white.png ramp.png mask.png
"$plim" info mask.png | grep -q "opaque: no" || fail "mask with a ramp is not opaque"
a_left=$(convert mask.png -format '%[fx:int(255*p{0,0}.a)]' info:)
a_right=$(convert mask.png -format '%[fx:int(255*p{19,0}.a)]' info:)
[ "$a_left" -lt 20 ] && [ "$a_right" -gt 235 ] || fail "mask alpha should follow the ramp: $a_left $a_right"
run mask white.png ramp.png maskp.png --premultiplied

# --- composite and tile ---
run composite white.png in.png comp.png --op srcover
[ "$(pixel comp.png 0,0)" = "255,255,255,255" ] || fail "white srcover: $(pixel comp.png 0,0)"
run composite white.png in.png comp2.png --op clear --src-rect 0,0,2,2 --dest-rect 0,0,2,2
[ "$(pixel comp2.png 0,0)" = "0,0,0,0" ] || fail "clear inside the rectangle"
[ "$(pixel comp2.png 5,0)" != "0,0,0,0" ] || fail "clear outside the rectangle"
for op in clear copy-src copy-dest srcover destover srcin destin srcout destout srcatop destatop \
    xor plus multiply screen overlay darken lighten color-dodge color-burn hard-light soft-light \
    difference exclusion; do
    "$plim" composite in.png white.png "op.png" --op $op 2>/dev/null || fail "composite --op $op"
done
run tile corner_dot.png white.png tile.png --src-rect 0,0,4,4 --dest-rect 0,0,20,10 --op copy-src
# With the pattern anchored at the top-left corner (the default) the dot repeats every 4 pixels.
[ "$(pixel tile.png 4,0)" = "255,255,255,255" ] && [ "$(pixel tile.png 5,0)" = "0,0,0,255" ] &&
    [ "$(pixel tile.png 16,8)" = "255,255,255,255" ] ||
    fail "tile grid: $(pixel tile.png 4,0) $(pixel tile.png 5,0) $(pixel tile.png 16,8)"
for origin in min-x-max-y max-x-max-y min-x-min-y max-x-min-y; do
    "$plim" tile corner_dot.png white.png t.png --src-rect 0,0,4,4 --dest-rect 0,0,20,10 --origin $origin ||
        fail "tile --origin $origin"
done

# --- trace ---
run trace in.png trace.svg --threshold 0.9
[ -s last.out ] && fail "trace without --log should print nothing"
grep -q '<svg' trace.svg && grep -q 'data:image/png;base64,' trace.svg && grep -q '<path' trace.svg ||
    fail "trace.svg should hold the picture and a path"
grep -q ' d="M ' trace.svg || fail "the opaque disc should give an outline"
run trace in.png trace2.svg --log
[ -s last.out ] || fail "trace --log should show the tracer's log"

# --- colour match list ---
cat >list.json <<'JSON'
{
  "replacement-components": 4,
  "entries": [
    {"options": ["ignoring-alpha", "all-components-must-match"],
     "components": [
       {"mode": "absolutely-if-within-range", "target": 0, "tolerance": 0.1},
       {"mode": "absolutely-if-within-range", "target": 0, "tolerance": 0.1},
       {"mode": "absolutely-if-within-range", "target": 1, "tolerance": 0.1}],
     "replacement": [0, 1, 0, 1]}
  ]
}
JSON
run match list.json 0,0,1,1
[ "$(cat last.out)" = "0,1,0,1" ] || fail "match blue: $(cat last.out)"
"$plim" match list.json 1,0,0,1 >last.out 2>&1
[ $? -eq 1 ] && [ "$(cat last.out)" = "no match" ] || fail "match red should print no match, exit 1"
run recolor in.png recolor.png list.json
[ "$(pixel recolor.png 10,5)" = "0,255,0,255" ] || fail "recolor blue to green: $(pixel recolor.png 10,5)"
[ "$(pixel recolor.png 0,0)" = "$(pixel in.png 0,0)" ] || fail "recolor should keep unmatched pixels"

# Hues run from 0 to 360 and the range modes go round the circle: 330 is (1, 0, 0.5), and 355 give
# or take 10 covers both 349 and 3.
hue_list() {
    printf '{"replacement-components": 3, "entries": [{"options": ["ignoring-intensities", "convert-to-hsb"],
      "components": [{"mode": "absolutely-if-within-range", "target": %s, "tolerance": %s}],
      "replacement": [120, 1, 1]}]}\n' "$1" "$2" >hue.json
}
hue_list 330 5
run match hue.json 1,0,0.5,1
[ "$(cat last.out)" = "0,1,0" ] || fail "hue 330 should match (1, 0, 0.5): $(cat last.out)"
hue_list 355 10
for colour in 1,0,0.1,1 1,0.05,0,1 1,0,0,1; do
    run match hue.json $colour
    [ "$(cat last.out)" = "0,1,0" ] || fail "hue 355 +-10 should match $colour: $(cat last.out)"
done
"$plim" match hue.json 1,0.3,0,1 >last.out 2>&1
[ $? -eq 1 ] || fail "hue 18 is outside 355 +-10"
# A replacement hue of 360 is red, not black.
printf '{"replacement-components": 3, "entries": [{"options": ["ignoring-intensities", "convert-to-hsb"],
  "components": [{"mode": "always-matches"}], "replacement": [360, 1, 1]}]}\n' >red.json
run match red.json 0,0,1,1
[ "$(cat last.out)" = "1,0,0" ] || fail "replacement hue 360 should be red: $(cat last.out)"
# recolor goes through the same hues: the (255, 0, 128) pixel turns green.
convert -size 2x1 xc:'rgb(255,0,128)' PNG24:pink.png
hue_list 330 5
run recolor pink.png green.png hue.json
[ "$(pixel green.png 1,0)" = "0,255,0,255" ] || fail "recolor by hue: $(pixel green.png 1,0)"

finish "all plim command checks passed"
