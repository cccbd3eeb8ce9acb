// Move generation: what each generator produces and, since the order of a
// list decides ties in move ordering and with them node counts, the exact
// order; and the legality test of single moves.
#include <gtest/gtest.h>

#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "test_support.h"

namespace {

Move parse(const char *text) { return coord_move(text); }

Move castle(const char *from, const char *to, bool is_short) {
    return make_move_code(sq_of(from), sq_of(to),
                          is_short ? FLAG_SHORT : FLAG_LONG);
}

using List = std::vector<MoveEntry>;

std::vector<std::string> names(const List &list) {
    std::vector<std::string> out;
    for (const MoveEntry &e : list) out.push_back(move_name(e.move, e.moved));
    return out;
}

// The generators write into a buffer whose scores are pre-set, so that a
// generator that touches the score field is caught.
constexpr i16 SCORE_MARK = 12345;

template <typename F>
List collect(F generate) {
    MoveEntry buffer[512];
    for (MoveEntry &e : buffer) {
        e.move = 0;
        e.score = SCORE_MARK;
        e.moved = e.captured = 0xEE;
    }
    MoveEntry *end = generate(buffer);
    EXPECT_GE(end, buffer);
    EXPECT_LE(end - buffer, 512);
    List out(buffer, end);
    for (const MoveEntry &e : out) EXPECT_EQ(e.score, SCORE_MARK);
    return out;
}

List captures(const Position &pos, int target = NO_SQUARE) {
    return collect([&](MoveEntry *l) {
        return generate_captures(pos, pos.side, l, target);
    });
}

List promotions(const Position &pos, int under = 1) {
    return collect([&](MoveEntry *l) {
        return generate_promotions(pos, pos.side, under, l);
    });
}

List seventh(const Position &pos) {
    return collect([&](MoveEntry *l) {
        return generate_seventh_pushes(pos, pos.side, l);
    });
}

List quiets(const Position &pos, int target = NO_SQUARE) {
    return collect([&](MoveEntry *l) {
        return generate_quiets(pos, pos.side, l, target);
    });
}

List all_moves(const Position &pos) {
    List l = captures(pos), p = promotions(pos), s = seventh(pos),
         q = quiets(pos);
    l.insert(l.end(), p.begin(), p.end());
    l.insert(l.end(), s.begin(), s.end());
    l.insert(l.end(), q.begin(), q.end());
    return l;
}

// legal_move must leave the board as it found it.
int legal(Position &pos, Move m) {
    Position before;
    std::memcpy(&before, &pos, sizeof pos);
    int result = legal_move(pos, pos.side, m);
    EXPECT_EQ(std::memcmp(&before, &pos, sizeof pos), 0);
    return result;
}

const MoveEntry *find(const List &list, Move m) {
    for (const MoveEntry &e : list)
        if (e.move == m) return &e;
    return nullptr;
}

TEST(Captures, WhiteOrder) {
    // Pawn captures that shift by 7 come before those that shift by 9, even
    // where a shift-9 target has the lower square (c5 before d6); then
    // knights, bishops, rooks, queens and the king, each in square order.
    Position &pos =
        test_position("7k/8/5b1r/ppnpP3/1P4N1/2NB4/3n4/Q3K2R w - d6 0 1");
    List l = captures(pos);
    std::vector<std::string> expected = {"b4a5", "e5d6", "b4c5", "e5f6",
                                         "c3b5", "c3d5", "g4f6", "g4h6",
                                         "d3b5", "h1h6", "a1a5", "e1d2"};
    ASSERT_EQ(names(l), expected);
    const u8 moved[] = {1, 1, 1, 1, 2, 2, 2, 2, 3, 4, 5, 6};
    // The en-passant capture finds nothing on its target square.
    const u8 taken[] = {9, 0, 10, 11, 9, 9, 11, 12, 9, 12, 9, 10};
    for (size_t i = 0; i < l.size(); i++) {
        EXPECT_EQ(l[i].moved, moved[i]) << i;
        EXPECT_EQ(l[i].captured, taken[i]) << i;
    }
}

TEST(Captures, BlackOrder) {
    // For Black the shift-9 set (down and to the a-file side) comes first:
    // e4xd3 and b5xa4 before e4xf3 and b5xc4, though f3 < a4.
    Position &pos = test_position("4k3/8/8/1p6/P1NPp3/5B2/8/6K1 b - d3 0 1");
    std::vector<std::string> expected = {"e4d3", "b5a4", "e4f3", "b5c4"};
    List l = captures(pos);
    EXPECT_EQ(names(l), expected);
    ASSERT_EQ(l.size(), 4u);
    EXPECT_EQ(l[0].captured, 0);
    EXPECT_EQ(l[0].moved, make_piece(PAWN, BLACK));
    EXPECT_EQ(l[3].captured, make_piece(KNIGHT, WHITE));
}

TEST(Captures, TargetNarrowsAllButTheKing) {
    Position &pos =
        test_position("7k/8/5b1r/ppnpP3/1P4N1/2NB4/3n4/Q3K2R w - d6 0 1");
    // Only captures on h6, but the en-passant square stays open to pawns
    // and the king takes what stands next to it.
    std::vector<std::string> expected = {"e5d6", "g4h6", "h1h6", "e1d2"};
    EXPECT_EQ(names(captures(pos, sq_of("h6"))), expected);
}

TEST(Captures, CheckerOnlyUnderCheck) {
    // The knight on d3 checks; the rook's capture of a5 is left out, the
    // king's capture of the other knight is not.
    Position &pos = test_position("4k3/8/8/p7/8/3n4/5n2/RB2K3 w - - 0 1");
    int checker =
        find_attacker(pos, pos.king_sq[WHITE], BLACK, occupied_squares(pos));
    ASSERT_EQ(checker, sq_of("d3"));
    std::vector<std::string> all = {"b1d3", "a1a5", "e1f2"};
    std::vector<std::string> narrowed = {"b1d3", "e1f2"};
    EXPECT_EQ(names(captures(pos)), all);
    EXPECT_EQ(names(captures(pos, checker)), narrowed);
}

TEST(Captures, EnPassantOfTheCheckingPawn) {
    // d7-d5 gave check to the king on e4; e5xd6 removes the checker and
    // must be generated though d6 is not the checker's square.
    Position &pos = test_position("4k3/8/8/3pP3/4K3/8/8/8 w - d6 0 1");
    int checker =
        find_attacker(pos, pos.king_sq[WHITE], BLACK, occupied_squares(pos));
    ASSERT_EQ(checker, sq_of("d5"));
    List l = captures(pos, checker);
    std::vector<std::string> expected = {"e5d6", "e4d5"};
    ASSERT_EQ(names(l), expected);
    EXPECT_EQ(legal(pos, l[0].move), 1);
    EXPECT_EQ(legal(pos, l[1].move), 1);
}

TEST(Captures, DoublePushWithoutCapturerGivesNoCapture) {
    Position &pos = test_position(START_FEN);
    make_move(pos, parse("e2e4"));
    ASSERT_EQ(pos.ep_sq, sq_of("e3"));
    // No black pawn stands beside e4, so nothing lands on e3.
    EXPECT_TRUE(captures(pos).empty());
}

TEST(Captures, NoEnPassantSquareDoesNotWrapToA1) {
    // Without an en-passant square the shift of 64 would name a1, which a
    // black pawn on b2 reaches; the empty a1 must not be a target.
    Position &pos = test_position("4k3/8/8/8/8/8/1p6/4K3 b - - 0 1");
    ASSERT_EQ(pos.ep_sq, NO_SQUARE);
    EXPECT_TRUE(captures(pos).empty());
}

TEST(Captures, PromotionCapturesOnlyFromPromotions) {
    Position &pos = test_position("4k3/8/8/8/8/8/1p6/N3K3 b - - 0 1");
    EXPECT_TRUE(captures(pos).empty());
    std::vector<std::string> expected = {"b2b1q", "b2b1n", "b2b1b", "b2b1r",
                                         "b2a1q", "b2a1n", "b2a1b", "b2a1r"};
    EXPECT_EQ(names(promotions(pos)), expected);
    Position &pos2 = test_position("r1b1k1nr/1P4P1/8/8/8/8/8/4K3 w - - 0 1");
    EXPECT_TRUE(captures(pos2).empty());
}

TEST(Promotions, WhiteOrder) {
    // Per pawn in square order: the push, then the capture towards the
    // a-file, then towards the h-file; queen, knight, bishop, rook each.
    Position &pos = test_position("r1b1k1nr/1P4P1/8/8/8/8/8/4K3 w - - 0 1");
    std::vector<std::string> expected = {
        "b7b8q", "b7b8n", "b7b8b", "b7b8r", "b7a8q", "b7a8n", "b7a8b", "b7a8r",
        "b7c8q", "b7c8n", "b7c8b", "b7c8r", "g7h8q", "g7h8n", "g7h8b", "g7h8r"};
    List l = promotions(pos);
    ASSERT_EQ(names(l), expected);
    EXPECT_EQ(l[0].captured, 0);
    EXPECT_EQ(l[4].captured, make_piece(ROOK, BLACK));
    EXPECT_EQ(l[8].captured, make_piece(BISHOP, BLACK));
    for (const MoveEntry &e : l) EXPECT_EQ(e.moved, make_piece(PAWN, WHITE));
    std::vector<std::string> queens = {"b7b8q", "b7a8q", "b7c8q", "g7h8q"};
    EXPECT_EQ(names(promotions(pos, 0)), queens);
}

TEST(Promotions, BlackOrder) {
    Position &pos = test_position("4k3/8/8/8/8/8/1p4p1/R1B1K1NR b - - 0 1");
    std::vector<std::string> expected = {
        "b2b1q", "b2b1n", "b2b1b", "b2b1r", "b2a1q", "b2a1n", "b2a1b", "b2a1r",
        "b2c1q", "b2c1n", "b2c1b", "b2c1r", "g2h1q", "g2h1n", "g2h1b", "g2h1r"};
    EXPECT_EQ(names(promotions(pos)), expected);
}

TEST(Promotions, EdgeFilesDoNotWrap) {
    // a7-a8: square a8 - 1 is h7, the rook there is not a capture.
    Position &pos = test_position("7k/P6r/8/8/8/8/8/K7 w - - 0 1");
    std::vector<std::string> white = {"a7a8q", "a7a8n", "a7a8b", "a7a8r"};
    EXPECT_EQ(names(promotions(pos)), white);
    // h2-h1: square h1 + 1 is a2, the rook there is not a capture.
    Position &pos2 = test_position("k7/8/8/8/8/8/R6p/4K3 b - - 0 1");
    std::vector<std::string> black = {"h2h1q", "h2h1n", "h2h1b", "h2h1r"};
    EXPECT_EQ(names(promotions(pos2)), black);
}

TEST(SeventhPushes, OrderAndBlocking) {
    Position &pos = test_position("4k3/2n5/P1P4P/8/8/8/8/4K3 w - - 0 1");
    std::vector<std::string> white = {"a6a7", "h6h7"};
    EXPECT_EQ(names(seventh(pos)), white);
    Position &pos2 = test_position("4k3/8/8/8/8/1p4p1/6N1/4K3 b - - 0 1");
    std::vector<std::string> black = {"b3b2"};
    EXPECT_EQ(names(seventh(pos2)), black);
    // These pushes are not quiet moves.
    for (const std::string &n : names(quiets(pos2))) EXPECT_NE(n, "b3b2");
}

TEST(Quiets, WhiteOrder) {
    // Single pushes, double pushes, knights, bishops, rooks, queens, king,
    // short castling, long castling; squares ascending within each.
    Position &pos = test_position("N1bQk2B/3p4/5p2/8/8/7P/P7/R3K2R w KQ - 0 1");
    std::vector<std::string> expected = {
        "a2a3", "h3h4", "a2a4", "a8b6", "a8c7", "h8g7",     "a1b1",      "a1c1",
        "a1d1", "h1f1", "h1g1", "h1h2", "d8a5", "d8b6",     "d8c7",      "d8e7",
        "e1d1", "e1f1", "e1d2", "e1e2", "e1f2", "e1g1 O-O", "e1c1 O-O-O"};
    List l = quiets(pos);
    ASSERT_EQ(names(l), expected);
    for (const MoveEntry &e : l) EXPECT_EQ(e.captured, 0);
    EXPECT_EQ(l.back().moved, make_piece(KING, WHITE));
}

TEST(Quiets, BlackOrder) {
    Position &pos = test_position("r3k2r/7p/p7/8/8/8/8/4K3 b kq - 0 1");
    std::vector<std::string> expected = {
        "a6a5", "h7h6", "h7h5",     "a8a7",      "a8b8", "a8c8",
        "a8d8", "h8f8", "h8g8",     "e8d7",      "e8e7", "e8f7",
        "e8d8", "e8f8", "e8g8 O-O", "e8c8 O-O-O"};
    EXPECT_EQ(names(quiets(pos)), expected);
}

TEST(Quiets, Chess960CastlingLandsOnGAndCFiles) {
    // King on b1: long castling moves it to c1, to the right.
    Position &pos = test_position("4k3/8/8/8/8/8/8/RK5R w HA - 0 1");
    List l = quiets(pos);
    ASSERT_GE(l.size(), 2u);
    EXPECT_EQ(l[l.size() - 2].move, castle("b1", "g1", true));
    EXPECT_EQ(l[l.size() - 1].move, castle("b1", "c1", false));
    EXPECT_EQ(l.back().moved, make_piece(KING, WHITE));
    EXPECT_EQ(l.back().captured, 0);
}

TEST(Quiets, Chess960CastlingOntoTheOwnRookCapturesNothing) {
    // King f1, rook g1: short castling puts the king where the rook stands.
    Position &pos = test_position("4k3/8/8/8/8/8/8/5KR1 w G - 0 1");
    List l = quiets(pos);
    const MoveEntry *e = find(l, castle("f1", "g1", true));
    ASSERT_NE(e, nullptr);
    EXPECT_EQ(e->captured, 0);
    EXPECT_EQ(legal(pos, e->move), 1);
}

TEST(Quiets, BlockedCastlingPathGivesNoMove) {
    Position &pos = test_position("4k3/8/8/8/8/8/8/RN2K1NR w KQ - 0 1");
    for (const std::string &n : names(quiets(pos)))
        EXPECT_EQ(n.find("O-O"), std::string::npos) << n;
    // A piece on b1 blocks the long castling though the king never
    // crosses it: the rook does.
    Position &pos2 = test_position("4k3/8/8/8/8/8/8/RN2K2R w KQ - 0 1");
    std::vector<std::string> castles;
    for (const std::string &n : names(quiets(pos2)))
        if (n.find("O-O") != std::string::npos) castles.push_back(n);
    std::vector<std::string> expected = {"e1g1 O-O"};
    EXPECT_EQ(castles, expected);
}

TEST(InCheck, KnightCheckLeavesOnlyKingMovesAndCastling) {
    // Nothing can block a knight: the bishop's moves vanish, the king's and
    // the castling moves stay; castling then fails the legality test.
    Position &pos = test_position("4k3/8/7B/8/8/3n4/8/R3K2R w KQ - 0 1");
    int checker =
        find_attacker(pos, pos.king_sq[WHITE], BLACK, occupied_squares(pos));
    ASSERT_EQ(checker, sq_of("d3"));
    List l = quiets(pos, checker);
    std::vector<std::string> expected = {
        "e1d1", "e1f1", "e1d2", "e1e2", "e1f2", "e1g1 O-O", "e1c1 O-O-O"};
    ASSERT_EQ(names(l), expected);
    const int legal_expected[] = {1, 1, 1, 1, 0, 0, 0};
    for (size_t i = 0; i < l.size(); i++)
        EXPECT_EQ(legal(pos, l[i].move), legal_expected[i]) << names(l)[i];
}

TEST(InCheck, BlockingSquaresAndDoublePush) {
    // The rook on a4 checks along the fourth rank: d3-d4 and the double
    // push c2-c4 block; c2-c3 does not; the king's moves are all listed.
    Position &pos = test_position("4k3/8/8/8/r6K/3P4/2P5/8 w - - 0 1");
    List l = quiets(pos, sq_of("a4"));
    std::vector<std::string> expected = {"d3d4", "c2c4", "h4g3", "h4h3",
                                         "h4g4", "h4g5", "h4h5"};
    ASSERT_EQ(names(l), expected);
    const int legal_expected[] = {1, 1, 1, 1, 0, 1, 1};
    for (size_t i = 0; i < l.size(); i++)
        EXPECT_EQ(legal(pos, l[i].move), legal_expected[i]) << names(l)[i];
}

TEST(InCheck, UselessPromotionsAndPushesAreGeneratedAndRejected) {
    Position &pos = test_position("7k/1P6/2P5/8/8/8/8/r3K3 w - - 0 1");
    List p = promotions(pos), s = seventh(pos);
    ASSERT_EQ(p.size(), 4u);
    ASSERT_EQ(s.size(), 1u);
    for (const MoveEntry &e : p) EXPECT_EQ(legal(pos, e.move), 0);
    EXPECT_EQ(legal(pos, s[0].move), 0);
}

TEST(InCheck, DoubleCheckCaptureOfFirstCheckerRejected) {
    // Knight d3 and rook e8 both check; taking the knight, the checker the
    // search is given, leaves the rook's check.
    Position &pos = test_position("4r2k/8/8/8/8/3n4/8/4KB2 w - - 0 1");
    int checker =
        find_attacker(pos, pos.king_sq[WHITE], BLACK, occupied_squares(pos));
    ASSERT_EQ(checker, sq_of("d3"));
    List l = captures(pos, checker);
    std::vector<std::string> expected = {"f1d3"};
    ASSERT_EQ(names(l), expected);
    EXPECT_EQ(legal(pos, l[0].move), 0);
}

TEST(Legality, PinnedPieceGeneratedButRejected) {
    Position &pos = test_position("4r2k/8/8/8/8/8/4N3/4K3 w - - 0 1");
    int knight_moves = 0;
    for (const MoveEntry &e : all_moves(pos)) {
        if (move_from(e.move) != sq_of("e2")) continue;
        knight_moves++;
        EXPECT_EQ(legal(pos, e.move), 0);
    }
    EXPECT_EQ(knight_moves, 6);
    EXPECT_EQ(legal(pos, parse("e1d1")), 1);
    EXPECT_EQ(legal(pos, parse("e1f2")), 1);
}

TEST(Legality, MoveZeroIsIllegal) {
    Position &pos = test_position(START_FEN);
    EXPECT_EQ(legal(pos, NO_MOVE), 0);
}

TEST(Legality, CastlingWalk) {
    // f1 attacked: no short castling; the long one is untouched.
    Position &p1 = test_position("5r1k/8/8/8/8/8/8/R3K2R w KQ - 0 1");
    EXPECT_EQ(legal(p1, castle("e1", "g1", true)), 0);
    EXPECT_EQ(legal(p1, castle("e1", "c1", false)), 1);
    // g1, the king's destination, attacked.
    Position &p2 = test_position("6rk/8/8/8/8/8/8/R3K2R w KQ - 0 1");
    EXPECT_EQ(legal(p2, castle("e1", "g1", true)), 0);
    EXPECT_EQ(legal(p2, castle("e1", "c1", false)), 1);
    // In check: the walk starts on the king's own square.
    Position &p3 = test_position("4r2k/8/8/8/8/8/8/R3K2R w KQ - 0 1");
    EXPECT_EQ(legal(p3, castle("e1", "g1", true)), 0);
    EXPECT_EQ(legal(p3, castle("e1", "c1", false)), 0);
    // b1 attacked: only the rook crosses it, the castling stands.
    Position &p4 = test_position("1r5k/8/8/8/8/8/8/R3K2R w KQ - 0 1");
    EXPECT_EQ(legal(p4, castle("e1", "c1", false)), 1);
    // Black's walk the same way: d8 attacked.
    Position &p5 = test_position("r3k2r/8/8/8/8/8/8/3R2K1 b kq - 0 1");
    EXPECT_EQ(legal(p5, castle("e8", "c8", false)), 0);
    EXPECT_EQ(legal(p5, castle("e8", "g8", true)), 1);
}

TEST(Legality, Chess960RookShieldingTheKingIsNotLookedFor) {
    // King d1, rook b1, enemy rook a1.  During the walk d1-c1 the own rook
    // still shields c1, so the castling passes, though after it the king on
    // c1 stands in check from a1.  The walk alone decides, on purpose.
    Position &pos = test_position("7k/8/8/8/8/8/8/rR1K4 w B - 0 1");
    ASSERT_EQ(pos.castle_rights, 2);
    Move m = castle("d1", "c1", false);
    ASSERT_NE(find(quiets(pos), m), nullptr);
    EXPECT_EQ(legal(pos, m), 1);
    make_move(pos, m);
    EXPECT_EQ(pos.board[sq_of("c1")], make_piece(KING, WHITE));
    EXPECT_EQ(pos.board[sq_of("d1")], make_piece(ROOK, WHITE));
    EXPECT_EQ(square_attacked(pos, sq_of("c1"), BLACK), 1);
    unmake_move(pos);
}

TEST(Legality, EnPassantThatOpensTheRank) {
    // b5xc6 takes both pawns off the fifth rank: the rook on h5 then hits
    // the king on a5.
    Position &pos = test_position("8/8/8/KPp4r/8/8/8/4k3 w - c6 0 1");
    EXPECT_EQ(legal(pos, parse("b5c6")), 0);
    EXPECT_EQ(legal(pos, parse("b5b6")), 1);
    Position &pos2 = test_position("4k3/8/8/3pP3/8/8/8/4K3 w - d6 0 1");
    EXPECT_EQ(legal(pos2, parse("e5d6")), 1);
}

TEST(Legality, KingMoves) {
    // Stepping back along the checking file stays in check.
    Position &pos = test_position("4r2k/8/8/8/4K3/8/8/8 w - - 0 1");
    EXPECT_EQ(legal(pos, parse("e4e3")), 0);
    EXPECT_EQ(legal(pos, parse("e4e5")), 0);
    EXPECT_EQ(legal(pos, parse("e4d3")), 1);
    EXPECT_EQ(legal(pos, parse("e4d5")), 1);
    // Taking a defended pawn is illegal, an undefended one is fine.
    Position &p2 = test_position("7k/8/8/8/8/2b5/3p4/4K3 w - - 0 1");
    EXPECT_EQ(legal(p2, parse("e1d2")), 0);
    Position &p3 = test_position("7k/8/8/8/8/8/3p4/4K3 w - - 0 1");
    EXPECT_EQ(legal(p3, parse("e1d2")), 1);
}

TEST(Legality, CapturedCheckerNoLongerAttacks) {
    // The rook on e2 checks; taking it with the king or the queen ends the
    // check, since the captured rook is out of its board for the test.
    Position &pos = test_position("4k3/8/8/8/8/8/4r3/3QK3 w - - 0 1");
    EXPECT_EQ(legal(pos, parse("e1e2")), 1);
    EXPECT_EQ(legal(pos, parse("d1e2")), 1);
    EXPECT_EQ(legal(pos, parse("d1d2")), 0);
}

TEST(GenerateAll, ConcatenatesTheGeneratorsAndSetsListPointers) {
    Position &pos = test_position("r3k2r/1P6/4P3/8/8/8/8/R3K2R w KQkq - 0 1");
    Worker *w = worker_of(pos);
    ASSERT_EQ(w->ply, 1);
    MoveEntry *start = w->plies[1].list_start;
    for (int i = 0; i < 300; i++) start[i].score = SCORE_MARK;
    generate_all(pos);
    List expected = all_moves(pos);
    // A capture, promotions, a seventh-rank push and quiet moves: every
    // stage has something to say.
    ASSERT_FALSE(captures(pos).empty());
    ASSERT_FALSE(promotions(pos).empty());
    ASSERT_FALSE(seventh(pos).empty());
    size_t n = expected.size();
    EXPECT_EQ(w->plies[1].list_start, start);
    EXPECT_EQ(w->plies[1].current, start);
    for (size_t i = 0; i < n; i++) {
        EXPECT_EQ(start[i].move, expected[i].move) << i;
        EXPECT_EQ(start[i].moved, expected[i].moved) << i;
        EXPECT_EQ(start[i].captured, expected[i].captured) << i;
        EXPECT_EQ(start[i].score, SCORE_MARK) << i;
    }
    EXPECT_EQ(start[n].move, END_OF_LIST);
    // The next plies' lists are packed right behind the terminator.
    EXPECT_EQ(w->plies[2].list_start, start + n + 1);
    EXPECT_EQ(w->plies[3].list_start, start + n + 2);
}

// Every line of the standard perft suite: no generated move is 0 or the
// terminator, flags appear only on pawn and king moves, one at a time, and
// a castling move always lands on the g- or c-file.
TEST(MoveCodes, GeneratedMovesAreWellFormed) {
    FILE *f = std::fopen(data_path("perft_standard.epd"), "r");
    ASSERT_NE(f, nullptr);
    char line[512];
    int lines = 0;
    while (std::fgets(line, sizeof line, f)) {
        char *cut = std::strchr(line, ';');
        if (!cut) continue;
        *cut = 0;
        Position &pos = test_position(line);
        lines++;
        for (const MoveEntry &e : all_moves(pos)) {
            EXPECT_NE(e.move, NO_MOVE);
            EXPECT_NE(e.move, END_OF_LIST);
            int flags = e.move & FLAG_MASK;
            if (!flags) continue;
            EXPECT_EQ(count_bits(flags), 1) << line;
            int type = piece_type(e.moved);
            ASSERT_TRUE(type == PAWN || type == KING) << line;
            if (type == KING) {
                int file = file_of(move_to(e.move));
                EXPECT_EQ(file, flags == FLAG_SHORT ? 6 : 2) << line;
                EXPECT_EQ(move_to(e.move) & 56, move_from(e.move) & 56);
            }
        }
    }
    std::fclose(f);
    EXPECT_EQ(lines, 138);
}

}  // namespace
