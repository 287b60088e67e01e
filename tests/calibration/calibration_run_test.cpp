// The calibration run: the collector's gate, the states and the reference
// flip, from a restart to the fit.

#include <gtest/gtest.h>

#include <cmath>
#include <string>
#include <vector>

#include "calibration/calibration_block.h"
#include "calibration/calibration_run.h"
#include "calibration/fitting.h"
#include "imu/calibration.h"
#include "support/calib_samples.h"
#include "support/temp_root.h"

namespace {

using imu::calibration_run;
using imu::test::CalibRun;
using imu::test::TempRoot;

constexpr const char* kRawFile = "/data/system/acc_mag_raw.txt";
constexpr double kDeg = M_PI / 180.0;

struct Direction {
    float matrix[9];
};

// The rotation matrix whose third column is the unit vector at polar angle
// theta (from +z) and azimuth phi, in degrees.
Direction direction(double theta_deg, double phi_deg) {
    const double t = theta_deg * kDeg;
    const double p = phi_deg * kDeg;
    const double v[3] = {std::sin(t) * std::cos(p), std::sin(t) * std::sin(p), std::cos(t)};
    Direction d{};
    imu::test::direction_matrix(v, 0.0, d.matrix);
    return d;
}

std::vector<float> reference() {
    const float* r = calibration_run().collect_reference;
    return {r[0], r[1], r[2]};
}

int update(const CalibRun& run, int i) {
    return sfc_update_sensor_calibration(&run.steps[i].imu, run.steps[i].matrix);
}

// ---- The collector's gate ----

struct GateCase {
    const char* name;
    double step_deg;  // angle from the reference (0, 0, 1)
    int result;
    const char* printed;
};

class CollectGate : public testing::TestWithParam<GateCase> {};

TEST_P(CollectGate, KeepsOnlyBoundedSteps) {
    const GateCase& c = GetParam();
    TempRoot root;
    const Direction d = direction(c.step_deg, 30.0);
    const IMU imu{};
    float ref[3] = {0.0F, 0.0F, 1.0F};
    testing::internal::CaptureStdout();
    EXPECT_EQ(imu::collect(&imu, d.matrix, ref), c.result);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), c.printed);
    const bool kept = c.result == 1;
    EXPECT_EQ(return_data_collect_counter(), c.result);
    EXPECT_EQ(root.exists(kRawFile), kept);
    const std::vector<float> expected_ref =
        kept ? std::vector<float>{d.matrix[2], d.matrix[5], d.matrix[8]}
             : std::vector<float>{0.0F, 0.0F, 1.0F};
    EXPECT_EQ(std::vector<float>(ref, ref + 3), expected_ref);
}

// Squared distances: 1 deg 0.0003, 2.9 deg 0.0026, 3.1 deg 0.0029,
// 10 deg 0.0304, 18 deg 0.0979, 18.5 deg 0.1034.
INSTANTIATE_TEST_SUITE_P(
    Steps, CollectGate,
    testing::Values(GateCase{"TooSmall", 1.0, 0, "+0.000\t   0\n"},
                    GateCase{"JustTooSmall", 2.9, 0, "+0.003\t   0\n"},
                    GateCase{"JustLargeEnough", 3.1, 1, "+0.003\t   1\n"},
                    GateCase{"Accepted", 10.0, 1, "+0.030\t   1\n"},
                    GateCase{"LargestKept", 18.0, 1, "+0.098\t   1\n"},
                    GateCase{"Refused", 18.5, 0, ""},
                    GateCase{"Opposite", 180.0, 0, ""}),
    [](const testing::TestParamInfo<GateCase>& info) { return std::string(info.param.name); });

