// The win, draw and loss shares: the model's arithmetic and the certain
// cases.  UCI_ShowWDL in the real binary's info lines is tested with the
// other UCI options, in uci_e2e_test.cpp.
#include "search/wdl.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "search/search.h"
#include "test_support.h"

namespace {

constexpr const char *START =
    "rnbqkbnr/pppppppp/8/8/8/8/PPPPPPPP/RNBQKBNR w KQkq - 0 1";
// The start position without Black's queen.
constexpr const char *WHITE_QUEEN_UP =
    "rnb1kbnr/pppppppp/8/8/8/8/PPPPPPPP/RNBQKBNR";
constexpr const char *BARE_KINGS = "8/8/4k3/8/8/3K4/8/8 w - - 0 1";
constexpr const char *KQVKR = "8/8/8/2k5/8/8/1r6/4K2Q w - - 0 1";
constexpr const char *KRVKP = "8/8/8/8/1k6/8/6p1/K5R1 w - - 0 1";

int sum(const WdlShares &w) { return w.win + w.draw + w.loss; }

bool same(const WdlShares &a, const WdlShares &b) {
    return a.win == b.win && a.draw == b.draw && a.loss == b.loss;
}

// ------------------------------------------------------------ the model

TEST(WdlModel, MaterialCountsPawnsAndPiecePoints) {
    EXPECT_EQ(wdl_material(test_position(START)), 80);
    EXPECT_EQ(wdl_material(test_position(BARE_KINGS)), 0);
    // Rook 5 and pawn 1.
    EXPECT_EQ(wdl_material(test_position(KRVKP)), 6);
    EXPECT_EQ(wdl_material(test_position(KQVKR)), 15);
    EXPECT_EQ(wdl_material(test_position(
                  (std::string(WHITE_QUEEN_UP) + " w KQkq - 0 1").c_str())),
              70);
}

// At every material and score the shares lie in 0 .. 1000 and sum to
// 1000; a higher score never lowers the win nor raises the loss; the
// two sides' views mirror each other.
TEST(WdlModel, SharesSumToAThousandAndFollowTheScore) {
    for (int m = 0; m <= 100; m += 3) {
        WdlShares last = wdl_from_model(-20000, m);
        EXPECT_EQ(last.loss, 1000) << m;
        for (int s = -3000; s <= 3000; s += 7) {
            WdlShares w = wdl_from_model(s, m);
            ASSERT_EQ(sum(w), 1000) << m << " " << s;
            ASSERT_GE(w.win, 0);
            ASSERT_GE(w.draw, 0);
            ASSERT_GE(w.loss, 0);
            ASSERT_GE(w.win, last.win) << m << " " << s;
            ASSERT_LE(w.loss, last.loss) << m << " " << s;
            WdlShares mirror = wdl_from_model(-s, m);
            ASSERT_EQ(w.win, mirror.loss) << m << " " << s;
            ASSERT_EQ(w.draw, mirror.draw) << m << " " << s;
            last = w;
        }
        EXPECT_EQ(wdl_from_model(20000, m).win, 1000) << m;
        WdlShares even = wdl_from_model(0, m);
        EXPECT_EQ(even.win, even.loss);
    }
}

// Games with less on the board end drawn more often: at an even score the
// draw's share grows as the material falls.  Below and above the fitted
// range the ends of it hold.
TEST(WdlModel, EvenScoresDrawMoreWithLessMaterial) {
    for (int m = 8; m < 80; m += 6)
        EXPECT_GT(wdl_from_model(0, m).draw, wdl_from_model(0, m + 6).draw)
            << m;
    EXPECT_TRUE(same(wdl_from_model(120, 0), wdl_from_model(120, 8)));
    EXPECT_TRUE(same(wdl_from_model(120, 95), wdl_from_model(120, 80)));
}

// ------------------------------------------------------- certain results

TEST(WdlRoot, MatesAndTablebaseScoresAreCertain) {
    const Position &pos = test_position(START);
    for (int score : {9998, 10000 - 40, 9799 - 3, PROVEN_SCORE + 1}) {
        EXPECT_TRUE(same(root_wdl(pos, score, -1), {1000, 0, 0})) << score;
        EXPECT_TRUE(same(root_wdl(pos, -score, -1), {0, 0, 1000})) << score;
    }
    // Judged scores go to the model.
    for (int score : {-PROVEN_SCORE, -250, 0, 37, 600})
        EXPECT_TRUE(same(root_wdl(pos, score, -1), wdl_from_model(score, 80)))
            << score;
}

TEST(WdlRoot, TheTablesVerdictStandsWhateverTheScore) {
    const Position &pos = test_position(KRVKP);
    EXPECT_TRUE(same(root_wdl(pos, 350, 4), {1000, 0, 0}));
    EXPECT_TRUE(same(root_wdl(pos, -350, 0), {0, 0, 1000}));
    // A draw, a cursed win and a blessed loss are draws under the
    // fifty-move rule.
    for (int tb : {1, 2, 3})
        EXPECT_TRUE(same(root_wdl(pos, 350, tb), {0, 1000, 0})) << tb;
    // Without the tables the model judges: neither certain nor a draw.
    for (int score : {350, 600}) {
        WdlShares model = root_wdl(pos, score, -1);
        EXPECT_TRUE(same(model, wdl_from_model(score, 6))) << score;
        EXPECT_GT(model.win, 100) << score;
        EXPECT_LT(model.win, 1000) << score;
        EXPECT_GT(model.draw, 0) << score;
    }
}

TEST(WdlRoot, MenTooFewToMateAreADeadDraw) {
    for (const char *fen : {BARE_KINGS, "8/8/4k3/8/8/3K4/8/6N1 w - - 0 1",
                            "8/8/4k3/8/8/3K4/8/6B1 b - - 0 1",
                            "8/2b5/4k3/8/8/3K4/8/6N1 w - - 0 1",
                            "8/8/4k3/8/8/3K4/8/5NN1 w - - 0 1"}) {
        const Position &pos = test_position(fen);
        EXPECT_TRUE(same(root_wdl(pos, 0, -1), {0, 1000, 0})) << fen;
        EXPECT_TRUE(same(root_wdl(pos, 37, -1), {0, 1000, 0})) << fen;
    }
    // A rook, or a pawn, can still win.
    for (const char *fen :
         {"8/8/4k3/8/8/3K4/8/6R1 w - - 0 1", "8/8/4k3/8/8/3K4/6P1/8 w - - 0 1",
          "8/8/4k3/8/8/3K4/8/4BB2 w - - 0 1"}) {
        const Position &pos = test_position(fen);
        EXPECT_FALSE(same(root_wdl(pos, 400, -1), {0, 1000, 0})) << fen;
    }
}

}  // namespace
