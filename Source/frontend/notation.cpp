// FEN reading and writing, coordinate move text, the four written forms
// of a move, and the loose move reader used for typed moves and PGN.
#include "notation.h"

#include <cstdio>
#include <cstring>

#include "../search/search.h"
#include "frontend.h"

const char SQUARE_NAMES[64][3] = {
    "a1", "b1", "c1", "d1", "e1", "f1", "g1", "h1", "a2", "b2", "c2",
    "d2", "e2", "f2", "g2", "h2", "a3", "b3", "c3", "d3", "e3", "f3",
    "g3", "h3", "a4", "b4", "c4", "d4", "e4", "f4", "g4", "h4", "a5",
    "b5", "c5", "d5", "e5", "f5", "g5", "h5", "a6", "b6", "c6", "d6",
    "e6", "f6", "g6", "h6", "a7", "b7", "c7", "d7", "e7", "f7", "g7",
    "h7", "a8", "b8", "c8", "d8", "e8", "f8", "g8", "h8"};

static const char WHITE_LETTERS[] = " PNBRQK";
static const char BLACK_LETTERS[] = " pnbrqk";

// No legal position holds more than 16 men of a side, and the move lists
// are sized for that, so further men in a text are left off the board.
constexpr int MAX_MEN_PER_SIDE = 16;

static int piece_code_of(char c) {
    for (int t = PAWN; t <= KING; t++) {
        if (c == WHITE_LETTERS[t]) return make_piece(t, WHITE);
        if (c == BLACK_LETTERS[t]) return make_piece(t, BLACK);
    }
    return 0;
}

static void place_piece(Position &pos, int code, int sq) {
    int c = piece_colour(code), t = piece_type(code);
    if (count_bits(pos.bitboards[c][0]) >= MAX_MEN_PER_SIDE) return;
    pos.board[sq] = static_cast<u8>(code);
    pos.bitboards[c][0] |= bit(sq);
    pos.bitboards[c][t] |= bit(sq);
    pos.material_sig[c] += MATERIAL_SIG_STEP[t];
    pos.piece_points[c] += PIECE_POINTS[t];
    if (t == KING) pos.king_sq[c] = static_cast<u8>(sq);
}

// The board field, rank 8 first; returns the text behind it.  Squares off
// the board are not written.
static const char *read_board(Position &pos, const char *p) {
    int rank = 7, file = 0;
    for (; *p && *p != ' '; p++) {
        if (*p == '/') {
            rank--;
            file = 0;
        } else if (*p >= '1' && *p <= '8') {
            file += *p - '0';
        } else if (int code = piece_code_of(*p)) {
            if (rank >= 0 && file < 8) place_piece(pos, code, file + 8 * rank);
            file++;
        }
    }
    return p;
}

static const char *skip_blanks(const char *p) {
    while (*p == ' ') p++;
    return p;
}

// The en-passant field: a file letter and a rank digit; anything that
// does not name a square leaves none.
static int read_ep_square(const char *p) {
    int file = -1, rank = -1;
    for (; *p && *p != ' '; p++) {
        if (*p >= 'a' && *p <= 'h')
            file = *p - 'a';
        else if (*p >= '1' && *p <= '8')
            rank = *p - '1';
    }
    if (file < 0) return NO_SQUARE;
    return file + 8 * (rank < 0 ? 0 : rank);
}

int set_fen(Position &pos, const char *text) {
    Worker *w = pos.worker;
    int old_side = pos.side;
    // 1. Start from an empty record so equal texts give equal bytes; only
    // the side to move survives a text that does not name one.
    std::memset(&pos, 0, sizeof pos);
    pos.worker = w;
    pos.side = static_cast<u8>(old_side & 1);
    pos.king_sq[WHITE] = pos.king_sq[BLACK] = NO_SQUARE;
    pos.ep_sq = NO_SQUARE;

    // 2.
    const char *p = read_board(pos, text);

    // 3.
    p = skip_blanks(p);
    if (*p == 'w') pos.side = WHITE;
    if (*p == 'b') pos.side = BLACK;

    // 4.
    if (*p) p++;
    p = skip_blanks(p);
    char castling[9] = {};
    for (int i = 0; i < 8 && *p && *p != ' '; i++) castling[i] = *p++;
    set_castling(pos, castling);

    // 5. The move counters that may follow are not read.
    pos.ep_sq = static_cast<u8>(read_ep_square(skip_blanks(p)));

    // 6.
    compute_keys(pos);
    if (w) {
        std::memset(&w->states[0], 0, 2 * sizeof(StateRecord));
        w->hist_index = 0;
        w->ply = 1;
        w->last_move = 0;
    }
    return 0;
}

