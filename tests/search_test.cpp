// Whole searches: mate scores, the answers without a search, stable node
// counts, several threads, node limits.
#include <gtest/gtest.h>

#include "test_support.h"

TEST(Search, MateInOneScoresMateAtPlyTwo) {
    // Ra8 mates at once: the mate stands at ply 2, score 10000 - 2.
    SearchOutcome r = run_search("6k1/5ppp/8/8/8/8/8/R5K1 w - - 0 1", 4);
    EXPECT_EQ(r.best_move, coord_move("a1a8"));
    EXPECT_EQ(r.score, 9998);
}
