// The named evaluation parameters and the parameter text.
#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "test_support.h"

namespace {

// Reloads the defaults whatever a test did to the table.
struct ParamsTest : testing::Test {
    void TearDown() override { params_load_defaults(); }
};

TEST_F(ParamsTest, DefaultTextHasItsKnownLength) {
    EXPECT_EQ(std::strlen(DEFAULT_PARAM_TEXT), 4360u);
    EXPECT_EQ(std::strncmp(DEFAULT_PARAM_TEXT, "start\n", 6), 0);
}

TEST_F(ParamsTest, TableHoldsNamesInOrder) {
    // 43 plain parameters, nine tables of 64, 32 tuning slots.
    EXPECT_EQ(param_count, 43 + 9 * 64 + 32);
    EXPECT_STREQ(param_table[0].name, "mtl_pawn");
    EXPECT_STREQ(param_table[20].name, "pawn_doubled");
    EXPECT_STREQ(param_table[42].name, "stm_bonus");
    EXPECT_EQ(first_pst, 43);
    EXPECT_STREQ(param_table[43].name, "PST_P1");
    EXPECT_STREQ(param_table[43 + 8 * 64].name, "PST_K");
    EXPECT_STREQ(param_table[param_count - 1].name, "ttune");
    EXPECT_EQ(param.stm_bonus, &param_table[42]);
    EXPECT_EQ(param.pst_n[0], &param_table[43 + 4 * 64]);
}

TEST_F(ParamsTest, LoadedValuesMatchTheDefaults) {
    EXPECT_EQ(mg_of(param.mtl_queen->packed), 1052);
    EXPECT_EQ(eg_of(param.mtl_queen->packed), 1286);
    EXPECT_EQ(param.king_danger1->mg, -210.0f);
    EXPECT_EQ(param.king_danger1->eg, 46.0f);
    // The endgame half is the plain shift, carrying the midgame's borrow.
    EXPECT_EQ(param.king_danger1->packed, 46 * 65536 - 210);
    EXPECT_EQ(eg_of(param.king_danger1->packed), 45);
    // Tables are by square from a1: PST_N a1 is -50,-46, h8 -74,-73;
    // PST_P1 e4 is -44,-4 ... and ranks 1 and 8 of the pawn tables are 0.
    EXPECT_EQ(param.pst_n[0]->mg, -50.0f);
    EXPECT_EQ(param.pst_n[0]->eg, -46.0f);
    EXPECT_EQ(param.pst_n[63]->mg, -74.0f);
    EXPECT_EQ(param.pst_n[63]->eg, -73.0f);
    EXPECT_EQ(param.pst_p1[8]->mg, -45.0f);
    EXPECT_EQ(param.pst_p1[8]->eg, -1.0f);
    for (int sq : {0, 7, 56, 63}) EXPECT_EQ(param.pst_p2[sq]->packed, 0);
    EXPECT_EQ(param.pst_k[0]->packed, 0);  // files a to d of the king table
    EXPECT_EQ(param.pst_k[7]->mg, -3.0f);
    EXPECT_EQ(param.pst_k[7]->eg, -87.0f);
    for (ParamEntry *slot : param.ttune) EXPECT_EQ(slot->packed, 0);
}

TEST_F(ParamsTest, WrongNameStillLoadsByPosition) {
    char text[] = "start\nmtl_pawn,90,110\nmtl_knight_typo,300,350\n";
    testing::internal::CaptureStdout();
    int stored = params_load_text(text);
    std::string out = testing::internal::GetCapturedStdout();
    EXPECT_EQ(stored, 2);
    EXPECT_EQ(out, "error mtl_knight_typo  mtl_knight\n");
    EXPECT_EQ(param.mtl_pawn->packed, make_pair(90, 110));
    EXPECT_EQ(param.mtl_knight->packed, make_pair(300, 350));
    EXPECT_EQ(param.mtl_knight->mg, 300.0f);
}

TEST_F(ParamsTest, NotesAndCarriageReturnsAreSkipped) {
    char text[] = "start\r\n(a note)\r\nmtl_pawn,77,88\r\n";
    EXPECT_EQ(params_load_text(text), 1);
    EXPECT_EQ(param.mtl_pawn->packed, make_pair(77, 88));
}

TEST_F(ParamsTest, TooManyValuesStopAtTheTableEnd) {
    // Lines of 200 pairs each, more than the table holds in all.
    std::string text = "start\nmtl_pawn,1,1\n";
    for (int line = 0; line < MAX_PARAMS / 200 + 2; line++) {
        text += "ttune";
        for (int i = 0; i < 200; i++) text += ",1,1";
        text += "\n";
    }
    testing::internal::CaptureStdout();
    EXPECT_EQ(params_load_text(text.c_str()), param_count);
    testing::internal::GetCapturedStdout();
}

TEST_F(ParamsTest, NameOfTwentyThreeCharactersFits) {
    ParamEntry *slot = nullptr;
    int saved = param_count;
    ASSERT_LT(param_count, MAX_PARAMS);
    param_add(&slot, "abcdefghijklmnopqrstuvw", 1, 2);
    ASSERT_NE(slot, nullptr);
    EXPECT_STREQ(slot->name, "abcdefghijklmnopqrstuvw");
    param_count = saved;
}

TEST_F(ParamsTest, RandomTextsNeverWritePastTheTable) {
    u32 seed = 12345;
    auto next = [&seed] { return seed = seed * 1103515245 + 12345; };
    const char pieces[] = "mtl_pawn,-0123456789\n\r()PST_start ttune";
    testing::internal::CaptureStdout();
    for (int round = 0; round < 500; round++) {
        std::string text;
        int n = next() % 3000;
        for (int i = 0; i < n; i++)
            text += pieces[(next() >> 8) % (sizeof pieces - 1)];
        params_load_text(text.c_str());
    }
    testing::internal::GetCapturedStdout();
    EXPECT_EQ(param_count, 43 + 9 * 64 + 32);
}

}  // namespace
