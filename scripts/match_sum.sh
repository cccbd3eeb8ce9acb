#!/bin/sh
# One result from the logs of several parts of a match: a match played in
# parts (other seeds, other sittings) is judged on all its games at once.
# Each log is match.mjs's output; its "Final results" block gives the
# wins, losses and draws, the pair scores and the losses by fault, which
# are summed.  The Elo and its 95% interval are then worked out as the
# runner does for one log: the score from all games, the interval from
# the spread of the pair scores (0, 0.5, 1, 1.5 or 2 points a pair).
# Usage: scripts/match_sum.sh LOG...
# A log without a final result, or one of another pairing than the first
# log's, is refused with a message and a non-zero status.
set -e
[ $# -ge 1 ] || { echo "usage: scripts/match_sum.sh LOG..." >&2; exit 2; }
for log in "$@"; do
    [ -f "$log" ] || { echo "no match log $log" >&2; exit 1; }
    [ -s "$log" ] || { echo "$log: an empty match log" >&2; exit 1; }
done

awk '
function fail(msg) { print msg > "/dev/stderr"; failed = 1; exit 1 }
function elo(s) { return 400 * log(s / (1 - s)) / log(10) }
function signed(x) { return (x >= 0 ? "+" : "") sprintf("%.1f", x) }
# Each log: only its last "Final results" block counts (an earlier one
# would be of another run appended to the same file).
FNR == 1 {
    if (NR > 1) take(prev)
    prev = FILENAME; block = ""; stopped = ""
}
/^Final results: / { block = $0 "\n"; inblock = 1; next }
inblock && /^  / { block = block $0 "\n"; next }
{ inblock = 0 }
/^Stopped early: / { stopped = $0 }
END {
    if (failed) exit 1
    take(prev)
    report()
}
function count(file, x) {
    if (x !~ /^[0-9]+$/) fail(file ": \"" x "\" where a count should be")
    return x + 0
}
function take(file,    n, line, i, f, parts, pairing, seen_score, seen_pairs) {
    if (block == "") fail(file ": no final result (the match did not end?)")
    n = split(block, line, "\n")
    pairing = line[1]
    sub(/^Final results: /, "", pairing)
    sub(/, [0-9]+ games.*$/, "", pairing)
    if (logs == 0) first_pairing = pairing
    else if (pairing != first_pairing)
        fail(file ": " pairing ", not " first_pairing)
    for (i = 2; i <= n; i++) {
        if (line[i] ~ /^  Score of /) {
            split(line[i], parts, ": ")
            split(parts[2], f, " ")
            w += count(file, f[1]); l += count(file, f[3]); d += count(file, f[5])
            seen_score = 1
        } else if (line[i] ~ /^  Pairs /) {
            sub(/^.*: \[/, "", line[i]); sub(/\].*$/, "", line[i])
            if (split(line[i], f, ", ") != 5) fail(file ": a pairs line without 5 counts")
            for (k = 1; k <= 5; k++) pairs[k] += count(file, f[k])
            seen_pairs = 1
        } else if (line[i] ~ /^  Losses by fault /) {
            fault_names = line[i]
            sub(/^  Losses by fault \([^)]*\): /, "", fault_names)
            nf = split(fault_names, f, ", ")
            for (k = 1; k <= nf; k++) {
                np = split(f[k], parts, " ")
                split(parts[np], ab, "/")
                fault_a[k] += count(file, ab[1]); fault_b[k] += count(file, ab[2])
                label[k] = f[k]; sub(/ [0-9]+\/[0-9]+$/, "", label[k])
            }
        }
    }
    if (!seen_score || !seen_pairs) fail(file ": no score or no pairs in its final result")
    logs++
    if (stopped != "") print file ": " stopped
}
function report(    games, score, npairs, k, mean, var, se, lo, hi, z, faults) {
    games = w + l + d
    if (games == 0) fail("no games in the logs")
    score = (w + d / 2) / games
    printf "%s: %d logs, %d games\n", first_pairing, logs, games
    printf "  W-L-D %d - %d - %d, %.1f%%\n", w, l, d, 100 * score
    npairs = 0; mean = 0
    for (k = 1; k <= 5; k++) { npairs += pairs[k]; mean += pairs[k] * (k - 1) / 4 }
    printf "  Pairs [0, 0.5, 1, 1.5, 2 points]: [%d, %d, %d, %d, %d]\n", \
        pairs[1], pairs[2], pairs[3], pairs[4], pairs[5]
    if (score <= 0 || score >= 1) {
        printf "  Elo: %s\n", score <= 0 ? "-inf" : "+inf"
    } else if (npairs < 2) {
        printf "  Elo: %s (no interval: fewer than 2 pairs)\n", signed(elo(score))
    } else {
        mean /= npairs
        var = 0
        for (k = 1; k <= 5; k++) var += pairs[k] * ((k - 1) / 4 - mean) ^ 2
        var /= npairs
        se = sqrt(var / npairs)
        z = 1.959963984540054
        lo = score - z * se; hi = score + z * se
        if (lo <= 0 || hi >= 1)
            printf "  Elo: %s +/- inf (95%%, pentanomial)\n", signed(elo(score))
        else
            printf "  Elo: %s +/- %.1f (95%%, pentanomial), from %s to %s\n", \
                signed(elo(score)), (elo(hi) - elo(lo)) / 2, signed(elo(lo)), signed(elo(hi))
    }
    faults = ""
    for (k = 1; label[k] != ""; k++)
        faults = faults (k > 1 ? ", " : "") label[k] " " fault_a[k] "/" fault_b[k]
    if (faults != "") printf "  Losses by fault: %s\n", faults
}
' "$@"
