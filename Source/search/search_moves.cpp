// The move loop of a node: late-move pruning, reductions, the zero-window
// tries with their re-searches, the history and reply memories, and the
// hash store of the result.
#include <algorithm>

#include "hash.h"
#include "move_picker.h"
#include "search.h"
#include "search_params.h"

// History steps in 1024ths by depth, the same from depth 3 on: a deeper
// result moves it further.
constexpr int HISTORY_INC[4] = {0, 14, 20, 24};
constexpr int HISTORY_DEC[4] = {0, 7, 10, 12};

static int history_inc(int depth) { return HISTORY_INC[std::min(depth, 3)]; }
static int history_dec(int depth) { return HISTORY_DEC[std::min(depth, 3)]; }

// Step 11: a quiet move's history, and on success the killers and the
// reply memories of the two moves before it.
static void update_memories(Worker *w, int ply, int depth,
                            const MoveEntry &entry, bool raised_alpha) {
    i16 &h = w->history[entry.moved & 15][move_to(entry.move)];
    if (!raised_alpha) {
        h = static_cast<i16>(h - h * history_dec(depth) / 1024);
        return;
    }
    h = static_cast<i16>(h + (16384 - h) * history_inc(depth) / 1024);
    PlyRecord &record = w->plies[ply];
    Move move = entry.move;
    if (record.in_check) {
        record.evasion_killer = move;
    } else if (move != record.killer[0]) {
        record.killer[1] = record.killer[0];
        record.killer[0] = move;
    }
    const MoveEntry &m1 = *w->plies[ply - 1].current;
    if (m1.move == NO_MOVE) return;
    u16 &counter = w->counter_move[m1.moved & 15][move_to(m1.move)];
    if (counter != move) {
        w->counter_move2[m1.moved & 15][move_to(m1.move)] = counter;
        counter = move;
    }
    const MoveEntry &m2 = *w->plies[ply - 2].current;
    if (m2.move != NO_MOVE)
        w->followup_move[m2.moved & 15][move_to(m2.move)] = move;
}

// The see_safe answer for the move at hand, asked at most once.
struct SafeCache {
    int known = 0;
    int safe = 0;
};
static int is_safe(const Position &pos, Move move, SafeCache &cache) {
    if (!cache.known) {
        cache.safe = see_safe(pos, move);
        cache.known = 1;
    }
    return cache.safe;
}

// Steps 5 and 6: -1 to skip the move, else its reduction.
static int plan_move(const Position &pos, const Worker *w, int ply, int depth,
                     const MoveEntry &e) {
    const PlyRecord &record = w->plies[ply];
    bool pv = record.node_type == NODE_PV;
    bool quiet = (record.move_flags & 63) == 0;
    SafeCache safe;
    // 5. Late-move pruning; a move with good history earns more tries.
    if (depth <= LMP_depth && !pv) {
        if (quiet) {
            int limit = e.score / 8 + 2 * depth;
            if (record.improving) limit += 2 * depth;
            // Unless this node is itself a reduced zero-window try.
            if (w->plies[ply - 1].in_probe == 0) limit += 2 * depth;
            if (record.move_count >= limit) return -1;
            if (!is_safe(pos, e.move, safe)) return -1;
        } else if (depth < 2 && !is_safe(pos, e.move, safe)) {
            return -1;
        }
    }
    if (depth < LMR_depth) return 0;
    // 6. Reductions.
    int dr = std::min(depth, 30);
    int column = std::min<int>(record.move_count, 30);
    int r = pv ? LMR_table_pv[dr][column] : LMR_table_nonpv[dr][column];
    if (r >= 2) {
        if (record.improving) r--;
        if (pos.piece_points[0] == 0 && pos.piece_points[1] == 0) r = 1;
    }
    if (r >= 1) {
        if ((record.move_count <= 6 && e.score > 30) || !quiet) r = pv ? 0 : 1;
    }
    if (!is_safe(pos, e.move, safe)) r++;
    if (r >= dr) r = dr - 1;
    return r;
}

