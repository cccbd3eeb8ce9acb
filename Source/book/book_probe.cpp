// The lookup: every probe opens the book file, binary-searches it with
// seeks, reads the records of the position, draws one by weight and closes
// the file again.  Nothing is cached between probes.
#include <climits>
#include <cstring>
#include <ctime>

#include "book.h"
#include "core/output.h"
#include "core/settings.h"
#include "core/status.h"
#include "position/notation.h"

u32 book_seed;
u8 book_seed_set;

constexpr f32 SILENT_NOISE = 9999.0f;

int read_book_entry(FILE *file, BookEntry &entry) {
    u64 bytes[BOOK_RECORD_SIZE];
    for (u64 &b : bytes) {
        int c = std::fgetc(file);
        if (c == EOF) return 1;
        b = static_cast<u64>(c);
    }
    entry.key = 0;
    for (int i = 0; i < 8; i++) entry.key = (entry.key << 8) | bytes[i];
    entry.move = static_cast<u16>((bytes[8] << 8) | bytes[9]);
    entry.weight = static_cast<u16>((bytes[10] << 8) | bytes[11]);
    entry.learn = static_cast<u32>((bytes[12] << 24) | (bytes[13] << 16) |
                                   (bytes[14] << 8) | bytes[15]);
    return 0;
}

Move book_move_from_record(u16 record_move) {
    constexpr int E1 = 4, A1 = 0, H1 = 7, E8 = 60, A8 = 56, H8 = 63;
    int to = record_move & 63;
    int from = (record_move >> 6) & 63;
    int promotion = (record_move >> 12) & 7;
    // The squares alone decide castling: no king is looked for here, and a
    // rook's e1-h1 record turns into a castling move the legality test
    // then refuses.
    u16 flag = 0;
    if ((from == E1 && to == H1) || (from == E8 && to == H8)) {
        to = from + 2;
        flag = FLAG_SHORT;
    } else if ((from == E1 && to == A1) || (from == E8 && to == A8)) {
        to = from - 2;
        flag = FLAG_LONG;
    }
    constexpr u16 PROMOTION_FLAG[8] = {
        0, FLAG_KNIGHT, FLAG_BISHOP, FLAG_ROOK, FLAG_QUEEN, 0, 0, 0};
    if (PROMOTION_FLAG[promotion]) flag = PROMOTION_FLAG[promotion];
    return make_move_code(from, to, flag);
}

// The records of one position, in file order.
struct Candidates {
    BookEntry entry[BOOK_MAX_CANDIDATES];
    i32 adjusted[BOOK_MAX_CANDIDATES];
    int count;
    i32 total;
    i32 adjusted_sum;
};

// Seeks to record `index`; false past what a 32-bit offset reaches.
static bool seek_record(FILE *file, long index) {
    return std::fseek(file, index * BOOK_RECORD_SIZE, SEEK_SET) == 0;
}

// Steps 3-6: the binary search for the first record of `key`, then the run
// of records with that key.  False when the key is not in the book.
static bool find_records(FILE *file, u64 key, Candidates &c) {
    // 3. A file shorter than a record has no last record.
    if (std::fseek(file, -BOOK_RECORD_SIZE, SEEK_END) != 0) return false;
    long last = std::ftell(file);
    // Offsets are 32-bit: a larger file is no book.
    if (last < 0 || last > INT_MAX - BOOK_RECORD_SIZE) return false;
    i32 hi = static_cast<i32>(last / BOOK_RECORD_SIZE), lo = -1;
    BookEntry best{};
    if (!seek_record(file, hi) || read_book_entry(file, best)) return false;
    // 4. Unsorted records still end the loop: hi - lo shrinks every round.
    while (hi - lo != 1) {
        i32 mid = (lo + hi) / 2;
        BookEntry probe{};
        seek_record(file, mid);
        read_book_entry(file, probe);
        if (probe.key >= key) {
            best = probe;
            hi = mid;
        } else {
            lo = mid;
        }
    }
    // 5. The key is not in the book
    if (best.key != key) return false;
    // 6. The rest of a run longer than the array is ignored.
    c.entry[0] = best;
    c.count = 1;
    if (!seek_record(file, static_cast<long>(hi) + 1)) return true;
    BookEntry next{};
    while (c.count < BOOK_MAX_CANDIDATES && !read_book_entry(file, next) &&
           next.key == key)
        c.entry[c.count++] = next;
    return true;
}

