// `edit`: a position built line by line from standard input.  A line
// names a colour and then men on squares ("w Ke1 Qd1"); '#' clears the
// board first; '.' or the end of the input ends the edit.
#include <cctype>
#include <cstdio>
#include <cstring>

#include "console.h"
#include "position/notation.h"
#include "protocol.h"
#include "search/search.h"

constexpr int EDIT_LINE = 78;

// The board being edited, as FEN letters ('.' for empty) by square, and
// the colour the last colour line named.
struct EditBoard {
    char square[64];
    int side;
};

static void clear_board(EditBoard &b) {
    std::memset(b.square, '.', sizeof b.square);
    b.side = WHITE;
}

static void read_position(EditBoard &b, const Position &pos) {
    static constexpr char WHITE_MEN[] = ".PNBRQK.";
    static constexpr char BLACK_MEN[] = ".pnbrqk.";
    for (int sq = 0; sq < 64; sq++) {
        int piece = pos.board[sq];
        b.square[sq] = piece_colour(piece) ? BLACK_MEN[piece_type(piece)]
                                           : WHITE_MEN[piece_type(piece)];
    }
    b.side = pos.side & 1;
}

// One token: a man's letter and a square.  False for a square off the
// board, which ends the line.
static bool place(EditBoard &b, const char *token) {
    if (std::strlen(token) < 3) return false;
    int file = token[1] - 'a', rank = token[2] - '1';
    if (file < 0 || file > 7 || rank < 0 || rank > 7) return false;
    int sq = file + 8 * rank;
    b.square[sq] = '.';
    char letter =
        static_cast<char>(std::toupper(static_cast<unsigned char>(token[0])));
    if (std::strchr("PNBRQK", letter))
        b.square[sq] =
            b.side == WHITE ? letter : static_cast<char>(std::tolower(letter));
    return true;
}

static void edit_line(EditBoard &b, char *line) {
    if (line[0] == '#') {
        clear_board(b);
        line++;
    }
    char *save = nullptr;
    char *token = strtok_r(line, " \t", &save);
    if (!token || (token[0] != 'w' && token[0] != 'b')) return;
    b.side = token[0] == 'w' ? WHITE : BLACK;
    while ((token = strtok_r(nullptr, " \t", &save)))
        if (!place(b, token)) return;
}

// The board goes in as a FEN, whose reader keeps every rule of a sound
// position (at most 16 men a side); castling as far as the men allow.
static void set_edited_position(const EditBoard &b) {
    char fen[FEN_BUFFER_SIZE + 16];
    char *out = fen;
    for (int rank = 7; rank >= 0; rank--) {
        int run = 0;
        for (int file = 0; file < 8; file++) {
            char man = b.square[file + 8 * rank];
            if (man == '.') {
                run++;
                continue;
            }
            if (run) *out++ = static_cast<char>('0' + run);
            run = 0;
            *out++ = man;
        }
        if (run) *out++ = static_cast<char>('0' + run);
        if (rank) *out++ = '/';
    }
    std::snprintf(out, 16, " %c KQkq -", b.side == WHITE ? 'w' : 'b');
    set_fen(front_worker->position, fen);
    front_worker->ply = 1;
}

void edit_command() {
    std::printf("\n\n");
    std::printf(".                    end edit\n");
    std::printf("#                    clear board\n");
    std::printf("w  Pa2 Pb2 Kc2       white, pieces\n");
    std::printf("b  Pa7 Pb7 Kc7       black, pieces\n");
    static EditBoard board;
    read_position(board, front_worker->position);
    char line[EDIT_LINE + 1];
    while (wait_for_line(line, sizeof line) && line[0] != '.')
        edit_line(board, line);
    set_edited_position(board);
    print_board(front_worker->position);
}
