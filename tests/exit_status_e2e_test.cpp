// The result of every command-line tool of the real binaries: 0 when the
// tool did its work, 1 when it failed (a file it could not read or write,
// nothing to work on, an argument it can't use), with the tool saying
// exactly what it always says: a tool that fails in silence still does.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <memory>
#include <string>
#include <vector>

#include "engine_process.h"

namespace {

constexpr const char *MATE_IN_ONE = "6k1/5ppp/8/8/8/8/5PPP/3R2K1 w - -";
constexpr const char *ONE_GAME =
    "[Event \"e\"]\n[White \"w\"]\n[Black \"b\"]\n[Result \"1-0\"]\n\n"
    "1. e4 {+0.20/10} e5 {-0.10/10} 2. Nf3 {+0.30/10} 1-0\n";

struct ExitStatusE2E : testing::Test {
    std::string dir;
    std::unique_ptr<Engine> engine = std::make_unique<Engine>();

    void SetUp() override {
        char pattern[] = "/tmp/quillon_status_XXXXXX";
        ASSERT_NE(mkdtemp(pattern), nullptr);
        dir = pattern;
    }
    void TearDown() override { std::filesystem::remove_all(dir); }

    void write_file(const std::string &name, const std::string &text) {
        std::ofstream(dir + "/" + name, std::ios::binary) << text;
    }
    // Runs a tool to its end with its input closed; its exit status.
    int run(const std::vector<std::string> &args,
            const char *exe = QUILLON_EXE) {
        engine = std::make_unique<Engine>();
        if (!engine->start(args, dir, false, exe)) return -2;
        engine->close_input();
        return engine->wait_exit(60000);
    }
    // Whether the run printed nothing but the start-up's "info string"
    // lines: the tool itself was silent.
    bool silent() const {
        for (const std::string &l : engine->lines())
            if (!starts_with(l, "info string ")) return false;
        return engine->err().empty();
    }
    bool printed(const std::string &line) const {
        return count_matching(engine->lines(), line_is(line)) > 0;
    }
};

TEST_F(ExitStatusE2E, EpdAnalysis) {
    write_file("t.epd", std::string(MATE_IN_ONE) + " bm Rd8;\n");
    EXPECT_EQ(run({"-anepd", "t.epd", "-d", "2"}), 0);
    EXPECT_EQ(run({"-anepd", "missing.epd", "-d", "2"}), 1);
    EXPECT_TRUE(silent()) << engine->transcript();
    EXPECT_EQ(run({"-anepd"}), 1);  // no file named
    EXPECT_TRUE(silent()) << engine->transcript();
    // A folder opens but can't be read: the tool runs its course over no
    // line, and fails.
    std::filesystem::create_directory(dir + "/folder.epd");
    EXPECT_EQ(run({"-anepd", "folder.epd", "-d", "2"}), 1);
    EXPECT_TRUE(printed("0 / 0 correct best moves")) << engine->transcript();
    // The answers can't be written.
    std::filesystem::create_directory(dir + "/out.epd");
    EXPECT_EQ(run({"-anepd", "t.epd", "-d", "2", "-o", "out.epd"}), 1);
    EXPECT_TRUE(silent()) << engine->transcript();
}

TEST_F(ExitStatusE2E, MultiPassAnalysis) {
    write_file("m.epd", std::string(MATE_IN_ONE) + " bm Rd8;\n");
    EXPECT_EQ(run({"-mkbook2", "m.epd", "-d", "2"}), 0);
    // Without its file the passes still run, as they always did, over
    // nothing; the result says the file was missing.
    std::filesystem::remove(dir + "/tmp_1.epd");
    EXPECT_EQ(run({"-mkbook2", "missing.epd", "-d", "2"}), 1);
    EXPECT_TRUE(printed("copy missing.epd tmp_1.epd")) << engine->transcript();
    EXPECT_EQ(run({"-mkbook2"}), 1);
    EXPECT_TRUE(engine->lines().empty()) << engine->transcript();
}

TEST_F(ExitStatusE2E, PgnScans) {
    write_file("g.pgn", ONE_GAME);
    for (const char *scan :
         {"-scan_pgn1", "-scan_pgn2", "-scan_pgn3", "-scan_pgn4"}) {
        EXPECT_EQ(run({scan, "g.pgn"}), 0) << scan;
        EXPECT_EQ(count_matching(engine->lines(), line_starts("games= 1, ")), 1)
            << scan << engine->transcript();
        EXPECT_EQ(run({scan, "missing.pgn"}), 1) << scan;
        EXPECT_TRUE(silent()) << scan << engine->transcript();
    }
    // The plain switch only names the file: the engine starts as usual.
    EXPECT_EQ(run({"-scan_pgn", "missing.pgn"}), 0);
}

TEST_F(ExitStatusE2E, BookBuilding) {
    write_file("g.pgn", ONE_GAME);
    EXPECT_EQ(run({"-mkbook", "g.pgn"}), 0);
    EXPECT_TRUE(printed("done")) << engine->transcript();
    EXPECT_EQ(run({"-mkbook", "missing.pgn"}), 1);
    EXPECT_TRUE(silent()) << engine->transcript();
    // An empty collection is an empty book, not a failure.
    write_file("empty.pgn", "");
    EXPECT_EQ(run({"-mkbook", "empty.pgn"}), 0);
    // The book can't be written: the counts come all the same.
    std::filesystem::remove(dir + "/tmp_book.bin");
    std::filesystem::create_directories(dir + "/tmp_book.bin/x");
    EXPECT_EQ(run({"-mkbook", "g.pgn"}), 1);
    EXPECT_TRUE(printed("book contains 0 moves")) << engine->transcript();
}

TEST_F(ExitStatusE2E, TrainingPositions) {
    write_file("a.epd", std::string(MATE_IN_ONE) + " ce 500;\n");
    EXPECT_EQ(run({"-mktune1", "a.epd", "-o", "b.epd", "-d", "2"}), 0);
    EXPECT_EQ(run({"-mktune2", "a.epd", "-o", "b.epd", "-d", "2"}), 0);
    EXPECT_EQ(run({"-mktune1", "missing.epd", "-o", "b.epd", "-d", "2"}), 1);
    EXPECT_TRUE(silent()) << engine->transcript();
    EXPECT_EQ(run({"-mktune1", "a.epd", "-o", "a.epd", "-d", "2"}), 1);
    EXPECT_TRUE(silent()) << engine->transcript();
}

TEST_F(ExitStatusE2E, EpdToRecords) {
    write_file("a.epd", std::string(MATE_IN_ONE) + " ce 500; gr 1.0;\n");
    EXPECT_EQ(run({"-epd2bin", "a.epd"}), 0);
    EXPECT_TRUE(printed("stored 1 positions in a.bin."))
        << engine->transcript();
    EXPECT_EQ(run({"-epd2bin", "missing.epd"}), 1);
    EXPECT_TRUE(silent()) << engine->transcript();
    EXPECT_EQ(run({"-epd2bin", "a.txt"}), 1);
    EXPECT_TRUE(silent()) << engine->transcript();
    // The records can't be stored.
    std::filesystem::remove(dir + "/a.bin");
    std::filesystem::create_directory(dir + "/a.bin");
    EXPECT_EQ(run({"-epd2bin", "a.epd"}), 1);
    EXPECT_FALSE(printed("stored 1 positions in a.bin."));
}

TEST_F(ExitStatusE2E, PruningWithoutRecords) {
    EXPECT_EQ(run({"-prune_nn", "missing.bin"}), 1);
    EXPECT_TRUE(printed("read 0 positions from missing.bin."))
        << engine->transcript();
}

TEST_F(ExitStatusE2E, StartUpOnlyAndBenchSucceed) {
    EXPECT_EQ(run({"-mkconfig"}), 0);
    EXPECT_EQ(run({"-bench", "-d", "2"}), 0);
    EXPECT_EQ(run({"-pbench", "-d", "2"}), 0);
    EXPECT_EQ(run({}), 0);  // the think cycle, ended by the closed input
    EXPECT_EQ(run({"-c"}), 0);
}

TEST_F(ExitStatusE2E, TunerModesOfTheEngineBuild) {
    EXPECT_EQ(run({"-tune", "a.bin", "5"}), 1);
    EXPECT_EQ(run({"-mktraindata", "data", "1"}), 1);
    EXPECT_EQ(run({"-tune", "a.bin", "0"}), 1);
}

TEST_F(ExitStatusE2E, TrainerWithNothingToTrainOn) {
    std::filesystem::create_directory(dir + "/empty");
    EXPECT_EQ(run({"-tune", "empty", "1"}, QUILLON_TTUNE_EXE), 1);
    EXPECT_TRUE(printed("no training positions")) << engine->transcript();
}

// A game process that fails is seen: here its data file is a folder.
TEST_F(ExitStatusE2E, SelfPlayChecksItsGameProcesses) {
    std::vector<std::string> args = {
        "-mktraindata", "data", "0.0002", "-threads", "1",
        "-n",           "100",  "-seed",  "1",        "-use_hce"};
    std::filesystem::create_directories(dir +
                                        "/data/selfplay-s1-n100-t1-w0.bin");
    EXPECT_EQ(run(args, QUILLON_TTUNE_EXE), 1);
    EXPECT_TRUE(
        printed("1 of 1 game processes failed: their shares are not "
                "complete"))
        << engine->transcript();
    std::filesystem::remove_all(dir + "/data");
    EXPECT_EQ(run(args, QUILLON_TTUNE_EXE), 0) << engine->transcript();
    write_file("file", "");
    args[1] = "file/data";
    EXPECT_EQ(run(args, QUILLON_TTUNE_EXE), 1);
    EXPECT_TRUE(printed("can't create the data folder"))
        << engine->transcript();
}

}  // namespace
