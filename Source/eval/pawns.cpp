// Pawn structure: the pawn sets the other terms lean on, the structure
// score (kept in the per-thread pawn cache), and the passed and candidate
// pawn terms, which wait until every attack map is complete.
#include "core/relaxed.h"
#include "eval.h"
#include "position/see.h"

constexpr u64 FILE_A = 0x0101010101010101ULL;
constexpr u64 FILE_H = 0x8080808080808080ULL;

// Squares from which a knight or bishop cannot be chased by a pawn: b4 to
// g6 for white, b3 to g5 for black, before the enemy's spans are taken out.
constexpr u64 WHITE_OUTPOST_ZONE = 0x00007E7E7E000000ULL;
constexpr u64 BLACK_OUTPOST_ZONE = 0x0000007E7E7E0000ULL;

// The cache key also carries which wing each king stands on, because the
// piece-square mirror and the choice of pawn table follow from it.
constexpr u64 WHITE_FLIP_KEY = 0x6C43EB52AULL;
constexpr u64 BLACK_FLIP_KEY = 0x3E2571CB4ULL;
constexpr u64 PAWN_CACHE_MASK = 0x3FFF;

// Weights by relative rank (0 is the own first rank).
constexpr f32 PP_BASE[8] = {0.0f, 0.09f, 0.09f, 0.24f, 0.4f, 0.64f, 1.0f, 0.0f};
constexpr f32 PP_KING[8] = {0.0f, 0.2f, 0.2f, 0.4f, 0.6f, 0.8f, 1.0f, 0.0f};
constexpr f32 PP_CONNECTED[8] = {0.0f, 0.0f, 0.0f, 0.4f,
                                 0.8f, 1.0f, 0.0f, 0.0f};
constexpr f32 CAND_DIST[6] = {0.5f, 0.6f, 0.7f, 0.8f, 0.9f, 1.0f};
constexpr f32 CAND_RANK[8] = {0.0f, 0.0f, 0.0f, 0.4f, 0.7f, 1.0f, 0.0f, 0.0f};

// Squares ahead of each pawn on its file, and those spans moved one file
// aside: where an enemy pawn could still be met or could attack.
struct PawnSpans {
    u64 front[2];
    u64 side[2];
};

static u64 fill_north(u64 b) {
    b |= b << 8;
    b |= b << 16;
    return b | (b << 32);
}

static u64 fill_south(u64 b) {
    b |= b >> 8;
    b |= b >> 16;
    return b | (b >> 32);
}

static u64 beside_files(u64 b) {
    return ((b << 1) & ~FILE_A) | ((b >> 1) & ~FILE_H);
}

static int relative_rank(int sq, int c) {
    return c == WHITE ? rank_of(sq) : 7 - rank_of(sq);
}

static int king_distance(int a, int b) {
    int df = file_of(a) - file_of(b), dr = rank_of(a) - rank_of(b);
    df = df < 0 ? -df : df;
    dr = dr < 0 ? -dr : dr;
    return df > dr ? df : dr;
}

static int min_int(int a, int b) { return a < b ? a : b; }

// The squares ahead of sq on its file, as seen by colour c.
static u64 ray_ahead(int sq, int c) {
    return c == WHITE ? ray_north[sq] : ray_south[sq];
}

// Pawn attacks enter the maps like any piece's; a square covered by two
// pawns, or by a pawn and a king, is doubly attacked.
static void add_pawn_attacks(EvalContext &ctx, int c, u64 left, u64 right) {
    u64 all = left | right;
    ctx.pawn_attacks_of[c] = all;
    ctx.double_attacks[c] |= (left & right) | (all & ctx.attacks[c][0]);
    ctx.attacks[c][0] |= all;
    ctx.attacks[c][PAWN] |= all;
}

static PawnSpans pawn_spans(u64 white, u64 black) {
    PawnSpans s;
    s.front[WHITE] = fill_north(white << 8);
    s.front[BLACK] = fill_south(black >> 8);
    s.side[WHITE] = beside_files(s.front[WHITE]);
    s.side[BLACK] = beside_files(s.front[BLACK]);
    return s;
}

