// One self-play game: a varied start, then the engine's own moves under a
// soft node limit, each searched position kept with its score, and the
// game's result written into every record once it is known.
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "core/relaxed.h"
#include "position/notation.h"
#include "search/hash.h"
#include "search/search.h"
#include "search/time_control.h"
#include "splitmix.h"
#include "train_data.h"

SelfPlaySettings default_self_play() {
    SelfPlaySettings s{};
    s.seed = 1;
    s.nodes = 2500;
    s.random_plies = 8;
    s.opening_margin = 300;
    s.win_score = 1000;
    s.win_plies = 4;
    s.draw_score = 10;
    s.draw_plies = 10;
    s.draw_from_ply = 80;
    s.max_game_plies = 400;
    s.openings = nullptr;
    return s;
}

// One silent search of the game position on this thread, as -pbench runs
// it: no helpers, no clock, only the node limit ends it.  `runaway` turns
// true when the search ran into its hard cap (runaway_cap) rather than
// finishing its iterations: its move and score are not to be trusted.
SearchAnswer search_game_position(bool &runaway) {
    prepare_search();
    if (init_worker(0) != 0) std::exit(-1);
    store_stop(0);
    store_state(STATE_BENCH);
    search_root(0);
    runaway = relaxed_load(workers[0]->node_count) > workers[0]->node_cap;
    aggregate_counters();
    store_state(0);
    return {status.pv[1], status.score};
}

// Line `n` (counted from 0, wrapping) of the openings file that holds a
// position; the FEN lands in `fen`.  False when the file gives none.
static bool opening_line(const char *file, u64 n, char *fen, int size) {
    FILE *in = std::fopen(file, "r");
    if (!in) return false;
    char line[256];
    u64 count = 0;
    while (std::fgets(line, sizeof line, in))
        if (line[0] != '#' && std::strlen(line) > 10) count++;
    bool found = false;
    if (count > 0) {
        std::rewind(in);
        u64 target = n % count, at = 0;
        while (!found && std::fgets(line, sizeof line, in)) {
            if (line[0] == '#' || std::strlen(line) <= 10) continue;
            if (at++ != target) continue;
            line[std::strcspn(line, "\r\n")] = 0;
            std::snprintf(fen, size, "%s", line);
            found = true;
        }
    }
    std::fclose(in);
    return found;
}

// Random legal moves on the game position; false if the game ended first.
static bool play_random_plies(Position &pos, int plies, u64 &rng) {
    for (int i = 0; i < plies; i++) {
        Move moves[MAX_MOVES];
        int n = legal_moves(pos, moves);
        if (n == 0) return false;
        make_move(pos, moves[next_random(rng) % n]);
    }
    return true;
}

// A fresh table and fresh caches, so a game never depends on the last.
// The silent search leaves the net's evaluation noise on, drawn from the
// clock; the game's own seed stands in for that draw, so that a game
// depends on its seed and number alone, in any process, at any time.
static void forget_everything(u64 game_seed) {
    hash_clear();
    status.age = 0;
    std::srand(static_cast<unsigned>(game_seed));
    if (init_worker(0) != 0) std::exit(-1);
    Worker *w = worker_at(0);
    std::memset(w->eval_cache, 0, sizeof w->eval_cache);
    std::memset(w->pawn_cache, 0, sizeof w->pawn_cache);
    fix_network_noise(w, static_cast<u32>(game_seed ^ (game_seed >> 32)));
}

// Sets up the start: a line of the openings file or the initial position,
// then random plies, until a short search finds it roughly level.
static void choose_start(const SelfPlaySettings &s, u64 &rng, u64 game_seed) {
    Position &pos = front_worker->position;
    for (int attempt = 0;; attempt++) {
        char fen[256];
        if (!s.openings ||
            !opening_line(s.openings, next_random(rng), fen, sizeof fen))
            std::snprintf(fen, sizeof fen, "%s", START_FEN);
        set_fen(pos, fen);
        if (!play_random_plies(pos, s.random_plies, rng)) continue;
        Move moves[MAX_MOVES];
        if (legal_moves(pos, moves) == 0) continue;
        // After many lopsided tries take what comes: a start is needed.
        if (attempt >= 50) return;
        forget_everything(game_seed);
        bool runaway = false;
        SearchAnswer a = search_game_position(runaway);
        if (runaway) continue;
        if (a.score >= -s.opening_margin && a.score <= s.opening_margin) return;
    }
}

