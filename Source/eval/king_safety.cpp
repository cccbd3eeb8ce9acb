// King safety and threats of the hand-written evaluation: they run once
// every attack map is whole.  Per king: its square, the pawn shelter, the
// enemy's safe checks and the weight of the attack, a trapped king and its
// way to the pawns; then hanging and attacked men, pawn-push threats and
// pins for both colours together.
#include "eval.h"

// King's way to the nearest pawn front, by steps.
static constexpr f32 KING_PAWN[8] = {0.0f, 0.2f, 0.4f, 0.6f,
                                     0.8f, 1.0f, 1.0f, 1.0f};

constexpr u64 FILE_A = 0x0101010101010101ULL;
constexpr u64 FILE_H = 0x8080808080808080ULL;
constexpr u64 RANK_3 = 0x0000000000FF0000ULL;
constexpr u64 RANK_6 = 0x0000FF0000000000ULL;

static u64 forward(u64 b, int c) { return c == WHITE ? b << 8 : b >> 8; }

static u64 north_fill(u64 b) {
    b |= b << 8;
    b |= b << 16;
    return b | b << 32;
}

static u64 south_fill(u64 b) {
    b |= b >> 8;
    b |= b >> 16;
    return b | b >> 32;
}

// One king step in all eight directions, cut at the board's edge.
static u64 grow(u64 b) {
    b |= ((b << 1) & ~FILE_A) | ((b >> 1) & ~FILE_H);
    return b | b << 8 | b >> 8;
}

static u64 pawn_attack_set(u64 pawns, int c) {
    if (c == WHITE)
        return ((pawns << 7) & 0x7F7F7F7F7F7F7F00ULL) |
               ((pawns << 9) & 0xFEFEFEFEFEFEFE00ULL);
    return ((pawns >> 9) & 0x007F7F7F7F7F7F7FULL) |
           ((pawns >> 7) & 0x00FEFEFEFEFEFEFEULL);
}

// Own pawns, and the squares they can still reach in two steps, standing
// in the three files one rank in front of the king's zone.  0 to 9.
static int shelter_count(const EvalContext &ctx, int c) {
    u64 pawns = ctx.eval_position->bitboards[c][PAWN];
    u64 one = forward(pawns, c);
    u64 cover = pawns | one | forward(one, c);
    int n = count_bits(cover & forward(ctx.king_zone[c], c));
    return n < 9 ? n : 9;
}

static f32 shelter_factor(int n) {
    // A bare king is a hair short of the full penalty.
    if (n == 0) return -0.999f;
    return static_cast<f32>(n - 9) * 0.111f;
}

// Squares from which the enemy gives check and cannot simply be taken
// there by something cheaper.
struct CheckSquares {
    u64 knight, bishop, rook;
    u64 queen_diagonal, queen_straight;
    // Squares the enemy queen hits that only our king guards, if anything.
    u64 queen_unopposed;
};

static CheckSquares find_checks(const EvalContext &ctx, int c, int k) {
    const Position &pos = *ctx.eval_position;
    int them = c ^ 1;
    // 2.2 Safe squares: not held by the enemy's own men, and not guarded
    // by us unless the enemy has two attackers there.
    u64 free = ~((ctx.attacks[c][0] & ~ctx.double_attacks[them]) |
                 pos.bitboards[them][0]);
    // 2.3 Where each enemy piece kind can give check from.
    u64 diagonal = bishop_attacks(k, ctx.occupied);
    u64 straight = rook_attacks(k, ctx.occupied);
    CheckSquares checks;
    checks.knight = knight_attacks[k] & free & ctx.attacks[them][KNIGHT] &
                    ~ctx.low_attacks[c];
    checks.bishop =
        diagonal & free & ctx.attacks[them][BISHOP] & ~ctx.low_attacks[c];
    checks.rook =
        straight & free & ctx.attacks[them][ROOK] & ~ctx.mid_attacks[c];
    checks.queen_unopposed =
        ctx.attacks[them][QUEEN] & ~ctx.all_but_king_attacks[c];
    checks.queen_diagonal = diagonal & free & checks.queen_unopposed;
    checks.queen_straight = straight & free & checks.queen_unopposed;
    return checks;
}

