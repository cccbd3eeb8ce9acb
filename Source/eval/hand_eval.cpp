// The frame of the hand-written evaluation: the context, the terms in
// their fixed order, the blend of midgame and endgame by the phase, and
// the scale factor that pulls drawish endings toward zero.
#include <cstring>

#include "eval.h"

constexpr u64 FILE_A = 0x0101010101010101ULL;
constexpr u64 FILE_H = 0x8080808080808080ULL;
constexpr u64 DARK_SQUARES = 0xAA55AA55AA55AA55ULL;
constexpr u64 LIGHT_SQUARES = 0x55AA55AA55AA55AAULL;

// The king zone's centre by the king's file or rank: the zone is moved
// off the edge so that it always holds a full 3 by 3 block.
static constexpr u8 ZONE_CENTRE[8] = {1, 1, 2, 3, 4, 5, 6, 6};

static u64 square_bit(int sq) { return sq < 64 ? bit(sq) : 0; }

static u64 king_zone_of(int k) {
    if (k >= 64) return 0;
    int centre = ZONE_CENTRE[file_of(k)] + 8 * ZONE_CENTRE[rank_of(k)];
    return bit(centre) | king_attacks[centre];
}

// A king on the files a to d flips its side's tables left to right, and
// black reads them upside down.
static u8 mirror_of(int k, int c) {
    int flip = file_of(k) >= 4 ? 0 : 7;
    return static_cast<u8>(c == WHITE ? flip : 56 + flip);
}

// 1. Everything the terms read, rebuilt from the position.
static void set_up_context(EvalWorker *worker) {
    EvalContext &ctx = worker->eval;
    const Position &pos = worker->position;
    ctx.eval_position = &worker->position;
    ctx.eval_worker = worker;
    ctx.occupied = occupied_squares(pos);
    f32 phase = (pos.piece_points[WHITE] + pos.piece_points[BLACK]) * 0.017f;
    ctx.phase = phase < 1.0f ? phase : 1.0f;
    std::memset(ctx.attacks, 0, sizeof ctx.attacks);
    std::memset(ctx.double_attacks, 0, sizeof ctx.double_attacks);
    std::memset(ctx.score, 0, sizeof ctx.score);
    std::memset(ctx.danger, 0, sizeof ctx.danger);
    ctx.free_pawns = 0;
    ctx.hung_squares = 0;
    for (int c = WHITE; c <= BLACK; c++) {
        int k = pos.king_sq[c];
        ctx.attacks[c][0] = ctx.attacks[c][KING] = king_attacks[k];
        ctx.king_zone[c] = king_zone_of(k);
        ctx.pst_mirror[c] = mirror_of(k, c);
    }
    ctx.same_wing = ((ctx.pst_mirror[WHITE] ^ ctx.pst_mirror[BLACK]) & 7) == 0;
}

static void snapshot(EvalContext &ctx, int stage) {
    if (!ctx.trace) return;
    ctx.trace_score[stage][WHITE] = ctx.score[WHITE];
    ctx.trace_score[stage][BLACK] = ctx.score[BLACK];
}

// Rule 2: rook pawns whose queening corner the defending king holds, and
// no bishop that could ever drive it out.  Without a bishop at all it is
// the same fortress.
static bool wrong_bishop(const Position &pos, int s) {
    u64 pawns = pos.bitboards[s][PAWN];
    if ((pos.material_sig[s] & 0xFF0F0) || !pawns) return false;
    int file;
    if (!(pawns & ~FILE_A))
        file = 0;
    else if (!(pawns & ~FILE_H))
        file = 7;
    else
        return false;
    int corner = file + (s == WHITE ? 56 : 0);
    u64 corner_area = bit(corner) | king_attacks[corner];
    if (!(corner_area & square_bit(pos.king_sq[s ^ 1]))) return false;
    u64 corner_colour =
        bit(corner) & DARK_SQUARES ? DARK_SQUARES : LIGHT_SQUARES;
    return !(pos.bitboards[s][BISHOP] & corner_colour);
}

// Rule 3's condition: one bishop each, on different colours, equal
// pieces and pawn counts close.
static bool opposite_bishops(const Position &pos, int s, int ns, int nt) {
    int t = s ^ 1;
    if (pos.piece_points[s] != pos.piece_points[t]) return false;
    if ((pos.material_sig[s] & 0xF00) != 0x100) return false;
    if ((pos.material_sig[t] & 0xF00) != 0x100) return false;
    if (ns - nt > 2 || nt - ns > 2) return false;
    bool s_dark = (pos.bitboards[s][BISHOP] & DARK_SQUARES) != 0;
    bool t_dark = (pos.bitboards[t][BISHOP] & DARK_SQUARES) != 0;
    return s_dark != t_dark;
}

