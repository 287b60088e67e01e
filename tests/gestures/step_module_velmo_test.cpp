// The first step-counting module: walks, the stage machine, the judging
// limits and the host's memory.

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <climits>
#include <cstring>
#include <vector>

#include "imu/step_modules.h"
#include "support/step_module_walk.h"

namespace {

using imu::test::make_step_walk;
using imu::test::StepWalkPlan;
using imu::test::StepWalkSample;
using imu::test::velmo_record;

constexpr std::int32_t kGravitySq = 96236;
constexpr std::int32_t kUntouched = -12345;

pedometer_sam_state fresh() {
    pedometer_sam_state s;
    std::memset(&s, 0x5A, sizeof s);
    velmo_pedometer_sam_state_reset(nullptr, &s);
    return s;
}

// Feeds the walk and returns the last count; `most` receives the largest
// rise of the count in one update.
std::int32_t feed(void* state, const std::vector<StepWalkSample>& walk, int* most = nullptr) {
    std::int32_t out = 0;
    std::int32_t before = 0;
    for (const StepWalkSample& sample : walk) {
        const auto record = velmo_record(sample);
        velmo_pedometer_sam_update(state, record.data(), &out);
        if (most != nullptr) {
            *most = std::max(*most, out - before);
        }
        before = out;
    }
    return out;
}

std::vector<StepWalkSample> walk_pause_walk(double pause_s) {
    StepWalkPlan first;
    first.steps = 10;
    first.tail_s = pause_s;
    StepWalkPlan second;
    second.steps = 10;
    second.lead_in_s = 0.0;
    std::vector<StepWalkSample> walk = make_step_walk(first);
    const std::vector<StepWalkSample> more = make_step_walk(second);
    walk.insert(walk.end(), more.begin(), more.end());
    return walk;
}

TEST(VelmoPedometerSam, AsksForItsRecordAndResetsItToZero) {
    EXPECT_EQ(velmo_pedometer_sam_mem_req(), 100);
    std::array<unsigned char, 100> memory;
    memory.fill(0xA5);
    EXPECT_EQ(velmo_pedometer_sam_state_reset(nullptr, memory.data()), memory.data());
    for (unsigned char byte : memory) {
        ASSERT_EQ(byte, 0);
    }
    EXPECT_EQ(velmo_pedometer_sam_state_reset(memory.data(), nullptr), nullptr);
}

// GIVEN 2 s of standing still, then 20 steps at the period.
// The first candidate turns 170 ms into the step, 2170 ms after the start:
// its interval is over 1500 ms, so it is judged and dropped. Every later step comes one
// period after the previous candidate and counts: 19 steps, one at a time.
class VelmoWalk : public testing::TestWithParam<double> {};

TEST_P(VelmoWalk, CountsEveryStepAfterTheFirst) {
    StepWalkPlan plan;
    plan.step_period_s = GetParam();
    pedometer_sam_state s = fresh();
    int most = 0;
    EXPECT_EQ(feed(&s, make_step_walk(plan), &most), 19);
    EXPECT_EQ(most, 1);
    EXPECT_EQ(s.count, 19);
}

INSTANTIATE_TEST_SUITE_P(Periods, VelmoWalk, testing::Values(0.5, 0.7));

// Ten steps, a pause, ten steps: the first step after the pause has an
// interval beyond 1500 ms and is dropped, as is the first of the walk.
TEST(VelmoPedometerSam, DropsTheFirstStepAfterAPause) {
    pedometer_sam_state s = fresh();
    EXPECT_EQ(feed(&s, walk_pause_walk(4.0)), 9 + 9);
}

TEST(VelmoPedometerSam, ZeroOrNegativeTimeStepLeavesEverythingUntouched) {
    StepWalkPlan plan;
    plan.steps = 3;
    pedometer_sam_state s = fresh();
    feed(&s, make_step_walk(plan));
    const StepWalkSample strike = make_step_walk(plan)[400 + 10];
    for (const std::int32_t dt : {0, -1, -5, INT_MIN}) {
        const pedometer_sam_state before = s;
        const auto record = velmo_record(strike, dt);
        std::int32_t out = kUntouched;
        velmo_pedometer_sam_update(&s, record.data(), &out);
        EXPECT_EQ(out, kUntouched) << "dt=" << dt;
        EXPECT_EQ(std::memcmp(&s, &before, sizeof s), 0) << "dt=" << dt;
    }
}

TEST(VelmoPedometerSam, NullArgumentsDoNothing) {
    pedometer_sam_state s = fresh();
    const pedometer_sam_state before = s;
    const std::array<std::int32_t, 10> record{9810, 0, 0, 0, 0, 0, 0, 0, 0, 5};
    std::int32_t out = kUntouched;
    velmo_pedometer_sam_update(nullptr, record.data(), &out);
    velmo_pedometer_sam_update(&s, nullptr, &out);
    velmo_pedometer_sam_update(&s, record.data(), nullptr);
    EXPECT_EQ(out, kUntouched);
    EXPECT_EQ(std::memcmp(&s, &before, sizeof s), 0);
}

// One update of 5 ms with an all-zero record from a prepared state: the
// acceleration history is zero, so d is word 4 minus the squared gravity.
struct Prepared {
    std::uint8_t stage;
    std::int32_t d;
    std::int32_t previous_d = 0;
    std::int32_t stage_ms_before = 0;
    std::int32_t gyro_mean = 0;
};

pedometer_sam_state run_prepared(const Prepared& p, std::int32_t* out) {
    pedometer_sam_state s = fresh();
    s.stage = p.stage;
    s.acc_sq_mean = p.d + kGravitySq;
    s.previous_d = p.previous_d;
    s.stage_ms = p.stage_ms_before;
    s.interval_ms = 495;
    s.gyro_sq_mean = p.gyro_mean;
    s.step_peak = p.d;
    const std::array<std::int32_t, 10> record{0, 0, 0, 0, 0, 0, 0, 0, 0, 5};
    velmo_pedometer_sam_update(&s, record.data(), out);
    return s;
}

struct TransitionCase {
    const char* name;
    Prepared prepared;
    std::uint8_t expected;
};

class VelmoStage : public testing::TestWithParam<TransitionCase> {};

TEST_P(VelmoStage, MovesAsTheSignalDemands) {
    const TransitionCase& c = GetParam();
    std::int32_t out = kUntouched;
    const pedometer_sam_state s = run_prepared(c.prepared, &out);
    EXPECT_EQ(s.stage, c.expected);
    EXPECT_EQ(s.previous_d, c.prepared.d);
    EXPECT_EQ(out, 0);
}

// up is max(75% of the peak, 10000) and down min(75% of the trough, -8000);
// with a fresh peak and trough, d itself sets them.
INSTANTIATE_TEST_SUITE_P(
    Transitions, VelmoStage,
    testing::Values(TransitionCase{"IdleRisesAboveUp", {0, 10001}, 1},
                    TransitionCase{"IdleStaysAtUp", {0, 10000}, 0},
                    TransitionCase{"IdleTooStrong", {0, 200001}, 99},
                    TransitionCase{"IdleStrongRotation", {0, 0, 0, 0, 70001}, 99},
                    TransitionCase{"IdleAtTheLimits", {0, 0, 0, 0, 70000}, 0},
                    TransitionCase{"RisingFallsBelowDown", {1, -8001, 0, 195}, 2},
                    TransitionCase{"RisingAtDown", {1, -8000, 0, 195}, 1},
                    TransitionCase{"RisingTooLong", {1, -8001, 0, 196}, 0},
                    TransitionCase{"RisingTooStrong", {1, 200001}, 99},
                    TransitionCase{"FallingWaitsForTheTurn", {2, -9000, -9000, 100}, 2},
                    TransitionCase{"FallingTooLong", {2, -9000, -9001, 496}, 0},
                    TransitionCase{"FallingStrongRotation", {2, -9000, -9001, 100, 70001}, 99},
                    TransitionCase{"RejectedStaysAtUp", {99, 10000}, 99},
                    TransitionCase{"RejectedCalms", {99, 9999}, 0},
                    TransitionCase{"UnknownStage", {7, 50000}, 0}),
    [](const testing::TestParamInfo<TransitionCase>& info) { return info.param.name; });

// The turn of a falling stage judges the step: 30 <= stage <= 150 ms,
// 150 <= interval <= 1500 ms, peak - d <= 150000. A dropped step resets only
// the interval timer; a counted one also the stage timer.
struct JudgeCase {
    const char* name;
    std::int32_t stage_ms;
    std::int32_t interval_ms;
    std::int32_t drop;
    bool counts;
};

class VelmoJudge : public testing::TestWithParam<JudgeCase> {};

TEST_P(VelmoJudge, CountsOnlyPlausibleSteps) {
    const JudgeCase& c = GetParam();
    pedometer_sam_state s = fresh();
    const std::int32_t d = -20000;
    s.stage = 2;
    s.count = 7;
    s.acc_sq_mean = d + kGravitySq;
    s.previous_d = d - 1;
    s.step_peak = d + c.drop;
    s.stage_ms = c.stage_ms - 5;
    s.interval_ms = c.interval_ms - 5;
    const std::array<std::int32_t, 10> record{0, 0, 0, 0, 0, 0, 0, 0, 0, 5};
    std::int32_t out = kUntouched;
    velmo_pedometer_sam_update(&s, record.data(), &out);
    EXPECT_EQ(out, c.counts ? 8 : 7);
    EXPECT_EQ(s.judged_stage_ms, c.stage_ms);
    EXPECT_EQ(s.stage, 0);
    EXPECT_EQ(s.interval_ms, 0);
    EXPECT_EQ(s.stage_ms, c.counts ? 0 : c.stage_ms);
}

INSTANTIATE_TEST_SUITE_P(Limits, VelmoJudge,
                         testing::Values(JudgeCase{"Stage20", 20, 500, 10000, false},
                                         JudgeCase{"Stage29", 29, 500, 10000, false},
                                         JudgeCase{"Stage30", 30, 500, 10000, true},
                                         JudgeCase{"Stage150", 150, 500, 10000, true},
                                         JudgeCase{"Stage151", 151, 500, 10000, false},
                                         JudgeCase{"Interval149", 100, 149, 10000, false},
                                         JudgeCase{"Interval150", 100, 150, 10000, true},
                                         JudgeCase{"Interval1500", 100, 1500, 10000, true},
                                         JudgeCase{"Interval1501", 100, 1501, 10000, false},
                                         JudgeCase{"Drop150000", 100, 500, 150000, true},
                                         JudgeCase{"Drop150001", 100, 500, 150001, false}),
                         [](const testing::TestParamInfo<JudgeCase>& info) {
                             return info.param.name;
                         });

// The thresholds decay by (800 - 5 dt) / 800 per update, truncated: from
// 80000 with dt 5 to 77500, and up follows as 75% of it.
TEST(VelmoPedometerSam, PeakAndTroughDecayWithTime) {
    pedometer_sam_state s = fresh();
    s.peak = 80000;
    s.trough = -80000;
    s.acc_sq_mean = kGravitySq;  // d = 0
    const std::array<std::int32_t, 10> record{0, 0, 0, 0, 0, 0, 0, 0, 0, 5};
    std::int32_t out = 0;
    velmo_pedometer_sam_update(&s, record.data(), &out);
    EXPECT_EQ(s.peak, 77500);
    EXPECT_EQ(s.trough, -77500);
}

// Two instances, each fed its own walk sample by sample in turn, one of
// them at an odd address: each counts what it counts alone.
TEST(VelmoPedometerSam, InstancesCountIndependentlyAtAnyAddress) {
    StepWalkPlan brisk;
    StepWalkPlan slow;
    slow.step_period_s = 0.7;
    slow.steps = 11;
    const auto walk_a = make_step_walk(brisk);
    const auto walk_b = make_step_walk(slow);
    pedometer_sam_state a = fresh();
    std::array<unsigned char, 101> memory{};
    void* b = memory.data() + 1;
    ASSERT_EQ(velmo_pedometer_sam_state_reset(nullptr, b), b);
    std::int32_t out_a = 0;
    std::int32_t out_b = 0;
    for (std::size_t k = 0; k < std::max(walk_a.size(), walk_b.size()); ++k) {
        if (k < walk_a.size()) {
            velmo_pedometer_sam_update(&a, velmo_record(walk_a[k]).data(), &out_a);
        }
        if (k < walk_b.size()) {
            velmo_pedometer_sam_update(b, velmo_record(walk_b[k]).data(), &out_b);
        }
    }
    EXPECT_EQ(out_a, 19);
    EXPECT_EQ(out_b, 10);
}

}  // namespace
