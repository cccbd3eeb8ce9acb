// One table file: mapped and decoded the first time a probe needs it, then
// read without a lock.  The header is checked against the file's length
// when it is decoded, so that no later read can leave the file.
#include <sys/mman.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "core/output.h"
#include "core/relaxed.h"
#include "core/settings.h"
#include "tb_internal.h"

EncInfo *tb_enc_info(TbEntry *entry, int type, int file, int side) {
    if (!entry->has_pawns) {
        auto *e = static_cast<TbPieceEntry *>(entry);
        return &e->ei[type == DTZ ? 4 : 2 * type + side];
    }
    auto *e = static_cast<TbPawnEntry *>(entry);
    if (type == WDL) return &e->ei[2 * file + side];
    if (type == DTM) return &e->ei[8 + 2 * file + side];
    return &e->ei[20 + file];
}

DtzMaps *tb_dtz_maps(TbEntry *entry, int file) {
    if (!entry->has_pawns) return &static_cast<TbPieceEntry *>(entry)->dtz;
    return &static_cast<TbPawnEntry *>(entry)->dtz[file];
}

// A walk through the mapped bytes that knows where the file ends.
struct FileCursor {
    const u8 *base;
    u64 size;
    u64 at;
};

static bool cursor_has(const FileCursor &c, u64 bytes) {
    return c.at <= c.size && bytes <= c.size - c.at;
}

static void align_cursor(FileCursor &c, u64 to) {
    c.at = (c.at + to - 1) & ~(to - 1);
}

// The name of a table from a position of its material: the side of the
// entry's first-named material first, kings down to pawns.
static std::string table_name(const TbEntry *entry, const TbPosition &pos,
                              u64 key) {
    u64 first = key == entry->key ? pos.white : pos.black;
    u64 second = first == pos.white ? pos.black : pos.white;
    const u64 kinds[6] = {pos.kings,   pos.queens,  pos.rooks,
                          pos.bishops, pos.knights, pos.pawns};
    const char letters[] = "KQRBNP";
    std::string name;
    for (u64 side : {first, second}) {
        if (side == second) name += 'v';
        for (int k = 0; k < 6; k++)
            for (int n = count_bits(kinds[k] & side); n > 0; n--)
                name += letters[k];
    }
    return name;
}

// The order bytes of every file and side, with the size of each table;
// false if they name another material or leave the file.
static bool read_piece_orders(TbEntry *entry, FileCursor &c, int type,
                              bool split, u64 sizes[4][2]) {
    int files = entry->has_pawns ? 4 : 1;
    int sides = type == DTZ ? 1 : 2;
    int stride = entry->num + 1 + (entry->pawns[1] > 0 ? 1 : 0);
    for (int f = 0; f < files; f++) {
        if (!cursor_has(c, stride)) return false;
        for (int s = 0; s < sides; s++) {
            EncInfo *ei = tb_enc_info(entry, type, f, s);
            ei->precomp = nullptr;
            bool ok = true;
            sizes[f][s] = tb_init_enc_info(*ei, entry, c.base + c.at, 4 * s, f,
                                           entry->has_pawns ? 1 : 0, ok);
            // A side without a table of its own needs no valid order.
            if (!ok && (s == 0 || split)) return false;
        }
        c.at += stride;
    }
    align_cursor(c, 2);
    return true;
}

static void free_decoders(TbEntry *entry, int type) {
    int files = entry->has_pawns ? 4 : 1;
    for (int f = 0; f < files; f++)
        for (int s = 0; s < 2; s++) {
            if (type == DTZ && s == 1) continue;
            EncInfo *ei = tb_enc_info(entry, type, f, s);
            tb_free_pairs(ei->precomp);
            ei->precomp = nullptr;
        }
}

// The four maps of a DTZ table that passes its values through maps.
static bool read_dtz_maps(DtzMaps &maps, FileCursor &c) {
    if (!(maps.flags & 2)) return true;
    bool wide = (maps.flags & 16) != 0;
    if (wide) align_cursor(c, 2);
    for (int k = 0; k < 4; k++) {
        if (!cursor_has(c, wide ? 2 : 1)) return false;
        const u8 *at = c.base + c.at;
        u32 count = wide ? at[0] | (at[1] << 8) : at[0];
        u64 bytes = (wide ? 2 : 1) * (static_cast<u64>(count) + 1);
        if (!cursor_has(c, bytes)) return false;
        u64 from_map = c.at - (maps.map - c.base);
        maps.map_idx[k] =
            static_cast<u16>((wide ? from_map / 2 : from_map) + 1);
        maps.map_len[k] = static_cast<u16>(count);
        c.at += bytes;
    }
    return true;
}

