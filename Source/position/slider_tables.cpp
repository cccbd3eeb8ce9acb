// The slider attack sets of every square for every occupancy of its lines,
// for builds whose processor packs the occupancy bits in one instruction.
#include "position.h"

SliderLookup bishop_lookup[65], rook_lookup[65];
u64 slider_table[ROOK_TABLE_SIZE + BISHOP_TABLE_SIZE];

// A ray without its far end: the square at the edge is reached or not
// whatever stands on it.
static u64 inner(u64 ray, bool rising) {
    if (!ray) return 0;
    int far_end = rising ? last_bit(ray) : first_bit(ray);
    return ray & ~bit(far_end);
}

static u64 bishop_mask(int sq) {
    return inner(ray_north_east[sq], true) | inner(ray_north_west[sq], true) |
           inner(ray_south_east[sq], false) | inner(ray_south_west[sq], false);
}

static u64 rook_mask(int sq) {
    return inner(ray_north[sq], true) | inner(ray_east[sq], true) |
           inner(ray_south[sq], false) | inner(ray_west[sq], false);
}

// Every subset of the mask, walked by the carry-rippler, gets its answer.
static u32 fill_square(SliderLookup &lookup, u64 mask, u32 offset, int sq,
                       u64 (*attacks)(int, u64)) {
    lookup = SliderLookup{mask, offset};
    u64 occupied = 0;
    do {
        slider_table[offset + extract_bits(occupied, mask)] =
            attacks(sq, occupied);
        occupied = (occupied - mask) & mask;
    } while (occupied);
    return offset + (1u << count_bits(mask));
}

void init_slider_tables() {
    u32 offset = 0;
    // NO_SQUARE has an empty mask and one empty answer, like its rays.
    for (int sq = 0; sq <= 64; sq++) {
        u64 mask = sq < 64 ? rook_mask(sq) : 0;
        offset = fill_square(rook_lookup[sq], mask, offset, sq,
                             rook_attacks_by_rays);
    }
    for (int sq = 0; sq <= 64; sq++) {
        u64 mask = sq < 64 ? bishop_mask(sq) : 0;
        offset = fill_square(bishop_lookup[sq], mask, offset, sq,
                             bishop_attacks_by_rays);
    }
}
