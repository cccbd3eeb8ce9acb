// perft_suite FILE MAXDEPTH: checks every "FEN ;D1 n ;D2 n ..." line of an
// EPD file up to MAXDEPTH and ends with "N passed, N failed".  The counts
// go through the staged move picker, so a pass also says that the picker
// hands out every legal move exactly once.
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "core/settings.h"
#include "core/status.h"
#include "position/notation.h"
#include "search/search.h"
#include "tools/perft_count.h"

static void init_engine() {
    init_attack_tables();
    init_hash_keys();
    set_default_settings();
    set_default_status();
    set_front_worker(allocate_worker());
    if (!front_worker) std::exit(2);
    front_worker->thread_id = FRONT_THREAD_ID;
    front_worker->ply = 1;
    front_worker->position.history = front_worker;
    reset_move_lists(front_worker);
}

// Checks one line; returns 1 when every depth up to max_depth matches.
static int check_line(const std::string &line, int max_depth, int number) {
    size_t cut = line.find(';');
    std::string fen = line.substr(0, cut);
    Position &pos = front_worker->position;
    int ok = 1;
    for (size_t at = cut; at != std::string::npos;
         at = line.find(';', at + 1)) {
        int depth = 0;
        unsigned long long expected = 0;
        if (std::sscanf(line.c_str() + at, ";D%d %llu", &depth, &expected) != 2)
            continue;
        if (depth > max_depth) break;
        set_fen(pos, fen.c_str());
        u64 got = perft_count(pos, depth);
        if (got != expected) {
            std::printf("line %d depth %d: expected %llu, got %llu: %s\n",
                        number, depth, expected,
                        static_cast<unsigned long long>(got), fen.c_str());
            ok = 0;
        }
    }
    return ok;
}

int main(int argc, char **argv) {
    if (argc < 3) {
        std::fprintf(stderr, "usage: perft_suite FILE MAXDEPTH\n");
        return 2;
    }
    FILE *f = std::fopen(argv[1], "r");
    if (!f) {
        std::fprintf(stderr, "cannot open %s\n", argv[1]);
        return 2;
    }
    init_engine();
    int max_depth = std::atoi(argv[2]);
    int passed = 0, failed = 0, number = 0;
    char buffer[1024];
    while (std::fgets(buffer, sizeof buffer, f)) {
        number++;
        std::string line(buffer);
        if (line.find(';') == std::string::npos) continue;
        if (check_line(line, max_depth, number))
            passed++;
        else
            failed++;
    }
    std::fclose(f);
    std::printf("%d passed, %d failed\n", passed, failed);
    return failed ? 1 : 0;
}
