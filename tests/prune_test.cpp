// -prune_nn through the real binary: a net of more than 1536 neurons keeps
// its 1536 busiest and evaluates as before when the dropped ones were
// idle; a net of 1536 or fewer is left alone.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include "engine_process.h"
#include "eval/network.h"
#include "net_files.h"
#include "test_support.h"
#include "tools/train_record.h"

namespace {

const char *const FENS[] = {
    "rnbqkbnr/pppppppp/8/8/8/8/PPPPPPPP/RNBQKBNR w KQkq -",
    "r1bqkb1r/pppp1ppp/2n2n2/4p3/2B1P3/5N2/PPPP1PPP/RNBQK2R w KQkq -",
    "r3k2r/p1ppqpb1/bn2pnp1/3PN3/1p2P3/2N2Q1p/PPPBBPPP/R3K2R w KQkq -",
    "8/2p5/3p4/KP5r/1R3p1k/8/4P1P1/8 w - -",
    "4k3/8/8/8/8/8/4P3/4K3 b - -",
    "r4rk1/1pp1qppp/p1np1n2/2b1p1B1/2B1P1b1/P1NP1N2/1PP1QPPP/R4RK1 w - -",
};

struct PruneE2E : testing::Test {
    std::string dir;
    std::unique_ptr<Engine> engine;

    void SetUp() override {
        char pattern[] = "/tmp/quillon_prune_XXXXXX";
        ASSERT_NE(mkdtemp(pattern), nullptr);
        dir = pattern;
        std::ofstream records(dir + "/recs.bin", std::ios::binary);
        for (const char *fen : FENS) {
            TrainRecord r = pack_position(test_position(fen));
            records.write(reinterpret_cast<const char *>(&r), sizeof r);
        }
        std::ofstream(dir + "/net.cfg") << "NN_File = net.bin\n";
    }
    void TearDown() override {
        engine.reset();
        std::filesystem::remove_all(dir);
    }
    // One run of the tool in a fresh process.
    int prune() {
        engine = std::make_unique<Engine>();
        if (!engine->start({"-cfg", "net.cfg", "-prune_nn", "recs.bin"}, dir,
                           false))
            return -2;
        return engine->wait_exit(60000);
    }
    bool printed(const std::string &line) const {
        for (const std::string &l : engine->lines())
            if (l == line) return true;
        return false;
    }
    // The evaluations of the net in `file` on FENS, fresh each time.
    std::vector<i32> evaluations(const std::string &file) {
        testing::internal::CaptureStdout();
        load_network(file.c_str());
        testing::internal::GetCapturedStdout();
        std::vector<i32> out;
        for (const char *fen : FENS) {
            test_position(fen);
            front_worker->eval.eval_ply = 0;
            out.push_back(network_evaluate(front_worker));
        }
        release_network_state(front_worker);
        free_network();
        return out;
    }
};

TEST_F(PruneE2E, KeepsTheBusiestNeuronsAndTheNetsAnswers) {
    Shape s;
    s.layer1 = 1544;
    std::vector<i16> stored = random_stored(s, 5, 300, 300, 0);
    // Eight idle neurons, spread over the layer: no input weight, no
    // output weight.
    const int idle[] = {0, 7, 100, 777, 1000, 1200, 1536, 1543};
    const int inputs = s.inputs_piece + s.inputs_extra;
    for (int j : idle) {
        for (int i = 0; i < inputs; i++) stored[i * s.layer1 + j] = 0;
        for (int r = 0; r < 8; r++) stored[(inputs + r) * s.layer1 + j] = 0;
    }
    write_bytes(dir + "/net.bin", net_bytes(s, stored));
    ASSERT_EQ(prune(), 0) << engine->transcript();
    EXPECT_TRUE(printed("allocated 9600 Mbytes for training data."));
    EXPECT_TRUE(printed("read 6 positions from recs.bin."))
        << engine->transcript();
    EXPECT_TRUE(printed("total positions= 6"));
    EXPECT_TRUE(printed("Collecting stats ..."));
    EXPECT_TRUE(printed("Writing pruned net to pruned.bin ..."));
    std::ifstream in(dir + "/pruned.bin", std::ios::binary);
    std::stringstream bytes;
    bytes << in.rdbuf();
    Shape pruned = s;
    pruned.layer1 = 1536;
    std::string text = bytes.str();
    ASSERT_EQ(text.size(), 18u + 2u * pruned.weight_count());
    EXPECT_EQ(static_cast<unsigned char>(text[8]) | text[9] << 8, 1536);
    // The dropped neurons said nothing, so the pruned net answers alike.
    std::vector<i32> before = evaluations(dir + "/net.bin");
    std::vector<i32> after = evaluations(dir + "/pruned.bin");
    EXPECT_EQ(before, after);
    EXPECT_NE(before, std::vector<i32>(std::size(FENS), 0));
}

TEST_F(PruneE2E, ANetOf1536OrFewerIsLeftAlone) {
    Shape s;
    s.layer1 = 1536;
    write_bytes(dir + "/net.bin",
                net_bytes(s, random_stored(s, 6, 300, 300, 0)));
    ASSERT_EQ(prune(), 0) << engine->transcript();
    EXPECT_TRUE(printed("Writing pruned net to pruned.bin ..."))
        << engine->transcript();
    EXPECT_FALSE(std::filesystem::exists(dir + "/pruned.bin"));
}

// Nothing to prune by: the tool says what it always says, writes nothing,
// and ends with a failure.
TEST_F(PruneE2E, MissingOrBrokenRecordsWriteNothingAndFail) {
    Shape s;
    s.layer1 = 1536;
    write_bytes(dir + "/net.bin",
                net_bytes(s, random_stored(s, 7, 300, 300, 0)));
    std::filesystem::remove(dir + "/recs.bin");
    ASSERT_EQ(prune(), 1) << engine->transcript();
    EXPECT_TRUE(printed("read 0 positions from recs.bin."));
    EXPECT_TRUE(printed("Writing pruned net to pruned.bin ..."));
    // Records of random bytes: boards that are no positions, half records.
    std::string junk;
    for (int i = 0; i < 40 * 50 + 17; i++)
        junk.push_back(static_cast<char>(i * 131 + 7));
    write_bytes(dir + "/recs.bin", junk);
    // Some of them have both kings and are read as positions; a net of
    // 1536 neurons needs no pruning.
    ASSERT_EQ(prune(), 0) << engine->transcript();
    EXPECT_TRUE(printed("read 50 positions from recs.bin."));
    EXPECT_TRUE(printed("Writing pruned net to pruned.bin ..."));
    EXPECT_FALSE(std::filesystem::exists(dir + "/pruned.bin"));
    // Empty boards only: not one position to prune by.
    write_bytes(dir + "/recs.bin", std::string(40 * 10, '\0'));
    ASSERT_EQ(prune(), 1) << engine->transcript();
    EXPECT_TRUE(printed("read 10 positions from recs.bin."));
    EXPECT_FALSE(std::filesystem::exists(dir + "/pruned.bin"));
}

}  // namespace
