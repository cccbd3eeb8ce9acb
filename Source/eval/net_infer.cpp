// The forward pass: the first layer kept as an accumulator patched from
// the last evaluation with the same side to move, integer maths to the
// end of the hidden layers, then a float output stage that turns a
// winning probability into centipawns.
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <ctime>

#include "core/output.h"
#include "core/relaxed.h"
#include "core/score.h"
#include "core/settings.h"
#include "core/spinlock.h"
#include "core/status.h"
#include "eval.h"
#include "network.h"

// Beyond this the net claims a decided game; mates and tablebase wins
// stand far above it.
constexpr int NET_SCORE_LIMIT = 1919;
constexpr int PATCH_SQUARES = 8;
constexpr int PATCH_MIN_PLY = 3;

template <class T>
static T *zeroed(int64_t count) {
    return static_cast<T *>(std::calloc(count > 0 ? count : 1, sizeof(T)));
}

void release_network_state(EvalWorker *worker) {
    NetworkState &s = worker->nn;
    for (Accumulator *acc : s.accumulators) {
        if (acc) std::free(acc->values);
        std::free(acc);
    }
    std::free(s.working_accumulator);
    std::free(s.hidden_values);
    std::free(s.feature_marks);
    std::memset(&s, 0, sizeof s);
}

// Buffers sized for the current net.  A Worker made for a net of another
// shape starts over with fresh ones.
static bool set_up_network_state(EvalWorker *worker) {
    NetworkState &s = worker->nn;
    const NetworkDescriptor &n = network;
    if (s.accumulators[0] && s.made_inputs == n.inputs &&
        s.made_layer1 == n.layer1_size && s.made_layer2 == n.layer2_size)
        return true;
    release_network_state(worker);
    s.net = &network;
    s.made_inputs = n.inputs;
    s.made_layer1 = n.layer1_size;
    s.made_layer2 = n.layer2_size;
    s.working_accumulator = zeroed_lanes(n.layer1_size);
    s.hidden_values = zeroed_lanes(n.layer2_size);
    s.feature_marks = zeroed<u8>(n.inputs);
    bool ok = s.working_accumulator && s.hidden_values && s.feature_marks;
    for (Accumulator *&acc : s.accumulators) {
        acc = zeroed<Accumulator>(1);
        if (acc) {
            acc->values = zeroed_lanes(n.layer1_size);
            // An empty board: a first patch has nothing to take out.
            acc->board.extra = NO_NET_FEATURE;
        }
        ok = ok && acc && acc->values;
    }
    if (!ok) {
        release_network_state(worker);
        return false;
    }
    // A draw from the clock, so that a new game gets new noise.
    spin_take(random_lock);
    std::srand(static_cast<unsigned>(std::time(nullptr)));
    s.noise_seed = static_cast<u32>(std::rand());
    spin_release(random_lock);
    return true;
}

void fix_network_noise(EvalWorker *worker, u32 seed) {
    if (network_ready() && set_up_network_state(worker))
        worker->nn.noise_seed = seed;
}

static const i16 *row_of(int feature) {
    return network.layer1_weights + int64_t{feature} * network.layer1_size;
}

// Steps 1 and 2 by the lists: from the last sums with this side to move,
// take out the features that went and add those that came.
static void patch_by_lists(NetworkState &s, const Accumulator &acc,
                           RowUpdate &u) {
    u16 stored[NET_MAX_FEATURES];
    int stored_count = net_board_features(acc.board, stored);
    u.from = acc.values;
    u.gone_count = u.came_count = 0;
    for (int i = 0; i < s.feature_count; i++)
        s.feature_marks[s.features[i]] = 1;
    for (int i = 0; i < stored_count; i++) {
        u16 f = stored[i];
        if (s.feature_marks[f])
            s.feature_marks[f] = 0;
        else
            u.gone[u.gone_count++] = row_of(f);
    }
    for (int i = 0; i < s.feature_count; i++) {
        u16 f = s.features[i];
        if (!s.feature_marks[f]) continue;
        u.came[u.came_count++] = row_of(f);
        s.feature_marks[f] = 0;
    }
}

// Steps 1 and 2 by the boards: when both kings kept their wings, the men
// that left or reached a square are the features that went or came, and
// the bitboards give them in list order without writing the lists out.
static void patch_by_boards(const NetworkState &s, const Accumulator &acc,
                            RowUpdate &u) {
    FeatureChanges changes;
    net_board_changes(acc.board, s.board, changes);
    u.from = acc.values;
    u.gone_count = changes.gone_count;
    u.came_count = changes.came_count;
    for (int k = 0; k < changes.gone_count; k++)
        u.gone[k] = row_of(changes.gone[k]);
    for (int k = 0; k < changes.came_count; k++)
        u.came[k] = row_of(changes.came[k]);
}

// Step 3.
static void start_changes(const NetworkState &s, RowUpdate &u) {
    u.from = nullptr;
    u.bias = network.biases[1];
    u.gone_count = 0;
    u.came_count = s.feature_count;
    for (int i = 0; i < s.feature_count; i++) u.came[i] = row_of(s.features[i]);
}

static bool same_wings(const NetBoard &a, const NetBoard &b) {
    return a.whole && b.whole && a.mirror[WHITE] == b.mirror[WHITE] &&
           a.mirror[BLACK] == b.mirror[BLACK];
}