TEST(CollectGate, NullPointersAreRefusedSilently) {
    const Direction d = direction(10.0, 0.0);
    const IMU imu{};
    float ref[3] = {0.0F, 0.0F, 1.0F};
    testing::internal::CaptureStdout();
    EXPECT_EQ(imu::collect(&imu, nullptr, ref), 0);
    EXPECT_EQ(imu::collect(nullptr, d.matrix, ref), 0);
    EXPECT_EQ(imu::collect(&imu, d.matrix, nullptr), 0);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
    EXPECT_EQ(return_data_collect_counter(), 0);
}

TEST(CollectGate, FailedRawWriteStillCountsTheSample) {
    TempRoot root;
    root.remove("/data/system");
    const IMU imu{};
    float ref[3] = {0.0F, 0.0F, 1.0F};
    testing::internal::CaptureStdout();
    EXPECT_EQ(imu::collect(&imu, direction(10.0, 0.0).matrix, ref), 1);
    EXPECT_EQ(imu::collect(&imu, direction(20.0, 0.0).matrix, ref), 2);
    testing::internal::GetCapturedStdout();
}

// ---- States ----

TEST(CalibrationRun, WithoutRestartBehavesAsAFreshRun) {
    TempRoot root;
    EXPECT_EQ(reference(), (std::vector<float>{0.0F, 0.0F, 1.0F}));
    const IMU imu{};
    testing::internal::CaptureStdout();
    EXPECT_EQ(sfc_update_sensor_calibration(&imu, direction(10.0, 0.0).matrix), 0);
    testing::internal::GetCapturedStdout();
    EXPECT_EQ(return_data_collect_counter(), 1);
}

TEST(CalibrationRun, NullSampleOffersNothing) {
    const IMU imu{};
    const Direction d = direction(10.0, 0.0);
    EXPECT_EQ(sfc_update_sensor_calibration(nullptr, d.matrix), 0);
    EXPECT_EQ(sfc_update_sensor_calibration(&imu, nullptr), 0);
    EXPECT_EQ(return_data_collect_counter(), 0);
}

// GIVEN a restart WHEN the 120th sample is kept THEN the state is 1 in that
// same update and the reference's z flips to -1, its x and y staying.
TEST(CalibrationRun, HundredTwentiethSampleFlipsTheReference) {
    TempRoot root;
    const CalibRun run = imu::test::make_calib_run();
    EXPECT_EQ(init_zarncalibrator(), 0);
    testing::internal::CaptureStdout();
    for (int i = 0; i < 119; ++i) {
        ASSERT_EQ(update(run, i), 0) << "sample " << i;
    }
    EXPECT_EQ(return_data_collect_counter(), 119);
    EXPECT_EQ(update(run, 119), 1);
    testing::internal::GetCapturedStdout();
    EXPECT_EQ(return_data_collect_counter(), 120);
    const float* last = run.steps[119].matrix;
    EXPECT_EQ(reference(), (std::vector<float>{last[2], last[5], -1.0F}));
}

struct EndCase {
    const char* name;
    bool scatter_acc;
    bool scatter_mag;
    int state;
};

class RunEnd : public testing::TestWithParam<EndCase> {};

