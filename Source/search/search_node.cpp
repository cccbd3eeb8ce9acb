// The entry of every node of the tree: limits, the draw test, the hash,
// the tablebases, the static value, and all pruning done before the first
// move.  The move loop itself is search_moves.
#include <algorithm>

#include "core/relaxed.h"
#include "hash.h"
#include "search.h"
#include "search_params.h"
#include "tablebase/tb_probe.h"
#include "time_control.h"

// Margin tables end at depth 11; a depth limit raised from the console
// reads their last entry.
static int margin_index(int depth) {
    return std::clamp(depth, 0, MARGIN_DEPTHS - 1);
}

// Holds this thread to the speed limit: it waits while its own speed is
// above the target, from depth 2 on.
static void hold_speed(const Worker *w) {
    while (status.throttle && load_depth() >= 2 && !load_stop() &&
           w->node_count / (relaxed_load(status.elapsed) + 0.0001) >
               status.target_nps) {
        sleep_milliseconds(1);
        check_time();
    }
}

// What a usable hash entry says about this node.
struct HashVerdict {
    int depth;    // of the entry, -10 when none
    bool low;     // its score fails low here
    bool high;    // its score fails high here
    bool cutoff;  // the node may return `score`
    int score;
};

// Step 14: probe, take the move, and judge the score against the window.
static HashVerdict read_hash(Position &pos, int ply, int depth, int alpha,
                             int beta, int node_type) {
    Worker *w = worker_of(pos);
    PlyRecord &record = w->plies[ply];
    HashVerdict v{HASH_NOT_FOUND, false, false, false, 0};
    relaxed_increment(w->hash_probe_count);
    if (!status.use_hash) return v;
    HashEntry e{};
    e.depth = HASH_NOT_FOUND;
    hash_probe(pos, e);
    if (e.depth < 0) return v;
    relaxed_increment(w->hash_hit_count);
    record.hash_move = e.move;
    v.depth = e.depth;
    // Mates count from the storing node; other scores fade toward 0 as
    // the fifty-move clock has run on since they were stored.
    int s = e.score;
    if (s < -TB_WIN_VALUE)
        s += ply;
    else if (s >= TB_WIN_VALUE)
        s -= ply;
    else if (e.cnt50 < pos.cnt50)
        s -= (pos.cnt50 - e.cnt50) * s / 256;
    v.low = s <= alpha && e.type != HASH_LOWER;
    v.high = s >= beta && e.type != HASH_UPPER;
    // A score that may not survive the fifty-move rule decides nothing.
    if (pos.cnt50 + e.depth > 99 && s != 0) v.low = v.high = false;
    if (node_type == NODE_PV || e.depth < depth) return v;
    if (e.type == HASH_EXACT) {
        v.cutoff = true;
        v.score = s;
    } else if (v.low) {
        v.cutoff = true;
        v.score = alpha;
    } else if (v.high) {
        v.cutoff = true;
        v.score = beta;
    }
    return v;
}

// Step 12: one more ply in check, on the step into a pawn ending, and for
// an advanced pawn near the horizon.
static int extend(const Position &pos, int side, int ply, int depth,
                  bool in_check) {
    if (in_check) depth++;
    const PlyRecord &parent = worker_of(pos)->plies[ply - 1];
    if (pos.piece_points[side] == 0 && (parent.current->captured & 6))
        depth++;
    else if ((parent.move_flags & 32) && depth <= 2)
        depth++;
    return depth;
}

// Step 21: a static value far above beta cuts, if every piece of the kinds
// that matter at this distance is safe and no enemy pawn near promotion
// can step forward safely.
static bool static_null_cut(const Position &pos, int side, int t, int beta) {
    const u64 *own = pos.bitboards[side];
    u64 guarded = own[QUEEN];
    if (t <= beta + 99) guarded |= own[PAWN];
    if (t <= beta + 299) guarded |= own[KNIGHT] | own[BISHOP];
    if (t <= beta + 499) guarded |= own[ROOK];
    u64 occupied = occupied_squares(pos);
    for (u64 b = guarded; b; b = clear_first_bit(b)) {
        int sq = first_bit(b);
        int lost =
            swap_value(pos, side ^ 1, sq, piece_type(pos.board[sq]), occupied);
        if (t - lost < beta) return false;
    }
    // The other side's pawns on their sixth and seventh ranks.
    constexpr u64 ADVANCED_PAWNS[2] = {0x00FFFF0000000000ULL,
                                       0x0000000000FFFF00ULL};
    int other = side ^ 1;
    for (u64 b = pos.bitboards[other][PAWN] & ADVANCED_PAWNS[other]; b;
         b = clear_first_bit(b)) {
        int sq = first_bit(b);
        int ahead = sq + PAWN_DIRECTION[other];
        if (pos.board[ahead] == 0 && see_move(pos, other, sq, ahead) >= 0)
            return false;
    }
    return true;
}

