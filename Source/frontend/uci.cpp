// The UCI commands.  Command words are matched exactly; their arguments
// are found by searching the rest of the line for their words.
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "core/output.h"
#include "core/relaxed.h"
#include "options.h"
#include "position/notation.h"
#include "protocol.h"
#include "search/hash.h"
#include "search/search.h"
#include "search/search_params.h"

static int debug_commands = 1;

// Room for a game: the search needs 81 more records and the root's
// iteration limit counts the game in; longer games keep their last plies.
constexpr int GAME_HISTORY_LIMIT = 700;
constexpr int GAME_HISTORY_KEPT = 300;

static void print_spin(const char *name, int value, int low, int high) {
    char text[256];
    std::snprintf(text, sizeof text,
                  "option name %s type spin default %d min %d max %d", name,
                  value, low, high);
    print_line(text);
}

static void print_check(const char *name, int value) {
    char text[256];
    std::snprintf(text, sizeof text, "option name %s type check default %s",
                  name, value ? "true" : "false");
    print_line(text);
}

static void print_string(const char *name, const char *value) {
    char text[1024];
    std::snprintf(text, sizeof text, "option name %s type string default %s",
                  name, value);
    print_line(text);
}

// The identity and the options, defaults from the snapshot (what the
// configuration file set), except where the live value is shown.
static void print_uci_block() {
    const EngineSettings &s = settings_snapshot;
    char text[256];
    std::snprintf(text, sizeof text, "id name %s", ENGINE_VERSION);
    print_line(text);
    print_line("id author Tovin Aldery");
    print_string("ConfigFilePath", s.config_path);
    print_spin("Hash", settings.hash_mb, 0, 32768);
    print_spin("Threads", 1, 1, 160);
    print_line("option name Clear Hash type button");
    print_string("NN_File", settings.nn_file);
    print_check("Use_NN_eval", settings.use_nn);
    print_check("OwnBook", s.own_book);
    print_string("OwnBook_File", s.book_file);
    print_spin("OwnBook_Depth", s.book_depth, 0, 60);
    print_string("OwnBook2_File", s.book2_file);
    print_spin("OwnBook2_Depth", s.book2_depth, 0, 60);
    print_spin("OwnBook_Variety", s.book_variety, 0, 100);
    print_string("SyzygyPath", s.syzygy_path);
    print_spin("SyzygyProbeDepth6", s.tb_probe_depth6, -5, 100);
    print_check("Log", s.log);
    print_check("Ponder", s.ponder);
    print_spin("MultiPV", s.multi_pv, 1, 255);
    print_check("UCI_Chess960", settings.chess960);
    print_spin("MoveOverhead", s.move_overhead, 0, 5000);
    print_check("UCI_LimitStrength", s.limit_strength);
    int top = static_cast<int>(settings.calib_elo);
    // Without a stored Elo the calibrated one is the default, from now on.
    if (settings_snapshot.elo == 0)
        settings_snapshot.elo = static_cast<i16>(top);
    print_spin("UCI_Elo", settings_snapshot.elo, 1500, top);
    print_spin("Contempt", s.contempt, -150, 150);
    print_spin("Selectivity", s.selectivity, 0, 200);
    print_check("UCI_ShowWDL", s.show_wdl);
    print_line("uciok");
}

// "name X value Y": the name runs to the blank before "value".
static void set_option_command(const char *rest) {
    char name[129] = "";
    char value[201] = "";
    const char *name_at = std::strstr(rest, "name");
    const char *value_at = std::strstr(rest, "value");
    const char *end = rest + std::strlen(rest);
    if (name_at) {
        const char *from = end - name_at > 5 ? name_at + 5 : end;
        const char *to = value_at ? value_at - 1 : end;
        int length = to > from ? static_cast<int>(to - from) : 0;
        if (length > 128) length = 128;
        std::memcpy(name, from, length);
        name[length] = 0;
        if (value_at && end - value_at > 6)
            std::snprintf(value, sizeof value, "%s", value_at + 6);
    }
    set_option(name, value);
    take_settings_snapshot();
}

static int square_from_text(const char *t) {
    return (t[0] + 8 * t[1] + 23) & 255;
}

