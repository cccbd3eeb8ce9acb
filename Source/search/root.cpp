// The root: preparation of a thread's Worker, the root list and its order,
// the answers that need no search, and iterative deepening with aspiration
// windows, MultiPV lines and the root move loop.
#include <algorithm>
#include <cstdlib>
#include <cstring>

#include "core/relaxed.h"
#include "move_picker.h"
#include "search.h"
#include "search_params.h"
#include "tablebase/tb_probe.h"

// The record stacks leave room for this many game plies plus the search.
constexpr int HISTORY_ROOM = 883;

static bool side_in_check(const Position &pos, PlyRecord &record) {
    int checker = find_attacker(pos, pos.king_sq[pos.side], pos.side ^ 1,
                                occupied_squares(pos));
    record.checker_sq = static_cast<u8>(checker);
    record.in_check = checker != NO_SQUARE;
    return record.in_check;
}

// Preparation of every thread; gives whether the root side is in check.
static bool prepare_root(Worker *w) {
    // 2. Clear the hash moves and killers of every ply
    for (int ply = 0; ply <= MAX_SEARCH_PLY; ply++) {
        w->plies[ply].hash_move = NO_MOVE;
        w->plies[ply].killer[0] = w->plies[ply].killer[1] = NO_MOVE;
        w->plies[ply].evasion_killer = NO_MOVE;
    }
    // 3. Fresh memories for every search.
    for (auto &row : w->history)
        std::fill(std::begin(row), std::end(row), 1024);
    std::memset(w->counter_move, 0, sizeof w->counter_move);
    std::memset(w->counter_move2, 0, sizeof w->counter_move2);
    std::memset(w->followup_move, 0, sizeof w->followup_move);
    // 5. A fresh record for the root ply
    PlyRecord &root = w->plies[1];
    MoveEntry *list_start = root.list_start;
    MoveEntry *current = root.current;
    root = PlyRecord{};
    root.list_start = list_start;
    root.current = current;
    root.alpha = -INFINITE_SCORE;
    root.beta = INFINITE_SCORE;
    root.node_type = NODE_PV;
    root.checker_sq = NO_SQUARE;
    root.tb_result = -1;
    w->plies[2].killer[0] = w->plies[2].killer[1] = NO_MOVE;
    w->plies[2].evasion_killer = NO_MOVE;
    // 6. The evaluation stands in check at -9999 here.
    Position &pos = w->position;
    int checker = find_attacker(pos, pos.king_sq[pos.side], pos.side ^ 1,
                                occupied_squares(pos));
    bool in_check = checker != NO_SQUARE;
    int e = evaluate(w, pos.side, 1, in_check);
    root.static_eval = static_cast<i16>(e);
    w->plies[0].static_eval = static_cast<i16>(-e);
    relaxed_store(w->best_score, e);
    w->root_eval = static_cast<i16>(e);
    return in_check;
}

static bool has_legal_move(Worker *w) {
    Position &pos = w->position;
    generate_all(pos);
    for (MoveEntry *e = w->plies[1].list_start; e->move != END_OF_LIST; e++)
        if (legal_move(pos, pos.side, e->move)) return true;
    return false;
}

// Before the loop, main thread: the margins, the quiescence value of the
// root, and the answers for a root without moves or without depth.
// False when the search is over already.
static bool settle_root(Worker *w, bool in_check) {
    Position &pos = w->position;
    // 1., 2. Fresh margins; publish the root's evaluation
    update_margins();
    status.tb_result = -1;
    status.root_eval = status.last_eval = w->root_eval;
    relaxed_store(status.score, w->root_eval);
    // 3. The root's quiescence value
    if (!in_check && !status.throttle)
        status.last_eval = static_cast<i16>(
            search_quiesce(pos, pos.side, 1, 0, -INFINITE_SCORE, INFINITE_SCORE,
                           NODE_PV, w->pv));
    // 4. Mate or stalemate on the board.
    if (!has_legal_move(w)) {
        relaxed_store(w->best_score, in_check ? 1 - MATE_SCORE : 0);
        relaxed_store(w->iter_depth, 1);
        relaxed_store(w->best_depth, 1);
        relaxed_store(w->seldepth, 1);
        report_best(w);
        store_stop(1);
    }
    // 5. Depth 0: the quiescence line is the answer.
    if (settings.max_depth < 1) {
        if (!in_check) std::memcpy(status.pv, w->pv, sizeof status.pv);
        store_stop(1);
    }
    return !load_stop();
}

