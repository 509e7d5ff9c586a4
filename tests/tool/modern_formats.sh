#!/usr/bin/env bash
# WebP, AVIF, HEIF and JPEG XL on the command line: info names each format it reads, convert
# writes WebP lossless by default and lossy with --quality. Formats whose encoders are missing
# are skipped.
# Usage: bash modern_formats.sh <path to plim> <scratch dir>
source "$(dirname "$0")/harness.bash" "$@"
cd "$scratch" || exit 1
have() { command -v "$1" >/dev/null 2>&1; }

convert -size 48x32 gradient:orange-purple -depth 8 PNG24:photo.png
convert photo.png -alpha set -channel A -fx 'i/w' +channel -depth 8 PNG32:alpha.png

# --- info names the format of each file it reads ---
check_info() {  # file, expected format name, whether it has alpha
    local format alpha
    format=$("$plim" info --json "$1" | jq -r '.[0].format') || { fail "info $1"; return; }
    [ "$format" = "$2" ] || fail "info $1: format '$format', want '$2'"
    alpha=$("$plim" info --json "$1" | jq -r '.[0].opaque')
    [ "$alpha" = "$3" ] || fail "info $1: opaque $alpha, want $3"
}
have cwebp && cwebp -quiet alpha.png -o cwebp.webp && check_info cwebp.webp WebP false
have avifenc && avifenc -s 10 alpha.png avifenc.avif >/dev/null && check_info avifenc.avif AVIF false
have heif-enc && heif-enc photo.png -o heif-enc.heic >/dev/null && check_info heif-enc.heic HEIF true
have cjxl && cjxl alpha.png cjxl.jxl >/dev/null 2>&1 && check_info cjxl.jxl "JPEG XL" false

# --- convert to WebP: lossless keeps every pixel, --quality codes lossy ---
"$plim" convert photo.png lossless.webp || fail "convert to .webp"
"$plim" convert lossless.webp back.png || fail "convert .webp back to PNG"
[ "$(compare -metric AE photo.png back.png null: 2>&1)" = 0 ] || fail "lossless WebP changed pixels"
check_info lossless.webp WebP true
for q in 20 90; do
    "$plim" convert photo.png q$q.webp --quality $q || fail "convert --quality $q"
done
[ "$(stat -c %s q20.webp)" -lt "$(stat -c %s q90.webp)" ] || fail "quality 20 should make a smaller file"
if have webpinfo; then
    webpinfo lossless.webp | grep -q 'Format: Lossless' || fail "without --quality WebP is lossless"
    webpinfo q90.webp | grep -q 'Format: Lossy' || fail "--quality makes lossy WebP"
fi
"$plim" convert alpha.png - --format webp | head -c 12 | grep -q 'WEBP' || fail "--format webp to stdout"
"$plim" invert alpha.png inverted.webp --quality 60 && check_info inverted.webp WebP false ||
    fail "every image-writing subcommand writes WebP"
mkdir out && "$plim" convert photo.png alpha.png --out-dir out --format webp && [ -s out/photo.webp ] &&
    [ -s out/alpha.webp ] || fail "--out-dir with --format webp"

finish "modern formats: ok"
