// Counting the leaves of the move tree: the test of the move generator and
// of the staged picker that the search takes its moves from.
#pragma once

#include "position/position.h"

// Legal move paths of `depth` plies from the position, through the move
// picker, the legality test and make/unmake; the last ply is counted by the
// legality test without making the moves.  `pos` must be its Worker's own
// position; the Worker's node_count grows by the result.
u64 perft_count(Position &pos, int depth);
