// The virtual sensor table: truncation of the fixed outputs, retrieval, the
// calibration slot and the startup log of the fusion cycle.

#include <cmath>
#include <cstring>
#include <limits>

#include "service_fixture.h"

namespace imu::test {
namespace {

constexpr std::int32_t kIntMax = std::numeric_limits<std::int32_t>::max();

// Toward zero to multiples of the step (k steps as float arithmetic gives
// them), held within int range; raw stays as it was.
TEST(AdjustAccuracy, TruncatesTowardZeroToMultiplesOfStep) {
    const float inf = std::numeric_limits<float>::infinity();
    const struct { float raw, step; std::int32_t k; } cases[] = {
        {123.456F, 0.1F, 1234}, {0.04F, 0.1F, 0},       {9.8066F, 0.001F, 9806},
        {0.0009F, 0.001F, 0},   {359.99F, 0.1F, 3599},  {1e12F, 0.001F, kIntMax},
        {inf, 0.1F, kIntMax},   {std::nanf(""), 0.1F, 0}};
    for (const auto& c : cases) {
        Sensor_fusion_data_struct s{{c.raw, -c.raw, 0.0F}, {7.0F, 7.0F, 7.0F}};
        velmofusion::adjust_accuracy(&s, c.step);
        const float report = static_cast<float>(c.k) * c.step;
        EXPECT_EQ((Triple{s.report[0], s.report[1], s.report[2]}), (Triple{report, -report, 0.0F}))
            << c.raw;
        EXPECT_EQ(std::memcmp(&s.raw[0], &c.raw, sizeof(float)), 0);
    }
}

TEST_F(ServiceTest, IndexOutsideTheTableLeavesOutputUntouched) {
    svc().fusion_data[26].report[0] = 5.0F;
    for (const int index : {-1, 27, 1000, std::numeric_limits<int>::min()}) {
        float out[3] = {7.0F, 8.0F, 9.0F};
        EXPECT_EQ(get_fusiond_data(index, out), 0);
        EXPECT_EQ((Triple{out[0], out[1], out[2]}), (Triple{7.0F, 8.0F, 9.0F})) << index;
    }
    EXPECT_EQ(get_fusiond_data(3, nullptr), 0);
    EXPECT_EQ(slot(26)[0], 5.0F);
}

// Cycles in mode 1 (no poll thread, no save log) with everything ready.
class CycleTest : public ServiceTest {
protected:
    void ready(std::uint32_t enabled) {
        svc().fusiond_mode.store(1);
        svc().mEnabled.store(enabled);
        push_acc_mag();
    }
};

// Slot 5 reads "no run" while enabled and keeps its value otherwise; the
// corrected gyroscope slot stays zero; the cycle's sample record takes the
// light and proximity slots.
TEST_F(CycleTest, CalibrationSlotCorrectedGyroAndSampleRecord) {
    ready(0);
    cycle(1000000000LL);
    EXPECT_EQ(slot(kCalibrationStatus), kZero);
    svc().mEnabled.store(~((1U << kAirMouse) | (1U << kZoomInOut)));
    svc().fusion_data[kLight].report[0] = 120.0F;
    svc().fusion_data[kProximity].report[0] = 5.0F;
    cycle(1005000000LL);
    EXPECT_EQ(slot(kCalibrationStatus), (Triple{999.0F, 99.0F, 9.0F}));
    EXPECT_EQ(slot(kCorrectedGyro), kZero);
    const IMU& m = svc().imu;
    EXPECT_EQ(
        (std::vector<float>{m.acc_raw[2], m.mag_raw[0], m.gyro_raw[2], m.light[0], m.proximity[0]}),
        (std::vector<float>{9.75F, 21.0F, 0.5F, 120.0F, 5.0F}));
    EXPECT_EQ(svc().sfc_out_time_diff_us, 5000);
    svc().fusion_data[kCalibrationStatus].report[0] = 1.0F;
    svc().mEnabled.store(1U << kTap);
    cycle(1010000000LL);
    EXPECT_EQ(slot(kCalibrationStatus)[0], 1.0F);
}

TEST_F(CycleTest, FirstTenCyclesAfterAnEnablingCallAreLogged) {
    ready(1U << kTap);
    control_fusiond(kShake, 1);  // resets the count
    log.clear();
    for (int i = 0; i < 11; ++i) cycle(1000000000LL + i * 10000000LL);
    EXPECT_EQ(count_prefix("show_loge_count="), 10);
    EXPECT_EQ(log.count("show_loge_count=1\tacc=0.25\t-0.50\t9.75\tmag=21.00\t-3.50\t-40.25\t"
                        "gyro=0.12\t-0.06\t0.50\t"),
              1);
    EXPECT_EQ(count_prefix("show_loge_count=10\t"), 1);
    control_fusiond(kShake, 0);  // a disabling call does not reset it
    cycle(1200000000LL);
    EXPECT_EQ(count_prefix("show_loge_count="), 10);
}

}  // namespace
}  // namespace imu::test
