// The posture filter's update step: initialisation, the fusion modes, the
// corrections' special cases and the not-a-number recovery.

#include "engine/posture_filter.h"

#include <cmath>
#include <cstring>
#include <string>
#include <vector>

#include "engine/fusion_engine.h"
#include "engine_fixture.h"

namespace {

using imu::test::EngineTest;

const float kIdentity[16] = {1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1};

IMU sample(float ax, float ay, float az, float mx, float my, float mz) {
    IMU s{};
    const float v[6] = {ax, ay, az, mx, my, mz};
    std::memcpy(s.acc_raw, v, sizeof s.acc_raw);
    std::memcpy(s.mag_raw, v + 3, sizeof s.mag_raw);
    return s;
}

// Flat, face up, still, top edge to magnetic north.
IMU flat_north() { return sample(0, 0, 9.8066F, 0, 20, -40); }

int update(IMU s, std::int32_t dt = 5000000) { return sfc_update_posture(&s, dt); }

const imu::PostureFilter& filter() { return imu::engine().filter; }

// The first update logs the version once, creates the calibration file,
// initialises and leaves the outputs zero.
TEST_F(EngineTest, FirstUpdateInitialises) {
    EXPECT_EQ(update(flat_north()), 1);
    EXPECT_EQ(filter().reinit_pending, 0);
    for (int i = 0; i < 29; ++i) {
        ASSERT_EQ((&filter().out.euler[0])[i], 0.0F) << "output block " << i;
    }
    update(flat_north());
    const auto lines = log_.lines();
    ASSERT_EQ(lines.size(), 2U);
    EXPECT_EQ(lines[0].text, "Version: 1.2.2");
    EXPECT_TRUE(lines[0].prio == 6 && lines[0].tag == "VLM_SFC");
    EXPECT_EQ(lines[1].text.rfind("Build Date: ", 0), 0U);
    EXPECT_TRUE(root_.exists("/data/system/velmoGR.ini"));
}

// North gives the identity, east yaw 90, west -90; face down (a2 < 0) rolls
// beyond 90 deg: half a turn about the filter y axis.
TEST_F(EngineTest, InitialisationFromAccelerometerAndField) {
    const float h = std::sqrt(0.5F);
    const struct {
        IMU s;
        float q[4];  // filter frame; compared in magnitude for face down
    } cases[] = {{flat_north(), {1, 0, 0, 0}}, {sample(0, 0, 9.8066F, -20, 0, -40), {h, 0, 0, h}},
                 {sample(0, 0, 9.8066F, 20, 0, -40), {h, 0, 0, -h}},
                 {sample(0, 0, -9.8066F, 0, 20, 40), {0, 0, 1, 0}}};
    for (const auto& c : cases) {
        sfc_re_initialize();
        ASSERT_EQ(update(c.s), 1);
        const float* q = filter().state_quat;
        for (int i = 0; i < 4; ++i) {
            EXPECT_NEAR(c.q[0] == 0 ? std::fabs(q[i]) : q[i], c.q[i], 1e-6F) << &c - cases << i;
        }
    }
}

class FusionMode : public EngineTest, public testing::WithParamInterface<std::pair<int, int>> {};

// Modes 0, 3, 4 refuse an update without a field (below 1e-6) and keep the
// published quaternion; the others filter without heading correction.
TEST_P(FusionMode, MissingFieldBlocksOnlyModesZeroThreeFour) {
    const auto [mode, result] = GetParam();
    update(flat_north());
    update(flat_north());
    float before[4];
    std::memcpy(before, filter().output_quat, sizeof before);
    const std::int32_t m = mode;
    set_fusion_mode(&m);
    EXPECT_EQ(sfc_get_fusion_mode(), mode);
    EXPECT_EQ(update(sample(0, 0, 9.8066F, 0, 9e-7F, 0)), result);
    if (result == 1) {
        EXPECT_EQ(std::memcmp(before, filter().output_quat, sizeof before), 0);
    }
    EXPECT_EQ(update(sample(0, 0, 9.8066F, 0, 1e-6F, 0)), 0) << "1e-6 is present";
}

INSTANTIATE_TEST_SUITE_P(Modes, FusionMode,
                         testing::Values(std::pair{0, 1}, std::pair{1, 0}, std::pair{2, 0},
                                         std::pair{3, 1}, std::pair{4, 1}, std::pair{5, 0},
                                         std::pair{-1, 0}));

// dt = 0 predicts nothing however fast the gyroscope, but still corrects tilt.
TEST_F(EngineTest, ZeroIntervalPredictsNothingButStillCorrects) {
    update(flat_north());
    IMU spin = flat_north();
    spin.gyro_raw[2] = 3.0F;
    ASSERT_EQ(update(spin, 0), 0);
    EXPECT_NEAR(filter().output_quat[0], 1.0F, 1e-6F);
    ASSERT_EQ(update(sample(0, 4.9033F, 8.4928F, 0, 20, -40), 0), 0);  // top raised 30 deg
    EXPECT_GT(std::fabs(filter().output_quat[1]), 0.01F);
}

// With the filter x axis near vertical (|a1|, |a2| < 0.15) the measured y
// is multiplied by a2^2, and the linear acceleration uses the altered y;
// at 0.15 nothing is attenuated.
TEST(AccelerometerCorrection, NearVerticalXAxisAttenuatesY) {
    float q[4] = {std::sqrt(0.5F), 0, -std::sqrt(0.5F), 0};  // filter x axis down
    float p[16] = {};
    imu::PostureFilter f;
    f.reinit_pending = 0;
    std::memcpy(f.state_quat, q, sizeof q);
    float a[3] = {1.0F, 0.1F, 0.1F};
    const float zero[3] = {0, 0, 0};
    ASSERT_TRUE(f.filter(a, zero, zero, 0.005F, false));
    const float n = std::sqrt(1.02F);
    EXPECT_FLOAT_EQ(a[0], 1.0F / n);
    EXPECT_FLOAT_EQ(a[1], (0.1F / n) * (0.1F / n) * (0.1F / n));
    EXPECT_EQ(f.out.linear_acc[1], f.out.gravity[1] - a[1]);
    float limit[3] = {0.0F, 0.15F, 0.1F};
    float q1[4] = {1, 0, 0, 0};
    imu::correct_accelerometer(q1, p, limit);
    EXPECT_GT(limit[1], 0.8F);
}

// A singular innovation covariance (H P H^T = 4 c I with c = -1e-4 / 4)
// skips the correction: q only normalised, P unchanged.
TEST(AccelerometerCorrection, SingularInnovationSkipsCorrection) {
    float q[4] = {1, 0, 0, 0};
    float p[16] = {};
    for (int i = 0; i < 4; ++i) {
        p[i * 5] = -imu::kAccNoise / 4.0F;
    }
    float a[3] = {0.3F, 0.2F, 0.9F};
    imu::correct_accelerometer(q, p, a);
    for (int i = 0; i < 16; ++i) {
        EXPECT_EQ(p[i], i % 5 == 0 ? -imu::kAccNoise / 4.0F : 0.0F) << i;
    }
    EXPECT_TRUE(q[0] == 1.0F && q[1] == 0.0F);
}

// No heading correction within about 1.1 deg of +-90 deg pitch, nor for a
// zero field (modes 1, 2).
TEST(HeadingCorrection, SkippedNearVerticalPitchAndForZeroField) {
    const float s = std::sqrt(0.5F);
    const struct {
        float q[4];
        float m[3];
        bool corrected;
    } cases[] = {{{s, 0, s, 0}, {5, -20, 40}, false},
                 {{0.72F, 0, 0.69F, 0}, {5, -20, 40}, true},
                 {{1, 0, 0, 0}, {0, 0, 0}, false}};
    for (const auto& c : cases) {
        float q[4];
        float p[16];
        std::memcpy(q, c.q, sizeof q);
        std::memcpy(p, kIdentity, sizeof p);
        imu::correct_heading(q, p, c.m);
        EXPECT_EQ(std::memcmp(q, c.q, sizeof q) != 0, c.corrected) << &c - cases;
        EXPECT_EQ(std::memcmp(p, kIdentity, sizeof p) != 0, c.corrected) << &c - cases;
    }
}

// qal_ForceNAN waits for a filtering update, which then logs the two
// recovery lines, returns 0 with the output invalid and zero; the next
// update initialises and the one after filters with valid output.
// run_library hands microseconds times 1000 to the update (DT in the log).
TEST_F(EngineTest, ForcedNotANumberRecoversInThreeUpdates) {
    EXPECT_EQ(qal_ForceNAN(), 0);
    EXPECT_EQ(update(flat_north()), 1);
    EXPECT_EQ(qal_ForceNAN_flag, 1) << "an initialisation keeps it pending";
    log_.clear();
    const float nine[9] = {0, 0, 9.8066F, 0, 0, 0, 0, 20, -40};
    EXPECT_EQ(run_library(nine, 5000), 0);
    EXPECT_EQ(qal_ForceNAN_flag, 0);
    EXPECT_TRUE(filter().output_valid == 0 && filter().reinit_pending == 1);
    for (int i = 0; i < 16; ++i) {
        ASSERT_EQ(filter().covariance[i], 0.0F) << i;
    }
    EXPECT_EQ(log_.texts(),
              (std::vector<std::string>{"ORI NAN Start ReInitial\n",
                                        "DT:0.005000,ax:0.000000,0.000000,9.806600,mx:0.000000,"
                                        "20.000000,-40.000000,gx:0.000000,0.000000,0.000000\n"}));
    EXPECT_EQ(update(flat_north()), 1);
    EXPECT_EQ(filter().output_valid, 0) << "initialisation does not change validity";
    EXPECT_EQ(update(flat_north()), 0);
    EXPECT_EQ(filter().output_valid, 1);
}

// Re-initialising keeps the rate matrix, the mode and validity, and clears
// the centre yaw with the output block.
TEST_F(EngineTest, ReinitialiseKeepsRateModeAndValidity) {
    update(flat_north());
    IMU s = flat_north();
    s.gyro_raw[0] = 1.0F;
    update(s);
    sfc_set_fusion_mode(7);
    sfc_set_center_yaw_angle(12.5F);
    EXPECT_EQ(filter().out.centre_yaw, 12.5F);
    EXPECT_EQ(sfc_re_initialize(), 0);
    EXPECT_EQ(filter().prev_omega[4], 0.5F) << "row 1, column 0 holds w0 / 2";
    EXPECT_TRUE(sfc_get_fusion_mode() == 7 && filter().output_valid == 1);
    EXPECT_TRUE(filter().out.centre_yaw == 0.0F && filter().reinit_pending == 1);
}

// After the first update the sample path and the outputs allocate nothing.
TEST_F(EngineTest, UpdateAndOutputDoNotAllocate) {
    const auto samples = imu::sim::record(
        imu::sim::Trajectory().hold(0.5).turn({1, 1, 0}, 1.0, 1.0), imu::test::quiet_phone());
    update(imu::sim::to_imu(samples[0]));
    SFC_OUT out{};
    float heading[3] = {};
    const imu::test::NoAllocScope scope;
    for (const auto& smp : samples) {
        update(imu::sim::to_imu(smp));
        sfc_get_sfc_out(&out);
        sfc_get_compass_heading(heading);
    }
    EXPECT_EQ(scope.allocations(), 0U);
}

class CalibrationFileContents : public EngineTest,
                                public testing::WithParamInterface<const char*> {};

// Whatever the calibration file holds (nullptr: no file), the updates run
// and the output is a valid orientation.
TEST_P(CalibrationFileContents, UpdatesRunOnAnyFile) {
    if (GetParam() != nullptr) {
        root_.write("/data/system/velmoGR.ini", GetParam());
    }
    EXPECT_EQ(update(flat_north()), 1);
    EXPECT_EQ(update(flat_north()), 0);
    float q[4] = {};
    ASSERT_EQ(sfc_get_quaternion(q), 0);
    EXPECT_TRUE(std::isfinite(q[0]) && std::isfinite(q[1]) && std::isfinite(q[2]));
    EXPECT_GT(q[3], 0.9F);
}

INSTANTIATE_TEST_SUITE_P(Files, CalibrationFileContents,
                         testing::Values(nullptr, "", "0.1 0.2", "abc def\n",
                                         "1e99 1e99 1e99 1e99 1e99 1e99 1e99\n", "\x01\x02\xff\n"));

}  // namespace
