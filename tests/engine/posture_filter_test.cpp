// The posture filter's update step: initialisation, the fusion modes, the
// corrections' special cases and the not-a-number recovery.

#include "engine/posture_filter.h"

#include <cmath>
#include <cstring>

#include "engine/fusion_engine.h"
#include "engine_fixture.h"

namespace {

using imu::test::EngineTest;

constexpr std::int32_t k5ms = 5000000;

IMU sample(float ax, float ay, float az, float mx, float my, float mz) {
    IMU s{};
    const float acc[3] = {ax, ay, az};
    const float mag[3] = {mx, my, mz};
    for (int i = 0; i < 3; ++i) {
        s.acc_raw[i] = acc[i];
        s.mag_raw[i] = mag[i];
    }
    return s;
}

// Flat, face up, still, top edge to magnetic north.
IMU flat_north() { return sample(0, 0, 9.8066F, 0, 20, -40); }

float yaw_deg(const float* q) {
    return static_cast<float>(std::atan2(2.0 * (q[1] * q[2] + q[0] * q[3]),
                                         q[0] * q[0] + q[1] * q[1] - q[2] * q[2] - q[3] * q[3]) *
                              imu::kDegPerRad);
}

void expect_all_zero(const float* v, int n, const char* what) {
    for (int i = 0; i < n; ++i) {
        EXPECT_EQ(v[i], 0.0F) << what << "[" << i << "]";
    }
}

TEST_F(EngineTest, FirstUpdateInitialisesAndLeavesOutputsZero) {
    IMU s = flat_north();
    EXPECT_EQ(sfc_update_posture(&s, k5ms), 1);
    const auto& f = imu::engine().filter;
    EXPECT_EQ(f.reinit_pending, 0);
    expect_all_zero(f.output_quat, 4, "output_quat");
    expect_all_zero(&f.out.euler[0], 29, "output block");
    EXPECT_EQ(f.covariance[0], 1.0F) << "the covariance keeps its identity";
}

struct InitCase {
    const char* name;
    IMU s;
    float q[4];  // expected state, filter frame
    float yaw;   // degrees
};

// Flat and north gives the identity; turned east gives yaw 90; raised and
// rolled samples give the quaternion of their angles.
TEST_F(EngineTest, InitialisationFromAccelerometerAndField) {
    const float h = std::sqrt(0.5F);
    const InitCase cases[] = {
        {"north", flat_north(), {1, 0, 0, 0}, 0},
        {"east", sample(0, 0, 9.8066F, -20, 0, -40), {h, 0, 0, h}, 90},
        {"west", sample(0, 0, 9.8066F, 20, 0, -40), {h, 0, 0, -h}, -90},
    };
    for (const InitCase& c : cases) {
        sfc_re_initialize();
        IMU s = c.s;
        ASSERT_EQ(sfc_update_posture(&s, k5ms), 1) << c.name;
        const float* q = imu::engine().filter.state_quat;
        for (int i = 0; i < 4; ++i) {
            EXPECT_NEAR(q[i], c.q[i], 1e-6F) << c.name << " q" << i;
        }
        EXPECT_NEAR(yaw_deg(q), c.yaw, 1e-4F) << c.name;
    }
}

// A phone face down (a2 < 0) rolls beyond 90 deg: phi0 = pi - asin(..).
// Face down with its top edge north, the filter x axis points west and its
// z axis up: half a turn about the filter y axis, q = (0, 0, +-1, 0).
TEST_F(EngineTest, InitialisationFaceDownTurnsHalfAboutY) {
    IMU s = sample(0, 0, -9.8066F, 0, 20, 40);
    ASSERT_EQ(sfc_update_posture(&s, k5ms), 1);
    const float* q = imu::engine().filter.state_quat;
    EXPECT_NEAR(std::fabs(q[2]), 1.0F, 1e-6F);
}

struct ModeCase {
    std::int32_t mode;
    int result;  // of a filtering update with an all-zero field
};

class FusionMode : public EngineTest, public testing::WithParamInterface<ModeCase> {};

// Modes 0, 3 and 4 refuse an update without a field and leave the
// published quaternion as it was; every other mode filters.
TEST_P(FusionMode, MissingFieldBlocksOnlyModesZeroThreeFour) {
    IMU s = flat_north();
    sfc_update_posture(&s, k5ms);
    s = flat_north();
    sfc_update_posture(&s, k5ms);
    float before[4];
    std::memcpy(before, imu::engine().filter.output_quat, sizeof before);

    const std::int32_t mode = GetParam().mode;
    set_fusion_mode(&mode);
    EXPECT_EQ(sfc_get_fusion_mode(), mode);
    IMU blank = sample(0, 0, 9.8066F, 0, 0, 0);
    blank.mag_raw[1] = 9e-7F;  // below 1e-6 counts as zero
    EXPECT_EQ(sfc_update_posture(&blank, k5ms), GetParam().result);
    if (GetParam().result == 1) {
        EXPECT_EQ(std::memcmp(before, imu::engine().filter.output_quat, sizeof before), 0);
    } else {
        EXPECT_EQ(imu::engine().filter.output_valid, 1) << "the heading correction is skipped";
    }
}

INSTANTIATE_TEST_SUITE_P(Modes, FusionMode,
                         testing::Values(ModeCase{0, 1}, ModeCase{1, 0}, ModeCase{2, 0},
                                         ModeCase{3, 1}, ModeCase{4, 1}, ModeCase{5, 0},
                                         ModeCase{-1, 0}),
                         [](const testing::TestParamInfo<ModeCase>& info) {
                             return "Mode" + std::to_string(info.index);
                         });

// A field of 1e-6 in one component is present.
TEST_F(EngineTest, FieldAtThresholdIsPresent) {
    IMU s = flat_north();
    sfc_update_posture(&s, k5ms);
    IMU weak = sample(0, 0, 9.8066F, 0, 1e-6F, 0);
    EXPECT_EQ(sfc_update_posture(&weak, k5ms), 0);
}

// dt = 0 makes Phi = I: however fast the gyroscope, the prediction is the
// state itself, while the accelerometer correction still pulls the tilt.
TEST_F(EngineTest, ZeroIntervalPredictsNothingButStillCorrects) {
    IMU s = flat_north();
    sfc_update_posture(&s, k5ms);
    IMU spin = flat_north();
    spin.gyro_raw[2] = 3.0F;
    ASSERT_EQ(sfc_update_posture(&spin, 0), 0);
    EXPECT_NEAR(imu::engine().filter.output_quat[0], 1.0F, 1e-6F) << "no rotation";

    IMU tilted = sample(0, 4.9033F, 8.4928F, 0, 20, -40);  // top edge raised by 30 deg
    ASSERT_EQ(sfc_update_posture(&tilted, 0), 0);
    EXPECT_GT(std::fabs(imu::engine().filter.output_quat[1]), 0.01F) << "tilt corrected";
}

// With the filter x axis near vertical (|a1|, |a2| < 0.15) the measured y
// component is multiplied by a2^2 before the correction, and the linear
// acceleration uses the altered component.
TEST(AccelerometerCorrection, NearVerticalXAxisAttenuatesY) {
    float a[3] = {1.0F, 0.1F, 0.1F};
    float q[4] = {std::sqrt(0.5F), 0, -std::sqrt(0.5F), 0};  // filter x axis down
    float p[16] = {};
    imu::correct_accelerometer(q, p, a);
    const float n = std::sqrt(1.02F);
    EXPECT_FLOAT_EQ(a[0], 1.0F / n);
    EXPECT_FLOAT_EQ(a[1], (0.1F / n) * (0.1F / n) * (0.1F / n));
    EXPECT_FLOAT_EQ(a[2], 0.1F / n);

    imu::PostureFilter f;
    f.reinit_pending = 0;
    std::memcpy(f.state_quat, q, sizeof q);
    float a2[3] = {1.0F, 0.1F, 0.1F};
    const float m[3] = {0, 0, 0};
    const float w[3] = {0, 0, 0};
    ASSERT_TRUE(f.filter(a2, m, w, 0.005F, false));
    EXPECT_EQ(f.out.linear_acc[1], f.out.gravity[1] - a2[1]);
    EXPECT_FLOAT_EQ(a2[1], a[1]);
}

// At the other side of the limit nothing is attenuated.
TEST(AccelerometerCorrection, TiltAtLimitKeepsY) {
    float a[3] = {0.0F, 0.15F, 0.1F};
    float q[4] = {1, 0, 0, 0};
    float p[16] = {};
    imu::correct_accelerometer(q, p, a);
    EXPECT_GT(a[1], 0.8F);
}

// A singular innovation covariance skips the correction: q is only
// normalised and P is unchanged. With q = identity, H P H^T = 4 c I, so
// c = -1e-4 / 4 makes S exactly zero.
TEST(AccelerometerCorrection, SingularInnovationSkipsCorrection) {
    float q[4] = {2, 0, 0, 0};
    float p[16] = {};
    for (int i = 0; i < 4; ++i) {
        p[i * 5] = -imu::kAccNoise / 4.0F;
    }
    float a[3] = {0.3F, 0.2F, 0.9F};
    float p_before[16];
    std::memcpy(p_before, p, sizeof p);
    q[0] = 1.0F;
    imu::correct_accelerometer(q, p, a);
    EXPECT_EQ(q[0], 1.0F);
    EXPECT_EQ(q[1], 0.0F);
    EXPECT_EQ(std::memcmp(p, p_before, sizeof p), 0);
}

// Pitch within about 1.1 deg of +-90 deg: no heading correction at all.
TEST(HeadingCorrection, SkippedNearVerticalPitch) {
    const float s = std::sqrt(0.5F);
    const struct {
        float q[4];
        bool corrected;
    } cases[] = {
        {{s, 0, s, 0}, false},  // |q1q3 - q0q2| = 0.5
        {{0.72F, 0, 0.69F, 0}, true},
    };
    for (const auto& c : cases) {
        float q[4];
        std::memcpy(q, c.q, sizeof q);
        float p[16] = {1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1};
        const float m[3] = {5, -20, 40};
        imu::correct_heading(q, p, m);
        EXPECT_EQ(std::memcmp(q, c.q, sizeof q) != 0, c.corrected) << c.q[0];
        EXPECT_EQ(p[15] != 1.0F, c.corrected);
    }
}

// The innovation is wrapped: yaw -175 deg against a measured -175 deg
// heading on the far side (innovation 350 deg) moves by -10 deg, not +350.
// For a pure yaw with P = I the step turns yaw by 2 atan(y / 2.00015).
TEST(HeadingCorrection, WrapsInnovationAcrossHalfTurn) {
    const double psi = -175.0 * imu::sim::kDegToRad;
    float q[4] = {static_cast<float>(std::cos(psi / 2)), 0, 0,
                  static_cast<float>(std::sin(psi / 2))};
    float p[16] = {1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1};
    // At zero tilt psi_m = atan2(m0, -m1); psi_m = -175 deg gives -psi_m - psi = 350 deg.
    const double psi_m = -175.0 * imu::sim::kDegToRad;
    const float m[3] = {static_cast<float>(std::sin(psi_m)), -static_cast<float>(std::cos(psi_m)),
                        0.0F};
    imu::correct_heading(q, p, m);
    const double expected =
        -175.0 + 2.0 * std::atan(-10.0 * imu::sim::kDegToRad / 2.00015) / imu::sim::kDegToRad;
    EXPECT_NEAR(std::remainder(yaw_deg(q) - expected, 360.0), 0.0, 0.01);
}

// A zero field (modes 1, 2) has no direction: the heading is not corrected.
TEST(HeadingCorrection, SkippedForZeroField) {
    float q[4] = {1, 0, 0, 0};
    float p[16] = {1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1};
    const float m[3] = {0, 0, 0};
    imu::correct_heading(q, p, m);
    EXPECT_EQ(q[0], 1.0F);
    EXPECT_EQ(p[0], 1.0F);
}

// qal_ForceNAN: the next filtering update logs the two recovery lines,
// returns 0 and leaves the output invalid and zero; the next initialises;
// the one after filters with valid output again.
TEST_F(EngineTest, ForcedNotANumberRecoversInThreeUpdates) {
    IMU s = flat_north();
    sfc_update_posture(&s, k5ms);
    s = flat_north();
    ASSERT_EQ(sfc_update_posture(&s, k5ms), 0);
    EXPECT_EQ(qal_ForceNAN(), 0);
    EXPECT_EQ(qal_ForceNAN_flag, 1);
    log_.clear();

    s = flat_north();
    EXPECT_EQ(sfc_update_posture(&s, k5ms), 0);
    EXPECT_EQ(qal_ForceNAN_flag, 0);
    const auto& f = imu::engine().filter;
    EXPECT_EQ(f.output_valid, 0);
    EXPECT_EQ(f.reinit_pending, 1);
    expect_all_zero(&f.out.euler[0], 29, "output block");
    expect_all_zero(f.covariance, 16, "covariance");
    const auto lines = log_.texts();
    ASSERT_EQ(lines.size(), 2U);
    EXPECT_EQ(lines[0], "ORI NAN Start ReInitial\n");
    EXPECT_EQ(lines[1],
              "DT:0.005000,ax:0.000000,0.000000,9.806600,mx:0.000000,20.000000,-40.000000,"
              "gx:0.000000,0.000000,0.000000\n");

    s = flat_north();
    EXPECT_EQ(sfc_update_posture(&s, k5ms), 1);
    EXPECT_EQ(f.output_valid, 0) << "initialisation does not change validity";
    s = flat_north();
    EXPECT_EQ(sfc_update_posture(&s, k5ms), 0);
    EXPECT_EQ(f.output_valid, 1);
}

// The hook waits for a filtering update: a pending initialisation keeps it.
TEST_F(EngineTest, ForcedNotANumberWaitsForFilteringUpdate) {
    qal_ForceNAN();
    IMU s = flat_north();
    EXPECT_EQ(sfc_update_posture(&s, k5ms), 1);
    EXPECT_EQ(qal_ForceNAN_flag, 1);
}

// Re-initialising keeps the previous rate matrix, the mode and validity,
// and clears the centre yaw with the output block.
TEST_F(EngineTest, ReinitialiseKeepsRateModeAndValidity) {
    IMU s = flat_north();
    sfc_update_posture(&s, k5ms);
    s = flat_north();
    s.gyro_raw[0] = 1.0F;
    sfc_update_posture(&s, k5ms);
    sfc_set_fusion_mode(7);
    sfc_set_center_yaw_angle(12.5F);
    EXPECT_EQ(imu::engine().filter.out.centre_yaw, 12.5F);

    EXPECT_EQ(sfc_re_initialize(), 0);
    const auto& f = imu::engine().filter;
    EXPECT_EQ(f.prev_omega[4], 0.5F) << "row 1, column 0 holds w0 / 2";
    EXPECT_EQ(sfc_get_fusion_mode(), 7);
    EXPECT_EQ(f.output_valid, 1);
    EXPECT_EQ(f.out.centre_yaw, 0.0F);
    EXPECT_EQ(f.reinit_pending, 1);
}

// The first update logs the version lines once and creates the
// calibration file.
TEST_F(EngineTest, FirstUpdateLogsVersionOnceAndCreatesCalibrationFile) {
    IMU s = flat_north();
    sfc_update_posture(&s, k5ms);
    sfc_update_posture(&s, k5ms);
    const auto lines = log_.lines();
    ASSERT_EQ(lines.size(), 2U);
    EXPECT_EQ(lines[0].text, "Version: 1.2.2");
    EXPECT_EQ(lines[0].prio, 6);
    EXPECT_EQ(lines[0].tag, "VLM_SFC");
    EXPECT_EQ(lines[1].text.rfind("Build Date: ", 0), 0U);
    EXPECT_TRUE(root_.exists("/data/system/velmoGR.ini"));
}

// run_library builds the record from nine floats and hands microseconds
// times 1000 to the update: 10000 us shows as dt 0.01 s in the recovery log.
TEST_F(EngineTest, RunLibraryPassesNanoseconds) {
    const float nine[9] = {0, 0, 9.8066F, 0.1F, 0, 0, 0, 20, -40};
    EXPECT_EQ(run_library(nine, 10000), 1);
    EXPECT_EQ(run_library(nine, 10000), 0);
    qal_ForceNAN();
    log_.clear();
    EXPECT_EQ(run_library(nine, 10000), 0);
    ASSERT_EQ(log_.texts().size(), 2U);
    EXPECT_EQ(log_.texts()[1].rfind("DT:0.010000,ax:0.000000,0.000000,9.806600,", 0), 0U);
}

// A sample path update allocates nothing once the first update has run.
TEST_F(EngineTest, UpdateAndOutputDoNotAllocate) {
    const auto model = imu::test::quiet_phone();
    const auto samples =
        imu::sim::record(imu::sim::Trajectory().hold(0.5).turn({1, 1, 0}, 1.0, 1.0), model);
    IMU s = imu::sim::to_imu(samples[0]);
    sfc_update_posture(&s, k5ms);
    SFC_OUT out{};
    float heading[3] = {};
    const imu::test::NoAllocScope scope;
    for (const auto& smp : samples) {
        s = imu::sim::to_imu(smp);
        sfc_update_posture(&s, k5ms);
        sfc_get_sfc_out(&out);
        sfc_get_compass_heading(heading);
    }
    EXPECT_EQ(scope.allocations(), 0U);
}

}  // namespace

