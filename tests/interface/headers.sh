#!/usr/bin/env bash
# headers.sh INCLUDE-FOLDER COMPILER ARGUMENT...: each public header compiles alone, without a
# single warning.
set -uo pipefail
include=$1
shift
failed=0
count=0
for header in "$include"/varro2/*.h; do
  name=varro2/${header##*/}
  ((++count))
  if ! echo "#include <$name>" | "$@" -fsyntax-only -Wall -Wextra -Wpedantic -Werror -I"$include" -; then
    echo "<$name> does not compile alone"
    failed=1
  fi
done
((count)) || { echo "no header in $include"; exit 1; }
exit $failed
