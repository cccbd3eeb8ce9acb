// Playing strength as a speed: the Elo a node rate stands for, and the
// rate that the search holds to for a wanted Elo.
#include "strength.h"

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "core/output.h"
#include "core/relaxed.h"
#include "position/notation.h"
#include "search.h"
#include "time_control.h"

f32 elo_of_speed(f32 nps) {
    f32 above = nps - 15.0f;
    return static_cast<f32>(std::log(static_cast<double>(above)) * 150.0 +
                            1188.0);
}

// The model's Elo as a whole number; a speed of 15 or less has none.
static i16 whole_elo(f32 elo) {
    if (!(elo > -32768.0f && elo < 32768.0f)) return 0;
    return static_cast<i16>(elo);
}

void limit_to_speed(f32 nps) {
    status.target_nps = nps;
    settings.elo = whole_elo(elo_of_speed(nps));
    settings.limit_strength = 1;
}

void settle_strength() {
    if (!settings.limit_strength) {
        status.target_nps = settings.calib_nps;
        settings.elo = whole_elo(settings.calib_elo);
        return;
    }
    if (settings.elo <= 0) return;
    // Bisection over the speed until the model is within half an Elo.
    f32 low = 10.0f, high = 10000000.0f, mid = 5000005.0f, e = 3501.742f;
    while (!(std::fabs(e - settings.elo) < 0.5f)) {
        if (e >= settings.elo)
            high = mid;
        else
            low = mid;
        f32 next = (low + high) / 2;
        // The interval cannot shrink further in single precision.
        if (next == mid) break;
        mid = next;
        e = elo_of_speed(mid);
    }
    status.target_nps = mid;
    // A target this close to the machine's own speed is not worth holding.
    if (status.target_nps > settings.calib_nps - 30) {
        settings.limit_strength = 0;
        status.target_nps = settings.calib_nps;
        settings.elo = whole_elo(settings.calib_elo);
    }
}

void calibrate() {
    // 1. A fixed middlegame.
    set_fen(front_worker->position,
            "rnb1k2r/1pq1bppp/p2p1n2/4p3/4P3/2N1BN2/PPP1BPPP/R2QK2R w KQkq -");
    // 2. Save the settings: one thread, no limit, 35000 nodes
    i16 threads = settings.threads;
    u8 limit_strength = settings.limit_strength;
    f32 noise = settings.noise;
    settings.max_nodes = 35000;
    settings.threads = 1;
    settings.limit_strength = 0;
    settings.noise = 99999.0f;
    // 3. Prepare the search and the thread
    prepare_search();
    if (init_worker(0) != 0) std::exit(-1);
    reset_clock(1);
    store_stop(0);
    store_state(STATE_BENCH);
    // 4. On this thread: nothing polls, the node limit ends it.
    if (settings.threads > 0 && !load_stop()) search_root(0);
    // 5. The speed reached
    read_elapsed();
    f32 elapsed = relaxed_load(status.elapsed);
    f32 nps = static_cast<f32>(workers[0]->node_count / (elapsed + 0.001));
    // 6. Restore the settings
    settings.noise = noise;
    settings.threads = threads;
    settings.limit_strength = limit_strength;
    settings.max_nodes = 0;
    store_stop(0);
    store_state(0);
    // 7. Calibrate a little above the measured speed
    settings.calib_nps = static_cast<f32>(nps * 1.2);
    settings.calib_elo = elo_of_speed(settings.calib_nps);
    // 8. Report the calibration
    char text[128];
    std::snprintf(
        text, sizeof text, "info string et= %.3f, calibration nps= %0.0f",
        static_cast<double>(elapsed), static_cast<double>(settings.calib_nps));
    print_line(text);
    // 9. The block stays allocated; its lists are set anew by the next
    // preparation.
    release_network_state(workers[0]);
    std::memset(static_cast<void *>(workers[0]), 0, sizeof(Worker));
}
