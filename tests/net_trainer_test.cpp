// The trainer: stored weights that load back exactly, samples that carry
// the engine's own features, a loss that falls, and a written net that the
// engine evaluates as the float model does.
#include "tools/tuner/net_trainer.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <bit>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "eval/network.h"
#include "playout_support.h"
#include "test_support.h"

namespace {

// The stepped schedule holds each step until its mark; the cosine one
// falls at every point, from the full step to its floor.
TEST(NetTrainer, StepSizeFollowsTheChosenSchedule) {
    const float lr = 0.002f;
    EXPECT_EQ(step_size(lr, 0.0, false), lr);
    EXPECT_EQ(step_size(lr, 0.599, false), lr);
    EXPECT_EQ(step_size(lr, 0.6, false), lr * 0.3f);
    EXPECT_EQ(step_size(lr, 0.849, false), lr * 0.3f);
    EXPECT_EQ(step_size(lr, 0.85, false), lr * 0.1f);
    EXPECT_EQ(step_size(lr, 1.0, false), lr * 0.1f);

    EXPECT_FLOAT_EQ(step_size(lr, 0.0, true), lr);
    EXPECT_FLOAT_EQ(step_size(lr, 0.5, true),
                    lr * (COSINE_FLOOR + (1 - COSINE_FLOOR) / 2));
    EXPECT_FLOAT_EQ(step_size(lr, 1.0, true), lr * COSINE_FLOOR);
    EXPECT_FLOAT_EQ(step_size(lr, 1.5, true), lr * COSINE_FLOOR);
    EXPECT_FLOAT_EQ(step_size(lr, -0.5, true), lr);
    float last = step_size(lr, 0.0, true);
    for (int i = 1; i <= 100; i++) {
        float now = step_size(lr, i / 100.0, true);
        EXPECT_LT(now, last) << i;
        last = now;
    }
}

TEST(NetTrainer, EveryWorkingWeightHasAStoredValueThatLoadsBack) {
    for (int w = -NET_WORKING_LIMIT; w <= NET_WORKING_LIMIT; w++) {
        int s = stored_weight(w);
        ASSERT_LE(std::abs(s), NET_STORED_LIMIT) << w;
        ASSERT_EQ(static_cast<int>(std::trunc(s * NET_LOAD_FACTOR)), w) << w;
    }
    // Beyond the limit the weight is clipped, never wrapped.
    EXPECT_EQ(stored_weight(9000), stored_weight(NET_WORKING_LIMIT));
    EXPECT_EQ(working_weight_of(10.0f), NET_WORKING_LIMIT);
    EXPECT_EQ(working_weight_of(-10.0f), -NET_WORKING_LIMIT);
    EXPECT_EQ(working_weight_of(0.5f), 900);
}

// Training records of a few positions with a made-up score: White's
// material lead in pawns of 100.  Positions in check are left out, as the
// trainer leaves them out.
std::vector<TrainRecord> material_records() {
    std::vector<TrainRecord> out;
    for (const PerftLine &l : load_perft_suite("perft_standard.epd")) {
        Position &pos = test_position(l.fen.c_str());
        if (square_attacked(pos, pos.king_sq[pos.side], pos.side ^ 1)) continue;
        int lead = (pos.piece_points[WHITE] - pos.piece_points[BLACK]) * 100;
        lead += 100 * (std::popcount(pos.bitboards[WHITE][PAWN]) -
                       std::popcount(pos.bitboards[BLACK][PAWN]));
        TrainRecord r = pack_position(pos);
        r.sc = static_cast<i16>(pos.side == WHITE ? lead : -lead);
        r.ce = r.sc;
        r.result_logit = 0;
        out.push_back(r);
    }
    return out;
}

// The same positions as samples of the search score alone.
std::vector<TrainSample> material_samples() {
    std::vector<TrainSample> out;
    TrainerConfig c = default_trainer();
    c.lambda = 1.0f;
    for (const TrainRecord &r : material_records()) {
        TrainSample s;
        if (make_sample(r, c, s)) out.push_back(s);
    }
    return out;
}

TEST(NetTrainer, SamplesCarryTheEnginesFeaturesAndTarget) {
    TrainRecord r = pack_position(test_position(START_FEN));
    r.sc = 100;
    r.result_logit = RESULT_LOGIT_WIN;
    TrainSample s;
    TrainerConfig c = default_trainer();
    c.scale = 166.66667f;  // the engine's own curve: win_probability
    ASSERT_TRUE(make_sample(r, c, s));
    u16 features[NET_MAX_FEATURES], wing = 0;
    int n = network_features(test_position(START_FEN), NET_PIECE_INPUTS,
                             NET_INPUTS - NET_PIECE_INPUTS, features, wing);
    ASSERT_EQ(s.count, n);
    for (int i = 0; i < n; i++) EXPECT_EQ(s.features[i], features[i]);
    EXPECT_EQ(s.bucket, 0);
    EXPECT_NEAR(
        s.target,
        0.75 * win_probability(100) + 0.25 * win_probability(RESULT_LOGIT_WIN),
        1e-6);
    // A record without kings is no sample.
    TrainRecord empty{};
    empty.ep = 64;
    EXPECT_FALSE(make_sample(empty, c, s));
}

// What the engine sees in a game position, kept beside its record.
struct SeenPosition {
    TrainRecord record;
    std::vector<u16> features;
    int bucket;
    int side;
    bool in_check;
};

// Random games from the shared start points (castling, en passant,
// promotions): every position's record and the engine's own view of it,
// taken before the trainer rebuilds the board from the record.
std::vector<SeenPosition> seen_in_random_games(u32 seed) {
    std::vector<SeenPosition> seen;
    play_out(seed, 27, 100, [&](Position &pos) {
        SeenPosition p;
        p.record = pack_position(pos);
        u16 f[NET_MAX_FEATURES], wing = 0;
        int n = network_features(pos, NET_PIECE_INPUTS,
                                 NET_INPUTS - NET_PIECE_INPUTS, f, wing);
        p.features.assign(f, f + n);
        p.bucket = output_bucket_of(pos);
        p.side = pos.side;
        p.in_check = square_attacked(pos, pos.king_sq[pos.side], pos.side ^ 1);
        seen.push_back(p);
    });
    return seen;
}

// The classic silent failure is a trainer that learns other inputs than
// the engine reads: every sample must carry exactly the engine's features
// and output bucket of the game position its record came from, with either
// side to move.
TEST(NetTrainer, RandomGamePositionsGiveTheEnginesFeaturesForBothSides) {
    TrainerConfig c = default_trainer();
    int checked[2] = {0, 0};
    for (const SeenPosition &p : seen_in_random_games(11)) {
        TrainSample s;
        bool made = make_sample(p.record, c, s);
        ASSERT_EQ(made, !p.in_check);
        if (!made) continue;
        ASSERT_EQ(s.count, p.features.size());
        for (size_t i = 0; i < p.features.size(); i++)
            ASSERT_EQ(s.features[i], p.features[i]) << "feature " << i;
        ASSERT_EQ(s.bucket, p.bucket);
        checked[p.side]++;
    }
    EXPECT_GT(checked[WHITE], 1000);
    EXPECT_GT(checked[BLACK], 1000);
    test_position(START_FEN);
}

// The evaluation never judges a side in check, so the trainer skips such
// positions; the same men with the check blocked make a sample.
TEST(NetTrainer, PositionsInCheckAreNoSamples) {
    TrainerConfig c = default_trainer();
    TrainSample s;
    TrainRecord checked =
        pack_position(test_position("4k3/8/8/8/8/8/4R3/4K3 b - -"));
    EXPECT_FALSE(make_sample(checked, c, s));
    TrainRecord blocked =
        pack_position(test_position("4k3/4n3/8/8/8/8/4R3/4K3 b - -"));
    EXPECT_TRUE(make_sample(blocked, c, s));
}

// With the hand-written target the record's own score is not read: a queen
// up with a search score of 0 still gives a target near a win.
TEST(NetTrainer, HandTargetReplacesTheSearchScore) {
    TrainRecord r = pack_position(
        test_position("rnb1kbnr/pppppppp/8/8/8/8/PPPPPPPP/RNBQKBNR w KQkq -"));
    r.sc = 0;
    r.result_logit = 0;
    TrainerConfig c = default_trainer();
    c.lambda = 1.0f;
    TrainSample s;
    ASSERT_TRUE(make_sample(r, c, s));
    EXPECT_FLOAT_EQ(s.target, 0.5f);
    c.hand_target = true;
    ASSERT_TRUE(make_sample(r, c, s));
    EXPECT_FLOAT_EQ(s.target, score_probability(hand_score(), c.scale));
    EXPECT_GT(s.target, 0.85f);
}

// The hand-written target is the side to move's score, whichever evaluator
// the engine has switched on.
TEST(NetTrainer, HandScoreIsTheSideToMovesView) {
    const char *white = "rnb1kbnr/pppppppp/8/8/8/8/PPPPPPPP/RNBQKBNR w KQkq -";
    const char *black = "rnb1kbnr/pppppppp/8/8/8/8/PPPPPPPP/RNBQKBNR b KQkq -";
    test_position(white);
    i16 w = hand_score();
    test_position(black);
    i16 b = hand_score();
    EXPECT_GT(w, 800);
    EXPECT_LT(b, -800);
    EXPECT_LE(std::abs(w + b), 100);  // only the side to move differs
}

TEST(NetTrainer, TrainingLowersTheLossAndTheEngineAgreesWithTheModel) {
    std::vector<TrainSample> samples;
    std::vector<TrainRecord> records = material_records();
    for (const TrainRecord &r : records) {
        TrainSample s;
        TrainerConfig c = default_trainer();
        c.lambda = 1.0f;
        ASSERT_TRUE(make_sample(r, c, s));
        samples.push_back(s);
    }
    ASSERT_GT(samples.size(), 50u);
    NetModel m;
    init_model(m, 32, 7);
    AdamState adam{};
    double before = model_loss(m, samples, 400.0f);
    for (int step = 0; step < 300; step++)
        train_step(m, adam, samples.data(), static_cast<int>(samples.size()),
                   0.01f, 400.0f, 2);
    double after = model_loss(m, samples, 400.0f);
    EXPECT_LT(after, before * 0.5) << before << " -> " << after;

    char name[] = "/tmp/quillon_trained_XXXXXX";
    int fd = mkstemp(name);
    ASSERT_GE(fd, 0);
    close(fd);
    ASSERT_TRUE(write_net(m, name));
    testing::internal::CaptureStdout();
    load_network(name);
    EXPECT_EQ(testing::internal::GetCapturedStdout(),
              "info string loaded " + std::string(name) + "\n");
    std::remove(name);
    ASSERT_TRUE(network_ready());
    EXPECT_EQ(network.layer1_size, 32);
    EXPECT_EQ(network.inputs, NET_INPUTS);
    int worst = 0;
    for (size_t i = 0; i < records.size(); i++) {
        set_record_position(front_worker->position, records[i]);
        front_worker->eval.eval_ply = 0;
        int engine = network_evaluate(front_worker);
        int model = logit_score(model_logit(m, samples[i]));
        worst = std::max(worst, std::abs(engine - model));
    }
    // Rounding to 1/1800 and the truncating rectifier cost a few centipawns.
    EXPECT_LE(worst, 4);
    release_network_state(front_worker);
    free_network();
}

// Wing cases sharing common rows: the folded net (the one written) gives
// the model's own logits, and positions with the kings on opposite wings,
// whose rows see few positions, learn from the common ones.
TEST(NetTrainer, SharedWingsFoldIntoTheSameEvaluation) {
    std::vector<TrainSample> samples = material_samples();
    ASSERT_EQ(samples.size(), material_records().size());
    TrainerConfig c = default_trainer();
    // Kings on the same wing and on opposite ones (black king on c8).
    for (const char *fen :
         {"4k3/pp6/8/8/8/8/PP6/4K3 w - -", "2k5/pp6/8/8/8/8/PP6/4K3 w - -"}) {
        TrainRecord r = pack_position(test_position(fen));
        r.sc = 0;
        TrainSample s;
        ASSERT_TRUE(make_sample(r, c, s));
        samples.push_back(s);
    }
    NetModel m;
    init_model(m, 16, 5, true);
    ASSERT_EQ(m.w1.size(),
              static_cast<size_t>(NET_INPUTS + NET_SHARED_ROWS) * 16);
    AdamState adam{};
    double before = model_loss(m, samples, 400.0f);
    for (int step = 0; step < 200; step++)
        train_step(m, adam, samples.data(), static_cast<int>(samples.size()),
                   0.01f, 400.0f, 2);
    EXPECT_LT(model_loss(m, samples, 400.0f), before * 0.5);
    // The common rows took part in the training.
    double common = 0;
    for (size_t i = static_cast<size_t>(NET_INPUTS) * 16; i < m.w1.size(); i++)
        common += std::abs(m.w1[i]);
    EXPECT_GT(common, 1.0);

    NetModel f = folded_model(m);
    EXPECT_FALSE(f.shared_wings);
    ASSERT_EQ(f.w1.size(), static_cast<size_t>(NET_INPUTS) * 16);
    EXPECT_EQ(f.out, m.out);
    for (const TrainSample &s : samples) {
        float a = model_logit(m, s), b = model_logit(f, s);
        EXPECT_NEAR(a, b, 1e-5f * (1.0f + std::abs(a)));
    }
    // The material rows have no common row and stay as they were.
    size_t material = static_cast<size_t>(NET_PIECE_INPUTS) * 16;
    for (size_t i = material; i < f.w1.size(); i++) ASSERT_EQ(f.w1[i], m.w1[i]);
}

// A capture that wins a pawn or more by exchange values makes a position
// tactical; an even trade, or a capture the other side pays back in full,
// leaves it quiet.
TEST(NetTrainer, WinsMaterialSeesOnlyGainfulCaptures) {
    EXPECT_FALSE(wins_material(test_position(START_FEN)));
    // The rook takes a queen nobody guards.
    EXPECT_TRUE(wins_material(test_position("4k3/8/8/3q4/8/8/8/3RK3 w - -")));
    // Black to move: the queen takes the rook, the king takes back.
    EXPECT_FALSE(wins_material(test_position("4k3/8/8/3q4/8/8/8/3RK3 b - -")));
    // A loose pawn, then the same pawn guarded by another.
    EXPECT_TRUE(wins_material(test_position("4k3/8/8/3p4/4P3/8/8/4K3 w - -")));
    EXPECT_FALSE(
        wins_material(test_position("4k3/8/2p5/3p4/4P3/8/8/4K3 w - -")));
    // A pawn takes a guarded knight: a knight for a pawn.
    EXPECT_TRUE(
        wins_material(test_position("4k3/8/2p5/3n4/4P3/8/8/4K3 w - -")));

    TrainRecord r =
        pack_position(test_position("4k3/8/8/3q4/8/8/8/3RK3 w - -"));
    TrainerConfig c = default_trainer();
    TrainSample s;
    EXPECT_TRUE(make_sample(r, c, s));
    c.quiet_only = true;
    EXPECT_FALSE(make_sample(r, c, s));
    EXPECT_TRUE(make_sample(pack_position(test_position(START_FEN)), c, s));
}

// Training with a bound on the first-layer sums keeps them near it, where
// the same training without one lets them grow.
TEST(NetTrainer, SumBoundHoldsTheFirstLayerSumsBack) {
    std::vector<TrainSample> samples = material_samples();
    ASSERT_EQ(samples.size(), material_records().size());
    // The largest first-layer sum in size, in working units.
    auto largest_sum = [&](const NetModel &m) {
        float largest = 0;
        for (const TrainSample &s : samples)
            for (int j = 0; j < m.hidden; j++) {
                float h = 0;
                for (int i = 0; i < s.count; i++)
                    h +=
                        m.w1[static_cast<size_t>(s.features[i]) * m.hidden + j];
                largest = std::max(largest, std::abs(h));
            }
        return largest * NET_SCALE;
    };
    auto trained = [&](float bound, double &loss) {
        NetModel m;
        init_model(m, 16, 7);
        AdamState adam{};
        for (int step = 0; step < 300; step++)
            train_step(m, adam, samples.data(),
                       static_cast<int>(samples.size()), 0.01f, 400.0f, 2,
                       bound);
        loss = model_loss(m, samples, 400.0f);
        return m;
    };
    const float BOUND_WORKING = 2000;
    double free_loss = 0, bound_loss = 0;
    float free = largest_sum(trained(0.0f, free_loss));
    float held = largest_sum(trained(BOUND_WORKING / NET_SCALE, bound_loss));
    EXPECT_GT(free, BOUND_WORKING * 2) << "no bound: the sums grow";
    // A hinge, not a wall: a little past the bound.
    EXPECT_LT(held, BOUND_WORKING * 1.1f) << free;
    // Held within the bound, the net still learns the material count.
    NetModel untrained;
    init_model(untrained, 16, 7);
    EXPECT_LT(bound_loss, model_loss(untrained, samples, 400.0f) * 0.01)
        << free_loss;
}

// The saturation check follows the engine's additions step by step: a sum
// that passes 16 bits on the way counts even when later rows bring it
// back, and a sum of exactly -32768 still fits.
TEST(NetTrainer, SaturationIsCountedAtEveryStepOfTheSums) {
    TrainerConfig c = default_trainer();
    TrainSample s;
    ASSERT_TRUE(make_sample(pack_position(test_position(START_FEN)), c, s));
    ASSERT_EQ(s.count, 33);
    NetModel m;
    init_model(m, 8, 1);
    std::fill(m.w1.begin(), m.w1.end(), 0.0f);
    const float unit = 1.0f / NET_SCALE;  // one working step
    auto set_node0 = [&](int feature, int working) {
        m.w1[static_cast<size_t>(feature) * 8] = working * unit;
    };
    i32 largest = -1;
    EXPECT_EQ(saturating_samples(m, {s}, largest), 0u);
    EXPECT_EQ(largest, 0);
    // Two rows of 5000 and the rest at 0: far inside.
    set_node0(s.features[0], 5000);
    set_node0(s.features[1], 5000);
    EXPECT_EQ(saturating_samples(m, {s}, largest), 0u);
    EXPECT_EQ(largest, 10000);
    // Seven rows of 5000 pass 32767 after the seventh; the last row takes
    // the sum back under, which the engine's saturated sum never does.
    for (int i = 2; i < 7; i++) set_node0(s.features[i], 5000);
    set_node0(s.features[32], -5000);
    EXPECT_EQ(saturating_samples(m, {s}, largest), 1u);
    EXPECT_EQ(largest, 35000);
    // Down to exactly -32768 fits a lane.
    std::fill(m.w1.begin(), m.w1.end(), 0.0f);
    for (int i = 0; i < 6; i++) set_node0(s.features[i], -5000);
    set_node0(s.features[6], -2768);
    EXPECT_EQ(saturating_samples(m, {s, s}, largest), 0u);
    EXPECT_EQ(largest, 32768);
    set_node0(s.features[6], -2769);
    EXPECT_EQ(saturating_samples(m, {s, s}, largest), 2u);
}

}  // namespace

