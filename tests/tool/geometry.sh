#!/usr/bin/env bash
# Rectangles in composite, tile and crop count rows from the top and are clipped at both images'
# edges, never squeezed. Each result is compared pixel for pixel with what ImageMagick makes of
# the same request (copy-src of opaque images, so there is no blending to differ in).
# Usage: bash geometry.sh <path to plim> <scratch dir>
source "$(dirname "$0")/harness.bash" "$@"
cd "$scratch" || exit 1
command -v compare >/dev/null || { echo "ImageMagick's compare is not installed: skipped"; exit 0; }

# same A B: the two pictures have the same size and the same 8-bit pixels.
same() {
    local ae
    ae=$(compare -metric AE "$1" "$2" null: 2>&1)
    [ "$ae" = 0 ] || fail "$3: $1 and $2 differ ($ae)"
}
run() { "$plim" "$@" 2>err.txt || fail "plim $* exited $?: $(cat err.txt)"; }

# Every pixel of src.png differs from its neighbours, so a shift by one row or column shows.
convert -size 10x10 xc:black -channel R -fx 'i/9' -channel G -fx 'j/9' -channel B -fx '((i*3+j*7)%10)/9' \
    +channel -depth 8 PNG24:src.png
[ "$(identify -format %k src.png)" = 100 ] || { fail "src.png should have 100 colours"; finish; }
convert -size 10x10 xc:red -fill blue -draw 'rectangle 0,5 9,9' -depth 8 PNG24:halves.png
convert -size 10x10 xc:white PNG24:white10.png
convert -size 20x20 xc:white PNG24:white20.png
convert -size 25x17 xc:white PNG24:white25.png

# --- composite: a scaled pair takes its source rows from the top ---
run composite halves.png white10.png top.png --op copy-src --src-rect 0,0,10,5 --dest-rect 0,0,10,10
convert -size 10x10 xc:red PNG24:red10.png
same top.png red10.png "the top half of a red-over-blue picture, scaled up, is all red"
run composite halves.png white10.png bottom.png --op copy-src --src-rect 0,5,10,5 --dest-rect 0,0,10,10
convert -size 10x10 xc:blue PNG24:blue10.png
same bottom.png blue10.png "the bottom half is all blue"

# --- composite: equal sizes clip at every edge of both images ---
for at in 5,0 0,4 -3,-2 7,8; do
    run composite src.png white10.png c.png --op copy-src --src-rect 0,0,10,10 --dest-rect "$at,10,10"
    convert white10.png src.png -geometry "$(printf '%+d%+d' "${at%,*}" "${at#*,}")" -compose copy \
        -composite PNG24:want.png
    same c.png want.png "destination rectangle at $at"
done
# A source rectangle reaching left of the source draws nothing there.
run composite src.png white10.png c.png --op copy-src --src-rect -2,0,10,10 --dest-rect 0,0,10,10
convert white10.png src.png -geometry +2+0 -compose copy -composite PNG24:want.png
same c.png want.png "source rectangle starting at x -2"

# --- composite: a scaled pair past the destination's edge is clipped, not squeezed ---
run scale src.png big.png 20,20
run composite src.png white20.png c.png --op copy-src --src-rect 0,0,10,10 --dest-rect 5,5,20,20
convert white20.png big.png -geometry +5+5 -compose copy -composite PNG24:want.png
same c.png want.png "a 20x20 destination rectangle at 5,5 on a 20x20 image"

# --- tile: a pattern fill, as ImageMagick's tile: fill makes it ---
run tile src.png white25.png t.png --op copy-src --src-rect 0,0,10,10 --dest-rect 0,0,25,17
convert -size 25x17 tile:src.png PNG24:want.png
same t.png want.png "tile across the whole image"
# A sub-rectangle as the tile, inside a destination rectangle that reaches past the image.
convert src.png -crop 4x3+2+1 +repage PNG24:piece.png
run tile src.png white25.png t.png --op copy-src --src-rect 2,1,4,3 --dest-rect 3,2,40,40
convert -size 22x15 tile:piece.png PNG24:fill.png
convert white25.png fill.png -geometry +3+2 -compose copy -composite PNG24:want.png
same t.png want.png "tile from 3,2 to past the image's far edges"
# Anchored at the bottom-right corner of the destination rectangle: the pattern's phase follows.
run tile src.png white25.png t.png --op copy-src --src-rect 2,1,4,3 --dest-rect 1,1,19,11 --origin max-x-max-y
convert -size 40x40 tile:piece.png -crop "19x11+$(((4 - 19 % 4) % 4))+$(((3 - 11 % 3) % 3))" +repage PNG24:fill.png
convert white25.png fill.png -geometry +1+1 -compose copy -composite PNG24:want.png
same t.png want.png "tile anchored at the bottom right"
# srcover of an opaque tile is the same picture as copy-src: the default operation works too.
run tile src.png white25.png t2.png --src-rect 2,1,4,3 --dest-rect 1,1,19,11 --origin max-x-max-y
same t2.png t.png "tile with the default srcover"

# --- crop: parts outside the picture are cut off, from the top-left ---
run crop src.png c.png -2,-3,6,7
convert src.png -crop 4x4+0+0 +repage PNG24:want.png
same c.png want.png "crop -2,-3,6,7"
run crop src.png c.png 7,6,10,10
convert src.png -crop 3x4+7+6 +repage PNG24:want.png
same c.png want.png "crop 7,6,10,10"

# --- nothing to draw is an error, not a silent no-op ---
for args in "--src-rect 0,0,5,5 --dest-rect 10,0,5,5" "--src-rect 10,10,5,5 --dest-rect 0,0,5,5" \
    "--src-rect 0,0,5,5 --dest-rect -5,0,5,5" "--src-rect 0,0,5,5 --dest-rect 10,10,8,8"; do
    # shellcheck disable=SC2086
    "$plim" composite src.png white10.png never.png --op copy-src $args 2>err.txt
    [ $? -eq 1 ] && grep -q "^plim: composite: " err.txt || fail "composite $args should exit 1"
done
"$plim" tile src.png white10.png never.png --src-rect 8,8,4,4 --dest-rect 0,0,10,10 2>/dev/null
[ $? -eq 1 ] || fail "a tile reaching past the source should exit 1"
"$plim" tile src.png white10.png never.png --src-rect 0,0,4,4 --dest-rect 10,0,10,10 2>/dev/null
[ $? -eq 1 ] || fail "a tile area outside the destination should exit 1"
[ -e never.png ] && fail "failed runs must not write their output"

finish "all plim geometry checks passed"
