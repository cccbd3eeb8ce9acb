// The root of the search and what surrounds it: the answers that need no
// search, the depth loop's limits, the first aspiration window, MultiPV
// lines, the info lines and their score texts, the noise delay, the search
// threads with their node budget, and the time plan and time check.
#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "core/relaxed.h"
#include "frontend/protocol.h"
#include "search/hash.h"
#include "search/strength.h"
#include "search/time_control.h"
#include "test_support.h"
#include "tools/bench.h"

namespace {

// White is mated (1.f3 e5 2.g4 Qh4#).
const char *const MATED_FEN =
    "rnb1kbnr/pppp1ppp/8/4p3/6Pq/5P2/PPPPP2P/RNBQKBNR w KQkq - 1 3";
// Black to move has no move and is not in check.
const char *const STALEMATE_FEN = "7k/5Q2/6K1/8/8/8/8/8 b - - 0 1";
// The knight on c2 checks the king on a1, which can only go to b1.
const char *const ONE_REPLY_FEN = "6k1/5ppp/8/8/8/8/PPn2PPP/K6R w - - 0 1";
// As above with b2 free: Kb1 and Kb2.
const char *const TWO_REPLIES_FEN = "6k1/5ppp/8/8/8/8/P1n2PPP/K6R w - - 0 1";
// exd5 wins a loose queen.
const char *const LOOSE_QUEEN_FEN = "4k3/8/8/3q4/4P3/8/8/4K3 w - - 0 1";
// The queen on e2 checks; Kxe2 is the answer.
const char *const QUEEN_CHECK_FEN = "4k3/8/8/8/8/8/4q3/4K3 w - - 0 1";
// A quiet middlegame with many moves.
const char *const MIDDLE_FEN =
    "r1bq1rk1/pp2bppp/2n1pn2/3p4/2PP4/2N1PN2/PP2BPPP/R2QKB1R w KQ - 0 8";

constexpr u16 SENTINEL = 0x0ABC;

bool is_legal(const char *fen, Move m) {
    Position &pos = test_position(fen);
    Move list[MAX_MOVES];
    int n = legal_moves(pos, list);
    for (int i = 0; i < n; i++)
        if (list[i] == m) return true;
    return false;
}

int legal_count(const char *fen) {
    Position &pos = test_position(fen);
    Move list[MAX_MOVES];
    return legal_moves(pos, list);
}

struct RootSearchTest : testing::Test {
    EngineSettings saved_settings{};

    void SetUp() override {
        saved_settings = settings;
        if (!hash_table) hash_allocate();
    }

    void TearDown() override {
        settings = saved_settings;
        store_state(0);
        store_stop(0);
        store_depth(0);
        status.tb_result = -1;
        status.single_reply = 0;
        status.elapsed = 0.0f;
        front_worker->hist_index = 0;
        test_position(START_FEN);
    }

