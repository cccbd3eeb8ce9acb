// The per-thread Worker: allocation and preparation for a search.
#include <cstdint>
#include <cstdlib>
#include <cstring>

#include "core/relaxed.h"
#include "core/settings.h"
#include "core/spinlock.h"
#include "core/status.h"
#include "search.h"

Worker *workers[MAX_THREADS];
Worker *front_worker;

void set_front_worker(Worker *worker) {
    front_worker = worker;
    game_board = worker;
}
SpinLock worker_slots_lock;

Worker *allocate_worker() {
    return static_cast<Worker *>(std::calloc(1, sizeof(Worker)));
}

void free_worker(Worker *worker) {
    if (!worker) return;
    release_network_state(worker);
    std::free(worker);
}

void reset_move_lists(Worker *w) {
    // Plies 0 and 1 start one entry apart at the bottom of the pool.  The
    // others get a room of their own until a parent's list places them, so
    // that a move made without a list before it still finds a valid start.
    for (int ply = 0; ply < PLY_RECORDS; ply++) {
        MoveEntry *start =
            w->move_pool + (ply <= 1 ? ply : ply * MAX_LIST_LENGTH);
        w->plies[ply].list_start = start;
        w->plies[ply].current = start;
        start->move = END_OF_LIST;
    }
}

// Every pseudo-legal move of the side to move into the list of the Worker's
// current ply, which also places the lists of the two plies after it.
void generate_all(Position &pos) {
    Worker *w = worker_of(pos);
    PlyRecord &record = w->plies[w->ply];
    MoveEntry *end = generate_full_list(pos, record.list_start);
    end->move = END_OF_LIST;
    record.current = record.list_start;
    // The lists of the next two plies start behind this one.
    if (w->ply + 1 < PLY_RECORDS) w->plies[w->ply + 1].list_start = end + 1;
    if (w->ply + 2 < PLY_RECORDS) w->plies[w->ply + 2].list_start = end + 2;
}

u64 runaway_cap(u64 nodes) {
    constexpr u64 FACTOR = 400, FLOOR = 100000;
    if (nodes > UINT64_MAX / FACTOR) return UINT64_MAX;
    return nodes * FACTOR < FLOOR ? FLOOR : nodes * FACTOR;
}

int init_worker(int slot) {
    // 1. The slot's block, reused or new
    // Other threads read the slots while this one fills its own, so a new
    // block is published only when it is ready.
    Worker *w = worker_at(slot);
    bool fresh = !w;
    if (fresh) w = allocate_worker();
    if (!w) return -1;

    // 2. A random seed of its own
    spin_take(random_lock);
    w->rng_seed = static_cast<u32>(std::rand());
    spin_release(random_lock);

    // 3. The thread's own copy of the game position.
    w->thread_id = static_cast<u8>(slot);
    w->position = front_worker->position;
    w->position.history = w;

    // 4. The game's undo records, so repetitions reach back into the game.
    int used = front_worker->hist_index;
    if (used < 0 || used >= STATE_STACK_SIZE) used = 0;
    std::memcpy(w->states, front_worker->states, used * sizeof(StateRecord));
    w->states[used].move = 0;
    w->states[0].move = 0;
    w->hist_index = front_worker->hist_index;
    w->last_move = front_worker->last_move;
    w->ply = 1;

    // 5. The node limit and the runaway cap
    w->node_limit =
        settings.max_nodes ? settings.max_nodes : 1000000000000000ULL;
    w->node_cap =
        settings.max_nodes ? runaway_cap(settings.max_nodes) : UINT64_MAX;

    // 6. Root node types and fresh move lists
    w->plies[0].node_type = 0;
    w->plies[1].node_type = 0;
    reset_move_lists(w);

    // 7. Clear the line, the counters and the caches
    std::memset(w->pv, 0, sizeof w->pv);
    // The counters and the progress fields are read by other threads.
    for (u64 *count :
         {&w->node_count, &w->tb_hit_count, &w->eval_count, &w->eval_hit_count,
          &w->hash_probe_count, &w->hash_hit_count, &w->pawn_probe_count,
          &w->pawn_hit_count})
        relaxed_store(*count, 0);
    relaxed_store(w->best_score, 0);
    relaxed_store(w->iter_depth, 0);
    relaxed_store(w->fail_state, 0);
    relaxed_store(w->best_depth, 0);
    relaxed_store(w->seldepth, 0);
    std::memset(&w->eval, 0, sizeof w->eval);
    if (fresh) publish_worker(slot, w);
    return 0;
}
