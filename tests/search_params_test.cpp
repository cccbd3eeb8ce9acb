// Pruning margins and reduction tables: the fixed margins, Selectivity's
// scaling and switch-off, rebuilding only on a new Selectivity, the depth
// limits the console sets, the speed limit's switch, and the printed tables.
#include "search/search_params.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "core/output.h"
#include "test_support.h"

namespace {

// Every test starts from the default settings and leaves settings, speed
// limit and tables as it found them.
struct SearchParamsTest : testing::Test {
    EngineSettings saved_settings;
    f32 saved_target_nps = 0;
    u16 saved_throttle = 0;

    void SetUp() override {
        saved_settings = settings;
        saved_target_nps = status.target_nps;
        saved_throttle = status.throttle;
        set_default_settings();
        status.target_nps = 0;
    }
    void TearDown() override {
        settings = saved_settings;
        status.target_nps = saved_target_nps;
        // A fresh build also clears any mark a test left in the tables.
        build_fresh(saved_settings.selectivity);
        status.throttle = saved_throttle;
    }
    // Builds with `selectivity`, after a build with another value so that
    // the tables are surely filled anew.
    static void build_fresh(int selectivity) {
        settings.selectivity = static_cast<i16>(selectivity == 77 ? 78 : 77);
        update_margins();
        settings.selectivity = static_cast<i16>(selectivity);
        update_margins();
    }
};

std::vector<std::string> split_lines(const std::string &text) {
    std::vector<std::string> lines;
    std::stringstream in(text);
    for (std::string line; std::getline(in, line);) lines.push_back(line);
    return lines;
}

std::string margins_string() {
    char text[8192];
    int length = margins_text(text, sizeof text);
    EXPECT_LT(length, static_cast<int>(sizeof text));
    EXPECT_EQ(static_cast<int>(std::strlen(text)), length);
    return text;
}

// Runs show_margins with standard output sent to a file and returns what
// it printed.
std::string captured_show_margins() {
    char path[] = "/tmp/quillon_margins_XXXXXX";
    int fd = mkstemp(path);
    EXPECT_GE(fd, 0);
    std::fflush(stdout);
    int saved = dup(1);
    dup2(fd, 1);
    close(fd);
    show_margins();
    std::fflush(stdout);
    dup2(saved, 1);
    close(saved);
    std::ifstream in(path, std::ios::binary);
    std::stringstream text;
    text << in.rdbuf();
    unlink(path);
    return text.str();
}

TEST_F(SearchParamsTest, MarginTablesHoldTheirFixedValues) {
    build_fresh(100);
    // FP: 25 + 100 d, SEP: 75 d, LMP count: 3 d, for d = 0 .. 11.
    for (int d = 0; d < MARGIN_DEPTHS; d++) {
        EXPECT_EQ(FP_margin[d], 25 + 100 * d) << d;
        EXPECT_EQ(SEP_margin[d], 75 * d) << d;
        EXPECT_EQ(LMP_count[d], 3 * d) << d;
    }
    EXPECT_EQ(FP_margin[11], 1125);
    EXPECT_EQ(SEP_margin[11], 825);
    EXPECT_EQ(BP_margin, 15);
}

TEST_F(SearchParamsTest, DefaultDepthLimits) {
    build_fresh(100);
    EXPECT_EQ(FP_depth, 3);
    EXPECT_EQ(SEP_depth, 3);
    EXPECT_EQ(NMP_depth, 3);
    EXPECT_EQ(LMP_depth, 6);
    EXPECT_EQ(LMR_depth, 3);
}

// At Selectivity 100 an entry is round(0.25 x + 0.6) (non-PV, at most 5)
// or round(0.21 x - 0.4) (PV, at most 3, never below 0), with
// x = sqrt((m - 0.5) (d - 0.5)).
TEST_F(SearchParamsTest, ReductionsAtSelectivity100) {
    build_fresh(100);
    // d 3, m 1: x = sqrt(0.5 * 2.5) = 1.118; 0.880 -> 1; -0.165 -> 0.
    EXPECT_EQ(LMR_table_nonpv[3][1], 1);
    EXPECT_EQ(LMR_table_pv[3][1], 0);
    // d 10, m 10: x = 9.5; 2.975 -> 3; 1.595 -> 2.
    EXPECT_EQ(LMR_table_nonpv[10][10], 3);
    EXPECT_EQ(LMR_table_pv[10][10], 2);
    // d 31, m 31: x = 30.5; 8.225 is capped to 5; 6.005 is capped to 3.
    EXPECT_EQ(LMR_table_nonpv[31][31], 5);
    EXPECT_EQ(LMR_table_pv[31][31], 3);
    // d = m = 16, 17: x = 15.5, 16.5; 4.475 -> 4, 4.725 -> 5 below the cap.
    EXPECT_EQ(LMR_table_nonpv[16][16], 4);
    EXPECT_EQ(LMR_table_nonpv[17][17], 5);
    // d = m = 14, 15: x = 13.5, 14.5; 2.435 -> 2, 2.645 -> 3.
    EXPECT_EQ(LMR_table_pv[14][14], 2);
    EXPECT_EQ(LMR_table_pv[15][15], 3);
    // d = m = 4, 5: x = 3.5, 4.5; PV 0.335 -> 0, 0.545 -> 1;
    // non-PV 1.475 -> 1, 1.725 -> 2.
    EXPECT_EQ(LMR_table_pv[4][4], 0);
    EXPECT_EQ(LMR_table_pv[5][5], 1);
    EXPECT_EQ(LMR_table_nonpv[4][4], 1);
    EXPECT_EQ(LMR_table_nonpv[5][5], 2);
}

TEST_F(SearchParamsTest, FirstMoveAndShallowDepthsAreNeverReduced) {
    build_fresh(200);
    for (int i = 0; i < LMR_SIZE; i++) {
        EXPECT_EQ(LMR_table_pv[i][0], 0) << i;
        EXPECT_EQ(LMR_table_nonpv[i][0], 0) << i;
        for (int d = 0; d <= 2; d++) {
            EXPECT_EQ(LMR_table_pv[d][i], 0) << d << " " << i;
            EXPECT_EQ(LMR_table_nonpv[d][i], 0) << d << " " << i;
        }
    }
}

// The whole row d = 3 at Selectivity 100, x = sqrt(2.5 (m - 0.5)).
// PV: 0.21 x - 0.4 reaches 0.5 at x = 4.29, that is from m = 8 on
// (x = 4.33), and never 1.5 (x would need 9.05, m 33).
// Non-PV: 0.25 x + 0.6 passes 1.5 at x = 3.6, from m = 6 (x = 3.71;
// m = 5 gives 3.35), and 2.5 at x = 7.6, from m = 24 (x = 7.66; m = 23
// gives exactly 7.5).
TEST_F(SearchParamsTest, WholeRowThreeAtSelectivity100) {
    build_fresh(100);
    for (int m = 0; m < LMR_SIZE; m++) {
        int pv = m >= 8 ? 1 : 0;
        int nonpv = m == 0 ? 0 : m <= 5 ? 1 : m <= 23 ? 2 : 3;
        EXPECT_EQ(LMR_table_pv[3][m], pv) << m;
        EXPECT_EQ(LMR_table_nonpv[3][m], nonpv) << m;
    }
}

// At 50 the forms above are halved before rounding.
TEST_F(SearchParamsTest, ReductionsAtSelectivity50) {
    build_fresh(50);
    // (100 - 50) / 2 + 15.
    EXPECT_EQ(BP_margin, 40);
    // d 3, m 1: 0.880 / 2 = 0.440 -> 0.
    EXPECT_EQ(LMR_table_nonpv[3][1], 0);
    EXPECT_EQ(LMR_table_pv[3][1], 0);
    // d 10, m 10: 2.975 / 2 = 1.4875 -> 1; 1.595 / 2 = 0.7975 -> 1.
    EXPECT_EQ(LMR_table_nonpv[10][10], 1);
    EXPECT_EQ(LMR_table_pv[10][10], 1);
    // d 31, m 31: 8.225 / 2 = 4.1125 -> 4, now below the cap of 5;
    // 6.005 / 2 = 3.0025, still above 300 before scaling, so 3.
    EXPECT_EQ(LMR_table_nonpv[31][31], 4);
    EXPECT_EQ(LMR_table_pv[31][31], 3);
    // The depth limits are untouched below 100.
    EXPECT_EQ(FP_depth, 3);
    EXPECT_EQ(NMP_depth, 3);
    EXPECT_EQ(LMR_depth, 3);
}

TEST_F(SearchParamsTest, SelectivityBelow100RaisesTheNullMargin) {
    build_fresh(1);
    EXPECT_EQ(BP_margin, 64);  // 99 / 2 + 15
    build_fresh(99);
    EXPECT_EQ(BP_margin, 15);  // 1 / 2 + 15
    build_fresh(100);
    EXPECT_EQ(BP_margin, 15);
    build_fresh(150);
    EXPECT_EQ(BP_margin, 15);
}

// At 200 the forms above are doubled before rounding.
TEST_F(SearchParamsTest, ReductionsAtSelectivity200) {
    build_fresh(200);
    // d 3, m 1: 1.759 -> 2; PV stays negative -> 0.
    EXPECT_EQ(LMR_table_nonpv[3][1], 2);
    EXPECT_EQ(LMR_table_pv[3][1], 0);
    // d = m = 4: 2.95 -> 3; 0.67 -> 1.
    EXPECT_EQ(LMR_table_nonpv[4][4], 3);
    EXPECT_EQ(LMR_table_pv[4][4], 1);
    // d 10, m 10: 5.95 and 3.19 are both over their caps.
    EXPECT_EQ(LMR_table_nonpv[10][10], 5);
    EXPECT_EQ(LMR_table_pv[10][10], 3);
}

TEST_F(SearchParamsTest, SelectivityAbove200BuildsAsAt200) {
    build_fresh(200);
    i8 pv[LMR_SIZE][LMR_SIZE];
    i8 nonpv[LMR_SIZE][LMR_SIZE];
    std::memcpy(pv, LMR_table_pv, sizeof pv);
    std::memcpy(nonpv, LMR_table_nonpv, sizeof nonpv);
    // The console can store a value the option would have cut.
    build_fresh(1000);
    EXPECT_EQ(std::memcmp(pv, LMR_table_pv, sizeof pv), 0);
    EXPECT_EQ(std::memcmp(nonpv, LMR_table_nonpv, sizeof nonpv), 0);
    EXPECT_EQ(BP_margin, 15);
    EXPECT_EQ(LMR_depth, 3);
}

TEST_F(SearchParamsTest, SelectivityZeroTurnsAllPruningOff) {
    build_fresh(100);
    settings.selectivity = 0;
    update_margins();
    // Razoring and static null pruning need depth <= their limit, and
    // depth is at least 1 there; late-move pruning likewise.
    EXPECT_EQ(FP_depth, 0);
    EXPECT_EQ(SEP_depth, 0);
    EXPECT_EQ(LMP_depth, 0);
    // The null move and reductions need a depth no search reaches.
    EXPECT_EQ(NMP_depth, 100);
    EXPECT_EQ(LMR_depth, 100);
    // The static value never stands 5000 above beta outside mate scores.
    EXPECT_EQ(BP_margin, 5000);
    for (int d = 0; d < LMR_SIZE; d++)
        for (int m = 0; m < LMR_SIZE; m++) {
            EXPECT_EQ(LMR_table_pv[d][m], 0) << d << " " << m;
            EXPECT_EQ(LMR_table_nonpv[d][m], 0) << d << " " << m;
        }
}

TEST_F(SearchParamsTest, NegativeSelectivityActsAsZero) {
    build_fresh(-5);
    EXPECT_EQ(FP_depth, 0);
    EXPECT_EQ(NMP_depth, 100);
    EXPECT_EQ(BP_margin, 5000);
    EXPECT_EQ(LMR_table_nonpv[31][31], 0);
}

TEST_F(SearchParamsTest, SelectivityZeroOverridesConsoleDepths) {
    settings.fp_depth = 5;
    settings.sep_depth = 5;
    settings.nmp_depth = 2;
    settings.lmp_depth = 8;
    settings.lmr_depth = 1;
    build_fresh(0);
    EXPECT_EQ(FP_depth, 0);
    EXPECT_EQ(SEP_depth, 0);
    EXPECT_EQ(NMP_depth, 100);
    EXPECT_EQ(LMP_depth, 0);
    EXPECT_EQ(LMR_depth, 100);
}

TEST_F(SearchParamsTest, DisablePruningSetsEveryLimit) {
    build_fresh(100);
    disable_pruning();
    EXPECT_EQ(SEP_depth, 0);
    EXPECT_EQ(LMR_depth, 100);
    EXPECT_EQ(NMP_depth, 100);
    EXPECT_EQ(LMP_depth, 0);
    EXPECT_EQ(FP_depth, 0);
    EXPECT_EQ(BP_margin, 5000);
    // The reduction tables are left as they were.
    EXPECT_EQ(LMR_table_nonpv[10][10], 3);
}

TEST_F(SearchParamsTest, NewSelectivityWaitsForTheNextBuild) {
    build_fresh(100);
    // Storing the setting, as the option does, changes nothing yet.
    settings.selectivity = 50;
    EXPECT_EQ(BP_margin, 15);
    EXPECT_EQ(LMR_table_nonpv[10][10], 3);
    // The next search's start applies it.
    update_margins();
    EXPECT_EQ(BP_margin, 40);
    EXPECT_EQ(LMR_table_nonpv[10][10], 1);
}

TEST_F(SearchParamsTest, TablesAreRebuiltOnlyForANewSelectivity) {
    build_fresh(100);
    // A mark in the table survives a build with the same Selectivity and
    // new depth limits...
    LMR_table_pv[20][20] = 9;
    settings.lmr_depth = 5;
    settings.fp_depth = 2;
    update_margins();
    EXPECT_EQ(LMR_table_pv[20][20], 9);
    EXPECT_EQ(LMR_depth, 5);
    EXPECT_EQ(FP_depth, 2);
    // ...while the margins are written on every call.
    FP_margin[2] = 1;
    BP_margin = 1;
    update_margins();
    EXPECT_EQ(FP_margin[2], 225);
    EXPECT_EQ(BP_margin, 15);
    // A different value rebuilds, even one giving the same scale.
    settings.selectivity = 250;
    update_margins();
    settings.selectivity = 100;
    update_margins();
    // d = m = 20: x = 19.5, 0.21 x - 0.4 = 3.695, capped to 3.
    EXPECT_EQ(LMR_table_pv[20][20], 3);
}

// The console's words "FP_depth" and the like store the five depth fields;
// the next build takes them over unchanged.
TEST_F(SearchParamsTest, ConsoleDepthWordsReachTheLimits) {
    build_fresh(100);
    settings.fp_depth = 5;
    settings.sep_depth = 7;
    settings.nmp_depth = 2;
    settings.lmp_depth = 9;
    settings.lmr_depth = 4;
    update_margins();
    EXPECT_EQ(FP_depth, 5);
    EXPECT_EQ(SEP_depth, 7);
    EXPECT_EQ(NMP_depth, 2);
    EXPECT_EQ(LMP_depth, 9);
    EXPECT_EQ(LMR_depth, 4);
    EXPECT_EQ(BP_margin, 15);
    EXPECT_EQ(LMR_table_nonpv[10][10], 3);
}

// The console's "set ss 0" leaves fp_depth and Selectivity alone: razoring
// and the reduction tables stay, the limits it names go out of reach.
TEST_F(SearchParamsTest, ConsoleSelectivityOffKeepsRazoring) {
    build_fresh(100);
    settings.sep_depth = 0;
    settings.nmp_depth = 99;
    settings.lmp_depth = 0;
    settings.lmr_depth = 99;
    update_margins();
    EXPECT_EQ(FP_depth, 3);
    EXPECT_EQ(SEP_depth, 0);
    EXPECT_EQ(NMP_depth, 99);
    EXPECT_EQ(LMP_depth, 0);
    EXPECT_EQ(LMR_depth, 99);
    EXPECT_EQ(BP_margin, 15);
    EXPECT_EQ(LMR_table_nonpv[10][10], 3);
}

TEST_F(SearchParamsTest, ThrottleNeedsATargetBelow95PercentOfOwnSpeed) {
    settings.calib_nps = 1000.0f;
    status.target_nps = 949.0f;  // 950 > 949
    update_margins();
    EXPECT_EQ(status.throttle, 1);
    status.target_nps = 950.0f;  // not greater
    update_margins();
    EXPECT_EQ(status.throttle, 0);
    status.target_nps = 100.0f;
    update_margins();
    EXPECT_EQ(status.throttle, 1);
    // Without strength limiting the target is the machine's own speed.
    status.target_nps = 1000.0f;
    update_margins();
    EXPECT_EQ(status.throttle, 0);
}

TEST_F(SearchParamsTest, ThrottleTruncatesTheLimit) {
    // 1001 * 0.95 = 950.95, truncated to 950: not above 950.5.
    settings.calib_nps = 1001.0f;
    status.target_nps = 950.5f;
    update_margins();
    EXPECT_EQ(status.throttle, 0);
    status.target_nps = 949.9f;
    update_margins();
    EXPECT_EQ(status.throttle, 1);
}

TEST_F(SearchParamsTest, NoThrottleBeforeCalibration) {
    status.throttle = 1;
    settings.calib_nps = 0.0f;
    status.target_nps = 0.0f;
    update_margins();
    EXPECT_EQ(status.throttle, 0);
}

TEST_F(SearchParamsTest, TextHeaderAtDefaults) {
    build_fresh(100);
    std::vector<std::string> lines = split_lines(margins_string());
    ASSERT_GE(lines.size(), 7u);
    EXPECT_EQ(lines[0], "BP_margin= 15");
    EXPECT_EQ(lines[1], "FP_depth= 3, margins= 125 225 325");
    EXPECT_EQ(lines[2], "SEP_depth= 3, margins= 75 150 225");
    EXPECT_EQ(lines[3], "NMP_depth= 3");
    EXPECT_EQ(lines[4], "LMP_depth= 6, count= 3 6 9 12 15 18");
    EXPECT_EQ(lines[5], "LMR_depth= 3");
    EXPECT_EQ(lines[6], "LMR table:");
}

// Rows d = 3 .. 31 of the PV table, two empty lines, the same rows of the
// non-PV table, every line ended.
TEST_F(SearchParamsTest, TextTableLayout) {
    build_fresh(100);
    std::string text = margins_string();
    ASSERT_FALSE(text.empty());
    EXPECT_EQ(text.back(), '\n');
    std::vector<std::string> lines = split_lines(text);
    ASSERT_EQ(lines.size(), 7u + 29u + 2u + 29u);
    // Row 3 as derived in WholeRowThreeAtSelectivity100.
    std::string pv3 = " 3  0 0 0 0 0 0 0 0";
    for (int m = 8; m < 32; m++) pv3 += " 1";
    std::string nonpv3 = " 3  0 1 1 1 1 1";
    for (int m = 6; m < 24; m++) nonpv3 += " 2";
    for (int m = 24; m < 32; m++) nonpv3 += " 3";
    EXPECT_EQ(lines[7], pv3 + " ");
    EXPECT_EQ(lines[36], "");
    EXPECT_EQ(lines[37], "");
    EXPECT_EQ(lines[38], nonpv3 + " ");
    for (int d = 3; d < 32; d++) {
        char head[8];
        std::snprintf(head, sizeof head, "%2d  ", d);
        const std::string &pv = lines[7 + d - 3];
        const std::string &nonpv = lines[38 + d - 3];
        EXPECT_EQ(pv.substr(0, 4), head) << d;
        EXPECT_EQ(nonpv.substr(0, 4), head) << d;
        // 32 single-digit entries, each followed by a blank.
        EXPECT_EQ(pv.size(), 4u + 64u) << d;
        EXPECT_EQ(nonpv.size(), 4u + 64u) << d;
    }
    // The last rows end in the capped entries.
    EXPECT_EQ(lines[35].substr(lines[35].size() - 2), "3 ");
    EXPECT_EQ(lines[66].substr(lines[66].size() - 2), "5 ");
}

TEST_F(SearchParamsTest, TextWithPruningOff) {
    build_fresh(0);
    std::vector<std::string> lines = split_lines(margins_string());
    ASSERT_GE(lines.size(), 8u);
    EXPECT_EQ(lines[0], "BP_margin= 5000");
    EXPECT_EQ(lines[1], "FP_depth= 0, margins=");
    EXPECT_EQ(lines[2], "SEP_depth= 0, margins=");
    EXPECT_EQ(lines[3], "NMP_depth= 100");
    EXPECT_EQ(lines[4], "LMP_depth= 0, count=");
    EXPECT_EQ(lines[5], "LMR_depth= 100");
    std::string zeros = "31  ";
    for (int m = 0; m < 32; m++) zeros += "0 ";
    EXPECT_EQ(lines[35], zeros);
    EXPECT_EQ(lines[66], zeros);
}

// The console can set a limit deeper than the margin tables reach; only
// the margins that exist are shown.
TEST_F(SearchParamsTest, TextStopsAtTheEndOfTheMarginTable) {
    settings.fp_depth = 20;
    settings.lmp_depth = 12;
    build_fresh(100);
    std::vector<std::string> lines = split_lines(margins_string());
    ASSERT_GE(lines.size(), 5u);
    EXPECT_EQ(lines[1],
              "FP_depth= 20, margins= 125 225 325 425 525 625 725 825 925 "
              "1025 1125");
    EXPECT_EQ(lines[4], "LMP_depth= 12, count= 3 6 9 12 15 18 21 24 27 30 33");
}

TEST_F(SearchParamsTest, TextIsCutToTheBuffer) {
    build_fresh(100);
    std::string full = margins_string();
    char small[11];
    std::memset(small, 'x', sizeof small);
    int length = margins_text(small, 10);
    EXPECT_EQ(length, static_cast<int>(full.size()));
    EXPECT_STREQ(small, full.substr(0, 9).c_str());
    EXPECT_EQ(small[10], 'x');
}

// show_margins rebuilds first, so a Selectivity stored since the last
// search shows at once, and it prints the text exactly once.
TEST_F(SearchParamsTest, ShowMarginsRebuildsAndPrints) {
    build_fresh(100);
    settings.selectivity = 50;
    std::string printed = captured_show_margins();
    EXPECT_EQ(BP_margin, 40);
    EXPECT_EQ(printed, margins_string());
    EXPECT_EQ(printed.rfind("BP_margin= 40\nFP_depth= 3, margins=", 0), 0u);
}

}  // namespace