static void set_pawn_sets(EvalContext &ctx, const PawnSpans &s, u64 white,
                          u64 black) {
    // 3. No enemy pawn can ever chase a piece from these squares.
    ctx.outposts[WHITE] = WHITE_OUTPOST_ZONE & ~s.side[BLACK];
    ctx.outposts[BLACK] = BLACK_OUTPOST_ZONE & ~s.side[WHITE];
    // 4. All pawns
    ctx.all_pawns = white | black;
    // 5. No enemy pawn ahead on the file or beside it.
    ctx.passed_pawns = (white & ~s.front[BLACK] & ~s.side[BLACK]) |
                       (black & ~s.front[WHITE] & ~s.side[WHITE]);
    // 6. Only pawns beside the file stand in the way.
    ctx.candidate_pawns =
        ((white & ~s.front[BLACK]) | (black & ~s.front[WHITE])) &
        ~ctx.passed_pawns;
}

// 7. Enemy pawns one step from the king's zone already count as attackers.
static void seed_danger(EvalContext &ctx, u64 white, u64 black) {
    ctx.danger[WHITE] = 2 * count_bits((black >> 8) & ctx.king_zone[WHITE]);
    ctx.danger[BLACK] = 2 * count_bits((white << 8) & ctx.king_zone[BLACK]);
}

// Material and table values of each pawn, with the bonuses for a pawn
// defended by a pawn and for one whose next step is covered by a pawn.
static TermPair pawn_square_terms(const EvalContext &ctx, int c, u64 pawns) {
    ParamEntry *const *table = ctx.same_wing ? param.pst_p1 : param.pst_p2;
    u64 defended = pawns & ctx.pawn_attacks_of[c];
    u64 covered_stop = pawns & (c == WHITE ? ctx.pawn_attacks_of[c] >> 8
                                           : ctx.pawn_attacks_of[c] << 8);
    TermPair sum = 0;
    for (u64 b = pawns; b; b = clear_first_bit(b)) {
        int sq = first_bit(b);
        int t = sq ^ ctx.pst_mirror[c];
        add_param(sum, param.mtl_pawn);
        add_param(sum, table[t]);
        if (defended & bit(sq)) add_param(sum, param.pst_dp[t]);
        if (covered_stop & bit(sq)) add_param(sum, param.pst_cp[t]);
    }
    return sum;
}

// Steps 4 to 6 of the cached part: pawns without a neighbour on either
// file, pawns whose neighbours have all gone past them, doubled pawns.
static TermPair pawn_shape_terms(const PawnSpans &s, int c, u64 pawns) {
    u64 neighbour_files =
        c == WHITE ? fill_south(s.side[WHITE]) : fill_north(s.side[BLACK]);
    u64 isolated = pawns & ~neighbour_files;
    u64 supported_ranks = c == WHITE ? s.side[WHITE] >> 8 : s.side[BLACK] << 8;
    u64 weak = pawns & ~isolated & ~supported_ranks;
    TermPair sum = 0;
    add_param_times(sum, param.pawn_isolated, count_bits(isolated));
    add_param_times(sum, param.pawn_weak, count_bits(weak));
    add_param_times(sum, param.pawn_doubled, count_bits(pawns & s.front[c]));
    return sum;
}

static TermPair cached_pawn_terms(const EvalContext &ctx, const PawnSpans &s,
                                  int c, u64 pawns) {
    return add_pairs(pawn_square_terms(ctx, c, pawns),
                     pawn_shape_terms(s, c, pawns));
}

static u64 pawn_cache_key(const EvalContext &ctx) {
    u64 key = ctx.eval_position->pawn_key;
    if (ctx.pst_mirror[WHITE] & 7) key ^= WHITE_FLIP_KEY;
    if (ctx.pst_mirror[BLACK] & 7) key ^= BLACK_FLIP_KEY;
    return key;
}

