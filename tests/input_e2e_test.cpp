// Input that comes faster or longer than the engine takes it: bursts of
// thousands of lines written at once, and lines longer than the whole
// pending buffer.  Every line must be answered, in order, over UCI and on
// the console.
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "engine_process.h"
#include "test_support.h"

namespace {

struct InputE2E : testing::Test {
    std::string dir;
    Engine engine;

    void SetUp() override {
        char pattern[] = "/tmp/quillon_input_XXXXXX";
        ASSERT_NE(mkdtemp(pattern), nullptr);
        dir = pattern;
    }
    void TearDown() override { std::filesystem::remove_all(dir); }

    // Writes `bytes` in one call from a thread of its own, so that the
    // engine's answers can be read while the pipe is still full.
    std::thread burst(std::string bytes) {
        return std::thread(
            [this, bytes = std::move(bytes)] { engine.send_raw(bytes); });
    }

    // The lines that `keep` accepts, in order, until `want` of them have
    // come, `ms` have passed, or none has come for ten seconds.
    std::vector<std::string> collect(const Predicate &keep, size_t want,
                                     int ms) {
        constexpr long long IDLE_MS = 10000;
        std::vector<std::string> kept;
        auto deadline = Clock::now() + std::chrono::milliseconds(ms);
        while (kept.size() < want) {
            auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
                deadline - Clock::now());
            if (left.count() <= 0) break;
            auto wait = std::min<long long>(left.count(), IDLE_MS);
            auto line = engine.wait_for(keep, static_cast<int>(wait));
            if (!line) break;
            kept.push_back(*line);
        }
        return kept;
    }
};

// A game of `plies` random legal moves from the start that never ends
// the game: each move leaves the other side a legal reply.  The moves as
// the engine writes them, and the position they reach.
struct RandomGame {
    std::vector<std::string> moves;
    std::vector<std::string> fens;  // the position after each move
    std::string fen;                // the last one
};

RandomGame random_game(u32 seed, int plies) {
    std::mt19937 rng(seed);
    RandomGame game;
    char fen[FEN_BUFFER_SIZE] = "";
    get_fen(test_position(START_FEN), fen, 1);
    for (int ply = 0; ply < plies; ply++) {
        // Set up afresh each time: the test Worker's history is short.
        Position &pos = test_position(fen);
        Move moves[MAX_MOVES];
        int n = legal_moves(pos, moves);
        std::vector<Move> going_on;
        for (int i = 0; i < n; i++) {
            make_move(pos, moves[i]);
            Move replies[MAX_MOVES];
            if (legal_moves(pos, replies) > 0) going_on.push_back(moves[i]);
            unmake_move(pos);
        }
        if (going_on.empty()) break;
        Move m = going_on[rng() % going_on.size()];
        char text[MOVE_TEXT_SIZE];
        coord_text(pos, pos.side, m, text);
        game.moves.push_back(text);
        make_move(pos, m);
        get_fen(pos, fen, 1);
        game.fens.push_back(fen);
    }
    game.fen = fen;
    return game;
}

// 200 rounds of eight "isready", a new book file name and "uci", written
// at once: 2,000 lines, every one answered, in order.  The "uci" block
// shows the name set just before it.
TEST_F(InputE2E, BurstOfTwoThousandUciLinesIsAnsweredInOrder) {
    ASSERT_TRUE(engine.start({}, dir)) << engine.transcript();
    constexpr int ROUNDS = 200;
    std::string text;
    std::vector<std::string> expected;
    for (int r = 0; r < ROUNDS; r++) {
        std::string book = "book" + std::to_string(r) + ".bin";
        for (int k = 0; k < 8; k++) {
            text += "isready\n";
            expected.push_back("readyok");
        }
        text += "setoption name OwnBook_File value " + book + "\n";
        text += "uci\n";
        expected.push_back("option name OwnBook_File type string default " +
                           book);
        expected.push_back("uciok");
    }
    std::thread writer = burst(text);
    auto answers = collect(
        [](const std::string &l) {
            return l == "readyok" || l == "uciok" ||
                   starts_with(l, "option name OwnBook_File ");
        },
        expected.size(), 120000);
    writer.join();
    ASSERT_EQ(answers.size(), expected.size()) << engine.transcript();
    for (size_t i = 0; i < expected.size(); i++)
        ASSERT_EQ(answers[i], expected[i]) << "answer " << i;
    EXPECT_EQ(engine.quit(), 0);
}

