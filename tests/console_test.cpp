// The console's commands, called as the input reader calls them: the game
// with its redo chain, the commands that only set up a search, the `set`
// words, the board print and the evaluation, PGN load and save, test
// positions, perft and the exchange table.
#include "frontend/console.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <random>
#include <sstream>
#include <string>
#include <vector>

#include "core/output.h"
#include "search/hash.h"
#include "test_support.h"

namespace {

constexpr const char *START_FEN_WITH_PLY =
    "rnbqkbnr/pppppppp/8/8/8/8/PPPPPPPP/RNBQKBNR w KQkq - 0 0";

std::vector<std::string> split_lines(const std::string &text) {
    std::vector<std::string> lines;
    std::istringstream in(text);
    for (std::string line; std::getline(in, line);) lines.push_back(line);
    return lines;
}

// Runs one console line and gives what it printed, line by line.
std::vector<std::string> run(const std::string &text) {
    std::vector<char> line(text.begin(), text.end());
    line.push_back(0);
    testing::internal::CaptureStdout();
    console_command(line.data());
    return split_lines(testing::internal::GetCapturedStdout());
}

std::string fen_now() {
    char fen[FEN_BUFFER_SIZE];
    get_fen(front_worker->position, fen, 1);
    return fen;
}

// Each test plays in a folder of its own ("tmp.pgn", "test.epd") on the
// start position in the console dialect, and leaves the settings and the
// search status as it found them.
struct ConsoleTest : testing::Test {
    EngineSettings saved_settings;
    std::filesystem::path home, dir;

    void SetUp() override {
        saved_settings = settings;
        settings.uci_mode = 0;
        settings.noise = 9999.0f;  // no start lines from perft
        store_state(0);
        store_stop(0);
        engine_moves = self_play = 0;
        test_position(START_FEN);
        front_worker->states[0].move = NO_MOVE;
        home = std::filesystem::current_path();
        char pattern[] = "/tmp/quillon_console_unit_XXXXXX";
        ASSERT_NE(mkdtemp(pattern), nullptr);
        dir = pattern;
        std::filesystem::current_path(dir);
    }
    void TearDown() override {
        std::filesystem::current_path(home);
        std::filesystem::remove_all(dir);
        settings = saved_settings;
        store_state(0);
        store_stop(0);
        status.use_hash = 1;
        engine_moves = self_play = 0;
        test_position(START_FEN);
    }

