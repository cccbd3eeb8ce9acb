#!/bin/sh
# make net: the training chain end to end with fixed seeds.
#   1. self-play into the data folder until this run's share is there
#      (a share already there is reused; a killed run goes on);
#   2. train on everything the folder holds (a killed training goes on
#      from its last finished epoch);
#   3. the new net's evaluation speed;
#   4. a short match of the new net against the previous one.
# Every setting is a variable: NET_DATA, NET_POSITIONS, NET_THREADS,
# NET_NODES, NET_SEED, NET_GEN_EVAL, NET_HIDDEN, NET_TARGET, NET_LAMBDA,
# NET_SUM_BOUND, NET_QUIET, NET_SCHEDULE, NET_SAMPLES, NET_OUT, NET_PREVIOUS,
# NET_ROUNDS.
# The match needs node and the match runner match.mjs, which is not part
# of the repository: QUILLON_MATCH_TOOL names it (../shared/tools/match.mjs
# when unset); without it step 4 is skipped with a message.
# The new net is left in NET_OUT; it is built into ./quillon only when
# copied over nets/quillon.nnue.  Each step that fails stops the chain with
# a message and a non-zero status; NET_OUT is removed before training, so
# that a net left from an earlier run can't pass for this run's.
set -e
ttune=${TTUNE_EXE:-./quillon-ttune}
engine=${EXE:-./quillon}
build=${BUILD:-build}
data=${NET_DATA:-default}
positions=${NET_POSITIONS:-18}   # millions, this seed and thread count
threads=${NET_THREADS:-2}
nodes=${NET_NODES:-2500}
gen_eval=${NET_GEN_EVAL:-hce}   # hce, or nn: the net built into quillon-ttune
seed=${NET_SEED:-1}             # another seed plays other openings
hidden=${NET_HIDDEN:-512}
target=${NET_TARGET:-search}    # search (scores and results) or hce
lambda=${NET_LAMBDA:-1.0}
sum_bound=${NET_SUM_BOUND:-0}   # first-layer sums held within; 0 none
quiet=${NET_QUIET:-no}          # yes: pass over positions that win material
schedule=${NET_SCHEDULE:-step}  # step, or cosine
samples=${NET_SAMPLES:-216}      # millions of samples trained on, all epochs
out=${NET_OUT:-nets/new.nnue}
previous=${NET_PREVIOUS:-nets/quillon.nnue}
rounds=${NET_ROUNDS:-50}
match=${QUILLON_MATCH_TOOL-../shared/tools/match.mjs}
openings=$(dirname "$0")/../tests/data/openings.epd

fail() {
    echo "make net: $*" >&2
    exit 1
}

mkdir -p "$(dirname "$out")" || fail "can't create the folder of $out"
echo "== 1. self-play: $positions M positions, $threads threads, $nodes nodes a move"
eval_switch=-use_hce
[ "$gen_eval" = nn ] && eval_switch=-use_nn
"$ttune" -mktraindata "$data" "$positions" -threads "$threads" -n "$nodes" \
    -seed "$seed" $eval_switch ||
    fail "self-play failed (status $?): no training"

echo "== 2. training: $hidden nodes, target $target, $samples M samples"
rm -f "$out" || fail "can't remove the old $out"
target_switch=""
[ "$target" = hce ] && target_switch="-target hce" && lambda=1
"$ttune" -tune "$data" "$samples" -o "$out" -hidden "$hidden" \
    -lambda "$lambda" $target_switch -sum_bound "$sum_bound" -quiet "$quiet" \
    -schedule "$schedule" -mbatch 8192 -threads "$threads" -seed 1 ||
    fail "training failed (status $?): no net"
[ -f "$out" ] || fail "training wrote no net"

echo "== 3. evaluation speed"
if [ -x "$build/bench/eval_bench" ]; then
    "$build/bench/eval_bench" 4000 "$out" ||
        fail "the evaluation bench failed (status $?) on $out"
else
    echo "(no $build/bench/eval_bench: run make first)"
fi

echo "== 4. $rounds pairs of games at 5000 nodes a move against the previous net"
if ! command -v node >/dev/null 2>&1; then
    echo "(no node: the match is skipped)"
    exit 0
fi
if [ -z "$match" ] || [ ! -f "$match" ]; then
    echo "(no match runner ${match:-given}: set QUILLON_MATCH_TOOL to match.mjs; the match is skipped)"
    exit 0
fi
if [ -f "$previous" ]; then
    old="option.NN_File=$(realpath "$previous")"
    old_name=previous
else
    old="arg=-use_hce"
    old_name=hce
fi
# The match's own status decides, so its output goes to a file and not
# through a pipe, which would hide it.
log=$(mktemp "${TMPDIR:-/tmp}/quillon_net_match_XXXXXX") ||
    fail "can't create a file for the match's log"
trap 'rm -f "$log"' EXIT
status=0
node "$match" \
    --engine cmd="$(realpath "$engine")" name=new "option.NN_File=$(realpath "$out")" \
    --engine cmd="$(realpath "$engine")" name=$old_name "$old" \
    --each option.Threads=1 option.Hash=16 --nodes 5000 --rounds "$rounds" \
    --concurrency "$threads" --openings "$openings" --seed 7 \
    --draw-adj movenumber=40 movecount=8 score=10 \
    --resign-adj movecount=3 score=900 >"$log" 2>&1 || status=$?
if [ "$status" -ne 0 ]; then
    tail -20 "$log" >&2
    fail "the match failed (status $status)"
fi
grep -q "^Score" "$log" || fail "the match gave no result"
grep -E "^Score|Elo|LOS" "$log" | tail -3
