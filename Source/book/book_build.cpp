// -mkbook: a PGN collection becomes a book file.  Every game is replayed
// from the start position for about 36 plies; wins, losses and draws of
// each (position, move) pair are counted in a table of sorted bucket
// lists, and the table is written in key order as "tmp_book.bin".
//
// This reader is not the PGN scanner's (-scan_pgn1..4), on purpose: it
// reads lines of 1023 characters, knows only the Result and FEN tags,
// splits braces and parentheses into tokens of their own and counts their
// depth, and reads a token's move from its first letter on; the scanner
// reads lines of 255 characters, keeps comment texts for their scores and
// takes a move from every letter outside a comment.
#include <algorithm>
#include <cctype>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "book.h"
#include "core/output.h"
#include "core/settings.h"
#include "core/status.h"
#include "position/notation.h"

constexpr const char *BOOK_OUTPUT = "tmp_book.bin";
constexpr int BUCKETS = 16384;
constexpr int BUCKET_SHIFT = 50;
constexpr int LINE_SIZE = 1024;  // 1023 characters and the terminator
constexpr int LAST_COUNTED_PLY = 35;
constexpr int RUN_SIZE = 128;

// One (position, move) pair and its games.
struct BookNode {
    u64 key;
    u32 wins;
    u32 losses;
    u32 draws;
    u16 move;
    BookNode *next;
};

// Results of a game as the builder keeps them.
constexpr int WHITE_WON = 0;
constexpr int BLACK_WON = 1;
constexpr int DRAWN = 2;
constexpr int SKIP_GAME = 3;

struct BookBuild {
    BookNode *buckets[BUCKETS];
    int ngames;
    int nmoves;
    int records;
    int result;
    int comment_depth;
    int variation_depth;
    int book_ply;
    int game_dead;
    bool out_of_memory;
};

// Finds the node of (key, move) in its bucket, or links a new one in at
// the place that keeps the list sorted by key; nodes of one key stay in
// the order their moves were first seen.
static BookNode *find_node(BookBuild &b, u64 key, Move move, bool &created) {
    BookNode **link = &b.buckets[key >> BUCKET_SHIFT];
    while (*link && (*link)->key < key) link = &(*link)->next;
    while (*link && (*link)->key == key) {
        if ((*link)->move == move) {
            created = false;
            return *link;
        }
        link = &(*link)->next;
    }
    auto *node = static_cast<BookNode *>(std::calloc(1, sizeof(BookNode)));
    if (!node) return nullptr;
    node->key = key;
    node->move = move;
    node->next = *link;
    *link = node;
    created = true;
    return node;
}

// Steps 5-8 of a token: the move is read, made and counted.
static void count_move(BookBuild &b, Position &pos, const char *text) {
    // 5. The position's key; the result from the mover's side
    u64 key = book_key(pos);
    int sign = 0;
    if (b.result == WHITE_WON) sign = pos.side == WHITE ? 1 : -1;
    if (b.result == BLACK_WON) sign = pos.side == BLACK ? 1 : -1;
    // 6. The reader may insert a '=' before a promotion letter.
    char san[LINE_SIZE + 2];
    std::snprintf(san, LINE_SIZE, "%s", text);
    Move move = NO_MOVE;
    if (!parse_move(san, &move)) {
        b.game_dead = 1;
        return;
    }
    // 7. Make the move
    b.book_ply++;
    make_move(pos, move);
    // 8. Count the game for this position and move
    bool created = false;
    BookNode *node = find_node(b, key, move, created);
    if (!node) {
        b.out_of_memory = true;
        return;
    }
    if (created) b.nmoves++;
    if (sign > 0) node->wins++;
    if (sign < 0) node->losses++;
    if (sign == 0) node->draws++;
}

// Steps 1-8 for one token of movetext.
static void read_token(BookBuild &b, Position &pos, char *token) {
    // 1. Skip annotation glyphs and rest-of-line comments
    if (token[0] == '$' || token[0] == ';') return;
    // 2. Track the depth of comments and variations
    if (token[0] == '{') b.comment_depth++;
    if (token[0] == '}') b.comment_depth--;
    if (token[0] == '(') b.variation_depth++;
    if (token[0] == ')') b.variation_depth--;
    // 3. Only the main line counts
    if (b.comment_depth || b.variation_depth) return;
    // 4. Past the move number to the move; "0-0" castles with zeros.
    const char *p = token;
    while (*p && !std::isalpha(static_cast<unsigned char>(*p)) &&
           !(p[0] == '0' && p[1] == '-'))
        p++;
    if (!*p) return;
    count_move(b, pos, p);
}

