// PGN scanning: comment scores and their sign, skipped games, the four
// outputs, the blunder marks, long games and damaged input.
#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <random>
#include <sstream>
#include <string>
#include <vector>

#include "book_support.h"
#include "tools/pgn.h"

namespace {

std::string tags(const std::string &result, const std::string &extra = "",
                 const std::string &site = "here") {
    return "[Event \"t\"]\n[Site \"" + site +
           "\"]\n[Round \"1\"]\n[White \"A\"]\n[Black \"B\"]\n[Result \"" +
           result + "\"]\n" + extra + "\n";
}

struct PgnScanTest : testing::Test {
    std::string dir, old_cwd, printed;
    EngineSettings saved;
    u8 saved_use_hash = 1;

    void SetUp() override {
        char pattern[] = "/tmp/quillon_pgn_XXXXXX";
        ASSERT_NE(mkdtemp(pattern), nullptr);
        dir = pattern;
        old_cwd = std::filesystem::current_path();
        std::filesystem::current_path(dir);
        saved = settings;
        saved_use_hash = status.use_hash;
    }
    void TearDown() override {
        settings = saved;
        status.use_hash = saved_use_hash;
        std::filesystem::current_path(old_cwd);
        std::filesystem::remove_all(dir);
        set_fen(front_worker->position, START_FEN);
    }

