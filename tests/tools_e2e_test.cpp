// The offline run modes of the real binary: EPD analysis with its tests
// and summary, the multi-pass analysis, and the two benchmarks.
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <random>
#include <regex>

#include "engine_process.h"

namespace {

constexpr const char *MATE_IN_ONE = "6k1/5ppp/8/8/8/8/5PPP/3R2K1 w - -";
constexpr const char *STALEMATE = "7k/5Q2/6K1/8/8/8/8/8 b - -";

struct ToolsE2E : testing::Test {
    std::string dir;
    Engine engine;

    void SetUp() override {
        char pattern[] = "/tmp/quillon_tools_XXXXXX";
        ASSERT_NE(mkdtemp(pattern), nullptr);
        dir = pattern;
    }
    void TearDown() override { std::filesystem::remove_all(dir); }

    void write_file(const std::string &name, const std::string &text) {
        std::ofstream(dir + "/" + name, std::ios::binary) << text;
    }
    std::vector<std::string> file_lines(const std::string &name) const {
        std::ifstream in(dir + "/" + name);
        std::vector<std::string> lines;
        for (std::string l; std::getline(in, l);) lines.push_back(l);
        return lines;
    }
    // Runs a tool to its end with its input left open; the exit status.
    int run_tool(const std::vector<std::string> &args, int ms = 60000) {
        if (!engine.start(args, dir, false)) return -2;
        return engine.wait_exit(ms);
    }
    // The output lines after "Analyzing", the greeting lines left out.
    std::vector<std::string> lines_from(const std::string &first) const {
        const auto &all = engine.lines();
        auto at = std::find(all.begin(), all.end(), first);
        return {at, all.end()};
    }
};

std::string analysis_file() {
    std::string m = MATE_IN_ONE;
    return "# a comment\n"
           "; another comment\n"
           " " +
           m +
           " bm Rd8;\n"
           "short\n" +
           m + " bm Rd8, Kf1;\n" +           // two moves, the first right
           m + " bm Rd8 Kf1;\n" +            // joined into one text: no match
           m + " 0 1 am Kf1;\n" +            // avoided: right
           m + " c0 \"Rd8=10, Kf1=3\";\n" +  // ten points of ten
           m + " c0 \"Kf1=4, h3=2\";\n" +    // none of four
           m + " bm Rd8; gr keep; id \"g\";\n" + STALEMATE + " bm Kh7;\n";
}

TEST_F(ToolsE2E, AnalysisScoresTheTestsAndPrintsTheSummary) {
    write_file("t.epd", analysis_file());
    ASSERT_EQ(run_tool({"-anepd", "t.epd", "-d", "4"}), 0)
        << engine.transcript() << engine.err();
    auto out = lines_from("Analyzing t.epd...");
    ASSERT_EQ(out.size(), 10u) << engine.transcript();
    EXPECT_EQ(out[1], "3 / 7 correct best moves");
    EXPECT_TRUE(std::regex_match(out[2], std::regex("total nodes= [0-9]+")))
        << out[2];
    EXPECT_TRUE(std::regex_match(
        out[3], std::regex("total time= [0-9]+\\.[0-9]{2} seconds")))
        << out[3];
    // Mate in one ends every search after its first iteration; the
    // stalemate reports depth 1 as well.
    EXPECT_EQ(out[4], "avg depth= 1.0");
    EXPECT_TRUE(std::regex_match(out[5], std::regex("avg nodes= [0-9]+\\.0")))
        << out[5];
    EXPECT_TRUE(std::regex_match(out[6], std::regex("node_rate= [0-9]+")));
    EXPECT_EQ(out[7], "avg bf= 2.00");
    EXPECT_EQ(out[8], "score= 10 / 14");
    EXPECT_EQ(out[9], "");
}

TEST_F(ToolsE2E, AnalysisWritesEachAnswerAndKeepsGradedLines) {
    write_file("t.epd", analysis_file());
    ASSERT_EQ(run_tool({"-anepd", "t.epd", "-d", "4"}), 0);
    std::string rewritten = std::string(MATE_IN_ONE) + " bm d1d8; ce 9998;";
    // The stalemate gives no move and writes nothing.
    std::vector<std::string> expected(5, rewritten);
    expected.push_back(std::string(MATE_IN_ONE) +
                       " bm Rd8; gr keep; id \"g\"; sc 9998;");
    EXPECT_EQ(file_lines("analysis.epd"), expected);
    // Without MultiPV passes no child positions are written.
    EXPECT_TRUE(file_lines("tmp_0.epd").empty());
}

TEST_F(ToolsE2E, OutputFileSwitchNamesTheAnswerFile) {
    write_file("t.epd", std::string(MATE_IN_ONE) + " bm Rd8;\n");
    ASSERT_EQ(run_tool({"-anepd", "t.epd", "-d", "3", "-o", "mine.epd"}), 0)
        << engine.transcript();
    EXPECT_EQ(file_lines("mine.epd").size(), 1u);
    EXPECT_FALSE(std::filesystem::exists(dir + "/analysis.epd"));
}

TEST_F(ToolsE2E, PlainAnalysisIsSilentAndNoiseBringsTheLinesBack) {
    write_file("t.epd", std::string(MATE_IN_ONE) + " bm Rd8;\n");
    ASSERT_EQ(run_tool({"-anepd", "t.epd", "-d", "4"}), 0);
    EXPECT_EQ(count_matching(engine.lines(), line_starts("pos= ")), 0);
    EXPECT_EQ(count_matching(engine.lines(), line_starts("move= ")), 0);

    Engine loud;
    ASSERT_TRUE(
        loud.start({"-anepd", "t.epd", "-d", "4", "-noise", "0"}, dir, false));
    ASSERT_EQ(loud.wait_exit(60000), 0);
    const auto &l = loud.lines();
    auto at = std::find(l.begin(), l.end(), "pos= 1");
    ASSERT_NE(at, l.end()) << loud.transcript();
    // The line as read, then the board with its FEN, eight ranks, the side.
    EXPECT_EQ(at[1], std::string(MATE_IN_ONE) + " bm Rd8;");
    EXPECT_EQ(at[2], std::string(MATE_IN_ONE) + " 0 0");
    EXPECT_EQ(at[3], "  - + - + - + k +");
    EXPECT_EQ(at[4], "  + - + - + o o o");
    EXPECT_EQ(at[10], "  + - + R + - K -");
    EXPECT_EQ(at[11], "white");
    EXPECT_EQ(count_matching(l, line_starts("info depth 1 ")), 1);
    std::regex answer(
        "move= d1d8, time= [0-9]+\\.[0-9]{3}, score= 9998, nodes= [0-9]+, "
        "[0-9]+K nps");
    EXPECT_EQ(count_matching(l,
                             [&](const std::string &x) {
                                 return std::regex_match(x, answer);
                             }),
              1)
        << loud.transcript();
}

TEST_F(ToolsE2E, QuitDuringAnAnalysisEndsItAfterThatPosition) {
    std::string text;
    for (int i = 0; i < 6; i++)
        text +=
            "r1bqkb1r/pp1ppppp/2n2n2/8/3NP3/2N5/PPP2PPP/R1BQKB1R b KQkq - "
            "bm e5;\n";
    write_file("t.epd", text);
    ASSERT_TRUE(engine.start({"-anepd", "t.epd", "-d", "9"}, dir, false));
    ASSERT_TRUE(engine.wait_for(line_is("Analyzing t.epd..."), 10000));
    engine.send("quit");
    ASSERT_EQ(engine.wait_exit(60000), 0) << engine.transcript();
    std::smatch m;
    std::string counts;
    for (const std::string &l : engine.lines())
        if (l.find("correct best moves") != std::string::npos) counts = l;
    ASSERT_TRUE(std::regex_match(
        counts, m, std::regex("([0-9]+) / ([0-9]+) correct best moves")))
        << engine.transcript();
    int done = std::stoi(m[2]);
    EXPECT_GE(done, 1);
    EXPECT_LT(done, 6);
    EXPECT_EQ(static_cast<int>(file_lines("analysis.epd").size()), done);
}

// A tool run with nothing on its input works through the whole file.
TEST_F(ToolsE2E, AnalysisWithItsInputClosedReadsTheWholeFile) {
    std::string m = MATE_IN_ONE;
    write_file("t.epd", m + " bm Rd8;\n" + m + " bm Kf1;\n" + m + " bm h3;\n");
    ASSERT_TRUE(engine.start({"-anepd", "t.epd", "-d", "3"}, dir, false));
    engine.close_input();
    ASSERT_EQ(engine.wait_exit(60000), 0);
    EXPECT_EQ(
        count_matching(engine.lines(), line_is("1 / 3 correct best moves")), 1)
        << engine.transcript();
    EXPECT_EQ(file_lines("analysis.epd").size(), 3u);
}

TEST_F(ToolsE2E, MissingFileEndsTheToolInSilenceAndFails) {
    ASSERT_EQ(run_tool({"-anepd", "nothing.epd"}), 1);
    EXPECT_EQ(count_matching(engine.lines(), line_starts("Analyzing")), 0);
    EXPECT_EQ(count_matching(engine.lines(), line_starts("score= ")), 0);
}

// Ten passes; the mate's one good line leads to a mated position, whose
// search has no move and so no children: the file runs dry.
TEST_F(ToolsE2E, MultiPassFeedsEachPassTheNext) {
    write_file("m.epd", std::string(MATE_IN_ONE) + " bm Rd8;\n");
    ASSERT_EQ(run_tool({"-mkbook2", "m.epd", "-d", "3"}), 0)
        << engine.transcript() << engine.err();
    const auto &l = engine.lines();
    EXPECT_EQ(count_matching(l, line_is("copy m.epd tmp_1.epd")), 1);
    EXPECT_EQ(count_matching(l, line_is("Analyzing tmp_1.epd...")), 10);
    EXPECT_EQ(count_matching(l, line_is("copy tmp_0.epd tmp_1.epd")), 10);
    EXPECT_EQ(count_matching(l, line_is("d1d8  9998")), 1)
        << engine.transcript();
    EXPECT_EQ(count_matching(l, line_is("1 / 1 correct best moves")), 1);
    EXPECT_EQ(count_matching(l, line_is("0 / 1 correct best moves")), 1);
    EXPECT_EQ(count_matching(l, line_is("0 / 0 correct best moves")), 8);
    EXPECT_TRUE(file_lines("tmp_1.epd").empty());
}

// Every line within 30 points of the best gives a child position: here
// the two mates, and none of the slower moves.
TEST_F(ToolsE2E, MultiPassWritesTheChildrenOfCloseLines) {
    write_file("m.epd", "7k/6pp/8/8/8/8/6PP/3RR1K1 w - - bm Rd8;\n");
    ASSERT_EQ(run_tool({"-mkbook2", "m.epd", "-d", "3"}), 0)
        << engine.transcript();
    std::regex child("[a-h][1-8][a-h][1-8]  -?[0-9]+");
    std::set<std::string> children;
    for (const std::string &l : engine.lines())
        if (std::regex_match(l, child)) children.insert(l);
    EXPECT_EQ(children, (std::set<std::string>{"d1d8  9998", "e1e8  9998"}))
        << engine.transcript();
    // The second pass read both mated positions and found no move in them.
    EXPECT_EQ(
        count_matching(engine.lines(), line_is("0 / 2 correct best moves")), 1)
        << engine.transcript();
}

TEST_F(ToolsE2E, BenchPrintsEachPositionAndTheTotal) {
    ASSERT_EQ(run_tool({"-bench", "-d", "6"}), 0) << engine.transcript();
    auto out = lines_from("Quillon 6.50 running benchmark using 1 threads");
    ASSERT_EQ(out.size(), 22u) << engine.transcript();
    for (int i = 0; i < 20; i++) {
        char prefix[16];
        std::snprintf(prefix, sizeof prefix, "pos %2d: ", i);
        EXPECT_TRUE(starts_with(out[1 + i], prefix)) << out[1 + i];
        EXPECT_TRUE(std::regex_match(out[1 + i].substr(8),
                                     std::regex(" *[0-9]+\\.[0-9]{2} seconds")))
            << out[1 + i];
    }
    EXPECT_TRUE(std::regex_match(
        out[21], std::regex("total time= [0-9]+\\.[0-9]{2} seconds, nodes= "
                            "[0-9]+, nps= [0-9]+")))
        << out[21];
}

long long bench_nodes(const std::vector<std::string> &lines) {
    for (const std::string &l : lines) {
        std::smatch m;
        if (std::regex_search(l, m, std::regex("nodes= ([0-9]+),")))
            return std::stoll(m[1]);
    }
    return -1;
}

// The search on the main thread and on a search thread are one search:
// the node totals agree, and -pbench works alone whatever -threads says.
TEST_F(ToolsE2E, PbenchSearchesTheSameTreeOnOneThread) {
    ASSERT_EQ(run_tool({"-bench", "-d", "5"}), 0);
    long long threaded = bench_nodes(engine.lines());
    Engine inline_run;
    ASSERT_TRUE(
        inline_run.start({"-pbench", "-d", "5", "-threads", "4"}, dir, false));
    ASSERT_EQ(inline_run.wait_exit(60000), 0);
    EXPECT_EQ(count_matching(
                  inline_run.lines(),
                  line_is("Quillon 6.50 running benchmark using 4 threads")),
              1)
        << inline_run.transcript();
    long long alone = bench_nodes(inline_run.lines());
    EXPECT_GT(threaded, 0);
    EXPECT_EQ(alone, threaded);
}

// "quillon bench", as testing frameworks run it: the benchmark's lines,
// then "<nodes> nodes <nps> nps" last, exit status 0, and the node count
// of -bench at the same depth.
TEST_F(ToolsE2E, BenchWordEndsWithNodesAndSpeed) {
    ASSERT_EQ(run_tool({"bench", "-d", "7"}), 0) << engine.transcript();
    const auto &lines = engine.lines();
    ASSERT_FALSE(lines.empty());
    std::smatch m;
    ASSERT_TRUE(std::regex_match(lines.back(), m,
                                 std::regex("([0-9]+) nodes ([0-9]+) nps")))
        << engine.transcript();
    long long nodes = std::stoll(m[1]);
    EXPECT_GT(std::stoll(m[2]), 0);
    EXPECT_EQ(nodes, bench_nodes(lines));
    EXPECT_EQ(count_matching(lines, line_starts("pos 19: ")), 1);

    Engine dash_bench;
    ASSERT_TRUE(dash_bench.start({"-bench", "-d", "7"}, dir, false));
    ASSERT_EQ(dash_bench.wait_exit(60000), 0);
    EXPECT_EQ(bench_nodes(dash_bench.lines()), nodes);
    // -bench itself keeps its last line.
    EXPECT_TRUE(starts_with(dash_bench.lines().back(), "total time= "))
        << dash_bench.transcript();
}

}  // namespace

