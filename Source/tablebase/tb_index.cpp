// From squares to a table's index: the order of a table's pieces, the
// factor of each group of like pieces, and the folding of the board by
// its symmetries before the groups are ranked.
#include <utility>

#include "tb_index_tables.h"
#include "tb_internal.h"

u64 tb_binomial[7][64];
u64 tb_pawn_index[2][6][24];
u64 tb_pawn_factor_file[6][4];
// The rank-wise pawn order belongs to the DTM format only, which is never
// probed: its tables stay 0.
u64 tb_pawn_factor_rank[6][4];

void tb_init_index_tables() {
    for (int k = 0; k < 7; k++)
        for (int n = 0; n < 64; n++) {
            u64 product = 1, factorial = 1;
            for (int j = 0; j < k; j++) {
                product *= static_cast<u64>(n > j ? n - j : 0);
                factorial *= static_cast<u64>(j + 1);
            }
            tb_binomial[k][n] = product / factorial;
        }
    // The leading group's index runs on within one file of the leading
    // pawn, squares a2..a7 first.
    for (int k = 0; k < 6; k++) {
        u64 sum = 0;
        for (int j = 0; j < 24; j++) {
            tb_pawn_index[0][k][j] = sum;
            int sq = 8 * (1 + j % 6) + j / 6;
            sum += tb_binomial[k][TB_PAWN_TWIST_FILE[sq]];
            if ((j + 1) % 6 == 0) {
                tb_pawn_factor_file[k][j / 6] = sum;
                sum = 0;
            }
        }
    }
}

static bool valid_piece_code(int code) {
    return (code >= 1 && code <= 6) || (code >= 9 && code <= 14);
}

// Group lengths: the first group as the encoding says, then runs of equal
// piece codes.
static void set_norm(EncInfo &ei, const TbEntry *entry, int num) {
    for (int k = 0; k < TB_MAX_MEN; k++) ei.norm[k] = 0;
    int i;
    if (entry->has_pawns) {
        ei.norm[0] = entry->pawns[0];
        if (entry->pawns[1]) ei.norm[entry->pawns[0]] = entry->pawns[1];
        i = entry->pawns[0] + entry->pawns[1];
    } else {
        ei.norm[0] = static_cast<u8>(3 - entry->kk_enc);
        i = ei.norm[0];
    }
    for (; i < num; i += ei.norm[i])
        for (int j = i; j < num && ei.pieces[j] == ei.pieces[i]; j++)
            ei.norm[i]++;
}

// The pieces a table's header names must be the entry's material, and the
// pawn groups must lead in a pawn table.
static bool pieces_fit(const EncInfo &ei, const TbEntry *entry) {
    int n = entry->num;
    TbPosition pos{};
    u64 *kinds[7] = {nullptr,    &pos.pawns,  &pos.knights, &pos.bishops,
                     &pos.rooks, &pos.queens, &pos.kings};
    for (int k = 0; k < n; k++) {
        int code = ei.pieces[k];
        if (!valid_piece_code(code)) return false;
        *kinds[code & 7] |= bit(k);
        ((code & 8) ? pos.black : pos.white) |= bit(k);
    }
    if (tb_material_key(pos, 0) != entry->key &&
        tb_material_key(pos, 1) != entry->key)
        return false;
    if (!entry->has_pawns) {
        // Two-king encoding: the kings come first.
        if (entry->kk_enc)
            return (ei.pieces[0] & 7) == PYRRHIC_KING &&
                   (ei.pieces[1] & 7) == PYRRHIC_KING;
        return true;
    }
    int lead = entry->pawns[0], other = entry->pawns[1];
    for (int k = 0; k < lead; k++)
        if (ei.pieces[k] != ei.pieces[0] || (ei.pieces[k] & 7) != PAWN)
            return false;
    for (int k = lead; k < lead + other; k++)
        if (ei.pieces[k] != (ei.pieces[0] ^ 8)) return false;
    for (int k = lead + other; k < n; k++)
        if ((ei.pieces[k] & 7) == PAWN) return false;
    return true;
}

u64 tb_init_enc_info(EncInfo &ei, const TbEntry *entry, const u8 *table,
                     int shift, int file, int encoding, bool &ok) {
    int n = entry->num;
    bool both_pawns = entry->has_pawns && entry->pawns[1] > 0;
    int order = (table[0] >> shift) & 15;
    int order2 = both_pawns ? (table[1] >> shift) & 15 : 15;
    const u8 *pieces = table + 1 + (both_pawns ? 1 : 0);
    for (int k = 0; k < n; k++) ei.pieces[k] = (pieces[k] >> shift) & 15;
    for (int k = n; k < TB_MAX_MEN; k++) ei.pieces[k] = 0;
    ok = pieces_fit(ei, entry);
    if (!ok) return 0;
    set_norm(ei, entry, n);
    for (int k = 0; k < TB_MAX_MEN; k++) ei.factor[k] = 0;

    int i = ei.norm[0];
    if (order2 < 15) i += ei.norm[i];
    int free_squares = 64 - i;
    u64 f = 1;
    bool order_seen = false, order2_seen = order2 == 15;
    for (int k = 0; i < n || k == order || k == order2; k++) {
        if (k > TB_MAX_MEN) break;
        if (k == order) {
            ei.factor[0] = f;
            order_seen = true;
            if (encoding == 1)
                f *= tb_pawn_factor_file[ei.norm[0] - 1][file];
            else if (encoding == 2)
                f *= tb_pawn_factor_rank[ei.norm[0] - 1][file];
            else
                f *= entry->kk_enc ? TB_KING_PAIR_COUNT : TB_PIECE3_COUNT;
        } else if (k == order2) {
            ei.factor[ei.norm[0]] = f;
            order2_seen = true;
            f *= tb_binomial[ei.norm[ei.norm[0]]][48 - ei.norm[0]];
        } else {
            ei.factor[i] = f;
            f *= tb_binomial[ei.norm[i]][free_squares];
            free_squares -= ei.norm[i];
            i += ei.norm[i];
        }
    }
    ok = order_seen && order2_seen && i == n && f != 0;
    return f;
}

