#include "perft_count.h"

#include "search/search.h"

u64 perft_count(Position &pos, int depth) {
    Worker *w = worker_of(pos);
    u64 before = w->node_count;
    perft(w, pos.side, w->ply, depth);
    return w->node_count - before;
}
