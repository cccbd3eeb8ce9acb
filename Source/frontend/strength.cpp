// Playing strength as a speed: the Elo a node rate stands for, and the
// rate that the search holds to for a wanted Elo.
#include "strength.h"

#include <cmath>

f32 elo_of_speed(f32 nps) {
    f32 above = nps - 15.0f;
    return static_cast<f32>(std::log(static_cast<double>(above)) * 150.0 +
                            1188.0);
}

void settle_strength() {
    if (!settings.limit_strength) {
        status.target_nps = settings.calib_nps;
        settings.elo = static_cast<i16>(settings.calib_elo);
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
        settings.elo = static_cast<i16>(settings.calib_elo);
    }
}
