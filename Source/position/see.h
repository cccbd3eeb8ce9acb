// Static exchange evaluation: what a series of captures on one square wins.
#pragma once

#include "position.h"

// Exchange values by piece type, and the ranks that decide whether a
// capture needs an exchange count at all.
constexpr int SEE_VALUE[8] = {0, 100, 340, 340, 540, 1040, 10000, 0};
constexpr int SEE_RANK[8] = {0, 1, 3, 3, 5, 10, 99, 0};

// What `side` gains at most by taking a piece of `type` on `sq`; never
// below 0.
int swap_value(const Position &pos, int side, int sq, int type, u64 occupancy);
// Exchange value of moving from `from` to `to`; from = 64 asks only what
// stands on `to` is worth to `side`.
int see_move(const Position &pos, int side, int from, int to);
// 1 if the move loses no more than 70 in the exchange that follows.
int see_safe(const Position &pos, Move move);
