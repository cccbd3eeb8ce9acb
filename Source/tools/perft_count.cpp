#include "perft_count.h"

#include "../search/search.h"

u64 perft_count(Position &pos, int depth) {
    Worker *w = pos.worker;
    generate_all(pos);
    u64 leaves = 0;
    for (MoveEntry *e = w->plies[w->ply].list_start; e->move != END_OF_LIST;
         e++) {
        if (!legal_move(pos, pos.side, e->move)) continue;
        if (depth <= 1) {
            leaves++;
            continue;
        }
        make_move(pos, e->move);
        leaves += perft_count(pos, depth - 1);
        unmake_move(pos);
    }
    return leaves;
}
