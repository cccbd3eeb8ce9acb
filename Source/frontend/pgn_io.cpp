// Games in and out of PGN: `load` reads one game of a file onto the board,
// `save` appends the game to "tmp.pgn".
#include <cctype>
#include <cstdio>
#include <cstring>

#include "console.h"
#include "core/output.h"
#include "position/notation.h"
#include "search/search.h"

constexpr int PGN_LINE = 1024;
constexpr int MOVE_TOKEN = 32;
// Text outside comments, gathered over the lines a comment spans.
constexpr int GATHERED_LIMIT = 4 * PGN_LINE;
constexpr int SAVE_MOVES_PER_LINE = 11;

// The state of one load: which game is read, and the comment depth.
struct PgnReader {
    const char *tag;
    int game;  // the game being read, from 1
    int seen_event;
    int wanted;  // the game to read; 0 while a tag has not been seen
    int depth;   // of nested { } comments
    bool done;
    char gathered[GATHERED_LIMIT];
    int gathered_length;
};

static void reset_clocks() {
    status.clock[0] = status.clock[1] = settings.level_time;
}

// 5. The move in a token starts at its first letter, so that a move
// number glued to it ("12.Nf3") is stepped over; results have no letter.
static void read_move_token(PgnReader &r, const char *token) {
    while (*token && !std::isalpha(static_cast<unsigned char>(*token))) token++;
    if (!*token) return;
    char text[MOVE_TOKEN + 1];
    std::snprintf(text, sizeof text, "%s", token);
    char buffer[MOVE_TOKEN + 3];
    std::memcpy(buffer, text, sizeof text);
    Move move;
    if (!parse_move(buffer, &move) || !play_game_move(move)) {
        char said[MOVE_TOKEN + 32];
        std::snprintf(said, sizeof said, "can't parse move '%s'", text);
        print_line(said);
        r.done = true;
    }
}

static void read_gathered_moves(PgnReader &r) {
    r.gathered[r.gathered_length] = 0;
    char *save = nullptr;
    for (char *token = strtok_r(r.gathered, " \t", &save); token && !r.done;
         token = strtok_r(nullptr, " \t", &save))
        read_move_token(r, token);
    r.gathered_length = 0;
}

// 4. Comments are dropped, nested or spanning lines; the rest is kept
// until every comment is closed.
static void gather_text(PgnReader &r, const char *line) {
    for (const char *p = line; *p; p++) {
        if (*p == '{') {
            r.depth++;
        } else if (*p == '}') {
            if (r.depth > 0) r.depth--;
        } else if (r.depth == 0 && r.gathered_length < GATHERED_LIMIT - 2) {
            r.gathered[r.gathered_length++] = *p;
        }
    }
    // The line end parts words like a blank.
    if (r.gathered_length < GATHERED_LIMIT - 1)
        r.gathered[r.gathered_length++] = ' ';
    if (r.depth == 0) read_gathered_moves(r);
}

// 2. The FEN stands between the first two quotes.
static void read_fen_tag(const char *line) {
    const char *open = std::strchr(line, '"');
    if (!open) return;
    char fen[PGN_LINE];
    std::snprintf(fen, sizeof fen, "%s", open + 1);
    char *close = std::strchr(fen, '"');
    if (close) *close = 0;
    set_fen(front_worker->position, fen);
}

static void read_line(PgnReader &r, char *line) {
    // 1. Games are counted by their Event tags; the tag picks the game.
    // Moves before the first Event tag belong to the first game.
    if (std::strstr(line, "[Event ") && r.seen_event++) r.game++;
    if (r.tag[0] && !r.wanted && std::strstr(line, r.tag)) r.wanted = r.game;
    if (r.wanted && r.game > r.wanted) {
        r.done = true;
        return;
    }
    if (r.game < r.wanted || !r.wanted) return;
    if (std::strstr(line, "[FEN ")) read_fen_tag(line);
    // 3. Tag lines outside a comment are skipped
    if (line[0] == '[' && r.depth == 0) return;
    // 4., 5. The moves, past the comments
    line[std::strcspn(line, "\r\n")] = 0;
    gather_text(r, line);
}

void load_command(const char *file_name, const char *tag) {
    std::printf("loading %s, tag %s\n", file_name, tag);
    FILE *file = std::fopen(file_name, "r");
    if (!file) {
        reset_clocks();
        return;
    }
    set_fen(front_worker->position, START_FEN);
    static PgnReader r;
    r = PgnReader{};
    r.tag = tag;
    r.game = 1;
    r.wanted = tag[0] ? 0 : 1;
    char line[PGN_LINE];
    while (!r.done && std::fgets(line, sizeof line, file)) read_line(r, line);
    std::fclose(file);
    // What follows the loaded game is no part of it.
    front_worker->states[front_worker->hist_index].move = NO_MOVE;
    print_board(front_worker->position);
    reset_clocks();
}

// Back to the first ply and forward again, writing each move as it is
// made: the game ends where it was.
void save_command() {
    FILE *file = std::fopen("tmp.pgn", "a");
    if (!file) return;
    int plies = front_worker->hist_index;
    while (undo_game_move()) {
    }
    std::fprintf(file, "[Event \"Unknown\"]\n");
    Position &pos = front_worker->position;
    for (int i = 0; i < plies; i++) {
        Move move = front_worker->states[i].move;
        char coord[MOVE_TEXT_SIZE], san[MOVE_TEXT_SIZE];
        char alt[MOVE_TEXT_SIZE], long_form[MOVE_TEXT_SIZE];
        move_forms(pos, move, coord, san, alt, long_form);
        std::fprintf(file, "%s ", san);
        make_move(pos, move);
        front_worker->ply = 1;
        if ((i + 1) % SAVE_MOVES_PER_LINE == 0) std::fprintf(file, "\n");
    }
    std::fprintf(file, "\n\n");
    std::fclose(file);
}
