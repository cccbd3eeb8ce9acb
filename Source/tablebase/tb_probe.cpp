// Right answers for any position from the tables, which store only
// positions without captures or en-passant rights: a small alpha-beta
// over captures for WDL, one ply of all moves to resolve DTZ.
#include "tb_probe.h"

#include "tb_internal.h"

static constexpr int WDL_TO_DTZ[5] = {-1, -101, 0, 101, 1};

static bool takes_a_man(const TbPosition &pos, TbMove m) {
    u64 theirs = pos.turn ? pos.black : pos.white;
    return (theirs & bit(tb_move_to(m))) != 0;
}

int tb_probe_ab(const TbPosition &pos, int alpha, int beta, int *success) {
    if (pos.ep != 0) tb_assert_failed("pos->ep == 0");
    // 1. Search the captures
    TbMove moves[TB_MAX_MOVES];
    TbMove *end = tb_gen_captures(pos, moves);
    for (TbMove *m = moves; m < end; m++) {
        TbPosition next;
        if (!takes_a_man(pos, *m) || !tb_do_move(next, pos, *m)) continue;
        int v = -tb_probe_ab(next, -beta, -alpha, success);
        if (*success == 0) return 0;
        if (v > alpha) {
            if (v >= beta) return v;
            alpha = v;
        }
    }
    // 2. The table's value, unless a capture does better
    int v = tb_probe_table(pos, 0, success, WDL);
    return alpha > v ? alpha : v;
}

// Step 8: a draw that only an en-passant capture keeps is real unless the
// side has another legal move or is in check.
static int only_en_passant_draw(const TbPosition &pos, int best_ep,
                                int *success) {
    TbMove moves[TB_MAX_MOVES];
    TbMove *end = tb_gen_moves(pos, moves);
    for (TbMove *m = moves; m < end; m++) {
        TbPosition next;
        if (tb_is_en_passant(pos, *m)) continue;
        if (tb_do_move(next, pos, *m)) return 0;
    }
    if (tb_in_check(pos)) return 0;
    *success = 2;
    return best_ep;
}

int tb_probe_wdl(const TbPosition &pos, int *success) {
    // 1. Generate the captures
    *success = 1;
    TbMove moves[TB_MAX_MOVES];
    TbMove *end = tb_gen_captures(pos, moves);
    // 2. Without a capture the table answers
    if (end == moves) {
        int v = tb_probe_table(pos, 0, success, WDL);
        if (*success == 0) return 0;
        return v;
    }
    // 3. Search the captures; a winning one settles it
    int best_cap = -3, best_ep = -3;
    for (TbMove *m = moves; m < end; m++) {
        bool ep = tb_is_en_passant(pos, *m);
        TbPosition next;
        if (!(takes_a_man(pos, *m) || ep) || !tb_do_move(next, pos, *m))
            continue;
        int v = -tb_probe_ab(next, -2, -best_cap, success);
        if (*success == 0) return 0;
        if (v > best_cap) {
            if (v == 2) {
                *success = 2;
                return 2;
            }
            if (ep)
                best_ep = best_ep > v ? best_ep : v;
            else
                best_cap = v;
        }
    }
    // 4. The table's value
    int v = tb_probe_table(pos, 0, success, WDL);
    if (*success == 0) return 0;
    // 5. En passant better than the other captures
    if (best_ep > best_cap) {
        if (best_ep > v) {
            *success = 2;
            return best_ep;
        }
        best_cap = best_ep;
    }
    // 6. A capture at least as good as the table
    if (best_cap >= v) {
        *success = 1 + (best_cap > 0);
        return best_cap;
    }
    // 7. No en passant, or no draw: the table's value holds
    if (best_ep < -2 || v != 0) return v;
    // 8. A draw that only en passant keeps
    return only_en_passant_draw(pos, best_ep, success);
}

// Step 5 of tb_probe_dtz: the table holds only the other side's view, so
// one ply of moves that reset nothing is searched.
static int dtz_by_one_ply(const TbPosition &pos, int wdl, const TbMove *moves,
                          const TbMove *end, int *success) {
    int best = wdl > 0 ? 2147483647 : WDL_TO_DTZ[wdl + 2];
    for (const TbMove *m = moves; m < end; m++) {
        TbPosition next;
        if (takes_a_man(pos, *m) || tb_is_pawn_move(pos, *m) ||
            !tb_do_move(next, pos, *m))
            continue;
        int v = tb_probe_dtz(next, success);
        if (*success == 0) return 0;
        if (v == -1 && tb_is_mate(next)) {
            best = 1;
        } else if (wdl > 0) {
            if (v < 0 && 1 - v < best) best = 1 - v;
        } else {
            if (-v <= best) best = -v - 1;
        }
    }
    return best;
}

int tb_probe_dtz(const TbPosition &pos, int *success) {
    // 1. The WDL value; a draw is 0
    int wdl = tb_probe_wdl(pos, success);
    if (wdl == 0 || *success == 0) return 0;
    // 2. A capture decides: the counter resets now
    if (*success == 2) return WDL_TO_DTZ[wdl + 2];
    // 3. A winning pawn move that keeps the win resets the counter now.
    TbMove moves[TB_MAX_MOVES];
    TbMove *end = moves;
    if (wdl > 0) {
        TbMove all[TB_MAX_MOVES];
        TbMove *all_end = tb_gen_moves(pos, all);
        TbPosition next;
        for (TbMove *m = all; m < all_end; m++)
            if (tb_do_move(next, pos, *m)) *end++ = *m;
        for (TbMove *m = moves; m < end; m++) {
            if (!tb_is_pawn_move(pos, *m) || takes_a_man(pos, *m) ||
                tb_is_en_passant(pos, *m))
                continue;
            tb_do_move(next, pos, *m);
            int v = -tb_probe_wdl(next, success);
            if (*success == 0) return 0;
            if (wdl >= 3) tb_assert_failed("wdl < 3");
            if (v == wdl) return WDL_TO_DTZ[wdl + 2];
        }
    }
    // 4. The table's distance
    int dtz = tb_probe_table(pos, wdl, success, DTZ);
    if (*success >= 0) return WDL_TO_DTZ[wdl + 2] + (wdl > 0 ? dtz : -dtz);
    // 5. Not stored for this side: one ply of moves
    if (wdl < 0) end = tb_gen_moves(pos, moves);
    int best = dtz_by_one_ply(pos, wdl, moves, end, success);
    if (*success == 0) return 0;
    return best;
}
