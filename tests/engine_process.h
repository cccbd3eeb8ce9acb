// The real binary on three pipes, for the end-to-end tests: start it,
// write lines, and read until the answer a test waits for.
#pragma once

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <functional>
#include <optional>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "test_support.h"

using Clock = std::chrono::steady_clock;
using Predicate = std::function<bool(const std::string &)>;

inline constexpr const char *GREETING = "info string Hello from Quillon 6.50";
inline constexpr const char *CALIBRATION_PREFIX = "info string et= ";

inline bool starts_with(const std::string &s, const std::string &prefix) {
    return s.compare(0, prefix.size(), prefix) == 0;
}

inline Predicate line_is(const std::string &text) {
    return [text](const std::string &l) { return l == text; };
}

inline Predicate line_starts(const std::string &prefix) {
    return [prefix](const std::string &l) { return starts_with(l, prefix); };
}

inline const Predicate is_bestmove = line_starts("bestmove ");

// "bestmove e2e4 ponder e7e5" gives "e2e4".
inline std::string best_of(const std::string &line) {
    std::istringstream in(line);
    std::string word, move;
    in >> word >> move;
    return move;
}

// The number behind `word` in an info line, -1 without it.
inline long long info_field(const std::string &line, const std::string &word) {
    std::istringstream in(line);
    std::string w;
    while (in >> w)
        if (w == word) {
            long long v = -1;
            in >> v;
            return v;
        }
    return -1;
}

inline int count_matching(const std::vector<std::string> &lines,
                          const Predicate &p) {
    int n = 0;
    for (const std::string &l : lines) n += p(l) ? 1 : 0;
    return n;
}

inline std::string joined(const std::vector<std::string> &lines) {
    std::string text;
    for (const std::string &l : lines) text += "  | " + l + "\n";
    return text;
}

// The legal moves of `fen` as the engine writes them, from the move
// generator linked into the tests (the perft suites vouch for it).
inline std::set<std::string> legal_texts(const char *fen,
                                         bool chess960 = false) {
    u8 saved_960 = settings.chess960;
    u8 saved_mode = settings.uci_mode;
    settings.chess960 = chess960 ? 1 : 0;
    settings.uci_mode = 1;
    Position &pos = test_position(fen);
    Move moves[MAX_MOVES];
    int n = legal_moves(pos, moves);
    std::set<std::string> texts;
    for (int i = 0; i < n; i++) {
        char text[MOVE_TEXT_SIZE];
        coord_text(pos, pos.side, moves[i], text);
        texts.insert(text);
    }
    settings.chess960 = saved_960;
    settings.uci_mode = saved_mode;
    return texts;
}

// Whether a "bestmove" line names a legal move of `fen`.
inline bool answers_legally(const std::string &bestmove_line, const char *fen,
                            bool chess960 = false) {
    return legal_texts(fen, chess960).count(best_of(bestmove_line)) == 1;
}

// One engine process on three pipes.  Lines read from its standard output
// are kept in order; a read cursor marks how far a test has looked.  The
// destructor kills and reaps a child that is still there, so a failed
// assertion never leaves an engine behind.
class Engine {
public:
    Engine() = default;
    Engine(const Engine &) = delete;
    Engine &operator=(const Engine &) = delete;
    ~Engine() { kill_and_reap(); }

    // Starts the binary (the engine unless `exe` names another) in `dir`
    // and waits for the calibration line, the last line of the start-up.
    bool start(const std::vector<std::string> &args, const std::string &dir,
               bool wait_for_calibration = true,
               const char *exe = QUILLON_EXE) {
        // A write to an engine that has ended must fail, not kill us.
        signal(SIGPIPE, SIG_IGN);
        std::vector<char *> argv;
        argv.push_back(const_cast<char *>(exe));
        for (const std::string &a : args)
            argv.push_back(const_cast<char *>(a.c_str()));
        argv.push_back(nullptr);
        int in_pipe[2], out_pipe[2], err_pipe[2];
        if (pipe2(in_pipe, O_CLOEXEC)) return false;
        if (pipe2(out_pipe, O_CLOEXEC)) return false;
        if (pipe2(err_pipe, O_CLOEXEC)) return false;
        pid_ = fork();
        if (pid_ < 0) return false;
        if (pid_ == 0) {
            dup2(in_pipe[0], 0);
            dup2(out_pipe[1], 1);
            dup2(err_pipe[1], 2);
            if (chdir(dir.c_str()) != 0) _exit(126);
            execv(exe, argv.data());
            _exit(127);
        }
        close(in_pipe[0]);
        close(out_pipe[1]);
        close(err_pipe[1]);
        in_fd_ = in_pipe[1];
        out_fd_ = out_pipe[0];
        err_fd_ = err_pipe[0];
        if (!wait_for_calibration) return true;
        return wait_for(line_starts(CALIBRATION_PREFIX), 10000).has_value();
    }

    void send(const std::string &line) { send_raw(line + "\n"); }

