// Castling rights from the castling field of a FEN text, for standard chess
// and Chess960 alike: short and long are told by where the rook stands
// relative to the king, not by a fixed file.
#include "position.h"

// Reads "KQkq" and Chess960 file letters into requested right bits.
static int requested_rights(const Position &pos, const char *text) {
    int requests = 0;
    for (int i = 0; i < 8 && text[i]; i++) {
        char c = text[i];
        if (c == 'K')
            requests |= 1;
        else if (c == 'Q')
            requests |= 2;
        else if (c == 'k')
            requests |= 4;
        else if (c == 'q')
            requests |= 8;
        else if (c >= 'A' && c <= 'H')
            requests |= c - 'A' > file_of(pos.king_sq[WHITE]) ? 1 : 2;
        else if (c >= 'a' && c <= 'h')
            requests |= c - 'a' > file_of(pos.king_sq[BLACK]) ? 4 : 8;
    }
    return requests;
}

// Grants right `index` if exactly one rook of `side` stands on `rooks_ray`
// from the king: with two rooks on that side there is no right at all.
static void grant_right(Position &pos, int index, int side, u64 rooks_ray,
                        int king_to, int rook_to) {
    u64 rooks = pos.bitboards[side][ROOK] & rooks_ray;
    if (rooks == 0 || clear_first_bit(rooks) != 0) return;
    int king = pos.king_sq[side];
    int rook = first_bit(rooks);
    u64 pieces = bit(rook) | bit(king);
    pos.castle_rook[index] = static_cast<u8>(rook);
    pos.castle_rights |= 1 << index;
    pos.castle_mask[index] = pieces;
    pos.castle_path[index] =
        ~pieces & (between[king][king_to] | between[rook][rook_to] |
                   bit(rook_to) | bit(king_to));
}

void set_castling(Position &pos, const char *text) {
    for (int i = 0; i < 4; i++) {
        pos.castle_mask[i] = 0;
        pos.castle_path[i] = 0;
        pos.castle_rook[i] = NO_SQUARE;
    }
    int requests = requested_rights(pos, text);
    for (int side = WHITE; side <= BLACK; side++) {
        int king = pos.king_sq[side];
        int home = side == WHITE ? 0 : 56;
        if (king == NO_SQUARE || (king & 56) != home) continue;
        if (requests & (1 << (2 * side)))
            grant_right(pos, 2 * side, side, ray_east[king], home + 6,
                        home + 5);
        if (requests & (2 << (2 * side)))
            grant_right(pos, 2 * side + 1, side, ray_west[king], home + 2,
                        home + 3);
    }
}
