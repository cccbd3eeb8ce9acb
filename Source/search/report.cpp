// What the search tells the world: the published best line, the info
// lines of UCI and the console's line, and the progress of a long search.
#include <cstdio>
#include <cstring>

#include "core/output.h"
#include "core/relaxed.h"
#include "hash.h"
#include "position/notation.h"
#include "search.h"
#include "wdl.h"

// A line longer than its 512-byte buffer is cut by the formatted print.
#pragma GCC diagnostic ignored "-Wformat-truncation"

SpinLock info_lock;

constexpr int LINE_BUFFER_SIZE = 512;
constexpr f32 NEVER_PRINT = 9999.0f;

void report_best(Worker *w) {
    int best_depth = w->best_depth;
    // 1. The depth of the last change of mind, for the time check.
    if (w->pv[1] != status.pv[1])
        relaxed_store(status.best_change_depth, best_depth);
    // 2. Publish the score, the depth and the line
    relaxed_store(status.score, w->best_score);
    relaxed_store(status.best_depth, best_depth);
    std::memcpy(status.pv, w->pv, sizeof status.pv);
    // 3. A tablebase answer reports depth 99, beyond the tables by depth.
    if (best_depth >= 0 && best_depth < PV_LENGTH) {
        relaxed_store(status.score_at[best_depth], w->best_score);
        status.move_at[best_depth] = w->pv[1];
    }
    // 4. With several lines, each is printed when it is done.
    if (best_depth <= 1 || relaxed_load(settings.multi_pv) != 1) return;
    f32 elapsed = relaxed_load(status.elapsed);
    if (!load_stop() && settings.noise > elapsed) return;
    if (w->pv[1] != NO_MOVE && settings.noise != NEVER_PRINT)
        print_search_line(w->thread_id, 0, best_depth, w->best_score, w->pv);
}

// A root with a tablebase outcome shows the outcome, not the search's
// opinion; real mates, this far out, stand.
constexpr int REAL_MATE_BORDER = 9899;

static int tablebase_score(int score) {
    switch (status.tb_result) {
        case 4:
            return score < REAL_MATE_BORDER ? MATE_BORDER : score;
        case 2:
            return 0;
        case 0:
            return score < -REAL_MATE_BORDER ? score : -MATE_BORDER;
        default:
            return score;
    }
}

// The moves of `line` in coordinates, the side toggled per move; on the
// console broken after every eighth move.
static void line_text(const u16 *line, int max_moves, bool console, char *out,
                      size_t size) {
    const Position &pos = front_worker->position;
    int side = pos.side;
    size_t used = 0;
    out[0] = 0;
    for (int i = 1; i <= max_moves && i < PV_LENGTH && line[i]; i++) {
        char move[MOVE_TEXT_SIZE];
        coord_text(pos, side, line[i], move);
        const char *gap = i == 1 ? "" : " ";
        if (console && i > 1 && (i - 1) % 8 == 0 && i - 1 <= 24)
            gap = "\n                              ";
        int n = std::snprintf(out + used, size - used, "%s%s", gap, move);
        if (n < 0 || used + n >= size) break;
        used += n;
        side ^= 1;
    }
}

static f32 nodes_per_second(f32 elapsed) {
    return elapsed > 0.001f ? static_cast<f32>(status.nodes / elapsed) : 0.0f;
}

// From here out a score reads as a mate.
constexpr int MATE_TEXT_BORDER = 9900;

// "cp", or "mate" in moves: positive when the side to move mates.  With
// UCI_ShowWDL on, the shares of a win, a draw and a loss follow.
static void score_text(int score, char *out, size_t size) {
    int n;
    if (score >= MATE_TEXT_BORDER)
        n = std::snprintf(out, size, "mate %d", (MATE_SCORE - score) / 2);
    else if (score < -MATE_TEXT_BORDER)
        n = std::snprintf(out, size, "mate -%d", (score + INFINITE_SCORE) / 2);
    else
        n = std::snprintf(out, size, "cp %d", score);
    if (!relaxed_load(settings.show_wdl) || n < 0 ||
        static_cast<size_t>(n) >= size)
        return;
    WdlShares wdl = root_wdl(front_worker->position, score, status.tb_result);
    std::snprintf(out + n, size - n, " wdl %d %d %d", wdl.win, wdl.draw,
                  wdl.loss);
}

