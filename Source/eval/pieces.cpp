// The piece terms of the hand-written evaluation: what knights, bishops,
// rooks and queens earn for material, square, mobility and outposts, while
// their attacks fill the maps that king safety and threats read later.
#include "eval.h"

// Mobility factors by the number of squares a piece can go to without
// being taken by something cheaper.
static constexpr f32 KNIGHT_MOBILITY[9] = {-0.53f, -0.16f, 0.0f,  0.12f, 0.22f,
                                           0.31f,  0.39f,  0.47f, 0.47f};
static constexpr f32 LONG_MOBILITY[16] = {
    -0.47f, -0.14f, 0.0f,  0.11f, 0.2f,  0.27f, 0.35f, 0.41f,
    0.47f,  0.53f,  0.53f, 0.53f, 0.53f, 0.53f, 0.53f, 0.0f};
static constexpr f32 QUEEN_MOBILITY[28] = {
    -0.47f, -0.24f, -0.14f, -0.06f, 0.0f,  0.06f, 0.11f, 0.15f, 0.2f,  0.24f,
    0.27f,  0.31f,  0.35f,  0.38f,  0.41f, 0.41f, 0.41f, 0.41f, 0.41f, 0.41f,
    0.41f,  0.41f,  0.41f,  0.41f,  0.41f, 0.41f, 0.41f, 0.41f};

constexpr u64 CENTRAL_BLOCK = 0x00003C3C3C3C0000ULL;  // c3 to f6
constexpr u64 LIGHT_SQUARES = 0x55AA55AA55AA55AAULL;
constexpr u64 DARK_SQUARES = 0xAA55AA55AA55AA55ULL;
constexpr u64 FILE_A = 0x0101010101010101ULL;

// What danger a piece brings when it reaches the enemy king's zone.
constexpr int KNIGHT_DANGER = 4;
constexpr int BISHOP_DANGER = 3;
constexpr int ROOK_DANGER = 4;
constexpr int QUEEN_DANGER = 5;

static u64 square_bit(int sq) { return sq < 64 ? bit(sq) : 0; }

static void add_material(EvalContext &ctx, int c, int sq,
                         const ParamEntry *material, ParamEntry *const *table) {
    add_param(ctx.score[c], material);
    add_param(ctx.score[c], table[sq ^ ctx.pst_mirror[c]]);
}

// Enters a piece's attacks into the maps.  `reach` is what counts for
// double attacks and the enemy king's zone; only a queen's reach differs
// from its attacks, by the x-rays through its own bishops and rooks.
static void record_attacks(EvalContext &ctx, int c, int type, u64 attacks,
                           u64 reach, int danger) {
    ctx.double_attacks[c] |= reach & ctx.attacks[c][0];
    ctx.attacks[c][0] |= attacks;
    ctx.attacks[c][type] |= attacks;
    if (reach & ctx.king_zone[c ^ 1]) ctx.danger[c ^ 1] += danger;
}

// A square no enemy pawn can ever attack is worth most when an own pawn
// guards it; a piece that merely eyes such squares gets a third.
static void add_outpost(EvalContext &ctx, int c, int sq, u64 attacks,
                        const ParamEntry *outpost) {
    if (ctx.outposts[c] & bit(sq))
        add_scaled(ctx.score[c], outpost,
                   ctx.pawn_attacks_of[c] & bit(sq) ? 1.0f : 0.67f);
    else if (attacks & ctx.outposts[c])
        add_scaled(ctx.score[c], outpost, 0.33f);
}

void evaluate_knights(EvalContext &ctx) {
    const Position &pos = *ctx.eval_position;
    for (int c = WHITE; c <= BLACK; c++) {
        u64 unsafe = pos.bitboards[c][0] | ctx.pawn_attacks_of[c ^ 1];
        for (u64 b = pos.bitboards[c][KNIGHT]; b; b = clear_first_bit(b)) {
            int sq = first_bit(b);
            u64 a = knight_attacks[sq];
            add_material(ctx, c, sq, param.mtl_knight, param.pst_n);
            record_attacks(ctx, c, KNIGHT, a, a, KNIGHT_DANGER);
            add_scaled(ctx.score[c], param.knight_mobility,
                       KNIGHT_MOBILITY[count_bits(a & ~unsafe)]);
            add_outpost(ctx, c, sq, a, param.knight_outpost);
        }
    }
}

// Bishops on both colours cover every square; a bishop whose own pawns
// are fixed on its colour is hemmed in by them.
static void add_bishop_colours(EvalContext &ctx, int c) {
    const Position &pos = *ctx.eval_position;
    u64 bishops = pos.bitboards[c][BISHOP];
    u64 own = pos.bitboards[c][PAWN], theirs = pos.bitboards[c ^ 1][PAWN];
    u64 rammed = own & (c == WHITE ? theirs >> 8 : theirs << 8);
    int blocked = 0;
    if (bishops & LIGHT_SQUARES) blocked += count_bits(rammed & LIGHT_SQUARES);
    if (bishops & DARK_SQUARES) blocked += count_bits(rammed & DARK_SQUARES);
    if ((bishops & LIGHT_SQUARES) && (bishops & DARK_SQUARES))
        add_param(ctx.score[c], param.bishop_pair);
    add_param_times(ctx.score[c], param.bishop_rampawns, blocked);
}

