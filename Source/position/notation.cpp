// Text to positions and moves and back: FEN reading and writing,
// the coordinate text of a move, the four written forms of a move and the
// loose reader of typed or PGN moves.
#include "notation.h"

#include <cstdio>
#include <cstring>

#include "core/relaxed.h"
#include "core/settings.h"
#include "core/status.h"

const char SQUARE_NAMES[64][3] = {
    "a1", "b1", "c1", "d1", "e1", "f1", "g1", "h1",  //
    "a2", "b2", "c2", "d2", "e2", "f2", "g2", "h2",  //
    "a3", "b3", "c3", "d3", "e3", "f3", "g3", "h3",  //
    "a4", "b4", "c4", "d4", "e4", "f4", "g4", "h4",  //
    "a5", "b5", "c5", "d5", "e5", "f5", "g5", "h5",  //
    "a6", "b6", "c6", "d6", "e6", "f6", "g6", "h6",  //
    "a7", "b7", "c7", "d7", "e7", "f7", "g7", "h7",  //
    "a8", "b8", "c8", "d8", "e8", "f8", "g8", "h8",
};

static const char WHITE_LETTERS[] = " PNBRQK";
static const char BLACK_LETTERS[] = " pnbrqk";
static const char FEN_DIGITS[] = "0123456789";

// A side may hold at most this many men: the move lists are sized for it.
constexpr int MAX_MEN = 16;

// Appends the name of a square; a square off the board appends nothing.
static char *put_square(char *out, int sq) {
    if (sq < 0 || sq > 63) return out;
    *out++ = SQUARE_NAMES[sq][0];
    *out++ = SQUARE_NAMES[sq][1];
    return out;
}

// The type a promotion flag asks for, queen when no promotion flag is set.
static int promotion_type(Move move) {
    if (move & FLAG_QUEEN) return QUEEN;
    if (move & FLAG_KNIGHT) return KNIGHT;
    if (move & FLAG_BISHOP) return BISHOP;
    if (move & FLAG_ROOK) return ROOK;
    return QUEEN;
}

// The rook square of the castling right a flagged king move uses.
static int castling_rook_square(const Position &pos, int side, Move move) {
    int index = 2 * (side & 1) + ((move & FLAG_SHORT) ? 0 : 1);
    return pos.castle_rook[index];
}

static void place_piece(Position &pos, int sq, int code) {
    int type = piece_type(code), colour = piece_colour(code);
    pos.board[sq] = static_cast<u8>(code);
    pos.bitboards[colour][0] |= bit(sq);
    pos.bitboards[colour][type] |= bit(sq);
    pos.material_sig[colour] += MATERIAL_SIG_STEP[type];
    pos.piece_points[colour] =
        static_cast<i16>(pos.piece_points[colour] + PIECE_POINTS[type]);
    if (type == KING) pos.king_sq[colour] = static_cast<u8>(sq);
}

