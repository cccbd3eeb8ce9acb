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
    // A slider's attack set from `sq` holds exactly the squares with nothing
    // in between, whether or not the square itself is still occupied.
    u64 diagonal = bishop_attacks(sq, occupancy);
    b = diagonal & pieces[BISHOP] & candidates;
    if (b) return first_bit(b);
    u64 straight = rook_attacks(sq, occupancy);
    b = straight & pieces[ROOK] & candidates;
    if (b) return first_bit(b);
    b = (diagonal | straight) & pieces[QUEEN] & candidates;
    if (b) return first_bit(b);
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
