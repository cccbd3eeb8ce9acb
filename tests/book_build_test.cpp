// -mkbook: counts and filters, weights, castling and promotion records,
// comments and variations, set-up games, the key order of the file, a
// book built from the sample games read back by the lookup, and damaged
// PGN input.
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <map>
#include <random>
#include <sstream>
#include <string>
#include <vector>

#include "book/book.h"
#include "book_support.h"

namespace {

std::string game(const std::string &result, const std::string &moves,
                 const std::string &extra_tags = "") {
    return "[Event \"t\"]\n[Result \"" + result + "\"]\n" + extra_tags + "\n" +
           moves + " " + result + "\n\n";
}

std::string repeat(const std::string &text, int times) {
    std::string out;
    for (int i = 0; i < times; i++) out += text;
    return out;
}

u64 key_after(std::vector<const char *> moves) {
    Position &pos = test_position(START_FEN);
    for (const char *m : moves) make_move(pos, coord_move(m));
    return book_key(pos);
}

// Every test builds in a temporary folder of its own: "tmp_book.bin" is
// written to the working directory.
struct BookBuildTest : testing::Test {
    std::string dir, old_cwd;
    std::string out;

    void SetUp() override {
        char pattern[] = "/tmp/quillon_mkbook_XXXXXX";
        ASSERT_NE(mkdtemp(pattern), nullptr);
        dir = pattern;
        old_cwd = std::filesystem::current_path();
        std::filesystem::current_path(dir);
    }
    void TearDown() override {
        std::filesystem::current_path(old_cwd);
        std::filesystem::remove_all(dir);
        set_fen(front_worker->position, START_FEN);
    }

