// The generator run: one game process per thread, each appending whole
// games to its own file, with a small state file that makes a killed run
// resume where it stood, and the progress read from those state files.
#include "train_data.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cinttypes>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "core/output.h"
#include "eval/network.h"
#include "search/search.h"
#include "search/time_control.h"

// How far one game process has come.  `bytes` is the length of its data
// file after its last whole game; anything beyond is a game cut short.
struct WorkerState {
    u64 games;
    u64 positions;
    u64 bytes;
};

struct RunFiles {
    char data[420];
    char state[420];
};

void data_folder(const char *name, char *out, int size) {
    if (name && name[0] && std::strcmp(name, "default") != 0) {
        std::snprintf(out, size, "%s", name);
        return;
    }
    const char *cache = std::getenv("XDG_CACHE_HOME");
    const char *home = std::getenv("HOME");
    if (cache && cache[0])
        std::snprintf(out, size, "%s/quillon/data", cache);
    else
        std::snprintf(out, size, "%s/.cache/quillon/data",
                      home && home[0] ? home : ".");
}

// Creates every missing folder on the path; false if one can't be made.
static bool make_folders(const char *path) {
    char partial[400];
    std::snprintf(partial, sizeof partial, "%s", path);
    for (char *p = partial + 1;; p++) {
        if (*p != '/' && *p != 0) continue;
        char kept = *p;
        *p = 0;
        if (mkdir(partial, 0755) != 0 && errno != EEXIST) return false;
        *p = kept;
        if (!kept) return true;
    }
}

// A checksum of the loaded net's weights when the net evaluates, 0 when
// the hand-written evaluation does: the games of different evaluators go
// to different files, so a folder holds both and a run resumes only its
// own.
static u32 labelling_net_tag() {
    if (!settings.use_nn || !network_ready()) return 0;
    // FNV-1a over the working weights, whatever file they came from.
    u32 h = 2166136261u;
    for (i32 i = 0; i < network.weight_count; i++) {
        h ^= static_cast<u16>(network.storage[i]);
        h *= 16777619u;
    }
    return h ? h : 1;
}

// The hand-written evaluation's files keep the plain name; a net's carry
// its tag: selfplay-s1-n2500-t2-nn1a2b3c4d-w0.bin.
static RunFiles run_files(const char *folder, const SelfPlaySettings &s,
                          int threads, int k) {
    RunFiles f;
    char tag[16] = "";
    if (s.net_tag) std::snprintf(tag, sizeof tag, "-nn%08x", s.net_tag);
    char stem[400];
    std::snprintf(stem, sizeof stem,
                  "%s/selfplay-s%" PRIu64 "-n%" PRIu64 "-t%d%s-w%d", folder,
                  s.seed, s.nodes, threads, tag, k);
    std::snprintf(f.data, sizeof f.data, "%s.bin", stem);
    std::snprintf(f.state, sizeof f.state, "%s.state", stem);
    return f;
}

static WorkerState read_state(const char *path) {
    WorkerState st{0, 0, 0};
    FILE *in = std::fopen(path, "r");
    if (!in) return st;
    u64 g = 0, p = 0, b = 0;
    if (std::fscanf(in,
                    "games %" SCNu64 " positions %" SCNu64 " bytes %" SCNu64,
                    &g, &p, &b) == 3 &&
        b == p * sizeof(TrainRecord))
        st = {g, p, b};
    std::fclose(in);
    return st;
}

// Written beside and renamed over, so a kill leaves the old or the new.
static bool write_state(const char *path, const WorkerState &st) {
    char tmp[440];
    std::snprintf(tmp, sizeof tmp, "%s.tmp", path);
    FILE *out = std::fopen(tmp, "w");
    if (!out) return false;
    std::fprintf(out,
                 "games %" PRIu64 " positions %" PRIu64 " bytes %" PRIu64 "\n",
                 st.games, st.positions, st.bytes);
    bool ok = std::fclose(out) == 0;
    return ok && std::rename(tmp, path) == 0;
}

static bool write_all(int fd, const void *data, size_t size) {
    const char *p = static_cast<const char *>(data);
    while (size > 0) {
        ssize_t n = write(fd, p, size);
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) return false;
        p += n;
        size -= static_cast<size_t>(n);
    }
    return true;
}

// One game process: games k, k + threads, k + 2 threads, ... until its
// share of the positions is made.  Returns the exit status.
static int run_worker(const char *folder, const SelfPlaySettings &s,
                      int threads, int k, u64 share) {
    RunFiles f = run_files(folder, s, threads, k);
    WorkerState st = read_state(f.state);
    int fd = open(f.data, O_WRONLY | O_CREAT, 0644);
    if (fd < 0) return 1;
    // Drop the records of a game cut short by a kill.
    if (ftruncate(fd, static_cast<off_t>(st.bytes)) != 0 ||
        lseek(fd, 0, SEEK_END) < 0) {
        close(fd);
        return 1;
    }
    std::vector<TrainRecord> records;
    while (st.positions < share) {
        records.clear();
        play_game(s, k + st.games * threads, records);
        size_t size = records.size() * sizeof(TrainRecord);
        if (!write_all(fd, records.data(), size)) break;
        st.games++;
        st.positions += records.size();
        st.bytes += size;
        if (!write_state(f.state, st)) break;
    }
    close(fd);
    return st.positions >= share ? 0 : 1;
}

