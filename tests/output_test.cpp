// print_line, log_line and the log file: one file per run, pausing, a log
// held by another engine, a log that cannot be created, and many threads.
#include "core/output.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <set>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "test_support.h"

namespace {

std::string read_file(const std::string &path) {
    std::ifstream in(path, std::ios::binary);
    std::stringstream text;
    text << in.rdbuf();
    return text.str();
}

// Runs `body` with standard output sent to a file and returns what it
// wrote.
std::string capture_stdout(const std::function<void()> &body,
                           const std::string &dir) {
    std::string path = dir + "/captured_stdout";
    std::fflush(stdout);
    int saved = dup(1);
    int fd = open(path.c_str(), O_RDWR | O_CREAT | O_TRUNC, 0600);
    dup2(fd, 1);
    close(fd);
    body();
    std::fflush(stdout);
    dup2(saved, 1);
    close(saved);
    std::string text = read_file(path);
    unlink(path.c_str());
    return text;
}

// Each test works in a fresh temporary directory and gives back the working
// directory, the log flag and the log file as it found them.
struct OutputTest : testing::Test {
    std::string old_cwd;
    std::string dir;
    std::string scratch;  // outside the working directory, for captures
    u8 saved_log = 0;

    void SetUp() override {
        old_cwd = std::filesystem::current_path();
        char pattern[] = "/tmp/quillon_output_XXXXXX";
        ASSERT_NE(mkdtemp(pattern), nullptr);
        scratch = pattern;
        dir = scratch + "/work";
        std::filesystem::create_directory(dir);
        ASSERT_EQ(chdir(dir.c_str()), 0);
        ASSERT_EQ(log_file, nullptr);
        saved_log = settings.log;
    }
    void TearDown() override {
        close_log();
        settings.log = saved_log;
        ASSERT_EQ(chdir(old_cwd.c_str()), 0);
        std::filesystem::remove_all(scratch);
    }
    std::string capture(const std::function<void()> &body) {
        return capture_stdout(body, scratch);
    }
};

TEST_F(OutputTest, PrintLineEndsTheLine) {
    settings.log = 0;
    std::string out = capture([] {
        print_line("first");
        print_line("");
        print_line("third");
    });
    EXPECT_EQ(out, "first\n\nthird\n");
}

TEST_F(OutputTest, LogHoldsWhatTheScreenShowed) {
    settings.log = 1;
    open_log();
    ASSERT_NE(log_file, nullptr);
    std::string out = capture([] { print_line("info string one"); });
    EXPECT_EQ(out, "info string one\n");
    EXPECT_EQ(read_file("quillon.log"), "info string one\n");
}

TEST_F(OutputTest, LogLineWritesOnlyTheLog) {
    settings.log = 1;
    open_log();
    std::string out = capture([] { log_line("CMD: go"); });
    EXPECT_EQ(out, "");
    EXPECT_EQ(read_file("quillon.log"), "CMD: go\n");
    settings.log = 0;
    log_line("CMD: stop");
    EXPECT_EQ(read_file("quillon.log"), "CMD: go\n");
}

TEST_F(OutputTest, LogLineWithoutAFileDoesNothing) {
    settings.log = 1;
    log_line("nowhere");
    EXPECT_FALSE(std::filesystem::exists("quillon.log"));
}

TEST_F(OutputTest, OpeningTwiceKeepsOneFile) {
    settings.log = 1;
    open_log();
    FILE *first = log_file;
    capture([] { print_line("kept"); });
    open_log();
    EXPECT_EQ(log_file, first);
    capture([] { print_line("more"); });
    EXPECT_EQ(read_file("quillon.log"), "kept\nmore\n");
}

TEST_F(OutputTest, LogOffThenOnGoesOnInTheSameFile) {
    settings.log = 1;
    open_log();
    FILE *first = log_file;
    capture([] { print_line("a"); });
    settings.log = 0;
    std::string out = capture([] { print_line("b"); });
    EXPECT_EQ(out, "b\n");
    settings.log = 1;
    open_log();
    EXPECT_EQ(log_file, first);
    capture([] { print_line("c"); });
    EXPECT_EQ(read_file("quillon.log"), "a\nc\n");
}

TEST_F(OutputTest, EachRunReplacesTheOldLog) {
    std::ofstream("quillon.log") << "an old run\n";
    settings.log = 1;
    open_log();
    ASSERT_NE(log_file, nullptr);
    EXPECT_EQ(read_file("quillon.log"), "");
    capture([] { print_line("new run"); });
    EXPECT_EQ(read_file("quillon.log"), "new run\n");
}

TEST_F(OutputTest, LogInUseGivesOneMessageAndTurnsLoggingOff) {
    // A log that cannot be removed: on Linux an open file can be, so a
    // directory of that name stands in for another engine's log.
    std::filesystem::create_directories("quillon.log/held");
    settings.log = 1;
    std::string out = capture([] { open_log(); });
    EXPECT_EQ(out, "log file in use.\n");
    EXPECT_EQ(settings.log, 0);
    EXPECT_EQ(log_file, nullptr);
    EXPECT_TRUE(std::filesystem::is_directory("quillon.log/held"));
    out = capture([] { print_line("after"); });
    EXPECT_EQ(out, "after\n");
}

TEST_F(OutputTest, FailedOpenLeavesLoggingOnAndTriesAgain) {
    // A working directory that no longer exists: no file can be made.
    std::filesystem::create_directory("gone");
    ASSERT_EQ(chdir("gone"), 0);
    ASSERT_EQ(rmdir((dir + "/gone").c_str()), 0);
    settings.log = 1;
    std::string out = capture([] { open_log(); });
    EXPECT_EQ(out, "");
    EXPECT_EQ(log_file, nullptr);
    EXPECT_EQ(settings.log, 1);
    out = capture([] { print_line("screen only"); });
    EXPECT_EQ(out, "screen only\n");
    // Back in a real directory the next request opens the log.
    ASSERT_EQ(chdir(dir.c_str()), 0);
    open_log();
    ASSERT_NE(log_file, nullptr);
    capture([] { print_line("logged"); });
    EXPECT_EQ(read_file("quillon.log"), "logged\n");
}

TEST_F(OutputTest, CloseLogIsSafeTwice) {
    settings.log = 1;
    open_log();
    close_log();
    EXPECT_EQ(log_file, nullptr);
    close_log();
    EXPECT_EQ(log_file, nullptr);
}

TEST_F(OutputTest, LinesOfManyThreadsNeverMix) {
    settings.log = 1;
    open_log();
    constexpr int threads = 4;
    constexpr int lines = 300;
    std::string out = capture([] {
        std::vector<std::thread> pool;
        for (int t = 0; t < threads; t++)
            pool.emplace_back([t] {
                std::string text(120, static_cast<char>('a' + t));
                for (int i = 0; i < lines; i++) print_line(text.c_str());
            });
        for (std::thread &th : pool) th.join();
    });
    for (const std::string &text : {out, read_file("quillon.log")}) {
        std::istringstream in(text);
        std::string line;
        int count[threads] = {};
        while (std::getline(in, line)) {
            ASSERT_EQ(line.size(), 120u);
            ASSERT_GE(line[0], 'a');
            ASSERT_LT(line[0], 'a' + threads);
            ASSERT_EQ(line, std::string(120, line[0]));
            count[line[0] - 'a']++;
        }
        for (int c : count) EXPECT_EQ(c, lines);
    }
}

}  // namespace