    // Scans `pgn` with `selector`; the lines of the output file.
    std::vector<std::string> scan(const std::string &pgn, int selector) {
        std::ofstream("in.pgn", std::ios::binary) << pgn;
        std::snprintf(settings.input_file2, sizeof settings.input_file2,
                      "in.pgn");
        settings.output_file[0] = 0;
        printed = capture([&] { pgn_scan(selector); });
        return lines("tmp.epd");
    }
    static std::vector<std::string> lines(const char *name) {
        std::ifstream in(name);
        std::vector<std::string> out;
        for (std::string l; std::getline(in, l);) out.push_back(l);
        return out;
    }
};

int score_of(const char *text, int fcp = 0) {
    bool from_white = false;
    return pgn_comment_score(text, fcp, &from_white);
}

TEST_F(PgnScanTest, CommentScores) {
    EXPECT_EQ(score_of("+1.25/18 3.2s"), 125);
    EXPECT_EQ(score_of("-0.40/12"), -40);
    EXPECT_EQ(score_of("book"), 0);
    EXPECT_EQ(score_of("out of book +0.3/1"), 0);
    EXPECT_EQ(score_of("eval 57, depth 12"), 57);
    EXPECT_EQ(score_of("eval , depth 12"), PGN_UNREADABLE);
    EXPECT_EQ(score_of("+M7/30 1s"), PGN_MATES);
    EXPECT_EQ(score_of("-M4/30"), PGN_MATED);
    EXPECT_EQ(score_of("no score here"), PGN_UNREADABLE);
    EXPECT_EQ(score_of("1/2"), PGN_UNREADABLE);  // a token of one character
    EXPECT_EQ(score_of(""), PGN_UNREADABLE);
    bool from_white = true;
    pgn_comment_score("+1.25/18", 0, &from_white);
    EXPECT_FALSE(from_white);
    pgn_comment_score("+1.25/18", 1, &from_white);
    EXPECT_TRUE(from_white);
}

// Without the tag the score is the mover's: the listing shows it from
// White's side, so Black's +1.25 prints as -1.25.  With it the file's
// scores are White's already.
TEST_F(PgnScanTest, ScoresAreTheMoversUnlessTheTagSaysWhite) {
    std::string moves = "1. e4 {+1.25/18 3.2s} e5 {+1.25/18 3.2s} 1-0\n";
    auto out = scan(tags("1-0") + moves, 1);
    ASSERT_GE(out.size(), 10u);
    EXPECT_EQ(out[7], "  1.  e4      {  1.25}");
    EXPECT_EQ(out[8], "      e5      { -1.25}");
    EXPECT_EQ(printed, "games= 1, positions= 0\n");
    out = scan(tags("1-0", "", "fcp-tourney-2010") + moves, 1);
    ASSERT_GE(out.size(), 10u);
    EXPECT_EQ(out[8], "      e5      {  1.25}");
    // Selector 3 writes the stored, mover's scores.
    out = scan(tags("1-0", "", "fcp-tourney-2010") + moves, 3);
    ASSERT_EQ(out.size(), 3u);
    EXPECT_NE(out[0].find(" bm e4; ce 125;"), std::string::npos) << out[0];
    EXPECT_NE(out[1].find(" bm e5; ce -125;"), std::string::npos) << out[1];
}

TEST_F(PgnScanTest, TimeForfeitGamesAreDropped) {
    std::string moves = "1. e4 {+0.30/10} e5 {-0.20/10} 1-0\n\n";
    // Termination before Result: not counted.
    auto out = scan(
        "[Event \"t\"]\n[Termination \"time forfeit\"]\n"
        "[Result \"1-0\"]\n\n" +
            moves,
        3);
    EXPECT_EQ(printed, "games= 0, positions= 0\n");
    // After it: counted, and dropped all the same.
    out = scan(tags("1-0", "[Termination \"time forfeit\"]\n") + moves +
                   tags("1-0", "[Termination \"abandoned\"]\n") + moves,
               3);
    EXPECT_EQ(printed, "games= 2, positions= 0\n");
    // A new Event clears the mark.
    out = scan(tags("1-0", "[Termination \"unterminated\"]\n") + moves +
                   tags("1-0") + moves,
               3);
    EXPECT_EQ(printed, "games= 2, positions= 2\n");
}

// "book" comments score 0, and selector 2 drops plies below 20 scored 0.
TEST_F(PgnScanTest, BookMovesAreLeftOutOfTheTuningPositions) {
    std::string moves;
    const char *shuffle[] = {"Nf3", "Nf6", "Ng1", "Ng8"};
    for (int i = 0; i < 40; i++) {
        if (i % 2 == 0) moves += std::to_string(i / 2 + 1) + ". ";
        moves += shuffle[i % 4];
        moves += i < 24 ? " {book} " : " {+0.10/9 1s} ";
    }
    auto out = scan(tags("1/2-1/2") + moves + "1/2-1/2\n", 2);
    // Plies 20 to 35 (count - 5): the rule for 0 holds below 20 only, so
    // the book moves of plies 20 to 23 stay, with ce 0.
    ASSERT_EQ(out.size(), 16u + 1);
    const std::string start =
        "rnbqkbnr/pppppppp/8/8/8/8/PPPPPPPP/RNBQKBNR w KQkq -";
    EXPECT_EQ(out[0], start + " ce 0; gr 0.5;");
    EXPECT_EQ(out[4], start + " ce 10; gr 0.5;");
    EXPECT_EQ(out.back(), "");
    EXPECT_EQ(printed, "games= 1, positions= 16\n");
}

TEST_F(PgnScanTest, TuningTargetsFollowTheResultAndTheSide) {
    std::string moves =
        "1. d4 {+0.1/9} d5 {+0.2/9} 2. c4 {+0.3/9} e6 {+0.4/9} 3. Nc3 {+0.5/9} "
        "Nf6 {+0.6/9} 4. Bg5 {+0.7/9}\n";
    auto out = scan(tags("0-1") + moves + "0-1\n", 2);
    ASSERT_EQ(out.size(), 4u);  // plies 0 to 2, and the closing line
    EXPECT_NE(out[0].find(" ce 10; gr 0.0;"), std::string::npos) << out[0];
    EXPECT_NE(out[1].find(" ce 20; gr 1.0;"), std::string::npos) << out[1];
    // Fewer than five plies: nothing.
    out = scan(tags("1-0") + "1. d4 {+0.1/9} d5 {+0.2/9} 1-0\n", 2);
    EXPECT_EQ(out.size(), 1u);
}

// The first game is written when the second one's first tag comes.
TEST_F(PgnScanTest, GamesAreWrittenAtTheNextTagLine) {
    std::string game1 = tags("1-0") + "1. e4 {+0.3/9} e5 {+0.1/9} 1-0\n\n";
    std::string game2 = tags("0-1") + "1. d4 {+0.2/9} 0-1\n";
    auto out = scan(game1 + game2, 1);
    ASSERT_EQ(out.size(), 20u);
    EXPECT_EQ(out[3], "[Tag \"game_0\"]");
    EXPECT_EQ(out[7], "  1.  e4      {  0.30}");
    EXPECT_EQ(out[9], "");
    EXPECT_EQ(out[10], "[Event \"t\"]");
    EXPECT_EQ(out[13], "[Tag \"game_1\"]");
    EXPECT_EQ(out[17], "  1.  d4      {  0.20}");
    EXPECT_EQ(printed, "games= 2, positions= 0\n");
}

// A comment-less move keeps -30000 (empty score text); the first slot
// keeps the first comment of the run.
TEST_F(PgnScanTest, MovesWithoutCommentsAndTheFirstSlot) {
    auto out = scan(tags("1-0") + "1. e4 e5 {+0.50/9} 2. Nf3 1-0\n\n" +
                        tags("1-0") + "1. d4 d5 1-0\n",
                    1);
    ASSERT_GE(out.size(), 20u);
    EXPECT_EQ(out[7], "  1.  e4      {}");
    EXPECT_EQ(out[8], "      e5      { -0.50}");
    EXPECT_EQ(out[9], "  2.  Nf3     {}");
    EXPECT_EQ(out[18], "  1.  d4      {}");
    EXPECT_EQ(out[19], "      d5      {}");
    // A comment before any move is dropped.
    out = scan(tags("1-0") + "{+9.00/9} 1. e4 1-0\n", 1);
    EXPECT_EQ(out[7], "  1.  e4      {}");
}

// A blunder: the opponent's scores jump after it.  The move gets " ? "
// and its "am" text; the next ply's position goes to tmpX.epd as "bm".
TEST_F(PgnScanTest, BlundersAreMarked) {
    std::string moves;
    const char *shuffle[] = {"Nf3", "Nf6", "Ng1", "Ng8"};
    for (int i = 0; i < 30; i++) {
        if (i % 2 == 0) moves += std::to_string(i / 2 + 1) + ". ";
        moves += shuffle[i % 4];
        // Black's view after White's 13th ply (index 12) rises from 0 to 3.
        int score = i % 2 == 1 && i > 12 ? 300 : 0;
        moves += " {" + std::to_string(score / 100) + ".00/9} ";
    }
    auto out = scan(tags("1-0") + moves + "1-0\n", 1);
    std::string blunder = out[7 + 12], answer = out[7 + 13];
    EXPECT_NE(blunder.find(" ? "), std::string::npos) << blunder;
    // The score text stops at 63 characters, inside the "am" text.
    EXPECT_NE(blunder.find(" ? rnbqkbnr/"), std::string::npos) << blunder;
    EXPECT_NE(answer.find(" ! "), std::string::npos) << answer;
    EXPECT_LE(blunder.size(), 13u + 3 + 63);
    auto aux = lines("tmpX.epd");
    ASSERT_EQ(aux.size(), 1u);
    EXPECT_NE(aux[0].find(" b KQkq - 13 13 bm Nf6;"), std::string::npos)
        << aux[0];
    EXPECT_EQ(printed, "games= 1, positions= 1\n");
}

TEST_F(PgnScanTest, OpeningsStopAtAClearScoreAndSkipChecks) {
    std::string moves =
        "1. e4 {+0.2/9} f5 {-0.3/9} 2. Qh5+ {+0.5/9} g6 {-0.6/9} 3. Qxg6+ "
        "{+6.00/9} hxg6 {-6.00/9} 4. Nf3 {+0.1/9}\n";
    auto out = scan(tags("1-0") + moves + "1-0\n", 3);
    // g6 is played in check (black's ply 3): not written.  Qxg6+ is the
    // last line, its score above 500.
    ASSERT_EQ(out.size(), 5u);
    EXPECT_NE(out[2].find(" bm Qh5+; ce 50;"), std::string::npos) << out[2];
    EXPECT_NE(out[3].find(" bm Qxg6+; ce 600;"), std::string::npos) << out[3];
}

TEST_F(PgnScanTest, RookEndingsWithOnePawn) {
    std::string fen = "[FEN \"8/8/4k3/8/4P3/8/r7/R3K3 w - - 0 1\"]\n";
    std::string moves = "1. Kf1 {+0.5/9} Rb2 {-0.4/9} 2. Rc1 {+0.6/9}\n";
    auto out = scan(tags("1-0", fen) + moves + "1-0\n", 4);
    ASSERT_EQ(out.size(), 4u);
    EXPECT_EQ(out[0],
              "8/8/4k3/8/4P3/8/r7/R3K3 w - - 0 0 bm Kf1; ce 50; tune 1.00000;");
    EXPECT_NE(out[1].find(" b - - 1 1 bm Rb2; ce -40; tune 0.00000;"),
              std::string::npos)
        << out[1];
    out = scan(tags("1/2-1/2", fen) + moves + "1/2-1/2\n", 4);
    EXPECT_NE(out[0].find("tune 0.50000;"), std::string::npos);
    // Two pawns: no line.
    fen = "[FEN \"8/8/4k3/8/4P3/7P/r7/R3K3 w - - 0 1\"]\n";
    out = scan(tags("1-0", fen) + moves + "1-0\n", 4);
    EXPECT_EQ(out.size(), 1u);
}

// 800 moves of shuffling: the game is cut at 791 plies.
TEST_F(PgnScanTest, LongGamesAreCutAt791) {
    std::string moves;
    const char *shuffle[] = {"Nf3", "Nf6", "Ng1", "Ng8"};
    for (int i = 0; i < 800; i++) {
        moves += shuffle[i % 4];
        moves += i % 6 == 5 ? "\n" : " ";
    }
    auto out = scan(tags("1/2-1/2") + moves + "\n", 1);
    // Tags, one line a ply, the empty line, the closing line.
    EXPECT_EQ(out.size(), 7u + 791 + 1 + 1);
    EXPECT_EQ(out[7 + 790], "396.  Ng1     {}");
}

// A move that doesn't read ends the game's output.
// Ke7 runs into Black's own pawn: only 1. e4 is written.
TEST_F(PgnScanTest, ABadMoveEndsTheGame) {
    auto out =
        scan(tags("1-0") + "1. e4 {+0.2/9} Ke7 {0.1/9} 2. Qxf7 1-0\n", 3);
    ASSERT_EQ(out.size(), 2u);
    EXPECT_NE(out[0].find(" bm e4; ce 20;"), std::string::npos);
}

TEST_F(PgnScanTest, MissingFilesAreSilent) {
    std::snprintf(settings.input_file2, sizeof settings.input_file2,
                  "none.pgn");
    settings.output_file[0] = 0;
    printed = capture([] { pgn_scan(1); });
    EXPECT_EQ(printed, "");
    std::ofstream("in.pgn") << tags("1-0") << "1. e4 1-0\n";
    std::snprintf(settings.input_file2, sizeof settings.input_file2, "in.pgn");
    std::snprintf(settings.output_file, sizeof settings.output_file,
                  "no/such/folder/out.epd");
    printed = capture([] { pgn_scan(1); });
    EXPECT_EQ(printed, "");
}

// Noise, cut files, unclosed comments, long lines: the scan ends with its
// summary every time.
TEST_F(PgnScanTest, DamagedPgnEndsQuietly) {
    std::mt19937 rng(11);
    std::ifstream in(data_path("sample_games.pgn"));
    std::stringstream sample;
    sample << in.rdbuf();
    std::string text = sample.str().substr(0, 8000);
    ASSERT_FALSE(text.empty());
    std::vector<std::string> inputs;
    for (int i = 0; i < 12; i++) {
        std::string noise(rng() % 3000, 0);
        for (char &c : noise) c = static_cast<char>(rng());
        inputs.push_back(noise);
        inputs.push_back(text.substr(0, rng() % text.size()));
        std::string mixed = text;
        for (int k = 0; k < 60; k++)
            mixed[rng() % mixed.size()] = "{}()[]%/\"+-M \n"[rng() % 14];
        inputs.push_back(mixed);
    }
    inputs.push_back(tags("1-0") + "1. e4 { never closed +1/2 e5\n" +
                     std::string(10000, '{') + "\n");
    inputs.push_back(tags("1-0") + "1. e4 {" + std::string(10000, 'x') +
                     "/ +1.0" + std::string(3000, '9') + "/}\n");
    inputs.push_back(tags("1-0") + std::string(10000, 'e') + "\n");
    inputs.push_back("[FEN \"" + std::string(400, '8') + "\"]\n1. e4\n");
    inputs.push_back(std::string(10000, '}') + "\n1. e4 {+1/2}\n");
    for (int selector = 1; selector <= 4; selector++)
        for (const std::string &pgn : inputs) {
            scan(pgn, selector);
            EXPECT_NE(printed.find("games= "), std::string::npos);
        }
}

}  // namespace