namespace {

struct CalibFile {
    const char* name;
    const char* content;  // nullptr: no file
};

class CalibrationFileContents : public imu::test::EngineTest,
                                public testing::WithParamInterface<CalibFile> {};

// Whatever the calibration file holds, the first update initialises, the
// second filters, and the output is a valid orientation.
TEST_P(CalibrationFileContents, UpdatesRunOnAnyFile) {
    if (GetParam().content != nullptr) {
        root_.write("/data/system/velmoGR.ini", GetParam().content);
    }
    IMU s = flat_north();
    EXPECT_EQ(sfc_update_posture(&s, k5ms), 1);
    s = flat_north();
    EXPECT_EQ(sfc_update_posture(&s, k5ms), 0);
    float q[4] = {};
    ASSERT_EQ(sfc_get_quaternion(q), 0);
    EXPECT_TRUE(std::isfinite(q[0]) && std::isfinite(q[1]) && std::isfinite(q[2]));
    EXPECT_GT(q[3], 0.9F);
}

INSTANTIATE_TEST_SUITE_P(Files, CalibrationFileContents,
                         testing::Values(CalibFile{"Missing", nullptr}, CalibFile{"Empty", ""},
                                         CalibFile{"Truncated", "0.1 0.2"},
                                         CalibFile{"Garbage", "abc def\n"},
                                         CalibFile{"Huge", "1e99 1e99 1e99 1e99 1e99 1e99 1e99\n"},
                                         CalibFile{"Binary", "\x01\x02\xff\n"}),
                         [](const testing::TestParamInfo<CalibFile>& info) {
                             return std::string(info.param.name);
                         });

}  // namespace
