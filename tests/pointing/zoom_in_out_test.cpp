// The exported rotation-step detector.

#include <gtest/gtest.h>

#include <cmath>
#include <vector>

#include "imu/pointing.h"

namespace {

// Results of n calls with the same sample (mode 1: no reset).
std::vector<int> run(zoom_in_out_obj& z, int n, float r1, float r2, float r3, int sensitivity,
                     int orientation, float az = 9.8F) {
    std::vector<int> out;
    for (int k = 0; k < n; ++k) {
        out.push_back(z.staticIndicator(r1, r2, r3, 0.0F, 0.0F, az, 0.0F, 0.0F, 0.0F, 1,
                                        sensitivity, orientation));
    }
    return out;
}

TEST(ZoomInOut, StepSizeFollowsTheSensitivity) {
    zoom_in_out_obj z;
    const struct {
        int sensitivity;
        float step;
    } cases[] = {{0, 0.5F}, {1, 0.1F}, {3, 0.3F}, {10, 1.0F}, {11, 0.5F}, {-4, 0.5F}};
    for (const auto& c : cases) {
        run(z, 1, 0.0F, 0.0F, 0.0F, c.sensitivity, 0);
        EXPECT_EQ(z.step_size, c.step) << c.sensitivity;
        EXPECT_EQ(z.last_sensitivity, c.sensitivity);
    }
}

TEST(ZoomInOut, WarmUpOfFiveCallsAfterAReset) {
    zoom_in_out_obj z;
    for (int k = 0; k < 5; ++k) {
        EXPECT_EQ(z.staticIndicator(0.0F, 40.0F, 0.0F, 0, 0, 9.8F, 0, 0, 0, k == 0 ? 0 : 1, 5, 1),
                  0);
    }
    EXPECT_EQ(z.sample_counter, 5);
}

// GIVEN a steady turn of 0.3 about axis 2 at sensitivity 5 (step 0.5) THEN
// gathering starts on the tenth call once the quiet counter passes 9, the
// eleventh call emits 1 (0.6 / 0.5 = 1.2) and the calls then alternate.
TEST(ZoomInOut, SlowTurnEmitsEveryOtherCall) {
    zoom_in_out_obj z;
    const std::vector<int> got = run(z, 16, 0.0F, 0.3F, 0.0F, 5, 1);
    const std::vector<int> expected = {0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 1, 0, 1, 0, 1, 0};
    EXPECT_EQ(got, expected);
}

TEST(ZoomInOut, FastTurnEmitsEveryCallWithTheOrientationSign) {
    const struct {
        int orientation;
        float r1, r2;
        int result;
    } cases[] = {
        {1, 0.0F, 2.0F, 4}, {3, 0.0F, 2.0F, -4}, {0, 0.0F, 2.0F, 0}, {2, 0.0F, 2.0F, 0},
        {0, 2.0F, 0.0F, 4}, {2, 2.0F, 0.0F, -4}, {1, 2.0F, 0.0F, 0}, {7, 2.0F, 0.0F, 0},
    };
    for (const auto& c : cases) {
        zoom_in_out_obj z;
        const std::vector<int> got = run(z, 20, c.r1, c.r2, 0.0F, 5, c.orientation);
        for (int k = 0; k < 9; ++k) {
            EXPECT_EQ(got[k], 0) << "call " << k + 1;
        }
        for (int k = 9; k < 20; ++k) {
            EXPECT_EQ(got[k], c.result)
                << "orientation " << c.orientation << " r1 " << c.r1 << " call " << k + 1;
        }
    }
}

TEST(ZoomInOut, FlickWithoutAccelerationChangeIsRejectedEarlyOn) {
    zoom_in_out_obj z;
    std::vector<int> got = run(z, 199, 8.0F, 0.0F, 0.0F, 5, 0);
    for (int v : got) {
        ASSERT_EQ(v, 0);
    }
    // From the 201st call the turn is accepted: 8 / 0.5 = 16 steps.
    got = run(z, 20, 8.0F, 0.0F, 0.0F, 5, 0);
    EXPECT_EQ(got.back(), 16);
    // The same turn with a changing z acceleration is not a flick.
    zoom_in_out_obj w;
    for (int k = 0; k < 20; ++k) {
        const float az = (k % 2 == 0) ? 9.8F : 5.0F;
        w.staticIndicator(8.0F, 0.0F, 0.0F, 0, 0, az, 0, 0, 0, 1, 5, 0);
    }
    EXPECT_EQ(w.result, 16);
}

TEST(ZoomInOut, TurnAboutTheThirdAxisSilencesBothForTenCalls) {
    zoom_in_out_obj z;
    ASSERT_EQ(run(z, 20, 0.0F, 2.0F, 0.0F, 5, 1).back(), 4);
    std::vector<int> got = run(z, 1, 0.0F, 0.0F, 8.0F, 5, 1);  // axis 3 dominant
    const std::vector<int> after = run(z, 10, 0.0F, 2.0F, 0.0F, 5, 1);
    got.insert(got.end(), after.begin(), after.end());
    EXPECT_EQ(got, (std::vector<int>{0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 4}));
}

TEST(ZoomInOut, MixedTurnIsNotGathered) {
    zoom_in_out_obj z;
    const std::vector<int> got = run(z, 30, 1.0F, 1.0F, 0.0F, 5, 1);  // neither axis leads
    for (int v : got) {
        EXPECT_EQ(v, 0);
    }
    EXPECT_EQ(z.gathered[0], 0.0F);
    EXPECT_EQ(z.gathered[1], 0.0F);
}

TEST(ZoomInOut, StepsAreLimitedToOneHundred) {
    zoom_in_out_obj z;
    EXPECT_EQ(run(z, 20, 0.0F, 4.9F, 0.0F, 1, 1).back(), 49);
    zoom_in_out_obj big;
    const std::vector<int> got = run(big, 20, 4.9F, 0.0F, 0.0F, 1, 2, 0.0F);
    EXPECT_EQ(got.back(), -49);
    zoom_in_out_obj huge;
    EXPECT_EQ(huge.staticIndicator(0, 0, 0, 0, 0, 0, 0, 0, 0, 1, 1, 1), 0);
    huge.sample_counter = 300;  // past the flick window
    huge.quiet_count[0] = 100;
    // r2 > 5 resets q2 only; 1e6 / 0.1 steps are limited to 100.
    EXPECT_EQ(huge.staticIndicator(0.0F, 1e6F, 0.0F, 0, 0, 0, 0, 0, 0, 1, 1, 1), 100);
    EXPECT_EQ(huge.step[0], 100);
}

TEST(ZoomInOut, ModeZeroResetsTheWarmUpButKeepsGatheredRate) {
    zoom_in_out_obj z;
    run(z, 10, 0.0F, 0.3F, 0.0F, 5, 1);  // A = 0.3 after the tenth call
    EXPECT_FLOAT_EQ(z.gathered[0], 0.3F);
    EXPECT_EQ(z.staticIndicator(0.0F, 0.3F, 0.0F, 0, 0, 9.8F, 0, 0, 0, 0, 5, 1), 0);
    EXPECT_EQ(z.sample_counter, 1);
    EXPECT_FLOAT_EQ(z.gathered[0], 0.3F);
    z.initial();
    EXPECT_EQ(z.gathered[0], 0.0F);
    EXPECT_EQ(z.sample_counter, 0);
}

TEST(ZoomInOut, ConvenienceCallAndBadInput) {
    zoom_in_out_obj z;
    const float rates[3] = {0.0F, 2.0F, 0.0F};
    const float acc[3] = {0.0F, 0.0F, 9.8F};
    int last = 0;
    for (int k = 0; k < 10; ++k) {
        last = z.get_zoom_in_out(rates, acc, 1, 5, 1);
    }
    EXPECT_EQ(last, 4);
    EXPECT_EQ(z.get_zoom_in_out(nullptr, acc, 1, 5, 1), 0);
    EXPECT_EQ(z.get_zoom_in_out(rates, nullptr, 1, 5, 1), 0);
    const int counter = z.sample_counter;
    EXPECT_EQ(z.staticIndicator(NAN, 2.0F, 0, 0, 0, 9.8F, 0, 0, 0, 1, 5, 1), 0);
    EXPECT_EQ(z.staticIndicator(0, 2.0F, 0, 0, 0, INFINITY, 0, 0, 0, 1, 5, 1), 0);
    EXPECT_EQ(z.sample_counter, counter);
    EXPECT_EQ(z.get_zoom_in_out(rates, acc, 1, 5, 1), 4);  // unharmed
}

}  // namespace
