// perft_bench FEN DEPTH: counts the move tree from a position, single
// thread, and prints "nodes N time T nps X".
#include <chrono>
#include <cstdio>
#include <cstdlib>

#include "core/settings.h"
#include "core/status.h"
#include "position/notation.h"
#include "search/search.h"
#include "tools/perft_count.h"

int main(int argc, char **argv) {
    if (argc < 3) {
        std::fprintf(stderr, "usage: perft_bench FEN DEPTH\n");
        return 2;
    }
    init_attack_tables();
    init_hash_keys();
    set_default_settings();
    set_front_worker(allocate_worker());
    if (!front_worker) return 2;
    front_worker->ply = 1;
    front_worker->position.history = front_worker;
    reset_move_lists(front_worker);
    set_fen(front_worker->position, argv[1]);
    auto start = std::chrono::steady_clock::now();
    u64 nodes = perft_count(front_worker->position, std::atoi(argv[2]));
    std::chrono::duration<double> took =
        std::chrono::steady_clock::now() - start;
    std::printf("nodes %llu time %.3f nps %.0f\n",
                static_cast<unsigned long long>(nodes), took.count(),
                nodes / took.count());
    return 0;
}