// A position worth learning from: not in check, and a quiet best move (no
// capture, en passant or promotion), so the score is that of the position
// as it stands.  Proven scores teach the evaluation nothing.
static bool quiet(const Position &pos, Move best, int score) {
    if (best == NO_MOVE || score <= -PROVEN_SCORE || score >= PROVEN_SCORE)
        return false;
    int from = move_from(best), to = move_to(best);
    int target = pos.board[to];
    // Castling may name the king's own rook as its target square.
    if (target != 0 && piece_colour(target) != pos.side) return false;
    if (piece_type(pos.board[from]) == PAWN &&
        (file_of(from) != file_of(to) || rank_of(to) == 0 || rank_of(to) == 7))
        return false;
    int checker = find_attacker(pos, pos.king_sq[pos.side], pos.side ^ 1,
                                occupied_squares(pos));
    return checker == NO_SQUARE;
}

static void write_results(std::vector<TrainRecord> &out, size_t first,
                          int result) {
    for (size_t i = first; i < out.size(); i++) {
        int side = (out[i].side_rights >> 4) & 1;
        int for_white = result == RESULT_WHITE_WINS   ? RESULT_LOGIT_WIN
                        : result == RESULT_BLACK_WINS ? -RESULT_LOGIT_WIN
                                                      : 0;
        out[i].result_logit =
            static_cast<i16>(side == WHITE ? for_white : -for_white);
    }
}

GameOutcome play_game(const SelfPlaySettings &s, u64 index,
                      std::vector<TrainRecord> &out) {
    u64 game_seed =
        s.seed * 0x100000001B3ULL ^ (index + 1) * 0x9E3779B97F4A7C15ULL;
    u64 rng = game_seed;
    settings.max_nodes = s.nodes;
    settings.noise = 9999.0f;
    settings.multi_pv = 1;
    // No calibration runs in this mode; the speed of a strong engine
    // stands in for it, so no speed limit is held.
    settings.calib_nps = 10000000.0f;
    settings.calib_elo = 4000.0f;
    settings.limit_strength = 0;
    choose_start(s, rng, game_seed);
    forget_everything(game_seed);
    Position &pos = front_worker->position;
    size_t first = out.size();
    Adjudicator adj{};
    GameOutcome g{RESULT_NONE, END_LENGTH, 0};
    for (;; g.plies++) {
        g.result = game_verdict(pos, g.end);
        if (g.result != RESULT_NONE) break;
        if (g.plies >= s.max_game_plies) {
            g.result = RESULT_DRAW;
            g.end = END_LENGTH;
            break;
        }
        bool runaway = false;
        SearchAnswer a = search_game_position(runaway);
        if (runaway) {
            // No trustworthy score or move: the game teaches nothing.
            out.resize(first);
            return {RESULT_NONE, END_RUNAWAY, g.plies};
        }
        if (a.move == NO_MOVE || !legal_move(pos, pos.side, a.move)) {
            // The search always answers with a legal move where one exists;
            // end the game as a draw rather than play a broken one.
            g.result = RESULT_DRAW;
            g.end = END_LENGTH;
            break;
        }
        if (quiet(pos, a.move, a.score)) {
            TrainRecord r = pack_position(pos);
            r.ce = static_cast<i16>(a.score);
            r.sc = static_cast<i16>(
                a.score < -SEARCH_SCORE_CLAMP  ? -SEARCH_SCORE_CLAMP
                : a.score > SEARCH_SCORE_CLAMP ? SEARCH_SCORE_CLAMP
                                               : a.score);
            out.push_back(r);
        }
        g.result = adjudicate(adj, s, pos.side, a.score, g.plies);
        if (g.result != RESULT_NONE) {
            g.end = g.result == RESULT_DRAW ? END_DRAW_ADJUDICATED
                                            : END_WIN_ADJUDICATED;
            break;
        }
        make_move(pos, a.move);
        front_worker->states[front_worker->hist_index].move = 0;
    }
    write_results(out, first, g.result);
    return g;
}