// The structure terms through the cache.  Near the root (ply 1) an entry
// is always recomputed, so a stale or colliding entry cannot settle the
// move choice at the top.
static void add_cached_terms(EvalContext &ctx, const PawnSpans &s, u64 white,
                             u64 black) {
    EvalWorker &worker = *ctx.eval_worker;
    u64 key = pawn_cache_key(ctx);
    PawnCacheEntry &entry = worker.pawn_cache[key & PAWN_CACHE_MASK];
    relaxed_increment(worker.pawn_probe_count);
    if (entry.key == key && ctx.eval_ply >= 2) {
        relaxed_increment(worker.pawn_hit_count);
    } else {
        entry.key = key;
        entry.white = cached_pawn_terms(ctx, s, WHITE, white);
        entry.black = cached_pawn_terms(ctx, s, BLACK, black);
    }
    ctx.score[WHITE] = add_pairs(ctx.score[WHITE], entry.white);
    ctx.score[BLACK] = add_pairs(ctx.score[BLACK], entry.black);
}

void evaluate_pawns(EvalContext &ctx) {
    const Position &pos = *ctx.eval_position;
    u64 white = pos.bitboards[WHITE][PAWN];
    u64 black = pos.bitboards[BLACK][PAWN];
    // 1. Pawn attacks
    add_pawn_attacks(ctx, WHITE, (white << 7) & 0x7F7F7F7F7F7F7F00ULL,
                     (white << 9) & 0xFEFEFEFEFEFEFE00ULL);
    add_pawn_attacks(ctx, BLACK, (black >> 9) & 0x007F7F7F7F7F7F7FULL,
                     (black >> 7) & 0x00FEFEFEFEFEFEFEULL);
    // 2. The spans ahead of the pawns
    PawnSpans s = pawn_spans(white, black);
    // 3. to 6. Outposts, passed and candidate pawns
    set_pawn_sets(ctx, s, white, black);
    // 7. Pawns next to a king zone seed its danger
    seed_danger(ctx, white, black);
    add_cached_terms(ctx, s, white, black);
    // A blocked pawn depends on the pieces, so it stays out of the cache.
    add_param_times(ctx.score[WHITE], param.pawn_blocked,
                    count_bits(white & (ctx.occupied >> 8)));
    add_param_times(ctx.score[BLACK], param.pawn_blocked,
                    count_bits(black & (ctx.occupied << 8)));
}

// Step 3: a passed pawn that can step forward without loss is mobile; it
// is free as well when no enemy minor or pawn watches its path and the
// enemy controls none of the squares it still has to cross.
static const ParamEntry *passed_pawn_weight(EvalContext &ctx, int p, int stop,
                                            u64 ray, int c) {
    const Position &pos = *ctx.eval_position;
    int them = c ^ 1;
    if (pos.board[stop] || see_move(pos, c, p, stop) != 0)
        return param.ppawn_base;
    u64 contested = ray & (ctx.attacks[them][0] | pos.bitboards[them][0]) &
                    (~ctx.attacks[c][0] | ctx.double_attacks[them]);
    if ((ray & ctx.low_attacks[them]) || contested) return param.ppawn_mobile;
    ctx.free_pawns |= bit(p);
    return param.ppawn_free;
}

// Steps 4 and 5: king distances to the square the pawn heads for, in the
// form min(d, 6) - 2; the own king standing on that square counts -1.
static void passed_king_distances(const EvalContext &ctx, int target, int c,
                                  int &own, int &enemy) {
    const Position &pos = *ctx.eval_position;
    int d = king_distance(pos.king_sq[c], target);
    own = d == 0 ? -1 : min_int(d, 6) - 2;
    enemy = min_int(king_distance(pos.king_sq[c ^ 1], target), 6) - 2;
}

