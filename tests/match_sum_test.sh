#!/bin/sh
# scripts/match_sum.sh: one log gives back the runner's own Elo line; two
# parts give the result of all their games (the figures of the 400-game
# third-generation match: +112.3 +/- 29.5, from +83.6), faults summed;
# a log without a final result, one of another pairing and no log at all
# are refused; a part stopped early counts and is named.
# Usage: match_sum_test.sh SOURCE_DIR
set -e
root=$1
logs=$root/tests/data/match_logs
sum() { sh "$root/scripts/match_sum.sh" "$@"; }
fail() { echo "$*"; exit 1; }

for seed in 3 5; do
    runner=$(grep "^  Elo difference: " "$logs/seed$seed.log" | tail -1 |
        sed 's/^  Elo difference: \([^ ]* +\/- [^ ]*\).*$/\1/')
    [ -n "$runner" ] || fail "no Elo line in seed$seed.log"
    out=$(sum "$logs/seed$seed.log")
    echo "$out" | grep -qF "Elo: $runner (95%, pentanomial)" ||
        fail "seed $seed: not the runner's $runner: $out"
done

out=$(sum "$logs/part1.log" "$logs/part2.log")
echo "$out"
for want in "new vs old: 2 logs, 400 games" "W-L-D 196 - 71 - 133, 65.6%" \
    "Pairs [0, 0.5, 1, 1.5, 2 points]: [7, 26, 53, 63, 51]" \
    "Elo: +112.3 +/- 29.5 (95%, pentanomial), from +83.6 to +142.6" \
    "Losses by fault: time losses 1/0, illegal moves 0/0, malformed moves 0/0, crashes 0/1, stalls 0/2"; do
    echo "$out" | grep -qF "$want" || fail "missing: $want"
done

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
grep -v "^Final results\|^  " "$logs/seed3.log" >"$work/unfinished.log"
if out=$(sum "$logs/seed3.log" "$work/unfinished.log" 2>&1); then
    fail "a log without a final result was counted: $out"
fi
echo "$out" | grep -qF "unfinished.log: no final result" || fail "no word of it: $out"
if out=$(sum "$logs/part1.log" "$logs/seed3.log" 2>&1); then
    fail "two pairings were summed: $out"
fi
echo "$out" | grep -qF "seed3.log: quillon vs hce, not new vs old" || fail "no word of it: $out"
if out=$(sum "$work/none.log" 2>&1); then fail "a missing log was accepted"; fi
echo "$out" | grep -qF "no match log $work/none.log" || fail "no word of it: $out"
if sum >/dev/null 2>&1; then fail "no log at all was accepted"; fi
: >"$work/empty.log"
if out=$(sum "$logs/part1.log" "$work/empty.log" 2>&1); then
    fail "an empty log was accepted: $out"
fi
echo "$out" | grep -qF "empty.log: an empty match log" || fail "no word of it: $out"
# A match stopped early still counts, and the summary says so.
{ cat "$logs/part1.log"; echo "Stopped early: 180 of 200 games played."; } >"$work/stopped.log"
out=$(sum "$work/stopped.log" "$logs/part2.log")
echo "$out" | grep -qF "stopped.log: Stopped early: 180 of 200 games played." ||
    fail "no word of the early stop: $out"
echo "$out" | grep -qF "new vs old: 2 logs, 400 games" || fail "the stopped part not counted: $out"

# Damaged logs: a final result without its pairs, one with a word for a
# count, and noise.  Each is refused, none hangs.
sed '/^  Pairs /d' "$logs/part1.log" >"$work/no_pairs.log"
sed 's/Score of new: 88 /Score of new: many /' "$logs/part1.log" >"$work/words.log"
head -c 65536 /dev/urandom >"$work/noise.log"
printf 'Final results: a vs b, 2 games\n  Score of a: 1 - 1\n  Pairs [x]: [1, 2, 3]\n' \
    >"$work/short.log"
for bad in no_pairs words noise short; do
    if out=$(sum "$work/$bad.log" "$logs/part2.log" 2>&1); then
        fail "the damaged $bad.log was counted: $out"
    fi
    echo "$out" | grep -qF "$bad.log" || fail "$bad.log not named: $out"
    echo "$out"
done
echo "match_sum ok"
