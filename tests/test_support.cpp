#include "test_support.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <string>

#include "search/hash.h"
#include "search/strength.h"
#include "tools/bench.h"

void init_engine_for_tests() {
    init_attack_tables();
    init_hash_keys();
    kp_table_build();
    init_eval_params();
    set_default_settings();
    take_settings_snapshot();
    set_default_status();
    if (!front_worker) set_front_worker(allocate_worker());
    front_worker->thread_id = FRONT_THREAD_ID;
    front_worker->ply = 1;
    front_worker->position.history = front_worker;
    reset_move_lists(front_worker);
    set_fen(front_worker->position, START_FEN);
}

Position &test_position(const char *fen) {
    set_fen(front_worker->position, fen);
    return front_worker->position;
}

const char *data_path(const char *relative) {
    static thread_local std::string path;
    path = std::string(QUILLON_TEST_DIR) + "/data/" + relative;
    // A clone without its data must fail saying so, not pass on nothing.
    if (!std::filesystem::exists(path))
        ADD_FAILURE() << "test data missing: " << path;
    return path.c_str();
}

std::string big_tb_dir() {
    const char *dir = std::getenv(BIG_TB_VARIABLE);
    return dir ? dir : "";
}

std::string tb_test_path() {
    std::string path = data_path("syzygy");
    std::string big = big_tb_dir();
    return big.empty() ? path : path + ";" + big;
}

bool in_big_tb_family(const std::string &fen) {
    std::string white, black;
    for (const char *kind = "KQRBNP"; *kind; kind++)
        for (char c : fen.substr(0, fen.find(' '))) {
            if (c == *kind) white += c;
            if (c == *kind - 'A' + 'a') black += *kind;
        }
    for (const char *family : {"KNNvKP", "KNNvKQ"})
        if (white + "v" + black == family || black + "v" + white == family)
            return true;
    return false;
}

Move coord_move(const char *text) {
    auto square = [](const char *name) {
        return (name[0] - 'a') + 8 * (name[1] - '1');
    };
    Move m = make_move_code(square(text), square(text + 2));
    switch (text[4]) {
        case 'q':
            return m | FLAG_QUEEN;
        case 'n':
            return m | FLAG_KNIGHT;
        case 'b':
            return m | FLAG_BISHOP;
        case 'r':
            return m | FLAG_ROOK;
        default:
            return m;
    }
}

std::vector<PerftLine> load_perft_suite(const char *file) {
    std::vector<PerftLine> lines;
    std::string path = data_path(file);
    FILE *f = std::fopen(path.c_str(), "r");
    if (!f) {
        ADD_FAILURE() << "can't read " << path;
        return lines;
    }
    char buffer[1024];
    while (std::fgets(buffer, sizeof buffer, f)) {
        char *cut = std::strchr(buffer, ';');
        if (!cut) continue;
        PerftLine line;
        line.fen.assign(buffer, cut);
        for (char *at = cut; at; at = std::strchr(at + 1, ';')) {
            int depth = 0;
            unsigned long long n = 0;
            if (std::sscanf(at, ";D%d %llu", &depth, &n) == 2)
                line.counts[depth] = n;
        }
        lines.push_back(line);
    }
    std::fclose(f);
    return lines;
}

int sq_of(const char *name) { return (name[0] - 'a') + 8 * (name[1] - '1'); }

std::string square_name(int sq) {
    return std::string{static_cast<char>('a' + sq % 8),
                       static_cast<char>('1' + sq / 8)};
}

std::string move_name(Move m, int moved) {
    std::string s = square_name(move_from(m)) + square_name(move_to(m));
    int flags = m & FLAG_MASK;
    if (flags && piece_type(moved) == KING)
        return s + (flags == FLAG_SHORT  ? " O-O"
                    : flags == FLAG_LONG ? " O-O-O"
                                         : " ?");
    if (flags)
        s += flags == FLAG_QUEEN    ? "q"
             : flags == FLAG_KNIGHT ? "n"
             : flags == FLAG_BISHOP ? "b"
             : flags == FLAG_ROOK   ? "r"
                                    : "?";
    return s;
}

SearchOutcome run_search(const char *fen, int depth, int threads, u64 nodes) {
    // No calibration runs in the tests: a fixed speed stands in for it, so
    // that no speed limit is held.
    settings.calib_nps = 1000000.0f;
    settings.calib_elo = elo_of_speed(settings.calib_nps);
    settings.limit_strength = 0;
    settings.level_moves = 1;
    settings.level_time = 99.0f;
    settings.noise = 9999.0f;
    settings.max_depth = static_cast<i8>(depth);
    settings.max_nodes = nodes;
    settings.threads = static_cast<i16>(threads);
    if (!hash_table) hash_allocate();
    test_position(fen);
    search_to_end();
    SearchOutcome out{status.pv[1], status.score, status.best_depth,
                      status.nodes, workers[0] ? workers[0]->node_count : 0};
    return out;
}

std::string embedded_net_line() {
    return std::string(QUILLON_EVALFILE).empty()
               ? ""
               : "info string loaded embedded network\n";
}
