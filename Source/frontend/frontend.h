// The front end's records: every setting a user can make, and the state of
// the running search that the main thread and the search threads share.
#pragma once

#include <atomic>

#include "../position/position.h"

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

// Bits of SearchStatus.state.
constexpr u16 STATE_THINKING = 1;
constexpr u16 STATE_PONDERING = 2;
constexpr u16 STATE_BENCH = 4;
// Any of the low four bits: a search of some kind is under way.
constexpr u16 STATE_SEARCH_BITS = 15;
constexpr u16 STATE_REQUEST_THINK = 16;
constexpr u16 STATE_REQUEST_PONDER = 32;
constexpr u16 STATE_FINISHED = 64;
constexpr u16 STATE_STOP_RECEIVED = 128;

// The running search.  stop, state and depth are polled by other threads
// without a lock, so they are atomics read and written relaxed.
struct SearchStatus {
    u8 use_hash;
    u16 age;
    u8 root_side;
    std::atomic<u16> state;
    u16 book_move;
    f32 target_nps;
    u16 throttle;
    f32 clock[2];
    i16 moves_to_go;
    f32 target_time;
    f32 elapsed;
    std::atomic<u8> stop;
    std::atomic<i8> depth;
    i8 best_depth;
    i8 seldepth;
    i16 score;
    u16 pv[81];
    i16 root_eval;
    i16 last_eval;
    i8 best_change_depth;
    u8 single_reply;
    i8 ebf_depth;
    i16 score_at[81];
    u16 move_at[81];
    u64 nodes_at[81];
    u64 nodes, eval_probes, eval_hits, hash_probes, hash_hits;
    u64 pawn_probes, pawn_hits, tb_hits;
    f32 hash_fill;
    i32 tb_result;
    u16 tb_move;
    i32 count[4];
    // Per colour: the score a tablebase result at the root stands for.
    i16 tb_score[2];
    // The last depth the main search finished, and when.
    i8 finished_depth;
    f32 finished_time;
    // Best move and score of each MultiPV line.
    u16 multipv_move[256];
    i16 multipv_score[256];
};

extern SearchStatus status;

// The values the entry point gives the search status before anything runs.
void set_default_status();

// The search thread sets STATE_FINISHED with release order as its last
// act; a reader that sees the bit (acquire) also sees the result it left.
inline u16 load_state() { return status.state.load(std::memory_order_acquire); }
inline void store_state(u16 v) {
    status.state.store(v, std::memory_order_relaxed);
}
inline void add_state_bits(u16 bits) {
    status.state.fetch_or(bits, std::memory_order_release);
}
inline i8 load_depth() { return status.depth.load(std::memory_order_acquire); }
inline void store_depth(i8 v) {
    status.depth.store(v, std::memory_order_release);
}
inline u8 load_stop() { return status.stop.load(std::memory_order_relaxed); }
inline void store_stop(u8 v) {
    status.stop.store(v, std::memory_order_relaxed);
}
