// A finite sample far beyond any sensor's range: while it is in the window
// the running mean's rounding swamps the other samples' shares. Once it has
// left, the means are those of the window again and the still test and the
// bias estimate work as before (they used to stay off for good).

#include <gtest/gtest.h>

#include <ostream>
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

void PrintTo(const Huge& h, std::ostream* os) { *os << h.what; }

class HugeSample : public testing::TestWithParam<Huge> {};

TEST_P(HugeSample, MeansAndStillTestRecoverOnceItLeaves) {
    const Huge& p = GetParam();
    imu::MotionStats stats;
    for (int n = 0; n < 100; ++n) {
        stats.update(kFlat, kBias);
    }
    const float acc[3] = {p.acc, -p.acc, p.acc};
    const float gyro[3] = {p.gyro, -p.gyro, p.gyro};
    stats.update(acc, gyro);
    for (int n = 0; n < 20; ++n) {
        stats.update(kFlat, kBias);
    }
    for (int i = 0; i < 3; ++i) {
        EXPECT_NEAR(stats.acc.mean[i], kFlat[i] / imu::kStandardGravity, 1e-6F) << i;
        EXPECT_NEAR(stats.gyro.mean[i], kBias[i], 1e-7F) << i;
    }
    EXPECT_LT(stats.acc_level, 1.0F);
    EXPECT_LT(stats.gyro_level, 1.0F);
    EXPECT_GT(stats.static_count, 0) << "still again";
    for (int n = 0; n < 201; ++n) {
        stats.update(kFlat, kBias);
    }
    EXPECT_NEAR(stats.gyro_bias_estimate[1], kBias[1], 1e-7F);
}

INSTANTIATE_TEST_SUITE_P(Samples, HugeSample,
                         testing::Values(Huge{"Largest", 3.4e38F, 3.4e38F},
                                         Huge{"AccOnly", 1e30F, 0.0F},
                                         Huge{"GyroOnly", 9.8066F, 1e20F},
                                         Huge{"Moderate", 1e9F, 1e8F}),
                         [](const testing::TestParamInfo<Huge>& info) {
                             return std::string(info.param.what);
                         });

}  // namespace