    static void write_file(const char *name, const std::string &text) {
        std::ofstream out(name, std::ios::binary);
        out << text;
    }
    static std::string file_text(const char *name) {
        std::ifstream in(name, std::ios::binary);
        std::stringstream text;
        text << in.rdbuf();
        return text.str();
    }
};

// The last ten lines of a print are a board: FEN, eight ranks, the side.
std::string board_fen(const std::vector<std::string> &lines) {
    if (lines.size() < 10) return "";
    return lines[lines.size() - 10];
}

// ------------------------------------------------------------ the board

using ConsoleBoard = ConsoleTest;

TEST_F(ConsoleBoard, MarksBlackPawnsAsOAndSquaresByColour) {
    test_position("4k3/1p6/8/8/8/8/6P1/R3K2R b KQ - 0 1");
    testing::internal::CaptureStdout();
    print_board(front_worker->position);
    auto lines = split_lines(testing::internal::GetCapturedStdout());
    std::vector<std::string> expected = {"4k3/1p6/8/8/8/8/6P1/R3K2R b KQ - 0 0",
                                         "  - + - + k + - +",
                                         "  + o + - + - + -",
                                         "  - + - + - + - +",
                                         "  + - + - + - + -",
                                         "  - + - + - + - +",
                                         "  + - + - + - + -",
                                         "  - + - + - + P +",
                                         "  R - + - K - + R",
                                         "black"};
    EXPECT_EQ(lines, expected);
}

TEST_F(ConsoleBoard, ShowEvalNamesTheLastMoveByItsNumber) {
    auto none = run("ev");
    ASSERT_FALSE(none.empty());
    EXPECT_EQ(none[0], "           white  black      md");
    run("e2e4");
    auto white_moved = run("ev");
    ASSERT_FALSE(white_moved.empty());
    EXPECT_EQ(white_moved[0], "last move was 1. e2e4");
    run("e7e5");
    auto black_moved = run("ev");
    ASSERT_FALSE(black_moved.empty());
    EXPECT_EQ(black_moved[0], "last move was 1... e7e5");
    // bd shows it only with debug on.
    auto plain = run("bd");
    EXPECT_EQ(plain.size(), 10u);
    run("set debug 1");
    auto debug = run("bd");
    ASSERT_GT(debug.size(), 20u);
    EXPECT_EQ(debug[0], "last move was 1... e7e5");
    EXPECT_EQ(board_fen(debug), fen_now());
}

// With no piece hung the trace has no line for them; a position and its
// colour mirror show the same columns swapped.
TEST_F(ConsoleBoard, TraceThroughEvAndSp) {
    run("fen rnbqkbnr/pppppppp/8/8/8/8/PPPPPPPP/RNBQKBNR w KQkq -");
    auto start = run("ev");
    for (const std::string &l : start) EXPECT_NE(l.rfind("hung pieces", 0), 0u);
    ASSERT_GE(start.size(), 11u);
    EXPECT_EQ(start[10].rfind("nne= ", 0), 0u) << start[10];

    run("fen 4k3/8/8/3n4/8/2N5/8/4K3 w - -");
    auto white = run("ev");
    run("fen 4k3/8/2n5/8/3N4/8/8/4K3 b - -");
    auto black = run("ev");
    ASSERT_GE(white.size(), 10u);
    ASSERT_GE(black.size(), 10u);
    for (int i = 1; i <= 9; i++) {
        char label[16];
        int w1, b1, d1, w2, b2, d2;
        ASSERT_EQ(std::sscanf(white[i].c_str(), "%15s %d %d %d", label, &w1,
                              &b1, &d1),
                  4);
        ASSERT_EQ(std::sscanf(black[i].c_str(), "%15s %d %d %d", label, &w2,
                              &b2, &d2),
                  4);
        if (std::string(label) == "special:") continue;  // stm_bonus
        EXPECT_EQ(w1, b2) << label;
        EXPECT_EQ(b1, w2) << label;
    }
    auto all = run("sp");
    int tables = 0;
    for (const std::string &l : all)
        if (l == "Pawn1" || l == "King ") tables++;
    EXPECT_EQ(tables, 2);
}

// ------------------------------------------------------------- the game

using ConsoleGame = ConsoleTest;

TEST_F(ConsoleGame, UndoAtPlyZeroDoesNothing) {
    std::string before = fen_now();
    EXPECT_TRUE(run("undo").empty());
    EXPECT_TRUE(run("[").empty());
    EXPECT_EQ(fen_now(), before);
}

TEST_F(ConsoleGame, UndoThenRedoBringsTheMoveBack) {
    auto moved = run("e2e4");
    ASSERT_EQ(moved.size(), 11u);
    EXPECT_EQ(moved[0], "1. move e2e4");
    std::string after = fen_now();
    u64 key = front_worker->position.key;
    auto undone = run("undo");
    EXPECT_EQ(board_fen(undone), START_FEN_WITH_PLY);
    auto redone = run("]");
    ASSERT_EQ(redone.size(), 11u);
    EXPECT_EQ(redone[0], "1. move e2e4");
    EXPECT_EQ(fen_now(), after);
    EXPECT_EQ(front_worker->position.key, key);
    // Black's move is numbered with dots.
    run("e7e5");
    run("undo");
    auto black = run("]");
    ASSERT_FALSE(black.empty());
    EXPECT_EQ(black[0], "1... move e7e5");
}

TEST_F(ConsoleGame, JumpGoesToAMoveAlongTheChain) {
    for (const char *m : {"e4", "e5", "Nf3", "Nc6", "Bb5"}) run(m);
    std::string end = fen_now();
    auto first = run("jump 1");
    EXPECT_EQ(board_fen(first), START_FEN_WITH_PLY);
    run("jump 3");
    EXPECT_EQ(front_worker->hist_index, 4);
    run("jump 0");
    EXPECT_EQ(front_worker->hist_index, 0);
    run("jump 1000000000000");
    EXPECT_EQ(fen_now(), end);
}

TEST_F(ConsoleGame, ANewMoveCutsTheChain) {
    run("e4");
    run("e5");
    run("undo");
    run("c5");
    EXPECT_TRUE(run("]").empty());
    // The same move as the chain's keeps it.
    run("Nf3");
    run("undo");
    run("undo");
    run("c5");
    auto redone = run("]");
    ASSERT_FALSE(redone.empty());
    EXPECT_EQ(redone[0], "2. move g1f3");
}

TEST_F(ConsoleGame, TypedMovesInEveryForm) {
    test_position("8/4P3/8/8/8/8/k7/4K3 w - -");
    auto promoted = run("e8q");
    ASSERT_FALSE(promoted.empty());
    EXPECT_EQ(promoted[0], "1. move e8=Q");
    run("undo");
    promoted = run("move e7e8=n");
    ASSERT_FALSE(promoted.empty());
    EXPECT_EQ(promoted[0], "1. move e7e8=N");
    EXPECT_EQ(front_worker->position.board[60], KNIGHT);
    auto bad = run("e7e9");
    EXPECT_EQ(bad, std::vector<std::string>{"invalid: a1a1"});
    test_position("4k3/8/8/8/8/8/8/4K2R w K -");
    auto castled = run("0-0");
    ASSERT_FALSE(castled.empty());
    EXPECT_EQ(castled[0], "1. move o-o");
    EXPECT_EQ(front_worker->position.king_sq[WHITE], 6);
}

TEST_F(ConsoleGame, AmbiguousMoveIsRefused) {
    test_position("4k3/8/8/8/8/5N2/8/1N2K3 w - -");
    auto said = run("Nd2");
    ASSERT_EQ(said.size(), 2u);
    EXPECT_EQ(said[0], "ambiguous move");
    EXPECT_EQ(said[1].rfind("invalid: ", 0), 0u);
    auto alt = run("Nbd2");
    ASSERT_FALSE(alt.empty());
    EXPECT_EQ(alt[0], "1. move Nbd2");
}

// ------------------------------------------------- commands and searches

using ConsoleCommands = ConsoleTest;

TEST_F(ConsoleCommands, NewKeepsOwnBookAndTheHash) {
    settings.hash_mb = 1;
    testing::internal::CaptureStdout();
    ASSERT_TRUE(hash_allocate());
    testing::internal::GetCapturedStdout();
    Position &pos = front_worker->position;
    hash_store(pos, 1, 5, coord_move("e2e4"), 10, -100, 100);
    settings.own_book = 1;
    run("e4");
    auto fresh = run("new");
    EXPECT_EQ(board_fen(fresh), START_FEN_WITH_PLY);
    EXPECT_EQ(settings.own_book, 1);
    HashEntry entry{};
    entry.depth = HASH_NOT_FOUND;
    hash_probe(front_worker->position, entry);
    EXPECT_EQ(entry.depth, 5);
    EXPECT_EQ(entry.move, coord_move("e2e4"));
    EXPECT_EQ(status.clock[0], settings.level_time);
    // The line kept in the hash is shown, and the position stays.
    auto pv = run("pv");
    ASSERT_EQ(pv.size(), 12u);
    EXPECT_EQ(pv[0], "PV: e4 ");
    EXPECT_EQ(pv[1], "");
    EXPECT_EQ(board_fen(pv),
              "rnbqkbnr/pppppppp/8/8/4P3/8/PPPP1PPP/RNBQKBNR b KQkq e3 0 1");
    EXPECT_EQ(fen_now(), START_FEN_WITH_PLY);
    hash_free();
}

TEST_F(ConsoleCommands, GoFiveIsDepthFiveWithAllTheTime) {
    settings.own_book = 1;
    status.use_hash = 2;
    EXPECT_TRUE(run("go 5").empty());
    EXPECT_EQ(settings.max_depth, 5);
    EXPECT_EQ(settings.level_time, 99999.0f);
    EXPECT_EQ(settings.level_moves, 1);
    EXPECT_EQ(settings.own_book, 0);
    EXPECT_EQ(load_state(), STATE_REQUEST_THINK);
    store_state(0);
    run("an 81");
    EXPECT_EQ(settings.max_depth, 80);
    store_state(0);
    run("go");
    EXPECT_EQ(settings.max_depth, 80);
    store_state(0);
    run("mv");
    EXPECT_EQ(engine_moves, 1);
    EXPECT_EQ(settings.own_book, 1);
    store_state(0);
    settings.ponder = 1;
    run("self");
    EXPECT_EQ(self_play, 1);
    EXPECT_EQ(settings.ponder, 0);
    EXPECT_EQ(load_state(), STATE_REQUEST_THINK);
}

// While a search runs only quit and '.' are heard.
TEST_F(ConsoleCommands, EverythingButQuitAndDotWaitsForTheSearch) {
    store_state(STATE_THINKING);
    std::string before = fen_now();
    for (const char *line : {"e2e4", "new", "fen 8/8/8/8/8/8/8/8 w - -",
                             "set level 1 1 1", "bd", "undo", "perft 1"})
        EXPECT_TRUE(run(line).empty()) << line;
    EXPECT_EQ(fen_now(), before);
    EXPECT_NE(settings.level_time, 1.0f);
    run(".");
    EXPECT_EQ(load_stop(), 1);
    store_stop(0);
    store_state(0);
    EXPECT_TRUE(run("quit").empty());
    EXPECT_EQ(settings.quit, 1);
    settings.quit = 0;
}

TEST_F(ConsoleCommands, TraceAndTagSetTheirFields) {
    run("trace 3");
    EXPECT_EQ(settings.trace, 3);
    run("tag");
    EXPECT_EQ(settings.tag_key, front_worker->position.key);
    // No book file is set: each book prints only its closing empty line.
    EXPECT_EQ(run("book"), (std::vector<std::string>{"", ""}));
}

TEST_F(ConsoleCommands, LongAndManyTokensAreCut) {
    std::string line =
        "set " + std::string(300, 'x') + " 1 2 3 4 5 6 7 8 9 10 11 12";
    EXPECT_TRUE(run(line).empty());
    std::string move = std::string(500, 'e') + "4";
    auto said = run(move);
    ASSERT_EQ(said.size(), 1u);
    EXPECT_EQ(said[0], "invalid: a1a1");
    // An empty text matches the empty forms of every pawn push: too many
    // to be a move.
    auto blank = run("   ");
    ASSERT_EQ(blank.size(), 1u);
    EXPECT_EQ(blank[0].rfind("invalid: ", 0), 0u);
    EXPECT_EQ(fen_now(), START_FEN_WITH_PLY);
}

// ------------------------------------------------------------ set words

using ConsoleSet = ConsoleTest;

TEST_F(ConsoleSet, LevelFortyMovesInFiveMinutesIncrementTwo) {
    auto said = run("set level 40 5:00 2");
    EXPECT_EQ(said, std::vector<std::string>{
                        "set level to 40 moves in 300.00 seconds, inc 2.00"});
    EXPECT_EQ(settings.level_moves, 40);
    EXPECT_EQ(settings.level_time, 300.0f);
    EXPECT_EQ(settings.level_inc, 2.0f);
    EXPECT_EQ(status.clock[0], 300.0f);
    EXPECT_EQ(status.clock[1], 300.0f);
    run("set level 0 90.5 0");
    EXPECT_EQ(settings.level_moves, 0);
    EXPECT_EQ(settings.level_time, 90.5f);
    run("set level 1000 1:30 -1");
    EXPECT_EQ(settings.level_moves, 127);
    EXPECT_EQ(settings.level_time, 90.0f);
}

TEST_F(ConsoleSet, TheSilentWords) {
    EXPECT_TRUE(run("set hash 3").empty());
    EXPECT_EQ(status.use_hash, 3);
    EXPECT_TRUE(run("set noise 2.5").empty());
    EXPECT_EQ(settings.noise, 2.5f);
    EXPECT_TRUE(run("set xmultipvx 4").empty());
    EXPECT_EQ(settings.multi_pv, 4);
    EXPECT_TRUE(run("set debug 1").empty());
    EXPECT_EQ(settings.debug, 1);
    EXPECT_TRUE(run("set frc 1").empty());
    EXPECT_EQ(settings.chess960, 1);
    EXPECT_TRUE(run("set depth 99").empty());
    EXPECT_EQ(settings.max_depth, 80);
    EXPECT_TRUE(run("set depth 7").empty());
    EXPECT_EQ(settings.max_depth, 7);
    EXPECT_TRUE(run("set nodes 123456").empty());
    EXPECT_EQ(settings.max_depth, 66);
    EXPECT_EQ(settings.max_nodes, 123456u);
    EXPECT_TRUE(run("set unknown 5").empty());
    EXPECT_TRUE(run("set").empty());
}

TEST_F(ConsoleSet, TheWordsThatSaySo) {
    EXPECT_EQ(run("set target_nps 100000"),
              std::vector<std::string>{"target_nps set to 100000, Elo= 2914"});
    EXPECT_EQ(settings.limit_strength, 1);
    struct Word {
        const char *name;
        const i16 *field;
    };
    const Word words[] = {{"NMP_depth", &settings.nmp_depth},
                          {"SEP_depth", &settings.sep_depth},
                          {"FP_depth", &settings.fp_depth},
                          {"LMP_depth", &settings.lmp_depth},
                          {"LMR_depth", &settings.lmr_depth},
                          {"Selectivity", &settings.selectivity},
                          {"ponder", &settings.ponder}};
    for (const Word &w : words) {
        auto said = run(std::string("set ") + w.name + " 7");
        EXPECT_EQ(said,
                  std::vector<std::string>{std::string(w.name) + " set to 7"});
        EXPECT_EQ(*w.field, 7);
    }
    EXPECT_EQ(run("set ss 0"),
              std::vector<std::string>{"selectivity set to OFF"});
    EXPECT_EQ(settings.sep_depth, 0);
    EXPECT_EQ(settings.nmp_depth, 99);
    EXPECT_EQ(settings.lmp_depth, 0);
    EXPECT_EQ(settings.lmr_depth, 99);
    settings_snapshot.sep_depth = 3;
    EXPECT_EQ(run("set ss 1"),
              std::vector<std::string>{"set default Settings"});
    EXPECT_EQ(settings.sep_depth, 3);
    EXPECT_EQ(settings.uci_mode, 0);
}

// -------------------------------------------------------- load and save

using ConsolePgn = ConsoleTest;

TEST_F(ConsolePgn, CommentsNumbersResultsAndTags) {
    write_file("g.pgn",
               "[Event \"a\"]\n"
               "[White \"someone\"]\n"
               "1.e4 {a comment { nested } still\n"
               "[not a tag] on the next line} e5 2.Nf3 $1 {x}Nc6\n"
               "3.Bb5 1-0\n");
    auto said = run("load g.pgn");
    ASSERT_FALSE(said.empty());
    EXPECT_EQ(said[0], "loading g.pgn, tag ");
    EXPECT_EQ(board_fen(said),
              "r1bqkbnr/pppp1ppp/2n5/1B2p3/4P3/5N2/PPPP1PPP/RNBQK2R b KQkq - "
              "3 5");
    EXPECT_EQ(status.clock[0], settings.level_time);
    // The end of the loaded game is the end of the chain.
    EXPECT_TRUE(run("]").empty());
}

TEST_F(ConsolePgn, TheTagPicksTheGameAndAFenTagItsStart) {
    write_file("g.pgn",
               "[Event \"one\"]\n1. d4 d5\n\n"
               "[Event \"two\"]\n[Site \"here\"]\n"
               "[FEN \"4k3/8/8/8/8/8/8/4K2R w K - 0 1\"]\n"
               "1. O-O Kd7 *\n\n"
               "[Event \"three\"]\n1. e4 *\n");
    auto first = run("load g.pgn");
    EXPECT_EQ(board_fen(first),
              "rnbqkbnr/ppp1pppp/8/3p4/3P4/8/PPP1PPPP/RNBQKBNR w KQkq d6 0 2");
    auto second = run("load g.pgn here");
    ASSERT_FALSE(second.empty());
    EXPECT_EQ(second[0], "loading g.pgn, tag here");
    EXPECT_EQ(board_fen(second), "8/3k4/8/8/8/8/8/5RK1 w - - 1 2");
    auto none = run("load g.pgn nowhere");
    EXPECT_EQ(board_fen(none), START_FEN_WITH_PLY);
}

TEST_F(ConsolePgn, AMoveThatDoesNotParseEndsTheReading) {
    write_file("g.pgn", "[Event \"x\"]\n1. e4 e5 2. Ke3 Nc6\n");
    auto said = run("load g.pgn");
    ASSERT_EQ(said.size(), 12u);
    EXPECT_EQ(said[1], "can't parse move 'Ke3'");
    EXPECT_EQ(front_worker->hist_index, 2);
}

TEST_F(ConsolePgn, AMissingFileOnlyResetsTheClocks) {
    run("e4");
    status.clock[0] = 1.0f;
    auto said = run("load none.pgn");
    EXPECT_EQ(said, std::vector<std::string>{"loading none.pgn, tag "});
    EXPECT_EQ(status.clock[0], settings.level_time);
    EXPECT_EQ(front_worker->hist_index, 1);
}

TEST_F(ConsolePgn, SaveAppendsAndLeavesTheGameWhereItWas) {
    for (const char *m : {"e4", "e5", "Nf3", "Nc6", "Bb5", "a6", "Ba4", "Nf6",
                          "O-O", "Be7", "Re1", "b5"})
        run(m);
    run("undo");
    std::string here = fen_now();
    EXPECT_TRUE(run("save ignored arguments").empty());
    EXPECT_EQ(fen_now(), here);
    EXPECT_EQ(file_text("tmp.pgn"),
              "[Event \"Unknown\"]\n"
              "e4 e5 Nf3 Nc6 Bb5 a6 Ba4 Nf6 o-o Be7 Re1 \n\n\n");
    // The redo chain survives the save.
    auto redone = run("]");
    ASSERT_FALSE(redone.empty());
    EXPECT_EQ(redone[0], "6... move b7b5");
    run("save");
    auto back = run("load tmp.pgn");
    EXPECT_EQ(board_fen(back), here);
}

// Random bytes, PGN pieces shuffled and cut short: every file loads to
// some end, and the game that stands is one the console can go on with.
TEST_F(ConsolePgn, FuzzedFilesNeverBreakTheLoad) {
    std::ifstream sample(data_path("sample_games.pgn"));
    std::stringstream text;
    text << sample.rdbuf();
    std::string games = text.str();
    ASSERT_GT(games.size(), 1000u);
    std::mt19937 rng(7);
    const std::string pieces[] = {"{",       "}",  "[", "]",   "\"",  "[Event ",
                                  "[FEN \"", "\n", " ", "1.",  "O-O", "e8=Q",
                                  "Nbd2",    "+",  "#", "1-0", "@",   "\t"};
    for (int round = 0; round < 60; round++) {
        std::string file;
        if (round % 3 == 0) {
            size_t from = rng() % games.size();
            file = games.substr(from, rng() % 6000);
        } else if (round % 3 == 1) {
            for (int i = 0; i < 400; i++) file += pieces[rng() % 18];
        } else {
            for (int i = 0; i < 3000; i++)
                file += static_cast<char>(rng() % 256);
        }
        write_file("f.pgn", file);
        testing::internal::CaptureStdout();
        char line[] = "load f.pgn";
        console_command(line);
        char again[] = "save";
        console_command(again);
        char tagged[] = "load f.pgn 1";
        console_command(tagged);
        testing::internal::GetCapturedStdout();
        EXPECT_LE(front_worker->hist_index, CONSOLE_GAME_LIMIT);
        Move legal[MAX_MOVES];
        EXPECT_GE(legal_moves(front_worker->position, legal), 0);
    }
}

// A game longer than the console keeps stops at the limit.
TEST_F(ConsolePgn, AnEndlessGameStopsAtTheLimit) {
    std::string file = "[Event \"long\"]\n";
    for (int i = 0; i < 300; i++) file += "Nf3 Nf6 Ng1 Ng8\n";
    write_file("long.pgn", file);
    auto said = run("load long.pgn");
    EXPECT_EQ(front_worker->hist_index, CONSOLE_GAME_LIMIT);
    ASSERT_GE(said.size(), 2u);
    EXPECT_EQ(said[1].rfind("can't parse move", 0), 0u);
    auto more = run("Nf3");
    EXPECT_EQ(more, std::vector<std::string>{"game too long"});
}

// ------------------------------------------------ get, perft, swap, lmr

using ConsoleTools = ConsoleTest;

TEST_F(ConsoleTools, GetWithNoSuchIdKeepsThePosition) {
    run("e4");
    std::string before = fen_now();
    write_file("test.epd", "8/8/8/8/8/8/8/K6k w - - id \"a\";\n");
    auto said = run("get b");
    ASSERT_EQ(said.size(), 11u);
    EXPECT_EQ(said[0], "");
    EXPECT_EQ(board_fen(said), before);
    std::filesystem::remove("test.epd");
    said = run("get a");
    ASSERT_EQ(said.size(), 11u);
    EXPECT_EQ(said[0], "");
    EXPECT_EQ(fen_now(), before);
}

TEST_F(ConsoleTools, GetSkipsCommentedLinesAndSetsTheFen) {
    write_file("test.epd",
               ";4k3/8/8/8/8/8/8/4K3 w - - id \"a\";\n"
               " 4k3/8/8/8/8/8/8/4K3 w - - id \"a\";\n"
               "short id \"b\"\n"
               "4k3/8/8/8/8/8/3P4/4K3 b - - id \"a\";\n");
    auto said = run("get a");
    ASSERT_EQ(said.size(), 11u);
    EXPECT_EQ(said[0], "4k3/8/8/8/8/8/3P4/4K3 b - - id \"a\";");
    EXPECT_EQ(fen_now(), "4k3/8/8/8/8/8/3P4/4K3 b - - 0 0");
    // A line under 9 characters is shown but not set.
    write_file("test.epd", "x id \"b\"\n");
    said = run("get b");
    EXPECT_EQ(said[0], "x id \"b\"");
    EXPECT_EQ(fen_now(), "4k3/8/8/8/8/8/3P4/4K3 b - - 0 0");
}

TEST_F(ConsoleTools, PerftCountsAndTimes) {
    auto said = run("perft 3");
    ASSERT_EQ(said.size(), 1u);
    EXPECT_EQ(said[0].rfind("visited 8902 nodes in ", 0), 0u) << said[0];
    test_position(
        "r3k2r/p1ppqpb1/bn2pnp1/3PN3/1p2P3/2N2Q1p/PPPBBPPP/R3K2R w KQkq -");
    said = run("perft 2");
    EXPECT_EQ(said[0].rfind("visited 2039 nodes in ", 0), 0u) << said[0];
    said = run("perft 0");
    EXPECT_EQ(said[0].rfind("visited 1 nodes in ", 0), 0u) << said[0];
}

TEST_F(ConsoleTools, SwapListsEveryAttackedMan) {
    // Black wins the e4 pawn outright; white's capture on d5 is met by the
    // queen, so it wins nothing.
    test_position("3qk3/8/8/3p4/4P3/8/8/4K3 w - -");
    auto said = run("swap");
    EXPECT_EQ(said, (std::vector<std::string>{"sq= e4, swap1=  100",
                                              "sq= d5, swap1=    0"}));
    // A king in check is worth 9999; the king takes the rook for free.
    test_position("4k3/8/8/8/8/8/8/3rK3 w - -");
    said = run("swap");
    EXPECT_EQ(said, (std::vector<std::string>{"sq= d1, swap1=  540",
                                              "sq= e1, swap1= 9999"}));
}

TEST_F(ConsoleTools, LmrShowsThePruningTables) {
    auto said = run("lmr");
    ASSERT_FALSE(said.empty());
    EXPECT_EQ(said[0].rfind("BP_margin= ", 0), 0u);
}

}  // namespace
