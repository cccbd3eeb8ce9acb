// The real binary in the console dialect (-c): whole transcripts of a
// short game with undo, redo and jump, a FEN and its evaluation, a game
// loaded and saved, a position edited, perft, the clock, searches that
// drop typed moves, self-play, and random lines with and without a search
// running.
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <random>
#include <sstream>
#include <string>
#include <vector>

#include "engine_process.h"
#include "eval/network.h"
#include "frontend/console.h"
#include "test_support.h"

namespace {

constexpr const char *START_BOARD_FEN =
    "rnbqkbnr/pppppppp/8/8/8/8/PPPPPPPP/RNBQKBNR w KQkq - 0 0";

// The board print of the start position, line by line.
const std::vector<std::string> START_BOARD = {
    START_BOARD_FEN,     "  r n b q k b n r",
    "  o o o o o o o o", "  - + - + - + - +",
    "  + - + - + - + -", "  - + - + - + - +",
    "  + - + - + - + -", "  P P P P P P P P",
    "  R N B Q K B N R", "white"};

bool is_side_line(const std::string &l) { return l == "white" || l == "black"; }

struct ConsoleE2ETest : testing::Test {
    std::string dir;
    Engine engine;

    void SetUp() override {
        char pattern[] = "/tmp/quillon_console_XXXXXX";
        ASSERT_NE(mkdtemp(pattern), nullptr);
        dir = pattern;
    }
    void TearDown() override { std::filesystem::remove_all(dir); }

    // Starts the console and reads the board the think cycle shows first.
    void start() {
        ASSERT_TRUE(engine.start({"-c"}, dir)) << engine.transcript();
        auto first = board();
        ASSERT_EQ(first, START_BOARD) << engine.transcript();
    }

    // The lines up to and including the next board's side line.
    std::vector<std::string> board(int ms = 5000) {
        std::vector<std::string> passed;
        auto side = engine.wait_for(is_side_line, ms, &passed);
        if (side) passed.push_back(*side);
        return passed;
    }

    std::vector<std::string> board_after(const std::string &line) {
        engine.send(line);
        return board();
    }

    // The lines of a board print that ends `lines`, from its FEN line on.
    static std::vector<std::string> last_board(
        const std::vector<std::string> &lines) {
        if (lines.size() < 10) return {};
        return {lines.end() - 10, lines.end()};
    }

    std::vector<std::string> command(const std::string &line,
                                     const Predicate &last, int ms = 5000) {
        engine.send(line);
        std::vector<std::string> passed;
        auto end = engine.wait_for(last, ms, &passed);
        if (end) passed.push_back(*end);
        return passed;
    }

    std::string file_text(const std::string &name) const {
        std::ifstream in(dir + "/" + name, std::ios::binary);
        std::stringstream text;
        text << in.rdbuf();
        return text.str();
    }

