// The trainer's float net: samples from records, the forward pass, and the
// gradient step with Adam.
#include <algorithm>
#include <cmath>
#include <thread>

#include "eval/eval.h"
#include "eval/network.h"
#include "net_trainer.h"
#include "position/notation.h"
#include "search/search.h"
#include "splitmix.h"

TrainerConfig default_trainer() {
    TrainerConfig c{};
    c.hidden = 512;
    c.lambda = 0.75f;
    c.lr = 0.002f;
    c.batch = 16384;
    c.visits = 0;
    c.threads = 1;
    c.seed = 1;
    c.validate_every = 50;
    c.hand_target = false;
    c.scale = 400.0f;
    c.sitting = 0;
    c.shared_wings = false;
    c.sum_bound = 24000;
    c.quiet_only = false;
    c.cosine = false;
    return c;
}

static float uniform(u64 &state, float a) {
    double u = static_cast<double>(next_random(state) >> 11) * 0x1.0p-53;
    return static_cast<float>((2.0 * u - 1.0) * a);
}

static_assert(NET_SHARED_ROWS * 2 == NET_PIECE_INPUTS);

void init_model(NetModel &m, int hidden, u64 seed, bool shared_wings) {
    m.hidden = hidden;
    m.shared_wings = shared_wings;
    m.w1.assign(model_input_rows(shared_wings) * hidden, 0.0f);
    m.out.assign(static_cast<size_t>(NET_BUCKETS) * hidden, 0.0f);
    u64 state = seed;
    // About 33 features are active: first-layer sums start near 0.5 in size.
    // The common rows start at 0, so that the sums start the same.
    const size_t own = static_cast<size_t>(NET_INPUTS) * hidden;
    for (size_t i = 0; i < own; i++) m.w1[i] = uniform(state, 0.15f);
    float a = 1.0f / std::sqrt(static_cast<float>(hidden));
    for (float &w : m.out) w = uniform(state, a);
}

// The common row that piece input `feature` shares, or -1.
static int shared_row(const NetModel &m, int feature) {
    if (!m.shared_wings || feature >= NET_PIECE_INPUTS) return -1;
    return NET_INPUTS + feature % NET_SHARED_ROWS;
}

NetModel folded_model(const NetModel &m) {
    NetModel f{m.hidden, false, m.w1, m.out};
    f.w1.resize(static_cast<size_t>(NET_INPUTS) * m.hidden);
    const float limit = static_cast<float>(NET_WORKING_LIMIT) / NET_SCALE;
    for (int feature = 0; feature < NET_PIECE_INPUTS; feature++) {
        int common = shared_row(m, feature);
        if (common < 0) break;
        float *row = &f.w1[static_cast<size_t>(feature) * m.hidden];
        const float *add = &m.w1[static_cast<size_t>(common) * m.hidden];
        for (int j = 0; j < m.hidden; j++)
            row[j] = std::clamp(row[j] + add[j], -limit, limit);
    }
    return f;
}

bool wins_material(const Position &pos) {
    const u64 occupied = occupied_squares(pos);
    const int them = pos.side ^ 1;
    for (int type = PAWN; type <= QUEEN; type++)
        for (u64 b = pos.bitboards[them][type]; b; b = clear_first_bit(b))
            if (swap_value(pos, pos.side, first_bit(b), type, occupied) >= 100)
                return true;
    return false;
}

bool make_sample(const TrainRecord &r, const TrainerConfig &c, TrainSample &s) {
    if (!record_has_kings(r)) return false;
    Position &pos = front_worker->position;
    set_record_position(pos, r);
    // A side in check is never judged by the evaluation (the search answers
    // the check first): such a position teaches the net nothing it uses.
    if (square_attacked(pos, pos.king_sq[pos.side], pos.side ^ 1)) return false;
    if (c.quiet_only && wins_material(pos)) return false;
    u16 features[NET_MAX_FEATURES];
    u16 wing = 0;
    int n = network_features(pos, NET_PIECE_INPUTS,
                             NET_INPUTS - NET_PIECE_INPUTS, features, wing);
    if (n > SAMPLE_FEATURES) return false;
    std::copy(features, features + n, s.features);
    s.count = static_cast<u8>(n);
    s.bucket = static_cast<u8>(output_bucket_of(pos));
    int score = c.hand_target ? hand_score() : r.sc;
    s.target = c.lambda * score_probability(score, c.scale) +
               (1.0f - c.lambda) * score_probability(r.result_logit, c.scale);
    return true;
}

