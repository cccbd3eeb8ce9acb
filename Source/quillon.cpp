// The life of the process: the global tables, the defaults, the command
// line, the locks, the log, then exactly one run mode, then shutdown.
#include "quillon.h"

#include <pthread.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>

#include "book/book.h"
#include "core/output.h"
#include "core/settings.h"
#include "core/status.h"
#include "eval/eval.h"
#include "eval/network.h"
#include "frontend/options.h"
#include "frontend/protocol.h"
#include "frontend/switches.h"
#include "position/position.h"
#include "search/hash.h"
#include "search/search.h"
#include "search/strength.h"
#include "tablebase/tb_probe.h"
#include "tools/bench.h"
#include "tools/epd.h"
#include "tools/pgn.h"
#include "tools/train_epd.h"
#include "tools/tuner_modes.h"

// The folder the executable was started from, as an absolute path with
// forward slashes.  Kept for the user's inspection; nothing reads it.
static char engine_dir[600];
// Created with the locks and never used afterwards.
static pthread_mutex_t engine_mutex;

static void find_engine_dir(const char *argv0) {
    char cwd[200];
    if (!getcwd(cwd, sizeof cwd)) cwd[0] = 0;
    char path[400];
    std::snprintf(path, sizeof path, "%s", argv0 ? argv0 : "");
    // Cut the file name off, with the slash before it.
    for (size_t n = std::strlen(path); n > 0;) {
        char c = path[--n];
        path[n] = 0;
        if (c == '/' || c == '\\') break;
    }
    bool absolute = path[0] == '/' || path[0] == '\\' || path[1] == ':';
    if (!path[0])
        std::snprintf(engine_dir, sizeof engine_dir, "%s", cwd);
    else if (!absolute)
        std::snprintf(engine_dir, sizeof engine_dir, "%s/%s", cwd, path);
    else
        std::snprintf(engine_dir, sizeof engine_dir, "%s", path);
    for (char *p = engine_dir; *p; p++)
        if (*p == '\\') *p = '/';
}

static void seed_random() {
    timespec now;
    clock_gettime(CLOCK_MONOTONIC, &now);
    std::srand(static_cast<unsigned>(now.tv_nsec));
}

// The front end's Worker holds the game position for the whole run.
static bool create_front_worker() {
    set_front_worker(allocate_worker());
    if (!front_worker) return false;
    front_worker->thread_id = FRONT_THREAD_ID;
    front_worker->ply = 1;
    front_worker->position.history = front_worker;
    front_worker->rng_seed = static_cast<u32>(std::rand());
    reset_move_lists(front_worker);
    return true;
}

static void free_workers() {
    free_worker(front_worker);
    set_front_worker(nullptr);
    // Every slot, not only the first `threads`: Threads may have shrunk
    // since a helper's Worker was made.
    for (Worker *&w : workers) {
        if (w) free_worker(w);
        w = nullptr;
    }
}

static int end_before_locks(int result) {
    free_workers();
    return result;
}

static bool tuner_requested(i32 mode) {
    return mode == MODE_TUNE || mode == MODE_TUNE2 ||
           mode == MODE_MAKE_TRAIN_DATA || settings.use_nn == 2;
}

// The result of a tool that failed: silent as every file error, but a
// script that runs the tool sees it.
constexpr int TOOL_FAILED = 1;