// 400 positions and their evaluations, 800 console lines written at once:
// every board comes, in order, each followed by its evaluation.
TEST_F(InputE2E, BurstOfEightHundredConsoleLinesIsAnsweredInOrder) {
    ASSERT_TRUE(engine.start({"-c"}, dir)) << engine.transcript();
    // The start position's board comes first.
    ASSERT_TRUE(engine.wait_for(line_is("white"), 5000));
    constexpr int POSITIONS = 400;
    RandomGame game = random_game(41, POSITIONS);
    ASSERT_EQ(game.moves.size(), static_cast<size_t>(POSITIONS));
    std::string text;
    std::vector<std::string> expected;
    for (const std::string &fen : game.fens) {
        text += "fen " + fen + "\nev\n";
        // The board's first line: the FEN's board and side to move.
        expected.push_back(fen.substr(0, fen.find(' ', fen.find(' ') + 1)));
        expected.push_back("nne= ");
    }
    std::thread writer = burst(text);
    auto answers = collect(
        [](const std::string &l) {
            return starts_with(l, "nne= ") ||
                   std::count(l.begin(), l.end(), '/') == 7;
        },
        expected.size(), 120000);
    writer.join();
    ASSERT_EQ(answers.size(), expected.size()) << engine.transcript();
    for (size_t i = 0; i < expected.size(); i++)
        ASSERT_TRUE(starts_with(answers[i], expected[i]))
            << "answer " << i << ": " << answers[i] << ", wanted "
            << expected[i];
    engine.send("quit");
    EXPECT_EQ(engine.wait_exit(5000), 0);
}

// A game of 1,200 plies in one "position" line of about 6,000
// characters, more than the pending buffer holds: the engine plays from
// the game's last position.
TEST_F(InputE2E, PositionLineOfTwelveHundredPliesIsReadWhole) {
    ASSERT_TRUE(engine.start({}, dir)) << engine.transcript();
    for (u32 seed : {1u, 2u, 3u}) {
        RandomGame game = random_game(seed, 1200);
        ASSERT_EQ(game.moves.size(), 1200u);
        std::string line = "position startpos moves";
        for (const std::string &m : game.moves) line += " " + m;
        ASSERT_GT(line.size(), 5000u);
        engine.send(line);
        engine.send("go depth 3");
        auto best = engine.wait_for(is_bestmove, 20000);
        ASSERT_TRUE(best) << engine.transcript();
        EXPECT_TRUE(answers_legally(*best, game.fen.c_str()))
            << *best << " in " << game.fen;
    }
    EXPECT_EQ(engine.quit(), 0);
}

// A line of 200,000 characters is read to its end, and the lines behind
// it are answered; so is a "position" line that long, its junk tokens
// passed over.
TEST_F(InputE2E, HugeLinesAreReadWholeAndTheNextLinesAnswered) {
    ASSERT_TRUE(engine.start({}, dir)) << engine.transcript();
    std::string junk(200000, 'x');
    for (size_t i = 0; i < junk.size(); i += 7) junk[i] = ' ';
    std::string moves = " e2e4";
    for (int i = 0; i < 30000; i++) moves += " zzzz";
    moves += " e7e5";
    std::thread writer = burst(junk + "\nisready\nposition startpos moves" +
                               moves + "\ngo depth 2\n");
    EXPECT_TRUE(engine.wait_for(line_is("readyok"), 20000))
        << engine.transcript();
    auto best = engine.wait_for(is_bestmove, 20000);
    writer.join();
    ASSERT_TRUE(best) << engine.transcript();
    EXPECT_TRUE(answers_legally(
        *best, "rnbqkbnr/pppp1ppp/8/4p3/4P3/8/PPPP1PPP/RNBQKBNR w KQkq e6 0 2"))
        << *best;
    EXPECT_EQ(engine.quit(), 0);
}

// Random lines, short and far longer than the buffer, written in random
// pieces with pauses between some of them: every "isready" among them is
// answered, and the junk is passed over.
TEST_F(InputE2E, RandomLinesInRandomPiecesAreAllAnswered) {
    ASSERT_TRUE(engine.start({}, dir)) << engine.transcript();
    std::mt19937 rng(8128);
    std::string text;
    int questions = 0;
    for (int i = 0; i < 300; i++) {
        if (rng() % 2) {
            text += rng() % 4 ? "isready\n" : "isready\r\n";
            questions++;
            continue;
        }
        // Junk that starts with a letter no command starts with; no line
        // end, NUL or line mark inside, which would split it.
        std::string junk = "x";
        int n = static_cast<int>(rng() % (rng() % 8 ? 300 : 20000));
        for (int k = 0; k < n; k++) {
            char c = static_cast<char>(1 + rng() % 255);
            junk += c == '\n' || c == '@' ? ' ' : c;
        }
        text += junk + "\n";
        if (rng() % 16 == 0) text += "\n\n";  // empty lines add nothing
    }
    std::thread writer([&] {
        std::mt19937 pieces(99);
        for (size_t at = 0; at < text.size();) {
            size_t n = std::min<size_t>(text.size() - at, 1 + pieces() % 9000);
            engine.send_raw(text.substr(at, n));
            at += n;
            if (pieces() % 4 == 0) usleep(pieces() % 3000);
        }
    });
    auto answers = collect(line_is("readyok"), questions, 120000);
    writer.join();
    EXPECT_EQ(static_cast<int>(answers.size()), questions)
        << engine.transcript();
    // Nothing more than asked for.
    engine.send("isready");
    std::vector<std::string> passed;
    ASSERT_TRUE(engine.wait_for(line_is("readyok"), 5000, &passed));
    EXPECT_EQ(count_matching(passed, line_is("readyok")), 0) << joined(passed);
    EXPECT_EQ(engine.quit(), 0);
}

}  // namespace
