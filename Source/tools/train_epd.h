// The tools that prepare data for tuning the evaluation: search scores
// added to EPD files (-mktune1, -mktune2) and EPD files packed into
// training records (-epd2bin).
#pragma once

#include "epd.h"
#include "position/position.h"
#include "train_record.h"

// -mktune1 (selector 1) and -mktune2 (selector 2): every position of the
// input file searched under the command-line limits and written to the
// output file ("tune_new.epd" unless one is set) with the search's score.
// False when the input could not be read, the output not written, or
// both are one file.
bool tune_make(int selector);

// Whether a line's result contradicts the probability `p` of its score
// badly enough to drop it: a win below 0.25, a loss above 0.75, a draw
// outside 0.1 .. 0.9.
bool contradicts_result(double g, double p);

// The record of one EPD line, in the front Worker's position; false when
// the line is passed over (a comment, too short, no ce and no sc).
bool epd_line_record(const char *line, TrainRecord &out);

// -epd2bin: the input file's lines as records, written at once to the
// file of the same name with ".bin" for ".epd".
// False when the name has no ".epd", the input could not be read or the
// records were not stored.
bool epd_to_bin();
// -prune_nn [FILE]: the loaded net's 1536 busiest first-layer neurons over
// the records of settings.input_file ("tune/recent.bin" unless given),
// written to "pruned.bin" when the net has more.
// False without a usable record or a net to prune by, or when
// "pruned.bin" was due and not written.
bool prune_network();