// Steps 7-9: the total, the variety's bias and each record's share of
// 10000.  False when the weights sum to 0.
static bool weigh(Candidates &c) {
    c.total = 0;
    for (int i = 0; i < c.count; i++) c.total += c.entry[i].weight;
    if (c.total == 0) return false;
    // The first record in file order is the best one of a built book: lower
    // variety takes a share of its weight from every move, higher variety
    // gives that share to every move.
    i32 bias = static_cast<i32>((settings.book_variety - 25) *
                                (c.entry[0].weight * 0.01));
    c.adjusted_sum = 0;
    for (int i = 0; i < c.count; i++) {
        i32 a = ((c.entry[i].weight + bias) * 10000) / c.total;
        c.adjusted[i] = a < 0 ? 0 : a;
        c.adjusted_sum += c.adjusted[i];
    }
    return true;
}

// Step 10: the next number of the book's own generator.
static i32 draw_pick(i32 adjusted_sum) {
    book_seed = book_seed * 12345u + 76543u;
    u32 r = book_seed % 1000u;
    return static_cast<i32>(r * 0.001 * adjusted_sum);
}

static void square_pair(Move m, char *out, size_t size) {
    std::snprintf(out, size, "%s%s", SQUARE_NAMES[move_from(m)],
                  SQUARE_NAMES[move_to(m)]);
}

static bool console_silent() {
    return !settings.uci_mode && settings.noise >= SILENT_NOISE;
}

// One candidate: appended to the UCI line, or a line of its own.
static void show_candidate(const Candidates &c, int i, Move m, char *line,
                           size_t size) {
    char text[8];
    square_pair(m, text, sizeof text);
    if (settings.uci_mode) {
        size_t used = std::strlen(line);
        std::snprintf(line + used, size - used, "%s ", text);
        return;
    }
    if (console_silent()) return;
    double share =
        c.adjusted_sum ? c.adjusted[i] * 100.0 / c.adjusted_sum : 0.0;
    char out[96];
    std::snprintf(out, sizeof out, "  %s  cnt= %5d, weight= %5.2f%% -> %5.2f%%",
                  text, c.entry[i].weight, c.entry[i].weight * 100.0 / c.total,
                  share);
    print_line(out);
}

// A record's move comes from outside: the legality test trusts a move the
// generator made, so the move must also be one of the position's own.
static bool position_allows(Position &pos, Move m) {
    if (!legal_move(pos, pos.side, m)) return false;
    Move moves[MAX_MOVES];
    int n = legal_moves(pos, moves);
    for (int i = 0; i < n; i++)
        if (moves[i] == m) return true;
    return false;
}

Move book_probe(Position &pos, const char *file_name) {
    // 1. No book file, no move
    if (!file_name || !file_name[0]) return NO_MOVE;
    FILE *file = std::fopen(file_name, "rb");
    if (!file) return NO_MOVE;
    // 2. Seed the generator once, from the clock
    if (!book_seed_set) {
        book_seed = static_cast<u32>(std::time(nullptr));
        book_seed_set = 1;
    }
    // 3-6. The records of this position
    Candidates c;
    bool found = find_records(file, book_key(pos), c);
    std::fclose(file);
    // 7-9. Weigh them
    if (!found || !weigh(c)) return NO_MOVE;
    // 10. Draw a number
    i32 pick = draw_pick(c.adjusted_sum);
    // 11. The last record before the running sum reaches the pick; with a
    // pick of 0 the first slot stays chosen, whatever its weight.
    char line[1024] = "info string ( book moves are: ";
    int chosen = 0;
    i32 cumulative = 0;
    for (int i = 0; i < c.count; i++) {
        if (c.entry[i].weight == 0) continue;
        Move m = book_move_from_record(c.entry[i].move);
        if (pick > cumulative) chosen = i;
        show_candidate(c, i, m, line, sizeof line);
        cumulative += c.adjusted[i];
    }
    // 12. No other record is tried.
    Move result = book_move_from_record(c.entry[chosen].move);
    if (!position_allows(pos, result)) result = NO_MOVE;
    // 13. Show the candidates and the choice
    if (settings.uci_mode) {
        size_t used = std::strlen(line);
        std::snprintf(line + used, sizeof line - used, " )");
        print_line(line);
    } else if (!console_silent()) {
        char text[8], out[32];
        square_pair(result, text, sizeof text);
        std::snprintf(out, sizeof out, "selecting %s", text);
        print_line(out);
    }
    return result;
}
