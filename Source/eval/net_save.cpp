// Writing nets in the layout the loader reads: little-endian words, the
// header with the weight count the loader computes, and each weight stored
// so that the load factor gives the working weight back exactly.
#include <algorithm>

#include "network.h"

bool put_net_word(FILE *f, u16 v) {
    unsigned char b[2] = {static_cast<unsigned char>(v & 255),
                          static_cast<unsigned char>(v >> 8)};
    return std::fwrite(b, 1, 2, f) == 2;
}

bool put_net_header(FILE *f, const NetShape &s) {
    int inputs = s.inputs_piece + s.inputs_extra;
    u32 count = static_cast<u32>(inputs * s.layer1_size +
                                 std::max(s.layer2_size, 8) * s.layer1_size +
                                 std::max(s.outputs, 8) * s.layer2_size + 8);
    bool ok = true;
    for (int v : {s.net_serial, s.net_kind, s.inputs_piece, s.inputs_extra,
                  s.layer1_size, s.layer2_size, s.outputs})
        ok = ok && put_net_word(f, static_cast<u16>(v));
    return ok && put_net_word(f, static_cast<u16>(count & 0xFFFF)) &&
           put_net_word(f, static_cast<u16>(count >> 16));
}

bool put_net_weight(FILE *f, int working) {
    return put_net_word(f, static_cast<u16>(stored_weight_for(working)));
}