    // The settings run_search uses, for searches driven by the test itself.
    static void search_settings(int depth, int threads) {
        settings.calib_nps = 1000000.0f;
        settings.calib_elo = elo_of_speed(settings.calib_nps);
        settings.limit_strength = 0;
        settings.level_moves = 1;
        settings.level_time = 99.0f;
        settings.max_depth = static_cast<i8>(depth);
        settings.max_nodes = 0;
        settings.threads = static_cast<i16>(threads);
    }
};

// ---------------------------------------------------------------------
// Answers without a search.

TEST_F(RootSearchTest, MateOnTheBoardAnswersAtDepthOneWithoutAMove) {
    ASSERT_EQ(legal_count(MATED_FEN), 0);
    SearchOutcome r = run_search(MATED_FEN, 10);
    EXPECT_EQ(r.best_depth, 1);
    EXPECT_EQ(r.score, -9999);
    EXPECT_EQ(r.best_move, NO_MOVE);
    EXPECT_EQ(status.pv[1], NO_MOVE);
    // No iteration ran: the depth was never raised and no node was summed.
    EXPECT_EQ(load_depth(), 0);
    EXPECT_EQ(status.finished_depth, 0);
    for (int d = 0; d < PV_LENGTH; d++) EXPECT_EQ(status.nodes_at[d], 0u) << d;
}

TEST_F(RootSearchTest, StalemateOnTheBoardAnswersZeroAtDepthOne) {
    ASSERT_EQ(legal_count(STALEMATE_FEN), 0);
    SearchOutcome r = run_search(STALEMATE_FEN, 10);
    EXPECT_EQ(r.best_depth, 1);
    EXPECT_EQ(r.score, 0);
    EXPECT_EQ(r.best_move, NO_MOVE);
    EXPECT_EQ(load_depth(), 0);
    EXPECT_EQ(status.finished_depth, 0);
}

TEST_F(RootSearchTest, DepthZeroPublishesTheQuiescenceLine) {
    // Leftovers behind the best move show whether the line was copied whole.
    status.pv[2] = SENTINEL;
    status.pv[3] = SENTINEL;
    SearchOutcome r = run_search(LOOSE_QUEEN_FEN, 0);
    EXPECT_EQ(r.best_move, coord_move("e4d5"));
    ASSERT_NE(workers[0], nullptr);
    EXPECT_EQ(std::memcmp(status.pv, workers[0]->pv, sizeof status.pv), 0);
    EXPECT_NE(status.pv[2], SENTINEL);
    // Winning the queen lifts the capture search far above the static view.
    EXPECT_GT(status.last_eval, status.root_eval + 500);
    // No iteration ran.
    EXPECT_EQ(load_depth(), 0);
    EXPECT_EQ(status.best_depth, 0);
    EXPECT_EQ(status.finished_depth, 0);
    for (int d = 0; d < PV_LENGTH; d++) EXPECT_EQ(status.nodes_at[d], 0u) << d;
}

TEST_F(RootSearchTest, DepthZeroInCheckCopiesNoLine) {
    status.pv[2] = SENTINEL;
    status.pv[3] = SENTINEL;
    SearchOutcome r = run_search(QUEEN_CHECK_FEN, 0);
    EXPECT_EQ(r.best_move, NO_MOVE);
    EXPECT_EQ(status.pv[2], SENTINEL);
    EXPECT_EQ(status.pv[3], SENTINEL);
    EXPECT_EQ(load_depth(), 0);
    EXPECT_EQ(status.finished_depth, 0);
    // In check the root stands at the mated value, and no capture search
    // replaces it.
    EXPECT_EQ(status.root_eval, -9999);
    EXPECT_EQ(status.last_eval, status.root_eval);
}

// ---------------------------------------------------------------------
// One legal move.

TEST_F(RootSearchTest, SingleReplyIsMarkedAndTheTimeCheckEndsItAtDepthSix) {
    ASSERT_EQ(legal_count(ONE_REPLY_FEN), 1);
    // Depth 40 and 99 seconds: only the single-reply rule can end this
    // search soon.
    SearchOutcome r = run_search(ONE_REPLY_FEN, 40);
    EXPECT_EQ(status.single_reply, 1);
    EXPECT_EQ(r.best_move, coord_move("a1b1"));
    // The check polls once a millisecond, so an iteration or two past 6 may
    // start before it sees the depth; depth 40 is far beyond.
    EXPECT_GE(load_depth(), 6);
    EXPECT_LE(load_depth(), 12);
    EXPECT_GE(status.finished_depth, 5);
    EXPECT_LE(status.finished_depth, 12);
    EXPECT_LT(status.elapsed, 20.0f);
}

TEST_F(RootSearchTest, TwoRepliesAreNoSingleReply) {
    ASSERT_EQ(legal_count(TWO_REPLIES_FEN), 2);
    run_search(TWO_REPLIES_FEN, 3);
    EXPECT_EQ(status.single_reply, 0);
    EXPECT_EQ(status.finished_depth, 3);
}

// ---------------------------------------------------------------------
// MultiPV.

TEST_F(RootSearchTest, MultiPvThreeWithTwoMovesFillsTwoLines) {
    ASSERT_EQ(legal_count(TWO_REPLIES_FEN), 2);
    settings.multi_pv = 3;
    status.multipv_move[0] = status.multipv_move[1] = 0;
    status.multipv_move[2] = SENTINEL;
    status.multipv_score[2] = 4321;
    SearchOutcome r = run_search(TWO_REPLIES_FEN, 4);
    Move b1 = coord_move("a1b1"), b2 = coord_move("a1b2");
    EXPECT_TRUE(status.multipv_move[0] == b1 || status.multipv_move[0] == b2);
    EXPECT_TRUE(status.multipv_move[1] == b1 || status.multipv_move[1] == b2);
    EXPECT_NE(status.multipv_move[0], status.multipv_move[1]);
    EXPECT_GE(status.multipv_score[0], status.multipv_score[1]);
    // The third line found the end of the list and was never searched.
    EXPECT_EQ(status.multipv_move[2], SENTINEL);
    EXPECT_EQ(status.multipv_score[2], 4321);
    // The iteration still counts as finished, to the last depth.
    EXPECT_EQ(status.finished_depth, 4);
    EXPECT_NE(r.best_move, NO_MOVE);
}

TEST_F(RootSearchTest, MultiPvPrintsOneLinePerExistingLine) {
    settings.multi_pv = 3;
    search_settings(3, 1);
    settings.uci_mode = 1;
    settings.noise = 0.0f;
    test_position(TWO_REPLIES_FEN);
    testing::internal::CaptureStdout();
    search_to_end();
    std::string out = testing::internal::GetCapturedStdout();
    EXPECT_NE(out.find("info multipv 1 depth 3 "), std::string::npos) << out;
    EXPECT_NE(out.find("info multipv 2 depth 3 "), std::string::npos) << out;
    EXPECT_EQ(out.find("multipv 3"), std::string::npos) << out;
}

// ---------------------------------------------------------------------
// The first aspiration window.

TEST_F(RootSearchTest, FirstWindowAtDepthOneIsWhole) {
    AspirationWindow w = first_window(50, 1);
    EXPECT_EQ(w.alpha, -10001);
    EXPECT_EQ(w.beta, 10001);
    w = first_window(9800, 1);
    EXPECT_EQ(w.alpha, -10001);
    EXPECT_EQ(w.beta, 10001);
}

TEST_F(RootSearchTest, FirstWindowAroundAnOrdinaryScore) {
    // delta = |s| / 16 + 25, and 10 more for each depth below 7.
    AspirationWindow w = first_window(100, 7);
    EXPECT_EQ(w.delta, 31);
    EXPECT_EQ(w.alpha, 69);
    EXPECT_EQ(w.beta, 131);
    w = first_window(100, 4);
    EXPECT_EQ(w.delta, 61);
    EXPECT_EQ(w.alpha, 39);
    EXPECT_EQ(w.beta, 161);
    w = first_window(-100, 12);
    EXPECT_EQ(w.delta, 31);
    EXPECT_EQ(w.alpha, -131);
    EXPECT_EQ(w.beta, -69);
    w = first_window(0, 2);
    EXPECT_EQ(w.delta, 75);
    EXPECT_EQ(w.alpha, -75);
    EXPECT_EQ(w.beta, 75);
}

TEST_F(RootSearchTest, FirstWindowNearAProvenWinOpensUpwards) {
    // delta 637 would give 9163 .. 10437; the window opens from 9000.
    AspirationWindow w = first_window(9800, 7);
    EXPECT_EQ(w.delta, 637);
    EXPECT_EQ(w.alpha, 9000);
    EXPECT_EQ(w.beta, 10001);
}

TEST_F(RootSearchTest, FirstWindowNearAProvenLossOpensDownwards) {
    AspirationWindow w = first_window(-9800, 7);
    EXPECT_EQ(w.delta, 637);
    EXPECT_EQ(w.alpha, -10001);
    EXPECT_EQ(w.beta, -9000);
}

TEST_F(RootSearchTest, FirstWindowBelowTheProvenRangeIsOnlyClipped) {
    // 9500 - 618 = 8882 stays an ordinary bound; the upper one is cut.
    AspirationWindow w = first_window(9500, 7);
    EXPECT_EQ(w.alpha, 8882);
    EXPECT_EQ(w.beta, 10001);
    w = first_window(-9500, 7);
    EXPECT_EQ(w.alpha, -10001);
    EXPECT_EQ(w.beta, -8882);
}

// ---------------------------------------------------------------------
// The info line and the console line.

struct SearchLineTest : RootSearchTest {
    u16 line[PV_LENGTH]{};

