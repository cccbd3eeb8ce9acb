// The real engine with nets from files: NN_File and Use_NN_eval set
// between searches and during one, over UCI.
#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <string>

#include "engine_process.h"
#include "net_files.h"

namespace {

struct UciE2ENetwork : testing::Test {
    Engine engine;
    std::string dir;
    void SetUp() override {
        char pattern[] = "/tmp/quillon_nets_XXXXXX";
        ASSERT_NE(mkdtemp(pattern), nullptr);
        dir = pattern;
        Shape narrow;
        narrow.layer1 = 64;
        write_bytes(
            dir + "/a.nnue",
            net_bytes(narrow, random_stored(narrow, 1, 4000, 3000, 3000)));
        Shape deep;
        deep.layer1 = 128;
        deep.layer2 = 16;
        write_bytes(dir + "/b.nnue",
                    net_bytes(deep, random_stored(deep, 2, 4000, 500, 3000)));
    }
    void TearDown() override {
        for (const char *name :
             {"/a.nnue", "/b.nnue", "/cut.nnue", "/count.nnue"})
            std::remove((dir + name).c_str());
        std::remove(dir.c_str());
    }
    bool search_to_end(const std::string &go) {
        engine.send(go);
        return engine.wait_for(is_bestmove, 20000).has_value();
    }
};

TEST_F(UciE2ENetwork, NetFileBetweenSearches) {
    ASSERT_TRUE(engine.start({}, dir));
    engine.send("setoption name NN_File value a.nnue");
    ASSERT_TRUE(engine.wait_for(line_is("info string loaded a.nnue"), 3000));
    engine.send("position startpos moves e2e4");
    ASSERT_TRUE(search_to_end("go depth 5"));
    engine.send("setoption name NN_File value b.nnue");
    ASSERT_TRUE(engine.wait_for(line_is("info string loaded b.nnue"), 3000));
    ASSERT_TRUE(search_to_end("go depth 5"));
    engine.send("setoption name Use_NN_eval value false");
    ASSERT_TRUE(search_to_end("go depth 5"));
    EXPECT_EQ(engine.quit(), 0);
}

// The net in use is not swapped under the running threads: the new file
// is read once the search is over.  Use_NN_eval is read at each
// evaluation.
TEST_F(UciE2ENetwork, NetFileDuringASearchWaitsForItsEnd) {
    ASSERT_TRUE(engine.start({}, dir));
    engine.send("setoption name Threads value 2");
    engine.send("setoption name NN_File value a.nnue");
    ASSERT_TRUE(engine.wait_for(line_is("info string loaded a.nnue"), 3000));
    engine.send("position startpos");
    engine.send("go infinite");
    ASSERT_TRUE(engine.wait_for(line_starts("info depth"), 5000));
    engine.send("setoption name NN_File value b.nnue");
    engine.send("setoption name Use_NN_eval value false");
    engine.send("setoption name Use_NN_eval value true");
    std::vector<std::string> got;
    ASSERT_TRUE(engine.ready(&got));
    EXPECT_EQ(
        count_matching(got, line_is("info string NN_File set to 'b.nnue'")), 1)
        << joined(got);
    EXPECT_EQ(count_matching(got, line_starts("info string loaded")), 0)
        << joined(got);
    engine.send("stop");
    got.clear();
    ASSERT_TRUE(engine.wait_for(is_bestmove, 3000, &got));
    EXPECT_TRUE(engine.wait_for(line_is("info string loaded b.nnue"), 3000));
    ASSERT_TRUE(search_to_end("go depth 4"));
    EXPECT_EQ(engine.quit(), 0);
}

// A damaged file loads as far as it goes, and the front end is told.
TEST_F(UciE2ENetwork, DamagedNetFilesAreReportedAndTheEngineAnswers) {
    Shape narrow;
    narrow.layer1 = 64;
    std::string whole =
        net_bytes(narrow, random_stored(narrow, 3, 4000, 3000, 3000));
    write_bytes(dir + "/cut.nnue", whole.substr(0, whole.size() / 2));
    std::string miscounted = whole;
    miscounted[14] = static_cast<char>(miscounted[14] ^ 1);
    write_bytes(dir + "/count.nnue", miscounted);
    u32 count = static_cast<u32>(narrow.weight_count());
    ASSERT_TRUE(engine.start({}, dir));
    engine.send("setoption name NN_File value cut.nnue");
    EXPECT_TRUE(engine.wait_for(
        line_is("info string cut.nnue is cut short: it holds " +
                std::to_string((whole.size() / 2 - 18) / 2) + " of the net's " +
                std::to_string(count) + " weights; the rest are 0"),
        3000))
        << engine.transcript();
    engine.send("position startpos moves e2e4");
    ASSERT_TRUE(search_to_end("go depth 4"));
    engine.send("setoption name NN_File value count.nnue");
    EXPECT_TRUE(engine.wait_for(
        line_is("info string count.nnue: its header gives " +
                std::to_string(count ^ 1) + " weights, but it holds " +
                std::to_string(count)),
        3000))
        << engine.transcript();
    EXPECT_TRUE(
        engine.wait_for(line_is("info string loaded count.nnue"), 3000));
    ASSERT_TRUE(search_to_end("go depth 4"));
    EXPECT_EQ(engine.quit(), 0);
}

// The process ends with result 0, as a net that can't be opened always
// ended it.
TEST_F(UciE2ENetwork, MissingNetFileEndsTheEngine) {
    ASSERT_TRUE(engine.start({}, dir));
    engine.send("setoption name NN_File value none.nnue");
    EXPECT_TRUE(
        engine.wait_for(line_is("info string can't open none.nnue"), 3000));
    EXPECT_EQ(engine.wait_exit(5000), 0);
}

}  // namespace
