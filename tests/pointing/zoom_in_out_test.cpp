// The exported rotation-step detector.

#include <gtest/gtest.h>

#include <cmath>
#include <vector>

#include "imu/pointing.h"

namespace {

using Results = std::vector<int>;

// Results of n calls with the same sample (mode 1: no reset).
Results run(zoom_in_out_obj& z, int n, float r1, float r2, float r3, int sensitivity,
            int orientation, float az = 9.8F) {
    Results out;
    for (int k = 0; k < n; ++k) {
        out.push_back(z.staticIndicator(r1, r2, r3, 0.0F, 0.0F, az, 0.0F, 0.0F, 0.0F, 1,
                                        sensitivity, orientation));
    }
    return out;
}

Results zeros(int n) { return Results(static_cast<size_t>(n), 0); }

// 0.3 about axis 2 at step 0.5: gathering starts on the tenth call, the
// eleventh emits 1 (0.6 / 0.5) and the calls then alternate. Mode 0 resets
// the warm-up but keeps the gathered rate.
TEST(ZoomInOut, SlowTurnEmitsEveryOtherCall) {
    zoom_in_out_obj z;
    EXPECT_EQ(run(z, 16, 0.0F, 0.3F, 0.0F, 5, 1),
              (Results{0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 1, 0, 1, 0, 1, 0}));
    zoom_in_out_obj r;
    run(r, 10, 0.0F, 0.3F, 0.0F, 5, 1);
    EXPECT_EQ(r.staticIndicator(0.0F, 0.3F, 0.0F, 0, 0, 9.8F, 0, 0, 0, 0, 5, 1), 0);
    EXPECT_TRUE(r.sample_counter == 1 && r.gathered[0] == 0.3F);
    EXPECT_EQ(run(r, 4, 0.0F, 40.0F, 0.0F, 5, 1), zeros(4));  // five-call warm-up
    r.initial();
    EXPECT_TRUE(r.gathered[0] == 0.0F && r.sample_counter == 0);
}

// Step 0.5 at sensitivity 5: rate 2 gives 4 per call from the tenth, signed
// by the orientation; axis 1 counts in orientations 0 and 2, axis 2 in 1 and
// 3. Sensitivity 1 and a rate of 4.9 give 49; a step is at most 100.
TEST(ZoomInOut, FastTurnEmitsEveryCallWithTheOrientationSign) {
    const struct {
        int orientation, sensitivity;
        float r1, r2;
        int result;
    } cases[] = {{1, 5, 0, 2, 4}, {3, 5, 0, 2, -4}, {0, 5, 0, 2, 0},   {2, 5, 0, 2, 0},
                 {0, 5, 2, 0, 4}, {2, 5, 2, 0, -4}, {1, 5, 2, 0, 0},   {7, 5, 2, 0, 0}};
    for (const auto& c : cases) {
        zoom_in_out_obj z;
        Results want = zeros(9);
        want.resize(20, c.result);
        EXPECT_EQ(run(z, 20, c.r1, c.r2, 0.0F, c.sensitivity, c.orientation), want)
            << "orientation " << c.orientation << " r1 " << c.r1;
    }
    zoom_in_out_obj z;
    EXPECT_EQ(run(z, 20, 0.0F, 4.9F, 0.0F, 1, 1).back(), 49);
    zoom_in_out_obj n;
    EXPECT_EQ(run(n, 20, 4.9F, 0.0F, 0.0F, 1, 2, 0.0F).back(), -49);
    zoom_in_out_obj huge;
    huge.staticIndicator(0, 0, 0, 0, 0, 0, 0, 0, 0, 1, 1, 1);
    huge.sample_counter = 300;  // past the flick window
    huge.quiet_count[0] = 100;
    EXPECT_EQ(huge.staticIndicator(0.0F, 1e6F, 0.0F, 0, 0, 0, 0, 0, 0, 1, 1, 1), 100);
}

TEST(ZoomInOut, RejectedTurns) {
    zoom_in_out_obj z;  // a flick without acceleration change, early on
    EXPECT_EQ(run(z, 199, 8.0F, 0.0F, 0.0F, 5, 0), zeros(199));
    EXPECT_EQ(run(z, 20, 8.0F, 0.0F, 0.0F, 5, 0).back(), 16);  // accepted from call 201
    zoom_in_out_obj w;  // with a changing z acceleration it is not a flick
    for (int k = 0; k < 20; ++k) {
        w.staticIndicator(8.0F, 0.0F, 0.0F, 0, 0, k % 2 == 0 ? 9.8F : 5.0F, 0, 0, 0, 1, 5, 0);
    }
    EXPECT_EQ(w.result, 16);
    zoom_in_out_obj t;  // a turn about axis 3 silences both for ten calls
    ASSERT_EQ(run(t, 20, 0.0F, 2.0F, 0.0F, 5, 1).back(), 4);
    EXPECT_EQ(run(t, 1, 0.0F, 0.0F, 8.0F, 5, 1), zeros(1));
    EXPECT_EQ(run(t, 10, 0.0F, 2.0F, 0.0F, 5, 1), (Results{0, 0, 0, 0, 0, 0, 0, 0, 0, 4}));
    zoom_in_out_obj m;  // neither axis leads: nothing gathered
    EXPECT_EQ(run(m, 30, 1.0F, 1.0F, 0.0F, 5, 1), zeros(30));
    EXPECT_TRUE(m.gathered[0] == 0.0F && m.gathered[1] == 0.0F);
}

// The convenience call takes vectors; bad input gives 0 and leaves the state.
TEST(ZoomInOut, ConvenienceCallAndBadInput) {
    zoom_in_out_obj z;
    const float rates[3] = {0.0F, 2.0F, 0.0F};
    const float acc[3] = {0.0F, 0.0F, 9.8F};
    for (int k = 0; k < 9; ++k) {
        z.get_zoom_in_out(rates, acc, 1, 5, 1);
    }
    EXPECT_EQ(z.get_zoom_in_out(rates, acc, 1, 5, 1), 4);
    EXPECT_EQ(z.get_zoom_in_out(nullptr, acc, 1, 5, 1) + z.get_zoom_in_out(rates, nullptr, 1, 5, 1),
              0);
    const int counter = z.sample_counter;
    EXPECT_EQ(z.staticIndicator(NAN, 2.0F, 0, 0, 0, 9.8F, 0, 0, 0, 1, 5, 1), 0);
    EXPECT_EQ(z.staticIndicator(0, 2.0F, 0, 0, 0, INFINITY, 0, 0, 0, 1, 5, 1), 0);
    EXPECT_EQ(z.sample_counter, counter);
    EXPECT_EQ(z.get_zoom_in_out(rates, acc, 1, 5, 1), 4);
}

}  // namespace