static void score_passed_pawn(EvalContext &ctx, int p, int c) {
    int r = relative_rank(p, c);
    // A pawn on its last rank (only in a broken position) has no square
    // ahead, and every weight of that rank is 0.
    if (r == 7) return;
    int dir = PAWN_DIRECTION[c];
    // 1. A pawn still at home may go two squares.
    int stop = p + dir;
    if (r == 1 && ctx.eval_position->board[stop] == 0) stop += dir;
    // 2. Of doubled pawns only the front one counts.
    u64 ray = ray_ahead(p, c);
    if (ray & ctx.all_pawns) return;
    // 3., 6. Blocked, mobile or free: the base weight
    const ParamEntry *weight = passed_pawn_weight(ctx, p, stop, ray, c);
    TermPair &score = ctx.score[c];
    add_scaled(score, weight, PP_BASE[r]);
    // 4., 5. King distances to the pawn's path
    int target = r < 6 ? stop + dir : stop;
    int own, enemy;
    passed_king_distances(ctx, target, c, own, enemy);
    // 7. Weigh the king distances
    f32 q = PP_KING[r] * 0.25f;
    add_scaled(score, param.ppawn_ekprox, static_cast<f32>(enemy) * q);
    add_scaled(score, param.ppawn_fkprox, static_cast<f32>(own) * q);
    // 8. A pawn whose stop square an own pawn covers.
    if (ctx.pawn_attacks_of[c] & bit(stop))
        add_scaled(score, param.ppawn_connected, PP_CONNECTED[r]);
}

void evaluate_passed_pawns(EvalContext &ctx) {
    const Position &pos = *ctx.eval_position;
    ctx.free_pawns = 0;
    for (u64 b = ctx.passed_pawns; b; b = clear_first_bit(b)) {
        int p = first_bit(b);
        int c = (pos.bitboards[BLACK][PAWN] & bit(p)) ? BLACK : WHITE;
        score_passed_pawn(ctx, p, c);
    }
}

// The candidate weight is applied factor by factor, in the order written:
// parameter times distance weight, then times the rank weight.
static void add_candidate_term(TermPair &sum, f32 dist, f32 rank) {
    const ParamEntry *p = param.ppawn_candidate;
    sum = add_pairs(sum, make_pair(static_cast<int>(p->mg * dist * rank),
                                   static_cast<int>(p->eg * dist * rank)));
}

// A pawn with an open file that its neighbours can escort through the
// enemy pawns' guard: it has at least as many helpers beside it as there
// are guards on its path (one more when a square is guarded twice).
static void score_candidate(EvalContext &ctx, int p, int c, u64 ray) {
    const Position &pos = *ctx.eval_position;
    int them = c ^ 1;
    // 1. Own pawns beside it
    int helpers = count_bits(pos.bitboards[c][PAWN] & side_squares[p]);
    // 2. Enemy guards on its path; more than helpers and it is no candidate
    int stoppers = count_bits(ray & ctx.attacks[them][0]) + 1;
    if (!(ray & ctx.double_attacks[them])) stoppers--;
    if (stoppers > helpers) return;
    // 3. The enemy king's way to the pawn's seventh-rank square.
    int seventh = file_of(p) + (c == WHITE ? 48 : 8);
    int d = min_int(king_distance(pos.king_sq[them], seventh), 5);
    add_candidate_term(ctx.score[c], CAND_DIST[d],
                       CAND_RANK[relative_rank(p, c)]);
}

void evaluate_candidate_pawns(EvalContext &ctx) {
    const Position &pos = *ctx.eval_position;
    for (u64 b = ctx.candidate_pawns; b; b = clear_first_bit(b)) {
        int p = first_bit(b);
        int c = (pos.bitboards[BLACK][PAWN] & bit(p)) ? BLACK : WHITE;
        u64 ray = ray_ahead(p, c);
        // Only pawns past their third rank, with the file ahead empty.
        int relative_sq = c == WHITE ? p : p ^ 56;
        if (relative_sq <= 23 || (ray & ctx.occupied)) continue;
        score_candidate(ctx, p, c, ray);
    }
}
