// The synthetic recording generator: its samples agree with its truth.

#include "support/sim_recording.h"

#include <gtest/gtest.h>

#include <cmath>
#include <sstream>
#include <string>

namespace {

using imu::sim::Quat;
using imu::sim::SensorModel;
using imu::sim::Trajectory;
using imu::sim::Vec3;

double norm(const float v[3]) {
    return std::sqrt(double{v[0]} * v[0] + double{v[1]} * v[1] + double{v[2]} * v[2]);
}

// A phone lying flat reads +g on z; raised by 30 deg it reads
// (0, g sin 30, g cos 30), and the field (0, 20, -40) turns with it.
TEST(SimRecording, StillPosesReadGravityAndField) {
    const SensorModel model;
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
        const auto s = record(Trajectory(c.pose).hold(0.01), model);
        ASSERT_EQ(s.size(), 3U);
        for (int i = 0; i < 3; ++i) {
            EXPECT_NEAR(s[0].acc[i], c.acc[i], 1e-4F) << i;
            EXPECT_NEAR(s[0].mag[i], c.mag[i], 1e-4F) << i;
            EXPECT_EQ(s[0].gyro[i], 0.0F);
        }
    }
}

// Integrating the gyroscope samples reproduces the true orientation, for
// turns about world and device axes in sequence.
TEST(SimRecording, GyroscopeIntegratesToTruth) {
    SensorModel model;
    model.rate_hz = 1000;
    const Trajectory t = Trajectory(imu::sim::pose(20, 10, -5))
                             .turn({0, 0, 1}, 0.8, 0.5)
                             .turn({1, 0, 0}, -1.2, 0.5, imu::sim::Frame::kDevice)
                             .hold(0.2)
                             .turn({1, 1, 1}, 0.5, 0.5);
    const auto s = record(t, model);
    Quat q = s[0].truth;
    for (std::size_t k = 0; k + 1 < s.size(); ++k) {
        const Vec3 w{s[k].gyro[0], s[k].gyro[1], s[k].gyro[2]};
        const double rate = std::sqrt(w.x * w.x + w.y * w.y + w.z * w.z);
        if (rate > 0) {
            q = imu::sim::normalized(q * imu::sim::axis_angle(w, rate / model.rate_hz));
        }
    }
    EXPECT_LT(imu::sim::angle_between_deg(q, s.back().truth), 0.05);
    EXPECT_NEAR(t.duration_s(), 1.7, 1e-12);
}

// The truth angles match the pose they were built from.
TEST(SimRecording, PoseAnglesRoundTrip) {
    const Quat q = imu::sim::pose(250, 20, -35);
    EXPECT_NEAR(imu::sim::azimuth_deg(q), 250, 1e-9);
    EXPECT_NEAR(imu::sim::pitch_deg(q), 20, 1e-9);
    EXPECT_NEAR(imu::sim::roll_deg(q), -35, 1e-9);
}

// Noise is deterministic for a seed, differs between seeds, and has the
// requested size; a bias shifts every gyroscope sample.
TEST(SimRecording, SeededNoiseAndBias) {
    SensorModel model;
    model.acc_noise_mps2 = 0.1;
    model.gyro_bias_rps = {0.01, -0.02, 0.03};
    const Trajectory t = Trajectory().hold(10.0);
    const auto a = record(t, model);
    const auto b = record(t, model);
    model.seed = 2;
    const auto c = record(t, model);
    EXPECT_EQ(a[100].acc[0], b[100].acc[0]);
    EXPECT_NE(a[100].acc[0], c[100].acc[0]);
    double sum = 0;
    double sq = 0;
    for (const auto& s : a) {
        sum += s.acc[0];
        sq += double{s.acc[0]} * s.acc[0];
        EXPECT_FLOAT_EQ(s.gyro[1], -0.02F);
    }
    const double n = static_cast<double>(a.size());
    EXPECT_NEAR(std::sqrt(sq / n - (sum / n) * (sum / n)), 0.1, 0.005);
    EXPECT_NEAR(norm(a[0].mag), std::sqrt(2000.0), 1e-3);
}

// Without a magnetometer the field reads exactly zero.
TEST(SimRecording, MissingMagnetometerReadsZero) {
    SensorModel model;
    model.magnetometer = false;
    model.mag_noise_ut = 1.0;
    const auto s = record(Trajectory().hold(0.1), model);
    EXPECT_EQ(norm(s[5].mag), 0.0);
    EXPECT_EQ(imu::sim::interval_ns(model), 5000000);
}

// The CSV form: header, then one line per sample that reads back exactly.
TEST(SimRecording, CsvHoldsHeaderAndExactValues) {
    SensorModel model;
    model.acc_noise_mps2 = 0.1;
    const auto samples = record(Trajectory(imu::sim::pose(10)).hold(0.01), model);
    std::ostringstream out;
    imu::sim::write_csv(out, samples);
    std::istringstream in(out.str());
    std::string line;
    std::getline(in, line);
    EXPECT_EQ(line, "t_s,acc_x,acc_y,acc_z,gyro_x,gyro_y,gyro_z,mag_x,mag_y,mag_z,q_w,q_x,q_y,q_z");
    int lines = 0;
    while (std::getline(in, line)) {
        float t = 0;
        float ax = 0;
        ASSERT_EQ(std::sscanf(line.c_str(), "%f,%f", &t, &ax), 2);
        EXPECT_EQ(ax, samples[static_cast<std::size_t>(lines)].acc[0]);
        ++lines;
    }
    EXPECT_EQ(lines, 3);
}

}  // namespace
