// Counting the leaves of the move tree: the test of the move generator.
#pragma once

#include "../position/position.h"

// Legal move paths of `depth` plies from the position, through the full
// generator, the legality test and make/unmake; the last ply is counted
// by the legality test without making the moves.
u64 perft_count(Position &pos, int depth);
