// The Huffman-coded pairs of a Syzygy table: building the decoder from a
// table's header, and decompressing the one value at an index.  Every
// read from the mapped file is inside it; damaged bytes fail the probe.
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "tb_internal.h"

using i64 = int64_t;

static u32 read_le32(const u8 *p) {
    return p[0] | (p[1] << 8) | (p[2] << 16) | (static_cast<u32>(p[3]) << 24);
}

static u32 read_le16(const u8 *p) { return p[0] | (p[1] << 8); }

static u32 read_be32(const u8 *p) {
    return (static_cast<u32>(p[0]) << 24) | (p[1] << 16) | (p[2] << 8) | p[3];
}

static u64 read_be64(const u8 *p) {
    return (static_cast<u64>(read_be32(p)) << 32) | read_be32(p + 4);
}

static bool fits(const u8 *at, u64 bytes, const u8 *end) {
    return at <= end && bytes <= static_cast<u64>(end - at);
}

static PairsData *allocate_pairs(int lengths, u32 symbols) {
    size_t bytes = sizeof(PairsData) + lengths * sizeof(u64) + symbols;
    auto *pairs = static_cast<PairsData *>(std::calloc(1, bytes));
    if (!pairs) {
        std::fprintf(stderr, "Out of memory.\n");
        std::exit(1);
    }
    pairs->sym_len = reinterpret_cast<u8 *>(pairs->base + lengths + 1);
    return pairs;
}

void tb_free_pairs(PairsData *pairs) { std::free(pairs); }

static void symbol_halves(const PairsData *pairs, u32 s, u32 &s1, u32 &s2) {
    const u8 *w = pairs->sym_pat + 3 * s;
    s1 = w[0] | ((w[1] & 15) << 8);
    s2 = (w[2] << 4) | (w[1] >> 4);
}

// Number of values symbol `s` stands for, less 1.  A symbol that refers
// to itself, directly or not, or to no symbol, damages the table.
static bool tb_sym_len(PairsData *pairs, u32 s, u8 *done) {
    if (done[s] == 2) return true;
    if (done[s] == 1) return false;
    done[s] = 1;
    u32 s1, s2;
    symbol_halves(pairs, s, s1, s2);
    if (s2 == 4095) {
        pairs->sym_len[s] = 0;
    } else {
        if (s1 >= pairs->num_syms || s2 >= pairs->num_syms) return false;
        if (!tb_sym_len(pairs, s1, done) || !tb_sym_len(pairs, s2, done))
            return false;
        u32 length = pairs->sym_len[s1] + pairs->sym_len[s2] + 1;
        if (length > 255) return false;
        pairs->sym_len[s] = static_cast<u8>(length);
    }
    done[s] = 2;
    return true;
}

// Bases: the first code of each length, left-justified in 64 bits.
static void set_bases(PairsData *pairs, int lengths) {
    pairs->base[lengths - 1] = 0;
    for (int i = lengths - 2; i >= 0; i--) {
        u64 a = read_le16(pairs->offset + 2 * i);
        u64 b = read_le16(pairs->offset + 2 * (i + 1));
        pairs->base[i] = (pairs->base[i + 1] + a - b) / 2;
    }
    // min_len is at least 1 and max_len at most 64: shifts of 0 to 63.
    for (int i = 0; i < lengths; i++)
        pairs->base[i] <<= 64 - (pairs->min_len + i);
}