// Runs the mode; false when it was a tool and it failed.
static bool dispatch(i32 mode, const SwitchOutcome &line, int argc,
                     char **argv) {
    switch (mode) {
        case MODE_THINK:
            calibrate();
            think_cycle();
            return true;
        case MODE_ANALYSE_EPD:
            end_of_input_quits = false;
            return epd_analyze(settings.input_file, 0);
        case MODE_MULTI_PASS_EPD:
            end_of_input_quits = false;
            return epd_multi_pass(settings.input_file);
        case MODE_BENCH:
            run_bench(line.bench_inline != 0, line.bench_summary != 0);
            return true;
        case MODE_CONFIG_ONLY:
            return true;
        case MODE_MAKE_BOOK:
            return make_book(settings.input_file2);
        case MODE_SCAN_PGN1:
        case MODE_SCAN_PGN1 + 1:
        case MODE_SCAN_PGN1 + 2:
        case MODE_SCAN_PGN1 + 3:
            return pgn_scan(mode - MODE_SCAN_PGN1 + 1);
        case MODE_TRAIN_POSITIONS1:
        case MODE_TRAIN_POSITIONS2:
            return tune_make(mode == MODE_TRAIN_POSITIONS1 ? 1 : 2);
        case MODE_EPD_TO_BIN:
            return epd_to_bin();
        case MODE_TUNE:
        case MODE_TUNE2:
        case MODE_MAKE_TRAIN_DATA:
            return run_tuner_mode(mode, argc, argv);
        case MODE_PRUNE_NN:
            return prune_network();
        default:
            return true;
    }
}

// Every mode ends here.
static int shut_down(int result) {
    hash_free();
    free_network();
    pthread_mutex_destroy(&engine_mutex);
    // Spin locks hold no resources: nothing to destroy.
    close_log();
    free_workers();
    // No timer period was set (start-up step 18), so none is restored.
    return result;
}

int engine_main(int argc, char **argv) {
    // 1. Processor capabilities, for show only.
    probe_processor();
    // 2. Unbuffered standard output.
    std::setvbuf(stdout, nullptr, _IONBF, 0);
    // 3. The executable's folder.
    find_engine_dir(argc > 0 ? argv[0] : "");
    // 4. Seed the standard random numbers from the clock.
    seed_random();
    // 5. No search Workers yet.
    for (Worker *&w : workers) w = nullptr;
    // 6. The front end's Worker.
    if (!create_front_worker()) return 1;
    // 7. Attack tables.
    init_attack_tables();
    // 8. The solved king-and-pawn ending.
    kp_table_build();
    // 9. Search status.
    set_default_status();
    // 10. Settings defaults and their snapshot.
    set_default_settings();
    take_settings_snapshot();
    // 11. UCI unless a switch says otherwise.
    settings.uci_mode = 1;
    SwitchOutcome line{MODE_THINK, 0, -1, 0};
    // 12. The switches.
    if (argc > 1) {
        line = read_switches(argc, argv);
        if (line.exit_code >= 0) return end_before_locks(line.exit_code);
    }
    i32 mode = line.mode;
    // 13. The tuner's modes, unless this is the tuner build.
    if (tuner_requested(mode) && !tuner_mode_built(mode)) {
        std::puts("Need to compile with 'make ttune'\n");
        return end_before_locks(1);
    }
    // 14. Locks.
    if (int err = pthread_mutex_init(&engine_mutex, nullptr))
        return end_before_locks(err);
    spin_init(output_lock);
    spin_init(random_lock);
    spin_init(info_lock);
    // 15. Greeting, in both dialects.
    char greeting[128];
    std::snprintf(greeting, sizeof greeting, "info string Hello from %s",
                  ENGINE_VERSION);
    print_line(greeting);
    // 16. A small table for a small search; the keys come with the table.
    shrink_hash_for_small_search();
    if (!hash_allocate()) return shut_down(1);
    // 17. Log.
    if (settings.log && !log_file) open_log();
    // 18. Timer resolution: Linux sleeps and clocks already have a fine
    // grain, and there is no system-wide timer period to set.
    // 19. The configuration file.
    load_config();
    // 20. The evaluation parameters: names, tables, spare slots, values.
    init_eval_params();
    // 21. The network.
    load_network(settings.nn_file);
    // 22. The tablebases, for play and EPD analysis.
    if (mode == MODE_THINK || mode == MODE_ANALYSE_EPD) tb_init();
    // 23. The run mode.
    bool done = dispatch(mode, line, argc, argv);
    // 24. Shutdown.
    return shut_down(done ? 0 : TOOL_FAILED);
}
