#!/bin/sh
# Perft speed, single thread: the median of 5 runs of ours, and beside it
# Debian's ethereal-chess and stockfish timed in the same run, as ratios.
build=${1:-build}
runs=5
start="rnbqkbnr/pppppppp/8/8/8/8/PPPPPPPP/RNBQKBNR w KQkq - 0 1"
kiwipete="r3k2r/p1ppqpb1/bn2pnp1/3PN3/1p2P3/2N2Q1p/PPPBBPPP/R3K2R w KQkq - 0 1"
PATH="$PATH:/usr/games"

median() { sort -n | awk '{v[NR]=$1} END {print v[int((NR+1)/2)]}'; }
now() { date +%s.%N; }

# Wall seconds of one engine process fed the given commands.
timed() {
    text=$1
    shift
    t0=$(now)
    printf "$text" | "$@" >/dev/null 2>&1
    t1=$(now)
    awk -v a="$t0" -v b="$t1" 'BEGIN {print b - a}'
}

bench_position() {
    name=$1 fen=$2 depth=$3
    nodes=$("$build/bench/perft_bench" "$fen" "$depth" | awk '{print $2}')
    ours=$(for i in $(seq $runs); do
        "$build/bench/perft_bench" "$fen" "$depth" | awk '{print $4}'
    done | median)
    awk -v n="$nodes" -v t="$ours" -v name="$name" -v d="$depth" 'BEGIN {
        printf "perft %s depth %d: %d nodes, quillon %.3f s, %.1f Mnps\n", name, d, n, t, n / t / 1e6 }'
    if command -v ethereal-chess >/dev/null 2>&1; then
        eth=$(for i in $(seq $runs); do
            timed "position fen $fen\nperft $depth\nquit\n" ethereal-chess
        done | median)
        awk -v e="$eth" -v t="$ours" 'BEGIN {
            printf "  ethereal-chess %.3f s, ratio ethereal/quillon %.2f\n", e, e / t }'
    fi
    if command -v stockfish >/dev/null 2>&1; then
        sf=$(for i in $(seq $runs); do
            timed "position fen $fen\ngo perft $depth\nquit\n" stockfish
        done | median)
        awk -v s="$sf" -v t="$ours" 'BEGIN {
            printf "  stockfish %.3f s, ratio stockfish/quillon %.2f\n", s, s / t }'
    fi
}

echo "perft, single thread, median of $runs runs (other engines timed as whole processes)"
bench_position start "$start" 6
bench_position kiwipete "$kiwipete" 5

echo
# A net for the network's figures: QUILLON_BENCH_NET, or the built-in
# net's file when the repository has one.
net=${QUILLON_BENCH_NET:-}
[ -z "$net" ] && [ -f nets/quillon.nnue ] && net=nets/quillon.nnue

echo "evaluation, single thread, median of 5 rounds"
"$build/bench/eval_bench" 4000 $net
[ -z "$net" ] && echo "  (no net file: set QUILLON_BENCH_NET=file.nnue for the network's speed)"

echo
echo "search, the 20 benchmark positions at depth 15, hand-written evaluation, median of 3"
"$build/bench/search_bench" 15 1 3 | tail -1
"$build/bench/search_bench" 15 2 3 | tail -1
[ -n "$net" ] && "$build/bench/search_bench" 15 1 3 "$net" | tail -1

echo
# -bench with the hand-written evaluation, beside Debian's ethereal-chess
# running its own bench and, with QUILLON_BENCH_REF=path, an older quillon
# (say a build of an earlier commit), all in this same run.
bench_nps() { "$@" 2>/dev/null | awk -F'nps= ' '/^total time=/ {print $2}'; }
ours=$(for i in 1 2 3; do bench_nps "$build/quillon" -bench -use_hce; done | median)
echo "-bench -use_hce, single thread, median of 3: quillon $ours nps"
if [ -n "${QUILLON_BENCH_REF:-}" ]; then
    ref=$(for i in 1 2 3; do bench_nps "$QUILLON_BENCH_REF" -bench -use_hce; done | median)
    awk -v o="$ours" -v r="$ref" 'BEGIN {
        printf "  reference %d nps, ratio quillon/reference %.2f\n", r, o / r }'
fi
if command -v ethereal-chess >/dev/null 2>&1; then
    eth=$(for i in 1 2 3; do ethereal-chess bench 2>/dev/null | awk '/^NPS/ {print $3}'; done | median)
    awk -v o="$ours" -v e="$eth" 'BEGIN {
        printf "  ethereal-chess bench %d nps, ratio quillon/ethereal %.2f\n", e, o / e }'
fi

echo
# The built-in net's search against the hand-written one, same binary.
sh scripts/net_speed.sh "$build/quillon" ${QUILLON_BENCH_REF:-}

echo
# The repository's tables, or another folder of them (QUILLON_BENCH_TB).
tables=${QUILLON_BENCH_TB:-tests/data/syzygy}
echo "tablebases, single thread: random positions of every table in $tables"
"$build/bench/tb_bench" "$tables" 20000

echo
echo "opening book, single thread, median of 5 rounds: lookups on the sample book, -mkbook on the sample games ten times over"
"$build/bench/book_bench" tests/data/sample_book.bin tests/data/sample_games.pgn 10
