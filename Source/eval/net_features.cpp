// What the network sees: the active features from the side to move's
// view, each colour mirrored by its own king, and the output row.
#include <algorithm>

#include "network.h"

// Squares of a colour are flipped left-right so that its own king stands
// on the files e to h; with black to move the board is also turned.
static int mirror_of(int king_sq, int side) {
    int left = king_sq < 64 && file_of(king_sq) >= 4 ? 0 : 7;
    return side == WHITE ? left : left ^ 56;
}

// The material feature: the side to move's pawns and piece points less
// the other side's, clipped.
static u16 material_feature(const Position &pos, int inputs_piece) {
    int side = pos.side & 1;
    int material[2];
    for (int c = WHITE; c <= BLACK; c++)
        material[c] = count_bits(pos.bitboards[c][PAWN]) + pos.piece_points[c];
    int d = std::clamp(material[side] - material[side ^ 1], -16, 16);
    return static_cast<u16>(inputs_piece + d + 18);
}

void net_board_of(const Position &pos, int inputs_piece, int inputs_extra,
                  NetBoard &b) {
    int side = pos.side & 1;
    for (int c = WHITE; c <= BLACK; c++) {
        b.mirror[c] = static_cast<u16>(mirror_of(pos.king_sq[c], side));
        // A board without its king simply lacks that feature.
        b.men[c][0] = pos.king_sq[c] < 64 ? u64{1} << pos.king_sq[c] : 0;
        for (int t = PAWN; t <= QUEEN; t++) b.men[c][t] = pos.bitboards[c][t];
    }
    b.block[side] = 0;
    b.block[side ^ 1] = static_cast<u16>(inputs_piece / 4);
    b.wing_flag = b.mirror[WHITE] != b.mirror[BLACK] ? 1 : 0;
    if (b.wing_flag) {
        b.block[WHITE] += static_cast<u16>(inputs_piece / 2);
        b.block[BLACK] += static_cast<u16>(inputs_piece / 2);
    }
    b.extra = inputs_extra == 36 ? material_feature(pos, inputs_piece)
                                 : NO_NET_FEATURE;
    // Both kings on the board and no more men than the list has room for:
    // then each man is one feature and nothing is cut off.
    b.whole = pos.king_sq[WHITE] < 64 && pos.king_sq[BLACK] < 64 &&
              count_bits(occupied_squares(pos)) <= NET_MAX_FEATURES - 2;
}

int net_board_features(const NetBoard &b, u16 *features) {
    int count = 0;
    for (int c = WHITE; c <= BLACK; c++) {
        if (b.men[c][0])
            features[count++] = static_cast<u16>(
                (first_bit(b.men[c][0]) ^ b.mirror[c]) + b.block[c]);
        for (int t = PAWN; t <= QUEEN; t++) {
            for (u64 m = b.men[c][t]; m && count < NET_MAX_FEATURES - 1;
                 m &= m - 1)
                features[count++] = static_cast<u16>(
                    (first_bit(m) ^ b.mirror[c]) + b.block[c] + 64 * t);
        }
    }
    if (b.extra != NO_NET_FEATURE && count < NET_MAX_FEATURES)
        features[count++] = b.extra;
    return count;
}

int network_features(const Position &pos, int inputs_piece, int inputs_extra,
                     u16 *features, u16 &wing_flag) {
    NetBoard b;
    net_board_of(pos, inputs_piece, inputs_extra, b);
    wing_flag = b.wing_flag;
    return net_board_features(b, features);
}

void net_board_changes(const NetBoard &old_board, const NetBoard &new_board,
                       FeatureChanges &changes) {
    changes.gone_count = changes.came_count = 0;
    // Most men stand still: first the kinds of men that moved at all, one
    // bit each, colour by colour and type by type as the lists run.
    constexpr int KINDS = 6;
    u32 moved = 0;
    for (int i = 0; i < 2 * KINDS; i++)
        moved |= u32{old_board.men[i / KINDS][i % KINDS] !=
                     new_board.men[i / KINDS][i % KINDS]}
                 << i;
    for (; moved; moved &= moved - 1) {
        int i = first_bit(moved), c = i / KINDS, t = i % KINDS;
        int mirror = old_board.mirror[c];
        int base = old_board.block[c] + 64 * t;
        u64 old_men = old_board.men[c][t], new_men = new_board.men[c][t];
        for (u64 m = old_men & ~new_men; m; m &= m - 1)
            changes.gone[changes.gone_count++] =
                static_cast<u16>((first_bit(m) ^ mirror) + base);
        for (u64 m = new_men & ~old_men; m; m &= m - 1)
            changes.came[changes.came_count++] =
                static_cast<u16>((first_bit(m) ^ mirror) + base);
    }
    if (old_board.extra != new_board.extra) {
        if (old_board.extra != NO_NET_FEATURE)
            changes.gone[changes.gone_count++] = old_board.extra;
        if (new_board.extra != NO_NET_FEATURE)
            changes.came[changes.came_count++] = new_board.extra;
    }
}

int output_bucket_of(const Position &pos) {
    int m = std::max(pos.piece_points[WHITE], pos.piece_points[BLACK]);
    if (m > 25) return 0;
    if (m > 20) return 1;
    if (m > 15) return 2;
    if (m > 10) return 3;
    if (m > 5) return 4;
    if (m > 0) return 5;
    return 6;
}
