// The pedometer: synthetic walks through the gesture pipeline, counted as
// the step rules define it, and each rejection on a shaped acceleration.

#include "gestures/pedometer.h"

#include <gtest/gtest.h>

#include <cmath>
#include <initializer_list>
#include <ostream>
#include <set>
#include <string>
#include <vector>

#include "imu/gestures.h"
#include "support/activity_sequences.h"

namespace {

using imu::test::ActivityRecording;
using imu::test::ActivityScript;
using imu::test::Carry;
using imu::test::kActivityDtS;

struct Report {
    double at_s;
    float steps;
    float length_m;
};

struct WalkResult {
    std::vector<Report> reports;  // the calls that counted steps
    std::set<int> states;
    float total_steps = 0.0F;
    double total_length_m = 0.0;
};

WalkResult run(const ActivityRecording& frames) {
    WalkResult r;
    for (std::size_t i = 0; i < frames.size(); ++i) {
        imu::test::feed_pipeline(frames[i]);
        float out[3] = {9.0F, 9.0F, 9.0F};
        EXPECT_EQ(sfc_get_pedometer(out), 0);
        EXPECT_EQ(out[0], 0.0F);
        if (out[2] != 0.0F) {
            r.reports.push_back({static_cast<double>(i) * kActivityDtS, out[2], out[1]});
            r.total_steps += out[2];
            r.total_length_m += static_cast<double>(out[1]);
        } else {
            EXPECT_EQ(out[1], 0.0F);
        }
        r.states.insert(imu::pedometer().ped_state);
    }
    return r;
}

std::vector<float> counts(const WalkResult& r) {
    std::vector<float> c;
    for (const Report& rep : r.reports) {
        c.push_back(rep.steps);
    }
    return c;
}

// Step length for a step interval: (0.0563 / Ti + 1.5215) - 0.8711.
double length_for(double interval_s) { return 0.0563 / interval_s + 1.5215 - 0.8711; }

// Ti adds up 5 ms per call in float: a length is that close to its value.
constexpr double kLengthTol = 2e-5;

TEST(PedometerLength, HalfSecondStepIs0763) {
    EXPECT_FLOAT_EQ(imu::step_length_m(0.5F), 0.763F);
    EXPECT_NEAR(imu::step_length_m(0.7F), 0.0563 / 0.7 + 0.6504, 1e-6);
}

// ---- walks ----

class PedometerWalk : public ::testing::TestWithParam<double> {};

// GIVEN 4 s of standing with the phone in the hand, then 20 steps of
// period P (0.5 s or 0.7 s), each yielding one candidate at the same phase.
// THEN, step by step:
//   step 1: its interval since the last candidate is 4 s + > 1.5 s:
//           rejected (-8), nothing counted.
//   steps 2 to 5: accepted, interval P; the four newest step intervals
//           still hold step 2's time since start (~5 s) or the initial 5 s,
//           so they sum to 5 s or more: held back.
//   step 6: the four intervals are 4 P < 5 s: the walk is regular; the five
//           held-back steps (2 to 6) are reported at once, 5 x length(P).
//   steps 7 to 20: one step each, length(P).
// Total: 5 + 14 = 19 steps, 19 x length(P) metres; for P = 0.5 s each step
// is 0.0563 / 0.5 + 1.5215 - 0.8711 = 0.763 m, 19 x 0.763 = 14.497 m.
TEST_P(PedometerWalk, TwentyStepsAreCountedAsNineteen) {
    const double period = GetParam();
    const WalkResult r = run(imu::test::hand_walk(20, period));

    const double len = length_for(period);
    std::vector<float> expected(15, 1.0F);
    expected[0] = 5.0F;
    EXPECT_EQ(counts(r), expected);
    EXPECT_EQ(r.total_steps, 19.0F);
    EXPECT_NEAR(r.total_length_m, 19.0 * len, 19.0 * kLengthTol);
    if (period == 0.5) {
        EXPECT_NEAR(r.total_length_m, 14.497, 19.0 * kLengthTol);
    }
    ASSERT_FALSE(r.reports.empty());
    EXPECT_NEAR(r.reports[0].length_m, 5.0 * len, 5.0 * kLengthTol);
    for (std::size_t i = 1; i < r.reports.size(); ++i) {
        EXPECT_NEAR(r.reports[i].length_m, len, kLengthTol) << "report " << i;
        EXPECT_NEAR(r.reports[i].at_s - r.reports[i - 1].at_s, period, 1e-9);
    }
    // The first report comes with step 6: 4 s + 5.x periods in.
    EXPECT_NEAR(r.reports[0].at_s, 4.0 + 5.0 * period, period);
    EXPECT_EQ(r.states.count(imu::kPedBadInterval), 1U);
    EXPECT_EQ(imu::pedometer().ped_walking, 1.0F);
}

INSTANTIATE_TEST_SUITE_P(StepPeriods, PedometerWalk, ::testing::Values(0.5, 0.7));

struct Pause {
    const char* name;
    double pause_s;
    std::vector<float> counts;
};

void PrintTo(const Pause& c, std::ostream* os) { *os << c.name; }

class PedometerPause : public ::testing::TestWithParam<Pause> {};

// 8 steps, a pause of standing, 8 steps, all at 0.5 s. The first step after
// the pause is rejected for its interval (> 1.5 s); the next is accepted
// with Tk = pause + 1 s since the last accepted step. The walk ends only
// when that step comes 2 s or more after the last one AND the four newest
// intervals (Tk + 3 x 0.5 s) no longer sum below 5 s:
//   2 s: Tk = 3 s, sum 4.5 s: still walking, steps 10 to 16 count one each.
//   3 s: Tk = 4 s, sum 5.5 s: the walk ends, step 10 is dropped, steps 11
//        to 13 are held back and step 14 reports five at once again.
// Before the pause: 5 at step 6, then steps 7 and 8.
TEST_P(PedometerPause, EndsTheWalkOnlyWhenIntervalsAreIrregular) {
    const Pause& c = GetParam();
    ActivityScript s(Carry::kHand);
    s.hold(4.0).steps(8, 0.5).hold(c.pause_s).steps(8, 0.5).hold(1.0);
    const WalkResult r = run(s.frames());
    EXPECT_EQ(counts(r), c.counts) << c.name;
    EXPECT_EQ(r.total_steps, 14.0F);
}

INSTANTIATE_TEST_SUITE_P(
    Pauses, PedometerPause,
    ::testing::Values(Pause{"two_seconds", 2.0, {5, 1, 1, 1, 1, 1, 1, 1, 1, 1}},
                      Pause{"three_seconds", 3.0, {5, 1, 1, 5, 1, 1}}),
    [](const auto& info) { return std::string(info.param.name); });

// A walk from the very first call: step 1 comes 0.4 s after start, within
// the interval limits, and is accepted with that interval. Step 4 makes
// the walk regular with only four lengths stored: five steps are reported
// with the fifth length still 0.
TEST(PedometerWalkFromStart, FirstReportCountsUnfilledLengthsAsZero) {
    ActivityScript s(Carry::kHand);
    s.steps(8, 0.5).hold(1.0);
    const WalkResult r = run(s.frames());
    ASSERT_EQ(r.reports.size(), 5U);
    EXPECT_EQ(r.reports[0].steps, 5.0F);
    // Step 1's interval is the time of its candidate since start, 1.5
    // periods before the report (which comes with step 4).
    const double first_interval = r.reports[0].at_s - 1.5 + kActivityDtS;
    EXPECT_NEAR(r.reports[0].length_m, 3.0 * 0.763 + length_for(first_interval), 1e-4);
    EXPECT_EQ(r.states.count(imu::kPedBadInterval), 0U);
}

// ---- no rotation data ----

ActivityRecording without_rotation(ActivityRecording frames, std::size_t from, std::size_t count) {
    for (std::size_t i = from; i < from + count && i < frames.size(); ++i) {
        for (float& g : frames[i].imu.gyro) {
            g = 0.0F;
        }
    }
    return frames;
}

// comp_gyro at exactly 0 for four calls: the gyroscope delivers nothing,
// and the pedometer stops for good, even when rates arrive again.
TEST(PedometerNoRotation, StaysAtMinusOneForGood) {
    ActivityScript s(Carry::kHand);
    s.hold(4.0).steps(20, 0.5);
    const WalkResult r = run(without_rotation(s.frames(), 0, 4));
    EXPECT_TRUE(r.reports.empty());
    EXPECT_EQ(r.states, std::set<int>{imu::kPedNoRotation});
}

struct Silence {
    std::size_t calls;
    float steps;
};

class PedometerSilence : public ::testing::TestWithParam<Silence> {};

// Silent calls at the start of step 11 of a 20-step walk: four stop the
// count there (steps 2 to 10 were counted); three are only a glitch.
TEST_P(PedometerSilence, FourSilentCallsMidWalkStopCounting) {
    ActivityScript s(Carry::kHand);
    s.hold(4.0).steps(10, 0.5);
    const std::size_t silent_from = s.frames().size();
    s.steps(10, 0.5);
    const WalkResult r = run(without_rotation(s.frames(), silent_from, GetParam().calls));
    EXPECT_EQ(r.total_steps, GetParam().steps);
    EXPECT_EQ(imu::pedometer().ped_state == imu::kPedNoRotation, GetParam().calls >= 4);
}

INSTANTIATE_TEST_SUITE_P(Calls, PedometerSilence,
                         ::testing::Values(Silence{3, 19.0F}, Silence{4, 9.0F}));

// ---- rejections on shaped signals ----

// d (the dynamic acceleration in g) as straight segments: {seconds, end}.
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

void PrintTo(const Shape& c, std::ostream* os) { *os << c.name; }

// Feeds |acc| = (1 + d) g with a slightly varying rate (real gyroscope
// data) and global z = d.
std::set<int> feed_shape(const Shape& shape) {
    std::set<int> states;
    double d = 0.0;
    int call = 0;
    auto one = [&](double value) {
        comp_acc = static_cast<float>((1.0 + value) * 9.8066);
        comp_gyro = (call % 2 == 0) ? 0.10F : 0.12F;
        global_acc[0] = shape.global_x;
        global_acc[1] = 0.0F;
        global_acc[2] = static_cast<float>(value);
        dt_g = 0.005F;
        float out[3];
        sfc_get_pedometer(out);
        EXPECT_EQ(out[2], 0.0F) << shape.name << " counted a step";
        states.insert(imu::pedometer().ped_state);
        ++call;
    };
    for (int i = 0; i < 400; ++i) {  // 2 s of calm
        one(0.0);
    }
    for (const Segment& seg : shape.segments) {
        const auto n = static_cast<int>(std::lround(seg.seconds / kActivityDtS));
        const double start = d;
        for (int i = 1; i <= n; ++i) {
            d = start + (seg.d_end - start) * i / n;
            one(d);
        }
    }
    for (int i = 0; i < 100; ++i) {
        one(0.0);
    }
    return states;
}

class PedometerRejection : public ::testing::TestWithParam<Shape> {};

TEST_P(PedometerRejection, ShapeIsRejectedWithItsCode) {
    const Shape& c = GetParam();
    const std::set<int> states = feed_shape(c);
    EXPECT_EQ(states.count(c.rejection), 1U) << c.name;
}

INSTANTIATE_TEST_SUITE_P(
    Shapes, PedometerRejection,
    ::testing::Values(
        // A plain step after 2 s of calm: its interval is too long.
        Shape{"long_interval",
              {{0.125, 0.35}, {0.25, -0.35}, {0.125, 0.0}},
              0.0F,
              imu::kPedBadInterval},
        Shape{"too_strong", {{0.05, 3.5}, {0.05, 0.0}}, 0.0F, imu::kPedTooStrong},
        // Held at its peak for 0.4 s: the rise lasts too long.
        Shape{"rise_too_long", {{0.1, 0.3}, {0.4, 0.3}, {0.1, 0.0}}, 0.0F, imu::kPedRiseTooLong},
        // Falling for 0.8 s without turning.
        Shape{"fall_too_long",
              {{0.1, 0.4}, {0.1, -0.2}, {0.8, -0.6}, {0.1, 0.0}},
              0.0F,
              imu::kPedFallTooLong},
        // 2.0 g down to -0.9 g: more than 2.5 g from peak to trough.
        Shape{"drop_too_deep", {{0.1, 2.0}, {0.15, -0.9}, {0.1, 0.0}}, 0.0F, imu::kPedDropTooDeep},
        // The horizontal peak exceeds the vertical one by more than 1 g.
        Shape{"sideways", {{0.125, 0.35}, {0.25, -0.35}, {0.125, 0.0}}, 1.5F, imu::kPedSideways},
        // 0.55 s from peak to the turn: longer than 0.5 s (+ 0.3 x rotation).
        Shape{"swing_too_long",
              {{0.1, 0.3}, {0.1, -0.3}, {0.45, -0.35}, {0.1, 0.0}},
              0.0F,
              imu::kPedBadDuration}),
    [](const auto& info) { return std::string(info.param.name); });

// ---- slot convention and timers ----

TEST(PedometerSlot, NullIsRefusedAndZeroTimeLeavesTheSlot) {
    dt_g = 0.005F;
    EXPECT_EQ(sfc_get_pedometer(nullptr), -22);
    dt_g = 0.0F;
    float out[3] = {1.0F, 2.0F, 3.0F};
    EXPECT_EQ(sfc_get_pedometer(out), 0);
    EXPECT_EQ(out[0], 1.0F);
    EXPECT_EQ(out[2], 3.0F);
    EXPECT_EQ(imu::pedometer().ped_step_timer, 0.0F);
}

TEST(PedometerTimers, WrapAfterTwoHours) {
    auto& p = imu::pedometer();
    p.ped_stage_timer = p.ped_interval_timer = p.ped_step_timer = 7200.0F;
    comp_acc = 9.8066F;
    comp_gyro = 0.1F;
    dt_g = 0.01F;
    float out[3];
    sfc_get_pedometer(out);
    EXPECT_EQ(p.ped_stage_timer, 0.0F);
    EXPECT_EQ(p.ped_interval_timer, 0.0F);
    EXPECT_EQ(p.ped_step_timer, 0.0F);
}

}  // namespace