// The legal root moves in generation order, ordered for the first pass.
static void build_root_list(Worker *w) {
    Position &pos = w->position;
    generate_all(pos);
    MoveEntry *list = w->plies[1].list_start;
    MoveEntry *kept = list;
    for (MoveEntry *e = list; e->move != END_OF_LIST; e++)
        if (legal_move(pos, pos.side, e->move)) *kept++ = *e;
    kept->move = END_OF_LIST;
    order_root_moves(pos, w);
    if (w->thread_id == 0 && kept - list == 1)
        relaxed_store(status.single_reply, 1);
}

// The root's tablebase verdict.  False when the search does not run: a
// helper when the main thread found a result, the main thread when the
// tables give the move at once.
static bool root_tablebase(Worker *w) {
    if (w->thread_id != 0) return status.tb_result == -1;
    // No helper runs yet, so the tables can be replaced here.
    if (tb_init_pending.exchange(false)) tb_init();
    Position &pos = w->position;
    int side = pos.side;
    status.tb_move = NO_MOVE;
    int wdl = 0, dtz = 0;
    u16 move = NO_MOVE;
    int r = tb_probe_root(pos, &wdl, &dtz, &move);
    if (r == -1) {
        move = NO_MOVE;
        r = tb_probe_search(pos, 80);
    }
    status.tb_move = move;
    status.tb_result = r;
    status.tb_score[side] = r == 4 ? TB_WIN_VALUE : r == 0 ? TB_LOSS_VALUE : 0;
    status.tb_score[side ^ 1] = r == 4   ? -TB_WIN_VALUE
                                : r == 0 ? -TB_LOSS_VALUE
                                         : 0;
    // With the fifty-move clock already running the tables pick the move:
    // the search might not find the fastest way to reset it.
    if (move != NO_MOVE && pos.cnt50 > 9 && legal_move(pos, side, move)) {
        w->pv[1] = move;
        w->pv[2] = NO_MOVE;
        relaxed_increment(w->tb_hit_count);
        relaxed_store(w->iter_depth, 1);
        relaxed_store(w->best_score, status.tb_score[side]);
        relaxed_store(w->best_depth, 99);
        relaxed_store(w->seldepth, 99);
        report_best(w);
        store_stop(1);
        return false;
    }
    w->plies[1].tb_result = r;
    relaxed_store(w->best_depth, 0);
    return true;
}

// The entry of highest score from `at` on, the earliest among equals,
// swapped to `at`.
static void select_into(MoveEntry *list, int at) {
    int best = at;
    for (int k = at + 1; list[k].move != END_OF_LIST; k++)
        if (list[k].score > list[best].score) best = k;
    std::swap(list[best], list[at]);
}

// After a pass: moves not searched fall to the end, the rest in falling
// order of their scores.
static void sort_after_pass(MoveEntry *list, int first, int last_searched) {
    for (int k = last_searched + 1; list[k].move != END_OF_LIST; k++)
        list[k].score = -INFINITE_SCORE;
    for (int k = first; list[k].move != END_OF_LIST; k++) select_into(list, k);
}

// Whether the root move may be searched with reduced depth, and by how
// much: only quiet moves after a real best, with pawns and pieces left.
static int root_reduction(const Position &pos, const PlyRecord &root, int d,
                          int alpha, int pass_best) {
    if (d < LMR_depth || root.in_check || (root.move_flags & 63) != 0 ||
        pass_best <= alpha || pass_best < -9999 ||
        pos.piece_points[pos.side] <= 0 || !pos.bitboards[pos.side][PAWN])
        return 0;
    return root.move_count <= 2 ? 0 : root.move_count <= 5 ? 1 : 2;
}

struct PassResult {
    int best;
    int last_searched;
    bool stopped;
};

