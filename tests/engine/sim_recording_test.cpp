// The synthetic recording generator: its samples agree with its truth.

#include "sim/sim_recording.h"

#include <gtest/gtest.h>

#include <cmath>

namespace {

using imu::sim::Quat;
using imu::sim::SensorModel;
using imu::sim::Trajectory;

// Flat reads +g on z; raised by 30 deg (0, g sin 30, g cos 30), and the
// field (0, 20, -40) turns with the phone.
TEST(SimRecording, StillPosesReadGravityAndField) {
    const struct {
        Quat pose;
        float acc[3];
        float mag[3];
    } cases[] = {
        {imu::sim::pose(0), {0, 0, 9.8066F}, {0, 20, -40}},
        {imu::sim::pose(90), {0, 0, 9.8066F}, {-20, 0, -40}},
        {imu::sim::pose(0, 30), {0, 4.9033F, 8.49276F}, {0, -2.67949F, -44.641F}},
    };
    for (const auto& c : cases) {
        const auto s = record(Trajectory(c.pose).hold(0.01), SensorModel{});
        ASSERT_EQ(s.size(), 3U);
        for (int i = 0; i < 3; ++i) {
            EXPECT_NEAR(s[0].acc[i], c.acc[i], 1e-4F) << &c - cases << i;
            EXPECT_NEAR(s[0].mag[i], c.mag[i], 1e-4F) << &c - cases << i;
            EXPECT_EQ(s[0].gyro[i], 0.0F);
        }
    }
    const Quat q = imu::sim::pose(250, 20, -35);
    EXPECT_NEAR(imu::sim::azimuth_deg(q), 250, 1e-9);
    EXPECT_NEAR(imu::sim::pitch_deg(q), 20, 1e-9);
    EXPECT_NEAR(imu::sim::roll_deg(q), -35, 1e-9);
}

// Integrating the gyroscope reproduces the truth for world and device turns.
TEST(SimRecording, GyroscopeIntegratesToTruth) {
    SensorModel model;
    model.rate_hz = 1000;
    const auto s = record(Trajectory(imu::sim::pose(20, 10, -5))
                              .turn({0, 0, 1}, 0.8, 0.5)
                              .turn({1, 0, 0}, -1.2, 0.5, imu::sim::Frame::kDevice)
                              .hold(0.2)
                              .turn({1, 1, 1}, 0.5, 0.5),
                          model);
    Quat q = s[0].truth;
    for (std::size_t k = 0; k + 1 < s.size(); ++k) {
        const imu::sim::Vec3 w{s[k].gyro[0], s[k].gyro[1], s[k].gyro[2]};
        const double rate = std::sqrt(w.x * w.x + w.y * w.y + w.z * w.z);
        if (rate > 0) {
            q = imu::sim::normalized(q * imu::sim::axis_angle(w, rate / model.rate_hz));
        }
    }
    EXPECT_LT(imu::sim::angle_between_deg(q, s.back().truth), 0.05);
}

// Noise is seeded, a bias shifts every gyroscope sample, a missing
// magnetometer reads exactly zero.
TEST(SimRecording, NoiseBiasAndMissingField) {
    SensorModel model;
    model.acc_noise_mps2 = 0.1;
    model.gyro_bias_rps = {0.01, -0.02, 0.03};
    const auto a = record(Trajectory().hold(1.0), model);
    EXPECT_EQ(a[100].acc[0], record(Trajectory().hold(1.0), model)[100].acc[0]);
    EXPECT_FLOAT_EQ(a[100].gyro[1], -0.02F);
    model.seed = 2;
    model.magnetometer = false;
    const auto c = record(Trajectory().hold(1.0), model);
    EXPECT_NE(a[100].acc[0], c[100].acc[0]);
    EXPECT_TRUE(c[5].mag[0] == 0 && c[5].mag[1] == 0 && c[5].mag[2] == 0);
}

}  // namespace