    void write_file(const std::string &name, const std::string &text) const {
        std::ofstream out(dir + "/" + name, std::ios::binary);
        out << text;
    }
};

// --------------------------------------------------------------- a game

using ConsoleE2EGame = ConsoleE2ETest;

TEST_F(ConsoleE2EGame, TypedMovesUndoRedoAndJump) {
    start();
    engine.send("e2e4");
    auto after_e4 = board();
    ASSERT_GE(after_e4.size(), 11u) << engine.transcript();
    EXPECT_EQ(after_e4[0], "1. move e2e4");
    EXPECT_EQ(after_e4[1],
              "rnbqkbnr/pppppppp/8/8/4P3/8/PPPP1PPP/RNBQKBNR b KQkq e3 0 1");
    EXPECT_EQ(after_e4[6], "  - + - + P + - +");
    EXPECT_EQ(after_e4.back(), "black");

    engine.send("e7e5");
    auto after_e5 = board();
    ASSERT_FALSE(after_e5.empty());
    EXPECT_EQ(after_e5[0], "1. move e7e5");
    engine.send("Nf3");
    auto after_nf3 = board();
    ASSERT_GE(after_nf3.size(), 2u);
    EXPECT_EQ(after_nf3[0], "2. move Nf3");
    EXPECT_EQ(after_nf3[1],
              "rnbqkbnr/pppp1ppp/8/4p3/4P3/5N2/PPPP1PPP/RNBQKB1R b KQkq - 1 3");

    // undo shows the board before Nf3; ] brings it back.
    auto undone = board_after("undo");
    ASSERT_EQ(undone.size(), 10u) << engine.transcript();
    EXPECT_EQ(undone[0],
              "rnbqkbnr/pppp1ppp/8/4p3/4P3/8/PPPP1PPP/RNBQKBNR w KQkq e6 0 2");
    auto redone = board_after("]");
    ASSERT_EQ(redone.size(), 11u) << engine.transcript();
    EXPECT_EQ(redone[0], "2. move g1f3");
    EXPECT_EQ(redone[1], after_nf3[1]);
    // At the end of the chain ] says nothing; [ is undo.
    engine.send("]");
    auto back = board_after("[");
    ASSERT_EQ(back.size(), 10u) << engine.transcript();
    EXPECT_EQ(back[0], undone[0]);

    // jump 1 is the start, jump 2 the position after 1... e5: the whole
    // chain (three plies) is still there.
    auto jumped = board_after("jump 1");
    ASSERT_EQ(jumped.size(), 10u);
    EXPECT_EQ(jumped[0], START_BOARD_FEN);
    jumped = board_after("jump 2");
    ASSERT_EQ(jumped.size(), 10u);
    EXPECT_EQ(jumped[0], undone[0]);
    jumped = board_after("jump 99");
    ASSERT_EQ(jumped.size(), 10u);
    EXPECT_EQ(jumped[0], after_nf3[1]);

    // A different move cuts the chain.
    board_after("undo");
    auto other = board_after("Nc3");
    ASSERT_GE(other.size(), 2u);
    EXPECT_EQ(other[0], "2. move Nc3");
    engine.send("]");
    auto same = board_after("bd");
    ASSERT_EQ(same.size(), 10u) << engine.transcript();
    EXPECT_EQ(same[0], other[1]);

    auto bad = command("e2e5", line_starts("invalid"));
    ASSERT_FALSE(bad.empty());
    EXPECT_EQ(bad.back(), "invalid: a1a1");
    EXPECT_EQ(engine.quit(), 0) << engine.err();
    EXPECT_EQ(engine.err(), "");
}

// ----------------------------------------------------------- fen and ev

using ConsoleE2EEval = ConsoleE2ETest;

// The trace the engine prints is the one the linked evaluation makes for
// the same position.
TEST_F(ConsoleE2EEval, FenThenEvPrintsTheTrace) {
    const char *fen =
        "r1bq1rk1/pp2bppp/2n1pn2/3p4/2PP4/2N1PN2/PP3PPP/R2QKB1R b KQ - 3 8";
    start();
    auto shown = board_after(std::string("fen ") + fen);
    ASSERT_EQ(shown.size(), 10u) << engine.transcript();
    EXPECT_EQ(shown[0],
              "r1bq1rk1/pp2bppp/2n1pn2/3p4/2PP4/2N1PN2/PP3PPP/R2QKB1R b KQ - "
              "0 0");
    EXPECT_EQ(shown[9], "black");

    auto trace = command("ev", line_starts("nne= "));
    ASSERT_FALSE(trace.empty()) << engine.transcript();

    // The engine evaluates with its built-in net, when it has one.
    testing::internal::CaptureStdout();
    load_network("embedded");
    test_position(fen);
    front_worker->eval.eval_ply = 1;
    EXPECT_EQ(testing::internal::GetCapturedStdout(), embedded_net_line());
    testing::internal::CaptureStdout();
    evaluation_trace(front_worker, 1);
    std::string expected = testing::internal::GetCapturedStdout();
    release_network_state(front_worker);
    free_network();
    std::string got;
    for (const std::string &l : trace) got += l + "\n";
    // The trace ends with an empty line after its summary.
    EXPECT_EQ(got + "\n", expected);
    EXPECT_EQ(trace.front(), "           white  black      md");
    EXPECT_EQ(engine.quit(), 0);
}

// ----------------------------------------------------------- load, save

using ConsoleE2EFiles = ConsoleE2ETest;

TEST_F(ConsoleE2EFiles, SaveWritesTheGameInItsFixedForm) {
    start();
    const char *moves[] = {"e4",  "e5",  "Nf3", "Nc6", "Bb5", "a6",  "Ba4",
                           "Nf6", "O-O", "Be7", "Re1", "b5",  "Bb3", "d6"};
    for (const char *m : moves) board_after(m);
    engine.send("save");
    auto shown = board_after("bd");
    ASSERT_EQ(shown.size(), 10u) << engine.transcript();
    EXPECT_EQ(shown[0],
              "r1bqk2r/2p1bppp/p1np1n2/1p2p3/4P3/1B3N2/PPPP1PPP/RNBQR1K1 w kq "
              "- 0 14");
    EXPECT_EQ(file_text("tmp.pgn"),
              "[Event \"Unknown\"]\n"
              "e4 e5 Nf3 Nc6 Bb5 a6 Ba4 Nf6 o-o Be7 Re1 \n"
              "b5 Bb3 d6 \n\n");
    // Appending: a second save adds the same game again.
    engine.send("save");
    board_after("bd");
    EXPECT_EQ(file_text("tmp.pgn"),
              std::string("[Event \"Unknown\"]\n"
                          "e4 e5 Nf3 Nc6 Bb5 a6 Ba4 Nf6 o-o Be7 Re1 \n"
                          "b5 Bb3 d6 \n\n") +
                  "[Event \"Unknown\"]\n"
                  "e4 e5 Nf3 Nc6 Bb5 a6 Ba4 Nf6 o-o Be7 Re1 \n"
                  "b5 Bb3 d6 \n\n");
    EXPECT_EQ(engine.quit(), 0);
}

// A game of the sample file, loaded, saved, loaded from the save and saved
// again: the two saves are the same bytes and the boards the same.
TEST_F(ConsoleE2EFiles, LoadSaveRoundTrip) {
    std::filesystem::copy_file(data_path("sample_games.pgn"),
                               dir + "/games.pgn");
    start();
    // The tag picks the game; ] does nothing at the end of a loaded game.
    engine.send("load games.pgn \"3\"]");
    auto third = board();
    ASSERT_EQ(third.size(), 11u) << engine.transcript();
    EXPECT_EQ(third[0], "loading games.pgn, tag \"3\"]");
    std::string third_fen = third[1];
    EXPECT_EQ(third_fen,
              "7r/1pk3b1/2p3P1/3r1q2/p3RP1p/P1P5/1P6/1K3Q2 w - - 2 80");
    engine.send("]");
    auto same = board_after("bd");
    ASSERT_EQ(same.size(), 10u) << engine.transcript();
    EXPECT_EQ(same[0], third_fen);

    engine.send("save");
    auto reloaded = board_after("load tmp.pgn");
    ASSERT_EQ(reloaded.size(), 11u) << engine.transcript();
    EXPECT_EQ(reloaded[1], third_fen);
    std::string once = file_text("tmp.pgn");
    EXPECT_EQ(
        once.rfind("[Event \"Unknown\"]\nNf3 g5 h3 Bg7 e4 Nc6 Nc3 e5 h4 g4 "
                   "Ng5 \nh6 Nxf7 Kxf7 d4 ",
                   0),
        0u)
        << once;
    engine.send("save");
    board_after("bd");
    std::string twice = file_text("tmp.pgn");
    ASSERT_EQ(twice.size(), 2 * once.size());
    EXPECT_EQ(twice.substr(once.size()), once);
    EXPECT_EQ(engine.quit(), 0);
}

// The mate sign is no part of a move's written forms, and the saved forms
// are as loose as they are written: a knight or rook move that another
// man of its kind could make stays plain, and reads back as ambiguous.
TEST_F(ConsoleE2EFiles, LooseFormsStopAReload) {
    std::filesystem::copy_file(data_path("sample_games.pgn"),
                               dir + "/games.pgn");
    start();
    engine.send("load games.pgn");
    auto loaded = board();
    ASSERT_EQ(loaded.size(), 12u) << engine.transcript();
    EXPECT_EQ(loaded[0], "loading games.pgn, tag ");
    EXPECT_EQ(loaded[1], "can't parse move 'Qe2#'");
    engine.send("save");
    auto reloaded = board_after("load tmp.pgn");
    ASSERT_EQ(reloaded.size(), 13u) << engine.transcript();
    EXPECT_EQ(reloaded[1], "ambiguous move");
    EXPECT_EQ(reloaded[2], "can't parse move 'Rb5'");
    // A missing file only resets the clocks.
    auto missing = command("load nothing.pgn", line_starts("loading"));
    EXPECT_EQ(missing.back(), "loading nothing.pgn, tag ");
    auto shown = board_after("bd");
    ASSERT_EQ(shown.size(), 10u) << engine.transcript();
    EXPECT_EQ(shown[0], reloaded[3]);
    EXPECT_EQ(engine.quit(), 0);
}

TEST_F(ConsoleE2EFiles, GetFindsAPositionById) {
    write_file("test.epd",
               " 8/8/8/8/8/8/8/K6k w - - id \"one\";\n"
               ";8/8/8/8/8/8/8/K6k w - - id \"one\";\n"
               "4k3/8/8/8/8/8/8/4K2R w K - bm O-O; id \"one\";\n");
    start();
    auto found = board_after("get one");
    ASSERT_EQ(found.size(), 11u) << engine.transcript();
    EXPECT_EQ(found[0], "4k3/8/8/8/8/8/8/4K2R w K - bm O-O; id \"one\";");
    EXPECT_EQ(found[1], "4k3/8/8/8/8/8/8/4K2R w K - 0 0");
    auto none = board_after("get two");
    ASSERT_EQ(none.size(), 11u) << engine.transcript();
    EXPECT_EQ(none[0], "");
    EXPECT_EQ(none[1], found[1]);
    EXPECT_EQ(engine.quit(), 0);
}

// ----------------------------------------------------------------- edit

using ConsoleE2EEdit = ConsoleE2ETest;

TEST_F(ConsoleE2EEdit, BuildsAPositionLineByLine) {
    start();
    engine.send("edit");
    engine.send("#");
    engine.send("w Ke1 Qd1 Ra1 Pe9 Ph2");
    engine.send("b ke8 pa7 xb7");
    engine.send("w Ba7");
    engine.send("nonsense Qh8");
    engine.send(".");
    auto edited = board();
    ASSERT_GE(edited.size(), 16u) << engine.transcript();
    EXPECT_EQ(edited[0], "");
    EXPECT_EQ(edited[1], "");
    EXPECT_EQ(edited[2], ".                    end edit");
    EXPECT_EQ(edited[3], "#                    clear board");
    EXPECT_EQ(edited[4], "w  Pa2 Pb2 Kc2       white, pieces");
    EXPECT_EQ(edited[5], "b  Pa7 Pb7 Kc7       black, pieces");
    // Pe9 is off the board and ends its line: no pawn on h2.  The last
    // colour line says who moves; the rook on a1 keeps its castling.
    EXPECT_EQ(edited[6], "4k3/B7/8/8/8/8/8/R2QK3 w Q - 0 0");
    // The next command is a command again.
    auto moved = board_after("Qd8");
    ASSERT_GE(moved.size(), 2u);
    EXPECT_EQ(moved[0], "1. move Qd8");
    EXPECT_EQ(engine.quit(), 0);
}

TEST_F(ConsoleE2EEdit, EndOfInputEndsTheEditAndTheRun) {
    start();
    engine.send("edit");
    engine.send("# b Kh8");
    engine.send("w Kf6 Qg6");
    engine.close_input();
    EXPECT_EQ(engine.wait_exit(5000), 0) << engine.transcript();
    auto l = engine.lines();
    ASSERT_GE(l.size(), 10u);
    EXPECT_EQ(l[l.size() - 10], "7k/8/5KQ1/8/8/8/8/8 w - - 0 0");
}

// ------------------------------------------------------- perft, clocks

using ConsoleE2ETools = ConsoleE2ETest;

TEST_F(ConsoleE2ETools, PerftFiveFromTheStart) {
    start();
    auto out = command("perft 5", line_starts("visited "), 120000);
    ASSERT_FALSE(out.empty()) << engine.transcript();
    EXPECT_EQ(out.back().rfind("visited 4865609 nodes in ", 0), 0u)
        << out.back();
    EXPECT_NE(out.back().find(" seconds, nps= "), std::string::npos);
    EXPECT_EQ(engine.quit(), 0);
}

TEST_F(ConsoleE2ETools, SetLevelAndTheSearchSwitches) {
    start();
    auto out = command("set level 40 5:00 2", line_starts("set level"));
    ASSERT_FALSE(out.empty()) << engine.transcript();
    EXPECT_EQ(out.back(), "set level to 40 moves in 300.00 seconds, inc 2.00");
    EXPECT_EQ(command("set NMP_depth 5", line_starts("NMP")).back(),
              "NMP_depth set to 5");
    EXPECT_EQ(command("set ss 0", line_starts("selectivity")).back(),
              "selectivity set to OFF");
    EXPECT_EQ(command("set ss 1", line_starts("set default")).back(),
              "set default Settings");
    // The console is still the console after the settings came back.
    auto moved = board_after("d2d4");
    ASSERT_GE(moved.size(), 2u) << engine.transcript();
    EXPECT_EQ(moved[0], "1. move d2d4");
    EXPECT_EQ(engine.quit(), 0);
}

// ----------------------------------------------------------------- book

using ConsoleE2EBook = ConsoleE2ETest;

// `book` shows the start position's candidates with their counts and the
// move drawn, then an empty line for each of the two books; the board
// stays as it was.
TEST_F(ConsoleE2EBook, BookShowsTheCandidatesOfTheStartPosition) {
    ASSERT_TRUE(
        engine.start({"-c", "-book", data_path("sample_book.bin")}, dir))
        << engine.transcript();
    ASSERT_EQ(board(), START_BOARD) << engine.transcript();
    auto out = command("book", line_starts("selecting "));
    ASSERT_FALSE(out.empty()) << engine.transcript();
    int candidates = 0;
    for (const auto &l : out)
        if (l.find("  cnt= ") != std::string::npos) candidates++;
    EXPECT_EQ(candidates, 6) << joined(out);
    std::string chosen = out.back().substr(10);
    EXPECT_NE(std::find_if(out.begin(), out.end(),
                           [&](const std::string &l) {
                               return l.rfind("  " + chosen + "  cnt= ", 0) ==
                                      0;
                           }),
              out.end())
        << joined(out);
    // The first book's empty line, then the second book (none) and its own.
    auto blank = [](const std::string &l) { return l.empty(); };
    ASSERT_TRUE(engine.wait_for(blank, 5000)) << engine.transcript();
    ASSERT_TRUE(engine.wait_for(blank, 5000)) << engine.transcript();
    // No move was played: the next typed move is White's first.
    auto moved = board_after("e2e4");
    ASSERT_GE(moved.size(), 2u) << engine.transcript();
    EXPECT_EQ(moved[0], "1. move e2e4");
    EXPECT_EQ(engine.quit(), 0);
}

// ------------------------------------------------------------- searches

using ConsoleE2ESearch = ConsoleE2ETest;

// A typed move while the search runs is dropped without a word; `.` stops
// the search and its summary follows.
TEST_F(ConsoleE2ESearch, TypedMoveDuringASearchIsDropped) {
    start();
    engine.send("go");
    ASSERT_TRUE(engine.wait_for(line_starts("Ply= 0"), 5000))
        << engine.transcript();
    engine.send("e2e4");
    engine.send("bd");
    engine.send(".");
    std::vector<std::string> passed;
    auto summary = engine.wait_for(line_starts("move= "), 10000, &passed);
    ASSERT_TRUE(summary) << engine.transcript();
    for (const std::string &l : passed) {
        EXPECT_NE(l, "1. move e2e4");
        EXPECT_FALSE(is_side_line(l)) << l;
    }
    auto after = board_after("bd");
    ASSERT_GE(after.size(), 10u) << engine.transcript();
    EXPECT_EQ(last_board(after)[0], START_BOARD_FEN);
    EXPECT_EQ(engine.quit(), 0);
}

TEST_F(ConsoleE2ESearch, GoFiveSearchesToDepthFive) {
    start();
    std::vector<std::string> passed;
    engine.send("go 5");
    auto summary = engine.wait_for(line_starts("move= "), 20000, &passed);
    ASSERT_TRUE(summary) << engine.transcript();
    ASSERT_FALSE(passed.empty());
    EXPECT_EQ(passed[0], "fen " + std::string(START_BOARD_FEN));
    EXPECT_EQ(passed[1].rfind("Ply= 0, cnt50= 0, Clock= 99999.00s, Target "
                              "time= ",
                              0),
              0u)
        << passed[1];
    int deepest = 0;
    for (const std::string &l : passed) {
        int thread = -1, depth = -1;
        if (std::sscanf(l.c_str(), "%d] %d", &thread, &depth) == 2)
            deepest = std::max(deepest, depth);
    }
    EXPECT_EQ(deepest, 5) << engine.transcript();
    EXPECT_TRUE(engine.wait_for(line_starts("Hash fill= "), 2000));
    EXPECT_EQ(engine.quit(), 0);
}

// The engine plays both sides until the game ends: a mate in one, then
// the mated side has no move and self-play stops by itself.
TEST_F(ConsoleE2ESearch, SelfPlayEndsWithTheGame) {
    start();
    board_after("fen 6k1/5ppp/8/8/8/8/5PPP/R5K1 w - -");
    engine.send("set depth 3");
    engine.send("self");
    auto mated = board(20000);
    ASSERT_GE(mated.size(), 10u) << engine.transcript();
    EXPECT_EQ(last_board(mated)[0], "R5k1/5ppp/8/8/8/8/5PPP/6K1 b - - 1 1");
    // The mated side has no move to make.
    EXPECT_TRUE(engine.wait_for(line_starts("move= null, "), 10000))
        << engine.transcript();
    // Idle again: commands are read.
    engine.send("bd");
    auto shown = board(10000);
    ASSERT_GE(shown.size(), 10u) << engine.transcript();
    EXPECT_EQ(last_board(shown)[0], "R5k1/5ppp/8/8/8/8/5PPP/6K1 b - - 1 1");
    EXPECT_EQ(engine.quit(), 0);
}

// Self-play from the start, a dot to hurry a move, then quit: the search
// running at the time is killed and nothing is printed after that.
TEST_F(ConsoleE2ESearch, SelfPlayThenDotThenQuit) {
    start();
    engine.send("set depth 4");
    engine.send("self");
    for (int i = 0; i < 3; i++) ASSERT_GE(board(20000).size(), 10u);
    engine.send(".");
    engine.send("quit");
    EXPECT_EQ(engine.wait_exit(10000), 0) << engine.transcript();
    const auto &l = engine.lines();
    auto killed = std::find(l.begin(), l.end(), "killing search");
    ASSERT_NE(killed, l.end()) << engine.transcript();
    // The killed search may still print its line; no summary, no board.
    for (auto it = killed + 1; it != l.end(); ++it) {
        EXPECT_FALSE(is_side_line(*it)) << engine.transcript();
        EXPECT_NE(it->rfind("move= ", 0), 0u) << engine.transcript();
    }
    EXPECT_EQ(engine.err(), "");
}

// ----------------------------------------------------------------- fuzz

using ConsoleE2EFuzz = ConsoleE2ETest;

// Random lines of commands, arguments and junk, some while a search runs:
// the engine survives them all, answers a final quit, and says nothing
// after it.
TEST_F(ConsoleE2EFuzz, RandomLines) {
    const std::vector<std::string> words = {
        "new",   "fen",  "mv",   "go",   "an",   "bd",   "self", "get",  "pv",
        "trace", "ev",   "sp",   "lmr",  "undo", "[",    "]",    "load", "save",
        "jump",  "book", "tag",  "swap", "set",  "move", ".",    "e2e4", "Nf3",
        "O-O",   "e8=Q", "edit", "#",    "w",    "perft"};
    const std::vector<std::string> set_words = {
        "hash",      "noise",    "multipv",   "debug",     "frc",
        "level",     "depth",    "nodes",     "ss",        "NMP_depth",
        "SEP_depth", "FP_depth", "LMP_depth", "LMR_depth", "Selectivity",
        "ponder",    "xyz"};
    const std::vector<std::string> args = {"",
                                           "0",
                                           "1",
                                           "2",
                                           "-1",
                                           "99999999999",
                                           "5:00",
                                           "x",
                                           "a1",
                                           "Kz9",
                                           "tmp.pgn",
                                           "games.pgn",
                                           "\"2\"]",
                                           "nan",
                                           "3",
                                           "8/8/8/8/8/8/8/8",
                                           "4k3/8/8/8/8/8/8/4K3 w - -"};
    std::filesystem::copy_file(data_path("sample_games.pgn"),
                               dir + "/games.pgn");
    start();
    std::mt19937 rng(20261124);
    auto pick = [&](const std::vector<std::string> &v) {
        return v[rng() % v.size()];
    };
    for (int i = 0; i < 400; i++) {
        std::string line = pick(words);
        if (line == "set") line.append(" ").append(pick(set_words));
        if (line == "perft") line.append(" ").append(std::to_string(rng() % 3));
        int extra = static_cast<int>(rng() % 4);
        for (int k = 0; k < extra; k++) line.append(" ").append(pick(args));
        if (rng() % 8 == 0) {
            std::string junk;
            int n = static_cast<int>(rng() % 200);
            for (int k = 0; k < n; k++)
                junk += static_cast<char>(1 + rng() % 255);
            line = junk;
        }
        // A search that has no depth of its own is kept short.
        if (line == "go" || line == "an" || line == "mv" || line == "self")
            line = "set nodes 3000\n" + line;
        engine.send(line);
        if (i % 50 == 49) engine.send(".");
        // Paced like a person at the keyboard, so that searches run
        // between the lines (a burst is tested on its own).
        usleep(3000);
    }
    // An edit may still be reading lines: "." ends it, then quit.
    int status = -1;
    for (int tries = 0; tries < 30 && status == -1; tries++) {
        engine.send(".");
        engine.send("quit");
        status = engine.wait_exit(1000);
    }
    EXPECT_EQ(status, 0) << engine.transcript();
    EXPECT_EQ(engine.err(), "");
}

}  // namespace
