// Exchange questions on one square: attackers in order, exchange values,
// the safety test of a move, and the flag byte of a move.
#include <gtest/gtest.h>

#include "test_support.h"

namespace {

// Coordinates, with "k" after a king's two-square step for short castling.
Move mv(const char *text) {
    Move m = coord_move(text);
    return text[4] == 'k' ? static_cast<Move>(m | FLAG_SHORT) : m;
}

// The list entry a generator would write for the move.
MoveEntry entry(const Position &pos, const char *text) {
    Move m = mv(text);
    return {m, 0, pos.board[move_from(m)], pos.board[move_to(m)]};
}

int see(const char *fen, const char *move) {
    Position &pos = test_position(fen);
    Move m = mv(move);
    return see_move(pos, pos.side, move_from(m), move_to(m));
}

int safe(const char *fen, const char *move) {
    Position &pos = test_position(fen);
    return see_safe(pos, mv(move));
}

int flags(const char *fen, const char *move) {
    Position &pos = test_position(fen);
    return classify_move(pos, pos.side, entry(pos, move));
}

struct SeeTest : testing::Test {
    void TearDown() override { test_position(START_FEN); }
};

TEST_F(SeeTest, AttackersComeLeastValuableFirst) {
    // d5 is attacked by the knight c3, the pawn e4 and the queen d1.
    Position &pos = test_position("k7/8/8/3p4/4P3/2N5/8/3Q3K w - - 0 1");
    u64 all = occupied_squares(pos);
    EXPECT_EQ(find_attacker(pos, sq_of("d5"), WHITE, all), sq_of("e4"));
    u64 without_pawn = all & ~bit(sq_of("e4"));
    // Taking a piece out of the occupancy hides it only from the "least"
    // form; the plain form still sees it, but lines are blocked as given.
    EXPECT_EQ(find_attacker(pos, sq_of("d5"), WHITE, without_pawn),
              sq_of("e4"));
    EXPECT_EQ(find_least_attacker(pos, sq_of("d5"), WHITE, without_pawn),
              sq_of("c3"));
    u64 only_queen = without_pawn & ~bit(sq_of("c3"));
    EXPECT_EQ(find_least_attacker(pos, sq_of("d5"), WHITE, only_queen),
              sq_of("d1"));
    EXPECT_EQ(find_least_attacker(pos, sq_of("d5"), WHITE,
                                  only_queen | bit(sq_of("d3"))),
              NO_SQUARE);
    EXPECT_EQ(find_attacker(pos, sq_of("d5"), BLACK, all), NO_SQUARE);
}

TEST_F(SeeTest, SafeTestPassesEqualAndBiggerVictimsAtOnce) {
    // Pawn takes a defended knight, rook takes a defended queen, pawn takes
    // a defended pawn: all safe without an exchange count.
    EXPECT_EQ(safe("k7/8/4p3/3n4/4P3/8/8/7K w - - 0 1", "e4d5"), 1);
    EXPECT_EQ(safe("k7/8/4p3/3q4/8/8/8/3R3K w - - 0 1", "d1d5"), 1);
    EXPECT_EQ(safe("k7/8/4p3/3p4/4P3/8/8/7K w - - 0 1", "e4d5"), 1);
    // En passant passes too, though the pawn on d6 is lost at once.
    const char *ep = "k7/2p5/8/3pP3/8/8/8/7K w - d6 0 1";
    EXPECT_EQ(safe(ep, "e5d6"), 1);
    EXPECT_EQ(see(ep, "e5d6"), -100);
}

TEST_F(SeeTest, KnightTakesBishopIsSafeAtOnce) {
    const char *fen = "k7/8/4p3/3b4/8/2N5/8/7K w - - 0 1";
    EXPECT_EQ(safe(fen, "c3d5"), 1);
    EXPECT_EQ(see(fen, "c3d5"), 0);
}

TEST_F(SeeTest, KingTakingADefendedPieceFails) {
    const char *defended = "k7/8/4p3/3p4/4K3/8/8/8 w - - 0 1";
    EXPECT_EQ(safe(defended, "e4d5"), 0);
    EXPECT_EQ(see(defended, "e4d5"), 100 - 9999);
    EXPECT_EQ(safe("k7/8/8/3p4/4K3/8/8/8 w - - 0 1", "e4d5"), 1);
}

TEST_F(SeeTest, QueenTakesPawnDefendedByPawnIsNotSafe) {
    const char *fen = "k7/8/4p3/3p4/8/8/8/3Q3K w - - 0 1";
    EXPECT_EQ(see(fen, "d1d5"), 100 - 1040);
    EXPECT_EQ(safe(fen, "d1d5"), 0);
}

TEST_F(SeeTest, BishopTakesDefendedPawn) {
    const char *fen = "k7/8/4p3/3p4/8/1B6/8/7K w - - 0 1";
    EXPECT_EQ(see(fen, "b3d5"), 100 - 340);
    EXPECT_EQ(safe(fen, "b3d5"), 0);
}

TEST_F(SeeTest, LossUpToSeventyIsSafe) {
    // Ra4-d4: the queen takes (+540), Rd1 takes her (+1040), the king takes
    // back (+540).  Black gains 40 and takes, so the move loses 40.
    const char *fen = "3q4/8/8/4k3/R7/8/8/3R3K w - - 0 1";
    EXPECT_EQ(see(fen, "a4d4"), -40);
    EXPECT_EQ(safe(fen, "a4d4"), 1);
    // Without the second rook the queen just wins the rook.
    const char *alone = "3q4/8/8/4k3/R7/8/8/7K w - - 0 1";
    EXPECT_EQ(see(alone, "a4d4"), -540);
    EXPECT_EQ(safe(alone, "a4d4"), 0);
}

TEST_F(SeeTest, SwapValueForAKingIsAllOrNothing) {
    Position &pos = test_position("4k3/8/8/8/8/8/8/4R2K w - - 0 1");
    u64 all = occupied_squares(pos);
    EXPECT_EQ(swap_value(pos, WHITE, sq_of("e8"), KING, all), 9999);
    Position &safe_king = test_position("4k3/8/8/8/8/8/8/3R3K w - - 0 1");
    EXPECT_EQ(swap_value(safe_king, WHITE, sq_of("e8"), KING,
                         occupied_squares(safe_king)),
              0);
}

TEST_F(SeeTest, SwapValueNeverBelowZero) {
    // The queen could take the pawn on d5 but would lose herself: the side
    // is free not to capture.
    Position &pos = test_position("k7/8/4p3/3p4/8/8/8/3Q3K w - - 0 1");
    EXPECT_EQ(swap_value(pos, WHITE, sq_of("d5"), PAWN, occupied_squares(pos)),
              0);
    // With "no first move" see_move asks exactly that question.
    EXPECT_EQ(see_move(pos, WHITE, NO_SQUARE, sq_of("d5")), 0);
    Position &free_pawn = test_position("k7/8/8/3p4/8/8/8/3Q3K w - - 0 1");
    EXPECT_EQ(see_move(free_pawn, WHITE, NO_SQUARE, sq_of("d5")), 100);
}

TEST_F(SeeTest, PinnedPieceStillRecaptures) {
    // The e6 pawn is pinned to its king by Re1, but pins are not looked at:
    // it takes back on d5.
    const char *fen = "4k3/8/4p3/3p4/8/2N5/8/4R2K w - - 0 1";
    EXPECT_EQ(see(fen, "c3d5"), 100 - 340);
    EXPECT_EQ(safe(fen, "c3d5"), 0);
}

TEST_F(SeeTest, XRaysJoinTheExchange) {
    // Rd2xd5, Rd8xd5, and Rd1 behind the first rook takes back.
    EXPECT_EQ(see("3r3k/8/8/3p4/8/8/3R4/3R3K w - - 0 1", "d2d5"), 100);
    EXPECT_EQ(see("3r3k/8/8/3p4/8/8/3R4/7K w - - 0 1", "d2d5"), 100 - 540);
}

TEST_F(SeeTest, ClassifyDirectAndDiscoveredChecks) {
    EXPECT_EQ(flags("4k3/8/8/1N6/8/8/8/4K3 w - - 0 1", "b5d6"), 2);
    EXPECT_EQ(flags("4k3/8/8/1N6/8/8/8/4K3 w - - 0 1", "b5a3"), 0);
    // The knight leaves the rook's file: a discovered check.
    EXPECT_EQ(flags("k7/8/8/8/N7/8/8/R3K3 w - - 0 1", "a4c5"), 2);
    // The castling rook's check is not seen, the rook's own move's is.
    EXPECT_EQ(flags("5k2/8/8/8/8/8/8/4K2R w K - 0 1", "e1g1k"), 0);
    EXPECT_EQ(flags("5k2/8/8/8/8/8/8/4K2R w K - 0 1", "h1f1"), 2);
}

TEST_F(SeeTest, ClassifyPromotionsByThePromotedPiece) {
    const char *white = "8/1P1k4/8/8/8/8/8/K7 w - - 0 1";
    EXPECT_EQ(flags(white, "b7b8n"), 2 + 48);
    EXPECT_EQ(flags(white, "b7b8q"), 48);
    EXPECT_EQ(flags(white, "b7b8r"), 48);
    EXPECT_EQ(flags(white, "b7b8b"), 48);
    const char *black = "7k/8/8/8/8/8/4p3/K7 b - - 0 1";
    EXPECT_EQ(flags(black, "e2e1q"), 2 + 48);
    EXPECT_EQ(flags(black, "e2e1n"), 48);
}

TEST_F(SeeTest, ClassifyCapturesAndEnPassant) {
    EXPECT_EQ(flags("k7/8/8/3n4/4P3/8/8/7K w - - 0 1", "e4d5"), 1);
    EXPECT_EQ(flags("k7/8/8/3pP3/8/8/8/7K w - d6 0 1", "e5d6"), 1 + 32);
    // The pawn taken en passant stays in the occupancy for the check test,
    // so the rook's line to a5 stays shut.
    EXPECT_EQ(flags("8/8/8/k2pP2R/8/8/8/4K3 w - d6 0 1", "e5d6"), 1 + 32);
    EXPECT_EQ(flags("k7/8/3n4/4P3/8/8/8/7K w - - 0 1", "e5d6"), 1 + 32);
}

TEST_F(SeeTest, ClassifyAdvancedPawns) {
    EXPECT_EQ(flags("k7/8/4P3/8/8/8/8/7K w - - 0 1", "e6e7"), 40);
    EXPECT_EQ(flags("k7/8/8/4P3/8/8/8/7K w - - 0 1", "e5e6"), 32);
    // An enemy pawn right in front stops it at once: nothing added.
    EXPECT_EQ(flags("k7/4p3/8/4P3/8/8/8/7K w - - 0 1", "e5e6"), 0);
    // Attacked by f7 and unsupported: lost on its square.
    EXPECT_EQ(flags("k7/5p2/8/4P3/8/8/8/7K w - - 0 1", "e5e6"), 0);
    // The rook behind supports it through the square the pawn leaves.
    EXPECT_EQ(flags("k7/5p2/8/4P3/8/8/8/4R2K w - - 0 1", "e5e6"), 32);
    EXPECT_EQ(flags("k7/8/8/8/4P3/8/8/7K w - - 0 1", "e4e5"), 0);
    // Black counts its ranks from the other end.
    EXPECT_EQ(flags("7k/8/8/8/8/4p3/8/K7 b - - 0 1", "e3e2"), 40);
    EXPECT_EQ(flags("7k/8/8/8/4p3/8/8/K7 b - - 0 1", "e4e3"), 32);
    EXPECT_EQ(flags("7k/8/8/4p3/8/8/8/K7 b - - 0 1", "e5e4"), 0);
    // Pieces other than pawns get no rank bonus.
    EXPECT_EQ(flags("k7/8/8/8/8/8/8/1R5K w - - 0 1", "b1b7"), 0);
}

}  // namespace