// 2.5 The attack's weight grows with the square of the number of hits on
// the king's zone; a queen among the attackers makes it far worse.
static void add_danger(EvalContext &ctx, int c, int n,
                       const CheckSquares &checks, int queen_checks) {
    const Position &pos = *ctx.eval_position;
    int them = c ^ 1;
    u64 zone = ctx.king_zone[c];
    int pawn_hits =
        count_bits(ctx.attacks[them][PAWN] & zone & ~ctx.pawn_attacks_of[c]);
    int knight_hits =
        count_bits((checks.knight | zone) & ctx.attacks[them][KNIGHT] &
                   ~ctx.low_attacks[c]);
    int bishop_hits =
        count_bits((checks.bishop | zone) & ctx.attacks[them][BISHOP] &
                   ~ctx.low_attacks[c]);
    int rook_hits = count_bits((checks.rook | zone) & ctx.attacks[them][ROOK] &
                               ~ctx.mid_attacks[c]);
    int queen_hits = count_bits(zone & checks.queen_unopposed);
    int x = pawn_hits - n + ctx.danger[c] - 2 + 4 * knight_hits +
            3 * bishop_hits + 4 * rook_hits + 5 * (queen_checks + queen_hits);
    if (x <= 0) return;
    double d = x * x * 0.0015;
    const ParamEntry *p =
        pos.bitboards[them][QUEEN] ? param.king_danger1 : param.king_danger2;
    ctx.score[c] = add_pairs(
        ctx.score[c],
        make_pair(static_cast<int>(d * p->mg), static_cast<int>(d * p->eg)));
}

// 2. Shelter, safe checks and attack danger: only against enough enemy
// material to mount an attack.
static void add_king_attack(EvalContext &ctx, int c, int k) {
    // 2.1 Pawn shelter
    int n = shelter_count(ctx, c);
    add_scaled(ctx.score[c], param.pawn_shield, shelter_factor(n));
    CheckSquares checks = find_checks(ctx, c, k);
    // 2.4 Safe checks and the weight of the attack
    int queen_checks =
        (checks.queen_diagonal != 0) + (checks.queen_straight != 0);
    int count = count_bits(checks.knight | checks.bishop | checks.rook);
    add_param_times(ctx.score[c], param.enemy_checks, count + queen_checks);
    add_danger(ctx, c, n, checks, queen_checks);
}

// 4. In the ending the king belongs near the pawns' paths: count the king
// steps until its neighbourhood meets the squares in front of any pawn.
static void add_king_pawn_distance(EvalContext &ctx, int c, int k) {
    const Position &pos = *ctx.eval_position;
    u64 white = pos.bitboards[WHITE][PAWN], black = pos.bitboards[BLACK][PAWN];
    u64 front_lines = north_fill(white << 8) | south_fill(black >> 8);
    // Without pawns, or with pawns that have no square left in front (only
    // on a broken board), there is no way to measure.
    if (!front_lines) return;
    u64 zone = bit(k) | king_attacks[k];
    int steps = 0;
    while (!(zone & front_lines) && steps < 7) {
        zone = grow(zone);
        steps++;
    }
    if (steps) add_scaled(ctx.score[c], param.king_pawn_dist, KING_PAWN[steps]);
}

void evaluate_king(EvalContext &ctx, int c) {
    const Position &pos = *ctx.eval_position;
    int k = pos.king_sq[c];
    // A broken board without this king has nothing to judge here.
    if (k >= 64) return;
    int them = c ^ 1;
    // 1. The king's table value
    add_param(ctx.score[c], param.pst_k[k ^ ctx.pst_mirror[c]]);
    // 2. Shelter and attack, against enough material
    if (pos.piece_points[them] >= 7) add_king_attack(ctx, c, k);
    // 3. No flight square at all: a mate threat waits for any check.
    if (!(king_attacks[k] & ~ctx.attacks[them][0] & ~pos.bitboards[c][0]))
        add_param(ctx.score[c], param.king_trapped);
    // 4. The way to the pawns
    add_king_pawn_distance(ctx, c, k);
}

// Squares where `them` has the upper hand over c: two attackers against
// no pawn guard and no second defender, or an attacker against none.
static u64 outnumbered(const EvalContext &ctx, int c) {
    int them = c ^ 1;
    return (ctx.double_attacks[them] &
            ~(ctx.pawn_attacks_of[c] | ctx.double_attacks[c])) |
           (ctx.attacks[them][0] & ~ctx.attacks[c][0]);
}

