#!/bin/sh
# A net's match at a time control: the net (through NN_File) against the
# hand-written evaluation of the same binary, another net in the same
# binary, or Debian's ethereal-chess, one thread and 16 MB of hash each,
# game pairs from tests/data/openings.epd with a fixed seed (NET_MATCH_SEED),
# adjudicated as the training matches are.  Prints the match's summary
# lines; the whole log and the games go to NET_MATCH_DIR (/tmp by default,
# made when missing).
# Usage: scripts/net_match.sh NET [ROUNDS [TC [CONCURRENCY [OPPONENT]]]]
#   ROUNDS game pairs (100), TC as match.mjs takes it (10+0.1) or
#   nodes=N for N nodes a move, CONCURRENCY games at once (1), OPPONENT
#   hce, ethereal or a net file (hce).
# It needs node and the match runner match.mjs, which is not part of the
# repository: QUILLON_MATCH_TOOL names it (../shared/tools/match.mjs when
# unset).  Without them it says so and fails.
set -e
net=${1:?usage: scripts/net_match.sh NET [ROUNDS [TC [CONCURRENCY [OPPONENT]]]]}
rounds=${2:-100}
tc=${3:-10+0.1}
concurrency=${4:-1}
opponent=${5:-hce}
engine=${EXE:-./quillon}
match=${QUILLON_MATCH_TOOL-../shared/tools/match.mjs}
openings=$(dirname "$0")/../tests/data/openings.epd
out=${NET_MATCH_DIR:-/tmp}
seed=${NET_MATCH_SEED:-11}

[ -f "$net" ] || { echo "no net file $net"; exit 1; }
mkdir -p "$out" || { echo "can't create the folder $out"; exit 1; }
[ -x "$engine" ] || { echo "no engine $engine: run make first"; exit 1; }

net_path=$(realpath "$net")
name=$(basename "$net" .nnue)
case "$opponent" in
    hce) other="--engine cmd=$(realpath "$engine") name=hce arg=-use_hce" ;;
    ethereal)
        eth=$(command -v ethereal-chess || echo /usr/games/ethereal-chess)
        [ -x "$eth" ] || { echo "no ethereal-chess"; exit 1; }
        other="--engine cmd=$eth name=ethereal"
        ;;
    *.nnue)
        [ -f "$opponent" ] || { echo "no net file $opponent"; exit 1; }
        other="--engine cmd=$(realpath "$engine") name=$(basename "$opponent" .nnue) option.NN_File=$(realpath "$opponent")"
        opponent=$(basename "$opponent" .nnue)
        ;;
    *) echo "OPPONENT is hce, ethereal or a .nnue file"; exit 1 ;;
esac
case "$tc" in
    nodes=*) limit="--nodes ${tc#nodes=}" ;;
    *) limit="--tc $tc" ;;
esac

command -v node >/dev/null 2>&1 || { echo "node is needed"; exit 1; }
[ -n "$match" ] && [ -f "$match" ] ||
    { echo "no match runner ${match:-given}: set QUILLON_MATCH_TOOL to match.mjs"; exit 1; }

log="$out/net-$name-$opponent.log"
echo "$name against $opponent: $rounds pairs at $tc, $concurrency at once; log $log"
node "$match" \
    --engine cmd="$(realpath "$engine")" name="$name" "option.NN_File=$net_path" \
    $other \
    --each option.Threads=1 option.Hash=16 $limit --rounds "$rounds" \
    --concurrency "$concurrency" --openings "$openings" \
    --seed "$seed" --draw-adj movenumber=40 movecount=8 score=10 \
    --resign-adj movecount=3 score=900 --pgn "$out/net-$name-$opponent.pgn" \
    >"$log" 2>&1 || {
    status=$?
    tail -20 "$log"
    echo "the match failed (status $status): see $log"
    exit 1
}
grep -q "^Score" "$log" || { echo "the match gave no result: see $log"; exit 1; }
grep -E "^Score|Elo|Losses" "$log" | tail -4
