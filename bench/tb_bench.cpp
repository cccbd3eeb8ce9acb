// tb_bench FOLDER [POSITIONS]: Syzygy probe speed over random legal
// positions of every table in FOLDER (fixed seed), one thread.  Prints the
// cost of the first probe of each table (which maps and sets up the file),
// the steady-state WDL probes per second (median of 5 rounds), and the
// mean time of a root DTZ probe.
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <vector>

#include "core/settings.h"
#include "core/status.h"
#include "position/notation.h"
#include "search/search.h"
#include "tablebase/tb_board.h"
#include "tablebase/tb_probe.h"
#include "tools/train_record.h"

namespace fs = std::filesystem;
using Clock = std::chrono::steady_clock;

static u64 next_random(u64 &state) {
    state = state * 6364136223846793005ULL + 1442695040888963407ULL;
    return state >> 33;
}

static double seconds(Clock::time_point a, Clock::time_point b) {
    return std::chrono::duration<double>(b - a).count();
}

// A piece code from a table name's letter.
static int piece_of(char letter, int colour) {
    static constexpr char TYPES[] = " PNBRQK";
    for (int t = PAWN; t <= KING; t++)
        if (TYPES[t] == letter) return make_piece(t, colour);
    return 0;
}

// The men of a table name such as "KBNvK" (White's, then Black's) on
// random squares, pawns off the back ranks, either side to move.
static bool random_board(const std::string &name, u64 &seed, char *fen) {
    size_t v = name.find('v');
    if (v == std::string::npos) return false;
    TrainRecord r{};
    r.ep = 64;
    u64 used = 0;
    for (size_t i = 0; i < name.size(); i++) {
        if (i == v) continue;
        int piece = piece_of(name[i], i < v ? WHITE : BLACK);
        for (int tries = 0;; tries++) {
            if (tries > 200 || !piece) return false;
            int sq = static_cast<int>(next_random(seed) % 64);
            bool pawn = piece_type(piece) == PAWN;
            if ((used >> sq & 1) || (pawn && (sq < 8 || sq >= 56))) continue;
            used |= u64{1} << sq;
            r.board[sq >> 1] |= static_cast<u8>(piece << ((sq & 1) * 4));
            break;
        }
    }
    r.side_rights = static_cast<u8>((next_random(seed) & 1) << 4);
    record_fen(r, fen);
    return true;
}

// A position the side to move may face: the other king not in check.
static bool legal_setup(const Position &pos) {
    int other = pos.side ^ 1;
    return pos.king_sq[other] < 64 &&
           find_attacker(pos, pos.king_sq[other], pos.side,
                         occupied_squares(pos)) == NO_SQUARE;
}

int main(int argc, char **argv) {
    if (argc < 2) {
        std::fprintf(stderr, "usage: tb_bench FOLDER [POSITIONS]\n");
        return 2;
    }
    int wanted = argc > 2 ? std::atoi(argv[2]) : 20000;
    init_attack_tables();
    init_hash_keys();
    set_default_settings();
    Worker *w = allocate_worker();
    if (!w) return 2;
    w->position.history = w;
    std::vector<std::string> tables;
    for (const auto &e : fs::directory_iterator(argv[1]))
        if (e.path().extension() == ".rtbw")
            tables.push_back(e.path().stem().string());
    std::sort(tables.begin(), tables.end());
    if (tables.empty()) return 2;
    tb_init_path(argv[1]);
    // Positions of every table in turn; the first of each is probed cold.
    std::vector<TbPosition> positions;
    std::vector<Position> roots;
    u64 seed = 0x7AB1E5ULL;
    double first_total = 0;
    int first_count = 0, success = 0;
    for (size_t i = 0; static_cast<int>(positions.size()) < wanted; i++) {
        const std::string &name = tables[i % tables.size()];
        char fen[128];
        if (!random_board(name, seed, fen)) continue;
        set_fen(w->position, fen);
        if (!legal_setup(w->position)) continue;
        TbPosition tp = tb_position_from(w->position, 0);
        if (i < tables.size()) {
            auto a = Clock::now();
            tb_probe_wdl(tp, &success);
            first_total += seconds(a, Clock::now());
            first_count++;
        }
        positions.push_back(tp);
        if (roots.size() < 2000 && !tb_in_check(tp))
            roots.push_back(w->position);
    }
    std::printf("first probe of a table: %d tables, %.1f us each on average\n",
                first_count, first_total / first_count * 1e6);
    long checksum = 0;
    std::vector<double> rates;
    for (int round = 0; round < 6; round++) {
        auto a = Clock::now();
        for (const TbPosition &tp : positions)
            checksum += tb_probe_wdl(tp, &success);
        double rate = positions.size() / seconds(a, Clock::now());
        if (round) rates.push_back(rate);  // the first round warms the caches
    }
    std::sort(rates.begin(), rates.end());
    std::printf("WDL probes: %d positions, %.0f probes/s (median of 5)\n",
                static_cast<int>(positions.size()), rates[2]);
    auto a = Clock::now();
    for (Position &p : roots) {
        w->position = p;
        w->position.history = w;
        int wdl = 0, dtz = 0;
        u16 move = 0;
        checksum += tb_probe_root(w->position, &wdl, &dtz, &move);
    }
    std::printf("root DTZ probe: %d positions, %.1f us each\n",
                static_cast<int>(roots.size()),
                seconds(a, Clock::now()) / roots.size() * 1e6);
    std::fprintf(stderr, "checksum %ld\n", checksum);
    free_worker(w);
    return 0;
}
