// The tuner build's provider of the tuner modes: which it carries, and
// where each one starts.  A new mode is one more line in each function.
#include "tools/tuner_modes.h"

#include "frontend/switches.h"
#include "net_trainer.h"
#include "train_data.h"

bool tuner_mode_built(i32 mode) {
    return mode == MODE_MAKE_TRAIN_DATA || mode == MODE_TUNE;
}

bool run_tuner_mode(i32 mode, int argc, char **argv) {
    if (mode == MODE_MAKE_TRAIN_DATA) return make_train_data(argc, argv);
    if (mode == MODE_TUNE) return tune_network(argc, argv);
    return false;
}
