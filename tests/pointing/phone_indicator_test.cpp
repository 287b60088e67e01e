// The phone pose indicator, on synthetic motions sampled at 100 Hz.

#include "pointing/phone_indicator.h"

#include <gtest/gtest.h>

#include <cmath>

#include "imu/pointing.h"

namespace {

using imu::PhonePoseState;

constexpr float kG = 9.8F;
constexpr double kPi = 3.141592653589793;

int still(PhonePoseState& s, float ax, float ay, float az, int calls, int enable = 1) {
    const float g[3] = {0.0F, 0.0F, 0.0F};
    const float a[3] = {ax, ay, az};
    int state = 0;
    for (int k = 0; k < calls; ++k) {
        state = imu::phone_pose_update(s, g, a, enable);
    }
    return state;
}

// Turns the phone about its x axis from angle 0 (flat, face up) to
// `to_deg` at `rate` rad/s; the accelerometer reads (0, G sin t, G cos t).
// Returns the largest state seen.
int turn_about_x(PhonePoseState& s, double to_deg, float rate) {
    const double total = to_deg * kPi / 180.0;
    const int calls = static_cast<int>(std::lround(total / (static_cast<double>(rate) * 0.01)));
    int seen = 0;
    for (int k = 1; k <= calls; ++k) {
        const double t = total * k / calls;
        const float g[3] = {rate, 0.0F, 0.0F};
        const float a[3] = {0.0F, static_cast<float>(kG * std::sin(t)),
                            static_cast<float>(kG * std::cos(t))};
        const int state = imu::phone_pose_update(s, g, a, 1);
        seen = state > seen ? state : seen;
    }
    return seen;
}

// GIVEN a phone lying flat WHEN it is turned face down over one second and
// left still THEN the indicator reports state 1.
TEST(PhoneIndicator, TurnedFaceDownAndStillIsStateOne) {
    PhonePoseState s;
    EXPECT_EQ(still(s, 0.0F, 0.0F, kG, 40), 0);
    EXPECT_EQ(turn_about_x(s, 180.0, static_cast<float>(kPi)), 0);
    EXPECT_EQ(s.axis, 2);  // My passed through G on the way: the jump picks axis 2
    EXPECT_EQ(s.rotated, 1);
    EXPECT_NEAR(s.angle_deg[0], 180.0F, 3.0F);  // the turn sum is in degrees
    EXPECT_EQ(still(s, 0.0F, 0.0F, -kG, 2), 1);
    EXPECT_EQ(still(s, 0.0F, 0.0F, -kG, 50), 1);  // and stays
}

// A flip fast enough that the 0.8 s mean of y hardly moves keeps the axis
// of the dominant rate, axis 1; face down and still it is state 1 as well.
TEST(PhoneIndicator, FastFlipKeepsAxisOne) {
    PhonePoseState s;
    still(s, 0.0F, 0.0F, kG, 80);
    turn_about_x(s, 180.0, 15.7F);  // in 20 samples
    EXPECT_EQ(s.axis, 1);
    EXPECT_LT(std::fabs(s.mean[1] - s.my_ref), 4.0F);
    EXPECT_EQ(still(s, 0.0F, 0.0F, -kG, 2), 1);
    EXPECT_EQ(s.axis, 1);
}

TEST(PhoneIndicator, FaceDownWithoutATurnIsNotStateOne) {
    PhonePoseState s;
    EXPECT_EQ(still(s, 0.0F, 0.0F, -kG, 200), 0);
    EXPECT_EQ(s.rotated, 0);
}

TEST(PhoneIndicator, SmallTurnIsNotEnough) {
    PhonePoseState s;
    still(s, 0.0F, 0.0F, kG, 40);
    turn_about_x(s, 20.0, 2.0F);  // 20 degrees: not rotated
    EXPECT_EQ(s.rotated, 0);
    EXPECT_EQ(still(s, 0.0F, 0.0F, -kG, 20), 0);
}

// GIVEN a phone lying flat WHEN it is raised upright and held still THEN
// the change of the mean y acceleration marks it moved and the indicator
// reports state 2.
TEST(PhoneIndicator, RaisedUprightAndStillIsStateTwo) {
    PhonePoseState s;
    still(s, 0.0F, 0.0F, kG, 40);
    EXPECT_NEAR(s.my_ref, 0.0F, 1e-6F);
    turn_about_x(s, 90.0, 2.0F);
    EXPECT_EQ(still(s, 0.0F, kG, 0.0F, 100), 2);
    EXPECT_EQ(s.moved, 1);
    EXPECT_EQ(s.axis, 2);  // a change of My above 4 ends with axis 2
}

TEST(PhoneIndicator, DisableResetsAndReportsZero) {
    PhonePoseState s;
    still(s, 0.0F, 0.0F, kG, 40);
    turn_about_x(s, 180.0, static_cast<float>(kPi));
    ASSERT_EQ(still(s, 0.0F, 0.0F, -kG, 5), 1);
    EXPECT_EQ(still(s, 0.0F, 0.0F, -kG, 1, 0), 0);
    EXPECT_EQ(s.n, 1);  // counting starts again
    EXPECT_EQ(s.axis, 0);
    EXPECT_EQ(s.rotated, 0);
    EXPECT_EQ(still(s, 0.0F, 0.0F, -kG, 300, 0), 0);
    EXPECT_EQ(still(s, 0.0F, 0.0F, -kG, 300), 0);  // no turn since the reset
}

TEST(PhoneIndicator, FirstTwentyCallsOnlyFillTheRings) {
    PhonePoseState s;
    const float g[3] = {9.0F, 9.0F, 9.0F};
    const float a[3] = {0.0F, 0.0F, -kG};
    for (int k = 0; k < 20; ++k) {
        EXPECT_EQ(imu::phone_pose_update(s, g, a, 1), 0);
        EXPECT_EQ(s.angle_deg[0], 0.0F);
        EXPECT_EQ(s.rate[0][s.i == 0 ? 7 : s.i - 1], 0.0F);  // rates stored as zero
    }
    EXPECT_EQ(s.axis, 0);
    EXPECT_EQ(s.n, 20);
}

TEST(PhoneIndicator, CounterStopsAtTwoThousand) {
    PhonePoseState s;
    still(s, 0.0F, 0.0F, kG, 2500);
    EXPECT_EQ(s.n, 2000);
    EXPECT_EQ(s.i, 2500 % 8);
}

TEST(PhoneIndicatorApi, ExportedFunctionAndBadInput) {
    const float g[3] = {0.0F, 0.0F, 0.0F};
    const float a[3] = {0.0F, 0.0F, kG};
    EXPECT_EQ(phoneIndicator(nullptr, a, 1), 0);
    EXPECT_EQ(phoneIndicator(g, nullptr, 1), 0);
    for (int k = 0; k < 30; ++k) {
        EXPECT_EQ(phoneIndicator(g, a, 1), 0);
    }
    const float bad[3] = {NAN, 0.0F, INFINITY};
    EXPECT_EQ(phoneIndicator(bad, a, 1), 0);
    EXPECT_EQ(phoneIndicator(g, bad, 1), 0);
    EXPECT_EQ(phoneIndicator(g, a, 0), 0);
}

}  // namespace
