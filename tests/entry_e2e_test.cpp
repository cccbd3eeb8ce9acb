// The real binary from the outside: the greeting, the result codes, the
// log, and random command lines that must end cleanly.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <memory>
#include <random>
#include <sstream>
#include <string>
#include <vector>

#include "frontend/switches.h"
#include "test_support.h"

namespace {

constexpr const char *GREETING = "info string Hello from Quillon 6.50";
// Start-up reports the hash table it allocated, of `mb` megabytes, ...
std::string hash_line(int mb) {
    return "info string allocated " + std::to_string(mb) +
           " Mbytes for hash table\n";
}
// ... then, after the log is opened, the built-in net, when the build
// carries one.
std::string allocated(int mb) { return hash_line(mb) + embedded_net_line(); }
constexpr const char *TUNER_NOTICE = "Need to compile with 'make ttune'\n\n";

struct RunResult {
    int exit_code;  // -1 when the process did not end by itself
    std::string out;
    std::string err;
};

// In the child: wire the pipes, move to `dir` and start the engine.  Only
// async-signal-safe calls here; the argument array is built before fork.
[[noreturn]] void exec_engine(char *const *argv, const char *dir, int in_fd,
                              int out_fd, int err_fd, const char *exe) {
    dup2(in_fd, 0);
    dup2(out_fd, 1);
    dup2(err_fd, 2);
    if (chdir(dir) != 0) _exit(126);
    execv(exe, argv);
    _exit(127);
}

// Reads both pipes to their end, or until the time is up.
bool drain(int out_fd, int err_fd, RunResult &r, int seconds) {
    auto deadline =
        std::chrono::steady_clock::now() + std::chrono::seconds(seconds);
    pollfd fds[2] = {{out_fd, POLLIN, 0}, {err_fd, POLLIN, 0}};
    std::string *sinks[2] = {&r.out, &r.err};
    int open_count = 2;
    while (open_count > 0) {
        auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
            deadline - std::chrono::steady_clock::now());
        if (left.count() <= 0) return false;
        if (poll(fds, 2, static_cast<int>(left.count())) < 0) return false;
        for (int i = 0; i < 2; i++) {
            if (fds[i].fd < 0 || !(fds[i].revents & (POLLIN | POLLHUP)))
                continue;
            char buf[4096];
            ssize_t n = read(fds[i].fd, buf, sizeof buf);
            if (n > 0) {
                sinks[i]->append(buf, static_cast<size_t>(n));
            } else {
                fds[i].fd = -1;
                open_count--;
            }
        }
    }
    return true;
}

RunResult run_engine(const std::vector<std::string> &args,
                     const std::string &dir, const std::string &input = "",
                     const char *exe = QUILLON_EXE) {
    std::vector<char *> argv;
    argv.push_back(const_cast<char *>(exe));
    for (const std::string &a : args)
        argv.push_back(const_cast<char *>(a.c_str()));
    argv.push_back(nullptr);
    int in_pipe[2], out_pipe[2], err_pipe[2];
    RunResult r{-1, "", ""};
    if (pipe(in_pipe) || pipe(out_pipe) || pipe(err_pipe)) return r;
    pid_t pid = fork();
    if (pid == 0) {
        close(in_pipe[1]);
        close(out_pipe[0]);
        close(err_pipe[0]);
        exec_engine(argv.data(), dir.c_str(), in_pipe[0], out_pipe[1],
                    err_pipe[1], exe);
    }
    close(in_pipe[0]);
    close(out_pipe[1]);
    close(err_pipe[1]);
    // The engine may end before it reads; a closed pipe is no error here.
    void (*old_handler)(int) = signal(SIGPIPE, SIG_IGN);
    if (!input.empty()) {
        ssize_t written = write(in_pipe[1], input.data(), input.size());
        (void)written;
    }
    close(in_pipe[1]);
    signal(SIGPIPE, old_handler);
    bool ended = drain(out_pipe[0], err_pipe[0], r, 30);
    close(out_pipe[0]);
    close(err_pipe[0]);
    if (!ended) kill(pid, SIGKILL);
    int wstatus = 0;
    waitpid(pid, &wstatus, 0);
    if (ended && WIFEXITED(wstatus)) r.exit_code = WEXITSTATUS(wstatus);
    return r;
}

