// Every line for the user goes through print_line, so that lines of
// different threads never mix and the log holds what the screen showed.
#include "output.h"

#include <unistd.h>

#include "frontend.h"

SpinLock output_lock;
FILE *log_file = nullptr;

static constexpr const char *LOG_NAME = "quillon.log";

void print_line(const char *text) {
    spin_take(output_lock);
    std::puts(text);
    std::fflush(stdout);
    if (settings.log && log_file) {
        std::fprintf(log_file, "%s\n", text);
        std::fflush(log_file);
    }
    spin_release(output_lock);
}

void log_line(const char *text) {
    if (!settings.log || !log_file) return;
    std::fprintf(log_file, "%s\n", text);
    std::fflush(log_file);
}

void open_log() {
    if (log_file) return;
    // A log that cannot be removed belongs to another engine running in
    // this directory: that one keeps it, this one runs without a log.
    if (access(LOG_NAME, F_OK) == 0 && unlink(LOG_NAME) != 0) {
        print_line("log file in use.");
        settings.log = 0;
        return;
    }
    // A failed open leaves logging on with no file, so the next request to
    // log tries again.
    log_file = std::fopen(LOG_NAME, "w");
}

void close_log() {
    if (!log_file) return;
    std::fclose(log_file);
    log_file = nullptr;
}