// Steps 4 to 8 of one root move: the zero-window try of a later move,
// then the full window; the entry's score becomes its ordering key.
static int search_root_move(Worker *w, MoveEntry &e, int d, int r, int alpha,
                            int beta, int running_alpha, u16 *child) {
    Position &pos = w->position;
    PlyRecord &root = w->plies[1];
    int side = pos.side;
    make_move(pos, e.move);
    child[2] = NO_MOVE;
    // At depth 1 every move earns an exact score for the sort, unless a
    // very low speed limit is held.
    bool full = root.move_count == 0 || (d == 1 && status.target_nps > 1000);
    int v = 0;
    if (!full) {
        e.score = static_cast<i16>(alpha - 1);
        v = -search_node(pos, side ^ 1, 2, d - r - 1, -running_alpha - 1,
                         -running_alpha, NODE_CUT, child);
        if (v > running_alpha && !load_stop()) {
            root.reduction = 0;
            full = true;
        }
    }
    if (full) {
        // The window is the pass's, not the one raised by this pass's moves.
        v = -search_node(pos, side ^ 1, 2, d - 1, -beta, -alpha, NODE_PV,
                         child);
        e.score = static_cast<i16>(std::max(v, alpha));
    }
    unmake_move(pos);
    return v;
}

// One pass over the root moves from index `first` with the window
// alpha..beta.
static PassResult run_pass(Worker *w, int first, int line_index, int d,
                           int alpha, int beta) {
    Position &pos = w->position;
    PlyRecord &root = w->plies[1];
    MoveEntry *list = root.list_start;
    PassResult pass{-INFINITE_SCORE, first, false};
    int running_alpha = alpha;
    side_in_check(pos, root);
    root.move_count = 0;
    root.depth = static_cast<i16>(d);
    u16 child[LINE_LENGTH];
    bool reporter = w->thread_id == 0 && line_index == 0;
    for (int p = first; list[p].move != END_OF_LIST; p++) {
        // 1. Bring the best-scored remaining move forward
        select_into(list, p);
        MoveEntry &e = list[p];
        root.current = &e;
        root.move_flags =
            static_cast<u16>(classify_move(pos, pos.side, e) & 255);
        pass.last_searched = p;
        // 2. Progress lines on a long search
        f32 elapsed = relaxed_load(status.elapsed);
        if (reporter && relaxed_load(settings.uci_mode) == 1 &&
            elapsed > 3.5f && elapsed > settings.noise)
            print_progress(e.move, root.move_count, root.move_count == 0);
        // 3. Reduce a late quiet move
        int r = root_reduction(pos, root, d, alpha, pass.best);
        root.reduction = static_cast<u8>(r);
        // 4. - 8. Search the move
        int v = search_root_move(w, e, d, r, alpha, beta, running_alpha, child);
        if (load_stop()) {
            pass.best = 0;
            pass.stopped = true;
            return pass;
        }
        // 9. Count the searched move
        root.move_count++;
        // 10. During a fail low the line keeps the highest upper bound,
        // and the first move always enters it.
        if (v > pass.best) {
            relaxed_store(w->best_depth, d);
            relaxed_store(w->best_score, v);
            w->pv[1] = e.move;
            running_alpha = std::max(running_alpha, v);
            copy_line(w->pv, child, 2);
            if (reporter) report_best(w);
            pass.best = v;
        }
        // 11. Fail low, fail high, or inside the window
        if (pass.best <= alpha) {
            relaxed_store(w->fail_state, 1);
        } else if (pass.best >= beta) {
            relaxed_store(w->fail_state, 2);
            return pass;
        } else {
            relaxed_store(w->fail_state, 0);
        }
    }
    return pass;
}

AspirationWindow first_window(int last_score, int d) {
    AspirationWindow w{};
    w.delta = (std::abs(last_score) >> 4) + 25;
    if (d < 7) w.delta += (7 - d) * 10;
    w.alpha = d < 2 ? -INFINITE_SCORE : last_score - w.delta;
    w.beta = d < 2 ? INFINITE_SCORE : last_score + w.delta;
    // Near a proven score the window opens fully on that side.
    if (w.alpha > PROVEN_SCORE) {
        w.alpha = PROVEN_SCORE;
        w.beta = INFINITE_SCORE;
    } else if (w.beta < -PROVEN_SCORE) {
        w.alpha = -INFINITE_SCORE;
        w.beta = -PROVEN_SCORE;
    } else {
        w.beta = std::min(w.beta, INFINITE_SCORE);
        w.alpha = std::max(w.alpha, -INFINITE_SCORE);
    }
    return w;
}

