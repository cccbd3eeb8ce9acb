// The table registry and the decoder's records, shared by the files of
// the tablebase reader and by nothing else.
#pragma once

#include <atomic>
#include <cstddef>
#include <mutex>

#include "tb_board.h"

constexpr int TB_PIECE_CAPACITY = 650;  // files of a full 7-man set
constexpr int TB_PAWN_CAPACITY = 861;
constexpr int TB_HASH_SLOTS = 4096;
constexpr int TB_MAX_MEN = 7;
constexpr int TB_MAX_SYMS = 4096;  // symbol numbers are 12 bits wide

constexpr int WDL = 0;
constexpr int DTM = 1;
constexpr int DTZ = 2;
extern const char *const TB_SUFFIX[3];

constexpr u32 TB_MAGIC[3] = {0x5D23E871, 0x88AC504B, 0xA50C66D7};

// One table's Huffman decoder over the mapped file.
struct PairsData {
    const u8 *index_table;
    const u8 *size_table;
    const u8 *data;
    const u8 *offset;  // u16 per code length, from min_len on
    u8 *sym_len;
    const u8 *sym_pat;
    u8 block_size;
    u8 idx_bits;
    u8 min_len;
    u8 max_len;
    u8 const_value[2];
    u32 num_syms;
    u64 num_indices;
    u64 num_blocks;       // entries of the size table
    u64 real_num_blocks;  // blocks of data
    u64 table_size;       // index values of the table
    const u8 *file_end;
    u64 base[1];  // max_len - min_len + 1 of them
};

struct EncInfo {
    PairsData *precomp;
    u64 factor[TB_MAX_MEN];
    u8 pieces[TB_MAX_MEN];
    u8 norm[TB_MAX_MEN];
};

// The common head of both kinds of entry.
struct TbEntry {
    u64 key;
    const u8 *data[3];
    size_t size[3];  // length of the mapping, standing for its handle
    std::atomic<u8> ready[3];
    std::atomic<u8> broken;  // the table failed its first use
    u8 num;
    u8 symmetric;
    u8 has_pawns;
    u8 has_dtm;
    u8 has_dtz;
    u8 kk_enc;
    u8 pawns[2];
};

// The DTZ maps: per result class the place of its map in the map area,
// plus 1, and the number of values it holds.
struct DtzMaps {
    const u8 *map;
    u16 map_idx[4];
    u16 map_len[4];
    u8 flags;
};

struct TbPieceEntry : TbEntry {
    EncInfo ei[5];  // WDL by side to move, DTM by side, DTZ
    DtzMaps dtz;
};

struct TbPawnEntry : TbEntry {
    EncInfo ei[24];  // WDL 4 files x 2, DTM 6 x 2, DTZ 4
    DtzMaps dtz[4];
};

struct TbHashSlot {
    u64 key;
    std::atomic<TbEntry *> entry;
};

extern TbHashSlot tb_hash[TB_HASH_SLOTS];
extern std::mutex tb_mutex;
extern char **tb_path_list;
extern int tb_path_count;

// The EncInfo of `type` for side `side` and pawn file `file`.
EncInfo *tb_enc_info(TbEntry *entry, int type, int file, int side);
DtzMaps *tb_dtz_maps(TbEntry *entry, int file);

// Registry (discovery).
TbHashSlot *tb_find_slot(u64 key);
int tb_open_file(const char *name, const char *suffix);
void tb_free_entry(TbEntry *entry);

// Decoding.
extern u64 tb_binomial[7][64];
extern u64 tb_pawn_index[2][6][24];
extern u64 tb_pawn_factor_file[6][4];
extern u64 tb_pawn_factor_rank[6][4];
void tb_init_index_tables();
// Maps and decodes a table on its first use; false if it can't be used.
bool tb_first_use(TbEntry *entry, const TbPosition &pos, u64 key, int type);
void tb_free_pairs(PairsData *pairs);
// Builds a decoder from the bytes at `cursor`, advancing it; null when the
// bytes don't describe one inside the file.
PairsData *tb_setup_pairs(const u8 *&cursor, const u8 *file_end, u64 table_size,
                          u64 sizes_out[3], u8 *flags_out, int type);
// The value at `index`, or -1 when the compressed data are damaged.
int tb_decompress(const PairsData *pairs, u64 index, int type);
u64 tb_init_enc_info(EncInfo &ei, const TbEntry *entry, const u8 *table,
                     int shift, int file, int encoding, bool &ok);
// The index of the squares `sq` (table order) or ~0 for a placement the
// table can't hold.
u64 tb_encode_piece(const EncInfo &ei, const TbEntry *entry, int *sq);
u64 tb_encode_pawn(const EncInfo &ei, const TbEntry *entry, int *sq);
int tb_pawn_file(const TbEntry *entry, int *sq);
u64 tb_table_size(const EncInfo &ei);

// Probing one table.
int tb_probe_table(const TbPosition &pos, int s, int *success, int type);
