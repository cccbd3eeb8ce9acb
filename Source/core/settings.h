// Every setting a user can make, by switch, option or configuration file,
// with the copy that a running search works from.
#pragma once

#include "types.h"

constexpr const char *ENGINE_VERSION = "Quillon 6.50";

struct EngineSettings {
    u8 quit;
    f32 noise;  // seconds of search before info lines print; 9999 silences
    f32 learn_rate;
    i32 tune_positions;
    i32 mini_batch;
    u8 numa;
    u8 trace;
    u8 debug;
    char input_file[150];
    char input_file2[150];
    char output_file[150];
    u64 tag_key;
    u8 uci_mode;  // 1 UCI, 0 console
    u8 has_popcnt;
    u8 has_bmi;
    f32 calib_nps;
    f32 calib_elo;
    u64 max_nodes;
    i8 max_depth;
    i8 level_moves;
    f32 level_time;
    f32 level_inc;
    i32 hash_mb;
    i16 threads;
    u8 use_nn;
    i16 move_overhead;
    i16 ponder;
    u8 chess960;
    u8 multi_pv;
    u8 limit_strength;
    i16 elo;
    u8 log;
    u8 own_book;
    u8 book_variety;
    i8 book_depth;
    i8 book2_depth;
    char param_file[150];
    char nn_file[150];
    char config_path[144];
    char book_file[144];
    char book2_file[144];
    char syzygy_path[144];
    i8 tb_probe_depth_low;
    i8 tb_probe_depth6;
    i8 tb_probe_depth7;
    i16 contempt;
    i16 selectivity;
    i16 sep_depth;
    i16 nmp_depth;
    i16 fp_depth;
    i16 lmp_depth;
    i16 lmr_depth;
    // UCI_ShowWDL: info lines carry the win, draw and loss shares.
    u8 show_wdl;
};

extern EngineSettings settings;
extern EngineSettings settings_snapshot;

// Stores what the processor offers (popcnt, bmi); nothing reads it.
void probe_processor();
void set_default_settings();
void take_settings_snapshot();