void print_search_line(int thread, int multipv_number, int depth, int score,
                       const u16 *line) {
    spin_take(info_lock);
    // 1. Gather the counters; the hash fill only on deep lines
    aggregate_counters();
    status.hash_fill = 0.0f;
    if (depth > 6 && hash_entries > 2999) refresh_hash_fill();
    // 2. A tablebase outcome shows instead of the score
    score = tablebase_score(score);
    f32 elapsed = relaxed_load(status.elapsed);
    // 4. Speed
    f32 nps = nodes_per_second(elapsed);
    char moves[1024];
    char text[LINE_BUFFER_SIZE];
    if (relaxed_load(settings.uci_mode) == 1) {
        // 3., 5. The UCI info line
        line_text(line, 80, false, moves, sizeof moves);
        char multipv[24] = "";
        if (relaxed_load(settings.multi_pv) > 1)
            std::snprintf(multipv, sizeof multipv, "multipv %d ",
                          multipv_number);
        char score_words[64];
        score_text(score, score_words, sizeof score_words);
        std::snprintf(text, sizeof text,
                      "info %s%sdepth %d seldepth %d score %s time %.0f "
                      "nodes %.0f nps %.0f tbhits %.0f hashfull %.0f pv %s",
                      multipv, "", depth, status.seldepth - 1, score_words,
                      elapsed * 1000.0, static_cast<double>(status.nodes),
                      static_cast<double>(nps),
                      static_cast<double>(status.tb_hits),
                      status.hash_fill * 1000.0, moves);
    } else {
        // 3., 6. Short while the search runs, longer at its end.
        line_text(line, load_stop() ? 32 : 8, true, moves, sizeof moves);
        char mark = multipv_number != 0 ? '.' : ' ';
        int n = std::snprintf(text, sizeof text,
                              "%02d] %02d%c %5.1f %7.0fK %5d  %s", thread,
                              depth, mark, static_cast<double>(elapsed),
                              status.nodes * 0.001, score, moves);
        if (thread == 0 && multipv_number == relaxed_load(settings.multi_pv) &&
            n >= 0 && n + 1 < LINE_BUFFER_SIZE)
            std::strcat(text, "\n");
    }
    // 7. Print it
    print_line(text);
    spin_release(info_lock);
}

void print_progress(Move move, int move_count, int first) {
    spin_take(info_lock);
    aggregate_counters();
    f32 elapsed = relaxed_load(status.elapsed);
    char text[LINE_BUFFER_SIZE];
    if (first) {
        refresh_hash_fill();
        std::snprintf(text, sizeof text,
                      "info depth %d time %.0f nodes %.0f nps %.0f hashfull "
                      "%.0f",
                      static_cast<int>(load_depth()), elapsed * 1000.0,
                      static_cast<double>(status.nodes),
                      static_cast<double>(nodes_per_second(elapsed)),
                      status.hash_fill * 1000.0);
        print_line(text);
    }
    if (relaxed_load(settings.multi_pv) == 1) {
        std::snprintf(text, sizeof text, "info currmove %s%s currmovenumber %d",
                      SQUARE_NAMES[move_from(move)],
                      SQUARE_NAMES[move_to(move)], move_count + 1);
        print_line(text);
    }
    spin_release(info_lock);
}

void aggregate_counters() {
    if (!(load_state() & STATE_SEARCH_BITS)) return;
    status.nodes = status.eval_probes = status.eval_hits = 0;
    status.hash_probes = status.hash_hits = 0;
    status.pawn_probes = status.pawn_hits = status.tb_hits = 0;
    const Worker *main = worker_at(0);
    if (!main) return;
    status.seldepth = relaxed_load(main->seldepth);
    for (int slot = 0; slot < settings.threads && slot < MAX_THREADS; slot++) {
        const Worker *w = worker_at(slot);
        if (!w) continue;
        status.nodes += relaxed_load(w->node_count);
        status.eval_probes += relaxed_load(w->eval_count);
        status.eval_hits += relaxed_load(w->eval_hit_count);
        status.hash_probes += relaxed_load(w->hash_probe_count);
        status.hash_hits += relaxed_load(w->hash_hit_count);
        status.pawn_probes += relaxed_load(w->pawn_probe_count);
        status.pawn_hits += relaxed_load(w->pawn_hit_count);
        status.tb_hits += relaxed_load(w->tb_hit_count);
    }
}