// The game keeps its last plies when it grows past what the record
// stacks hold; repetitions reach no further back than the last capture
// or pawn move anyway.
static void trim_game_history(Worker *w) {
    if (w->hist_index < GAME_HISTORY_LIMIT) return;
    int drop = w->hist_index - GAME_HISTORY_KEPT;
    std::memmove(w->states, w->states + drop,
                 GAME_HISTORY_KEPT * sizeof(StateRecord));
    w->hist_index = static_cast<i16>(GAME_HISTORY_KEPT);
}

// One token of "position ... moves": squares read by arithmetic, castling
// by the king's step or its taking its own rook, promotion by the letter.
static void play_token(Position &pos, const char *token) {
    if (std::strlen(token) < 4) return;
    int from = square_from_text(token), to = square_from_text(token + 2);
    // Off the board, or nothing of the side to move on the square: the
    // token is dropped rather than corrupting the position.
    if (from > 63 || to > 63) return;
    int piece = pos.board[from];
    if (piece == 0 || piece_colour(piece) != pos.side) return;
    Move move = make_move_code(from, to);
    int home = pos.side == WHITE ? 4 : 60;
    if (piece_type(piece) == KING && rank_of(from) == rank_of(home) &&
        rank_of(to) == rank_of(home)) {
        int step = file_of(to) - file_of(from);
        bool own_rook = pos.board[to] == make_piece(ROOK, pos.side);
        if (step > 1 || step < -1 || own_rook)
            move |= from < to ? FLAG_SHORT : FLAG_LONG;
    }
    switch (token[4]) {
        case 'q':
            move |= FLAG_QUEEN;
            break;
        case 'n':
            move |= FLAG_KNIGHT;
            break;
        case 'b':
            move |= FLAG_BISHOP;
            break;
        case 'r':
            move |= FLAG_ROOK;
            break;
        default:
            break;
    }
    trim_game_history(worker_of(pos));
    make_move(pos, move);
}

static void position_command(char *rest) {
    if (load_state() != 0) kill_search();
    char *moves = std::strstr(rest, "moves");
    if (moves && moves > rest) moves[-1] = 0;
    Position &pos = front_worker->position;
    if (std::strstr(rest, "startpos")) {
        set_fen(pos, START_FEN);
    } else if (std::strstr(rest, "fen")) {
        set_fen(pos, std::strlen(rest) >= 4 ? rest + 4 : "");
    } else {
        return;
    }
    if (!moves) return;
    char *save = nullptr;
    for (char *token = strtok_r(moves + 5, " \t", &save); token;
         token = strtok_r(nullptr, " \t", &save))
        play_token(pos, token);
    // The list starts of the front Worker stay at the root.
    front_worker->ply = 1;
    front_worker->states[front_worker->hist_index].move = 0;
}

// The number behind a word of the go line: blanks skipped, then up to
// 127 characters to the next blank.
static double value_after(const char *at, const char *word) {
    const char *v = at + std::strlen(word);
    while (*v == ' ') v++;
    char text[128];
    int n = 0;
    while (v[n] && v[n] != ' ' && n < 127) {
        text[n] = v[n];
        n++;
    }
    text[n] = 0;
    return std::atof(text);
}

