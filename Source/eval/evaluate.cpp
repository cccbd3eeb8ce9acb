// The one entry through which the search asks for a static score: endgame
// shortcuts, the per-thread cache, one of the two evaluators, contempt and
// the fifty-move damping.
#include <algorithm>

#include "core/relaxed.h"
#include "core/score.h"
#include "core/settings.h"
#include "core/status.h"
#include "eval.h"
#include "network.h"

// Contempt's part that grows with the material, no option sets it.
constexpr int CONTEMPT_BASE = 15;

static int distance(int a, int b) {
    int df = file_of(a) - file_of(b), dr = rank_of(a) - rank_of(b);
    df = df < 0 ? -df : df;
    dr = dr < 0 ? -dr : dr;
    return df > dr ? df : dr;
}

// 0 on the edge, 1 on the next ring, and so on inward.
static int ring_of(int sq) {
    int f = file_of(sq), r = rank_of(sq);
    return std::min({f, r, 7 - f, 7 - r});
}

// King and pawn against king, read from the solved table.
static i32 king_pawn_score(const Position &pos, int side) {
    int strong = pos.material_sig[WHITE] == 1 ? WHITE : BLACK;
    int flip = strong == WHITE ? 0 : 63;
    int p = first_bit(pos.bitboards[strong][PAWN]) ^ flip;
    int ks = pos.king_sq[strong] ^ flip, kt = pos.king_sq[strong ^ 1] ^ flip;
    int enemy_way = distance(kt, file_of(p) + 56);
    int own_way = distance(ks, file_of(p) + 56);
    i32 base = enemy_way + 4 * rank_of(p) - own_way;
    if (file_of(p) >= 4) {
        p ^= 7;
        ks ^= 7;
        kt ^= 7;
    }
    int stm = strong == WHITE ? side : side ^ 1;
    int index =
        (stm << 17) + ((4 * rank_of(p) + file_of(p)) << 12) + (ks << 6) + kt;
    if (kp_table[index] == 2) base += 800;
    return side == strong ? base : -base;
}

// Bishop and knight: drive the bare king to a corner of the bishop's
// colour, with the own king close.
static i32 bishop_knight_score(const Position &pos, int side) {
    static constexpr u8 CORNER_DISTANCE[64] = {
        9, 8, 7, 6, 5, 4, 3, 2, 8, 7, 6, 5, 4, 3, 2, 3, 7, 6, 4, 3, 2, 1,
        3, 4, 6, 5, 3, 1, 0, 2, 4, 5, 5, 4, 2, 0, 1, 3, 5, 6, 4, 3, 1, 2,
        3, 4, 6, 7, 3, 2, 3, 4, 5, 6, 7, 8, 2, 3, 4, 5, 6, 7, 8, 9};
    int strong = pos.material_sig[WHITE] ? WHITE : BLACK;
    int ks = pos.king_sq[strong], kt = pos.king_sq[strong ^ 1];
    int bishop = first_bit(pos.bitboards[strong][BISHOP]);
    int dark = (0xAA55AA55AA55AA55ULL >> bishop) & 1;
    int corner = CORNER_DISTANCE[dark ? kt : kt ^ 7];
    int centre = std::min(ring_of(ks), 2);
    i32 base = corner * 16 + centre * 8 + 880 - 8 * distance(ks, kt);
    return side == strong ? base : -base;
}

// A rook or queen against a bare king: material, plus the bare king's
// closeness to the edge and to the other king.
static i32 major_mate_score(const Position &pos, int side) {
    static constexpr u8 EDGE[64] = {
        60, 50, 40, 30, 30, 40, 50, 60, 50, 40, 30, 20, 20, 30, 40, 50,
        40, 30, 20, 10, 10, 20, 30, 40, 30, 20, 10, 0,  0,  10, 20, 30,
        30, 20, 10, 0,  0,  10, 20, 30, 40, 30, 20, 10, 10, 20, 30, 40,
        50, 40, 30, 20, 20, 30, 40, 50, 60, 50, 40, 30, 30, 40, 50, 60};
    int wp = pos.piece_points[WHITE], bp = pos.piece_points[BLACK];
    i32 white = 125 * wp, black = 125 * bp;
    int d = distance(pos.king_sq[WHITE], pos.king_sq[BLACK]);
    if (wp <= bp)
        black += (EDGE[pos.king_sq[WHITE]] - 4 * d) * 4 + 500;
    else
        white += (EDGE[pos.king_sq[BLACK]] - 4 * d) * 4 + 500;
    return side == WHITE ? white - black : black - white;
}

