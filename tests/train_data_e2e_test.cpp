// The generator run of the tuner build from the outside: a run killed and
// started again ends with every finished game exactly once, byte for byte
// the files of a run never interrupted; the engine build only gives its
// notice.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <thread>
#include <vector>

namespace fs = std::filesystem;

namespace {

class TrainDataRun : public testing::Test {
protected:
    fs::path dir;
    void SetUp() override {
        char pattern[] = "/tmp/quillon_traindata_XXXXXX";
        ASSERT_NE(mkdtemp(pattern), nullptr);
        dir = pattern;
    }
    void TearDown() override {
        std::error_code ec;
        fs::remove_all(dir, ec);
    }

    // The generator's command line for the folder `name` under dir.
    std::vector<std::string> line(const std::string &name) const {
        return {QUILLON_TTUNE_EXE,
                "-mktraindata",
                (dir / name).string(),
                "0.0006",
                "-n",
                "200",
                "-threads",
                "2",
                "-seed",
                "5",
                "-use_hce",
                "-quiet"};
    }

    pid_t start(const std::vector<std::string> &args) const {
        std::vector<char *> argv;
        for (const std::string &a : args)
            argv.push_back(const_cast<char *>(a.c_str()));
        argv.push_back(nullptr);
        pid_t pid = fork();
        if (pid == 0) {
            int null = open("/dev/null", O_WRONLY);
            dup2(null, 1);
            execv(argv[0], argv.data());
            _exit(127);
        }
        return pid;
    }

    int run(const std::vector<std::string> &args) const {
        pid_t pid = start(args);
        int status = 0;
        waitpid(pid, &status, 0);
        return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    }
};

std::string contents(const fs::path &p) {
    std::ifstream in(p, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), {});
}

// Games finished so far, by the state files.
long games_in(const fs::path &folder) {
    long total = 0;
    std::error_code ec;
    for (const auto &e : fs::directory_iterator(folder, ec)) {
        if (e.path().extension() != ".state") continue;
        std::string text = contents(e.path());
        total += std::atol(text.c_str() + 6);
    }
    return total;
}

TEST_F(TrainDataRun, AKilledRunResumesWithEveryGameExactlyOnce) {
    ASSERT_EQ(run(line("whole")), 0);
    // The same run, killed once some games are written.
    pid_t pid = start(line("killed"));
    auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(60);
    while (games_in(dir / "killed") < 3 &&
           std::chrono::steady_clock::now() < deadline)
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    kill(pid, SIGKILL);
    waitpid(pid, nullptr, 0);
    // The game processes die with it; give them a moment.
    std::this_thread::sleep_for(std::chrono::milliseconds(300));
    long before = games_in(dir / "killed");
    EXPECT_GE(before, 3);
    // A game cut short in the middle of its records.
    fs::path half = dir / "killed" / "selfplay-s5-n200-t2-w0.bin";
    {
        std::ofstream junk(half, std::ios::binary | std::ios::app);
        junk << std::string(100, 'x');
    }
    ASSERT_EQ(run(line("killed")), 0);
    std::vector<std::string> names;
    for (const auto &e : fs::directory_iterator(dir / "whole"))
        names.push_back(e.path().filename().string());
    EXPECT_EQ(names.size(), 4u);  // two data files, two state files
    for (const std::string &name : names) {
        std::string a = contents(dir / "whole" / name);
        EXPECT_FALSE(a.empty()) << name;
        EXPECT_EQ(a, contents(dir / "killed" / name)) << name;
    }
    // A finished run started again adds nothing.
    std::string data = contents(half);
    ASSERT_EQ(run(line("killed")), 0);
    EXPECT_EQ(contents(half), data);
}

TEST_F(TrainDataRun, OtherSeedsAndThreadCountsWriteFilesOfTheirOwn) {
    std::vector<std::string> a = line("data");
    ASSERT_EQ(run(a), 0);
    std::vector<std::string> b = a;
    b[3] = "0.0002";
    b[7] = "1";  // threads
    b[9] = "6";  // seed
    ASSERT_EQ(run(b), 0);
    long files = 0;
    for (const auto &e : fs::directory_iterator(dir / "data")) {
        (void)e;
        files++;
    }
    EXPECT_EQ(files, 6);
    std::string one = contents(dir / "data" / "selfplay-s6-n200-t1-w0.bin");
    EXPECT_EQ(one.size() % 40, 0u);
    EXPECT_GE(one.size(), 200u * 40);
}

// Games labelled by the built-in net go to files named by the net, beside
// the hand-written evaluation's, which stay what a run alone writes.
TEST_F(TrainDataRun, NetLabelledGamesWriteFilesOfTheirOwn) {
    std::vector<std::string> hce = line("alone");
    hce[3] = "0.0002";
    ASSERT_EQ(run(hce), 0);
    std::vector<std::string> nn = line("both");
    nn[3] = "0.0002";
    nn[10] = "-use_nn";
    ASSERT_EQ(run(nn), 0);
    hce[2] = (dir / "both").string();
    ASSERT_EQ(run(hce), 0);
    std::vector<std::string> tagged;
    for (const auto &e : fs::directory_iterator(dir / "both")) {
        std::string name = e.path().filename().string();
        if (name.find("-nn") != std::string::npos) tagged.push_back(name);
    }
    ASSERT_EQ(tagged.size(), 4u);
    std::sort(tagged.begin(), tagged.end());
    const std::string stem = "selfplay-s5-n200-t2-nn";
    ASSERT_EQ(tagged[0].rfind(stem, 0), 0u) << tagged[0];
    std::string tag = tagged[0].substr(stem.size(), 8);
    EXPECT_EQ(tag.find_first_not_of("0123456789abcdef"), std::string::npos);
    EXPECT_NE(tag, "00000000");
    EXPECT_EQ(tagged[0], stem + tag + "-w0.bin");
    EXPECT_EQ(tagged[2], stem + tag + "-w1.bin");
    std::string net_games = contents(dir / "both" / tagged[0]);
    EXPECT_GE(net_games.size(), 100u * 40);
    for (const char *name :
         {"selfplay-s5-n200-t2-w0.bin", "selfplay-s5-n200-t2-w1.bin"}) {
        std::string a = contents(dir / "alone" / name);
        EXPECT_FALSE(a.empty()) << name;
        EXPECT_EQ(a, contents(dir / "both" / name)) << name;
        EXPECT_NE(a, net_games) << name;
    }
}

// A net-labelled run started in another second writes the same games: the
// net's noise comes from each game's seed, not from the clock.
TEST_F(TrainDataRun, NetLabelledRunsRepeatInAnotherProcess) {
    std::vector<std::string> nn = line("first");
    nn[3] = "0.0002";
    nn[10] = "-use_nn";
    ASSERT_EQ(run(nn), 0);
    std::this_thread::sleep_for(std::chrono::milliseconds(1100));
    nn[2] = (dir / "second").string();
    ASSERT_EQ(run(nn), 0);
    int files = 0;
    for (const auto &e : fs::directory_iterator(dir / "first")) {
        std::string name = e.path().filename().string();
        std::string a = contents(e.path());
        EXPECT_FALSE(a.empty()) << name;
        EXPECT_EQ(a, contents(dir / "second" / name)) << name;
        files++;
    }
    EXPECT_EQ(files, 4);
}

TEST_F(TrainDataRun, TheEngineBuildOnlyGivesItsNotice) {
    std::vector<std::string> args = line("none");
    args[0] = QUILLON_EXE;
    EXPECT_EQ(run(args), 1);
    EXPECT_FALSE(fs::exists(dir / "none"));
}

}  // namespace
