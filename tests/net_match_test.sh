#!/bin/sh
# scripts/net_match.sh at a fixed node count against another net: both
# engines play by nodes, the opponent is named after its file, and a
# missing opponent file is refused.
# Usage: net_match_test.sh QUILLON SOURCE_DIR SHARED_DIR
set -e
engine=$1
root=$2
shared=$3
command -v node >/dev/null 2>&1 || { echo "no node: skipped"; exit 0; }
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
cp "$root/nets/quillon.nnue" "$work/first.nnue"
cp "$root/nets/quillon.nnue" "$work/other.nnue"
out=$(EXE="$engine" QUILLON_SHARED_DIR="$shared" NET_MATCH_DIR="$work" \
    sh "$root/scripts/net_match.sh" "$work/first.nnue" 1 nodes=200 1 "$work/other.nnue")
echo "$out"
echo "$out" | grep -q "^Score of first vs other" || { echo "no score line"; exit 1; }
grep -q "^Match: first (nodes 200), other (nodes 200)" "$work/net-first-other.log" ||
    { echo "not played at 200 nodes"; exit 1; }
if EXE="$engine" QUILLON_SHARED_DIR="$shared" NET_MATCH_DIR="$work" \
    sh "$root/scripts/net_match.sh" "$work/first.nnue" 1 nodes=200 1 "$work/none.nnue"; then
    echo "a missing opponent net was accepted"; exit 1
fi
echo "net_match ok"
