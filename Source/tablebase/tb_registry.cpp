// The table registry: which Syzygy files exist in the folders of
// SyzygyPath, found by trying every material up to seven men by name, and
// a hash from material keys to their entries.  Nothing is mapped here.
#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <new>
#include <string>
#include <utility>
#include <vector>

#include "core/settings.h"
#include "core/status.h"
#include "tb_internal.h"
#include "tb_probe.h"

int TB_LARGEST = 0;
std::atomic<bool> tb_init_pending{false};

const char *const TB_SUFFIX[3] = {".rtbw", ".rtbm", ".rtbz"};

TbHashSlot tb_hash[TB_HASH_SLOTS];
std::mutex tb_mutex;
char **tb_path_list = nullptr;
int tb_path_count = 0;

static char *tb_paths = nullptr;
static TbPieceEntry *piece_entries = nullptr;
static TbPawnEntry *pawn_entries = nullptr;
static int num_piece_entries = 0, num_pawn_entries = 0;
static int num_wdl = 0, num_dtm = 0, num_dtz = 0;
static int tb_largest_wdl = 0, tb_largest_dtm = 0;
static bool index_tables_filled = false;

int tb_open_file(const char *name, const char *suffix) {
    std::string file;
    for (int k = 0; k < tb_path_count; k++) {
        file.assign(tb_path_list[k]);
        file += '/';
        file += name;
        file += suffix;
        int fd = ::open(file.c_str(), O_RDONLY | O_CLOEXEC);
        if (fd < 0) continue;
        // A folder or a device with a table's name is no table.
        struct stat st;
        if (fstat(fd, &st) == 0 && S_ISREG(st.st_mode)) return fd;
        ::close(fd);
    }
    return -1;
}

// The size of an open file, -1 if it can't be read.
static long long file_size(int fd) {
    struct stat st;
    if (fstat(fd, &st) != 0) return -1;
    return static_cast<long long>(st.st_size);
}

// Every Syzygy file is a whole number of 64-byte blocks and a 16-byte
// checksum.
static bool whole_table_file(int fd) {
    long long size = file_size(fd);
    return size >= 0 && size % 64 == 16;
}

// The suffix keeps its own dot, so a file shows as "KQvK..rtbw".
static void report_incomplete(const char *name, const char *suffix) {
    std::fprintf(stderr, "Incomplete tablebase file %s.%s\n", name, suffix);
    std::printf("info string Incomplete tablebase file %s.%s\n", name, suffix);
}

static const char PIECE_LETTERS[] = "PNBRQK";

static u64 key_of_counts(const int counts[2][7], bool mirror) {
    TbPosition pos{};
    // Any squares will do: the key only counts the men of each kind.
    int sq = 0;
    u64 *kinds[7] = {nullptr,    &pos.pawns,  &pos.knights, &pos.bishops,
                     &pos.rooks, &pos.queens, &pos.kings};
    for (int side = 0; side < 2; side++)
        for (int kind = 1; kind <= 6; kind++)
            for (int n = 0; n < counts[side][kind] && sq < 64; n++, sq++) {
                *kinds[kind] |= bit(sq);
                (side == 0 ? pos.white : pos.black) |= bit(sq);
            }
    return tb_material_key(pos, mirror ? 1 : 0);
}

static void hash_insert(u64 key, TbEntry *entry) {
    int slot = static_cast<int>(key >> 52);
    for (int tries = 0; tries < TB_HASH_SLOTS; tries++) {
        if (!tb_hash[slot].entry.load(std::memory_order_relaxed)) {
            tb_hash[slot].key = key;
            tb_hash[slot].entry.store(entry, std::memory_order_relaxed);
            return;
        }
        slot = (slot + 1) & (TB_HASH_SLOTS - 1);
    }
}

TbHashSlot *tb_find_slot(u64 key) {
    int slot = static_cast<int>(key >> 52);
    for (int tries = 0; tries < TB_HASH_SLOTS; tries++) {
        TbHashSlot &s = tb_hash[slot];
        if (s.key == key || s.key == 0) return &s;
        slot = (slot + 1) & (TB_HASH_SLOTS - 1);
    }
    return nullptr;
}

// A table's companion file: its flag is set only for a whole file.
static bool find_companion(const char *name, int type) {
    int fd = tb_open_file(name, TB_SUFFIX[type]);
    if (fd < 0) return false;
    bool whole = whole_table_file(fd);
    ::close(fd);
    if (!whole) report_incomplete(name, TB_SUFFIX[type]);
    return whole;
}

