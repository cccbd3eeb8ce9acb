// eval_bench [POSITIONS [NETFILE]]: speed of the hand-written evaluation over
// positions from random games (fixed seed), one thread.  Each evaluation
// runs at ply 1, so the pawn cache is written but never read and every
// call does the whole work.  Prints the median of 5 timed rounds as
// "hand_evaluate: N positions, X evals/s".  With a net file, also the
// network's speed on the same positions in game order, patched from the
// previous position with the same side to move, and started over each time.
#include <algorithm>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <vector>

#include "core/settings.h"
#include "core/status.h"
#include "eval/eval.h"
#include "eval/network.h"
#include "position/notation.h"
#include "search/search.h"

static u32 next_random(u64 &state) {
    state = state * 6364136223846793005ULL + 1442695040888963407ULL;
    return static_cast<u32>(state >> 33);
}

// Random games of up to 120 plies from the start, every position kept.
static std::vector<Position> sample_positions(Worker *w, int wanted) {
    std::vector<Position> out;
    u64 seed = 0x5EED1234ULL;
    while (static_cast<int>(out.size()) < wanted) {
        set_fen(w->position, START_FEN);
        for (int ply = 0; ply < 120 && static_cast<int>(out.size()) < wanted;
             ply++) {
            Move moves[256];
            int n = legal_moves(w->position, moves);
            if (n == 0) break;
            make_move(w->position, moves[next_random(seed) % n]);
            out.push_back(w->position);
        }
    }
    return out;
}

static double timed_round(Worker *w, const std::vector<Position> &positions,
                          int64_t &checksum) {
    auto start = std::chrono::steady_clock::now();
    for (const Position &pos : positions) {
        w->position = pos;
        w->eval.eval_ply = 1;
        checksum += hand_evaluate(w);
    }
    std::chrono::duration<double> took =
        std::chrono::steady_clock::now() - start;
    return positions.size() / took.count();
}

// The net on every position in game order: `ply` 3 and up lets each
// evaluation patch the accumulator of two plies before; 0 starts over.
static double network_round(Worker *w, const std::vector<Position> &positions,
                            int ply, int64_t &checksum) {
    auto start = std::chrono::steady_clock::now();
    for (const Position &pos : positions) {
        w->position = pos;
        w->position.history = w;
        w->eval.eval_ply = static_cast<u8>(ply);
        checksum += network_evaluate(w);
    }
    std::chrono::duration<double> took =
        std::chrono::steady_clock::now() - start;
    return positions.size() / took.count();
}

static void network_speed(Worker *w, const std::vector<Position> &positions,
                          const char *file, int64_t &checksum) {
    load_network(file);
    if (!network_ready()) return;
    for (int ply : {3, 0}) {
        network_round(w, positions, ply, checksum);
        std::vector<double> rates;
        for (int round = 0; round < 5; round++)
            rates.push_back(network_round(w, positions, ply, checksum));
        std::sort(rates.begin(), rates.end());
        std::printf("network_evaluate (%d nodes, %s, %s): %.0f evals/s\n",
                    network.layer1_size, NETWORK_VECTOR_PATH,
                    ply ? "patched" : "from scratch", rates[2]);
    }
}

int main(int argc, char **argv) {
    int count = argc > 1 ? std::atoi(argv[1]) : 4000;
    if (count <= 0) count = 4000;
    init_attack_tables();
    init_hash_keys();
    init_eval_params();
    set_default_settings();
    Worker *w = allocate_worker();
    if (!w) return 2;
    w->ply = 1;
    w->position.history = w;
    reset_move_lists(w);
    std::vector<Position> positions = sample_positions(w, count);
    // One untimed round warms the caches of the tables.
    int64_t checksum = 0;
    timed_round(w, positions, checksum);
    std::vector<double> rates;
    for (int round = 0; round < 5; round++)
        rates.push_back(timed_round(w, positions, checksum));
    std::sort(rates.begin(), rates.end());
    std::printf("hand_evaluate: %d positions, %.0f evals/s\n",
                static_cast<int>(positions.size()), rates[2]);
    if (argc > 2) network_speed(w, positions, argv[2], checksum);
    std::fprintf(stderr, "checksum %lld\n", static_cast<long long>(checksum));
    free_worker(w);
    return 0;
}