// Step 3: men too few for either side to force a mate.
bool drawn_by_material(const Position &pos) {
    u32 ws = pos.material_sig[WHITE], bs = pos.material_sig[BLACK];
    int wp = pos.piece_points[WHITE], bp = pos.piece_points[BLACK];
    if (((ws | bs) & 0xFF00F) != 0) return false;
    if (wp < 4 && bp < 4) return true;
    return (ws == 32 && bs == 0) || (bs == 32 && ws == 0);
}

// Steps 3 and 4: endings settled without an evaluator.  Returns true with
// the score when one applies.
static bool endgame_shortcut(const Position &pos, int side, i32 &score) {
    u32 ws = pos.material_sig[WHITE], bs = pos.material_sig[BLACK];
    score = 0;
    if (drawn_by_material(pos)) return true;
    // The tables below need both kings on the board.
    if ((ws && bs) || pos.king_sq[WHITE] == NO_SQUARE ||
        pos.king_sq[BLACK] == NO_SQUARE)
        return false;
    u32 material = ws + bs;
    if (material == 1)
        score = king_pawn_score(pos, side);
    else if (material == 0x110)
        score = bishop_knight_score(pos, side);
    else if (material & 0xFF000)
        score = major_mate_score(pos, side);
    else
        return false;
    return true;
}

// Step 7: the engine's own side avoids draws by a margin that grows with
// the material left.
static i32 contempt_for(const Position &pos, int side) {
    int pawns = (pos.material_sig[WHITE] & 15) + (pos.material_sig[BLACK] & 15);
    if (pawns > 12) pawns = 12;
    int pieces = pos.piece_points[WHITE] + pos.piece_points[BLACK];
    if (pieces < 6) pieces = 6;
    int phase = pieces + 2 * pawns - 6;
    i32 c = (CONTEMPT_BASE * (phase - 41)) / 41 +
            (relaxed_load(settings.contempt) * phase) / 82;
    return side == status.root_side ? c : -c;
}

i32 evaluate(EvalWorker *worker, int side, int ply, int in_check) {
    Position &pos = worker->position;
    EvalContext &ctx = worker->eval;
    // 1. Note the node for the evaluators; count the call
    ctx.eval_ply = static_cast<u8>(ply);
    ctx.eval_position = &pos;
    ctx.eval_worker = worker;
    relaxed_increment(worker->eval_count);
    // 2. The caller knows a position in check is not to be judged.
    if (in_check) return ply - MATE_SCORE;
    // 3., 4. Endings with a known score
    i32 score;
    if (endgame_shortcut(pos, side, score)) return score;
    // 5. A cached value comes back without contempt or damping; that
    // difference from a fresh one is kept on purpose.
    // Without a loaded net (a build that carries none, a file cut short)
    // the hand-written evaluation serves whatever Use_NN_eval says.
    bool network = relaxed_load(settings.use_nn) && network_ready();
    EvalCacheEntry &entry = worker->eval_cache[(pos.key & 0x7FFE) + side];
    if (entry.key == pos.key && ply >= 2) {
        relaxed_increment(worker->eval_hit_count);
        return network ? entry.nn_score : entry.hce_score;
    }
    // 6. A fresh score from the net or the hand-written terms
    entry.key = pos.key;
    if (network) {
        score = network_evaluate(worker);
        entry.nn_score = static_cast<i16>(score);
    } else {
        score = hand_evaluate(worker);
        entry.hce_score = static_cast<i16>(score);
    }
    // 7. Contempt, once the game is under way
    if (game_board && game_board->hist_index > 4 &&
        !(load_state() & STATE_BENCH))
        score += contempt_for(pos, side);
    // 8. Damp toward 0 as the fifty-move clock runs
    return ((256 - pos.cnt50) * score) / 256;
}
