// The command line: switches that fill the settings and choose the run
// mode, and the hash size a small command-line search gets.
#pragma once

#include "core/settings.h"
#include "core/status.h"

// Run modes; the last switch on the line that sets one wins.
constexpr i32 MODE_THINK = 1;  // calibration, then the think cycle
constexpr i32 MODE_ANALYSE_EPD = 2;
constexpr i32 MODE_SCAN_PGN1 = 3;  // .. 6 for the selectors 1 .. 4
constexpr i32 MODE_BENCH = 8;
constexpr i32 MODE_MAKE_BOOK = 9;
constexpr i32 MODE_CONFIG_ONLY = 10;  // start-up and shutdown only
constexpr i32 MODE_TRAIN_POSITIONS1 = 11;
constexpr i32 MODE_TRAIN_POSITIONS2 = 12;
constexpr i32 MODE_TUNE = 13;  // 13 .. 15 are reserved for a tuner build
constexpr i32 MODE_TUNE2 = 14;
constexpr i32 MODE_MAKE_TRAIN_DATA = 15;
constexpr i32 MODE_EPD_TO_BIN = 16;
constexpr i32 MODE_PRUNE_NN = 17;
constexpr i32 MODE_MULTI_PASS_EPD = 18;

// What the command line asked for.
struct SwitchOutcome {
    i32 mode;
    u8 bench_inline;   // -pbench: the benchmark searches on the calling thread
    i32 exit_code;     // -1: go on; else end the process at once with it
    u8 bench_summary;  // the word "bench" first: end with "N nodes M nps"
};

// The depth of "quillon bench" when no -d sets one: the full benchmark's
// depth takes minutes on a slow core, more than a testing framework waits.
constexpr i8 BENCH_WORD_DEPTH = 13;

// Reads argv[1 .. argc-1] into settings (and status.target_nps for -nps).
// Each round tries every switch in a fixed order on one string; a switch
// that takes a value steps on, and the value then stands in for the string
// in the tests left in that round, so a value that spells a switch tested
// later in the round acts as that switch too.  A value missing at the end
// of the line reads as "".  The bare word "bench" as the first argument
// asks for the benchmark at BENCH_WORD_DEPTH (unless -d names one up to 50),
// the form that engine-testing frameworks run.
SwitchOutcome read_switches(int argc, const char *const *argv);

// The hash size in megabytes that a depth or node limit calls for, or 0
// when the limits ask for no particular size.
i32 hash_shrink_candidate(i32 max_depth, u64 max_nodes);
// Applies the candidate to settings.hash_mb, or turns the hash off when
// there is none and the size is 0.
void shrink_hash_for_small_search();
