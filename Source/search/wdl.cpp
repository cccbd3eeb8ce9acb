// The win, draw and loss model: for material m, a score s wins with the
// probability 1 / (1 + exp((a(m) - s) / b(m))) and loses with the same
// expression at -s; the draw takes the rest.  a is the score at which a win
// is an even chance, b how fast the chance grows with the score; both are
// cubics in the material, fitted to the engine's own self-play games by
// scripts/fit_wdl.py.
#include "wdl.h"

#include <cmath>

#include "eval/eval.h"
#include "search.h"

namespace {

// Below this the games were too few to fit (one record in a hundred);
// above it a position with promoted pieces is read as the full board.
constexpr int MATERIAL_LOW = 8;
constexpr int MATERIAL_HIGH = 80;
// The cubics' coefficients, from x^0 to x^3, x = material / 80.
constexpr double OFFSET[4] = {563.1116, -1907.6119, 2563.3347, -1170.9015};
constexpr double SCALE[4] = {131.0541, -139.3430, 452.3753, -314.5881};

// The root's tablebase verdict, as the root search records it: 0 loss,
// 1 blessed loss, 2 draw, 3 cursed win, 4 win, -1 none.
constexpr int TB_LOSS = 0;
constexpr int TB_WIN = 4;
constexpr int TB_NONE = -1;

constexpr WdlShares CERTAIN_WIN = {1000, 0, 0};
constexpr WdlShares CERTAIN_DRAW = {0, 1000, 0};
constexpr WdlShares CERTAIN_LOSS = {0, 0, 1000};

double cubic(const double (&c)[4], double x) {
    return ((c[3] * x + c[2]) * x + c[1]) * x + c[0];
}

double logistic(double u) { return 1.0 / (1.0 + std::exp(-u)); }

int per_mille(double p) { return static_cast<int>(std::lround(p * 1000.0)); }

}  // namespace

int wdl_material(const Position &pos) {
    int pawns = static_cast<int>((pos.material_sig[WHITE] & 15) +
                                 (pos.material_sig[BLACK] & 15));
    return pawns + pos.piece_points[WHITE] + pos.piece_points[BLACK];
}

WdlShares wdl_from_model(int score, int material) {
    int m = material < MATERIAL_LOW    ? MATERIAL_LOW
            : material > MATERIAL_HIGH ? MATERIAL_HIGH
                                       : material;
    double x = static_cast<double>(m) / MATERIAL_HIGH;
    double a = cubic(OFFSET, x), b = cubic(SCALE, x);
    double s = static_cast<double>(score);
    int win = per_mille(logistic((s - a) / b));
    int loss = per_mille(logistic((-s - a) / b));
    // Both near certain only far outside the scores the model knows; the
    // larger keeps its share.
    if (win + loss > 1000) {
        if (win >= loss)
            loss = 1000 - win;
        else
            win = 1000 - loss;
    }
    return {win, 1000 - win - loss, loss};
}

WdlShares root_wdl(const Position &root, int score, int tb_result) {
    // The tables' verdict counts the fifty-move rule, which a mate score
    // found in the tree may not.
    if (tb_result == TB_WIN) return CERTAIN_WIN;
    if (tb_result == TB_LOSS) return CERTAIN_LOSS;
    if (tb_result != TB_NONE) return CERTAIN_DRAW;
    if (score > PROVEN_SCORE) return CERTAIN_WIN;
    if (score < -PROVEN_SCORE) return CERTAIN_LOSS;
    if (drawn_by_material(root)) return CERTAIN_DRAW;
    return wdl_from_model(score, wdl_material(root));
}
