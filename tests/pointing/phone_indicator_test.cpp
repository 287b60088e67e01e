// The phone pose indicator, on synthetic motions sampled at 100 Hz.

#include "pointing/phone_indicator.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>

#include "imu/pointing.h"

namespace {

using imu::PhonePoseState;

constexpr float kG = 9.8F;
constexpr double kPi = 3.141592653589793;

int still(PhonePoseState& s, float ay, float az, int calls, int enable = 1) {
    const float g[3] = {0.0F, 0.0F, 0.0F};
    const float a[3] = {0.0F, ay, az};
    int state = 0;
    for (int k = 0; k < calls; ++k) {
        state = imu::phone_pose_update(s, g, a, enable);
    }
    return state;
}

// From flat, a phone lying still for `settle` calls is turned about its x
// axis to `to_deg` at `rate` rad/s, reading (0, G sin t, G cos t).
// Returns the largest state seen during the turn.
int flat_then_turn(PhonePoseState& s, int settle, double to_deg, float rate) {
    still(s, 0.0F, kG, settle);
    const double total = to_deg * kPi / 180.0;
    const int calls = static_cast<int>(std::lround(total / (static_cast<double>(rate) * 0.01)));
    int seen = 0;
    for (int k = 1; k <= calls; ++k) {
        const double t = total * k / calls;
        const float g[3] = {rate, 0.0F, 0.0F};
        const float a[3] = {0.0F, static_cast<float>(kG * std::sin(t)),
                            static_cast<float>(kG * std::cos(t))};
        seen = std::max(seen, imu::phone_pose_update(s, g, a, 1));
    }
    return seen;
}

TEST(PhoneIndicator, TurnedFaceDownAndStillIsStateOne) {
    PhonePoseState s;
    EXPECT_EQ(flat_then_turn(s, 40, 180.0, static_cast<float>(kPi)), 0);
    EXPECT_EQ(s.axis, 2);  // My passed through G on the way: the jump picks axis 2
    EXPECT_EQ(s.rotated, 1);
    EXPECT_NEAR(s.angle_deg[0], 180.0F, 3.0F);
    EXPECT_EQ(still(s, 0.0F, -kG, 2), 1);
    EXPECT_EQ(still(s, 0.0F, -kG, 50), 1);
    // Disabling resets: counting starts again and a turn is needed anew.
    EXPECT_EQ(still(s, 0.0F, -kG, 1, 0), 0);
    EXPECT_EQ(s.n, 1);
    EXPECT_EQ(s.axis, 0);
    EXPECT_EQ(s.rotated, 0);
    EXPECT_EQ(still(s, 0.0F, -kG, 300, 0), 0);
    EXPECT_EQ(still(s, 0.0F, -kG, 300), 0);
}

// Too fast for the 0.8 s mean of y to move: the dominant rate's axis 1 stays.
TEST(PhoneIndicator, FastFlipKeepsAxisOne) {
    PhonePoseState s;
    flat_then_turn(s, 80, 180.0, 15.7F);
    EXPECT_EQ(s.axis, 1);
    EXPECT_LT(std::fabs(s.mean[1] - s.my_ref), 4.0F);
    EXPECT_EQ(still(s, 0.0F, -kG, 2), 1);
    EXPECT_EQ(s.axis, 1);
}

TEST(PhoneIndicator, RaisedUprightAndStillIsStateTwo) {
    PhonePoseState s;
    flat_then_turn(s, 40, 90.0, 2.0F);
    EXPECT_EQ(still(s, kG, 0.0F, 100), 2);
    EXPECT_EQ(s.moved, 1);
    EXPECT_EQ(s.axis, 2);  // a change of My above 4 ends with axis 2
}

TEST(PhoneIndicator, FaceDownWithoutEnoughTurnIsNotStateOne) {
    PhonePoseState s;
    EXPECT_EQ(still(s, 0.0F, -kG, 200), 0);
    EXPECT_EQ(s.rotated, 0);
    PhonePoseState t;
    flat_then_turn(t, 40, 20.0, 2.0F);
    EXPECT_EQ(t.rotated, 0);
    EXPECT_EQ(still(t, 0.0F, -kG, 20), 0);
}

TEST(PhoneIndicatorApi, ExportedFunctionAndBadInput) {
    const float g[3] = {0.0F, 0.0F, 0.0F};
    const float a[3] = {0.0F, 0.0F, kG};
    const float bad[3] = {NAN, 0.0F, INFINITY};
    const float* cases[][2] = {{nullptr, a}, {g, nullptr}, {bad, a}, {g, bad}};
    for (int k = 0; k < 30; ++k) {
        ASSERT_EQ(phoneIndicator(g, a, 1), 0);
    }
    for (const auto& c : cases) {
        EXPECT_EQ(phoneIndicator(c[0], c[1], 1), 0);
    }
    EXPECT_EQ(phoneIndicator(g, a, 0), 0);
}

}  // namespace
