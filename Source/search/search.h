// The search's records: the per-thread Worker with its per-ply records, and
// the entry points of the search that the front end calls.
#pragma once

#include <atomic>

#include "core/score.h"
#include "core/settings.h"
#include "core/spinlock.h"
#include "core/status.h"
#include "eval/eval.h"
#include "eval/network.h"
#include "position/position.h"
#include "position/see.h"

constexpr int MAX_THREADS = 160;
constexpr int PLY_RECORDS = 82;  // index 0 above the root, 81 only cleared
constexpr int PV_LENGTH = 81;

// Every list of a ply fits in 448 entries: a side has at most 16 men (the
// board reader keeps it so), and 15 queens and a king reach no further.
constexpr int MAX_LIST_LENGTH = MAX_MOVES;
constexpr int MOVE_POOL_SIZE = PLY_RECORDS * MAX_LIST_LENGTH + 4;

struct PlyRecord {
    i16 node_type;  // 0 PV, 1 expected cut, -1 expected all
    u16 in_probe;
    i16 depth;
    i16 static_eval;
    i16 alpha;
    i16 beta;
    u16 in_check;
    u8 reduction;
    u16 move_flags;
    u16 razored;
    i16 move_count;
    u16 improving;
    i32 tb_result;
    u16 hash_move;
    u16 killer[2];
    u16 evasion_killer;
    u8 checker_sq;
    u16 pick_state;
    MoveEntry *list_start;
    MoveEntry *current;
};

// All a search thread touches in the tree, in one zeroed block: its board
// and history, its evaluation's caches (the EvalWorker it is), and the
// search's own records.
struct Worker : EvalWorker {
    PlyRecord plies[PLY_RECORDS];
    MoveEntry move_pool[MOVE_POOL_SIZE];
    i16 history[16][64];
    u16 counter_move[16][64];
    u16 counter_move2[16][64];
    u16 followup_move[16][64];
    u16 pv[PV_LENGTH];
    u8 thread_id;
    i8 iter_depth;
    u8 fail_state;
    i8 best_depth;
    i8 seldepth;
    u32 rng_seed;
    i16 best_score;
    i16 root_eval;
    u64 node_limit;
    // Past this count a node-limited search stops even without a finished
    // iteration (see runaway_cap).
    u64 node_cap;
    u64 node_count;
    u64 tb_hit_count;
    u64 hash_probe_count;
    u64 hash_hit_count;
};

// The Worker whose board this is; every board the search works on is a
// Worker's.
inline Worker *worker_of(const Position &pos) {
    return static_cast<Worker *>(pos.history);
}

extern Worker *workers[MAX_THREADS];
// The slots are read by other threads while a helper fills its own: a
// Worker is published whole (release) and read with acquire order.
inline Worker *worker_at(int slot) {
    return std::atomic_ref<Worker *>(workers[slot])
        .load(std::memory_order_acquire);
}
inline void publish_worker(int slot, Worker *w) {
    std::atomic_ref<Worker *>(workers[slot])
        .store(w, std::memory_order_release);
}
// The game's board for the whole run (game_board is the same record);
// set_front_worker sets both.
extern Worker *front_worker;
void set_front_worker(Worker *worker);
// Taken to free helper slots, and by the time check to walk them.
extern SpinLock worker_slots_lock;
constexpr int FRONT_THREAD_ID = 160;

// Allocates a zeroed Worker, or null when memory is short.
Worker *allocate_worker();
void free_worker(Worker *worker);
// Points plies 0 and 1 at the start of the pool, each list terminated.
void reset_move_lists(Worker *worker);
// All moves of the side to move, pseudo-legal, as the list of the board's
// Worker at its current ply.
void generate_all(Position &pos);
int init_worker(int slot);
// The node limit waits for a second finished iteration, and in a few
// positions the first iterations never end: quiet checks in the capture
// search can keep the depth from falling, on to ply 80, and two queens
// make that tree astronomical.  A search with a node limit therefore
// stops anyway at 400 times its budget, at least 100,000 nodes.
u64 runaway_cap(u64 nodes);

// 1 if the move checks with the moved (or promoted) piece, discovered
// checks included; the position is left as it was.
int gives_check(Position &pos, int side, const MoveEntry &entry);
// Flag byte: 1 capture, 2 check, plus 48 / 40 / 32 for pawns reaching the
// eighth, seventh or (safely) sixth rank.
int classify_move(Position &pos, int side, const MoveEntry &entry);

// Counts the legal move paths of `depth` plies from the Worker's position
// into node_count, through the move picker at `ply` and below; the last
// ply is counted by the legality test without making the moves.  `side`
// is the side to move and `ply` the Worker's current ply.
void perft(Worker *worker, int side, int ply, int depth);

// Node types: a principal-variation node, an expected cut, an expected
// all-node.
constexpr int NODE_PV = 0;
constexpr int NODE_CUT = 1;
constexpr int NODE_ALL = -1;
// A line of moves indexed by ply, 0 ending it.  One word more than the
// deepest ply, since a node at the last ply still clears its child's slot.
constexpr int LINE_LENGTH = PV_LENGTH + 1;
// The deepest ply a line reaches; a node beyond it is only evaluated.
constexpr int MAX_SEARCH_PLY = 80;

// Copies a child's line from `from` on, its 0 word included, at most
// through the deepest ply.
inline void copy_line(u16 *line, const u16 *child, int from) {
    for (int i = from; i <= MAX_SEARCH_PLY; i++) {
        line[i] = child[i];
        if (child[i] == 0) break;
    }
}

// The recursive search.  Each returns the score for `side` (0 after a
// stop) and leaves its best line in `line` from `ply` on.
int search_node(Position &pos, int side, int ply, int depth, int alpha,
                int beta, int node_type, u16 *line);
int search_moves(Position &pos, int side, int ply, int depth, int alpha,
                 int beta, int node_type, u16 *line);
int search_quiesce(Position &pos, int side, int ply, int depth, int alpha,
                   int beta, int node_type, u16 *line);

// The window of a line's first pass at depth `d`, around the last score.
struct AspirationWindow {
    int alpha, beta, delta;
};
AspirationWindow first_window(int last_score, int d);

// Iterative deepening on the thread's Worker; results stand in the
// search status.  Slot 0 is the main search, the others its helpers.
void search_root(int thread_id);

// Publishes the main Worker's best line and prints it.
void report_best(Worker *worker);
// One info line (or the console's line) for `line`, moves from index 1.
void print_search_line(int thread, int multipv_number, int depth, int score,
                       const u16 *line);
// The "info depth ... currmove" lines a long search prints before each
// root move; `first` marks the first move of a pass.
void print_progress(Move move, int move_count, int first);
// Sums the Workers' counters into the search status.
void aggregate_counters();
// Guards aggregate_counters with the printing of a line; taken before
// output_lock.
extern SpinLock info_lock;

// Thread functions: the main search (it prepares Worker 0, runs the
// helpers and the main search, and ends its own thread) and a helper.
void *start_search(void *arg);
// Starts the main search thread, detached; it sets STATE_FINISHED when
// the search is over and its helpers are gone.
void launch_search();
void run_helpers();
void *helper_main(void *arg);
