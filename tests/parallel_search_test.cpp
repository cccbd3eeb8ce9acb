// Searches on several threads: every thread works on its own Worker and
// meets the others only in the hash table and the search status.  These
// tests also run in the ThreadSanitizer build.
#include <gtest/gtest.h>

#include <ctime>

#include "search/hash.h"
#include "search/time_control.h"
#include "test_support.h"
#include "tools/bench.h"

namespace {

bool is_legal(const char *fen, Move move) {
    Position &pos = test_position(fen);
    Move moves[MAX_MOVES];
    int n = legal_moves(pos, moves);
    for (int i = 0; i < n; i++)
        if (moves[i] == move) return true;
    return false;
}

const char *const MIDDLEGAME =
    "r1bqkb1r/pp1ppppp/2n2n2/8/3NP3/2N5/PPP2PPP/R1BQKB1R b KQkq - 0 1";

}  // namespace

TEST(ParallelSearch, FourThreadsFindALegalMoveAndFreeTheirHelpers) {
    SearchOutcome r = run_search(MIDDLEGAME, 7, 4);
    EXPECT_TRUE(is_legal(MIDDLEGAME, r.best_move));
    EXPECT_GE(r.best_depth, 7);
    // The helpers' blocks are gone once the search has ended; the main
    // thread's stays.
    EXPECT_NE(workers[0], nullptr);
    for (int slot = 1; slot < 4; slot++) EXPECT_EQ(workers[slot], nullptr);
    // All threads counted into the total.
    EXPECT_GT(r.nodes, r.main_nodes);
}

TEST(ParallelSearch, OneThreadStartsNoHelper) {
    SearchOutcome r = run_search(MIDDLEGAME, 5, 1);
    EXPECT_TRUE(is_legal(MIDDLEGAME, r.best_move));
    EXPECT_EQ(r.nodes, r.main_nodes);
}

TEST(ParallelSearch, AnEndlessSearchEndsOnStop) {
    settings.threads = 3;
    settings.max_depth = 80;
    settings.max_nodes = 0;
    settings.noise = 9999.0f;
    if (!hash_table) hash_allocate();
    hash_clear();
    test_position(MIDDLEGAME);
    prepare_search();
    store_depth(0);
    store_state(STATE_THINKING);
    store_stop(0);
    launch_search();
    sleep_milliseconds(300);
    store_stop(1);
    // The search thread joins its helpers and then reports its end.
    for (int waited = 0; !(load_state() & STATE_FINISHED) && waited < 10000;
         waited++)
        sleep_milliseconds(1);
    ASSERT_TRUE(load_state() & STATE_FINISHED);
    store_state(0);
    EXPECT_TRUE(is_legal(MIDDLEGAME, status.pv[1]));
    EXPECT_GE(status.best_depth, 2);
    for (int slot = 1; slot < 3; slot++) EXPECT_EQ(workers[slot], nullptr);
}

TEST(ParallelSearch, ANodeLimitStopsEveryThread) {
    // Each thread has the whole budget; the first past it (with an
    // iteration finished) stops them all.
    const u64 limit = 20000;
    SearchOutcome r = run_search(MIDDLEGAME, 60, 2, limit);
    EXPECT_TRUE(is_legal(MIDDLEGAME, r.best_move));
    EXPECT_LT(r.best_depth, 60);
    EXPECT_LE(r.nodes, 4 * limit);
}