static WorkerState total_state(const char *folder, const SelfPlaySettings &s,
                               int threads) {
    WorkerState sum{0, 0, 0};
    for (int k = 0; k < threads; k++) {
        WorkerState st = read_state(run_files(folder, s, threads, k).state);
        sum.games += st.games;
        sum.positions += st.positions;
        sum.bytes += st.bytes;
    }
    return sum;
}

static void print_progress_line(const WorkerState &now, u64 start_positions,
                                u64 target, double seconds) {
    double made = static_cast<double>(now.positions - start_positions);
    double rate = seconds > 0 ? made / seconds : 0;
    double left = now.positions >= target ? 0
                  : rate > 0
                      ? static_cast<double>(target - now.positions) / rate
                      : -1;
    char text[200];
    std::snprintf(text, sizeof text,
                  "games %" PRIu64 ", positions %" PRIu64
                  ", %.0f positions/s, %.0f s left",
                  now.games, now.positions, rate, left);
    print_line(text);
}

// The tuner's own switches, which the engine's reader passes over.
static void read_tuner_switches(int argc, char **argv, SelfPlaySettings &s) {
    for (int i = 1; i + 1 < argc; i++) {
        if (std::strcmp(argv[i], "-seed") == 0)
            s.seed = std::strtoull(argv[i + 1], nullptr, 10);
        if (std::strcmp(argv[i], "-openings") == 0) s.openings = argv[i + 1];
    }
}

// Waits for the game processes, printing the progress every 30 seconds
// and at the end; the number of them that did not end with status 0.
static int wait_for_games(std::vector<pid_t> &children, const char *folder,
                          const SelfPlaySettings &s, int threads,
                          u64 start_positions, u64 target) {
    double started = clock_now(), last_print = started;
    size_t running = children.size();
    int failed = 0;
    while (running > 0) {
        sleep_milliseconds(200);
        for (pid_t &pid : children) {
            int wstatus = 0;
            if (pid <= 0 || waitpid(pid, &wstatus, WNOHANG) != pid) continue;
            if (!WIFEXITED(wstatus) || WEXITSTATUS(wstatus) != 0) failed++;
            pid = 0;
            running--;
        }
        double now = clock_now();
        if (now - last_print >= 30.0 || running == 0) {
            print_progress_line(total_state(folder, s, threads),
                                start_positions, target, now - started);
            last_print = now;
        }
    }
    return failed;
}

bool make_train_data(int argc, char **argv) {
    SelfPlaySettings s = default_self_play();
    read_tuner_switches(argc, argv, s);
    if (settings.max_nodes) s.nodes = settings.max_nodes;
    s.net_tag = labelling_net_tag();
    int threads = settings.threads < 1 ? 1 : settings.threads;
    u64 target = settings.tune_positions > 0
                     ? static_cast<u64>(settings.tune_positions)
                     : 0;
    char folder[300];
    data_folder(settings.input_file, folder, sizeof folder);
    if (!make_folders(folder)) {
        print_line("can't create the data folder");
        settings.quit = 1;
        return false;
    }
    char text[500], labels[32] = "hand-written evaluation";
    if (s.net_tag) std::snprintf(labels, sizeof labels, "net %08x", s.net_tag);
    std::snprintf(text, sizeof text,
                  "self-play into %s: %d threads, %" PRIu64
                  " nodes a move, seed %" PRIu64 ", %s, %" PRIu64 " positions",
                  folder, threads, s.nodes, s.seed, labels, target);
    print_line(text);
    WorkerState start = total_state(folder, s, threads);
    std::vector<pid_t> children;
    pid_t parent = getpid();
    int failed = 0;
    for (int k = 0; k < threads; k++) {
        u64 share = target / threads + (static_cast<u64>(k) < target % threads);
        pid_t pid = fork();
        if (pid == 0) {
            // A game process dies with the run that started it.
            prctl(PR_SET_PDEATHSIG, SIGKILL);
            if (getppid() != parent) _exit(1);
            _exit(run_worker(folder, s, threads, k, share));
        }
        if (pid > 0)
            children.push_back(pid);
        else
            failed++;  // its share is not made
    }
    failed +=
        wait_for_games(children, folder, s, threads, start.positions, target);
    if (failed) {
        std::snprintf(text, sizeof text,
                      "%d of %d game processes failed: their shares are "
                      "not complete",
                      failed, threads);
        print_line(text);
    }
    settings.quit = 1;
    return failed == 0;
}
