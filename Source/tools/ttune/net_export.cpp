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

bool write_net(const NetModel &m, const char *file_name) {
    FILE *f = std::fopen(file_name, "wb");
    if (!f) return false;
    const int n = m.hidden;
    // A net without a second hidden layer: the first-layer rows, eight
    // output rows (the seventh bucket's row last, the eighth unused), no
    // output block, eight bias words (all 0: the common first-layer bias
    // is left to the always-active king and material features).
    bool ok =
        put_net_header(f, {1, 1, NET_PIECE_INPUTS,
                           NET_INPUTS - NET_PIECE_INPUTS, n, 0, NET_BUCKETS});
    for (float w : m.w1) ok = ok && put_net_weight(f, working_weight_of(w));
    for (float w : m.out) ok = ok && put_net_weight(f, working_weight_of(w));
    for (int i = 0; i < n + 8; i++) ok = ok && put_net_word(f, 0);
    return std::fclose(f) == 0 && ok;
}