    void send_raw(const std::string &bytes) {
        size_t done = 0;
        while (in_fd_ >= 0 && done < bytes.size()) {
            ssize_t n = write(in_fd_, bytes.data() + done, bytes.size() - done);
            if (n <= 0) break;
            done += static_cast<size_t>(n);
        }
    }

    void close_input() {
        if (in_fd_ >= 0) close(in_fd_);
        in_fd_ = -1;
    }

    // The next line past the cursor that `match` accepts, waiting up to
    // `ms` for it; the cursor moves past it.  Lines passed over on the way
    // go to `passed` when given.  Nothing found leaves the cursor at the
    // end of what came.
    std::optional<std::string> wait_for(
        const Predicate &match, int ms,
        std::vector<std::string> *passed = nullptr) {
        auto deadline = Clock::now() + std::chrono::milliseconds(ms);
        for (;;) {
            while (cursor_ < lines_.size()) {
                const std::string &l = lines_[cursor_++];
                if (match(l)) return l;
                if (passed) passed->push_back(l);
            }
            if (!pump(deadline)) return std::nullopt;
        }
    }

    // Everything that arrives within `ms`; the cursor moves to the end.
    std::vector<std::string> lines_for(int ms) {
        auto deadline = Clock::now() + std::chrono::milliseconds(ms);
        while (pump(deadline)) {
        }
        std::vector<std::string> got(
            lines_.begin() + static_cast<long>(cursor_), lines_.end());
        cursor_ = lines_.size();
        return got;
    }

    // "isready" and its "readyok"; the lines before it go to `passed`.
    bool ready(std::vector<std::string> *passed = nullptr, int ms = 3000) {
        send("isready");
        return wait_for(line_is("readyok"), ms, passed).has_value();
    }

    // Waits for the process to end by itself, reading all it still says.
    // The exit status, or -1 if it did not end normally within `ms`.
    int wait_exit(int ms) {
        auto deadline = Clock::now() + std::chrono::milliseconds(ms);
        while (pump(deadline)) {
        }
        if (pid_ <= 0) return -1;
        for (;;) {
            int wstatus = 0;
            pid_t r = waitpid(pid_, &wstatus, WNOHANG);
            if (r == pid_) {
                pid_ = -1;
                close_all();
                if (WIFEXITED(wstatus)) return WEXITSTATUS(wstatus);
                return -1000 - (WIFSIGNALED(wstatus) ? WTERMSIG(wstatus) : 0);
            }
            if (r < 0 || Clock::now() >= deadline) return -1;
            usleep(2000);
        }
    }

    // "quit", then the exit status.
    int quit(int ms = 5000) {
        send("quit");
        return wait_exit(ms);
    }

    const std::vector<std::string> &lines() const { return lines_; }
    const std::string &err() const { return err_; }
    std::string transcript() const { return joined(lines_); }

private:
    // One round of reading; false once the deadline has passed or both
    // pipes have closed.
    bool pump(Clock::time_point deadline) {
        if (out_fd_ < 0 && err_fd_ < 0) return false;
        auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
            deadline - Clock::now());
        if (left.count() <= 0) return false;
        pollfd fds[2] = {{out_fd_, POLLIN, 0}, {err_fd_, POLLIN, 0}};
        int r = poll(fds, 2, static_cast<int>(left.count()));
        if (r < 0) return false;
        if (r == 0) return false;
        for (int i = 0; i < 2; i++) {
            if (fds[i].fd < 0 ||
                !(fds[i].revents & (POLLIN | POLLHUP | POLLERR)))
                continue;
            char buf[8192];
            ssize_t n = read(fds[i].fd, buf, sizeof buf);
            if (n <= 0) {
                close(fds[i].fd);
                (i == 0 ? out_fd_ : err_fd_) = -1;
                if (i == 0 && !partial_.empty()) {
                    lines_.push_back(partial_);
                    partial_.clear();
                }
                continue;
            }
            if (i == 1) {
                err_.append(buf, static_cast<size_t>(n));
                continue;
            }
            partial_.append(buf, static_cast<size_t>(n));
            size_t at;
            while ((at = partial_.find('\n')) != std::string::npos) {
                lines_.push_back(partial_.substr(0, at));
                partial_.erase(0, at + 1);
            }
        }
        return true;
    }

    void close_all() {
        close_input();
        if (out_fd_ >= 0) close(out_fd_);
        if (err_fd_ >= 0) close(err_fd_);
        out_fd_ = err_fd_ = -1;
    }

    void kill_and_reap() {
        close_all();
        if (pid_ > 0) {
            kill(pid_, SIGKILL);
            int wstatus = 0;
            waitpid(pid_, &wstatus, 0);
            pid_ = -1;
        }
    }

    pid_t pid_ = -1;
    int in_fd_ = -1, out_fd_ = -1, err_fd_ = -1;
    std::string partial_, err_;
    std::vector<std::string> lines_;
    size_t cursor_ = 0;
};
