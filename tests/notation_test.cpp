// FEN reading and writing, move texts, the four written forms of
// a move and the loose move reader.
#include <gtest/gtest.h>

#include <cstdio>
#include <cstring>
#include <fstream>
#include <random>
#include <string>
#include <vector>

#include "test_support.h"

namespace {

struct NotationTest : testing::Test {
    u8 saved_chess960 = 0, saved_uci_mode = 0;
    void SetUp() override {
        saved_chess960 = settings.chess960;
        saved_uci_mode = settings.uci_mode;
        settings.chess960 = 0;
        settings.uci_mode = 1;
    }
    void TearDown() override {
        settings.chess960 = saved_chess960;
        settings.uci_mode = saved_uci_mode;
        test_position(START_FEN);
    }
};

struct Forms {
    std::string coord, san, alt, long_form;
};

Forms forms_of(Move move) {
    char c[MOVE_TEXT_SIZE], s[MOVE_TEXT_SIZE], a[MOVE_TEXT_SIZE],
        l[MOVE_TEXT_SIZE];
    move_forms(front_worker->position, move, c, s, a, l);
    return {c, s, a, l};
}

std::string fen_of(const Position &pos, int counters = 0) {
    char out[FEN_BUFFER_SIZE];
    get_fen(pos, out, counters);
    return out;
}

std::string text_of(Move move) {
    char out[MOVE_TEXT_SIZE];
    move_text(front_worker->position, front_worker->position.side, move, out);
    return out;
}

// Runs parse_move on a copy of `text` in a heap buffer of exactly the
// documented size, so that the sanitizer sees any write beyond it.
int parse(const char *text, Move *move, std::string *printed = nullptr) {
    size_t n = std::strlen(text);
    std::vector<char> buffer(n + 2, 0);
    std::memcpy(buffer.data(), text, n + 1);
    testing::internal::CaptureStdout();
    int result = parse_move(buffer.data(), move);
    std::fflush(stdout);
    std::string out = testing::internal::GetCapturedStdout();
    if (printed) *printed = out;
    return result;
}

Move parsed(const char *text) {
    Move m = 0;
    EXPECT_EQ(parse(text, &m), 1) << text;
    return m;
}

int sq(const char *name) { return (name[0] - 'a') + 8 * (name[1] - '1'); }

Move mv(const char *from, const char *to, u16 flags = 0) {
    return make_move_code(sq(from), sq(to), flags);
}

// The first four fields of a FEN line of an EPD file.
std::string first_fields(const std::string &line, int fields) {
    std::string out;
    int seen = 0;
    for (char c : line) {
        if (c == ' ' && ++seen == fields) break;
        if (c == ';') break;
        out += c;
    }
    while (!out.empty() && out.back() == ' ') out.pop_back();
    return out;
}

std::vector<std::string> epd_lines(const char *name) {
    std::vector<std::string> lines;
    std::ifstream in(data_path(name));
    std::string line;
    while (std::getline(in, line))
        if (!line.empty()) lines.push_back(line);
    return lines;
}

// --- Squares and FEN ----------------------------------------------------

TEST_F(NotationTest, SquareNames) {
    EXPECT_STREQ(SQUARE_NAMES[0], "a1");
    EXPECT_STREQ(SQUARE_NAMES[7], "h1");
    EXPECT_STREQ(SQUARE_NAMES[8], "a2");
    EXPECT_STREQ(SQUARE_NAMES[28], "e4");
    EXPECT_STREQ(SQUARE_NAMES[63], "h8");
    for (int s = 0; s < 64; s++) {
        EXPECT_EQ(SQUARE_NAMES[s][0], 'a' + (s & 7));
        EXPECT_EQ(SQUARE_NAMES[s][1], '1' + (s >> 3));
        EXPECT_EQ(SQUARE_NAMES[s][2], 0);
    }
}

TEST_F(NotationTest, StartPosition) {
    Position &pos = test_position(START_FEN);
    EXPECT_EQ(pos.history, front_worker);
    EXPECT_EQ(pos.side, WHITE);
    EXPECT_EQ(pos.king_sq[WHITE], sq("e1"));
    EXPECT_EQ(pos.king_sq[BLACK], sq("e8"));
    EXPECT_EQ(pos.castle_rights, 15);
    EXPECT_EQ(pos.castle_rook[0], sq("h1"));
    EXPECT_EQ(pos.castle_rook[1], sq("a1"));
    EXPECT_EQ(pos.castle_rook[2], sq("h8"));
    EXPECT_EQ(pos.castle_rook[3], sq("a8"));
    EXPECT_EQ(pos.ep_sq, NO_SQUARE);
    EXPECT_EQ(pos.cnt50, 0);
    EXPECT_EQ(pos.board[sq("d1")], make_piece(QUEEN, WHITE));
    EXPECT_EQ(pos.board[sq("g8")], make_piece(KNIGHT, BLACK));
    EXPECT_EQ(pos.board[64], 0);
    EXPECT_EQ(pos.material_sig[WHITE],
              8u + 2 * 16 + 2 * 256 + 2 * 4096 + 65536);
    EXPECT_EQ(pos.piece_points[BLACK], 3 + 3 + 3 + 3 + 5 + 5 + 10);
    EXPECT_EQ(pos.bitboards[WHITE][0], 0xFFFFULL);
    EXPECT_EQ(pos.bitboards[BLACK][PAWN], 0x00FF000000000000ULL);
    u64 key = pos.key, pawn_key = pos.pawn_key;
    compute_keys(pos);
    EXPECT_EQ(pos.key, key);
    EXPECT_EQ(pos.pawn_key, pawn_key);
    EXPECT_EQ(fen_of(pos, 1),
              "rnbqkbnr/pppppppp/8/8/8/8/PPPPPPPP/RNBQKBNR w KQkq - 0 0");
}

// Edge case: a board without kings.
TEST_F(NotationTest, NoKingsLeaveKingSquaresAt64) {
    Position &pos = test_position("8/8/8/8/8/8/8/8 w - -");
    EXPECT_EQ(pos.king_sq[WHITE], NO_SQUARE);
    EXPECT_EQ(pos.king_sq[BLACK], NO_SQUARE);
    EXPECT_EQ(pos.castle_rights, 0);
    EXPECT_EQ(occupied_squares(pos), 0u);
    EXPECT_EQ(fen_of(pos), "8/8/8/8/8/8/8/8 w - -");
    generate_all(pos);
    EXPECT_EQ(front_worker->plies[1].list_start->move, END_OF_LIST);

    // One side without a king: moves, forms and legality still work.
    test_position("8/8/8/8/8/8/8/R7 w - -");
    EXPECT_EQ(front_worker->position.king_sq[BLACK], NO_SQUARE);
    Forms f = forms_of(mv("a1", "a8"));
    EXPECT_EQ(f.san, "Ra8");
    Move m = 0;
    EXPECT_EQ(parse("Ra8", &m), 1);
    EXPECT_EQ(m, mv("a1", "a8"));
}

// Edge case: the move counters of the text are not read.
TEST_F(NotationTest, MoveNumbersAreNotRead) {
    front_worker->hist_index = 7;
    front_worker->ply = 9;
    front_worker->last_move = 1234;
    front_worker->states[0].key = 99;
    front_worker->states[1].move = 99;
    Position &pos = test_position(
        "rnbqkbnr/pppppppp/8/8/8/8/PPPPPPPP/RNBQKBNR w KQkq - 12 34");
    EXPECT_EQ(pos.cnt50, 0);
    EXPECT_EQ(front_worker->hist_index, 0);
    EXPECT_EQ(front_worker->ply, 1);
    EXPECT_EQ(front_worker->last_move, 0);
    EXPECT_EQ(front_worker->states[0].key, 0u);
    EXPECT_EQ(front_worker->states[1].move, 0);
    EXPECT_EQ(fen_of(pos, 1),
              "rnbqkbnr/pppppppp/8/8/8/8/PPPPPPPP/RNBQKBNR w KQkq - 0 0");
}

// Edge case: the last number of get_fen is the game ply.
TEST_F(NotationTest, GetFenCountsGamePlies) {
    Position &pos = test_position(START_FEN);
    for (const char *text : {"e2e4", "e7e5", "g1f3"}) {
        Move m = parsed(text);
        make_move(pos, m);
    }
    EXPECT_EQ(fen_of(pos, 1),
              "rnbqkbnr/pppp1ppp/8/4p3/4P3/5N2/PPPP1PPP/RNBQKB1R b KQkq - 1 3");
    EXPECT_EQ(fen_of(pos, 0),
              "rnbqkbnr/pppp1ppp/8/4p3/4P3/5N2/PPPP1PPP/RNBQKB1R b KQkq -");
    // A set position starts again from 0.
    test_position(fen_of(pos, 1).c_str());
    EXPECT_EQ(fen_of(pos, 1),
              "rnbqkbnr/pppp1ppp/8/4p3/4P3/5N2/PPPP1PPP/RNBQKB1R b KQkq - 0 0");
}

TEST_F(NotationTest, DoublePushWritesEnPassantSquare) {
    Position &pos = test_position(START_FEN);
    make_move(pos, parsed("e4"));
    EXPECT_EQ(fen_of(pos, 1),
              "rnbqkbnr/pppppppp/8/8/4P3/8/PPPP1PPP/RNBQKBNR b KQkq e3 0 1");
}

TEST_F(NotationTest, SameTextGivesSameBytes) {
    const char *fen =
        "r3k2r/p1ppqpb1/bn2pnp1/3PN3/1p2P3/2N2Q1p/PPPBBPPP/R3K2R b KQkq - 0 1";
    Position &pos = test_position(fen);
    Position first = pos;
    // Dirty the record and set the same text again.
    test_position("8/8/8/8/8/8/8/8 b - e3");
    std::memset(pos.board, 0x55, sizeof pos.board);
    pos.touched = ~0ULL;
    pos.cnt50 = 77;
    test_position(fen);
    EXPECT_EQ(std::memcmp(&first, &pos, sizeof pos), 0);
}

// A text that names no side leaves the side to move as it was.
TEST_F(NotationTest, MissingSideFieldKeepsTheSide) {
    Position &pos = test_position("4k3/8/8/8/8/8/8/4K3 b - -");
    EXPECT_EQ(pos.side, BLACK);
    test_position("4k3/8/8/8/8/8/8/4K3");
    EXPECT_EQ(pos.side, BLACK);
    test_position("4k3/8/8/8/8/8/8/4K3 x");
    EXPECT_EQ(pos.side, BLACK);
    EXPECT_EQ(fen_of(pos), "4k3/8/8/8/8/8/8/4K3 b - -");
    test_position("4k3/8/8/8/8/8/8/4K3 w - -");
    test_position("4k3/8/8/8/8/8/8/4K3");
    EXPECT_EQ(pos.side, WHITE);
}

TEST_F(NotationTest, UnknownBoardCharactersHaveNoEffect) {
    // '9', '0' and other letters are skipped without moving on.
    Position &pos = test_position("4k3/8/8/8/8/8/8/4xK9032 w - -");
    EXPECT_EQ(pos.king_sq[WHITE], sq("e1"));
    EXPECT_EQ(fen_of(pos), "4k3/8/8/8/8/8/8/4K3 w - -");
}

TEST_F(NotationTest, BoardWalkStaysOnTheBoard) {
    // Overlong ranks, too many ranks and digits past the edge.
    Position &pos = test_position(
        "KKKKKKKKKKKK/8888888888R/8/8/8/8/8/8/8/8/8/qqqq/8/r w - -");
    EXPECT_EQ(fen_of(pos), "KKKKKKKK/8/8/8/8/8/8/8 w - -");
    EXPECT_EQ(pos.king_sq[WHITE], sq("h8"));
    EXPECT_EQ(pos.king_sq[BLACK], NO_SQUARE);
    EXPECT_EQ(pos.bitboards[BLACK][0], 0u);
}

TEST_F(NotationTest, AtMostSixteenMenASide) {
    // 24 white men in the text: the 17th and later are left off, but still
    // take their squares' places in the walk.
    Position &pos =
        test_position("k7/8/8/8/8/PPPPPPPP/PPPPPPPP/PPPPPPPK w - -");
    EXPECT_EQ(count_bits(pos.bitboards[WHITE][0]), 16);
    EXPECT_EQ(pos.king_sq[WHITE], NO_SQUARE);
    EXPECT_EQ(pos.material_sig[WHITE], 16u);
    EXPECT_EQ(fen_of(pos), "k7/8/8/8/8/PPPPPPPP/PPPPPPPP/8 w - -");
    // The cap is per colour.
    test_position("qqqqqqqq/qqqqqqqq/qqqqqqqq/8/8/8/8/QQQQQQQQ w - -");
    EXPECT_EQ(count_bits(pos.bitboards[BLACK][0]), 16);
    EXPECT_EQ(count_bits(pos.bitboards[WHITE][0]), 8);
    generate_all(pos);
    int n = 0;
    for (MoveEntry *e = front_worker->plies[1].list_start;
         e->move != END_OF_LIST; e++)
        n++;
    EXPECT_GT(n, 0);
    EXPECT_LT(n, MAX_LIST_LENGTH);
}

TEST_F(NotationTest, EnPassantField) {
    struct Case {
        const char *field;
        int square;
    } cases[] = {
        {"-", NO_SQUARE},   {"e3", sq("e3")},    {"d6", sq("d6")},
        {"h6", sq("h6")},   {"a3", sq("a3")},    {"e", NO_SQUARE},
        {"3", NO_SQUARE},   {"e9", NO_SQUARE},   {"i3", NO_SQUARE},
        {"z", NO_SQUARE},   {"x-e?3", sq("e3")}, {"3e", sq("e3")},
        {"e3f6", sq("f6")},
    };
    for (const Case &c : cases) {
        std::string fen = std::string("4k3/8/8/8/8/8/8/4K3 w - ") + c.field;
        Position &pos = test_position(fen.c_str());
        EXPECT_EQ(pos.ep_sq, c.square) << c.field;
    }
    // The field ends at a blank; counters behind it are not read.
    Position &pos = test_position("4k3/8/8/8/8/8/8/4K3 b - e3 5 8");
    EXPECT_EQ(pos.ep_sq, sq("e3"));
    EXPECT_EQ(pos.cnt50, 0);
}

TEST_F(NotationTest, CastlingField) {
    Position &pos = test_position("r3k2r/8/8/8/8/8/8/R3K2R w Kq -");
    EXPECT_EQ(pos.castle_rights, 1 | 8);
    EXPECT_EQ(fen_of(pos), "r3k2r/8/8/8/8/8/8/R3K2R w Kq -");
    // Chess960 file letters; get_fen writes the KQkq form.
    test_position("1r2k1r1/8/8/8/8/8/8/1R2K1R1 w GBgb -");
    EXPECT_EQ(pos.castle_rights, 15);
    EXPECT_EQ(pos.castle_rook[0], sq("g1"));
    EXPECT_EQ(pos.castle_rook[1], sq("b1"));
    EXPECT_EQ(pos.castle_rook[2], sq("g8"));
    EXPECT_EQ(pos.castle_rook[3], sq("b8"));
    EXPECT_EQ(fen_of(pos), "1r2k1r1/8/8/8/8/8/8/1R2K1R1 w KQkq -");
    // Blanks before the field are skipped; a castling field longer than 8
    // characters is read to its end, and only 8 of them count.
    test_position("r3k2r/8/8/8/8/8/8/R3K2R w    ------KQkq e3");
    EXPECT_EQ(pos.castle_rights, 3);
    EXPECT_EQ(pos.ep_sq, sq("e3"));
}

TEST_F(NotationTest, TruncatedTexts) {
    Position &pos = test_position("");
    EXPECT_EQ(fen_of(pos), "8/8/8/8/8/8/8/8 w - -");
    test_position("4k3/8/8/8/8/8/8/4K3");
    EXPECT_EQ(fen_of(pos), "4k3/8/8/8/8/8/8/4K3 w - -");
    test_position("4k3/8/8/8/8/8/8/4K3 b");
    EXPECT_EQ(fen_of(pos), "4k3/8/8/8/8/8/8/4K3 b - -");
    test_position("r3k2r/8/8/8/8/8/8/R3K2R b KQ");
    EXPECT_EQ(fen_of(pos), "r3k2r/8/8/8/8/8/8/R3K2R b KQ -");
    test_position("4k3/8/8/8/8/8/8/4K3 b - ");
    EXPECT_EQ(fen_of(pos), "4k3/8/8/8/8/8/8/4K3 b - -");
}

TEST_F(NotationTest, StandardFenRoundTrips) {
    std::vector<std::string> lines = epd_lines("perft_standard.epd");
    ASSERT_GT(lines.size(), 100u);
    for (const std::string &line : lines) {
        std::string fen = first_fields(line, 4);
        Position &pos = test_position(fen.c_str());
        EXPECT_EQ(fen_of(pos), fen);
        // With counters: the halfmove clock and game ply are both 0.
        EXPECT_EQ(fen_of(pos, 1), fen + " 0 0");
        // Reading the written text again gives the same bytes.
        Position first = pos;
        test_position(fen_of(first, 1).c_str());
        EXPECT_EQ(std::memcmp(&first, &pos, sizeof pos), 0) << fen;
    }
}

// The castling field as get_fen writes it for a Chess960 field.
std::string kqkq_form(const Position &pos, const std::string &field) {
    int rights = 0;
    for (char c : field) {
        if (c == 'K') rights |= 1;
        if (c == 'Q') rights |= 2;
        if (c == 'k') rights |= 4;
        if (c == 'q') rights |= 8;
        if (c >= 'A' && c <= 'H')
            rights |= c - 'A' > file_of(pos.king_sq[WHITE]) ? 1 : 2;
        if (c >= 'a' && c <= 'h')
            rights |= c - 'a' > file_of(pos.king_sq[BLACK]) ? 4 : 8;
    }
    std::string out;
    if (rights & 1) out += 'K';
    if (rights & 2) out += 'Q';
    if (rights & 4) out += 'k';
    if (rights & 8) out += 'q';
    return out.empty() ? "-" : out;
}

TEST_F(NotationTest, Chess960FenRoundTrips) {
    std::vector<std::string> lines = epd_lines("perft_chess960_quillon.epd");
    ASSERT_GT(lines.size(), 900u);
    for (const std::string &line : lines) {
        std::string fen = first_fields(line, 4);
        size_t b1 = fen.find(' '), b2 = fen.find(' ', b1 + 1),
               b3 = fen.find(' ', b2 + 1);
        std::string field = fen.substr(b2 + 1, b3 - b2 - 1);
        Position &pos = test_position(fen.c_str());
        std::string expected =
            fen.substr(0, b2 + 1) + kqkq_form(pos, field) + fen.substr(b3);
        EXPECT_EQ(fen_of(pos), expected);
        // The KQkq form names the same rooks: the same bytes again.
        Position first = pos;
        test_position(fen_of(first).c_str());
        EXPECT_EQ(std::memcmp(&first, &pos, sizeof pos), 0) << fen;
    }
}

// --- Coordinate texts ---------------------------------------------------

// Edge case: Chess960 castling reads as king takes rook.
TEST_F(NotationTest, CastlingCoordinates) {
    test_position("r3k2r/8/8/8/8/8/8/R3K2R w KQkq -");
    Move short_castle = mv("e1", "g1", FLAG_SHORT);
    Move long_castle = mv("e1", "c1", FLAG_LONG);
    settings.chess960 = 1;
    EXPECT_EQ(text_of(short_castle), "e1h1");
    EXPECT_EQ(text_of(long_castle), "e1a1");
    settings.chess960 = 0;
    EXPECT_EQ(text_of(short_castle), "e1g1");
    EXPECT_EQ(text_of(long_castle), "e1c1");
    // Black's rooks by the side argument.
    settings.chess960 = 1;
    char out[MOVE_TEXT_SIZE];
    coord_text(front_worker->position, BLACK, mv("e8", "g8", FLAG_SHORT), out);
    EXPECT_STREQ(out, "e8h8");
    coord_text(front_worker->position, BLACK, mv("e8", "c8", FLAG_LONG), out);
    EXPECT_STREQ(out, "e8a8");
    // Without a rook for the right the king's square is written.
    test_position("4k3/8/8/8/8/8/8/4K3 w - -");
    EXPECT_EQ(text_of(short_castle), "e1g1");
}

TEST_F(NotationTest, PromotionCoordinates) {
    test_position("k7/4P3/8/8/8/8/8/4K3 w - -");
    settings.uci_mode = 1;
    EXPECT_EQ(text_of(mv("e7", "e8", FLAG_QUEEN)), "e7e8q");
    EXPECT_EQ(text_of(mv("e7", "e8", FLAG_KNIGHT)), "e7e8n");
    EXPECT_EQ(text_of(mv("e7", "e8", FLAG_BISHOP)), "e7e8b");
    EXPECT_EQ(text_of(mv("e7", "e8", FLAG_ROOK)), "e7e8r");
    settings.uci_mode = 0;
    EXPECT_EQ(text_of(mv("e7", "e8", FLAG_QUEEN)), "e7e8=Q");
    EXPECT_EQ(text_of(mv("e7", "e8", FLAG_KNIGHT)), "e7e8=N");
    EXPECT_EQ(text_of(mv("e7", "e8", FLAG_BISHOP)), "e7e8=B");
    EXPECT_EQ(text_of(mv("e7", "e8", FLAG_ROOK)), "e7e8=R");
    EXPECT_EQ(text_of(mv("e1", "e2")), "e1e2");
    EXPECT_EQ(text_of(0), "null");
}

// --- Written forms ------------------------------------------------------

// Edge case: rooks on a1 and h1.
TEST_F(NotationTest, RooksOnOneRank) {
    test_position("4k3/8/8/8/8/8/4K3/R6R w - -");
    Forms f = forms_of(mv("a1", "d1"));
    EXPECT_EQ(f.coord, "a1d1");
    EXPECT_EQ(f.san, "Rad1");
    EXPECT_EQ(f.alt, "Rad1");
    EXPECT_EQ(f.long_form, "R1d1");
    EXPECT_EQ(forms_of(mv("h1", "d1")).san, "Rhd1");
    EXPECT_EQ(parsed("Rad1"), mv("a1", "d1"));
    EXPECT_EQ(parsed("Rhd1"), mv("h1", "d1"));
    // "R1d1" is the long form of both moves.
    Move m = 0;
    std::string printed;
    EXPECT_EQ(parse("R1d1", &m, &printed), 0);
    EXPECT_EQ(printed, "ambiguous move\n");
    // A square only one of them reaches needs no qualifier.
    EXPECT_EQ(forms_of(mv("a1", "a5")).san, "Ra5");
}

TEST_F(NotationTest, RooksOnOneFile) {
    test_position("4k3/R7/8/8/8/8/8/R3K3 w - -");
    Forms f = forms_of(mv("a1", "a4"));
    EXPECT_EQ(f.san, "R1a4");
    EXPECT_EQ(f.alt, "Raa4");
    EXPECT_EQ(f.long_form, "R1a4");
    EXPECT_EQ(forms_of(mv("a7", "a4")).san, "R7a4");
    EXPECT_EQ(parsed("R1a4"), mv("a1", "a4"));
    EXPECT_EQ(parsed("R7a4"), mv("a7", "a4"));
    Move m = 0;
    EXPECT_EQ(parse("Ra4", &m), 0);
    EXPECT_EQ(m, 0);
}

// Edge case: knights on b1 and f3 both reaching d2.
TEST_F(NotationTest, KnightsLeftAmbiguous) {
    test_position("4k3/8/8/8/8/5N2/8/1N2K3 w - -");
    Forms b = forms_of(mv("b1", "d2"));
    EXPECT_EQ(b.coord, "b1d2");
    EXPECT_EQ(b.san, "Nd2");
    EXPECT_EQ(b.alt, "Nbd2");
    EXPECT_EQ(b.long_form, "N1d2");
    Forms f = forms_of(mv("f3", "d2"));
    EXPECT_EQ(f.san, "Nd2");
    EXPECT_EQ(f.alt, "Nfd2");
    EXPECT_EQ(f.long_form, "N3d2");

    Move m = 0;
    std::string printed;
    EXPECT_EQ(parse("Nd2", &m, &printed), 0);
    EXPECT_EQ(printed, "ambiguous move\n");
    // The last match is left in the result.
    EXPECT_TRUE(m == mv("b1", "d2") || m == mv("f3", "d2"));
    EXPECT_EQ(parse("Nbd2", &m, &printed), 1);
    EXPECT_EQ(m, mv("b1", "d2"));
    EXPECT_EQ(printed, "");
    EXPECT_EQ(parsed("Nfd2"), mv("f3", "d2"));
    EXPECT_EQ(parsed("N3d2"), mv("f3", "d2"));
    EXPECT_EQ(parsed("N1d2"), mv("b1", "d2"));
    EXPECT_EQ(parsed("b1d2"), mv("b1", "d2"));
}

TEST_F(NotationTest, ThreeMatchesSayNothing) {
    test_position("4k3/8/8/8/4N3/5N2/8/1N5K w - -");
    EXPECT_EQ(forms_of(mv("e4", "d2")).san, "Nd2");
    Move m = 0;
    std::string printed;
    EXPECT_EQ(parse("Nd2", &m, &printed), 0);
    EXPECT_EQ(printed, "");
}

TEST_F(NotationTest, OnlyLegalMovesCount) {
    // The knight on f3 is pinned to the king on h1.
    test_position("4k3/8/8/3b4/8/5N2/8/1N5K w - -");
    EXPECT_EQ(forms_of(mv("f3", "d2")).san, "Nd2");
    EXPECT_EQ(parsed("Nd2"), mv("b1", "d2"));
    Move m = 0;
    EXPECT_EQ(parse("Nfd2", &m), 0);
    EXPECT_EQ(m, 0);
}

TEST_F(NotationTest, PieceCaptures) {
    test_position("4k3/8/8/3p4/8/8/8/3QK3 w - -");
    Forms f = forms_of(mv("d1", "d5"));
    EXPECT_EQ(f.coord, "d1d5");
    EXPECT_EQ(f.san, "Qxd5");
    EXPECT_EQ(f.alt, "Qdxd5");
    EXPECT_EQ(f.long_form, "Q1xd5");
    EXPECT_EQ(parsed("Qxd5"), mv("d1", "d5"));
    EXPECT_EQ(parsed("Qdxd5"), mv("d1", "d5"));
    Move m = 0;
    EXPECT_EQ(parse("Qd5", &m), 0);
}

// Edge case: e7e8q, e8=Q and e8Q name the same move in console mode.
TEST_F(NotationTest, PromotionTexts) {
    test_position("k7/4P3/8/8/8/8/8/4K3 w - -");
    Move queen = mv("e7", "e8", FLAG_QUEEN);
    for (int uci : {0, 1}) {
        settings.uci_mode = static_cast<u8>(uci);
        for (const char *text : {"e7e8q", "e8=Q", "e8Q", "e8=q", "e8q",
                                 "e7e8=Q", "e7e8Q", "e8=Q+", "e8Q+"})
            EXPECT_EQ(parsed(text), queen) << text << " uci " << uci;
        EXPECT_EQ(parsed("e8=N"), mv("e7", "e8", FLAG_KNIGHT));
        EXPECT_EQ(parsed("e7e8b"), mv("e7", "e8", FLAG_BISHOP));
        EXPECT_EQ(parsed("e8R"), mv("e7", "e8", FLAG_ROOK));
    }
    settings.uci_mode = 0;
    // The promoted piece decides the check: a queen on e8 sees a8.
    Forms f = forms_of(queen);
    EXPECT_EQ(f.coord, "e7e8=Q+");
    EXPECT_EQ(f.san, "e8=Q+");
    EXPECT_EQ(f.alt, "=Q+");  // a push's alt is empty, then the suffix
    EXPECT_EQ(f.long_form, "+");
    f = forms_of(mv("e7", "e8", FLAG_KNIGHT));
    EXPECT_EQ(f.coord, "e7e8=N");
    EXPECT_EQ(f.san, "e8=N");
    EXPECT_EQ(f.alt, "=N");
    EXPECT_EQ(f.long_form, "");
    // The coordinate form is the same in both modes.
    settings.uci_mode = 1;
    EXPECT_EQ(forms_of(mv("e7", "e8", FLAG_ROOK)).coord, "e7e8=R+");
    EXPECT_EQ(forms_of(mv("e7", "e8", FLAG_BISHOP)).coord, "e7e8=B");
}

TEST_F(NotationTest, PromotionCapture) {
    test_position("3r3k/4P3/8/8/8/8/8/4K3 w - -");
    Forms f = forms_of(mv("e7", "d8", FLAG_QUEEN));
    EXPECT_EQ(f.coord, "e7d8=Q+");
    EXPECT_EQ(f.san, "exd8=Q+");
    EXPECT_EQ(f.alt, "ed=Q+");
    EXPECT_EQ(parsed("exd8=Q"), mv("e7", "d8", FLAG_QUEEN));
    EXPECT_EQ(parsed("exd8q"), mv("e7", "d8", FLAG_QUEEN));
    EXPECT_EQ(parsed("ed=N"), mv("e7", "d8", FLAG_KNIGHT));
    EXPECT_EQ(parsed("e7d8r"), mv("e7", "d8", FLAG_ROOK));
}

TEST_F(NotationTest, PawnCaptures) {
    test_position("4k3/8/8/3p4/2P1P3/8/8/4K3 w - -");
    Forms f = forms_of(mv("e4", "d5"));
    EXPECT_EQ(f.coord, "e4d5");
    EXPECT_EQ(f.san, "exd5");
    EXPECT_EQ(f.alt, "ed");
    EXPECT_EQ(f.long_form, "");
    EXPECT_EQ(forms_of(mv("c4", "d5")).san, "cxd5");
    EXPECT_EQ(parsed("exd5"), mv("e4", "d5"));
    EXPECT_EQ(parsed("ed"), mv("e4", "d5"));
    EXPECT_EQ(parsed("cd"), mv("c4", "d5"));
    EXPECT_EQ(parsed("e4d5"), mv("e4", "d5"));
    f = forms_of(mv("e4", "e5"));
    EXPECT_EQ(f.san, "e5");
    EXPECT_EQ(f.alt, "");
    EXPECT_EQ(parsed("e5"), mv("e4", "e5"));
    Move m = 0;
    EXPECT_EQ(parse("xd5", &m), 0);
    EXPECT_EQ(parse("d5", &m), 0);
}

// The reader takes a final b for a bishop promotion, so the file form of
// a pawn capture towards the b-file does not parse; the san form does.
// PGN uses the san form, so the looseness stays.
TEST_F(NotationTest, FileFormTowardsBFileReadsAsPromotion) {
    test_position("4k3/8/8/1p6/2P5/8/8/4K3 w - -");
    EXPECT_EQ(forms_of(mv("c4", "b5")).alt, "cb");
    Move m = 0;
    EXPECT_EQ(parse("cb", &m), 0);
    EXPECT_EQ(parsed("cxb5"), mv("c4", "b5"));
}

TEST_F(NotationTest, EnPassantForms) {
    test_position("4k3/8/8/3pP3/8/8/8/4K3 w - d6");
    Move ep = mv("e5", "d6");
    Forms f = forms_of(ep);
    EXPECT_EQ(f.coord, "e5d6");
    EXPECT_EQ(f.san, "exd6");
    EXPECT_EQ(f.alt, "ed");
    EXPECT_EQ(parsed("exd6"), ep);
    EXPECT_EQ(parsed("ed"), ep);
    EXPECT_EQ(parsed("e5d6"), ep);
    // Black takes en passant as well.
    test_position("4k3/8/8/8/3pP3/8/8/4K3 b - e3");
    EXPECT_EQ(forms_of(mv("d4", "e3")).san, "dxe3");
    EXPECT_EQ(parsed("de"), mv("d4", "e3"));
}

TEST_F(NotationTest, EnPassantCheckKeepsTakenPawn) {
    // Taking d5 en passant opens the rank for the rook on a5, but the test
    // keeps the taken pawn in the occupancy: no mark.
    test_position("8/8/8/R2pP2k/8/8/8/4K3 w - d6");
    Forms f = forms_of(mv("e5", "d6"));
    EXPECT_EQ(f.coord, "e5d6");
    EXPECT_EQ(f.san, "exd6");
}

TEST_F(NotationTest, CheckMarks) {
    test_position("5k2/8/8/8/8/8/8/4K2R w K -");
    // The castling rook would check on f1, but it is not moved in the test.
    Forms f = forms_of(mv("e1", "g1", FLAG_SHORT));
    EXPECT_EQ(f.coord, "e1g1");
    EXPECT_EQ(f.san, "o-o");
    EXPECT_EQ(f.alt, "O-O");
    EXPECT_EQ(f.long_form, "e1h1");
    // The rook going to f1 by itself checks.
    f = forms_of(mv("h1", "f1"));
    EXPECT_EQ(f.coord, "h1f1+");
    EXPECT_EQ(f.san, "Rf1+");
    EXPECT_EQ(f.alt, "Rhf1+");
    EXPECT_EQ(f.long_form, "R1f1+");
    EXPECT_EQ(parsed("Rf1+"), mv("h1", "f1"));
    EXPECT_EQ(parsed("Rf1"), mv("h1", "f1"));
    EXPECT_EQ(parsed("Rf1++"), mv("h1", "f1"));
    EXPECT_EQ(forms_of(mv("h1", "h8")).san, "Rh8+");
    EXPECT_EQ(forms_of(mv("h1", "h7")).san, "Rh7");
    // A discovered check counts: the moving piece leaves the line.
    test_position("4k3/8/8/8/4N3/8/8/4R1K1 w - -");
    EXPECT_EQ(forms_of(mv("e4", "c5")).san, "Nc5+");
    // A knight check and a pawn check.
    test_position("4k3/8/8/8/8/8/3P4/N3K3 w - -");
    EXPECT_EQ(forms_of(mv("d2", "d4")).san, "d4");
    test_position("4k3/8/3P4/8/8/8/8/4K3 w - -");
    EXPECT_EQ(forms_of(mv("d6", "d7")).san, "d7+");
    test_position("4k3/8/8/5N2/8/8/8/4K3 w - -");
    EXPECT_EQ(forms_of(mv("f5", "d6")).san, "Nd6+");
    EXPECT_EQ(forms_of(mv("f5", "g7")).san, "Ng7+");
    EXPECT_EQ(forms_of(mv("f5", "h6")).san, "Nh6");
}

TEST_F(NotationTest, CastlingTexts) {
    test_position("r3k2r/8/8/8/8/8/8/R3K2R w KQkq -");
    Move short_castle = mv("e1", "g1", FLAG_SHORT);
    Move long_castle = mv("e1", "c1", FLAG_LONG);
    for (int c960 : {0, 1}) {
        settings.chess960 = static_cast<u8>(c960);
        for (const char *text : {"o-o", "O-O", "0-0", "O-O+", "e1g1", "e1h1"})
            EXPECT_EQ(parsed(text), short_castle) << text << " " << c960;
        for (const char *text : {"o-o-o", "O-O-O", "0-0-0", "e1c1", "e1a1"})
            EXPECT_EQ(parsed(text), long_castle) << text << " " << c960;
    }
    settings.chess960 = 0;
    Forms f = forms_of(short_castle);
    EXPECT_EQ(f.coord, "e1g1");
    EXPECT_EQ(f.san, "o-o");
    EXPECT_EQ(f.alt, "O-O");
    EXPECT_EQ(f.long_form, "e1h1");
    f = forms_of(long_castle);
    EXPECT_EQ(f.coord, "e1c1");
    EXPECT_EQ(f.san, "o-o-o");
    EXPECT_EQ(f.alt, "O-O-O");
    EXPECT_EQ(f.long_form, "e1a1");
    settings.chess960 = 1;
    f = forms_of(short_castle);
    EXPECT_EQ(f.coord, "e1h1");
    EXPECT_EQ(f.long_form, "e1g1");
    f = forms_of(long_castle);
    EXPECT_EQ(f.coord, "e1a1");
    EXPECT_EQ(f.long_form, "e1c1");
    // Black castles too.
    test_position("r3k2r/8/8/8/8/8/8/R3K2R b KQkq -");
    EXPECT_EQ(parsed("O-O-O"), mv("e8", "c8", FLAG_LONG));
    EXPECT_EQ(forms_of(mv("e8", "g8", FLAG_SHORT)).coord, "e8h8");
    // Castling through an attacked square does not parse.
    test_position("r3k2r/8/8/8/8/8/3r1r2/R3K2R w KQ -");
    Move m = 0;
    EXPECT_EQ(parse("O-O", &m), 0);
    EXPECT_EQ(parse("O-O-O", &m), 0);
}

TEST_F(NotationTest, Chess960KingStaysInPlace) {
    settings.chess960 = 1;
    test_position("4k3/8/8/8/8/8/8/6KR w H -");
    Move castle = mv("g1", "g1", FLAG_SHORT);
    Forms f = forms_of(castle);
    EXPECT_EQ(f.coord, "g1h1");
    EXPECT_EQ(f.san, "o-o");
    EXPECT_EQ(f.long_form, "g1g1");
    EXPECT_EQ(parsed("O-O"), castle);
    EXPECT_EQ(parsed("g1h1"), castle);
    // The king takes its rook from b1 on a1 in the long form.
    test_position("4k3/8/8/8/8/8/8/RK6 w A -");
    Move long_castle = mv("b1", "c1", FLAG_LONG);
    f = forms_of(long_castle);
    EXPECT_EQ(f.coord, "b1a1");
    EXPECT_EQ(f.long_form, "b1c1");
    EXPECT_EQ(parsed("0-0-0"), long_castle);
}

TEST_F(NotationTest, ZeroMoveForms) {
    test_position(START_FEN);
    Forms f = forms_of(0);
    EXPECT_EQ(f.coord, "null");
    EXPECT_EQ(f.san, "");
    EXPECT_EQ(f.alt, "");
    EXPECT_EQ(f.long_form, "");
}

TEST_F(NotationTest, ParseMoveFailures) {
    test_position(START_FEN);
    Move m = 123;
    for (const char *text : {"zz", "e2e5", "Ke2", "o-o", "q", "Nd2", "e4e5",
                             "=", "e9", "Nc3c3", "e4e4+"}) {
        m = 123;
        EXPECT_EQ(parse(text, &m), 0) << text;
        EXPECT_EQ(m, 0) << text;
    }
    // An empty text equals the empty forms of every pawn push (alt and
    // long_form): sixteen matches, no move, the last one left behind.
    for (const char *text : {"", "++"}) {
        std::string printed;
        EXPECT_EQ(parse(text, &m, &printed), 0) << text;
        EXPECT_EQ(printed, "");
        EXPECT_EQ(m, mv("h2", "h4"));
    }
    EXPECT_EQ(parsed("Nc3"), mv("b1", "c3"));
    EXPECT_EQ(parsed("Nbc3"), mv("b1", "c3"));
    EXPECT_EQ(parsed("N1c3"), mv("b1", "c3"));
    EXPECT_EQ(parsed("e4"), mv("e2", "e4"));
}

TEST_F(NotationTest, ParseMoveEditsTextInPlace) {
    test_position("k7/4P3/8/8/8/8/8/4K3 w - -");
    char text[8] = "e8q+xx";
    Move m = 0;
    EXPECT_EQ(parse_move(text, &m), 1);
    EXPECT_STREQ(text, "e8=Q");
    char castle[8] = "0-O";
    parse_move(castle, &m);
    EXPECT_STREQ(castle, "o-o");
    // A lone promotion letter grows into two characters.
    char lone[3] = "q";
    EXPECT_EQ(parse_move(lone, &m), 1);  // the only pawn push to e8
    EXPECT_STREQ(lone, "=Q");
}

TEST_F(NotationTest, ParseMoveKeepsSearchPly) {
    Position &pos = test_position(START_FEN);
    make_move(pos, parsed("d4"));
    make_move(pos, parsed("d5"));
    EXPECT_EQ(front_worker->ply, 3);
    EXPECT_EQ(parsed("Nf3"), mv("g1", "f3"));
    EXPECT_EQ(front_worker->ply, 3);
    EXPECT_EQ(front_worker->hist_index, 2);
}

// --- Robustness -------------------------------------------------------

// Every consequence of a set position that the engine relies on.
void check_sane(const Position &pos, const std::string &text) {
    ASSERT_LE(pos.king_sq[WHITE], 64) << text;
    ASSERT_LE(pos.king_sq[BLACK], 64) << text;
    ASSERT_LE(pos.ep_sq, 64) << text;
    ASSERT_LE(pos.side, 1) << text;
    ASSERT_EQ(pos.board[64], 0) << text;
    for (int c = 0; c < 2; c++) {
        ASSERT_LE(count_bits(pos.bitboards[c][0]), 16) << text;
        u64 all = 0;
        for (int t = 1; t <= 6; t++) all |= pos.bitboards[c][t];
        ASSERT_EQ(all, pos.bitboards[c][0]) << text;
    }
    for (int s = 0; s < 64; s++) {
        int code = pos.board[s];
        if (code)
            ASSERT_TRUE(pos.bitboards[piece_colour(code)][piece_type(code)] &
                        bit(s))
                << text;
        else
            ASSERT_FALSE(occupied_squares(pos) & bit(s)) << text;
    }
    for (int i = 0; i < 4; i++) ASSERT_LE(pos.castle_rook[i], 64) << text;
}

// Sets a position from any text, then writes it, generates, forms, tests
// and reads back every move; nothing may crash or leave its bounds.
void exercise(const std::string &text) {
    Position &pos = test_position(text.c_str());
    check_sane(pos, text);
    Position first = pos;

    // get_fen stays inside its documented room.
    char out[FEN_BUFFER_SIZE + 8];
    std::memset(out, 0x7F, sizeof out);
    get_fen(pos, out, 1);
    ASSERT_LT(std::strlen(out), static_cast<size_t>(FEN_BUFFER_SIZE)) << text;
    for (int i = FEN_BUFFER_SIZE; i < FEN_BUFFER_SIZE + 8; i++)
        ASSERT_EQ(out[i], 0x7F);

    // What get_fen wrote reads back to the same bytes.
    get_fen(pos, out, 0);
    test_position(out);
    ASSERT_EQ(std::memcmp(&first, &pos, sizeof pos), 0)
        << text << " -> " << out;

    generate_all(pos);
    int count = 0;
    for (MoveEntry *e = front_worker->plies[1].list_start;
         e->move != END_OF_LIST; e++) {
        ASSERT_LT(++count, MAX_LIST_LENGTH) << text;
        char c[MOVE_TEXT_SIZE], s[MOVE_TEXT_SIZE], a[MOVE_TEXT_SIZE],
            l[MOVE_TEXT_SIZE];
        move_forms(pos, e->move, c, s, a, l);
        ASSERT_LT(std::strlen(c), 8u);
        ASSERT_LT(std::strlen(s), 8u);
        ASSERT_LT(std::strlen(a), 8u);
        ASSERT_LT(std::strlen(l), 8u);
        move_text(pos, pos.side, e->move, c);
        legal_move(pos, pos.side, e->move);
    }
    ASSERT_EQ(std::memcmp(&first, &pos, sizeof pos), 0) << text;
}

TEST_F(NotationTest, FuzzTruncatedFens) {
    std::vector<std::string> fens;
    for (const char *file :
         {"perft_standard.epd", "perft_chess960_quillon.epd"}) {
        std::vector<std::string> lines = epd_lines(file);
        for (size_t i = 0; i < lines.size(); i += 7)
            fens.push_back(first_fields(lines[i], 6));
    }
    ASSERT_GT(fens.size(), 100u);
    int inputs = 0;
    for (const std::string &fen : fens)
        for (size_t n = 0; n <= fen.size(); n += 2, inputs++)
            exercise(fen.substr(0, n));
    EXPECT_GT(inputs, 3000);
}

TEST_F(NotationTest, FuzzRandomTexts) {
    std::mt19937 rng(20261122);
    const std::string alphabet = "PNBRQKpnbrqk12345678/ wb-KQkqA-Ha-h0123";
    std::vector<std::string> lines = epd_lines("perft_standard.epd");
    ASSERT_FALSE(lines.empty());
    for (int round = 0; round < 6000; round++) {
        std::string text;
        int kind = round % 3;
        if (kind == 0) {
            // Raw bytes, any value but NUL.
            int n = static_cast<int>(rng() % 120);
            for (int i = 0; i < n; i++)
                text += static_cast<char>(1 + rng() % 255);
        } else if (kind == 1) {
            // The FEN alphabet in random order.
            int n = static_cast<int>(rng() % 120);
            for (int i = 0; i < n; i++)
                text += alphabet[rng() % alphabet.size()];
        } else {
            // A real FEN with a few characters changed, dropped or added.
            text = first_fields(lines[rng() % lines.size()], 6);
            int edits = 1 + static_cast<int>(rng() % 4);
            for (int e = 0; e < edits && !text.empty(); e++) {
                size_t at = rng() % text.size();
                char c = alphabet[rng() % alphabet.size()];
                switch (rng() % 3) {
                    case 0:
                        text[at] = c;
                        break;
                    case 1:
                        text.erase(at, 1);
                        break;
                    default:
                        text.insert(at, 1, c);
                        break;
                }
            }
        }
        exercise(text);
        if (testing::Test::HasFatalFailure()) return;
    }
}

TEST_F(NotationTest, FuzzParseMoveTexts) {
    std::mt19937 rng(4242);
    const std::string alphabet = "abcdefgh12345678NBRQKnbrqxo0O-=+";
    const char *positions[] = {
        START_FEN,
        "r3k2r/p1ppqpb1/bn2pnp1/3PN3/1p2P3/2N2Q1p/PPPBBPPP/R3K2R w KQkq - 0 1",
        "k7/4P3/8/8/8/8/8/4K3 w - -",
        "8/8/8/8/8/8/8/8 w - -",
    };
    for (int round = 0; round < 3000; round++) {
        test_position(positions[round % 4]);
        std::string text;
        int n = static_cast<int>(rng() % 9);
        for (int i = 0; i < n; i++) text += alphabet[rng() % alphabet.size()];
        Move m = 0;
        int result = parse(text.c_str(), &m);
        if (result) {
            EXPECT_TRUE(legal_move(front_worker->position,
                                   front_worker->position.side, m));
        }
    }
}

}  // namespace