int set_fen(Position &pos, const char *text) {
    // 1. Clear everything but the owner and the side to move, which a
    // text without a side field leaves as it was.
    BoardHistory *owner = pos.history;
    int old_side = pos.side & 1;
    std::memset(&pos, 0, sizeof pos);
    pos.history = owner;
    pos.side = static_cast<u8>(old_side);
    pos.king_sq[WHITE] = pos.king_sq[BLACK] = NO_SQUARE;
    pos.ep_sq = NO_SQUARE;
    for (int i = 0; i < 4; i++) pos.castle_rook[i] = NO_SQUARE;
    if (owner) {
        owner->hist_index = 0;
        owner->ply = 1;
        owner->last_move = 0;
    }
    if (!text) text = "";
    const char *p = text;

    // 2. The board, from rank 8 down; nothing lands off the board.
    int rank = 7, file = 0;
    int men[2] = {0, 0};
    for (; *p && *p != ' '; p++) {
        char c = *p;
        if (c == '/') {
            if (rank >= 0) rank--;
            file = 0;
        } else if (c >= '1' && c <= '8') {
            file += c - '0';
            if (file > 8) file = 8;
        } else {
            const char *w = std::strchr(WHITE_LETTERS + 1, c);
            const char *b = std::strchr(BLACK_LETTERS + 1, c);
            int code = 0;
            if (w)
                code = make_piece(static_cast<int>(w - WHITE_LETTERS), WHITE);
            else if (b)
                code = make_piece(static_cast<int>(b - BLACK_LETTERS), BLACK);
            if (!code) continue;  // unknown: no effect at all
            int colour = piece_colour(code);
            if (rank >= 0 && file <= 7 && men[colour] < MAX_MEN) {
                place_piece(pos, file + 8 * rank, code);
                men[colour]++;
            }
            if (file < 8) file++;
        }
    }

    // 3. Side to move.
    while (*p == ' ') p++;
    if (*p == 'w') pos.side = WHITE;
    if (*p == 'b') pos.side = BLACK;

    // 4. Step over the side letter; the castling field, 8 characters at
    // most, is read by set_castling.
    if (*p) p++;
    while (*p == ' ') p++;
    char castling[9] = {};
    for (int n = 0; *p && *p != ' '; p++)
        if (n < 8) castling[n++] = *p;
    set_castling(pos, castling);

    // 5. En passant: a letter gives the file, a digit the rank; a field
    // that names no whole square gives none.
    while (*p == ' ') p++;
    int ep_file = -1, ep_rank = -1;
    for (; *p && *p != ' '; p++) {
        if (*p >= 'a' && *p <= 'h') ep_file = *p - 'a';
        if (*p >= '1' && *p <= '8') ep_rank = *p - '1';
    }
    if (ep_file >= 0 && ep_rank >= 0)
        pos.ep_sq = static_cast<u8>(ep_file + 8 * ep_rank);

    // 6. Keys and the bottom of the history; the halfmove clock and the
    // move number are not read.
    compute_keys(pos);
    if (owner) {
        std::memset(&owner->states[0], 0, 2 * sizeof(StateRecord));
    }
    return 0;
}

void get_fen(const Position &pos, char *out, int counters) {
    char *o = out;
    for (int rank = 7; rank >= 0; rank--) {
        int run = 0;
        for (int file = 0; file < 8; file++) {
            int code = pos.board[file + 8 * rank];
            if (!code) {
                run++;
                continue;
            }
            if (run) *o++ = FEN_DIGITS[run];
            run = 0;
            const char *letters =
                piece_colour(code) ? BLACK_LETTERS : WHITE_LETTERS;
            *o++ = letters[piece_type(code) % 7];
        }
        if (run) *o++ = FEN_DIGITS[run];
        if (rank) *o++ = '/';
    }
    *o++ = ' ';
    *o++ = pos.side ? 'b' : 'w';
    *o++ = ' ';
    if (pos.castle_rights & 1) *o++ = 'K';
    if (pos.castle_rights & 2) *o++ = 'Q';
    if (pos.castle_rights & 4) *o++ = 'k';
    if (pos.castle_rights & 8) *o++ = 'q';
    if (!(pos.castle_rights & 15)) *o++ = '-';
    *o++ = ' ';
    if (pos.ep_sq < 64)
        o = put_square(o, pos.ep_sq);
    else
        *o++ = '-';
    *o = 0;
    if (counters) {
        int game_ply = pos.history ? pos.history->hist_index : 0;
        std::snprintf(o, 32, " %d %d", pos.cnt50, game_ply);
    }
}

