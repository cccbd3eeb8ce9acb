// The 40-byte training record: packing, the FEN read back, the logistic
// link and the result in score units.
#include "tools/train_record.h"

#include <gtest/gtest.h>

#include <cstring>
#include <random>
#include <string>

#include "position/notation.h"
#include "test_support.h"

namespace {

std::string fen_of(const TrainRecord &r) {
    char fen[FEN_BUFFER_SIZE];
    record_fen(r, fen);
    return fen;
}

TEST(TrainRecord, LayoutIsFortyBytesLittleEndian) {
    TrainRecord r{};
    r.side_rights = 0x1B;
    r.ep = 64;
    r.result_logit = -1919;
    r.ce = 0x1234;
    r.sc = -2;
    const u8 *bytes = reinterpret_cast<const u8 *>(&r);
    EXPECT_EQ(sizeof r, 40u);
    EXPECT_EQ(bytes[32], 0x1B);
    EXPECT_EQ(bytes[33], 64);
    EXPECT_EQ(bytes[34] | bytes[35] << 8, 0xF881);  // -1919
    EXPECT_EQ(bytes[36], 0x34);
    EXPECT_EQ(bytes[37], 0x12);
    EXPECT_EQ(bytes[38], 0xFE);
    EXPECT_EQ(bytes[39], 0xFF);
}

TEST(TrainRecord, NibblesSideRightsAndEpRoundTrip) {
    for (const char *fen :
         {"rnbqkbnr/pppppppp/8/8/8/8/PPPPPPPP/RNBQKBNR w KQkq -",
          "r3k2r/p1ppqpb1/bn2pnp1/3PN3/1p2P3/2N2Q1p/PPPBBPPP/R3K2R b Kq -",
          "rnbqkbnr/ppp1p1pp/8/3pPp2/8/8/PPPP1PPP/RNBQKBNR w KQkq f6",
          "8/2k5/8/8/3K4/8/8/8 b - -", "4k3/8/8/8/8/8/8/4K2R w K -"}) {
        Position &pos = test_position(fen);
        TrainRecord r = pack_position(pos);
        EXPECT_EQ(fen_of(r), fen);
        EXPECT_EQ(r.side_rights >> 4, pos.side);
        EXPECT_EQ(r.side_rights & 15, pos.castle_rights);
        EXPECT_EQ(r.ep, pos.ep_sq);
        // Square 2i low, 2i + 1 high.
        for (int sq = 0; sq < 64; sq++)
            EXPECT_EQ((r.board[sq / 2] >> (sq % 2 * 4)) & 15, pos.board[sq]);
        // And the position read back packs to the same bytes.
        TrainRecord again = pack_position(test_position(fen_of(r).c_str()));
        EXPECT_EQ(0, std::memcmp(&again, &r, sizeof r));
        EXPECT_TRUE(record_has_kings(r));
    }
}

TEST(TrainRecord, ResultLogitOfWinDrawLoss) {
    EXPECT_EQ(result_logit(1.0), 1919);
    EXPECT_EQ(result_logit(0.0), -1919);
    EXPECT_EQ(result_logit(0.5), 0);
    EXPECT_EQ(result_logit(0.999995), 1919);
    EXPECT_EQ(result_logit(0.000005), -1919);
    EXPECT_EQ(result_logit(-1.0), -1919);
    EXPECT_EQ(result_logit(std::nan("")), -1919);
    // The inverse of the link, truncated toward 0.
    for (int score : {-1500, -300, -7, 7, 100, 1200}) {
        int back = result_logit(win_probability(score));
        EXPECT_LE(std::abs(back - score), 1) << score;
    }
}

TEST(TrainRecord, WinProbabilityIsTheLogisticOfPointZeroZeroSix) {
    EXPECT_DOUBLE_EQ(win_probability(0), 0.5);
    EXPECT_NEAR(win_probability(100), 1.0 / (1.0 + std::exp(-0.6)), 1e-7);
    EXPECT_NEAR(win_probability(-400), 1.0 / (1.0 + std::exp(2.4)), 1e-7);
}

// Any 40 bytes give a FEN the board reader takes safely; a record is used
// only when it holds both kings.
TEST(TrainRecord, RandomBytesGiveReadableText) {
    std::mt19937_64 rng(42);
    int with_kings = 0;
    for (int i = 0; i < 20000; i++) {
        TrainRecord r;
        u8 *bytes = reinterpret_cast<u8 *>(&r);
        for (size_t k = 0; k < sizeof r; k++) bytes[k] = rng() & 255;
        if (i % 3 == 0) r.ep = 64;
        std::string fen = fen_of(r);
        ASSERT_LT(fen.size(), static_cast<size_t>(FEN_BUFFER_SIZE));
        Position &pos = test_position(fen.c_str());
        EXPECT_LE(pos.ep_sq, 64);
        with_kings += record_has_kings(r);
    }
    EXPECT_GT(with_kings, 0);
    TrainRecord empty{};
    empty.ep = 64;
    EXPECT_FALSE(record_has_kings(empty));
    EXPECT_EQ(fen_of(empty), "8/8/8/8/8/8/8/8 w - -");
}

}  // namespace
