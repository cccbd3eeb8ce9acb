// The option setter and the configuration file: every option's clamp and
// line, refusals during a search, the log switch, the hash options, the
// file format with its comments and chains, and random input.
#include "frontend/options.h"

#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <random>
#include <sstream>
#include <string>
#include <vector>

#include "core/output.h"
#include "search/hash.h"
#include "test_support.h"

namespace {

std::string capture(const std::function<void()> &body) {
    testing::internal::CaptureStdout();
    body();
    return testing::internal::GetCapturedStdout();
}

std::string set_and_capture(const char *name, const char *value) {
    return capture([&] { set_option(name, value); });
}

std::string read_file(const std::string &path) {
    std::ifstream in(path, std::ios::binary);
    std::stringstream text;
    text << in.rdbuf();
    return text.str();
}

void write_file(const std::string &path, const std::string &text) {
    std::ofstream out(path, std::ios::binary);
    out << text;
}

// Every test works in a temporary directory of its own (the log and the
// configuration files go there) and leaves the settings, their snapshot,
// the search state, the log and the hash table as the other tests expect
// them.
struct OptionsTest : testing::Test {
    std::string old_cwd;
    std::string dir;
    bool had_table = false;
    u32 saved_entries = 0;
    i32 saved_hash_mb = 64;
    u8 saved_use_hash = 1;

