// Bit operations on 64-bit boards.  The portable build does them in plain
// integer arithmetic; a build for a processor with bit-count and bit-scan
// instructions uses those, with the same answers for every board, the empty
// one included.
#pragma once

#include <array>
#include <bit>
#include <cstdint>

#if defined(__POPCNT__)
constexpr bool HAVE_POPCNT = true;
#else
constexpr bool HAVE_POPCNT = false;
#endif
#if defined(__BMI2__)
#include <immintrin.h>
constexpr bool HAVE_PEXT = true;
#else
constexpr bool HAVE_PEXT = false;
#endif
#if defined(__BMI__) && defined(__LZCNT__)
constexpr bool HAVE_BIT_SCAN = true;
#else
constexpr bool HAVE_BIT_SCAN = false;
#endif

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

// Lowest set bit of a non-zero board, by the table.
constexpr int first_bit_portable(uint64_t b) {
    return first_bit_table[first_bit_index(b)];
}

// Highest set bit; square 0 for an empty board, which the negative rays of
// the slider attacks rely on.
constexpr int last_bit_portable(uint64_t b) {
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

constexpr int count_bits_portable(uint64_t b) {
    uint32_t low = static_cast<uint32_t>(b);
    uint32_t high = static_cast<uint32_t>(b >> 32);
    int n = 0;
    if (low) n += count_bits_32(low);
    if (high) n += count_bits_32(high);
    return n;
}

// What the table answers for an empty board, so that the instruction path
// answers the same.
constexpr int FIRST_BIT_OF_EMPTY = first_bit_portable(0);

constexpr int first_bit(uint64_t b) {
    if constexpr (HAVE_BIT_SCAN)
        return b ? std::countr_zero(b) : FIRST_BIT_OF_EMPTY;
    else
        return first_bit_portable(b);
}

constexpr int last_bit(uint64_t b) {
    if constexpr (HAVE_BIT_SCAN)
        return 63 - std::countl_zero(b | 1);
    else
        return last_bit_portable(b);
}

constexpr int count_bits(uint64_t b) {
    if constexpr (HAVE_POPCNT)
        return std::popcount(b);
    else
        return count_bits_portable(b);
}

// Removes the lowest set bit; the step of every bitboard walk.
constexpr uint64_t clear_first_bit(uint64_t b) { return b & (b - 1); }

// The bits of b under mask, packed to the bottom in mask's order.
inline uint64_t extract_bits(uint64_t b, uint64_t mask) {
#if defined(__BMI2__)
    return _pext_u64(b, mask);
#else
    uint64_t packed = 0;
    for (uint64_t out = 1; mask; mask = clear_first_bit(mask), out <<= 1)
        if (b & mask & (0 - mask)) packed |= out;
    return packed;
#endif
}
