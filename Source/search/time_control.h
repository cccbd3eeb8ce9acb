// The clock of a search: when it began, how long it has run, and the
// check that ends it when the planned time, adjusted for how the search
// is going, has passed.
#pragma once

#include "core/settings.h"
#include "core/status.h"

// Lets other threads run for about `ms` milliseconds.
void sleep_milliseconds(int ms);
// Seconds of the monotonic clock.
double clock_now();
// Refreshes SearchStatus.elapsed; it never reads 0, for the divisions.
void read_elapsed();
// Non-zero: the search starts now.  Zero: as read_elapsed.
void reset_clock(int reset);
// Before each search: the clock, the per-search fields of the search
// status, the strength in force, and the target time.
void prepare_search();
// Refreshes elapsed and sets stop once the target has passed.
void check_time();

// What one time check knows of the main search.
struct TimeView {
    int depth;
    int score;
};
// The extra seconds a search earns by how its iterations went: a
// falling score or a changing move buys time, a stable move gives some
// back.  `remaining` is what is left on the clock, `target` the plan.
f32 time_extra(const TimeView &view, f32 remaining, f32 target, int margin);
