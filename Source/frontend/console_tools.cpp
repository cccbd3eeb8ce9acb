// The console's look-ups: a test position by its id, the line the hash
// table holds, a perft count, and the exchanges on every attacked man.
#include <cstdio>
#include <cstring>

#include "console.h"
#include "core/output.h"
#include "position/notation.h"
#include "search/hash.h"
#include "search/search.h"
#include "search/time_control.h"

constexpr int EPD_LINE = 256;
constexpr int PERFT_DEPTH_LIMIT = 20;
// The hash line is followed as far as a search line is kept.
constexpr int PV_PLY_LIMIT = 76;

// Finds `id "..."` in "test.epd", lines that begin with a blank or ';'
// passed over; a missing file or id gives an empty line and no change.
void get_command(const char *id) {
    char wanted[160];
    std::snprintf(wanted, sizeof wanted, "id \"%s\"", id);
    char line[EPD_LINE] = "";
    char found[EPD_LINE] = "";
    if (FILE *file = std::fopen("test.epd", "r")) {
        while (std::fgets(line, sizeof line, file)) {
            if (line[0] == ' ' || line[0] == ';') continue;
            if (!std::strstr(line, wanted)) continue;
            std::memcpy(found, line, sizeof found);
            break;
        }
        std::fclose(file);
    }
    found[std::strcspn(found, "\r\n")] = 0;
    print_line(found);
    if (std::strlen(found) >= 9) set_fen(front_worker->position, found);
    print_board(front_worker->position);
    hash_clear();
}

// The first move of the line, from the table; 0 when there is none to
// show.
static Move hash_line_start(Position &pos) {
    if (!status.use_hash) return NO_MOVE;
    HashEntry entry{};
    entry.depth = HASH_NOT_FOUND;
    hash_probe(pos, entry);
    if (entry.depth < 0 || entry.move == NO_MOVE) return NO_MOVE;
    if (is_draw(pos, 0)) return NO_MOVE;
    if (!legal_move(pos, pos.side, entry.move)) return NO_MOVE;
    return entry.move;
}

void pv_command() {
    Worker *w = front_worker;
    Position &pos = w->position;
    u16 line[LINE_LENGTH] = {};
    if (w->hist_index + PV_PLY_LIMIT + 2 < STATE_STACK_SIZE) {
        line[1] = hash_line_start(pos);
        if (line[1]) {
            make_move(pos, line[1]);
            extend_pv_from_hash(pos, 2, line);
            unmake_move(pos);
        }
    }
    char text[PV_PLY_LIMIT * (MOVE_TEXT_SIZE + 1) + 1] = "";
    int made = 0;
    for (int i = 1; i <= PV_PLY_LIMIT && line[i]; i++, made++) {
        char coord[MOVE_TEXT_SIZE], san[MOVE_TEXT_SIZE];
        char alt[MOVE_TEXT_SIZE], long_form[MOVE_TEXT_SIZE];
        move_forms(pos, line[i], coord, san, alt, long_form);
        std::strcat(text, san);
        std::strcat(text, " ");
        make_move(pos, line[i]);
    }
    std::printf("PV: %s\n\n", text);
    print_board(pos);
    while (made--) unmake_move(pos);
    w->ply = 1;
}

void perft_command(int depth) {
    if (depth > PERFT_DEPTH_LIMIT) depth = PERFT_DEPTH_LIMIT;
    prepare_search();
    reset_clock(1);
    Worker *w = front_worker;
    w->node_count = 0;
    // No move at all is one path, the position itself.
    if (depth < 1)
        w->node_count = 1;
    else
        perft(w, w->position.side, w->ply, depth);
    read_elapsed();
    double nodes = static_cast<double>(w->node_count);
    double elapsed = static_cast<double>(status.elapsed);
    char text[160];
    std::snprintf(text, sizeof text,
                  "visited %0.0f nodes in %0.3f seconds, nps= %0.0f", nodes,
                  elapsed, nodes / (elapsed + 0.001));
    print_line(text);
}

// What the other side wins at most by taking each man it attacks.
void swap_command() {
    const Position &pos = front_worker->position;
    u64 occupied = occupied_squares(pos);
    for (int sq = 0; sq < 64; sq++) {
        int piece = pos.board[sq];
        if (!piece) continue;
        int them = piece_colour(piece) ^ 1;
        if (find_attacker(pos, sq, them, occupied) == NO_SQUARE) continue;
        int value = swap_value(pos, them, sq, piece_type(piece), occupied);
        std::printf("sq= %s, swap1= %4d\n", SQUARE_NAMES[sq], value);
    }
}