static bool is_bracket(char c) {
    return c == '{' || c == '}' || c == '(' || c == ')';
}

// Step 5 of a line: blanks separate tokens, each brace or parenthesis is
// a token of its own, and control characters are dropped.
static void read_movetext(BookBuild &b, Position &pos, const char *line) {
    char token[LINE_SIZE];
    int n = 0;
    auto flush = [&] {
        token[n] = 0;
        if (n && !b.game_dead && !b.out_of_memory) read_token(b, pos, token);
        n = 0;
    };
    for (const char *c = line; *c; c++) {
        if (*c == ' ') {
            flush();
        } else if (is_bracket(*c)) {
            flush();
            token[n++] = *c;
            flush();
        } else if (static_cast<unsigned char>(*c) >= 32) {
            token[n++] = *c;
        }
    }
    flush();
}

// A "[Result " line starts a game: the start position, and the result
// that every move of the game is counted with.
static void start_game(BookBuild &b, Position &pos, const char *line) {
    set_fen(pos, START_FEN);
    if (++b.ngames % 1024 == 0) {
        std::fputs(".", stdout);
        std::fflush(stdout);
    }
    if (std::strstr(line, "1-0"))
        b.result = WHITE_WON;
    else if (std::strstr(line, "0-1"))
        b.result = BLACK_WON;
    else if (std::strstr(line, "1/2"))
        b.result = DRAWN;
    else
        b.result = SKIP_GAME;
    b.comment_depth = b.variation_depth = b.book_ply = b.game_dead = 0;
}

static void read_line(BookBuild &b, Position &pos, char *line) {
    // The last character is the newline.
    size_t length = std::strlen(line);
    if (length) line[length - 1] = 0;
    // 1. A Result tag starts a game
    if (std::strstr(line, "[Result ")) start_game(b, pos, line);
    // 2. A set-up position adds nothing; PGN puts this tag after Result.
    if (std::strstr(line, "[FEN ")) b.result = SKIP_GAME;
    // 3. Inside a comment such lines are movetext.
    if (b.comment_depth == 0 && (line[0] == ';' || line[0] == '[')) return;
    // 4. The ply bound is tested once a line.
    if (b.result == SKIP_GAME || b.book_ply > LAST_COUNTED_PLY) return;
    // 5. The moves
    read_movetext(b, pos, line);
}

// The record's move field of a played move: castling as the king taking
// its own rook, judged by the squares alone, and the promotion field from
// the flags.  The castling flags stay, so a short castling record carries
// field 4 and a long one field 1; the lookup reads both forms.
static u16 record_move(Move m) {
    constexpr int E1 = 4, C1 = 2, G1 = 6, E8 = 60, C8 = 58, G8 = 62;
    int from = move_from(m), to = move_to(m);
    if ((from == E1 && to == G1) || (from == E8 && to == G8)) to = from + 3;
    if ((from == E1 && to == C1) || (from == E8 && to == C8)) to = from - 4;
    int promotion = 0;
    if (m & FLAG_KNIGHT) promotion = 1;
    if (m & FLAG_BISHOP) promotion = 2;
    if (m & FLAG_ROOK) promotion = 3;
    if (m & FLAG_QUEEN) promotion = 4;
    return static_cast<u16>(to | (from << 6) | (promotion << 12));
}

// The weight of a score: the score read as unsigned, scaled, truncated to
// a signed 32-bit number and cut to 16 bits.  A product out of the signed
// range gives 0x80000000, as the processor's conversion does, and so a
// weight of 0: a negative score's record is written with weight 0.
static u16 record_weight(i32 score, double scale) {
    double product = static_cast<double>(static_cast<u32>(score)) * scale;
    i32 weight = product >= 2147483648.0 || product < -2147483648.0
                     ? INT32_MIN
                     : static_cast<i32>(product);
    return static_cast<u16>(static_cast<u32>(weight) & 0xFFFF);
}

