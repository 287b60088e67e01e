// Motion statistics: the levels, the still counter, the bias hand-over, the
// zero-rate clamp and the recovery of a mean poisoned by not-a-number.

#include "engine/motion_stats.h"

#include <gtest/gtest.h>

#include <cmath>

#include "engine/fusion_engine.h"
#include "engine_fixture.h"

namespace {

using imu::test::EngineTest;

const float kFlat[3] = {0.0F, 0.0F, 9.8066F};
const float kBias[3] = {0.01F, -0.02F, 0.005F};

// From load with constant samples: the accelerometer mean lags while its
// history fills (zeros average in), so the still count starts at update 20;
// the 220th update takes the gyroscope mean as the bias and restarts.
TEST(MotionStats, ConstantSamplesGiveFirstBiasAtUpdate220) {
    imu::MotionStats stats;
    for (int n = 1; n <= 220; ++n) {
        stats.update(kFlat, kBias);
        if (n < 20) {
            ASSERT_GE(stats.acc_level, imu::kStillAccLevel) << "update " << n;
            ASSERT_EQ(stats.static_count, 0) << "update " << n;
        } else if (n < 220) {
            ASSERT_EQ(stats.static_count, n - 19) << "update " << n;
            ASSERT_EQ(stats.gyro_bias_estimate[0], 0.0F) << "update " << n;
        }
    }
    EXPECT_EQ(stats.static_count, 0);
    for (int i = 0; i < 3; ++i) {
        EXPECT_NEAR(stats.gyro_bias_estimate[i], kBias[i], 1e-7F) << "axis " << i;
    }
    // The next estimate needs another 201 still updates.
    for (int n = 1; n <= 200; ++n) {
        stats.update(kFlat, kBias);
    }
    EXPECT_EQ(stats.static_count, 200);
}

// One update whose gyroscope deviation lifts gyro_level to 30 or more
// restarts the count; an accelerometer jolt does the same.
TEST(MotionStats, SingleDeviationRestartsStillCount) {
    const struct {
        const char* name;
        float acc[3];
        float gyro[3];
    } jolts[] = {
        {"gyroscope", {0, 0, 9.8066F}, {0.01F, 0.2F, 0.005F}},
        {"accelerometer", {0, 1.0F, 9.8066F}, {0.01F, -0.02F, 0.005F}},
    };
    for (const auto& j : jolts) {
        imu::MotionStats stats;
        for (int n = 0; n < 50; ++n) {
            stats.update(kFlat, kBias);
        }
        ASSERT_GT(stats.static_count, 0);
        stats.update(j.acc, j.gyro);
        EXPECT_EQ(stats.static_count, 0) << j.name;
    }
}

// The levels are the summed squared deviations divided by 0.0007, 0.010391
// and 3 (accelerometer, in g) or by 2e-05, 1.096622 and 3 (gyroscope),
// with the mean including the new value (the first update's mean is x / 20).
TEST(MotionStats, LevelsScaleSquaredDeviation) {
    imu::MotionStats stats;
    const float zero[3] = {0, 0, 0};
    const float one[3] = {0, 0, 1};
    stats.update(zero, one);  // gyro: x = 1, mean 1/20, d = 0.95^2
    const float d = (1.0F - 0.05F) * (1.0F - 0.05F);
    EXPECT_FLOAT_EQ(stats.gyro_level, d / 2e-05F / 1.096622F / 3.0F);
    EXPECT_EQ(stats.acc_level, 0.0F);
}

struct ClampCase {
    float level;
    float w;
    float expected;
};

// While gyro_level < 100, rates below 3 deg/s (0.05235988 rad/s) become 0.
TEST(MotionStats, ZeroRateClampOnlyWhileQuiet) {
    const ClampCase cases[] = {
        {0.0F, 0.05F, 0.0F},
        {0.0F, -0.05F, 0.0F},
        {0.0F, 0.06F, 0.06F},
        {99.0F, 0.05F, 0.0F},
        {100.0F, 0.05F, 0.05F},
        {NAN, 0.05F, 0.05F},
        {0.0F, 0.05235988F, 0.05235988F},
    };
    for (const ClampCase& c : cases) {
        imu::MotionStats stats;
        stats.gyro_level = c.level;
        float w[3] = {c.w, 0.1F, 0.0F};
        stats.clamp_rate(w);
        EXPECT_EQ(w[0], c.expected) << "level " << c.level << " w " << c.w;
        EXPECT_EQ(w[1], 0.1F);
    }
}

// A not-a-number sample poisons the running means; once it has left the
// 20-sample history the means are recomputed from it and the levels, the
// still count and the bias estimate work again.
TEST(MotionStats, NotANumberSampleLeavesTheMeansAfterTwentyUpdates) {
    imu::MotionStats stats;
    for (int n = 0; n < 100; ++n) {
        stats.update(kFlat, kBias);
    }
    const float bad[3] = {NAN, NAN, NAN};
    stats.update(bad, bad);
    EXPECT_TRUE(std::isnan(stats.acc_level));
    EXPECT_TRUE(std::isnan(stats.gyro_level));
    EXPECT_EQ(stats.static_count, 0);
    for (int n = 1; n < 20; ++n) {
        stats.update(kFlat, kBias);
        ASSERT_TRUE(std::isnan(stats.gyro.mean[0])) << "the bad value is still in the window";
    }
    stats.update(kFlat, kBias);
    for (int i = 0; i < 3; ++i) {
        EXPECT_NEAR(stats.gyro.mean[i], kBias[i], 1e-7F);
        EXPECT_NEAR(stats.acc.mean[i], kFlat[i] / imu::kStandardGravity, 1e-6F);
    }
    EXPECT_LT(stats.acc_level, 1.0F);
    for (int n = 0; n < 201; ++n) {
        stats.update(kFlat, kBias);
    }
    EXPECT_NEAR(stats.gyro_bias_estimate[1], kBias[1], 1e-7F) << "bias taken again";
}

// An infinite sample is recovered the same way.
TEST(MotionStats, InfiniteSampleIsRecovered) {
    imu::MotionStats stats;
    const float inf[3] = {INFINITY, -INFINITY, INFINITY};
    stats.update(inf, inf);
    for (int n = 0; n < 20; ++n) {
        stats.update(kFlat, kBias);
    }
    EXPECT_TRUE(std::isfinite(stats.acc_level));
    EXPECT_TRUE(std::isfinite(stats.gyro_level));
}

// The statistics run before the magnetometer check, so an update that
// returns 1 for a missing field still publishes the levels and hands the
// bias to the calibration step.
TEST_F(EngineTest, LevelsPublishedWhenFieldIsMissing) {
    IMU s{};
    s.acc_raw[2] = 9.8066F;
    s.gyro_raw[0] = 0.3F;
    EXPECT_EQ(sfc_update_posture(&s, 5000000), 1);
    const auto& stats = imu::engine().stats;
    EXPECT_GT(stats.acc_level, 0.0F);
    EXPECT_GT(stats.gyro_level, 0.0F);
    EXPECT_EQ(s.gyro[0], 0.3F) << "calibrated by the step before the check";
    SFC_OUT out{};
    EXPECT_EQ(sfc_get_sfc_out(&out), 0);
    EXPECT_EQ(out.acc_level, stats.acc_level);
    EXPECT_EQ(out.gyro_level, stats.gyro_level);
}

// The bias estimate reaches the sample: gyro = gyro_raw - estimate.
TEST_F(EngineTest, BiasEstimateIsSubtractedFromLaterSamples) {
    IMU s{};
    for (int n = 0; n < 221; ++n) {
        s = IMU{};
        for (int i = 0; i < 3; ++i) {
            s.acc_raw[i] = kFlat[i];
            s.gyro_raw[i] = kBias[i];
        }
        s.mag_raw[1] = 20.0F;
        sfc_update_posture(&s, 5000000);
    }
    for (int i = 0; i < 3; ++i) {
        EXPECT_NEAR(s.gyro[i], 0.0F, 1e-7F) << "axis " << i;
    }
}

}  // namespace
