// Packing positions into training records and reading them back.
#include "train_record.h"

#include <cmath>
#include <cstdio>

#include "position/notation.h"

double win_probability(int score) {
    // Single-precision product, double-precision exponent.
    f32 x = -0.006f * static_cast<f32>(score);
    return 1.0 / (1.0 + std::exp(static_cast<double>(x)));
}

i16 result_logit(double g) {
    if (!(g >= 0.00001)) return -RESULT_LOGIT_WIN;
    if (g > 0.99999) return RESULT_LOGIT_WIN;
    f32 quotient = static_cast<f32>(1.0 / g - 1.0);
    double v = std::trunc(-166.66667 * std::log(static_cast<double>(quotient)));
    return static_cast<i16>(v);
}

TrainRecord pack_position(const Position &pos) {
    TrainRecord r{};
    for (int i = 0; i < 32; i++)
        r.board[i] = static_cast<u8>((pos.board[2 * i] & 15) |
                                     (pos.board[2 * i + 1] & 15) << 4);
    r.side_rights =
        static_cast<u8>((pos.side & 15) << 4 | (pos.castle_rights & 15));
    r.ep = pos.ep_sq;
    return r;
}

static int record_piece(const TrainRecord &r, int sq) {
    int code = (r.board[sq >> 1] >> ((sq & 1) * 4)) & 15;
    int type = code & 7;
    return type >= PAWN && type <= KING ? code : 0;
}

bool record_has_kings(const TrainRecord &r) {
    bool white = false, black = false;
    for (int sq = 0; sq < 64; sq++) {
        white |= record_piece(r, sq) == make_piece(KING, WHITE);
        black |= record_piece(r, sq) == make_piece(KING, BLACK);
    }
    return white && black;
}

void record_fen(const TrainRecord &r, char *out) {
    static constexpr char LETTERS[] = " PNBRQK  pnbrqk ";
    char *o = out;
    for (int rank = 7; rank >= 0; rank--) {
        int empty = 0;
        for (int file = 0; file < 8; file++) {
            int piece = record_piece(r, rank * 8 + file);
            if (!piece) {
                empty++;
                continue;
            }
            if (empty) *o++ = static_cast<char>('0' + empty);
            empty = 0;
            *o++ = LETTERS[piece];
        }
        if (empty) *o++ = static_cast<char>('0' + empty);
        if (rank) *o++ = '/';
    }
    *o++ = ' ';
    *o++ = (r.side_rights >> 4) & 1 ? 'b' : 'w';
    *o++ = ' ';
    int rights = r.side_rights & 15;
    if (rights & 1) *o++ = 'K';
    if (rights & 2) *o++ = 'Q';
    if (rights & 4) *o++ = 'k';
    if (rights & 8) *o++ = 'q';
    if (!rights) *o++ = '-';
    *o++ = ' ';
    if (r.ep < 64) {
        *o++ = SQUARE_NAMES[r.ep][0];
        *o++ = SQUARE_NAMES[r.ep][1];
    } else {
        *o++ = '-';
    }
    *o = 0;
}

void set_record_position(Position &pos, const TrainRecord &r) {
    char fen[FEN_BUFFER_SIZE];
    record_fen(r, fen);
    set_fen(pos, fen);
}