namespace {

// Random bytes, cut lines, and FEN texts with men in odd places: the
// analysis reads them all, searches what it can and ends with its summary.
TEST_F(ToolsE2E, AnalysisOfAFileOfJunkEndsWithTheSummary) {
    std::mt19937 rng(2024);
    const std::string real =
        "r1bqkbnr/pppp1ppp/2n5/4p3/4P3/5N2/PPPP1PPP/RNBQKB1R w KQkq - 2 3 bm "
        "Bb5, Bc4; am h3; c0 \"Bb5=10, Bc4=8\"; id \"open.1\";";
    const std::string men = "pnbrqkPNBRQK12345678/";
    std::string text;
    for (int i = 0; i < 40; i++) {
        switch (rng() % 4) {
            case 0:  // a prefix of a real line
                text += real.substr(0, rng() % real.size());
                break;
            case 1: {  // random bytes, no line ends
                int n = static_cast<int>(rng() % 700);
                for (int k = 0; k < n; k++) {
                    char c = static_cast<char>(1 + rng() % 255);
                    text += c == '\n' ? ' ' : c;
                }
                break;
            }
            default: {  // a board of random men, then a side and tests
                for (int k = 0; k < 30; k++) text += men[rng() % men.size()];
                text += rng() % 2 ? " w" : " b";
                text += " KQkq - bm e4; am Kb1; c0 \"a=1\";";
            }
        }
        text += "\n";
    }
    write_file("junk.epd", text);
    ASSERT_EQ(run_tool({"-anepd", "junk.epd", "-d", "3"}, 120000), 0)
        << engine.transcript() << engine.err();
    EXPECT_EQ(count_matching(engine.lines(), line_starts("score= ")), 1)
        << engine.transcript();
}

}  // namespace
