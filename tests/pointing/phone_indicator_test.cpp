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

// Turned face down (a slow turn picks axis 2 as My passes through G, one
// too fast for the 0.8 s mean of y keeps the dominant rate's axis 1) and
// still: state 1. Raised upright and still: 2. Face down without enough
// turn: 0. (settle calls, turn to deg, at rad/s, then still at ay, az.)
TEST(PhoneIndicator, StateAfterATurnAndStillness) {
    const struct {
        int settle;
        double to_deg;
        float rate, ay, az;
        int calls, state, axis, rotated;  // -1: not looked at
    } cases[] = {{40, 180.0, static_cast<float>(kPi), 0.0F, -kG, 50, 1, 2, 1},
                 {80, 180.0, 15.7F, 0.0F, -kG, 2, 1, 1, 1},
                 {40, 90.0, 2.0F, kG, 0.0F, 100, 2, 2, -1},
                 {0, 0.0, 1.0F, 0.0F, -kG, 200, 0, -1, 0},
                 {40, 20.0, 2.0F, 0.0F, -kG, 20, 0, -1, 0}};
    for (const auto& c : cases) {
        PhonePoseState s;
        EXPECT_EQ(flat_then_turn(s, c.settle, c.to_deg, c.rate), 0) << c.to_deg << " " << c.rate;
        EXPECT_EQ(still(s, c.ay, c.az, c.calls), c.state) << c.to_deg << " " << c.rate;
        EXPECT_TRUE((c.axis < 0 || s.axis == c.axis) && (c.rotated < 0 || s.rotated == c.rotated))
            << c.to_deg << " " << c.rate << ": axis " << s.axis;
    }
}

// Disabling resets: counting starts again and a turn is needed anew.
TEST(PhoneIndicator, DisablingResets) {
    PhonePoseState s;
    flat_then_turn(s, 40, 180.0, static_cast<float>(kPi));
    EXPECT_NEAR(s.angle_deg[0], 180.0F, 3.0F);
    EXPECT_EQ(still(s, 0.0F, -kG, 2), 1);
    EXPECT_EQ(still(s, 0.0F, -kG, 1, 0), 0);
    EXPECT_TRUE(s.n == 1 && s.axis == 0 && s.rotated == 0);
    EXPECT_EQ(still(s, 0.0F, -kG, 300, 0), 0);
    EXPECT_EQ(still(s, 0.0F, -kG, 300), 0);
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
