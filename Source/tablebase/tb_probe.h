// Syzygy endgame tablebases as the rest of the engine sees them: the
// registry built from SyzygyPath, a win/draw/loss probe for tree nodes and
// a distance-to-zero probe for the root.
#pragma once

#include <atomic>

#include "core/score.h"
#include "position/position.h"
#include "tb_board.h"

// Men in the largest table found; 0 while no table is loaded.
extern int TB_LARGEST;

// Rebuilds the registry from settings.syzygy_path (or from `path`),
// printing what was found.  Never while a search runs.
void tb_init();
void tb_init_path(const char *path);
// Set when SyzygyPath changed during a search; the next search's root
// scans the folders before it probes.
extern std::atomic<bool> tb_init_pending;
int tb_entry_count();
int tb_dtz_count();
int tb_dtm_count();

// Result classes: 0 loss, 1 blessed loss, 2 draw, 3 cursed win, 4 win;
// -1 when the tables cannot say.  Any thread may call this.
int tb_probe_search(const Position &pos, int depth);
int tb_probe_root(const Position &pos, int *wdl_out, int *dtz_out,
                  u16 *move_out);
// The moves of the last root probe that keep its result class, ended by 0.
extern Move tb_root_moves[MAX_MOVES + 1];

// Probes of the tables' own board.  `success`: 0 failed, 1 from a table,
// 2 proven by a capture.  WDL -2 loss .. 2 win for the side to move; DTZ
// in plies to the next capture or pawn move, signed like WDL.
int tb_probe_wdl(const TbPosition &pos, int *success);
int tb_probe_dtz(const TbPosition &pos, int *success);
int tb_probe_ab(const TbPosition &pos, int alpha, int beta, int *success);