// One MultiPV line: passes with a window around the last score, widened
// on the failing side until the score falls inside.
static void search_line(Worker *w, int index, int d) {
    relaxed_store(w->fail_state, 0);
    AspirationWindow window = first_window(w->best_score, d);
    int alpha = window.alpha, beta = window.beta, delta = window.delta;
    MoveEntry *list = w->plies[1].list_start;
    for (int tries = 100;;) {
        PassResult pass = run_pass(w, index, index, d, alpha, beta);
        if (!pass.stopped) sort_after_pass(list, index, pass.last_searched);
        if (alpha < pass.best && pass.best < beta) return;
        if (load_stop()) return;
        if (pass.best <= alpha)
            alpha = std::min(alpha - delta, pass.best);
        else
            beta = std::max(beta + delta, pass.best);
        // Past twice the score range the window is whole anyway.
        delta = std::min(delta * 2, 4 * INFINITE_SCORE);
        if (--tries == 0) return;
        alpha = std::max(alpha, -INFINITE_SCORE);
        beta = std::min(beta, INFINITE_SCORE);
    }
}

// A helper skips a depth that many threads are searching already.
static int skip_depth(int d) {
    if (d <= 5 || d >= settings.max_depth ||
        relaxed_load(settings.multi_pv) != 1)
        return d;
    int count = 0;
    for (int slot = 0; slot < settings.threads && slot < MAX_THREADS; slot++) {
        const Worker *other = worker_at(slot);
        if (other && relaxed_load(other->iter_depth) >= d) count++;
    }
    return count > 44 ? d + 2 : count > 14 ? d + 1 : d;
}

// Helpers shake the order of all root moves but the first.
static void add_root_noise(Worker *w) {
    MoveEntry *list = w->plies[1].list_start;
    if (list[0].move == END_OF_LIST) return;
    for (MoveEntry *e = list + 1; e->move != END_OF_LIST; e++) {
        w->rng_seed = w->rng_seed * 12345u + 76543u;
        e->score = static_cast<i16>(e->score - w->rng_seed % 12);
    }
}

// The MultiPV lines of one iteration.
static void search_lines(Worker *w, int d) {
    const MoveEntry *list = w->plies[1].list_start;
    for (int i = 0; i < relaxed_load(settings.multi_pv); i++) {
        if (list[i].move == END_OF_LIST) return;
        search_line(w, i, d);
        if (load_stop()) return;
        if (w->thread_id == 0 && relaxed_load(settings.multi_pv) >= 2) {
            f32 elapsed = relaxed_load(status.elapsed);
            bool delayed = !load_stop() && settings.noise > elapsed;
            if (!delayed && settings.noise != 9999.0f && w->pv[1] != NO_MOVE)
                print_search_line(0, i + 1, d, w->best_score, w->pv);
        }
        if (w->thread_id == 0) {
            status.multipv_move[i] = w->pv[1];
            status.multipv_score[i] = w->best_score;
        }
    }
}

// Iterative deepening until stop, a mate within reach, the depth limit or
// the end of the record stacks.
static void deepen(Worker *w) {
    bool main = w->thread_id == 0;
    for (int d = 1;;) {
        if (main) {
            relaxed_store(w->iter_depth, d);
            store_depth(static_cast<i8>(d));
        } else {
            d = skip_depth(d);
            d = std::max(d, static_cast<int>(load_depth()));
            d = std::min(d, static_cast<int>(settings.max_depth));
            d = std::min(d, MAX_SEARCH_PLY);
            add_root_noise(w);
            relaxed_store(w->iter_depth, d);
        }
        search_lines(w, d);
        // After the iteration.
        spin_take(random_lock);
        status.nodes_at[d] += relaxed_load(w->node_count);
        spin_release(random_lock);
        if (main && !load_stop()) {
            status.finished_depth = static_cast<i8>(d);
            status.finished_time = relaxed_load(status.elapsed);
        }
        if (load_stop()) return;
        int score = w->best_score;
        if (score >= MATE_SCORE - 1 - d || score < d - (MATE_SCORE - 1)) return;
        if (settings.max_depth <= d) return;
        if (w->hist_index + d > HISTORY_ROOM || d + 1 >= PV_LENGTH) return;
        d++;
    }
}

void search_root(int thread_id) {
    Worker *w = worker_at(thread_id);
    if (!w) return;
    bool main = thread_id == 0;
    bool in_check = prepare_root(w);
    if (main && !settle_root(w, in_check)) return;
    if (load_stop()) return;
    build_root_list(w);
    if (!root_tablebase(w)) return;
    deepen(w);
    // The main search ends all helpers; a helper just returns.
    if (main) store_stop(1);
}
