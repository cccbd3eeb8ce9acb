// The search's two tablebase probes: the cheap WDL probe of tree nodes,
// with its depth thresholds, and the DTZ probe of the root that ranks the
// root moves and may pick one outright.
#include "core/relaxed.h"
#include "core/settings.h"
#include "core/status.h"
#include "tablebase/tb_internal.h"
#include "tablebase/tb_probe.h"

Move tb_root_moves[MAX_MOVES + 1];

static constexpr int WDL_TO_DTZ[5] = {-1, -101, 0, 101, 1};

static int men_on_board(const Position &pos) {
    return count_bits(occupied_squares(pos));
}

// The depth a node needs before a table of `men` men is asked.
static int probe_threshold(int men) {
    if (men < 6) return settings.tb_probe_depth_low;
    if (men == 6) return relaxed_load(settings.tb_probe_depth6);
    if (men == 7) return relaxed_load(settings.tb_probe_depth7);
    return 80;
}

// One king a side and no pawn on the first or last rank: anything else is
// no position of a table, whatever the board was set up from.
static bool table_shaped(const Position &pos) {
    return count_bits(pos.bitboards[WHITE][KING]) == 1 &&
           count_bits(pos.bitboards[BLACK][KING]) == 1 &&
           !((pos.bitboards[WHITE][PAWN] | pos.bitboards[BLACK][PAWN]) &
             0xFF000000000000FFULL);
}

int tb_probe_search(const Position &pos, int depth) {
    // 1.-3. Cheapest tests first: castling rights, the count, the depth.
    if (pos.castle_rights != 0) return -1;
    int men = men_on_board(pos);
    if (men > TB_LARGEST) return -1;
    if (probe_threshold(men) > depth) return -1;
    if (!table_shaped(pos)) return -1;
    // 4. The node has just reset the counter, or the caller doesn't care.
    TbPosition t = tb_position_from(pos, 0);
    // 5. WDL probe, as a result code 0..4
    int success = 0;
    int v = tb_probe_wdl(t, &success);
    if (success == 0) return -1;
    return v + 2;
}

// Bits 0-3 class, 4-9 to, 10-15 from, 16-18 promotion, 19 en passant,
// 20-31 the absolute DTZ.
static u32 result_word(int cls, TbMove m, bool ep, int dtz) {
    u32 word = static_cast<u32>(cls) | (tb_move_to(m) << 4) |
               (tb_move_from(m) << 10) | (tb_move_promotes(m) << 16) |
               (ep ? 1u << 19 : 0);
    if (cls != 2) word |= static_cast<u32>(dtz < 0 ? -dtz : dtz) << 20;
    return word;
}

static int word_class(u32 word) { return word & 15; }

static Move move_of_word(u32 word) {
    static constexpr u16 PROMOTION_FLAG[5] = {0, FLAG_QUEEN, FLAG_ROOK,
                                              FLAG_BISHOP, FLAG_KNIGHT};
    int to = (word >> 4) & 63, from = (word >> 10) & 63;
    int promotes = (word >> 16) & 7;
    return static_cast<Move>((from << 8) | to |
                             PROMOTION_FLAG[promotes <= 4 ? promotes : 0]);
}

// The value of the position after `m` for the mover, in DTZ terms; false
// when a table fails.
static bool score_root_move(const TbPosition &next, int dtz, int &v) {
    int success = 1;
    if (dtz > 0 && tb_is_mate(next)) {
        v = 1;
    } else if (next.rule50 != 0) {
        int d = tb_probe_dtz(next, &success);
        v = d < 0 ? 1 - d : d > 0 ? -d - 1 : 0;
    } else {
        int w = tb_probe_wdl(next, &success);
        v = WDL_TO_DTZ[2 - w];
    }
    return success != 0;
}

struct RootList {
    TbMove moves[TB_MAX_MOVES];
    int scores[TB_MAX_MOVES];
    u32 words[TB_MAX_MOVES + 1];
    int count;
    int num_draw;
};