void coord_text(const Position &pos, int side, Move move, char *out) {
    int from = move_from(move), to = move_to(move);
    char *o = put_square(out, from);
    if (move & FLAG_MASK) {
        int r = rank_of(from);
        if (r == 0 || r == 7) {
            // Castling: the king takes its rook under Chess960.
            int rook = castling_rook_square(pos, side, move);
            if (relaxed_load(settings.chess960) && rook < 64)
                o = put_square(o, rook);
            else
                o = put_square(o, to);
        } else {
            o = put_square(o, to);
            static const char UCI[] = " nbrq";
            static const char CONSOLE[] = " NBRQ";
            int type = promotion_type(move);
            if (relaxed_load(settings.uci_mode)) {
                *o++ = UCI[type == QUEEN ? 4 : type - 1];
            } else {
                *o++ = '=';
                *o++ = CONSOLE[type == QUEEN ? 4 : type - 1];
            }
        }
    } else {
        o = put_square(o, to);
    }
    *o = 0;
}

void move_text(const Position &pos, int side, Move move, char *out) {
    if (move == 0) {
        std::strcpy(out, "null");
        return;
    }
    coord_text(pos, side, move, out);
}

// Whether `us` attacks the enemy king once the moved piece, as `type`,
// stands on `to`; the rest of the board is as it is.
static int move_gives_check(const Position &pos, int us, int from, int to,
                            int moved_type, int type) {
    int them = us ^ 1;
    int king = pos.king_sq[them];
    if (king >= 64) return 0;
    u64 mine[8];
    for (int t = 0; t < 8; t++) mine[t] = pos.bitboards[us][t];
    mine[moved_type & 7] &= ~bit(from);
    mine[type & 7] |= bit(to);
    u64 occupied = (occupied_squares(pos) & ~bit(from)) | bit(to);
    if (pawn_attacks[them][king] & mine[PAWN]) return 1;
    if (knight_attacks[king] & mine[KNIGHT]) return 1;
    if (king_attacks[king] & mine[KING]) return 1;
    if (bishop_attacks(king, occupied) & (mine[BISHOP] | mine[QUEEN])) return 1;
    if (rook_attacks(king, occupied) & (mine[ROOK] | mine[QUEEN])) return 1;
    return 0;
}

void move_forms(const Position &pos, Move move, char *coord, char *san,
                char *alt, char *long_form) {
    san[0] = alt[0] = long_form[0] = 0;
    if (move == 0) {
        std::strcpy(coord, "null");
        return;
    }
    int us = pos.side & 1;
    int from = move_from(move), to = move_to(move);
    int moved = pos.board[from];
    int type = piece_type(moved);
    int flags = move & FLAG_MASK;
    int promoted = type;
    coord_text(pos, us, move, coord);

    if (type == PAWN) {
        const char *suffix = "";
        if (flags) {
            coord[4] = 0;
            static const char *const SUFFIX[8] = {"",   "",   "=N", "=B",
                                                  "=R", "=Q", "",   ""};
            promoted = promotion_type(move);
            suffix = SUFFIX[promoted];
        }
        if (pos.board[to] || to == pos.ep_sq) {
            char *o = san;
            *o++ = SQUARE_NAMES[from][0];
            *o++ = 'x';
            o = put_square(o, to);
            *o = 0;
            alt[0] = SQUARE_NAMES[from][0];
            alt[1] = SQUARE_NAMES[to][0];
            alt[2] = 0;
        } else {
            *put_square(san, to) = 0;
        }
        std::strcat(coord, suffix);
        std::strcat(san, suffix);
        std::strcat(alt, suffix);
    } else if (move & (FLAG_SHORT | FLAG_LONG)) {
        // Castling: the coordinate forms are the king-to and the
        // king-takes-rook form, one in `coord` and the other in
        // `long_form`.
        int rook = castling_rook_square(pos, us, move);
        int other = relaxed_load(settings.chess960) || rook >= 64 ? to : rook;
        int first = relaxed_load(settings.chess960) && rook < 64 ? rook : to;
        *put_square(put_square(long_form, from), other) = 0;
        if (move & FLAG_SHORT) {
            std::strcpy(san, "o-o");
            std::strcpy(alt, "O-O");
        } else {
            std::strcpy(san, "o-o-o");
            std::strcpy(alt, "O-O-O");
            *put_square(put_square(coord, from), first) = 0;
        }
    } else {
        char letter = WHITE_LETTERS[type % 7];
        char by_rank[3] = {letter, SQUARE_NAMES[from][1], 0};
        char by_file[3] = {letter, SQUARE_NAMES[from][0], 0};
        san[0] = letter;
        san[1] = 0;
        std::strcpy(alt, by_file);
        std::strcpy(long_form, by_rank);
        u64 same = pos.bitboards[us][type];
        if (count_bits(same) > 1) {
            u64 occupied = occupied_squares(pos) | bit(to);
            u64 reach = 0;
            if (type == KNIGHT) reach = knight_attacks[to];
            if (type == BISHOP || type == QUEEN)
                reach |= bishop_attacks(to, occupied);
            if (type == ROOK || type == QUEEN)
                reach |= rook_attacks(to, occupied);
            u64 others = same & reach & ~bit(from);
            int on_file = 0, on_rank = 0;
            for (u64 b = others; b; b = clear_first_bit(b)) {
                int sq = first_bit(b);
                if (file_of(sq) == file_of(from)) on_file = 1;
                if (rank_of(sq) == rank_of(from)) on_rank = 1;
            }
            // Neither: plain letter, ambiguous, as PGN reading expects.
            if (on_file)
                std::strcpy(san, by_rank);
            else if (on_rank)
                std::strcpy(san, by_file);
        }
        if (pos.board[to]) {
            std::strcat(san, "x");
            std::strcat(alt, "x");
            std::strcat(long_form, "x");
        }
        std::strcat(san, SQUARE_NAMES[to]);
        std::strcat(alt, SQUARE_NAMES[to]);
        std::strcat(long_form, SQUARE_NAMES[to]);
    }

    // A check mark; the castling rook stays where it was for this test.
    if (from != to && move_gives_check(pos, us, from, to, type, promoted)) {
        std::strcat(coord, "+");
        std::strcat(san, "+");
        std::strcat(alt, "+");
        std::strcat(long_form, "+");
    }
}

