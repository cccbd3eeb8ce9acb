// The float model as a net file of the engine: working weights rounded
// from the float ones, stored so that the loader's factor gives them back.
#include <algorithm>
#include <cmath>
#include <cstdio>

#include "../../eval/network.h"
#include "net_trainer.h"

i16 stored_weight(int working) {
    return stored_weight_for(
        std::clamp(working, -NET_WORKING_LIMIT, NET_WORKING_LIMIT));
}

int working_weight_of(float w) {
    long v = std::lround(static_cast<double>(w) * NET_SCALE);
    return static_cast<int>(
        std::clamp<long>(v, -NET_WORKING_LIMIT, NET_WORKING_LIMIT));
}

static bool put_word(FILE *f, u16 v) {
    unsigned char b[2] = {static_cast<unsigned char>(v & 255),
                          static_cast<unsigned char>(v >> 8)};
    return std::fwrite(b, 1, 2, f) == 2;
}

static bool put_weight(FILE *f, float w) {
    return put_word(f, static_cast<u16>(stored_weight(working_weight_of(w))));
}

bool write_net(const NetModel &m, const char *file_name) {
    FILE *f = std::fopen(file_name, "wb");
    if (!f) return false;
    const int n = m.hidden;
    // The layout of a net without a second hidden layer: the first-layer
    // rows, eight output rows (the seventh bucket's row last, the eighth
    // unused), no output block, eight bias words (all 0: the common
    // first-layer bias is left to the always-active king and material
    // features).
    u32 count = static_cast<u32>(NET_INPUTS * n + 8 * n + 8);
    bool ok = true;
    for (int v : {1, 1, NET_PIECE_INPUTS, NET_INPUTS - NET_PIECE_INPUTS, n, 0,
                  NET_BUCKETS})
        ok = ok && put_word(f, static_cast<u16>(v));
    ok = ok && put_word(f, static_cast<u16>(count & 0xFFFF)) &&
         put_word(f, static_cast<u16>(count >> 16));
    for (float w : m.w1) ok = ok && put_weight(f, w);
    for (float w : m.out) ok = ok && put_weight(f, w);
    for (int i = 0; i < n + 8; i++) ok = ok && put_word(f, 0);
    return std::fclose(f) == 0 && ok;
}
