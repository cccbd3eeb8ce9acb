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

int network_features(const Position &pos, int inputs_piece, int inputs_extra,
                     u16 *features, u16 &wing_flag) {
    int side = pos.side & 1;
    int mirror[2] = {mirror_of(pos.king_sq[WHITE], side),
                     mirror_of(pos.king_sq[BLACK], side)};
    int block[2] = {0, 0};
    block[side ^ 1] = inputs_piece / 4;
    wing_flag = mirror[WHITE] != mirror[BLACK] ? 1 : 0;
    if (wing_flag) {
        block[WHITE] += inputs_piece / 2;
        block[BLACK] += inputs_piece / 2;
    }
    int count = 0;
    for (int c = WHITE; c <= BLACK; c++) {
        // A board without its king simply lacks that feature.
        if (pos.king_sq[c] < 64)
            features[count++] =
                static_cast<u16>((pos.king_sq[c] ^ mirror[c]) + block[c]);
        for (int t = PAWN; t <= QUEEN; t++) {
            for (u64 b = pos.bitboards[c][t]; b && count < NET_MAX_FEATURES - 1;
                 b &= b - 1)
                features[count++] = static_cast<u16>(
                    (first_bit(b) ^ mirror[c]) + block[c] + 64 * t);
        }
    }
    if (inputs_extra == 36) {
        int material[2];
        for (int c = WHITE; c <= BLACK; c++)
            material[c] =
                count_bits(pos.bitboards[c][PAWN]) + pos.piece_points[c];
        int d = std::clamp(material[side] - material[side ^ 1], -16, 16);
        features[count++] = static_cast<u16>(inputs_piece + d + 18);
    }
    return count;
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
