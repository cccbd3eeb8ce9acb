// The constant tables of the Syzygy index scheme.
#pragma once

#include "position/position.h"

// Files a..h folded onto a..d.
constexpr u8 TB_FILE_MIRROR[8] = {0, 1, 2, 3, 3, 2, 1, 0};
// Class 0..9 of a square under the board's eight symmetries.
extern const u8 TB_TRIANGLE[64];
// Squares off the a1-h8 diagonal paired with their mirror images.
extern const u8 TB_LOWER[64];
// Place on the two long diagonals.
extern const u8 TB_DIAG[64];
// Side of the a1-h8 diagonal: 1 above it, -1 below, 0 on it.
extern const i8 TB_OFF_DIAG[64];
// Order of the leading pawn's square, board folded onto files a..d.
extern const u8 TB_FLAP_FILE[64];
// Order by which the other pawns of the leading group are ranked.
extern const u8 TB_PAWN_TWIST_FILE[64];
// Index of a pair of kings, -1 for no legal pair in normal form.
extern const i16 TB_KK_INDEX[10][64];

// Index values of three unlike pieces without pawns, and of two kings.
constexpr u64 TB_PIECE3_COUNT = 31332;
constexpr u64 TB_KING_PAIR_COUNT = 462;

constexpr int tb_flip_diag(int sq) { return ((sq >> 3) | (sq << 3)) & 63; }
