#!/bin/sh
# The net search's speed against the hand-written evaluation's, as the
# issue of net speed measures it: -bench -d 14 with the built-in net and
# -bench -use_hce -d 14 of the same binary, run alternately, median of
# RUNS (default 3) each; then the net's full -bench beside Debian's
# ethereal-chess bench, and beside a reference binary (an older commit's
# build) when one is given.  Nothing else should be running.
#   scripts/net_speed.sh [QUILLON] [REFERENCE]
exe=${1:-./quillon}
ref=${2:-}
runs=${RUNS:-3}
PATH="$PATH:/usr/games"

. "$(dirname "$0")/bench_common.sh"

net_runs="" hce_runs="" ref_runs=""
for i in $(seq "$runs"); do
    net_runs="$net_runs $(bench_nps "$exe" -bench -d 14)"
    hce_runs="$hce_runs $(bench_nps "$exe" -bench -use_hce -d 14)"
    [ -n "$ref" ] && ref_runs="$ref_runs $(bench_nps "$ref" -bench -d 14)"
done
net=$(echo $net_runs | tr ' ' '\n' | median)
hce=$(echo $hce_runs | tr ' ' '\n' | median)
echo "-bench -d 14, median of $runs: net $net nps (runs:$net_runs), hand-written $hce nps (runs:$hce_runs)"
awk -v n="$net" -v h="$hce" 'BEGIN { printf "  ratio net/hand-written %.3f\n", n / h }'
if [ -n "$ref" ]; then
    r=$(echo $ref_runs | tr ' ' '\n' | median)
    awk -v n="$net" -v r="$r" -v runs="$ref_runs" 'BEGIN {
        printf "  reference net %d nps (runs:%s), ratio %.3f\n", r, runs, n / r }'
fi
if command -v ethereal-chess >/dev/null 2>&1; then
    ours=$(for i in $(seq "$runs"); do bench_nps "$exe" -bench; done | median)
    eth=$(for i in $(seq "$runs"); do ethereal-chess bench 2>/dev/null | awk '/^NPS/ {print $3}'; done | median)
    awk -v o="$ours" -v e="$eth" 'BEGIN {
        printf "-bench with the net %d nps, ethereal-chess bench %d nps, ratio quillon/ethereal %.2f\n", o, e, o / e }'
fi
