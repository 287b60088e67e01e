// Motion statistics: levels, still counter, bias hand-over and the
// zero-rate clamp (non-finite samples: motion_stats_huge_test.cpp).

#include "engine/motion_stats.h"

#include <gtest/gtest.h>

#include <cmath>

#include "engine/fusion_engine.h"
#include "engine_fixture.h"

namespace {

using imu::test::EngineTest;

const float kFlat[3] = {0.0F, 0.0F, 9.8066F};
const float kBias[3] = {0.01F, -0.02F, 0.005F};

// The accelerometer mean lags while its history fills, so the still count
// starts at update 20; update 220 takes the gyroscope mean as the bias and
// restarts the count.
TEST(MotionStats, ConstantSamplesGiveFirstBiasAtUpdate220) {
    imu::MotionStats stats;
    for (int n = 1; n < 220; ++n) {
        stats.update(kFlat, kBias);
        ASSERT_EQ(stats.static_count, n < 20 ? 0 : n - 19) << "update " << n;
        ASSERT_EQ(stats.gyro_bias_estimate[0], 0.0F) << "update " << n;
    }
    stats.update(kFlat, kBias);
    EXPECT_EQ(stats.static_count, 0);
    for (int i = 0; i < 3; ++i) {
        EXPECT_NEAR(stats.gyro_bias_estimate[i], kBias[i], 1e-7F) << "axis " << i;
    }
}

// Levels: summed squared deviation from the mean (the first mean is x / 20)
// over 2e-05, 1.096622 and 3. A gyroscope or accelerometer jolt restarts
// the still count.
TEST(MotionStats, LevelsAndJolts) {
    imu::MotionStats first;
    const float zero[3] = {0, 0, 0};
    const float one[3] = {0, 0, 1};
    first.update(zero, one);
    EXPECT_FLOAT_EQ(first.gyro_level, 0.95F * 0.95F / 2e-05F / 1.096622F / 3.0F);
    EXPECT_EQ(first.acc_level, 0.0F);
    const float gyro_jolt[3] = {0.01F, 0.2F, 0.005F};
    const float acc_jolt[3] = {0, 1.0F, 9.8066F};
    for (const bool gyro : {true, false}) {
        imu::MotionStats stats;
        for (int n = 0; n < 50; ++n) {
            stats.update(kFlat, kBias);
        }
        stats.update(gyro ? kFlat : acc_jolt, gyro ? gyro_jolt : kBias);
        EXPECT_EQ(stats.static_count, 0) << gyro;
    }
}

// While gyro_level < 100, rates below 3 deg/s (0.05235988 rad/s) become 0.
TEST(MotionStats, ZeroRateClampOnlyWhileQuiet) {
    const float cases[][3] = {{0, 0.05F, 0},       {0, -0.05F, 0},      {0, 0.06F, 0.06F},
                              {99, 0.05F, 0},      {100, 0.05F, 0.05F}, {NAN, 0.05F, 0.05F},
                              {0, 0.05235988F, 0.05235988F}};  // level, w, expected
    for (const auto& c : cases) {
        imu::MotionStats stats;
        stats.gyro_level = c[0];
        float w[3] = {c[1], 0.1F, 0.0F};
        stats.clamp_rate(w);
        EXPECT_TRUE(w[0] == c[2] && w[1] == 0.1F) << "level " << c[0] << " w " << c[1];
    }
}

// The statistics run before the field check, so an update refused for a
// missing field still publishes the levels.
TEST_F(EngineTest, LevelsPublishedWhenFieldIsMissing) {
    IMU s{};
    s.acc_raw[2] = 9.8066F;
    s.gyro_raw[0] = 0.3F;
    EXPECT_EQ(sfc_update_posture(&s, 5000000), 1);
    EXPECT_EQ(s.gyro[0], 0.3F);
    SFC_OUT out{};
    EXPECT_EQ(sfc_get_sfc_out(&out), 0);
    EXPECT_GT(out.gyro_level, 0.0F);
    EXPECT_EQ(out.acc_level, imu::engine().stats.acc_level);
}

}  // namespace
