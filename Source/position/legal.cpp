// The legality test of one pseudo-legal move, without making it.
#include "position.h"

// A castling king must not start on, pass or land on an attacked square.
// The rook is still on its square during the test; a slider it shielded on
// the king's rank in Chess960 is not looked for, and that stays so.
static int castling_legal(const Position &pos, int from, int to, int them) {
    int step = to > from ? 1 : -1;
    for (int sq = from;; sq += step) {
        if (square_attacked(pos, sq, them)) return 0;
        if (sq == to) return 1;
    }
}

int legal_move(Position &pos, int side, Move move) {
    if (move == NO_MOVE) return 0;
    int from = move_from(move), to = move_to(move), them = side ^ 1;
    int moved_type = piece_type(pos.board[from]);
    if ((move & FLAG_MASK) && moved_type == KING)
        return castling_legal(pos, from, to, them);

    int probe = moved_type == KING ? to : pos.king_sq[side];
    u64 occupied = (occupied_squares(pos) & ~bit(from)) | bit(to);
    // A captured piece attacks nothing any more; take it out of its type's
    // board for the moment (the colour board is not read by the test).
    int victim = pos.board[to];
    int victim_type =
        victim && piece_colour(victim) == them ? piece_type(victim) : 0;
    u64 saved_victims = pos.bitboards[them][victim_type];
    u64 saved_pawns = pos.bitboards[them][PAWN];
    if (victim_type) pos.bitboards[them][victim_type] &= ~bit(to);
    if (moved_type == PAWN && to == pos.ep_sq) {
        int captured_sq = to - PAWN_DIRECTION[side];
        occupied &= ~bit(captured_sq);
        pos.bitboards[them][PAWN] &= ~bit(captured_sq);
    }
    int legal = find_least_attacker(pos, probe, them, occupied) == NO_SQUARE;
    pos.bitboards[them][victim_type] = saved_victims;
    pos.bitboards[them][PAWN] = saved_pawns;
    return legal;
}
