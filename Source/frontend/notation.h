// Text to positions and moves and back: FEN, coordinate moves, the written
// forms of a move, and the loose reader of typed or PGN moves.
#pragma once

#include "../position/position.h"

// "a1" .. "h8" by square number.
extern const char SQUARE_NAMES[64][3];

constexpr const char *START_FEN =
    "rnbqkbnr/pppppppp/8/8/8/8/PPPPPPPP/RNBQKBNR w KQkq - 0 1";

int set_fen(Position &pos, const char *text);
void get_fen(const Position &pos, char *out, int counters);
void coord_text(const Position &pos, int side, Move move, char *out);
void move_text(const Position &pos, int side, Move move, char *out);
void move_forms(const Position &pos, Move move, char *coord, char *san,
                char *alt, char *long_form);
// Reads a typed or PGN move against the front Worker's position.  The
// text is changed in place (a '=' may be inserted before a promotion
// letter), so its buffer needs room for two characters more than it holds.
// Returns 1 and the move when exactly one legal move matches.
int parse_move(char *text, Move *out_move);