static void clear_entry(TbEntry *e) {
    for (int t = 0; t < 3; t++) {
        e->data[t] = nullptr;
        e->size[t] = 0;
        e->ready[t].store(0, std::memory_order_relaxed);
    }
    e->broken.store(0, std::memory_order_relaxed);
}

static void tb_add(const char *name) {
    int counts[2][7] = {};
    int side = 0;
    for (const char *c = name; *c; c++) {
        if (*c == 'v') side = 1;
        const char *at = std::strchr(PIECE_LETTERS, *c);
        if (at && *c) counts[side][at - PIECE_LETTERS + 1]++;
    }
    u64 key = key_of_counts(counts, false);
    u64 mirrored_key = key_of_counts(counts, true);
    bool pawns = counts[0][PAWN] + counts[1][PAWN] != 0;
    TbEntry *e;
    if (pawns) {
        if (num_pawn_entries >= TB_PAWN_CAPACITY) return;
        e = &pawn_entries[num_pawn_entries++];
    } else {
        if (num_piece_entries >= TB_PIECE_CAPACITY) return;
        e = &piece_entries[num_piece_entries++];
    }
    num_wdl++;
    clear_entry(e);
    e->key = key;
    e->symmetric = key == mirrored_key;
    e->has_pawns = pawns;
    int men = 0;
    for (int s = 0; s < 2; s++)
        for (int k = 1; k <= 6; k++) men += counts[s][k];
    e->num = static_cast<u8>(men);
    e->has_dtm = find_companion(name, DTM);
    if (e->has_dtm) num_dtm++;
    e->has_dtz = find_companion(name, DTZ);
    if (e->has_dtz) num_dtz++;
    if (men > tb_largest_wdl) tb_largest_wdl = men;
    if (e->has_dtm && men > tb_largest_dtm) tb_largest_dtm = men;
    if (!pawns) {
        int singles = 0;
        for (int s = 0; s < 2; s++)
            for (int k = 1; k <= 6; k++) singles += counts[s][k] == 1;
        e->kk_enc = singles == 2;
        e->pawns[0] = e->pawns[1] = 0;
    } else {
        int w = counts[0][PAWN], b = counts[1][PAWN];
        // The side with fewer pawns, but some, leads the index.
        if (b > 0 && (w == 0 || b < w)) std::swap(w, b);
        e->pawns[0] = static_cast<u8>(w);
        e->pawns[1] = static_cast<u8>(b);
        e->kk_enc = 0;
    }
    hash_insert(key, e);
    if (mirrored_key != key) hash_insert(mirrored_key, e);
}

static void try_table(const char *name) {
    int fd = tb_open_file(name, TB_SUFFIX[WDL]);
    if (fd < 0) return;
    bool whole = whole_table_file(fd);
    ::close(fd);
    if (whole)
        tb_add(name);
    else
        report_incomplete(name, TB_SUFFIX[WDL]);
}

// Letters from strongest to weakest; a side's letters never rise.
static const char TRY_LETTERS[] = "QRBNP";

// All non-rising letter runs of length n, as indices into TRY_LETTERS.
static void runs(int n, int from, std::vector<int> &run,
                 std::vector<std::vector<int>> &out) {
    if (static_cast<int>(run.size()) == n) {
        out.push_back(run);
        return;
    }
    for (int k = from; k < 5; k++) {
        run.push_back(k);
        runs(n, k, run, out);
        run.pop_back();
    }
}

static std::vector<std::vector<int>> all_runs(int n) {
    std::vector<std::vector<int>> out;
    std::vector<int> run;
    runs(n, 0, run, out);
    return out;
}

// A second side that may be no stronger than the first, letter by letter
// from the left.
static bool no_stronger(const std::vector<int> &w, const std::vector<int> &b) {
    for (size_t k = 0; k < w.size() && k < b.size(); k++) {
        if (b[k] != w[k]) return b[k] > w[k];
    }
    return true;
}

static void try_materials(int white_men, int black_men, bool ordered) {
    for (const auto &w : all_runs(white_men))
        for (const auto &b : all_runs(black_men)) {
            if (ordered && !no_stronger(w, b)) continue;
            std::string name = "K";
            for (int k : w) name += TRY_LETTERS[k];
            name += "vK";
            for (int k : b) name += TRY_LETTERS[k];
            try_table(name.c_str());
        }
}