// Rank of a group of like pieces among the squares that earlier groups
// leave free; `skip` squares at the board's bottom can't hold the group.
static u64 group_rank(int *sq, int start, int length, int skip) {
    for (int j = start; j < start + length; j++)
        for (int k = j + 1; k < start + length; k++)
            if (sq[j] > sq[k]) std::swap(sq[j], sq[k]);
    u64 s = 0;
    for (int m = start; m < start + length; m++) {
        int below = 0;
        for (int l = 0; l < start; l++) below += sq[m] > sq[l];
        int place = sq[m] - below - skip;
        if (place < 0) return ~0ULL;
        s += tb_binomial[m - start + 1][place];
    }
    return s;
}

static u64 rank_groups(const EncInfo &ei, int *sq, int i, int n, u64 index) {
    while (i < n) {
        int t = ei.norm[i];
        if (t == 0) return ~0ULL;
        u64 s = group_rank(sq, i, t, 0);
        if (s == ~0ULL) return s;
        index += s * ei.factor[i];
        i += t;
    }
    return index;
}

u64 tb_encode_piece(const EncInfo &ei, const TbEntry *entry, int *sq) {
    int n = entry->num;
    // Fold: the first piece goes to files a-d, ranks 1-4, and below the
    // a1-h8 diagonal when the first piece off it lies among the leaders.
    if (sq[0] & 4)
        for (int k = 0; k < n; k++) sq[k] ^= 7;
    if (sq[0] & 32)
        for (int k = 0; k < n; k++) sq[k] ^= 56;
    int i = 0;
    while (i < n && !TB_OFF_DIAG[sq[i]]) i++;
    int leaders = entry->kk_enc ? 2 : 3;
    if (i < leaders && i < n && TB_OFF_DIAG[sq[i]] > 0)
        for (int k = 0; k < n; k++) sq[k] = tb_flip_diag(sq[k]);

    u64 index;
    if (entry->kk_enc) {
        int kk = TB_KK_INDEX[TB_TRIANGLE[sq[0]]][sq[1]];
        if (kk < 0) return ~0ULL;
        index = static_cast<u64>(kk);
    } else {
        int a = sq[0], b = sq[1], c = sq[2];
        u64 i1 = b > a;
        u64 j1 = (c > a) + (c > b);
        if (TB_OFF_DIAG[a])
            index = TB_TRIANGLE[a] * 63 * 62 + (b - i1) * 62 + (c - j1);
        else if (TB_OFF_DIAG[b])
            index = 6 * 63 * 62 + TB_DIAG[a] * 28 * 62 + TB_LOWER[b] * 62 +
                    (c - j1);
        else if (TB_OFF_DIAG[c])
            index = 6 * 63 * 62 + 4 * 28 * 62 + TB_DIAG[a] * 7 * 28 +
                    (TB_DIAG[b] - i1) * 28 + TB_LOWER[c];
        else
            index = 6 * 63 * 62 + 4 * 28 * 62 + 4 * 7 * 28 +
                    TB_DIAG[a] * 7 * 6 + (TB_DIAG[b] - i1) * 6 +
                    (TB_DIAG[c] - j1);
    }
    index *= ei.factor[0];
    return rank_groups(ei, sq, leaders, n, index);
}

// The leading pawn is the one of lowest order; it goes to sq[0].
int tb_pawn_file(const TbEntry *entry, int *sq) {
    for (int k = 1; k < entry->pawns[0]; k++)
        if (TB_FLAP_FILE[sq[0]] > TB_FLAP_FILE[sq[k]]) std::swap(sq[0], sq[k]);
    return TB_FILE_MIRROR[sq[0] & 7];
}

u64 tb_encode_pawn(const EncInfo &ei, const TbEntry *entry, int *sq) {
    int n = entry->num;
    if (sq[0] & 4)
        for (int k = 0; k < n; k++) sq[k] ^= 7;
    int lead = entry->pawns[0];
    for (int i = 1; i < lead; i++)
        for (int j = i + 1; j < lead; j++)
            if (TB_PAWN_TWIST_FILE[sq[i]] < TB_PAWN_TWIST_FILE[sq[j]])
                std::swap(sq[i], sq[j]);
    int t = lead - 1;
    u64 index = tb_pawn_index[0][t][TB_FLAP_FILE[sq[0]]];
    for (int i = t; i > 0; i--)
        index += tb_binomial[t - i + 1][TB_PAWN_TWIST_FILE[sq[i]]];
    index *= ei.factor[0];
    int i = lead;
    if (entry->pawns[1]) {
        // The other pawns stand on the 48 squares of ranks 2-7.
        u64 s = group_rank(sq, i, entry->pawns[1], 8);
        if (s == ~0ULL) return s;
        index += s * ei.factor[i];
        i += entry->pawns[1];
    }
    return rank_groups(ei, sq, i, n, index);
}
