#!/usr/bin/env bash
# Every dynamic symbol the library defines must be declared in a public header, and no C++
# symbol may leak out.
set -euo pipefail
lib=$1
include_dir=$2
soname=$(objdump -p "$lib" | awk '/SONAME/ {print $2}')
if [[ -z $soname ]]; then
  echo "no SONAME in $lib"; exit 1
fi
status=0
count=0
while read -r sym; do
  # Sanitizer builds add their own bookkeeping symbols.
  if [[ $sym == __odr_asan* || $sym == __asan* || $sym == __ubsan* || $sym == __sanitizer* ]]; then
    continue
  fi
  count=$((count + 1))
  if [[ $sym == _Z* ]]; then
    echo "C++ symbol exported: $sym"; status=1; continue
  fi
  if ! grep -rqw -- "$sym" "$include_dir"; then
    echo "exported but not in a public header: $sym"; status=1
  fi
done < <(nm -D --defined-only "$lib" | awk '$2 ~ /^[TDBRVW]$/ {print $3}' | sed 's/@.*//' | sort -u)
echo "$count exported symbols checked, soname $soname"
exit $status
