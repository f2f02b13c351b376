#!/bin/sh
# Runs every benchmark program of a build, keeps each one's full report beside it
# (BUILD/NAME.txt), and prints all their library-to-peer ratios as one Markdown table.
# Usage: scripts/bench-table.sh BUILD_DIR
set -e
build=$1
table=""
for program in "$build"/*_bench; do
  name=$(basename "$program")
  echo "running $name (report in $build/$name.txt)" >&2
  "$program" --benchmark_counters_tabular=true >"$build/$name.txt" 2>&1 ||
    { echo "$name failed:" >&2; tail -n 20 "$build/$name.txt" >&2; exit 1; }
  # Ratio lines: the label in 50 columns, the ratio, then "(ours vs theirs)".
  rows=$(sed -n '/^ratio library \/ peer/,$p' "$build/$name.txt" | tail -n +2 |
    awk -v program="$name" 'NF > 0 {
      label = substr($0, 1, 50); sub(/ +$/, "", label)
      rest = substr($0, 51); split(rest, f, "(")
      ratio = f[1]; gsub(/ /, "", ratio)
      times = f[2]; sub(/\)$/, "", times); split(times, t, " vs ")
      printf "| %s | %s | %s | %s | %s |\n", program, label, ratio, t[1], t[2]
    }')
  table="$table$rows
"
done
echo
echo "| program | library / peer | time ratio | library | peer |"
echo "|---|---|---|---|---|"
printf '%s' "$table" | grep -v '^$'
