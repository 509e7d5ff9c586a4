#!/usr/bin/env bash
# Installs every Debian package that building, testing and benchmarking need. Idempotent: only
# missing packages are installed, and the package lists are refreshed only when something is.
set -euo pipefail

packages=(
  build-essential cmake pkg-config git binutils
  googletest libgtest-dev libgmock-dev libbenchmark-dev
  liblcms2-dev libpixman-1-dev libhwy-dev
  libpng-dev libjpeg62-turbo-dev libtiff-dev libgif-dev libdeflate-dev libspng-dev
  libwebp-dev libavif-dev libheif-dev libjxl-dev
  # libheif's static link line names libnuma (for x265).
  libnuma-dev
  webp libavif-bin libheif-examples libjxl-tools
  netpbm imagemagick graphicsmagick
  clang-14 libclang-rt-14-dev
  nlohmann-json3-dev
  pandoc man-db jq
  gobjc gnustep-make libgnustep-base-dev libgnustep-gui-dev
  libpotrace-dev
)

missing=()
for p in "${packages[@]}"; do
  if ! dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q 'install ok installed'; then
    missing+=("$p")
  fi
done

if ((${#missing[@]})); then
  echo "setup: installing ${missing[*]}"
  sudo_cmd=()
  if [[ $(id -u) -ne 0 ]]; then sudo_cmd=(sudo); fi
  "${sudo_cmd[@]}" apt-get update -qq
  DEBIAN_FRONTEND=noninteractive "${sudo_cmd[@]}" apt-get install -y -qq "${missing[@]}"
else
  echo "setup: all packages present"
fi
