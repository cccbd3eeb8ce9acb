// The one road of every line to the user and to the log.
#pragma once

#include <cstdio>

#include "spinlock.h"

extern SpinLock output_lock;
extern FILE *log_file;

// Prints a line (without its line end) to standard output and, when
// logging is on, to the log; lines of different threads never mix.
void print_line(const char *text);
// Writes to the log alone, without the lock.
void log_line(const char *text);
// Opens "quillon.log" in the working directory if no log is open.
void open_log();
void close_log();
// Turns logging on or off (opening the log when needed) while other
// threads may be printing.
void set_logging(bool on);
