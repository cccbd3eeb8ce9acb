// Registration of the evaluation parameters and the reader of parameter
// texts.
#include "params.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>

ParamEntry param_table[MAX_PARAMS];
int param_count;
int first_pst = -1;
int param_cursor;
ParamSlots param;

static void store_values(ParamEntry &entry, int mg, int eg) {
    entry.packed = make_pair(mg, eg);
    entry.mg = static_cast<f32>(mg);
    entry.eg = static_cast<f32>(eg);
}

void param_add(ParamEntry **slot, const char *name, int mg, int eg) {
    if (param_count >= MAX_PARAMS) return;
    ParamEntry &entry = param_table[param_count];
    std::memset(&entry, 0, sizeof entry);
    std::snprintf(entry.name, sizeof entry.name, "%s", name);
    store_values(entry, mg, eg);
    if (first_pst < 0 && std::strstr(name, "PST_")) first_pst = param_count;
    *slot = &entry;
    param_count++;
}

void pst_add(ParamEntry **slots, const char *name, const int *mg_table,
             const int *eg_table) {
    for (int sq = 0; sq < 64; sq++)
        param_add(&slots[sq], name, mg_table[sq ^ 56], eg_table[sq ^ 56]);
}

void params_register() {
    param_count = 0;
    first_pst = -1;
    param_add(&param.mtl_pawn, "mtl_pawn", 100, 100);
    param_add(&param.mtl_knight, "mtl_knight", 328, 404);
    param_add(&param.mtl_bishop, "mtl_bishop", 328, 405);
    param_add(&param.mtl_rook, "mtl_rook", 461, 722);
    param_add(&param.mtl_queen, "mtl_queen", 1052, 1286);
    param_add(&param.bishop_pair, "bishop_pair", 24, 64);
    param_add(&param.knight_mobility, "knight_mobility", 50, 39);
    param_add(&param.bishop_mobility, "bishop_mobility", 26, 64);
    param_add(&param.rook_mobility, "rook_mobility", 21, 84);
    param_add(&param.queen_mobility, "queen_mobility", 10, 190);
    param_add(&param.ppawn_base, "ppawn_base", 80, 191);
    param_add(&param.ppawn_mobile, "ppawn_mobile", 132, 255);
    param_add(&param.ppawn_free, "ppawn_free", 114, 353);
    param_add(&param.ppawn_connected, "ppawn_connected", -11, 23);
    param_add(&param.ppawn_fkprox, "ppawn_fkprox", -24, -88);
    param_add(&param.ppawn_ekprox, "ppawn_ekprox", 11, 149);
    param_add(&param.ppawn_candidate, "ppawn_candidate", 8, 100);
    param_add(&param.pawn_isolated, "pawn_isolated", -8, -8);
    param_add(&param.pawn_weak, "pawn_weak", -6, 8);
    param_add(&param.pawn_blocked, "pawn_blocked", -6, -7);
    param_add(&param.pawn_doubled, "pawn_doubled", 0, -3);
    param_add(&param.knight_outpost, "knight_outpost", 33, 25);
    param_add(&param.bishop_infiltration, "bishop_infiltration", 6, 6);
    param_add(&param.bishop_outpost, "bishop_outpost", 27, 30);
    param_add(&param.bishop_rampawns, "bishop_rampawns", -7, -17);
    param_add(&param.rook_infiltration, "rook_infiltration", 6, 5);
    param_add(&param.rook_openfile, "rook_openfile", 16, -2);
    param_add(&param.rook_7th, "rook_7th", 5, 22);
    param_add(&param.pawn_shield, "pawn_shield", 34, -7);
    param_add(&param.enemy_checks, "enemy_checks", -32, -16);
    param_add(&param.king_danger1, "king_danger1", -210, 46);
    param_add(&param.king_danger2, "king_danger2", -124, 46);
    param_add(&param.king_trapped, "king_trapped", -1, -32);
    param_add(&param.king_pawn_dist, "king_pawn_dist", 26, -99);
    param_add(&param.hung_pawn, "hung_pawn", -13, -49);
    param_add(&param.attacked_pawn, "attacked_pawn", 0, -19);
    param_add(&param.hung_minor, "hung_minor", -55, -53);
    param_add(&param.attacked_minor, "attacked_minor", -9, -28);
    param_add(&param.hung_major, "hung_major", -61, -28);
    param_add(&param.ppush_threat, "ppush_threat", -15, -20);
    param_add(&param.pinned_piece, "pinned_piece", -39, -77);
    param_add(&param.mtl_imbalance, "mtl_imbalance", 0, -20);
    param_add(&param.stm_bonus, "stm_bonus", 35, 17);
}

// The tables start at zero: the parameter text gives every value.
void params_build_pst() {
    static constexpr int ZERO[64] = {};
    ParamEntry **tables[9] = {param.pst_p1, param.pst_p2, param.pst_cp,
                              param.pst_dp, param.pst_n,  param.pst_b,
                              param.pst_r,  param.pst_q,  param.pst_k};
    static const char *const NAMES[9] = {"PST_P1", "PST_P2", "PST_CP",
                                         "PST_DP", "PST_N",  "PST_B",
                                         "PST_R",  "PST_Q",  "PST_K"};
    for (int i = 0; i < 9; i++) pst_add(tables[i], NAMES[i], ZERO, ZERO);
}

void params_add_spare_slots() {
    for (ParamEntry *&slot : param.ttune) param_add(&slot, "ttune", 0, 0);
}

// Stores the pairs of one "name,mg,eg,..." line from the cursor on.
static int load_line(char *line) {
    char *comma = std::strchr(line, ',');
    if (!comma) return 0;
    *comma = 0;
    const char *name = line;
    if (std::strcmp(name, "mtl_pawn") == 0) param_cursor = 0;
    int stored = 0;
    char *p = comma + 1;
    while (*p) {
        char *end;
        long mg = std::strtol(p, &end, 10);
        if (*end != ',') break;
        long eg = std::strtol(end + 1, &end, 10);
        if (param_cursor >= 0 && param_cursor < param_count) {
            ParamEntry &entry = param_table[param_cursor];
            if (std::strcmp(name, entry.name) != 0)
                std::printf("error %s  %s\n", name, entry.name);
            store_values(entry, static_cast<int>(mg), static_cast<int>(eg));
            stored++;
        }
        param_cursor++;
        if (*end != ',') break;
        p = end + 1;
    }
    return stored;
}

int params_load_text(const char *text) {
    int stored = 0;
    char line[1024];
    const char *p = text;
    while (*p) {
        // One line, at most 1023 characters, carriage returns left out.
        int n = 0;
        for (; *p && *p != '\n'; p++)
            if (*p != '\r' && n < 1023) line[n++] = *p;
        line[n] = 0;
        if (*p == '\n') p++;
        if (std::strstr(line, "start") || std::strchr(line, '(') ||
            std::strchr(line, ')'))
            continue;
        stored += load_line(line);
    }
    return stored;
}

void params_load_defaults() { params_load_text(DEFAULT_PARAM_TEXT); }

void init_eval_params() {
    params_register();
    params_build_pst();
    params_add_spare_slots();
    params_load_defaults();
}
