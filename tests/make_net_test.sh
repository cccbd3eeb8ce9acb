#!/bin/sh
# The training chain of "make net" end to end on a tiny scale: self-play,
# training, the speed line and the match.  A second run over the same data
# folder must reuse the games already there and train the same net byte for
# byte, since every step is seeded.  The match is played only with node
# and the match runner named by QUILLON_MATCH_TOOL (not part of the
# repository); without them the chain must say that it skipped it.
# Arguments: quillon, quillon-ttune, the build folder.
set -e
engine=$1
ttune=$2
build=$3
match=${QUILLON_MATCH_TOOL:-}
here=$(cd "$(dirname "$0")" && pwd)
work=$(mktemp -d /tmp/quillon_make_net_XXXXXX)
trap 'rm -rf "$work"' EXIT

fail() {
    echo "FAIL: $*"
    for log in "$work"/log*; do
        [ -f "$log" ] && { echo "--- $log"; cat "$log"; }
    done
    exit 1
}

# $1 names the run: its net, checkpoint and log are its own.
run_chain() {
    NET_DATA=$work/data NET_POSITIONS=0.003 NET_THREADS=2 NET_NODES=300 \
        NET_HIDDEN=16 NET_SAMPLES=1 NET_OUT=$work/net$1.nnue \
        NET_PREVIOUS=$work/none.nnue NET_ROUNDS=1 TTUNE_EXE=$ttune \
        EXE=$engine BUILD=$build QUILLON_MATCH_TOOL=$match \
        sh "$here/../scripts/make_net.sh" >"$work/log$1" 2>&1 ||
        fail "run $1 ended with an error"
}

data_bytes() {
    cat "$work"/data/*.bin | wc -c
}

run_chain 1
[ -s "$work/net1.nnue" ] || fail "no net written"
bytes=$(data_bytes)
[ "$bytes" -ge $((3000 * 40)) ] || fail "only $bytes bytes of records"
[ $((bytes % 40)) -eq 0 ] || fail "a record cut short: $bytes bytes"
grep -q "^== 4\." "$work/log1" || fail "the chain stopped before the match"
if command -v node >/dev/null 2>&1 && [ -f "$match" ]; then
    grep -q "^Score of new vs hce" "$work/log1" || fail "no match result"
else
    grep -q "the match is skipped" "$work/log1" || fail "no word of the skipped match"
fi

# The engine takes the new net as its evaluation.
loaded=$(printf 'setoption name NN_File value %s\nisready\nquit\n' \
    "$work/net1.nnue" | "$engine")
echo "$loaded" | grep -q "info string loaded $work/net1.nnue" ||
    fail "the engine did not load the net: $loaded"

run_chain 2
[ "$(data_bytes)" -eq "$bytes" ] || fail "the second run played more games"
cmp -s "$work/net1.nnue" "$work/net2.nnue" || fail "the nets differ"
echo "make net chain: ok"