PairsData *tb_setup_pairs(const u8 *&cursor, const u8 *file_end, u64 table_size,
                          u64 sizes_out[3], u8 *flags_out, int type) {
    const u8 *d = cursor;
    if (!fits(d, 2, file_end)) return nullptr;
    *flags_out = d[0];
    // 1. A table of one value.
    if (d[0] & 0x80) {
        PairsData *pairs = allocate_pairs(1, 0);
        pairs->idx_bits = 0;
        pairs->const_value[0] = type == WDL ? d[1] : 0;
        pairs->const_value[1] = 0;
        pairs->table_size = table_size;
        pairs->file_end = file_end;
        sizes_out[0] = sizes_out[1] = sizes_out[2] = 0;
        cursor = d + 2;
        return pairs;
    }
    // 2. The header: block size, index bits, code lengths
    if (!fits(d, 12, file_end)) return nullptr;
    int block_size = d[1], idx_bits = d[2];
    u64 real_blocks = read_le32(d + 4);
    u64 blocks = real_blocks + d[3];
    int max_len = d[8], min_len = d[9];
    if (min_len < 1 || max_len < min_len || max_len > 64) return nullptr;
    if (idx_bits < 1 || idx_bits > 30 || block_size > 30) return nullptr;
    int h = max_len - min_len + 1;
    if (!fits(d, 12 + 2 * h, file_end)) return nullptr;
    u32 symbols = read_le16(d + 10 + 2 * h);
    // 3. Symbol numbers are 12 bits, and 4095 marks a leaf.
    if (symbols >= TB_MAX_SYMS || symbols == 0) return nullptr;
    u64 header = 12 + 2 * h + 3 * symbols + (symbols & 1);
    if (!fits(d, header, file_end)) return nullptr;
    PairsData *pairs = allocate_pairs(h, symbols);
    pairs->block_size = static_cast<u8>(block_size);
    pairs->idx_bits = static_cast<u8>(idx_bits);
    pairs->min_len = static_cast<u8>(min_len);
    pairs->max_len = static_cast<u8>(max_len);
    pairs->num_syms = symbols;
    pairs->table_size = table_size;
    pairs->file_end = file_end;
    // 4. Where the code offsets and the symbol pairs lie
    pairs->offset = d + 10;
    pairs->sym_pat = d + 12 + 2 * h;
    cursor = d + header;
    // 5. The sizes of the index, size and data tables
    pairs->num_indices = (table_size + (1ULL << idx_bits) - 1) >> idx_bits;
    pairs->num_blocks = blocks;
    pairs->real_num_blocks = real_blocks;
    sizes_out[0] = pairs->num_indices * 6;
    sizes_out[1] = blocks * 2;
    sizes_out[2] = real_blocks << block_size;
    // 6. The length of every symbol
    u8 done[TB_MAX_SYMS];
    std::memset(done, 0, sizeof done);
    for (u32 s = 0; s < symbols; s++)
        if (!tb_sym_len(pairs, s, done)) {
            tb_free_pairs(pairs);
            return nullptr;
        }
    // 7. The first code of each length
    set_bases(pairs, h);
    return pairs;
}

// Steps through the size table from the index record's block to the block
// that holds value `lit` of it; false if it leaves the table.
static bool find_block(const PairsData *p, u64 &block, i64 &lit) {
    while (lit < 0) {
        if (block == 0) return false;
        block--;
        lit += read_le16(p->size_table + 2 * block) + 1;
    }
    for (;;) {
        if (block >= p->num_blocks) return false;
        i64 size = read_le16(p->size_table + 2 * block);
        if (lit <= size) return true;
        lit -= size + 1;
        block++;
    }
}

int tb_decompress(const PairsData *p, u64 index, int type) {
    // 1. A one-value table; an index out of range fails
    if (p->idx_bits == 0) return p->const_value[0];
    if (index >= p->table_size) return -1;
    // 2. The index record: its block and the offset in it
    u64 main_index = index >> p->idx_bits;
    const u8 *record = p->index_table + 6 * main_index;
    i64 lit = static_cast<i64>(index & ((1ULL << p->idx_bits) - 1)) -
              (1LL << (p->idx_bits - 1)) + read_le16(record + 4);
    u64 block = read_le32(record);
    // 3. Walk to the block that holds the value
    if (!find_block(p, block, lit)) return -1;
    if (block >= p->real_num_blocks) return -1;
    // 4. The decoder may fetch a word beyond the block's last code: reads
    // stop only at the file's end, and zeros stand in for what lies past it.
    const u8 *at = p->data + (block << p->block_size);
    const u8 *end = p->file_end;
    if (!fits(at, 8, end)) return -1;
    // 5. Decode symbols up to the one that holds the value
    u64 code = read_be64(at);
    at += 8;
    int bits_used = 0;
    int min_len = p->min_len;
    u32 symbol;
    for (;;) {
        int l = min_len;
        while (code < p->base[l - min_len]) {
            if (++l > p->max_len) return -1;
        }
        symbol = read_le16(p->offset + 2 * (l - min_len)) +
                 static_cast<u32>((code - p->base[l - min_len]) >> (64 - l));
        if (symbol >= p->num_syms) return -1;
        if (lit < p->sym_len[symbol] + 1) break;
        lit -= p->sym_len[symbol] + 1;
        code = l < 64 ? code << l : 0;
        bits_used += l;
        if (bits_used >= 32) {
            bits_used -= 32;
            if (fits(at, 4, end))
                code |= static_cast<u64>(read_be32(at)) << bits_used;
            at += 4;
        }
    }
    // 6. Descend the symbol's pairs to a single value
    while (p->sym_len[symbol] != 0) {
        u32 s1, s2;
        symbol_halves(p, symbol, s1, s2);
        if (lit < p->sym_len[s1] + 1) {
            symbol = s1;
        } else {
            lit -= p->sym_len[s1] + 1;
            symbol = s2;
        }
    }
    // 7. The value
    const u8 *w = p->sym_pat + 3 * symbol;
    return type == WDL ? w[0] : (w[0] | ((w[1] & 15) << 8));
}
