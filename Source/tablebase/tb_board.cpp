// Move generation and move making on the tablebase board.  Moves are
// pseudo-legal; tb_do_move tells whether the mover's king survives.
#include "tb_board.h"

#include <cstdio>
#include <cstdlib>
#include <utility>

[[noreturn]] void tb_assert_failed(const char *what) {
    std::fprintf(stderr, "Assertion failed: %s\n", what);
    std::abort();
}

static u64 own_men(const TbPosition &pos) {
    return pos.turn ? pos.white : pos.black;
}

static u64 their_men(const TbPosition &pos) {
    return pos.turn ? pos.black : pos.white;
}

static u64 kind_board(const TbPosition &pos, int piece) {
    switch (piece) {
        case PYRRHIC_PAWN:
            return pos.pawns;
        case PYRRHIC_KNIGHT:
            return pos.knights;
        case PYRRHIC_BISHOP:
            return pos.bishops;
        case PYRRHIC_ROOK:
            return pos.rooks;
        case PYRRHIC_QUEEN:
            return pos.queens;
        default:
            return pos.kings;
    }
}

u64 pieces_by_type(const TbPosition &pos, int colour, int piece) {
    if (piece < PYRRHIC_PAWN || piece > PYRRHIC_KING)
        tb_assert_failed("PYRRHIC_PAWN <= piece && piece <= PYRRHIC_KING");
    return kind_board(pos, piece) & (colour ? pos.white : pos.black);
}

static TbMove make_tb_move(int from, int to, int promotes = 0) {
    return static_cast<TbMove>(to | (from << 6) | (promotes << 12));
}

// A pawn reaching the last rank gives the four promotions, queen first.
static TbMove *add_pawn_move(TbMove *moves, int from, int to) {
    if (rank_of(to) == 0 || rank_of(to) == 7) {
        for (int p = TB_PROMOTES_QUEEN; p <= TB_PROMOTES_KNIGHT; p++)
            *moves++ = make_tb_move(from, to, p);
    } else {
        *moves++ = make_tb_move(from, to);
    }
    return moves;
}

// The tables number the kinds as the board does.
static u64 attacks_of(int piece, int sq, u64 occupied) {
    return piece == PYRRHIC_KING ? king_attacks[sq]
                                 : piece_attacks(piece, sq, occupied);
}

// Moves of the pieces other than pawns onto `targets`.
static TbMove *piece_moves(const TbPosition &pos, u64 targets, TbMove *moves) {
    u64 occupied = pos.white | pos.black;
    for (int piece = PYRRHIC_KNIGHT; piece <= PYRRHIC_KING; piece++) {
        for (u64 b = kind_board(pos, piece) & own_men(pos); b; b &= b - 1) {
            int from = first_bit(b);
            u64 to_set = attacks_of(piece, from, occupied) & targets;
            for (; to_set; to_set &= to_set - 1)
                *moves++ = make_tb_move(from, first_bit(to_set));
        }
    }
    return moves;
}

static TbMove *pawn_captures(const TbPosition &pos, TbMove *moves) {
    int colour = pos.turn ? WHITE : BLACK;
    u64 victims = their_men(pos);
    if (pos.ep) victims |= bit(pos.ep);
    for (u64 b = pos.pawns & own_men(pos); b; b &= b - 1) {
        int from = first_bit(b);
        for (u64 t = pawn_attacks[colour][from] & victims; t; t &= t - 1)
            moves = add_pawn_move(moves, from, first_bit(t));
    }
    return moves;
}

TbMove *tb_gen_captures(const TbPosition &pos, TbMove *moves) {
    moves = piece_moves(pos, their_men(pos), moves);
    return pawn_captures(pos, moves);
}

TbMove *tb_gen_moves(const TbPosition &pos, TbMove *moves) {
    u64 occupied = pos.white | pos.black;
    moves = piece_moves(pos, ~own_men(pos), moves);
    moves = pawn_captures(pos, moves);
    int step = pos.turn ? 8 : -8;
    int start_rank = pos.turn ? 1 : 6;
    for (u64 b = pos.pawns & own_men(pos); b; b &= b - 1) {
        int from = first_bit(b);
        int to = from + step;
        if (to < 0 || to > 63 || (occupied & bit(to))) continue;
        moves = add_pawn_move(moves, from, to);
        int two = to + step;
        if (rank_of(from) == start_rank && !(occupied & bit(two)))
            *moves++ = make_tb_move(from, two);
    }
    return moves;
}

// Is `sq` attacked by the men of `by_white`?
static bool attacked_by(const TbPosition &pos, int sq, bool by_white) {
    u64 theirs = by_white ? pos.white : pos.black;
    u64 occupied = pos.white | pos.black;
    if (king_attacks[sq] & pos.kings & theirs) return true;
    if (knight_attacks[sq] & pos.knights & theirs) return true;
    // A white pawn attacks sq from the squares a black pawn on sq attacks.
    if (pawn_attacks[by_white ? BLACK : WHITE][sq] & pos.pawns & theirs)
        return true;
    if (bishop_attacks(sq, occupied) & (pos.bishops | pos.queens) & theirs)
        return true;
    return (rook_attacks(sq, occupied) & (pos.rooks | pos.queens) & theirs) !=
           0;
}

// The king of the side that has just moved, or of the side to move.
static bool king_attacked(const TbPosition &pos, bool white_king) {
    u64 king = pos.kings & (white_king ? pos.white : pos.black);
    if (!king) return false;
    return attacked_by(pos, first_bit(king), !white_king);
}

bool tb_in_check(const TbPosition &pos) {
    return king_attacked(pos, pos.turn != 0);
}