namespace {

// A training set for the tuner build's command line: the suite's positions
// many times over, each copy with its own score, 20,000 records in all.
std::string write_record_file(const std::string &dir) {
    std::vector<TrainRecord> base = material_records();
    std::vector<TrainRecord> all;
    // Without the suite (a failure already) the file stays empty.
    for (int i = 0; !base.empty() && all.size() < 20000; i++) {
        TrainRecord r = base[i % base.size()];
        r.sc = static_cast<i16>(r.sc + (i % 41) - 20);
        all.push_back(r);
    }
    std::string name = dir + "/records.bin";
    FILE *f = std::fopen(name.c_str(), "wb");
    if (!f) return name;
    std::fwrite(all.data(), sizeof(TrainRecord), all.size(), f);
    std::fclose(f);
    return name;
}

std::string file_text(const std::string &name) {
    FILE *f = std::fopen(name.c_str(), "rb");
    if (!f) return "";
    std::string s;
    char buffer[65536];
    for (size_t n; (n = std::fread(buffer, 1, sizeof buffer, f)) > 0;)
        s.append(buffer, n);
    std::fclose(f);
    return s;
}

// Runs the trainer on `records` into `net` with `extra` switches, its
// output into `log`; the exit status.
int train(const std::string &records, const std::string &net,
          const std::string &extra, const std::string &log) {
    std::string line = std::string(QUILLON_TTUNE_EXE) + " -tune " + records +
                       " 1 -o " + net +
                       " -hidden 8 -mbatch 256 -threads 1 -seed 3 " + extra +
                       " > " + log + " 2>&1";
    return std::system(line.c_str());
}

class TrainerResume : public testing::Test {
protected:
    std::string dir, records;
    void SetUp() override {
        char pattern[] = "/tmp/quillon_resume_XXXXXX";
        ASSERT_NE(mkdtemp(pattern), nullptr);
        dir = pattern;
        records = write_record_file(dir);
        ASSERT_EQ(file_text(records).size(), 20000 * sizeof(TrainRecord));
        ASSERT_EQ(train(records, dir + "/whole.nnue", "", dir + "/whole.log"),
                  0);
        whole = file_text(dir + "/whole.nnue");
        ASSERT_FALSE(whole.empty());
    }
    void TearDown() override {
        std::string line = "rm -rf " + dir;
        EXPECT_EQ(std::system(line.c_str()), 0);
    }
    std::string whole;  // the net of a run never interrupted
};

TEST_F(TrainerResume, ARunSplitIntoSittingsEndsWithTheSameNet) {
    std::string net = dir + "/split.nnue", log = dir + "/split.log";
    ASSERT_EQ(train(records, net, "-epochs 3", log), 0);
    EXPECT_NE(file_text(log).find("stopped; the same command goes on"),
              std::string::npos);
    EXPECT_TRUE(file_text(net).empty()) << "no net before the last epoch";
    EXPECT_FALSE(file_text(net + ".ckpt").empty());

    ASSERT_EQ(train(records, net, "-epochs 2", log), 0);
    EXPECT_NE(file_text(log).find("resumed after epoch 3,"), std::string::npos)
        << file_text(log);
    ASSERT_EQ(train(records, net, "", log), 0);
    EXPECT_NE(file_text(log).find("resumed after epoch 5,"), std::string::npos)
        << file_text(log);
    EXPECT_TRUE(file_text(net) == whole) << "resumed net differs";
    EXPECT_TRUE(file_text(net + ".ckpt").empty()) << "checkpoint left behind";
    EXPECT_TRUE(file_text(dir + "/whole.nnue.ckpt").empty());
}

TEST_F(TrainerResume, ABrokenOrForeignCheckpointIsPassedOver) {
    std::string net = dir + "/again.nnue", log = dir + "/again.log";
    ASSERT_EQ(train(records, net, "-epochs 2", log), 0);
    std::string checkpoint = file_text(net + ".ckpt");
    ASSERT_GT(checkpoint.size(), 1000u);

    // Cut short, one byte too long, random bytes, another run's settings:
    // each starts over and still ends with the uninterrupted run's net.
    std::vector<std::string> damaged = {
        checkpoint.substr(0, checkpoint.size() / 2), checkpoint.substr(0, 40),
        checkpoint + "x", std::string(5000, '\x5a')};
    for (const std::string &bad : damaged) {
        FILE *f = std::fopen((net + ".ckpt").c_str(), "wb");
        ASSERT_NE(f, nullptr);
        std::fwrite(bad.data(), 1, bad.size(), f);
        std::fclose(f);
        ASSERT_EQ(train(records, net, "", log), 0);
        EXPECT_EQ(file_text(log).find("resumed"), std::string::npos)
            << bad.size();
        EXPECT_TRUE(file_text(net) == whole);
    }
    for (const char *other : {"-lambda 0.5", "-sum_bound 0", "-sum_bound 9000",
                              "-quiet yes", "-schedule cosine"}) {
        ASSERT_EQ(train(records, net, std::string("-epochs 2 ") + other, log),
                  0);
        ASSERT_EQ(train(records, net, "", log), 0);
        EXPECT_EQ(file_text(log).find("resumed"), std::string::npos) << other;
        EXPECT_TRUE(file_text(net) == whole) << other;
    }
}

// A run with `switches` (which its log names by `banner`) trains a net
// other than the plain run's. Stopped after three epochs, its checkpoint
// is never taken up by a plain run, and the same switches go on from it
// to the net of the run never stopped.
void expect_a_run_of_its_own(const std::string &dir, const std::string &records,
                             const std::string &whole,
                             const std::string &switches, const char *banner) {
    std::string own = dir + "/own.nnue", log = dir + "/own.log";
    ASSERT_EQ(train(records, own, switches, log), 0);
    EXPECT_NE(file_text(log).find(banner), std::string::npos);
    std::string whole_own = file_text(own);
    ASSERT_EQ(whole_own.size(), whole.size());
    EXPECT_FALSE(whole_own == whole);

    std::string net = dir + "/split_own.nnue";
    ASSERT_EQ(train(records, net, switches + " -epochs 3", log), 0);
    ASSERT_EQ(train(records, net, "", log), 0);
    EXPECT_EQ(file_text(log).find("resumed"), std::string::npos);
    EXPECT_TRUE(file_text(net) == whole);
    ASSERT_EQ(train(records, net, switches + " -epochs 3", log), 0);
    ASSERT_EQ(train(records, net, switches, log), 0);
    EXPECT_NE(file_text(log).find("resumed after epoch 3,"), std::string::npos)
        << file_text(log);
    EXPECT_TRUE(file_text(net) == whole_own);
}

TEST_F(TrainerResume, SharedWingsResumeAndStayApart) {
    expect_a_run_of_its_own(dir, records, whole, "-wings shared",
                            "wing cases share common rows");
}

TEST_F(TrainerResume, CosineScheduleResumesAndStaysApart) {
    expect_a_run_of_its_own(dir, records, whole, "-schedule cosine",
                            "the step falls along a cosine");
}

// A misspelt schedule is named in the log and trains the stepped run.
TEST_F(TrainerResume, UnknownScheduleIsToldAndStepped) {
    std::string net = dir + "/misspelt.nnue", log = dir + "/misspelt.log";
    ASSERT_EQ(train(records, net, "-schedule cosin", log), 0);
    EXPECT_NE(
        file_text(log).find("unknown schedule cosin: the stepped one is used"),
        std::string::npos)
        << file_text(log);
    EXPECT_TRUE(file_text(net) == whole);
    ASSERT_EQ(train(records, net, "-schedule step", log), 0);
    EXPECT_EQ(file_text(log).find("unknown schedule"), std::string::npos);
}

}  // namespace