std::string first_line(const std::string &text) {
    return text.substr(0, text.find('\n'));
}

struct EntryTest : testing::Test {
    std::string dir;

    void SetUp() override {
        char pattern[] = "/tmp/quillon_entry_XXXXXX";
        ASSERT_NE(mkdtemp(pattern), nullptr);
        dir = pattern;
    }
    void TearDown() override { std::filesystem::remove_all(dir); }

    bool dir_is_empty() const {
        return std::filesystem::is_empty(std::filesystem::path(dir));
    }
    std::string file_text(const std::string &name) const {
        std::ifstream in(dir + "/" + name, std::ios::binary);
        std::stringstream text;
        text << in.rdbuf();
        return text.str();
    }
};

TEST_F(EntryTest, NoArgumentsGreetsFirstAndEndsCleanly) {
    RunResult r = run_engine({}, dir, "quit\n");
    EXPECT_EQ(r.exit_code, 0) << r.err;
    EXPECT_EQ(first_line(r.out), GREETING);
    EXPECT_EQ(r.err, "");
}

TEST_F(EntryTest, MkConfigStartsAndEndsWritingNoFile) {
    RunResult r = run_engine({"-mkconfig"}, dir);
    EXPECT_EQ(r.exit_code, 0) << r.err;
    EXPECT_EQ(r.out, std::string(GREETING) + "\n" + allocated(64));
    EXPECT_TRUE(dir_is_empty());
}

TEST_F(EntryTest, ConsoleGreetsInTheSameWords) {
    RunResult r = run_engine({"-c", "-mkconfig"}, dir);
    EXPECT_EQ(r.exit_code, 0) << r.err;
    EXPECT_EQ(first_line(r.out), GREETING);
}

TEST_F(EntryTest, MkBook2AloneEndsWithOneAndPrintsNothing) {
    RunResult r = run_engine({"-mkbook2"}, dir);
    EXPECT_EQ(r.exit_code, 1);
    EXPECT_EQ(r.out, "");
    EXPECT_EQ(r.err, "");
}

TEST_F(EntryTest, MkTrainDataAloneEndsWithOneAndPrintsNothing) {
    RunResult r = run_engine({"-mktraindata"}, dir);
    EXPECT_EQ(r.exit_code, 1);
    EXPECT_EQ(r.out, "");
}

TEST_F(EntryTest, TunerModesPrintTheNoticeAndEndWithOne) {
    for (const std::vector<std::string> &line :
         {std::vector<std::string>{"-tune", "a.epd", "5"},
          {"-tune2", "a.epd", "5", "1"},
          {"-tune", "a.epd", "5", "extra"},
          {"-mktraindata", "t.epd", "3"}}) {
        RunResult r = run_engine(line, dir);
        EXPECT_EQ(r.exit_code, 1) << line[0];
        EXPECT_EQ(r.out, TUNER_NOTICE) << line[0];
    }
    EXPECT_TRUE(dir_is_empty());
}

// The tuner build is the same engine: it starts and ends like it; -tune
// trains (here on a file that isn't there, so it has nothing to learn
// from), and the mode it does not carry yet ends with the engine's notice.
TEST_F(EntryTest, TunerBuildStartsLikeTheEngine) {
    RunResult r = run_engine({"-mkconfig"}, dir, "", QUILLON_TTUNE_EXE);
    EXPECT_EQ(r.exit_code, 0);
    EXPECT_EQ(r.out, std::string(GREETING) + "\n" + allocated(64));
    // Nothing to train on: a failure.
    RunResult t =
        run_engine({"-tune", "a.bin", "5"}, dir, "", QUILLON_TTUNE_EXE);
    EXPECT_EQ(t.exit_code, 1);
    EXPECT_EQ(t.out, std::string(GREETING) + "\n" + allocated(0) +
                         "can't read a.bin\nno training positions\n");
    t = run_engine({"-tune2", "a.epd", "5", "1"}, dir, "", QUILLON_TTUNE_EXE);
    EXPECT_EQ(t.exit_code, 1);
    EXPECT_EQ(t.out, TUNER_NOTICE);
}

