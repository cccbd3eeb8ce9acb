// Which book the think cycle asks, and the console's look at both books.
#include "book.h"
#include "core/output.h"
#include "core/settings.h"
#include "core/status.h"
#include "position/notation.h"

// A lapsed fifty-move counter keeps every book out.
constexpr int BOOK_CNT50_LIMIT = 100;

// Steps 1-3: the main book within its depth; the second book when the
// main one has nothing or is past its depth, as long as the second book's
// own depth allows it.
static Move probe_books(Position &pos) {
    // 1. Books off, or the fifty-move counter lapsed
    if (!settings.own_book || pos.cnt50 > BOOK_CNT50_LIMIT) return NO_MOVE;
    int ply = pos.history ? pos.history->hist_index : 0;
    // 2. The main book, within its depth
    if (ply < settings.book_depth) {
        Move m = book_probe(pos, settings.book_file);
        if (m != NO_MOVE) return m;
    }
    // 3. The second book, within its own depth
    if (ply >= settings.book2_depth) return NO_MOVE;
    return book_probe(pos, settings.book2_file);
}

Move think_book_move() {
    Position &pos = game_board->position;
    Move m = probe_books(pos);
    if (m == NO_MOVE) return NO_MOVE;
    // 4. A book move into a repetition is left to the search.
    make_move(pos, m);
    int repeats = is_draw(pos, 0);
    unmake_move(pos);
    if (repeats) return NO_MOVE;
    // 5. Announce the book move
    char text[MOVE_TEXT_SIZE], line[64];
    move_text(pos, pos.side, m, text);
    std::snprintf(line, sizeof line, "%s book move is %s",
                  settings.uci_mode ? "info string" : "", text);
    print_line(line);
    return m;
}

void show_book_moves() {
    Position &pos = game_board->position;
    book_probe(pos, settings.book_file);
    print_line("");
    book_probe(pos, settings.book2_file);
    print_line("");
}