void get_fen(const Position &pos, char *out, int counters) {
    char *o = out;
    for (int rank = 7; rank >= 0; rank--) {
        int empty = 0;
        for (int file = 0; file < 8; file++) {
            int code = pos.board[file + 8 * rank];
            if (!code) {
                empty++;
                continue;
            }
            if (empty) *o++ = static_cast<char>('0' + empty);
            empty = 0;
            *o++ = piece_colour(code) ? BLACK_LETTERS[piece_type(code)]
                                      : WHITE_LETTERS[piece_type(code)];
        }
        if (empty) *o++ = static_cast<char>('0' + empty);
        if (rank) *o++ = '/';
    }
    *o++ = ' ';
    *o++ = pos.side ? 'b' : 'w';
    *o++ = ' ';
    const char *letters = "KQkq";
    char *rights = o;
    for (int i = 0; i < 4; i++)
        if (pos.castle_rights & (1 << i)) *o++ = letters[i];
    if (o == rights) *o++ = '-';
    *o++ = ' ';
    if (pos.ep_sq < 64) {
        *o++ = SQUARE_NAMES[pos.ep_sq][0];
        *o++ = SQUARE_NAMES[pos.ep_sq][1];
    } else {
        *o++ = '-';
    }
    *o = 0;
    if (counters) {
        int game_ply = pos.worker ? pos.worker->hist_index : 0;
        std::sprintf(o, " %d %d", pos.cnt50, game_ply);
    }
}

static int promotion_index(int flags) {
    if (flags & FLAG_BISHOP) return 2;
    if (flags & FLAG_ROOK) return 3;
    if (flags & FLAG_KNIGHT) return 1;
    return 0;
}

void coord_text(const Position &pos, int side, Move move, char *out) {
    int from = move_from(move), to = move_to(move);
    int flags = move & FLAG_MASK;
    std::strcpy(out, SQUARE_NAMES[from]);
    if (flags && (rank_of(from) == 0 || rank_of(from) == 7)) {
        // Castling: the king-takes-rook form in Chess960.
        int rook =
            settings.chess960
                ? pos.castle_rook[2 * side + (flags & FLAG_SHORT ? 0 : 1)]
                : NO_SQUARE;
        std::strcat(out, SQUARE_NAMES[rook < 64 ? rook : to]);
        return;
    }
    std::strcat(out, SQUARE_NAMES[to]);
    if (!flags) return;
    static const char *const UCI_SUFFIX[4] = {"q", "n", "b", "r"};
    static const char *const CONSOLE_SUFFIX[4] = {"=Q", "=N", "=B", "=R"};
    int index = promotion_index(flags);
    std::strcat(out,
                settings.uci_mode ? UCI_SUFFIX[index] : CONSOLE_SUFFIX[index]);
}

void move_text(const Position &pos, int side, Move move, char *out) {
    if (move == NO_MOVE)
        std::strcpy(out, "null");
    else
        coord_text(pos, side, move, out);
}

static const char *const PROMOTION_SUFFIX[4] = {"=Q", "=N", "=B", "=R"};

// Pieces of the mover's kind, other than the mover, that reach `to`; pins
// are not considered.
static u64 rival_attackers(const Position &pos, int type, int from, int to) {
    u64 rivals = pos.bitboards[pos.side][type] & ~bit(from);
    u64 occupied = occupied_squares(pos) | bit(to);
    switch (type) {
        case KNIGHT:
            return rivals & knight_attacks[to];
        case BISHOP:
            return rivals & bishop_attacks(to, occupied);
        case ROOK:
            return rivals & rook_attacks(to, occupied);
        case QUEEN:
            return rivals &
                   (bishop_attacks(to, occupied) | rook_attacks(to, occupied));
        default:
            return rivals & king_attacks[to];
    }
}

static void pawn_forms(const Position &pos, Move move, char *coord, char *san,
                       char *alt) {
    int from = move_from(move), to = move_to(move);
    int flags = move & FLAG_MASK;
    const char *suffix = "";
    if (flags) {
        coord[4] = 0;
        suffix = PROMOTION_SUFFIX[promotion_index(flags)];
    }
    if (pos.board[to] || to == pos.ep_sq) {
        std::sprintf(san, "%cx%s", SQUARE_NAMES[from][0], SQUARE_NAMES[to]);
        std::sprintf(alt, "%c%c", SQUARE_NAMES[from][0], SQUARE_NAMES[to][0]);
    } else {
        std::strcpy(san, SQUARE_NAMES[to]);
        alt[0] = 0;
    }
    std::strcat(coord, suffix);
    std::strcat(san, suffix);
    std::strcat(alt, suffix);
}

static void castling_forms(const Position &pos, Move move, char *coord,
                           char *san, char *alt, char *long_form) {
    int from = move_from(move), to = move_to(move);
    bool is_short = move & FLAG_SHORT;
    int rook = pos.castle_rook[2 * pos.side + (is_short ? 0 : 1)];
    const char *rook_name = SQUARE_NAMES[rook < 64 ? rook : to];
    std::strcpy(san, is_short ? "o-o" : "o-o-o");
    std::strcpy(alt, is_short ? "O-O" : "O-O-O");
    if (!is_short)
        std::sprintf(coord, "%s%s", SQUARE_NAMES[from],
                     settings.chess960 ? rook_name : SQUARE_NAMES[to]);
    std::sprintf(long_form, "%s%s", SQUARE_NAMES[from],
                 settings.chess960 ? SQUARE_NAMES[to] : rook_name);
}

