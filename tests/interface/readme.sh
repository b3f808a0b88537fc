#!/usr/bin/env bash
# readme.sh SOURCE-FOLDER: the programs that the README shows are those that the build compiles.
set -euo pipefail
source=$1
failed=0
for program in hello_producer hello_consumer; do
  shown=$(awk -v name="$program.c" '
    /^```/ && inside { exit }
    inside { print }
    /^```c$/ && found { inside = 1 }
    index($0, "examples/" name) && !inside { found = 1 }' "$source/README.md")
  if [[ $shown != "$(cat "$source/examples/$program.c")" ]]; then
    echo "README.md does not show examples/$program.c as it is:"
    diff <(echo "$shown") "$source/examples/$program.c" || true
    failed=1
  fi
done
exit $failed
