// Raw input: the slots each type fills, the interval between gyroscope
// samples, the button word and the rule that decides when a cycle runs.

#include <cmath>

#include "imu/calibration.h"
#include "service/service_internal.h"
#include "service_fixture.h"

namespace imu::test {
namespace {

constexpr std::uint32_t kTapBit = 1U << kTap;

// Steps of calculate_time_diff: timestamp and kind (0 absolute, 1 interval)
// in; result, interval in us and ns, and stored timestamp out.
struct TimingStep {
    long long timestamp;
    int kind, result;
    std::int32_t us, ns;
    std::int64_t last_after;
};

struct TimingCase {
    const char* name;
    std::vector<TimingStep> steps;
};

class Timing : public ServiceTest, public testing::WithParamInterface<TimingCase> {};

TEST_P(Timing, IntervalsAndStoredTimestamp) {
    velmofusion& s = svc();
    for (const TimingStep& st : GetParam().steps) {
        EXPECT_EQ(s.calculate_time_diff(st.timestamp, st.kind), st.result) << st.timestamp;
        EXPECT_EQ(std::make_tuple(s.time_diff_us, s.time_diff_ns, s.last_timestamp),
                  std::make_tuple(st.us, st.ns, st.last_after))
            << st.timestamp;
    }
}

constexpr long long kS = 1000000000LL;

INSTANTIATE_TEST_SUITE_P(
    Kinds, Timing,
    testing::Values(TimingCase{"first_sample", {{5 * kS, 0, 0, 0, 0, 5 * kS}}},
                    TimingCase{"ten_ms_steps",
                               {{kS, 0, 0, 0, 0, kS},
                                {kS + 10000000, 0, 0, 10000, 10000000, kS + 10000000},
                                {kS + 20000000, 0, 0, 10000, 10000000, kS + 20000000}}},
                    TimingCase{
                        "just_under_a_second",
                        {{kS, 0, 0, 0, 0, kS}, {2 * kS - 1, 0, 0, 999999, 999999999, 2 * kS - 1}}},
                    TimingCase{"one_second_rejected_then_timed_against",
                               {{kS, 0, 0, 0, 0, kS},
                                {2 * kS, 0, -1, 1000000, 1000000000, 2 * kS},
                                {2 * kS + 5000000, 0, 0, 5000, 5000000, 2 * kS + 5000000}}},
                    TimingCase{"backwards_passes_negative",
                               {{2 * kS, 0, 0, 0, 0, 2 * kS},
                                {2 * kS - 10000000, 0, 0, -10000, -10000000, 2 * kS - 10000000}}},
                    TimingCase{"interval_kind_keeps_timestamp",
                               {{20000000, 1, 0, 20000, 20000000, 0},
                                {1500, 1, 0, 1, 1500, 0},
                                {-3000, 1, 0, -3, -3000, 0},
                                {kS, 1, -1, 1000000, 1000000000, 0},
                                {(1LL << 32) + 5000000, 1, 0, 5000, 5000000, 0}}},  // low 32 bits
                    TimingCase{"negative_timestamp_is_not_a_previous_one",
                               {{-5, 0, 0, 0, 0, -5}, {10000000, 0, 0, 0, 0, 10000000}}},
                    TimingCase{"unknown_kind_changes_nothing",
                               {{kS, 0, 0, 0, 0, kS},
                                {kS + 10000000, 0, 0, 10000, 10000000, kS + 10000000},
                                {9 * kS, 7, 0, 10000, 10000000, kS + 10000000}}}),
    [](const testing::TestParamInfo<TimingCase>& info) { return info.param.name; });

TEST_F(ServiceTest, RejectedIntervalIsLoggedStoredInSlotAndRunsNoCycle) {
    push_acc_mag();
    svc().mEnabled.store(kTapBit);
    push(kGyro, 0.0F, 0.0F, 0.0F, kS);
    EXPECT_EQ(count_prefix("show_loge_count="), 1);
    push(kGyro, 0.5F, 0.25F, -0.125F, 2 * kS);
    EXPECT_EQ(log.count("Time error =1000000us"), 1);
    EXPECT_EQ(count_prefix("show_loge_count="), 1);
    EXPECT_EQ(slot(kGyro), (Triple{0.5F, 0.25F, -0.125F}));  // no offset stored
    push(kGyro, 0.0F, 0.0F, 0.0F, 2 * kS + 10000000);
    EXPECT_EQ(count_prefix("show_loge_count="), 2);
}

TEST_F(ServiceTest, AccelerometerMagnetometerOtherTypesAndNullData) {
    svc().mEnabled.store(kTapBit);
    for (const int type : {5, static_cast<int>(kGravity), -1}) push(type, 1.0F, 2.0F, 3.0F);
    input_raw_data(kAcceleration, nullptr, 0);
    input_raw_data(kGyro, nullptr, 1000);
    input_raw_data(kInputButton, nullptr, 0);
    for (int i = 0; i < kSlotCount; ++i) EXPECT_EQ(slot(i), kZero) << i;
    EXPECT_EQ(svc().acc_data_ready.load() + svc().mag_data_ready.load(), 0);
    EXPECT_EQ(svc().last_timestamp, 0);
    push(kAcceleration, 0.5F, -0.25F, 9.75F);
    EXPECT_EQ(svc().acc_data_ready.load() + svc().mag_data_ready.load(), 1);
    // Calibrator mode 1 corrects the accelerometer with the default block.
    EXPECT_EQ(slot(kAcceleration), (Triple{0.5F, -0.25F, 9.75F}));
    push(kMagnetic, 22.0F, 1.0F, -40.0F);
    EXPECT_EQ(svc().mag_data_ready.load(), 1);
    EXPECT_EQ(svc().fusion_data[kMagnetic].raw[0], 22.0F);
    EXPECT_EQ(count_prefix("show_loge_count="), 0);
}

// The button word switches between modes 3 and 5 (bit 5) without a log line
// and is stored as an int.
TEST_F(ServiceTest, ButtonWordSwitchesBetweenThreeAndFive) {
    const struct { int mode; float word; int mode_after; std::int32_t state; } cases[] = {
        {5, 32.0F, 3, 32}, {3, 0.0F, 5, 0},           {3, 32.0F, 3, 32},
        {5, 0.0F, 5, 0},   {0, 32.0F, 0, 32},         {4, 160.9F, 4, 160},
        {3, -32.5F, 3, -32}, {5, 1e20F, 3, 2147483647}, {3, std::nanf(""), 5, 0}};
    svc();
    log.clear();
    for (const auto& c : cases) {
        set_fusiond_moed(c.mode);
        float v[3] = {c.word, 0.0F, 0.0F};
        input_raw_data(kInputButton, v, 0);
        EXPECT_EQ(std::make_pair(svc().fusiond_mode.load(), svc().button_state),
                  std::make_pair(c.mode_after, c.state)) << c.mode << " " << c.word;
    }
    EXPECT_EQ(log.texts().size(), static_cast<std::size_t>(count_prefix("fusiond_mode=")));
}

// When a gyroscope sample runs a cycle: mode, enabled bits, button word,
// data ready; cycles run and not-ready lines logged.
struct GateCase {
    const char* name;
    int mode;
    std::uint32_t enabled;
    float button;
    bool acc, mag;
    int cycles, not_ready;
};

class CycleGate : public ServiceTest, public testing::WithParamInterface<GateCase> {};

TEST_P(CycleGate, RunsCycleOrLogs) {
    const GateCase& c = GetParam();
    velmofusion& s = svc();
    s.fusiond_mode.store(c.mode);
    s.mEnabled.store(c.enabled);
    float b[3] = {c.button, 0.0F, 0.0F};
    input_raw_data(kInputButton, b, 0);
    if (c.acc) {
        push(kAcceleration, 0.0F, 0.0F, 9.8F);
    }
    if (c.mag) {
        push(kMagnetic, 20.0F, 0.0F, -40.0F);
    }
    push(kGyro, 0.0F, 0.0F, 0.0F, c.mode == 2 || c.mode == 4 ? 10000000LL : 3 * kS);
    EXPECT_EQ(count_prefix("show_loge_count="), c.cycles);
    EXPECT_EQ(count_prefix("data_not_ready"), c.not_ready);
    const std::string want = "data_not_ready acc=" + std::to_string(c.acc ? 1 : 0) +
                             " mag=" + std::to_string(c.mag ? 1 : 0) +
                             " sfc_get_fusion_mode=" + std::to_string(engine_fusion_mode()) +
                             " fusiond_mode=" + std::to_string(c.mode);
    EXPECT_EQ(log.count(want), c.not_ready);
}

INSTANTIATE_TEST_SUITE_P(
    Modes, CycleGate,
    testing::Values(GateCase{"m0_ready", 0, kTapBit, 0.0F, true, true, 1, 0},
                    GateCase{"m0_acc_only", 0, kTapBit, 0.0F, true, false, 0, 1},
                    GateCase{"m0_nothing_enabled", 0, 0, 0.0F, true, true, 0, 0},
                    GateCase{"m1_acc_only_nothing_enabled", 1, 0, 0.0F, true, false, 1, 0},
                    GateCase{"m1_not_ready_silent", 1, kTapBit, 0.0F, false, true, 0, 0},
                    GateCase{"m2_mag_only", 2, kTapBit, 0.0F, false, true, 0, 1},
                    GateCase{"m2_nothing_enabled", 2, 0, 128.0F, true, true, 0, 0},
                    GateCase{"m3_button_runs_without_bits", 3, 0, 160.0F, true, true, 1, 0},
                    GateCase{"m3_no_button_no_bits", 3, 0, 32.0F, true, true, 0, 0},
                    GateCase{"m5_button_not_ready", 5, 0, 128.0F, false, false, 0, 1},
                    GateCase{"m4_ready", 4, kTapBit, 0.0F, true, true, 1, 0},
                    GateCase{"m6_never", 6, kTapBit, 0.0F, true, true, 0, 0},
                    GateCase{"negative_mode_never", -1, kTapBit, 0.0F, true, true, 0, 0}),
    [](const testing::TestParamInfo<GateCase>& info) { return info.param.name; });

TEST_F(ServiceTest, ModeOneWritesNoSaveLog) {
    root.write("/data/system/save_velmo_log.ini", "1\n");
    set_fusiond_moed(1);
    control_fusiond(kTap, 1);
    push(kAcceleration, 0.0F, 0.0F, 9.8F);
    push(kGyro, 0.0F, 0.0F, 0.0F, kS);
    EXPECT_EQ(count_prefix("show_loge_count="), 1);
    EXPECT_FALSE(root.exists(std::string("/data/system/velmoLOG") + svc().log_name));
}

}  // namespace
}  // namespace imu::test
