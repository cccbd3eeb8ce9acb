// Pawn structure: the pawn sets, the cached structure score and its cache,
// and the passed and candidate pawn terms.  Expected values are built from
// the parameter table, so they follow the loaded parameter set.
#include <gtest/gtest.h>

#include <cstring>
#include <initializer_list>

#include "test_support.h"

namespace {

int square(const char *name) { return (name[0] - 'a') + 8 * (name[1] - '1'); }

u64 squares(std::initializer_list<const char *> names) {
    u64 b = 0;
    for (const char *n : names) b |= bit(square(n));
    return b;
}

TermPair sum_of(std::initializer_list<TermPair> pairs) {
    TermPair s = 0;
    for (TermPair p : pairs) s = add_pairs(s, p);
    return s;
}

TermPair times(const ParamEntry *p, int n) {
    TermPair s = 0;
    add_param_times(s, p, n);
    return s;
}

TermPair scaled(const ParamEntry *p, f32 f) {
    TermPair s = 0;
    add_scaled(s, p, f);
    return s;
}

// Weights by relative rank, as the rules give them.
constexpr f32 BASE_WEIGHT[8] = {0, 0.09f, 0.09f, 0.24f, 0.4f, 0.64f, 1, 0};
constexpr f32 KING_WEIGHT[8] = {0, 0.2f, 0.2f, 0.4f, 0.6f, 0.8f, 1, 0};
constexpr f32 CONNECTED_WEIGHT[8] = {0, 0, 0, 0.4f, 0.8f, 1, 0, 0};
constexpr f32 DISTANCE_WEIGHT[6] = {0.5f, 0.6f, 0.7f, 0.8f, 0.9f, 1};
constexpr f32 RANK_WEIGHT[8] = {0, 0, 0, 0.4f, 0.7f, 1, 0, 0};

// One passed pawn's terms, given its weight, relative rank, the king
// distance values (min(d, 6) - 2, own king on the target -1) and whether
// an own pawn covers its stop square.
TermPair passed_terms(const ParamEntry *weight, int r, int own, int enemy,
                      bool connected) {
    f32 q = KING_WEIGHT[r] * 0.25f;
    TermPair s = sum_of({scaled(weight, BASE_WEIGHT[r]),
                         scaled(param.ppawn_ekprox, enemy * q),
                         scaled(param.ppawn_fkprox, own * q)});
    if (connected)
        s = add_pairs(s, scaled(param.ppawn_connected, CONNECTED_WEIGHT[r]));
    return s;
}

TermPair candidate_term(int king_distance, int r) {
    f32 dist = DISTANCE_WEIGHT[king_distance < 5 ? king_distance : 5];
    const ParamEntry *p = param.ppawn_candidate;
    return make_pair(static_cast<int>(p->mg * dist * RANK_WEIGHT[r]),
                     static_cast<int>(p->eg * dist * RANK_WEIGHT[r]));
}

struct PawnsTest : testing::Test {
    void SetUp() override { clear_pawn_cache(); }
    void TearDown() override {
        clear_pawn_cache();
        test_position(START_FEN);
    }
    static void clear_pawn_cache() {
        std::memset(front_worker->pawn_cache, 0,
                    sizeof front_worker->pawn_cache);
        front_worker->eval.eval_ply = 1;
    }
};

// The whole hand-written evaluation at `ply`, keeping each stage's sums.
EvalContext &evaluate_at(const char *fen, int ply) {
    test_position(fen);
    EvalContext &ctx = front_worker->eval;
    ctx.eval_ply = static_cast<u8>(ply);
    ctx.trace = 1;
    hand_evaluate(front_worker);
    ctx.trace = 0;
    return ctx;
}

TermPair pawn_stage(const EvalContext &ctx, int c) {
    return ctx.trace_score[TRACE_PAWNS][c];
}

// The passed pawn terms alone, on the complete maps of a full evaluation.
TermPair passed_score(const char *fen, int c) {
    EvalContext &ctx = evaluate_at(fen, 1);
    ctx.score[WHITE] = ctx.score[BLACK] = 0;
    evaluate_passed_pawns(ctx);
    return ctx.score[c];
}

TermPair candidate_score(const char *fen, int c) {
    EvalContext &ctx = evaluate_at(fen, 1);
    ctx.score[WHITE] = ctx.score[BLACK] = 0;
    evaluate_candidate_pawns(ctx);
    return ctx.score[c];
}

TEST_F(PawnsTest, PawnSets) {
    const EvalContext &ctx =
        evaluate_at("4k3/8/3p4/4P1P1/2P5/8/P1K5/8 w - - 0 1", 1);
    EXPECT_EQ(ctx.pawn_attacks_of[WHITE],
              squares({"b3", "b5", "d5", "d6", "f6", "h6"}));
    EXPECT_EQ(ctx.pawn_attacks_of[BLACK], squares({"c5", "e5"}));
    EXPECT_EQ(ctx.attacks[WHITE][PAWN], ctx.pawn_attacks_of[WHITE]);
    EXPECT_EQ(ctx.attacks[BLACK][PAWN], ctx.pawn_attacks_of[BLACK]);
    EXPECT_EQ(ctx.attacks[WHITE][0] & ctx.pawn_attacks_of[WHITE],
              ctx.pawn_attacks_of[WHITE]);
    // b3: the a2 pawn and the king; f6: the e5 and g5 pawns.
    EXPECT_EQ(ctx.double_attacks[WHITE], squares({"b3", "f6"}));
    EXPECT_EQ(ctx.double_attacks[BLACK], 0u);
    // Squares in b4-g6 that the d6 pawn can never attack.
    EXPECT_EQ(ctx.outposts[WHITE],
              squares({"b4", "d4", "f4", "g4", "b5", "d5", "f5", "g5", "b6",
                       "c6", "d6", "e6", "f6", "g6"}));
    EXPECT_EQ(ctx.outposts[BLACK],
              squares({"c3", "d3", "e3", "f3", "g3", "c4", "d4", "e4", "f4",
                       "g4", "c5", "e5", "f5", "g5"}));
    EXPECT_EQ(ctx.all_pawns, squares({"a2", "c4", "e5", "g5", "d6"}));
    EXPECT_EQ(ctx.passed_pawns, squares({"a2", "g5"}));
    EXPECT_EQ(ctx.candidate_pawns, squares({"c4", "e5", "d6"}));
    // e6 lies one step before the black king's zone (d6-f8).
    EXPECT_EQ(ctx.danger[WHITE], 0);
    EXPECT_EQ(ctx.danger[BLACK], 2);
}

TEST_F(PawnsTest, DangerCountsPawnsOneStepFromTheZone) {
    // White king g1, zone f1-h3; black pawns on f4 and h4 step onto f3, h3.
    const EvalContext &ctx = evaluate_at("6k1/8/8/8/5p1p/8/8/6K1 w - - 0 1", 1);
    EXPECT_EQ(ctx.danger[WHITE], 4);
    EXPECT_EQ(ctx.danger[BLACK], 0);
}

// a2, b2 cover each other's next square; c3 and d4 stand defended; d5 is
// doubled and blocks d4; e3 has only pawns ahead of it on the d-file; h4
// is isolated.
constexpr const char *STRUCTURE = "6k1/8/8/3P4/3P3P/2P1P3/PP6/6K1 w - - 0 1";
constexpr const char *STRUCTURE_MIRRORED =
    "6k1/pp6/2p1p3/3p3p/3p4/8/8/6K1 b - - 0 1";

TermPair structure_expectation() {
    TermPair s = times(param.mtl_pawn, 7);
    for (const char *sq : {"a2", "b2", "c3", "d4", "d5", "e3", "h4"})
        s = add_pairs(s, param.pst_p1[square(sq)]->packed);
    return sum_of({s, param.pst_dp[square("c3")]->packed,
                   param.pst_dp[square("d4")]->packed,
                   param.pst_cp[square("a2")]->packed,
                   param.pst_cp[square("b2")]->packed,
                   param.pawn_isolated->packed, param.pawn_weak->packed,
                   param.pawn_doubled->packed, param.pawn_blocked->packed});
}

TEST_F(PawnsTest, StructureTermsFollowParameters) {
    const EvalContext &ctx = evaluate_at(STRUCTURE, 1);
    EXPECT_EQ(ctx.same_wing, 1);
    EXPECT_EQ(pawn_stage(ctx, WHITE), structure_expectation());
    EXPECT_EQ(pawn_stage(ctx, BLACK), 0);
}

TEST_F(PawnsTest, BlackStructureIsTheMirrorImage) {
    const EvalContext &ctx = evaluate_at(STRUCTURE_MIRRORED, 1);
    EXPECT_EQ(pawn_stage(ctx, BLACK), structure_expectation());
    EXPECT_EQ(pawn_stage(ctx, WHITE), 0);
}

TEST_F(PawnsTest, KingOnTheQueenSideMirrorsAndSwitchesTable) {
    // White king b1: files flipped, kings on different wings, second table.
    const EvalContext &ctx = evaluate_at("6k1/8/8/8/8/8/P7/1K6 w - - 0 1", 1);
    EXPECT_EQ(ctx.same_wing, 0);
    TermPair expected =
        sum_of({param.mtl_pawn->packed, param.pst_p2[square("h2")]->packed,
                param.pawn_isolated->packed});
    EXPECT_EQ(pawn_stage(ctx, WHITE), expected);
}

TEST_F(PawnsTest, BlockedPawnIsNotCached) {
    // The d5 pawn blocks d4 in both; only the pieces differ.
    TermPair bare =
        pawn_stage(evaluate_at("6k1/8/8/8/3P4/8/8/6K1 w - - 0 1", 1), WHITE);
    TermPair blocked =
        pawn_stage(evaluate_at("6k1/8/8/3n4/3P4/8/8/6K1 w - - 0 1", 2), WHITE);
    EXPECT_EQ(blocked, add_pairs(bare, param.pawn_blocked->packed));
}

// Index and key of the cache entry for the current front position.
u64 modified_key(u64 flips) { return front_worker->position.pawn_key ^ flips; }
PawnCacheEntry &entry_for(u64 key) {
    return front_worker->pawn_cache[key & 0x3FFF];
}

TEST_F(PawnsTest, FirstPlyWritesTheCacheButNeverReadsIt) {
    const char *fen = "6k1/pp6/8/8/3P4/8/PP6/6K1 w - - 0 1";
    Worker &w = *front_worker;
    u64 probes = w.pawn_probe_count, hits = w.pawn_hit_count;
    TermPair fresh = pawn_stage(evaluate_at(fen, 1), WHITE);
    PawnCacheEntry &entry = entry_for(modified_key(0));
    EXPECT_EQ(entry.key, modified_key(0));
    EXPECT_EQ(entry.white, fresh);
    EXPECT_EQ(w.pawn_probe_count, probes + 1);
    EXPECT_EQ(w.pawn_hit_count, hits);

    // A poisoned entry with the right key is recomputed at ply 1...
    const TermPair poison = make_pair(1234, -567);
    entry.white = poison;
    EXPECT_EQ(pawn_stage(evaluate_at(fen, 1), WHITE), fresh);
    EXPECT_EQ(entry.white, fresh);
    EXPECT_EQ(w.pawn_probe_count, probes + 2);
    EXPECT_EQ(w.pawn_hit_count, hits);

    // ... and taken as it stands from ply 2 on.
    entry.white = poison;
    EXPECT_EQ(pawn_stage(evaluate_at(fen, 2), WHITE), poison);
    EXPECT_EQ(w.pawn_probe_count, probes + 3);
    EXPECT_EQ(w.pawn_hit_count, hits + 1);
}

TEST_F(PawnsTest, KingOnTheOtherWingUsesAnotherEntry) {
    const char *kings_kingside = "6k1/pp6/8/8/3P4/8/PP6/6K1 w - - 0 1";
    const char *white_queenside = "6k1/pp6/8/8/3P4/8/PP6/1K6 w - - 0 1";
    const char *black_queenside = "1k6/pp6/8/8/3P4/8/PP6/6K1 w - - 0 1";
    const u64 white_flip = 0x6C43EB52AULL, black_flip = 0x3E2571CB4ULL;
    Worker &w = *front_worker;

    TermPair a = pawn_stage(evaluate_at(kings_kingside, 1), WHITE);
    u64 key_a = modified_key(0);
    u64 pawn_key = front_worker->position.pawn_key;
    TermPair b = pawn_stage(evaluate_at(white_queenside, 1), WHITE);
    ASSERT_EQ(front_worker->position.pawn_key, pawn_key);
    u64 key_b = modified_key(white_flip);
    evaluate_at(black_queenside, 1);
    u64 key_c = modified_key(black_flip);
    EXPECT_NE(key_a & 0x3FFF, key_b & 0x3FFF);
    EXPECT_NE(key_a & 0x3FFF, key_c & 0x3FFF);
    EXPECT_NE(key_b & 0x3FFF, key_c & 0x3FFF);
    EXPECT_EQ(entry_for(key_a).key, key_a);
    EXPECT_EQ(entry_for(key_b).key, key_b);
    EXPECT_EQ(entry_for(key_c).key, key_c);
    // The mirrored tables give another score for the same pawns.
    EXPECT_NE(a, b);

    // Each position now finds its own entry.
    u64 hits = w.pawn_hit_count;
    EXPECT_EQ(pawn_stage(evaluate_at(kings_kingside, 2), WHITE), a);
    EXPECT_EQ(pawn_stage(evaluate_at(white_queenside, 2), WHITE), b);
    EXPECT_EQ(w.pawn_hit_count, hits + 2);
}

TEST_F(PawnsTest, PawnOnSecondRankStopsOnTheDoubleStepSquare) {
    // e2 may go to e4: the target is then e5, four steps from the h1 king.
    // With e3 as the stop, the target would be e4, three steps away.
    TermPair score = passed_score("k7/8/8/8/8/8/4P3/7K w - - 0 1", WHITE);
    EXPECT_EQ(score, passed_terms(param.ppawn_free, 1, 2, 2, false));
    EXPECT_NE(score, passed_terms(param.ppawn_free, 1, 1, 2, false));
    EXPECT_EQ(front_worker->eval.free_pawns, squares({"e2"}));
}

TEST_F(PawnsTest, DoubleStepStopHeldByOwnKingIsNotMobile) {
    // e4 holds the own king, so the pawn is neither mobile nor free; the
    // target e5 is next to the king.
    TermPair score = passed_score("k7/8/8/8/4K3/8/4P3/8 w - - 0 1", WHITE);
    EXPECT_EQ(score, passed_terms(param.ppawn_base, 1, -1, 2, false));
    EXPECT_EQ(front_worker->eval.free_pawns, 0u);
}

TEST_F(PawnsTest, BlockedNextSquareKeepsTheSingleStep) {
    // A knight on e3: the stop stays on e3, occupied, so the base weight.
    TermPair score = passed_score("k7/8/8/8/8/4n3/4P3/7K w - - 0 1", WHITE);
    EXPECT_EQ(score, passed_terms(param.ppawn_base, 1, 1, 2, false));
}

TEST_F(PawnsTest, DoubledPassedPawnScoresOnlyTheFrontOne) {
    TermPair both = passed_score("k7/8/8/4P3/4P3/8/8/7K w - - 0 1", WHITE);
    u64 free = front_worker->eval.free_pawns;
    TermPair front = passed_score("k7/8/8/4P3/8/8/8/7K w - - 0 1", WHITE);
    TermPair rear = passed_score("k7/8/8/8/4P3/8/8/7K w - - 0 1", WHITE);
    EXPECT_EQ(both, front);
    EXPECT_NE(rear, 0);
    EXPECT_EQ(free, squares({"e5"}));
}

TEST_F(PawnsTest, PassedPawnMobilityStates) {
    // Free: e6 is safe and nothing of black's watches e6 to e8.
    EXPECT_EQ(passed_score("k7/8/8/4P3/8/8/8/7K w - - 0 1", WHITE),
              passed_terms(param.ppawn_free, 4, 4, 2, false));
    // Mobile: e6 is safe, but the d8 king holds e7 and e8.
    EXPECT_EQ(passed_score("3k4/8/8/4P3/8/8/8/7K w - - 0 1", WHITE),
              passed_terms(param.ppawn_mobile, 4, 4, -1, false));
    EXPECT_EQ(front_worker->eval.free_pawns, 0u);
    // Not mobile: the d7 king takes on e6.
    EXPECT_EQ(passed_score("8/3k4/8/4P3/8/8/8/7K w - - 0 1", WHITE),
              passed_terms(param.ppawn_base, 4, 4, -1, false));
    // Not mobile: e6 is occupied.
    EXPECT_EQ(passed_score("k7/8/4n3/4P3/8/8/8/7K w - - 0 1", WHITE),
              passed_terms(param.ppawn_base, 4, 4, 2, false));
    // Own king on the target e7.
    EXPECT_EQ(passed_score("k7/4K3/8/4P3/8/8/8/8 w - - 0 1", WHITE),
              passed_terms(param.ppawn_free, 4, -1, 2, false));
}

TEST_F(PawnsTest, FreedomNeedsTheWholePathSafe) {
    // The c6 bishop eyes e8: a minor on the path, though the h8 rook
    // covers the square, leaves the pawn only mobile.
    EXPECT_EQ(passed_score("7R/8/2b5/4P3/8/8/8/k5K1 w - - 0 1", WHITE),
              passed_terms(param.ppawn_mobile, 4, 4, 4, false));
    EXPECT_EQ(front_worker->eval.free_pawns, 0u);
    // e7 is covered by the h7 rook but hit twice by queen and rook.
    EXPECT_EQ(passed_score("8/rq5R/8/4P3/8/8/8/k5K1 w - - 0 1", WHITE),
              passed_terms(param.ppawn_mobile, 4, 4, 4, false));
    EXPECT_EQ(front_worker->eval.free_pawns, 0u);
    // Hit once and covered once: the pawn stays free.
    EXPECT_EQ(passed_score("8/1q5R/8/4P3/8/8/8/k5K1 w - - 0 1", WHITE),
              passed_terms(param.ppawn_free, 4, 4, 4, false));
}

TEST_F(PawnsTest, ConnectedPassedPawns) {
    // e5 and f5 cover each other's stop squares e6 and f6.
    TermPair expected =
        add_pairs(passed_terms(param.ppawn_free, 4, 4, 2, true),
                  passed_terms(param.ppawn_free, 4, 4, 3, true));
    EXPECT_EQ(passed_score("k7/8/8/4PP2/8/8/8/7K w - - 0 1", WHITE), expected);
}

TEST_F(PawnsTest, BlackPassedPawnIsTheMirrorImage) {
    TermPair white = passed_score("k7/8/8/4PP2/8/8/8/7K w - - 0 1", WHITE);
    TermPair black = passed_score("7k/8/8/8/4pp2/8/8/K7 b - - 0 1", BLACK);
    EXPECT_EQ(white, black);
    EXPECT_EQ(front_worker->eval.free_pawns, squares({"e4", "f4"}));
    TermPair home = passed_score("7k/4p3/8/8/8/8/8/K7 b - - 0 1", BLACK);
    EXPECT_EQ(home, passed_score("k7/8/8/8/8/8/4P3/7K w - - 0 1", WHITE));
}

TEST_F(PawnsTest, CandidateNeedsAsManyHelpersAsGuards) {
    // e5 against d7: one guard on e6, one helper on f5.
    EXPECT_EQ(candidate_score("k7/3p4/8/4PP2/8/8/8/7K w - - 0 1", WHITE),
              candidate_term(4, 4));
    EXPECT_EQ(candidate_score("k7/3p4/8/4P3/8/8/8/7K w - - 0 1", WHITE), 0);
    // Two pawns guard e6: with two helpers it counts, with one it doesn't.
    EXPECT_EQ(candidate_score("k7/3p1p2/8/3PPP2/8/8/8/7K w - - 0 1", WHITE),
              candidate_term(4, 4));
    EXPECT_EQ(candidate_score("k7/3p1p2/8/4PP2/8/8/8/7K w - - 0 1", WHITE), 0);
}

TEST_F(PawnsTest, CandidateWeightsByRankAndKingDistance) {
    // e6 against f7 with a helper on d6; the black king on c8 is two
    // steps from e7.
    EXPECT_EQ(candidate_score("2k5/5p2/3PP3/8/8/8/8/7K w - - 0 1", WHITE),
              candidate_term(2, 5));
    // King two steps from e7 and a fifth-rank pawn: the weight is taken
    // factor by factor, parameter times 0.7, then times 0.7.
    EXPECT_EQ(candidate_score("2k5/3p4/8/4PP2/8/8/8/7K w - - 0 1", WHITE),
              candidate_term(2, 4));
    // Black's mirror image scores the same for black.
    EXPECT_EQ(candidate_score("7k/8/8/8/8/3pp3/5P2/2K5 b - - 0 1", BLACK),
              candidate_term(2, 5));
    // A piece anywhere on the file ahead stops the term.
    EXPECT_EQ(candidate_score("2k1n3/5p2/3PP3/8/8/8/8/7K w - - 0 1", WHITE), 0);
}

TEST_F(PawnsTest, BrokenPositionsStayInBounds) {
    // Pawns on their own last ranks, with no square ahead, and no kings.
    EvalContext &ctx = evaluate_at("P7/8/8/8/8/8/8/7p w - - 0 1", 1);
    ASSERT_EQ(ctx.passed_pawns, squares({"a8", "h1"}));
    ctx.score[WHITE] = ctx.score[BLACK] = 0;
    evaluate_passed_pawns(ctx);
    evaluate_candidate_pawns(ctx);
    EXPECT_EQ(ctx.score[WHITE], 0);
    EXPECT_EQ(ctx.score[BLACK], 0);
    EXPECT_EQ(ctx.free_pawns, 0u);
    // Pawns on their first ranks: every weight of that rank is 0.
    EXPECT_EQ(passed_score("7p/8/8/8/8/8/8/P7 w - - 0 1", WHITE), 0);
    EXPECT_EQ(front_worker->eval.score[BLACK], 0);
}

}  // namespace
