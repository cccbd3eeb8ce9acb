// Exchange questions about one square: who attacks it next.  The occupancy
// is an argument, so pieces taken off in an exchange are just missing bits,
// and x-rays appear by themselves.  Pins are not looked at.
#include "search.h"

// The first attacker of `sq` among the pieces of `side` in `candidates`,
// least valuable kind first, lowest square first within a kind; lines are
// blocked by `occupancy`.
static int first_attacker(const Position &pos, int sq, int side, u64 occupancy,
                          u64 candidates) {
    const u64 *pieces = pos.bitboards[side];
    u64 b = pawn_attacks[side ^ 1][sq] & pieces[PAWN] & candidates;
    if (b) return first_bit(b);
    b = knight_attacks[sq] & pieces[KNIGHT] & candidates;
    if (b) return first_bit(b);
    const u64 line_pieces[3] = {
        pieces[BISHOP] & bishop_rays[sq], pieces[ROOK] & rook_rays[sq],
        pieces[QUEEN] & (bishop_rays[sq] | rook_rays[sq])};
    for (u64 slider : line_pieces)
        for (b = slider & candidates; b; b = clear_first_bit(b)) {
            int from = first_bit(b);
            if (!(between[from][sq] & occupancy)) return from;
        }
    b = king_attacks[sq] & pieces[KING] & candidates;
    if (b) return first_bit(b);
    return NO_SQUARE;
}

int find_attacker(const Position &pos, int sq, int side, u64 occupancy) {
    return first_attacker(pos, sq, side, occupancy, ~0ULL);
}

int find_least_attacker(const Position &pos, int sq, int side, u64 occupancy) {
    return first_attacker(pos, sq, side, occupancy, occupancy);
}
