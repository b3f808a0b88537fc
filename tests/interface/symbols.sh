#!/usr/bin/env bash
# symbols.sh SOURCE-FOLDER LIBRARY: the functions that the public headers declare, the names in the
# version script and the symbols that the shared object exports are the same.
set -euo pipefail
export LC_ALL=C
source=$1 library=$2
folder=$(mktemp -d)
trap 'rm -rf "$folder"' EXIT

# A declaration is VARRO2_API, the result's type, the name and an opening parenthesis.
grep -hv '^#' "$source"/include/varro2/*.h | tr '\n' ' ' |
  grep -oE 'VARRO2_API [^;({]*\(' | sed -E 's/.*[ *]([A-Za-z_0-9]+) *\($/\1/' | sort >"$folder/headers"
sed -nE '/global:/,/local:/s/^ *([A-Za-z_0-9]+);$/\1/p' "$source/src/libvarro2.map" | sort >"$folder/map"
# Absolute symbols are the version nodes themselves.
nm -D --defined-only "$library" | awk '$2 != "A" { sub(/@.*/, "", $3); print $3 }' | sort >"$folder/exported"

failed=0
differs() { # TEXT FIRST SECOND: what is in the first and not in the second
  local only
  only=$(comm -23 "$folder/$2" "$folder/$3")
  if [[ $only ]]; then
    echo "$1:"
    sed 's/^/  /' <<<"$only"
    failed=1
  fi
}
for list in headers map exported; do
  [[ -s $folder/$list ]] || { echo "found no names: $list"; exit 1; }
  twice=$(uniq -d "$folder/$list")
  [[ -z $twice ]] || { echo "twice in $list: $twice"; failed=1; }
done
differs "declared in a header but not in the version script" headers map
differs "in the version script but declared in no header" map headers
differs "in the version script but not exported" map exported
differs "exported but not in the version script" exported map
exit $failed
