// Preparing a search thread's Worker from the game position.
#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>

#include "test_support.h"

namespace {

struct WorkerTest : testing::Test {
    void TearDown() override {
        for (Worker *&w : workers) {
            free_worker(w);
            w = nullptr;
        }
        settings.max_nodes = 0;
        test_position(START_FEN);
    }
};

// Plays coordinate moves on the front position through the generator, so
// that the undo stack holds a real game.
void play(const char *const *moves, int count) {
    Position &pos = front_worker->position;
    for (int i = 0; i < count; i++) {
        char text[16];
        std::strcpy(text, moves[i]);
        Move m = 0;
        ASSERT_EQ(parse_move(text, &m), 1) << moves[i];
        make_move(pos, m);
    }
}

TEST_F(WorkerTest, CopiesGamePositionAndHistory) {
    test_position(START_FEN);
    const char *moves[] = {"e2e4", "e7e5", "g1f3"};
    play(moves, 3);
    ASSERT_EQ(init_worker(3), 0);
    Worker *w = workers[3];
    ASSERT_NE(w, nullptr);
    EXPECT_EQ(w->thread_id, 3);
    EXPECT_EQ(w->position.history, w);
    Position copy = w->position;
    copy.history = front_worker;
    EXPECT_EQ(std::memcmp(&copy, &front_worker->position, sizeof copy), 0);
    EXPECT_EQ(w->hist_index, 3);
    EXPECT_EQ(w->ply, 1);
    EXPECT_EQ(w->last_move, front_worker->last_move);
    for (int i = 0; i < 3; i++)
        EXPECT_EQ(w->states[i].key, front_worker->states[i].key);
    // The record behind the game is cleared so repetition walks stop there.
    EXPECT_EQ(w->states[3].move, 0);
}

TEST_F(WorkerTest, NodeLimitFollowsSettings) {
    ASSERT_EQ(init_worker(0), 0);
    EXPECT_EQ(workers[0]->node_limit, 1000000000000000ULL);
    EXPECT_EQ(workers[0]->node_cap, UINT64_MAX);
    settings.max_nodes = 12345;
    ASSERT_EQ(init_worker(0), 0);
    EXPECT_EQ(workers[0]->node_limit, 12345u);
    EXPECT_EQ(workers[0]->node_cap, 12345u * 400);
}

// The hard cap of a node-limited search: 400 times the budget, never under
// 100,000 nodes, and a budget too large to multiply never caps at all.
TEST(RunawayCap, FourHundredTimesTheBudgetAtLeastAHundredThousand) {
    EXPECT_EQ(runaway_cap(1), 100000u);
    EXPECT_EQ(runaway_cap(250), 100000u);
    EXPECT_EQ(runaway_cap(251), 100400u);
    EXPECT_EQ(runaway_cap(5000), 2000000u);
    EXPECT_EQ(runaway_cap(UINT64_MAX / 400), UINT64_MAX / 400 * 400);
    EXPECT_EQ(runaway_cap(UINT64_MAX / 400 + 1), UINT64_MAX);
    EXPECT_EQ(runaway_cap(UINT64_MAX), UINT64_MAX);
}

TEST_F(WorkerTest, ListsOfRootAndAboveStartTerminated) {
    ASSERT_EQ(init_worker(1), 0);
    Worker *w = workers[1];
    EXPECT_EQ(w->plies[0].list_start, w->move_pool);
    EXPECT_EQ(w->plies[1].list_start, w->move_pool + 1);
    EXPECT_EQ(w->plies[0].current, w->plies[0].list_start);
    EXPECT_EQ(w->plies[1].current, w->plies[1].list_start);
    EXPECT_EQ(w->plies[0].list_start->move, END_OF_LIST);
    EXPECT_EQ(w->plies[1].list_start->move, END_OF_LIST);
    EXPECT_EQ(w->plies[0].node_type, 0);
    EXPECT_EQ(w->plies[1].node_type, 0);
}

TEST_F(WorkerTest, CountersClearedOnReuse) {
    ASSERT_EQ(init_worker(0), 0);
    Worker *w = workers[0];
    w->node_count = 99;
    w->best_score = 42;
    w->pv[1] = 0x1234;
    w->seldepth = 17;
    ASSERT_EQ(init_worker(0), 0);
    EXPECT_EQ(workers[0], w);  // the block is kept, not reallocated
    EXPECT_EQ(w->node_count, 0u);
    EXPECT_EQ(w->best_score, 0);
    EXPECT_EQ(w->pv[1], 0);
    EXPECT_EQ(w->seldepth, 0);
}

// A generated list at the deepest ply leaves no pointer past the records.
TEST_F(WorkerTest, DeepestPlyListStaysInsideThePool) {
    test_position(START_FEN);
    ASSERT_EQ(init_worker(0), 0);
    Worker *w = workers[0];
    w->ply = PLY_RECORDS - 1;
    w->plies[w->ply].list_start =
        w->move_pool + MOVE_POOL_SIZE - MAX_LIST_LENGTH;
    generate_all(w->position);
    int n = 0;
    for (MoveEntry *e = w->plies[w->ply].list_start; e->move != END_OF_LIST;
         e++)
        n++;
    EXPECT_EQ(n, 20);
}

}  // namespace
