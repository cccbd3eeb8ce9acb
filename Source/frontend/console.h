// What the console shows a person at a terminal.
#pragma once

#include "../position/position.h"

// Prints the FEN with its counters, the board from rank 8 down (White's
// men in capitals, Black's in lower case with pawns as 'o', empty squares
// as '-' or '+' by square colour), and the side to move.
void print_board(const Position &pos);
