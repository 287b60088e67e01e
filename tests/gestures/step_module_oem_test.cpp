// The second step-counting module (reset, warm-up, input scale, walks with
// their held-back start and step lengths), the judging limits both modules
// share, and instances side by side.

#include "gestures/step_module_oem.h"

#include <gtest/gtest.h>

#include <climits>
#include <cstring>
#include <set>
#include <thread>

#include "step_module_feed.h"

namespace {

using namespace imu::test;

constexpr std::int32_t kGravitySq = 96236;

OemOut update(oem_1_sam_state& s, const Oem& record = Oem{}) {
    OemOut out{-1, -1, -1};
    oem_1_sam_update(&s, record.data(), out.data());
    return out;
}

// The state is the whole record; configuration words 0, 1 and 28 are kept.
TEST(Oem1Sam, ResetKeepsTheConfiguration) {
    EXPECT_EQ(oem_1_sam_mem_req(), 272);
    std::array<std::int32_t, 35> config{};
    config[0] = 1000;
    config[1] = 1001;
    config[28] = 1028;
    std::array<std::int32_t, 68> w;
    w.fill(-7);
    ASSERT_EQ(oem_1_sam_state_reset(config.data(), w.data()), w.data());
    EXPECT_EQ(w[33], 1000);
    EXPECT_EQ(w[34], 1001);
    EXPECT_EQ(w[61], 1028);
    EXPECT_EQ(w[67], 0);
    EXPECT_EQ(oem_1_sam_state_reset(nullptr, nullptr), nullptr);
}

// The first 100 updates report (0, 0, 100) and touch nothing but the
// warm-up counter, whatever the input.
TEST(Oem1Sam, WarmsUpForAHundredUpdates) {
    oem_1_sam_state s = oem_fresh();
    StepWalkPlan plan;
    plan.lead_in_s = 0.0;
    const auto walk = make_step_walk(plan);
    for (std::size_t i = 0; i < 100; ++i) {
        EXPECT_EQ(update(s, oem_record(walk[i])), (OemOut{0, 0, 100})) << i;
    }
    const oem_1_sam_state expected = oem_fresh(100);
    EXPECT_EQ(std::memcmp(&s, &expected, sizeof s), 0);
    update(s, oem_record(walk[100]));
    EXPECT_NE(s.acc_sq[3], 0);
}

// v * 1000 / 65536 truncated toward zero, and 15 beyond +-999999: at the
// edge three axes give 3 * 15258^2 / 1000, beyond it 3 * 15^2 / 1000 = 0.
TEST(Oem1Sam, ReadsSixteenSixteenAsThousandthsClampedTo15) {
    // clang-format off
    const std::int32_t cases[][2] = {
        {0, 0}, {65536, 1000}, {-65536, -1000}, {642908, 9809}, {642909, 9810}, {1, 0}, {-1, 0},
        {-66, -1}, {999999, 15258}, {-999999, -15258}, {1000000, 15}, {-1000000, 15},
        {INT_MAX, 15}, {INT_MIN, 15}};
    // clang-format on
    for (const auto& c : cases) {
        EXPECT_EQ(imu::sam::oem_thousandths(c[0]), c[1]) << c[0];
    }
    oem_1_sam_state s = oem_fresh(100);
    update(s, Oem{999999, -999999, 999999, -999999, 999999, -999999});
    EXPECT_EQ(s.acc_sq[3], 698419);
    EXPECT_EQ(s.gyro_sq[3], 698419);
    update(s, Oem{1000000, -1000000, INT_MAX, INT_MIN, 1000000, -1000000});
    EXPECT_EQ(s.acc_sq[3], 0);
    EXPECT_EQ(s.gyro_sq[3], 0);
}

// 2 s still, then 20 steps at the period T, height h. The warm-up takes
// 0.5 s. Step 1 (at 2170 ms, 1675 ms after the warm-up) has an interval over
// 1500 ms and is dropped. Step 2 stores 1675 + T as the time since the last
// passing step: intervals (1675 + T, 5000, 5000, 5000), not walking; steps
// 3 and 4 still sum over 5000 ms. Step 5 makes (T, T, T, 1675 + T) < 5000:
// the count jumps to 5 with four stored lengths plus the empty fifth; steps
// 6 to 20 add one each: 20 steps, 19 lengths.
// Length (-87110 + h * 413 + 45040000 / T) / 100: 29 at 500 ms (551), -227
// at 700 ms (-4313); with h = 170, 731 (13889) and 474 (9006).
TEST(Oem1Sam, HoldsBackFiveStepsThenCountsEachOne) {
    const struct {
        double period_s;
        std::int32_t h, total;
    } cases[] = {{0.5, 0, 551}, {0.7, 0, -4313}, {0.5, 170, 13889}, {0.7, 170, 9006}};
    for (const auto& c : cases) {
        StepWalkPlan plan;
        plan.step_period_s = c.period_s;
        oem_1_sam_state s = oem_fresh();
        s.user_height = c.h;
        std::set<std::int32_t> counts;
        OemOut out{};
        for (const StepWalkSample& sample : make_step_walk(plan)) {
            oem_1_sam_update(&s, oem_record(sample).data(), out.data());
            counts.insert(out[0]);
        }
        EXPECT_EQ(out, (OemOut{20, c.total, 100})) << c.period_s << " h=" << c.h;
        EXPECT_EQ(counts.size(), 17U) << "0, then 5 to 20";
        EXPECT_EQ(counts.count(4), 0U);
    }
}

// Ten steps of 29 (261), 4 s still, ten steps: step 1 is dropped (4500 ms);
// step 2 passes 5000 ms after the last one, the intervals sum to 6500 ms
// and the walk ends; step 6 reports five steps with five lengths (145),
// steps 7 to 10 four more (116).
TEST(Oem1Sam, APauseEndsTheWalk) {
    oem_1_sam_state s = oem_fresh();
    EXPECT_EQ(oem_feed(&s, walk_pause_walk(4.0)), (OemOut{19, 261 + 145 + 116, 100}));
}

// Without rotation data every g2 is 0, a repeated value at or below 3: no
// step ever counts, though each one records its interval.
TEST(Oem1Sam, NeverCountsWithoutRotationData) {
    auto walk = make_step_walk(StepWalkPlan{});
    for (StepWalkSample& sample : walk) {
        std::fill(std::begin(sample.gyro_rps), std::end(sample.gyro_rps), 0.0);
    }
    oem_1_sam_state s = oem_fresh();
    EXPECT_EQ(oem_feed(&s, walk), (OemOut{0, 0, 100}));
    EXPECT_EQ(s.intervals_ms[0], 500);
}

// A state one update before the turn of a falling stage (d = -20000).
oem_1_sam_state at_turn(std::int32_t stage_ms, std::int32_t interval_ms, std::int32_t drop) {
    oem_1_sam_state s = oem_fresh(100);
    s.stage = 2;
    s.acc_sq_mean = -20000 + kGravitySq;
    s.previous_d = -20001;
    s.step_peak = -20000 + drop;
    s.stage_ms = stage_ms - 5;
    s.interval_ms = interval_ms - 5;
    s.since_step_ms = interval_ms - 5;
    const std::int32_t distinct[4] = {100, 200, 300, 400};
    std::memcpy(s.gyro_sq, distinct, sizeof distinct);
    return s;
}

// Both modules judge at the turn: 30 <= stage <= 150 ms, 150 <= interval
// <= 1500 ms, peak - d <= 150000. A dropped step resets only the interval.
TEST(StepModules, JudgeOnlyPlausibleSteps) {
    const struct {
        std::int32_t stage_ms, interval_ms, drop;
        bool passes;
    } cases[] = {
        // clang-format off
        {29, 500, 10000, false},  {30, 500, 10000, true},    {150, 500, 10000, true},
        {151, 500, 10000, false}, {100, 149, 10000, false},  {100, 150, 10000, true},
        {100, 1500, 10000, true}, {100, 1501, 10000, false}, {100, 500, 150000, true},
        {100, 500, 150001, false},
        // clang-format on
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(testing::Message() << c.stage_ms << " " << c.interval_ms << " " << c.drop);
        oem_1_sam_state s = at_turn(c.stage_ms, c.interval_ms, c.drop);
        update(s);
        EXPECT_EQ(s.judged_stage_ms, c.stage_ms);
        EXPECT_EQ(s.stage, 0);
        EXPECT_EQ(s.intervals_ms[0], c.passes ? c.interval_ms : 5000);
        EXPECT_EQ(s.stage_ms, c.passes ? 0 : c.stage_ms);
        EXPECT_EQ(s.since_step_ms, c.passes ? 0 : c.interval_ms);

        pedometer_sam_state v = velmo_fresh();
        v.stage = 2;
        v.count = 7;
        v.acc_sq_mean = s.acc_sq_mean;
        v.previous_d = -20001;
        v.step_peak = -20000 + c.drop;
        v.stage_ms = c.stage_ms - 5;
        v.interval_ms = c.interval_ms - 5;
        std::int32_t out = 0;
        velmo_pedometer_sam_update(&v, Velmo{0, 0, 0, 0, 0, 0, 0, 0, 0, 5}.data(), &out);
        EXPECT_EQ(out, c.passes ? 8 : 7);
        EXPECT_EQ(v.judged_stage_ms, c.stage_ms);
        EXPECT_EQ(v.interval_ms, 0);
        EXPECT_EQ(v.stage_ms, c.passes ? 0 : c.stage_ms);
    }
}

// (P22 + h * k + 1000 * P21 / interval) / 100, k = 413 for selector 0 and
// 415 for 1; any other selector repeats the last length.
TEST(Oem1Sam, StepLengthFollowsTheIntervalAndTheUser) {
    // clang-format off
    const std::int32_t cases[][4] = {  // selector, h, interval, length
        {0, 0, 500, 29}, {1, 0, 500, 29}, {0, 0, 700, -227}, {0, 170, 500, 731},
        {1, 170, 500, 735}, {0, 170, 700, 474}, {2, 170, 500, 77}, {-1, 170, 500, 77}};
    // clang-format on
    for (const auto& c : cases) {
        oem_1_sam_state s = at_turn(100, c[2], 10000);
        s.length_selector = c[0];
        s.user_height = c[1];
        s.lengths[0] = 77;
        update(s);
        EXPECT_EQ(s.lengths[0], c[3]) << c[0] << " " << c[1] << " " << c[2];
        EXPECT_EQ(s.lengths[1], 77);
    }
}

// The four newest g2 values (the record appends 10): a step counts unless
// they repeat a value and one is at most 3.
TEST(Oem1Sam, RefusesRepeatedSmallRotation) {
    const struct {
        std::int32_t older[3];
        bool counts;
    } cases[] = {{{3, 20, 30}, true},
                 {{4, 4, 30}, true},
                 {{10, 20, 30}, true},
                 {{3, 3, 30}, false},
                 {{0, 20, 20}, false}};
    for (const auto& c : cases) {
        oem_1_sam_state s = at_turn(100, 500, 10000);
        s.walking = 1;
        std::memcpy(&s.gyro_sq[1], c.older, sizeof c.older);
        update(s, Oem{0, 0, 0, 6554, 0, 0});  // 0.1 rad/s: g2 = 10
        EXPECT_EQ(s.count, c.counts ? 1 : 0) << c.older[0] << " " << c.older[1];
    }
}

// While walking, a step after less than 3000 ms counts even if irregular;
// one after 3000 ms ends the walk.
TEST(Oem1Sam, WalkEndsOnlyAfterALongIrregularGap) {
    for (const std::int32_t since_ms : {2995, 3000}) {
        oem_1_sam_state s = at_turn(100, 500, 10000);
        s.walking = 1;
        s.since_step_ms = since_ms - 5;
        const bool ends = since_ms >= 3000;
        EXPECT_EQ(update(s), (OemOut{ends ? 0 : 1, ends ? 0 : 29, 100})) << since_ms;
        EXPECT_EQ(s.walking, ends ? 0 : 1) << since_ms;
    }
}

// Timers above 604800 ms and a count or total above 10^9 start over at 0.
TEST(Oem1Sam, TimersAndTotalsWrap) {
    oem_1_sam_state s = oem_fresh(100);
    s.acc_sq_mean = kGravitySq;
    s.stage_ms = 604795;
    s.interval_ms = 604796;
    s.since_step_ms = 700000;
    s.count = 1000000000;
    s.total_length = 1000000001;
    EXPECT_EQ(update(s), (OemOut{1000000000, 0, 100}));
    EXPECT_EQ(s.stage_ms, 604800);
    EXPECT_EQ(s.interval_ms, 0);
    EXPECT_EQ(s.since_step_ms, 0);
}

TEST(Oem1Sam, NullArgumentsLeaveTheStateAlone) {
    oem_1_sam_state s = oem_fresh(100);
    const oem_1_sam_state before = s;
    OemOut out{9, 9, 9};
    oem_1_sam_update(nullptr, Oem{}.data(), out.data());
    EXPECT_EQ(out, (OemOut{0, 0, 0}));
    out = {9, 9, 9};
    oem_1_sam_update(&s, nullptr, out.data());
    EXPECT_EQ(out, (OemOut{0, 0, 0}));
    oem_1_sam_update(&s, Oem{}.data(), nullptr);
    EXPECT_EQ(std::memcmp(&s, &before, sizeof s), 0);
}

// Instances of both modules, two at odd addresses, on threads of their own
// with different walks: each counts what it counts alone.
TEST(StepModules, InstancesCountIndependently) {
    StepWalkPlan slow;
    slow.step_period_s = 0.7;
    const auto brisk_walk = make_step_walk(StepWalkPlan{});
    const auto slow_walk = make_step_walk(slow);
    oem_1_sam_state a = oem_fresh();
    std::array<unsigned char, 273> b{};
    oem_1_sam_state_reset(nullptr, b.data() + 1);
    pedometer_sam_state c = velmo_fresh();
    std::array<unsigned char, 101> d{};
    velmo_pedometer_sam_state_reset(nullptr, d.data() + 1);
    OemOut out_a{};
    OemOut out_b{};
    std::int32_t out_c = 0;
    std::thread first([&] { out_a = oem_feed(&a, brisk_walk); });
    std::thread second([&] { out_b = oem_feed(b.data() + 1, slow_walk); });
    std::thread third([&] { out_c = velmo_feed(&c, brisk_walk); });
    const std::int32_t out_d = velmo_feed(d.data() + 1, walk_pause_walk(4.0));
    first.join();
    second.join();
    third.join();
    EXPECT_EQ(out_a, (OemOut{20, 551, 100}));
    EXPECT_EQ(out_b, (OemOut{20, -4313, 100}));
    EXPECT_EQ(out_c, 19);
    EXPECT_EQ(out_d, 18);
}

}  // namespace
