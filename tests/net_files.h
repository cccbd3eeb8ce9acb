// Net files for the tests: a shape, random stored weights, the bytes of
// the file as the loader reads them.
#pragma once

#include <algorithm>
#include <fstream>
#include <random>
#include <string>
#include <vector>

#include "position/position.h"

struct Shape {
    int inputs_piece = 1536;
    int inputs_extra = 36;
    int layer1 = 1536;
    int layer2 = 0;
    int outputs = 7;
    int weight_count() const {
        int p2 = std::max(layer2, 8), po = std::max(outputs, 8);
        return (inputs_piece + inputs_extra) * layer1 + p2 * layer1 +
               po * layer2 + 8;
    }
};

// Stored weights of a random net: first-layer rows within +-`a1`, the
// later blocks within +-`a2`, the biases within +-`ab`.
inline std::vector<i16> random_stored(const Shape &s, u32 seed, int a1, int a2,
                                      int ab) {
    std::mt19937 rng(seed);
    std::vector<i16> w(s.weight_count());
    int l1 = (s.inputs_piece + s.inputs_extra) * s.layer1;
    int biases = s.weight_count() - 8;
    auto draw = [&](int a) {
        return static_cast<i16>(static_cast<int>(rng() % (2 * a + 1)) - a);
    };
    for (int i = 0; i < s.weight_count(); i++)
        w[i] = draw(i < l1 ? a1 : i < biases ? a2 : ab);
    return w;
}

inline std::string net_bytes(const Shape &s, const std::vector<i16> &stored) {
    std::string bytes;
    auto word = [&](u16 v) {
        bytes.push_back(static_cast<char>(v & 255));
        bytes.push_back(static_cast<char>(v >> 8));
    };
    for (int v : {657, 1, s.inputs_piece, s.inputs_extra, s.layer1, s.layer2,
                  s.outputs})
        word(static_cast<u16>(v));
    u32 count = static_cast<u32>(stored.size());
    word(static_cast<u16>(count & 0xFFFF));
    word(static_cast<u16>(count >> 16));
    for (i16 w : stored) word(static_cast<u16>(w));
    return bytes;
}

inline void write_bytes(const std::string &path, const std::string &bytes) {
    std::ofstream(path, std::ios::binary) << bytes;
}