    void SetUp() override {
        RootSearchTest::SetUp();
        test_position(START_FEN);
        // With no search bit the counters are left as set here.
        store_state(0);
        store_stop(0);
        settings.multi_pv = 1;
        status.tb_result = -1;
        status.elapsed = 0.0f;
        status.nodes = 1234;
        status.tb_hits = 0;
        status.seldepth = 8;
        line[1] = coord_move("e2e4");
        line[2] = coord_move("e7e5");
        line[3] = NO_MOVE;
    }

    std::string print(int thread, int number, int depth, int score) {
        testing::internal::CaptureStdout();
        print_search_line(thread, number, depth, score, line);
        return testing::internal::GetCapturedStdout();
    }

    std::string uci_score(int score) {
        settings.uci_mode = 1;
        std::string out = print(0, 0, 5, score);
        size_t at = out.find(" score ");
        size_t end = out.find(" time ");
        if (at == std::string::npos || end == std::string::npos) return out;
        return out.substr(at + 7, end - at - 7);
    }
};

TEST_F(SearchLineTest, UciLineInFull) {
    settings.uci_mode = 1;
    EXPECT_EQ(print(0, 0, 5, 35),
              "info depth 5 seldepth 7 score cp 35 time 0 nodes 1234 nps 0 "
              "tbhits 0 hashfull 0 pv e2e4 e7e5\n");
}

TEST_F(SearchLineTest, UciLineWithTimeAndSpeed) {
    settings.uci_mode = 1;
    status.elapsed = 2.0f;
    status.nodes = 5000;
    status.tb_hits = 7;
    EXPECT_EQ(print(0, 0, 3, -12),
              "info depth 3 seldepth 7 score cp -12 time 2000 nodes 5000 "
              "nps 2500 tbhits 7 hashfull 0 pv e2e4 e7e5\n");
}

TEST_F(SearchLineTest, UciLineNamesItsMultiPvLine) {
    settings.uci_mode = 1;
    settings.multi_pv = 2;
    std::string out = print(0, 2, 4, 10);
    EXPECT_EQ(out.rfind("info multipv 2 depth 4 seldepth 7 score cp 10 ", 0),
              0u)
        << out;
}

TEST_F(SearchLineTest, MateScoresInMoves) {
    EXPECT_EQ(uci_score(9998), "mate 1");
    EXPECT_EQ(uci_score(9996), "mate 2");
    EXPECT_EQ(uci_score(9995), "mate 2");
    EXPECT_EQ(uci_score(9900), "mate 50");
    EXPECT_EQ(uci_score(-9999), "mate -1");
    EXPECT_EQ(uci_score(-9997), "mate -2");
    EXPECT_EQ(uci_score(-9998), "mate -1");
    EXPECT_EQ(uci_score(-9901), "mate -50");
}

TEST_F(SearchLineTest, ScoresAtTheMateBoundsStayCentipawns) {
    EXPECT_EQ(uci_score(9899), "cp 9899");
    EXPECT_EQ(uci_score(-9900), "cp -9900");
    EXPECT_EQ(uci_score(-9899), "cp -9899");
    EXPECT_EQ(uci_score(0), "cp 0");
}

TEST_F(SearchLineTest, TablebaseWinShowsTheOutcome) {
    status.tb_result = 4;
    EXPECT_EQ(uci_score(120), "cp 9800");
    EXPECT_EQ(uci_score(-300), "cp 9800");
    // A real mate stands.
    EXPECT_EQ(uci_score(9990), "mate 5");
}

TEST_F(SearchLineTest, TablebaseDrawShowsZero) {
    status.tb_result = 2;
    EXPECT_EQ(uci_score(120), "cp 0");
    EXPECT_EQ(uci_score(-9950), "cp 0");
}

TEST_F(SearchLineTest, TablebaseLossKeepsARealMate) {
    status.tb_result = 0;
    EXPECT_EQ(uci_score(-9950), "mate -25");
    EXPECT_EQ(uci_score(120), "cp -9800");
    EXPECT_EQ(uci_score(-9899), "cp -9800");
}

TEST_F(SearchLineTest, CursedAndBlessedResultsLeaveTheScore) {
    status.tb_result = 1;
    EXPECT_EQ(uci_score(120), "cp 120");
    status.tb_result = 3;
    EXPECT_EQ(uci_score(-75), "cp -75");
}

TEST_F(SearchLineTest, ConsoleLine) {
    settings.uci_mode = 0;
    status.elapsed = 1.5f;
    status.nodes = 45678;
    EXPECT_EQ(print(0, 0, 5, 35), "00] 05    1.5      46K    35  e2e4 e7e5\n");
    // A helper's line carries its number.
    EXPECT_EQ(print(3, 0, 12, -7), "03] 12    1.5      46K    -7  e2e4 e7e5\n");
}

TEST_F(SearchLineTest, ConsoleMultiPvLinesAreMarkedAndTheLastEndsABlock) {
    settings.uci_mode = 0;
    settings.multi_pv = 2;
    EXPECT_EQ(print(0, 1, 5, 35), "00] 05.   0.0       1K    35  e2e4 e7e5\n");
    EXPECT_EQ(print(0, 2, 5, 20),
              "00] 05.   0.0       1K    20  e2e4 e7e5\n\n");
}

TEST_F(SearchLineTest, ConsoleCutsTheLineWhileTheSearchRuns) {
    settings.uci_mode = 0;
    const char *dance[] = {"g1f3", "g8f6", "f3g1", "f6g8", "g1f3",
                           "g8f6", "f3g1", "f6g8", "g1f3", "g8f6"};
    for (int i = 0; i < 10; i++) line[i + 1] = coord_move(dance[i]);
    line[11] = NO_MOVE;
    const std::string eight = "g1f3 g8f6 f3g1 f6g8 g1f3 g8f6 f3g1 f6g8";
    store_stop(0);
    std::string running = print(0, 0, 5, 0);
    EXPECT_EQ(running, "00] 05    0.0       1K     0  " + eight + "\n");
    store_stop(1);
    std::string ended = print(0, 0, 5, 0);
    EXPECT_EQ(ended, "00] 05    0.0       1K     0  " + eight + "\n" +
                         std::string(30, ' ') + "g1f3 g8f6\n");
}

TEST_F(SearchLineTest, CountersAreSummedOverTheThreadsDuringASearch) {
    settings.uci_mode = 1;
    if (!workers[0]) workers[0] = allocate_worker();
    ASSERT_EQ(workers[1], nullptr);
    workers[1] = allocate_worker();
    workers[0]->node_count = 1000;
    workers[0]->seldepth = 11;
    workers[0]->tb_hit_count = 2;
    workers[1]->node_count = 234;
    workers[1]->seldepth = 30;
    workers[1]->tb_hit_count = 3;
    settings.threads = 2;
    store_state(STATE_BENCH);
    std::string out = print(0, 0, 5, 35);
    // The selective depth is the main thread's.
    EXPECT_EQ(out,
              "info depth 5 seldepth 10 score cp 35 time 0 nodes 1234 nps 0 "
              "tbhits 5 hashfull 0 pv e2e4 e7e5\n");
    // Only the first `threads` slots count.
    settings.threads = 1;
    aggregate_counters();
    EXPECT_EQ(status.nodes, 1000u);
    // Outside a search nothing is summed.
    store_state(0);
    status.nodes = 77;
    aggregate_counters();
    EXPECT_EQ(status.nodes, 77u);
    workers[0]->node_count = 0;
    workers[0]->seldepth = 0;
    workers[0]->tb_hit_count = 0;
    free_worker(workers[1]);
    workers[1] = nullptr;
}

// ---------------------------------------------------------------------
// Publishing the best line, and the noise delay.

struct ReportTest : SearchLineTest {
    Worker *w = nullptr;

