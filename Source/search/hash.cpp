// The shared transposition table: allocation, clearing, probe with its
// move check, store with its replacement rules, the fill sample, and the
// display line read back from the table.
#include "hash.h"

#include <pthread.h>
#include <sys/mman.h>

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "core/output.h"
#include "core/settings.h"
#include "core/status.h"
#include "search.h"

HashSlot *hash_table;
u32 hash_entries;

// The Hash option's top; it keeps N within 32 bits.
constexpr i32 MAX_HASH_MB = 32768;
// Entries per megabyte: 2^20 bytes of 16-byte entries.
constexpr u64 ENTRIES_PER_MB = 65536;
// A line read back from the table stops before this index.
constexpr int PV_EXTEND_LIMIT = 77;

static u64 load_word(u64 &word) {
    return std::atomic_ref<u64>(word).load(std::memory_order_relaxed);
}

static void store_word(u64 &word, u64 value) {
    std::atomic_ref<u64>(word).store(value, std::memory_order_relaxed);
}

HashEntry hash_read_slot(u32 index) {
    HashSlot &slot = hash_table[index];
    u64 word0 = load_word(slot.words[0]);
    return hash_unpack(word0, load_word(slot.words[1]));
}

void hash_write_slot(u32 index, const HashEntry &entry) {
    HashSlot &slot = hash_table[index];
    store_word(slot.words[0], hash_word0(entry));
    store_word(slot.words[1], hash_word1(entry));
}

static bool table_usable() { return hash_table && hash_entries; }

// Probes land on random entries, so with small pages nearly every probe
// would miss the address cache as well; the table asks for 2 MiB pages.
constexpr u64 LARGE_PAGE = 2 << 20;

// A zeroed block of slots on large-page boundaries, or null.
static HashSlot *allocate_slots(u64 count) {
    u64 bytes = count * sizeof(HashSlot);
    u64 rounded = (bytes + LARGE_PAGE - 1) / LARGE_PAGE * LARGE_PAGE;
    void *block = std::aligned_alloc(LARGE_PAGE, rounded);
    if (!block) return nullptr;
    madvise(block, rounded, MADV_HUGEPAGE);
    std::memset(block, 0, bytes);
    return static_cast<HashSlot *>(block);
}

void hash_free() {
    std::free(hash_table);
    hash_table = nullptr;
    hash_entries = 0;
}

int hash_allocate() {
    // 1. The keys come with the first table and stay for good.
    init_hash_keys();
    // 2. Free the old table
    hash_free();
    // 3. The spare slots are zeroed here too; no clear ever reaches them.
    i32 mb = std::clamp<i32>(settings.hash_mb, 0, MAX_HASH_MB);
    u64 count = static_cast<u64>(mb) * ENTRIES_PER_MB;
    hash_table = allocate_slots(count + HASH_SPARE);
    if (!hash_table) return 0;
    hash_entries = static_cast<u32>(count);
    // 4. Report the size
    char line[80];
    std::snprintf(line, sizeof line,
                  "info string allocated %d Mbytes for hash table", mb);
    print_line(line);
    // 5. Start empty
    hash_clear();
    return 1;
}

struct ClearShare {
    HashSlot *first;
    u64 count;
};

static void *clear_share(void *arg) {
    const ClearShare *share = static_cast<const ClearShare *>(arg);
    std::memset(share->first, 0, share->count * sizeof(HashSlot));
    return nullptr;
}

// Each thread zeroes an equal share; the remainder of the division stays
// as it is.  A share whose thread cannot be started is done here.
static void clear_in_parallel(int count) {
    ClearShare shares[MAX_THREADS];
    pthread_t ids[MAX_THREADS];
    bool started[MAX_THREADS];
    u64 each = hash_entries / count;
    for (int i = 0; i < count; i++) {
        shares[i] = ClearShare{hash_table + i * each, each};
        started[i] =
            pthread_create(&ids[i], nullptr, clear_share, &shares[i]) == 0;
        if (!started[i]) clear_share(&shares[i]);
    }
    for (int i = 0; i < count; i++)
        if (started[i]) pthread_join(ids[i], nullptr);
}

