// -tune: trains the evaluation network on training records and writes it
// as a net file.  The model is the engine's own net in floating point: the
// piece-square features of each side mirrored by its king, one hidden layer
// with the leaky rectifier, seven output rows chosen by material, and the
// winning probability 1 / (1 + e^-x).  Its weights are the engine's working
// weights divided by NET_SCALE, so that export is a rounding.
#pragma once

#include <string>
#include <vector>

#include "tools/train_record.h"

// Working weights are float weights times this (both layers), so that the
// engine's dot product divided by NET_SCALE^2 is the float model's logit.
constexpr float NET_SCALE = 1800.0f;
// The largest working weight whose stored value stays within the built-in
// block's limit of 30010.
constexpr int NET_WORKING_LIMIT = 5401;
// The largest first-layer sum a 16-bit accumulator holds, in float units.
constexpr float NET_SUM_LIMIT = 32767.0f / NET_SCALE;
constexpr int NET_INPUTS = 1572;  // 1536 piece inputs + 36 extra
constexpr int SAMPLE_FEATURES = 34;

// One position as the trainer sees it.
struct TrainSample {
    u16 features[SAMPLE_FEATURES];
    u8 count;
    u8 bucket;
    f32 target;  // probability for the side to move, on the loss's scale
};

struct TrainerConfig {
    int hidden;    // first-layer size, a multiple of 8
    float lambda;  // share of the search score in the target
    float lr;      // Adam's step
    int batch;     // samples per step
    u64 visits;    // samples to train on in all (epochs x set size)
    int threads;
    u64 seed;
    int validate_every;  // every n-th record is held out
    bool hand_target;    // learn the hand-written evaluation, not the search
    float scale;         // centipawns per unit of the loss's logistic curve
    int sitting;         // -epochs: end this run after so many, 0 never
    bool shared_wings;   // -wings shared: train rows common to both cases
    int sum_bound;       // -sum_bound: first-layer sums kept within, working
                         // units; 0 none
    bool quiet_only;     // -quiet yes: pass over positions that win material
    bool cosine;         // -schedule cosine: the step falls along a cosine
};

TrainerConfig default_trainer();

// Adam's step at `progress` (0 to 1) of a run: by default full, then 30%
// from 60% of the run and 10% from 85%; with `cosine` it falls smoothly
// along half a cosine from full to COSINE_FLOOR of it.
constexpr float COSINE_FLOOR = 0.02f;
float step_size(float lr, double progress, bool cosine);

// The float model.  w1: one row of `hidden` per input; out: one row per
// output bucket (7).  With shared wings w1 has NET_SHARED_ROWS more rows:
// a piece on a square (from its own king's side) weighs alike whether the
// kings stand on the same wing or not, plus a row of the case itself.
// Opposite wings are the rarer case, and learn most of what they need from
// the common row.  Folding adds the common rows into the input rows, which
// gives the engine's net, evaluating identically.
struct NetModel {
    int hidden;
    bool shared_wings;
    std::vector<float> w1;
    std::vector<float> out;
};
constexpr int NET_SHARED_ROWS = 768;  // half the piece inputs: one wing case
// The rows of w1: one per input, and the common ones with shared wings.
constexpr size_t model_input_rows(bool shared_wings) {
    return NET_INPUTS + (shared_wings ? NET_SHARED_ROWS : 0);
}

void init_model(NetModel &m, int hidden, u64 seed, bool shared_wings = false);
// The model with its common rows added into the input rows.
NetModel folded_model(const NetModel &m);

// Whether the side to move wins a pawn or more at once by a capture (by
// exchange values).  The search score of such a position tells of the
// capture, which the evaluation never has to judge: the capture search
// takes it before standing pat.
bool wins_material(const Position &pos);

