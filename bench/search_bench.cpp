// search_bench [DEPTH [THREADS [ROUNDS [NETFILE]]]]: fixed-depth search of
// the 20 benchmark positions with the hand-written evaluation (or with the
// net of NETFILE), a cleared 64 MB
// hash before each position.  Prints per round the total nodes and
// seconds, and at the end the median round: "search: depth D, threads T,
// nodes N, time S s, nps X".  With one thread the node total is the
// build's signature and must not change from run to run.
#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <vector>

#include "core/settings.h"
#include "core/status.h"
#include "eval/eval.h"
#include "eval/network.h"
#include "position/notation.h"
#include "search/hash.h"
#include "search/search.h"
#include "search/time_control.h"
#include "tools/bench.h"

static void init_engine() {
    init_attack_tables();
    init_hash_keys();
    kp_table_build();
    set_default_settings();
    set_default_status();
    init_eval_params();
    settings.use_nn = 0;
    set_front_worker(allocate_worker());
    front_worker->thread_id = FRONT_THREAD_ID;
    front_worker->position.history = front_worker;
    reset_move_lists(front_worker);
    // As in the engine's -bench, no calibration runs first, so the node
    // totals equal those of "quillon -bench -d DEPTH".
    settings.level_moves = 1;
    settings.level_time = 99.0f;
    settings.noise = 9999.0f;
}

int main(int argc, char **argv) {
    int depth = argc > 1 ? std::atoi(argv[1]) : 11;
    int threads = argc > 2 ? std::atoi(argv[2]) : 1;
    int rounds = argc > 3 ? std::atoi(argv[3]) : 3;
    init_engine();
    if (argc > 4) {
        load_network(argv[4]);
        if (!network_ready()) return 1;
        settings.use_nn = 1;
    }
    if (!hash_allocate()) return 1;
    settings.max_depth = static_cast<i8>(depth);
    settings.threads = static_cast<i16>(threads);
    std::vector<double> times;
    double nodes = 0;
    for (int round = 0; round < rounds; round++) {
        double round_time = 0, round_nodes = 0;
        for (const char *fen : BENCH_POSITIONS) {
            set_fen(front_worker->position, fen);
            search_to_end();
            round_time += status.elapsed;
            round_nodes += static_cast<double>(status.nodes);
        }
        std::printf("round %d: nodes %.0f, time %.3f s\n", round + 1,
                    round_nodes, round_time);
        times.push_back(round_time);
        nodes = round_nodes;
    }
    std::sort(times.begin(), times.end());
    double t = times[times.size() / 2];
    std::printf(
        "search: depth %d, threads %d, %s, nodes %.0f, time %.3f s, "
        "nps %.0f\n",
        depth, threads, settings.use_nn ? "network" : "hand-written", nodes, t,
        nodes / t);
    return 0;
}
