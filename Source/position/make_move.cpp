// Making and unmaking moves.  Every incremental field of the Position is
// kept exact; the keys come back from the undo record instead of being
// XORed back.
#include "position.h"

static void add_weights(Position &pos, int code) {
    int c = piece_colour(code), t = piece_type(code);
    pos.material_sig[c] += MATERIAL_SIG_STEP[t];
    pos.piece_points[c] += PIECE_POINTS[t];
}

static void subtract_weights(Position &pos, int code) {
    int c = piece_colour(code), t = piece_type(code);
    pos.material_sig[c] -= MATERIAL_SIG_STEP[t];
    pos.piece_points[c] -= PIECE_POINTS[t];
}

static void put_piece(Position &pos, int code, int sq) {
    pos.board[sq] = static_cast<u8>(code);
    add_weights(pos, code);
    pos.bitboards[piece_colour(code)][0] |= bit(sq);
    pos.bitboards[piece_colour(code)][piece_type(code)] |= bit(sq);
}

static void take_piece(Position &pos, int sq) {
    int code = pos.board[sq];
    pos.board[sq] = 0;
    subtract_weights(pos, code);
    pos.bitboards[piece_colour(code)][0] &= ~bit(sq);
    pos.bitboards[piece_colour(code)][piece_type(code)] &= ~bit(sq);
}

static void shift_piece(Position &pos, int from, int to) {
    int code = pos.board[from];
    u64 both = bit(from) | bit(to);
    pos.board[to] = static_cast<u8>(code);
    pos.board[from] = 0;
    pos.bitboards[piece_colour(code)][0] ^= both;
    pos.bitboards[piece_colour(code)][piece_type(code)] ^= both;
}

static int promotion_type(int flags) {
    if (flags & FLAG_KNIGHT) return KNIGHT;
    if (flags & FLAG_BISHOP) return BISHOP;
    if (flags & FLAG_ROOK) return ROOK;
    return QUEEN;
}

// King and rook of a castling move.  The rook comes off first and goes
// down last, which gets every Chess960 overlap of their squares right.
static void castle(Position &pos, int us, int from, int to, bool is_short) {
    int king = pos.board[from];
    int rook_from = pos.castle_rook[2 * us + (is_short ? 0 : 1)];
    int rook_to = is_short ? to - 1 : to + 1;
    int rook = pos.board[rook_from];  // square 64 reads as empty
    if (rook) take_piece(pos, rook_from);
    if (from != to) shift_piece(pos, from, to);
    if (rook) put_piece(pos, rook, rook_to);
    // The fifty-move counter restarts on castling, unlike the usual rule.
    pos.cnt50 = 0;
    pos.key ^= piece_key(king, from) ^ piece_key(king, to);
    if (rook) pos.key ^= piece_key(rook, rook_from) ^ piece_key(rook, rook_to);
}

// Double push, en-passant capture, promotion: the pawn's extras.
static void finish_pawn_move(Position &pos, int us, int from, int to, int flags,
                             int old_ep) {
    int dir = PAWN_DIRECTION[us];
    pos.cnt50 = 0;
    if (to == from + 2 * dir) {
        // Set on every double push, capturable or not.
        pos.ep_sq = static_cast<u8>(from + dir);
        pos.key ^= hash_keys[pos.ep_sq];
    } else if (to == old_ep) {
        int victim_sq = to - dir;
        int victim = make_piece(PAWN, us ^ 1);
        take_piece(pos, victim_sq);
        pos.key ^= piece_key(victim, victim_sq);
        pos.pawn_key ^= piece_key(victim, victim_sq);
    } else if (rank_of(to) == 0 || rank_of(to) == 7) {
        int pawn = make_piece(PAWN, us);
        int promoted = make_piece(promotion_type(flags), us);
        take_piece(pos, to);
        pos.key ^= piece_key(pawn, to);
        pos.pawn_key ^= piece_key(pawn, to);
        put_piece(pos, promoted, to);
        pos.key ^= piece_key(promoted, to);
    }
}

