// The search's two tablebase probes.  The table reader is not part of the
// program yet: no table is ever found, TB_LARGEST stays 0, and both probes
// answer -1, exactly as the engine does when SyzygyPath names no tables.
#include "tbprobe.h"

#include "../frontend/frontend.h"
#include "../frontend/relaxed.h"

int TB_LARGEST = 0;

static int men_on_board(const Position &pos) {
    return count_bits(occupied_squares(pos));
}

// The depth a node needs before a table of `men` men is asked.
static int probe_threshold(int men) {
    if (men < 6) return settings.tb_probe_depth_low;
    if (men == 6) return relaxed_load(settings.tb_probe_depth6);
    if (men == 7) return relaxed_load(settings.tb_probe_depth7);
    return 80;
}

int tb_probe_search(const Position &pos, int depth) {
    // Cheapest tests first: castling rights, the count of men, the depth.
    if (pos.castle_rights != 0) return -1;
    int men = men_on_board(pos);
    if (men > TB_LARGEST) return -1;
    if (probe_threshold(men) > depth) return -1;
    return -1;  // no table reader yet
}

int tb_probe_root(const Position &pos, int *wdl_out, int *dtz_out,
                  u16 *move_out) {
    (void)wdl_out;
    (void)dtz_out;
    (void)move_out;
    if (pos.castle_rights != 0 || men_on_board(pos) > TB_LARGEST) return -1;
    return -1;  // no table reader yet
}