i16 hand_score() {
    u8 kept = settings.use_nn;
    settings.use_nn = 0;
    // Ply 0: no cache hit, and no contempt or damping on a fresh position.
    i32 v = evaluate(front_worker, front_worker->position.side, 0, 0);
    settings.use_nn = kept;
    return static_cast<i16>(
        std::clamp<i32>(v, -SEARCH_SCORE_CLAMP, SEARCH_SCORE_CLAMP));
}

static void add_row(const NetModel &m, int row_index, float *h) {
    const int n = m.hidden;
    const float *row = &m.w1[static_cast<size_t>(row_index) * n];
    for (int j = 0; j < n; j++) h[j] += row[j];
}

// The first-layer sums (the activation clips them to what a 16-bit
// accumulator holds).
static void layer1_sums(const NetModel &m, const TrainSample &s, float *h) {
    std::fill(h, h + m.hidden, 0.0f);
    for (int i = 0; i < s.count; i++) {
        add_row(m, s.features[i], h);
        int common = shared_row(m, s.features[i]);
        if (common >= 0) add_row(m, common, h);
    }
}

static float activation(float h) {
    float c = std::clamp(h, -NET_SUM_LIMIT, NET_SUM_LIMIT);
    return c >= 0.0f ? c : c / 32.0f;
}

float model_logit(const NetModel &m, const TrainSample &s) {
    std::vector<float> h(m.hidden);
    layer1_sums(m, s, h.data());
    const float *row = &m.out[static_cast<size_t>(s.bucket) * m.hidden];
    float x = 0.0f;
    for (int j = 0; j < m.hidden; j++) x += row[j] * activation(h[j]);
    return x;
}

// The engine's output stage computes e^-x as (1 - x/256)^256: its
// probability is 1 / (1 + e^-y) with y = -256 ln(1 - x/256), and the score
// it returns is y times 166.67.  The model learns y, so that the engine's
// score is the one learned, also far from 0.  Beyond |x| = 255 the base
// would turn negative; such logits are far past the score bounds anyway.
static float engine_logit(float x) {
    return -256.0f * std::log(1.0f - std::clamp(x, -255.0f, 255.0f) / 256.0f);
}

constexpr float SCORE_PER_LOGIT = 166.66667f;

float score_probability(float score, float scale) {
    return 1.0f / (1.0f + std::exp(-score / scale));
}

// The model's probability on the loss's scale, and its slope in x.
static float scaled_probability(float x, float scale) {
    return score_probability(engine_logit(x) * SCORE_PER_LOGIT, scale);
}

static float scaled_slope(float x, float q, float scale) {
    float base = 1.0f - std::clamp(x, -255.0f, 255.0f) / 256.0f;
    return q * (1.0f - q) * SCORE_PER_LOGIT / scale / base;
}

int logit_score(float x) {
    // The engine's dot product is the logit times 1800^2.
    double dot = std::clamp(static_cast<double>(x) * NET_SCALE * NET_SCALE,
                            -2147483647.0, 2147483647.0);
    f32 probability;
    return network_score(static_cast<i32>(std::lround(dot)), 1, 0, false,
                         probability);
}

double model_loss(const NetModel &m, const std::vector<TrainSample> &samples,
                  float scale) {
    double sum = 0.0;
    for (const TrainSample &s : samples) {
        double d = scaled_probability(model_logit(m, s), scale) - s.target;
        sum += d * d;
    }
    return samples.empty() ? 0.0 : sum / static_cast<double>(samples.size());
}

// Gradients of one thread's share of a batch.
struct Gradients {
    std::vector<float> w1, out;
    double loss;
};

static void add_gradient(Gradients &g, int n, int row_index, const float *dh) {
    float *gw = &g.w1[static_cast<size_t>(row_index) * n];
    for (int j = 0; j < n; j++) gw[j] += dh[j];
}

// The hinge's slope on a first-layer sum past the bound (float units).
static float bound_pull(float h, float bound) {
    if (bound <= 0.0f) return 0.0f;
    float past = h > bound ? h - bound : h < -bound ? h + bound : 0.0f;
    return 2.0f * SUM_PENALTY * past;
}

