// The self-contained air mouse: pointer steps from rate and acceleration
// samples at 100 Hz.

#include "pointing/air_mouse.h"

#include <gtest/gtest.h>

#include <cmath>

#include "imu/pointing.h"

namespace {

using imu::AirMouseState;

constexpr float kDegPerRad = 57.295F;
const float kFlat[3] = {0.0F, 0.0F, 9.8F};
const float kStill[3] = {0.0F, 0.0F, 0.0F};

// rate in deg/s about z, given to the algorithm in rad/s
void turn_z(AirMouseState& s, float dps, const float* acc = kFlat) {
    const float rate[3] = {0.0F, 0.0F, dps / kDegPerRad};
    imu::air_update(s, rate, acc);
}

void run_still(AirMouseState& s, int calls) {
    for (int k = 0; k < calls; ++k) {
        imu::air_update(s, kStill, kFlat);
    }
}

TEST(AirMouse, StillFlatPhoneNeverMovesAndReachesFullPrecision) {
    AirMouseState s;
    const float expected_divisor[] = {1.0F, 2.0F, 3.0F, 4.0F, 4.0F};
    for (int k = 0; k < 300; ++k) {
        imu::air_update(s, kStill, kFlat);
        ASSERT_EQ(s.dx, 0) << "call " << k;
        ASSERT_EQ(s.dy, 0) << "call " << k;
        if (k < 5) {
            EXPECT_EQ(s.divisor, expected_divisor[k]) << "call " << k;
        }
    }
    EXPECT_EQ(s.gain, 10.0F);  // the gain stops at its upper bound
    EXPECT_EQ(s.calls, 300);
    EXPECT_NEAR(s.pitch_deg, 0.0F, 1e-6);
    EXPECT_NEAR(s.roll_deg, 0.0F, 1e-6);
}

// GIVEN a warmed-up still phone WHEN it turns steadily at -10 deg/s about z
// THEN the precision divisor falls to 1 and every call moves the pointer by
// 2 (10 gathered, 2.5 emitted, truncated), with no vertical motion.
TEST(AirMouse, SteadyTurnGivesTwoStepsPerCallAtFullSpeed) {
    AirMouseState s;
    run_still(s, 100);
    int moved_calls = 0;
    for (int k = 0; k < 200; ++k) {
        turn_z(s, -10.0F);
        EXPECT_NEAR(s.h_dps, 10.0F, 1e-4) << "call " << k;
        EXPECT_EQ(s.dy, 0);
        moved_calls += s.dx != 0 ? 1 : 0;
        if (k >= 20) {
            ASSERT_EQ(s.divisor, 1.0F) << "call " << k;
            ASSERT_EQ(s.dx, 2) << "call " << k;
        }
    }
    EXPECT_GE(moved_calls, 180);
    // The opposite turn moves the other way.
    for (int k = 0; k < 20; ++k) {
        turn_z(s, 10.0F);
    }
    EXPECT_EQ(s.dx, -2);
}

TEST(AirMouse, RatesBelowTheFloorAreIgnored) {
    AirMouseState s;
    run_still(s, 10);
    const float tiny[3] = {0.0015F, 0.0015F, 0.0015F};  // 0.086 deg/s on every axis
    imu::air_update(s, tiny, kFlat);
    EXPECT_EQ(s.h_dps, 0.0F);
    EXPECT_EQ(s.v_dps, 0.0F);
    const float z_only[3] = {0.0F, 0.0F, 0.002F};  // 0.115 deg/s
    imu::air_update(s, z_only, kFlat);
    EXPECT_NEAR(s.h_dps, -0.11459F, 1e-5);
    EXPECT_NEAR(s.v_dps, 0.0F, 1e-5);  // only the tiny roll of the call before mixes in
    const float x_only[3] = {0.002F, 0.0F, 0.0F};
    imu::air_update(s, x_only, kFlat);
    EXPECT_NEAR(s.v_dps, -0.11459F, 1e-3);
}

TEST(AirMouse, RateBelowTheDivisorIsDroppedNotGathered) {
    AirMouseState s;
    run_still(s, 60);
    ASSERT_EQ(s.divisor, 4.0F);
    turn_z(s, -3.0F);  // H = 3 with D = 4 (the gain only falls to 9.8)
    EXPECT_EQ(s.divisor, 4.0F);
    EXPECT_EQ(s.step_acc[0], 0.0F);
    EXPECT_EQ(s.dx, 0);
}

struct EmitCase {
    const char* name;
    float acc_x;
    float acc_y;
    int dx;
    int dy;
};

class AirMouseEmission : public testing::TestWithParam<EmitCase> {};

// Gathered units are emitted a quarter at a time, the weaker axis is scaled
// down when the other dominates by 4 to 1 from 20 up, and steps are limited
// to 127.
TEST_P(AirMouseEmission, StepsFromGatheredUnits) {
    const EmitCase& c = GetParam();
    AirMouseState s;
    run_still(s, 60);
    s.step_acc[0] = c.acc_x;
    s.step_acc[1] = c.acc_y;
    imu::air_update(s, kStill, kFlat);
    EXPECT_EQ(s.dx, c.dx);
    EXPECT_EQ(s.dy, c.dy);
}

INSTANTIATE_TEST_SUITE_P(
    Cases, AirMouseEmission,
    testing::Values(EmitCase{"BelowFourUnitsNothing", 3.9F, -3.9F, 0, 0},
                    EmitCase{"FourUnitsOneStep", 4.0F, -4.0F, 1, -1},
                    EmitCase{"XDominatesY", 120.0F, 20.0F, 30, 0},  // Y = 5 * 5 / 30
                    EmitCase{"YDominatesX", -20.0F, -120.0F, 0, -30},
                    EmitCase{"DominanceNeedsTwenty", 76.0F, 16.0F, 19, 4},  // 19 < 20
                    EmitCase{"NoDominanceBelowFourToOne", 120.0F, 40.0F, 30, 10},
                    EmitCase{"ClampedTo127", 800.0F, -800.0F, 127, -127},
                    EmitCase{"ClampedBeforeTruncation", 510.0F, 0.0F, 127, 0}),
    [](const testing::TestParamInfo<EmitCase>& info) { return std::string(info.param.name); });

TEST(AirMouse, FirstFiveCallsGiveNoMotionAndWarmUpHoldsSmallSteps) {
    AirMouseState s;
    for (int k = 0; k < 5; ++k) {
        s.step_acc[0] = 40.0F;
        turn_z(s, -50.0F);
        EXPECT_EQ(s.dx, 0) << "call " << k;  // neutral samples, output zero
    }
    // Small steps stay hidden while the warm-up counter is below 50.
    AirMouseState t;
    run_still(t, 10);
    t.step_acc[0] = 8.0F;  // emits 2
    imu::air_update(t, kStill, kFlat);
    EXPECT_EQ(t.dx, 0);
    // A step of 3 or more ends the warm-up at once.
    t.step_acc[0] = 12.0F;
    imu::air_update(t, kStill, kFlat);
    EXPECT_EQ(t.dx, 3);
    EXPECT_EQ(t.warmup, 150);
    t.step_acc[0] = 8.0F;
    imu::air_update(t, kStill, kFlat);
    EXPECT_EQ(t.dx, 2);
}

TEST(AirMouse, PositionModesMapTheAxes) {
    AirMouseState s;
    const float rate[3] = {0.0F, 1.0F, 0.5F};
    const float acc[3] = {1.0F, 2.0F, 9.0F};
    imu::air_convert(s, rate, acc);
    EXPECT_EQ(s.rate_rps[0], 0.0F);
    EXPECT_EQ(s.rate_rps[1], 1.0F);
    s.position_mode = 1;  // held sideways
    imu::air_convert(s, rate, acc);
    EXPECT_EQ(s.rate_rps[0], -1.0F);
    EXPECT_EQ(s.rate_rps[1], 0.0F);
    EXPECT_EQ(s.rate_rps[2], 0.5F);
    EXPECT_EQ(s.acc_mps2[0], -2.0F);
    EXPECT_EQ(s.acc_mps2[1], 1.0F);
    EXPECT_EQ(s.acc_mps2[2], 9.0F);
    s.position_mode = 2;  // unknown: the previous sample stays
    const float other[3] = {7.0F, 7.0F, 7.0F};
    imu::air_convert(s, other, other);
    EXPECT_EQ(s.rate_rps[0], -1.0F);
    EXPECT_EQ(s.acc_mps2[0], -2.0F);
}

TEST(AirMouse, UnknownPositionModeRunsOnThePreviousSample) {
    AirMouseState s;
    run_still(s, 100);
    for (int k = 0; k < 40; ++k) {
        turn_z(s, -10.0F);
    }
    s.position_mode = 2;
    for (int k = 0; k < 10; ++k) {
        imu::air_update(s, kStill, kFlat);  // ignored: the turn goes on
        EXPECT_EQ(s.dx, 2);
    }
}

TEST(AirMouse, SamplesThatAreNotFiniteAreIgnored) {
    AirMouseState s;
    run_still(s, 100);
    const float bad_rate[3] = {NAN, 0.0F, INFINITY};
    const float huge_acc[3] = {0.0F, 3e30F, 9.8F};
    for (int k = 0; k < 50; ++k) {
        imu::air_update(s, bad_rate, kFlat);
        imu::air_update(s, kStill, huge_acc);
    }
    EXPECT_EQ(s.dx, 0);
    EXPECT_TRUE(std::isfinite(s.gain));
    EXPECT_TRUE(std::isfinite(s.pitch_deg));
    for (int k = 0; k < 40; ++k) {
        turn_z(s, -10.0F);
    }
    EXPECT_EQ(s.dx, 2);  // still working
    imu::air_update(s, nullptr, kFlat);
    EXPECT_EQ(s.dx, 2);
}

// GIVEN a phone held still, tilted 30 degrees about y (roll) WHEN the
// filter runs for 20 s THEN its roll settles on the accelerometer's roll,
// atan(ax / az) = 30 degrees, and its pitch stays 0.
TEST(AirMouse, TiltSettlesOnTheAccelerometerAngle) {
    AirMouseState s;
    const float acc[3] = {-9.8F * 0.5F, 0.0F, 9.8F * 0.8660254F};
    for (int k = 0; k < 2000; ++k) {
        imu::air_update(s, kStill, acc);
    }
    EXPECT_NEAR(s.roll_deg, 30.0F, 0.01F);
    EXPECT_NEAR(s.pitch_deg, 0.0F, 1e-4F);
    // Pitch uses the whole-number norm of the means: asin(y / |trunc(A20)|).
    AirMouseState p;
    const float tilted[3] = {0.0F, 4.9F, 8.4870F};
    for (int k = 0; k < 2000; ++k) {
        imu::air_update(p, kStill, tilted);
    }
    const double expected = std::asin(4.9 / std::sqrt(4.0 * 4.0 + 8.0 * 8.0)) * 57.295;
    EXPECT_NEAR(p.pitch_deg, expected, 0.01);
}

TEST(AirMouse, RollTurnsTheRatesWithTheHand) {
    // With the phone rolled 90 degrees the yaw turn appears on the vertical axis.
    AirMouseState s;
    s.roll_deg = 90.0F;
    s.int_roll_deg = 90.0F;
    s.calls = 10;
    s.initialised = true;
    const float rate[3] = {0.0F, 0.0F, -10.0F / kDegPerRad};
    // Rings hold the rolled phone's acceleration only after they fill, so
    // the horizontal part is checked on the very call.
    imu::air_update(s, rate, kFlat);
    EXPECT_NEAR(s.v_dps, 10.0F, 0.1F);
    EXPECT_NEAR(s.h_dps, 0.0F, 0.2F);
}

TEST(AirMouseApi, ScreenScalingAndDefaults) {
    imu::AirMouseState& g = imu::air_mouse_state();
    g.dx = 10;
    g.dy = -7;
    float out[3] = {1, 1, 1};
    EXPECT_EQ(getmouse_relative_coordinates(out), 0);
    EXPECT_EQ(out[0], 10.0F);  // the reference screen: one step is one pixel
    EXPECT_EQ(out[1], -7.0F);
    EXPECT_EQ(out[2], 0.0F);
    EXPECT_EQ(input_screen_resolution(1920.0F, 1080.0F), 0);
    g.dy = 10;
    getmouse_relative_coordinates(out);
    EXPECT_FLOAT_EQ(out[0], 11.428572F);
    EXPECT_FLOAT_EQ(out[1], 10.285714F);
    EXPECT_EQ(getmouse_relative_coordinates(nullptr), -22);
}

TEST(AirMouseApi, ExportedCallsDriveTheProcessState) {
    EXPECT_EQ(set_position(1), 0);
    const float rate[3] = {0.0F, 1.0F, 0.0F};
    conver_position(rate, kFlat);
    EXPECT_EQ(imu::air_mouse_state().rate_rps[0], -1.0F);
    set_position(0);
    for (int k = 0; k < 100; ++k) {
        air_update_posture(kStill, kFlat);
    }
    EXPECT_EQ(imu::air_mouse_state().calls, 100);
    EXPECT_EQ(imu::air_mouse_state().divisor, 4.0F);
}

}  // namespace
