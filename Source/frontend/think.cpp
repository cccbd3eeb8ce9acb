// The main thread's loop: about once a millisecond it sleeps, checks the
// clock and polls input; it starts a search when `go` asks for one and
// prints the answer when the search thread is done.  It never searches.
#include <cmath>
#include <cstdio>
#include <cstring>

#include "book/book.h"
#include "console.h"
#include "core/output.h"
#include "core/relaxed.h"
#include "position/notation.h"
#include "protocol.h"
#include "search/hash.h"
#include "search/search.h"
#include "search/time_control.h"

constexpr f32 NEVER_PRINT = 9999.0f;

void kill_search() {
    print_line("killing search");
    if (load_state() == 0) return;
    store_stop(1);
    // A ponder search holds its answer back until it hears stop.
    add_state_bits(STATE_STOP_RECEIVED);
    while (!(load_state() & STATE_FINISHED)) sleep_milliseconds(0);
    store_stop(0);
    store_state(0);
}

// A book move is the finished answer: no search thread starts, and the
// finish comes next.
static void answer_from_book(Move m) {
    status.score = 0;
    status.pv[1] = m;
    status.book_move = m;
    store_stop(1);
    add_state_bits(STATE_FINISHED);
}

// Start of a search: the clock and target, a book move for a plain go,
// else the search thread.
static void start_thinking() {
    prepare_search();
    status.pv[1] = status.pv[2] = NO_MOVE;
    status.book_move = NO_MOVE;
    u16 next =
        load_state() == STATE_REQUEST_PONDER ? STATE_PONDERING : STATE_THINKING;
    if (next == STATE_THINKING) {
        Move m = think_book_move();
        if (m != NO_MOVE) return answer_from_book(m);
    }
    store_depth(0);
    store_state(next);
    store_stop(0);
    launch_search();
}

double branching_factor(int depth) {
    if (depth > 5 && depth < PV_LENGTH && status.nodes_at[depth] &&
        status.nodes_at[depth - 4])
        return std::pow(static_cast<double>(status.nodes_at[depth]) /
                            static_cast<double>(status.nodes_at[depth - 4]),
                        0.25);
    return 2.0;
}

static double percent(u64 hits, u64 probes) {
    return 100.0 * static_cast<double>(hits) / static_cast<double>(probes + 1);
}

// The console's summary of a finished search.
static void print_console_summary(const char *best, f32 elapsed) {
    refresh_hash_fill();
    char text[512];
    double nodes = static_cast<double>(status.nodes);
    std::snprintf(text, sizeof text,
                  "move= %s, time= %0.3f, score= %d, nodes= %0.0f, nps= "
                  "%0.0fK ebf= %0.2f",
                  best, static_cast<double>(elapsed), status.score, nodes,
                  nodes / (elapsed + 0.001) * 0.001,
                  branching_factor(status.ebf_depth));
    print_line(text);
    std::snprintf(
        text, sizeof text,
        "Hash fill= %.1f%%, Hash hits: main= %0.1f%%, pawn= "
        "%0.1f%%, eval= %0.1f%%, TB=%0.0fK",
        status.hash_fill * 100.0, percent(status.hash_hits, status.hash_probes),
        percent(status.pawn_hits, status.pawn_probes),
        percent(status.eval_hits, status.eval_probes), status.tb_hits * 0.001);
    print_line(text);
    const i32 *c = status.count;
    if (c[0] + c[1] + c[2] + c[3] > 0) {
        std::snprintf(text, sizeof text,
                      "ncnt1= %d, ncnt2= %d, ncnt3= %d, ncnt4= %d", c[0], c[1],
                      c[2], c[3]);
        print_line(text);
    }
    print_line("");
}

