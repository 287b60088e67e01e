// The synthetic sequence builder agrees with its own truth, so the detector
// tests rest on consistent physics.

#include "sim/gesture_sequences.h"

#include <gtest/gtest.h>

namespace {

using imu::test::GestureSequence;

constexpr double kG = GestureSequence::kGravityMps2;

TEST(GestureSequences, TurningFaceDownReversesGravityThroughHalfATurn) {
    const GestureSequence s = imu::test::turn_face_down(0.6);
    ASSERT_EQ(s.size(), 320U);  // 0.5 + 0.6 + 0.5 s at 200 Hz
    EXPECT_NEAR(s.frames().front().out.gravity[2], kG, 1e-4);
    EXPECT_NEAR(s.frames().back().out.gravity[2], -kG, 1e-4);
    double angle = 0.0;
    for (const auto& f : s.frames()) {
        angle += static_cast<double>(f.imu.gyro[1]) * static_cast<double>(f.dt_us) * 1e-6;
    }
    EXPECT_NEAR(angle, 3.14159265358979, 1e-5);
}

// At rest the accelerometer reads gravity and the global acceleration is
// (0, 0, -1); in free fall it reads nothing; pushed, gravity plus motion.
TEST(GestureSequences, AccelerationAgreesWithGravityAndMotion) {
    GestureSequence s;
    s.upright().hold(0.01).accelerate({0.0, 0.0, -kG}, 0.01).accelerate({2.0, 0.0, 0.0}, 0.01);
    const auto& rest = s.frames()[0];
    const auto& fall = s.frames()[2];
    const auto& push = s.frames()[4];
    for (int k = 0; k < 3; ++k) {
        EXPECT_NEAR(rest.imu.acc[k], rest.out.gravity[k], 1e-5) << k;
        EXPECT_NEAR(fall.imu.acc[k], 0.0, 1e-5) << k;
        EXPECT_NEAR(push.imu.acc[k], push.out.gravity[k] + push.out.linear_acc[k], 1e-5) << k;
        EXPECT_NEAR(rest.out.global_acc[k], k == 2 ? -1.0 : 0.0, 1e-6) << k;
    }
    EXPECT_NEAR(rest.out.gravity[1], kG, 1e-5) << "upright: top edge up";
    EXPECT_NEAR(push.out.linear_acc[0], 2.0, 1e-6) << "east is device x";
}

}  // namespace
