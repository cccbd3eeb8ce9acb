// Every line for the user goes through print_line, so that lines of
// different threads never mix and the log holds what the screen showed.
#include "output.h"

#include <unistd.h>

#include "settings.h"
#include "status.h"

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
    // Search threads print (and log) under the lock: the file and the
    // switch change under it too.
    spin_take(output_lock);
    if (log_file) {
        spin_release(output_lock);
        return;
    }
    // A log that cannot be removed belongs to another engine running in
    // this directory: that one keeps it, this one runs without a log.
    bool in_use = access(LOG_NAME, F_OK) == 0 && unlink(LOG_NAME) != 0;
    if (in_use)
        settings.log = 0;
    else
        // A failed open leaves logging on with no file, so the next
        // request to log tries again.
        log_file = std::fopen(LOG_NAME, "w");
    spin_release(output_lock);
    if (in_use) print_line("log file in use.");
}

void set_logging(bool on) {
    spin_take(output_lock);
    settings.log = on ? 1 : 0;
    spin_release(output_lock);
    if (on && !log_file) open_log();
}

void close_log() {
    if (!log_file) return;
    std::fclose(log_file);
    log_file = nullptr;
}
