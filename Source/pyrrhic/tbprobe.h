// Syzygy endgame tablebases as the search sees them: a win/draw/loss
// probe for tree nodes and a distance-to-zero probe for the root.
#pragma once

#include "../position/position.h"

// Men in the largest table found; 0 while no table is loaded.
extern int TB_LARGEST;

constexpr int TB_WIN_VALUE = 9799;
constexpr int TB_LOSS_VALUE = -9800;

// Result classes: 0 loss, 1 blessed loss, 2 draw, 3 cursed win, 4 win;
// -1 when the tables cannot say.
int tb_probe_search(const Position &pos, int depth);
int tb_probe_root(const Position &pos, int *wdl_out, int *dtz_out,
                  u16 *move_out);
