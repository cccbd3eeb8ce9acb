// Replaying a scanned game and writing what the selector asks for: an
// annotated listing with blunder marks, or EPD lines for tuning.
#include <cstdlib>
#include <cstring>

#include "core/settings.h"
#include "core/status.h"
#include "pgn.h"
#include "position/notation.h"
#include "search/search.h"

constexpr int SCORE_TEXT_LIMIT = 63;

// What one ply of the game looks like to the selectors.
struct PgnPly {
    const PgnMove *moves;
    int count;
    int index;
    int result;
    Position *pos;
};

static int score_at(const PgnPly &p, int i) { return p.moves[i].score; }

// The blunder test of the listing: the opponent's scores after the move
// (plies i + 1, i + 3, i + 7) all rise well above his score before it.
static bool looks_like_blunder(const PgnPly &p) {
    int i = p.index;
    if (!(11 < i && i < p.count - 10)) return false;
    int before = score_at(p, i - 1);
    int q = score_at(p, i + 1), r = score_at(p, i + 3), u = score_at(p, i + 7);
    if (before < -999 || before > 249 || u < -999) return false;
    int margin = std::abs(before) / 10;
    return q - before > margin + 30 && r - before > margin + 30 &&
           u - before > margin + 50;
}

// The score text is cut at its limit.
static void append_text(char *text, const char *more) {
    size_t used = std::strlen(text);
    while (used < SCORE_TEXT_LIMIT && *more) text[used++] = *more++;
    text[used] = 0;
}

// Selector 1: one line a ply, "  7. Nf3     { 0.25}", with " ! " lines
// (the position before the answer to a blunder) copied to `aux`.
static int emit_listing(FILE *out, FILE *aux, const PgnPly &p, bool &marked) {
    int i = p.index, s = score_at(p, i);
    bool black = i % 2 == 1;
    char number[16], text[SCORE_TEXT_LIMIT + 1] = "";
    // 1. The move number and the score
    if (black)
        std::snprintf(number, sizeof number, "     ");
    else
        std::snprintf(number, sizeof number, "%3d. ", i / 2 + 1);
    if (s > PGN_FIRST_UNSET)
        std::snprintf(text, sizeof text, "%6.2f", (black ? -s : s) / 100.0);
    char fen[FEN_BUFFER_SIZE], epd[FEN_BUFFER_SIZE + 32];
    get_fen(*p.pos, fen, 1);
    int written = 0;
    // 2. The answer to a blunder, as a best-move record
    if (marked) {
        append_text(text, " ! ");
        std::snprintf(epd, sizeof epd, "%s bm %s;", fen, p.moves[i].text);
        append_text(text, epd);
        std::fprintf(aux, "%s\n", epd);
        written++;
        marked = false;
    }
    // 3. A blunder, as an avoid-move record
    if (looks_like_blunder(p)) {
        append_text(text, " ? ");
        std::snprintf(epd, sizeof epd, "%s am %s;", fen, p.moves[i].text);
        append_text(text, epd);
        marked = true;
    }
    // 4. The line
    std::fprintf(out, "%s %-6s  {%s}\n", number, p.moves[i].text, text);
    return written;
}

// Selector 2: evaluated positions, the game's result as the target from
// the side to move.
static int emit_tuning(FILE *out, const PgnPly &p) {
    int i = p.index, s = score_at(p, i);
    if (i > p.count - 5) return 0;
    if ((i < 20 && s == 0) || i > 279 || p.pos->cnt50 > 40 || s < -19999 ||
        s > 19999)
        return 0;
    double target = p.result == PGN_WHITE_WON   ? 1.0
                    : p.result == PGN_BLACK_WON ? 0.0
                                                : 0.5;
    char fen[FEN_BUFFER_SIZE];
    get_fen(*p.pos, fen, 0);
    std::fprintf(out, "%s ce %d; gr %0.1f;\n", fen, s,
                 i % 2 == 0 ? target : 1.0 - target);
    return 1;
}

// Selector 3: the opening while neither side is clearly ahead.  The
// parity of the ply, not the side to move, says whose king is looked at.
static int emit_opening(FILE *out, const PgnPly &p) {
    int i = p.index;
    int side = i % 2;
    if (i >= 251 || square_attacked(*p.pos, p.pos->king_sq[side], side ^ 1))
        return 0;
    char fen[FEN_BUFFER_SIZE];
    get_fen(*p.pos, fen, 1);
    std::fprintf(out, "%s bm %s; ce %d;\n", fen, p.moves[i].text,
                 score_at(p, i));
    return 1;
}

// Selector 4: a rook each and one pawn on the board.
static int emit_ending(FILE *out, const PgnPly &p) {
    const Position &pos = *p.pos;
    int pawns = (pos.material_sig[0] & 15) + (pos.material_sig[1] & 15);
    if (pos.piece_points[0] != 5 || pos.piece_points[1] != 5 || pawns != 1)
        return 0;
    double value = 0.5;
    if (p.result != PGN_OTHER_RESULT) value = p.result == pos.side ? 1.0 : 0.0;
    char fen[FEN_BUFFER_SIZE];
    get_fen(pos, fen, 1);
    std::fprintf(out, "%s bm %s; ce %d; tune %0.5f;\n", fen,
                 p.moves[p.index].text, score_at(p, p.index), value);
    return 1;
}

void pgn_emit(FILE *out, FILE *aux, const PgnMove *moves, int count,
              const char *start_fen, int selector, int result, int *written) {
    *written = 0;
    Position &pos = front_worker->position;
    set_fen(pos, start_fen && start_fen[0] ? start_fen : START_FEN);
    status.use_hash = 0;
    settings.max_depth = selector == 2 ? 1 : 0;
    settings.noise = 9999.0f;
    if (selector == 2 && count < 5) return;
    bool marked = false;
    for (int i = 0; i < count && i < PGN_MAX_MOVES; i++) {
        // The reader may insert a '=' before a promotion letter.
        char san[sizeof moves[i].text + 2];
        std::snprintf(san, sizeof san, "%s", moves[i].text);
        Move m = NO_MOVE;
        if (!parse_move(san, &m)) break;
        PgnPly p{moves, count, i, result, &pos};
        if (selector == 1) *written += emit_listing(out, aux, p, marked);
        if (selector == 2) *written += emit_tuning(out, p);
        if (selector == 3) *written += emit_opening(out, p);
        if (selector == 4) *written += emit_ending(out, p);
        // The undo stack is deep enough for the longest game held.
        make_move(pos, m);
        if (selector == 3 && std::abs(score_at(p, i)) > 500) break;
    }
    if (selector == 1) std::fputs("\n", out);
}
