// The engine's build: none of the tuner's modes.  Asking for one prints
// the notice of the entry point and ends the process with result 1.
#include "tuner_modes.h"

bool tuner_mode_built(i32) { return false; }

bool run_tuner_mode(i32, int, char **) { return false; }