// How much of the lead the side ahead (white on a level score) can hope
// to turn into a win.
static f32 scale_factor(const Position &pos, int raw) {
    int s = raw < 0 ? BLACK : WHITE, t = s ^ 1;
    int ps = pos.piece_points[s], pt = pos.piece_points[t];
    int ns = count_bits(pos.bitboards[s][PAWN]);
    int nt = count_bits(pos.bitboards[t][PAWN]);
    u32 sig_s = pos.material_sig[s], sig_t = pos.material_sig[t];
    // 1. Plenty of material, or a clear material edge: play on.
    if (ps > 10 || pt > 10 || ps - pt > 3 || pt - ps > 3) return 1.0f;
    // 2. Rook pawns and the wrong bishop: a fortress
    if (wrong_bishop(pos, s)) return 0.05f;
    f32 sf = 1.0f;
    // 3. Bishops of opposite colours
    if (opposite_bishops(pos, s, ns, nt)) {
        if (!ns) return ps * 0.007f + 0.1f;
        sf = (sig_s & 0xFF000) ? 0.9f : 0.6f;
    }
    // 4. Without pawns only a big piece edge wins; two bishops against a
    // knight keep some chances.
    if (!ns) {
        if (sig_s == 512 && sig_t == 16) return 0.75f;
        return ps * 0.007f + 0.1f;
    }
    // 5. One or two pawns that the defender may give a piece for.
    if ((ns == 1 || ns == 2) && pt > 0 && ps + ns <= pt + nt + 1) {
        bool minor = (sig_t & 0xFF0) != 0;
        if (ns == 1)
            sf *= minor ? 0.6f : 0.8f;
        else
            sf *= minor ? 0.8f : 0.95f;
    }
    return sf;
}

i32 hand_evaluate(EvalWorker *worker) {
    EvalContext &ctx = worker->eval;
    const Position &pos = worker->position;
    // 1. Set up the context
    set_up_context(worker);
    // 2. Pawns
    evaluate_pawns(ctx);
    snapshot(ctx, TRACE_PAWNS);
    // 3. Knights
    evaluate_knights(ctx);
    snapshot(ctx, TRACE_KNIGHTS);
    // 4. Bishops
    evaluate_bishops(ctx);
    snapshot(ctx, TRACE_BISHOPS);
    // 5. Rooks
    evaluate_rooks(ctx);
    snapshot(ctx, TRACE_ROOKS);
    // 6. Queens, between the attack maps without and with them
    for (int c = WHITE; c <= BLACK; c++)
        ctx.mid_attacks[c] = ctx.low_attacks[c] | ctx.attacks[c][ROOK];
    evaluate_queens(ctx);
    for (int c = WHITE; c <= BLACK; c++)
        ctx.all_but_king_attacks[c] =
            ctx.mid_attacks[c] | ctx.attacks[c][QUEEN];
    snapshot(ctx, TRACE_QUEENS);
    // 7. Kings
    evaluate_king(ctx, WHITE);
    evaluate_king(ctx, BLACK);
    snapshot(ctx, TRACE_KING);
    // 8. Passed and candidate pawns
    evaluate_passed_pawns(ctx);
    evaluate_candidate_pawns(ctx);
    snapshot(ctx, TRACE_PASSED);
    // 9. Threats
    evaluate_threats(ctx);
    snapshot(ctx, TRACE_THREATS);
    // 10. Bonus for the side to move
    add_param(ctx.score[pos.side & 1], param.stm_bonus);
    snapshot(ctx, TRACE_SPECIAL);
    // 11. Blend by the phase; scale down drawish endings
    TermPair d = static_cast<TermPair>(static_cast<u32>(ctx.score[WHITE]) -
                                       static_cast<u32>(ctx.score[BLACK]));
    double phase = ctx.phase;
    int raw = static_cast<int>(eg_of(d) * (1.0 - phase) + mg_of(d) * phase);
    ctx.scale = scale_factor(pos, raw);
    i32 result = static_cast<i32>(static_cast<f32>(raw) * ctx.scale);
    if (pos.side == BLACK) result = -result;
    ctx.last_hce = result;
    return result;
}