// The first layer, its activation, and (for a net without a second
// layer) the output's dot product with `output_row`, which is returned;
// the activations are kept in the working sums only for the second layer.
static i32 first_layer(EvalWorker *worker, const Position &pos,
                       const i16 *output_row) {
    NetworkState &s = worker->nn;
    Accumulator &acc = *s.accumulators[pos.side & 1];
    u64 occupied = occupied_squares(pos);
    // 1. A king crossing between the d and e files changes the features
    // but not these tests: the patch by lists copes.
    bool can_patch = acc.wing_flag == s.wing_flag &&
                     worker->eval.eval_ply >= PATCH_MIN_PLY &&
                     count_bits(occupied ^ acc.occupied) <= PATCH_SQUARES;
    RowUpdate u;
    if (can_patch && same_wings(acc.board, s.board)) {
        patch_by_boards(s, acc, u);
    } else {
        s.feature_count =
            static_cast<i16>(net_board_features(s.board, s.features));
        if (can_patch)
            patch_by_lists(s, acc, u);
        else
            start_changes(s, u);
    }
    // All rows in one pass over the lanes, every lane in the order of the
    // lists; step 4 keeps the sums in the side's accumulator as it goes,
    // and the activation follows while the lanes are at hand.
    i16 *active = output_row ? nullptr : s.working_accumulator;
    i32 dot =
        update_rows(u, active, acc.values, network.layer1_size, output_row);
    acc.board = s.board;
    acc.ply = worker->eval.eval_ply;
    acc.wing_flag = s.wing_flag;
    acc.occupied = occupied;
    return dot;
}

// The optional second layer.  One running value carries from node to
// node: each node starts from the previous node's scaled value.
static void second_layer(NetworkState &s) {
    int width = network.layer1_size;
    f32 t = network.biases[2];
    for (int node = 0; node < network.layer2_size; node++) {
        const i16 *row = network.layer2_weights + int64_t{node} * width;
        t += static_cast<f32>(dot_product(row, s.working_accumulator, width));
        if (t >= -54000000.0f) {
            t = std::min(t * 0.00055555557f, 30000.0f);
            i32 v = static_cast<i32>(t);
            s.hidden_values[node] = static_cast<i16>(v < 0 ? v / 32 : v);
        } else {
            t = -30000.0f;
            s.hidden_values[node] = -937;
        }
    }
}

void network_activations(const EvalWorker *worker, i16 *out) {
    const NetworkState &s = worker->nn;
    int width = network.layer1_size;
    const Accumulator *acc = s.accumulators[worker->position.side & 1];
    if (acc)
        std::memcpy(out, acc->values, sizeof(i16) * static_cast<size_t>(width));
    else
        std::memset(out, 0, sizeof(i16) * static_cast<size_t>(width));
    leaky_rectify(out, width);
}

i32 network_score(i32 dot, int width, u32 noise, bool add_noise,
                  f32 &probability) {
    f32 p = 0.5f;
    if (width >= 1) {
        // 1. to 4.: (1 - x/256)^256 stands for e^-x.
        f32 s = static_cast<f32>(dot);
        f32 x = static_cast<f32>(s * 3.08641975308642e-7);
        f32 u = 1.0f - x / 256.0f;
        for (int i = 0; i < 8; i++) u *= u;
        p = 1.0f / (1.0f + u);
    }
    probability = p;
    // 5. A little noise on the probability
    if (add_noise) {
        p = static_cast<f32>(p +
                             (static_cast<int>(noise & 255) - 127) * 0.0001);
        if (p < 0.0f) {
            probability = 0.0f;
            return -NET_SCORE_LIMIT;
        }
        if (p > 1.0f) {
            probability = 1.0f;
            return NET_SCORE_LIMIT;
        }
        probability = p;
    }
    // 6., 7. Probability to centipawns, capped near certainty
    if (p < 1e-5) return -NET_SCORE_LIMIT;
    if (p > 0.99999) return NET_SCORE_LIMIT;
    return static_cast<i32>(std::log(1.0 / p - 1.0) * -166.6666717529297);
}

i32 network_evaluate(EvalWorker *worker) {
    Position &pos = worker->position;
    NetworkState &s = worker->nn;
    worker->eval.eval_position = &pos;
    worker->eval.eval_worker = worker;
    s.net_probability = -0.001f;
    if (!network_ready()) return 0;
    if (!set_up_network_state(worker)) {
        print_line("error initializing NN!");
        return -INFINITE_SCORE;
    }
    net_board_of(pos, network.inputs_piece, network.inputs_extra, s.board);
    s.wing_flag = s.board.wing_flag;
    s.output_bucket = static_cast<u16>(output_bucket_of(pos));
    i32 dot;
    int width;
    if (network.layer2_size > 0) {
        first_layer(worker, pos, nullptr);
        second_layer(s);
        width = network.layer2_size;
        dot = dot_product(
            network.output_weights + int64_t{s.output_bucket} * width,
            s.hidden_values, width);
    } else {
        width = network.layer1_size;
        dot = first_layer(
            worker, pos,
            network.layer2_weights + int64_t{s.output_bucket} * width);
    }
    bool add_noise = relaxed_load(settings.noise) != 0.0f && game_board &&
                     game_board->hist_index > 1;
    u32 noise = static_cast<u32>(pos.key) ^ s.noise_seed;
    return network_score(dot, width, noise, add_noise, s.net_probability);
}
