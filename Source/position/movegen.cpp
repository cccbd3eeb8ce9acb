// Pseudo-legal move generation in three kinds: captures, promotions, quiet
// moves.  Boards are walked from the lowest bit up, so the order of a list
// is fixed; it decides ties in move ordering and with them node counts.
#include "position.h"

constexpr u64 NOT_RANK_1_OR_8 = 0x00FFFFFFFFFFFF00ULL;
constexpr u64 PAWN_PUSH_RANKS = 0x0000FFFFFFFF0000ULL;  // ranks 3 to 6

static MoveEntry *add_move(const Position &pos, MoveEntry *list, int from,
                           int to, u16 flags = 0) {
    list->move = make_move_code(from, to, flags);
    list->moved = pos.board[from];
    list->captured = pos.board[to];
    return list + 1;
}

// One entry per target square, all from the same square.
static MoveEntry *add_targets(const Position &pos, MoveEntry *list, int from,
                              u64 targets) {
    for (; targets; targets = clear_first_bit(targets))
        list = add_move(pos, list, from, first_bit(targets));
    return list;
}

// Entries for pawns that moved by `shift` onto `targets`.
static MoveEntry *add_pawn_moves(const Position &pos, MoveEntry *list,
                                 u64 targets, int shift) {
    for (; targets; targets = clear_first_bit(targets)) {
        int to = first_bit(targets);
        list = add_move(pos, list, to - shift, to);
    }
    return list;
}

// Knights, bishops, rooks, queens in that order, each onto `allowed`.
static MoveEntry *add_piece_moves(const Position &pos, int side,
                                  MoveEntry *list, u64 allowed) {
    u64 occupied = occupied_squares(pos);
    for (int type = KNIGHT; type <= QUEEN; type++)
        for (u64 b = pos.bitboards[side][type]; b; b = clear_first_bit(b)) {
            int from = first_bit(b);
            list = add_targets(pos, list, from,
                               piece_attacks(type, from, occupied) & allowed);
        }
    return list;
}

static MoveEntry *add_king_moves(const Position &pos, int side, MoveEntry *list,
                                 u64 allowed) {
    for (u64 b = pos.bitboards[side][KING]; b; b = clear_first_bit(b)) {
        int from = first_bit(b);
        list = add_targets(pos, list, from, king_attacks[from] & allowed);
    }
    return list;
}

MoveEntry *generate_captures(const Position &pos, int side, MoveEntry *list,
                             int target) {
    u64 enemy = pos.bitboards[side ^ 1][0];
    u64 wanted = target == NO_SQUARE ? enemy : bit(target);
    // The en-passant square stays a target even under a check restriction,
    // so that a checking pawn can be taken en passant; ep_sq 64 wraps to a1,
    // which the rank mask drops.
    u64 targets = (wanted | (1ULL << (pos.ep_sq & 63))) & NOT_RANK_1_OR_8;
    u64 pawns = pos.bitboards[side][PAWN];
    if (side == WHITE) {
        list = add_pawn_moves(
            pos, list, (pawns << 7) & targets & 0x7F7F7F7F7F7F7F00ULL, 7);
        list = add_pawn_moves(
            pos, list, (pawns << 9) & targets & 0xFEFEFEFEFEFEFE00ULL, 9);
    } else {
        list = add_pawn_moves(
            pos, list, (pawns >> 9) & targets & 0x007F7F7F7F7F7F7FULL, -9);
        list = add_pawn_moves(
            pos, list, (pawns >> 7) & targets & 0x00FEFEFEFEFEFEFEULL, -7);
    }
    list = add_piece_moves(pos, side, list, wanted);
    // A king may take anything next to it, whatever gives check.
    return add_king_moves(pos, side, list, enemy);
}

static MoveEntry *add_promotions(const Position &pos, MoveEntry *list, int from,
                                 int to, int with_underpromotions) {
    list = add_move(pos, list, from, to, FLAG_QUEEN);
    if (with_underpromotions) {
        list = add_move(pos, list, from, to, FLAG_KNIGHT);
        list = add_move(pos, list, from, to, FLAG_BISHOP);
        list = add_move(pos, list, from, to, FLAG_ROOK);
    }
    return list;
}

