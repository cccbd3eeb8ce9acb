// perft through the staged move picker, in process: whatever order the
// ordering tables impose, every legal move is counted exactly once.
#include <gtest/gtest.h>

#include <cstdio>
#include <cstring>
#include <map>
#include <random>
#include <string>
#include <vector>

#include "search/move_picker.h"
#include "test_support.h"

namespace {

// Fills history, killers, counters and follow-ups with noise, so that the
// picker's order differs from a fresh Worker's at every level.
void scramble_ordering(Worker *w, unsigned seed) {
    std::mt19937 rng(seed);
    for (auto &row : w->history)
        for (i16 &h : row) h = static_cast<i16>(rng() % 16385);
    auto some_move = [&rng] { return make_move_code(rng() % 64, rng() % 64); };
    for (int piece = 0; piece < 16; piece++)
        for (int sq = 0; sq < 64; sq++) {
            w->counter_move[piece][sq] = some_move();
            w->counter_move2[piece][sq] = some_move();
            w->followup_move[piece][sq] = some_move();
        }
    for (PlyRecord &r : w->plies) {
        r.killer[0] = some_move();
        r.killer[1] = some_move();
        r.evasion_killer = some_move();
    }
}

void clear_ordering(Worker *w) {
    std::memset(w->history, 0, sizeof w->history);
    std::memset(w->counter_move, 0, sizeof w->counter_move);
    std::memset(w->counter_move2, 0, sizeof w->counter_move2);
    std::memset(w->followup_move, 0, sizeof w->followup_move);
    for (PlyRecord &r : w->plies) {
        r.killer[0] = r.killer[1] = 0;
        r.evasion_killer = 0;
    }
}

u64 count(Worker *w, int depth) {
    u64 before = w->node_count;
    perft(w, w->position.side, w->ply, depth);
    return w->node_count - before;
}

struct PerftPickerTest : testing::Test {
    void TearDown() override {
        clear_ordering(front_worker);
        reset_move_lists(front_worker);
        for (Worker *&w : workers) {
            free_worker(w);
            w = nullptr;
        }
        test_position(START_FEN);
    }
};

TEST_F(PerftPickerTest, StandardSuiteToDepth3WithScrambledOrdering) {
    std::vector<PerftLine> lines = load_perft_suite("perft_standard.epd");
    ASSERT_EQ(lines.size(), 138u);
    scramble_ordering(front_worker, 12345);
    for (size_t i = 0; i < lines.size(); i++)
        for (auto [depth, expected] : lines[i].counts) {
            if (depth > 3) break;
            test_position(lines[i].fen.c_str());
            EXPECT_EQ(count(front_worker, depth), expected)
                << "line " << i + 1 << " depth " << depth << ": "
                << lines[i].fen;
        }
}

TEST_F(PerftPickerTest, Chess960SuiteToDepth2OnASearchWorker) {
    std::vector<PerftLine> lines =
        load_perft_suite("perft_chess960_quillon.epd");
    ASSERT_EQ(lines.size(), 960u);
    for (size_t i = 0; i < lines.size(); i++) {
        test_position(lines[i].fen.c_str());
        ASSERT_EQ(init_worker(1), 0);
        Worker *w = workers[1];
        if (i % 2) scramble_ordering(w, static_cast<unsigned>(i));
        for (int depth = 1; depth <= 2; depth++)
            EXPECT_EQ(count(w, depth), lines[i].counts[depth])
                << "line " << i + 1 << " depth " << depth << ": "
                << lines[i].fen;
    }
}

TEST_F(PerftPickerTest, AddsToTheNodeCountAndRestoresThePosition) {
    Position &pos = test_position(
        "r3k2r/p1ppqpb1/bn2pnp1/3PN3/1p2P3/2N2Q1p/PPPBBPPP/R3K2R w KQkq - 0 "
        "1");
    Position before;
    std::memcpy(&before, &pos, sizeof pos);
    front_worker->node_count = 1000;
    perft(front_worker, pos.side, front_worker->ply, 2);
    EXPECT_EQ(front_worker->node_count, 1000u + 2039u);
    EXPECT_EQ(std::memcmp(&before, &pos, sizeof pos), 0);
    EXPECT_EQ(front_worker->hist_index, 0);
    EXPECT_EQ(front_worker->ply, 1);
    // The root record was prepared as the picker's caller must.
    EXPECT_EQ(front_worker->plies[1].pick_state & ~PICK_STAGE_MASK,
              PICK_ALL_MOVES);
    EXPECT_EQ(front_worker->plies[1].hash_move, NO_MOVE);
}

TEST_F(PerftPickerTest, InCheckRootCountsEvasionsOnly) {
    // Nd3 checks the king on e1; exd3, Kd1 and Kd2 answer it (Kxf2 and Kf1
    // walk into the knight and the rook).
    test_position("7k/P7/1P6/8/8/2NnB3/4Pr2/4K2R w K - 0 1");
    EXPECT_EQ(count(front_worker, 1), 3u);
    EXPECT_EQ(front_worker->plies[1].checker_sq, 19);
    EXPECT_EQ(front_worker->plies[1].in_check, 1);
}

TEST_F(PerftPickerTest, DeepPliesStayInsideTheRecords) {
    Position &pos = test_position(START_FEN);
    Worker *w = front_worker;
    // Deep in the records the counts still come right ...
    w->ply = 78;
    EXPECT_EQ(count(w, 2), 400u);
    // ... and beyond the last record a perft node counts nothing instead
    // of running past the array.
    w->ply = PLY_RECORDS - 2;
    EXPECT_EQ(count(w, 2), 0u);
    w->ply = 1;
    EXPECT_EQ(pos.history, w);
}

}  // namespace
