// Bit operations on 64-bit boards in plain integer arithmetic: no
// bit-scan or population-count instruction is used anywhere.
#pragma once

#include <array>
#include <cstdint>

constexpr uint32_t FIRST_BIT_MULTIPLIER = 0x783A9B23;

// The folded-multiply hash of an isolated lowest bit, the index into
// first_bit_table.
constexpr int first_bit_index(uint64_t b) {
    uint64_t x = b ^ (b - 1);
    uint32_t folded = static_cast<uint32_t>(x ^ (x >> 32));
    return static_cast<int>((folded * FIRST_BIT_MULTIPLIER) >> 26);
}

constexpr std::array<uint8_t, 64> make_first_bit_table() {
    std::array<uint8_t, 64> table{};
    for (int s = 0; s < 64; s++)
        table[first_bit_index(1ULL << s)] = static_cast<uint8_t>(s);
    return table;
}

constexpr std::array<uint8_t, 64> first_bit_table = make_first_bit_table();

constexpr std::array<uint32_t, 256> make_log2_byte() {
    std::array<uint32_t, 256> table{};
    for (int i = 2; i < 256; i++) table[i] = table[i / 2] + 1;
    return table;
}

constexpr std::array<uint32_t, 256> log2_byte = make_log2_byte();

// Lowest set bit of a non-zero board.
constexpr int first_bit(uint64_t b) {
    return first_bit_table[first_bit_index(b)];
}

// Highest set bit; square 0 for an empty board, which the negative rays of
// the slider attacks rely on.
constexpr int last_bit(uint64_t b) {
    uint32_t x;
    int r;
    if (b > 0xFFFFFFFFULL) {
        x = static_cast<uint32_t>(b >> 32);
        r = 32;
    } else {
        x = static_cast<uint32_t>(b) | 1;
        r = 0;
    }
    if (x > 0xFFFF) {
        x >>= 16;
        r += 16;
    }
    if (x > 0xFF) {
        x >>= 8;
        r += 8;
    }
    return r + static_cast<int>(log2_byte[x]);
}

constexpr int count_bits_32(uint32_t x) {
    x = x - ((x >> 1) & 0x55555555);
    x = (x & 0x33333333) + ((x >> 2) & 0x33333333);
    x = (x + (x >> 4)) & 0x0F0F0F0F;
    return static_cast<int>((x * 0x01010101) >> 24);
}

constexpr int count_bits(uint64_t b) {
    uint32_t low = static_cast<uint32_t>(b);
    uint32_t high = static_cast<uint32_t>(b >> 32);
    int n = 0;
    if (low) n += count_bits_32(low);
    if (high) n += count_bits_32(high);
    return n;
}

// Removes the lowest set bit; the step of every bitboard walk.
constexpr uint64_t clear_first_bit(uint64_t b) { return b & (b - 1); }
