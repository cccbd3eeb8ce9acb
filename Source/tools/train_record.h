// The 40-byte training record: one position with its search scores and
// its game's result, packed so that a quarter of a billion fit in memory.
// Files of them have no header; they are arrays of records, little-endian.
#pragma once

#include <cstddef>

#include "position/position.h"

struct TrainRecord {
    u8 board[32];      // square 2i in the low nibble of byte i, 2i+1 high
    u8 side_rights;    // side to move high nibble, castling rights low
    u8 ep;             // en-passant square, 64 for none
    i16 result_logit;  // the game's result for the side to move
    i16 ce;            // the score of the line read
    i16 sc;            // the search's score, within -2000 .. 2000
};
static_assert(sizeof(TrainRecord) == 40);
static_assert(offsetof(TrainRecord, side_rights) == 32);
static_assert(offsetof(TrainRecord, result_logit) == 34);
static_assert(offsetof(TrainRecord, ce) == 36);
static_assert(offsetof(TrainRecord, sc) == 38);

// Records the tools hold at most: 9.6 gigabytes in one allocation.
constexpr u64 TRAIN_CAPACITY = 240000000;
// A won (lost) game in the units of a score; a draw is 0.
constexpr int RESULT_LOGIT_WIN = 1919;
constexpr int SEARCH_SCORE_CLAMP = 2000;

// The logistic link between a score and the probability of a win.
double win_probability(int score);
// A game's result (1 win, 0.5 draw, 0 loss, or any probability between)
// as a score, clamped to the win and loss values.
i16 result_logit(double g);

// The board, side, castling rights and en-passant square of `pos`; the
// other fields are left 0.
TrainRecord pack_position(const Position &pos);
// The FEN of a record's position, without counters.  Nibbles that name
// no piece stand for empty squares; an en-passant square past 63 is none.
void record_fen(const TrainRecord &record, char *out);
// Sets `pos` to the record's position (through its FEN, as any position
// is set up).
void set_record_position(Position &pos, const TrainRecord &record);
// Whether the record has a king of each colour.
bool record_has_kings(const TrainRecord &record);
