// `set word value ...`: the console's switches for the hash, the clock,
// the limits, the strength and the pruning of the search.
#include <cstdio>
#include <cstring>

#include "console.h"
#include "core/output.h"
#include "core/settings.h"
#include "core/status.h"
#include "search/strength.h"

static bool is(const char *word, const char *name) {
    return std::strcmp(word, name) == 0;
}

// Seconds, or minutes:seconds.
static double level_seconds(const char *text) {
    const char *colon = std::strchr(text, ':');
    if (!colon) return console_real(text);
    return console_real(text) * 60.0 + console_real(colon + 1);
}

// "set level moves time inc": the time control for both clocks.  A
// control of more than 127 moves, or fewer than none, cannot be held.
static void set_level(const char *moves, const char *time, const char *inc) {
    int n = console_int(moves);
    settings.level_moves = static_cast<i8>(n < 0 ? 0 : n > 127 ? 127 : n);
    settings.level_time = static_cast<f32>(level_seconds(time));
    settings.level_inc = static_cast<f32>(console_real(inc));
    status.clock[0] = status.clock[1] = settings.level_time;
    char text[160];
    std::snprintf(
        text, sizeof text, "set level to %d moves in %0.2f seconds, inc %0.2f",
        settings.level_moves, static_cast<double>(settings.level_time),
        static_cast<double>(settings.level_inc));
    print_line(text);
}

// Restores the settings of the start, but not what this run has found
// out or chosen for itself: the dialect, the calibration, the quit flag.
static void restore_settings() {
    EngineSettings kept = settings;
    settings = settings_snapshot;
    settings.uci_mode = kept.uci_mode;
    settings.quit = kept.quit;
    settings.calib_nps = kept.calib_nps;
    settings.calib_elo = kept.calib_elo;
}

static void set_selectivity_off() {
    settings.sep_depth = 0;
    settings.nmp_depth = 99;
    settings.lmp_depth = 0;
    settings.lmr_depth = 99;
}

static void set_target_nps(double nps) {
    limit_to_speed(static_cast<f32>(nps));
    char text[96];
    std::snprintf(text, sizeof text, "target_nps set to %.0f, Elo= %d",
                  static_cast<double>(status.target_nps), settings.elo);
    print_line(text);
}

// The search's depth switches, each reported as it is set.
static void set_search_switch(const char *word, const char *value) {
    struct Switch {
        const char *name;
        i16 *field;
    };
    const Switch switches[] = {
        {"NMP_depth", &settings.nmp_depth},
        {"SEP_depth", &settings.sep_depth},
        {"FP_depth", &settings.fp_depth},
        {"LMP_depth", &settings.lmp_depth},
        {"LMR_depth", &settings.lmr_depth},
        {"Selectivity", &settings.selectivity},
        {"ponder", &settings.ponder},
    };
    for (const Switch &s : switches) {
        if (!is(word, s.name)) continue;
        *s.field = static_cast<i16>(console_int(value));
        char text[64];
        std::snprintf(text, sizeof text, "%s set to %d", s.name, *s.field);
        print_line(text);
    }
}

void set_command(const char *word, const char *value, const char *arg3,
                 const char *arg4) {
    int n = console_int(value);
    if (is(word, "hash")) {
        status.use_hash = static_cast<u8>(n);
    } else if (is(word, "noise")) {
        settings.noise = static_cast<f32>(console_real(value));
    } else if (std::strstr(word, "multipv")) {
        settings.multi_pv = static_cast<u8>(n);
    } else if (is(word, "debug")) {
        settings.debug = static_cast<u8>(n);
    } else if (is(word, "frc")) {
        settings.chess960 = static_cast<u8>(n);
    } else if (is(word, "level")) {
        set_level(value, arg3, arg4);
    } else if (is(word, "depth")) {
        settings.max_depth = static_cast<i8>(n > 80 ? 80 : n < -128 ? -128 : n);
    } else if (is(word, "nodes")) {
        settings.max_depth = 66;
        double nodes = console_real(value);
        settings.max_nodes =
            nodes > 0 && nodes < 1.8e19 ? static_cast<u64>(nodes) : 0;
    } else if (is(word, "target_nps")) {
        set_target_nps(console_real(value));
    } else if (is(word, "ss")) {
        if (n == 1) {
            restore_settings();
            print_line("set default Settings");
        } else {
            set_selectivity_off();
            print_line("selectivity set to OFF");
        }
    }
    // Tested after the others in every case: these alone say what they
    // set.
    set_search_switch(word, value);
}
