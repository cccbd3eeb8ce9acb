// The evaluation network: the file layout, the one global descriptor, the
// loader, and the forward pass with its per-Worker accumulators.
#pragma once

#include <cstdio>

#include "position/position.h"

struct EvalWorker;

// The header of a net file and of the built-in block: seven 16-bit words
// and a 32-bit weight count, little-endian, then the stored weights.
constexpr int NET_HEADER_BYTES = 18;
// Stored weights are about 5.6 times the working ones.
constexpr double NET_LOAD_FACTOR = 0.18000000000000002;
// A stored weight beyond this in the built-in block means a broken build.
constexpr int NET_STORED_LIMIT = 30010;
// The largest block of weights a file may ask for, in 16-bit words: about
// 25 times the built-in net.  A header claiming more is refused instead of
// allocating gigabytes.
constexpr int64_t NET_MAX_WORDS = 64LL * 1024 * 1024;
// Piece inputs the feature scheme needs: 2 wing cases * 2 colours * 6
// types * 64 squares.
constexpr int NET_PIECE_INPUTS = 1536;
constexpr int NET_MAX_FEATURES = 64;
constexpr int NET_BUCKETS = 7;

struct NetworkDescriptor {
    u16 net_kind;
    u16 net_serial;
    i32 inputs_piece;
    i32 inputs_extra;
    i32 inputs;
    i32 outputs;
    i32 layer1_size;
    i32 layer2_size;
    i32 weight_count;
    i32 layer1_weights_count;
    i32 layer2_weights_count;
    i32 output_weights_count;
    i16 *storage;
    i16 *layer1_weights;
    i16 *layer2_weights;
    i16 *output_weights;
    i16 *biases;
};

extern NetworkDescriptor network;

// Rows of weights and sums start on a cache line: a row of a 512-wide
// layer is then exactly 16 lines, and no 64-byte load straddles two.
constexpr int64_t NET_LINE_BYTES = 64;
// `count` zeroed 16-bit lanes on a line of their own, freed with
// std::free; null when memory runs out.
i16 *zeroed_lanes(int64_t count);

// No feature: a net without the material input.
constexpr u16 NO_NET_FEATURE = 0xFFFF;

// The men of a position as the net sees them from the side to move: each
// colour's king (type 0) and pieces with the colour's mirror and block,
// and the material feature.  An accumulator keeps the board it was summed
// for instead of the feature list, so that the next patch can find the
// changed features from the bitboards and the list is only written out
// when a fresh start or a king changing wings needs it.
struct NetBoard {
    u64 men[2][6];
    u16 mirror[2];
    u16 block[2];
    u16 extra;
    u16 wing_flag;
    // Both kings present and few enough men that the list cuts none off.
    bool whole;
};

// The first layer as the last evaluation with one side to move left it.
struct Accumulator {
    i16 *values;
    NetBoard board;
    i16 ply;
    u16 wing_flag;
    u64 occupied;
};

// The features a patch takes out and adds, in the order of the lists.
struct FeatureChanges {
    int gone_count, came_count;
    u16 gone[NET_MAX_FEATURES];
    u16 came[NET_MAX_FEATURES];
};

// A Worker's network state, made on its first evaluation.  The sizes the
// buffers were made for are kept, so that a net of another shape gets
// fresh buffers instead of sums read past their end.
struct NetworkState {
    const NetworkDescriptor *net;
    f32 net_probability;
    // The activations, written out for a net with a second layer, which
    // reads them; a net without one multiplies them into its output while
    // they are in registers (network_activations gives them to a tool).
    i16 *working_accumulator;
    i16 *hidden_values;
    // The board of this evaluation.  Its feature list is written out only
    // when a fresh start or a patch by lists needs it.
    NetBoard board;
    i16 feature_count;
    u16 features[NET_MAX_FEATURES];
    u16 output_bucket;
    u16 wing_flag;
    u8 *feature_marks;
    Accumulator *accumulators[2];
    u32 noise_seed;
    i32 made_inputs, made_layer1, made_layer2;
};

// The built-in block, empty when the build carries no net.
extern const unsigned char *const embedded_network_data;
extern const u64 embedded_network_size;

// The largest working weight a stored 16-bit value can give.
constexpr int NET_WORKING_MAX = 5898;
// The stored value that loads as `working` (clipped to +-NET_WORKING_MAX),
// for writing nets.
i16 stored_weight_for(int working);