// "default" names the generator's data folder for the trainer too.
TEST_F(EntryTest, TrainerReadsTheDefaultDataFolder) {
    std::string cache = dir + "/cache";
    std::filesystem::create_directories(cache + "/quillon/data");
    std::ofstream(cache + "/quillon/data/empty.bin");
    const char *old = std::getenv("XDG_CACHE_HOME");
    std::string saved = old ? old : "";
    setenv("XDG_CACHE_HOME", cache.c_str(), 1);
    RunResult t =
        run_engine({"-tune", "default", "5"}, dir, "", QUILLON_TTUNE_EXE);
    if (old)
        setenv("XDG_CACHE_HOME", saved.c_str(), 1);
    else
        unsetenv("XDG_CACHE_HOME");
    EXPECT_EQ(t.exit_code, 1);
    EXPECT_EQ(t.out, std::string(GREETING) + "\n" + allocated(0) +
                         "no training positions\n");
}

TEST_F(EntryTest, ShortTuneLinesEndWithOneAndNoNotice) {
    for (const std::vector<std::string> &line :
         {std::vector<std::string>{"-tune", "a.epd", "0"},
          {"-tune", "a.epd"},
          {"-c", "-tune", "a.epd"}}) {
        RunResult r = run_engine(line, dir);
        EXPECT_EQ(r.exit_code, 1);
        EXPECT_EQ(r.out, "");
    }
}

TEST_F(EntryTest, MissingValuesAtTheEndOfTheLine) {
    for (const char *word :
         {"-cfg", "-d", "-t", "-n", "-nps", "-hash", "-threads", "-book",
          "-tbpath", "-o", "-mpv", "-noise", "-lr", "-mbatch"}) {
        RunResult r = run_engine({"-mkconfig", word}, dir);
        EXPECT_EQ(r.exit_code, 0) << word << r.err;
        // A missing depth reads as 0 and shrinks the table to 1 MB; a
        // missing size reads as 0 MB.
        int mb = std::string(word) == "-d"      ? 1
                 : std::string(word) == "-hash" ? 0
                                                : 64;
        // A missing speed reads as 0, which the Elo model cannot rate.
        std::string elo = std::string(word) == "-nps" ? "Elo= 0\n" : "";
        EXPECT_EQ(r.out, elo + GREETING + "\n" + allocated(mb)) << word;
    }
}

TEST_F(EntryTest, SpeedLimitPrintsItsEloBeforeTheGreeting) {
    RunResult r = run_engine({"-nps", "100000", "-mkconfig"}, dir);
    EXPECT_EQ(r.exit_code, 0) << r.err;
    EXPECT_EQ(r.out,
              std::string("Elo= 2914\n") + GREETING + "\n" + allocated(64));
}

TEST_F(EntryTest, LogSwitchReplacesTheOldLog) {
    std::ofstream(dir + "/quillon.log") << "an old run\n";
    RunResult r = run_engine({"-log", "-mkconfig"}, dir);
    EXPECT_EQ(r.exit_code, 0) << r.err;
    // The greeting and the hash table come before the log is opened, the
    // net's line after it.
    EXPECT_EQ(r.out, std::string(GREETING) + "\n" + allocated(64));
    EXPECT_TRUE(std::filesystem::is_regular_file(dir + "/quillon.log"));
    EXPECT_EQ(file_text("quillon.log"), embedded_net_line());
}

