// The trainer: stored weights that load back exactly, samples that carry
// the engine's own features, a loss that falls, and a written net that the
// engine evaluates as the float model does.
#include "tools/ttune/net_trainer.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <bit>
#include <cmath>
#include <cstdio>
#include <string>
#include <vector>

#include "eval/network.h"
#include "test_support.h"

namespace {

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
// material lead in pawns of 100.
std::vector<TrainRecord> material_records() {
    std::vector<TrainRecord> out;
    for (const PerftLine &l : load_perft_suite("data/perft_standard.epd")) {
        Position &pos = test_position(l.fen.c_str());
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
    std::snprintf(settings.nn_file, sizeof settings.nn_file, "%s", name);
    testing::internal::CaptureStdout();
    load_network();
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
    std::snprintf(settings.nn_file, sizeof settings.nn_file, "embedded");
}

}  // namespace
