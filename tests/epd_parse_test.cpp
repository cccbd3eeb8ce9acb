// Reading the fields of EPD lines: the position, the move counters that
// are passed over, the opcodes kept and the ones skipped.
#include <gtest/gtest.h>

#include <cstring>
#include <random>
#include <string>

#include "tools/epd.h"

namespace {

EpdFields parsed(const std::string &line) {
    EpdFields f;
    EXPECT_EQ(epd_parse(line.c_str(), f), 1);
    return f;
}

TEST(EpdParse, PositionIsTheFirstFourFields) {
    EpdFields f = parsed(
        "r1bqkbnr/pppp1ppp/2n5/4p3/4P3/5N2/PPPP1PPP/RNBQKB1R w KQkq - bm "
        "Bb5;\n");
    EXPECT_STREQ(
        f.fen, "r1bqkbnr/pppp1ppp/2n5/4p3/4P3/5N2/PPPP1PPP/RNBQKB1R w KQkq -");
    EXPECT_STREQ(f.bm, "Bb5");
}

TEST(EpdParse, MoveCountersAreNotOpcodes) {
    EpdFields f = parsed("8/8/8/8/8/8/8/K6k w - - 0 1 bm Kb1; id \"x\";");
    EXPECT_STREQ(f.fen, "8/8/8/8/8/8/8/K6k w - -");
    EXPECT_STREQ(f.bm, "Kb1");
    EXPECT_STREQ(f.id, "\"x\"");
    // Only counters right behind the position are passed over.
    f = parsed("8/8/8/8/8/8/8/K6k w - - 12 bm Ka2;");
    EXPECT_STREQ(f.bm, "Ka2");
}

TEST(EpdParse, EveryBlankInAValueIsDropped) {
    EpdFields f =
        parsed("8/8/8/8/8/8/8/K6k w - - bm e4 d4; id a b; c0 \"e4=10, d4=5\";");
    EXPECT_STREQ(f.bm, "e4d4");
    EXPECT_STREQ(f.id, "ab");
    EXPECT_STREQ(f.c0, "\"e4=10,d4=5\"");
}

TEST(EpdParse, CommaSeparatedMovesStaySeparable) {
    EpdFields f = parsed("8/8/8/8/8/8/8/K6k w - - bm Ka2, Kb1;");
    EXPECT_STREQ(f.bm, "Ka2,Kb1");
}

TEST(EpdParse, AllKnownOpcodesAreKept) {
    EpdFields f = parsed(
        "8/8/8/8/8/8/8/K6k w - - bm Ka2; am Kb2; ce 15; sc 3; gr 1; id t1; "
        "c0 Ka2=1;");
    EXPECT_STREQ(f.bm, "Ka2");
    EXPECT_STREQ(f.am, "Kb2");
    EXPECT_STREQ(f.ce, "15");
    EXPECT_STREQ(f.sc, "3");
    EXPECT_STREQ(f.gr, "1");
    EXPECT_STREQ(f.id, "t1");
    EXPECT_STREQ(f.c0, "Ka2=1");
}

TEST(EpdParse, OnlyExactNamesMatchAndOthersAreSkipped) {
    EpdFields f =
        parsed("8/8/8/8/8/8/8/K6k w - - bmx Ka2; acd 12; b Kb1; am Kb2;");
    EXPECT_STREQ(f.bm, "");
    EXPECT_STREQ(f.am, "Kb2");
}

TEST(EpdParse, AValueWithoutSemicolonEndsTheLine) {
    EpdFields f = parsed("8/8/8/8/8/8/8/K6k w - - bm Ka2 am Kb2; id z;");
    // "Ka2 am Kb2" is one value, blanks dropped; the next opcode follows.
    EXPECT_STREQ(f.bm, "Ka2amKb2");
    EXPECT_STREQ(f.id, "z");
    f = parsed("8/8/8/8/8/8/8/K6k w - - bm Ka2\n");
    EXPECT_STREQ(f.bm, "Ka2");
    f = parsed("8/8/8/8/8/8/8/K6k w - - bm Ka2; id");
    EXPECT_STREQ(f.bm, "Ka2");
    EXPECT_STREQ(f.id, "");
}

TEST(EpdParse, ShortLineIsThePositionUpToItsEnd) {
    EpdFields f = parsed("8/8/8/8/8/8/8/K6k w - -\n");
    EXPECT_STREQ(f.fen, "8/8/8/8/8/8/8/K6k w - -");
    EXPECT_STREQ(f.bm, "");
    f = parsed("8/8/8/8/8/8/8/K6k w\r\n");
    EXPECT_STREQ(f.fen, "8/8/8/8/8/8/8/K6k w");
    f = parsed("");
    EXPECT_STREQ(f.fen, "");
}

TEST(EpdParse, FieldsAreClearedBetweenLines) {
    EpdFields f;
    epd_parse("8/8/8/8/8/8/8/K6k w - - bm Ka2; am Kb2;", f);
    epd_parse("8/8/8/8/8/8/8/K6k b - - id y;", f);
    EXPECT_STREQ(f.fen, "8/8/8/8/8/8/8/K6k b - -");
    EXPECT_STREQ(f.bm, "");
    EXPECT_STREQ(f.am, "");
    EXPECT_STREQ(f.id, "y");
}

// Lines far beyond the file reader's 511 characters, random bytes and
// every prefix of a real line: always one answer, every field terminated.
TEST(EpdParse, RandomAndTruncatedLinesAreSafe) {
    std::mt19937 rng(7);
    const std::string alphabet = " ;;;\"bmacegrsid0123456789KQRBNPkqrbnp/-w\n";
    EpdFields f;
    for (int i = 0; i < 3000; i++) {
        std::string line;
        int length = static_cast<int>(rng() % 1400);
        for (int k = 0; k < length; k++)
            line += rng() % 4 ? alphabet[rng() % alphabet.size()]
                              : static_cast<char>(1 + rng() % 255);
        ASSERT_EQ(epd_parse(line.c_str(), f), 1);
        for (const char *field :
             {f.fen, f.bm, f.am, f.ce, f.sc, f.gr, f.id, f.c0})
            ASSERT_LT(std::strlen(field), static_cast<size_t>(EPD_LINE_SIZE));
    }
    const std::string real =
        "r1bqkbnr/pppp1ppp/2n5/4p3/4P3/5N2/PPPP1PPP/RNBQKB1R w KQkq - 2 3 bm "
        "Bb5, Bc4; am h3; c0 \"Bb5=10, Bc4=8\"; id \"open.1\";\n";
    for (size_t cut = 0; cut <= real.size(); cut++)
        ASSERT_EQ(epd_parse(real.substr(0, cut).c_str(), f), 1);
    EXPECT_STREQ(f.c0, "\"Bb5=10,Bc4=8\"");
}

}  // namespace
