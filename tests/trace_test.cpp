// The evaluation trace: the stage lines, the square lists, the summary and
// the parameter listing, read back from standard output.
#include <gtest/gtest.h>

#include <cctype>
#include <cstdio>
#include <cstring>
#include <sstream>
#include <string>
#include <vector>

#include "test_support.h"

namespace {

constexpr const char *HEADING = "           white  black      md";
constexpr const char *LABELS[9] = {
    "pawns:", "knights:", "bishops:", "rooks:",  "queens:",
    "king:",  "ppawns:",  "threats:", "special:"};

struct StageLine {
    std::string label;
    int white, black, diff;
};

struct Trace {
    std::string text;
    std::vector<std::string> lines;
    StageLine stages[9];
    i32 hce;  // what hand_evaluate returns for the position afterwards
};

std::vector<std::string> split_lines(const std::string &text) {
    std::vector<std::string> lines;
    std::istringstream in(text);
    for (std::string line; std::getline(in, line);) lines.push_back(line);
    return lines;
}

// Reads one stage line and checks that it is printed in the fixed layout.
StageLine parse_stage(const std::string &line) {
    StageLine s{};
    char label[32] = {};
    EXPECT_EQ(std::sscanf(line.c_str(), "%31s %d %d %d", label, &s.white,
                          &s.black, &s.diff),
              4)
        << line;
    s.label = label;
    char again[64];
    std::snprintf(again, sizeof again, "%-10s  %4d   %4d    %4d", label,
                  s.white, s.black, s.diff);
    EXPECT_EQ(line, again);
    return s;
}

Trace run_trace(const char *fen, int mode, int cnt50 = 0) {
    test_position(fen);
    front_worker->position.cnt50 = static_cast<u8>(cnt50);
    Trace t;
    testing::internal::CaptureStdout();
    evaluation_trace(front_worker, mode);
    t.text = testing::internal::GetCapturedStdout();
    t.lines = split_lines(t.text);
    EXPECT_GE(t.lines.size(), 11u);
    if (t.lines.size() < 11) return t;
    EXPECT_EQ(t.lines[0], HEADING);
    for (int i = 0; i < 9; i++) {
        t.stages[i] = parse_stage(t.lines[1 + i]);
        EXPECT_EQ(t.stages[i].label, LABELS[i]);
        EXPECT_EQ(t.stages[i].diff, t.stages[i].white - t.stages[i].black);
    }
    EXPECT_EQ(front_worker->eval.trace, 0);
    t.hce = hand_evaluate(front_worker);
    return t;
}

struct Summary {
    int nne, hce, qscore, mtl, rule50;
    char phase[16], sf[16];
};

// The summary is the first line after the stage lines that starts "nne=".
Summary summary_of(const Trace &t) {
    Summary s{};
    for (const std::string &line : t.lines) {
        if (line.rfind("nne=", 0) != 0) continue;
        EXPECT_EQ(std::sscanf(line.c_str(),
                              "nne= %d, hce= %d, qscore= %d, mtl= %d, phase= "
                              "%15[0-9.-], sf= %15[0-9.-], rule50= %d",
                              &s.nne, &s.hce, &s.qscore, &s.mtl, s.phase, s.sf,
                              &s.rule50),
                  7)
            << line;
        return s;
    }
    ADD_FAILURE() << "no summary line";
    return s;
}

int count_lines_starting(const Trace &t, const char *prefix) {
    int n = 0;
    for (const std::string &line : t.lines)
        if (line.rfind(prefix, 0) == 0) n++;
    return n;
}

// A pair at the evaluator's phase, as the rules define it.
int at_phase(TermPair p, f32 phase) {
    return static_cast<int>(static_cast<f32>(eg_of(p)) * (1.0f - phase) +
                            static_cast<f32>(mg_of(p)) * phase);
}

// The bare material of n pieces at the phase.
int material(const ParamEntry *p, int n, f32 phase) {
    int mg = static_cast<int>(p->mg), eg = static_cast<int>(p->eg);
    return at_phase(make_pair(n * mg, n * eg), phase);
}

std::string swap_case(std::string s) {
    for (char &ch : s)
        ch = std::isupper(static_cast<unsigned char>(ch))
                 ? static_cast<char>(std::tolower(ch))
                 : static_cast<char>(std::toupper(ch));
    return s;
}

// The colour-mirrored position: ranks turned over, colours and the side to
// move exchanged.
std::string mirror_fen(const std::string &fen) {
    std::istringstream in(fen);
    std::string board, side, castling, ep;
    in >> board >> side >> castling >> ep;
    std::vector<std::string> ranks;
    std::istringstream rows(board);
    for (std::string r; std::getline(rows, r, '/');) ranks.push_back(r);
    std::string flipped;
    for (auto it = ranks.rbegin(); it != ranks.rend(); ++it) {
        if (!flipped.empty()) flipped += '/';
        flipped += swap_case(*it);
    }
    if (ep != "-") ep[1] = static_cast<char>('1' + '8' - ep[1]);
    return flipped + (side == "w" ? " b " : " w ") + swap_case(castling) + " " +
           ep + " 0 1";
}

// Every trace is computed afresh (no pawn cache entry is read) over the
// engine's own parameter table, whatever other tests loaded into it.
struct TraceTest : testing::Test {
    void SetUp() override {
        init_eval_params();
        front_worker->eval.eval_ply = 1;
    }
    void TearDown() override { test_position(START_FEN); }
};

TEST_F(TraceTest, StartPosition) {
    Trace t = run_trace(START_FEN, 1);
    ASSERT_GE(t.lines.size(), 11u);
    const EvalContext &ctx = front_worker->eval;
    ASSERT_EQ(ctx.phase, 1.0f);
    // Both sides alike; only the side to move's bonus differs.
    for (int i = 0; i < 8; i++) {
        EXPECT_EQ(t.stages[i].white, t.stages[i].black) << LABELS[i];
        EXPECT_EQ(t.stages[i].diff, 0);
    }
    EXPECT_EQ(t.stages[8].white, static_cast<int>(param.stm_bonus->mg));
    EXPECT_EQ(t.stages[8].black, 0);
    // Pawns on their home squares: the first pawn table and the connected
    // bonus (each pawn's next square is covered by a neighbour), material
    // taken out.
    int pawns = 0;
    for (int sq = 8; sq < 16; sq++)
        pawns += static_cast<int>(param.pst_p1[sq]->mg) +
                 static_cast<int>(param.pst_cp[sq]->mg);
    EXPECT_EQ(t.stages[0].white, pawns);
    // No hanging piece, no passed pawn.
    EXPECT_EQ(count_lines_starting(t, "hung pieces on: "), 0);
    EXPECT_EQ(count_lines_starting(t, "free pawns on: "), 0);
    ASSERT_EQ(t.lines.size(), 12u);
    EXPECT_EQ(t.lines[10].rfind("nne=", 0), 0u);
    EXPECT_EQ(t.lines[11], "");
    Summary s = summary_of(t);
    EXPECT_EQ(s.hce, t.hce);
    EXPECT_EQ(s.mtl, 0);
    EXPECT_STREQ(s.phase, "1.00");
    EXPECT_STREQ(s.sf, "1.00");
    EXPECT_EQ(s.rule50, 0);
    EXPECT_EQ(t.text.substr(t.text.size() - 2), "\n\n");
}

TEST_F(TraceTest, MaterialComesOutOfThePieceLines) {
    // White: knight, rook, three pawns; black: rook, two pawns.
    Trace t = run_trace("4k3/pp3r2/8/8/8/8/PPP1N1R1/4K3 w - - 0 1", 1, 37);
    ASSERT_GE(t.lines.size(), 11u);
    const EvalContext &ctx = front_worker->eval;
    const f32 phase = 13 * 0.017f;
    ASSERT_EQ(ctx.phase, phase);
    Summary s = summary_of(t);
    int white = material(param.mtl_pawn, 3, phase) +
                material(param.mtl_knight, 1, phase) +
                material(param.mtl_rook, 1, phase);
    int black =
        material(param.mtl_pawn, 2, phase) + material(param.mtl_rook, 1, phase);
    EXPECT_EQ(s.mtl, white - black);
    EXPECT_STREQ(s.phase, "0.22");
    EXPECT_EQ(s.rule50, 37);
    EXPECT_EQ(s.hce, t.hce);
    char sf[16];
    std::snprintf(sf, sizeof sf, "%0.2f", static_cast<double>(ctx.scale));
    EXPECT_STREQ(s.sf, sf);
    // Each piece line: what the stage added, less the bare material.
    auto stage = [&](int i, int c) {
        TermPair before = i ? ctx.trace_score[i - 1][c] : 0;
        return at_phase(
            static_cast<TermPair>(static_cast<u32>(ctx.trace_score[i][c]) -
                                  static_cast<u32>(before)),
            phase);
    };
    EXPECT_EQ(
        t.stages[TRACE_KNIGHTS].white,
        stage(TRACE_KNIGHTS, WHITE) - material(param.mtl_knight, 1, phase));
    EXPECT_EQ(t.stages[TRACE_KNIGHTS].black, 0);
    EXPECT_EQ(t.stages[TRACE_ROOKS].black,
              stage(TRACE_ROOKS, BLACK) - material(param.mtl_rook, 1, phase));
    EXPECT_EQ(t.stages[TRACE_PAWNS].white,
              stage(TRACE_PAWNS, WHITE) - material(param.mtl_pawn, 3, phase));
    // Lines without material are the stage sums as they are.
    EXPECT_EQ(t.stages[TRACE_KING].white, stage(TRACE_KING, WHITE));
    EXPECT_EQ(t.stages[TRACE_SPECIAL].white,
              at_phase(param.stm_bonus->packed, phase));
}

TEST_F(TraceTest, HungPiecesAreListedInSquareOrder) {
    // The e6 pawn attacks both knights.
    Trace t = run_trace("6k1/8/4p3/3N1N2/8/8/8/6K1 w - - 0 1", 1);
    ASSERT_GE(t.lines.size(), 11u);
    EXPECT_EQ(front_worker->eval.hung_squares, bit(8 * 4 + 3) | bit(8 * 4 + 5));
    EXPECT_EQ(t.lines[10], "hung pieces on:  d5 f5");
    EXPECT_EQ(t.lines[11].rfind("nne=", 0), 0u);
    EXPECT_EQ(count_lines_starting(t, "free pawns on: "), 0);
}

TEST_F(TraceTest, FreePawnsAreListed) {
    Trace t = run_trace("k7/8/8/4P3/8/8/8/7K w - - 0 1", 1);
    ASSERT_GE(t.lines.size(), 11u);
    EXPECT_EQ(count_lines_starting(t, "hung pieces on: "), 0);
    EXPECT_EQ(t.lines[10], "free pawns on:  e5");
    // No pieces: their lines are empty, and the material is the pawn.
    for (int i = TRACE_KNIGHTS; i <= TRACE_QUEENS; i++) {
        EXPECT_EQ(t.stages[i].white, 0) << LABELS[i];
        EXPECT_EQ(t.stages[i].black, 0) << LABELS[i];
    }
    EXPECT_EQ(summary_of(t).mtl,
              material(param.mtl_pawn, 1, front_worker->eval.phase));
}

TEST_F(TraceTest, BlackToMoveIsTheMirrorImageSwapped) {
    const std::string fen =
        "r1bq1rk1/pp2bppp/2n1pn2/3p4/2PP4/P1N1PN2/1P1B1PPP/R2QKB1R b KQ - 0 1";
    Trace black = run_trace(fen.c_str(), 1);
    Trace mirror = run_trace(mirror_fen(fen).c_str(), 1);
    ASSERT_GE(black.lines.size(), 11u);
    ASSERT_GE(mirror.lines.size(), 11u);
    for (int i = 0; i < 9; i++) {
        EXPECT_EQ(black.stages[i].white, mirror.stages[i].black) << LABELS[i];
        EXPECT_EQ(black.stages[i].black, mirror.stages[i].white) << LABELS[i];
    }
    EXPECT_EQ(summary_of(black).mtl, -summary_of(mirror).mtl);

    // The same board with white to move: only the bonus changes hands.
    std::string white_fen = fen;
    white_fen[white_fen.find(" b ") + 1] = 'w';
    Trace white = run_trace(white_fen.c_str(), 1);
    ASSERT_GE(white.lines.size(), 11u);
    for (int i = 0; i < TRACE_SPECIAL; i++) {
        EXPECT_EQ(black.stages[i].white, white.stages[i].white) << LABELS[i];
        EXPECT_EQ(black.stages[i].black, white.stages[i].black) << LABELS[i];
    }
    int bonus = at_phase(param.stm_bonus->packed, front_worker->eval.phase);
    EXPECT_EQ(white.stages[TRACE_SPECIAL].white,
              black.stages[TRACE_SPECIAL].white + bonus);
    EXPECT_EQ(white.stages[TRACE_SPECIAL].black,
              black.stages[TRACE_SPECIAL].black - bonus);
}

// One table row as the listing prints it, from the parameter values.
std::string table_row(ParamEntry *const *table, int rank) {
    std::string row;
    char cell[16];
    for (int f = 0; f < 8; f++) {
        std::snprintf(cell, sizeof cell, " %3d",
                      static_cast<int>(table[8 * rank + f]->mg));
        row += cell;
    }
    row += "     ";
    for (int f = 0; f < 8; f++) {
        std::snprintf(cell, sizeof cell, " %3d",
                      static_cast<int>(table[8 * rank + f]->eg));
        row += cell;
    }
    return row;
}

TEST_F(TraceTest, ModeTwoListsParametersAndTables) {
    Trace one = run_trace(START_FEN, 1);
    Trace two = run_trace(START_FEN, 2);
    // Mode 2 starts with everything mode 1 prints.
    ASSERT_EQ(two.text.compare(0, one.text.size(), one.text), 0);
    std::vector<std::string> rest =
        split_lines(two.text.substr(one.text.size()));
    // The 43 named parameters, in table order; no table, no tuning slot.
    ASSERT_GE(rest.size(), 43u + 9 * 10);
    int listed = 0;
    for (int i = 0; i < param_count; i++) {
        const ParamEntry &e = param_table[i];
        if (std::strstr(e.name, "PST_") || std::strstr(e.name, "ttune"))
            continue;
        char name[32];
        int mg = 0, eg = 0;
        ASSERT_EQ(
            std::sscanf(rest[listed].c_str(), "%31s %d , %d", name, &mg, &eg),
            3)
            << rest[listed];
        EXPECT_STREQ(name, e.name);
        EXPECT_EQ(mg, static_cast<int>(e.mg));
        EXPECT_EQ(eg, static_cast<int>(e.eg));
        EXPECT_EQ(rest[listed].size(), 22u + 2 + 4 + 3 + 4) << rest[listed];
        listed++;
    }
    EXPECT_EQ(listed, 43);
    EXPECT_EQ(rest[0], "mtl_pawn                 100 ,  100");
    // Nine tables: title, ranks 8 down to 1, an empty line.
    struct Table {
        const char *title;
        ParamEntry *const *entries;
    };
    const Table tables[9] = {{"Pawn1", param.pst_p1},
                             {"Pawn2", param.pst_p2},
                             {"Connected Pawn", param.pst_cp},
                             {"Defended Pawn", param.pst_dp},
                             {"Knight", param.pst_n},
                             {"Bishop", param.pst_b},
                             {"Rook", param.pst_r},
                             {"Queen", param.pst_q},
                             {"King ", param.pst_k}};
    ASSERT_EQ(rest.size(), 43u + 9 * 10);
    for (int i = 0; i < 9; i++) {
        size_t at = 43 + 10 * i;
        EXPECT_EQ(rest[at], tables[i].title);
        for (int rank = 7; rank >= 0; rank--)
            EXPECT_EQ(rest[at + 8 - rank], table_row(tables[i].entries, rank))
                << tables[i].title << " rank " << rank + 1;
        EXPECT_EQ(rest[at + 9], "");
    }
    // The knight's corner a1 reads from the table's bottom-left cell.
    EXPECT_EQ(rest[43 + 40 + 8].substr(0, 4),
              " " + std::to_string(static_cast<int>(param.pst_n[0]->mg)));
}

}  // namespace
