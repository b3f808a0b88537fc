#!/usr/bin/env bash
# Holds what the operations of a program cost against their ceilings: instructions, counted by
# callgrind, and allocations. Counts, not times: the same on every machine, for one compiler.
#
#   ceilings.sh PROGRAM CEILINGS COMPILER [--renew]
#
#   --renew     writes what is counted now as the ceilings, with 3 % more instructions for what
#               differs from machine to machine, and 10 % for sending and matching
set -euo pipefail

usage="usage: ceilings.sh PROGRAM CEILINGS COMPILER [--renew]"
if (($# < 3 || $# > 4)) || [[ $# == 4 && $4 != --renew ]]; then
  echo "$usage" >&2
  exit 2
fi
program=$1 ceilings=$2 compiler=$3 renew=${4-}

folder=$(mktemp -d)
trap 'rm -rf "$folder"' EXIT
if ! valgrind --quiet --tool=callgrind --instr-atstart=no --callgrind-out-file="$folder/dump" \
  "$program" >"$folder/allocations" 2>"$folder/log"; then
  cat "$folder/log" >&2
  exit 1
fi

# NAME INSTRUCTIONS ALLOCATIONS, in the order of running. Each repetition has a dump of its own, which
# names the operation; the cheapest counts: how the bus library's hash tables fall out is chance.
awk '
  FILENAME ~ /allocations$/ { order[++count] = $1; allocations[$1] = $2; next }
  /^desc: Trigger: Client Request: / { name = $NF }
  /^totals: / { if (!(name in instructions) || $2 < instructions[name]) instructions[name] = $2 }
  END {
    for (at = 1; at <= count; ++at) {
      name = order[at]
      if (!instructions[name]) { print name ": nothing was counted" > "/dev/stderr"; exit 1 }
      print name, instructions[name], allocations[name]
    }
  }' "$folder/allocations" "$folder"/dump.* >"$folder/counted"

if [[ -n $renew ]]; then
  {
    echo "# What an operation may cost: instructions and allocations. Renewed by scripts/costs --renew."
    echo "compiler $compiler"
    # The bus library seeds its hash tables anew in each process, and texts take longer to compare
    # where one lies at the end of a page.
    awk '{ printf "%-24s %10d %6d\n", $1, $2 * ($1 ~ /^(send_to|match)/ ? 1.10 : 1.03) + 10, $3 }' "$folder/counted"
  } >"$ceilings"
  exit 0
fi

known=$(sed -n 's/^compiler //p' "$ceilings")
[[ $compiler == "$known" ]] ||
  echo "instructions are not compared: the ceilings are those of $known, this is $compiler"

awk -v compare_instructions="$([[ $compiler == "$known" ]] && echo 1 || echo 0)" '
  function too_many(what, counted, ceiling) {
    printf "%s: %d %s, ceiling %d (%+.1f %%)\n", name, counted, what, ceiling,
           ceiling ? 100 * (counted - ceiling) / ceiling : 100
    failed = 1
  }
  /^#/ || $1 == "compiler" || NF == 0 { next }
  FNR == NR { instructions[$1] = $2; allocations[$1] = $3; next }
  {
    name = $1
    if (!(name in instructions)) { print name ": has no ceiling"; failed = 1; next }
    if (compare_instructions && $2 > instructions[name]) too_many("instructions", $2, instructions[name])
    if ($3 > allocations[name]) too_many("allocations", $3, allocations[name])
    if (compare_instructions && $2 < instructions[name] * 0.85)
      printf "%s: %d instructions, well below the ceiling of %d: renew it\n", name, $2, instructions[name]
    seen[name] = 1
  }
  END {
    for (name in instructions)
      if (!(name in seen)) { print name ": is not counted any more"; failed = 1 }
    if (failed)
      print "If that is as it should be: scripts/costs --renew, and say why in the commit."
    exit failed
  }' "$ceilings" "$folder/counted"