// A record as a sample, its position left on the front Worker; false for
// a record the net can't take (no kings, too many features), and with
// `quiet_only` for one that wins material.  With
// `hand_target` the hand-written evaluation stands for the search score.
bool make_sample(const TrainRecord &r, const TrainerConfig &c, TrainSample &s);
// The probability a score stands for on a logistic curve of `scale`
// centipawns: the loss compares model and target on it.  A wider curve
// than the engine's own 166.67 keeps large scores from fading out of the
// loss.
float score_probability(float score, float scale);

// The hand-written evaluation of the front Worker's position, from the
// side to move's view, clamped as search scores are.
i16 hand_score();

// The model's logit for a sample.
float model_logit(const NetModel &m, const TrainSample &s);
// The engine's score for a logit: centipawns within -1919..1919.
int logit_score(float x);

// Mean squared error of the probabilities over `samples`.
double model_loss(const NetModel &m, const std::vector<TrainSample> &samples,
                  float scale);

// Adam's moments, one per weight.
struct AdamState {
    std::vector<float> m1, v1, mo, vo;
    u64 steps;
};

// The engine adds first-layer rows in 16-bit lanes that saturate, and a
// lane that saturates on the way between two positions stays wrong until
// the accumulator is built afresh.  The loss gets a hinge on every sum
// past a bound well inside 16 bits, its square times this, so that the
// sums keep room for the rows a move adds before those it takes away.
constexpr float SUM_PENALTY = 0.01f;

// One step on samples[first .. first + count), spread over `threads`, with
// first-layer sums past `sum_bound` (float units; 0 none) pulled back.
// Returns the batch's summed squared error, the hinge left out.
double train_step(NetModel &m, AdamState &adam, const TrainSample *samples,
                  int count, float lr, float scale, int threads,
                  float sum_bound = 0.0f);

// The stored value whose load (truncation of stored * 0.18) gives the
// working weight `working`, which must lie within the working limit.
i16 stored_weight(int working);
// The working weight of a float weight: rounded and clipped.
int working_weight_of(float w);

// Writes `m` as a net file in the engine's format; false on a write error.
bool write_net(const NetModel &m, const char *file_name);

// How many of `samples` would drive a first-layer sum of the written net
// (`m` folded) past the 16 bits of the engine's lanes at any step of its
// additions, where the engine then saturates and the model is off; the
// largest sum in size goes to `largest`.
u64 saturating_samples(const NetModel &m,
                       const std::vector<TrainSample> &samples, i32 &largest);

// What a checkpoint must match to be taken up: the run's settings and the
// size of its training set.  The thread count is left out: a run may go
// on with other threads, though the sums then round a little differently.
struct CheckpointRun {
    u64 visits;
    u64 seed;
    u64 train_size;
    i32 hidden;
    i32 batch;
    f32 lambda;
    f32 lr;
    f32 scale;
    i32 hand_target;
    i32 shared_wings;
    i32 sum_bound;
    i32 quiet_only;
    i32 cosine;  // 0 for the stepped schedule, as in older checkpoints
};
static_assert(sizeof(CheckpointRun) == 64, "no padding: compared bytewise");

// Where the run stood at the end of its last finished epoch.
struct CheckpointProgress {
    u64 done;  // samples trained on
    u64 adam_steps;
    i32 epochs;  // epochs finished
    i32 spare;   // zero: keeps the record free of padding
};

// The checkpoint beside a net file: its name with ".ckpt".
std::string checkpoint_name(const char *net_file);
bool save_checkpoint(const char *file, const CheckpointRun &run,
                     const CheckpointProgress &progress, const NetModel &m,
                     const AdamState &adam);
// False, leaving `m` and `adam` as they were, when there is no checkpoint,
// when it belongs to another run, or when it is short or too long.
bool load_checkpoint(const char *file, const CheckpointRun &run,
                     CheckpointProgress &progress, NetModel &m,
                     AdamState &adam);

// The whole mode: records from settings.input_file (a file, or a folder of
// .bin files), the net to settings.output_file.  False when there was
// nothing to train on or the net was not written or does not load; a run
// that stops after its -epochs with work left has not failed.
bool tune_network(int argc, char **argv);