// Disambiguation is loose on purpose: a rival on the same file asks for the
// rank, one on the same rank for the file, and rivals on neither leave the
// plain letter, ambiguous as it is.
static void piece_forms(const Position &pos, Move move, char *san, char *alt,
                        char *long_form) {
    int from = move_from(move), to = move_to(move);
    int type = piece_type(pos.board[from]);
    char letter = WHITE_LETTERS[type];
    std::sprintf(san, "%c", letter);
    std::sprintf(alt, "%c%c", letter, SQUARE_NAMES[from][0]);
    std::sprintf(long_form, "%c%c", letter, SQUARE_NAMES[from][1]);
    if (count_bits(pos.bitboards[pos.side][type]) > 1) {
        u64 rivals = rival_attackers(pos, type, from, to);
        bool same_file = false, same_rank = false;
        for (u64 b = rivals; b; b = clear_first_bit(b)) {
            same_file |= file_of(first_bit(b)) == file_of(from);
            same_rank |= rank_of(first_bit(b)) == rank_of(from);
        }
        if (same_file)
            std::strcpy(san, long_form);
        else if (same_rank)
            std::strcpy(san, alt);
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

// The moved (or promoted) piece stands on its target for the test; a
// castling rook stays where it is, and so does a pawn taken en passant.
static bool move_checks(const Position &pos, Move move) {
    int from = move_from(move), to = move_to(move);
    if (from == to) return false;
    int type = piece_type(pos.board[from]);
    int flags = move & FLAG_MASK;
    if (type == PAWN && flags) {
        static constexpr int PROMOTED[4] = {QUEEN, KNIGHT, BISHOP, ROOK};
        type = PROMOTED[promotion_index(flags)];
    }
    Position probe = pos;
    probe.bitboards[pos.side][type] |= bit(to);
    u64 occupied = (occupied_squares(pos) & ~bit(from)) | bit(to);
    return find_least_attacker(probe, pos.king_sq[pos.side ^ 1], pos.side,
                               occupied) != NO_SQUARE;
}

void move_forms(const Position &pos, Move move, char *coord, char *san,
                char *alt, char *long_form) {
    san[0] = alt[0] = long_form[0] = 0;
    if (move == NO_MOVE) {
        std::strcpy(coord, "null");
        return;
    }
    coord_text(pos, pos.side, move, coord);
    int type = piece_type(pos.board[move_from(move)]);
    if (type == PAWN)
        pawn_forms(pos, move, coord, san, alt);
    else if (move & (FLAG_SHORT | FLAG_LONG))
        castling_forms(pos, move, coord, san, alt, long_form);
    else
        piece_forms(pos, move, san, alt, long_form);
    if (move_checks(pos, move)) {
        std::strcat(coord, "+");
        std::strcat(san, "+");
        std::strcat(alt, "+");
        std::strcat(long_form, "+");
    }
}

static void cut_at_plus(char *text) {
    if (char *plus = std::strchr(text, '+')) *plus = 0;
}

// "e8q", "e8Q" and "e8=q" all become "e8=Q".
static void normalise_promotion(char *text) {
    size_t n = std::strlen(text);
    if (n == 0) return;
    char last = text[n - 1];
    if (last >= 'a' && last <= 'z') last = static_cast<char>(last - 32);
    if (last != 'B' && last != 'N' && last != 'Q' && last != 'R') return;
    if (n < 2 || text[n - 2] != '=') {
        text[n - 1] = '=';
        text[n] = last;
        text[n + 1] = 0;
    } else {
        text[n - 1] = last;
    }
}

static bool matches_a_form(const Position &pos, Move move, const char *text) {
    char forms[4][24];
    move_forms(pos, move, forms[0], forms[1], forms[2], forms[3]);
    for (char *form : forms) {
        cut_at_plus(form);
        if (std::strcmp(form, text) == 0) return true;
    }
    return false;
}

int parse_move(char *text, Move *out_move) {
    // 1.-3.
    *out_move = NO_MOVE;
    cut_at_plus(text);
    normalise_promotion(text);
    for (char *c = text; *c; c++)
        if (*c == 'O' || *c == '0') *c = 'o';

    // 4.
    Worker *w = front_worker;
    Position &pos = w->position;
    i16 saved_ply = w->ply;
    w->ply = 1;
    generate_all(pos);

    // 5.
    int count = 0;
    for (MoveEntry *e = w->plies[1].list_start; e->move != END_OF_LIST; e++)
        if (matches_a_form(pos, e->move, text) &&
            legal_move(pos, pos.side, e->move)) {
            count++;
            *out_move = e->move;
        }
    w->ply = saved_ply;

    // 6.
    if (count == 2) std::puts("ambiguous move");
    if (count == 1) return 1;
    *out_move = NO_MOVE;
    return 0;
}
