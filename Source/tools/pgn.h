// PGN scanning: games of engine matches, each move with a comment that
// holds the engine's score, turned into an annotated listing or into EPD
// lists for tuning.
#pragma once

#include <cstdio>

#include "position/position.h"

// One ply as read: the SAN text and the score of its comment.
struct PgnMove {
    char text[8];
    i16 score;
};

constexpr int PGN_MAX_MOVES = 791;

// Score codes of a move's comment.
constexpr i16 PGN_NO_COMMENT = -30000;
constexpr i16 PGN_UNREADABLE = -29999;
constexpr i16 PGN_MATED = -9000;
constexpr i16 PGN_MATES = 9000;
// The first slot's score before any comment of the run has set it.
constexpr i16 PGN_FIRST_UNSET = -10000;

// Results as the scanner keeps them.
constexpr int PGN_WHITE_WON = 0;
constexpr int PGN_BLACK_WON = 1;
constexpr int PGN_OTHER_RESULT = 2;

// -scan_pgn1..4: reads settings.input_file2 and writes settings.output_file
// ("tmp.epd" when none is set) and "tmpX.epd".  Selector 1 writes an
// annotated listing, 2 evaluated positions for tuning, 3 the opening
// positions up to a clear score, 4 positions of the rook-and-pawn ending.
// Every file error is silent; the result is false after one.
bool pgn_scan(int selector);

// Replays one game from `start_fen` (the start position when empty) and
// writes what the selector asks for; `written` gets the number of
// position lines.  The game's output ends at the first move that does not
// read.
void pgn_emit(FILE *out, FILE *aux, const PgnMove *moves, int count,
              const char *start_fen, int selector, int result, int *written);

// The score of a finished comment text, before the sign rule; sets
// `from_white` when the value is one the file gives from White's view.
int pgn_comment_score(const char *text, int fcp_format, bool *from_white);