void make_move(Position &pos, Move move) {
    BoardHistory *w = pos.history;
    int us = pos.side;
    int from = move_from(move), to = move_to(move), flags = move & FLAG_MASK;
    int moved = pos.board[from];

    // 1. The next undo record.
    StateRecord &record = w->states[w->hist_index];
    w->hist_index++;
    w->ply++;

    // 2. Castling is stored with the king's real destination.
    bool castling = flags && piece_type(moved) == KING;
    bool is_short = flags & FLAG_SHORT;
    if (castling) {
        to = (from & 56) + (is_short ? 6 : 2);
        move = make_move_code(from, to, is_short ? FLAG_SHORT : FLAG_LONG);
    }

    // 3. Save what cannot be recomputed cheaply.
    record.move = move;
    record.captured_type = castling ? 0 : pos.board[to] & 7;
    record.ep_sq = pos.ep_sq;
    record.cnt50 = pos.cnt50;
    record.castle_rights = pos.castle_rights;
    record.touched = pos.touched;
    record.key = pos.key;
    record.pawn_key = pos.pawn_key;
    w->last_move = move;

    // 4. Any move from or to a king's or rook's home square ends the rights
    // that need it, captures of the rook included.
    int old_ep = pos.ep_sq, old_rights = pos.castle_rights;
    pos.touched |= bit(from) | bit(to);
    for (int i = 0; i < 4; i++)
        if (pos.touched & pos.castle_mask[i]) pos.castle_rights &= ~(1 << i);
    pos.ep_sq = NO_SQUARE;

    // 5. The clock runs on; the other side moves
    pos.cnt50++;
    pos.side ^= 1;

    // 6. The key leaves the old en-passant square and rights
    if (old_ep != NO_SQUARE) pos.key ^= hash_keys[old_ep];
    if (pos.castle_rights != old_rights)
        pos.key ^= hash_keys[old_rights] ^ hash_keys[pos.castle_rights];

    if (castling) {
        // 7. Castling
        castle(pos, us, from, to, is_short);
    } else {
        // 8. An ordinary move, with its capture
        int victim = pos.board[to];
        if (victim) {
            take_piece(pos, to);
            pos.key ^= piece_key(victim, to);
            if (piece_type(victim) == PAWN)
                pos.pawn_key ^= piece_key(victim, to);
            pos.cnt50 = 0;
        }
        shift_piece(pos, from, to);
        pos.key ^= piece_key(moved, from) ^ piece_key(moved, to);
        if (piece_type(moved) == PAWN)
            pos.pawn_key ^= piece_key(moved, from) ^ piece_key(moved, to);
    }

    // 9. The king's square, or the pawn's extras
    if (piece_type(moved) == KING)
        pos.king_sq[us] = static_cast<u8>(to);
    else if (piece_type(moved) == PAWN)
        finish_pawn_move(pos, us, from, to, flags, old_ep);

    // 10. Bit 32 of the key is the side to move.
    pos.key = (pos.key & ~SIDE_BIT[1]) + SIDE_BIT[pos.side];
}

static void restore_last_move(BoardHistory *w) {
    w->last_move = w->hist_index > 0 ? w->states[w->hist_index - 1].move : 0;
}

static void uncastle(Position &pos, int us, int from, int to, bool is_short) {
    int rook_from = pos.castle_rook[2 * us + (is_short ? 0 : 1)];
    int rook_to = is_short ? to - 1 : to + 1;
    int rook = rook_from == NO_SQUARE ? 0 : pos.board[rook_to];
    if (rook) take_piece(pos, rook_to);
    if (from != to) shift_piece(pos, to, from);
    if (rook) put_piece(pos, rook, rook_from);
    pos.king_sq[us] = static_cast<u8>(from);
}

void unmake_move(Position &pos) {
    BoardHistory *w = pos.history;

    // 1., 2. Back to the previous undo record
    w->hist_index--;
    w->ply--;
    const StateRecord &record = w->states[w->hist_index];
    restore_last_move(w);

    // 3. The saved fields; the side flips back
    pos.touched = record.touched;
    pos.ep_sq = record.ep_sq;
    pos.castle_rights = record.castle_rights;
    pos.cnt50 = record.cnt50;
    pos.side ^= 1;
    int us = pos.side, them = us ^ 1;
    int from = move_from(record.move), to = move_to(record.move);
    int flags = record.move & FLAG_MASK;
    int piece = pos.board[to];

    if (flags && piece_type(piece) == KING) {
        // 4. Castling
        uncastle(pos, us, from, to, flags & FLAG_SHORT);
    } else {
        if (flags) {
            // 5. A promotion: the pawn comes back.
            take_piece(pos, to);
            put_piece(pos, make_piece(PAWN, us), from);
        } else {
            // 6. An ordinary move goes back
            shift_piece(pos, to, from);
        }
        // 7. The captured piece returns
        if (record.captured_type)
            put_piece(pos, make_piece(record.captured_type, them), to);
        // 8. An en-passant capture: the taken pawn returns behind `to`.
        if (piece_type(piece) == PAWN && to == record.ep_sq)
            put_piece(pos, make_piece(PAWN, them), to - PAWN_DIRECTION[us]);
        // 9. The king's square
        if (piece_type(piece) == KING) pos.king_sq[us] = static_cast<u8>(from);
    }

    // 10. The keys from the record
    pos.key = record.key;
    pos.pawn_key = record.pawn_key;
}

// The null move passes the turn: no piece moves, the rights and the pawn
// key stay, and the fifty-move counter is not increased.
void make_null_move(Position &pos) {
    BoardHistory *w = pos.history;
    StateRecord &record = w->states[w->hist_index];
    w->hist_index++;
    w->ply++;
    record.move = 0;
    record.captured_type = 0;
    record.ep_sq = pos.ep_sq;
    record.cnt50 = pos.cnt50;
    record.key = pos.key;
    int old_ep = pos.ep_sq;
    pos.ep_sq = NO_SQUARE;
    pos.side ^= 1;
    w->last_move = 0;
    if (old_ep != NO_SQUARE) pos.key ^= hash_keys[old_ep];
    pos.key = (pos.key & ~SIDE_BIT[1]) + SIDE_BIT[pos.side];
}

void unmake_null_move(Position &pos) {
    BoardHistory *w = pos.history;
    w->hist_index--;
    w->ply--;
    const StateRecord &record = w->states[w->hist_index];
    pos.side ^= 1;
    pos.ep_sq = record.ep_sq;
    pos.cnt50 = record.cnt50;
    pos.key = record.key;
    restore_last_move(w);
}