// Steps 4 to 8 of a first use for the bytes of one mapped file.
static bool decode_table(TbEntry *entry, const u8 *base, u64 size, int type) {
    FileCursor c{base, size, 0};
    if (!cursor_has(c, 5)) return false;
    u32 magic = base[0] | (base[1] << 8) | (base[2] << 16) |
                (static_cast<u32>(base[3]) << 24);
    if (magic != TB_MAGIC[type]) return false;
    bool split = type != DTZ && (base[4] & 1);
    c.at = 5;
    u64 sizes[4][2] = {};
    if (!read_piece_orders(entry, c, type, split, sizes)) return false;
    int files = entry->has_pawns ? 4 : 1;
    int sides = type == DTZ ? 1 : split ? 2 : 1;
    u64 parts[4][2][3] = {};
    for (int f = 0; f < files; f++)
        for (int s = 0; s < sides; s++) {
            u8 flags = 0;
            const u8 *at = base + c.at;
            PairsData *p = tb_setup_pairs(at, base + size, sizes[f][s],
                                          parts[f][s], &flags, type);
            if (!p) return false;
            tb_enc_info(entry, type, f, s)->precomp = p;
            c.at = at - base;
            if (type == DTZ) tb_dtz_maps(entry, f)->flags = flags;
        }
    if (type == DTZ) {
        const u8 *map = base + c.at;
        for (int f = 0; f < files; f++) {
            DtzMaps *maps = tb_dtz_maps(entry, f);
            maps->map = map;
            if (!read_dtz_maps(*maps, c)) return false;
        }
        align_cursor(c, 2);
    }
    // Index tables, size tables, then the blocks, each 64-byte aligned.
    for (int part = 0; part < 3; part++)
        for (int f = 0; f < files; f++)
            for (int s = 0; s < sides; s++) {
                if (part == 2) align_cursor(c, 64);
                if (!cursor_has(c, parts[f][s][part])) return false;
                PairsData *p = tb_enc_info(entry, type, f, s)->precomp;
                const u8 *at = base + c.at;
                if (part == 0) p->index_table = at;
                if (part == 1) p->size_table = at;
                if (part == 2) p->data = at;
                c.at += parts[f][s][part];
            }
    return true;
}

// The error stream is the table code's own; a front end shows only what
// comes on standard output, so under UCI the trouble is told there too,
// with the file's name.
static void tell_front_end(const char *what, const std::string &name,
                           int type) {
    if (relaxed_load(settings.uci_mode) != 1) return;
    char line[200];
    std::snprintf(line, sizeof line, "info string %s %s%s", what, name.c_str(),
                  TB_SUFFIX[type]);
    print_line(line);
}

static void report_corrupted(const std::string &name, int type) {
    std::fprintf(stderr, "Corrupted table.\n");
    tell_front_end("Corrupted table", name, type);
}

// Maps the file of `type` for the entry and decodes it.  False when the
// file is gone or damaged; the caller then disables the table.
static bool map_table(TbEntry *entry, const TbPosition &pos, u64 key,
                      int type) {
    std::string name = table_name(entry, pos, key);
    int fd = tb_open_file(name.c_str(), TB_SUFFIX[type]);
    if (fd < 0) return false;
    off_t length = lseek(fd, 0, SEEK_END);
    // The file may have changed since it was found: a length that isn't a
    // table's is a damaged table, not a mapping failure.
    if (length < 16 || length % 64 != 16) {
        ::close(fd);
        report_corrupted(name, type);
        return false;
    }
    void *view = mmap(nullptr, static_cast<size_t>(length), PROT_READ,
                      MAP_SHARED, fd, 0);
    int error = errno;
    ::close(fd);
    if (view == MAP_FAILED) {
        std::fprintf(stderr, "MapViewOfFile() failed, error = %lu.\n",
                     static_cast<unsigned long>(error));
        std::fprintf(stderr, "Could not map %s%s into memory.\n", name.c_str(),
                     TB_SUFFIX[type]);
        tell_front_end("Could not map into memory:", name, type);
        std::exit(1);
    }
    const u8 *base = static_cast<const u8 *>(view);
    if (!decode_table(entry, base, static_cast<u64>(length), type)) {
        report_corrupted(name, type);
        free_decoders(entry, type);
        if (munmap(view, static_cast<size_t>(length)))
            std::fprintf(stderr, "unmap failed, error code %lu\n",
                         static_cast<unsigned long>(errno));
        return false;
    }
    entry->data[type] = base;
    entry->size[type] = static_cast<size_t>(length);
    return true;
}

// A table that failed its first use is never asked again, under either
// of its keys.
static void disable_table(TbEntry *entry) {
    entry->broken.store(1, std::memory_order_release);
    for (TbHashSlot &slot : tb_hash)
        if (slot.entry.load(std::memory_order_relaxed) == entry)
            slot.entry.store(nullptr, std::memory_order_release);
}