// Step 22: the null move, made in place in this ply's list.
static int try_null_move(Position &pos, int side, int ply, int depth, int alpha,
                         int beta, u16 *line) {
    Worker *w = worker_of(pos);
    PlyRecord &record = w->plies[ply];
    int r = depth <= 9 ? std::min(4, depth) - 1
                       : (pos.piece_points[side] >= 6 ? 4 : 3);
    record.reduction = static_cast<u8>(r);
    record.move_count = 0;
    MoveEntry *slot = record.list_start;
    record.current = slot;
    slot[0] = MoveEntry{NO_MOVE, 0, 0, 0};
    slot[1].move = END_OF_LIST;
    w->plies[ply + 1].list_start = slot + 2;
    w->plies[ply + 2].list_start = slot + 3;
    make_null_move(pos);
    int v = -search_node(pos, side ^ 1, ply + 1, depth - r - 1, -beta, -alpha,
                         NODE_ALL, line);
    unmake_null_move(pos);
    record.reduction = 0;
    return v;
}

// Step 15 for a tablebase answer: a proven result narrows the window, or
// settles the node when it is exact.  True when the node returns `out`.
static bool tablebase_window(int t, int &alpha, int &beta, int &out) {
    if (t > alpha && alpha > -PROVEN_SCORE) {
        if (t < beta && beta < PROVEN_SCORE) {
            out = t;
            return true;
        }
        alpha = t;
        if (beta <= alpha) {
            out = alpha;
            return true;
        }
    } else if (t < beta && beta < PROVEN_SCORE) {
        beta = t;
        if (beta <= alpha) {
            out = alpha;
            return true;
        }
    }
    return false;
}

// Steps 19 to 24: pruning before the move loop, then the loop.
static int prune_and_search(Position &pos, int side, int ply, int depth,
                            int alpha, int beta, int node_type, u16 *line,
                            const HashVerdict &hash, int t) {
    Worker *w = worker_of(pos);
    PlyRecord &record = w->plies[ply];
    // 19. Razoring: a capture search decides a hopeless node.
    if (depth <= FP_depth && t <= alpha - FP_margin[margin_index(depth)] &&
        !hash.high && node_type != NODE_PV) {
        record.razored = 1;
        int q =
            search_quiesce(pos, side, ply, depth, alpha, beta, node_type, line);
        if (q <= alpha) return alpha;
        if (q >= beta) return beta;
    }
    // 20. Far above beta in an expected cut node with material to spare.
    if (t >= beta + BP_margin && node_type == NODE_CUT && !hash.low &&
        pos.piece_points[side] >= 1 && pos.bitboards[side][PAWN]) {
        // 21. Static null pruning
        if (depth <= SEP_depth && t >= beta + SEP_margin[margin_index(depth)] &&
            static_null_cut(pos, side, t, beta))
            return beta;
        // 22. Both plies before must have been real moves.
        if (depth >= NMP_depth && w->plies[ply - 1].current->move != NO_MOVE &&
            w->plies[ply - 2].current->move != NO_MOVE) {
            int v = try_null_move(pos, side, ply, depth, alpha, beta, line);
            if (v >= beta) {
                if (depth < 6) return beta;
                depth -= 5;  // verify by a reduced search instead
            }
        }
    }
    // 23. Internal deepening, also when a shallower hash move exists.
    int i = node_type == NODE_PV ? depth - 3
            : depth > 8          ? depth - 5
                                 : depth - 4;
    if (i >= 1 && hash.depth < i) {
        search_moves(pos, side, ply, i, alpha, beta, node_type, line);
        record.hash_move = line[ply];
    }
    // 24. Search the moves at full depth
    return search_moves(pos, side, ply, depth, alpha, beta, node_type, line);
}

