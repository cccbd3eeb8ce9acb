// The capture search below the horizon: captures, promotions and advanced
// pawn pushes, with quiet checks while the depth is not yet negative.  The
// lower bound stays where the stand-pat value put it for the whole loop.
#include <algorithm>

#include "hash.h"
#include "move_picker.h"
#include "search.h"

// Room below the bound a move may fall short by before it is dropped.
constexpr int DELTA_MARGIN = 150;
constexpr int DELTA_MARGIN_DEEP = 450;  // depth 1 and more: razoring

// What a move can win at most, for delta pruning: a check and the capture
// of a side's last pawn with too little left to mate stand above any
// margin.
static int move_gain(Position &pos, int side, const MoveEntry &e) {
    if (gives_check(pos, side, e)) return 20000;
    int victim = piece_type(e.captured);
    if (victim) {
        int other = side ^ 1;
        int points = pos.piece_points[other] - PIECE_POINTS[victim];
        int pawns =
            count_bits(pos.bitboards[other][PAWN]) - (victim == PAWN ? 1 : 0);
        if (pawns == 0 && points < 4) return 5000;
    }
    int relative_to = side == WHITE ? move_to(e.move) : move_to(e.move) ^ 56;
    if (piece_type(e.moved) == PAWN && relative_to > 47) return 1500;
    return SEE_VALUE[victim];
}

int search_quiesce(Position &pos, int side, int ply, int depth, int alpha,
                   int beta, int node_type, u16 *line) {
    Worker *w = worker_of(pos);
    PlyRecord &record = w->plies[ply];
    // 1. Standing pat at or above beta returns beta itself.
    int e = record.static_eval;
    if (e >= beta) return beta;
    // 2. Standing pat raises alpha
    const int a = std::max(alpha, e);
    int best = e;
    Move best_move = NO_MOVE;
    record.move_count = 0;
    // 3. Quiet checks too from depth 0 on; the futility margin
    record.pick_state = depth < 0 ? PICK_QUIESCE : PICK_QUIESCE_CHECKS;
    const int margin = depth < 1 ? DELTA_MARGIN : DELTA_MARGIN_DEEP;
    u16 child[LINE_LENGTH];
    child[ply + 1] = NO_MOVE;
    // 4. The move loop, with delta and exchange pruning
    while (MoveEntry *m = next_move(pos)) {
        const MoveEntry entry = *m;
        if (move_gain(pos, side, entry) + e <= a - margin) continue;
        if (!see_safe(pos, entry.move)) continue;
        if (!legal_move(pos, side, entry.move)) continue;
        make_move(pos, entry.move);
        int v = -search_node(pos, side ^ 1, ply + 1, depth - 1, -beta, -a,
                             -node_type, child);
        unmake_move(pos);
        if (load_stop()) return 0;
        record.move_count++;
        if (v <= best) continue;
        best_move = entry.move;
        line[ply] = entry.move;
        line[ply + 1] = NO_MOVE;
        if (v >= beta) {
            best = v;
            break;
        }
        copy_line(line, child, ply + 1);
        best = v;
    }
    // 5. Only a fail-high result is stored, as a lower bound.
    if (best >= beta && depth >= 0)
        hash_store(pos, ply, depth, best_move, best, a, beta);
    return best;
}
