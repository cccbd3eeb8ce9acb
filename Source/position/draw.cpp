// The draw test of the search and the front end: the fifty-move rule and
// repetition, read from the undo stack.
#include "position.h"

// Positions with the same side to move lie two records apart.  One match
// inside the search is enough; the game before the root must show two.
static int repeats(const Position &pos, int ply) {
    const BoardHistory *w = pos.history;
    if (!w) return 0;
    int n = w->hist_index;
    if (n < 0 || n > STATE_STACK_SIZE) return 0;
    bool seen = false;
    for (int i = n - 2; i >= 0; i -= 2) {
        // A null move, or the bottom of the game, ends the walk.
        if (w->states[i].move == 0) return 0;
        if (w->states[i].key != pos.key) continue;
        if (i > n - ply || seen) return 1;
        seen = true;
    }
    return 0;
}

int is_draw(Position &pos, int ply) {
    // 1. Too few moves since a capture or pawn move to repeat
    if (pos.cnt50 < 4) return 0;
    // 2. In the tree the counter alone decides, mate or not.  At ply 0, the
    // front end's call, a lapsed counter draws only a position without a
    // legal move; any other still needs a repetition.
    if (pos.cnt50 > 100) {
        if (ply > 0) return 1;
        Move moves[MAX_MOVES];
        if (legal_moves(pos, moves) == 0) return 1;
    }
    // 3-4. Repetition
    return repeats(pos, ply);
}
