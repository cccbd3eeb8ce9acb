// The evaluation trace: how the hand-written score of a position breaks
// down by theme and side, and on request every parameter and table.  A
// console tool; it prints straight to standard output.
#include <cstdio>
#include <cstring>

#include "eval.h"
#include "network.h"
#include "position/notation.h"

static constexpr const char *STAGE_LABELS[TRACE_STAGES] = {
    "pawns:", "knights:", "bishops:", "rooks:",  "queens:",
    "king:",  "ppawns:",  "threats:", "special:"};

// A pair as one number at the position's phase, truncated as the
// evaluation's own blend does.
static int interpolate(TermPair pair, f32 phase) {
    return static_cast<int>(static_cast<f32>(eg_of(pair)) * (1.0f - phase) +
                            static_cast<f32>(mg_of(pair)) * phase);
}

static TermPair sub_pairs(TermPair a, TermPair b) {
    return static_cast<TermPair>(static_cast<u32>(a) - static_cast<u32>(b));
}

// What one stage added to colour c: the snapshots are running sums.
static TermPair stage_pair(const EvalContext &ctx, int stage, int c) {
    TermPair before = stage == 0 ? 0 : ctx.trace_score[stage - 1][c];
    return sub_pairs(ctx.trace_score[stage][c], before);
}

// The material of colour c in pieces of `type` (pawn to queen), at the
// position's phase.
static int material_part(const Position &pos, f32 phase, int c, int type) {
    const ParamEntry *const values[6] = {nullptr,          param.mtl_pawn,
                                         param.mtl_knight, param.mtl_bishop,
                                         param.mtl_rook,   param.mtl_queen};
    u32 n = static_cast<u32>(count_bits(pos.bitboards[c][type]));
    u32 total = static_cast<u32>(values[type]->packed) * n;
    return interpolate(static_cast<TermPair>(total), phase);
}

static int material_of(const Position &pos, f32 phase, int c) {
    int sum = 0;
    for (int type = PAWN; type <= QUEEN; type++)
        sum += material_part(pos, phase, c, type);
    return sum;
}

// 2. One line per stage; the piece lines show what the pieces earn beyond
// their bare material.
static void print_stage_lines(const EvalContext &ctx, const Position &pos) {
    for (int stage = 0; stage < TRACE_STAGES; stage++) {
        int value[2];
        for (int c = WHITE; c <= BLACK; c++) {
            value[c] = interpolate(stage_pair(ctx, stage, c), ctx.phase);
            if (stage <= TRACE_QUEENS)
                value[c] -= material_part(pos, ctx.phase, c, stage + PAWN);
        }
        std::printf("%-10s  %4d   %4d    %4d\n", STAGE_LABELS[stage],
                    value[WHITE], value[BLACK], value[WHITE] - value[BLACK]);
    }
}

// 3., 4. A list of squares under a title, when there are any
static void print_squares(const char *title, u64 squares) {
    if (!squares) return;
    std::printf("%s", title);
    for (u64 b = squares; b; b = clear_first_bit(b))
        std::printf(" %s", SQUARE_NAMES[first_bit(b)]);
    std::printf("\n");
}

// A table as the board looks from white's side: rank 8 on top, midgame
// values on the left, endgame values on the right.
static void print_pst(const char *title, ParamEntry *const *table) {
    std::printf("%s\n", title);
    for (int rank = 7; rank >= 0; rank--) {
        for (int file = 0; file < 8; file++)
            std::printf(" %3d", static_cast<int>(table[8 * rank + file]->mg));
        std::printf("     ");
        for (int file = 0; file < 8; file++)
            std::printf(" %3d", static_cast<int>(table[8 * rank + file]->eg));
        std::printf("\n");
    }
    std::printf("\n");
}

// 6. Every parameter and table
static void print_parameters() {
    for (int i = 0; i < param_count; i++) {
        const ParamEntry &entry = param_table[i];
        if (std::strstr(entry.name, "PST_") || std::strstr(entry.name, "ttune"))
            continue;
        std::printf("%-22s  %4d , %4d\n", entry.name,
                    static_cast<int>(entry.mg), static_cast<int>(entry.eg));
    }
    print_pst("Pawn1", param.pst_p1);
    print_pst("Pawn2", param.pst_p2);
    print_pst("Connected Pawn", param.pst_cp);
    print_pst("Defended Pawn", param.pst_dp);
    print_pst("Knight", param.pst_n);
    print_pst("Bishop", param.pst_b);
    print_pst("Rook", param.pst_r);
    print_pst("Queen", param.pst_q);
    print_pst("King ", param.pst_k);
}

void evaluation_trace(EvalWorker *worker, int mode) {
    EvalContext &ctx = worker->eval;
    const Position &pos = worker->position;
    // The search keeps no last quiescence score yet.
    i32 quiesce_score = 0;
    ctx.trace = 1;
    i32 network_score = network_evaluate(worker);
    i32 hce = hand_evaluate(worker);
    ctx.trace = 0;
    // 1., 2. The header and the stage lines
    std::printf("           white  black      md\n");
    print_stage_lines(ctx, pos);
    // 3., 4. Hung pieces and free pawns
    print_squares("hung pieces on: ", ctx.hung_squares);
    print_squares("free pawns on: ", ctx.free_pawns);
    // 5. The scores, the material, the phase and the scale
    int mtl =
        material_of(pos, ctx.phase, WHITE) - material_of(pos, ctx.phase, BLACK);
    std::printf(
        "nne= %d, hce= %d, qscore= %d, mtl= %d, phase= %0.2f, sf= %0.2f, "
        "rule50= %d\n\n",
        network_score, hce, quiesce_score, mtl, static_cast<double>(ctx.phase),
        static_cast<double>(ctx.scale), static_cast<int>(pos.cnt50));
    // 6. On request, the parameters
    if (mode == 2) print_parameters();
}
