#!/bin/sh
# scripts/speed_pairs.sh: two short runs of the same binary in two pairs
# give both medians and a ratio near 1; a missing binary is refused.
# Usage: speed_pairs_test.sh QUILLON SOURCE_DIR
set -e
engine=$1
root=$2

out=$(sh "$root/scripts/speed_pairs.sh" 2 "$engine" "$engine" -d 6)
echo "$out" | grep -q "^A $engine: median [0-9][0-9]* nodes a second$" ||
    { echo "no median for A: $out"; exit 1; }
echo "$out" | grep -q "^B $engine: median [0-9][0-9]* nodes a second$" ||
    { echo "no median for B: $out"; exit 1; }
ratio=$(echo "$out" | sed -n 's/^pairs 2, median of B\/A //p')
[ -n "$ratio" ] || { echo "no ratio: $out"; exit 1; }
# The same binary on a tiny search: anything but a wild ratio is fine.
awk -v r="$ratio" 'BEGIN { exit !(r > 0.2 && r < 5) }' ||
    { echo "ratio $ratio of a binary against itself"; exit 1; }

if out=$(sh "$root/scripts/speed_pairs.sh" 1 "$engine" /nonexistent/quillon); then
    echo "a missing binary was accepted"; exit 1
fi
echo "$out" | grep -q "^no executable" ||
    { echo "no word of the missing binary: $out"; exit 1; }
if sh "$root/scripts/speed_pairs.sh" 1 >/dev/null 2>&1; then
    echo "a call without binaries was accepted"; exit 1
fi
echo "speed_pairs.sh: medians, ratio and refusals as expected"
