// The console's command language: a line is cut into a command word and its
// arguments; `quit` and `.` act at any time, everything else only while no
// search runs; a line that names no command is read as a move.
#include "console.h"

#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "book/book.h"
#include "core/output.h"
#include "position/notation.h"
#include "protocol.h"
#include "search/hash.h"
#include "search/search.h"
#include "search/search_params.h"

u8 engine_moves;
u8 self_play;

constexpr int MAX_ARGUMENTS = 11;
constexpr int TOKEN_LENGTH = 128;
// parse_move may insert a '=' and needs one byte more besides.
constexpr int MOVE_INPUT_LENGTH = 127;

// The command word in word[0], up to 11 arguments after it; missing ones
// are empty.
struct ConsoleLine {
    const char *text;
    char word[MAX_ARGUMENTS + 1][TOKEN_LENGTH + 1];
};

int console_int(const char *text) {
    long long v = std::strtoll(text, nullptr, 10);
    if (v > INT32_MAX) return INT32_MAX;
    if (v < INT32_MIN) return INT32_MIN;
    return static_cast<int>(v);
}

double console_real(const char *text) {
    double v = std::strtod(text, nullptr);
    return std::isfinite(v) ? v : 0.0;
}

// Cuts at blanks; a token longer than 128 characters keeps its first 128.
static void cut_tokens(const char *text, ConsoleLine &line) {
    line.text = text;
    std::memset(line.word, 0, sizeof line.word);
    const char *p = text;
    for (int n = 0; n <= MAX_ARGUMENTS; n++) {
        while (*p == ' ' || *p == '\t') p++;
        if (!*p) return;
        int length = 0;
        for (; *p && *p != ' ' && *p != '\t'; p++)
            if (length < TOKEN_LENGTH) line.word[n][length++] = *p;
    }
}

static void show_board_after_move() {
    if (settings.debug) show_eval();
    print_board(front_worker->position);
}

// A typed move, or the argument of `move`.
static void typed_move(const char *text) {
    char buffer[MOVE_INPUT_LENGTH + 3];
    std::snprintf(buffer, MOVE_INPUT_LENGTH + 1, "%s", text);
    Move move;
    if (!parse_move(buffer, &move)) {
        std::printf("invalid: %s%s\n", SQUARE_NAMES[move_from(move)],
                    SQUARE_NAMES[move_to(move)]);
        return;
    }
    int ply = front_worker->hist_index;
    if (ply >= CONSOLE_GAME_LIMIT) {
        print_line("game too long");
        return;
    }
    char said[MOVE_INPUT_LENGTH + 32];
    std::snprintf(said, sizeof said, "%d. move %s", ply / 2 + 1, buffer);
    print_line(said);
    play_game_move(move);
    show_board_after_move();
}

static void new_command(const ConsoleLine &) {
    set_fen(front_worker->position, START_FEN);
    print_board(front_worker->position);
    status.clock[0] = status.clock[1] = settings.level_time;
}

// The FEN is the line from its fifth character on, after "fen ".
static void fen_command(const ConsoleLine &line) {
    const char *text = std::strlen(line.text) > 4 ? line.text + 4 : "";
    set_fen(front_worker->position, text);
    print_board(front_worker->position);
}

static void mv_command(const ConsoleLine &) {
    settings.own_book = 1;
    engine_moves = 1;
    store_state(STATE_REQUEST_THINK);
}

// Analysis: no book, all the time in the world, to the depth asked for.
static void go_command(const ConsoleLine &line) {
    settings.own_book = 0;
    settings.level_moves = 1;
    settings.level_time = 99999.0f;
    int depth = console_int(line.word[1]);
    settings.max_depth =
        static_cast<i8>(depth >= 1 && depth <= 80 ? depth : 80);
    if (status.use_hash < 2) hash_clear();
    store_state(STATE_REQUEST_THINK);
}

static void bd_command(const ConsoleLine &) { show_board_after_move(); }

static void self_command(const ConsoleLine &) {
    settings.ponder = 0;
    self_play = 1;
    store_state(STATE_REQUEST_THINK);
}

