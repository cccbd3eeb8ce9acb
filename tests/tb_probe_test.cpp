// WDL and DTZ of random positions of every table against the values
// Debian's stockfish gives for them (tests/data/tb_oracle.txt).
#include "tablebase/tb_probe.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <fstream>
#include <string>
#include <vector>

#include "test_support.h"

namespace {

struct OracleLine {
    std::string fen;
    int wdl;
    int dtz;
};

// The oracle's positions of the tables in the repository, or with `big`
// those of the two large families.
std::vector<OracleLine> load_oracle(bool big = false) {
    std::vector<OracleLine> lines;
    std::ifstream in(data_path("tb_oracle.txt"));
    std::string line;
    while (std::getline(in, line)) {
        if (line.empty() || line[0] == '#') continue;
        size_t a = line.find(';'), b = line.find(';', a + 1);
        std::string fen = line.substr(0, a);
        if (in_big_tb_family(fen) != big) continue;
        lines.push_back({fen, std::atoi(line.c_str() + a + 1),
                         std::atoi(line.c_str() + b + 1)});
    }
    return lines;
}

struct TbProbeTest : testing::Test {
    static void SetUpTestSuite() {
        testing::internal::CaptureStdout();
        tb_init_path(tb_test_path().c_str());
        testing::internal::GetCapturedStdout();
    }
    static void TearDownTestSuite() { tb_init_path(""); }
    static TbPosition board(const char *fen) {
        Position &pos = test_position(fen);
        return tb_position_from(pos, pos.cnt50);
    }
};

// Probes every line with `probe` (WDL or DTZ) and counts the values that
// differ from the oracle's; the first few are reported.
template <typename Probe, typename Want>
int oracle_mismatches(const std::vector<OracleLine> &oracle, const char *what,
                      Probe probe, Want want) {
    int wrong = 0;
    for (const auto &o : oracle) {
        int success = 0;
        int value = probe(TbProbeTest::board(o.fen.c_str()), &success);
        EXPECT_NE(success, 0) << o.fen;
        if (value != want(o) && ++wrong < 20)
            ADD_FAILURE() << o.fen << " " << what << " " << value << " oracle "
                          << want(o);
    }
    return wrong;
}

int oracle_wdl(const OracleLine &o) { return o.wdl; }
int oracle_dtz(const OracleLine &o) { return o.dtz; }

// 100 random positions for each of the 38 tables here, 200 for KPvKP.
constexpr size_t REPOSITORY_ORACLE_LINES = 3900;

TEST_F(TbProbeTest, WdlMatchesTheOracle) {
    auto oracle = load_oracle();
    ASSERT_EQ(oracle.size(), REPOSITORY_ORACLE_LINES);
    EXPECT_EQ(oracle_mismatches(oracle, "wdl", tb_probe_wdl, oracle_wdl), 0);
}

TEST_F(TbProbeTest, DtzMatchesTheOracle) {
    auto oracle = load_oracle();
    ASSERT_EQ(oracle.size(), REPOSITORY_ORACLE_LINES);
    EXPECT_EQ(oracle_mismatches(oracle, "dtz", tb_probe_dtz, oracle_dtz), 0);
}

// The only tables with cursed wins and blessed losses, and the only 5-man
// table with pawns.
TEST_F(TbProbeTest, LargeFamiliesMatchTheOracle) {
    if (big_tb_dir().empty()) GTEST_SKIP() << BIG_TB_SKIP;
    auto oracle = load_oracle(true);
    ASSERT_EQ(oracle.size(), 200u);
    int cursed = 0;
    for (const auto &o : oracle) cursed += o.wdl == 1 || o.wdl == -1;
    EXPECT_GT(cursed, 0);
    EXPECT_EQ(oracle_mismatches(oracle, "wdl", tb_probe_wdl, oracle_wdl), 0);
    EXPECT_EQ(oracle_mismatches(oracle, "dtz", tb_probe_dtz, oracle_dtz), 0);
}

}  // namespace

