// The ellipsoid and sphere fits of a calibration run.

#include <gtest/gtest.h>

#include <cerrno>
#include <climits>
#include <cmath>
#include <cstdint>
#include <regex>
#include <string>

#include "calibration/calibration_block.h"
#include "calibration/fitting.h"
#include "imu/calibration.h"
#include "support/calib_samples.h"
#include "support/log_capture.h"
#include "support/temp_root.h"

namespace {

using imu::calibrator_workspace;
using imu::test::CalibRun;
using imu::test::CalibRunSpec;
using imu::test::LogCapture;
using imu::test::TempRoot;

constexpr const char* kRawFile = "/data/system/acc_mag_raw.txt";
constexpr double kTolerance = 0.02;  // of the radius for offsets, relative for scales

const float* block() {
    return imu::calibration_state().s_calib2;
}

struct Fit {
    int result;
    std::string out;
};

Fit run_fit(const TempRoot& root, const std::string& raw) {
    root.write(kRawFile, raw);
    testing::internal::CaptureStdout();
    const int result = imu::calculate_bias();
    return {result, testing::internal::GetCapturedStdout()};
}

[[maybe_unused]] int count(const std::string& text, const std::string& what) {
    int n = 0;
    for (auto at = text.find(what); at != std::string::npos; at = text.find(what, at + 1)) {
        ++n;
    }
    return n;
}

// The recovered block against the truth of the run.
void expect_recovered(const CalibRunSpec& spec, const CalibRun& run, const float* c) {
    const double g = imu::test::kStandardGravity;
    for (int k = 0; k < 3; ++k) {
        EXPECT_NEAR(c[imu::kAccOffset + k], spec.acc.offset[k], kTolerance * g) << "axis " << k;
        EXPECT_NEAR(c[imu::kAccScale + k] / spec.acc.scale[k], 1.0, kTolerance) << "axis " << k;
        EXPECT_NEAR(c[imu::kMagOffset + k], spec.mag.offset[k], kTolerance * spec.field_ut)
            << "axis " << k;
        // The magnetometer maps onto a sphere of the readings' own mean radius.
        const double expected = run.mag_radius * spec.mag.scale[k] / spec.field_ut;
        EXPECT_NEAR(c[imu::kMagScale + k] / expected, 1.0, kTolerance) << "axis " << k;
    }
}

class SyntheticRun : public testing::TestWithParam<CalibRunSpec> {};

// GIVEN 240 samples of sensors with known offsets and axis scales
// WHEN the run's raw file is fitted
// THEN both fits are accepted and the block and its file hold the truth.
TEST_P(SyntheticRun, RecoversOffsetsAndScales) {
    const CalibRunSpec& spec = GetParam();
    TempRoot root;
    const CalibRun run = imu::test::make_calib_run(spec);
    imu::calibration_state().s_calib2[imu::kGyroOffset] = 0.125F;
    const Fit fit = run_fit(root, imu::test::raw_file_text(run));

    EXPECT_EQ(fit.result, 0);
    EXPECT_EQ(fit.out, "Calibration Finished!\nCalibration Finished!\n");
    expect_recovered(spec, run, block());
    EXPECT_EQ(block()[imu::kGyroOffset], 0.125F);

    float saved[imu::kCalibFields];
    std::copy(block(), block() + imu::kCalibFields, saved);
    std::fill(imu::calibration_state().s_calib2, imu::calibration_state().s_calib2 + 15, 0.0F);
    ASSERT_EQ(read_calibration(), 0);
    for (int i = 0; i < imu::kCalibFields; ++i) {
        EXPECT_NEAR(block()[i], saved[i], 1e-5) << "field " << i;
    }
}

CalibRunSpec strong_errors() {
    CalibRunSpec s;
    s.acc = {{-0.6F, 0.45F, -0.8F}, {0.93F, 1.08F, 0.96F}};
    s.mag = {{-60.0F, 80.0F, 35.0F}, {0.85F, 1.15F, 1.05F}};
    s.field_ut = 52.0;
    s.inclination_deg = 20.0;
    s.seed = 7;
    return s;
}

CalibRunSpec noiseless() {
    CalibRunSpec s;
    s.acc_noise = 0.0;
    s.mag_noise = 0.0;
    return s;
}

INSTANTIATE_TEST_SUITE_P(Phones, SyntheticRun,
                         testing::Values(CalibRunSpec{}, strong_errors(), noiseless()));

}  // namespace