void tb_free_entry(TbEntry *entry) {
    for (int type = 0; type < 3; type++) {
        if (!entry->ready[type].load(std::memory_order_relaxed)) continue;
        if (entry->data[type] &&
            munmap(const_cast<u8 *>(entry->data[type]), entry->size[type]))
            std::fprintf(stderr, "unmap failed, error code %lu\n",
                         static_cast<unsigned long>(errno));
        entry->data[type] = nullptr;
        int files = entry->has_pawns ? 4 : 1;
        int sides = type == DTZ ? 1 : 2;
        for (int f = 0; f < files; f++)
            for (int s = 0; s < sides; s++) {
                EncInfo *ei = tb_enc_info(entry, type, f, s);
                tb_free_pairs(ei->precomp);
                ei->precomp = nullptr;
            }
        entry->ready[type].store(0, std::memory_order_relaxed);
    }
}

static void free_loaded_path() {
    std::free(tb_paths);
    tb_paths = nullptr;
    std::free(tb_path_list);
    tb_path_list = nullptr;
    tb_path_count = 0;
    for (int k = 0; k < num_piece_entries; k++)
        tb_free_entry(&piece_entries[k]);
    for (int k = 0; k < num_pawn_entries; k++) tb_free_entry(&pawn_entries[k]);
    num_piece_entries = num_pawn_entries = 0;
    num_wdl = num_dtm = num_dtz = 0;
}

// Cuts the path at each ';' and keeps the non-empty pieces.
static void split_path(const char *path) {
    size_t length = std::strlen(path);
    tb_paths = static_cast<char *>(std::malloc(length + 1));
    tb_path_list =
        static_cast<char **>(std::malloc((length / 2 + 2) * sizeof(char *)));
    if (!tb_paths || !tb_path_list) {
        std::fprintf(stderr, "Out of memory.\n");
        std::exit(1);
    }
    std::memcpy(tb_paths, path, length + 1);
    tb_path_count = 0;
    for (char *piece = tb_paths; piece <= tb_paths + length;) {
        char *end = std::strchr(piece, ';');
        if (!end) end = piece + std::strlen(piece);
        *end = 0;
        if (*piece) tb_path_list[tb_path_count++] = piece;
        piece = end + 1;
    }
}

static void allocate_entries() {
    if (piece_entries) return;
    piece_entries = new (std::nothrow) TbPieceEntry[TB_PIECE_CAPACITY]();
    pawn_entries = new (std::nothrow) TbPawnEntry[TB_PAWN_CAPACITY]();
    if (!piece_entries || !pawn_entries) {
        std::fprintf(stderr, "Out of memory.\n");
        std::exit(1);
    }
}

void tb_init_path(const char *path) {
    // 1. The index tables, once
    if (!index_tables_filled) {
        tb_init_index_tables();
        index_tables_filled = true;
    }
    // 2., 3. Drop the tables of the last path
    free_loaded_path();
    TB_LARGEST = 0;
    // 4. No path, no tables
    if (!path || !*path || std::strcmp(path, "<empty>") == 0) return;
    // 5. Split the path into folders
    split_path(path);
    // 6. Reset the counts
    num_wdl = num_dtm = num_dtz = 0;
    tb_largest_wdl = tb_largest_dtm = 0;
    // 7., 8. Room for the entries; an empty lookup table
    allocate_entries();
    for (TbHashSlot &s : tb_hash) {
        s.key = 0;
        s.entry.store(nullptr, std::memory_order_relaxed);
    }
    // 9. Each side's men beside its king; the bool asks for the second
    // side to be no stronger than the first.
    static constexpr struct {
        int white, black;
        bool ordered;
    } PATTERNS[] = {{1, 0, false}, {1, 1, true},  {2, 0, false}, {2, 1, false},
                    {3, 0, false}, {2, 2, true},  {3, 1, false}, {4, 0, false},
                    {5, 0, false}, {4, 1, false}, {3, 2, false}};
    for (const auto &p : PATTERNS) try_materials(p.white, p.black, p.ordered);
    // 10. Report what was found
    TB_LARGEST = std::max(tb_largest_wdl, tb_largest_dtm);
    std::printf(
        "info string Found %d WDL, %d DTM and %d DTZ tablebase files. "
        "Largest %d-men\n",
        num_wdl, num_dtm, num_dtz, TB_LARGEST);
    std::fflush(stdout);
}

void tb_init() { tb_init_path(settings.syzygy_path); }

int tb_entry_count() { return num_wdl; }
int tb_dtz_count() { return num_dtz; }
int tb_dtm_count() { return num_dtm; }
