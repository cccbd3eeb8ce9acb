// The draw test: the fifty-move counter, and repetitions inside the search
// and in the game before it.
#include <gtest/gtest.h>

#include <cstring>

#include "test_support.h"

namespace {

// Plays coordinate moves ("--" for a null move) on the front position.
Position &play(const char *fen, std::initializer_list<const char *> moves) {
    Position &pos = test_position(fen);
    for (const char *m : moves) {
        if (std::strcmp(m, "--") == 0)
            make_null_move(pos);
        else
            make_move(pos, coord_move(m));
    }
    return pos;
}

constexpr const char *MATED = "7k/6Q1/6K1/8/8/8/8/8 b - - 0 1";
constexpr const char *STALEMATE = "7k/5Q2/6K1/8/8/8/8/8 b - - 0 1";
constexpr const char *KNIGHTS = "4k3/8/8/8/8/8/8/4K1N1 w - - 0 1";

struct DrawTest : testing::Test {
    void TearDown() override { test_position(START_FEN); }
};

TEST_F(DrawTest, FreshPositionIsNoDraw) {
    Position &pos = test_position(START_FEN);
    EXPECT_EQ(is_draw(pos, 1), 0);
    EXPECT_EQ(is_draw(pos, 0), 0);
}

TEST_F(DrawTest, LapsedCounterInTheTreeDrawsEvenAMate) {
    Position &pos = test_position(MATED);
    pos.cnt50 = 101;
    EXPECT_EQ(is_draw(pos, 2), 1);
    EXPECT_EQ(is_draw(pos, 1), 1);
    pos.cnt50 = 100;
    EXPECT_EQ(is_draw(pos, 2), 0);
}

TEST_F(DrawTest, LapsedCounterAtPlyZeroDrawsOnlyWithoutAMove) {
    Position &pos = test_position(MATED);
    pos.cnt50 = 101;
    EXPECT_EQ(is_draw(pos, 0), 1);
    Position &stalemate = test_position(STALEMATE);
    stalemate.cnt50 = 101;
    EXPECT_EQ(is_draw(stalemate, 0), 1);
    // With a move to play the counter alone does not draw at ply 0.
    Position &open = test_position(START_FEN);
    open.cnt50 = 101;
    EXPECT_EQ(is_draw(open, 0), 0);
    EXPECT_EQ(is_draw(open, 1), 1);
}

TEST_F(DrawTest, LapsedCounterAtPlyZeroStillDrawsARepetition) {
    // Round the knights twice: the start stands twice in the game before.
    Position &pos = play(START_FEN, {"g1f3", "g8f6", "f3g1", "f6g8", "g1f3",
                                     "g8f6", "f3g1", "f6g8"});
    pos.cnt50 = 101;
    EXPECT_EQ(is_draw(pos, 0), 1);
    unmake_move(pos);
    unmake_move(pos);
    unmake_move(pos);
    unmake_move(pos);
    pos.cnt50 = 101;
    EXPECT_EQ(is_draw(pos, 0), 0);
}

TEST_F(DrawTest, FewerThanFourQuietPliesNeverDraw) {
    Position &pos = play(START_FEN, {"g1f3", "g8f6", "f3g1", "f6g8"});
    EXPECT_EQ(is_draw(pos, 5), 1);
    pos.cnt50 = 3;
    EXPECT_EQ(is_draw(pos, 5), 0);
}

TEST_F(DrawTest, RepetitionInsideTheTreeDrawsAtOnce) {
    // Root at the start; the position after 1.Nc3 Nc6 comes back at ply 7.
    // (Not after 1.e4 e5: a double push leaves an en-passant square in the
    // key.)
    Position &pos =
        play(START_FEN, {"b1c3", "b8c6", "g1f3", "g8f6", "f3g1", "f6g8"});
    ASSERT_EQ(front_worker->ply, 7);
    EXPECT_EQ(is_draw(pos, front_worker->ply), 1);
    // One position earlier it has not come back yet.
    unmake_move(pos);
    EXPECT_EQ(is_draw(pos, front_worker->ply), 0);
}

TEST_F(DrawTest, OneMatchInTheGameBeforeTheRootIsNoDraw) {
    // The same four moves were the game: the root itself repeats once.
    Position &pos = play(START_FEN, {"g1f3", "g8f6", "f3g1", "f6g8"});
    EXPECT_EQ(is_draw(pos, 1), 0);
    EXPECT_EQ(is_draw(pos, 0), 0);
}

TEST_F(DrawTest, TwoMatchesInTheGameBeforeTheRootDraw) {
    Position &pos = play(START_FEN, {"g1f3", "g8f6", "f3g1", "f6g8", "g1f3",
                                     "g8f6", "f3g1", "f6g8"});
    EXPECT_EQ(is_draw(pos, 1), 1);
    EXPECT_EQ(is_draw(pos, 0), 1);
}

TEST_F(DrawTest, TheRootItselfIsInsideTheTree) {
    // Four plies back is the start.  At ply 5 that is the root, a tree
    // position; at ply 4 the root is one later and the start is game.
    Position &pos = play(START_FEN, {"g1f3", "g8f6", "f3g1", "f6g8"});
    EXPECT_EQ(is_draw(pos, 5), 1);
    EXPECT_EQ(is_draw(pos, 4), 0);
}

TEST_F(DrawTest, NullMoveEndsTheWalk) {
    // The black king walks a triangle, white passes once: the start stands
    // again six plies on, but the walk meets the null move first.
    Position &pos =
        play(KNIGHTS, {"g1f3", "e8d8", "--", "d8d7", "f3g1", "d7e8"});
    const Worker *w = front_worker;
    ASSERT_EQ(w->hist_index, 6);
    // Without the stop, the match six plies back would count: it lies
    // inside the tree at ply 7.
    ASSERT_EQ(w->states[0].key, pos.key);
    ASSERT_NE(w->states[0].move, 0);
    ASSERT_EQ(w->states[2].move, 0);
    ASSERT_GE(pos.cnt50, 4);
    EXPECT_EQ(is_draw(pos, 7), 0);
}

}  // namespace