// Step 4: every move scored and its result word formed.
static bool rank_root_moves(const TbPosition &t, int cnt50, int dtz,
                            RootList &list) {
    list.count = static_cast<int>(tb_gen_moves(t, list.moves) - list.moves);
    list.num_draw = 0;
    for (int k = 0; k < list.count; k++) {
        TbMove m = list.moves[k];
        TbPosition next;
        if (!tb_do_move(next, t, m)) {
            list.scores[k] = 32767;
            list.words[k] = 0;
            continue;
        }
        int v;
        if (!score_root_move(next, dtz, v)) return false;
        list.scores[k] = v;
        if (v == 0) list.num_draw++;
        int cls = v > 0    ? (cnt50 + v <= 100 ? 4 : 3)
                  : v == 0 ? 2
                           : (cnt50 - v > 100 ? 1 : 0);
        bool ep = t.ep != 0 && tb_move_to(m) == t.ep &&
                  (t.pawns & bit(tb_move_from(m)));
        list.words[k] = result_word(cls, m, ep, v);
    }
    list.words[list.count] = 0xFFFFFFFF;
    return true;
}

// Step 6: the move to play, or -1.
static int choose_root_move(const RootList &list, const TbPosition &t,
                            int dtz) {
    int chosen = -1;
    if (dtz > 0) {
        for (int k = 0; k < list.count; k++) {
            int v = list.scores[k];
            if (v > 0 && v != 32767 && (chosen < 0 || v < list.scores[chosen]))
                chosen = k;
        }
    } else if (dtz < 0) {
        for (int k = 0; k < list.count; k++)
            if (list.scores[k] < 0 &&
                (chosen < 0 || list.scores[k] < list.scores[chosen]))
                chosen = k;
    } else {
        if (list.num_draw == 0) return -1;
        // The same draw for the same material, game after game.
        u64 k = tb_material_key(t, t.turn == 0) % list.num_draw;
        for (int i = 0; i < list.count; i++)
            if (list.scores[i] == 0 && k-- == 0) return i;
    }
    return chosen;
}

int tb_probe_root(const Position &pos, int *wdl_out, int *dtz_out,
                  u16 *move_out) {
    tb_root_moves[0] = NO_MOVE;
    // 1. Too many men, castling rights, or no table position
    if (men_on_board(pos) > TB_LARGEST || pos.castle_rights != 0) return -1;
    if (!table_shaped(pos)) return -1;
    // 2. The position for the tables, with its fifty-move clock
    TbPosition t = tb_position_from(pos, pos.cnt50);
    // 3. Distance to zeroing of the root
    int success = 0;
    int dtz = tb_probe_dtz(t, &success);
    if (success == 0) return -1;
    // 4., 5. Score every root move
    static thread_local RootList list;
    if (!rank_root_moves(t, pos.cnt50, dtz, list)) return -1;
    if (list.count == 0 && dtz <= 0) return -1;
    // 6. Pick the move and its result class
    int k = choose_root_move(list, t, dtz);
    if (k < 0) return -1;
    int cls;
    if (dtz > 0)
        cls = pos.cnt50 + dtz > 100 ? 3 : 4;
    else if (dtz < 0)
        cls = pos.cnt50 - dtz >= 101 ? 1 : 0;
    else
        cls = 2;
    TbMove m = list.moves[k];
    if (m == 0) return -1;
    // 7. The move in the engine's encoding
    bool ep = (list.words[k] >> 19) & 1;
    u32 word = result_word(cls, m, ep, 0) |
               (static_cast<u32>(dtz < 0 ? -dtz : dtz) << 20);
    Move move = move_of_word(word);
    if (move == NO_MOVE || move >= 65534) return -1;
    // 8. Hand back the result, the distance and the move
    *wdl_out = cls;
    *dtz_out = static_cast<int>(word >> 20);
    *move_out = move;
    // 9. The root moves that keep the same result
    int n = 0;
    for (int i = 0; i < list.count; i++)
        if (list.scores[i] != 32767 && word_class(list.words[i]) >= cls)
            tb_root_moves[n++] = move_of_word(list.words[i]);
    tb_root_moves[n] = NO_MOVE;
    // 10. The result class
    return cls;
}
