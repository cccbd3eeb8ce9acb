// perft through the staged picker: counting the legal move paths this way
// tests every stage of generation, and that each move comes out once.
#include "move_picker.h"
#include "search.h"

// The deepest ply whose record a perft node may take: its children's list
// starts must still land inside the record array.
constexpr int DEEPEST_PERFT_PLY = PLY_RECORDS - 2;

void perft(Worker *w, int side, int ply, int depth) {
    if (ply < 0 || ply > DEEPEST_PERFT_PLY) return;
    Position &pos = w->position;
    PlyRecord &record = w->plies[ply];
    int checker =
        find_attacker(pos, pos.king_sq[side], side ^ 1, occupied_squares(pos));
    record.checker_sq = static_cast<u8>(checker);
    record.in_check = checker != NO_SQUARE;
    record.pick_state = PICK_ALL_MOVES;
    record.hash_move = NO_MOVE;
    while (MoveEntry *e = next_move(pos)) {
        if (e->move == NO_MOVE || !legal_move(pos, side, e->move)) continue;
        // The last level is counted by the legality test alone.
        if (depth <= 1) {
            w->node_count++;
            continue;
        }
        if (w->hist_index + 1 >= STATE_STACK_SIZE) continue;
        make_move(pos, e->move);
        perft(w, side ^ 1, ply + 1, depth - 1);
        unmake_move(pos);
    }
}