static void go_command(const char *rest) {
    if (load_state() != 0) kill_search();
    settings.level_moves = 0;
    int side = front_worker->position.side;
    const char *at;
    if ((at = std::strstr(rest, "wtime"))) {
        double t = value_after(at, "wtime") * 0.001;
        status.clock[0] = static_cast<f32>(t < 0 ? 0 : t);
    }
    if ((at = std::strstr(rest, "btime"))) {
        double t = value_after(at, "btime") * 0.001;
        status.clock[1] = static_cast<f32>(t < 0 ? 0 : t);
    }
    if ((at = std::strstr(rest, "winc")) && side == WHITE)
        settings.level_inc = static_cast<f32>(value_after(at, "winc") * 0.001);
    if ((at = std::strstr(rest, "binc")) && side == BLACK)
        settings.level_inc = static_cast<f32>(value_after(at, "binc") * 0.001);
    if ((at = std::strstr(rest, "movestogo"))) {
        settings.max_nodes = 0;
        settings.max_depth = 80;
        settings.level_moves = 40;
        status.moves_to_go = static_cast<i16>(value_after(at, "movestogo"));
    }
    if ((at = std::strstr(rest, "depth"))) {
        settings.level_moves = 1;
        settings.level_time = 10000000.0f;
        i8 depth = static_cast<i8>(static_cast<int>(value_after(at, "depth")));
        settings.max_depth = depth > 80 ? 80 : depth;
    }
    if ((at = std::strstr(rest, "nodes"))) {
        settings.level_moves = 1;
        settings.level_time = 10000000.0f;
        double n = value_after(at, "nodes");
        settings.max_nodes = n > 0 && n < 1.8e19 ? static_cast<u64>(n) : 0;
    }
    if ((at = std::strstr(rest, "movetime"))) {
        settings.level_moves = 1;
        settings.level_inc = 0.0f;
        settings.level_time =
            static_cast<f32>(value_after(at, "movetime") * 0.001);
    }
    if (std::strstr(rest, "infinite")) {
        settings.max_nodes = 0;
        settings.max_depth = 80;
        settings.level_moves = 1;
        settings.level_time = 10000000.0f;
        settings.level_inc = 0.0f;
    }
    store_state(std::strstr(rest, "ponder") ? STATE_REQUEST_PONDER
                                            : STATE_REQUEST_THINK);
}

static void new_game() {
    if (load_state() != 0) kill_search();
    settings.level_moves = 0;
    status.clock[0] = status.clock[1] = 60.0f;
    settings.level_time = 60.0f;
    settings.level_inc = 0.0f;
    front_worker->hist_index = 0;
    hash_clear();
    status.age = 0;
}

// The command word, up to 127 characters, and where its arguments begin.
static const char *split_command(const char *line, char *word) {
    const char *start = line;
    while (*start == ' ') start++;
    int n = 0;
    while (start[n] && !std::strchr(" \t\r\n", start[n]) && n < 127) {
        word[n] = start[n];
        n++;
    }
    word[n] = 0;
    // Counted from the start of the line, so leading blanks put it early.
    size_t offset = static_cast<size_t>(n) + 1;
    size_t length = std::strlen(line);
    return line + (offset < length ? offset : length);
}

// "CMD: " and the line, whole however long it is.
static void log_command(const char *line) {
    size_t size = std::strlen(line) + sizeof "CMD: ";
    char *text = static_cast<char *>(std::malloc(size));
    if (!text) return;
    std::snprintf(text, size, "CMD: %s", line);
    log_line(text);
    std::free(text);
}

void uci_command(char *line) {
    line[std::strcspn(line, "\n")] = 0;
    if (!line[0]) return;
    if (debug_commands) log_command(line);
    char word[128];
    char *rest = const_cast<char *>(split_command(line, word));
    if (!std::strcmp(word, "uci")) {
        relaxed_store(settings.uci_mode, 1);
        print_uci_block();
    } else if (!std::strcmp(word, "isready")) {
        print_line("readyok");
    } else if (!std::strcmp(word, "setoption")) {
        set_option_command(rest);
    } else if (!std::strcmp(word, "debug")) {
        debug_commands = 1;  // "debug off" keeps it on
    } else if (!std::strcmp(word, "_show")) {
        // A running search keeps the tables it started with.
        if (load_state() != 0)
            print_margins();
        else
            show_margins();
    } else if (!std::strcmp(word, "ucinewgame")) {
        new_game();
    } else if (!std::strcmp(word, "position")) {
        position_command(rest);
    } else if (!std::strcmp(word, "go")) {
        go_command(rest);
    } else if (!std::strcmp(word, "ponderhit")) {
        u16 pondering = STATE_PONDERING;
        status.state.compare_exchange_strong(pondering, STATE_THINKING);
    } else if (!std::strcmp(word, "stop")) {
        if (load_state() != 0) {
            store_stop(1);
            add_state_bits(STATE_STOP_RECEIVED);
        }
    } else if (!std::strcmp(word, "quit")) {
        settings.quit = 1;
    }
}
