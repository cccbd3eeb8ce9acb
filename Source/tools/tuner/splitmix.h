// splitmix64: a well-mixed stream of 64-bit numbers from any seed, the same
// on every machine, for the tuner's reproducible runs.
#pragma once

#include "position/position.h"

inline u64 next_random(u64 &state) {
    u64 z = (state += 0x9E3779B97F4A7C15ULL);
    z = (z ^ (z >> 30)) * 0xBF58476D1CE4E5B9ULL;
    z = (z ^ (z >> 27)) * 0x94D049BB133111EBULL;
    return z ^ (z >> 31);
}