static void write_record(FILE *out, const BookEntry &e) {
    u8 bytes[BOOK_RECORD_SIZE];
    for (int i = 0; i < 8; i++)
        bytes[i] = static_cast<u8>(e.key >> (56 - 8 * i));
    bytes[8] = static_cast<u8>(e.move >> 8);
    bytes[9] = static_cast<u8>(e.move);
    bytes[10] = static_cast<u8>(e.weight >> 8);
    bytes[11] = static_cast<u8>(e.weight);
    for (int i = 0; i < 4; i++)
        bytes[12 + i] = static_cast<u8>(e.learn >> (24 - 8 * i));
    std::fwrite(bytes, 1, sizeof bytes, out);
}

// Steps 1-6 for the run of nodes of one key, from `first` up to `end`.
static void write_run(BookBuild &b, FILE *out, const BookNode *first,
                      const BookNode *end) {
    BookEntry run[RUN_SIZE];
    i32 score[RUN_SIZE];
    int kept = 0;
    i32 best = 0;
    // 1-2. At least five games not lost, and more of them than losses.  A
    // run longer than the working array keeps its first 128 good moves.
    for (const BookNode *n = first; n != end && kept < RUN_SIZE; n = n->next) {
        if (n->wins + n->draws <= std::max<u32>(4, n->losses)) continue;
        score[kept] = static_cast<i32>(4 * n->wins - 2 * n->losses + n->draws);
        run[kept] = BookEntry{n->key, record_move(n->move), 0, 0};
        best = std::max(best, score[kept]);
        kept++;
    }
    // 3. Scale the best score to at most 60000
    if (!kept) return;
    double scale = best > 0 ? std::min(60000.0 / best, 1.0) : 1.0;
    // 4. The weights
    for (int i = 0; i < kept; i++)
        run[i].weight = record_weight(score[i], scale);
    // 5. The keys of a run are equal: heavier moves first.  The order of
    // equal weights is free; a stable sort keeps the order of first sight.
    std::stable_sort(
        run, run + kept, [](const BookEntry &x, const BookEntry &y) {
            return x.key != y.key ? x.key < y.key : x.weight > y.weight;
        });
    // 6. Write the run
    for (int i = 0; i < kept; i++) write_record(out, run[i]);
    b.records += kept;
}

// Buckets in index order and keys in list order are keys in ascending
// order: the file comes out sorted with no sort of the whole.
// False when the file could not be created or written whole.
static bool write_book(BookBuild &b) {
    std::fputs("\nwriting book file ...", stdout);
    std::fflush(stdout);
    std::remove(BOOK_OUTPUT);
    FILE *out = std::fopen(BOOK_OUTPUT, "wb");
    for (int i = 0; out && i < BUCKETS; i++) {
        const BookNode *n = b.buckets[i];
        while (n) {
            const BookNode *end = n;
            while (end && end->key == n->key) end = end->next;
            write_run(b, out, n, end);
            n = end;
        }
    }
    bool ok = out != nullptr;
    if (out) {
        bool failed = std::ferror(out) != 0;
        if (std::fclose(out) != 0 || failed) ok = false;
    }
    std::printf("\nngames= %d, nmoves= %d\n", b.ngames, b.nmoves);
    std::printf("book contains %d moves\n", b.records);
    print_line("done\n");
    return ok;
}

static void free_nodes(BookBuild &b) {
    for (BookNode *&head : b.buckets) {
        while (head) {
            BookNode *next = head->next;
            std::free(head);
            head = next;
        }
    }
}

bool make_book(const char *pgn_file) {
    FILE *in = std::fopen(pgn_file, "r");
    if (!in) return false;
    char text[256];
    std::snprintf(text, sizeof text,
                  " Creating file tmp_book.bin from games in %s", pgn_file);
    print_line(text);
    auto *b = static_cast<BookBuild *>(std::calloc(1, sizeof(BookBuild)));
    if (!b) {
        std::fclose(in);
        return false;
    }
    b->result = DRAWN;
    // Movetext before the first Result tag belongs to no game: on an empty
    // board no move reads, so it ends as a dead game and adds nothing.
    Position &pos = game_board->position;
    set_fen(pos, "8/8/8/8/8/8/8/8 w - -");
    char line[LINE_SIZE];
    while (!b->out_of_memory && std::fgets(line, sizeof line, in))
        read_line(*b, pos, line);
    // A folder opens but does not read.
    bool ok = !std::ferror(in);
    std::fclose(in);
    // A failed allocation ends the tool with nothing further written.
    ok = !b->out_of_memory && write_book(*b) && ok;
    free_nodes(*b);
    std::free(b);
    return ok;
}
