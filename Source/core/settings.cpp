// The global settings, their snapshot and the search status, with the values
// they take before the command line is read.
#include "settings.h"

#include <cstdio>

#include "status.h"

EngineSettings settings;
EngineSettings settings_snapshot;
SearchStatus status;

// Nothing in the engine uses these instructions; the flags only tell the
// user what the processor could do.
void probe_processor() {
    __builtin_cpu_init();
    settings.has_popcnt = __builtin_cpu_supports("popcnt") ? 1 : 0;
    settings.has_bmi = __builtin_cpu_supports("bmi") ? 1 : 0;
}

static void set_default_texts() {
    // Every text starts empty but these two: the parameter file that is
    // read if present, and the network compiled into the program.
    std::snprintf(settings.param_file, sizeof settings.param_file, "%s",
                  "params.txt");
    std::snprintf(settings.nn_file, sizeof settings.nn_file, "%s", "embedded");
}

static void set_default_search_limits() {
    settings.max_nodes = 0;
    settings.max_depth = 80;
    settings.level_moves = 1;
    settings.level_time = 5.0f;
    settings.level_inc = 0.0f;
    settings.hash_mb = 64;
    settings.threads = 1;
    settings.move_overhead = 50;
    settings.ponder = 1;
    settings.multi_pv = 1;
}

static void set_default_tuning() {
    settings.learn_rate = 0.002f;
    settings.tune_positions = 500000000;
    settings.mini_batch = 40000;
}

static void set_default_book_and_tablebases() {
    settings.book_variety = 25;
    settings.book_depth = 24;
    settings.book2_depth = 0;
    settings.tb_probe_depth_low = 0;
    settings.tb_probe_depth6 = 1;
    settings.tb_probe_depth7 = 4;  // always tb_probe_depth6 + 3
}

static void set_default_pruning() {
    settings.selectivity = 100;
    settings.sep_depth = 3;
    settings.nmp_depth = 3;
    settings.fp_depth = 3;
    settings.lmp_depth = 6;
    settings.lmr_depth = 3;
}

void set_default_settings() {
    // Every field not named below defaults to zero or the empty text.
    settings = EngineSettings{};
    probe_processor();
    settings.uci_mode = 1;
    settings.use_nn = 1;
    set_default_texts();
    set_default_search_limits();
    set_default_tuning();
    set_default_book_and_tablebases();
    set_default_pruning();
}

void take_settings_snapshot() { settings_snapshot = settings; }

void set_default_status() {
    status.use_hash = 1;
    store_state(0);
    status.age = 0;
    status.clock[0] = 5.0f;
    status.clock[1] = 5.0f;
    store_stop(0);
    status.target_nps = 0.0f;
    status.throttle = 0;
    status.target_time = 1.0f;
}
