// Exchange questions about one square: what the exchange of captures on it
// gains.  The occupancy is an argument, so pieces taken off in an exchange
// are just missing bits, and x-rays appear by themselves.  Pins are not
// looked at.
#include "see.h"

int swap_value(const Position &pos, int side, int sq, int type, u64 occupancy) {
    int attacker = find_least_attacker(pos, sq, side, occupancy);
    if (attacker == NO_SQUARE) return 0;
    // Taking a king ends the exchange: anything is worth that.
    if (type == KING) return 9999;
    int gain = SEE_VALUE[type] - swap_value(pos, side ^ 1, sq,
                                            piece_type(pos.board[attacker]),
                                            occupancy & ~bit(attacker));
    // A side is never forced to capture.
    return gain > 0 ? gain : 0;
}

int see_move(const Position &pos, int side, int from, int to) {
    u64 occupied = occupied_squares(pos);
    int victim = piece_type(pos.board[to]);
    if (from == NO_SQUARE) return swap_value(pos, side, to, victim, occupied);
    return SEE_VALUE[victim] - swap_value(pos, side ^ 1, to,
                                          piece_type(pos.board[from]),
                                          occupied & ~bit(from));
}

int see_safe(const Position &pos, Move move) {
    int from = move_from(move), to = move_to(move);
    int mover = piece_type(pos.board[from]);
    int victim = piece_type(pos.board[to]);
    if (SEE_RANK[mover] <= SEE_RANK[victim]) return 1;
    if (mover == PAWN && to == pos.ep_sq) return 1;
    return see_move(pos, pos.side, from, to) >= -70;
}
