#!/bin/sh
# scripts/net_match.sh: a missing opponent file is refused, and so is a
# missing match runner, with a message that names what to set.  With node
# and the match runner (QUILLON_MATCH_TOOL, not part of the repository) it
# also plays one pair at a fixed node count against another net: both
# engines play by nodes, the opponent is named after its file, and the
# folder for the log is made when it is missing.
# Usage: net_match_test.sh QUILLON SOURCE_DIR
set -e
engine=$1
root=$2
match=${QUILLON_MATCH_TOOL:-}
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
cp "$root/nets/quillon.nnue" "$work/first.nnue"
cp "$root/nets/quillon.nnue" "$work/other.nnue"

run_match() {
    EXE="$engine" QUILLON_MATCH_TOOL="$1" NET_MATCH_DIR="$work/logs" \
        sh "$root/scripts/net_match.sh" "$work/first.nnue" 1 nodes=200 1 "$2"
}

if out=$(run_match "$match" "$work/none.nnue"); then
    echo "a missing opponent net was accepted"; exit 1
fi
echo "$out" | grep -q "^no net file $work/none.nnue" ||
    { echo "no word of the missing net: $out"; exit 1; }

if out=$(run_match "$work/no_runner.mjs" "$work/other.nnue"); then
    echo "a missing match runner was accepted"; exit 1
fi
echo "$out" | grep -qE "^(no match runner $work/no_runner.mjs: set QUILLON_MATCH_TOOL|node is needed)" ||
    { echo "no word of the missing runner: $out"; exit 1; }

if ! command -v node >/dev/null 2>&1 || [ ! -f "$match" ]; then
    echo "net_match refusals ok; no node or QUILLON_MATCH_TOOL: no match played"
    exit 0
fi
out=$(run_match "$match" "$work/other.nnue")
echo "$out"
echo "$out" | grep -q "^Score of first vs other" || { echo "no score line"; exit 1; }
grep -q "^Match: first (nodes 200), other (nodes 200)" "$work/logs/net-first-other.log" ||
    { echo "not played at 200 nodes"; exit 1; }
echo "net_match ok"
