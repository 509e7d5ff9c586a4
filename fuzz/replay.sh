#!/usr/bin/env bash
# Runs every fuzz target once over its seed corpus and its saved crash inputs:
#   fuzz/replay.sh BUILD_DIR
# BUILD_DIR is a tree configured with clang and -DPLIM_FUZZ=ON (README.md). A sanitizer report,
# a failed check, or a single allocation over 256 MiB (the targets hold pictures to 4 megapixels,
# 16 MiB at four bytes a pixel) fails the run.
set -euo pipefail
fuzz_dir=$(cd "$(dirname "$0")" && pwd)
build=$1

# target:inputs folder (under corpus/ and crashes/)
targets=(png_fuzz:png jpeg_fuzz:jpeg tiff_fuzz:tiff gif_fuzz:gif bmp_fuzz:bmp pict_data_fuzz:pict
         pct_fuzz:pct pict_fuzz:pict trace_fuzz:trace webp_fuzz:webp avif_fuzz:avif heif_fuzz:heif
         jxl_fuzz:jxl)
export ASAN_OPTIONS=${ASAN_OPTIONS:-detect_leaks=1:abort_on_error=1}
export UBSAN_OPTIONS=${UBSAN_OPTIONS:-halt_on_error=1:print_stacktrace=1}
status=0
for entry in "${targets[@]}"; do
  target=${entry%%:*}
  folder=${entry#*:}
  inputs=()
  for dir in "$fuzz_dir/corpus/$folder" "$fuzz_dir/crashes/$folder"; do
    [[ -d $dir ]] && while IFS= read -r -d '' f; do inputs+=("$f"); done < <(find "$dir" -type f -print0 | sort -z)
  done
  if ((${#inputs[@]} == 0)); then
    echo "$target: no inputs"; status=1; continue
  fi
  if "$build/fuzz/$target" -malloc_limit_mb=256 -rss_limit_mb=4096 "${inputs[@]}" >"$build/fuzz/$target.log" 2>&1; then
    echo "$target: ${#inputs[@]} inputs replayed"
  else
    echo "$target: FAILED"; tail -40 "$build/fuzz/$target.log"; status=1
  fi
done
exit $status
