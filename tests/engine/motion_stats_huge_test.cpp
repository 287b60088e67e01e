// A sample that is not finite, or finite far beyond any sensor's range:
// while it is in the 20-sample window the running means are swamped (or
// poisoned). Once it has left, the means are those of the window again and
// the still test and the bias estimate work as before (a finite huge sample
// used to keep them off for good).

#include <gtest/gtest.h>

#include <cmath>
#include <string>

#include "engine/motion_stats.h"

namespace {

const float kFlat[3] = {0.0F, 0.0F, 9.8066F};
const float kBias[3] = {0.01F, -0.02F, 0.005F};

struct Huge {
    const char* what;
    float acc;   // m/s^2 on every axis of the bad sample
    float gyro;  // rad/s
};

class HugeSample : public testing::TestWithParam<Huge> {};

TEST_P(HugeSample, MeansAndStillTestRecoverOnceItLeaves) {
    const Huge& p = GetParam();
    imu::MotionStats stats;
    const auto feed = [&](int n) {
        for (int k = 0; k < n; ++k) {
            stats.update(kFlat, kBias);
        }
    };
    feed(100);
    const float acc[3] = {p.acc, -p.acc, p.acc};
    const float gyro[3] = {p.gyro, -p.gyro, p.gyro};
    stats.update(acc, gyro);
    EXPECT_EQ(stats.static_count, 0);
    feed(20);
    for (int i = 0; i < 3; ++i) {
        EXPECT_NEAR(stats.acc.mean[i], kFlat[i] / imu::kStandardGravity, 1e-6F) << i;
        EXPECT_NEAR(stats.gyro.mean[i], kBias[i], 1e-7F) << i;
    }
    EXPECT_LT(stats.acc_level, 1.0F);
    EXPECT_LT(stats.gyro_level, 1.0F);
    EXPECT_GT(stats.static_count, 0) << "still again";
    feed(201);
    EXPECT_NEAR(stats.gyro_bias_estimate[1], kBias[1], 1e-7F);
}

INSTANTIATE_TEST_SUITE_P(Samples, HugeSample,
                         testing::Values(Huge{"Largest", 3.4e38F, 3.4e38F},
                                         Huge{"AccOnly", 1e30F, 0.0F},
                                         Huge{"GyroOnly", 9.8066F, 1e20F},
                                         Huge{"Moderate", 1e9F, 1e8F},
                                         Huge{"NotANumber", NAN, NAN},
                                         Huge{"Infinite", INFINITY, INFINITY}),
                         [](const auto& info) { return std::string(info.param.what); });

}  // namespace
