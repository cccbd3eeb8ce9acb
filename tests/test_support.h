// Shared set-up for the unit tests.
#pragma once

#include <map>
#include <string>
#include <vector>

#include "core/settings.h"
#include "core/status.h"
#include "position/notation.h"
#include "position/position.h"
#include "search/search.h"

// Fills the global tables and the front Worker as the engine's start does.
void init_engine_for_tests();
// Sets the front Worker's position from a FEN text and returns it.
Position &test_position(const char *fen);
// The line start-up prints after the hash table when the build carries a
// net ("info string loaded embedded network\n"), or "" when it carries none.
std::string embedded_net_line();
// Path of a file or folder under tests/data; the test fails, naming the
// path, when it is not there.
const char *data_path(const char *relative);
// The environment variable naming the folder of the two large table
// families, KNNvKP and KNNvKQ, which the repository leaves out for size.
inline constexpr const char *BIG_TB_VARIABLE = "QUILLON_BIG_TB_DIR";
// Why a test that needs them is skipped without them.
inline constexpr const char *BIG_TB_SKIP =
    "needs the KNNvKP and KNNvKQ tables: set QUILLON_BIG_TB_DIR to their "
    "folder";
// That folder, or "" when the variable is not set.
std::string big_tb_dir();
// The tables for probing: tests/data/syzygy, then the large families'
// folder when there is one.
std::string tb_test_path();
// Whether a position's men are those of KNNvKP or KNNvKQ, either colour.
bool in_big_tb_family(const std::string &fen);
// A move from its coordinates ("e2e4", "e7e8q"), flags from the suffix;
// castling is given as the king's g- or c-file move with its own flag.
Move coord_move(const char *text);

// One line of a perft suite: the position and its counts by depth.
struct PerftLine {
    std::string fen;
    std::map<int, u64> counts;
};
// Reads a "FEN ;D1 n ;D2 n ..." file under tests/data.
std::vector<PerftLine> load_perft_suite(const char *file);

// Square number of a name such as "e4".
int sq_of(const char *name);
std::string square_name(int sq);
// "e2e4", promotions with a piece letter ("b7b8q"), castling marked with
// its kind ("e1g1 O-O", "e1c1 O-O-O").
std::string move_name(Move m, int moved);

// What a finished search left in the search status.
struct SearchOutcome {
    Move best_move;
    int score;
    int best_depth;
    u64 nodes;       // all threads
    u64 main_nodes;  // the main search thread's own count
};
// Searches `fen` to `depth` (and at most `nodes` per thread when not 0) on
// `threads` threads, silently, with a cleared hash, and waits for the end.
SearchOutcome run_search(const char *fen, int depth, int threads = 1,
                         u64 nodes = 0);
