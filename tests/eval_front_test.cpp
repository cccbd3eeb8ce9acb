// The evaluation entry: endgame shortcuts, the cache, contempt, damping,
// and the solved king-and-pawn ending.
#include <gtest/gtest.h>

#include <cstdio>
#include <cstring>
#include <fstream>
#include <string>

#include "test_support.h"

namespace {

struct EvalFrontTest : testing::Test {
    void SetUp() override {
        std::memset(front_worker->eval_cache, 0,
                    sizeof front_worker->eval_cache);
        settings.contempt = 0;
        status.root_side = WHITE;
        store_state(0);
    }
    void TearDown() override {
        settings.contempt = 0;
        store_state(0);
        test_position(START_FEN);
    }
    static EvalCacheEntry &entry_of(const Position &pos) {
        return front_worker->eval_cache[(pos.key & 0x7FFE) + pos.side];
    }
    static i32 eval_at(const char *fen, int ply = 1) {
        Position &pos = test_position(fen);
        return evaluate(front_worker, pos.side, ply, 0);
    }
};

TEST_F(EvalFrontTest, InCheckReturnsMatedScoreWithoutEvaluating) {
    Position &pos = test_position("4k3/8/8/8/8/8/8/4KR1r w - - 0 1");
    u64 before = front_worker->eval_count;
    EXPECT_EQ(evaluate(front_worker, pos.side, 7, 1), 7 - 10000);
    EXPECT_EQ(front_worker->eval_count, before + 1);
    EXPECT_EQ(entry_of(pos).key, 0u);
}

// Minor against minor, two knights and bare kings cannot be won: no
// evaluator runs, so the cache entry stays untouched.
TEST_F(EvalFrontTest, InsufficientMaterialIsZeroWithoutEvaluator) {
    const char *fens[] = {"4k3/8/3n4/8/8/3B4/8/4K3 w - - 0 1",
                          "4k3/8/8/8/8/8/8/2N1KN2 b - - 0 1",
                          "4k3/8/8/8/8/8/8/4K3 w - - 0 1"};
    for (const char *fen : fens) {
        EXPECT_EQ(eval_at(fen), 0) << fen;
        EXPECT_EQ(entry_of(front_worker->position).key, 0u) << fen;
    }
}

TEST_F(EvalFrontTest, TwoBishopsGoOnToTheEvaluator) {
    Position &pos = test_position("4k3/8/8/8/8/8/8/2B1KB2 w - - 0 1");
    i32 score = evaluate(front_worker, pos.side, 1, 0);
    EXPECT_EQ(entry_of(pos).key, pos.key);
    EXPECT_EQ(score, hand_evaluate(front_worker));
}

TEST_F(EvalFrontTest, PlyOneWritesTheCacheButNeverReadsIt) {
    Position &pos = test_position(
        "r1bqkbnr/pppp1ppp/2n5/4p3/4P3/5N2/PPPP1PPP/RNBQKB1R w KQkq - 0 1");
    u64 hits = front_worker->eval_hit_count;
    evaluate(front_worker, pos.side, 1, 0);
    evaluate(front_worker, pos.side, 1, 0);
    EXPECT_EQ(front_worker->eval_hit_count, hits);
    EXPECT_EQ(entry_of(pos).key, pos.key);
    evaluate(front_worker, pos.side, 2, 0);
    EXPECT_EQ(front_worker->eval_hit_count, hits + 1);
}

// A fresh score is damped by the fifty-move counter; the cached copy of
// the same position comes back undamped.
TEST_F(EvalFrontTest, CachedValueSkipsDamping) {
    Position &pos = test_position(
        "r1bqkbnr/pppp1ppp/2n5/4p3/4P3/5N2/PPPP1PPP/RNBQKB1R w KQkq - 0 1");
    pos.cnt50 = 128;
    i32 first = evaluate(front_worker, pos.side, 3, 0);
    i32 second = evaluate(front_worker, pos.side, 3, 0);
    EXPECT_EQ(second, hand_evaluate(front_worker));
    EXPECT_EQ(first, ((256 - 128) * second) / 256);
    EXPECT_NE(first, second);
}

TEST_F(EvalFrontTest, KeepsTheSideToMovesView) {
    const char *fens[] = {
        "r1bqkb1r/pppp1ppp/2n2n2/4p3/2B1P3/5N2/PPPP1PPP/RNBQK2R w KQkq - 0 1",
        "r1bqkb1r/pppp1ppp/2n2n2/4p3/2B1P3/5N2/PPPP1PPP/RNBQK2R b KQkq - 0 1"};
    for (const char *fen : fens) {
        Position &pos = test_position(fen);
        EXPECT_EQ(evaluate(front_worker, pos.side, 1, 0),
                  hand_evaluate(front_worker))
            << fen;
    }
}

// In the start position the phase is 82: contempt is the option plus 15,
// added for the side that was to move at the root, taken off the other.
TEST_F(EvalFrontTest, ContemptAfterTheOpeningMoves) {
    settings.contempt = 20;
    Position &pos = test_position(START_FEN);
    i32 plain = hand_evaluate(front_worker);
    i16 saved = front_worker->hist_index;
    front_worker->hist_index = 5;
    status.root_side = WHITE;
    EXPECT_EQ(evaluate(front_worker, pos.side, 1, 0), plain + 35);
    status.root_side = BLACK;
    EXPECT_EQ(evaluate(front_worker, pos.side, 1, 0), plain - 35);
    // None in a benchmark or calibration run.
    store_state(STATE_BENCH);
    EXPECT_EQ(evaluate(front_worker, pos.side, 1, 0), plain);
    store_state(0);
    // None in the first moves of a game.
    front_worker->hist_index = 4;
    EXPECT_EQ(evaluate(front_worker, pos.side, 1, 0), plain);
    front_worker->hist_index = saved;
}

TEST_F(EvalFrontTest, ContemptFallsWithMaterial) {
    settings.contempt = 0;
    // Kings and one pawn each: pieces count as 6, pawns 2, phase 4; the
    // base part is 15 * (4 - 41) / 41 = -13.
    Position &pos = test_position("4k3/4p3/8/8/8/8/4P3/4K3 w - - 0 1");
    i32 plain = hand_evaluate(front_worker);
    i16 saved = front_worker->hist_index;
    front_worker->hist_index = 6;
    EXPECT_EQ(evaluate(front_worker, pos.side, 1, 0), plain - 13);
    front_worker->hist_index = saved;
}

TEST_F(EvalFrontTest, BishopAndKnightDriveToTheBishopsCorner) {
    // Dark bishop on a1: a8 is a light corner, 2 steps from a dark one.
    // 2 * 16 + ring 1 * 8 + 880 - 8 * distance 2 = 904.
    EXPECT_EQ(eval_at("k7/8/1K6/8/8/8/8/B1N5 w - - 0 1"), 904);
    EXPECT_EQ(eval_at("k7/8/1K6/8/8/8/8/B1N5 b - - 0 1"), -904);
    // Light bishop on b1: a8 is its corner, distance value 9.
    EXPECT_EQ(eval_at("k7/8/1K6/8/8/8/8/1BN5 w - - 0 1"),
              9 * 16 + 8 + 880 - 16);
}

TEST_F(EvalFrontTest, MajorPieceAgainstBareKing) {
    // 125 * 5 for the rook, plus (EDGE c1 40 - 4 * 2) * 4 + 500.
    EXPECT_EQ(eval_at("8/8/8/8/8/8/8/K1k4R w - - 0 1"), 625 + 628);
    EXPECT_EQ(eval_at("8/8/8/8/8/8/8/K1k4R b - - 0 1"), -(625 + 628));
    // The same for black's queen: 125 * 10 + (EDGE a8 60 - 4 * 7) * 4 + 500.
    EXPECT_EQ(eval_at("K7/8/8/8/8/8/8/q6k b - - 0 1"), 1250 + 628);
}

TEST_F(EvalFrontTest, NoKingSkipsTheEndgameTables) {
    // One king missing: the table readers would need it, so the position
    // goes on to the evaluator and nothing reads off the board.
    Position &pos = test_position("8/8/8/8/8/8/4P3/4K3 w - - 0 1");
    evaluate(front_worker, pos.side, 1, 0);
    EXPECT_EQ(entry_of(pos).key, pos.key);
}

i32 kp_entry(int stm, int pawn, int wk, int bk) {
    return kp_table[(stm << 17) + (((pawn & 7) + (pawn >> 3) * 4) << 12) +
                    (wk << 6) + bk];
}

TEST(KpTable, KnownWinDrawAndIllegal) {
    // Kd6, d5 against Kd8, White to move: won.
    EXPECT_EQ(kp_entry(0, 35, 43, 59), 2);
    // Rook pawn: Ka6, a5 against Ka8 is a draw.
    EXPECT_EQ(kp_entry(0, 32, 40, 56), 1);
    // A king on the pawn's square is impossible and reads as a draw.
    EXPECT_EQ(kp_entry(0, 35, 35, 59), 1);
    EXPECT_EQ(kp_entry(1, 35, 43, 44), 1);  // kings side by side
    // After the closing pass every used entry is 1 or 2.
    for (int stm = 0; stm < 2; stm++)
        for (int pawn = 8; pawn < 56; pawn++)
            if ((pawn & 7) < 4)
                for (int wk = 0; wk < 64; wk++)
                    for (int bk = 0; bk < 64; bk++) {
                        int v = kp_entry(stm, pawn, wk, bk);
                        ASSERT_TRUE(v == 1 || v == 2);
                    }
}

// Random king-and-pawn endings against the 3-man Syzygy tables: the
// evaluation adds 800 exactly where the pawn's side wins.
TEST(KpTable, AgreesWithTablebaseOracle) {
    std::ifstream in(data_path("kpk_oracle.txt"));
    ASSERT_TRUE(in.good());
    std::string line;
    int checked = 0;
    while (std::getline(in, line)) {
        if (line.empty() || line[0] == '#') continue;
        size_t cut = line.find(';');
        std::string fen = line.substr(0, cut);
        int result = std::stoi(line.substr(cut + 1));
        Position &pos = test_position(fen.c_str());
        int pawn_side = pos.material_sig[WHITE] == 1 ? WHITE : BLACK;
        i32 score = evaluate(front_worker, pos.side, 1, 0);
        i32 for_pawn_side = pos.side == pawn_side ? score : -score;
        EXPECT_EQ(for_pawn_side > 400, result == 2) << fen;
        checked++;
    }
    EXPECT_GE(checked, 300);
}

}  // namespace
