// The dialogue with the front end: reading standard input without ever
// blocking, the UCI commands, and the main thread's think cycle.
#pragma once

#include "core/settings.h"
#include "core/status.h"
#include "position/position.h"

// Whether the end of standard input counts as quit.  A front end that
// closes its pipe has gone away; a tool run with no input attached has
// not, and works through its file.
extern bool end_of_input_quits;
// Reads what waits on standard input and hands on at most one whole line.
// When the input has ended and every line is handled, sets quit (see
// end_of_input_quits).
void poll_input();
// Blocks until a whole line of input is there and copies it to `line`
// (cut to `size` - 1 characters); false once the input has ended and every
// line is taken.
bool wait_for_line(char *line, int size);
// Interprets one UCI line; `line` may be written to.
void uci_command(char *line);
// The main loop: polls input and the clock, starts and finishes searches,
// until quit.
void think_cycle();
// Ends a running search and waits until its thread is done.
void kill_search();
// The move a finished search answers with: its best move, or, when it
// was stopped before it had one, the first legal move of its root order;
// 0 only when the side to move has no legal move.
Move answer_move();
// The tree's growth per iteration over the last four up to `depth`: the
// fourth root of the node counts of iterations depth and depth - 4, or 2.0
// when the search was shallower or a count is missing.
double branching_factor(int depth);
