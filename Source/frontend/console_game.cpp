// The console's game: the front Worker's position with its undo records.
// A record keeps the move made from it, so the moves above the current ply
// stay there after an undo and serve as the redo chain.
#include "console.h"
#include "search/search.h"

// The game's moves are made at search ply 1, where the move lists start.
static void keep_root_ply() { front_worker->ply = 1; }

bool play_game_move(Move move) {
    Worker *w = front_worker;
    if (w->hist_index >= CONSOLE_GAME_LIMIT) return false;
    // make_move stores castling with the king's real destination: compare
    // the record after the move, not the text typed.
    Move chained = w->states[w->hist_index].move;
    make_move(w->position, move);
    keep_root_ply();
    // A new move makes the old continuation meaningless; following the
    // chain keeps it.
    if (w->states[w->hist_index - 1].move != chained)
        w->states[w->hist_index].move = NO_MOVE;
    return true;
}

bool undo_game_move() {
    Worker *w = front_worker;
    if (w->hist_index <= 0) return false;
    unmake_move(w->position);
    keep_root_ply();
    return true;
}

// The chain is trusted only as far as its moves are legal here: a record
// left from an older game must never be made.
Move redo_move() {
    Worker *w = front_worker;
    if (w->hist_index >= CONSOLE_GAME_LIMIT) return NO_MOVE;
    Move move = w->states[w->hist_index].move;
    if (move == NO_MOVE) return NO_MOVE;
    Move legal[MAX_MOVES];
    int count = legal_moves(w->position, legal);
    for (int i = 0; i < count; i++)
        if (legal[i] == move) return move;
    return NO_MOVE;
}

void jump_to_ply(int ply) {
    while (undo_game_move()) {
    }
    while (front_worker->hist_index < ply) {
        Move move = redo_move();
        if (!move) break;
        play_game_move(move);
    }
}
