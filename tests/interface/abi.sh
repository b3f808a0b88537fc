#!/usr/bin/env bash
# abi.sh SOURCE-FOLDER LIBRARY          a program that runs with the library as it was described last
#                                       runs with this one: functions, their types, record layouts
# abi.sh SOURCE-FOLDER LIBRARY --renew  describes this one
#
# The library needs its debug information. Any optimisation and any folder give the same description;
# Clang spells va_list in another way.
set -euo pipefail
source=$1 library=$2
description=$source/tests/interface/libvarro2.abi
folder=$(mktemp -d)
trap 'rm -rf "$folder"' EXIT

# What the public headers leave opaque is left out; so is where things stand.
abidw --headers-dir "$source/include/varro2" --drop-private-types --exported-interfaces-only \
  --no-corpus-path --no-comp-dir-path --no-show-locs --no-elf-needed --no-parameter-names \
  --no-write-default-sizes --type-id-style hash --out-file "$folder/abi" "$library"
grep -q '<function-decl' "$folder/abi" || { echo "no debug information in $library"; exit 1; }

if [[ ${3-} == --renew ]]; then
  sed -E "s|path='[^']*/(src/[^']*)'|path='\1'|" "$folder/abi" >"$description"
elif ! abidiff --no-show-locs "$description" "$folder/abi"; then
  echo "The interface is not the one described in ${description#"$source/"}. When that is intended:"
  echo "  scripts/abi --renew"
  echo "and commit the description with the change. What is removed or changed breaks programs: that"
  echo "takes a new SOVERSION in src/CMakeLists.txt. What is only added does not."
  exit 1
fi
