// The complete ending king and pawn against king, solved by retrograde
// iteration at every start.  White is always the side with the pawn, and
// the pawn stands on the files a to d; readers mirror.
#include "eval.h"

u8 kp_table[KP_TABLE_SIZE];

// Values while the table is built.
constexpr u8 KP_ILLEGAL = 0;
constexpr u8 KP_DRAW = 1;
constexpr u8 KP_WIN = 2;
constexpr u8 KP_UNKNOWN = 4;

static int kp_index(int stm, int pawn, int wk, int bk) {
    return (stm << 17) + (((pawn & 7) + (pawn >> 3) * 4) << 12) + (wk << 6) +
           bk;
}

static int distance(int a, int b) {
    int df = file_of(a) - file_of(b), dr = rank_of(a) - rank_of(b);
    df = df < 0 ? -df : df;
    dr = dr < 0 ? -dr : dr;
    return df > dr ? df : dr;
}

// Illegal placements, a pawn giving check with White to move, and a pawn
// on the eighth rank standing for a new queen.
static void seed_entry(int pawn, int wk, int bk) {
    u8 &white = kp_table[kp_index(0, pawn, wk, bk)];
    u8 &black = kp_table[kp_index(1, pawn, wk, bk)];
    white = black = KP_UNKNOWN;
    if (pawn == wk || pawn == bk || wk == bk || distance(wk, bk) < 2) {
        white = black = KP_ILLEGAL;
        return;
    }
    bool attacks_king = (bk == pawn + 9 && file_of(pawn) != 7) ||
                        (bk == pawn + 7 && file_of(pawn) != 0);
    if (attacks_king) white = KP_ILLEGAL;
    if (rank_of(pawn) == 7) {
        white = KP_WIN;
        // A queen the black king can take at once, unguarded, never
        // resolves and so reads as a draw in the end.
        if (!(distance(bk, pawn) < 2 && distance(wk, pawn) >= 2))
            black = KP_WIN;
    }
}

// White to move: a win if any move wins.
static bool settle_white(int pawn, int wk, int bk) {
    u8 &entry = kp_table[kp_index(0, pawn, wk, bk)];
    if (entry != KP_UNKNOWN) return false;
    int v = kp_table[kp_index(1, pawn + 8, wk, bk)];
    if (rank_of(pawn) == 1 && v != KP_ILLEGAL)
        v |= kp_table[kp_index(1, pawn + 16, wk, bk)];
    for (u64 b = king_attacks[wk]; b; b = clear_first_bit(b))
        v |= kp_table[kp_index(1, pawn, first_bit(b), bk)];
    if (v & KP_WIN)
        entry = KP_WIN;
    else if (!(v & KP_UNKNOWN))
        entry = KP_DRAW;
    return entry != KP_UNKNOWN;
}

// Black to move: a draw if any move draws, taking an unguarded pawn
// included.
static bool settle_black(int pawn, int wk, int bk) {
    u8 &entry = kp_table[kp_index(1, pawn, wk, bk)];
    if (entry != KP_UNKNOWN) return false;
    int v = 0;
    for (u64 b = king_attacks[bk]; b; b = clear_first_bit(b)) {
        int to = first_bit(b);
        if (to == pawn && distance(wk, pawn) >= 2)
            v |= KP_DRAW;
        else
            v |= kp_table[kp_index(0, pawn, wk, to)];
    }
    if (v & KP_DRAW)
        entry = KP_DRAW;
    else if (v & KP_UNKNOWN)
        return false;
    else
        entry = v & KP_WIN ? KP_WIN : KP_DRAW;  // no move: stalemate
    return true;
}

// Calls f(pawn, wk, bk) for pawns on the files a to d of ranks 2 to 7.
template <typename F>
static void for_each_placement(F f) {
    for (int rank = 1; rank <= 6; rank++)
        for (int file = 0; file < 4; file++)
            for (int wk = 0; wk < 64; wk++)
                for (int bk = 0; bk < 64; bk++) f(file + 8 * rank, wk, bk);
}

void kp_table_build() {
    // First pass, all ranks.
    for (int pawn = 0; pawn < 64; pawn++)
        if (file_of(pawn) < 4)
            for (int wk = 0; wk < 64; wk++)
                for (int bk = 0; bk < 64; bk++) seed_entry(pawn, wk, bk);
    // Iterate until a round settles nothing more.
    for (bool changed = true; changed;) {
        changed = false;
        for_each_placement([&](int pawn, int wk, int bk) {
            changed |= settle_white(pawn, wk, bk);
        });
        for_each_placement([&](int pawn, int wk, int bk) {
            changed |= settle_black(pawn, wk, bk);
        });
    }
    // Closing pass: what is not a win is a draw, unresolved and illegal
    // states included.
    for_each_placement([](int pawn, int wk, int bk) {
        for (int stm = 0; stm < 2; stm++) {
            u8 &entry = kp_table[kp_index(stm, pawn, wk, bk)];
            if (entry != KP_WIN) entry = KP_DRAW;
        }
    });
}
