// The benchmark positions and the fixed-depth search the benches run.
#pragma once

#include "../position/position.h"

constexpr int BENCH_POSITION_COUNT = 20;
extern const char *const BENCH_POSITIONS[BENCH_POSITION_COUNT];

// Searches the front Worker's position with the settings as they stand,
// on the search threads, while this thread watches the clock; returns
// when the search thread has finished.  The hash is cleared first.
void search_to_end();
