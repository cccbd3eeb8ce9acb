#!/bin/sh
# scripts/make_net.sh when a step fails: it stops there with a message and a
# non-zero status, a net left by an earlier run never passes for this
# run's, and a failed match fails the chain.  The real tuner build shows
# that its failures reach the script; stand-ins for the tuner and for node
# give the cases that would otherwise take a whole training run.
# Arguments: quillon, quillon-ttune.
set -e
engine=$1
ttune=$2
here=$(cd "$(dirname "$0")" && pwd)
script="$here/../scripts/make_net.sh"
work=$(mktemp -d /tmp/quillon_make_net_failures_XXXXXX)
trap 'rm -rf "$work"' EXIT

fail() {
    echo "FAIL: $*"
    [ -f "$work/log" ] && { echo "--- log"; cat "$work/log"; }
    exit 1
}

# Runs the chain with the given tuner; its status, its output in $work/log.
# No eval_bench in the build folder given, so step 3 only says so.
chain() {
    status=0
    NET_DATA=$work/data NET_POSITIONS=${POSITIONS:-0} NET_THREADS=1 \
        NET_NODES=100 NET_HIDDEN=8 NET_SAMPLES=1 NET_OUT=$work/new.nnue \
        NET_PREVIOUS=$work/none.nnue NET_ROUNDS=1 TTUNE_EXE=$1 EXE=$engine \
        BUILD=$work/no-build QUILLON_MATCH_TOOL=$work/shared/tools/match.mjs \
        PATH=$work/bin:$PATH sh "$script" >"$work/log" 2>&1 || status=$?
    return 0
}

stale_net() {
    printf 'an old net' >"$work/new.nnue"
}

# 1. The real tuner with nothing to train on: self-play of 0 positions
# succeeds, training finds no positions and fails, and the old net is gone.
stale_net
chain "$ttune"
[ "$status" -ne 0 ] || fail "training on nothing passed"
grep -q "^no training positions" "$work/log" || fail "the tuner said nothing"
grep -q "^make net: training failed (status 1)" "$work/log" ||
    fail "no message for the failed training"
[ ! -e "$work/new.nnue" ] || fail "the old net was left in place"
grep -q "^== 3\." "$work/log" && fail "the chain went on after the training"

# 2. The real tuner with a data folder it can't make: the chain stops at
# self-play, before anything is trained or removed.
stale_net
printf 'not a folder' >"$work/file"
status=0
NET_DATA=$work/file/data NET_POSITIONS=0 NET_THREADS=1 NET_OUT=$work/new.nnue \
    TTUNE_EXE=$ttune EXE=$engine BUILD=$work/no-build \
    QUILLON_MATCH_TOOL=$work/shared/tools/match.mjs sh "$script" >"$work/log" 2>&1 || status=$?
[ "$status" -ne 0 ] || fail "self-play into no folder passed"
grep -q "^can't create the data folder" "$work/log" || fail "the tuner said nothing"
grep -q "^make net: self-play failed (status 1)" "$work/log" ||
    fail "no message for the failed self-play"
grep -q "^== 2\." "$work/log" && fail "the chain went on to training"
[ -e "$work/new.nnue" ] || fail "a net was removed before training began"

# Stand-ins: a tuner whose training exits with $FAKE_TUNE_STATUS and writes
# the net only when $FAKE_TUNE_WRITES is set; node prints $FAKE_MATCH_TEXT
# and exits with $FAKE_MATCH_STATUS.
mkdir -p "$work/bin" "$work/shared/tools"
: >"$work/shared/tools/match.mjs"
cat >"$work/fake-ttune" <<'EOF'
#!/bin/sh
[ "$1" = -tune ] || exit 0
while [ $# -gt 1 ]; do
    [ "$1" = -o ] && out=$2
    shift
done
[ -n "$FAKE_TUNE_WRITES" ] && printf 'a new net' >"$out"
exit "${FAKE_TUNE_STATUS:-0}"
EOF
cat >"$work/bin/node" <<'EOF'
#!/bin/sh
printf '%s\n' "$FAKE_MATCH_TEXT"
exit "${FAKE_MATCH_STATUS:-0}"
EOF
chmod +x "$work/fake-ttune" "$work/bin/node"
export FAKE_TUNE_STATUS FAKE_TUNE_WRITES FAKE_MATCH_STATUS FAKE_MATCH_TEXT

# 3. A training that ends well but writes nothing: the old net can't pass.
stale_net
FAKE_TUNE_STATUS=0 FAKE_TUNE_WRITES=
chain "$work/fake-ttune"
[ "$status" -ne 0 ] || fail "an old net passed for a new one"
grep -q "^make net: training wrote no net" "$work/log" ||
    fail "no message for the missing net"

# 4. A training that fails after writing: its status decides.
FAKE_TUNE_STATUS=3 FAKE_TUNE_WRITES=yes
chain "$work/fake-ttune"
[ "$status" -ne 0 ] || fail "a failed training passed"
grep -q "^make net: training failed (status 3)" "$work/log" ||
    fail "no message for the failed training"

# 5. The match fails: the chain fails, and says so.
FAKE_TUNE_STATUS=0 FAKE_TUNE_WRITES=yes
FAKE_MATCH_STATUS=2 FAKE_MATCH_TEXT="Score of new vs hce: 1 - 0 - 0"
chain "$work/fake-ttune"
[ "$status" -ne 0 ] || fail "a failed match passed"
grep -q "^make net: the match failed (status 2)" "$work/log" ||
    fail "no message for the failed match"

# 6. A match that ends well but gives no result fails too.
FAKE_MATCH_STATUS=0 FAKE_MATCH_TEXT="nothing to report"
chain "$work/fake-ttune"
[ "$status" -ne 0 ] || fail "a match without a result passed"
grep -q "^make net: the match gave no result" "$work/log" ||
    fail "no message for the match without a result"

# 7. And the whole chain passes when every step does.
FAKE_MATCH_STATUS=0 FAKE_MATCH_TEXT="Score of new vs hce: 1 - 0 - 0"
chain "$work/fake-ttune"
[ "$status" -eq 0 ] || fail "a good chain failed (status $status)"
grep -q "^Score of new vs hce: 1 - 0 - 0" "$work/log" || fail "no match result"
echo "make net failures: ok"