void evaluate_bishops(EvalContext &ctx) {
    const Position &pos = *ctx.eval_position;
    // Bishops look through queens of either colour: a queen on the
    // diagonal backs the bishop up or is the target behind it.
    u64 queens = pos.bitboards[WHITE][QUEEN] | pos.bitboards[BLACK][QUEEN];
    u64 blockers = ctx.occupied & ~queens;
    for (int c = WHITE; c <= BLACK; c++) {
        u64 unsafe = pos.bitboards[c][0] | ctx.pawn_attacks_of[c ^ 1];
        for (u64 b = pos.bitboards[c][BISHOP]; b; b = clear_first_bit(b)) {
            int sq = first_bit(b);
            u64 a = bishop_attacks(sq, blockers);
            add_material(ctx, c, sq, param.mtl_bishop, param.pst_b);
            record_attacks(ctx, c, BISHOP, a, a, BISHOP_DANGER);
            add_scaled(ctx.score[c], param.bishop_mobility,
                       LONG_MOBILITY[count_bits(a & ~unsafe)]);
            add_param_times(ctx.score[c], param.bishop_infiltration,
                            count_bits(a & CENTRAL_BLOCK));
            add_outpost(ctx, c, sq, a, param.bishop_outpost);
        }
        add_bishop_colours(ctx, c);
        ctx.low_attacks[c] = ctx.attacks[c][PAWN] | ctx.attacks[c][KNIGHT] |
                             ctx.attacks[c][BISHOP];
    }
}

// A rook on the seventh matters while the enemy king is still shut in on
// its last two ranks.
static int rook_on_seventh(const Position &pos, int c, int sq) {
    int relative_rank = c == WHITE ? rank_of(sq) : 7 - rank_of(sq);
    u64 last_ranks = c == WHITE ? 0xFFFF000000000000ULL : 0xFFFFULL;
    return relative_rank == 6 &&
           (square_bit(pos.king_sq[c ^ 1]) & last_ranks) != 0;
}

void evaluate_rooks(EvalContext &ctx) {
    const Position &pos = *ctx.eval_position;
    u64 queens = pos.bitboards[WHITE][QUEEN] | pos.bitboards[BLACK][QUEEN];
    u64 pawns = pos.bitboards[WHITE][PAWN] | pos.bitboards[BLACK][PAWN];
    for (int c = WHITE; c <= BLACK; c++) {
        // Rooks look through queens and through each other: doubled rooks
        // and a queen behind them press the same file.
        u64 rooks = pos.bitboards[c][ROOK];
        u64 blockers = ctx.occupied & ~(queens | rooks);
        u64 unsafe = pos.bitboards[c][0] | ctx.low_attacks[c ^ 1];
        u64 enemy_half =
            c == WHITE ? 0xFFFFFFFF00000000ULL : 0x00000000FFFFFFFFULL;
        for (u64 b = rooks; b; b = clear_first_bit(b)) {
            int sq = first_bit(b);
            u64 a = rook_attacks(sq, blockers);
            u64 file = FILE_A << file_of(sq);
            add_material(ctx, c, sq, param.mtl_rook, param.pst_r);
            record_attacks(ctx, c, ROOK, a, a, ROOK_DANGER);
            add_scaled(ctx.score[c], param.rook_mobility,
                       LONG_MOBILITY[count_bits(a & ~unsafe)]);
            add_param_times(ctx.score[c], param.rook_infiltration,
                            count_bits(a & file & enemy_half));
            if (!(pawns & file)) add_param(ctx.score[c], param.rook_openfile);
            if (rook_on_seventh(pos, c, sq))
                add_param(ctx.score[c], param.rook_7th);
        }
    }
}

// The squares a queen presses on, her own bishops and rooks in front of
// her seen through: the battery counts twice where it hits.
static u64 queen_reach(const Position &pos, int c, int sq, u64 occupied,
                       u64 diagonal, u64 straight) {
    u64 reach = diagonal | straight;
    u64 bishops = pos.bitboards[c][BISHOP], rooks = pos.bitboards[c][ROOK];
    if (diagonal & bishops) reach |= bishop_attacks(sq, occupied ^ bishops);
    if (straight & rooks) reach |= rook_attacks(sq, occupied ^ rooks);
    return reach;
}

void evaluate_queens(EvalContext &ctx) {
    const Position &pos = *ctx.eval_position;
    for (int c = WHITE; c <= BLACK; c++) {
        u64 unsafe = pos.bitboards[c][0] | ctx.mid_attacks[c ^ 1];
        for (u64 b = pos.bitboards[c][QUEEN]; b; b = clear_first_bit(b)) {
            int sq = first_bit(b);
            u64 diagonal = bishop_attacks(sq, ctx.occupied);
            u64 straight = rook_attacks(sq, ctx.occupied);
            u64 a = diagonal | straight;
            u64 reach =
                queen_reach(pos, c, sq, ctx.occupied, diagonal, straight);
            add_material(ctx, c, sq, param.mtl_queen, param.pst_q);
            record_attacks(ctx, c, QUEEN, a, reach, QUEEN_DANGER);
            add_scaled(ctx.score[c], param.queen_mobility,
                       QUEEN_MOBILITY[count_bits(a & ~unsafe)]);
        }
    }
}