// A search stopped before its first root move was searched has no best
// move; the front end still gets a legal one: the first legal entry of
// the root list in the search's order, else any legal move.
Move answer_move() {
    if (status.pv[1] != NO_MOVE) return status.pv[1];
    Position &pos = front_worker->position;
    Move legal[MAX_MOVES];
    int count = legal_moves(pos, legal);
    if (count == 0) return NO_MOVE;
    const Worker *w = workers[0];
    const MoveEntry *root = w ? w->plies[1].list_start : nullptr;
    for (int i = 0; root && i < MAX_MOVES && root[i].move != END_OF_LIST; i++)
        for (int k = 0; k < count; k++)
            if (legal[k] == root[i].move) return legal[k];
    return legal[0];
}

// The console's engine plays its move on the game, on its own clock; in
// self-play the next search starts at once.  A game that has ended (or
// grown as long as the console keeps) ends both.
static void play_engine_move(Move best, f32 elapsed) {
    Position &pos = front_worker->position;
    f32 &clock = status.clock[pos.side & 1];
    clock = clock + settings.level_inc - elapsed;
    if (best == NO_MOVE || !play_game_move(best)) {
        engine_moves = self_play = 0;
        return;
    }
    print_board(pos);
    if (self_play) store_state(STATE_REQUEST_THINK);
}

// Finish: the last info line, then "bestmove".
static void finish_thinking() {
    store_state(0);
    read_elapsed();
    f32 elapsed = relaxed_load(status.elapsed);
    // 1. The last info line, if lines are shown by now
    bool due = load_stop() || elapsed >= settings.noise;
    if (due && settings.noise != NEVER_PRINT && status.best_depth != 0 &&
        status.pv[1] != NO_MOVE)
        print_search_line(0, 0, status.best_depth, status.score, status.pv);
    // 2. The best move and the expected reply as text
    const Position &pos = front_worker->position;
    char best[MOVE_TEXT_SIZE], reply[MOVE_TEXT_SIZE];
    move_text(pos, pos.side, answer_move(), best);
    move_text(pos, pos.side ^ 1, status.pv[2], reply);
    if (settings.uci_mode) {
        // 3. A very fast answer must not overtake the other side.
        if (elapsed < 0.006f && status.clock[pos.side] > 1.0f)
            sleep_milliseconds(1);
        char ponder[MOVE_TEXT_SIZE + 8] = "";
        if (status.pv[2] != NO_MOVE)
            std::snprintf(ponder, sizeof ponder, " ponder %s", reply);
        char text[64];
        std::snprintf(text, sizeof text, "bestmove %s%s", best, ponder);
        print_line(text);
    } else {
        // 4. The console's summary
        print_console_summary(best, elapsed);
    }
    // 5. Play the engine's move on the console's board
    if (engine_moves || self_play) play_engine_move(answer_move(), elapsed);
}

// A search still running when the loop ends is stopped and waited for,
// so that shutdown never frees what a search thread uses.
static void end_running_search() {
    if (load_state() == 0) return;
    store_stop(1);
    add_state_bits(STATE_STOP_RECEIVED);
    while (!(load_state() & STATE_FINISHED)) sleep_milliseconds(1);
    store_state(0);
}

void think_cycle() {
    set_fen(front_worker->position, START_FEN);
    if (!settings.uci_mode) print_board(front_worker->position);
    settings.quit = 0;
    store_stop(0);
    store_state(0);
    constexpr u16 REQUESTS = STATE_REQUEST_THINK | STATE_REQUEST_PONDER;
    while (!settings.quit) {
        // 1. Idle: wait a millisecond, watch the clock and the input
        if (!(load_state() &
              (REQUESTS | STATE_FINISHED | STATE_STOP_RECEIVED))) {
            sleep_milliseconds(1);
            check_time();
            poll_input();
            if (settings.quit) break;
        }
        // 2. Start a requested search
        if (load_state() & REQUESTS) start_thinking();
        // 3. Wrap up a finished search
        if (load_state() & STATE_FINISHED) finish_thinking();
        // A net named during the search is loaded now that none runs.
        if (load_state() == 0) apply_network_reload(settings.nn_file);
    }
    end_running_search();
}
