// The attack tables, built once at start before anything else runs, the
// attack test of a square, and which piece attacks a square first.
#include "position.h"

u64 pawn_attacks[2][65];
u64 knight_attacks[65];
u64 king_attacks[65];
u64 side_squares[65];
u64 ray_north[65], ray_south[65], ray_east[65], ray_west[65];
u64 ray_north_east[65], ray_north_west[65];
u64 ray_south_east[65], ray_south_west[65];
u64 bishop_rays[65];
u64 rook_rays[65];
u64 between[65][65];

static bool on_board(int file, int rank) {
    return file >= 0 && file < 8 && rank >= 0 && rank < 8;
}

// The squares reached by single steps of (df, dr) from sq, cut at the edge.
static u64 leaper_targets(int sq, const int (*steps)[2], int count) {
    u64 targets = 0;
    for (int i = 0; i < count; i++) {
        int f = file_of(sq) + steps[i][0], r = rank_of(sq) + steps[i][1];
        if (on_board(f, r)) targets |= bit(f + 8 * r);
    }
    return targets;
}

// All squares from sq (not included) to the edge in direction (df, dr).
static u64 ray(int sq, int df, int dr) {
    u64 squares = 0;
    int f = file_of(sq) + df, r = rank_of(sq) + dr;
    while (on_board(f, r)) {
        squares |= bit(f + 8 * r);
        f += df;
        r += dr;
    }
    return squares;
}

static void init_leapers(int sq) {
    static constexpr int KNIGHT_STEPS[8][2] = {
        {1, 2}, {2, 1}, {2, -1}, {1, -2}, {-1, -2}, {-2, -1}, {-2, 1}, {-1, 2}};
    static constexpr int KING_STEPS[8][2] = {
        {1, 0}, {1, 1}, {0, 1}, {-1, 1}, {-1, 0}, {-1, -1}, {0, -1}, {1, -1}};
    static constexpr int WHITE_PAWN_STEPS[2][2] = {{-1, 1}, {1, 1}};
    static constexpr int BLACK_PAWN_STEPS[2][2] = {{-1, -1}, {1, -1}};
    static constexpr int SIDE_STEPS[2][2] = {{-1, 0}, {1, 0}};
    knight_attacks[sq] = leaper_targets(sq, KNIGHT_STEPS, 8);
    king_attacks[sq] = leaper_targets(sq, KING_STEPS, 8);
    pawn_attacks[WHITE][sq] = leaper_targets(sq, WHITE_PAWN_STEPS, 2);
    pawn_attacks[BLACK][sq] = leaper_targets(sq, BLACK_PAWN_STEPS, 2);
    side_squares[sq] = leaper_targets(sq, SIDE_STEPS, 2);
}

static void init_rays(int sq) {
    ray_north[sq] = ray(sq, 0, 1);
    ray_south[sq] = ray(sq, 0, -1);
    ray_east[sq] = ray(sq, 1, 0);
    ray_west[sq] = ray(sq, -1, 0);
    ray_north_east[sq] = ray(sq, 1, 1);
    ray_north_west[sq] = ray(sq, -1, 1);
    ray_south_east[sq] = ray(sq, 1, -1);
    ray_south_west[sq] = ray(sq, -1, -1);
    bishop_rays[sq] = ray_north_east[sq] | ray_north_west[sq] |
                      ray_south_east[sq] | ray_south_west[sq];
    rook_rays[sq] = ray_north[sq] | ray_south[sq] | ray_east[sq] | ray_west[sq];
}

// Squares strictly between a and b when they share a line; the step is
// chosen by the signs of the rank and file differences.
static u64 squares_between(int a, int b) {
    int fa = file_of(a), ra = rank_of(a), fb = file_of(b), rb = rank_of(b);
    bool aligned =
        fa == fb || ra == rb || fb + ra == rb + fa || ra - rb == fb - fa;
    if (a == b || !aligned) return 0;
    int df = (fb > fa) - (fb < fa), dr = (rb > ra) - (rb < ra);
    int step = df + 8 * dr;
    u64 squares = 0;
    for (int s = a + step; s != b; s += step) squares |= bit(s);
    return squares;
}

void init_attack_tables() {
    for (int sq = 0; sq < 64; sq++) {
        init_leapers(sq);
        init_rays(sq);
    }
    for (int a = 0; a < 64; a++)
        for (int b = 0; b < 64; b++) between[a][b] = squares_between(a, b);
    init_slider_tables();
}

int square_attacked(const Position &pos, int sq, int by_colour) {
    const u64 *theirs = pos.bitboards[by_colour];
    if (pawn_attacks[by_colour ^ 1][sq] & theirs[PAWN]) return 1;
    if (knight_attacks[sq] & theirs[KNIGHT]) return 1;
    if (king_attacks[sq] & theirs[KING]) return 1;
    u64 occupied = occupied_squares(pos);
    for (u64 b = (theirs[BISHOP] | theirs[QUEEN]) & bishop_rays[sq]; b;
         b = clear_first_bit(b))
        if (!(between[first_bit(b)][sq] & occupied)) return 1;
    for (u64 b = (theirs[ROOK] | theirs[QUEEN]) & rook_rays[sq]; b;
         b = clear_first_bit(b))
        if (!(between[first_bit(b)][sq] & occupied)) return 1;
    return 0;
}

// The first attacker of `sq` among the pieces of `side` in `candidates`,
// least valuable kind first, lowest square first within a kind; lines are
// blocked by `occupancy`.
static int first_attacker(const Position &pos, int sq, int side, u64 occupancy,
                          u64 candidates) {
    const u64 *pieces = pos.bitboards[side];
    u64 b = pawn_attacks[side ^ 1][sq] & pieces[PAWN] & candidates;
    if (b) return first_bit(b);
    b = knight_attacks[sq] & pieces[KNIGHT] & candidates;
    if (b) return first_bit(b);
    // A slider's attack set from `sq` holds exactly the squares with nothing
    // in between, whether or not the square itself is still occupied.
    u64 diagonal = bishop_attacks(sq, occupancy);
    b = diagonal & pieces[BISHOP] & candidates;
    if (b) return first_bit(b);
    u64 straight = rook_attacks(sq, occupancy);
    b = straight & pieces[ROOK] & candidates;
    if (b) return first_bit(b);
    b = (diagonal | straight) & pieces[QUEEN] & candidates;
    if (b) return first_bit(b);
    b = king_attacks[sq] & pieces[KING] & candidates;
    if (b) return first_bit(b);
    return NO_SQUARE;
}

int find_attacker(const Position &pos, int sq, int side, u64 occupancy) {
    return first_attacker(pos, sq, side, occupancy, ~0ULL);
}

int find_least_attacker(const Position &pos, int sq, int side, u64 occupancy) {
    return first_attacker(pos, sq, side, occupancy, occupancy);
}