bool tb_is_en_passant(const TbPosition &pos, TbMove move) {
    int from = tb_move_from(move), to = tb_move_to(move);
    return pos.ep != 0 && to == pos.ep && (pos.pawns & bit(from)) &&
           file_of(from) != file_of(to);
}

bool tb_is_capture(const TbPosition &pos, TbMove move) {
    return (their_men(pos) & bit(tb_move_to(move))) != 0 ||
           tb_is_en_passant(pos, move);
}

bool tb_is_pawn_move(const TbPosition &pos, TbMove move) {
    return (pos.pawns & bit(tb_move_from(move))) != 0;
}

static void promote(TbPosition &next, u64 to_bit, int promotes) {
    next.pawns &= ~to_bit;
    if (promotes == TB_PROMOTES_QUEEN) next.queens |= to_bit;
    if (promotes == TB_PROMOTES_ROOK) next.rooks |= to_bit;
    if (promotes == TB_PROMOTES_BISHOP) next.bishops |= to_bit;
    if (promotes == TB_PROMOTES_KNIGHT) next.knights |= to_bit;
}

bool tb_do_move(TbPosition &next, const TbPosition &pos, TbMove move) {
    int from = tb_move_from(move), to = tb_move_to(move);
    u64 from_bit = bit(from), to_bit = bit(to);
    u64 keep = ~(from_bit | to_bit);
    u64 *boards[8] = {&next.white, &next.black,   &next.kings,   &next.queens,
                      &next.rooks, &next.bishops, &next.knights, &next.pawns};
    const u64 *old[8] = {&pos.white, &pos.black,   &pos.kings,   &pos.queens,
                         &pos.rooks, &pos.bishops, &pos.knights, &pos.pawns};
    // Each board moves its from bit to the to square; a captured man on
    // the to square disappears with the mask.
    for (int k = 0; k < 8; k++) {
        u64 b = *old[k];
        *boards[k] = (b & keep) | ((b & from_bit) ? to_bit : 0);
    }
    next.turn = pos.turn ^ 1;
    next.ep = 0;
    bool capture = (their_men(pos) & to_bit) != 0;
    if (pos.pawns & from_bit) {
        next.rule50 = 0;
        if (tb_move_promotes(move))
            promote(next, to_bit, tb_move_promotes(move));
        int passed = (from + to) / 2;
        // Only a right someone could use is kept, so that equal positions
        // look equal to the tables.
        if ((from ^ to) == 16 &&
            (pawn_attacks[pos.turn ? WHITE : BLACK][passed] & pos.pawns &
             their_men(pos)))
            next.ep = static_cast<u8>(passed);
        if (pos.ep && to == pos.ep && file_of(from) != file_of(to)) {
            u64 victim = bit(pos.turn ? to - 8 : to + 8);
            next.pawns &= ~victim;
            next.white &= ~victim;
            next.black &= ~victim;
        }
    } else if (capture) {
        next.rule50 = 0;
    } else {
        next.rule50 = static_cast<u8>(pos.rule50 + 1);
    }
    return !king_attacked(next, pos.turn != 0);
}

bool tb_has_legal_move(const TbPosition &pos) {
    TbMove moves[TB_MAX_MOVES];
    TbMove *end = tb_gen_moves(pos, moves);
    TbPosition next;
    for (TbMove *m = moves; m < end; m++)
        if (tb_do_move(next, pos, *m)) return true;
    return false;
}

bool tb_is_mate(const TbPosition &pos) {
    return tb_in_check(pos) && !tb_has_legal_move(pos);
}

TbPosition tb_position_from(const Position &pos, int rule50) {
    TbPosition t{};
    const u64(*b)[8] = pos.bitboards;
    t.white = b[WHITE][0];
    t.black = b[BLACK][0];
    t.pawns = b[WHITE][PAWN] | b[BLACK][PAWN];
    t.knights = b[WHITE][KNIGHT] | b[BLACK][KNIGHT];
    t.bishops = b[WHITE][BISHOP] | b[BLACK][BISHOP];
    t.rooks = b[WHITE][ROOK] | b[BLACK][ROOK];
    t.queens = b[WHITE][QUEEN] | b[BLACK][QUEEN];
    t.kings = b[WHITE][KING] | b[BLACK][KING];
    t.rule50 = static_cast<u8>(rule50);
    t.ep = pos.ep_sq == NO_SQUARE ? 0 : pos.ep_sq;
    t.turn = pos.side == WHITE ? 1 : 0;
    return t;
}

// One multiplier per kind: queen, rook, bishop, knight, pawn; white then
// black.  Kings don't enter, so two bare kings have the key 0.
static constexpr u64 MATERIAL_MULTIPLIER[2][5] = {
    {0xA3EC1ABC71E90863, 0x985DEB9FC49333F9, 0xAADC1A2BE446234D,
     0xD2FB81862830191F, 0xEC0ADE190C0F6003},
    {0xD6E4E47D24962951, 0xFD7866B439B94495, 0xD5A4C95928F2FBE3,
     0xBAEB854CD3259441, 0xA24F0F571BB202E7}};

u64 tb_material_key(const TbPosition &pos, int mirror) {
    u64 kinds[5] = {pos.queens, pos.rooks, pos.bishops, pos.knights, pos.pawns};
    u64 key = 0;
    for (int k = 0; k < 5; k++) {
        u64 w = static_cast<u64>(count_bits(kinds[k] & pos.white));
        u64 b = static_cast<u64>(count_bits(kinds[k] & pos.black));
        if (mirror) std::swap(w, b);
        key += w * MATERIAL_MULTIPLIER[0][k] + b * MATERIAL_MULTIPLIER[1][k];
    }
    return key;
}
