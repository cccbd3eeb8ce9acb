// Whole searches: mate scores, the answers without a search, stable node
// counts, several threads, node limits.
#include <gtest/gtest.h>

#include "test_support.h"
#include "tools/bench.h"

TEST(Search, MateInOneScoresMateAtPlyTwo) {
    // Ra8 mates at once: the mate stands at ply 2, score 10000 - 2.
    SearchOutcome r = run_search("6k1/5ppp/8/8/8/8/8/R5K1 w - - 0 1", 4);
    EXPECT_EQ(r.best_move, coord_move("a1a8"));
    EXPECT_EQ(r.score, 9998);
}

// The benchmark positions searched twice from a fresh start give the same
// node count and move, position by position.
TEST(Search, BenchmarkPositionsGiveStableNodeCounts) {
    for (const char *fen : BENCH_POSITIONS) {
        SCOPED_TRACE(fen);
        SearchOutcome runs[2];
        for (SearchOutcome &r : runs) {
            // The evaluation cache of a kept Worker would carry over.
            free_worker(workers[0]);
            workers[0] = nullptr;
            r = run_search(fen, 5);
        }
        EXPECT_GT(runs[0].nodes, 0u);
        EXPECT_EQ(runs[0].nodes, runs[1].nodes);
        EXPECT_EQ(runs[0].best_move, runs[1].best_move);
        EXPECT_NE(runs[0].best_move, NO_MOVE);
    }
}

// A depth up to 50 stands; a deeper one, or none (80), means 17.
TEST(Search, BenchmarkDepthIs17UnlessSetUpTo50) {
    EngineSettings saved = settings;
    for (auto [given, used] : {std::pair{80, 17}, std::pair{51, 17},
                               std::pair{50, 50}, std::pair{10, 10}}) {
        settings.max_depth = static_cast<i8>(given);
        settings.noise = 0.0f;
        settings.level_time = 5.0f;
        set_bench_limits();
        EXPECT_EQ(settings.max_depth, used) << given;
        EXPECT_EQ(settings.noise, 9999.0f);
        EXPECT_EQ(settings.level_time, 99.0f);
    }
    settings = saved;
}