    void SetUp() override {
        SearchLineTest::SetUp();
        settings.uci_mode = 1;
        w = allocate_worker();
        ASSERT_NE(w, nullptr);
        w->thread_id = 0;
        w->best_depth = 5;
        w->best_score = 30;
        w->pv[1] = coord_move("e2e4");
        w->pv[2] = coord_move("e7e5");
        status.pv[1] = coord_move("d2d4");
        status.best_change_depth = 2;
        status.elapsed = 1.0f;
    }
    void TearDown() override {
        free_worker(w);
        SearchLineTest::TearDown();
    }
    std::string report() {
        testing::internal::CaptureStdout();
        report_best(w);
        return testing::internal::GetCapturedStdout();
    }
};

TEST_F(ReportTest, PublishesTheLine) {
    settings.noise = 9999.0f;
    EXPECT_EQ(report(), "");
    EXPECT_EQ(status.score, 30);
    EXPECT_EQ(status.best_depth, 5);
    EXPECT_EQ(status.pv[1], coord_move("e2e4"));
    EXPECT_EQ(status.pv[2], coord_move("e7e5"));
    EXPECT_EQ(status.score_at[5], 30);
    EXPECT_EQ(status.move_at[5], coord_move("e2e4"));
    // A new best move marks the depth of the change of mind.
    EXPECT_EQ(status.best_change_depth, 5);
    // The same move again at a later depth keeps the old mark.
    w->best_depth = 7;
    report();
    EXPECT_EQ(status.best_change_depth, 5);
}

TEST_F(ReportTest, InsideTheNoiseDelayNothingPrints) {
    settings.noise = 100.0f;
    store_stop(0);
    EXPECT_EQ(report(), "");
    EXPECT_EQ(status.pv[1], coord_move("e2e4"));
}

TEST_F(ReportTest, AStoppedSearchPrintsDespiteTheDelay) {
    settings.noise = 100.0f;
    store_stop(1);
    std::string out = report();
    EXPECT_EQ(out.rfind("info depth 5 seldepth 7 score cp 30 ", 0), 0u) << out;
}

TEST_F(ReportTest, PastTheDelayTheLinePrints) {
    settings.noise = 0.5f;
    store_stop(0);
    std::string out = report();
    EXPECT_EQ(out.rfind("info depth 5 ", 0), 0u) << out;
}

TEST_F(ReportTest, SilentNoiseNeverPrints) {
    settings.noise = 9999.0f;
    store_stop(1);
    EXPECT_EQ(report(), "");
}

TEST_F(ReportTest, DepthOneAndMultiPvPrintNothingHere) {
    settings.noise = 0.0f;
    store_stop(1);
    w->best_depth = 1;
    EXPECT_EQ(report(), "");
    w->best_depth = 5;
    settings.multi_pv = 2;
    EXPECT_EQ(report(), "");
    EXPECT_EQ(status.best_depth, 5);
}

TEST_F(ReportTest, AnEmptyLinePrintsNothing) {
    settings.noise = 0.0f;
    store_stop(1);
    w->pv[1] = NO_MOVE;
    EXPECT_EQ(report(), "");
}

TEST_F(RootSearchTest, SearchEndingInsideTheNoiseDelayPrintsNoLine) {
    search_settings(4, 1);
    settings.uci_mode = 1;
    settings.log = 0;
    settings.noise = 100.0f;
    test_position(MIDDLE_FEN);
    testing::internal::CaptureStdout();
    search_to_end();
    std::string quiet = testing::internal::GetCapturedStdout();
    EXPECT_EQ(quiet, "");
    EXPECT_EQ(status.finished_depth, 4);
    // The same search without the delay does talk.
    settings.noise = 0.0f;
    test_position(MIDDLE_FEN);
    testing::internal::CaptureStdout();
    search_to_end();
    std::string loud = testing::internal::GetCapturedStdout();
    EXPECT_NE(loud.find("info depth 4 "), std::string::npos) << loud;
}

// ---------------------------------------------------------------------
// Search threads.

// Runs a search as search_to_end does, counting the polls that saw a
// helper's Worker in place.
int helper_sightings(int threads, int depth, const char *fen) {
    test_position(fen);
    settings.max_depth = static_cast<i8>(depth);
    settings.threads = static_cast<i16>(threads);
    hash_clear();
    prepare_search();
    store_depth(0);
    store_state(STATE_BENCH);
    store_stop(0);
    launch_search();
    int seen = 0;
    while (!(load_state() & STATE_FINISHED)) {
        for (int slot = 1; slot < MAX_THREADS; slot++)
            if (relaxed_load(workers[slot])) {
                seen++;
                break;
            }
        check_time();
        sleep_milliseconds(1);
    }
    store_state(0);
    return seen;
}

TEST_F(RootSearchTest, OneThreadStartsNoHelper) {
    for (int slot = 1; slot < MAX_THREADS; slot++)
        ASSERT_EQ(workers[slot], nullptr) << slot;
    search_settings(8, 1);
    settings.noise = 9999.0f;
    EXPECT_EQ(helper_sightings(1, 8, MIDDLE_FEN), 0);
    for (int slot = 1; slot < MAX_THREADS; slot++)
        EXPECT_EQ(workers[slot], nullptr) << slot;
    EXPECT_EQ(status.finished_depth, 8);
}

TEST_F(RootSearchTest, HelpersHoldWorkersOnlyWhileTheSearchRuns) {
    search_settings(8, 3);
    settings.noise = 9999.0f;
    EXPECT_GT(helper_sightings(3, 8, MIDDLE_FEN), 0);
    // Joined and freed at the end.
    for (int slot = 1; slot < MAX_THREADS; slot++)
        EXPECT_EQ(workers[slot], nullptr) << slot;
}

TEST_F(RootSearchTest, AnyThreadCountGivesALegalMove) {
    for (int threads = 1; threads <= 8; threads++) {
        SearchOutcome r = run_search(MIDDLE_FEN, 5, threads);
        EXPECT_TRUE(is_legal(MIDDLE_FEN, r.best_move)) << threads;
        EXPECT_EQ(r.best_depth, 5) << threads;
        EXPECT_EQ(status.finished_depth, 5) << threads;
        EXPECT_GE(r.nodes, r.main_nodes) << threads;
        for (int slot = 1; slot < MAX_THREADS; slot++)
            EXPECT_EQ(workers[slot], nullptr) << threads << " " << slot;
    }
}

TEST_F(RootSearchTest, HelpersNeverSearchADepthOneAnswer) {
    // Helpers wait for depth 2; the mate on the board stops them first,
    // and the search still comes to its end.
    for (const char *fen : {MATED_FEN, STALEMATE_FEN}) {
        SearchOutcome r = run_search(fen, 10, 4);
        EXPECT_EQ(r.best_depth, 1) << fen;
        EXPECT_EQ(r.best_move, NO_MOVE) << fen;
        // A helper that had searched would have added its nodes at the
        // end of an iteration.
        for (int d = 0; d < PV_LENGTH; d++)
            EXPECT_EQ(status.nodes_at[d], 0u) << fen << " " << d;
        EXPECT_EQ(load_depth(), 0) << fen;
        for (int slot = 1; slot < MAX_THREADS; slot++)
            EXPECT_EQ(workers[slot], nullptr) << slot;
    }
}

TEST_F(RootSearchTest, NodeLimitOnOneThread) {
    const u64 limit = 20000;
    SearchOutcome r = run_search(MIDDLE_FEN, 30, 1, limit);
    EXPECT_TRUE(is_legal(MIDDLE_FEN, r.best_move));
    // The one thread stops at the first node past its budget.
    EXPECT_GT(r.main_nodes, limit);
    EXPECT_LT(r.main_nodes, limit + limit / 10);
    EXPECT_EQ(r.nodes, r.main_nodes);
    EXPECT_GE(r.best_depth, 2);
    EXPECT_LT(r.best_depth, 30);
}

TEST_F(RootSearchTest, NodeLimitCountsPerThread) {
    const u64 limit = 20000;
    const int threads = 4;
    SearchOutcome r = run_search(MIDDLE_FEN, 30, threads, limit);
    EXPECT_TRUE(is_legal(MIDDLE_FEN, r.best_move));
    EXPECT_GE(r.best_depth, 2);
    EXPECT_LT(r.best_depth, 30);
    // Some thread passed its own budget; none ran far past it.
    EXPECT_GT(r.nodes, limit);
    EXPECT_LT(r.main_nodes, limit + limit / 2);
    EXPECT_LT(r.nodes, threads * (limit + limit / 2));
}

// ---------------------------------------------------------------------
// The time plan.

struct PrepareTest : RootSearchTest {
    void SetUp() override {
        RootSearchTest::SetUp();
        test_position(START_FEN);
        front_worker->hist_index = 0;
        settings.limit_strength = 0;
        settings.calib_nps = 1000000.0f;
        settings.calib_elo = 3000.0f;
        settings.noise = 9999.0f;
        settings.ponder = 0;
        settings.level_moves = 0;
        settings.level_inc = 0.0f;
        settings.uci_mode = 1;
        status.clock[0] = status.clock[1] = 60.0f;
        status.moves_to_go = 0;
    }
};

TEST_F(PrepareTest, SuddenDeathAtTheStart) {
    prepare_search();
    EXPECT_EQ(settings.elo, 3000);
    EXPECT_FLOAT_EQ(status.target_time, 60.0f / 33);
    EXPECT_EQ(status.moves_to_go, 32);
}

TEST_F(PrepareTest, SuddenDeathWithPonder) {
    settings.ponder = 1;
    prepare_search();
    EXPECT_FLOAT_EQ(status.target_time,
                    static_cast<f32>(static_cast<double>(60.0f / 33) * 1.3));
}

TEST_F(PrepareTest, SuddenDeathWithPonderAndALowerElo) {
    settings.ponder = 1;
    settings.calib_elo = 2300.0f;
    prepare_search();
    EXPECT_EQ(settings.elo, 2300);
    f32 pondered = static_cast<f32>(static_cast<double>(60.0f / 33) * 1.3);
    EXPECT_FLOAT_EQ(status.target_time,
                    static_cast<f32>(static_cast<double>(pondered) * 0.85));
}

TEST_F(PrepareTest, EloOf2400HoldsNothingBack) {
    settings.calib_elo = 2400.0f;
    prepare_search();
    EXPECT_FLOAT_EQ(status.target_time, 60.0f / 33);
}

TEST_F(PrepareTest, SuddenDeathLaterInTheGame) {
    front_worker->hist_index = 11;  // half 5
    prepare_search();
    EXPECT_FLOAT_EQ(status.target_time, 60.0f / 28);
    EXPECT_EQ(status.moves_to_go, 27);
    front_worker->hist_index = 21;  // the last ply of the falling divisor
    prepare_search();
    EXPECT_FLOAT_EQ(status.target_time, 60.0f / 23);
    EXPECT_EQ(status.moves_to_go, 22);
    front_worker->hist_index = 80;
    prepare_search();
    EXPECT_FLOAT_EQ(status.target_time, 60.0f / 23);
    EXPECT_EQ(status.moves_to_go, 22);
}

TEST_F(PrepareTest, NoIncrementNoIncrementTerm) {
    settings.level_inc = 0.0f;
    prepare_search();
    EXPECT_EQ(status.target_time, 60.0f / 33);
}

TEST_F(PrepareTest, IncrementCountsLessOnAShortClock) {
    settings.level_inc = 2.0f;
    prepare_search();
    // 60 / (4 + 60) of the increment.
    EXPECT_NEAR(status.target_time, 60.0 / 33 + 1.875, 1e-5);
    status.clock[0] = 2.0f;
    prepare_search();
    // 2 / (4 + 2) of it.
    EXPECT_NEAR(status.target_time, 2.0 / 33 + 2.0 / 3, 1e-5);
}

TEST_F(PrepareTest, MoveTimeIsTheTarget) {
    settings.level_moves = 1;
    settings.level_time = 1.0f;
    status.clock[0] = 0.0f;
    prepare_search();
    EXPECT_FLOAT_EQ(status.target_time, 1.0f);
    EXPECT_FLOAT_EQ(status.clock[status.root_side], 1.0f);
}

TEST_F(PrepareTest, MovesPerControlOnTheConsole) {
    settings.uci_mode = 0;
    settings.level_moves = 40;
    prepare_search();
    EXPECT_EQ(status.moves_to_go, 40);
    EXPECT_FLOAT_EQ(status.target_time, 60.0f / 41);
    front_worker->hist_index = 30;  // 15 moves played
    prepare_search();
    EXPECT_EQ(status.moves_to_go, 25);
    EXPECT_FLOAT_EQ(status.target_time, 60.0f / 26);
}

TEST_F(PrepareTest, MovesToGoUnderUciStandsAsGiven) {
    settings.level_moves = 40;
    status.moves_to_go = 9;
    prepare_search();
    EXPECT_EQ(status.moves_to_go, 9);
    EXPECT_FLOAT_EQ(status.target_time, 6.0f);
    // Ponder counts only with more than two moves to go.
    settings.ponder = 1;
    prepare_search();
    EXPECT_FLOAT_EQ(status.target_time, static_cast<f32>(6.0 * 1.3));
    status.moves_to_go = 2;
    prepare_search();
    EXPECT_FLOAT_EQ(status.target_time, 20.0f);
}

TEST_F(PrepareTest, ResetsTheSearchFields) {
    status.single_reply = 1;
    status.best_depth = 9;
    status.best_change_depth = 4;
    status.pv[1] = coord_move("e2e4");
    status.finished_depth = 7;
    status.score_at[3] = 55;
    status.move_at[3] = coord_move("e2e4");
    status.nodes_at[3] = 99;
    store_depth(9);
    prepare_search();
    EXPECT_EQ(status.single_reply, 0);
    EXPECT_EQ(status.best_depth, 0);
    EXPECT_EQ(status.best_change_depth, 0);
    EXPECT_EQ(status.pv[1], NO_MOVE);
    EXPECT_EQ(status.finished_depth, 0);
    EXPECT_EQ(load_depth(), 0);
    EXPECT_EQ(status.score, -10000);
    for (int d = 0; d < PV_LENGTH; d++) {
        EXPECT_EQ(status.score_at[d], -10001) << d;
        EXPECT_EQ(status.move_at[d], NO_MOVE) << d;
        EXPECT_EQ(status.nodes_at[d], 0u) << d;
    }
}

TEST_F(PrepareTest, LapsedFiftyMoveClockStartsTheScoreAtZero) {
    // The FEN's counters are not read; the clock is set as a game sets it.
    test_position("4k3/8/8/8/8/8/8/R3K3 w - - 0 1");
    front_worker->position.cnt50 = 101;
    prepare_search();
    EXPECT_EQ(status.score, 0);
}

// ---------------------------------------------------------------------
// The time check.

struct CheckTimeTest : RootSearchTest {
    void SetUp() override {
        RootSearchTest::SetUp();
        settings.threads = 1;
        settings.level_moves = 0;
        settings.move_overhead = 50;
        if (workers[0]) workers[0]->fail_state = 0;
        status.single_reply = 0;
        status.score = 0;
        status.best_depth = 2;
        status.best_change_depth = 2;
        status.root_side = 0;
    }
    // A search at `depth` with `clock` seconds left on our side and a far
    // target; gives whether the check set stop.
    bool check(f32 clock, int depth = 3, u16 state = STATE_BENCH,
               f32 target = 100.0f) {
        reset_clock(1);
        status.clock[0] = clock;
        status.clock[1] = 100.0f;
        status.target_time = target;
        store_depth(static_cast<i8>(depth));
        store_state(state);
        store_stop(0);
        check_time();
        return load_stop() != 0;
    }
};

TEST_F(CheckTimeTest, PlentyOfTimeGoesOn) { EXPECT_FALSE(check(50.0f)); }

TEST_F(CheckTimeTest, OverheadOf50GuardsWith25Milliseconds) {
    settings.move_overhead = 50;
    // 3 x 0.025 = 0.075 is more than the 0.05 left.
    EXPECT_TRUE(check(0.05f));
    // 2 seconds are enough.
    EXPECT_FALSE(check(2.0f));
}

TEST_F(CheckTimeTest, OverheadOf5GuardsWith5Milliseconds) {
    settings.move_overhead = 5;
    // 3 x 0.005 = 0.015 is less than the 0.05 left...
    EXPECT_FALSE(check(0.05f));
    // ...and more than 0.014.
    EXPECT_TRUE(check(0.014f));
}

TEST_F(CheckTimeTest, LargeOverheadIsCappedAt25Milliseconds) {
    // Uncapped, 1000 ms would make the guard 3 s for 2 s on the clock.
    settings.move_overhead = 1000;
    EXPECT_FALSE(check(2.0f));
}

TEST_F(CheckTimeTest, GuardLowersTheTarget) {
    settings.move_overhead = 5;
    // A target already behind by more than the guard.
    reset_clock(1);
    sleep_milliseconds(30);
    status.clock[0] = 50.0f;
    status.target_time = 0.02f;
    store_depth(3);
    store_state(STATE_BENCH);
    store_stop(0);
    check_time();
    EXPECT_EQ(load_stop(), 1);
}

TEST_F(CheckTimeTest, FixedTimePerMoveHasNoGuard) {
    settings.level_moves = 1;
    settings.move_overhead = 50;
    // Nothing left on the clock, but the target is far: no guard fires.
    EXPECT_FALSE(check(0.0f));
}

TEST_F(CheckTimeTest, MoveTimeStopsOnceTheTargetHasPassed) {
    settings.level_moves = 1;
    EXPECT_FALSE(check(100.0f, 3, STATE_BENCH, 0.2f));
    sleep_milliseconds(210);
    check_time();
    EXPECT_EQ(load_stop(), 1);
}

TEST_F(CheckTimeTest, NoStopBeforeDepthTwo) {
    // The clock is out, but the first iteration still runs (its own limit
    // is the far target).
    EXPECT_FALSE(check(0.0f, 1));
    EXPECT_FALSE(check(0.0f, 1, STATE_THINKING));
    EXPECT_FALSE(check(0.0f, 0));
    EXPECT_TRUE(check(0.0f, 2));
}

// In a game the first iteration ends once the plan for the move is spent,
// whatever the clock; the benches and analysis always finish it.
TEST_F(CheckTimeTest, FirstIterationInAGameEndsWithTheWholePlan) {
    EXPECT_FALSE(check(0.0f, 1, STATE_THINKING, 0.02f));
    sleep_milliseconds(25);
    check_time();
    EXPECT_EQ(load_stop(), 1);
    // A target under 10 ms counts as 10 ms.
    EXPECT_FALSE(check(10.0f, 1, STATE_THINKING, 0.0f));
    sleep_milliseconds(12);
    check_time();
    EXPECT_EQ(load_stop(), 1);
    EXPECT_FALSE(check(10.0f, 0, STATE_THINKING, 30.0f));
}

TEST_F(CheckTimeTest, FirstIterationOfBenchOrPonderIsNeverCut) {
    for (u16 state : {STATE_BENCH, STATE_PONDERING, u16(0)}) {
        EXPECT_FALSE(check(0.0f, 1, state, 0.01f)) << state;
        sleep_milliseconds(15);
        check_time();
        EXPECT_EQ(load_stop(), 0) << state;
    }
}

TEST_F(CheckTimeTest, NoStopWhilePonderingOrIdle) {
    EXPECT_FALSE(check(0.0f, 3, STATE_PONDERING));
    EXPECT_FALSE(check(0.0f, 3, 0));
    EXPECT_TRUE(check(0.0f, 3, STATE_THINKING));
    EXPECT_TRUE(check(0.0f, 3, STATE_BENCH));
}

TEST_F(CheckTimeTest, CheckRefreshesTheElapsedTime) {
    reset_clock(1);
    store_state(0);
    sleep_milliseconds(20);
    check_time();
    EXPECT_GE(status.elapsed, 0.019f);
    EXPECT_LT(status.elapsed, 10.0f);
}

TEST_F(CheckTimeTest, SingleReplyStopsFromDepthSix) {
    settings.level_moves = 1;
    status.single_reply = 1;
    EXPECT_FALSE(check(100.0f, 5));
    EXPECT_TRUE(check(100.0f, 6));
    EXPECT_TRUE(check(100.0f, 9));
    status.single_reply = 0;
    EXPECT_FALSE(check(100.0f, 6));
}

}  // namespace

