#!/bin/sh
# Two builds' speed, compared in pairs: PAIRS times, A's -bench then B's,
# each with the same switches; prints both medians of nodes a second and
# the median of the pairs' ratios B/A.  A pair's two runs see the same
# moment of a shared machine, so the ratio holds still where the raw
# figures wander.  Stop everything else that can be stopped first.
#   scripts/speed_pairs.sh PAIRS A B [-bench switches, e.g. -d 12 -use_hce]
pairs=${1:?usage: scripts/speed_pairs.sh PAIRS A B [switches]}
a=${2:?usage: scripts/speed_pairs.sh PAIRS A B [switches]}
b=${3:?usage: scripts/speed_pairs.sh PAIRS A B [switches]}
shift 3
[ -x "$a" ] && [ -x "$b" ] || { echo "no executable $a or $b"; exit 1; }

. "$(dirname "$0")/bench_common.sh"

runs=""
i=0
while [ "$i" -lt "$pairs" ]; do
    x=$(bench_nps "$a" -bench "$@")
    y=$(bench_nps "$b" -bench "$@")
    [ -n "$x" ] && [ -n "$y" ] || { echo "a run printed no speed"; exit 1; }
    runs="$runs $x:$y"
    i=$((i + 1))
done
ma=$(for r in $runs; do echo "${r%:*}"; done | median)
mb=$(for r in $runs; do echo "${r#*:}"; done | median)
mr=$(for r in $runs; do echo "$r"; done |
    awk -F: '{printf "%.6f\n", $2 / $1}' | median)
echo "A $a: median $ma nodes a second"
echo "B $b: median $mb nodes a second"
echo "pairs $pairs, median of B/A $mr"
