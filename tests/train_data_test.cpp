// The self-play generator: adjudication, the rules that end a game, games
// whose records replay to legal positions, and determinism.
#include "tools/tuner/train_data.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "eval/network.h"
#include "position/notation.h"
#include "search/hash.h"
#include "test_support.h"

namespace {

// The games change the settings (node limit, silence); the other tests
// find them as they were.
class SelfPlayGames : public testing::Test {
protected:
    EngineSettings kept;
    void SetUp() override { kept = settings; }
    void TearDown() override { settings = kept; }
};

SelfPlaySettings small_run() {
    SelfPlaySettings s = default_self_play();
    s.nodes = 300;
    s.seed = 11;
    return s;
}

TEST(SelfPlayAdjudication, WinNeedsTheScoreKeptForFourPlies) {
    SelfPlaySettings s = default_self_play();
    Adjudicator a{};
    // White +1200, Black -1200 (White ahead), ...
    EXPECT_EQ(adjudicate(a, s, WHITE, 1200, 30), RESULT_NONE);
    EXPECT_EQ(adjudicate(a, s, BLACK, -1100, 31), RESULT_NONE);
    EXPECT_EQ(adjudicate(a, s, WHITE, 1000, 32), RESULT_NONE);
    EXPECT_EQ(adjudicate(a, s, BLACK, -1500, 33), RESULT_WHITE_WINS);
}

TEST(SelfPlayAdjudication, ARunBrokenOrTurnedStartsAgain) {
    SelfPlaySettings s = default_self_play();
    Adjudicator a{};
    EXPECT_EQ(adjudicate(a, s, WHITE, 1200, 30), RESULT_NONE);
    EXPECT_EQ(adjudicate(a, s, BLACK, -1200, 31), RESULT_NONE);
    EXPECT_EQ(adjudicate(a, s, WHITE, 999, 32), RESULT_NONE);  // broken
    EXPECT_EQ(adjudicate(a, s, BLACK, -1200, 33), RESULT_NONE);
    EXPECT_EQ(adjudicate(a, s, WHITE, 1200, 34), RESULT_NONE);
    // Black now claims the advantage: the run turns to Black and restarts.
    EXPECT_EQ(adjudicate(a, s, BLACK, 1200, 35), RESULT_NONE);
    EXPECT_EQ(adjudicate(a, s, WHITE, -1200, 36), RESULT_NONE);
    EXPECT_EQ(adjudicate(a, s, BLACK, 1200, 37), RESULT_NONE);
    EXPECT_EQ(adjudicate(a, s, WHITE, -1200, 38), RESULT_BLACK_WINS);
}

TEST(SelfPlayAdjudication, DrawOnlyLateAndAfterTenQuietPlies) {
    SelfPlaySettings s = default_self_play();
    Adjudicator a{};
    for (int ply = 60; ply < 80; ply++)
        EXPECT_EQ(adjudicate(a, s, ply & 1, (ply & 1) ? 10 : -10, ply),
                  RESULT_NONE);
    // Twenty quiet plies before ply 80; the first late one draws.
    EXPECT_EQ(adjudicate(a, s, WHITE, 5, 80), RESULT_DRAW);
    Adjudicator b{};
    for (int ply = 100; ply < 109; ply++)
        EXPECT_EQ(adjudicate(b, s, ply & 1, 0, ply), RESULT_NONE);
    EXPECT_EQ(adjudicate(b, s, WHITE, 11, 109), RESULT_NONE);  // broken
    for (int ply = 110; ply < 119; ply++)
        EXPECT_EQ(adjudicate(b, s, ply & 1, 0, ply), RESULT_NONE);
    EXPECT_EQ(adjudicate(b, s, WHITE, 0, 119), RESULT_DRAW);
}

TEST(SelfPlayRules, MateStalemateAndDrawsByRule) {
    GameEnd end;
    // Fool's mate: White is mated.
    Position &mated = test_position(
        "rnb1kbnr/pppp1ppp/8/4p3/6Pq/5P2/PPPPP2P/RNBQKBNR w KQkq -");
    EXPECT_EQ(game_verdict(mated, end), RESULT_BLACK_WINS);
    EXPECT_EQ(end, END_MATE);
    Position &stalemate = test_position("7k/5Q2/6K1/8/8/8/8/8 b - -");
    EXPECT_EQ(game_verdict(stalemate, end), RESULT_DRAW);
    EXPECT_EQ(end, END_STALEMATE);
    Position &bare = test_position("8/8/4k3/8/8/3NK3/8/8 w - -");
    EXPECT_EQ(game_verdict(bare, end), RESULT_DRAW);
    EXPECT_EQ(end, END_RULE_DRAW);
    Position &rook = test_position("8/8/4k3/8/8/3RK3/8/8 w - -");
    EXPECT_EQ(game_verdict(rook, end), RESULT_NONE);
    rook.cnt50 = 100;
    EXPECT_EQ(game_verdict(rook, end), RESULT_DRAW);
    // Knights out and back twice: the start position for the third time.
    Position &pos = test_position(START_FEN);
    for (int round = 0; round < 2; round++)
        for (const char *m : {"g1f3", "g8f6", "f3g1", "f6g8"})
            make_move(pos, coord_move(m));
    EXPECT_EQ(game_verdict(pos, end), RESULT_DRAW);
    EXPECT_EQ(end, END_RULE_DRAW);
    // No tables are loaded here: the tables give no verdict.
    EXPECT_EQ(tablebase_verdict(test_position("8/8/4k3/8/8/3QK3/8/8 w - -")),
              RESULT_NONE);
}

// A record's position as the engine reads it back.
Position &replay(const TrainRecord &r) {
    char fen[FEN_BUFFER_SIZE];
    record_fen(r, fen);
    return test_position(fen);
}

bool attacked_king(const Position &pos, int side) {
    return find_attacker(pos, pos.king_sq[side], side ^ 1,
                         occupied_squares(pos)) != NO_SQUARE;
}

TEST_F(SelfPlayGames, RecordsReplayToLegalQuietPositions) {
    SelfPlaySettings s = small_run();
    for (u64 game = 0; game < 3; game++) {
        std::vector<TrainRecord> records;
        GameOutcome g = play_game(s, game, records);
        ASSERT_NE(g.result, RESULT_NONE);
        EXPECT_GT(g.plies, 0);
        ASSERT_FALSE(records.empty());
        int white_result = 9;
        for (const TrainRecord &r : records) {
            ASSERT_TRUE(record_has_kings(r));
            Position &pos = replay(r);
            // Same bytes back, and a position that can stand in a game.
            TrainRecord again = pack_position(pos);
            EXPECT_EQ(0, std::memcmp(again.board, r.board, 34));
            EXPECT_FALSE(attacked_king(pos, pos.side ^ 1));
            EXPECT_FALSE(attacked_king(pos, pos.side));  // checks are left out
            EXPECT_EQ(pos.bitboards[WHITE][PAWN] & 0xFF000000000000FFULL, 0u);
            EXPECT_EQ(pos.bitboards[BLACK][PAWN] & 0xFF000000000000FFULL, 0u);
            Move moves[MAX_MOVES];
            EXPECT_GT(legal_moves(pos, moves), 0);
            // Scores: sc is ce within the clamp, no proven scores.
            EXPECT_LT(std::abs(r.ce), 9000);
            EXPECT_EQ(r.sc, std::clamp<int>(r.ce, -2000, 2000));
            // One result for the whole game, seen from each side to move.
            int side = r.side_rights >> 4;
            int w = side == WHITE ? r.result_logit : -r.result_logit;
            if (white_result == 9) white_result = w;
            EXPECT_EQ(w, white_result);
        }
        int expected = g.result == RESULT_WHITE_WINS   ? 1919
                       : g.result == RESULT_BLACK_WINS ? -1919
                                                       : 0;
        EXPECT_EQ(white_result, expected);
    }
}

TEST_F(SelfPlayGames, AGameDependsOnlyOnTheSeedAndItsNumber) {
    SelfPlaySettings s = small_run();
    std::vector<TrainRecord> first, other, second;
    play_game(s, 5, first);
    play_game(s, 6, other);  // leaves its hash and caches behind
    play_game(s, 5, second);
    ASSERT_EQ(first.size(), second.size());
    EXPECT_EQ(0, std::memcmp(first.data(), second.data(),
                             first.size() * sizeof(TrainRecord)));
    EXPECT_FALSE(first.size() == other.size() &&
                 std::memcmp(first.data(), other.data(),
                             first.size() * sizeof(TrainRecord)) == 0);
}

// The net's evaluation noise is drawn from the clock when a Worker's
// buffers are made; a game played later, or in another process, must not
// see that draw.
TEST_F(SelfPlayGames, NetLabelledGamesIgnoreTheNoiseDrawnAtSetUp) {
    testing::internal::CaptureStdout();
    load_network("embedded");
    testing::internal::GetCapturedStdout();
    ASSERT_TRUE(network_ready());
    settings.use_nn = 1;
    SelfPlaySettings s = small_run();
    std::vector<TrainRecord> first, second;
    play_game(s, 5, first);
    ASSERT_NE(worker_at(0), nullptr);
    // As if this process had set its buffers up at another second.
    worker_at(0)->nn.noise_seed ^= 0x5A5A5A5Au;
    play_game(s, 5, second);
    ASSERT_GT(first.size(), 10u);
    ASSERT_EQ(first.size(), second.size());
    EXPECT_EQ(0, std::memcmp(first.data(), second.data(),
                             first.size() * sizeof(TrainRecord)));
}

// Game 1861 of seed 1 (2,500 nodes, the hand-written evaluation, a 1 MB
// hash as the generator sizes it) reaches a position at ply 132 whose
// first iterations never end: checks in the capture search go on and on,
// and the soft node limit waits for a second iteration.  The search stops
// itself at the hard cap and the game is dropped; an ordinary search stays
// far under the cap.
TEST_F(SelfPlayGames, ARunawaySearchIsStoppedAndItsGameDropped) {
    EXPECT_EQ(runaway_cap(100), 100000u);
    EXPECT_EQ(runaway_cap(2500), 1000000u);
    settings.use_nn = 0;
    settings.hash_mb = 1;
    ASSERT_EQ(hash_allocate(), 1);
    SelfPlaySettings s = default_self_play();
    settings.max_nodes = s.nodes;
    std::vector<TrainRecord> records;
    GameOutcome g = play_game(s, 1861, records);
    EXPECT_EQ(g.end, END_RUNAWAY);
    EXPECT_EQ(g.result, RESULT_NONE);
    EXPECT_EQ(g.plies, 132);
    EXPECT_TRUE(records.empty());
    EXPECT_GT(workers[0]->node_count, runaway_cap(s.nodes));
    // The same settings on an ordinary position.
    set_fen(front_worker->position, START_FEN);
    bool runaway = true;
    search_game_position(runaway);
    EXPECT_FALSE(runaway);
    EXPECT_LT(workers[0]->node_count, runaway_cap(s.nodes) / 10);
    settings.hash_mb = kept.hash_mb;
    ASSERT_EQ(hash_allocate(), 1);
}

TEST_F(SelfPlayGames, OpeningsComeFromTheFileWhenGiven) {
    SelfPlaySettings s = small_run();
    s.openings = data_path("openings.epd");
    s.random_plies = 0;
    s.opening_margin = 10000;  // every line is taken as it stands
    std::vector<TrainRecord> records;
    GameOutcome g = play_game(s, 0, records);
    EXPECT_NE(g.result, RESULT_NONE);
    ASSERT_FALSE(records.empty());
    // Not the initial position: the file's lines are played five moves in.
    char fen[FEN_BUFFER_SIZE];
    record_fen(records[0], fen);
    EXPECT_NE(std::string(fen).rfind("rnbqkbnr/pppppppp/8/8/8/8/PPPPPPPP", 0),
              0u);
}

TEST(SelfPlayFolder, DefaultLiesInTheCacheFolder) {
    char out[300];
    data_folder("some/where", out, sizeof out);
    EXPECT_STREQ(out, "some/where");
    const char *old = std::getenv("XDG_CACHE_HOME");
    std::string kept = old ? old : "";
    setenv("XDG_CACHE_HOME", "/tmp/cachehome", 1);
    data_folder("default", out, sizeof out);
    EXPECT_STREQ(out, "/tmp/cachehome/quillon/data");
    if (old)
        setenv("XDG_CACHE_HOME", kept.c_str(), 1);
    else
        unsetenv("XDG_CACHE_HOME");
}

}  // namespace
