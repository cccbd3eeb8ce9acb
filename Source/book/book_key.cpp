// The book key: Polyglot's rule, computed from the board at each call.
#include "book.h"

// Polyglot's piece kinds run black pawn 0, white pawn 1, black knight 2 ..
// white king 11.
static int polyglot_kind(int code) {
    return 2 * (piece_type(code) - 1) + (piece_colour(code) == WHITE ? 1 : 0);
}

u64 book_key(const Position &pos) {
    u64 key = 0;
    // 1. The men.
    for (u64 men = occupied_squares(pos); men; men = clear_first_bit(men)) {
        int sq = first_bit(men);
        int code = pos.board[sq];
        int type = piece_type(code);
        if (type < PAWN || type > KING) continue;
        key ^=
            RANDOM64[64 * polyglot_kind(code) + 8 * rank_of(sq) + file_of(sq)];
    }
    // 2. Castling rights, white short, white long, black short, black long.
    for (int i = 0; i < 4; i++)
        if (pos.castle_rights & (1 << i))
            key ^= RANDOM64[RANDOM64_CASTLING + i];
    // 3. The en-passant file counts only when a pawn of the side to move
    // stands ready to take; whether the capture is legal is not asked.
    int side = pos.side & 1, ep = pos.ep_sq;
    if (ep < NO_SQUARE &&
        (pawn_attacks[side ^ 1][ep] & pos.bitboards[side][PAWN]))
        key ^= RANDOM64[RANDOM64_EN_PASSANT + file_of(ep)];
    // 4. White to move.
    if (side == WHITE) key ^= RANDOM64[RANDOM64_WHITE_TO_MOVE];
    return key;
}
