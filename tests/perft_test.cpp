// Perft: counts of legal move paths against published tables.  Besides the
// standard suite, the Chess960 list is checked twice: Quillon's own counts
// follow its castling rule (the king's walk is tested with the castling
// rook still in place), and a reference count that also rejects a castling
// which leaves the king attacked must give the published counts.
#include <gtest/gtest.h>

#include <cstdio>
#include <cstring>
#include <map>
#include <string>
#include <vector>

#include "test_support.h"
#include "tools/perft_count.h"

namespace {

// The same walk as perft_count, but a castling move is also thrown out
// when the king stands attacked after it: the full rule of chess, which
// looks at a slider the castling rook had been shielding.
u64 reference_count(Position &pos, int depth) {
    Worker *w = worker_of(pos);
    generate_all(pos);
    u64 leaves = 0;
    for (MoveEntry *e = w->plies[w->ply].list_start; e->move != END_OF_LIST;
         e++) {
        int us = pos.side;
        if (!legal_move(pos, us, e->move)) continue;
        bool castling = (e->move & FLAG_MASK) && piece_type(e->moved) == KING;
        if (!castling && depth <= 1) {
            leaves++;
            continue;
        }
        make_move(pos, e->move);
        if (!castling || !square_attacked(pos, pos.king_sq[us], us ^ 1))
            leaves += depth <= 1 ? 1 : reference_count(pos, depth - 1);
        unmake_move(pos);
    }
    return leaves;
}

TEST(Perft, StandardSuiteToDepth3) {
    std::vector<PerftLine> lines = load_perft_suite("perft_standard.epd");
    ASSERT_EQ(lines.size(), 138u);
    for (size_t i = 0; i < lines.size(); i++)
        for (auto [depth, expected] : lines[i].counts) {
            if (depth > 3) break;
            Position &pos = test_position(lines[i].fen.c_str());
            EXPECT_EQ(perft_count(pos, depth), expected)
                << "line " << i + 1 << " depth " << depth << ": "
                << lines[i].fen;
        }
}

TEST(Perft, CountingLeavesTheStackAsItWas) {
    Position &pos = test_position(
        "r3k2r/p1ppqpb1/bn2pnp1/3PN3/1p2P3/2N2Q1p/PPPBBPPP/R3K2R w KQkq - 0 "
        "1");
    Position before;
    std::memcpy(&before, &pos, sizeof pos);
    EXPECT_EQ(perft_count(pos, 3), 97862u);
    EXPECT_EQ(std::memcmp(&before, &pos, sizeof pos), 0);
    EXPECT_EQ(pos.history->hist_index, 0);
    EXPECT_EQ(pos.history->ply, 1);
}

TEST(Perft, Chess960QuillonSuiteToDepth2) {
    std::vector<PerftLine> lines =
        load_perft_suite("perft_chess960_quillon.epd");
    ASSERT_EQ(lines.size(), 960u);
    for (size_t i = 0; i < lines.size(); i++)
        for (int depth = 1; depth <= 2; depth++) {
            Position &pos = test_position(lines[i].fen.c_str());
            EXPECT_EQ(perft_count(pos, depth), lines[i].counts[depth])
                << "line " << i + 1 << " depth " << depth << ": "
                << lines[i].fen;
        }
}

TEST(Perft, Chess960ReferenceGivesPublicCountsToDepth3) {
    // The full rule reproduces the public list on all 960 lines; where the
    // two lists agree, Quillon's own count gives the same numbers.
    std::vector<PerftLine> pub = load_perft_suite("perft_chess960.epd");
    std::vector<PerftLine> own = load_perft_suite("perft_chess960_quillon.epd");
    ASSERT_EQ(pub.size(), 960u);
    ASSERT_EQ(own.size(), 960u);
    int agreeing = 0;
    for (size_t i = 0; i < pub.size(); i++)
        for (int depth = 2; depth <= 3; depth++) {
            Position &pos = test_position(pub[i].fen.c_str());
            u64 reference = reference_count(pos, depth);
            EXPECT_EQ(reference, pub[i].counts[depth])
                << "line " << i + 1 << " depth " << depth << ": " << pub[i].fen;
            if (pub[i].counts[depth] != own[i].counts[depth]) continue;
            agreeing++;
            Position &again = test_position(pub[i].fen.c_str());
            EXPECT_EQ(perft_count(again, depth), reference)
                << "line " << i + 1 << " depth " << depth << ": " << pub[i].fen;
        }
    // Only line 262 tells the rules apart as early as depth 3.
    EXPECT_EQ(agreeing, 2 * 960 - 1);
}

TEST(Perft, Chess960DifferencesAreExactlyTheCastlingRule) {
    std::vector<PerftLine> pub = load_perft_suite("perft_chess960.epd");
    std::vector<PerftLine> own = load_perft_suite("perft_chess960_quillon.epd");
    ASSERT_EQ(pub.size(), 960u);
    ASSERT_EQ(own.size(), 960u);
    std::vector<size_t> differing;
    for (size_t i = 0; i < pub.size(); i++) {
        ASSERT_EQ(pub[i].fen, own[i].fen) << "line " << i + 1;
        for (int depth = 1; depth <= 4; depth++)
            if (pub[i].counts[depth] != own[i].counts[depth]) {
                differing.push_back(i);
                break;
            }
    }
    // Twelve lines differ by depth 4, the first of them (262) at depth 3.
    ASSERT_EQ(differing.size(), 12u);
    EXPECT_EQ(pub[261].counts[2], own[261].counts[2]);
    EXPECT_NE(pub[261].counts[3], own[261].counts[3]);
    for (size_t i : differing)
        for (int depth = 1; depth <= 4; depth++) {
            Position &pos = test_position(pub[i].fen.c_str());
            EXPECT_EQ(reference_count(pos, depth), pub[i].counts[depth])
                << "line " << i + 1 << " depth " << depth << ": " << pub[i].fen;
            Position &again = test_position(own[i].fen.c_str());
            EXPECT_EQ(perft_count(again, depth), own[i].counts[depth])
                << "line " << i + 1 << " depth " << depth << ": " << own[i].fen;
        }
}

}  // namespace
