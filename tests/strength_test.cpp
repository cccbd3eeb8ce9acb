// Playing strength as a speed: the Elo model, the speed found for a wanted
// Elo, the fall-back when the machine is too slow for it, and the ways in.
#include "search/strength.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>

#include "search/search_params.h"
#include "search/time_control.h"
#include "test_support.h"

namespace {

// The speed the model rates at `elo`.
f32 speed_for(double elo) {
    return static_cast<f32>(std::exp((elo - 1188.0) / 150.0) + 15.0);
}

struct StrengthTest : testing::Test {
    EngineSettings saved{};
    f32 saved_target = 0;

    void SetUp() override {
        saved = settings;
        saved_target = status.target_nps;
        test_position(START_FEN);
        front_worker->hist_index = 0;
        settings.noise = 9999.0f;
        settings.ponder = 0;
        settings.level_moves = 0;
        settings.level_inc = 0.0f;
        settings.uci_mode = 1;
        status.clock[0] = status.clock[1] = 60.0f;
    }
    void TearDown() override {
        settings = saved;
        status.target_nps = saved_target;
        status.throttle = 0;
    }
    // A machine whose calibration rated it at `elo`.
    static void calibrated_at(double elo) {
        settings.calib_nps = speed_for(elo);
        settings.calib_elo = elo_of_speed(settings.calib_nps);
    }
};

TEST_F(StrengthTest, ModelIsLogarithmicInTheSpeedAbove15) {
    EXPECT_EQ(static_cast<int>(elo_of_speed(100000.0f)), 2914);
    // ln(1) = 0: 16 nodes a second are the model's 1188.
    EXPECT_FLOAT_EQ(elo_of_speed(16.0f), 1188.0f);
    EXPECT_NEAR(elo_of_speed(15.0f + std::exp(2.0f)), 1488.0f, 0.01f);
}

TEST_F(StrengthTest, WithoutTheLimitTheCalibratedValuesStand) {
    calibrated_at(2750.6);
    settings.limit_strength = 0;
    settings.elo = 1700;
    settle_strength();
    EXPECT_EQ(status.target_nps, settings.calib_nps);
    EXPECT_EQ(settings.elo, 2750);
}

// A very slow machine plays as if limited: its time is held back too.
TEST_F(StrengthTest, SlowMachineUnderTheLimitOf2400HoldsTimeBack) {
    calibrated_at(2300.2);
    settings.limit_strength = 0;
    prepare_search();
    EXPECT_EQ(settings.elo, 2300);
    EXPECT_FLOAT_EQ(status.target_time,
                    static_cast<f32>(static_cast<double>(60.0f / 33) * 0.85));
    calibrated_at(2400.5);
    prepare_search();
    EXPECT_FLOAT_EQ(status.target_time, 60.0f / 33);
}

TEST_F(StrengthTest, WantedEloGivesASpeedWithinHalfAnElo) {
    calibrated_at(3000.0);
    for (int elo = 1500; elo <= 2950; elo += 50) {
        settings.limit_strength = 1;
        settings.elo = static_cast<i16>(elo);
        settle_strength();
        ASSERT_EQ(settings.limit_strength, 1) << elo;
        EXPECT_LT(std::fabs(elo_of_speed(status.target_nps) - elo), 0.5f)
            << elo;
        EXPECT_EQ(settings.elo, elo);
    }
}

TEST_F(StrengthTest, Elo1500MeansAbout23NodesASecondAndThrottling) {
    calibrated_at(3000.0);
    settings.limit_strength = 1;
    settings.elo = 1500;
    settle_strength();
    EXPECT_NEAR(status.target_nps, 15.0f + std::exp(2.08f), 0.1f);
    EXPECT_NEAR(status.target_nps, 23.0f, 0.1f);
    update_margins();
    EXPECT_EQ(status.throttle, 1);
}

// Asking for more than the machine has switches the limit off for good.
TEST_F(StrengthTest, EloAboveTheMachineFallsBackOffAndStaysOff) {
    calibrated_at(3000.0);
    settings.limit_strength = 1;
    settings.elo = 3300;
    settle_strength();
    EXPECT_EQ(settings.limit_strength, 0);
    EXPECT_EQ(status.target_nps, settings.calib_nps);
    EXPECT_EQ(settings.elo, 3000);
    settle_strength();
    EXPECT_EQ(settings.limit_strength, 0);
    EXPECT_EQ(settings.elo, 3000);
    update_margins();
    EXPECT_EQ(status.throttle, 0);
}

TEST_F(StrengthTest, TargetWithin30NodesOfTheMachineIsDropped) {
    settings.calib_nps = speed_for(2000.0) + 20.0f;
    settings.calib_elo = elo_of_speed(settings.calib_nps);
    settings.limit_strength = 1;
    settings.elo = 2000;
    settle_strength();
    EXPECT_EQ(settings.limit_strength, 0);
}

// Elos the model cannot reach in single precision end the bisection all
// the same, with a speed inside its range.
TEST_F(StrengthTest, UnreachableElosStillEndTheBisection) {
    calibrated_at(3000.0);
    for (i16 elo : {i16(1), i16(500), i16(1100), i16(32767)}) {
        settings.limit_strength = 1;
        settings.elo = elo;
        settle_strength();
        EXPECT_GE(status.target_nps, 10.0f) << elo;
        EXPECT_LE(status.target_nps, 10000000.0f) << elo;
    }
    // A zero Elo leaves the speed as it was.
    settings.limit_strength = 1;
    settings.elo = 0;
    status.target_nps = 777.0f;
    settle_strength();
    EXPECT_EQ(status.target_nps, 777.0f);
}

TEST_F(StrengthTest, SpeedLimitSetsTheEloAndTurnsTheLimitOn) {
    settings.limit_strength = 0;
    limit_to_speed(100000.0f);
    EXPECT_EQ(status.target_nps, 100000.0f);
    EXPECT_EQ(settings.elo, 2914);
    EXPECT_EQ(settings.limit_strength, 1);
    // The next search finds the speed anew from the Elo.
    calibrated_at(3100.0);
    settle_strength();
    EXPECT_EQ(settings.limit_strength, 1);
    EXPECT_LT(std::fabs(elo_of_speed(status.target_nps) - 2914.0f), 0.5f);
    // Too slow to rate: no Elo, no undefined conversion.
    limit_to_speed(3.0f);
    EXPECT_EQ(settings.elo, 0);
}

}  // namespace
