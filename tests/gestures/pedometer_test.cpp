// The pedometer on synthetic walks through the gesture pipeline, and each
// rejection code on a shaped acceleration.

#include "gestures/pedometer.h"

#include <gtest/gtest.h>

#include <cmath>
#include <numeric>
#include <set>
#include <string>
#include <vector>

#include "imu/gestures.h"
#include "sim/activity_sequences.h"

namespace {

using imu::test::ActivityRecording;
using imu::test::ActivityScript;
using imu::test::Carry;
using imu::test::kActivityDtS;

struct WalkResult {
    std::vector<float> counts;    // out[2] of the calls that counted steps
    std::vector<double> lengths;  // out[1] of those calls
    std::vector<double> at_s;     // their times
    std::set<int> states;
};

WalkResult run(const ActivityRecording& frames) {
    WalkResult r;
    for (std::size_t i = 0; i < frames.size(); ++i) {
        imu::test::feed_pipeline(frames[i]);
        float out[3] = {9.0F, 9.0F, 9.0F};
        EXPECT_TRUE(sfc_get_pedometer(out) == 0 && out[0] == 0.0F);
        if (out[2] != 0.0F) {
            r.counts.push_back(out[2]);
            r.lengths.push_back(static_cast<double>(out[1]));
            r.at_s.push_back(static_cast<double>(i) * kActivityDtS);
        }
        r.states.insert(imu::pedometer().ped_state);
    }
    return r;
}

// Step length (0.0563 / Ti + 1.5215) - 0.8711; Ti adds up 5 ms per call in
// float, so a length is within 2e-5 m of its value.
double length_for(double interval_s) { return 0.0563 / interval_s + 1.5215 - 0.8711; }
constexpr double kLengthTol = 2e-5;

class PedometerWalk : public ::testing::TestWithParam<double> {};

// 4 s of standing, then 20 steps of period P, one candidate each:
//   step 1: interval 4 s + (> 1.5 s): rejected (-8), nothing counted.
//   steps 2 to 5: accepted, but the four newest intervals still hold the
//           5 s start value or step 2's ~5 s: they sum to 5 s or more.
//   step 6: the four intervals are 4 P < 5 s: the walk is regular and the
//           held-back steps 2 to 6 are reported at once, 5 x length(P).
//   steps 7 to 20: one each. Total 5 + 14 = 19 steps; for P = 0.5 s each
//           is 0.0563 / 0.5 + 1.5215 - 0.8711 = 0.763 m, 19 x 0.763 = 14.497 m.
TEST_P(PedometerWalk, TwentyStepsAreCountedAsNineteen) {
    const double period = GetParam();
    const WalkResult r = run(imu::test::hand_walk(20, period));
    std::vector<float> expected(15, 1.0F);
    expected[0] = 5.0F;
    ASSERT_EQ(r.counts, expected);
    const double len = length_for(period);
    EXPECT_NEAR(r.lengths[0], 5.0 * len, 5.0 * kLengthTol);
    double metres = r.lengths[0];
    for (std::size_t i = 1; i < r.counts.size(); ++i) {
        EXPECT_NEAR(r.lengths[i], len, kLengthTol) << "report " << i;
        EXPECT_NEAR(r.at_s[i] - r.at_s[i - 1], period, 1e-9);
        metres += r.lengths[i];
    }
    EXPECT_NEAR(metres, period == 0.5 ? 14.497 : 19.0 * len, 19.0 * kLengthTol);
    EXPECT_NEAR(r.at_s[0], 4.0 + 5.0 * period, period);
    EXPECT_EQ(r.states.count(imu::kPedBadInterval), 1U);
    EXPECT_FLOAT_EQ(imu::step_length_m(0.5F), 0.763F);
}

INSTANTIATE_TEST_SUITE_P(StepPeriods, PedometerWalk, ::testing::Values(0.5, 0.7));

// 8 steps, a pause, 8 steps at 0.5 s. The first step after the pause is
// rejected (> 1.5 s); the next has Tk = pause + 1 s. The walk ends only when
// that step comes 2 s or more after the last one AND the four newest
// intervals (Tk + 3 x 0.5 s) no longer sum below 5 s:
//   2 s pause: sum 4.5 s, still walking: steps 10 to 16 count one each.
//   3 s pause: sum 5.5 s, the walk ends: steps 11 to 14 report five again.
class PedometerPause : public ::testing::TestWithParam<double> {};

TEST_P(PedometerPause, EndsTheWalkOnlyWhenIntervalsAreIrregular) {
    const double pause_s = GetParam();
    ActivityScript s(Carry::kHand);
    s.hold(4.0).steps(8, 0.5).hold(pause_s).steps(8, 0.5).hold(1.0);
    const std::vector<float> two_s{5, 1, 1, 1, 1, 1, 1, 1, 1, 1};
    const std::vector<float> three_s{5, 1, 1, 5, 1, 1};
    EXPECT_EQ(run(s.frames()).counts, pause_s < 2.5 ? two_s : three_s);
}

INSTANTIATE_TEST_SUITE_P(Pauses, PedometerPause, ::testing::Values(2.0, 3.0));

// A walk from the very first call: step 1 (0.4 s in) is accepted with that
// interval, and step 4 makes the walk regular with four lengths stored: the
// five steps reported carry the unfilled fifth length as 0.
TEST(PedometerWalkFromStart, FirstReportCountsUnfilledLengthsAsZero) {
    ActivityScript s(Carry::kHand);
    const WalkResult r = run(s.steps(8, 0.5).hold(1.0).frames());
    ASSERT_EQ(r.counts, (std::vector<float>{5, 1, 1, 1, 1}));
    const double first_interval = r.at_s[0] - 1.5 + kActivityDtS;
    EXPECT_NEAR(r.lengths[0], 3.0 * 0.763 + length_for(first_interval), 1e-4);
}

// comp_gyro at exactly 0 for four calls stops the pedometer at -1 for good,
// from the first call or at step 11 of a walk; three silent calls are a glitch.
struct Silence {
    int steps_before;
    std::size_t calls;
    float steps;
};

class PedometerNoRotation : public ::testing::TestWithParam<Silence> {};

TEST_P(PedometerNoRotation, FourSilentCallsStopItForGood) {
    const Silence& c = GetParam();
    ActivityScript s(Carry::kHand);
    s.hold(4.0).steps(c.steps_before, 0.5);
    const std::size_t from = c.steps_before == 0 ? 0 : s.frames().size();
    ActivityRecording frames = s.steps(20 - c.steps_before, 0.5).frames();
    for (std::size_t i = from; i < from + c.calls; ++i) {
        std::fill(std::begin(frames[i].imu.gyro), std::end(frames[i].imu.gyro), 0.0F);
    }
    const WalkResult r = run(frames);
    EXPECT_EQ(std::accumulate(r.counts.begin(), r.counts.end(), 0.0F), c.steps);
    EXPECT_EQ(imu::pedometer().ped_state == imu::kPedNoRotation, c.calls >= 4);
    if (c.steps_before == 0) {
        EXPECT_EQ(r.states, std::set<int>{imu::kPedNoRotation});
    }
}

INSTANTIATE_TEST_SUITE_P(Calls, PedometerNoRotation,
                         ::testing::Values(Silence{0, 4, 0.0F}, Silence{10, 3, 19.0F},
                                           Silence{10, 4, 9.0F}));

// The dynamic acceleration d (g) as straight segments {seconds, d at end}.
struct Segment {
    double seconds;
    double d_end;
};

struct Shape {
    const char* name;
    std::vector<Segment> segments;
    float global_x;  // |global_acc x| during the shape, g
    int rejection;
};

class PedometerRejection : public ::testing::TestWithParam<Shape> {};

// 2 s of calm, the shape as |acc| = (1 + d) g and global z = d with a
// slightly varying rate, then 0.5 s of calm: no step, the rejection seen.
TEST_P(PedometerRejection, ShapeIsRejectedWithItsCode) {
    const Shape& c = GetParam();
    std::vector<double> ds(400, 0.0);
    for (const Segment& seg : c.segments) {
        const auto n = static_cast<int>(std::lround(seg.seconds / kActivityDtS));
        const double start = ds.back();
        for (int i = 1; i <= n; ++i) {
            ds.push_back(start + (seg.d_end - start) * i / n);
        }
    }
    ds.resize(ds.size() + 100, 0.0);
    std::set<int> states;
    for (std::size_t i = 0; i < ds.size(); ++i) {
        comp_acc = static_cast<float>((1.0 + ds[i]) * 9.8066);
        comp_gyro = (i % 2 == 0) ? 0.10F : 0.12F;
        global_acc[0] = c.global_x;
        global_acc[2] = static_cast<float>(ds[i]);
        dt_g = 0.005F;
        float out[3];
        ASSERT_TRUE(sfc_get_pedometer(out) == 0 && out[2] == 0.0F);
        states.insert(imu::pedometer().ped_state);
    }
    EXPECT_EQ(states.count(c.rejection), 1U);
}

// clang-format off
INSTANTIATE_TEST_SUITE_P(Shapes, PedometerRejection, ::testing::Values(
    // (A step after a long calm, rejected for its interval: the walks above.)
    Shape{"too_strong", {{0.05, 3.5}, {0.05, 0.0}}, 0.0F, imu::kPedTooStrong},
    Shape{"rise_too_long", {{0.1, 0.3}, {0.4, 0.3}, {0.1, 0.0}}, 0.0F, imu::kPedRiseTooLong},
    Shape{"fall_too_long", {{0.1, 0.4}, {0.1, -0.2}, {0.8, -0.6}, {0.1, 0.0}}, 0.0F,
          imu::kPedFallTooLong},
    // 2.0 g down to -0.9 g: more than 2.5 g from peak to trough.
    Shape{"drop_too_deep", {{0.1, 2.0}, {0.15, -0.9}, {0.1, 0.0}}, 0.0F, imu::kPedDropTooDeep},
    // The horizontal peak exceeds the vertical one by more than 1 g.
    Shape{"sideways", {{0.125, 0.35}, {0.25, -0.35}, {0.125, 0.0}}, 1.5F, imu::kPedSideways},
    // 0.55 s from peak to the turn: longer than 0.5 s (+ 0.3 x rotation).
    Shape{"swing_too_long", {{0.1, 0.3}, {0.1, -0.3}, {0.45, -0.35}, {0.1, 0.0}}, 0.0F,
          imu::kPedBadDuration}),
    [](const auto& info) { return std::string(info.param.name); });
// clang-format on

}  // namespace