// The header fields of a net to write.
struct NetShape {
    int net_serial, net_kind, inputs_piece, inputs_extra;
    int layer1_size, layer2_size, outputs;
};
// Writing a net file: a little-endian word, the header (with the weight
// count the loader computes), one working weight as its stored value.
// Each is false on a write error.
bool put_net_word(FILE *f, u16 v);
bool put_net_header(FILE *f, const NetShape &s);
bool put_net_weight(FILE *f, int working);

// Loads the net that `name` names: "new", "embedded" or a file.
void load_network(const char *name);
// The "embedded" case on any block laid out as a net file: what the
// built-in block goes through, with its "error!" check of each weight.
void load_network_block(const unsigned char *block, u64 size);
// Frees the global net's storage (at shutdown).
void free_network();
// True when a net's weights stand in memory and can be evaluated.
bool network_ready();
// Set by NN_File during a search: the net is written only while no search
// runs, so the reload waits for the search's end, and then loads the file
// that the option names at that moment.
void request_network_reload();
void apply_network_reload(const char *name);
// Drops a reload asked for during a search.
void forget_network_reload();

// One forward pass on the worker's position: -1919..1919 for the side to
// move, 0 when no net is loaded, -10001 when the buffers can't be made.
i32 network_evaluate(EvalWorker *worker);
// The activations of the worker's last evaluation into `out`
// (`layer1_size` lanes): its side's sums through the leaky rectifier.
void network_activations(const EvalWorker *worker, i16 *out);
// Frees a Worker's network buffers and clears its state.
void release_network_state(EvalWorker *worker);
// Makes the Worker's buffers now and puts `seed` in place of the draw from
// the clock, so that a run which must repeat (self-play) gets the same
// evaluation noise every time.  Nothing happens when no net is loaded (its
// noise never enters a score then).
void fix_network_noise(EvalWorker *worker, u32 seed);

// The active features of a position from the side to move's view; the
// result is their number.  Sets `wing_flag`.
int network_features(const Position &pos, int inputs_piece, int inputs_extra,
                     u16 *features, u16 &wing_flag);
// The same in two steps: the board as the net sees it, then its list.
void net_board_of(const Position &pos, int inputs_piece, int inputs_extra,
                  NetBoard &board);
int net_board_features(const NetBoard &board, u16 *features);
// The features that went and came between two whole boards of the same
// side to move whose kings kept their wings: the same lists, in the same
// order, as comparing their feature lists would give.
void net_board_changes(const NetBoard &old_board, const NetBoard &new_board,
                       FeatureChanges &changes);
// The output row of a position: 0 with much material, 6 with pawns alone.
int output_bucket_of(const Position &pos);
// The float output stage: a 32-bit dot product to the winning probability
// and then to centipawns; `probability` receives what the Worker keeps.
i32 network_score(i32 dot, int width, u32 noise, bool add_noise,
                  f32 &probability);

// Row operations of the first layer, on `n` 16-bit lanes with signed
// saturation, and the 32-bit dot product; the widest path the build
// allows, bit-identical to the portable one.
void leaky_rectify(i16 *acc, int n);
i32 dot_product(const i16 *a, const i16 *b, int n);
// A whole first-layer update in one pass over the lanes: start from `from`
// (or `bias` in every lane when it is null), take out the `gone` rows in
// order, add the `came` rows in order, each step saturated, as
// sub_row_128 and add_row_128 one row after another would.
struct RowUpdate {
    const i16 *from;
    i16 bias;
    int gone_count, came_count;
    const i16 *gone[NET_MAX_FEATURES];
    const i16 *came[NET_MAX_FEATURES];
};
// Writes the sums to `sums` (`from` may be `sums`) and their leaky
// rectification to `active` (unless it is null), and returns the dot
// product of the activations with `output_row`, or 0 when it is null: what
// the separate passes of leaky_rectify and dot_product would give, while
// every lane is still in a register.
i32 update_rows(const RowUpdate &u, i16 *active, i16 *sums, int n,
                const i16 *output_row);
// The widest path this build has: "AVX-512BW", "AVX2" or "SSE2".
extern const char *const NETWORK_VECTOR_PATH;
// The same on 128-bit vectors only, and the single-row steps, for the
// tests.
void add_row_128(i16 *acc, const i16 *row, int n);
void sub_row_128(i16 *acc, const i16 *row, int n);
void leaky_rectify_128(i16 *acc, int n);
i32 dot_product_128(const i16 *a, const i16 *b, int n);
i32 update_rows_128(const RowUpdate &u, i16 *active, i16 *sums, int n,
                    const i16 *output_row);
