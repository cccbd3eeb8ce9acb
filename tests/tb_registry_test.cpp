// Finding table files: the path's pieces, what counts as a table, and the
// registry's messages.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <fstream>
#include <string>

#include "tablebase/tb_probe.h"
#include "test_support.h"

namespace {

std::string init_and_capture(const std::string &path) {
    testing::internal::CaptureStdout();
    tb_init_path(path.c_str());
    return testing::internal::GetCapturedStdout();
}

std::string temp_folder(const char *tag) {
    std::string dir = testing::TempDir() + "quillon_tb_" + tag + "_" +
                      std::to_string(getpid());
    mkdir(dir.c_str(), 0755);
    return dir;
}

void write_bytes(const std::string &file, size_t size, char fill = 'x') {
    std::ofstream out(file, std::ios::binary);
    out << std::string(size, fill);
}

void copy_file(const std::string &from, const std::string &to) {
    std::ifstream in(from, std::ios::binary);
    std::ofstream out(to, std::ios::binary);
    out << in.rdbuf();
}

struct TbRegistryTest : testing::Test {
    void TearDown() override { tb_init_path(""); }
};

TEST_F(TbRegistryTest, EmptyPathsLoadNothingAndPrintNothing) {
    for (const char *path : {"", "<empty>"}) {
        EXPECT_EQ(init_and_capture(path), "");
        EXPECT_EQ(TB_LARGEST, 0);
        Position &pos = test_position("8/8/8/8/8/2k5/8/K6Q w - - 0 1");
        EXPECT_EQ(tb_probe_search(pos, 100), -1);
    }
}

TEST_F(TbRegistryTest, TheRepositoryFolderHasThirtyEightTables) {
    EXPECT_EQ(init_and_capture(data_path("syzygy")),
              "info string Found 38 WDL, 0 DTM and 38 DTZ tablebase files. "
              "Largest 5-men\n");
    EXPECT_EQ(TB_LARGEST, 5);
}

// Tables of two folders are counted together.
TEST_F(TbRegistryTest, TheLargeFamiliesMakeForty) {
    if (big_tb_dir().empty()) GTEST_SKIP() << BIG_TB_SKIP;
    EXPECT_EQ(init_and_capture(tb_test_path()),
              "info string Found 40 WDL, 0 DTM and 40 DTZ tablebase files. "
              "Largest 5-men\n");
}

TEST_F(TbRegistryTest, EmptyPiecesOfThePathArePassedOver) {
    std::string path = std::string(";;") + data_path("syzygy") + ";;;";
    EXPECT_NE(init_and_capture(path).find("Found 38 WDL"), std::string::npos);
}

TEST_F(TbRegistryTest, ThousandsOfCharactersFindNothing) {
    std::string path;
    for (int k = 0; k < 60; k++) path += k % 3 ? "/no/such;" : ";";
    path += std::string(5000, 'z');
    EXPECT_EQ(init_and_capture(path),
              "info string Found 0 WDL, 0 DTM and 0 DTZ tablebase files. "
              "Largest 0-men\n");
    EXPECT_EQ(TB_LARGEST, 0);
}

TEST_F(TbRegistryTest, AFileInPlaceOfAFolderFindsNothing) {
    std::string dir = temp_folder("file");
    write_bytes(dir + "/plain", 100);
    EXPECT_NE(init_and_capture(dir + "/plain").find("Found 0 WDL"),
              std::string::npos);
}

TEST_F(TbRegistryTest, DtzWithoutWdlIsNotFound) {
    std::string dir = temp_folder("dtzonly");
    copy_file(data_path("syzygy/KQvK.rtbz"), dir + "/KQvK.rtbz");
    EXPECT_NE(init_and_capture(dir).find("Found 0 WDL, 0 DTM and 0 DTZ"),
              std::string::npos);
    unlink((dir + "/KQvK.rtbz").c_str());
}

// The first folder's file wins, even when it is broken: the second
// folder's whole copy is never looked at.
TEST_F(TbRegistryTest, IncompleteFileInTheFirstFolderIsReportedAndSkipped) {
    std::string dir = temp_folder("short");
    write_bytes(dir + "/KQvK.rtbw", 1000);
    testing::internal::CaptureStderr();
    std::string out = init_and_capture(dir + ";" + data_path("syzygy"));
    std::string err = testing::internal::GetCapturedStderr();
    EXPECT_NE(out.find("info string Incomplete tablebase file KQvK..rtbw\n"),
              std::string::npos);
    EXPECT_NE(err.find("Incomplete tablebase file KQvK..rtbw\n"),
              std::string::npos);
    EXPECT_NE(out.find("Found 37 WDL, 0 DTM and 37 DTZ"), std::string::npos);
    Position &pos = test_position("8/8/8/8/8/2k5/8/K6Q w - - 0 1");
    EXPECT_EQ(tb_probe_search(pos, 100), -1);
    unlink((dir + "/KQvK.rtbw").c_str());
}

TEST_F(TbRegistryTest, IncompleteDtzLeavesTheTableWithoutDtz) {
    std::string dir = temp_folder("shortdtz");
    copy_file(data_path("syzygy/KRvK.rtbw"), dir + "/KRvK.rtbw");
    write_bytes(dir + "/KRvK.rtbz", 1000);
    std::string out = init_and_capture(dir);
    EXPECT_NE(out.find("Incomplete tablebase file KRvK..rtbz"),
              std::string::npos);
    EXPECT_NE(out.find("Found 1 WDL, 0 DTM and 0 DTZ"), std::string::npos);
    Position &pos = test_position("8/8/8/8/8/2k5/8/K6R w - - 0 1");
    EXPECT_EQ(tb_probe_search(pos, 100), 4);
    int wdl, dtz;
    u16 move;
    EXPECT_EQ(tb_probe_root(pos, &wdl, &dtz, &move), -1);
    unlink((dir + "/KRvK.rtbw").c_str());
    unlink((dir + "/KRvK.rtbz").c_str());
}

// KRvKQ is never tried by name; its positions find KQvKR with the colours
// exchanged.
TEST_F(TbRegistryTest, WeakerSideFirstFindsTheTableMirrored) {
    init_and_capture(data_path("syzygy"));
    TbPosition t =
        tb_position_from(test_position("8/q7/8/3k4/8/8/1K6/7R w - - 0 1"), 0);
    int success = 0;
    int wdl = tb_probe_wdl(t, &success);
    EXPECT_EQ(success, 1);
    EXPECT_EQ(wdl, -2);
    EXPECT_NE(tb_material_key(t, 0), tb_material_key(t, 1));
}

TEST_F(TbRegistryTest, ChangingThePathReplacesTheTables) {
    init_and_capture(data_path("syzygy"));
    EXPECT_EQ(TB_LARGEST, 5);
    init_and_capture("/no/such/folder");
    EXPECT_EQ(TB_LARGEST, 0);
    Position &pos = test_position("8/8/8/8/8/2k5/8/K6Q w - - 0 1");
    EXPECT_EQ(tb_probe_search(pos, 100), -1);
    init_and_capture(data_path("syzygy"));
    EXPECT_EQ(tb_probe_search(pos, 100), 4);
}

}  // namespace
