// The named evaluation parameters: every number of the hand-written
// evaluation is a midgame and an endgame value in one global table.
#pragma once

#include "position/position.h"

// A midgame and an endgame value in one signed word: midgame in the low
// 16 bits, endgame above, so one addition adds both.  The endgame half is
// read by an arithmetic shift, which takes the midgame's borrow with it.
using TermPair = i32;

constexpr TermPair make_pair(int mg, int eg) {
    return static_cast<TermPair>(static_cast<u32>(eg) * 65536u +
                                 static_cast<u32>(mg));
}
constexpr int mg_of(TermPair p) { return static_cast<i16>(p & 0xFFFF); }
constexpr int eg_of(TermPair p) { return p >> 16; }
// Sum of two pairs, wrapping as the packed word does.
constexpr TermPair add_pairs(TermPair a, TermPair b) {
    return static_cast<TermPair>(static_cast<u32>(a) + static_cast<u32>(b));
}

struct ParamEntry {
    i32 packed;
    f32 mg;
    f32 eg;
    u8 work[12];  // belongs to tuning tools
    char name[24];
};
static_assert(sizeof(ParamEntry) == 48);

// 43 plain parameters, nine tables of 64, 32 tuning slots, and room.
constexpr int MAX_PARAMS = 700;

extern ParamEntry param_table[MAX_PARAMS];
extern int param_count;
extern int first_pst;
extern int param_cursor;

// Where the evaluation finds each parameter, filled at registration.
struct ParamSlots {
    ParamEntry *mtl_pawn, *mtl_knight, *mtl_bishop, *mtl_rook, *mtl_queen;
    ParamEntry *bishop_pair;
    ParamEntry *knight_mobility, *bishop_mobility, *rook_mobility,
        *queen_mobility;
    ParamEntry *ppawn_base, *ppawn_mobile, *ppawn_free, *ppawn_connected,
        *ppawn_fkprox, *ppawn_ekprox, *ppawn_candidate;
    ParamEntry *pawn_isolated, *pawn_weak, *pawn_blocked, *pawn_doubled;
    ParamEntry *knight_outpost, *bishop_infiltration, *bishop_outpost,
        *bishop_rampawns;
    ParamEntry *rook_infiltration, *rook_openfile, *rook_7th;
    ParamEntry *pawn_shield, *enemy_checks, *king_danger1, *king_danger2,
        *king_trapped, *king_pawn_dist;
    ParamEntry *hung_pawn, *attacked_pawn, *hung_minor, *attacked_minor,
        *hung_major;
    ParamEntry *ppush_threat, *pinned_piece, *mtl_imbalance, *stm_bonus;
    ParamEntry *pst_p1[64], *pst_p2[64], *pst_cp[64], *pst_dp[64];
    ParamEntry *pst_n[64], *pst_b[64], *pst_r[64], *pst_q[64], *pst_k[64];
    ParamEntry *ttune[32];
};

extern ParamSlots param;

// Appends one entry and keeps its address in `slot`.
void param_add(ParamEntry **slot, const char *name, int mg, int eg);
// Appends 64 entries under one name; tables are given rank 8 first.
void pst_add(ParamEntry **slots, const char *name, const int *mg_table,
             const int *eg_table);
// Registers the 43 plain parameters in their fixed order.
void params_register();
void params_build_pst();
// Registers the 32 tuning slots behind the tables.
void params_add_spare_slots();
// Reads a parameter text over the table: entries are stored by position;
// a name that differs from the table's prints "error" but loads all the
// same.  Returns the number of values stored.
int params_load_text(const char *text);
void params_load_defaults();
// The default text (4360 characters), for tools that write it out.
extern const char DEFAULT_PARAM_TEXT[];

// The start-up sequence: register, build the tables, spare slots, load.
void init_eval_params();
