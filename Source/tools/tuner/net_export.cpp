// The float model as a net file of the engine: working weights rounded
// from the float ones, stored so that the loader's factor gives them back.
#include <algorithm>
#include <cmath>
#include <cstdio>

#include "eval/network.h"
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

u64 saturating_samples(const NetModel &m,
                       const std::vector<TrainSample> &samples, i32 &largest) {
    const int n = m.hidden;
    std::vector<i32> working(m.w1.size());
    for (size_t i = 0; i < m.w1.size(); i++)
        working[i] = working_weight_of(m.w1[i]);
    // 34 rows of at most NET_WORKING_LIMIT stay far inside 32 bits.
    std::vector<i32> sums(n);
    u64 count = 0;
    largest = 0;
    for (const TrainSample &s : samples) {
        // The bias word the written net carries is 0.
        std::fill(sums.begin(), sums.end(), 0);
        i32 high = 0, low = 0;
        for (int i = 0; i < s.count; i++) {
            const i32 *row = &working[static_cast<size_t>(s.features[i]) * n];
            for (int j = 0; j < n; j++) {
                sums[j] += row[j];
                high = std::max(high, sums[j]);
                low = std::min(low, sums[j]);
            }
        }
        largest = std::max({largest, high, -low});
        bool past = high > 32767 || low < -32768;
        count += past;
    }
    return count;
}
