// The training-data tools: EPD lines packed into records (-epd2bin), and
// the searched EPD files of -mktune1 and -mktune2, in this process and
// through the real binary.
#include <gtest/gtest.h>

#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <random>
#include <string>

#include "core/settings.h"
#include "core/status.h"
#include "engine_process.h"
#include "test_support.h"
#include "tools/train_epd.h"

namespace {

constexpr const char *START =
    "rnbqkbnr/pppppppp/8/8/8/8/PPPPPPPP/RNBQKBNR w KQkq -";
constexpr const char *ROOK_UP = "4k3/8/8/8/8/8/8/R3K3 w Q -";

std::string with(const char *fen, const std::string &ops) {
    return std::string(fen) + " " + ops;
}

bool record_of(const std::string &line, TrainRecord &r) {
    return epd_line_record(line.c_str(), r);
}

TEST(EpdToBin, ALineWithoutCeOrScGivesNoRecord) {
    TrainRecord r;
    EXPECT_FALSE(record_of(with(START, "gr 1.0;"), r));
    EXPECT_FALSE(record_of(with(START, "bm e4; id \"x\";"), r));
    EXPECT_TRUE(record_of(with(START, "ce 12;"), r));
    // A board without both kings is one the reader could not set up.
    EXPECT_FALSE(record_of("8/8/8/8/8/8/8/4K3 w - - ce 12;", r));
}

TEST(EpdToBin, GameResultsInScoreUnits) {
    TrainRecord r;
    ASSERT_TRUE(record_of(with(ROOK_UP, "ce 30; gr 1.0;"), r));
    EXPECT_EQ(r.result_logit, 1919);
    ASSERT_TRUE(record_of(with(ROOK_UP, "ce 30; gr 0.0;"), r));
    EXPECT_EQ(r.result_logit, -1919);
    ASSERT_TRUE(record_of(with(ROOK_UP, "ce 30; gr 0.5;"), r));
    EXPECT_EQ(r.result_logit, 0);
    // Without a result the probability of ce stands for it.
    ASSERT_TRUE(record_of(with(ROOK_UP, "ce 300;"), r));
    EXPECT_EQ(r.result_logit, result_logit(win_probability(300)));
    EXPECT_NEAR(r.result_logit, 300, 1);
}

TEST(EpdToBin, MissingScoreTakesTheOtherAndScIsClamped) {
    TrainRecord r;
    ASSERT_TRUE(record_of(with(ROOK_UP, "ce 450;"), r));
    EXPECT_EQ(r.ce, 450);
    EXPECT_EQ(r.sc, 450);
    ASSERT_TRUE(record_of(with(ROOK_UP, "sc -2600;"), r));
    EXPECT_EQ(r.ce, -2600);
    EXPECT_EQ(r.sc, -2000);
    ASSERT_TRUE(record_of(with(ROOK_UP, "ce 70000; sc 5;"), r));
    EXPECT_EQ(r.ce, 32767);  // the end of 16 bits
    EXPECT_EQ(r.sc, 5);
    // The position itself.
    char fen[FEN_BUFFER_SIZE];
    record_fen(r, fen);
    EXPECT_STREQ(fen, ROOK_UP);
}

TEST(EpdToBin, CommentsAndShortLinesArePassedOver) {
    TrainRecord r;
    EXPECT_FALSE(record_of(" " + with(START, "ce 1;"), r));
    EXPECT_FALSE(record_of("#" + with(START, "ce 1;"), r));
    EXPECT_FALSE(record_of(";" + with(START, "ce 1;"), r));
    EXPECT_FALSE(record_of("k7/8/K7 w - - ce 1;", r));  // 19 characters
    EXPECT_TRUE(record_of("k7/8/K7 w - - ce 12;", r));
    EXPECT_EQ(r.ce, 12);
}

// Random and cut lines: never a crash, whatever the record says.
TEST(EpdToBin, RandomAndTruncatedLinesAreSafe) {
    std::mt19937 rng(7);
    const std::string good = with(START, "ce 25; sc 31; gr 0.5; bm e4;");
    const char pieces[] = "rnbqkpRNBQKP/12345678 wb-KQkqe3ceg r;.0-9\n\t\"";
    for (int i = 0; i < 20000; i++) {
        std::string line;
        if (i % 2) {
            line = good.substr(0, rng() % (good.size() + 1));
            if (!line.empty() && i % 4 == 1)
                line[rng() % line.size()] = rng() & 255;
        } else {
            int n = rng() % 300;
            for (int k = 0; k < n; k++)
                line += pieces[rng() % (sizeof pieces - 1)];
        }
        line.resize(std::min<size_t>(line.size(), 254));
        TrainRecord r{};
        if (record_of(line, r)) {
            EXPECT_GE(r.sc, -2000);
            EXPECT_LE(r.sc, 2000);
            EXPECT_LE(std::abs(r.result_logit), 1919);
        }
    }
}

TEST(TuneMake, ContradictionsOfResultAndScore) {
    EXPECT_TRUE(contradicts_result(1.0, 0.2));
    EXPECT_FALSE(contradicts_result(1.0, 0.25));
    EXPECT_TRUE(contradicts_result(0.0, 0.8));
    EXPECT_FALSE(contradicts_result(0.0, 0.75));
    EXPECT_TRUE(contradicts_result(0.5, 0.05));
    EXPECT_TRUE(contradicts_result(0.5, 0.95));
    EXPECT_FALSE(contradicts_result(0.5, 0.5));
    EXPECT_FALSE(contradicts_result(0.7, 0.0));  // no such result
}

struct TrainingToolsE2E : testing::Test {
    std::string dir;
    Engine engine;
    void SetUp() override {
        char pattern[] = "/tmp/quillon_training_XXXXXX";
        ASSERT_NE(mkdtemp(pattern), nullptr);
        dir = pattern;
    }
    void TearDown() override { std::filesystem::remove_all(dir); }
    void write_file(const std::string &name, const std::string &text) {
        std::ofstream(dir + "/" + name, std::ios::binary) << text;
    }
    std::string read_file(const std::string &name) const {
        std::ifstream in(dir + "/" + name, std::ios::binary);
        return std::string(std::istreambuf_iterator<char>(in), {});
    }
    bool exists(const std::string &name) const {
        return std::filesystem::exists(dir + "/" + name);
    }
    int run_tool(const std::vector<std::string> &args) {
        if (!engine.start(args, dir, false)) return -2;
        return engine.wait_exit(60000);
    }
    bool printed(const std::string &line) const {
        for (const std::string &l : engine.lines())
            if (l == line) return true;
        return false;
    }
};

TEST_F(TrainingToolsE2E, MkTune1WithTheSameFileForInputAndOutputDoesNothing) {
    const std::string text = with(START, "ce 20; gr 0.5;\n");
    write_file("a.epd", text);
    // Nothing done is a failure of the command line.
    ASSERT_EQ(run_tool({"-mktune1", "a.epd", "-o", "a.epd", "-d", "2"}), 1);
    EXPECT_EQ(read_file("a.epd"), text);
    EXPECT_FALSE(printed("Creating file a.epd"));
}

TEST_F(TrainingToolsE2E, MkTune1LineWithCeAndNoResultHasNoLineEnd) {
    write_file("a.epd", with(ROOK_UP, "ce 500;\n"));
    ASSERT_EQ(run_tool({"-mktune1", "a.epd", "-o", "b.epd", "-d", "3"}), 0);
    EXPECT_TRUE(printed("Creating file b.epd")) << engine.transcript();
    std::string out = read_file("b.epd");
    ASSERT_FALSE(out.empty());
    EXPECT_NE(out.back(), '\n');
    // The line's ce, turned when the line had an odd number of moves.
    EXPECT_TRUE(out.substr(out.size() - 8) == " ce 500;" ||
                out.substr(out.size() - 9) == " ce -500;")
        << out;
}

TEST_F(TrainingToolsE2E, MkTune1WritesTheLeafOfTheLine) {
    // With a result: the leaf's FEN, the line's ce and the result, both
    // turned when the line has an odd length.
    write_file("a.epd", with(ROOK_UP, "ce 500; gr 1.0;\n") +
                            with(START, "bm e4;\n") + "# comment\n" +
                            with(ROOK_UP, "ce -900; gr 1.0;\n"));
    ASSERT_EQ(run_tool({"-mktune1", "a.epd", "-d", "3"}), 0);
    std::ifstream in(dir + "/tune_new.epd");
    std::vector<std::string> lines;
    for (std::string l; std::getline(in, l);) lines.push_back(l);
    // The contradicting third line is dropped.
    ASSERT_EQ(lines.size(), 2u) << read_file("tune_new.epd");
    EXPECT_TRUE(lines[0].find(" ce 500; gr 1.0;") != std::string::npos ||
                lines[0].find(" ce -500; gr 0.0;") != std::string::npos)
        << lines[0];
    // Without ce: the search's score alone.
    EXPECT_EQ(lines[1].find(" ce "), std::string::npos) << lines[1];
    EXPECT_EQ(lines[1].back(), ';');
    EXPECT_TRUE(printed(" n= 0"));
}

TEST_F(TrainingToolsE2E, MkTune2KeepsQuietPositionsWithTheirScore) {
    // A hanging queen is taken at once: not quiet, dropped.
    write_file("a.epd",
               with(START, "ce 10; gr 0.5;\n") +
                   with("4k3/8/8/3q4/8/8/8/3QK3 w - -", "ce 0; gr 0.5;\n") +
                   with(START, "bm e4;\n"));
    ASSERT_EQ(run_tool({"-mktune2", "a.epd", "-d", "3"}), 0);
    std::ifstream in(dir + "/tune_new.epd");
    std::vector<std::string> lines;
    for (std::string l; std::getline(in, l);) lines.push_back(l);
    ASSERT_EQ(lines.size(), 2u) << read_file("tune_new.epd");
    EXPECT_EQ(lines[0].rfind(std::string(START) + " ce 10; sc ", 0), 0u)
        << lines[0];
    EXPECT_NE(lines[0].find("; gr 0.5;"), std::string::npos);
    EXPECT_EQ(lines[1].rfind(std::string(START) + " sc ", 0), 0u) << lines[1];
}

TEST_F(TrainingToolsE2E, EpdToBinPacksTheGoodLinesAndDropsTheRest) {
    write_file("set.epd", with(START, "ce 20; gr 0.5;\n") + "junk\n" +
                              with(START, "bm e4;\n") + "#" +
                              with(START, "ce 1;\n") +
                              with(ROOK_UP, "sc 700; gr 1.0;\n") +
                              "x/y/z w - - ce 5; and more text here\n");
    ASSERT_EQ(run_tool({"-epd2bin", "set.epd"}), 0);
    EXPECT_TRUE(printed("allocated 9600 Mbytes for training data."));
    EXPECT_TRUE(printed("read 2 positions.")) << engine.transcript();
    EXPECT_TRUE(printed("stored 2 positions in set.bin."));
    std::string bin = read_file("set.bin");
    ASSERT_EQ(bin.size(), 2u * 40);
    TrainRecord r;
    std::memcpy(&r, bin.data() + 40, 40);
    EXPECT_EQ(r.ce, 700);
    EXPECT_EQ(r.sc, 700);
    EXPECT_EQ(r.result_logit, 1919);
}

// The tables' verdict stands above the game's: a won game in a drawn
// ending is stored as a draw, a lost one in a won ending as a win.
TEST_F(TrainingToolsE2E, EpdToBinTakesTheTablesVerdictOverTheGames) {
    write_file("tb.epd",
               "8/8/4k3/8/8/3BK3/8/8 w - - ce 300; gr 1.0;\n"
               "8/8/4k3/8/8/3QK3/8/8 w - - ce 900; gr 0.0;\n" +
                   with(ROOK_UP, "ce 30; gr 0.0;\n"));
    ASSERT_EQ(run_tool({"-epd2bin", "tb.epd", "-tbpath", data_path("syzygy")}),
              0);
    EXPECT_TRUE(printed("stored 3 positions in tb.bin."))
        << engine.transcript();
    std::string bin = read_file("tb.bin");
    ASSERT_EQ(bin.size(), 3u * 40);
    TrainRecord r[3];
    std::memcpy(r, bin.data(), sizeof r);
    EXPECT_EQ(r[0].result_logit, 0);
    EXPECT_EQ(r[1].result_logit, 1919);
    // Castling rights keep the tables out: the game's result stands.
    EXPECT_EQ(r[2].result_logit, -1919);
}

TEST_F(TrainingToolsE2E, EpdToBinWithoutEpdInTheNameDoesNothing) {
    write_file("set.txt", with(START, "ce 20;\n"));
    ASSERT_EQ(run_tool({"-epd2bin", "set.txt"}), 1);
    EXPECT_FALSE(printed("allocated 9600 Mbytes for training data."));
    EXPECT_EQ(std::distance(std::filesystem::directory_iterator(dir),
                            std::filesystem::directory_iterator()),
              1);
}

}  // namespace
