// What kind of move a list entry is for the search: a capture, a check, a
// pawn reaching the last ranks.
#include "search.h"

// Whether the move checks: the moved (or promoted) piece is put on its
// target for the moment, so discovered checks count; a castling rook's
// check does not, and a pawn taken en passant stays in the occupancy.
int gives_check(Position &pos, int side, const MoveEntry &entry) {
    int from = move_from(entry.move), to = move_to(entry.move);
    int type = piece_type(entry.moved);
    if (type == PAWN && (entry.move & FLAG_MASK)) {
        u16 flags = entry.move & FLAG_MASK;
        type = flags & FLAG_KNIGHT   ? KNIGHT
               : flags & FLAG_BISHOP ? BISHOP
               : flags & FLAG_ROOK   ? ROOK
                                     : QUEEN;
    }
    u64 occupancy = (occupied_squares(pos) & ~bit(from)) | bit(to);
    u64 saved = pos.bitboards[side][type];
    pos.bitboards[side][type] |= bit(to);
    int check = find_least_attacker(pos, pos.king_sq[side ^ 1], side,
                                    occupancy) != NO_SQUARE;
    pos.bitboards[side][type] = saved;
    return check;
}

int classify_move(Position &pos, int side, const MoveEntry &entry) {
    int to = move_to(entry.move);
    bool pawn = piece_type(entry.moved) == PAWN;
    bool capture = entry.captured != 0 || (pawn && to == pos.ep_sq);
    int flags = gives_check(pos, side, entry) ? 2 : 0;
    if (capture) flags |= 1;
    if (!pawn) return flags;
    int relative_rank = side == WHITE ? rank_of(to) : 7 - rank_of(to);
    if (relative_rank == 7) {
        flags += 48;
    } else if (relative_rank == 6) {
        flags += 40;
    } else if (relative_rank == 5) {
        // A pawn reaching the sixth: advanced unless it is blocked at once
        // or is lost on its square.
        int ahead = to + PAWN_DIRECTION[side];
        if (capture)
            flags += 32;
        else if (pos.board[ahead] != make_piece(PAWN, side ^ 1) &&
                 see_safe(pos, entry.move))
            flags += 32;
    }
    return flags;
}
