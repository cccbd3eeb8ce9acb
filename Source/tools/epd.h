// EPD analysis: every position of a file searched under the command-line
// limits, the answers written as a new EPD file and scored against the
// file's best-move, avoid-move and point tests.
#pragma once

constexpr int EPD_LINE_SIZE = 512;  // 511 characters and the terminator

// The opcodes of one EPD line that the analysis knows, blanks removed
// from their values.
struct EpdFields {
    char fen[EPD_LINE_SIZE];
    char bm[EPD_LINE_SIZE];
    char am[EPD_LINE_SIZE];
    char ce[EPD_LINE_SIZE];
    char sc[EPD_LINE_SIZE];
    char gr[EPD_LINE_SIZE];
    char id[EPD_LINE_SIZE];
    char c0[EPD_LINE_SIZE];
};

// Splits a line into its position (the first four fields; move counters
// behind them are passed over) and the opcodes above; other opcodes are
// skipped.  The line ends at its terminator or its first line-end
// character.  Always returns 1.
int epd_parse(const char *line, EpdFields &fields);

// Searches each position of `path`, writing the answers to the output
// file ("analysis.epd" unless one is set) and, with `write_children` and
// MultiPV above 0, the positions after each good enough line to
// "tmp_0.epd".  Closes with the summary of the tests.  False when a file
// could not be opened, read or written (silently, as every file error).
bool epd_analyze(const char *path, int write_children);
// Starts a silent search of the front position on the search thread, as
// the EPD tools run it (state 4, depth and stop cleared); the caller waits
// for the finished bit.
void launch_tool_search();

// -mkbook2: ten passes of the analysis, each reading the positions the
// last one wrote, with 6, 5, 4, 4 and then 3 lines per position.
// False when the file could not be copied or a pass failed.
bool epd_multi_pass(const char *path);
