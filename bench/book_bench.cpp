// book_bench BOOK PGN [COPIES]: book lookups per second on BOOK, over
// positions met along its own lines (each a hit), and -mkbook's speed in
// games per second on PGN repeated COPIES times (default 10).  Medians of
// 5 rounds.  The book build writes tmp_book.bin in a temporary folder.
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "book/book.h"
#include "core/settings.h"
#include "core/status.h"
#include "position/notation.h"
#include "search/search.h"

using Seconds = std::chrono::duration<double>;

static double median(std::vector<double> v) {
    std::sort(v.begin(), v.end());
    return v[v.size() / 2];
}

// Walks of up to 12 plies along the book's moves, every position kept.
static std::vector<Position> book_positions(const char *book, int wanted) {
    std::vector<Position> out;
    Position &pos = front_worker->position;
    while (static_cast<int>(out.size()) < wanted) {
        set_fen(pos, START_FEN);
        for (int ply = 0; ply < 12; ply++) {
            Move m = book_probe(pos, book);
            if (m == NO_MOVE) break;
            out.push_back(pos);
            make_move(pos, m);
        }
        if (out.empty()) return out;
    }
    return out;
}

static double lookups_per_second(const char *book,
                                 const std::vector<Position> &positions) {
    Position &pos = front_worker->position;
    int found = 0;
    auto start = std::chrono::steady_clock::now();
    for (const Position &p : positions) {
        pos = p;
        pos.history = front_worker;
        found += book_probe(pos, book) != NO_MOVE;
    }
    Seconds took = std::chrono::steady_clock::now() - start;
    if (found == 0) std::printf("no lookup found a move\n");
    return positions.size() / took.count();
}

static double games_per_second(const std::string &pgn_path, int games) {
    auto start = std::chrono::steady_clock::now();
    make_book(pgn_path.c_str());
    Seconds took = std::chrono::steady_clock::now() - start;
    return games / took.count();
}

int main(int argc, char **argv) {
    if (argc < 3) {
        std::printf("usage: book_bench BOOK PGN [COPIES]\n");
        return 1;
    }
    int copies = argc > 3 ? std::atoi(argv[3]) : 10;
    if (copies <= 0) copies = 10;
    init_attack_tables();
    init_hash_keys();
    set_default_settings();
    set_default_status();
    set_front_worker(allocate_worker());
    front_worker->thread_id = FRONT_THREAD_ID;
    front_worker->ply = 1;
    front_worker->position.history = front_worker;
    reset_move_lists(front_worker);
    // The console's listing, silenced: nothing is printed per lookup.
    settings.uci_mode = 0;
    settings.noise = 9999.0f;
    book_seed = 1;
    book_seed_set = 1;
    std::vector<Position> positions = book_positions(argv[1], 20000);
    if (positions.empty()) {
        std::printf("no positions from %s\n", argv[1]);
        return 1;
    }
    std::vector<double> rounds;
    for (int i = 0; i < 5; i++)
        rounds.push_back(lookups_per_second(argv[1], positions));
    std::printf("book lookups: %zu positions, %.0f lookups/s\n",
                positions.size(), median(rounds));

    // The collection repeated, in a folder of its own.
    std::ifstream in(argv[2]);
    std::stringstream text;
    text << in.rdbuf();
    char dir[] = "/tmp/quillon_book_bench_XXXXXX";
    if (!mkdtemp(dir) || chdir(dir) != 0) return 1;
    std::string pgn = std::string(dir) + "/games.pgn";
    {
        std::ofstream out(pgn);
        for (int i = 0; i < copies; i++) out << text.str();
    }
    int games = 0;
    for (size_t at = 0;
         (at = text.str().find("[Result ", at)) != std::string::npos; at++)
        games++;
    games *= copies;
    // make_book prints its report; keep it off the bench's lines.
    std::fflush(stdout);
    int saved = dup(1);
    if (!std::freopen("/dev/null", "w", stdout)) return 1;
    rounds.clear();
    for (int i = 0; i < 5; i++) rounds.push_back(games_per_second(pgn, games));
    std::fflush(stdout);
    dup2(saved, 1);
    std::remove(pgn.c_str());
    std::remove("tmp_book.bin");
    rmdir(dir);
    std::printf("mkbook: %d games, %.0f games/s\n", games, median(rounds));
    return 0;
}
