// The search clock and the time check that runs about once a millisecond.
#include "time_control.h"

#include <cmath>
#include <cstdio>
#include <ctime>

#include "core/output.h"
#include "core/relaxed.h"
#include "position/notation.h"
#include "search.h"
#include "strength.h"

static double search_start;

void sleep_milliseconds(int ms) {
    timespec pause{ms / 1000, (ms % 1000) * 1000000L};
    nanosleep(&pause, nullptr);
}

double clock_now() {
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<double>(now.tv_sec) + now.tv_nsec * 1e-9;
}

void read_elapsed() {
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    f32 elapsed =
        static_cast<f32>(static_cast<double>(now.tv_sec) - search_start +
                         (now.tv_nsec * 1e-9 + 0.0001));
    relaxed_store(status.elapsed, elapsed);
}

void reset_clock(int reset) {
    if (!reset) {
        read_elapsed();
        return;
    }
    search_start = clock_now();
    relaxed_store(status.elapsed, 0.0f);
}

// Each sum is formed in double and rounded to float, term by term.
static f32 add_term(f32 sum, double term) {
    return static_cast<f32>(static_cast<double>(sum) + term);
}

f32 time_extra(const TimeView &view, f32 remaining, f32 target, int margin) {
    const Worker *main = worker_at(0);
    u8 fail_state = main ? relaxed_load(main->fail_state) : 0;
    if (fail_state == 1) return static_cast<f32>(0.25 * remaining);
    if (fail_state == 2) return static_cast<f32>(0.05 * remaining);
    int d = view.depth;
    if (d < 5 || d >= PV_LENGTH) return 0.0f;
    int score = view.score;
    int change = relaxed_load(status.best_change_depth);
    f32 extra = 0.0f;
    if (score <= relaxed_load(status.score_at[d - 1]) - margin)
        extra = add_term(extra, 0.03 * remaining);
    if (score <= relaxed_load(status.score_at[d - 2]) - margin)
        extra = add_term(extra, 0.03 * remaining);
    if (d - 2 <= change) extra = add_term(extra, 0.02 * remaining);
    // A best move that has stood for five iterations gives time back.
    if (d > 6 && d - 5 > change) extra = add_term(extra, -0.25 * target);
    return extra;
}

// A helper that has seen a better score at the main line's depth buys
// the search a little more time.  The slots are walked under the lock
// that the search thread takes to free them.
static f32 helper_extra(const TimeView &view, f32 extra, f32 remaining,
                        int margin) {
    f32 bonus = static_cast<f32>(0.05 * remaining);
    if (!(bonus > extra) || settings.threads <= 1) return extra;
    int best_depth = relaxed_load(status.best_depth);
    spin_take(worker_slots_lock);
    for (int slot = 1; slot < MAX_THREADS; slot++) {
        const Worker *w = worker_at(slot);
        if (!w) break;
        if (relaxed_load(w->best_depth) >= best_depth &&
            relaxed_load(w->best_score) > view.score + margin)
            extra = bonus;
    }
    spin_release(worker_slots_lock);
    return extra;
}

// The first iteration is never cut by the plan above, but in a won
// ending its capture search can run on for seconds (checks that extend
// the depth as fast as it falls).  With a clock running, it ends once
// the whole plan for the move is spent; the finish then plays the best
// root move known.  Anywhere else it takes microseconds and this never
// fires.
static void check_first_iteration(u16 state) {
    if (!(state & STATE_THINKING)) return;
    f32 target = relaxed_load(status.target_time);
    if (target < 0.01f) target = 0.01f;
    if (relaxed_load(status.elapsed) >= target) store_stop(1);
}

void check_time() {
    read_elapsed();
    u16 state = load_state();
    // The depth and score of the main search, read once for this check.
    TimeView view{status.depth.load(std::memory_order_relaxed),
                  relaxed_load(status.score)};
    if (load_stop() != 0 || !(state & (STATE_THINKING | STATE_BENCH))) return;
    if (view.depth <= 1) {
        check_first_iteration(state);
        return;
    }
    f32 elapsed = relaxed_load(status.elapsed);
    // 1. Time left on the clock
    f32 remaining = relaxed_load(status.clock[status.root_side & 1]) - elapsed;
    if (remaining < 0.0f) remaining = 0.0f;
    // 2. The overhead option counts only up to 25 ms here.
    f32 guard = 0.0f;
    if (settings.level_moves != 1)
        guard =
            relaxed_load(settings.move_overhead) < 25
                ? static_cast<f32>(relaxed_load(settings.move_overhead) * 0.001)
                : 0.025f;
    // 3. The target, at least 10 ms
    f32 target = relaxed_load(status.target_time);
    if (target < 0.01f) target = 0.01f;
    // 4. Scores far from even need a bigger drop to count.
    int margin = std::abs(view.score) > 335 ? std::abs(view.score) / 16 : 20;
    // 5., 6. Adjust for the score, the best move's changes and the helpers
    f32 extra = time_extra(view, remaining, target, margin);
    extra = helper_extra(view, extra, remaining, margin);
    // 7. Stop past the limit, on a single reply, or near flag fall
    f32 limit = add_term(add_term(target, -static_cast<double>(guard)),
                         static_cast<double>(extra));
    if (elapsed >= limit ||
        (view.depth >= 6 && relaxed_load(status.single_reply) == 1) ||
        3 * guard > remaining)
        store_stop(1);
}

