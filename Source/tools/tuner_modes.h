// The tuner's run modes (-mktraindata, -tune, -tune2) belong to a second
// executable, quillon-ttune, built by "make ttune".  Every executable links
// exactly one provider of these two functions: tools/tuner_absent.cpp in
// the engine, which carries none of the modes, or the files of tools/tuner/
// in the tuner build, which carry the modes built so far.
#pragma once

#include "position/position.h"

// Whether this executable carries the run mode `mode` (13 .. 15).
bool tuner_mode_built(i32 mode);

// Runs a tuner mode to its end on the main thread, after the whole
// start-up.  The tuner reads switches of its own from the command line;
// the engine's reader passes over them as unknown.  False when the mode
// failed (the process then ends with a non-zero status).
bool run_tuner_mode(i32 mode, int argc, char **argv);
