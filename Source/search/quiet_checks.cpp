// Quiet moves that check the enemy king directly, for the capture search
// near the horizon.  Every target is an empty square from which the moving
// piece would attack the king; pieces and targets go in bit order, so the
// list order is fixed.
#include "move_picker.h"

constexpr u64 RANK_4 = 0x00000000FF000000ULL;
constexpr u64 RANK_5 = 0x000000FF00000000ULL;
// Nibbles of material_sig: bishops or queens, rooks or queens.
constexpr u32 DIAGONAL_SLIDERS = 0xF0F00;
constexpr u32 STRAIGHT_SLIDERS = 0xFF000;

static MoveEntry *add_check(const Position &pos, MoveEntry *list, int from,
                            int to) {
    list->move = make_move_code(from, to);
    list->moved = pos.board[from];
    list->captured = pos.board[to];
    return list + 1;
}

// Pushes onto `targets`, the empty squares from which a pawn attacks the
// king: single steps, then double steps from the starting rank over an
// empty square.
static MoveEntry *add_pawn_checks(const Position &pos, int side,
                                  MoveEntry *list, u64 targets, u64 empty) {
    u64 pawns = pos.bitboards[side][PAWN];
    int step = PAWN_DIRECTION[side];
    u64 singles, doubles;
    if (side == WHITE) {
        singles = targets & (pawns << 8);
        doubles = targets & RANK_4 & (empty << 8) & (pawns << 16);
    } else {
        singles = targets & (pawns >> 8);
        doubles = targets & RANK_5 & (empty >> 8) & (pawns >> 16);
    }
    for (; singles; singles = clear_first_bit(singles)) {
        int to = first_bit(singles);
        list = add_check(pos, list, to - step, to);
    }
    for (; doubles; doubles = clear_first_bit(doubles)) {
        int to = first_bit(doubles);
        list = add_check(pos, list, to - 2 * step, to);
    }
    return list;
}

// Every piece of one kind, lowest square first, onto `targets`.
static MoveEntry *add_piece_checks(const Position &pos, int side, int type,
                                   MoveEntry *list, u64 targets) {
    if (!targets) return list;
    u64 occupied = occupied_squares(pos);
    for (u64 b = pos.bitboards[side][type]; b; b = clear_first_bit(b)) {
        int from = first_bit(b);
        for (u64 t = piece_attacks(type, from, occupied) & targets; t;
             t = clear_first_bit(t))
            list = add_check(pos, list, from, first_bit(t));
    }
    return list;
}

MoveEntry *generate_quiet_checks(const Position &pos, int side,
                                 MoveEntry *list) {
    int king = pos.king_sq[side ^ 1];
    u64 occupied = occupied_squares(pos);
    u64 empty = ~occupied;
    // The king's square seen as a pawn of its own colour attacks exactly
    // the squares from which our pawns would attack it.
    list = add_pawn_checks(pos, side, list,
                           pawn_attacks[side ^ 1][king] & empty, empty);
    list =
        add_piece_checks(pos, side, KNIGHT, list, knight_attacks[king] & empty);
    // Slider lines through the king are worth computing only when a piece
    // that can use them is on the board.
    u32 material = pos.material_sig[side];
    u64 diagonal = material & DIAGONAL_SLIDERS
                       ? bishop_attacks(king, occupied) & empty
                       : 0;
    u64 straight =
        material & STRAIGHT_SLIDERS ? rook_attacks(king, occupied) & empty : 0;
    list = add_piece_checks(pos, side, BISHOP, list, diagonal);
    list = add_piece_checks(pos, side, ROOK, list, straight);
    return add_piece_checks(pos, side, QUEEN, list, diagonal | straight);
}