    // Builds from `pgn`; the records written, in file order.
    std::vector<BookEntry> build(const std::string &pgn) {
        std::ofstream(dir + "/in.pgn", std::ios::binary) << pgn;
        out = capture([&] { make_book((dir + "/in.pgn").c_str()); });
        return read_book(dir + "/tmp_book.bin");
    }
    static std::vector<BookEntry> read_book(const std::string &path) {
        std::vector<BookEntry> records;
        FILE *f = std::fopen(path.c_str(), "rb");
        if (!f) return records;
        BookEntry e{};
        while (!read_book_entry(f, e)) records.push_back(e);
        std::fclose(f);
        return records;
    }
    std::string report(int games, int moves, int records) const {
        char text[200];
        std::snprintf(text, sizeof text,
                      "\nngames= %d, nmoves= %d\nbook contains %d moves\n",
                      games, moves, records);
        return text;
    }
};

TEST_F(BookBuildTest, EmptyAndTagFreeInputGiveAnEmptyBook) {
    for (const std::string pgn : {"", "1. e4 e5 2. Nf3 Nc6 *\n\n1. d4 d5\n"}) {
        auto records = build(pgn);
        EXPECT_TRUE(records.empty());
        EXPECT_TRUE(std::filesystem::exists(dir + "/tmp_book.bin"));
        EXPECT_EQ(std::filesystem::file_size(dir + "/tmp_book.bin"), 0u);
        EXPECT_NE(out.find(report(0, 0, 0)), std::string::npos) << out;
    }
    EXPECT_EQ(out.rfind(" Creating file tmp_book.bin from games in ", 0), 0u)
        << out;
    EXPECT_NE(out.find("\nwriting book file ...\nngames="), std::string::npos);
    EXPECT_EQ(out.substr(out.size() - 6), "done\n\n");
}

TEST_F(BookBuildTest, MissingInputWritesNothing) {
    out = capture([&] { make_book((dir + "/none.pgn").c_str()); });
    EXPECT_EQ(out, "");
    EXPECT_FALSE(std::filesystem::exists(dir + "/tmp_book.bin"));
}

// Five games not lost, and more than lost: four wins are not enough, five
// are, with weight 4 * 5 = 20.
TEST_F(BookBuildTest, FiveGamesNotLostAreNeeded) {
    auto records = build(repeat(game("1-0", "1. e4"), 4));
    EXPECT_TRUE(records.empty());
    EXPECT_NE(out.find(report(4, 1, 0)), std::string::npos) << out;
    records = build(repeat(game("1-0", "1. e4"), 5));
    ASSERT_EQ(records.size(), 1u);
    EXPECT_EQ(records[0].key, key_after({}));
    EXPECT_EQ(records[0].move, record_move("e2e4"));
    EXPECT_EQ(records[0].weight, 20);
    EXPECT_EQ(records[0].learn, 0u);
}

// 6 wins and 6 losses: dropped; 7 and 6: 28 - 12 = 16.  Black's reply
// has the counts the other way round and is dropped.
TEST_F(BookBuildTest, MoreGamesNotLostThanLost) {
    std::string six_lost = repeat(game("0-1", "1. e4 e5"), 6);
    auto records = build(repeat(game("1-0", "1. e4 e5"), 6) + six_lost);
    EXPECT_TRUE(records.empty());
    records = build(repeat(game("1-0", "1. e4 e5"), 7) + six_lost);
    ASSERT_EQ(records.size(), 1u);
    EXPECT_EQ(records[0].move, record_move("e2e4"));
    EXPECT_EQ(records[0].weight, 16);
    EXPECT_NE(out.find(report(13, 2, 1)), std::string::npos) << out;
}

// 0 wins, 4 losses, 5 draws: kept, score -3, written with weight 0.
TEST_F(BookBuildTest, NegativeScoreIsWrittenWithWeightZero) {
    auto records = build(repeat(game("0-1", "1. e4"), 4) +
                         repeat(game("1/2-1/2", "1. e4"), 5) +
                         repeat(game("1-0", "1. d4"), 5));
    ASSERT_EQ(records.size(), 2u);
    EXPECT_EQ(records[0].move, record_move("d2d4"));
    EXPECT_EQ(records[0].weight, 20);
    EXPECT_EQ(records[1].move, record_move("e2e4"));
    EXPECT_EQ(records[1].weight, 0);
}

// Weights are scaled so that the best stays within 60000; ordinary
// scores are not scaled.  Heavier moves come first.
TEST_F(BookBuildTest, HeavierMovesFirstAndWeightsWithinBounds) {
    auto records = build(repeat(game("1-0", "1. d4"), 5) +
                         repeat(game("1-0", "1. e4"), 8) +
                         repeat(game("1/2-1/2", "1. c4"), 6));
    ASSERT_EQ(records.size(), 3u);
    EXPECT_EQ(records[0].move, record_move("e2e4"));
    EXPECT_EQ(records[0].weight, 32);
    EXPECT_EQ(records[1].weight, 20);
    EXPECT_EQ(records[2].weight, 6);
    records = build(repeat(game("1-0", "1. e4"), 16000) +
                    repeat(game("1-0", "1. d4"), 8000));
    ASSERT_EQ(records.size(), 2u);
    EXPECT_EQ(records[0].weight, 60000);
    EXPECT_EQ(records[1].weight, 30000);
    // A dot for every 1024 games.
    EXPECT_NE(out.find("......................."), std::string::npos);
}

TEST_F(BookBuildTest, UnfinishedAndSetUpGamesAddNothing) {
    std::string fen = "[FEN \"" + std::string(START_FEN) + "\"]\n";
    auto records = build(repeat(game("*", "1. e4"), 6) +
                         repeat(game("1-0", "1. d4", fen), 6));
    EXPECT_TRUE(records.empty());
    EXPECT_NE(out.find(report(12, 0, 0)), std::string::npos) << out;
}

TEST_F(BookBuildTest, CommentsAndVariationsAddNothing) {
    std::string moves =
        "1. e4 {a comment (with e4) and { a nested one } still\n"
        "[on a new line} e5 (1... c5 2. Nf3 (2. c3 d5) d6) 2. Nf3 $1 ;rest\n"
        "2... Nc6\n";
    auto records = build(repeat(game("1/2-1/2", moves), 5));
    std::map<u64, u16> by_key;
    for (const BookEntry &e : records) by_key[e.key] = e.move;
    ASSERT_EQ(records.size(), 4u);
    EXPECT_EQ(by_key[key_after({})], record_move("e2e4"));
    EXPECT_EQ(by_key[key_after({"e2e4"})], record_move("e7e5"));
    EXPECT_EQ(by_key[key_after({"e2e4", "e7e5"})], record_move("g1f3"));
    EXPECT_EQ(by_key[key_after({"e2e4", "e7e5", "g1f3"})], record_move("b8c6"));
    for (const BookEntry &e : records) EXPECT_EQ(e.weight, 5);
}

// Two move orders to one position count in the same nodes.
TEST_F(BookBuildTest, TranspositionsShareNodes) {
    auto records = build(repeat(game("1-0", "1. e4 e5 2. Nf3 Nc6 3. Bb5"), 3) +
                         repeat(game("1-0", "1. Nf3 Nc6 2. e4 e5 3. Bb5"), 2));
    u64 key = key_after({"e2e4", "e7e5", "g1f3", "b8c6"});
    int found = 0;
    for (const BookEntry &e : records)
        if (e.key == key) {
            found++;
            EXPECT_EQ(e.move, record_move("f1b5"));
            EXPECT_EQ(e.weight, 20);
        }
    EXPECT_EQ(found, 1);
}

TEST_F(BookBuildTest, CastlingAndPromotionRecords) {
    std::string castles = "1. e4 e5 2. Nf3 Nc6 3. Bc4 Bc5 4. O-O d6";
    auto records = build(repeat(game("1-0", castles), 5));
    u64 key = key_after({"e2e4", "e7e5", "g1f3", "b8c6", "f1c4", "f8c5"});
    bool seen = false;
    for (const BookEntry &e : records)
        if (e.key == key) {
            // King takes rook, with the field 4 of the short castling.
            EXPECT_EQ(e.move, record_move("e1h1", 4));
            seen = true;
        }
    EXPECT_TRUE(seen);
    // Read back by the lookup as castling.
    Position &pos = test_position(START_FEN);
    for (const char *m : {"e2e4", "e7e5", "g1f3", "b8c6", "f1c4", "f8c5"})
        make_move(pos, coord_move(m));
    Move m = NO_MOVE;
    capture([&] { m = book_probe(pos, "tmp_book.bin"); });
    EXPECT_EQ(m, make_move_code(sq_of("e1"), sq_of("g1"), FLAG_SHORT));

    // A promotion with its field; without a letter the game ends there.
    std::string promote =
        "1. e4 d5 2. exd5 c6 3. dxc6 Nf6 4. cxb7 Nbd7 5. bxa8=N e6";
    records = build(repeat(game("1-0", promote), 5) +
                    repeat(game("1-0",
                                "1. d4 e5 2. dxe5 f6 3. exf6 Nc6 4. "
                                "fxg7 Nf6 5. gxh8 e6 6. c4"),
                           5));
    u64 before_promotion = key_after(
        {"e2e4", "d7d5", "e4d5", "c7c6", "d5c6", "g8f6", "c6b7", "b8d7"});
    u64 before_bare = key_after(
        {"d2d4", "e7e5", "d4e5", "f7f6", "e5f6", "b8c6", "f6g7", "g8f6"});
    int promotions = 0, bare = 0;
    for (const BookEntry &e : records) {
        if (e.key == before_promotion) {
            EXPECT_EQ(e.move, record_move("b7a8", 1));
            promotions++;
        }
        bare += e.key == before_bare ? 1 : 0;
    }
    EXPECT_EQ(promotions, 1);
    EXPECT_EQ(bare, 0);
    // The moves before the bare promotion still count: 1. d4 is there.
    bool d4 = false;
    for (const BookEntry &e : records)
        d4 |= e.key == key_after({}) && e.move == record_move("d2d4");
    EXPECT_TRUE(d4);
}

// The ply bound is tested once a line: a game on one line is read to its
// end, one spread over lines stops after the line of the 36th ply.
TEST_F(BookBuildTest, PlyBoundIsTestedOncePerLine) {
    std::string shuffle;
    for (int i = 0; i < 12; i++) shuffle += "Nf3 Nf6 Ng1 Ng8 ";
    auto records = build(repeat(game("1/2-1/2", shuffle), 5));
    // Every position of the shuffle, and its counts summed over 12 rounds:
    // 4 nodes, each seen 12 times a game.
    ASSERT_EQ(records.size(), 4u);
    for (const BookEntry &e : records) EXPECT_EQ(e.weight, 60);
    std::string lines;
    for (int i = 0; i < 12; i++) lines += "Nf3 Nf6 Ng1 Ng8\n";
    records = build(repeat(game("1/2-1/2", lines), 5));
    ASSERT_EQ(records.size(), 4u);
    // Plies 1 to 36 are counted: nine rounds.
    for (const BookEntry &e : records) EXPECT_EQ(e.weight, 45);
}

// Keys in ascending order, every record a legal move of its position,
// and the lookup answers from the book.
TEST_F(BookBuildTest, SampleGamesMakeASortedPlayableBook) {
    std::ifstream in(data_path("sample_games.pgn"));
    std::stringstream pgn;
    pgn << in.rdbuf();
    auto records = build(pgn.str());
    ASSERT_FALSE(records.empty());
    EXPECT_NE(out.find("ngames= 400, "), std::string::npos) << out;
    for (size_t i = 1; i < records.size(); i++) {
        EXPECT_LE(records[i - 1].key, records[i].key);
        if (records[i - 1].key == records[i].key) {
            EXPECT_GE(records[i - 1].weight, records[i].weight);
        }
    }
    Position &pos = test_position(START_FEN);
    Move m = NO_MOVE;
    std::string text = capture([&] { m = book_probe(pos, "tmp_book.bin"); });
    EXPECT_NE(m, NO_MOVE) << text;
    EXPECT_EQ(text.rfind("info string ( book moves are: e2e4 ", 0), 0u) << text;
    // Polyglot's own reader accepts the file where it is installed.
    const char *polyglot = "/usr/games/polyglot";
    if (access(polyglot, X_OK) != 0) return;
    std::string cmd =
        std::string(polyglot) + " info-book -bin tmp_book.bin > info.txt 2>&1";
    ASSERT_EQ(std::system(cmd.c_str()), 0);
    std::ifstream info(dir + "/info.txt");
    std::stringstream all;
    all << info.rdbuf();
    EXPECT_NE(all.str().find("Lines for white"), std::string::npos)
        << all.str();
}

// Damaged input: binary noise, cut files, unclosed comments, deep
// nesting, long lines and very long games end quietly with a report.
TEST_F(BookBuildTest, DamagedPgnEndsQuietly) {
    std::mt19937 rng(7);
    std::ifstream in(data_path("sample_games.pgn"));
    std::stringstream sample;
    sample << in.rdbuf();
    std::string text = sample.str().substr(0, 20000);
    ASSERT_FALSE(text.empty());
    std::vector<std::string> inputs;
    for (int i = 0; i < 20; i++) {
        std::string noise(rng() % 3000, 0);
        for (char &c : noise) c = static_cast<char>(rng());
        inputs.push_back(noise);
        inputs.push_back(text.substr(0, rng() % text.size()));
        std::string mixed = text.substr(0, 5000);
        for (int k = 0; k < 50; k++)
            mixed[rng() % mixed.size()] = static_cast<char>(rng());
        inputs.push_back(mixed);
    }
    inputs.push_back(game("1-0", "1. e4 { never closed e5 2. Nf3"));
    inputs.push_back(game("1-0", std::string(5000, '(') + "1. e4" +
                                     std::string(6000, ')') + " e5"));
    inputs.push_back(game("1-0", std::string(10000, 'e')));
    inputs.push_back(game("1-0", "1. e4 " + std::string(10000, ' ') + "e5"));
    inputs.push_back("[Result \"1-0\"" + std::string(10000, 'x') + "\n");
    std::string long_game;
    for (int i = 0; i < 250; i++) long_game += "Nf3 Nf6 Ng1 Ng8 ";
    inputs.push_back(game("1-0", long_game));
    inputs.push_back(game("1-0", long_game.substr(0, 1000)));
    for (const std::string &pgn : inputs) {
        build(pgn);
        EXPECT_NE(out.find("ngames= "), std::string::npos);
        EXPECT_EQ(front_worker->hist_index < STATE_STACK_SIZE, true);
    }
}

}  // namespace