// The budget of step 8, before the strength and increment terms.
static f32 base_budget(f32 clock, int game_ply) {
    int half = game_ply / 2;
    bool ponder = settings.ponder != 0;
    if (settings.level_moves == 0) {
        int divisor = game_ply < 22 ? 33 - half : 23;
        status.moves_to_go = static_cast<i16>(game_ply < 22 ? 32 - half : 22);
        f32 target = clock / divisor;
        return ponder ? static_cast<f32>(target * 1.3) : target;
    }
    f32 target;
    if (settings.level_moves == 1) {
        status.clock[status.root_side] = settings.level_time;
        target = settings.level_time;
    } else {
        if (!settings.uci_mode)
            status.moves_to_go = static_cast<i16>(settings.level_moves -
                                                  half % settings.level_moves);
        target = clock / (status.moves_to_go + 1);
    }
    if (ponder && status.moves_to_go > 2)
        target = static_cast<f32>(target * 1.3);
    return target;
}

static void write_start_lines(const Position &pos, int game_ply) {
    char fen[FEN_BUFFER_SIZE];
    get_fen(pos, fen, 1);
    char text[256];
    if (settings.uci_mode) {
        std::snprintf(text, sizeof text, "info string fen %s", fen);
        log_line(text);
        std::snprintf(text, sizeof text,
                      "info string ply= %d, trg_time= %0.3f sec", game_ply,
                      static_cast<double>(status.target_time));
        log_line(text);
        return;
    }
    std::snprintf(text, sizeof text, "fen %s", fen);
    print_line(text);
    std::snprintf(text, sizeof text,
                  "Ply= %d, cnt50= %d, Clock= %0.2fs, Target time= %0.2fs",
                  game_ply, pos.cnt50,
                  static_cast<double>(status.clock[status.root_side]),
                  static_cast<double>(status.target_time));
    print_line(text);
}

void prepare_search() {
    Position &pos = front_worker->position;
    // 1. Start the clock; the root sits at ply 1
    reset_clock(1);
    front_worker->ply = 1;
    status.root_side = pos.side & 1;
    // 2. Settle the strength limit
    settle_strength();
    // 3. The score before any search
    relaxed_store(status.score, pos.cnt50 > 100 ? 0 : -MATE_SCORE);
    // 4. Clear the last search's results
    relaxed_store(status.best_depth, 0);
    store_depth(0);
    relaxed_store(status.target_time, 0.0f);
    status.ebf_depth = 0;
    relaxed_store(status.best_change_depth, 0);
    status.nodes = 0;
    relaxed_store(status.single_reply, 0);
    status.pv[1] = NO_MOVE;
    for (i32 &c : status.count) c = 0;
    status.finished_depth = 0;
    // 5. A new hash age; without a table, no hashing
    if (++status.age >= 32) status.age = 1;
    if (settings.hash_mb < 1) status.use_hash = 0;
    // 6. Clear the per-depth records
    for (int d = 0; d < PV_LENGTH; d++) {
        relaxed_store(status.score_at[d], -INFINITE_SCORE);
        status.move_at[d] = NO_MOVE;
        status.nodes_at[d] = 0;
    }
    // 7. Read the clock
    read_elapsed();
    // 8. The time budget for this move
    int game_ply = front_worker->hist_index;
    f32 target = base_budget(status.clock[status.root_side], game_ply);
    // Fixed time per move has just set the clock to that time.
    f32 clock = status.clock[status.root_side];
    // 9. Weaker settings hold the time back.
    if (settings.elo < 2400) target = static_cast<f32>(target * 0.85);
    // 10. With little on the clock the increment counts less.
    if (settings.level_inc > 0) {
        f32 share = static_cast<f32>(
            clock / (2.0 * settings.level_inc + static_cast<double>(clock)));
        target = static_cast<f32>(target + share * settings.level_inc);
    }
    relaxed_store(status.target_time, target);
    // 11. Log the position and the target
    if (settings.noise < 9999.0f) write_start_lines(pos, game_ply);
}
