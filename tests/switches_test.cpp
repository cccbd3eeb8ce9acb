// The command line: switch by switch, the order of the tests within a
// round, values missing at the end, the hash shrink, and random lines.
#include "frontend/switches.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "test_support.h"

namespace {

// Every test starts from the defaults and leaves the globals as it found
// them.
struct SwitchesTest : testing::Test {
    EngineSettings saved_settings;
    u8 saved_use_hash;
    f32 saved_target_nps;

    void SetUp() override {
        saved_settings = settings;
        saved_use_hash = status.use_hash;
        saved_target_nps = status.target_nps;
        set_default_settings();
        status.use_hash = 1;
        status.target_nps = 0.0f;
    }
    void TearDown() override {
        settings = saved_settings;
        status.use_hash = saved_use_hash;
        status.target_nps = saved_target_nps;
    }
};

// Runs the reader on "quillon" and the given words.  The argument array has
// exactly argc entries and no terminating null, so that AddressSanitizer
// sees any read past the end of the line.
SwitchOutcome read_line(const std::vector<std::string> &words) {
    int argc = static_cast<int>(words.size()) + 1;
    std::unique_ptr<const char *[]> argv(new const char *[argc]);
    argv[0] = "quillon";
    for (size_t i = 0; i < words.size(); i++) argv[i + 1] = words[i].c_str();
    return read_switches(argc, argv.get());
}

SwitchOutcome read_ok(const std::vector<std::string> &words) {
    SwitchOutcome out = read_line(words);
    EXPECT_EQ(out.exit_code, -1);
    return out;
}

TEST_F(SwitchesTest, DefaultsAreTheDocumentedOnes) {
    EXPECT_EQ(settings.quit, 0);
    EXPECT_EQ(settings.noise, 0.0f);
    EXPECT_FLOAT_EQ(settings.learn_rate, 0.002f);
    EXPECT_EQ(settings.tune_positions, 500000000);
    EXPECT_EQ(settings.mini_batch, 40000);
    EXPECT_STREQ(settings.input_file, "");
    EXPECT_STREQ(settings.output_file, "");
    EXPECT_EQ(settings.uci_mode, 1);
    EXPECT_EQ(settings.max_nodes, 0u);
    EXPECT_EQ(settings.max_depth, 80);
    EXPECT_EQ(settings.level_moves, 1);
    EXPECT_EQ(settings.level_time, 5.0f);
    EXPECT_EQ(settings.level_inc, 0.0f);
    EXPECT_EQ(settings.hash_mb, 64);
    EXPECT_EQ(settings.threads, 1);
    EXPECT_EQ(settings.use_nn, 1);
    EXPECT_EQ(settings.move_overhead, 50);
    EXPECT_EQ(settings.ponder, 1);
    EXPECT_EQ(settings.chess960, 0);
    EXPECT_EQ(settings.multi_pv, 1);
    EXPECT_EQ(settings.limit_strength, 0);
    EXPECT_EQ(settings.elo, 0);
    EXPECT_EQ(settings.log, 0);
    EXPECT_EQ(settings.own_book, 0);
    EXPECT_EQ(settings.book_variety, 25);
    EXPECT_EQ(settings.book_depth, 24);
    EXPECT_EQ(settings.book2_depth, 0);
    EXPECT_STREQ(settings.param_file, "params.txt");
    EXPECT_STREQ(settings.nn_file, "embedded");
    EXPECT_STREQ(settings.config_path, "");
    EXPECT_STREQ(settings.syzygy_path, "");
    EXPECT_EQ(settings.tb_probe_depth_low, 0);
    EXPECT_EQ(settings.tb_probe_depth6, 1);
    EXPECT_EQ(settings.tb_probe_depth7, 4);
    EXPECT_EQ(settings.contempt, 0);
    EXPECT_EQ(settings.selectivity, 100);
    EXPECT_EQ(settings.sep_depth, 3);
    EXPECT_EQ(settings.nmp_depth, 3);
    EXPECT_EQ(settings.fp_depth, 3);
    EXPECT_EQ(settings.lmp_depth, 6);
    EXPECT_EQ(settings.lmr_depth, 3);
}

TEST_F(SwitchesTest, DefaultsForgetEarlierChangesAndSnapshotCopies) {
    settings.hash_mb = 7;
    std::strcpy(settings.book_file, "x.bin");
    set_default_settings();
    EXPECT_EQ(settings.hash_mb, 64);
    EXPECT_STREQ(settings.book_file, "");
    EngineSettings saved_snapshot = settings_snapshot;
    settings.contempt = 33;
    take_settings_snapshot();
    EXPECT_EQ(settings_snapshot.contempt, 33);
    settings_snapshot = saved_snapshot;
}

TEST_F(SwitchesTest, DefaultStatusIsTheStartUpOne) {
    status.use_hash = 0;
    status.age = 9;
    status.clock[0] = status.clock[1] = 0.5f;
    status.target_nps = 77.0f;
    status.throttle = 1;
    status.target_time = 3.0f;
    store_state(STATE_THINKING);
    store_stop(1);
    set_default_status();
    EXPECT_EQ(status.use_hash, 1);
    EXPECT_EQ(load_state(), 0);
    EXPECT_EQ(status.age, 0);
    EXPECT_EQ(status.clock[0], 5.0f);
    EXPECT_EQ(status.clock[1], 5.0f);
    EXPECT_EQ(load_stop(), 0);
    EXPECT_EQ(status.target_nps, 0.0f);
    EXPECT_EQ(status.throttle, 0);
    EXPECT_EQ(status.target_time, 1.0f);
}

TEST_F(SwitchesTest, EmptyLineIsTheThinkCycle) {
    const char *argv[] = {"quillon"};
    SwitchOutcome out = read_switches(1, argv);
    EXPECT_EQ(out.mode, MODE_THINK);
    EXPECT_EQ(out.exit_code, -1);
    EXPECT_EQ(out.bench_inline, 0);
    EXPECT_EQ(settings.uci_mode, 1);
}

TEST_F(SwitchesTest, LastDialectSwitchWins) {
    read_ok({"-c", "-uci"});
    EXPECT_EQ(settings.uci_mode, 1);
    read_ok({"-uci", "-c"});
    EXPECT_EQ(settings.uci_mode, 0);
}

TEST_F(SwitchesTest, UnknownWordsAreIgnored) {
    SwitchOutcome out = read_ok({"foo", "-C", "--c", "uci", "17"});
    EXPECT_EQ(out.mode, MODE_THINK);
    EXPECT_EQ(settings.uci_mode, 1);
    EXPECT_EQ(settings.hash_mb, 64);
    EXPECT_STREQ(settings.config_path, "");
}

TEST_F(SwitchesTest, FlagSwitches) {
    read_ok({"-log", "-numa", "-noise", "2.5", "-use_hce"});
    EXPECT_EQ(settings.log, 1);
    EXPECT_EQ(settings.numa, 1);
    EXPECT_EQ(settings.noise, 2.5f);
    EXPECT_EQ(settings.use_nn, 0);
    read_ok({"-quiet", "-use_nn"});
    EXPECT_EQ(settings.noise, 9999.0f);
    EXPECT_EQ(settings.log, 0);
    EXPECT_EQ(settings.use_nn, 1);
}

TEST_F(SwitchesTest, DepthSetsFixedDepthLevel) {
    settings.level_moves = 40;
    read_ok({"-d", "12"});
    EXPECT_EQ(settings.max_depth, 12);
    EXPECT_EQ(settings.level_moves, 1);
    EXPECT_EQ(settings.level_time, 10000.0f);
}

TEST_F(SwitchesTest, DepthIsCappedAsASignedByte) {
    read_ok({"-d", "81"});
    EXPECT_EQ(settings.max_depth, 80);
    read_ok({"-d", "336"});  // 336 is 80 as a byte
    EXPECT_EQ(settings.max_depth, 80);
    read_ok({"-d", "200"});  // -56 as a byte, under the cap
    EXPECT_EQ(settings.max_depth, -56);
    read_ok({"-d", "abc"});
    EXPECT_EQ(settings.max_depth, 0);
}

TEST_F(SwitchesTest, TimeAndNodeLevels) {
    settings.level_moves = 40;
    read_ok({"-t", "3.5"});
    EXPECT_EQ(settings.level_moves, 1);
    EXPECT_EQ(settings.level_time, 3.5f);
    settings.level_moves = 40;
    read_ok({"-n", "100000"});
    EXPECT_EQ(settings.level_moves, 1);
    EXPECT_EQ(settings.level_time, 1000.0f);
    EXPECT_EQ(settings.max_nodes, 100000u);
    read_ok({"-n", "5000000000"});
    EXPECT_EQ(settings.max_nodes, 5000000000u);
}

TEST_F(SwitchesTest, OddNumbersReadSafely) {
    read_ok({"-t", "nan"});
    EXPECT_EQ(settings.level_time, 0.0f);
    read_ok({"-t", "1e50"});
    EXPECT_TRUE(std::isinf(settings.level_time));
    EXPECT_GT(settings.level_time, 0.0f);
    read_ok({"-noise", "-1e50"});
    EXPECT_TRUE(std::isinf(settings.noise));
    EXPECT_LT(settings.noise, 0.0f);
    read_ok({"-hash", "99999999999999999999"});
    EXPECT_EQ(settings.hash_mb, 32768);
    read_ok({"-threads", "-99999999999999999999"});
    EXPECT_EQ(settings.threads, 1);
    read_ok({"-d", "  7xyz"});
    EXPECT_EQ(settings.max_depth, 7);
}

TEST_F(SwitchesTest, NpsKeepsTheTargetSpeed) {
    read_ok({"-nps", "100000"});
    EXPECT_EQ(status.target_nps, 100000.0f);
    EXPECT_EQ(settings.elo, 2914);
    EXPECT_EQ(settings.limit_strength, 1);
}

TEST_F(SwitchesTest, HashIsClamped) {
    read_ok({"-hash", "99999"});
    EXPECT_EQ(settings.hash_mb, 32768);
    read_ok({"-hash", "-5"});
    EXPECT_EQ(settings.hash_mb, 0);
    read_ok({"-hash", "512"});
    EXPECT_EQ(settings.hash_mb, 512);
}

TEST_F(SwitchesTest, ThreadsAreClamped) {
    read_ok({"-threads", "0"});
    EXPECT_EQ(settings.threads, 1);
    read_ok({"-threads", "-3"});
    EXPECT_EQ(settings.threads, 1);
    read_ok({"-threads", "161"});
    EXPECT_EQ(settings.threads, 160);
    read_ok({"-threads", "8"});
    EXPECT_EQ(settings.threads, 8);
}

TEST_F(SwitchesTest, MultiPvIsAByteWithoutClamp) {
    read_ok({"-mpv", "300"});
    EXPECT_EQ(settings.multi_pv, 44);
    read_ok({"-mpv", "0"});
    EXPECT_EQ(settings.multi_pv, 0);
    read_ok({"-mpv", "255"});
    EXPECT_EQ(settings.multi_pv, 255);
}

TEST_F(SwitchesTest, FileSwitches) {
    read_ok({"-cfg", "my.cfg", "-book", "b.bin", "-tbpath", "/tb", "-o",
             "out.epd"});
    EXPECT_STREQ(settings.config_path, "my.cfg");
    EXPECT_STREQ(settings.book_file, "b.bin");
    EXPECT_STREQ(settings.syzygy_path, "/tb");
    EXPECT_STREQ(settings.output_file, "out.epd");
    read_ok({"-tbx"});
    EXPECT_STREQ(settings.syzygy_path,
                 "C:\\Chess\\Syzygy;C:\\Chess\\Syzygy\\6-Piece;"
                 "C:\\Chess\\Syzygy\\7-Piece");
}

TEST_F(SwitchesTest, LongTextsAreCutToTheirLimits) {
    std::string long_text(300, 'p');
    read_ok({"-cfg", long_text, "-book", long_text, "-tbpath", long_text, "-o",
             long_text});
    EXPECT_EQ(std::strlen(settings.config_path), 143u);
    EXPECT_EQ(std::strlen(settings.book_file), 143u);
    EXPECT_EQ(std::strlen(settings.syzygy_path), 143u);
    EXPECT_EQ(std::strlen(settings.output_file), 139u);
    read_ok({"-anepd", long_text, "-scan_pgn", long_text});
    EXPECT_EQ(std::strlen(settings.input_file), 139u);
    EXPECT_EQ(std::strlen(settings.input_file2), 139u);
    read_ok({"-mkbook2", long_text, "-mkbook", long_text});
    EXPECT_EQ(std::strlen(settings.input_file), 140u);
    EXPECT_EQ(std::strlen(settings.input_file2), 140u);
    // A shorter text after a longer one ends where it should.
    read_ok({"-cfg", "a.cfg"});
    EXPECT_STREQ(settings.config_path, "a.cfg");
}

TEST_F(SwitchesTest, ValueThatSpellsALaterSwitchActsAsIt) {
    SwitchOutcome out = read_ok({"-o", "-bench"});
    EXPECT_STREQ(settings.output_file, "-bench");
    EXPECT_EQ(out.mode, MODE_BENCH);
    // The value chain goes on: -cfg takes "-d", which takes "9".
    read_ok({"-cfg", "-d", "9"});
    EXPECT_STREQ(settings.config_path, "-d");
    EXPECT_EQ(settings.max_depth, 9);
}

TEST_F(SwitchesTest, ValueThatSpellsAnEarlierSwitchIsOnlyAValue) {
    // -c is tested before -cfg: its value "-c" comes too late to act, and
    // the round's step goes past it.
    read_ok({"-cfg", "-c"});
    EXPECT_STREQ(settings.config_path, "-c");
    EXPECT_EQ(settings.uci_mode, 1);
    // -c is tested before -mkbook, so in this round it is too late.
    SwitchOutcome out = read_ok({"-mkbook", "-c"});
    EXPECT_EQ(out.mode, MODE_MAKE_BOOK);
    EXPECT_STREQ(settings.input_file2, "-c");
    EXPECT_EQ(settings.uci_mode, 1);
}

TEST_F(SwitchesTest, MissingValuesAtTheEndReadAsEmpty) {
    std::strcpy(settings.config_path, "old");
    read_ok({"-cfg"});
    EXPECT_STREQ(settings.config_path, "");
    read_ok({"-d"});
    EXPECT_EQ(settings.max_depth, 0);
    read_ok({"-hash"});
    EXPECT_EQ(settings.hash_mb, 0);
    read_ok({"-threads"});
    EXPECT_EQ(settings.threads, 1);
    read_ok({"-mpv"});
    EXPECT_EQ(settings.multi_pv, 0);
    read_ok({"-t"});
    EXPECT_EQ(settings.level_time, 0.0f);
    SwitchOutcome out = read_ok({"-anepd"});
    EXPECT_EQ(out.mode, MODE_ANALYSE_EPD);
    EXPECT_STREQ(settings.input_file, "");
    for (const char *word :
         {"-noise", "-n", "-nps", "-book", "-tbpath", "-o", "-scan_pgn2",
          "-mkbook", "-mktune1", "-epd2bin", "-lr", "-mbatch"})
        read_ok({"-c", word});
}

// "bench" as the first word: the benchmark with its closing line, at its
// own depth unless -d names one up to 50; elsewhere the word is ignored.
TEST_F(SwitchesTest, TheBareWordBenchFirstRunsTheShortBenchmark) {
    SwitchOutcome out = read_ok({"bench"});
    EXPECT_EQ(out.mode, MODE_BENCH);
    EXPECT_EQ(out.bench_summary, 1);
    EXPECT_EQ(out.bench_inline, 0);
    EXPECT_EQ(settings.max_depth, BENCH_WORD_DEPTH);

    settings.max_depth = 80;
    out = read_ok({"bench", "-d", "9", "-threads", "2"});
    EXPECT_EQ(out.mode, MODE_BENCH);
    EXPECT_EQ(out.bench_summary, 1);
    EXPECT_EQ(settings.max_depth, 9);
    EXPECT_EQ(settings.threads, 2);

    settings.max_depth = 80;
    out = read_ok({"bench", "-d", "70"});
    EXPECT_EQ(settings.max_depth, BENCH_WORD_DEPTH);

    // A later mode switch wins, and then the depth is left alone.
    settings.max_depth = 80;
    out = read_ok({"bench", "-mkconfig"});
    EXPECT_EQ(out.mode, MODE_CONFIG_ONLY);
    EXPECT_EQ(out.bench_summary, 0);
    EXPECT_EQ(settings.max_depth, 80);

    // Not first, or not the exact word: an unknown argument, ignored.
    for (const std::vector<std::string> &line :
         std::vector<std::vector<std::string>>{
             {"-c", "bench"}, {"Bench"}, {"bench2"}, {"-bench"}}) {
        settings.max_depth = 80;
        out = read_ok(line);
        EXPECT_EQ(out.bench_summary, 0) << line[0];
        EXPECT_EQ(settings.max_depth, 80) << line[0];
    }
    EXPECT_EQ(read_ok({"-c", "bench"}).mode, MODE_THINK);
}

TEST_F(SwitchesTest, RunModesAndTheLastOneWins) {
    EXPECT_EQ(read_ok({"-bench"}).mode, MODE_BENCH);
    EXPECT_EQ(read_ok({"-bench"}).bench_inline, 0);
    SwitchOutcome p = read_ok({"-pbench"});
    EXPECT_EQ(p.mode, MODE_BENCH);
    EXPECT_EQ(p.bench_inline, 1);
    EXPECT_EQ(read_ok({"-mkconfig"}).mode, MODE_CONFIG_ONLY);
    EXPECT_EQ(read_ok({"-bench", "-mkconfig"}).mode, MODE_CONFIG_ONLY);
    EXPECT_EQ(read_ok({"-mkconfig", "-bench"}).mode, MODE_BENCH);
    EXPECT_EQ(read_ok({"-mkbook", "g.pgn"}).mode, MODE_MAKE_BOOK);
    EXPECT_STREQ(settings.input_file2, "g.pgn");
    EXPECT_EQ(read_ok({"-mktune1", "a"}).mode, MODE_TRAIN_POSITIONS1);
    EXPECT_STREQ(settings.input_file, "a");
    EXPECT_EQ(read_ok({"-mktune2", "b"}).mode, MODE_TRAIN_POSITIONS2);
    EXPECT_STREQ(settings.input_file, "b");
    EXPECT_EQ(read_ok({"-epd2bin", "c"}).mode, MODE_EPD_TO_BIN);
    EXPECT_STREQ(settings.input_file, "c");
    EXPECT_EQ(read_ok({"-prune_nn"}).mode, MODE_PRUNE_NN);
    EXPECT_STREQ(settings.input_file, "tune/recent.bin");
    EXPECT_EQ(read_ok({"-prune_nn", "r.bin"}).mode, MODE_PRUNE_NN);
    EXPECT_STREQ(settings.input_file, "r.bin");
    // A switch after it is a switch, not the records' file.
    EXPECT_EQ(read_ok({"-prune_nn", "-d", "3"}).mode, MODE_PRUNE_NN);
    EXPECT_STREQ(settings.input_file, "tune/recent.bin");
    EXPECT_EQ(settings.max_depth, 3);
}

TEST_F(SwitchesTest, AnalyseEpdSilencesTheSearch) {
    SwitchOutcome out = read_ok({"-anepd", "x.epd"});
    EXPECT_EQ(out.mode, MODE_ANALYSE_EPD);
    EXPECT_STREQ(settings.input_file, "x.epd");
    EXPECT_EQ(settings.noise, 9999.0f);
}

TEST_F(SwitchesTest, ScanPgnMatchesTheWordInsideTheArgument) {
    SwitchOutcome out = read_ok({"-scan_pgn", "g.pgn"});
    EXPECT_EQ(out.mode, MODE_THINK);
    EXPECT_STREQ(settings.input_file2, "g.pgn");
    for (int k = 1; k <= 4; k++) {
        std::string word = "-scan_pgn" + std::to_string(k);
        EXPECT_EQ(read_ok({word, "g.pgn"}).mode, 2 + k);
    }
    EXPECT_EQ(read_ok({"x-scan_pgn2y", "h.pgn"}).mode, 4);
    EXPECT_STREQ(settings.input_file2, "h.pgn");
    // Without a digit 1 .. 4 the mode stays as it was.
    EXPECT_EQ(read_ok({"-bench", "-scan_pgn", "g.pgn"}).mode, MODE_BENCH);
    EXPECT_EQ(read_ok({"-bench", "-scan_pgn5", "g.pgn"}).mode, MODE_BENCH);
    // The value is only the file: the scan test is behind it already.
    EXPECT_EQ(read_ok({"-scan_pgn", "-scan_pgn3"}).mode, MODE_THINK);
    EXPECT_STREQ(settings.input_file2, "-scan_pgn3");
}

TEST_F(SwitchesTest, MkBook2AloneEndsWithOne) {
    EXPECT_EQ(read_line({"-mkbook2"}).exit_code, 1);
    SwitchOutcome out = read_ok({"-mkbook2", "lines.epd"});
    EXPECT_EQ(out.mode, MODE_MULTI_PASS_EPD);
    EXPECT_STREQ(settings.input_file, "lines.epd");
    // Only the whole line's length is checked: the value may still be
    // missing.
    out = read_ok({"-c", "-mkbook2"});
    EXPECT_EQ(out.mode, MODE_MULTI_PASS_EPD);
    EXPECT_STREQ(settings.input_file, "");
}

TEST_F(SwitchesTest, MkTrainDataKeepsItsCount) {
    EXPECT_EQ(read_line({"-mktraindata"}).exit_code, 1);
    SwitchOutcome out = read_ok({"-mktraindata", "t.epd", "5"});
    EXPECT_EQ(out.mode, MODE_MAKE_TRAIN_DATA);
    EXPECT_STREQ(settings.input_file, "t.epd");
    EXPECT_EQ(settings.tune_positions, 5000000);
    read_ok({"-mktraindata", "t.epd", "500"});
    EXPECT_EQ(settings.tune_positions, 100000000);
    read_ok({"-mktraindata", "t.epd", "1e30"});
    EXPECT_EQ(settings.tune_positions, 100000000);
    out = read_ok({"-c", "-mktraindata"});
    EXPECT_EQ(out.mode, MODE_MAKE_TRAIN_DATA);
    EXPECT_EQ(settings.tune_positions, 0);
}

TEST_F(SwitchesTest, TuneReadsFileCountAndFlag) {
    SwitchOutcome out = read_ok({"-tune", "a.epd", "5"});
    EXPECT_EQ(out.mode, MODE_TUNE);
    EXPECT_STREQ(settings.input_file, "a.epd");
    EXPECT_EQ(settings.tune_positions, 5000000);
    EXPECT_EQ(settings.hash_mb, 0);
    EXPECT_STREQ(settings.syzygy_path,
                 "C:\\Chess\\Syzygy;C:\\Chess\\Syzygy\\6-Piece");
    out = read_ok({"-tune2", "a.epd", "2.5", "1"});
    EXPECT_EQ(out.mode, MODE_TUNE2);
    EXPECT_EQ(settings.tune_positions, 2500000);
}

TEST_F(SwitchesTest, TuneFlagIsConsumedOnlyWhenItLooksLikeOne) {
    // "-c" after the count is the next switch.
    read_ok({"-tune", "a.epd", "5", "-c"});
    EXPECT_EQ(settings.uci_mode, 0);
    settings.uci_mode = 1;
    // "1" is the flag, dropped; "-c" after it is read.
    read_ok({"-tune", "a.epd", "5", "1", "-c"});
    EXPECT_EQ(settings.uci_mode, 0);
    // "0-c" begins with 0: it is the flag, and nothing reads the rest.
    settings.uci_mode = 1;
    read_ok({"-tune", "a.epd", "5", "0-c", "-uci"});
    EXPECT_EQ(settings.uci_mode, 1);
    // "extra" is read as a switch (and ignored); the mode stays.
    EXPECT_EQ(read_ok({"-tune", "a.epd", "5", "extra"}).mode, MODE_TUNE);
}

TEST_F(SwitchesTest, TuneEndsWithOneWhenArgumentsAreShort) {
    EXPECT_EQ(read_line({"-tune"}).exit_code, 1);
    EXPECT_EQ(read_line({"-tune", "a.epd"}).exit_code, 1);
    EXPECT_EQ(read_line({"-c", "-tune", "a.epd"}).exit_code, 1);
    EXPECT_EQ(read_line({"-tune", "a.epd", "0"}).exit_code, 1);
    EXPECT_EQ(read_line({"-tune2", "a.epd", "0.9999"}).exit_code, 1);
    EXPECT_EQ(read_line({"-tune", "a.epd", "nan"}).exit_code, 1);
    EXPECT_EQ(read_line({"-tune", "a.epd", "-3"}).exit_code, 1);
    // A line that ends early stops reading: the -c behind is never seen.
    settings.uci_mode = 1;
    read_line({"-tune", "a.epd", "0", "-c"});
    EXPECT_EQ(settings.uci_mode, 1);
}

TEST_F(SwitchesTest, TuneCountSaturates) {
    read_ok({"-tune", "a.epd", "1e12"});
    EXPECT_EQ(settings.tune_positions, INT32_MAX);
}

TEST_F(SwitchesTest, LearnRateAndBatchReadTheNextArgumentInPlace) {
    read_ok({"-lr", "0.5"});
    EXPECT_EQ(settings.learn_rate, 0.5f);
    read_ok({"-mbatch", "100"});
    EXPECT_EQ(settings.mini_batch, 100);
    // The value is read again as the next round's switch.
    read_ok({"-lr", "-c"});
    EXPECT_EQ(settings.learn_rate, 0.0f);
    EXPECT_EQ(settings.uci_mode, 0);
    settings.uci_mode = 1;
    read_ok({"-mbatch", "-c"});
    EXPECT_EQ(settings.mini_batch, 0);
    EXPECT_EQ(settings.uci_mode, 0);
    // A value that spells -lr makes the round's string -lr as well.
    read_ok({"-cfg", "-lr", "0.25"});
    EXPECT_STREQ(settings.config_path, "-lr");
    EXPECT_EQ(settings.learn_rate, 0.25f);
    read_ok({"-mbatch"});
    EXPECT_EQ(settings.mini_batch, 0);
}

TEST_F(SwitchesTest, HashShrinkCandidates) {
    EXPECT_EQ(hash_shrink_candidate(-56, 0), 1);
    EXPECT_EQ(hash_shrink_candidate(7, 0), 1);
    EXPECT_EQ(hash_shrink_candidate(8, 0), 2);
    EXPECT_EQ(hash_shrink_candidate(10, 0), 8);
    EXPECT_EQ(hash_shrink_candidate(12, 0), 32);
    EXPECT_EQ(hash_shrink_candidate(13, 0), 0);
    EXPECT_EQ(hash_shrink_candidate(80, 0), 0);
    // A node limit decides over the depth.
    EXPECT_EQ(hash_shrink_candidate(80, 32000), 1);
    EXPECT_EQ(hash_shrink_candidate(5, 32001), 2);
    EXPECT_EQ(hash_shrink_candidate(80, 100000), 4);
    EXPECT_EQ(hash_shrink_candidate(80, 1024000), 32);
    EXPECT_EQ(hash_shrink_candidate(80, 1024001), 64);
    EXPECT_EQ(hash_shrink_candidate(80, ~0ull), 64);
}

TEST_F(SwitchesTest, SmallDepthShrinksTheHashToOneMegabyte) {
    read_ok({"-d", "5", "-hash", "512"});
    shrink_hash_for_small_search();
    EXPECT_EQ(settings.hash_mb, 1);
    EXPECT_EQ(status.use_hash, 1);
}

TEST_F(SwitchesTest, NodeLimitShrinksTheDefaultHashToFourMegabytes) {
    read_ok({"-n", "100000"});
    shrink_hash_for_small_search();
    EXPECT_EQ(settings.hash_mb, 4);
}

TEST_F(SwitchesTest, ShrinkNeverGrowsAndTurnsAnEmptyHashOff) {
    read_ok({"-d", "12", "-hash", "16"});
    shrink_hash_for_small_search();
    EXPECT_EQ(settings.hash_mb, 16);
    // No candidate and no size: the hash is off.
    set_default_settings();
    read_ok({"-hash", "0"});
    shrink_hash_for_small_search();
    EXPECT_EQ(settings.hash_mb, 0);
    EXPECT_EQ(status.use_hash, 0);
    // With a candidate a size of 0 stays, and the hash stays on.
    status.use_hash = 1;
    set_default_settings();
    read_ok({"-d", "5", "-hash", "0"});
    shrink_hash_for_small_search();
    EXPECT_EQ(settings.hash_mb, 0);
    EXPECT_EQ(status.use_hash, 1);
    // No limits: nothing changes.
    set_default_settings();
    read_ok({"-d", "80", "-hash", "128"});
    shrink_hash_for_small_search();
    EXPECT_EQ(settings.hash_mb, 128);
    EXPECT_EQ(status.use_hash, 1);
}

// Random lines from switch words, numbers, random bytes and empty strings.
std::string random_word(std::mt19937 &rng) {
    static const char *const words[] = {"-uci",
                                        "-c",
                                        "-log",
                                        "-numa",
                                        "-noise",
                                        "-quiet",
                                        "-cfg",
                                        "-d",
                                        "-t",
                                        "-n",
                                        "-nps",
                                        "-hash",
                                        "-threads",
                                        "-book",
                                        "-tbpath",
                                        "-tbx",
                                        "-use_hce",
                                        "-use_nn",
                                        "-o",
                                        "-mpv",
                                        "-anepd",
                                        "-scan_pgn",
                                        "-scan_pgn1",
                                        "-scan_pgn4",
                                        "-scan_pgn9",
                                        "-bench",
                                        "-pbench",
                                        "-mkconfig",
                                        "-mkbook",
                                        "-mkbook2",
                                        "-mktune1",
                                        "-mktune2",
                                        "-epd2bin",
                                        "-prune_nn",
                                        "-mktraindata",
                                        "-tune",
                                        "-tune2",
                                        "-lr",
                                        "-mbatch",
                                        "nan",
                                        "inf",
                                        "-inf",
                                        "1e39",
                                        "0x1p200",
                                        "0",
                                        "1",
                                        "-1",
                                        "2147483648",
                                        "99999999999999999999"};
    constexpr int word_count = sizeof words / sizeof words[0];
    switch (rng() % 6) {
        case 0:
        case 1:
        case 2:
            return words[rng() % word_count];
        case 3:
            return std::to_string(static_cast<int32_t>(rng()) >> (rng() % 32));
        case 4: {
            std::string s(rng() % 300, 'x');
            for (char &ch : s) ch = static_cast<char>(1 + rng() % 255);
            return s;
        }
        default:
            return "";
    }
}

void expect_sane_settings(const SwitchOutcome &out) {
    ASSERT_TRUE(out.exit_code == -1 || out.exit_code == 1);
    if (out.exit_code == -1) {
        static const int modes[] = {1,  2,  3,  4,  5,  6,  8,  9, 10,
                                    11, 12, 13, 14, 15, 16, 17, 18};
        bool known = false;
        for (int m : modes) known |= out.mode == m;
        EXPECT_TRUE(known) << out.mode;
    }
    EXPECT_LE(out.bench_inline, 1);
    EXPECT_LE(out.bench_summary, 1);
    if (out.bench_summary) {
        EXPECT_EQ(out.mode, MODE_BENCH);
    }
    EXPECT_GE(settings.hash_mb, 0);
    EXPECT_LE(settings.hash_mb, 32768);
    EXPECT_GE(settings.threads, 1);
    EXPECT_LE(settings.threads, 160);
    EXPECT_LE(settings.max_depth, 80);
    EXPECT_LE(settings.uci_mode, 1);
    EXPECT_LE(settings.use_nn, 1);
    EXPECT_LE(std::strlen(settings.config_path), 143u);
    EXPECT_LE(std::strlen(settings.book_file), 143u);
    EXPECT_LE(std::strlen(settings.syzygy_path), 143u);
    EXPECT_LE(std::strlen(settings.output_file), 139u);
    EXPECT_LE(std::strlen(settings.input_file), 140u);
    EXPECT_LE(std::strlen(settings.input_file2), 140u);
    EXPECT_FALSE(std::isnan(settings.noise));
    EXPECT_FALSE(std::isnan(settings.level_time));
    EXPECT_FALSE(std::isnan(settings.learn_rate));
    EXPECT_FALSE(std::isnan(status.target_nps));
}

TEST_F(SwitchesTest, RandomLinesNeverBreakTheReader) {
    std::mt19937 rng(20240611);
    for (int round = 0; round < 4000; round++) {
        std::vector<std::string> words(rng() % 12);
        for (std::string &w : words) w = random_word(rng);
        // Every fourth line leads with the framework's word "bench".
        if (round % 4 == 0) words.insert(words.begin(), "bench");
        set_default_settings();
        status.use_hash = 1;
        status.target_nps = 0.0f;
        SwitchOutcome out = read_line(words);
        expect_sane_settings(out);
        i32 before = settings.hash_mb;
        shrink_hash_for_small_search();
        EXPECT_LE(settings.hash_mb, before);
        EXPECT_TRUE(status.use_hash == 1 || settings.hash_mb == 0);
        if (HasFailure()) {
            std::string line;
            for (const std::string &w : words) line += "[" + w + "] ";
            FAIL() << "line: " << line;
        }
    }
}

}  // namespace