void hash_clear() {
    if (!status.use_hash || !hash_table) return;
    int threads = std::min<int>(settings.threads, MAX_THREADS);
    if (threads < 3) {
        ClearShare all{hash_table, hash_entries};
        clear_share(&all);
    } else {
        clear_in_parallel(threads);
    }
    status.hash_fill = 0.0f;
}

void hash_prefetch(u64 key) {
    if (table_usable()) __builtin_prefetch(&hash_table[hash_first_slot(key)]);
}

// Probe check 1: a man of the side to move leaves `from` for a different
// square that holds neither one of its own men nor the enemy king.
static bool squares_fit(const Position &pos, int from, int to) {
    int piece = pos.board[from];
    int type = piece_type(piece);
    if (from == to || type < PAWN || type > KING) return false;
    if (piece_colour(piece) != pos.side) return false;
    int target = pos.board[to];
    if (!target) return true;
    return piece_colour(target) != pos.side && piece_type(target) != KING;
}

// Probe check 2, for a flagged king move.  The right itself is not asked
// for: the key carries the rights, so an entry of this key was stored
// where they are the same.
static bool castling_fits(const Position &pos, int from, int to, Move move) {
    if (king_attacks[from] & bit(to)) return true;
    int right = 2 * pos.side + ((move & FLAG_SHORT) ? 0 : 1);
    if (rank_of(to) != (pos.side == WHITE ? 0 : 7)) return false;
    return !(pos.castle_path[right] & occupied_squares(pos));
}

// Probe check 3: a piece's own pattern, with a free line for sliders.
static bool piece_reaches(const Position &pos, int type, int from, int to) {
    bool free_line = !(between[from][to] & occupied_squares(pos));
    switch (type) {
        case KNIGHT:
            return knight_attacks[from] & bit(to);
        case BISHOP:
            return (bishop_rays[from] & bit(to)) && free_line;
        case ROOK:
            return (rook_rays[from] & bit(to)) && free_line;
        case QUEEN:
            return ((bishop_rays[from] | rook_rays[from]) & bit(to)) &&
                   free_line;
        case KING:
            return king_attacks[from] & bit(to);
    }
    return false;
}

// Probe check 4: pawn steps.  A diagonal step takes a man (check 1 has
// made sure it is an enemy one) or a pawn en passant.
static bool pawn_fits(const Position &pos, int from, int to) {
    int side = pos.side;
    int dir = PAWN_DIRECTION[side];
    if (pawn_attacks[side][from] & bit(to)) {
        if (pos.board[to]) return true;
        return to == pos.ep_sq &&
               pos.board[to - dir] == make_piece(PAWN, side ^ 1);
    }
    if (to == from + dir) return !pos.board[to];
    if (to != from + 2 * dir) return false;
    if (rank_of(from) != (side == WHITE ? 1 : 6)) return false;
    return !pos.board[from + dir] && !pos.board[to];
}

static bool on_last_rank(int side, int sq) {
    return rank_of(sq) == (side == WHITE ? 7 : 0);
}

// Checks 1-4 together; check 5 is legal_move.
static bool move_fits(const Position &pos, Move move) {
    int from = move_from(move), to = move_to(move);
    // 1. The squares fit a move of the side to move
    if (!squares_fit(pos, from, to)) return false;
    int type = piece_type(pos.board[from]);
    // 2. A flagged move: castling or a promotion
    if (move & FLAG_MASK) {
        if (type == KING) return castling_fits(pos, from, to, move);
        return type == PAWN && pawn_fits(pos, from, to);
    }
    // 3. A piece's own pattern; a pawn needs a flag to promote
    if (type != PAWN) return piece_reaches(pos, type, from, to);
    if (on_last_rank(pos.side, to)) return false;
    // 4. Pawn steps
    return pawn_fits(pos, from, to);
}

void hash_probe(Position &pos, HashEntry &entry) {
    if (!table_usable()) return;
    u32 high = static_cast<u32>(pos.key >> 32);
    u32 first = hash_first_slot(pos.key);
    for (u32 i = first; i < first + HASH_BUCKET; i++) {
        HashEntry found = hash_read_slot(i);
        if (found.key_high != high) continue;
        entry = found;
        // A torn or foreign entry: its move and score are not this key's.
        if (found.check != hash_check(pos.key, found.move, found.score))
            entry.depth = HASH_TORN;
        else if (found.move && !(move_fits(pos, found.move) &&
                                 legal_move(pos, pos.side, found.move)))
            entry.depth = HASH_BAD_MOVE;
        return;
    }
}