// Hanging and attacked men of colour c; what hangs goes into
// hung_squares.
static void add_hanging(EvalContext &ctx, int c) {
    const Position &pos = *ctx.eval_position;
    int them = c ^ 1;
    TermPair &score = ctx.score[c];
    u64 weak = outnumbered(ctx, c);
    // Pawns: one guarded or attacked by a pawn is left to the pawn terms.
    u64 hit = pos.bitboards[c][PAWN] & ctx.attacks[them][0] &
              ~(ctx.pawn_attacks_of[WHITE] | ctx.pawn_attacks_of[BLACK]);
    ctx.hung_squares |= hit & weak;
    add_param_times(score, param.hung_pawn, count_bits(hit & weak));
    add_param_times(score, param.attacked_pawn, count_bits(hit & ~weak));
    // Minors: a pawn's attack hangs a minor even when it is guarded.
    u64 minors = (pos.bitboards[c][KNIGHT] | pos.bitboards[c][BISHOP]) &
                 ctx.attacks[them][0];
    u64 hung = minors & (weak | ctx.pawn_attacks_of[them]);
    ctx.hung_squares |= hung;
    add_param_times(score, param.hung_minor, count_bits(hung));
    add_param_times(score, param.attacked_minor,
                    count_bits(minors & ~weak & ~ctx.pawn_attacks_of[c]));
    // Rooks and queens hang to any minor or pawn.
    u64 majors = (pos.bitboards[c][ROOK] | pos.bitboards[c][QUEEN]) &
                 ctx.low_attacks[them];
    ctx.hung_squares |= majors;
    add_param_times(score, param.hung_major, count_bits(majors));
}

// Safe pawn steps of colour c that would fork or hit an enemy piece not
// already counted as hanging; the cost goes to the enemy.
static void add_push_threats(EvalContext &ctx, int c) {
    const Position &pos = *ctx.eval_position;
    int them = c ^ 1;
    u64 single = forward(pos.bitboards[c][PAWN], c) & ~ctx.occupied;
    u64 twice =
        forward(single & (c == WHITE ? RANK_3 : RANK_6), c) & ~ctx.occupied;
    u64 safe = (single | twice) &
               ~(ctx.attacks[them][0] & ~ctx.pawn_attacks_of[c]) &
               ~ctx.pawn_attacks_of[them];
    u64 pieces = pos.bitboards[them][0] & ~pos.bitboards[them][PAWN];
    u64 threatened = pawn_attack_set(safe, c) & pieces & ~ctx.hung_squares;
    add_param_times(ctx.score[them], param.ppush_threat,
                    count_bits(threatened));
}

void evaluate_threats(EvalContext &ctx) {
    const Position &pos = *ctx.eval_position;
    ctx.hung_squares = 0;
    add_hanging(ctx, WHITE);
    add_hanging(ctx, BLACK);
    add_push_threats(ctx, WHITE);
    add_push_threats(ctx, BLACK);
    for (int c = WHITE; c <= BLACK; c++)
        add_param_times(ctx.score[c], param.pinned_piece,
                        count_bits(pinned(pos, c) & ~pos.bitboards[c][PAWN]));
}

// Men standing alone between `target` and an enemy slider on its line.
static u64 shielding(int target, u64 diagonal_sliders, u64 straight_sliders,
                     u64 occupied) {
    u64 found = 0;
    u64 sliders = (diagonal_sliders & bishop_rays[target]) |
                  (straight_sliders & rook_rays[target]);
    for (; sliders; sliders = clear_first_bit(sliders)) {
        u64 b = between[first_bit(sliders)][target] & occupied;
        if (b && !clear_first_bit(b)) found |= b;
    }
    return found;
}

u64 pinned(const Position &pos, int c) {
    int them = c ^ 1;
    u64 occupied = occupied_squares(pos);
    const u64 *enemy = pos.bitboards[them];
    u64 found = shielding(pos.king_sq[c], enemy[BISHOP] | enemy[QUEEN],
                          enemy[ROOK] | enemy[QUEEN], occupied);
    // A man shielding the first queen from a bishop or rook is tied to
    // her too.
    u64 queens = pos.bitboards[c][QUEEN];
    if (queens)
        found |=
            shielding(first_bit(queens), enemy[BISHOP], enemy[ROOK], occupied);
    return found & pos.bitboards[c][0];
}
