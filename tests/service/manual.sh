#!/usr/bin/env bash
# manual.sh SOURCE-FOLDER SWITCH: the manual names the options that the program has, and no others.
set -euo pipefail
page=$1/data/man/varro2-switchd.8 program=$2
options() { grep -oE -- '--[a-z][a-z-]+' | sort -u; }
has=$("$program" --help | options)
named=$(sed -e 's/\\-/-/g' "$page" | options)
diff <(echo "$has") <(echo "$named")
"$program" --version | grep -qE '^varro2-switchd [0-9]+\.[0-9]+\.[0-9]+$'
complaints=$(groff -man -Tutf8 -ww "$page" 2>&1 >/dev/null)
[[ -z $complaints ]] || { echo "$complaints"; exit 1; }
