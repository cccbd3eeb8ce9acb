// The search's use of the tables: the node probe's refusals and depth
// thresholds, the root's choice by DTZ, and the fifty-move rule.
#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <string>
#include <vector>

#include "frontend/options.h"
#include "tablebase/tb_probe.h"
#include "test_support.h"

namespace {

struct TbSearchTest : testing::Test {
    // The path goes into the settings too: a search that finds a rescan
    // pending (an option set during an earlier search) rescans the
    // settings' path, and must find the same tables.
    static void SetUpTestSuite() {
        std::snprintf(settings.syzygy_path, sizeof settings.syzygy_path, "%s",
                      tb_test_path().c_str());
        testing::internal::CaptureStdout();
        tb_init();
        testing::internal::GetCapturedStdout();
    }
    static void TearDownTestSuite() {
        settings.syzygy_path[0] = 0;
        tb_init();
    }
};

TEST_F(TbSearchTest, CastlingRightNeverProbes) {
    Position &pos = test_position("r3k3/8/8/8/8/8/8/4K3 b q - 0 1");
    EXPECT_EQ(tb_probe_search(pos, 100), -1);
    int wdl, dtz;
    u16 move;
    EXPECT_EQ(tb_probe_root(pos, &wdl, &dtz, &move), -1);
    Position &same = test_position("r3k3/8/8/8/8/8/8/4K3 b - - 0 1");
    EXPECT_EQ(tb_probe_search(same, 100), 4);
}

TEST_F(TbSearchTest, MoreMenThanTheLargestTableFailsBeforeTheThreshold) {
    settings.tb_probe_depth6 = -5;
    settings.tb_probe_depth7 = -2;
    Position &pos = test_position("8/8/8/3q4/8/2k5/2P5/KQQ5 w - - 0 1");
    EXPECT_EQ(tb_probe_search(pos, 100), -1);
    settings.tb_probe_depth6 = 1;
    settings.tb_probe_depth7 = 4;
}

TEST_F(TbSearchTest, DepthBelowTheThresholdDoesNotProbe) {
    Position &pos = test_position("8/8/8/8/8/2k5/8/K6Q w - - 0 1");
    EXPECT_EQ(tb_probe_search(pos, -1), -1);
    EXPECT_EQ(tb_probe_search(pos, 0), 4);
    settings.tb_probe_depth_low = 3;
    EXPECT_EQ(tb_probe_search(pos, 2), -1);
    settings.tb_probe_depth_low = 0;
}

TEST_F(TbSearchTest, MateOrStalemateAtTheRootHasNoMove) {
    int wdl, dtz;
    u16 move;
    Position &mate = test_position("7k/6Q1/6K1/8/8/8/8/8 b - - 0 1");
    EXPECT_EQ(tb_probe_root(mate, &wdl, &dtz, &move), -1);
    Position &stalemate = test_position("7k/5Q2/6K1/8/8/8/8/8 b - - 0 1");
    EXPECT_EQ(tb_probe_root(stalemate, &wdl, &dtz, &move), -1);
}

// The position's own counter, as a game brings it: FEN counters are not
// read into the board.
Position &with_clock(const char *fen, int cnt50) {
    Position &pos = test_position(fen);
    pos.cnt50 = static_cast<u8>(cnt50);
    return pos;
}

// KQvK won in 11 plies; KBNvK lost in 65.
TEST_F(TbSearchTest, FiftyMoveClockMakesCursedWinsAndBlessedLosses) {
    const char *win = "8/8/8/8/8/2k5/8/K6Q w - - 0 1";
    int wdl = 0, dtz = 0;
    u16 move = 0;
    EXPECT_EQ(tb_probe_root(with_clock(win, 0), &wdl, &dtz, &move), 4);
    EXPECT_EQ(dtz, 11);
    EXPECT_EQ(tb_probe_root(with_clock(win, 89), &wdl, &dtz, &move), 4);
    EXPECT_EQ(tb_probe_root(with_clock(win, 95), &wdl, &dtz, &move), 3);
    EXPECT_EQ(wdl, 3);
    EXPECT_EQ(dtz, 11);
    const char *loss = "8/8/8/6B1/8/8/4k3/1K5N b - - 0 1";
    EXPECT_EQ(tb_probe_root(with_clock(loss, 0), &wdl, &dtz, &move), 0);
    EXPECT_EQ(dtz, 65);
    EXPECT_EQ(tb_probe_root(with_clock(loss, 36), &wdl, &dtz, &move), 1);
    EXPECT_EQ(tb_probe_root(with_clock(loss, 35), &wdl, &dtz, &move), 0);
}

TEST_F(TbSearchTest, LosingRootKeepsTheLongestResistance) {
    // Black to move loses: the move chosen has the lowest score, so the
    // winner's answer is as far from zeroing as the table allows.
    Position &pos = test_position("8/8/2k5/1r6/8/8/8/2KQ4 b - - 0 1");
    int wdl = 0, dtz = 0;
    u16 move = 0;
    EXPECT_EQ(tb_probe_root(pos, &wdl, &dtz, &move), 0);
    EXPECT_GT(dtz, 50);
    EXPECT_TRUE(legal_move(pos, pos.side, move));
}

// The move the root picks keeps the win and brings the next capture or
// mate nearer.
TEST_F(TbSearchTest, WonRootMovesKeepTheWinAndProgress) {
    std::ifstream in(data_path("tb_oracle.txt"));
    std::string line;
    int checked = 0;
    while (std::getline(in, line) && checked < 300) {
        if (line[0] == '#') continue;
        size_t a = line.find(';');
        std::string fen = line.substr(0, a);
        if (std::atoi(line.c_str() + a + 1) != 2) continue;
        if (in_big_tb_family(fen) && big_tb_dir().empty()) continue;
        Position &pos = test_position(fen.c_str());
        int wdl = 0, dtz = 0;
        u16 move = 0;
        ASSERT_EQ(tb_probe_root(pos, &wdl, &dtz, &move), 4) << fen;
        ASSERT_TRUE(legal_move(pos, pos.side, move)) << fen;
        TbPosition before = tb_position_from(pos, 0);
        TbMove tm = static_cast<TbMove>(move_to(move) | (move_from(move) << 6));
        bool zeroing = tb_is_capture(before, tm) || tb_is_pawn_move(before, tm);
        make_move(pos, move);
        TbPosition after = tb_position_from(pos, zeroing ? 0 : 1);
        int success = 0;
        EXPECT_EQ(tb_probe_wdl(after, &success), -2) << fen;
        if (!zeroing && !tb_is_mate(after)) {
            int next = tb_probe_dtz(after, &success);
            EXPECT_LT(-next, dtz) << fen;
        }
        unmake_move(pos);
        checked++;
    }
    EXPECT_EQ(checked, 300);
}

TEST_F(TbSearchTest, EnPassantRightPassesIntoTheProbe) {
    // Only the capture en passant saves black here.
    const char *with = "8/8/8/8/3pP3/8/8/k1K5 b - e3 0 1";
    const char *without = "8/8/8/8/3pP3/8/8/k1K5 b - - 0 1";
    int a = tb_probe_search(test_position(with), 10);
    int b = tb_probe_search(test_position(without), 10);
    EXPECT_NE(a, -1);
    EXPECT_NE(b, -1);
    int s = 0;
    TbPosition t = tb_position_from(test_position(with), 0);
    EXPECT_EQ(a, tb_probe_wdl(t, &s) + 2);
    EXPECT_EQ(t.ep, 20);
}

TEST_F(TbSearchTest, FreshClockSearchesAndShowsTheWin) {
    // With a fresh clock the search runs; the root's class stands beside
    // it for the reports.
    SearchOutcome out = run_search("8/8/8/8/8/2k5/8/K6R w - - 0 1", 6);
    EXPECT_NE(out.best_depth, 99);
    EXPECT_EQ(status.tb_result, 4);
    EXPECT_EQ(status.tb_score[WHITE], TB_WIN_VALUE);
    run_search("8/8/8/8/8/2k5/8/K6R b - - 0 1", 6);
    EXPECT_EQ(status.tb_result, 0);
    EXPECT_EQ(status.tb_score[BLACK], TB_LOSS_VALUE);
}

}  // namespace
