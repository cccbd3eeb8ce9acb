// The score scale: centipawns for the side to move, with proven results
// at the far ends.  A mate given at search ply p is MATE_SCORE - p, a
// tablebase win found at ply p is TB_WIN_VALUE - p, so every mate lies at
// or beyond MATE_BORDER and every tablebase win below it.
#pragma once

// Beyond every score: the open ends of a search window.
constexpr int INFINITE_SCORE = 10001;
constexpr int MATE_SCORE = 10000;
// Mates lie at or beyond it (at most 200 plies deep), tablebase results
// within it.
constexpr int MATE_BORDER = 9800;
constexpr int TB_WIN_VALUE = 9799;
constexpr int TB_LOSS_VALUE = -MATE_BORDER;
// Beyond this a score is proven, not judged.
constexpr int PROVEN_SCORE = 9000;
