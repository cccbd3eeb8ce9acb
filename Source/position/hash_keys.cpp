// The random keys of pieces on squares, en-passant squares and castling
// states, and the from-scratch key computation.
#include "core/output.h"
#include "position.h"

u64 hash_keys[1024];

// Two 32-bit multiply-with-carry streams; fixed seeds give the same keys in
// every run.
struct KeyStream {
    u32 z = 1;
    u32 w = 1;
};

static u32 next_word(KeyStream &s) {
    s.z = 36969 * (s.z & 0xFFFF) + (s.z >> 16);
    s.w = 18000 * (s.w & 0xFFFF) + (s.w >> 16);
    return (s.z << 16) + s.w;
}

// A key with too few bits set is drawn again.
static u64 next_key(KeyStream &s) {
    for (;;) {
        u64 high = next_word(s);
        u64 key = (high << 32) | next_word(s);
        if (count_bits(key) >= 24) return key;
    }
}

void init_hash_keys() {
    static bool done = false;
    if (done) return;
    done = true;
    KeyStream stream;
    for (int i = 0; i < 1024; i++) {
        hash_keys[i] = next_key(stream);
        // Keys too close to an earlier one are reported, and kept all the
        // same: the table must be the same in every run.
        for (int j = 0; j < i; j++)
            if (count_bits(hash_keys[i] ^ hash_keys[j]) < 6) {
                print_line("bad hashcode");
                break;
            }
    }
}

void compute_keys(Position &pos) {
    pos.key = 0;
    pos.pawn_key = 0;
    for (int sq = 0; sq < 64; sq++) {
        int code = pos.board[sq];
        if (!code) continue;
        pos.key ^= piece_key(code, sq);
        if (piece_type(code) == PAWN) pos.pawn_key ^= piece_key(code, sq);
    }
    if (pos.ep_sq != NO_SQUARE) pos.key ^= hash_keys[pos.ep_sq];
    pos.key ^= hash_keys[pos.castle_rights];
    pos.key = (pos.key & ~SIDE_BIT[1]) + SIDE_BIT[pos.side];
}
