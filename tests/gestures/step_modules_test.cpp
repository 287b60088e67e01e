// Both step-counting modules: walks with their held-back start and step
// lengths on instances side by side, the stage machine and the judging
// limits they share, the input scale and bad arguments (arbitrary records:
// fuzz/step_modules_fuzz.cpp).

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <climits>
#include <cstring>
#include <iterator>
#include <set>
#include <tuple>
#include <vector>

#include "gestures/step_module_oem.h"
#include "imu/step_modules.h"
#include "sim/step_module_walk.h"

namespace {

using namespace imu::test;
using Velmo = std::array<std::int32_t, 10>;
using Oem = std::array<std::int32_t, 6>;
using OemOut = std::array<std::int32_t, 3>;
using Walk = std::vector<StepWalkSample>;

constexpr std::int32_t kGravitySq = 96236;
constexpr Velmo kZero{0, 0, 0, 0, 0, 0, 0, 0, 0, 5};

// Reset over memory filled with garbage.
pedometer_sam_state velmo_fresh() {
    pedometer_sam_state s;
    std::memset(&s, 0x5A, sizeof s);
    velmo_pedometer_sam_state_reset(nullptr, &s);
    return s;
}

oem_1_sam_state oem_fresh(std::int32_t warm_up = 0) {
    oem_1_sam_state s;
    std::memset(&s, 0x5A, sizeof s);
    oem_1_sam_state_reset(nullptr, &s);
    s.warm_up = warm_up;
    return s;
}

OemOut update(oem_1_sam_state& s, const Oem& record = Oem{}) {
    OemOut out{-1, -1, -1};
    oem_1_sam_update(&s, record.data(), out.data());
    return out;
}

Walk walk_at(double period_s) {
    StepWalkPlan plan;
    plan.step_period_s = period_s;
    return make_step_walk(plan);
}

// Ten steps at 0.5 s, `pause_s` still, ten more.
Walk walk_pause_walk(double pause_s) {
    StepWalkPlan first;
    first.steps = 10;
    first.tail_s = pause_s;
    StepWalkPlan second = first;
    second.lead_in_s = 0.0;
    second.tail_s = 1.0;
    Walk walk = make_step_walk(first);
    const Walk more = make_step_walk(second);
    walk.insert(walk.end(), more.begin(), more.end());
    return walk;
}

// The state is the whole record: the second module asks for its 68 words;
// a reset keeps configuration words 0, 1 and 28.
TEST(StepModules, MemoryRequestAndReset) {
    EXPECT_EQ(velmo_pedometer_sam_mem_req(), 100);
    EXPECT_EQ(oem_1_sam_mem_req(), 272);
    std::array<std::int32_t, 35> config{};
    config[0] = 1000;
    config[1] = 1001;
    config[28] = 1028;
    std::array<std::int32_t, 68> w;
    w.fill(-7);
    ASSERT_EQ(oem_1_sam_state_reset(config.data(), w.data()), w.data());
    EXPECT_TRUE(w[33] == 1000 && w[34] == 1001 && w[61] == 1028 && w[67] == 0);
    EXPECT_EQ(oem_1_sam_state_reset(nullptr, nullptr), nullptr);
    EXPECT_EQ(velmo_pedometer_sam_state_reset(nullptr, nullptr), nullptr);
}

// Every walk below runs on an instance of its own at an odd address, all
// fed sample by sample in turn: each counts what it would count alone.
//
// First module, 2 s still, then 20 steps: the first candidate (2170 ms after
// the start) has an interval over 1500 ms and is dropped; every later one
// counts, one at a time: 19. A 4 s pause drops the next walk's first step
// too: 9 + 9.
//
// Second module, same walks at the period T, user height h; the warm-up
// takes 0.5 s. Step 1 (1675 ms after the warm-up) has an interval over
// 1500 ms and is dropped. Step 2 stores 1675 + T: intervals (1675 + T,
// 5000, 5000, 5000), not walking; steps 3 and 4 still sum over 5000 ms.
// Step 5 makes (T, T, T, 1675 + T) < 5000: the count jumps to 5 with four
// stored lengths plus the empty fifth; steps 6 to 20 add one each: 20
// steps, 19 lengths. Length (-87110 + h * 413 + 45040000 / T) / 100: 29 at
// 500 ms (551), -227 at 700 ms (-4313); with h = 170, 731 (13889) and 474
// (9006). Ten steps of 29 (261), 4 s still, ten steps: step 1 is dropped
// (4500 ms); step 2 passes 5000 ms after the last, the intervals sum to
// 6500 ms and the walk ends; step 6 reports five steps with five lengths
// (145), steps 7 to 10 four more (116). Without rotation data every g2 is
// 0, a repeated value at or below 3: no step counts, though each one
// records its interval.
TEST(StepModules, WalksAreCountedOnIndependentInstances) {
    Walk still_hand = walk_at(0.5);
    for (StepWalkSample& sample : still_hand) {
        std::fill(std::begin(sample.gyro_rps), std::end(sample.gyro_rps), 0.0);
    }
    const struct {
        bool oem;
        Walk walk;
        std::int32_t h;
        OemOut want;  // first module: count, largest rise in one update
    } runs[] = {{false, walk_at(0.5), 0, {19, 1, 0}},
                {false, walk_at(0.7), 0, {19, 1, 0}},
                {false, walk_pause_walk(4.0), 0, {18, 1, 0}},
                {true, walk_at(0.5), 0, {20, 551, 100}},
                {true, walk_at(0.7), 0, {20, -4313, 100}},
                {true, walk_at(0.5), 170, {20, 13889, 100}},
                {true, walk_at(0.7), 170, {20, 9006, 100}},
                {true, walk_pause_walk(4.0), 0, {19, 261 + 145 + 116, 100}},
                {true, still_hand, 0, {0, 0, 100}}};
    constexpr std::size_t kRuns = std::size(runs);
    std::vector<unsigned char> memory[kRuns];
    OemOut out[kRuns] = {};
    std::int32_t most[kRuns] = {};
    std::set<std::int32_t> counts[kRuns];
    std::size_t samples = 0;
    for (std::size_t r = 0; r < kRuns; ++r) {
        memory[r].resize(sizeof(oem_1_sam_state) + 1);
        oem_1_sam_state s = oem_fresh();
        s.user_height = runs[r].h;
        std::memcpy(memory[r].data() + 1, &s, sizeof s);
        if (!runs[r].oem) {
            velmo_pedometer_sam_state_reset(nullptr, memory[r].data() + 1);
        }
        samples = std::max(samples, runs[r].walk.size());
    }
    for (std::size_t i = 0; i < samples; ++i) {
        for (std::size_t r = 0; r < kRuns; ++r) {
            const StepWalkSample& at = runs[r].walk[std::min(i, runs[r].walk.size() - 1)];
            const std::int32_t before = out[r][0];
            if (runs[r].oem) {
                oem_1_sam_update(memory[r].data() + 1, oem_record(at).data(), out[r].data());
            } else {
                velmo_pedometer_sam_update(memory[r].data() + 1, velmo_record(at).data(),
                                           out[r].data());
            }
            most[r] = std::max(most[r], out[r][0] - before);
            counts[r].insert(out[r][0]);
        }
    }
    for (std::size_t r = 0; r < kRuns; ++r) {
        EXPECT_EQ(runs[r].oem ? out[r] : (OemOut{out[r][0], most[r], 0}), runs[r].want) << r;
        if (runs[r].oem && runs[r].want[0] == 20) {
            EXPECT_EQ(counts[r].size(), 17U) << r << ": 0, then 5 to 20";
        }
    }
    oem_1_sam_state s;
    std::memcpy(&s, memory[kRuns - 1].data() + 1, sizeof s);
    EXPECT_EQ(s.intervals_ms[0], 500);
}

// One update of an all-zero record from a prepared state: d is word 4
// minus the squared gravity; up = max(75% peak, 10000), down = min(75%
// trough, -8000), with a fresh peak and trough set by d itself.
TEST(VelmoPedometerSam, StageMovesAsTheSignalDemands) {
    // stage, d, previous d, stage ms, gyro mean, expected stage
    const std::int32_t cases[][6] = {
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
        s.stage = static_cast<std::uint8_t>(c[0]);
        s.acc_sq_mean = c[1] + kGravitySq;
        s.previous_d = c[2];
        s.stage_ms = c[3];
        s.interval_ms = 495;
        s.gyro_sq_mean = c[4];
        s.step_peak = c[1];
        std::int32_t out = -1;
        velmo_pedometer_sam_update(&s, kZero.data(), &out);
        EXPECT_EQ(s.stage, c[5]) << c[0] << " d=" << c[1] << " g=" << c[4];
        EXPECT_EQ(out, 0);
    }
    // The thresholds decay by (800 - 5 dt) / 800 per update, truncated.
    pedometer_sam_state s = velmo_fresh();
    s.peak = 80000;
    s.trough = -80000;
    s.acc_sq_mean = kGravitySq;
    std::int32_t out = 0;
    velmo_pedometer_sam_update(&s, kZero.data(), &out);
    EXPECT_TRUE(s.peak == 77500 && s.trough == -77500);
}

// The first 100 updates report (0, 0, 100) and touch nothing but the
// warm-up counter, whatever the input.
TEST(Oem1Sam, WarmsUpForAHundredUpdates) {
    oem_1_sam_state s = oem_fresh();
    const Walk walk = make_step_walk(StepWalkPlan{});
    for (std::size_t i = 0; i < 100; ++i) {
        EXPECT_EQ(update(s, oem_record(walk[i + 500])), (OemOut{0, 0, 100})) << i;
    }
    const oem_1_sam_state expected = oem_fresh(100);
    EXPECT_EQ(std::memcmp(&s, &expected, sizeof s), 0);
    update(s, oem_record(walk[600]));
    EXPECT_NE(s.acc_sq[3], 0);
}

// v * 1000 / 65536 truncated toward zero, and 15 beyond +-999999: at the
// edge three axes give 3 * 15258^2 / 1000, beyond it 3 * 15^2 / 1000 = 0.
TEST(Oem1Sam, ReadsSixteenSixteenAsThousandthsClampedTo15) {
    const std::int32_t cases[][2] = {{65536, 1000},     {-65536, -1000},   {642908, 9809},
                                     {642909, 9810},    {-66, -1},         {999999, 15258},
                                     {-999999, -15258}, {1000000, 15},     {-1000000, 15},
                                     {INT_MAX, 15},     {INT_MIN, 15}};
    for (const auto& c : cases) {
        EXPECT_EQ(imu::sam::oem_thousandths(c[0]), c[1]) << c[0];
    }
    oem_1_sam_state s = oem_fresh(100);
    update(s, Oem{999999, -999999, 999999, -999999, 999999, -999999});
    EXPECT_TRUE(s.acc_sq[3] == 698419 && s.gyro_sq[3] == 698419);
    update(s, Oem{1000000, -1000000, INT_MAX, INT_MIN, 1000000, -1000000});
    EXPECT_TRUE(s.acc_sq[3] == 0 && s.gyro_sq[3] == 0);
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
    const std::int32_t cases[][4] = {  // stage ms, interval ms, drop, passes
        {29, 500, 10000, 0},  {30, 500, 10000, 1},    {150, 500, 10000, 1},   {151, 500, 10000, 0},
        {100, 149, 10000, 0}, {100, 150, 10000, 1},   {100, 1500, 10000, 1},  {100, 1501, 10000, 0},
        {100, 500, 150000, 1}, {100, 500, 150001, 0}};
    for (const auto& c : cases) {
        SCOPED_TRACE(testing::Message() << c[0] << " " << c[1] << " " << c[2]);
        const bool passes = c[3] != 0;
        oem_1_sam_state s = at_turn(c[0], c[1], c[2]);
        update(s);
        EXPECT_EQ(std::tie(s.judged_stage_ms, s.stage, s.intervals_ms[0], s.stage_ms, s.since_step_ms),
                  std::make_tuple(c[0], 0, passes ? c[1] : 5000, passes ? 0 : c[0], passes ? 0 : c[1]));
        pedometer_sam_state v = velmo_fresh();
        v.stage = 2;
        v.count = 7;
        v.acc_sq_mean = s.acc_sq_mean;
        v.previous_d = -20001;
        v.step_peak = -20000 + c[2];
        v.stage_ms = c[0] - 5;
        v.interval_ms = c[1] - 5;
        std::int32_t out = 0;
        velmo_pedometer_sam_update(&v, kZero.data(), &out);
        EXPECT_EQ(std::tie(out, v.judged_stage_ms, v.interval_ms, v.stage_ms),
                  std::make_tuple(passes ? 8 : 7, c[0], 0, passes ? 0 : c[0]));
    }
}

// (P22 + h * k + 1000 * P21 / interval) / 100, k = 413 for selector 0 and
// 415 for 1; any other selector repeats the last length.
TEST(Oem1Sam, StepLengthFollowsTheIntervalAndTheUser) {
    const std::int32_t cases[][4] = {  // selector, h, interval, length
        {0, 0, 500, 29},    {1, 0, 500, 29},    {0, 0, 700, -227}, {0, 170, 500, 731},
        {1, 170, 500, 735}, {0, 170, 700, 474}, {2, 170, 500, 77}, {-1, 170, 500, 77}};
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

// While walking: a step counts unless the four newest g2 values (the record
// appends 10) repeat a value with one at most 3; a step after less than
// 3000 ms counts even if irregular, one after 3000 ms ends the walk.
TEST(Oem1Sam, WalkingStepsNeedRotationAndEndAfterALongGap) {
    const std::int32_t cases[][4] = {  // three older g2, counts
        {3, 20, 30, 1}, {4, 4, 30, 1}, {10, 20, 30, 1}, {3, 3, 30, 0}, {0, 20, 20, 0}};
    for (const auto& c : cases) {
        oem_1_sam_state s = at_turn(100, 500, 10000);
        s.walking = 1;
        std::memcpy(&s.gyro_sq[1], c, 3 * sizeof c[0]);
        update(s, Oem{0, 0, 0, 6554, 0, 0});  // 0.1 rad/s: g2 = 10
        EXPECT_EQ(s.count, c[3]) << c[0] << " " << c[1] << " " << c[2];
    }
    for (const std::int32_t since_ms : {2995, 3000}) {
        oem_1_sam_state s = at_turn(100, 500, 10000);
        s.walking = 1;
        s.since_step_ms = since_ms - 5;
        const bool ends = since_ms >= 3000;
        EXPECT_EQ(update(s), (OemOut{ends ? 0 : 1, ends ? 0 : 29, 100})) << since_ms;
        EXPECT_EQ(s.walking, ends ? 0 : 1) << since_ms;
    }
}

// A null argument, or for the first module a time step of 0 or less,
// changes nothing; the second module then reports zeros.
TEST(StepModules, BadArgumentsChangeNothing) {
    pedometer_sam_state v = velmo_fresh();
    std::int32_t count = 0;
    const Walk walk = walk_at(0.5);
    for (std::size_t i = 0; i < 1000; ++i) {
        velmo_pedometer_sam_update(&v, velmo_record(walk[i]).data(), &count);
    }
    const pedometer_sam_state v_before = v;
    Velmo strike = velmo_record(walk[1010]);
    count = -12345;
    velmo_pedometer_sam_update(nullptr, strike.data(), &count);
    velmo_pedometer_sam_update(&v, nullptr, &count);
    velmo_pedometer_sam_update(&v, strike.data(), nullptr);
    for (const std::int32_t dt : {0, -1, INT_MIN}) {
        strike[9] = dt;
        velmo_pedometer_sam_update(&v, strike.data(), &count);
    }
    EXPECT_EQ(count, -12345);
    EXPECT_EQ(std::memcmp(&v, &v_before, sizeof v), 0);
    oem_1_sam_state s = oem_fresh(100);
    const oem_1_sam_state s_before = s;
    for (const bool null_state : {true, false}) {
        OemOut out{9, 9, 9};
        oem_1_sam_update(null_state ? nullptr : &s, null_state ? Oem{}.data() : nullptr, out.data());
        EXPECT_EQ(out, (OemOut{0, 0, 0}));
    }
    oem_1_sam_update(&s, Oem{}.data(), nullptr);
    EXPECT_EQ(std::memcmp(&s, &s_before, sizeof s), 0);
}

}  // namespace