// The key the position will have after `move`, for fetching the child's
// hash bucket early.  Castling, promotions and changes of rights or of the
// en-passant square are left out: a wrong guess only costs a useless fetch.
static u64 likely_child_key(const Position &pos, Move move) {
    int from = move_from(move), to = move_to(move);
    int moved = pos.board[from], victim = pos.board[to];
    u64 key = pos.key ^ piece_key(moved, from) ^ piece_key(moved, to);
    if (victim) key ^= piece_key(victim, to);
    if (pos.ep_sq != NO_SQUARE) key ^= hash_keys[pos.ep_sq];
    return (key & ~SIDE_BIT[1]) + SIDE_BIT[pos.side ^ 1];
}

// Step 8: a later move is first tried with a zero window (reduced if r is
// above 0); what beats it is searched again, full window and depth.
static int search_child(Position &pos, int side, int ply, int depth, int alpha,
                        int beta, int node_type, int r, u16 *child) {
    PlyRecord &record = worker_of(pos)->plies[ply];
    if (record.move_count > 0 && depth > 1) {
        record.in_probe = 1;
        int v = -search_node(pos, side ^ 1, ply + 1, depth - r - 1, -alpha - 1,
                             -alpha, NODE_CUT, child);
        record.in_probe = 0;
        if (v <= alpha) return v;
        record.reduction = 0;
        return -search_node(pos, side ^ 1, ply + 1, depth - 1, -beta, -alpha,
                            node_type == NODE_PV ? NODE_PV : NODE_ALL, child);
    }
    return -search_node(pos, side ^ 1, ply + 1, depth - 1, -beta, -alpha,
                        -node_type, child);
}

int search_moves(Position &pos, int side, int ply, int depth, int alpha,
                 int beta, int node_type, u16 *line) {
    Worker *w = worker_of(pos);
    PlyRecord &record = w->plies[ply];
    const int entry_alpha = alpha;
    int best = -INFINITE_SCORE;
    Move best_move = NO_MOVE;
    line[ply] = NO_MOVE;
    record.move_count = 0;
    record.pick_state = PICK_SEARCH;
    int hash_seen = 0;
    u16 child[LINE_LENGTH];
    child[ply + 1] = NO_MOVE;
    while (MoveEntry *e = next_move(pos)) {
        // 1. The hash move may come out twice; only its first turn counts.
        if (e->move == record.hash_move && ++hash_seen != 1) continue;
        // 2. Skip an illegal move
        if (!legal_move(pos, side, e->move)) continue;
        // 3. Classify the move
        record.move_flags =
            static_cast<u16>(classify_move(pos, side, *e) & 255);
        record.reduction = 0;
        // 4. Nothing is pruned or reduced before a move has been searched.
        int r = 0;
        if (best >= -9999) {
            r = plan_move(pos, w, ply, depth, *e);
            if (r < 0) continue;
        }
        record.reduction = static_cast<u8>(r);
        // 8. The child probes the hash from depth 0 on.
        if (depth - r - 1 >= 0) hash_prefetch(likely_child_key(pos, e->move));
        const MoveEntry entry = *e;
        make_move(pos, entry.move);
        int v = search_child(pos, side, ply, depth, alpha, beta, node_type, r,
                             child);
        // 9. Take the move back; a stop unwinds at once
        unmake_move(pos);
        if (load_stop()) return 0;
        // 10. Count the searched move
        record.move_count++;
        // 11. Castling and en passant count as quiet here.
        if (entry.captured == 0 && depth > 0)
            update_memories(w, ply, depth, entry, v > alpha);
        // 12. A new best move, even one that fails low
        if (v <= best) continue;
        best_move = entry.move;
        line[ply] = entry.move;
        line[ply + 1] = NO_MOVE;
        if (v <= alpha) {
            best = v;
            continue;
        }
        // 13. Beta cutoff
        if (v >= beta) {
            best = v;
            break;
        }
        // 14. Raise alpha and keep the child's line
        line[ply] = best_move;
        copy_line(line, child, ply + 1);
        best = alpha = v;
    }
    if (best_move == NO_MOVE) {
        // No legal move: mate or stalemate, an exact result.
        best = record.in_check ? ply - MATE_SCORE : 0;
        hash_store(pos, ply, depth, NO_MOVE, best, -INFINITE_SCORE,
                   INFINITE_SCORE);
    } else if (depth >= 0) {
        hash_store(pos, ply, depth, best_move, best, entry_alpha, beta);
    }
    return best;
}
