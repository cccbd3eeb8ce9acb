// The margins, depth limits and late-move reduction tables that steer the
// pruning of the tree.  They are rebuilt from the settings on the main
// thread when a search starts and only read while it runs.
#pragma once

#include <cstddef>

#include "position/position.h"

// Entries of each margin table, indexed by depth 0 .. 11.
constexpr int MARGIN_DEPTHS = 12;
// Rows (depth) and columns (move number) of a reduction table.
constexpr int LMR_SIZE = 32;

// Razoring up to this depth.
extern i16 FP_depth;
// Static null pruning up to this depth.
extern i16 SEP_depth;
// Null move from this depth on.
extern i16 NMP_depth;
// Late-move pruning up to this depth.
extern i16 LMP_depth;
// Reductions from this depth on.
extern i16 LMR_depth;
// How far the static value must stand above beta before static null
// pruning or the null move are tried.
extern i16 BP_margin;

extern i16 FP_margin[MARGIN_DEPTHS];
extern i16 SEP_margin[MARGIN_DEPTHS];
// Shown with the other tables; the search itself never reads it.
extern i16 LMP_count[MARGIN_DEPTHS];

// Reduction by [depth][move number], for PV nodes and for all others.
extern i8 LMR_table_pv[LMR_SIZE][LMR_SIZE];
extern i8 LMR_table_nonpv[LMR_SIZE][LMR_SIZE];

// Turns off razoring, static null pruning, the null move, late-move pruning
// and reductions by moving their depth limits out of reach.
void disable_pruning();
// Sets the speed limit's switch and rebuilds margins, depth limits and,
// when Selectivity changed since the last build, the reduction tables.
void update_margins();
// Writes the text that show_margins prints, every line with its line end,
// cut short to fit `size`; gives the length of the full text.
int margins_text(char *buffer, std::size_t size);
// Rebuilds the tables and prints them for a person to read.
void show_margins();
// Prints the tables as they stand, without building them: while a search
// runs, its threads read them.
void print_margins();
