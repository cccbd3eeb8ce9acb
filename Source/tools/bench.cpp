// The benchmark list and the search the benches run on each position.
#include "bench.h"

#include <cstdio>
#include <cstdlib>

#include "core/output.h"
#include "core/relaxed.h"
#include "frontend/protocol.h"
#include "position/notation.h"
#include "search/hash.h"
#include "search/search.h"
#include "search/time_control.h"

// Entries 3 and 9 are the same position, and the totals count it twice.
const char *const BENCH_POSITIONS[BENCH_POSITION_COUNT] = {
    "r1bqkb1r/pp1ppppp/2n2n2/8/3NP3/2N5/PPP2PPP/R1BQKB1R b KQkq -",
    "1n5k/3q3p/pp1p2pB/5r2/1PP1Qp2/P6P/6P1/2R3K1 w - -",
    "1r1qbr1k/4bp1p/p3p2Q/3pP3/2pP4/P1N1PN2/1PR2RP1/6K1 b - -",
    "2r1q2k/7p/p1np1P1P/8/1pP2R2/8/PP1Q4/R1KN2r1 b - -",
    "r2r2k1/5pp1/2bPp3/p1N4p/1qQ5/2P2P2/BP4PP/1K1R4 b - -",
    "5r1k/5rp1/p1n1p1qp/2P1p3/P7/4QN1P/5PP1/2R1R2K w - -",
    "2r3k1/1pq1b1p1/p1b1pr1p/8/PP2pP2/2P1B3/4B1PP/RQR4K w - -",
    "1r3b2/3R2pk/6q1/3Q1p2/p6P/4B2P/1P3P1K/8 w - -",
    "r2r2k1/6bp/1P2q1p1/4pp2/p1N5/2Q5/PPR3PP/4R2K b - -",
    "2r1q2k/7p/p1np1P1P/8/1pP2R2/8/PP1Q4/R1KN2r1 b - -",
    "r1bq1r1k/p1pnbpp1/1p2p3/6p1/3PB3/5N2/PPPQ1PPP/2KR3R w - - ",
    "r1b2rk1/1p1nbppp/pq1p4/3B4/P2NP3/2N1p3/1PP3PP/R2Q1R1K w - -",
    "r3r1kb/1npb1p1p/2q2np1/4p1B1/ppP1P2Q/1P2RNNP/P1B2PP1/3R2K1 w - -",
    "r2qk2r/1pp2ppp/p1pbbn2/8/3PP3/5N2/PP3PPP/RNBQR1K1 b kq -",
    "3q1r1k/1b3ppp/p1n5/1p1pPB2/2rP4/P6N/1P2Q1PP/R4RK1 w - -",
    "r1b1k2r/1p1pppb1/p5pp/3P4/q2p1B2/3P1Q2/PPP2PPP/R3R1K1 w kq -",
    "R4bk1/2Bbp2p/2p2pp1/1rPp4/3P4/4P2P/4BPPK/1q1Q4 w - -",
    "r2q1rk1/5ppp/3b4/1nnP2P1/1Q3BbP/Pp4N1/1P4B1/1KN2R1R b - -",
    "r7/5pk1/5p2/2p5/pp6/1P1B1KPN/P6P/8 b - -",
    "r2q3r/1p1bbQ2/4p1Bk/3pP3/1n1P1P1p/pP6/Pn4PP/R1B1R1K1 w - -",
};

void search_to_end() {
    hash_clear();
    prepare_search();
    store_depth(0);
    store_state(STATE_BENCH);
    store_stop(0);
    launch_search();
    while (!(load_state() & STATE_FINISHED)) {
        check_time();
        sleep_milliseconds(1);
    }
    store_state(0);
    read_elapsed();
}

// One position on the search threads, watched from here: the clock, and
// input, where only "stop" ends a position.
static void bench_threaded() {
    store_depth(0);
    store_state(STATE_BENCH);
    store_stop(0);
    launch_search();
    while (!(load_state() & STATE_FINISHED)) {
        check_time();
        poll_input();
        sleep_milliseconds(1);
    }
}

// One position on this thread: only the depth ends it.  The search that
// ended the last position left stop raised; each position starts clear.
static void bench_inline() {
    if (init_worker(0) != 0) std::exit(-1);
    store_stop(0);
    store_state(STATE_BENCH);
    if (settings.threads > 0 && !load_stop()) search_root(0);
    aggregate_counters();
}

void set_bench_limits() {
    settings.level_time = 99.0f;
    settings.noise = 9999.0f;
    if (settings.max_depth > 50) settings.max_depth = 17;
}

// The closing line of "quillon bench", in the form testing frameworks
// read: the exact node total, not the single-precision sum of the line
// above it, which stops counting single nodes past 2^24.
static void print_bench_summary(u64 nodes, f32 seconds) {
    char text[96];
    std::snprintf(text, sizeof text, "%llu nodes %.0f nps",
                  static_cast<unsigned long long>(nodes),
                  static_cast<double>(nodes) / static_cast<double>(seconds));
    print_line(text);
}

void run_bench(bool inline_search, bool summary) {
    // 1. Time and depth limits
    set_bench_limits();
    // 2. Announce
    char text[128];
    std::snprintf(text, sizeof text, "%s running benchmark using %d threads",
                  ENGINE_VERSION, settings.threads);
    print_line(text);
    // 3. Search each position from an empty hash table
    f32 total_time = 0.01f, total_nodes = 0.0f;
    u64 exact_nodes = 0;
    for (int i = 0; i < BENCH_POSITION_COUNT; i++) {
        set_fen(front_worker->position, BENCH_POSITIONS[i]);
        hash_clear();
        prepare_search();
        if (inline_search)
            bench_inline();
        else
            bench_threaded();
        store_state(0);
        read_elapsed();
        f32 elapsed = relaxed_load(status.elapsed);
        total_nodes += static_cast<f32>(status.nodes);
        exact_nodes += status.nodes;
        total_time += elapsed;
        std::snprintf(text, sizeof text, "pos %2d: %6.2f seconds", i,
                      static_cast<double>(elapsed));
        print_line(text);
    }
    // 4. The totals
    std::snprintf(
        text, sizeof text, "total time= %0.2f seconds, nodes= %.0f, nps= %.0f",
        static_cast<double>(total_time), static_cast<double>(total_nodes),
        static_cast<double>(total_nodes / total_time));
    print_line(text);
    if (summary) print_bench_summary(exact_nodes, total_time);
    // 5. Done: quit
    settings.quit = 1;
}
