// Damaged table files and many threads: no probe may crash, hang or read
// outside a file, and the first use of a table is safe from any thread.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstring>
#include <fstream>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "tablebase/tb_probe.h"
#include "test_support.h"

namespace {

std::string read_file(const std::string &name) {
    std::ifstream in(name, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), {});
}

void write_file(const std::string &name, const std::string &bytes) {
    std::ofstream out(name, std::ios::binary | std::ios::trunc);
    out << bytes;
}

// Positions of the damaged tables, and of the tables they fall into.
const char *const FUZZ_FENS[] = {
    "8/8/2k5/1r6/8/8/8/2KQ4 b - - 0 1",  "8/8/2k5/1r6/8/8/8/2KQ4 w - - 0 1",
    "8/q7/8/3k4/8/8/1K6/7R w - - 0 1",   "8/8/8/3k4/8/1r6/8/K2Q4 b - - 0 1",
    "8/6k1/8/Pp6/1K6/8/8/8 w - b6 0 1",  "8/8/1k6/8/2p5/8/3P4/3K4 w - - 0 1",
    "8/8/1k6/8/2p5/8/3P4/3K4 b - - 0 1", "8/8/3p4/8/2k5/5P2/8/K7 w - - 0 1",
};

struct TbFuzzTest : testing::Test {
    void TearDown() override { tb_init_path(""); }
};

void probe_all_quietly() {
    for (const char *fen : FUZZ_FENS) {
        TbPosition t = tb_position_from(test_position(fen), 0);
        int success = 0;
        int wdl = tb_probe_wdl(t, &success);
        EXPECT_GE(wdl, -2);
        EXPECT_LE(wdl, 2);
        tb_probe_dtz(t, &success);
        int r = tb_probe_search(test_position(fen), 100);
        EXPECT_GE(r, -1);
        EXPECT_LE(r, 4);
        int w, d;
        u16 m;
        tb_probe_root(test_position(fen), &w, &d, &m);
    }
}

TEST_F(TbFuzzTest, DamagedCopiesOfRealTablesNeverCrash) {
    std::string dir =
        testing::TempDir() + "quillon_tbfuzz_" + std::to_string(getpid());
    mkdir(dir.c_str(), 0755);
    const char *names[] = {"KQvKR.rtbw", "KQvKR.rtbz", "KPvKP.rtbw",
                           "KPvKP.rtbz", "KRvK.rtbw",  "KQvK.rtbz"};
    std::vector<std::string> originals;
    for (const char *n : names)
        originals.push_back(read_file(data_path("syzygy/") + std::string(n)));
    for (const std::string &bytes : originals) ASSERT_FALSE(bytes.empty());
    std::mt19937 rng(2024);
    for (int round = 0; round < 40; round++) {
        for (size_t k = 0; k < originals.size(); k++) {
            std::string bytes = originals[k];
            int kind = round % 4;
            if (kind == 0) {
                // A few bytes anywhere.
                for (int n = 0; n < 8; n++)
                    bytes[rng() % bytes.size()] = static_cast<char>(rng());
            } else if (kind == 1) {
                // The header and its tables, the magic kept.
                for (size_t n = 4; n < 200 && n < bytes.size(); n++)
                    if (rng() % 3 == 0) bytes[n] = static_cast<char>(rng());
            } else if (kind == 2) {
                // Cut to a length that still looks whole.
                size_t blocks = rng() % (bytes.size() / 64 + 1);
                bytes.resize(blocks * 64 + 16);
            } else {
                // Not a table at all, with a table's name and length.
                for (char &c : bytes) c = static_cast<char>(rng());
                std::memcpy(&bytes[0], originals[k].data(), 4);
            }
            write_file(dir + "/" + names[k], bytes);
        }
        testing::internal::CaptureStdout();
        testing::internal::CaptureStderr();
        tb_init_path((dir + ";" + tb_test_path()).c_str());
        probe_all_quietly();
        testing::internal::GetCapturedStderr();
        testing::internal::GetCapturedStdout();
    }
    for (const char *n : names) unlink((dir + "/" + n).c_str());
}