static void cut_at_plus(char *text) {
    char *plus = std::strchr(text, '+');
    if (plus) *plus = 0;
}

int parse_move(char *text, Move *out_move) {
    // 1. No move yet; a check sign is dropped
    *out_move = 0;
    cut_at_plus(text);

    // 2. A promotion letter gets its '=' and is upper-cased; this may
    // lengthen the text by one character.
    size_t len = std::strlen(text);
    if (len > 0) {
        char last = text[len - 1];
        char upper = last >= 'a' && last <= 'z' ? last - 'a' + 'A' : last;
        if (upper == 'B' || upper == 'N' || upper == 'Q' || upper == 'R') {
            if (len >= 2 && text[len - 2] == '=') {
                text[len - 1] = upper;
            } else {
                text[len - 1] = '=';
                text[len] = upper;
                text[len + 1] = 0;
            }
        }
    }

    // 3. Castling in any spelling reads as o-o
    for (char *c = text; *c; c++)
        if (*c == 'O' || *c == '0') *c = 'o';

    // 4. All moves of the game position, in the order of a full list.
    Position &pos = game_board->position;
    MoveEntry list[MAX_MOVES];
    MoveEntry *end = generate_full_list(pos, list);

    // 5. Count the legal moves with a matching form
    int count = 0;
    Move found = 0;
    for (MoveEntry *e = list; e < end; e++) {
        char forms[4][16];
        move_forms(pos, e->move, forms[0], forms[1], forms[2], forms[3]);
        int match = 0;
        for (auto &form : forms) {
            cut_at_plus(form);
            if (std::strcmp(form, text) == 0) match = 1;
        }
        if (match && legal_move(pos, pos.side, e->move)) {
            count++;
            found = e->move;
        }
    }

    // 6. Only a single match is a move
    *out_move = found;
    if (count == 1) return 1;
    if (count == 2) std::puts("ambiguous move");
    return 0;
}
