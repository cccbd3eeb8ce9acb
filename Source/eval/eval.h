// The evaluation: the entry the search calls, the hand-written evaluator
// with its pawn, king and threat terms, the caches, and the trace.
#pragma once

#include "network.h"
#include "params.h"
#include "position/position.h"

struct EvalCacheEntry {
    u64 key;
    u32 reserved;
    i16 hce_score;
    i16 nn_score;
};
static_assert(sizeof(EvalCacheEntry) == 16);

struct PawnCacheEntry {
    u64 key;
    i32 white;  // TermPair of white's cached pawn terms
    i32 black;
};
static_assert(sizeof(PawnCacheEntry) == 16);

constexpr int EVAL_CACHE_SIZE = 32768;
constexpr int PAWN_CACHE_SIZE = 16384;

// Stages of the hand-written evaluation whose sums the trace shows.
enum TraceStage {
    TRACE_PAWNS,
    TRACE_KNIGHTS,
    TRACE_BISHOPS,
    TRACE_ROOKS,
    TRACE_QUEENS,
    TRACE_KING,
    TRACE_PASSED,
    TRACE_THREATS,
    TRACE_SPECIAL,
    TRACE_STAGES
};

// The hand-written evaluator's working state, rebuilt on every call; c is
// the colour index of every [2] array.
struct EvalContext {
    Position *eval_position;
    EvalWorker *eval_worker;
    u8 eval_ply;
    u8 trace;
    u16 same_wing;  // both kings on the same half of the files
    u8 pst_mirror[2];
    f32 phase;  // 1 is the midgame, 0 the bare endgame
    f32 scale;  // the last scale factor, for the trace
    u64 occupied;
    u64 outposts[2];
    u64 all_pawns, passed_pawns, candidate_pawns;
    u64 hung_squares, free_pawns;
    u64 king_zone[2];
    u64 attacks[2][8];  // [c][0] all, [c][type] by piece type
    u64 double_attacks[2];
    u64 pawn_attacks_of[2];
    u64 low_attacks[2];           // pawns, knights, bishops
    u64 mid_attacks[2];           // and rooks
    u64 all_but_king_attacks[2];  // and queens
    i32 danger[2];
    TermPair score[2];
    // Side sums after each stage, kept while `trace` is set.
    TermPair trace_score[TRACE_STAGES][2];
    i32 last_hce;  // the last hand-written score, for the trace
};

// What a thread's evaluation owns: its board, the two caches, the net's
// sums and the counters the search's reports add up.  A search thread's
// Worker is one of these, so the evaluation needs nothing of the search.
struct EvalWorker : ThreadBoard {
    EvalCacheEntry eval_cache[EVAL_CACHE_SIZE];
    PawnCacheEntry pawn_cache[PAWN_CACHE_SIZE];
    u64 eval_count;
    u64 eval_hit_count;
    u64 pawn_probe_count;
    u64 pawn_hit_count;
    EvalContext eval;
    NetworkState nn;
};

// Entry of the search: centipawns for the side to move.
i32 evaluate(EvalWorker *worker, int side, int ply, int in_check);
// Whether the men left cannot win for either side as the evaluation judges
// it (no pawns, rooks or queens, and at most one minor piece a side, or two
// knights against the bare king): the evaluation scores these 0 at once.
bool drawn_by_material(const Position &pos);
// The hand-written evaluation of the worker's position, side to move's
// view.
i32 hand_evaluate(EvalWorker *worker);

// Pieces of the hand-written evaluation, in the order they run.
void evaluate_pawns(EvalContext &ctx);
void evaluate_knights(EvalContext &ctx);
void evaluate_bishops(EvalContext &ctx);
void evaluate_rooks(EvalContext &ctx);
void evaluate_queens(EvalContext &ctx);
void evaluate_king(EvalContext &ctx, int c);
void evaluate_passed_pawns(EvalContext &ctx);
void evaluate_candidate_pawns(EvalContext &ctx);
void evaluate_threats(EvalContext &ctx);
// Pieces of colour c pinned to their king or their first queen.
u64 pinned(const Position &pos, int c);

// Adds truncate(f * mg) and truncate(f * eg) of a parameter to a sum.  The
// products are single-precision, as the factor tables are; the few terms
// computed in double precision say so where they are.
inline void add_scaled(TermPair &sum, const ParamEntry *p, f32 f) {
    sum = add_pairs(sum, make_pair(static_cast<int>(f * p->mg),
                                   static_cast<int>(f * p->eg)));
}
inline void add_param(TermPair &sum, const ParamEntry *p) {
    sum = add_pairs(sum, p->packed);
}
inline void add_param_times(TermPair &sum, const ParamEntry *p, int n) {
    sum = add_pairs(sum, static_cast<TermPair>(static_cast<u32>(p->packed) *
                                               static_cast<u32>(n)));
}

// King and pawn against king: 2 where the pawn's side wins.  Index:
// (stm << 17) + ((file + 4 * rank of the pawn) << 12) + (wk << 6) + bk,
// with white the pawn's side and the pawn on the files a to d.
constexpr int KP_TABLE_SIZE = 262144;
extern u8 kp_table[KP_TABLE_SIZE];
void kp_table_build();

// Prints the breakdown of the hand-written evaluation; mode 2 adds every
// parameter and table.
void evaluation_trace(EvalWorker *worker, int mode);