TEST_F(TbFuzzTest, WrongMagicIsReportedOnceAndNeverMappedAgain) {
    std::string dir =
        testing::TempDir() + "quillon_tbmagic_" + std::to_string(getpid());
    mkdir(dir.c_str(), 0755);
    std::string bytes = read_file(data_path("syzygy/KRvK.rtbw"));
    ASSERT_FALSE(bytes.empty());
    bytes[0] ^= 0x55;
    write_file(dir + "/KRvK.rtbw", bytes);
    testing::internal::CaptureStdout();
    tb_init_path(dir.c_str());
    testing::internal::GetCapturedStdout();
    Position &pos = test_position("8/8/8/8/8/2k5/8/K6R w - - 0 1");
    testing::internal::CaptureStderr();
    EXPECT_EQ(tb_probe_search(pos, 100), -1);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "Corrupted table.\n");
    testing::internal::CaptureStderr();
    EXPECT_EQ(tb_probe_search(pos, 100), -1);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
    unlink((dir + "/KRvK.rtbw").c_str());
}

// A table file of a table's length that is no table: the magic is wrong.
std::string fake_table_folder(const char *tag) {
    std::string dir = testing::TempDir() + "quillon_tbfake_" + tag + "_" +
                      std::to_string(getpid());
    mkdir(dir.c_str(), 0755);
    write_file(dir + "/KRvK.rtbw", std::string(16 + 64, '\0'));
    return dir;
}

// The error stream is not shown by a front end: under UCI the damage is
// told on standard output as well, with the file's name; on the console
// the error stream alone has it, as before.
TEST_F(TbFuzzTest, CorruptionIsToldToTheFrontEndUnderUci) {
    std::string dir = fake_table_folder("uci");
    u8 saved_mode = settings.uci_mode;
    for (u8 mode : {u8{1}, u8{0}}) {
        settings.uci_mode = mode;
        testing::internal::CaptureStdout();
        tb_init_path(dir.c_str());
        testing::internal::GetCapturedStdout();
        Position &pos = test_position("8/8/8/8/8/2k5/8/K6R w - - 0 1");
        testing::internal::CaptureStdout();
        testing::internal::CaptureStderr();
        EXPECT_EQ(tb_probe_search(pos, 100), -1);
        EXPECT_EQ(testing::internal::GetCapturedStderr(), "Corrupted table.\n");
        EXPECT_EQ(testing::internal::GetCapturedStdout(),
                  mode ? "info string Corrupted table KRvK.rtbw\n" : "");
    }
    settings.uci_mode = saved_mode;
    unlink((dir + "/KRvK.rtbw").c_str());
    rmdir(dir.c_str());
}

struct ThreadProbe {
    const char *fen;
    int wdl;
};

// Every thread starts on tables nobody has used yet: 4- and 5-man tables
// with and without pawns, and the large families when they are there.
TEST(TbThreads, FirstProbesFromManyThreadsAgree) {
    testing::internal::CaptureStdout();
    tb_init_path(tb_test_path().c_str());
    testing::internal::GetCapturedStdout();
    std::vector<ThreadProbe> probes = {
        {"8/8/2k5/1r6/8/8/8/2KQ4 b - - 0 1", -2},
        {"8/8/8/6B1/8/8/4k3/1K5N b - - 0 1", -2},
        {"8/6k1/8/Pp6/1K6/8/8/8 w - b6 0 1", 2},
        {"7K/5k2/8/2r5/8/8/2NN4/8 b - - 0 1", 2},
        {"8/8/8/8/7b/3k1N2/1N6/7K b - - 0 1", 0},
        {"8/8/1k6/8/2p5/8/3P4/3K4 w - - 0 1", 0}};
    if (!big_tb_dir().empty()) {
        probes.push_back({"8/8/8/5N2/8/p7/8/2NK3k w - - 0 1", 2});
        probes.push_back({"8/8/q7/3N4/8/8/N7/1K1k4 w - - 0 1", -2});
    }
    std::vector<TbPosition> boards;
    for (const ThreadProbe &p : probes)
        boards.push_back(tb_position_from(test_position(p.fen), 0));
    constexpr int THREADS = 8;
    const int n = static_cast<int>(probes.size());
    std::vector<int> wdl(THREADS * n), dtz(THREADS * n);
    std::vector<std::thread> pool;
    for (int t = 0; t < THREADS; t++)
        pool.emplace_back([&, t] {
            for (int k = 0; k < n; k++) {
                int i = (k + t) % n, success = 0;
                wdl[t * n + i] = tb_probe_wdl(boards[i], &success);
                dtz[t * n + i] = tb_probe_dtz(boards[i], &success);
            }
        });
    for (auto &th : pool) th.join();
    for (int t = 0; t < THREADS; t++)
        for (int i = 0; i < n; i++) {
            EXPECT_EQ(wdl[t * n + i], probes[i].wdl) << probes[i].fen;
            EXPECT_EQ(dtz[t * n + i], dtz[i]) << probes[i].fen;
        }
    tb_init_path("");
}

}  // namespace
