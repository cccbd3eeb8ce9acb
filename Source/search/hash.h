// The main transposition table, shared by all search threads without a
// lock.  Each entry is two 64-bit words, read and written whole and relaxed;
// a check word ties the key to the move and score, so an entry torn by two
// writers is seen as such and never used.
#pragma once

#include "position/position.h"

// One entry as a caller holds it.  The fields lie in the order and at the
// offsets of the table's 16 bytes (little-endian): key_high and check form
// the first word, the rest the second.
struct HashEntry {
    u32 key_high;  // upper half of the position's key
    u32 check;     // (move << 16) ^ lower key half ^ (score + 15000)
    u16 move;      // 0 if none
    i16 score;     // mate scores counted from this node, not from the root
    i8 depth;
    u8 type;  // 1 upper bound, 2 lower bound, 3 exact
    u8 age;
    u8 cnt50;
};
static_assert(sizeof(HashEntry) == 16);

constexpr u8 HASH_UPPER = 1;
constexpr u8 HASH_LOWER = 2;
constexpr u8 HASH_EXACT = 3;

// What a caller presets in `depth` before a probe, and what the probe
// writes there for a torn entry or an unusable move.
constexpr i8 HASH_NOT_FOUND = -10;
constexpr i8 HASH_TORN = -98;
constexpr i8 HASH_BAD_MOVE = -99;

constexpr int HASH_BUCKET = 4;
constexpr int HASH_SPARE = 16;  // room for buckets that start near the end

// The table's storage: an entry's two words, touched only through
// std::atomic_ref while threads may run.
struct HashSlot {
    u64 words[2];
};

extern HashSlot *hash_table;
extern u32 hash_entries;  // N; the table holds N + HASH_SPARE slots

// The two words of an entry and back.
constexpr u64 hash_word0(const HashEntry &e) {
    return e.key_high | (static_cast<u64>(e.check) << 32);
}
constexpr u64 hash_word1(const HashEntry &e) {
    return e.move | (static_cast<u64>(static_cast<u16>(e.score)) << 16) |
           (static_cast<u64>(static_cast<u8>(e.depth)) << 32) |
           (static_cast<u64>(e.type) << 40) | (static_cast<u64>(e.age) << 48) |
           (static_cast<u64>(e.cnt50) << 56);
}
constexpr HashEntry hash_unpack(u64 word0, u64 word1) {
    return HashEntry{static_cast<u32>(word0),
                     static_cast<u32>(word0 >> 32),
                     static_cast<u16>(word1),
                     static_cast<i16>(static_cast<u16>(word1 >> 16)),
                     static_cast<i8>(static_cast<u8>(word1 >> 32)),
                     static_cast<u8>(word1 >> 40),
                     static_cast<u8>(word1 >> 48),
                     static_cast<u8>(word1 >> 56)};
}
// The check word an entry of this key, move and stored score must carry.
constexpr u32 hash_check(u64 key, u16 move, i32 stored_score) {
    return (static_cast<u32>(move) << 16) ^ static_cast<u32>(key) ^
           static_cast<u32>(stored_score + 15000);
}

// Atomic whole-word access to slot `index` (below N + HASH_SPARE).
HashEntry hash_read_slot(u32 index);
void hash_write_slot(u32 index, const HashEntry &entry);
// First slot of the key's bucket; the table must have N above 0.
inline u32 hash_first_slot(u64 key) {
    return static_cast<u32>(key % hash_entries);
}

// Makes the keys on the first call, then (re)allocates and clears the
// table for settings.hash_mb megabytes.  1 on success, 0 when memory is
// short (no table then).
int hash_allocate();
void hash_free();
// Zeroes the first N slots, on several threads for a big Threads setting.
void hash_clear();
// `entry.depth` is preset by the caller.  Untouched on a miss; on a hit
// the entry is copied, with depth HASH_TORN or HASH_BAD_MOVE when the
// copy cannot be trusted.
void hash_probe(Position &pos, HashEntry &entry);
void hash_store(Position &pos, int ply, int depth, Move move, int score,
                int alpha, int beta);
// How many of the 1000 sampled middle slots carry the current age; 0 for
// a table of fewer than 3000 entries.
int hash_fill_count();
// Sets SearchStatus.hash_fill from a fresh count.
void refresh_hash_fill();
// Brings the key's bucket toward the cache ahead of its probe.
void hash_prefetch(u64 key);
// Lengthens `line` from `index` on with moves of the table, for display;
// the position is left as it was.
void extend_pv_from_hash(Position &pos, int index, u16 *line);
