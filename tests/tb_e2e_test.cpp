// The real engine over UCI with a damaged table file: the damage reaches
// the front end as an "info string", besides the error stream, and the
// engine goes on answering without the table.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <string>

#include "engine_process.h"

namespace {

struct TbE2E : testing::Test {
    std::string dir;
    Engine engine;

    void SetUp() override {
        char pattern[] = "/tmp/quillon_tbe2e_XXXXXX";
        ASSERT_NE(mkdtemp(pattern), nullptr);
        dir = pattern;
    }
    void TearDown() override { std::filesystem::remove_all(dir); }
};

TEST_F(TbE2E, CorruptedTableIsToldAsAnInfoString) {
    // The length of a table, the magic of none.
    std::ofstream(dir + "/KRvK.rtbw", std::ios::binary)
        << std::string(16 + 64, '\0');
    ASSERT_TRUE(engine.start({}, dir)) << engine.transcript();
    engine.send("setoption name SyzygyPath value " + dir);
    ASSERT_TRUE(engine.wait_for(
        line_is("info string Found 1 WDL, 0 DTM and 0 DTZ tablebase files. "
                "Largest 3-men"),
        5000))
        << engine.transcript();
    const char *fen = "8/8/8/8/8/2k5/8/K6R w - - 0 1";
    engine.send(std::string("position fen ") + fen);
    engine.send("go depth 6");
    std::vector<std::string> before;
    auto best = engine.wait_for(is_bestmove, 20000, &before);
    ASSERT_TRUE(best) << engine.transcript();
    EXPECT_EQ(count_matching(before,
                             line_is("info string Corrupted table KRvK.rtbw")),
              1)
        << joined(before);
    EXPECT_TRUE(answers_legally(*best, fen)) << *best;
    EXPECT_NE(engine.err().find("Corrupted table.\n"), std::string::npos)
        << engine.err();
    // The table is never tried again.
    engine.send("go depth 6");
    before.clear();
    ASSERT_TRUE(engine.wait_for(is_bestmove, 20000, &before));
    EXPECT_EQ(count_matching(before, line_starts("info string Corrupted")), 0)
        << joined(before);
    EXPECT_EQ(engine.quit(), 0);
}

}  // namespace