// GIVEN a restart and the 240 samples of a synthetic run
// THEN the 240th sample leaves the state at 2, the next update fits, and
// the state holds the fit's result until the next restart.
TEST_P(RunEnd, FitRunsInTheUpdateAfterTheLastSample) {
    const EndCase& c = GetParam();
    TempRoot root;
    CalibRun run = imu::test::make_calib_run();
    for (int i = 100; i < imu::kCalibSamples; ++i) {
        const float f = 0.3F + 1.4F * static_cast<float>(i * 37 % 100) / 100.0F;
        for (int k = 0; k < 3; ++k) {
            run.steps[i].imu.acc_raw[k] *= c.scatter_acc ? f : 1.0F;
            run.steps[i].imu.mag_raw[k] *= c.scatter_mag ? f : 1.0F;
        }
    }
    root.write(kRawFile, "a line of the last run\n");
    init_zarncalibrator();
    testing::internal::CaptureStdout();
    for (int i = 0; i < imu::kCalibSamples - 1; ++i) {
        ASSERT_EQ(update(run, i), i < imu::kFirstHalf - 1 ? 0 : 1) << "sample " << i;
    }
    EXPECT_EQ(update(run, imu::kCalibSamples - 1), 2);
    EXPECT_EQ(root.read(kRawFile), imu::test::raw_file_text(run));
    EXPECT_EQ(imu::calibration_state().s_calib2[imu::kAccOffset], 0.0F);

    EXPECT_EQ(update(run, 0), c.state);  // the fit; this sample is not offered
    EXPECT_EQ(update(run, 1), c.state);
    testing::internal::GetCapturedStdout();
    EXPECT_EQ(return_data_collect_counter(), imu::kRunSamples);
    EXPECT_NE(imu::calibration_state().s_calib2[imu::kAccOffset], 0.0F);
    EXPECT_NE(root.read("/data/system/velmoGR.ini"), "<missing>");

    // A restart takes effect at the next update, from any state.
    init_zarncalibrator();
    EXPECT_EQ(return_data_collect_counter(), imu::kRunSamples);
    testing::internal::CaptureStdout();
    EXPECT_EQ(update(run, 0), 0);
    testing::internal::GetCapturedStdout();
    EXPECT_EQ(return_data_collect_counter(), 1);
    EXPECT_EQ(root.read(kRawFile), imu::test::raw_file_text(CalibRun{{run.steps[0]}, 0.0}));
}

INSTANTIATE_TEST_SUITE_P(Results, RunEnd,
                         testing::Values(EndCase{"BothAccepted", false, false, 3},
                                         EndCase{"AccelerometerRejected", true, false, -1},
                                         EndCase{"MagnetometerRejected", false, true, -2},
                                         EndCase{"BothRejected", true, true, -3}),
                         [](const testing::TestParamInfo<EndCase>& info) {
                             return std::string(info.param.name);
                         });

// A first half that ends at (0.9, 0, 0.436) leaves the reference at
// (0.9, 0, -1): no unit direction comes within 0.1 of it (the nearest is
// 0.119 away), so the run is stuck until it is restarted.
TEST(CalibrationRun, SecondHalfFromAFarReferenceIsStuckUntilRestart) {
    TempRoot root;
    const double last = std::asin(0.9) / kDeg;  // 64.16 deg
    const IMU imu{};
    init_zarncalibrator();
    testing::internal::CaptureStdout();
    int state = 0;
    for (int i = 0; i < imu::kFirstHalf; ++i) {
        // Out along the meridian in 8 deg steps, then to and fro.
        const double theta = i < 8 ? 8.0 * (i + 1) : last - 8.0 * ((imu::kFirstHalf - 1 - i) % 2);
        state = sfc_update_sensor_calibration(&imu, direction(i == 119 ? last : theta, 0).matrix);
    }
    testing::internal::GetCapturedStdout();
    ASSERT_EQ(state, 1);
    ASSERT_EQ(return_data_collect_counter(), imu::kFirstHalf);
    EXPECT_NEAR(reference()[0], 0.9F, 1e-6);

    testing::internal::CaptureStdout();
    for (double theta = 0; theta <= 180; theta += 2.5) {
        for (double phi = 0; phi < 360; phi += 5) {
            EXPECT_EQ(sfc_update_sensor_calibration(&imu, direction(theta, phi).matrix), 1);
        }
    }
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "");  // refused silently
    EXPECT_EQ(return_data_collect_counter(), imu::kFirstHalf);

    init_zarncalibrator();
    testing::internal::CaptureStdout();
    EXPECT_EQ(sfc_update_sensor_calibration(&imu, direction(10.0, 0).matrix), 0);
    testing::internal::GetCapturedStdout();
    EXPECT_EQ(return_data_collect_counter(), 1);
}

}  // namespace
