// The self-contained air mouse: pointer steps from rate and acceleration
// samples at 100 Hz.

#include "pointing/air_mouse.h"

#include <gtest/gtest.h>

#include <cmath>
#include <utility>
#include <vector>

#include "imu/pointing.h"

namespace {

using imu::AirMouseState;

constexpr float kDegPerRad = 57.295F;
const float kFlat[3] = {0.0F, 0.0F, 9.8F};
const float kStill[3] = {0.0F, 0.0F, 0.0F};

void run(AirMouseState& s, int calls, const float* rate, const float* acc = kFlat) {
    for (int k = 0; k < calls; ++k) {
        imu::air_update(s, rate, acc);
    }
}
void turn_z(AirMouseState& s, float dps, int calls = 1) {
    const float rate[3] = {0.0F, 0.0F, dps / kDegPerRad};
    run(s, calls, rate);
}
void run_still(AirMouseState& s, int calls, const float* acc = kFlat) { run(s, calls, kStill, acc); }
std::vector<float> v3(const float* p) { return {p[0], p[1], p[2]}; }

TEST(AirMouse, StillFlatPhoneNeverMovesAndReachesFullPrecision) {
    AirMouseState s;
    for (int k = 0; k < 300; ++k) {
        imu::air_update(s, kStill, kFlat);
        ASSERT_TRUE(s.dx == 0 && s.dy == 0) << "call " << k;
    }
    EXPECT_EQ(s.divisor, 4.0F);
    EXPECT_TRUE(std::fabs(s.pitch_deg) < 1e-6F && std::fabs(s.roll_deg) < 1e-6F);
}

// -10 deg/s: 10 units gathered, 2.5 emitted, truncated to 2 per call at D = 1.
TEST(AirMouse, SteadyTurnGivesTwoStepsPerCallAtFullSpeed) {
    AirMouseState s;
    run_still(s, 100);
    for (int k = 0; k < 200; ++k) {
        turn_z(s, -10.0F);
        EXPECT_NEAR(s.h_dps, 10.0F, 1e-4) << "call " << k;
        ASSERT_TRUE(s.dy == 0 && (k < 20 || (s.divisor == 1.0F && s.dx == 2))) << "call " << k;
    }
    turn_z(s, 10.0F, 20);
    EXPECT_EQ(s.dx, -2);
}

// Quarter emission, 4:1 dominance from 20 up, clamping to 127.
TEST(AirMouse, StepsFromGatheredUnits) {
    const struct {
        float acc_x, acc_y;
        int dx, dy;
    } cases[] = {{3.9F, -3.9F, 0, 0},          {4.0F, -4.0F, 1, -1},
                              {120.0F, 20.0F, 30, 0},       {-20.0F, -120.0F, 0, -30},
                              {76.0F, 16.0F, 19, 4},        {120.0F, 40.0F, 30, 10},
                              {800.0F, -800.0F, 127, -127}, {510.0F, 0.0F, 127, 0}};
    for (const auto& c : cases) {
        AirMouseState s;
        run_still(s, 60);
        s.step_acc[0] = c.acc_x;
        s.step_acc[1] = c.acc_y;
        imu::air_update(s, kStill, kFlat);
        EXPECT_EQ(std::make_pair(s.dx, s.dy), std::make_pair(c.dx, c.dy)) << c.acc_x;
    }
}

// Mode 1 (held sideways) turns the axes; an unknown mode keeps the previous sample.
TEST(AirMouse, PositionModesMapTheAxes) {
    AirMouseState s;
    const float rate[3] = {0.0F, 1.0F, 0.5F};
    const float acc[3] = {1.0F, 2.0F, 9.0F};
    const std::vector<float> turned[2] = {{-1.0F, 0.0F, 0.5F}, {-2.0F, 1.0F, 9.0F}};
    imu::air_convert(s, rate, acc);
    EXPECT_EQ(v3(s.rate_rps), v3(rate));
    EXPECT_EQ(v3(s.acc_mps2), v3(acc));
    for (int mode = 1; mode < 3; ++mode) {
        s.position_mode = mode;
        imu::air_convert(s, mode == 2 ? kStill : rate, mode == 2 ? kStill : acc);
        EXPECT_EQ(v3(s.rate_rps), turned[0]) << mode;
        EXPECT_EQ(v3(s.acc_mps2), turned[1]) << mode;
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
    EXPECT_TRUE(s.dx == 0 && std::isfinite(s.gain) && std::isfinite(s.pitch_deg));
    turn_z(s, -10.0F, 40);
    imu::air_update(s, nullptr, kFlat);
    EXPECT_EQ(s.dx, 2);  // still working
}

// Held still and tilted, the filter settles on the accelerometer's angles:
// roll atan(ax / az), pitch asin(y / |trunc(mean)|).
TEST(AirMouse, TiltSettlesOnTheAccelerometerAngle) {
    AirMouseState s;
    const float rolled[3] = {-9.8F * 0.5F, 0.0F, 9.8F * 0.8660254F};
    run_still(s, 2000, rolled);
    EXPECT_NEAR(s.roll_deg, 30.0F, 0.01F);
    EXPECT_NEAR(s.pitch_deg, 0.0F, 1e-4F);
    AirMouseState p;
    const float pitched[3] = {0.0F, 4.9F, 8.4870F};
    run_still(p, 2000, pitched);
    EXPECT_NEAR(p.pitch_deg, std::asin(4.9 / std::sqrt(80.0)) * 57.295, 0.01);
}

TEST(AirMouseApi, ScreenScalingAndExportedCalls) {
    imu::AirMouseState& g = imu::air_mouse_state();
    g.dx = 10;
    g.dy = -7;
    float out[3] = {1, 1, 1};
    EXPECT_EQ(getmouse_relative_coordinates(out), 0);
    EXPECT_EQ(v3(out), (std::vector<float>{10.0F, -7.0F, 0.0F}));  // reference screen: 1 px
    EXPECT_EQ(input_screen_resolution(1920.0F, 1080.0F), 0);
    g.dy = 10;
    getmouse_relative_coordinates(out);
    EXPECT_FLOAT_EQ(out[0], 11.428572F);
    EXPECT_FLOAT_EQ(out[1], 10.285714F);
    EXPECT_EQ(getmouse_relative_coordinates(nullptr), -22);

    EXPECT_EQ(set_position(1), 0);
    const float rate[3] = {0.0F, 1.0F, 0.0F};
    conver_position(rate, kFlat);
    EXPECT_EQ(g.rate_rps[0], -1.0F);
    const int calls = g.calls;
    air_update_posture(kStill, kFlat);
    EXPECT_EQ(g.calls, calls + 1);
}

}  // namespace