TEST_F(EntryTest, LogInUseRunsWithoutALog) {
    std::filesystem::create_directories(dir + "/quillon.log/held");
    RunResult r = run_engine({"-log", "-mkconfig"}, dir);
    EXPECT_EQ(r.exit_code, 0) << r.err;
    EXPECT_EQ(r.out, std::string(GREETING) + "\n" + hash_line(64) +
                         "log file in use.\n" + embedded_net_line());
}

TEST_F(EntryTest, QuietWinsOverAnEarlierLog) {
    RunResult r = run_engine({"-log", "-quiet", "-mkconfig"}, dir);
    EXPECT_EQ(r.exit_code, 0) << r.err;
    EXPECT_TRUE(dir_is_empty());
}

// What the reader, run in this process, says the binary must do.
struct Expected {
    int exit_code;
    bool greets;
    bool notice;
};

Expected predict(const std::vector<std::string> &args) {
    EngineSettings saved = settings;
    f32 saved_nps = status.target_nps;
    set_default_settings();
    std::vector<const char *> argv{"quillon"};
    for (const std::string &a : args) argv.push_back(a.c_str());
    SwitchOutcome out =
        read_switches(static_cast<int>(argv.size()), argv.data());
    bool tuner = out.mode >= MODE_TUNE && out.mode <= MODE_MAKE_TRAIN_DATA;
    settings = saved;
    status.target_nps = saved_nps;
    if (out.exit_code >= 0) return {out.exit_code, false, false};
    if (tuner) return {1, false, true};
    return {0, true, false};
}

std::string random_arg(std::mt19937 &rng) {
    static const char *const words[] = {
        "-uci",       "-c",       "-log",      "-quiet",      "-cfg",
        "-d",         "-t",       "-n",        "-nps",        "-hash",
        "-threads",   "-mpv",     "-o",        "-book",       "-tbpath",
        "-scan_pgn2", "-anepd",   "-bench",    "-lr",         "-mbatch",
        "-tune",      "-tune2",   "-mkbook",   "-mkbook2",    "-numa",
        "-use_hce",   "-epd2bin", "-prune_nn", "-mktraindata"};
    constexpr int word_count = sizeof words / sizeof words[0];
    switch (rng() % 5) {
        case 0:
        case 1:
            return words[rng() % word_count];
        case 2:
            return std::to_string(static_cast<int32_t>(rng()) >> (rng() % 32));
        case 3: {
            std::string s(rng() % 200, 'x');
            for (char &ch : s) ch = static_cast<char>(1 + rng() % 255);
            return s;
        }
        default:
            return "";
    }
}

// Each -nps on the line prints its Elo while the switches are read; the
// lines after them are what the line's mode decides.
std::string after_elo_lines(const std::string &out) {
    size_t at = 0;
    while (out.compare(at, 5, "Elo= ") == 0) {
        size_t end = out.find('\n', at);
        if (end == std::string::npos) return "";
        at = end + 1;
    }
    return out.substr(at);
}

TEST_F(EntryTest, RandomLinesEndingInMkConfigEndCleanly) {
    std::mt19937 rng(777);
    for (int round = 0; round < 30; round++) {
        std::vector<std::string> args(rng() % 8);
        for (std::string &a : args) a = random_arg(rng);
        // Twice: a switch before may take the first one as its value.
        args.push_back("-mkconfig");
        args.push_back("-mkconfig");
        Expected want = predict(args);
        RunResult r = run_engine(args, dir);
        std::string line;
        for (const std::string &a : args) line += "[" + a + "] ";
        ASSERT_EQ(r.exit_code, want.exit_code) << line << r.err;
        EXPECT_EQ(r.err, "") << line;
        std::string out = after_elo_lines(r.out);
        if (want.greets) {
            EXPECT_EQ(first_line(out), GREETING) << line;
        } else if (want.notice) {
            EXPECT_EQ(out, TUNER_NOTICE) << line;
        } else {
            EXPECT_EQ(out, "") << line;
        }
    }
}

}  // namespace
