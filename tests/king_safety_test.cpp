// King safety and threats: each term alone, with every other parameter
// switched off, against what its parameter predicts.
#include "hand_eval_support.h"

namespace {

struct KingSafetyTest : ParamTest {};

constexpr int sq(const char *name) {
    return (name[0] - 'a') + 8 * (name[1] - '1');
}

TermPair king_stage(const EvalRun &run, int c) {
    return stage_sum(run.ctx, TRACE_KING, c);
}

TermPair threat_stage(const EvalRun &run, int c) {
    return stage_sum(run.ctx, TRACE_THREATS, c);
}

// --- King terms ---------------------------------------------------------

TEST_F(KingSafetyTest, AttackTermsNeedSevenEnemyPointsTableAndTrapDoNot) {
    keep_table({param.pawn_shield, param.enemy_checks, param.king_danger1,
                param.king_danger2, param.king_trapped},
               param.pst_k);
    // Two knights (6 points): h1 is walled in by its own men, so only the
    // table and the trapped king count.
    EvalRun run = run_hand_eval("nn5k/8/8/8/8/8/6PP/6NK w - - 0 1");
    TermPair table_and_trap =
        add_pairs(param.pst_k[sq("h1")]->packed, param.king_trapped->packed);
    EXPECT_EQ(king_stage(run, WHITE), table_and_trap);
    // Rook and knight (8 points): the shelter of g2, h2 (n = 6) adds in; no
    // check is possible and the danger count stays below 1.
    run = run_hand_eval("rn5k/8/8/8/8/8/6PP/6NK w - - 0 1");
    EXPECT_EQ(
        king_stage(run, WHITE),
        add_pairs(table_and_trap, scaled(param.pawn_shield, (6 - 9) * 0.111f)));
}

TEST_F(KingSafetyTest, BareKingShelterIsJustShortOfMinusOne) {
    keep_only({param.pawn_shield});
    EvalRun run = run_hand_eval("rn5k/8/8/8/8/8/8/6K1 w - - 0 1");
    EXPECT_EQ(king_stage(run, WHITE), scaled(param.pawn_shield, -0.999f));
    EXPECT_NE(king_stage(run, WHITE), scaled(param.pawn_shield, -1.0f));
    // f2, g2 and the squares ahead: 6 of the 9 in front of the zone.
    run = run_hand_eval("rn5k/8/8/8/8/8/5PP1/6K1 w - - 0 1");
    EXPECT_EQ(king_stage(run, WHITE),
              scaled(param.pawn_shield, (6 - 9) * 0.111f));
    // A pawn on h3 covers h3 and h4.
    run = run_hand_eval("rn5k/8/8/8/8/7P/8/6K1 w - - 0 1");
    EXPECT_EQ(king_stage(run, WHITE),
              scaled(param.pawn_shield, (2 - 9) * 0.111f));
    // The full shelter.
    run = run_hand_eval("rn5k/8/8/8/8/8/5PPP/6K1 w - - 0 1");
    EXPECT_EQ(king_stage(run, WHITE), 0);
    // Black's shelter faces down the board.
    run = run_hand_eval("6k1/5pp1/8/8/8/8/8/RN5K w - - 0 1");
    EXPECT_EQ(king_stage(run, BLACK),
              scaled(param.pawn_shield, (6 - 9) * 0.111f));
}

TEST_F(KingSafetyTest, SafeChecksAreCounted) {
    keep_only({param.enemy_checks});
    // The a2 rook can check from a1, which white does not guard.
    EvalRun run = run_hand_eval("1n5k/8/8/8/8/8/r4PPP/6K1 w - - 0 1");
    EXPECT_EQ(king_stage(run, WHITE), times(param.enemy_checks, 1));
    // A knight on b3 guards a1.
    run = run_hand_eval("1n5k/8/8/8/8/1N6/r4PPP/6K1 w - - 0 1");
    EXPECT_EQ(king_stage(run, WHITE), 0);
    // From a1 the rook reaches b1 to f1; f1 is the king's own square to
    // guard, so b1 to e1 remain.
    run = run_hand_eval("1n5k/8/8/8/8/8/5PPP/r5K1 w - - 0 1");
    EXPECT_EQ(king_stage(run, WHITE), times(param.enemy_checks, 4));
}

TEST_F(KingSafetyTest, DangerGrowsWithTheSquareOfTheHits) {
    // Queen h4 against Kg1 with f2, g2, h2: the queen reaches the zone
    // (danger 5), hits f2 and h2 that only the king guards (2 hits), the
    // shelter is full (n = 9), no safe check: x = -9 + 5 - 2 + 5 * 2 = 4.
    const char *fen = "7k/8/8/8/7q/8/5PPP/6K1 w - - 0 1";
    keep_only({param.king_danger1});
    EvalRun run = run_hand_eval(fen);
    EXPECT_EQ(run.ctx.danger[WHITE], 5);
    double d = 4 * 4 * 0.0015;
    const ParamEntry *p = param.king_danger1;
    EXPECT_EQ(king_stage(run, WHITE), make_pair(static_cast<int>(d * p->mg),
                                                static_cast<int>(d * p->eg)));
    // With a queen against the king the first weight applies, not the
    // second.
    keep_only({param.king_danger2});
    run = run_hand_eval(fen);
    EXPECT_EQ(king_stage(run, WHITE), 0);
}

TEST_F(KingSafetyTest, KingPawnDistanceCountsSteps) {
    keep_only({param.king_pawn_dist});
    // The e4 pawn's front is e5 to e8.  From a1 three steps reach e5; from
    // h8 two reach e8.
    EvalRun run = run_hand_eval("7k/8/8/8/4P3/8/8/K7 w - - 0 1");
    EXPECT_EQ(king_stage(run, WHITE), scaled(param.king_pawn_dist, 0.6f));
    EXPECT_EQ(king_stage(run, BLACK), scaled(param.king_pawn_dist, 0.4f));
    // Already touching: no term.
    run = run_hand_eval("7k/8/8/3K4/4P3/8/8/8 w - - 0 1");
    EXPECT_EQ(king_stage(run, WHITE), 0);
    // Without pawns nothing to measure.
    run = run_hand_eval("7k/8/8/8/8/8/8/K7 w - - 0 1");
    EXPECT_EQ(king_stage(run, WHITE), 0);
}

TEST_F(KingSafetyTest, KingTrappedWithoutFlightSquare) {
    keep_only({param.king_trapped});
    // h1 walled in by g1, g2, h2.
    EvalRun run = run_hand_eval("7k/8/8/8/8/8/6PP/6NK w - - 0 1");
    EXPECT_EQ(king_stage(run, WHITE), param.king_trapped->packed);
    // g1 free but attacked by the c5 bishop: still trapped.
    run = run_hand_eval("7k/8/8/2b5/8/8/6PP/7K w - - 0 1");
    EXPECT_EQ(king_stage(run, WHITE), param.king_trapped->packed);
    run = run_hand_eval("7k/8/8/8/8/8/6PP/7K w - - 0 1");
    EXPECT_EQ(king_stage(run, WHITE), 0);
}

// --- Threats ------------------------------------------------------------

TEST_F(KingSafetyTest, HangingAndAttackedPawns) {
    keep_only({param.hung_pawn, param.attacked_pawn});
    // a4 attacked by the a8 rook, not defended.
    EvalRun run = run_hand_eval("r6k/8/8/8/P7/8/8/K7 w - - 0 1");
    EXPECT_EQ(threat_stage(run, WHITE), param.hung_pawn->packed);
    EXPECT_EQ(run.ctx.hung_squares, bit(sq("a4")));
    // Defended by the a1 rook.
    run = run_hand_eval("r6k/8/8/8/P7/8/8/R5K1 w - - 0 1");
    EXPECT_EQ(threat_stage(run, WHITE), param.attacked_pawn->packed);
    EXPECT_EQ(run.ctx.hung_squares, 0u);
}

TEST_F(KingSafetyTest, HangingAndAttackedMinors) {
    keep_only({param.hung_minor, param.attacked_minor});
    // d5 knight attacked by the rook, undefended.
    EvalRun run = run_hand_eval("7k/8/8/3n4/8/8/8/K2R4 w - - 0 1");
    EXPECT_EQ(threat_stage(run, BLACK), param.hung_minor->packed);
    // Defended by the d8 rook: attacked only.
    run = run_hand_eval("3r3k/8/8/3n4/8/8/8/K2R4 w - - 0 1");
    EXPECT_EQ(threat_stage(run, BLACK), param.attacked_minor->packed);
    // Attacked by a pawn, defended by a rook but no pawn: the pawn hangs it,
    // and since it is neither outnumbered nor pawn-defended it also counts
    // as attacked.
    run = run_hand_eval("3r3k/8/8/3n4/4P3/8/8/K7 w - - 0 1");
    EXPECT_EQ(
        threat_stage(run, BLACK),
        add_pairs(param.hung_minor->packed, param.attacked_minor->packed));
    // Defended by a pawn as well: hanging only.
    run = run_hand_eval("3r3k/8/4p3/3n4/4P3/8/8/K7 w - - 0 1");
    EXPECT_EQ(threat_stage(run, BLACK), param.hung_minor->packed);
}

TEST_F(KingSafetyTest, MajorsHangToMinorsAndPawns) {
    keep_only({param.hung_major});
    EvalRun run = run_hand_eval("7k/8/8/8/8/1n6/8/R5K1 w - - 0 1");
    EXPECT_EQ(threat_stage(run, WHITE), param.hung_major->packed);
    // A rook attacking it is no low attacker.
    run = run_hand_eval("r6k/8/8/8/8/8/8/R5K1 w - - 0 1");
    EXPECT_EQ(threat_stage(run, WHITE), 0);
}

TEST_F(KingSafetyTest, PawnPushThreats) {
    keep_only({param.ppush_threat});
    // d3-d4 would hit the e5 knight: the cost is black's.
    EvalRun run = run_hand_eval("7k/8/8/4n3/8/3P4/8/K7 w - - 0 1");
    EXPECT_EQ(threat_stage(run, BLACK), param.ppush_threat->packed);
    EXPECT_EQ(threat_stage(run, WHITE), 0);
    // A fork of two knights counts twice.
    run = run_hand_eval("7k/8/8/2n1n3/8/3P4/8/K7 w - - 0 1");
    EXPECT_EQ(threat_stage(run, BLACK), times(param.ppush_threat, 2));
    // d4 covered by the d8 rook and by no white pawn: not a safe step.
    run = run_hand_eval("3r3k/8/8/4n3/8/3P4/8/K7 w - - 0 1");
    EXPECT_EQ(threat_stage(run, BLACK), 0);
    // With c3 guarding d4 it is safe again (and c3-c4 hits nothing).
    run = run_hand_eval("3r3k/8/8/4n3/8/2PP4/8/K7 w - - 0 1");
    EXPECT_EQ(threat_stage(run, BLACK), param.ppush_threat->packed);
    // A double step from the second rank counts too, even where the single
    // step's square (d3, under the knight's eye) is not safe.
    run = run_hand_eval("7k/8/8/2n5/8/8/3P4/K7 w - - 0 1");
    EXPECT_EQ(threat_stage(run, BLACK), param.ppush_threat->packed);
}

TEST_F(KingSafetyTest, PushAgainstHangingPieceCountsNothingMore) {
    keep_only({param.ppush_threat});
    // The e1 rook already hangs the e5 knight.
    EvalRun run = run_hand_eval("7k/8/8/4n3/8/3P4/8/K3R3 w - - 0 1");
    EXPECT_EQ(run.ctx.hung_squares & bit(sq("e5")), bit(sq("e5")));
    EXPECT_EQ(threat_stage(run, BLACK), 0);
}

// --- Pins ---------------------------------------------------------------

TEST_F(KingSafetyTest, QueenPinnedToKingCountsPawnDoesNot) {
    keep_only({param.pinned_piece});
    const char *queen = "4r2k/8/8/8/8/8/4Q3/4K3 w - - 0 1";
    EXPECT_EQ(pinned(test_position(queen), WHITE), bit(sq("e2")));
    EvalRun run = run_hand_eval(queen);
    EXPECT_EQ(threat_stage(run, WHITE), param.pinned_piece->packed);
    const char *pawn = "4r2k/8/8/8/8/8/4P3/4K3 w - - 0 1";
    EXPECT_EQ(pinned(test_position(pawn), WHITE), bit(sq("e2")));
    run = run_hand_eval(pawn);
    EXPECT_EQ(threat_stage(run, WHITE), 0);
    // Every man but a pawn counts, so a king alone between the queen and
    // a rook is one too.
    const char *king = "3r3k/8/8/8/3K4/8/8/3Q4 w - - 0 1";
    EXPECT_EQ(pinned(test_position(king), WHITE), bit(sq("d4")));
    run = run_hand_eval(king);
    EXPECT_EQ(threat_stage(run, WHITE), param.pinned_piece->packed);
}

TEST_F(KingSafetyTest, PinsAlongLinesAndToTheQueen) {
    // Diagonal pin of a knight.
    EXPECT_EQ(pinned(test_position("7k/8/8/b7/8/8/3N4/4K3 w - - 0 1"), WHITE),
              bit(sq("d2")));
    // Two men between: no pin.
    EXPECT_EQ(
        pinned(test_position("4r2k/8/8/8/8/4N3/4B3/4K3 w - - 0 1"), WHITE), 0u);
    // Two men between rook and king, but the knight alone shields the
    // queen.
    EXPECT_EQ(
        pinned(test_position("4r2k/8/8/8/8/4N3/4Q3/4K3 w - - 0 1"), WHITE),
        bit(sq("e3")));
    // A bishop does not pin along a file.
    EXPECT_EQ(pinned(test_position("4b2k/8/8/8/8/8/4Q3/4K3 w - - 0 1"), WHITE),
              0u);
    // A knight in front of the queen, a rook behind it.
    EXPECT_EQ(
        pinned(test_position("3r3k/8/8/8/3N4/8/8/3Q2K1 w - - 0 1"), WHITE),
        bit(sq("d4")));
    // An enemy queen does not pin to the queen.
    EXPECT_EQ(
        pinned(test_position("3q3k/8/8/8/3N4/8/8/3Q2K1 w - - 0 1"), WHITE), 0u);
    // Enemy men in between are not ours to count.
    EXPECT_EQ(pinned(test_position("4r2k/8/8/8/8/8/4n3/4K3 w - - 0 1"), WHITE),
              0u);
    // Black's pins.
    EXPECT_EQ(pinned(test_position("4k3/4n3/8/8/8/8/8/4R2K w - - 0 1"), BLACK),
              bit(sq("e7")));
}

}  // namespace