int search_node(Position &pos, int side, int ply, int depth, int alpha,
                int beta, int node_type, u16 *line) {
    Worker *w = worker_of(pos);
    // 1. Count the node
    relaxed_increment(w->node_count);
    // 2. Speed limit
    if (status.throttle) hold_speed(w);
    // 3. Each thread counts its own nodes; the limit waits for a finished
    // iteration and for a root fail-low to resolve.
    if (w->node_count > w->node_limit && w->best_depth >= 2 &&
        w->fail_state != 1)
        store_stop(1);
    // A runaway never gets there: stop it rather than hang the game.
    if (w->node_count > w->node_cap) store_stop(1);
    // 4. Stopped: unwind
    if (load_stop()) return 0;
    // 5. Selective depth
    if (ply > w->seldepth) relaxed_store(w->seldepth, ply);
    // 6. Mate distance.
    alpha = std::max(ply - MATE_SCORE, alpha);
    beta = std::min(MATE_SCORE - 1 - ply, beta);
    if (alpha >= beta) return alpha;
    // 7. Fetch the hash bucket early
    if (depth >= 0) hash_prefetch(pos.key);
    // 8. Set up this ply's record
    PlyRecord &record = w->plies[ply];
    record.node_type = static_cast<i16>(node_type);
    record.alpha = static_cast<i16>(alpha);
    record.beta = static_cast<i16>(beta);
    record.static_eval = 0;
    record.in_probe = record.razored = record.improving = 0;
    record.reduction = 0;
    record.move_count = 0;
    record.hash_move = NO_MOVE;
    record.tb_result = -1;
    w->plies[ply + 1].killer[0] = w->plies[ply + 1].killer[1] = NO_MOVE;
    w->plies[ply + 1].evasion_killer = NO_MOVE;
    line[ply] = line[ply + 1] = NO_MOVE;
    // 9. Is the side to move in check?
    int checker =
        find_attacker(pos, pos.king_sq[side], side ^ 1, occupied_squares(pos));
    record.checker_sq = static_cast<u8>(checker);
    bool in_check = checker != NO_SQUARE;
    record.in_check = in_check;
    // 10. Draws score 0 here; contempt belongs to the evaluation.
    if (is_draw(pos, ply)) return 0;
    // 11. At the ply limit, evaluate and stop
    if (ply > MAX_SEARCH_PLY - 1)
        return in_check ? 0 : evaluate(w, side, ply, 0);
    // 12., 13. Extensions; record the depth
    depth = extend(pos, side, ply, depth, in_check);
    record.depth = static_cast<i16>(depth);
    HashVerdict hash{HASH_NOT_FOUND, false, false, false, 0};
    // 14. Hash probe
    if (depth >= 0) {
        hash = read_hash(pos, ply, depth, alpha, beta, node_type);
        if (hash.cutoff) return hash.score;
    }
    // 15. Tablebase probe, else the evaluation
    int t;
    int tb = -1;
    if (pos.cnt50 == 0) {
        tb = tb_probe_search(pos, depth);
        record.tb_result = tb;
    }
    if (tb == -1 || pos.cnt50 != 0) {
        t = evaluate(w, side, ply, in_check);
    } else {
        relaxed_increment(w->tb_hit_count);
        t = tb == 0 ? TB_LOSS_VALUE + ply : tb == 4 ? TB_WIN_VALUE - ply : 0;
        int out = 0;
        if (tablebase_window(t, alpha, beta, out)) return out;
        // The evaluation runs all the same; its value is not used.
        evaluate(w, side, ply, in_check);
    }
    // 16. Static value, and is it improving?
    record.static_eval = static_cast<i16>(t);
    record.improving = w->plies[ply - 2].static_eval + 15 < t;
    // 17. No pruning in check, whatever the depth.
    if (in_check)
        return search_moves(pos, side, ply, depth, alpha, beta, node_type,
                            line);
    // 18. At the horizon, the capture search
    if (depth < 1)
        return search_quiesce(pos, side, ply, depth, alpha, beta, node_type,
                              line);
    return prune_and_search(pos, side, ply, depth, alpha, beta, node_type, line,
                            hash, t);
}
