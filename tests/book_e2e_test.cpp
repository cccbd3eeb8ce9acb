// The real binary with a book over pipes: the OwnBook options, the book's
// info lines and an answer with no search; a ponder request and a book
// switched off search as before.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <set>

#include "engine_process.h"

namespace {

const std::set<std::string> START_BOOK_MOVES = {"e2e4", "d2d4", "g1f3",
                                                "c2c4", "b2b3", "f2f4"};

struct BookE2E : testing::Test {
    std::string dir;
    Engine engine;

    void SetUp() override {
        char pattern[] = "/tmp/quillon_book_e2e_XXXXXX";
        ASSERT_NE(mkdtemp(pattern), nullptr);
        dir = pattern;
        ASSERT_TRUE(engine.start({}, dir)) << engine.transcript();
        engine.send("setoption name OwnBook value true");
        engine.send(std::string("setoption name OwnBook_File value ") +
                    data_path("sample_book.bin"));
        ASSERT_TRUE(engine.ready()) << engine.transcript();
    }
    void TearDown() override {
        engine.quit();
        std::filesystem::remove_all(dir);
    }
};

TEST_F(BookE2E, FirstMovesComeFromTheBookWithoutASearch) {
    engine.send("position startpos");
    engine.send("go wtime 60000 btime 60000");
    std::vector<std::string> before;
    auto best = engine.wait_for(is_bestmove, 5000, &before);
    ASSERT_TRUE(best) << engine.transcript();
    std::string move = best_of(*best);
    EXPECT_EQ(START_BOOK_MOVES.count(move), 1u) << *best;
    ASSERT_EQ(before.size(), 2u) << joined(before);
    EXPECT_EQ(before[0],
              "info string ( book moves are: e2e4 d2d4 g1f3 c2c4 b2b3 f2f4  "
              ")");
    EXPECT_EQ(before[1], "info string book move is " + move);
    EXPECT_EQ(*best, "bestmove " + move);
    // The reply in the book too: 1. e4 has black answers in it.
    engine.send("position startpos moves e2e4");
    engine.send("go wtime 60000 btime 60000");
    before.clear();
    best = engine.wait_for(is_bestmove, 5000, &before);
    ASSERT_TRUE(best) << engine.transcript();
    ASSERT_EQ(before.size(), 2u) << joined(before);
    EXPECT_TRUE(starts_with(before[0], "info string ( book moves are: c7c5 "))
        << before[0];
    EXPECT_EQ(before[1], "info string book move is " + best_of(*best));
}

TEST_F(BookE2E, OutOfBookAndPonderAndBookOffSearch) {
    // A position the book doesn't know: a plain search.
    engine.send("position startpos moves a2a3 h7h6 h2h3 a7a6");
    engine.send("go depth 3");
    std::vector<std::string> before;
    auto best = engine.wait_for(is_bestmove, 10000, &before);
    ASSERT_TRUE(best) << engine.transcript();
    EXPECT_EQ(count_matching(before, line_starts("info string")), 0)
        << joined(before);
    EXPECT_GT(count_matching(before, line_starts("info depth 3")), 0);
    // A ponder request never asks the book.
    engine.send("position startpos");
    engine.send("go ponder depth 2");
    engine.send("stop");
    before.clear();
    best = engine.wait_for(is_bestmove, 10000, &before);
    ASSERT_TRUE(best) << engine.transcript();
    EXPECT_EQ(count_matching(before, line_starts("info string")), 0)
        << joined(before);
    // Off: the start position is searched.
    engine.send("setoption name OwnBook value false");
    engine.send("go depth 2");
    before.clear();
    best = engine.wait_for(is_bestmove, 10000, &before);
    ASSERT_TRUE(best) << engine.transcript();
    EXPECT_EQ(count_matching(before, line_starts("info string (")), 0);
    EXPECT_GT(count_matching(before, line_starts("info depth 2")), 0);
}

// A short game from the book: each answer is one of the listed candidates.
TEST_F(BookE2E, BookLineIsPlayedMoveByMove) {
    std::string moves;
    for (int ply = 0; ply < 6; ply++) {
        engine.send("position startpos" +
                    (moves.empty() ? std::string() : " moves" + moves));
        engine.send("go wtime 60000 btime 60000");
        std::vector<std::string> before;
        auto best = engine.wait_for(is_bestmove, 10000, &before);
        ASSERT_TRUE(best) << engine.transcript();
        if (count_matching(before, line_starts("info string book move is ")) ==
            0)
            break;
        std::string listed = before[0] + " ";
        EXPECT_NE(listed.find(" " + best_of(*best) + " "), std::string::npos)
            << listed;
        moves += " " + best_of(*best);
    }
    EXPECT_FALSE(moves.empty());
}

}  // namespace

namespace {

// -mkbook through the binary, then a game that opens from the new book.
TEST(BookE2EBuilt, BinaryBuildsABookAndPlaysFromIt) {
    char pattern[] = "/tmp/quillon_book_built_XXXXXX";
    ASSERT_NE(mkdtemp(pattern), nullptr);
    std::string dir = pattern;
    {
        Engine tool;
        ASSERT_TRUE(
            tool.start({"-mkbook", data_path("sample_games.pgn")}, dir, false));
        EXPECT_EQ(tool.wait_exit(30000), 0) << tool.transcript();
        EXPECT_EQ(count_matching(tool.lines(), line_starts("ngames= 400, ")), 1)
            << tool.transcript();
        EXPECT_EQ(count_matching(tool.lines(), line_is("done")), 1);
    }
    Engine engine;
    ASSERT_TRUE(engine.start({}, dir)) << engine.transcript();
    engine.send("setoption name OwnBook value true");
    engine.send("setoption name OwnBook_File value tmp_book.bin");
    engine.send("position startpos");
    engine.send("go wtime 60000 btime 60000");
    std::vector<std::string> before;
    auto best = engine.wait_for(is_bestmove, 5000, &before);
    ASSERT_TRUE(best) << engine.transcript();
    EXPECT_EQ(count_matching(before, line_is("info string book move is " +
                                             best_of(*best))),
              1)
        << joined(before);
    EXPECT_EQ(START_BOOK_MOVES.count(best_of(*best)), 1u);
    engine.quit();
    std::filesystem::remove_all(dir);
}

}  // namespace

namespace {

// -scan_pgn3 through the binary: the file named with -o, and the summary.
TEST(PgnScanE2E, BinaryScansAFile) {
    char pattern[] = "/tmp/quillon_scan_e2e_XXXXXX";
    ASSERT_NE(mkdtemp(pattern), nullptr);
    std::string dir = pattern;
    std::ofstream(dir + "/g.pgn")
        << "[Event \"e\"]\n[Result \"1-0\"]\n\n1. e4 {+0.20/9} e5 {-0.10/9} "
           "1-0\n";
    Engine tool;
    ASSERT_TRUE(
        tool.start({"-scan_pgn3", "g.pgn", "-o", "out.epd"}, dir, false));
    EXPECT_EQ(tool.wait_exit(30000), 0) << tool.transcript();
    EXPECT_EQ(count_matching(tool.lines(), line_is("games= 1, positions= 2")),
              1)
        << tool.transcript();
    std::ifstream out(dir + "/out.epd");
    std::string first;
    std::getline(out, first);
    EXPECT_EQ(first,
              "rnbqkbnr/pppppppp/8/8/8/8/PPPPPPPP/RNBQKBNR w KQkq - 0 0 bm e4; "
              "ce 20;");
    EXPECT_TRUE(std::filesystem::exists(dir + "/tmpX.epd"));
    std::filesystem::remove_all(dir);
}

}  // namespace