static void get_cmd(const ConsoleLine &line) { get_command(line.word[1]); }

static void pv_cmd(const ConsoleLine &) { pv_command(); }

static void trace_command(const ConsoleLine &line) {
    settings.trace = static_cast<u8>(console_int(line.word[1]));
}

static void ev_command(const ConsoleLine &) { show_eval(); }

static void sp_command(const ConsoleLine &) {
    evaluation_trace(front_worker, 2);
}

static void lmr_command(const ConsoleLine &) { show_margins(); }

static void undo_command(const ConsoleLine &) {
    if (!undo_game_move()) return;
    show_board_after_move();
}

// One step along the redo chain.
static void redo_command(const ConsoleLine &) {
    Move move = redo_move();
    if (!move) return;
    const Position &pos = front_worker->position;
    char text[MOVE_TEXT_SIZE];
    move_text(pos, pos.side, move, text);
    char said[64];
    std::snprintf(said, sizeof said, "%d%s move %s",
                  front_worker->hist_index / 2 + 1,
                  pos.side == WHITE ? "." : "...", text);
    print_line(said);
    play_game_move(move);
    show_board_after_move();
}

static void load_cmd(const ConsoleLine &line) {
    load_command(line.word[1], line.word[2]);
}

static void save_cmd(const ConsoleLine &) { save_command(); }

// Move n with White to move stands at ply 2n - 2.
static void jump_command(const ConsoleLine &line) {
    long long ply = 2LL * console_int(line.word[1]) - 2;
    jump_to_ply(ply < 0                    ? 0
                : ply > CONSOLE_GAME_LIMIT ? CONSOLE_GAME_LIMIT
                                           : static_cast<int>(ply));
    print_board(front_worker->position);
}

static void edit_cmd(const ConsoleLine &) { edit_command(); }

// Both books show their candidates for the position, each followed by an
// empty line; no move is played.
static void book_command(const ConsoleLine &) { show_book_moves(); }

static void tag_command(const ConsoleLine &) {
    settings.tag_key = front_worker->position.key;
}

static void perft_cmd(const ConsoleLine &line) {
    perft_command(console_int(line.word[1]));
}

static void swap_cmd(const ConsoleLine &) { swap_command(); }

static void set_cmd(const ConsoleLine &line) {
    set_command(line.word[1], line.word[2], line.word[3], line.word[4]);
}

static void move_command(const ConsoleLine &line) { typed_move(line.word[1]); }

struct ConsoleCommand {
    const char *name;
    void (*run)(const ConsoleLine &);
};

// In the order they are tested.
static constexpr ConsoleCommand COMMANDS[] = {
    {"new", new_command},     {"fen", fen_command},   {"mv", mv_command},
    {"go", go_command},       {"an", go_command},     {"bd", bd_command},
    {"self", self_command},   {"get", get_cmd},       {"pv", pv_cmd},
    {"trace", trace_command}, {"ev", ev_command},     {"sp", sp_command},
    {"lmr", lmr_command},     {"undo", undo_command}, {"[", undo_command},
    {"]", redo_command},      {"load", load_cmd},     {"save", save_cmd},
    {"jump", jump_command},   {"edit", edit_cmd},     {"book", book_command},
    {"tag", tag_command},     {"perft", perft_cmd},   {"swap", swap_cmd},
    {"set", set_cmd},         {"move", move_command},
};

void console_command(char *text) {
    static ConsoleLine line;
    cut_tokens(text, line);
    const char *word = line.word[0];
    if (!std::strcmp(word, "quit")) {
        if (load_state() != 0) kill_search();
        settings.quit = 1;
        return;
    }
    if (!std::strcmp(word, ".")) {
        store_stop(1);
        return;
    }
    // A running search owns the game and the tables: all else waits,
    // typed moves included, and is dropped without a word.
    if (load_state() != 0) return;
    for (const ConsoleCommand &command : COMMANDS)
        if (!std::strcmp(word, command.name)) {
            command.run(line);
            return;
        }
    typed_move(word);
}
