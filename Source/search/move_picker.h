// The staged move picker: hands out the moves of one node one at a time,
// best first, and generates and scores as late as it can.  All its state
// lies in the node's PlyRecord.
#pragma once

#include "search.h"

// pick_state: the stage in the low four bits; the flags above it stay for
// the node's life.
constexpr u16 PICK_STAGE_MASK = 15;
constexpr u16 PICK_HASH_FIRST = 16;     // hand out hash_move before all else
constexpr u16 PICK_ALWAYS = 32;         // set by every caller, read by none
constexpr u16 PICK_FULL = 64;           // exchange-ordered captures, then all
constexpr u16 PICK_QUIET_CHECKS = 128;  // quiet checks after the captures

// What the callers set, stage 0 included.
constexpr u16 PICK_SEARCH = PICK_HASH_FIRST | PICK_ALWAYS | PICK_FULL;
constexpr u16 PICK_QUIESCE_CHECKS = PICK_ALWAYS | PICK_QUIET_CHECKS;
constexpr u16 PICK_QUIESCE = PICK_ALWAYS;
constexpr u16 PICK_ALL_MOVES = PICK_ALWAYS | PICK_FULL;  // perft, listings

// The stages.  Any value above STAGE_SELECT_AGAIN gives no move.
constexpr u16 STAGE_START = 0;
constexpr u16 STAGE_GENERATE_TACTICAL = 1;
constexpr u16 STAGE_SELECT_TACTICAL = 2;
constexpr u16 STAGE_QUIET_CHECKS = 3;
constexpr u16 STAGE_SELECT_EXCHANGE = 4;
constexpr u16 STAGE_GENERATE_QUIETS = 5;
constexpr u16 STAGE_SELECT_REST = 6;
constexpr u16 STAGE_LIST_ORDER = 7;
constexpr u16 STAGE_RESTART = 8;
constexpr u16 STAGE_SELECT_AGAIN = 9;
// Where a node's picker rests once it has given "no move": every further
// call gives none, whatever the list holds.
constexpr u16 STAGE_SPENT = 10;

// Ordering scores the picker writes.
constexpr i16 HASH_MOVE_SCORE = 255;
constexpr i16 QUIET_CHECK_SCORE = 100;

// The next move of the node at the Worker's current ply, pseudo-legal, or
// null when none is left.  The entry stays in the ply's list; `current`
// points at it until the next call.
MoveEntry *next_move(const Position &pos);

// Non-capturing moves of `side` that give check directly: pawn pushes,
// knight, bishop, rook and queen moves onto empty squares from which the
// piece attacks the enemy king.  Discovered checks, king moves and
// castling are left out.  Scores are left as they were.
MoveEntry *generate_quiet_checks(const Position &pos, int side,
                                 MoveEntry *list);

// Orders the root list of ply 1 before the first iteration: the hash
// move, good captures by victim and attacker, losing captures by victim,
// quiet moves by history and the reply memories.
void order_root_moves(const Position &pos, Worker *w);
