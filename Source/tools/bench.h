// The benchmark positions and the fixed-depth search the benches run.
#pragma once

#include "position/position.h"

constexpr int BENCH_POSITION_COUNT = 20;
extern const char *const BENCH_POSITIONS[BENCH_POSITION_COUNT];

// Searches the front Worker's position with the settings as they stand,
// on the search threads, while this thread watches the clock; returns
// when the search thread has finished.  The hash is cleared first.
void search_to_end();

// The benchmark's limits: a silent search of 99 seconds a position, to
// depth 17 unless a depth up to 50 was set.
void set_bench_limits();

// -bench and -pbench: the 20 positions at a fixed depth (17 unless -d set
// one up to 50), with the time and node totals.  `inline_search`: search
// on this thread, without helpers and without polling.  `summary`: end
// with one more line, "<nodes> nodes <nps> nps", for testing frameworks.
void run_bench(bool inline_search, bool summary);
