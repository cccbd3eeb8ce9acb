// The strength limit: playing weaker means searching slower.
#pragma once

#include "core/settings.h"
#include "core/status.h"

// The Elo the model gives a speed in nodes per second.
f32 elo_of_speed(f32 nps);
// Sets the search's target speed and the Elo in force for this search.
void settle_strength();
// Plays at the speed `nps` from now on: the target speed, the Elo it
// stands for (0 for a speed the model cannot rate), and the limit on.
void limit_to_speed(f32 nps);
// Measures this machine's search speed for the strength limit.
void calibrate();