static void accumulate(const NetModel &m, const TrainSample *samples, int count,
                       float scale, float bound, Gradients &g) {
    const int n = m.hidden;
    std::vector<float> h(n), a(n), dh(n);
    std::fill(g.w1.begin(), g.w1.end(), 0.0f);
    std::fill(g.out.begin(), g.out.end(), 0.0f);
    g.loss = 0.0;
    for (int k = 0; k < count; k++) {
        const TrainSample &s = samples[k];
        layer1_sums(m, s, h.data());
        const float *row = &m.out[static_cast<size_t>(s.bucket) * n];
        float x = 0.0f;
        for (int j = 0; j < n; j++) {
            a[j] = activation(h[j]);
            x += row[j] * a[j];
        }
        float q = scaled_probability(x, scale), d = q - s.target;
        g.loss += static_cast<double>(d) * d;
        float dx = 2.0f * d * scaled_slope(x, q, scale);
        float *grow = &g.out[static_cast<size_t>(s.bucket) * n];
        for (int j = 0; j < n; j++) {
            grow[j] += dx * a[j];
            // A saturated sum passes no gradient back.
            float slope = h[j] > NET_SUM_LIMIT || h[j] < -NET_SUM_LIMIT ? 0.0f
                          : h[j] >= 0.0f                                ? 1.0f
                                         : 1.0f / 32.0f;
            dh[j] = dx * row[j] * slope + bound_pull(h[j], bound);
        }
        for (int i = 0; i < s.count; i++) {
            add_gradient(g, n, s.features[i], dh.data());
            int common = shared_row(m, s.features[i]);
            if (common >= 0) add_gradient(g, n, common, dh.data());
        }
    }
}

static void adam_update(std::vector<float> &w, const std::vector<float> &grad,
                        std::vector<float> &m1, std::vector<float> &v1,
                        float lr, float scale, u64 step) {
    const float b1 = 0.9f, b2 = 0.999f, eps = 1e-8f;
    const float c1 = 1.0f - std::pow(b1, static_cast<float>(step));
    const float c2 = 1.0f - std::pow(b2, static_cast<float>(step));
    const float limit = static_cast<float>(NET_WORKING_LIMIT) / NET_SCALE;
    for (size_t i = 0; i < w.size(); i++) {
        float g = grad[i] * scale;
        m1[i] = b1 * m1[i] + (1.0f - b1) * g;
        v1[i] = b2 * v1[i] + (1.0f - b2) * g * g;
        float step_size = lr * (m1[i] / c1) / (std::sqrt(v1[i] / c2) + eps);
        w[i] = std::clamp(w[i] - step_size, -limit, limit);
    }
}

double train_step(NetModel &m, AdamState &adam, const TrainSample *samples,
                  int count, float lr, float scale, int threads,
                  float sum_bound) {
    threads = std::clamp(threads, 1, 64);
    static std::vector<Gradients> grads;
    if (static_cast<int>(grads.size()) < threads) grads.resize(threads);
    for (int t = 0; t < threads; t++) {
        grads[t].w1.resize(m.w1.size());
        grads[t].out.resize(m.out.size());
    }
    if (adam.m1.size() != m.w1.size()) {
        adam.m1.assign(m.w1.size(), 0.0f);
        adam.v1.assign(m.w1.size(), 0.0f);
        adam.mo.assign(m.out.size(), 0.0f);
        adam.vo.assign(m.out.size(), 0.0f);
        adam.steps = 0;
    }
    // Each thread takes a fixed slice; the slices are summed in order, so a
    // run is the same for the same thread count.
    std::vector<std::thread> pool;
    int share = (count + threads - 1) / threads;
    for (int t = 1; t < threads; t++) {
        int first = std::min(count, t * share);
        int n = std::min(share, count - first);
        pool.emplace_back(accumulate, std::cref(m), samples + first, n, scale,
                          sum_bound, std::ref(grads[t]));
    }
    accumulate(m, samples, std::min(share, count), scale, sum_bound, grads[0]);
    for (std::thread &th : pool) th.join();
    double loss = grads[0].loss;
    for (int t = 1; t < threads; t++) {
        loss += grads[t].loss;
        for (size_t i = 0; i < m.w1.size(); i++)
            grads[0].w1[i] += grads[t].w1[i];
        for (size_t i = 0; i < m.out.size(); i++)
            grads[0].out[i] += grads[t].out[i];
    }
    adam.steps++;
    float mean = 1.0f / static_cast<float>(std::max(count, 1));
    adam_update(m.w1, grads[0].w1, adam.m1, adam.v1, lr, mean, adam.steps);
    adam_update(m.out, grads[0].out, adam.mo, adam.vo, lr, mean, adam.steps);
    return loss;
}
