// Helpers of the hand-written evaluation tests: run the evaluation with
// its stage sums recorded, and switch parameters off so that one term can
// be seen alone and compared with what its parameter predicts.
#pragma once

#include <gtest/gtest.h>

#include <cstring>
#include <initializer_list>

#include "eval/eval.h"
#include "test_support.h"

struct EvalRun {
    i32 score;
    EvalContext ctx;
};

// Evaluates a FEN on the front Worker at ply 1, where the pawn cache is
// written but never read, so no earlier test's entry can leak in.
inline EvalRun run_hand_eval(const char *fen) {
    test_position(fen);
    Worker *w = front_worker;
    w->eval.eval_ply = 1;
    w->eval.trace = 1;
    EvalRun run;
    run.score = hand_evaluate(w);
    run.ctx = w->eval;
    w->eval.trace = 0;
    return run;
}

// What one stage added to colour c's sum.
inline TermPair stage_sum(const EvalContext &ctx, int stage, int c) {
    TermPair before = stage == 0 ? 0 : ctx.trace_score[stage - 1][c];
    return static_cast<TermPair>(static_cast<u32>(ctx.trace_score[stage][c]) -
                                 static_cast<u32>(before));
}

// The pair a float factor gives with a parameter: each half truncated.
inline TermPair scaled(const ParamEntry *p, f32 f) {
    return make_pair(static_cast<int>(f * p->mg), static_cast<int>(f * p->eg));
}

inline TermPair times(const ParamEntry *p, int n) {
    return make_pair(n * static_cast<int>(p->mg), n * static_cast<int>(p->eg));
}

// The blend of the final sums by the phase, as the evaluator's last step
// defines it: the packed difference of the two sums, read in halves (the
// endgame half by arithmetic shift, so it carries the midgame's borrow),
// mixed in double.
inline int blended(const EvalContext &ctx) {
    TermPair w = ctx.trace_score[TRACE_SPECIAL][WHITE];
    TermPair b = ctx.trace_score[TRACE_SPECIAL][BLACK];
    TermPair d =
        static_cast<TermPair>(static_cast<u32>(w) - static_cast<u32>(b));
    double phase = ctx.phase;
    return static_cast<int>(eg_of(d) * (1.0 - phase) + mg_of(d) * phase);
}

// Fresh default parameters for every test, and a way to leave only some
// terms switched on.
struct ParamTest : testing::Test {
    ParamEntry defaults[MAX_PARAMS];

    void SetUp() override {
        init_eval_params();
        std::memcpy(defaults, param_table, sizeof defaults);
    }
    void TearDown() override {
        init_eval_params();
        test_position(START_FEN);
    }
    // Every parameter 0 except those given, which keep their defaults.
    void keep_only(std::initializer_list<const ParamEntry *> kept) {
        for (int i = 0; i < param_count; i++) {
            param_table[i].packed = 0;
            param_table[i].mg = param_table[i].eg = 0.0f;
        }
        for (const ParamEntry *p : kept) {
            int i = static_cast<int>(p - param_table);
            param_table[i] = defaults[i];
        }
    }
    void keep_table(std::initializer_list<const ParamEntry *> kept,
                    ParamEntry *const *table) {
        keep_only(kept);
        for (int sq = 0; sq < 64; sq++) {
            int i = static_cast<int>(table[sq] - param_table);
            param_table[i] = defaults[i];
        }
    }
};