namespace {

bool is_legal_here(Move m) {
    Move legal[MAX_MOVES];
    int n = legal_moves(front_worker->position, legal);
    for (int i = 0; i < n; i++)
        if (legal[i] == m) return true;
    return false;
}

TEST_F(RootSearchTest, AnswerIsTheBestMoveWhenThereIsOne) {
    SearchOutcome r = run_search(START_FEN, 3);
    ASSERT_NE(r.best_move, NO_MOVE);
    EXPECT_EQ(answer_move(), r.best_move);
}

// Stopped before any root move was searched: the first legal move of the
// root order stands in, never "null" while a legal move exists.
TEST_F(RootSearchTest, StoppedSearchAnswersWithTheFirstRootMove) {
    run_search("r1bqkbnr/pppp1ppp/2n5/4p3/4P3/5N2/PPPP1PPP/RNBQKB1R w KQkq -",
               2);
    status.pv[1] = NO_MOVE;
    Move m = answer_move();
    EXPECT_EQ(m, workers[0]->plies[1].list_start[0].move);
    EXPECT_TRUE(is_legal_here(m));
    // A root list of another position gives way to a legal move here.
    test_position("7k/8/8/8/8/8/8/K7 w - -");
    status.pv[1] = NO_MOVE;
    m = answer_move();
    EXPECT_TRUE(is_legal_here(m));
    // No legal move: no answer.
    test_position("7k/5Q2/6K1/8/8/8/8/8 b - -");
    status.pv[1] = NO_MOVE;
    EXPECT_EQ(answer_move(), NO_MOVE);
}

}  // namespace

namespace {

TEST_F(RootSearchTest, BranchingFactorIsTheFourthRootOverFourIterations) {
    for (u64 &n : status.nodes_at) n = 0;
    status.nodes_at[3] = 1000;
    status.nodes_at[7] = 256000;
    EXPECT_DOUBLE_EQ(branching_factor(7), 4.0);
    status.nodes_at[7] = 81000;
    EXPECT_DOUBLE_EQ(branching_factor(7), 3.0);
    // Too shallow, or an iteration without a count: 2.
    EXPECT_DOUBLE_EQ(branching_factor(5), 2.0);
    status.nodes_at[3] = 0;
    EXPECT_DOUBLE_EQ(branching_factor(7), 2.0);
    EXPECT_DOUBLE_EQ(branching_factor(PV_LENGTH), 2.0);
}

}  // namespace
