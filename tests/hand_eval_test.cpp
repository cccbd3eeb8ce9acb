// The hand-written evaluation's frame and piece terms.  Most tests switch
// every parameter off but the one under test, so that a stage's sum is
// exactly what that term's parameter predicts; the scale factor is checked
// against the final blend; and a colour-flipped board must score the same.
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <string>
#include <vector>

#include "hand_eval_support.h"

namespace {

struct HandEvalTest : ParamTest {};

int result_of(const EvalRun &run, int side) {
    int r =
        static_cast<int>(static_cast<f32>(blended(run.ctx)) * run.ctx.scale);
    return side == WHITE ? r : -r;
}

// --- Wrong bishop -------------------------------------------------------

TEST_F(HandEvalTest, WrongBishopRookPawnScoresNearZero) {
    // a-pawn, dark bishop, the bare king on a8 (a light corner).
    EvalRun run = run_hand_eval("k7/8/8/8/P7/8/4K3/2B5 w - - 0 1");
    ASSERT_GT(blended(run.ctx), 300);
    EXPECT_EQ(run.ctx.scale, 0.05f);
    EXPECT_EQ(run.score, result_of(run, WHITE));
    EXPECT_LT(run.score, blended(run.ctx) / 10);
    // One king step from the corner is as good.
    run = run_hand_eval("8/1k6/8/8/P7/8/4K3/2B5 w - - 0 1");
    EXPECT_EQ(run.ctx.scale, 0.05f);
    // h-pawn with a light bishop: the corner h8 is dark.
    run = run_hand_eval("7k/8/8/8/7P/8/4K3/3B4 b - - 0 1");
    EXPECT_EQ(run.ctx.scale, 0.05f);
    EXPECT_EQ(run.score, result_of(run, BLACK));
    // Black's a-pawn promotes on a1, a dark corner: a light bishop fails.
    run = run_hand_eval("2b5/4k3/8/8/p7/8/8/K7 w - - 0 1");
    ASSERT_LT(blended(run.ctx), -300);
    EXPECT_EQ(run.ctx.scale, 0.05f);
}

TEST_F(HandEvalTest, WrongBishopNeedsKingInCornerAndWrongColour) {
    // Two king steps away: the defence is too late.
    EvalRun run = run_hand_eval("8/8/2k5/8/P7/8/4K3/2B5 w - - 0 1");
    EXPECT_EQ(run.ctx.scale, 1.0f);
    // The light bishop controls a8.
    run = run_hand_eval("k7/8/8/8/P7/8/4K3/3B4 w - - 0 1");
    EXPECT_EQ(run.ctx.scale, 1.0f);
    // A pawn off the rook file.
    run = run_hand_eval("k7/8/8/8/PP6/8/4K3/2B5 w - - 0 1");
    EXPECT_NE(run.ctx.scale, 0.05f);
}

TEST_F(HandEvalTest, RookPawnsWithoutBishopAreTheSameFortress) {
    // Only pawns is "only bishops and pawns" with no bishop on the corner's
    // colour.
    EvalRun run = run_hand_eval("k7/8/8/8/P7/P7/4K3/8 w - - 0 1");
    EXPECT_EQ(run.ctx.scale, 0.05f);
}

// --- Bishops ------------------------------------------------------------

TEST_F(HandEvalTest, BishopPairNeedsBothSquareColours) {
    keep_only({param.bishop_pair});
    // c1 dark, f1 light.
    EvalRun run = run_hand_eval("4k3/8/8/8/8/8/8/2B1KB2 w - - 0 1");
    EXPECT_EQ(stage_sum(run.ctx, TRACE_BISHOPS, WHITE),
              param.bishop_pair->packed);
    // c1 and e3 both dark.
    run = run_hand_eval("4k3/8/8/8/8/4B3/8/2B1K3 w - - 0 1");
    EXPECT_EQ(stage_sum(run.ctx, TRACE_BISHOPS, WHITE), 0);
    // d1 and f1 both light.
    run = run_hand_eval("4k3/8/8/8/8/8/8/3BKB2 w - - 0 1");
    EXPECT_EQ(stage_sum(run.ctx, TRACE_BISHOPS, WHITE), 0);
}

TEST_F(HandEvalTest, RammedPawnsCountOnTheBishopsColours) {
    keep_only({param.bishop_rampawns});
    // Rams d4/d5 and e4/e5: d4 and e5 dark, e4 and d5 light.  White's dark
    // bishop counts d4; black's light bishop counts d5.
    EvalRun run = run_hand_eval("2b3k1/8/8/3pp3/3PP3/8/8/2B3K1 w - - 0 1");
    EXPECT_EQ(stage_sum(run.ctx, TRACE_BISHOPS, WHITE),
              times(param.bishop_rampawns, 1));
    EXPECT_EQ(stage_sum(run.ctx, TRACE_BISHOPS, BLACK),
              times(param.bishop_rampawns, 1));
    // Bishops on both colours count both rams.
    run = run_hand_eval("2b3k1/8/8/3pp3/3PP3/8/8/2B2BK1 w - - 0 1");
    EXPECT_EQ(stage_sum(run.ctx, TRACE_BISHOPS, WHITE),
              times(param.bishop_rampawns, 2));
}

TEST_F(HandEvalTest, BishopInfiltrationCountsCentralSquares) {
    keep_only({param.bishop_infiltration});
    // From a1 the long diagonal crosses c3, d4, e5, f6.
    EvalRun run = run_hand_eval("4k3/8/8/8/8/8/8/B3K3 w - - 0 1");
    EXPECT_EQ(stage_sum(run.ctx, TRACE_BISHOPS, WHITE),
              times(param.bishop_infiltration, 4));
    // A queen on d4 of either colour is looked through; a pawn is not.
    run = run_hand_eval("4k3/8/8/8/3q4/8/8/B3K3 w - - 0 1");
    EXPECT_EQ(stage_sum(run.ctx, TRACE_BISHOPS, WHITE),
              times(param.bishop_infiltration, 4));
    run = run_hand_eval("4k3/8/8/8/3p4/8/8/B3K3 w - - 0 1");
    EXPECT_EQ(stage_sum(run.ctx, TRACE_BISHOPS, WHITE),
              times(param.bishop_infiltration, 2));
}

// --- Rooks --------------------------------------------------------------

TEST_F(HandEvalTest, RookOpenFileOnlyWithoutAnyPawn) {
    keep_only({param.rook_openfile});
    EvalRun run = run_hand_eval("4k3/8/8/8/8/8/8/3RK3 w - - 0 1");
    EXPECT_EQ(stage_sum(run.ctx, TRACE_ROOKS, WHITE),
              param.rook_openfile->packed);
    // Half-open, an enemy pawn only: no bonus of any kind.
    run = run_hand_eval("4k3/3p4/8/8/8/8/8/3RK3 w - - 0 1");
    EXPECT_EQ(stage_sum(run.ctx, TRACE_ROOKS, WHITE), 0);
    // Own pawn on the file.
    run = run_hand_eval("4k3/8/8/8/8/3P4/8/3RK3 w - - 0 1");
    EXPECT_EQ(stage_sum(run.ctx, TRACE_ROOKS, WHITE), 0);
}

TEST_F(HandEvalTest, RookOnSeventhNeedsKingOnLastRanks) {
    keep_only({param.rook_7th});
    EvalRun run = run_hand_eval("6k1/R7/8/8/8/8/8/6K1 w - - 0 1");
    EXPECT_EQ(stage_sum(run.ctx, TRACE_ROOKS, WHITE), param.rook_7th->packed);
    run = run_hand_eval("8/R7/6k1/8/8/8/8/6K1 w - - 0 1");
    EXPECT_EQ(stage_sum(run.ctx, TRACE_ROOKS, WHITE), 0);
    run = run_hand_eval("6k1/8/8/8/8/8/r7/6K1 w - - 0 1");
    EXPECT_EQ(stage_sum(run.ctx, TRACE_ROOKS, BLACK), param.rook_7th->packed);
}

TEST_F(HandEvalTest, RookInfiltrationCountsOwnFileInEnemyHalf) {
    keep_only({param.rook_infiltration});
    // a5 to a8.
    EvalRun run = run_hand_eval("6k1/8/8/8/8/8/8/R5K1 w - - 0 1");
    EXPECT_EQ(stage_sum(run.ctx, TRACE_ROOKS, WHITE),
              times(param.rook_infiltration, 4));
    // Up to the pawn on a6: a5 and a6.
    run = run_hand_eval("6k1/8/p7/8/8/8/8/R5K1 w - - 0 1");
    EXPECT_EQ(stage_sum(run.ctx, TRACE_ROOKS, WHITE),
              times(param.rook_infiltration, 2));
}

// --- Knights, material and tables ----------------------------------------

TEST_F(HandEvalTest, PieceTablesFollowTheKingsWing) {
    keep_table({param.mtl_knight}, param.pst_n);
    TermPair mtl = param.mtl_knight->packed;
    // f3 = 21, c3 = 18.
    EvalRun run = run_hand_eval("6k1/8/8/8/8/5N2/8/6K1 w - - 0 1");
    EXPECT_EQ(stage_sum(run.ctx, TRACE_KNIGHTS, WHITE),
              add_pairs(mtl, param.pst_n[21]->packed));
    run = run_hand_eval("6k1/8/8/8/8/5N2/8/2K5 w - - 0 1");
    EXPECT_EQ(stage_sum(run.ctx, TRACE_KNIGHTS, WHITE),
              add_pairs(mtl, param.pst_n[18]->packed));
    // Black's f6 is white's f3, and c3 with the king on the queen side.
    run = run_hand_eval("6k1/8/5n2/8/8/8/8/6K1 w - - 0 1");
    EXPECT_EQ(stage_sum(run.ctx, TRACE_KNIGHTS, BLACK),
              add_pairs(mtl, param.pst_n[21]->packed));
    run = run_hand_eval("1k6/8/5n2/8/8/8/8/6K1 w - - 0 1");
    EXPECT_EQ(stage_sum(run.ctx, TRACE_KNIGHTS, BLACK),
              add_pairs(mtl, param.pst_n[18]->packed));
}

TEST_F(HandEvalTest, KnightMobilitySkipsOwnMenAndPawnGuardedSquares) {
    keep_only({param.knight_mobility});
    // e4: c5 is guarded by the d6 pawn; the pawn itself may be taken.
    EvalRun run = run_hand_eval("6k1/8/3p4/8/4N3/8/8/6K1 w - - 0 1");
    EXPECT_EQ(stage_sum(run.ctx, TRACE_KNIGHTS, WHITE),
              scaled(param.knight_mobility, 0.47f));
    // a1 with c2 taken by an own pawn: only b3.
    run = run_hand_eval("6k1/8/8/8/8/8/2P5/N5K1 w - - 0 1");
    EXPECT_EQ(stage_sum(run.ctx, TRACE_KNIGHTS, WHITE),
              scaled(param.knight_mobility, -0.16f));
}

TEST_F(HandEvalTest, KnightOutposts) {
    keep_only({param.knight_outpost});
    const ParamEntry *p = param.knight_outpost;
    // d5 guarded by e4.
    EvalRun run = run_hand_eval("6k1/8/8/3N4/4P3/8/8/6K1 w - - 0 1");
    EXPECT_EQ(stage_sum(run.ctx, TRACE_KNIGHTS, WHITE), scaled(p, 1.0f));
    run = run_hand_eval("6k1/8/8/3N4/8/8/8/6K1 w - - 0 1");
    EXPECT_EQ(stage_sum(run.ctx, TRACE_KNIGHTS, WHITE), scaled(p, 0.67f));
    // From d3 it only reaches outposts.
    run = run_hand_eval("6k1/8/8/8/8/3N4/8/6K1 w - - 0 1");
    EXPECT_EQ(stage_sum(run.ctx, TRACE_KNIGHTS, WHITE), scaled(p, 0.33f));
    // The c7 pawn can still chase it from d5.
    run = run_hand_eval("6k1/2p5/8/3N4/4P3/8/8/6K1 w - - 0 1");
    EXPECT_EQ(stage_sum(run.ctx, TRACE_KNIGHTS, WHITE), scaled(p, 0.33f));
}

// --- Attack maps --------------------------------------------------------

TEST_F(HandEvalTest, PiecesReachingTheKingZoneRaiseDanger) {
    // The zone of g8 is f6 to h8: the knight on f5 hits g7 (4), the b2
    // bishop f6 (3).
    EvalRun run = run_hand_eval("6k1/8/8/5N2/8/8/1B6/6K1 w - - 0 1");
    EXPECT_EQ(run.ctx.danger[BLACK], 7);
    EXPECT_EQ(run.ctx.danger[WHITE], 0);
}

TEST_F(HandEvalTest, QueenReachesThroughOwnRook) {
    // The d2 rook hits the zone of d8 (4); the queen behind it does so by
    // x-ray (5), and makes the file doubly attacked, but her own attack
    // map stops at d2.
    EvalRun run = run_hand_eval("3k4/8/8/8/8/8/3R4/3Q2K1 w - - 0 1");
    EXPECT_EQ(run.ctx.danger[BLACK], 9);
    int d5 = 35;
    EXPECT_NE(run.ctx.double_attacks[WHITE] & bit(d5), 0u);
    EXPECT_EQ(run.ctx.attacks[WHITE][QUEEN] & bit(d5), 0u);
    EXPECT_NE(run.ctx.attacks[WHITE][0] & bit(d5), 0u);
}

TEST_F(HandEvalTest, SideToMoveBonus) {
    keep_only({param.stm_bonus});
    EvalRun run = run_hand_eval("4k3/8/8/8/8/8/8/4K3 w - - 0 1");
    EXPECT_EQ(stage_sum(run.ctx, TRACE_SPECIAL, WHITE),
              param.stm_bonus->packed);
    EXPECT_EQ(stage_sum(run.ctx, TRACE_SPECIAL, BLACK), 0);
    run = run_hand_eval("4k3/8/8/8/8/8/8/4K3 b - - 0 1");
    EXPECT_EQ(stage_sum(run.ctx, TRACE_SPECIAL, BLACK),
              param.stm_bonus->packed);
    // Phase 0: the endgame half decides.  Black is ahead by the bonus and
    // has no pawn, so the pawnless rule scales by 0 * 0.007 + 0.1.
    EXPECT_EQ(run.ctx.phase, 0.0f);
    EXPECT_EQ(run.ctx.scale, 0.1f);
    EXPECT_EQ(
        run.score,
        static_cast<int>(static_cast<f32>(-param.stm_bonus->eg) * 0.1f) * -1);
}

// --- Scale factor -------------------------------------------------------

TEST_F(HandEvalTest, OppositeBishopsWithPawns) {
    // 0.6 without a rook or queen, then two pawns against a bishop: 0.8.
    EvalRun run = run_hand_eval("2b1k3/p7/8/8/8/8/PP6/2B1K3 w - - 0 1");
    ASSERT_GT(blended(run.ctx), 0);
    EXPECT_EQ(run.ctx.scale, 0.6f * 0.8f);
    EXPECT_EQ(run.score, result_of(run, WHITE));
    // Bishops of one colour: only the pawn rule.
    run = run_hand_eval("4kb2/p7/8/8/8/8/PP6/2B1K3 w - - 0 1");
    ASSERT_GT(blended(run.ctx), 0);
    EXPECT_EQ(run.ctx.scale, 0.8f);
    // With rooks: 0.9.
    run = run_hand_eval("r1b1k3/p7/8/8/8/8/PP6/R1B1K3 w - - 0 1");
    ASSERT_GT(blended(run.ctx), 0);
    EXPECT_EQ(run.ctx.scale, 0.9f * 0.8f);
    // No pawns at all.
    run = run_hand_eval("2b1k3/8/8/8/8/8/8/2B1K3 w - - 0 1");
    EXPECT_EQ(run.ctx.scale, 3 * 0.007f + 0.1f);
}

TEST_F(HandEvalTest, EndingsWithoutPawns) {
    EvalRun run = run_hand_eval("4k3/8/8/3n4/8/8/8/2B1KB2 w - - 0 1");
    ASSERT_GT(blended(run.ctx), 0);
    EXPECT_EQ(run.ctx.scale, 0.75f);
    EXPECT_EQ(run.score, result_of(run, WHITE));
    run = run_hand_eval("4k3/8/8/3b4/8/8/8/R3K3 b - - 0 1");
    ASSERT_GT(blended(run.ctx), 0);
    EXPECT_EQ(run.ctx.scale, 5 * 0.007f + 0.1f);
    EXPECT_EQ(run.score, result_of(run, BLACK));
}

TEST_F(HandEvalTest, FewPawnsAndPlentyOfMaterial) {
    // Rook and pawn against rook: 0.8.
    EvalRun run = run_hand_eval("r3k3/8/8/8/8/8/4P3/R3K3 w - - 0 1");
    ASSERT_GT(blended(run.ctx), 0);
    EXPECT_EQ(run.ctx.scale, 0.8f);
    EXPECT_EQ(run.score, result_of(run, WHITE));
    // Against a knight the rook's side has too much for rule 5.
    run = run_hand_eval("1n2k3/8/8/8/8/8/4P3/R3K3 w - - 0 1");
    EXPECT_EQ(run.ctx.scale, 1.0f);
    // More than 10 points, or a gap above 3: no scaling at all.
    run = run_hand_eval(START_FEN);
    EXPECT_EQ(run.ctx.scale, 1.0f);
    run = run_hand_eval("4k3/8/8/8/8/8/8/R3K3 w - - 0 1");
    EXPECT_EQ(run.ctx.scale, 1.0f);
}

// --- Broken boards ------------------------------------------------------

TEST_F(HandEvalTest, MissingKingsAddNoKingTerms) {
    // No king at all: no zone, no king terms, and the usual blend of what
    // is left (the side-to-move bonus, scaled as a pawnless ending).
    EvalRun run = run_hand_eval("8/8/8/8/8/8/8/8 w - - 0 1");
    EXPECT_EQ(run.ctx.king_zone[WHITE], 0u);
    EXPECT_EQ(run.ctx.king_zone[BLACK], 0u);
    EXPECT_EQ(stage_sum(run.ctx, TRACE_KING, WHITE), 0);
    EXPECT_EQ(stage_sum(run.ctx, TRACE_KING, BLACK), 0);
    EXPECT_EQ(run.score, result_of(run, WHITE));
    // Only white's king missing, with pieces aiming at its square's table
    // entries and pins through the empty square.
    run = run_hand_eval("r3k2r/8/8/8/3q4/8/PPP5/RN1Q1B2 b - - 0 1");
    EXPECT_EQ(run.ctx.king_zone[WHITE], 0u);
    EXPECT_EQ(stage_sum(run.ctx, TRACE_KING, WHITE), 0);
    EXPECT_NE(stage_sum(run.ctx, TRACE_KING, BLACK), 0);
    EXPECT_EQ(run.score, result_of(run, BLACK));
}

TEST_F(HandEvalTest, PawnsOnTheLastRanksHaveNoFront) {
    // A white pawn on a8 and a black one on h1 have no square ahead: the
    // king's way to the pawns cannot be measured and adds nothing.
    keep_only({param.king_pawn_dist});
    EvalRun run = run_hand_eval("P7/8/8/3k4/8/8/8/3K3p w - - 0 1");
    EXPECT_EQ(stage_sum(run.ctx, TRACE_KING, WHITE), 0);
    EXPECT_EQ(stage_sum(run.ctx, TRACE_KING, BLACK), 0);
    EXPECT_EQ(run.score, result_of(run, WHITE));
}

// --- Colour symmetry ----------------------------------------------------

std::vector<std::string> split(const std::string &text) {
    std::vector<std::string> out;
    size_t i = 0;
    while (i < text.size()) {
        while (i < text.size() && text[i] == ' ') i++;
        size_t j = i;
        while (j < text.size() && text[j] != ' ') j++;
        if (j > i) out.push_back(text.substr(i, j - i));
        i = j;
    }
    return out;
}

char swap_case(char c) {
    if (c >= 'a' && c <= 'z') return static_cast<char>(c - 'a' + 'A');
    if (c >= 'A' && c <= 'Z') return static_cast<char>(c - 'A' + 'a');
    return c;
}

// Ranks turned over, colours and the side to move exchanged, castling
// rights and the en-passant square along with them.
std::string mirror_fen(const std::string &fen) {
    std::vector<std::string> f = split(fen);
    std::vector<std::string> ranks;
    std::string rank;
    for (char c : f[0]) {
        if (c == '/') {
            ranks.push_back(rank);
            rank.clear();
        } else {
            rank += swap_case(c);
        }
    }
    ranks.push_back(rank);
    std::string out;
    for (size_t i = ranks.size(); i-- > 0;) {
        out += ranks[i];
        if (i) out += '/';
    }
    out += f[1] == "w" ? " b " : " w ";
    std::string castling = f[2];
    for (char &c : castling) c = swap_case(c);
    std::string ep = f[3];
    if (ep.size() == 2) ep[1] = ep[1] == '3' ? '6' : '3';
    out += castling + " " + ep;
    for (size_t i = 4; i < f.size(); i++) out += " " + f[i];
    return out;
}

u64 flip_ranks(u64 b) {
    u64 out = 0;
    for (; b; b = clear_first_bit(b)) out |= bit(first_bit(b) ^ 56);
    return out;
}

u32 next_random(u64 &state) {
    state = state * 6364136223846793005ULL + 1442695040888963407ULL;
    return static_cast<u32>(state >> 33);
}

// Random games from a position; every position reached is kept.
void play_out(const std::string &start, int games, int plies, u64 &seed,
              std::vector<std::string> &out) {
    for (int g = 0; g < games; g++) {
        Position &pos = test_position(start.c_str());
        for (int ply = 0; ply < plies; ply++) {
            Move moves[256];
            int n = legal_moves(pos, moves);
            if (n == 0) break;
            make_move(pos, moves[next_random(seed) % n]);
            char fen[128];
            get_fen(pos, fen, 1);
            out.push_back(fen);
        }
    }
}

std::vector<std::string> symmetry_positions() {
    std::vector<std::string> fens;
    u64 seed = 20240611;
    play_out(START_FEN, 25, 100, seed, fens);
    std::ifstream epd(data_path("perft_standard.epd"));
    std::string line;
    while (std::getline(epd, line)) {
        std::string fen = line.substr(0, line.find(';'));
        if (split(fen).size() < 4) continue;
        fens.push_back(fen);
        play_out(fen, 1, 16, seed, fens);
    }
    return fens;
}

// Every term is colour-symmetric: the flipped board's stage sums are the
// original's with the colours exchanged.  Two things are not:
// - with several queens of one colour the pin test looks at the first in
//   bit order only, and the flip may change which one that is (the queens'
//   x-ray double attacks are gathered in bit order too): such positions
//   are left out;
// - the blend reads the endgame half of the packed difference by
//   arithmetic shift, so it carries the midgame half's borrow and
//   eg(-d) = -eg(d) - 1 where mg(d) > 0.  Where that moves the truncated
//   blend, each side's score is checked against its own blend instead, and
//   the two blends may differ by one.
// On a level blend white counts as the side ahead, so the scale factor is
// compared only where the blend is not 0 (the result is 0 there anyway).
TEST_F(HandEvalTest, ColourFlippedBoardScoresTheSame) {
    std::vector<std::string> fens = symmetry_positions();
    ASSERT_GT(fens.size(), 3000u);
    int exact = 0, borrowed = 0;
    for (const std::string &fen : fens) {
        const Position &pos = test_position(fen.c_str());
        if (count_bits(pos.bitboards[WHITE][QUEEN]) > 1 ||
            count_bits(pos.bitboards[BLACK][QUEEN]) > 1)
            continue;
        int side = pos.side;
        std::string flipped = mirror_fen(fen);
        EvalRun a = run_hand_eval(fen.c_str());
        EvalRun b = run_hand_eval(flipped.c_str());
        for (int stage = 0; stage < TRACE_STAGES; stage++)
            for (int c = WHITE; c <= BLACK; c++)
                ASSERT_EQ(a.ctx.trace_score[stage][c],
                          b.ctx.trace_score[stage][c ^ 1])
                    << fen << " stage " << stage << " colour " << c;
        ASSERT_EQ(a.ctx.phase, b.ctx.phase) << fen;
        ASSERT_EQ(flip_ranks(a.ctx.hung_squares), b.ctx.hung_squares) << fen;
        ASSERT_EQ(flip_ranks(a.ctx.free_pawns), b.ctx.free_pawns) << fen;
        ASSERT_EQ(a.score, result_of(a, side)) << fen;
        ASSERT_EQ(b.score, result_of(b, side ^ 1)) << flipped;
        int ra = blended(a.ctx), rb = blended(b.ctx);
        if (ra == -rb) {
            exact++;
            ASSERT_EQ(a.score, b.score) << fen << "\n" << flipped;
            if (ra != 0) {
                ASSERT_EQ(a.ctx.scale, b.ctx.scale) << fen;
            }
        } else {
            borrowed++;
            ASSERT_LE(std::abs(ra + rb), 1) << fen;
        }
    }
    EXPECT_GT(exact, 2000);
    std::printf("colour symmetry: %d exact, %d within the borrow\n", exact,
                borrowed);
}

}  // namespace