namespace {

struct TbEdgeTest : TbProbeTest {};

TEST_F(TbEdgeTest, TwoBareKingsNeedNoTable) {
    int success = 0;
    EXPECT_EQ(tb_probe_wdl(board("8/8/8/8/8/2k5/8/K7 w - - 0 1"), &success), 0);
    EXPECT_EQ(success, 1);
}

TEST_F(TbEdgeTest, SingleValueTableAnswersDraw) {
    int success = 0;
    EXPECT_EQ(tb_probe_wdl(board("8/8/8/4b3/8/2k5/8/K7 w - - 0 1"), &success),
              0);
    EXPECT_EQ(success, 1);
    EXPECT_EQ(tb_probe_dtz(board("8/8/8/4n3/8/2k5/8/K7 b - - 0 1"), &success),
              0);
    EXPECT_NE(success, 0);
}

// The same position seen from the other side: colours exchanged and the
// board turned upside down.
TEST_F(TbEdgeTest, SymmetricMaterialWithBlackToMoveUsesTheFlippedBoard) {
    int s1 = 0, s2 = 0;
    int black = tb_probe_wdl(board("8/8/8/8/7r/2R5/K5k1/8 b - - 0 1"), &s1);
    int white = tb_probe_wdl(board("8/k5K1/2r5/7R/8/8/8/8 w - - 0 1"), &s2);
    EXPECT_EQ(s1, 1);
    EXPECT_EQ(s2, 1);
    EXPECT_EQ(black, white);
    EXPECT_EQ(tb_probe_dtz(board("8/8/8/8/7r/2R5/K5k1/8 b - - 0 1"), &s1),
              tb_probe_dtz(board("8/k5K1/2r5/7R/8/8/8/8 w - - 0 1"), &s2));
}

TEST_F(TbEdgeTest, AbsentTableFailsTheProbe) {
    int success = 1;
    // KQQvKQ has no table here.
    EXPECT_EQ(tb_probe_wdl(board("8/8/8/3q4/8/2k5/8/KQQ5 w - - 0 1"), &success),
              0);
    EXPECT_EQ(success, 0);
}

// White's e-pawn has just stepped past the black pawn; only taking it
// en passant keeps black's king from being stalemated.
TEST_F(TbEdgeTest, StalemateButForEnPassantTakesTheCapture) {
    const char *fen = "8/8/8/8/3pP3/3K4/8/k7 b - e3 0 1";
    TbPosition t = board(fen);
    int success = 0;
    int wdl = tb_probe_wdl(t, &success);
    EXPECT_NE(success, 0);
    // Without the right black must move the king: the value differs from
    // the capture's only if the capture was the one move.
    TbMove moves[TB_MAX_MOVES];
    TbMove *end = tb_gen_moves(t, moves);
    int legal = 0, ep = 0;
    TbPosition next;
    for (TbMove *m = moves; m < end; m++)
        if (tb_do_move(next, t, *m)) {
            legal++;
            if (tb_is_en_passant(t, *m)) {
                ep++;
                int s = 0;
                EXPECT_EQ(wdl >= -tb_probe_wdl(next, &s), true);
            }
        }
    EXPECT_EQ(ep, 1);
    EXPECT_GE(legal, 1);
}

TEST_F(TbEdgeTest, EnPassantKeepsTheOracleValues) {
    int checked = 0;
    for (const auto &o : load_oracle()) {
        TbPosition t = board(o.fen.c_str());
        if (!t.ep) continue;
        int success = 0;
        EXPECT_EQ(tb_probe_wdl(t, &success), o.wdl) << o.fen;
        checked++;
    }
    EXPECT_GE(checked, 90);
}

TEST(TbEdgeDeathTest, AlphaBetaWithEnPassantRightIsAFault) {
    TbPosition t{};
    t.white = bit(0) | bit(28);
    t.black = bit(63) | bit(27);
    t.kings = bit(0) | bit(63);
    t.pawns = bit(27) | bit(28);
    t.ep = 20;
    t.turn = 0;
    int success = 0;
    EXPECT_DEATH(tb_probe_ab(t, -2, 2, &success), "pos->ep == 0");
}

}  // namespace