static bool holds_enemy(const Position &pos, int sq, int side) {
    int code = pos.board[sq];
    return code != 0 && piece_colour(code) != side;
}

MoveEntry *generate_promotions(const Position &pos, int side,
                               int with_underpromotions, MoveEntry *list) {
    u64 seventh = side == WHITE ? 0x00FF000000000000ULL : 0xFF00ULL;
    for (u64 b = pos.bitboards[side][PAWN] & seventh; b;
         b = clear_first_bit(b)) {
        int from = first_bit(b);
        int to = from + PAWN_DIRECTION[side];
        if (pos.board[to] == 0)
            list = add_promotions(pos, list, from, to, with_underpromotions);
        if (file_of(from) != 0 && holds_enemy(pos, to - 1, side))
            list =
                add_promotions(pos, list, from, to - 1, with_underpromotions);
        if (file_of(from) != 7 && holds_enemy(pos, to + 1, side))
            list =
                add_promotions(pos, list, from, to + 1, with_underpromotions);
    }
    return list;
}

// Pushes onto the seventh rank count with the tactical moves, not the
// quiet ones, so they are generated apart.
MoveEntry *generate_seventh_pushes(const Position &pos, int side,
                                   MoveEntry *list) {
    u64 sixth = side == WHITE ? 0xFF0000000000ULL : 0xFF0000ULL;
    for (u64 b = pos.bitboards[side][PAWN] & sixth; b; b = clear_first_bit(b)) {
        int from = first_bit(b);
        int to = from + PAWN_DIRECTION[side];
        if (pos.board[to] == 0) list = add_move(pos, list, from, to);
    }
    return list;
}

static MoveEntry *add_castling(const Position &pos, int side, MoveEntry *list,
                               u64 occupied) {
    int king = pos.king_sq[side];
    for (int right = 2 * side; right <= 2 * side + 1; right++) {
        if (!((pos.castle_rights >> right) & 1)) continue;
        if (pos.castle_path[right] & occupied) continue;
        bool is_short = right == 2 * side;
        int to = (king & 56) + (is_short ? 6 : 2);
        list->move =
            make_move_code(king, to, is_short ? FLAG_SHORT : FLAG_LONG);
        list->moved = pos.board[king];
        list->captured = 0;
        list++;
    }
    return list;
}

MoveEntry *generate_quiets(const Position &pos, int side, MoveEntry *list,
                           int target) {
    u64 occupied = occupied_squares(pos);
    // In check only blocking squares are of use (none against a knight or
    // pawn), and the king's own moves.
    u64 free = target == NO_SQUARE
                   ? ~occupied
                   : ~occupied & between[target][pos.king_sq[side]];
    u64 pawn_free = free & PAWN_PUSH_RANKS;
    u64 pawns = pos.bitboards[side][PAWN];
    if (side == WHITE) {
        u64 one_step = (pawns << 8) & ~occupied;
        list = add_pawn_moves(pos, list, one_step & pawn_free, 8);
        list = add_pawn_moves(pos, list,
                              (one_step << 8) & pawn_free & 0xFF000000ULL, 16);
    } else {
        u64 one_step = (pawns >> 8) & ~occupied;
        list = add_pawn_moves(pos, list, one_step & pawn_free, -8);
        list = add_pawn_moves(
            pos, list, (one_step >> 8) & pawn_free & 0xFF00000000ULL, -16);
    }
    list = add_piece_moves(pos, side, list, free);
    list = add_king_moves(pos, side, list, ~occupied);
    return add_castling(pos, side, list, occupied);
}

MoveEntry *generate_full_list(const Position &pos, MoveEntry *list) {
    MoveEntry *end = generate_captures(pos, pos.side, list, NO_SQUARE);
    end = generate_promotions(pos, pos.side, 1, end);
    end = generate_seventh_pushes(pos, pos.side, end);
    return generate_quiets(pos, pos.side, end, NO_SQUARE);
}

int legal_moves(Position &pos, Move *out) {
    MoveEntry list[MAX_MOVES];
    MoveEntry *end = generate_full_list(pos, list);
    int n = 0;
    for (MoveEntry *e = list; e < end; e++)
        if (legal_move(pos, pos.side, e->move)) out[n++] = e->move;
    return n;
}