// Store steps 3-5: false to keep the bucket as it is, else the slot to
// overwrite.
static bool replacement_slot(u64 key, int depth, u32 &slot) {
    u32 first = hash_first_slot(key);
    HashEntry bucket[HASH_BUCKET];
    for (int i = 0; i < HASH_BUCKET; i++) bucket[i] = hash_read_slot(first + i);
    // 3. A deep bound or exact value of this position stays.
    for (int i = 0; i < HASH_BUCKET; i++) {
        if (bucket[i].key_high != static_cast<u32>(key >> 32)) continue;
        slot = first + i;
        return bucket[i].depth - 3 <= depth || bucket[i].type == HASH_UPPER;
    }
    // 4. The first entry whose age breaks the run that starts with ours.
    u8 previous = static_cast<u8>(status.age);
    for (int i = 0; i < HASH_BUCKET; i++) {
        slot = first + i;
        if (bucket[i].age != previous) return true;
        previous = bucket[i].age;
    }
    // 5. All of this search: the shallowest goes, unless far deeper.
    int lowest = 0;
    for (int i = 1; i < HASH_BUCKET; i++)
        if (bucket[i].depth < bucket[lowest].depth) lowest = i;
    slot = first + lowest;
    return bucket[lowest].depth - 7 <= depth;
}

void hash_store(Position &pos, int ply, int depth, Move move, int score,
                int alpha, int beta) {
    if (!status.use_hash || !table_usable()) return;
    // 1. Bound type
    u8 type = score <= alpha  ? HASH_UPPER
              : score >= beta ? HASH_LOWER
                              : HASH_EXACT;
    // 2. Mates count from this node; tablebase scores (TB_WIN_VALUE - ply)
    // stay.
    int stored = score < -MATE_BORDER   ? score - ply
                 : score >= MATE_BORDER ? score + ply
                                        : score;
    // 3-5. Pick the slot to replace
    u32 slot = 0;
    if (!replacement_slot(pos.key, depth, slot)) return;
    HashEntry entry{static_cast<u32>(pos.key >> 32),
                    hash_check(pos.key, move, stored),
                    move,
                    static_cast<i16>(stored),
                    static_cast<i8>(std::clamp(depth, -128, 127)),
                    type,
                    static_cast<u8>(status.age),
                    pos.cnt50};
    hash_write_slot(slot, entry);
}

int hash_fill_count() {
    if (!hash_table || hash_entries <= 2999) return 0;
    u8 age = static_cast<u8>(status.age);
    u32 first = hash_entries / 2 - 500;
    int count = 0;
    for (u32 i = first; i < first + 1000; i++)
        if (hash_read_slot(i).age == age) count++;
    return count;
}

void refresh_hash_fill() { status.hash_fill = hash_fill_count() * 0.001f; }

// The move to follow at `index`: the line's own, or the table's when the
// line ends there; 0 to stop.
static Move next_line_move(Position &pos, int index, u16 *line) {
    if (line[index]) return line[index];
    if (!status.use_hash) return 0;
    HashEntry entry{};
    entry.depth = HASH_NOT_FOUND;
    hash_probe(pos, entry);
    if (entry.depth < 0) return 0;
    line[index + 1] = 0;
    if (!entry.move || is_draw(pos, 0)) return 0;
    return entry.move;
}

void extend_pv_from_hash(Position &pos, int index, u16 *line) {
    Worker *w = worker_of(pos);
    // Room in the line and in the undo stack for one more move.
    if (index < 0 || index + 1 >= PV_LENGTH) return;
    if (!w || w->hist_index < 0 || w->hist_index >= STATE_STACK_SIZE - 1)
        return;
    Move m = next_line_move(pos, index, line);
    if (!m || !legal_move(pos, pos.side, m)) return;
    line[index] = m;
    make_move(pos, m);
    if (index + 1 < PV_EXTEND_LIMIT) extend_pv_from_hash(pos, index + 1, line);
    unmake_move(pos);
}
