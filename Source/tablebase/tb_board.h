// The tablebase code's own small board: the eight bitboards of a position,
// its fifty-move counter, en-passant square and side to move, with a move
// generator that never touches the search's Position.
#pragma once

#include "position/position.h"

// Piece kinds as the table files number them: pawn 1 .. king 6, black
// pieces 8 higher.
constexpr int PYRRHIC_PAWN = 1;
constexpr int PYRRHIC_KNIGHT = 2;
constexpr int PYRRHIC_BISHOP = 3;
constexpr int PYRRHIC_ROOK = 4;
constexpr int PYRRHIC_QUEEN = 5;
constexpr int PYRRHIC_KING = 6;

struct TbPosition {
    u64 white;
    u64 black;
    u64 kings;
    u64 queens;
    u64 rooks;
    u64 bishops;
    u64 knights;
    u64 pawns;
    u8 rule50;
    u8 ep;    // en-passant square, 0 for none
    u8 turn;  // 1 white to move, 0 black
};

// to in bits 0-5, from in bits 6-11, promotion in bits 12-14 (1 queen,
// 2 rook, 3 bishop, 4 knight); 0 is no move.
using TbMove = u16;
constexpr int TB_PROMOTES_QUEEN = 1;
constexpr int TB_PROMOTES_ROOK = 2;
constexpr int TB_PROMOTES_BISHOP = 3;
constexpr int TB_PROMOTES_KNIGHT = 4;

constexpr int tb_move_to(TbMove m) { return m & 63; }
constexpr int tb_move_from(TbMove m) { return (m >> 6) & 63; }
constexpr int tb_move_promotes(TbMove m) { return (m >> 12) & 7; }

// Room for every pseudo-legal move of a position the tables can hold.
constexpr int TB_MAX_MOVES = 256;

// The board of `colour` (1 white, 0 black) for one kind, PYRRHIC_PAWN to
// PYRRHIC_KING.
u64 pieces_by_type(const TbPosition &pos, int colour, int piece);
TbMove *tb_gen_captures(const TbPosition &pos, TbMove *moves);
TbMove *tb_gen_moves(const TbPosition &pos, TbMove *moves);
bool tb_in_check(const TbPosition &pos);
// Writes the position after `move`; false if it leaves the mover's king
// attacked.
bool tb_do_move(TbPosition &next, const TbPosition &pos, TbMove move);
bool tb_is_capture(const TbPosition &pos, TbMove move);
bool tb_is_en_passant(const TbPosition &pos, TbMove move);
bool tb_is_pawn_move(const TbPosition &pos, TbMove move);
// True when the side to move has no legal move and is in check.
bool tb_is_mate(const TbPosition &pos);
bool tb_has_legal_move(const TbPosition &pos);
// The search's board as the tables see it; castling is not carried.
TbPosition tb_position_from(const Position &pos, int rule50);
// Sum of the kinds' multipliers; white and black exchanged if `mirror`.
u64 tb_material_key(const TbPosition &pos, int mirror);
// Ends the process with a message on the error stream: a broken promise
// of the calling code, not of a table file.
[[noreturn]] void tb_assert_failed(const char *what);