    void SetUp() override {
        old_cwd = std::filesystem::current_path();
        char pattern[] = "/tmp/quillon_options_XXXXXX";
        ASSERT_NE(mkdtemp(pattern), nullptr);
        dir = pattern;
        ASSERT_EQ(chdir(dir.c_str()), 0);
        ASSERT_EQ(log_file, nullptr);
        had_table = hash_table != nullptr;
        saved_entries = hash_entries;
        saved_hash_mb = static_cast<i32>(hash_entries / 65536);
        saved_use_hash = status.use_hash;
        set_default_settings();
        store_state(0);
    }
    void TearDown() override {
        close_log();
        store_state(0);
        status.use_hash = saved_use_hash;
        set_default_settings();
        if (hash_entries != saved_entries || had_table != (hash_table != 0))
            capture([&] { restore_table(); });
        take_settings_snapshot();
        ASSERT_EQ(chdir(old_cwd.c_str()), 0);
        std::filesystem::remove_all(dir);
    }
    void restore_table() {
        if (!had_table) return hash_free();
        settings.hash_mb = saved_hash_mb;
        hash_allocate();
        settings.hash_mb = 64;
    }
    std::string path(const char *name) const { return dir + "/" + name; }
};

// A spin option, the range it is clamped into and where it is stored.
struct SpinCase {
    const char *name;
    int low;
    int high;
    int inside;
    int (*stored)();
};

const SpinCase SPINS[] = {
    {"Threads", 0, 160, 7, [] { return int(settings.threads); }},
    {"MoveOverhead", 0, 5000, 120, [] { return int(settings.move_overhead); }},
    {"Contempt", -150, 150, -25, [] { return int(settings.contempt); }},
    {"Selectivity", 0, 200, 60, [] { return int(settings.selectivity); }},
    {"MultiPV", 1, 255, 4, [] { return int(settings.multi_pv); }},
    {"OwnBook_Variety", 0, 100, 40, [] { return int(settings.book_variety); }},
    {"OwnBook_Depth", 0, 60, 12, [] { return int(settings.book_depth); }},
    {"OwnBook2_Depth", 0, 60, 9, [] { return int(settings.book2_depth); }},
    {"SyzygyProbeDepth6", -5, 100, 3,
     [] { return int(settings.tb_probe_depth6); }},
    {"UCI_Elo", 1500, 3300, 2222, [] { return int(settings.elo); }},
};

std::string set_line(const char *name, int value) {
    return "info string " + std::string(name) + " set to " +
           std::to_string(value) + "\n";
}

TEST_F(OptionsTest, EverySpinIsClampedIntoItsRangeAndPrintsTheValue) {
    for (const SpinCase &c : SPINS) {
        SCOPED_TRACE(c.name);
        std::string below = std::to_string(c.low - 1);
        EXPECT_EQ(set_and_capture(c.name, below.c_str()),
                  set_line(c.name, c.low));
        EXPECT_EQ(c.stored(), c.low);
        std::string above = std::to_string(c.high + 1);
        EXPECT_EQ(set_and_capture(c.name, above.c_str()),
                  set_line(c.name, c.high));
        EXPECT_EQ(c.stored(), c.high);
        std::string inside = std::to_string(c.inside);
        EXPECT_EQ(set_and_capture(c.name, inside.c_str()),
                  set_line(c.name, c.inside));
        EXPECT_EQ(c.stored(), c.inside);
        // Far outside, beyond the int range too.
        EXPECT_EQ(set_and_capture(c.name, "-99999999999999"),
                  set_line(c.name, c.low));
        EXPECT_EQ(set_and_capture(c.name, "99999999999999"),
                  set_line(c.name, c.high));
        EXPECT_EQ(c.stored(), c.high);
    }
}

TEST_F(OptionsTest, MultiPvZeroIsOne) {
    EXPECT_EQ(set_and_capture("MultiPV", "0"),
              "info string MultiPV set to 1\n");
    EXPECT_EQ(settings.multi_pv, 1);
}

TEST_F(OptionsTest, EloBelowTheFloorIs1500) {
    EXPECT_EQ(set_and_capture("UCI_Elo", "1000"),
              "info string UCI_Elo set to 1500\n");
    EXPECT_EQ(settings.elo, 1500);
}

TEST_F(OptionsTest, ThreadsZeroStands) {
    EXPECT_EQ(set_and_capture("Threads", "0"),
              "info string Threads set to 0\n");
    EXPECT_EQ(settings.threads, 0);
}

TEST_F(OptionsTest, SevenManDepthFollowsTheSixManDepth) {
    set_and_capture("SyzygyProbeDepth6", "-40");
    EXPECT_EQ(settings.tb_probe_depth6, -5);
    EXPECT_EQ(settings.tb_probe_depth7, -2);
    set_and_capture("SyzygyProbeDepth6", "100");
    EXPECT_EQ(settings.tb_probe_depth7, 103);
    set_and_capture("SyzygyProbeDepth6", "7");
    EXPECT_EQ(settings.tb_probe_depth7, 10);
    // No option reaches the depth for five men and fewer.
    EXPECT_EQ(settings.tb_probe_depth_low, 0);
}

TEST_F(OptionsTest, NumbersReadAsAtoi) {
    set_and_capture("Contempt", "  42abc");
    EXPECT_EQ(settings.contempt, 42);
    set_and_capture("Contempt", "+17");
    EXPECT_EQ(settings.contempt, 17);
    set_and_capture("Contempt", "-3.9");
    EXPECT_EQ(settings.contempt, -3);
    set_and_capture("Contempt", "0x40");
    EXPECT_EQ(settings.contempt, 0);
    // A bad number is 0, then clamped.
    EXPECT_EQ(set_and_capture("Contempt", "much"),
              "info string Contempt set to 0\n");
    EXPECT_EQ(set_and_capture("MultiPV", "many"),
              "info string MultiPV set to 1\n");
    EXPECT_EQ(set_and_capture("UCI_Elo", ""),
              "info string UCI_Elo set to 1500\n");
}

// A check option and where it is stored.
struct CheckCase {
    const char *name;
    int (*stored)();
};

const CheckCase CHECKS[] = {
    {"Ponder", [] { return int(settings.ponder); }},
    {"Use_NN_eval", [] { return int(settings.use_nn); }},
    {"OwnBook", [] { return int(settings.own_book); }},
    {"UCI_LimitStrength", [] { return int(settings.limit_strength); }},
    {"UCI_Chess960", [] { return int(settings.chess960); }},
    {"UCI_ShowWDL", [] { return int(settings.show_wdl); }},
};

TEST_F(OptionsTest, EveryCheckIsOnWhenTheTextContainsTrue) {
    for (const CheckCase &c : CHECKS) {
        SCOPED_TRACE(c.name);
        EXPECT_EQ(set_and_capture(c.name, "true"), set_line(c.name, 1));
        EXPECT_EQ(c.stored(), 1);
        EXPECT_EQ(set_and_capture(c.name, "false"), set_line(c.name, 0));
        EXPECT_EQ(c.stored(), 0);
        EXPECT_EQ(set_and_capture(c.name, "it is true"), set_line(c.name, 1));
        EXPECT_EQ(c.stored(), 1);
        EXPECT_EQ(set_and_capture(c.name, "1"), set_line(c.name, 0));
        EXPECT_EQ(c.stored(), 0);
        EXPECT_EQ(set_and_capture(c.name, "untrue"), set_line(c.name, 1));
        EXPECT_EQ(set_and_capture(c.name, ""), set_line(c.name, 0));
        EXPECT_EQ(c.stored(), 0);
    }
}

TEST_F(OptionsTest, PonderTrueInCapitalsIsFalse) {
    ASSERT_EQ(settings.ponder, 1);
    EXPECT_EQ(set_and_capture("Ponder", "TRUE"),
              "info string Ponder set to 0\n");
    EXPECT_EQ(settings.ponder, 0);
}

TEST_F(OptionsTest, TextOptionsStoreAndPrintTheirText) {
    // During a search the net waits: the file is not opened yet.
    store_state(STATE_THINKING);
    EXPECT_EQ(set_and_capture("NN_File", "nets/big.nnue"),
              "info string NN_File set to 'nets/big.nnue'\n");
    store_state(0);
    EXPECT_STREQ(settings.nn_file, "nets/big.nnue");
    forget_network_reload();
    EXPECT_EQ(set_and_capture("OwnBook_File", "main.bin"),
              "info string OwnBook_File set to 'main.bin'\n");
    EXPECT_STREQ(settings.book_file, "main.bin");
    EXPECT_EQ(set_and_capture("OwnBook2_File", "second book.bin"),
              "info string OwnBook2_File set to 'second book.bin'\n");
    EXPECT_STREQ(settings.book2_file, "second book.bin");
    // The folders are scanned at once, and the scan reports its count.
    EXPECT_EQ(set_and_capture("SyzygyPath", "/tb/345;/tb/6"),
              "info string SyzygyPath set to '/tb/345;/tb/6'\n"
              "info string Found 0 WDL, 0 DTM and 0 DTZ tablebase files. "
              "Largest 0-men\n");
    EXPECT_STREQ(settings.syzygy_path, "/tb/345;/tb/6");
    EXPECT_EQ(set_and_capture("SyzygyPath", ""),
              "info string SyzygyPath set to ''\n");
    EXPECT_STREQ(settings.syzygy_path, "");
}

TEST_F(OptionsTest, LongTextsAreCutToTheirBuffers) {
    std::string longest(200, 'x');
    std::string shown143(143, 'x');
    set_and_capture("OwnBook_File", longest.c_str());
    EXPECT_EQ(std::string(settings.book_file), shown143);
    set_and_capture("OwnBook2_File", longest.c_str());
    EXPECT_EQ(std::string(settings.book2_file), shown143);
    EXPECT_EQ(set_and_capture("SyzygyPath", longest.c_str()),
              "info string SyzygyPath set to '" + shown143 + "'\n" +
                  "info string Found 0 WDL, 0 DTM and 0 DTZ tablebase files. "
                  "Largest 0-men\n");
    EXPECT_EQ(std::string(settings.syzygy_path), shown143);
    store_state(STATE_THINKING);
    set_and_capture("NN_File", longest.c_str());
    store_state(0);
    EXPECT_EQ(std::string(settings.nn_file), std::string(149, 'x'));
    forget_network_reload();
    set_and_capture("ConfigFilePath", longest.c_str());
    EXPECT_EQ(std::string(settings.config_path), shown143);
    // The neighbours of the cut texts are untouched.
    EXPECT_EQ(settings.tb_probe_depth_low, 0);
    EXPECT_EQ(settings.tb_probe_depth6, 1);
    EXPECT_EQ(settings.tb_probe_depth7, 4);
}

TEST_F(OptionsTest, UnknownNamesPrintNothing) {
    EXPECT_EQ(set_and_capture("Bogus", "1"), "");
    // Names are matched exactly and with their case.
    EXPECT_EQ(set_and_capture("multipv", "3"), "");
    EXPECT_EQ(set_and_capture("MultiPV ", "3"), "");
    EXPECT_EQ(set_and_capture("Multi", "3"), "");
    EXPECT_EQ(set_and_capture("", "3"), "");
    EXPECT_EQ(set_and_capture("ClearHash", ""), "");
    EXPECT_EQ(settings.multi_pv, 1);
    EXPECT_EQ(set_and_capture(nullptr, "3"), "");
    EXPECT_EQ(set_and_capture("MultiPV", nullptr),
              "info string MultiPV set to 1\n");
}

TEST_F(OptionsTest, HashResizesTheTable) {
    EXPECT_EQ(set_and_capture("Hash", "1"),
              "info string Hash set to 1\n"
              "info string allocated 1 Mbytes for hash table\n");
    EXPECT_EQ(settings.hash_mb, 1);
    EXPECT_EQ(hash_entries, 65536u);
    ASSERT_NE(hash_table, nullptr);
    EXPECT_EQ(set_and_capture("Hash", "-12"),
              "info string Hash set to 0\n"
              "info string allocated 0 Mbytes for hash table\n");
    EXPECT_EQ(settings.hash_mb, 0);
    EXPECT_EQ(hash_entries, 0u);
    set_and_capture("Hash", "2");
    EXPECT_EQ(hash_entries, 131072u);
}

TEST_F(OptionsTest, ClearHashEmptiesTheTable) {
    set_and_capture("Hash", "1");
    status.use_hash = 1;
    HashEntry entry{0x1234, 0x5678, 12, -40, 7, HASH_EXACT, 3, 0};
    hash_write_slot(100, entry);
    ASSERT_EQ(hash_read_slot(100).key_high, 0x1234u);
    EXPECT_EQ(set_and_capture("Clear Hash", ""),
              "info string Hash table cleared\n");
    HashEntry cleared = hash_read_slot(100);
    EXPECT_EQ(cleared.key_high, 0u);
    EXPECT_EQ(cleared.check, 0u);
    EXPECT_EQ(cleared.move, 0);
    EXPECT_EQ(cleared.depth, 0);
}

TEST_F(OptionsTest, HashWhileSearchingChangesNothingAndPrintsNothing) {
    set_and_capture("Hash", "1");
    store_state(STATE_THINKING);
    EXPECT_EQ(set_and_capture("Hash", "128"), "");
    store_state(0);
    EXPECT_EQ(settings.hash_mb, 1);
    EXPECT_EQ(hash_entries, 65536u);
}

TEST_F(OptionsTest, OnlyTheTableThreadsAndConfigurationWaitForTheSearch) {
    set_and_capture("Hash", "1");
    status.use_hash = 1;
    HashEntry entry{0x99, 0x77, 5, 10, 3, HASH_LOWER, 1, 0};
    hash_write_slot(7, entry);
    write_file(path("other.cfg"), "Contempt = 33\n");
    std::string other = path("other.cfg");
    // A request for a search counts as a search already.
    for (u16 state : {STATE_THINKING, STATE_PONDERING, STATE_REQUEST_THINK,
                      STATE_FINISHED}) {
        SCOPED_TRACE(state);
        store_state(state);
        EXPECT_EQ(set_and_capture("Threads", "8"), "");
        EXPECT_EQ(set_and_capture("ConfigFilePath", other.c_str()), "");
        EXPECT_EQ(set_and_capture("Clear Hash", ""), "");
        EXPECT_EQ(settings.threads, 1);
        EXPECT_STREQ(settings.config_path, "");
        EXPECT_EQ(settings.contempt, 0);
        EXPECT_EQ(hash_read_slot(7).key_high, 0x99u);
        // The rest are plain values, read again at their next use.
        EXPECT_EQ(set_and_capture("MultiPV", "3"),
                  "info string MultiPV set to 3\n");
        EXPECT_EQ(set_and_capture("SyzygyPath", "/x"),
                  "info string SyzygyPath set to '/x'\n");
        EXPECT_EQ(set_and_capture("Selectivity", "80"),
                  "info string Selectivity set to 80\n");
    }
    store_state(0);
}

TEST_F(OptionsTest, LogOffLeavesTheFileOpenAndSilent) {
    EXPECT_EQ(set_and_capture("Log", "true"), "info string Log set to 1\n");
    ASSERT_NE(log_file, nullptr);
    FILE *first = log_file;
    capture([] { print_line("one"); });
    // A second "true" opens nothing new: the file keeps its lines.
    set_and_capture("Log", "true");
    EXPECT_EQ(log_file, first);
    capture([] { print_line("two"); });
    EXPECT_EQ(set_and_capture("Log", "false"), "info string Log set to 0\n");
    EXPECT_EQ(settings.log, 0);
    EXPECT_EQ(log_file, first);
    capture([] { print_line("three"); });
    // The first "on" line printed before the log existed; the "off" line
    // printed while it was still on.
    EXPECT_EQ(read_file(path("quillon.log")),
              "one\ninfo string Log set to 1\ntwo\ninfo string Log set to 0\n");
    // On again: the same file goes on.
    set_and_capture("Log", "true");
    EXPECT_EQ(log_file, first);
    capture([] { print_line("four"); });
    EXPECT_EQ(read_file(path("quillon.log")),
              "one\ninfo string Log set to 1\ntwo\ninfo string Log set to "
              "0\nfour\n");
}

TEST_F(OptionsTest, ConfigFileSetsOptionsAndTakesTheSnapshot) {
    write_file(path("quillon.cfg"),
               "# Quillon settings\n"
               "\n"
               "   \n"
               "Contempt=20  # mine\n"
               "MultiPV   =   3\n"
               "Ponder = false\n"
               "OwnBook_File =   books/main.bin\n"
               "UCI_Elo = 99999 # above the top\n"
               "Selectivity\t=\t150\n"
               "contempt = 99\n"
               "Threads 4\n"
               "# Threads = 9\n"
               "Bogus = 1\n"
               "x=1\n"
               "=5\n"
               "OwnBook = true");
    std::string cfg = path("quillon.cfg");
    std::snprintf(settings.config_path, sizeof settings.config_path, "%s",
                  cfg.c_str());
    EXPECT_EQ(capture(load_config),
              "info string loading parameters from " + cfg +
                  "\n"
                  "info string Contempt set to 20\n"
                  "info string MultiPV set to 3\n"
                  "info string Ponder set to 0\n"
                  "info string OwnBook_File set to 'books/main.bin'\n"
                  "info string UCI_Elo set to 3300\n"
                  "info string Selectivity set to 150\n"
                  "info string OwnBook set to 1\n");
    EXPECT_EQ(settings.contempt, 20);
    EXPECT_EQ(settings.threads, 1);
    EXPECT_EQ(settings_snapshot.contempt, 20);
    EXPECT_EQ(settings_snapshot.multi_pv, 3);
    EXPECT_EQ(settings_snapshot.ponder, 0);
    EXPECT_EQ(settings_snapshot.elo, 3300);
    EXPECT_EQ(settings_snapshot.selectivity, 150);
    EXPECT_EQ(settings_snapshot.own_book, 1);
    EXPECT_STREQ(settings_snapshot.book_file, "books/main.bin");
}

TEST_F(OptionsTest, ValueKeepsItsTrailingBlanksAndLosesTheCarriageReturn) {
    // An empty net file: too short for a header, so no net is loaded.
    write_file(path("net.bin"), "");
    write_file(path("a.cfg"),
               "SyzygyPath = /tb   # tables\n"
               "NN_File = " +
                   path("net.bin") +
                   "\r\n"
                   "Contempt = 7\r\n"
                   "OwnBook2_File=b2.bin");
    std::string cfg = path("a.cfg");
    std::snprintf(settings.config_path, sizeof settings.config_path, "%s",
                  cfg.c_str());
    capture(load_config);
    EXPECT_STREQ(settings.syzygy_path, "/tb   ");
    EXPECT_EQ(settings.nn_file, path("net.bin"));
    EXPECT_EQ(settings.contempt, 7);
    EXPECT_STREQ(settings.book2_file, "b2.bin");
}

TEST_F(OptionsTest, OverlongConfigLinesAreCut) {
    std::string line = "OwnBook_File = " + std::string(300, 'a') + "\n";
    std::string name = std::string(150, 'N') + " = 3\n";
    write_file(path("long.cfg"), line + name + "Contempt = 4\n");
    std::string cfg = path("long.cfg");
    std::snprintf(settings.config_path, sizeof settings.config_path, "%s",
                  cfg.c_str());
    std::string out = capture(load_config);
    // 255 characters make the first line; the rest of it, without an "=",
    // is a line of its own and passed over.
    EXPECT_EQ(std::string(settings.book_file), std::string(143, 'a'));
    EXPECT_EQ(settings.contempt, 4);
    EXPECT_EQ(out, "info string loading parameters from " + cfg +
                       "\ninfo string OwnBook_File set to '" +
                       std::string(143, 'a') +
                       "'\ninfo string Contempt set to 4\n");
}

TEST_F(OptionsTest, ConfigFilePathChainsToAnotherFile) {
    std::string first = path("first.cfg");
    std::string second = path("second.cfg");
    write_file(first,
               "Contempt = 5\nConfigFilePath = " + second + "\nMultiPV = 2\n");
    write_file(second, "Contempt = 9\nUCI_Elo = 2000\n");
    EXPECT_EQ(set_and_capture("ConfigFilePath", first.c_str()),
              "info string ConfigFilePath set to '" + first +
                  "'\n"
                  "info string loading parameters from " +
                  first +
                  "\n"
                  "info string Contempt set to 5\n"
                  "info string ConfigFilePath set to '" +
                  second +
                  "'\n"
                  "info string loading parameters from " +
                  second +
                  "\n"
                  "info string Contempt set to 9\n"
                  "info string UCI_Elo set to 2000\n"
                  "info string MultiPV set to 2\n");
    EXPECT_EQ(settings.contempt, 9);
    EXPECT_EQ(settings.elo, 2000);
    EXPECT_EQ(settings.multi_pv, 2);
    EXPECT_STREQ(settings.config_path, second.c_str());
    EXPECT_EQ(settings_snapshot.multi_pv, 2);
}

TEST_F(OptionsTest, FilesThatNameEachOtherAreReadOnce) {
    std::string a = path("a.cfg");
    std::string b = path("b.cfg");
    write_file(a, "ConfigFilePath = " + b + "\nContempt = 1\n");
    write_file(b, "ConfigFilePath = " + a + "\nMultiPV = 6\n");
    std::string out = set_and_capture("ConfigFilePath", a.c_str());
    std::string loading = "info string loading parameters from ";
    EXPECT_EQ(out, "info string ConfigFilePath set to '" + a + "'\n" + loading +
                       a + "\ninfo string ConfigFilePath set to '" + b + "'\n" +
                       loading + b + "\ninfo string ConfigFilePath set to '" +
                       a +
                       "'\ninfo string MultiPV set to 6\n"
                       "info string Contempt set to 1\n");
    write_file(a, "ConfigFilePath = " + a + "\nContempt = 2\n");
    out = set_and_capture("ConfigFilePath", a.c_str());
    EXPECT_EQ(out, "info string ConfigFilePath set to '" + a + "'\n" + loading +
                       a + "\ninfo string ConfigFilePath set to '" + a +
                       "'\ninfo string Contempt set to 2\n");
    // The chain is left behind: the same file can be read again later.
    out = set_and_capture("ConfigFilePath", a.c_str());
    EXPECT_NE(out.find(loading + a), std::string::npos);
}

TEST_F(OptionsTest, MissingConfigFileIsSilent) {
    settings.contempt = 12;
    EXPECT_EQ(capture(load_config), "");
    std::string missing = path("nowhere/none.cfg");
    std::snprintf(settings.config_path, sizeof settings.config_path, "%s",
                  missing.c_str());
    EXPECT_EQ(capture(load_config), "");
    // Nothing was read, so no snapshot was taken.
    EXPECT_EQ(settings_snapshot.contempt, 0);
    EXPECT_EQ(set_and_capture("ConfigFilePath", missing.c_str()),
              "info string ConfigFilePath set to '" + missing + "'\n");
    EXPECT_EQ(settings.contempt, 12);
}

bool valid_text(const char *text, std::size_t size) {
    return std::memchr(text, 0, size) != nullptr;
}

// What every setting reachable by an option must satisfy, whatever the
// input was.
void expect_settings_in_range() {
    EXPECT_GE(settings.threads, 0);
    EXPECT_LE(settings.threads, 160);
    EXPECT_GE(settings.move_overhead, 0);
    EXPECT_LE(settings.move_overhead, 5000);
    EXPECT_LE(settings.ponder, 1);
    EXPECT_GE(settings.ponder, 0);
    EXPECT_GE(settings.contempt, -150);
    EXPECT_LE(settings.contempt, 150);
    EXPECT_GE(settings.selectivity, 0);
    EXPECT_LE(settings.selectivity, 200);
    EXPECT_GE(settings.multi_pv, 1);
    EXPECT_LE(settings.use_nn, 1);
    EXPECT_LE(settings.own_book, 1);
    EXPECT_LE(settings.book_variety, 100);
    EXPECT_GE(settings.book_depth, 0);
    EXPECT_LE(settings.book_depth, 60);
    EXPECT_GE(settings.book2_depth, 0);
    EXPECT_LE(settings.book2_depth, 60);
    EXPECT_LE(settings.log, 1);
    EXPECT_GE(settings.tb_probe_depth6, -5);
    EXPECT_LE(settings.tb_probe_depth6, 100);
    EXPECT_EQ(settings.tb_probe_depth7, settings.tb_probe_depth6 + 3);
    EXPECT_LE(settings.limit_strength, 1);
    // Elo and Hash keep their defaults until the option sets them.
    if (settings.elo != 0) {
        EXPECT_GE(settings.elo, 1500);
        EXPECT_LE(settings.elo, 3300);
    }
    EXPECT_LE(settings.chess960, 1);
    if (settings.hash_mb != 64) {
        EXPECT_GE(settings.hash_mb, 0);
        EXPECT_LE(settings.hash_mb, 3);
    }
    EXPECT_TRUE(valid_text(settings.nn_file, sizeof settings.nn_file));
    EXPECT_TRUE(valid_text(settings.config_path, sizeof settings.config_path));
    EXPECT_TRUE(valid_text(settings.book_file, sizeof settings.book_file));
    EXPECT_TRUE(valid_text(settings.book2_file, sizeof settings.book2_file));
    EXPECT_TRUE(valid_text(settings.syzygy_path, sizeof settings.syzygy_path));
    EXPECT_STREQ(settings.param_file, "params.txt");
}

const char *const NAMES[] = {
    "ConfigFilePath",
    "Hash",
    "Threads",
    "MoveOverhead",
    "Ponder",
    "Contempt",
    "Selectivity",
    "MultiPV",
    "NN_File",
    "Use_NN_eval",
    "OwnBook",
    "OwnBook_File",
    "OwnBook2_File",
    "OwnBook_Variety",
    "OwnBook_Depth",
    "OwnBook2_Depth",
    "Log",
    "Clear Hash",
    "SyzygyPath",
    "SyzygyProbeDepth6",
    "UCI_LimitStrength",
    "UCI_Elo",
    "UCI_Chess960",
    "UCI_ShowWDL",
};
constexpr int NAME_COUNT = sizeof NAMES / sizeof NAMES[0];

std::string random_bytes(std::mt19937 &rng, int length) {
    std::string s;
    for (int i = 0; i < length; i++)
        s.push_back(static_cast<char>(1 + rng() % 255));
    return s;
}

std::string random_number(std::mt19937 &rng) {
    static const char *const SHAPES[] = {"", "-", "+", " ", "  -", "0x"};
    std::string s = SHAPES[rng() % 6];
    int digits = static_cast<int>(rng() % 25);
    for (int i = 0; i < digits; i++)
        s.push_back(static_cast<char>('0' + rng() % 10));
    if (rng() % 3 == 0) s += random_bytes(rng, static_cast<int>(rng() % 6));
    return s;
}

// A name as a GUI or a file might garble it: whole, cut, lengthened,
// one character changed, or noise.
std::string random_name(std::mt19937 &rng) {
    std::string name = NAMES[rng() % NAME_COUNT];
    switch (rng() % 6) {
        case 0:
            name.resize(rng() % (name.size() + 1));
            break;
        case 1:
            name += random_bytes(rng, 1 + static_cast<int>(rng() % 4));
            break;
        case 2:
            name[rng() % name.size()] = static_cast<char>(1 + rng() % 255);
            break;
        case 3:
            name = random_bytes(rng, static_cast<int>(rng() % 140));
            break;
        default:
            break;
    }
    return name;
}

std::string random_value(std::mt19937 &rng, const std::string &name) {
    // Hash only ever reads a few megabytes here: the largest tables are
    // the business of their own test.
    if (name == "Hash") return std::to_string(rng() % 4) + "mb";
    switch (rng() % 5) {
        case 0:
            return random_number(rng);
        case 1:
            return random_bytes(rng, static_cast<int>(rng() % 201));
        case 2:
            return rng() % 2 ? "true" : "false";
        case 3:
            return "";
        default:
            return random_bytes(rng, static_cast<int>(rng() % 20)) + "true" +
                   random_number(rng);
    }
}

bool refused_while_searching(const std::string &name) {
    return name == "Hash" || name == "Threads" || name == "ConfigFilePath" ||
           name == "Clear Hash";
}

TEST_F(OptionsTest, RandomNamesAndValuesStayInRange) {
    std::mt19937 rng(20240611);
    // Clearing a table thousands of times tests nothing more than once.
    status.use_hash = 0;
    int printed = 0;
    for (int round = 0; round < 6000; round++) {
        std::string name = random_name(rng);
        std::string value = random_value(rng, name);
        bool busy = rng() % 4 == 0;
        // A net file that can't be opened ends the process: the loader's
        // own fuzzing covers bad names and files.
        if (name == "NN_File" && !busy) value = "embedded";
        store_state(busy ? STATE_THINKING : 0);
        std::string out =
            capture([&] { set_option(name.c_str(), value.c_str()); });
        store_state(0);
        // A text value may hold line ends of its own: only the start of
        // what was printed is sure.
        if (!out.empty()) {
            printed++;
            EXPECT_EQ(out.rfind("info string ", 0), 0u);
        }
        if (busy && refused_while_searching(name)) {
            EXPECT_EQ(out, "");
        }
        expect_settings_in_range();
        if (HasFailure()) {
            ADD_FAILURE() << "round " << round << ": "
                          << testing::PrintToString(name) << " = "
                          << testing::PrintToString(value);
            break;
        }
    }
    EXPECT_GT(printed, 1000);
    forget_network_reload();
}

// A line of a configuration file from pieces: option names, "=", blanks,
// comments, line ends of both kinds, chains to this file and to others,
// and noise.
std::string random_config_line(std::mt19937 &rng, const std::string &self,
                               const std::string &other) {
    std::string line;
    int pieces = static_cast<int>(rng() % 8);
    for (int i = 0; i < pieces; i++) {
        switch (rng() % 10) {
            case 0:
                line += random_name(rng);
                break;
            case 1:
                line += "=";
                break;
            case 2:
                line += std::string(rng() % 4, rng() % 2 ? ' ' : '\t');
                break;
            case 3:
                line += "#";
                break;
            case 4:
                line += random_number(rng);
                break;
            case 5:
                line += "ConfigFilePath = " + (rng() % 2 ? self : other);
                break;
            case 6:
                line += "\r";
                break;
            case 7:
                line += random_bytes(rng, static_cast<int>(rng() % 300));
                break;
            default:
                line += std::string(NAMES[rng() % NAME_COUNT]) + " = " +
                        random_value(rng, "");
                break;
        }
    }
    return line + (rng() % 8 ? "\n" : "");
}

// Any "Hash" in a file could become a name of its own where a long line is
// cut, and ask for a table of any size: the fuzzed files hold none (Clear
// Hash included, which the setter's own fuzzing covers).
std::string without_hash(std::string text) {
    for (std::size_t at = text.find("Hash"); at != std::string::npos;
         at = text.find("Hash", at))
        text[at + 1] = 'e';
    // Nor do they name a net: a file that can't be opened ends the
    // process, as the loader's own tests show.
    for (std::size_t at = text.find("NN_F"); at != std::string::npos;
         at = text.find("NN_F", at))
        text[at + 1] = 'x';
    return text;
}

TEST_F(OptionsTest, RandomConfigFilesStayInRange) {
    std::mt19937 rng(77);
    status.use_hash = 0;
    std::string self = path("fuzz.cfg");
    std::string other = path("other.cfg");
    std::string out;
    for (int round = 0; round < 400; round++) {
        std::string text;
        int lines = static_cast<int>(rng() % 30);
        for (int i = 0; i < lines; i++)
            text += random_config_line(rng, self, other);
        if (round % 5 == 0)
            text = random_bytes(rng, static_cast<int>(rng() % 4000));
        write_file(self, without_hash(text));
        write_file(other, without_hash(random_config_line(rng, self, other) +
                                       random_config_line(rng, self, other)));
        std::snprintf(settings.config_path, sizeof settings.config_path, "%s",
                      self.c_str());
        out += capture(load_config);
        expect_settings_in_range();
        if (HasFailure()) {
            ADD_FAILURE() << "round " << round;
            break;
        }
    }
    EXPECT_NE(out.find("info string loading parameters from"),
              std::string::npos);
}

// The largest table no machine here can hold: the address space of the
// child that runs this is capped, so the allocation fails everywhere.
// Standard output goes to the error stream, which the death test reads.
void set_largest_hash_without_memory() {
    std::fflush(stdout);
    dup2(2, 1);
    long pages = 0;
    if (FILE *f = std::fopen("/proc/self/statm", "r")) {
        if (std::fscanf(f, "%ld", &pages) != 1) pages = 0;
        std::fclose(f);
    }
    rlimit cap{};
    getrlimit(RLIMIT_AS, &cap);
    cap.rlim_cur =
        static_cast<rlim_t>(pages) * sysconf(_SC_PAGESIZE) + (rlim_t{1} << 30);
    setrlimit(RLIMIT_AS, &cap);
    store_state(0);
    set_option("Hash", "99999");
    std::fprintf(stderr, "a table of %d MB was allocated\n", settings.hash_mb);
    std::_Exit(0);
}

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr bool SANITIZED = true;
#elif defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer)
constexpr bool SANITIZED = true;
#else
constexpr bool SANITIZED = false;
#endif
#else
constexpr bool SANITIZED = false;
#endif

bool ended_by_failed_table(int how) {
    // A sanitizer's allocator reports the failed allocation and ends the
    // process itself, before the setter sees a null pointer.
    if (SANITIZED) return !(WIFEXITED(how) && WEXITSTATUS(how) == 0);
    return WIFEXITED(how) && WEXITSTATUS(how) == 255;
}

TEST(OptionsDeathTest, HashAboveTheTopIsTheTopAndAFailedTableEndsTheProcess) {
    EXPECT_EXIT(set_largest_hash_without_memory(), ended_by_failed_table,
                "info string Hash set to 32768");
}

}  // namespace
