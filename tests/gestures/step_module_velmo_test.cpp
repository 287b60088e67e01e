// The first step-counting module: walks, the stage machine and bad input.

#include <gtest/gtest.h>

#include <climits>
#include <cstring>

#include "step_module_feed.h"

namespace {

using namespace imu::test;

constexpr std::int32_t kGravitySq = 96236;
constexpr Velmo kZero{0, 0, 0, 0, 0, 0, 0, 0, 0, 5};

// 2 s still, then 20 steps: the first candidate (170 ms into the step,
// 2170 ms after the start) has an interval over 1500 ms and is dropped;
// every later one counts, one at a time. A 4 s pause drops the first step
// of the next walk the same way.
TEST(VelmoPedometerSam, CountsEveryStepAfterTheFirstOfAWalk) {
    EXPECT_EQ(velmo_pedometer_sam_mem_req(), 100);
    for (const double period : {0.5, 0.7}) {
        StepWalkPlan plan;
        plan.step_period_s = period;
        pedometer_sam_state s = velmo_fresh();
        std::int32_t most = 0;
        EXPECT_EQ(velmo_feed(&s, make_step_walk(plan), &most), 19) << period;
        EXPECT_EQ(most, 1) << period;
    }
    pedometer_sam_state s = velmo_fresh();
    EXPECT_EQ(velmo_feed(&s, walk_pause_walk(4.0)), 9 + 9);
}

// One update of an all-zero record from a prepared state: d is word 4
// minus the squared gravity; up = max(75% peak, 10000), down = min(75%
// trough, -8000), with a fresh peak and trough set by d itself.
TEST(VelmoPedometerSam, StageMovesAsTheSignalDemands) {
    const struct {
        std::uint8_t stage;
        std::int32_t d, previous_d, stage_ms, gyro_mean;
        std::uint8_t expected;
    } cases[] = {
        // clang-format off
        {0, 10001, 0, 0, 0, 1},        {0, 10000, 0, 0, 0, 0},        {0, 200001, 0, 0, 0, 99},
        {0, 0, 0, 0, 70001, 99},       {0, 0, 0, 0, 70000, 0},        {1, -8001, 0, 195, 0, 2},
        {1, -8000, 0, 195, 0, 1},      {1, -8001, 0, 196, 0, 0},      {1, 200001, 0, 0, 0, 99},
        {2, -9000, -9000, 100, 0, 2},  {2, -9000, -9001, 496, 0, 0},  {2, -9000, -9001, 100, 70001, 99},
        {99, 10000, 0, 0, 0, 99},      {99, 9999, 0, 0, 0, 0},        {7, 50000, 0, 0, 0, 0},
        // clang-format on
    };
    for (const auto& c : cases) {
        pedometer_sam_state s = velmo_fresh();
        s.stage = c.stage;
        s.acc_sq_mean = c.d + kGravitySq;
        s.previous_d = c.previous_d;
        s.stage_ms = c.stage_ms;
        s.interval_ms = 495;
        s.gyro_sq_mean = c.gyro_mean;
        s.step_peak = c.d;
        std::int32_t out = -1;
        velmo_pedometer_sam_update(&s, kZero.data(), &out);
        EXPECT_EQ(s.stage, c.expected) << int{c.stage} << " d=" << c.d << " g=" << c.gyro_mean;
        EXPECT_EQ(out, 0);
    }
}

// The thresholds decay by (800 - 5 dt) / 800 per update, truncated.
TEST(VelmoPedometerSam, PeakAndTroughDecayWithTime) {
    pedometer_sam_state s = velmo_fresh();
    s.peak = 80000;
    s.trough = -80000;
    s.acc_sq_mean = kGravitySq;
    std::int32_t out = 0;
    velmo_pedometer_sam_update(&s, kZero.data(), &out);
    EXPECT_EQ(s.peak, 77500);
    EXPECT_EQ(s.trough, -77500);
}

// A time step of 0 or less, or a null argument, changes nothing.
TEST(VelmoPedometerSam, BadInputChangesNothing) {
    StepWalkPlan plan;
    plan.steps = 3;
    const auto walk = make_step_walk(plan);
    pedometer_sam_state s = velmo_fresh();
    velmo_feed(&s, walk);
    const pedometer_sam_state before = s;
    Velmo strike = velmo_record(walk[410]);
    std::int32_t out = -12345;
    velmo_pedometer_sam_update(nullptr, strike.data(), &out);
    velmo_pedometer_sam_update(&s, nullptr, &out);
    velmo_pedometer_sam_update(&s, strike.data(), nullptr);
    for (const std::int32_t dt : {0, -1, INT_MIN}) {
        strike[9] = dt;
        velmo_pedometer_sam_update(&s, strike.data(), &out);
    }
    EXPECT_EQ(out, -12345);
    EXPECT_EQ(std::memcmp(&s, &before, sizeof s), 0);
    EXPECT_EQ(velmo_pedometer_sam_state_reset(nullptr, nullptr), nullptr);
}

}  // namespace
