// The staged move picker: the order of its stages on hand-built positions,
// the scores it writes, the bookkeeping of the next plies' lists, and that
// a full node hands out every pseudo-legal move exactly once.
#include "search/move_picker.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "test_support.h"

namespace {

struct Picked {
    std::string move;
    int score;
};

// Everything the picker hands out at the Worker's ply, in order; the cap
// only keeps a broken picker from running on for ever.
std::vector<Picked> drain(Position &pos) {
    std::vector<Picked> out;
    while (MoveEntry *e = next_move(pos)) {
        out.push_back({move_name(e->move, e->moved), e->score});
        if (out.size() > 1000) break;
    }
    return out;
}

std::vector<std::string> names(const std::vector<Picked> &picked) {
    std::vector<std::string> out;
    for (const Picked &p : picked) out.push_back(p.move);
    return out;
}

std::vector<int> scores(const std::vector<Picked> &picked) {
    std::vector<int> out;
    for (const Picked &p : picked) out.push_back(p.score);
    return out;
}

std::vector<std::string> entry_names(const MoveEntry *begin,
                                     const MoveEntry *end) {
    std::vector<std::string> out;
    for (const MoveEntry *e = begin; e != end; e++)
        out.push_back(move_name(e->move, e->moved));
    return out;
}

// The node at `ply` of the front position, set up as the search does it:
// the first checker, the check flag, the pick state and the hash move.
PlyRecord &prepare_node(int ply, u16 pick_state, Move hash = NO_MOVE) {
    Worker *w = front_worker;
    Position &pos = w->position;
    w->ply = static_cast<i16>(ply);
    PlyRecord &r = w->plies[ply];
    int checker = find_attacker(pos, pos.king_sq[pos.side], pos.side ^ 1,
                                occupied_squares(pos));
    r.checker_sq = static_cast<u8>(checker);
    r.in_check = checker != NO_SQUARE;
    r.pick_state = pick_state;
    r.hash_move = hash;
    return r;
}

// The entries that stand for the last two moves before the node at ply 2.
void set_previous_moves(Move m1, int moved1, Move m2, int moved2) {
    Worker *w = front_worker;
    w->plies[1].current->move = m1;
    w->plies[1].current->moved = static_cast<u8>(moved1);
    w->plies[0].current->move = m2;
    w->plies[0].current->moved = static_cast<u8>(moved2);
}

void clear_ordering_tables() {
    Worker *w = front_worker;
    std::memset(w->history, 0, sizeof w->history);
    std::memset(w->counter_move, 0, sizeof w->counter_move);
    std::memset(w->counter_move2, 0, sizeof w->counter_move2);
    std::memset(w->followup_move, 0, sizeof w->followup_move);
    for (PlyRecord &r : w->plies) {
        r.killer[0] = r.killer[1] = 0;
        r.evasion_killer = 0;
    }
}

struct PickerTest : testing::Test {
    void SetUp() override {
        clear_ordering_tables();
        reset_move_lists(front_worker);
    }
    void TearDown() override {
        clear_ordering_tables();
        reset_move_lists(front_worker);
        test_position(START_FEN);
    }
};

constexpr int W_PAWN = 1, W_ROOK = 4, W_KING = 6, B_KING = 14;

TEST_F(PickerTest, CapturesByVictimThenAttackerInPlainMode) {
    Position &pos = test_position("6k1/8/8/1r1q4/4P3/2N5/8/3QK3 w - - 0 1");
    prepare_node(2, PICK_QUIESCE);
    std::vector<Picked> got = drain(pos);
    // Queen victim 250 less the attacker's type; the rook 240 less 2.
    EXPECT_EQ(names(got),
              (std::vector<std::string>{"e4d5", "c3d5", "d1d5", "c3b5"}));
    EXPECT_EQ(scores(got), (std::vector<int>{249, 248, 245, 238}));
    // Without the quiet-check flag the capture search ends here for good.
    EXPECT_EQ(next_move(pos), nullptr);
}

TEST_F(PickerTest, PlainModeHasQueenPromotionsOnlyAndScoresPushes) {
    // a7 is blocked; b7 promotes by b8 and by taking on a8, and g6g7
    // reaches the seventh.  No under-promotions, no exchange test.
    Position &pos = test_position("n6k/PP6/6P1/8/8/8/8/K7 w - - 0 1");
    prepare_node(2, PICK_QUIESCE);
    std::vector<Picked> got = drain(pos);
    EXPECT_EQ(names(got), (std::vector<std::string>{"b7a8q", "b7b8q", "g6g7"}));
    EXPECT_EQ(scores(got), (std::vector<int>{229, 209, 209}));
}

TEST_F(PickerTest, FullModeOrdersByExchangeAndLeavesLosersForLater) {
    // Nxb5 wins, the promotions are safe, Nxd5 and Qxd5 lose a piece for a
    // pawn, and g6g7 walks into the king.
    Position &pos = test_position("7k/P7/2p3P1/1r1p4/8/2N2Q2/8/6K1 w - - 0 1");
    PlyRecord &r = prepare_node(2, PICK_SEARCH);
    std::vector<Picked> got = drain(pos);
    std::vector<std::string> head = {"c3b5",  "a7a8q", "a7a8n", "a7a8b",
                                     "a7a8r", "c3d5",  "f3d5",  "g6g7"};
    std::vector<int> head_scores = {238, 209, 209, 209, 209, 4, 4, 0};
    ASSERT_GT(got.size(), head.size());
    std::vector<Picked> first(got.begin(), got.begin() + head.size());
    EXPECT_EQ(names(first), head);
    EXPECT_EQ(scores(first), head_scores);
    // The quiet moves, all without history or bonus, follow in the order
    // of their generation.
    MoveEntry quiets[MAX_LIST_LENGTH];
    MoveEntry *end = generate_quiets(pos, WHITE, quiets, NO_SQUARE);
    std::vector<std::string> tail;
    for (size_t i = head.size(); i < got.size(); i++) {
        tail.push_back(got[i].move);
        EXPECT_EQ(got[i].score, 0) << got[i].move;
    }
    EXPECT_EQ(tail, entry_names(quiets, end));
    EXPECT_EQ(r.pick_state & PICK_STAGE_MASK, STAGE_SPENT);
}

TEST_F(PickerTest, HashMoveFirstAndItsCopyLater) {
    Position &pos = test_position(START_FEN);
    PlyRecord &r = prepare_node(2, PICK_SEARCH, coord_move("g1f3"));
    MoveEntry *first = next_move(pos);
    ASSERT_NE(first, nullptr);
    EXPECT_EQ(first, r.list_start);
    EXPECT_EQ(first->move, coord_move("g1f3"));
    EXPECT_EQ(first->score, HASH_MOVE_SCORE);
    EXPECT_EQ(first->moved, make_piece(KNIGHT, WHITE));
    EXPECT_EQ(first->captured, 0);
    EXPECT_EQ(r.current, first);
    // The hash move alone makes a list: terminated, children behind it.
    EXPECT_EQ(r.list_start[1].move, END_OF_LIST);
    EXPECT_EQ(front_worker->plies[3].list_start, r.list_start + 2);
    EXPECT_EQ(front_worker->plies[4].list_start, r.list_start + 3);
    EXPECT_EQ(r.pick_state & PICK_STAGE_MASK, STAGE_GENERATE_TACTICAL);

    std::vector<Picked> rest = drain(pos);
    EXPECT_EQ(rest.size(), 20u);
    EXPECT_EQ(std::count_if(rest.begin(), rest.end(),
                            [](const Picked &p) { return p.move == "g1f3"; }),
              1);
    // The spent hash entry stays at the head of the list.
    EXPECT_EQ(r.list_start[0].move, coord_move("g1f3"));
}

TEST_F(PickerTest, HashCaptureComesFirstAndAgainAmongTheCaptures) {
    Position &pos = test_position("6k1/8/8/1r1q4/4P3/2N5/8/3QK3 w - - 0 1");
    prepare_node(2, PICK_SEARCH, coord_move("c3b5"));
    std::vector<Picked> got = drain(pos);
    ASSERT_GE(got.size(), 5u);
    EXPECT_EQ(got[0].move, "c3b5");
    EXPECT_EQ(got[0].score, 255);
    // Exchange ordering: all four win material, so the victim and the
    // attacker decide as in plain mode.
    std::vector<Picked> next(got.begin() + 1, got.begin() + 5);
    EXPECT_EQ(names(next),
              (std::vector<std::string>{"e4d5", "c3d5", "d1d5", "c3b5"}));
}

TEST_F(PickerTest, HashMoveIgnoredWithoutItsFlag) {
    Position &pos = test_position(START_FEN);
    prepare_node(2, PICK_ALL_MOVES, coord_move("g1f3"));
    std::vector<Picked> got = drain(pos);
    ASSERT_EQ(got.size(), 20u);
    // With no history all quiet moves score 0 and come in generation
    // order, which starts with the pawn pushes.
    EXPECT_EQ(got[0].move, "a2a3");
    EXPECT_EQ(std::count_if(got.begin(), got.end(),
                            [](const Picked &p) { return p.move == "g1f3"; }),
              1);
}

TEST_F(PickerTest, NoTacticalMovesGoesStraightToQuietGeneration) {
    Position &pos = test_position(START_FEN);
    PlyRecord &r = prepare_node(2, PICK_ALL_MOVES);
    MoveEntry *first = next_move(pos);
    ASSERT_NE(first, nullptr);
    EXPECT_EQ(first, r.list_start);
    // Selection found nothing above 2, so the list is walked in order.
    EXPECT_EQ(r.pick_state & PICK_STAGE_MASK, STAGE_LIST_ORDER);
    EXPECT_EQ(move_name(first->move, first->moved), "a2a3");
}

TEST_F(PickerTest, ZeroScoredQuietsComeInGenerationOrder) {
    Position &pos = test_position(
        "r3k2r/p1ppqpb1/bn2pnp1/3PN3/1p2P3/2N2Q1p/PPPBBPPP/R3K2R w KQkq - 0 "
        "1");
    MoveEntry quiets[MAX_LIST_LENGTH];
    MoveEntry *end = generate_quiets(pos, WHITE, quiets, NO_SQUARE);
    prepare_node(2, PICK_SEARCH);
    std::vector<Picked> got = drain(pos);
    std::vector<std::string> tail;
    for (const Picked &p : got)
        if (p.score == 0) tail.push_back(p.move);
    // Every capture scores above 2, good or losing, and there is no pawn
    // push to the seventh: the zero-scored entries are the quiet moves.
    EXPECT_EQ(tail, entry_names(quiets, end));
}

TEST_F(PickerTest, KillersCountersFollowupAndHistoryOrderTheQuietMoves) {
    // The rook on d1 has ten quiet moves, the king three, and Rxd6 loses
    // the rook for a pawn.
    Position &pos = test_position("k7/2p5/3p4/8/8/8/8/3R3K w - - 0 1");
    Worker *w = front_worker;
    set_previous_moves(coord_move("b8a8"), B_KING, coord_move("d2d1"), W_ROOK);
    PlyRecord &r = prepare_node(2, PICK_SEARCH);
    r.killer[0] = coord_move("d1f1");
    r.killer[1] = coord_move("d1g1");
    w->counter_move[B_KING][sq_of("a8")] = coord_move("h1g2");
    w->counter_move2[B_KING][sq_of("a8")] = coord_move("d1b1");
    w->followup_move[W_ROOK][sq_of("d1")] = coord_move("d1d4");
    w->history[W_ROOK][sq_of("d3")] = 16384;  // 64, above every bonus
    w->history[W_ROOK][sq_of("e1")] = 1024;   // 4, level with Rxd6
    w->history[W_ROOK][sq_of("a1")] = 767;    // 2: not above the threshold
    w->history[W_KING][sq_of("h2")] = 2560;   // 10
    std::vector<Picked> got = drain(pos);
    EXPECT_EQ(names(got),
              (std::vector<std::string>{"d1d3", "d1f1", "d1g1", "h1g2", "d1b1",
                                        "d1d4", "h1h2", "d1d6", "d1e1", "d1a1",
                                        "d1d5", "h1g1", "d1c1", "d1d2"}));
    EXPECT_EQ(scores(got), (std::vector<int>{64, 60, 55, 50, 45, 40, 10, 4, 4,
                                             2, 0, 0, 0, 0}));
}

TEST_F(PickerTest, BestBelowThresholdIsSwappedToTheFrontFirst) {
    // Selection swaps the best entry to the front before the threshold is
    // tested: Rc1 (history 2) is not above 2, but it stays in front and is
    // the first of the entries handed out in list order.
    Position &pos = test_position("k7/8/8/8/8/8/8/3R3K w - - 0 1");
    Worker *w = front_worker;
    prepare_node(2, PICK_SEARCH);
    w->history[W_ROOK][sq_of("c1")] = 512;
    w->history[W_ROOK][sq_of("b1")] = 256;
    std::vector<Picked> got = drain(pos);
    ASSERT_GE(got.size(), 5u);
    std::vector<Picked> head(got.begin(), got.begin() + 5);
    EXPECT_EQ(names(head), (std::vector<std::string>{"d1c1", "d1b1", "d1a1",
                                                     "d1e1", "d1f1"}));
    EXPECT_EQ(scores(head), (std::vector<int>{2, 1, 0, 0, 0}));
}

TEST_F(PickerTest, FirstMatchingBonusCounts) {
    Position &pos = test_position("k7/2p5/3p4/8/8/8/8/3R3K w - - 0 1");
    Worker *w = front_worker;
    set_previous_moves(coord_move("b8a8"), B_KING, coord_move("d2d1"), W_ROOK);
    PlyRecord &r = prepare_node(2, PICK_SEARCH);
    // d1d5 is killer 1, counter and follow-up at once: killer 1 wins.
    r.killer[1] = coord_move("d1d5");
    w->counter_move[B_KING][sq_of("a8")] = coord_move("d1d5");
    w->followup_move[W_ROOK][sq_of("d1")] = coord_move("d1d5");
    std::vector<Picked> got = drain(pos);
    ASSERT_FALSE(got.empty());
    EXPECT_EQ(got[0].move, "d1d5");
    EXPECT_EQ(got[0].score, 55);
}

TEST_F(PickerTest, NullMoveBeforeDropsCountersAndFollowup) {
    Position &pos = test_position("k7/2p5/3p4/8/8/8/8/3R3K w - - 0 1");
    Worker *w = front_worker;
    // After a null move the previous entry has move 0.
    set_previous_moves(NO_MOVE, 0, coord_move("d2d1"), W_ROOK);
    prepare_node(2, PICK_SEARCH);
    w->counter_move[0][0] = coord_move("d1d5");
    w->counter_move2[0][0] = coord_move("d1d4");
    w->followup_move[W_ROOK][sq_of("d1")] = coord_move("d1d3");
    std::vector<Picked> got = drain(pos);
    ASSERT_EQ(got.size(), 14u);
    for (const Picked &p : got) {
        if (p.move != "d1d6") {
            EXPECT_EQ(p.score, 0) << p.move;
        }
    }
}

TEST_F(PickerTest, NullMoveTwoPliesBackDropsOnlyTheFollowup) {
    Position &pos = test_position("k7/2p5/3p4/8/8/8/8/3R3K w - - 0 1");
    Worker *w = front_worker;
    set_previous_moves(coord_move("b8a8"), B_KING, NO_MOVE, 0);
    prepare_node(2, PICK_SEARCH);
    w->counter_move[B_KING][sq_of("a8")] = coord_move("d1d5");
    w->followup_move[0][0] = coord_move("d1d3");
    std::vector<Picked> got = drain(pos);
    ASSERT_FALSE(got.empty());
    EXPECT_EQ(got[0].move, "d1d5");
    EXPECT_EQ(got[0].score, 50);
    for (const Picked &p : got) {
        if (p.move == "d1d3") {
            EXPECT_EQ(p.score, 0);
        }
    }
}

TEST_F(PickerTest, InCheckOnlyNarrowedEvasionsWithTheirOwnBonuses) {
    // The rook on a1 checks along the first rank: blocks on b1..g1 and king
    // moves are all the quiet moves there are.
    Position &pos = test_position("k7/8/8/8/8/2NR4/8/r6K w - - 0 1");
    Worker *w = front_worker;
    set_previous_moves(coord_move("a2a1"), make_piece(ROOK, BLACK),
                       coord_move("g2g3"), W_PAWN);
    PlyRecord &r = prepare_node(2, PICK_SEARCH);
    ASSERT_EQ(r.checker_sq, sq_of("a1"));
    ASSERT_EQ(r.in_check, 1);
    r.evasion_killer = coord_move("h1h2");
    r.killer[0] = coord_move("c3b1");  // not looked at in check
    w->counter_move[make_piece(ROOK, BLACK)][sq_of("a1")] = coord_move("c3d1");
    w->counter_move2[make_piece(ROOK, BLACK)][sq_of("a1")] = coord_move("d3d1");
    w->followup_move[W_PAWN][sq_of("g3")] = coord_move("h1g2");  // nor this
    w->history[make_piece(KNIGHT, WHITE)][sq_of("b1")] = 768;    // 3
    std::vector<Picked> got = drain(pos);
    EXPECT_EQ(names(got), (std::vector<std::string>{"h1h2", "c3d1", "d3d1",
                                                    "c3b1", "h1g2", "h1g1"}));
    EXPECT_EQ(scores(got), (std::vector<int>{60, 55, 50, 3, 0, 0}));
}

TEST_F(PickerTest, KnightCheckLeavesCapturesOfTheCheckerAndKingMoves) {
    // Nd3 checks; Bxf2 is not generated (not the checker), Kxf2 is, and the
    // promotions, the seventh-rank push and castling are not narrowed.
    Position &pos = test_position("7k/P7/1P6/8/8/2NnB3/4Pr2/4K2R w K - 0 1");
    prepare_node(2, PICK_ALL_MOVES);
    std::vector<std::string> got = names(drain(pos));
    std::sort(got.begin(), got.end());
    std::vector<std::string> want = {"a7a8b", "a7a8n",    "a7a8q", "a7a8r",
                                     "b6b7",  "e1d1",     "e1d2",  "e1f1",
                                     "e1f2",  "e1g1 O-O", "e2d3"};
    std::sort(want.begin(), want.end());
    EXPECT_EQ(got, want);
}

TEST_F(PickerTest, QuietChecksAfterTheCapturesInACaptureSearch) {
    // Rxa8 checks along the eighth rank and is handed out with the
    // captures; then the quiet checks Nd6, Nf6, Rd8 in list order.
    Position &pos = test_position("b3k3/8/8/8/4N3/8/8/R2R3K w - - 0 1");
    PlyRecord &r = prepare_node(2, PICK_QUIESCE_CHECKS);
    MoveEntry *first = next_move(pos);
    ASSERT_NE(first, nullptr);
    EXPECT_EQ(move_name(first->move, first->moved), "a1a8");
    EXPECT_EQ(first->score, 230 - 4);
    MoveEntry *tactical_end = r.list_start + 1;
    EXPECT_EQ(tactical_end->move, END_OF_LIST);
    EXPECT_EQ(front_worker->plies[3].list_start, tactical_end + 1);
    std::vector<Picked> got = drain(pos);
    EXPECT_EQ(names(got), (std::vector<std::string>{"e4d6", "e4f6", "d1d8"}));
    EXPECT_EQ(scores(got), (std::vector<int>{100, 100, 100}));
    // The checks were written over the old terminator and the list ends
    // behind them, with the children moved along.
    EXPECT_EQ(r.list_start[4].move, END_OF_LIST);
    EXPECT_EQ(front_worker->plies[3].list_start, r.list_start + 5);
    EXPECT_EQ(front_worker->plies[4].list_start, r.list_start + 6);
}

TEST_F(PickerTest, QuietCheckGeneratorCoversEveryDirectCheck) {
    Position &pos = test_position("8/8/8/4k3/8/R4P2/1N1P4/K5BQ w - - 0 1");
    MoveEntry list[MAX_LIST_LENGTH];
    MoveEntry *end = generate_quiet_checks(pos, WHITE, list);
    std::vector<std::string> want = {"f3f4", "d2d4", "b2d3", "b2c4",
                                     "g1h2", "g1d4", "a3e3", "a3a5",
                                     "h1h2", "h1h5", "h1h8"};
    EXPECT_EQ(entry_names(list, end), want);
    // Cross-check with the check test of the move classifier: the quiet
    // moves that check are exactly these (no discovered checks here).
    MoveEntry quiets[MAX_LIST_LENGTH];
    MoveEntry *quiet_end = generate_quiets(pos, WHITE, quiets, NO_SQUARE);
    std::vector<std::string> checking;
    for (MoveEntry *e = quiets; e != quiet_end; e++)
        if (classify_move(pos, WHITE, *e) & 2)
            checking.push_back(move_name(e->move, e->moved));
    std::vector<std::string> sorted_want = want;
    std::sort(sorted_want.begin(), sorted_want.end());
    std::sort(checking.begin(), checking.end());
    EXPECT_EQ(checking, sorted_want);
    for (MoveEntry *e = list; e != end; e++) {
        EXPECT_EQ(e->captured, 0);
        EXPECT_EQ(e->moved, pos.board[move_from(e->move)]);
    }
}

TEST_F(PickerTest, QuietChecksLeaveOutDiscoveredChecksKingMovesAndCastling) {
    // The rook's own moves to f1 and h8 check; castling, whose rook would
    // check on f1, does not come, nor any king move.
    Position &pos = test_position("5k2/8/8/8/N7/8/8/R3K2R w K - 0 1");
    MoveEntry list[MAX_LIST_LENGTH];
    MoveEntry *end = generate_quiet_checks(pos, WHITE, list);
    EXPECT_EQ(entry_names(list, end),
              (std::vector<std::string>{"h1f1", "h1h8"}));
    // Knight a4 to b6 checks directly; its other moves would uncover the
    // rook's check and are not generated.
    Position &other = test_position("k7/8/8/8/N7/8/8/R3K3 w - - 0 1");
    end = generate_quiet_checks(other, WHITE, list);
    EXPECT_EQ(entry_names(list, end), (std::vector<std::string>{"a4b6"}));
}

TEST_F(PickerTest, BlackQuietChecksPushTheOtherWay) {
    // Black pawns attack a king on e4 from d5 and f5: f6-f5 in one step,
    // d7-d5 in two over the empty d6.
    Position &pos = test_position("8/3p4/5p2/8/4K3/8/8/k7 b - - 0 1");
    MoveEntry list[MAX_LIST_LENGTH];
    MoveEntry *end = generate_quiet_checks(pos, BLACK, list);
    EXPECT_EQ(entry_names(list, end),
              (std::vector<std::string>{"f6f5", "d7d5"}));
}

TEST_F(PickerTest, DoublePushChecksNeedAFreeMiddleSquare) {
    // d2-d4 would check the king on e5, but the knight on d3 stands in the
    // way (and has no check of its own).
    Position &pos = test_position("8/8/8/4k3/8/3N4/3P4/K7 w - - 0 1");
    MoveEntry list[MAX_LIST_LENGTH];
    EXPECT_EQ(generate_quiet_checks(pos, WHITE, list), list);
    Position &open = test_position("8/8/8/4k3/8/8/3P4/K7 w - - 0 1");
    MoveEntry *end = generate_quiet_checks(open, WHITE, list);
    EXPECT_EQ(entry_names(list, end), (std::vector<std::string>{"d2d4"}));
}

TEST_F(PickerTest, CheckingPushToTheSeventhComesTwiceInACaptureSearch) {
    // The rule for quiet checks has no exception for the seventh rank, so a
    // push there that checks is both a tactical move and a quiet check.
    Position &pos = test_position("3k4/8/4P3/8/8/8/8/K7 w - - 0 1");
    prepare_node(2, PICK_QUIESCE_CHECKS);
    std::vector<Picked> got = drain(pos);
    EXPECT_EQ(names(got), (std::vector<std::string>{"e6e7", "e6e7"}));
    EXPECT_EQ(scores(got), (std::vector<int>{209, 100}));
}

TEST_F(PickerTest, NoScoringAtTheRoot) {
    // At ply 1 the quiet moves keep whatever scores their entries held;
    // with those cleared, killers and history change nothing.
    Position &pos = test_position(START_FEN);
    Worker *w = front_worker;
    PlyRecord &r = prepare_node(1, PICK_ALL_MOVES);
    for (int i = 0; i < 64; i++) r.list_start[i].score = 0;
    r.killer[0] = coord_move("g1f3");
    w->history[make_piece(KNIGHT, WHITE)][sq_of("c3")] = 16384;
    MoveEntry reference[MAX_LIST_LENGTH];
    MoveEntry *end = generate_quiets(pos, WHITE, reference, NO_SQUARE);
    EXPECT_EQ(names(drain(pos)), entry_names(reference, end));
}

TEST_F(PickerTest, SpentPickerStaysSpent) {
    // No tactical move in the start position: a capture search has nothing,
    // and later calls must not wander past the terminator.
    Position &pos = test_position(START_FEN);
    PlyRecord &r = prepare_node(2, PICK_QUIESCE);
    for (int i = 1; i < 8; i++) r.list_start[i] = {coord_move("e2e4"), 0, 1, 0};
    EXPECT_EQ(next_move(pos), nullptr);
    EXPECT_EQ(next_move(pos), nullptr);
    EXPECT_EQ(r.pick_state & PICK_STAGE_MASK, STAGE_SPENT);
    EXPECT_EQ(r.pick_state & ~PICK_STAGE_MASK, PICK_QUIESCE);
    // The same with quiet checks asked for and none to be had.
    prepare_node(2, PICK_QUIESCE_CHECKS);
    for (int i = 1; i < 8; i++) r.list_start[i] = {coord_move("e2e4"), 0, 1, 0};
    EXPECT_EQ(next_move(pos), nullptr);
    EXPECT_EQ(next_move(pos), nullptr);
    EXPECT_EQ(r.list_start[0].move, END_OF_LIST);
}

TEST_F(PickerTest, StagesEightAndNineWalkAFinishedListAgain) {
    Position &pos = test_position("6k1/8/8/1r1q4/4P3/2N5/8/3QK3 w - - 0 1");
    PlyRecord &r = prepare_node(2, PICK_SEARCH, coord_move("d1d2"));
    std::vector<Picked> first = drain(pos);
    r.pick_state =
        static_cast<u16>((r.pick_state & ~PICK_STAGE_MASK) | STAGE_RESTART);
    std::vector<Picked> again = drain(pos);
    // The whole list once more, hash entry included, best score first.
    // The first walk handed out the hash entry and its generated copy, so
    // both walks cover the same entries.
    ASSERT_EQ(again.size(), first.size());
    EXPECT_EQ(again[0].move, "d1d2");
    EXPECT_EQ(again[0].score, 255);
    for (size_t i = 1; i < again.size(); i++)
        EXPECT_LE(again[i].score, again[i - 1].score) << i;
    std::vector<std::string> a = names(first), b = names(again);
    std::sort(a.begin(), a.end());
    std::sort(b.begin(), b.end());
    EXPECT_EQ(a, b);
    EXPECT_EQ(next_move(pos), nullptr);
}

TEST_F(PickerTest, ListStartsOfTheNextPliesFollowTheList) {
    Position &pos = test_position("7k/P7/2p3P1/1r1p4/8/2N2Q2/8/6K1 w - - 0 1");
    Worker *w = front_worker;
    PlyRecord &r = prepare_node(2, PICK_SEARCH);
    // First call: the eight tactical moves are made and the children sit
    // behind their terminator.
    ASSERT_NE(next_move(pos), nullptr);
    EXPECT_EQ(r.list_start[8].move, END_OF_LIST);
    EXPECT_EQ(w->plies[3].list_start, r.list_start + 9);
    EXPECT_EQ(w->plies[4].list_start, r.list_start + 10);
    // Once the quiet moves are there, behind the full list.
    while (next_move(pos) && (r.pick_state & PICK_STAGE_MASK) < 6) {
    }
    MoveEntry *end = r.list_start;
    while (end->move != END_OF_LIST) end++;
    EXPECT_GT(end, r.list_start + 8);
    EXPECT_EQ(w->plies[3].list_start, end + 1);
    EXPECT_EQ(w->plies[4].list_start, end + 2);
}

TEST_F(PickerTest, ManyQueensStayInsideOnePlysShare) {
    Position &pos =
        test_position("Q1Q1Q1Q1/8/1Q1Q1Q1Q/8/Q1Q1Q1Q1/8/1Q1Q1Q1K/k7 w - - 0 1");
    PlyRecord &r = prepare_node(2, PICK_SEARCH);
    std::vector<Picked> got = drain(pos);
    EXPECT_GT(got.size(), 200u);
    EXPECT_LE(front_worker->plies[3].list_start - r.list_start,
              MAX_LIST_LENGTH);
}

// Every position of the suites and their children, as a multiset: the
// picker hands out the full pseudo-legal list (in check, the narrowed one)
// once, plus the hash move once more, and no legal move goes missing.
std::vector<std::string> suite_fens(const char *file, size_t limit) {
    std::vector<std::string> fens;
    FILE *f = std::fopen(data_path(file), "r");
    if (!f) return fens;
    char buffer[1024];
    while (fens.size() < limit && std::fgets(buffer, sizeof buffer, f)) {
        char *cut = std::strchr(buffer, ';');
        if (cut) fens.emplace_back(buffer, cut);
    }
    std::fclose(f);
    return fens;
}

std::vector<Move> sorted_moves(const MoveEntry *begin, const MoveEntry *end) {
    std::vector<Move> out;
    for (const MoveEntry *e = begin; e != end; e++) out.push_back(e->move);
    std::sort(out.begin(), out.end());
    return out;
}

// The list the picker must hand out: full lists out of check, the
// checker-narrowed generators in check.
std::vector<Move> expected_moves(const Position &pos, int checker) {
    MoveEntry list[MAX_LIST_LENGTH];
    MoveEntry *end = generate_captures(pos, pos.side, list, checker);
    end = generate_promotions(pos, pos.side, 1, end);
    end = generate_seventh_pushes(pos, pos.side, end);
    end = generate_quiets(pos, pos.side, end, checker);
    return sorted_moves(list, end);
}

std::vector<Move> legal_of(Position &pos, const std::vector<Move> &moves) {
    std::vector<Move> out;
    for (Move m : moves)
        if (legal_move(pos, pos.side, m)) out.push_back(m);
    return out;
}

// Checks the picker at ply 2 in the front position; returns whether it was
// in check.
bool check_node(Position &pos, const std::string &where) {
    i16 saved_ply = front_worker->ply;
    PlyRecord &r = prepare_node(2, PICK_SEARCH);
    std::vector<Move> want = expected_moves(pos, r.checker_sq);
    if (!want.empty()) r.hash_move = want[want.size() / 2];
    std::vector<Move> got;
    while (MoveEntry *e = next_move(pos)) {
        got.push_back(e->move);
        if (got.size() > 1000) break;
    }
    if (r.hash_move) want.push_back(r.hash_move);
    std::sort(want.begin(), want.end());
    std::sort(got.begin(), got.end());
    EXPECT_EQ(got, want) << where;
    // Nothing legal is lost by the narrowing in check.
    Move all[MAX_MOVES];
    std::vector<Move> legal_all(all, all + legal_moves(pos, all));
    std::sort(legal_all.begin(), legal_all.end());
    std::vector<Move> legal_got = legal_of(pos, got);
    legal_got.erase(std::unique(legal_got.begin(), legal_got.end()),
                    legal_got.end());
    EXPECT_EQ(legal_got, legal_all) << where;
    front_worker->ply = saved_ply;
    return r.in_check;
}

TEST_F(PickerTest, EveryPseudoLegalMoveOnceOverTheSuites) {
    std::vector<std::string> fens = suite_fens("perft_standard.epd", 1000);
    std::vector<std::string> c960 =
        suite_fens("perft_chess960_quillon.epd", 120);
    ASSERT_EQ(fens.size(), 138u);
    ASSERT_EQ(c960.size(), 120u);
    fens.insert(fens.end(), c960.begin(), c960.end());
    int nodes = 0, in_check = 0;
    for (const std::string &fen : fens) {
        Position &pos = test_position(fen.c_str());
        in_check += check_node(pos, fen);
        nodes++;
        // And every child of the position.
        MoveEntry moves[MAX_LIST_LENGTH];
        MoveEntry *end = generate_captures(pos, pos.side, moves, NO_SQUARE);
        end = generate_promotions(pos, pos.side, 1, end);
        end = generate_seventh_pushes(pos, pos.side, end);
        end = generate_quiets(pos, pos.side, end, NO_SQUARE);
        for (MoveEntry *e = moves; e != end; e++) {
            if (!legal_move(pos, pos.side, e->move)) continue;
            make_move(pos, e->move);
            in_check +=
                check_node(pos, fen + " then " + move_name(e->move, e->moved));
            nodes++;
            unmake_move(pos);
        }
    }
    EXPECT_GT(nodes, 5000);
    EXPECT_GT(in_check, 100);
}

}  // namespace
