// The board as text, one rank a row, and the evaluation of the game's
// position.
#include <cstdio>
#include <cstring>

#include "console.h"
#include "core/output.h"
#include "eval/eval.h"
#include "position/notation.h"
#include "search/search.h"

static char piece_mark(int piece) {
    // Black pawns read as 'o' so they stand out from the empty squares.
    static constexpr char WHITE[] = " PNBRQK";
    static constexpr char BLACK[] = " onbrqk";
    int type = piece & 7;
    if (type < 1 || type > 6) return '?';
    return piece & 8 ? BLACK[type] : WHITE[type];
}

void print_board(const Position &pos) {
    // FEN (at most 93) + 8 rows of 17 + line ends + side.
    char text[FEN_BUFFER_SIZE + 8 * 18 + 16];
    get_fen(pos, text, 1);
    char *out = text + std::strlen(text);
    *out++ = '\n';
    for (int rank = 7; rank >= 0; rank--) {
        *out++ = ' ';
        for (int file = 0; file < 8; file++) {
            int piece = pos.board[rank * 8 + file];
            *out++ = ' ';
            if (piece)
                *out++ = piece_mark(piece);
            else
                *out++ = (rank & 1) != (file & 1) ? '-' : '+';
        }
        *out++ = '\n';
    }
    std::strcpy(out, pos.side ? "black" : "white");
    print_line(text);
}

void show_eval() {
    const Worker *w = front_worker;
    int ply = w->hist_index;
    if (ply > 0) {
        Move last = w->states[ply - 1].move;
        // With White to move the last move was Black's.
        std::printf("last move was ");
        std::printf(w->position.side == WHITE ? "%d... %s%s\n" : "%d. %s%s\n",
                    (ply + 1) / 2, SQUARE_NAMES[move_from(last)],
                    SQUARE_NAMES[move_to(last)]);
    }
    evaluation_trace(front_worker, 1);
}
