// Text to positions and moves and back: FEN, coordinate moves, the written
// forms of a move, and the loose reader of typed or PGN moves.
#pragma once

#include "position.h"

// "a1" .. "h8" by square number.
extern const char SQUARE_NAMES[64][3];

constexpr const char *START_FEN =
    "rnbqkbnr/pppppppp/8/8/8/8/PPPPPPPP/RNBQKBNR w KQkq - 0 1";

// Room a text buffer needs for get_fen with counters (93 at most), and
// for each of coord_text, move_text and the four move_forms strings (8 at
// most, "e7e8=Q+").
constexpr int FEN_BUFFER_SIZE = 100;
constexpr int MOVE_TEXT_SIZE = 16;

// Sets `pos` from a FEN text; always returns 0.  The text is not checked,
// but nothing is written out of bounds on any input: men off the board or
// beyond 16 of a colour are left off, an en-passant field that names no
// square gives 64, a missing king leaves its square at 64.  The Position
// is cleared first (only `worker` is kept), so equal texts give equal
// bytes; a text without a side field leaves White to move.  The owner
// Worker's `hist_index` becomes 0, `ply` 1, `last_move` 0 and its first
// two StateRecords are cleared.  Halfmove clock and move number are not
// read.
int set_fen(Position &pos, const char *text);
// Writes the FEN of `pos` (castling as KQkq, also for Chess960); with
// `counters` not 0 also " cnt50 game-ply", the game ply being the owner
// Worker's `hist_index`.  `out` needs FEN_BUFFER_SIZE bytes.
void get_fen(const Position &pos, char *out, int counters);
// Coordinate text ("e2e4", "e7e8q" or console "e7e8=Q", Chess960 castling
// as king takes rook); `move` must not be 0.
void coord_text(const Position &pos, int side, Move move, char *out);
// As coord_text, and "null" for a zero move.
void move_text(const Position &pos, int side, Move move, char *out);
// The four written forms of `move` in `pos` (the position before it):
// coordinate, short algebraic (loose), alternative (piece and from-file,
// pawn files) and long (piece and from-rank); "+" marks a check.  A zero
// move gives "null" and three empty strings.
void move_forms(const Position &pos, Move move, char *coord, char *san,
                char *alt, char *long_form);
// Reads a typed or PGN move against the front Worker's position (moves
// generated at search ply 1; the Worker's `ply` is restored).  The text
// is changed in place and a '=' may be inserted before a promotion letter,
// so its buffer needs room for strlen(text) + 2 bytes.  Returns 1 and the
// move when exactly one legal move matches; else 0, printing "ambiguous
// move" with puts when two match.  On 0 `out_move` holds the last matching
// legal move, or 0 if none matched.
int parse_move(char *text, Move *out_move);