bool tb_first_use(TbEntry *entry, const TbPosition &pos, u64 key, int type) {
    if (entry->ready[type].load(std::memory_order_acquire)) return true;
    std::lock_guard<std::mutex> lock(tb_mutex);
    if (entry->broken.load(std::memory_order_relaxed)) return false;
    if (entry->ready[type].load(std::memory_order_relaxed)) return true;
    if (!map_table(entry, pos, key, type)) {
        disable_table(entry);
        return false;
    }
    // Last: every field above is written before a probe can see the flag.
    entry->ready[type].store(1, std::memory_order_release);
    return true;
}

// The squares of the men of each piece code from `start` on, in the
// table's order; false if the board doesn't hold the table's material.
static bool fill_squares(const TbPosition &pos, const EncInfo &ei, int start,
                         int num, bool flip, int *sq) {
    int i = start;
    while (i < num) {
        int code = ei.pieces[i] ^ (flip ? 8 : 0);
        u64 b = pieces_by_type(pos, (code & 8) ? 0 : 1, code & 7);
        if (!b) return false;
        for (; b; b &= b - 1) {
            if (i >= num) return false;
            sq[i++] = first_bit(b) ^ (flip ? 56 : 0);
        }
    }
    return true;
}

// A DTZ value through its class's map, and counted in plies.
static int dtz_value(const DtzMaps &maps, int value, int s) {
    static constexpr int CLASS_MAP[5] = {1, 3, 0, 2, 0};
    static constexpr int IN_MOVES[5] = {8, 0, 0, 0, 4};
    if (maps.flags & 2) {
        int k = CLASS_MAP[s + 2];
        if (value >= maps.map_len[k]) return -1;
        u64 at = maps.map_idx[k] + static_cast<u64>(value);
        value = (maps.flags & 16)
                    ? maps.map[2 * at] | (maps.map[2 * at + 1] << 8)
                    : maps.map[at];
    }
    if (!(maps.flags & IN_MOVES[s + 2]) || (s & 1)) value *= 2;
    return value;
}

int tb_probe_table(const TbPosition &pos, int s, int *success, int type) {
    // 1. The material key; bare kings draw
    u64 key = tb_material_key(pos, 0);
    if (type == WDL && key == 0) return 0;
    // 2. The table of this material
    TbHashSlot *slot = tb_find_slot(key);
    TbEntry *entry =
        slot ? slot->entry.load(std::memory_order_acquire) : nullptr;
    if (!entry || (type == DTZ && !entry->has_dtz)) {
        *success = 0;
        return 0;
    }
    // 3., 4. Map the file on first use
    if (!tb_first_use(entry, pos, key, type)) {
        *success = 0;
        return 0;
    }
    // 5. The colours as the table sees them, and the side to read
    bool flip, bside;
    if (entry->symmetric) {
        flip = pos.turn == 0;
        bside = false;
    } else {
        flip = key != entry->key;
        bside = flip == (pos.turn != 0);
    }
    // 6., 7. The squares of the men, in the table's order
    int sq[TB_MAX_MEN];
    int num = entry->num;
    if (num > TB_MAX_MEN || count_bits(pos.white | pos.black) != num) {
        *success = 0;
        return 0;
    }
    int file = 0;
    int start = 0;
    if (entry->has_pawns) {
        // Pawns on the first or last rank are no position of a table.
        if (pos.pawns & 0xFF000000000000FFULL) {
            *success = 0;
            return 0;
        }
        EncInfo *first = tb_enc_info(entry, type, 0, 0);
        int code = first->pieces[0] ^ (flip ? 8 : 0);
        u64 b = pieces_by_type(pos, (code & 8) ? 0 : 1, PYRRHIC_PAWN);
        if (count_bits(b) != entry->pawns[0]) {
            *success = 0;
            return 0;
        }
        for (; b; b &= b - 1) sq[start++] = first_bit(b) ^ (flip ? 56 : 0);
        file = tb_pawn_file(entry, sq);
    }
    const DtzMaps *maps = type == DTZ ? tb_dtz_maps(entry, file) : nullptr;
    if (type == DTZ && (maps->flags & 1) != bside && !entry->symmetric) {
        *success = -1;
        return 0;
    }
    const EncInfo &ei =
        *tb_enc_info(entry, type, file, type == DTZ ? 0 : bside);
    if (!ei.precomp || !fill_squares(pos, ei, start, num, flip, sq)) {
        *success = 0;
        return 0;
    }
    // 8. The index
    u64 index = entry->has_pawns ? tb_encode_pawn(ei, entry, sq)
                                 : tb_encode_piece(ei, entry, sq);
    // 9. The stored value
    int value = index == ~0ULL ? -1 : tb_decompress(ei.precomp, index, type);
    // 10. Map a DTZ value; check the range
    if (value >= 0 && type == DTZ) value = dtz_value(*maps, value, s);
    if (value < 0 || (type == WDL && value > 4)) {
        *success = 0;
        return 0;
    }
    return type == WDL ? value - 2 : value;
}
