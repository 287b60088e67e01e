// The second step-counting module: reset, warm-up, input scale, walks with
// their held-back start and step lengths, the judging limits and the
// host's memory.

#include "gestures/step_module_oem.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <climits>
#include <cstring>
#include <set>
#include <thread>
#include <vector>

#include "imu/step_modules.h"
#include "support/step_module_walk.h"

namespace {

using imu::test::make_step_walk;
using imu::test::oem_record;
using imu::test::StepWalkPlan;
using imu::test::StepWalkSample;

using Out = std::array<std::int32_t, 3>;
using Record = std::array<std::int32_t, 6>;

constexpr std::int32_t kGravitySq = 96236;
constexpr Record kZeroRecord{};

oem_1_sam_state fresh() {
    oem_1_sam_state s;
    std::memset(&s, 0x5A, sizeof s);
    oem_1_sam_state_reset(nullptr, &s);
    return s;
}

// A reset state past its warm-up.
oem_1_sam_state warm() {
    oem_1_sam_state s = fresh();
    s.warm_up = 100;
    return s;
}

// Feeds the walk; `counts` receives every count the module reported.
Out feed(void* state, const std::vector<StepWalkSample>& walk,
         std::set<std::int32_t>* counts = nullptr) {
    Out out{};
    for (const StepWalkSample& sample : walk) {
        oem_1_sam_update(state, oem_record(sample).data(), out.data());
        if (counts != nullptr) {
            counts->insert(out[0]);
        }
    }
    return out;
}

Out update(oem_1_sam_state& s, const Record& record = kZeroRecord) {
    Out out{-1, -1, -1};
    oem_1_sam_update(&s, record.data(), out.data());
    return out;
}

TEST(Oem1Sam, AsksForTheWholeRecord) {
    EXPECT_EQ(oem_1_sam_mem_req(), 272);
    EXPECT_EQ(oem_1_sam_mem_req(), static_cast<std::int32_t>(sizeof(oem_1_sam_state)));
}

TEST(Oem1Sam, ResetSetsCountersParametersAndKeepsTheConfiguration) {
    std::array<std::int32_t, 35> config;
    for (std::size_t i = 0; i < config.size(); ++i) {
        config[i] = 1000 + static_cast<std::int32_t>(i);
    }
    std::array<std::int32_t, 68> words;
    words.fill(-7);
    ASSERT_EQ(oem_1_sam_state_reset(config.data(), words.data()), words.data());

    for (int w = 0; w < 31; ++w) {
        EXPECT_EQ(words[w], w >= 24 && w <= 27 ? 5000 : 0) << "word " << w;
    }
    EXPECT_EQ(words[31], 0);  // state and walking bytes
    EXPECT_EQ(words[32], 100);
    EXPECT_EQ(words[33], 1000);
    EXPECT_EQ(words[34], 1001);
    const std::array<std::int32_t, 26> params{
        200000, 70000, 10000, 5,    70, -8000, 5,    70,    150000, 0,      3,   200, 500,
        30,     150,   150,   1500, 0,  5000,  3000, 96236, 45040,  -87110, 415, 413, 5};
    for (std::size_t p = 0; p < params.size(); ++p) {
        EXPECT_EQ(words[35 + p], params[p]) << "P" << p;
    }
    EXPECT_EQ(words[61], 1028);  // P26: configuration word 28
    for (int w = 62; w < 68; ++w) {
        EXPECT_EQ(words[w], 0) << "word " << w;
    }
}

TEST(Oem1Sam, ResetWithoutConfigurationReadsZeros) {
    const oem_1_sam_state s = fresh();
    EXPECT_EQ(s.config_head[0], 0);
    EXPECT_EQ(s.config_head[1], 0);
    EXPECT_EQ(s.param[OEM_1_SAM_P_CONFIG], 0);
    EXPECT_EQ(s.param[OEM_1_SAM_P_STEP_MS], 5);
    EXPECT_EQ(oem_1_sam_state_reset(nullptr, nullptr), nullptr);
}

// The first 100 updates report (0, 0, 100), clear the count and touch
// nothing but the warm-up counter, whatever the input.
TEST(Oem1Sam, WarmsUpForAHundredUpdates) {
    oem_1_sam_state s = fresh();
    s.count = 42;
    StepWalkPlan plan;
    plan.lead_in_s = 0.0;
    const std::vector<StepWalkSample> walk = make_step_walk(plan);
    for (int i = 0; i < 100; ++i) {
        EXPECT_EQ(update(s, oem_record(walk[static_cast<std::size_t>(i)])), (Out{0, 0, 100}));
    }
    oem_1_sam_state expected = fresh();
    expected.warm_up = 100;
    EXPECT_EQ(std::memcmp(&s, &expected, sizeof s), 0);

    update(s, oem_record(walk[100]));
    EXPECT_NE(s.acc_sq[3], 0);
    EXPECT_EQ(s.stage_ms, 5);
}

// v * 1000 / 65536 truncated toward zero, and 15 beyond +-999999.
struct ScaleCase {
    std::int32_t fixed;
    std::int32_t thousandths;
};

class Oem1SamScale : public testing::TestWithParam<ScaleCase> {};

TEST_P(Oem1SamScale, ReadsSixteenSixteenAsThousandths) {
    EXPECT_EQ(imu::sam::oem_thousandths(GetParam().fixed), GetParam().thousandths);
}

INSTANTIATE_TEST_SUITE_P(Inputs, Oem1SamScale,
                         testing::Values(ScaleCase{0, 0}, ScaleCase{65536, 1000},
                                         ScaleCase{-65536, -1000}, ScaleCase{642908, 9809},
                                         ScaleCase{642909, 9810}, ScaleCase{1, 0}, ScaleCase{-1, 0},
                                         ScaleCase{-66, -1}, ScaleCase{999999, 15258},
                                         ScaleCase{-999999, -15258}, ScaleCase{1000000, 15},
                                         ScaleCase{-1000000, 15}, ScaleCase{INT_MAX, 15},
                                         ScaleCase{INT_MIN, 15}));

// The clamp seen in the record: three axes at the edge of the range give
// 3 * 15258^2 / 1000; beyond it each reads 15 and 3 * 225 / 1000 is 0.
TEST(Oem1Sam, InputsBeyondTheRangeReadAsFifteenThousandths) {
    oem_1_sam_state s = warm();
    update(s, Record{999999, -999999, 999999, -999999, 999999, -999999});
    EXPECT_EQ(s.acc_sq[3], 698419);
    EXPECT_EQ(s.gyro_sq[3], 698419);
    update(s, Record{1000000, -1000000, INT_MAX, INT_MIN, 1000000, -1000000});
    EXPECT_EQ(s.acc_sq[3], 0);
    EXPECT_EQ(s.gyro_sq[3], 0);
}

// GIVEN 2 s still, then 20 steps at the period T, h = 0.
// The warm-up takes the first 100 updates (0.5 s). Step 1 turns 170 ms into
// the step, at 2170 ms, 1675 ms after the warm-up: its interval is over
// 1500 ms, so it is dropped. Step 2 passes with an interval of T and stores
// 1675 + T as the time since the last passing step: intervals (1675 + T,
// 5000, 5000, 5000), not walking. Steps 3 and 4 still sum over 5000 ms.
// Step 5 makes (T, T, T, 1675 + T), 4T + 1675 < 5000: the count jumps to 5
// and the total gains the four stored lengths plus the empty fifth. Steps 6
// to 20 add one each: 5 + 15 = 20 steps, 19 lengths.
// Length at T = 500 ms: (-87110 + 45040000 / 500) / 100 = 29 -> 19 * 29 = 551.
// At 700 ms: (-87110 + 64342) / 100 = -227 -> 19 * -227 = -4313.
// With h = 170 and selector 0 (k = 413): (-87110 + 70210 + 90080) / 100 = 731
// -> 13889, and (-87110 + 70210 + 64342) / 100 = 474 -> 9006.
struct WalkCase {
    double period_s;
    std::int32_t h;
    std::int32_t total;
};

class Oem1SamWalk : public testing::TestWithParam<WalkCase> {};

TEST_P(Oem1SamWalk, HoldsBackFiveStepsThenCountsEachOne) {
    const WalkCase& c = GetParam();
    StepWalkPlan plan;
    plan.step_period_s = c.period_s;
    oem_1_sam_state s = fresh();
    s.user_height = c.h;
    std::set<std::int32_t> counts;
    EXPECT_EQ(feed(&s, make_step_walk(plan), &counts), (Out{20, c.total, 100}));
    const std::set<std::int32_t> expected{0,  5,  6,  7,  8,  9,  10, 11, 12,
                                          13, 14, 15, 16, 17, 18, 19, 20};
    EXPECT_EQ(counts, expected);
    const std::int32_t period_ms = static_cast<std::int32_t>(c.period_s * 1000.0 + 0.5);
    EXPECT_EQ(s.intervals_ms[3], period_ms);
}

INSTANTIATE_TEST_SUITE_P(Walks, Oem1SamWalk,
                         testing::Values(WalkCase{0.5, 0, 551}, WalkCase{0.7, 0, -4313},
                                         WalkCase{0.5, 170, 13889}, WalkCase{0.7, 170, 9006}));

// Ten steps, 4 s still, ten steps. The first walk counts 10 as above with
// lengths of 29: 261. After the pause the first step's interval (4500 ms)
// drops it; the second passes 5000 ms after the last passing step, the
// intervals sum to 6500 ms and the walk ends, counting nothing. Steps 3 to
// 5 of the new walk still sum over 5000 ms; step 6 reports five steps with
// five lengths of 29 (145), steps 7 to 10 four more (116).
TEST(Oem1Sam, APauseEndsTheWalk) {
    StepWalkPlan first;
    first.steps = 10;
    first.tail_s = 4.0;
    StepWalkPlan second;
    second.steps = 10;
    second.lead_in_s = 0.0;
    oem_1_sam_state s = fresh();
    EXPECT_EQ(feed(&s, make_step_walk(first)), (Out{10, 261, 100}));
    EXPECT_EQ(s.walking, 1);
    EXPECT_EQ(feed(&s, make_step_walk(second)), (Out{19, 261 + 145 + 116, 100}));
}

// Without rotation data every g2 is 0: a repeated value at or below P10, so
// no step ever counts, though each one still records its interval.
TEST(Oem1Sam, NeverCountsWithoutRotationData) {
    StepWalkPlan plan;
    std::vector<StepWalkSample> walk = make_step_walk(plan);
    for (StepWalkSample& sample : walk) {
        std::fill(std::begin(sample.gyro_rps), std::end(sample.gyro_rps), 0.0);
    }
    oem_1_sam_state s = fresh();
    EXPECT_EQ(feed(&s, walk), (Out{0, 0, 100}));
    EXPECT_EQ(s.intervals_ms[0], 500);
    EXPECT_EQ(s.lengths[0], 0);
}

// One update from a state prepared for the turn of a falling stage: the
// acceleration history is zero, so d is word 4 minus the squared gravity.
struct Turn {
    std::int32_t stage_ms = 100;
    std::int32_t interval_ms = 500;
    std::int32_t drop = 10000;
};

oem_1_sam_state at_turn(const Turn& t) {
    oem_1_sam_state s = warm();
    const std::int32_t d = -20000;
    s.stage = 2;
    s.acc_sq_mean = d + kGravitySq;
    s.previous_d = d - 1;
    s.step_peak = d + t.drop;
    s.stage_ms = t.stage_ms - 5;
    s.interval_ms = t.interval_ms - 5;
    s.since_step_ms = t.interval_ms - 5;
    const std::int32_t distinct[4] = {100, 200, 300, 400};
    std::memcpy(s.gyro_sq, distinct, sizeof distinct);
    return s;
}

struct JudgeCase {
    const char* name;
    Turn turn;
    bool passes;
};

class Oem1SamJudge : public testing::TestWithParam<JudgeCase> {};

TEST_P(Oem1SamJudge, PassesOnlyPlausibleSteps) {
    const JudgeCase& c = GetParam();
    oem_1_sam_state s = at_turn(c.turn);
    update(s);
    EXPECT_EQ(s.judged_stage_ms, c.turn.stage_ms);
    EXPECT_EQ(s.stage, 0);
    EXPECT_EQ(s.interval_ms, 0);
    EXPECT_EQ(s.intervals_ms[0], c.passes ? c.turn.interval_ms : 5000);
    EXPECT_EQ(s.stage_ms, c.passes ? 0 : c.turn.stage_ms);
    EXPECT_EQ(s.since_step_ms, c.passes ? 0 : c.turn.interval_ms);
}

INSTANTIATE_TEST_SUITE_P(
    Limits, Oem1SamJudge,
    testing::Values(JudgeCase{"Stage29", {29}, false}, JudgeCase{"Stage30", {30}, true},
                    JudgeCase{"Stage150", {150}, true}, JudgeCase{"Stage151", {151}, false},
                    JudgeCase{"Interval149", {100, 149}, false},
                    JudgeCase{"Interval150", {100, 150}, true},
                    JudgeCase{"Interval1500", {100, 1500}, true},
                    JudgeCase{"Interval1501", {100, 1501}, false},
                    JudgeCase{"Drop150000", {100, 500, 150000}, true},
                    JudgeCase{"Drop150001", {100, 500, 150001}, false}),
    [](const testing::TestParamInfo<JudgeCase>& info) { return info.param.name; });

// (P22 + h * k + 1000 * P21 / interval) / 100, k = P24 (413) for selector 0
// and P23 (415) for selector 1; any other selector repeats the last length.
struct LengthCase {
    const char* name;
    std::int32_t selector;
    std::int32_t h;
    std::int32_t interval_ms;
    std::int32_t length;
};

class Oem1SamLength : public testing::TestWithParam<LengthCase> {};

TEST_P(Oem1SamLength, FollowsTheIntervalAndTheUser) {
    const LengthCase& c = GetParam();
    Turn turn;
    turn.interval_ms = c.interval_ms;
    oem_1_sam_state s = at_turn(turn);
    s.length_selector = c.selector;
    s.user_height = c.h;
    s.lengths[0] = 77;
    update(s);
    EXPECT_EQ(s.lengths[0], c.length);
    EXPECT_EQ(s.lengths[1], 77);
}

INSTANTIATE_TEST_SUITE_P(Lengths, Oem1SamLength,
                         testing::Values(LengthCase{"Example500ms", 0, 0, 500, 29},
                                         LengthCase{"Selector1NoHeight", 1, 0, 500, 29},
                                         LengthCase{"Interval700ms", 0, 0, 700, -227},
                                         LengthCase{"Height170", 0, 170, 500, 731},
                                         LengthCase{"Height170Selector1", 1, 170, 500, 735},
                                         LengthCase{"Height170Interval700", 0, 170, 700, 474},
                                         LengthCase{"Selector2Repeats", 2, 170, 500, 77},
                                         LengthCase{"NegativeSelectorRepeats", -1, 170, 500, 77}),
                         [](const testing::TestParamInfo<LengthCase>& info) {
                             return info.param.name;
                         });

// The step that makes four intervals sum below 5000 ms reports five steps
// and the five stored lengths; the oldest length (50) has just dropped out.
TEST(Oem1Sam, FirstRegularStepReportsFiveStepsAndFiveLengths) {
    oem_1_sam_state s = at_turn(Turn{});
    const std::int32_t lengths[5] = {10, 20, 30, 40, 50};
    const std::int32_t intervals[4] = {500, 500, 500, 5000};
    std::memcpy(s.lengths, lengths, sizeof lengths);
    std::memcpy(s.intervals_ms, intervals, sizeof intervals);
    s.count = 3;
    s.total_length = 1000;
    EXPECT_EQ(update(s), (Out{3 + 5, 1000 + 29 + 10 + 20 + 30 + 40, 100}));
    EXPECT_EQ(s.walking, 1);
}

// While walking: an irregular step after less than P19 (3000 ms) still
// counts; one after 3000 ms or more ends the walk and counts nothing.
TEST(Oem1Sam, WalkEndsOnlyAfterALongIrregularGap) {
    for (const std::int32_t since_ms : {2995, 3000}) {
        oem_1_sam_state s = at_turn(Turn{});
        s.walking = 1;
        s.since_step_ms = since_ms - 5;
        const bool ends = since_ms >= 3000;
        EXPECT_EQ(update(s), (Out{ends ? 0 : 1, ends ? 0 : 29, 100})) << since_ms;
        EXPECT_EQ(s.walking, ends ? 0 : 1) << since_ms;
    }
}

// The four newest g2 values after the update (the record appends 10): a
// step counts unless they repeat a value and one is at most P10 (3).
struct RotationCase {
    const char* name;
    std::int32_t older[3];
    bool counts;
};

class Oem1SamRotation : public testing::TestWithParam<RotationCase> {};

TEST_P(Oem1SamRotation, RefusesRepeatedSmallRotation) {
    const RotationCase& c = GetParam();
    oem_1_sam_state s = at_turn(Turn{});
    s.walking = 1;
    std::memcpy(&s.gyro_sq[1], c.older, sizeof c.older);
    const std::int32_t ten_g2 = 6554;  // 0.1 rad/s: g2 = 100^2 / 1000 = 10
    update(s, Record{0, 0, 0, ten_g2, 0, 0});
    ASSERT_EQ(s.gyro_sq[3], 10);
    EXPECT_EQ(s.count, c.counts ? 1 : 0);
    EXPECT_EQ(s.intervals_ms[0], 500);
}

INSTANTIATE_TEST_SUITE_P(Histories, Oem1SamRotation,
                         testing::Values(RotationCase{"AllDifferent", {3, 20, 30}, true},
                                         RotationCase{"RepeatedButLarge", {4, 4, 30}, true},
                                         RotationCase{"RepeatsTheNewest", {10, 20, 30}, true},
                                         RotationCase{"RepeatedAndSmall", {3, 3, 30}, false},
                                         RotationCase{"RepeatedWithAZero", {0, 20, 20}, false}),
                         [](const testing::TestParamInfo<RotationCase>& info) {
                             return info.param.name;
                         });

// Timers above 604800 ms and a count or total above 10^9 start over at 0.
TEST(Oem1Sam, TimersAndTotalsWrap) {
    oem_1_sam_state s = warm();
    s.acc_sq_mean = kGravitySq;
    s.stage_ms = 604795;     // + 5: 604800 stays
    s.interval_ms = 604796;  // + 5: 604801 wraps
    s.judged_stage_ms = 604801;
    s.since_step_ms = 700000;
    s.count = 1000000000;
    s.total_length = 1000000001;
    EXPECT_EQ(update(s), (Out{1000000000, 0, 100}));
    EXPECT_EQ(s.stage_ms, 604800);
    EXPECT_EQ(s.interval_ms, 0);
    EXPECT_EQ(s.judged_stage_ms, 0);
    EXPECT_EQ(s.since_step_ms, 0);
}

struct TransitionCase {
    const char* name;
    std::uint8_t stage;
    std::int32_t d;
    std::int32_t stage_ms_before;
    std::int32_t previous_d;
    std::uint8_t expected;
};

class Oem1SamStage : public testing::TestWithParam<TransitionCase> {};

TEST_P(Oem1SamStage, MovesAsTheSignalDemands) {
    const TransitionCase& c = GetParam();
    oem_1_sam_state s = warm();
    s.stage = c.stage;
    s.acc_sq_mean = c.d + kGravitySq;
    s.step_peak = c.d;
    s.stage_ms = c.stage_ms_before;
    s.previous_d = c.previous_d;
    update(s);
    EXPECT_EQ(s.stage, c.expected);
}

// up = max(70% of the peak, 10000), down = min(70% of the trough, -8000).
INSTANTIATE_TEST_SUITE_P(
    Transitions, Oem1SamStage,
    testing::Values(TransitionCase{"IdleRisesAboveUp", 0, 10001, 0, 0, 1},
                    TransitionCase{"IdleStaysAtUp", 0, 10000, 0, 0, 0},
                    TransitionCase{"IdleTooStrong", 0, 200001, 0, 0, 10},
                    TransitionCase{"RisingFallsBelowDown", 1, -8001, 195, 0, 2},
                    TransitionCase{"RisingTooLong", 1, -8001, 196, 0, 0},
                    TransitionCase{"FallingWaitsForTheTurn", 2, -9000, 100, -9000, 2},
                    TransitionCase{"FallingTooLong", 2, -9000, 496, -9001, 0},
                    TransitionCase{"RejectedStaysAtUp", 10, 10000, 0, 0, 10},
                    TransitionCase{"RejectedCalms", 10, 9999, 0, 0, 0},
                    TransitionCase{"UnknownStage", 99, 50000, 0, 0, 0}),
    [](const testing::TestParamInfo<TransitionCase>& info) { return info.param.name; });

TEST(Oem1Sam, NullArgumentsLeaveTheStateAlone) {
    oem_1_sam_state s = warm();
    const oem_1_sam_state before = s;
    Out out{9, 9, 9};
    oem_1_sam_update(nullptr, kZeroRecord.data(), out.data());
    EXPECT_EQ(out, (Out{0, 0, 0}));
    out = {9, 9, 9};
    oem_1_sam_update(&s, nullptr, out.data());
    EXPECT_EQ(out, (Out{0, 0, 0}));
    oem_1_sam_update(&s, kZeroRecord.data(), nullptr);
    EXPECT_EQ(std::memcmp(&s, &before, sizeof s), 0);
}

// Two instances fed different walks sample by sample in turn, on memory of
// the size the module asks for: each reports what it reports alone.
TEST(Oem1Sam, InstancesCountIndependently) {
    StepWalkPlan brisk;
    StepWalkPlan slow;
    slow.step_period_s = 0.7;
    const auto walk_a = make_step_walk(brisk);
    const auto walk_b = make_step_walk(slow);
    const auto size = static_cast<std::size_t>(oem_1_sam_mem_req());
    std::vector<unsigned char> a(size + 1);  // b starts at an odd address
    std::vector<unsigned char> b(size + 1);
    oem_1_sam_state_reset(nullptr, a.data());
    oem_1_sam_state_reset(nullptr, b.data() + 1);
    oem_1_sam_state b_view;
    std::memcpy(&b_view, b.data() + 1, size);
    b_view.user_height = 170;
    std::memcpy(b.data() + 1, &b_view, size);
    Out out_a{};
    Out out_b{};
    for (std::size_t k = 0; k < std::max(walk_a.size(), walk_b.size()); ++k) {
        if (k < walk_a.size()) {
            oem_1_sam_update(a.data(), oem_record(walk_a[k]).data(), out_a.data());
        }
        if (k < walk_b.size()) {
            oem_1_sam_update(b.data() + 1, oem_record(walk_b[k]).data(), out_b.data());
        }
    }
    EXPECT_EQ(out_a, (Out{20, 551, 100}));
    EXPECT_EQ(out_b, (Out{20, 9006, 100}));
}

// Instances of both modules on threads of their own at the same time: they
// share nothing, so each counts its walk as it would alone (and the thread
// sanitizer build sees no shared access).
TEST(Oem1Sam, InstancesRunOnThreadsOfTheirOwn) {
    StepWalkPlan brisk;
    StepWalkPlan slow;
    slow.step_period_s = 0.7;
    const auto walk_a = make_step_walk(brisk);
    const auto walk_b = make_step_walk(slow);
    oem_1_sam_state a = fresh();
    oem_1_sam_state b = fresh();
    pedometer_sam_state c;
    velmo_pedometer_sam_state_reset(nullptr, &c);
    Out out_a{};
    Out out_b{};
    std::int32_t out_c = 0;
    std::thread first([&] { out_a = feed(&a, walk_a); });
    std::thread second([&] { out_b = feed(&b, walk_b); });
    std::thread third([&] {
        for (const StepWalkSample& sample : walk_b) {
            velmo_pedometer_sam_update(&c, imu::test::velmo_record(sample).data(), &out_c);
        }
    });
    first.join();
    second.join();
    third.join();
    EXPECT_EQ(out_a, (Out{20, 551, 100}));
    EXPECT_EQ(out_b, (Out{20, -4313, 100}));
    EXPECT_EQ(out_c, 19);
}

}  // namespace
