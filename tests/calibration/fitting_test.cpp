// The ellipsoid and sphere fits of a calibration run.

#include <gtest/gtest.h>

#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cmath>
#include <cstdint>
#include <regex>
#include <string>
#include <utility>

#include "calibration/calibration_block.h"
#include "calibration/fitting.h"
#include "imu/calibration.h"
#include "support/calib_samples.h"
#include "support/log_capture.h"
#include "support/temp_root.h"

namespace {

using imu::calibrator_workspace;
using imu::test::CalibRun;
using imu::test::CalibRunSetup;
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

// The recovered block against the truth of the run.
void expect_recovered(const CalibRunSetup& setup, const CalibRun& run, const float* c) {
    const double g = imu::test::kStandardGravity;
    for (int k = 0; k < 3; ++k) {
        EXPECT_NEAR(c[imu::kAccOffset + k], setup.acc.offset[k], kTolerance * g) << "axis " << k;
        EXPECT_NEAR(c[imu::kAccScale + k] / setup.acc.scale[k], 1.0, kTolerance) << "axis " << k;
        EXPECT_NEAR(c[imu::kMagOffset + k], setup.mag.offset[k], kTolerance * setup.field_ut)
            << "axis " << k;
        // The magnetometer maps onto a sphere of the readings' own mean radius.
        const double expected = run.mag_radius * setup.mag.scale[k] / setup.field_ut;
        EXPECT_NEAR(c[imu::kMagScale + k] / expected, 1.0, kTolerance) << "axis " << k;
    }
}

// The calibration file holds the block (five decimals).
void expect_saved_block() {
    float saved[imu::kCalibFields];
    std::copy(block(), block() + imu::kCalibFields, saved);
    float* c = imu::calibration_state().s_calib2;
    std::fill(c, c + imu::kCalibFields, 0.0F);
    ASSERT_EQ(read_calibration(), 0);
    for (int i = 0; i < imu::kCalibFields; ++i) {
        EXPECT_NEAR(block()[i], saved[i], 1e-5) << "field " << i;
    }
}

class SyntheticRun : public testing::TestWithParam<CalibRunSetup> {};

// GIVEN 240 samples of sensors with known offsets and axis scales
// WHEN the run's raw file is fitted
// THEN both fits are accepted and the block and its file hold the truth.
TEST_P(SyntheticRun, RecoversOffsetsAndScales) {
    const CalibRunSetup& setup = GetParam();
    TempRoot root;
    const CalibRun run = imu::test::make_calib_run(setup);
    imu::calibration_state().s_calib2[imu::kGyroOffset] = 0.125F;
    const Fit fit = run_fit(root, imu::test::raw_file_text(run));

    EXPECT_EQ(fit.result, 0);
    EXPECT_EQ(fit.out, "Calibration Finished!\nCalibration Finished!\n");
    expect_recovered(setup, run, block());
    EXPECT_EQ(block()[imu::kGyroOffset], 0.125F);

    expect_saved_block();
}

CalibRunSetup strong_errors() {
    CalibRunSetup s;
    s.acc = {{-0.6F, 0.45F, -0.8F}, {0.93F, 1.08F, 0.96F}};
    s.mag = {{-60.0F, 80.0F, 35.0F}, {0.85F, 1.15F, 1.05F}};
    s.field_ut = 52.0;
    s.inclination_deg = 20.0;
    s.seed = 7;
    return s;
}

CalibRunSetup noiseless() {
    CalibRunSetup s;
    s.acc_noise = 0.0;
    s.mag_noise = 0.0;
    return s;
}

INSTANTIATE_TEST_SUITE_P(Phones, SyntheticRun,
                         testing::Values(CalibRunSetup{}, strong_errors(), noiseless()));

// ---- Rejected fits ----

enum Outlier { kNone = 0, kAccOutlier = 1, kMagOutlier = 2 };

// A good run whose samples from 100 on are scaled radially by factors
// from 0.3 to 1.7 for the chosen sensors: no ellipsoid comes near them all.
std::string scattered_run(int which) {
    CalibRun run = imu::test::make_calib_run();
    for (int i = 100; i < imu::kCalibSamples; ++i) {
        const float f = 0.3F + 1.4F * static_cast<float>(i * 37 % 100) / 100.0F;
        for (int k = 0; k < 3; ++k) {
            if ((which & kAccOutlier) != 0) {
                run.steps[i].imu.acc_raw[k] *= f;
            }
            if ((which & kMagOutlier) != 0) {
                run.steps[i].imu.mag_raw[k] *= f;
            }
        }
    }
    return imu::test::raw_file_text(run);
}

struct RejectCase {
    const char* name;
    int outliers;
    int result;
    const char* out;
};

class RejectedFit : public testing::TestWithParam<RejectCase> {};

TEST_P(RejectedFit, ReportsAndStoresTheFitAllTheSame) {
    const RejectCase& c = GetParam();
    TempRoot root;
    LogCapture log;
    const Fit fit = run_fit(root, scattered_run(c.outliers));
    EXPECT_EQ(fit.result, c.result);
    EXPECT_EQ(fit.out, c.out);
    const auto& ws = calibrator_workspace();
    for (int k = 0; k < 3; ++k) {
        EXPECT_EQ(block()[imu::kAccOffset + k], ws.acc_fit[k]);
        EXPECT_EQ(block()[imu::kMagOffset + k], ws.mag_fit[k]);
        EXPECT_FLOAT_EQ(block()[imu::kAccScale + k], 9.8066 / ws.acc_fit[3 + k]);
    }
    const bool acc_rejected = (c.outliers & kAccOutlier) != 0;
    EXPECT_EQ(log.texts().size(), acc_rejected ? 1U : 0U);
    expect_saved_block();
}

INSTANTIATE_TEST_SUITE_P(
    Outliers, RejectedFit,
    testing::Values(
        RejectCase{"Accelerometer", kAccOutlier, -1,
                   "Acc Calibration Failed!\nCalibration Finished!\n"},
        RejectCase{"Magnetometer", kMagOutlier, -2,
                   "Calibration Finished!\nMag Calibration Failed!\n"},
        RejectCase{"Both", kAccOutlier | kMagOutlier, -3,
                   "Acc Calibration Failed!\nMag Calibration Failed!\n"}),
    [](const testing::TestParamInfo<RejectCase>& info) { return std::string(info.param.name); });

// The fitted ellipsoid in integer form, as the fit left it.
void fitted_ellipsoid(const float* fit, std::int32_t* p) {
    for (int i = 0; i < 6; ++i) {
        p[i] = static_cast<std::int32_t>(std::lround(fit[i] * 1000.0));
    }
}

// The first sample, in order, whose distance d or |d - mean| is beyond the
// limit, for the scale divisor s: {d, |d - mean|}, or {-1, -1}.
std::pair<long, long> first_beyond_limit(const std::int32_t* p, std::int32_t s) {
    std::int32_t q[imu::kCalibSamples][3];
    long d[imu::kCalibSamples];
    long sum = 0;
    for (int i = 0; i < imu::kCalibSamples; ++i) {
        for (int k = 0; k < 3; ++k) {
            q[i][k] = static_cast<std::int32_t>(calibrator_workspace().sample[i].acc[k]);
        }
        d[i] = imu::distance(p, q[i], s);
        sum += d[i];
    }
    for (const long di : d) {
        const long dev = std::labs(di - sum / imu::kCalibSamples);
        if (di > imu::kAccFitLimit || dev > imu::kAccFitLimit) {
            return {di, dev};
        }
    }
    return {-1, -1};
}

TEST(RejectedFit, FirstSampleBeyondTheLimitIsTheOneLogged) {
    TempRoot root;
    LogCapture log;
    ASSERT_EQ(run_fit(root, scattered_run(kAccOutlier)).result, -1);
    ASSERT_EQ(log.texts().size(), 1U);
    std::smatch m;
    const std::string line = log.texts()[0];
    ASSERT_TRUE(std::regex_match(line, m, std::regex("dist =(\\d+) \ttemp =(\\d+)"))) << line;
    const std::pair<long, long> logged{std::stol(m[1].str()), std::stol(m[2].str())};

    std::int32_t p[6];
    fitted_ellipsoid(calibrator_workspace().acc_fit, p);
    bool matched = false;
    for (const std::int32_t s : {1, 10, 100, 1000}) {  // the divisor the fit chose
        matched = matched || first_beyond_limit(p, s) == logged;
    }
    EXPECT_TRUE(matched) << line;
}

// A sensor that never moved on some axis has a semi-axis of 0: no scale can
// be derived, so the fit is rejected and the old scales stay.
TEST(RejectedFit, FlatAxisKeepsTheScales) {
    TempRoot root;
    CalibRun run = imu::test::make_calib_run();
    for (auto& step : run.steps) {
        step.imu.acc_raw[0] = 0.25F;
        step.imu.acc_raw[1] = -0.5F;
        step.imu.acc_raw[2] = 9.75F;
        step.imu.mag_raw[2] = 12.0F;
    }
    float* c = imu::calibration_state().s_calib2;
    std::fill(c + imu::kAccScale, c + imu::kAccScale + 3, 1.5F);
    std::fill(c + imu::kMagScale, c + imu::kMagScale + 3, 0.75F);
    const Fit fit = run_fit(root, imu::test::raw_file_text(run));

    EXPECT_EQ(fit.result, -3);
    EXPECT_EQ(fit.out, "Acc Calibration Failed!\nMag Calibration Failed!\n");
    EXPECT_EQ(c[imu::kAccOffset], 0.25F);
    EXPECT_EQ(c[imu::kAccOffset + 1], -0.5F);
    EXPECT_EQ(c[imu::kAccOffset + 2], 9.75F);
    EXPECT_EQ(c[imu::kMagOffset + 2], 12.0F);
    for (int k = 0; k < 3; ++k) {
        EXPECT_EQ(c[imu::kAccScale + k], 1.5F);
        EXPECT_EQ(c[imu::kMagScale + k], 0.75F);
    }
}

// ---- Bad sample files ----

void expect_finite_block() {
    for (int i = 0; i < imu::kCalibFields; ++i) {
        EXPECT_TRUE(std::isfinite(block()[i])) << "field " << i;
    }
}

TEST(FitInput, ShortFileAfterARunRefitsTheOldScaledEntriesWithoutOverflow) {
    // Entries 100 to 239 still hold the last run's samples times 1000 and
    // are multiplied again.
    TempRoot root;
    const std::string full = imu::test::raw_file_text(imu::test::make_calib_run());
    ASSERT_EQ(run_fit(root, full).result, 0);
    const Fit fit = run_fit(root, full.substr(0, full.size() / 240 * 100));
    EXPECT_LT(fit.result, 0);
    expect_finite_block();
}

TEST(FitInput, NumbersBeyondRangeGiveADefinedRejection) {
    TempRoot root;
    std::string text;
    for (int i = 0; i < 240; ++i) {
        text += i % 3 == 0 ? "1e38\t-1e38\tnan\tinf\t-inf\t3e9\n"
                           : "2147483.648\t-2147483.649\t0\t1e-40\t-5\t7\n";
    }
    const Fit fit = run_fit(root, text);
    EXPECT_LE(fit.result, 0);
    EXPECT_GE(fit.result, -3);
    expect_finite_block();
}

TEST(FitInput, MissingFileRefitsTheTableItHolds) {
    // Without a file the table keeps the last run's samples, already
    // multiplied by 1000, and they are multiplied once more.
    TempRoot root;
    ASSERT_EQ(run_fit(root, imu::test::raw_file_text(imu::test::make_calib_run())).result, 0);
    float before[imu::kCalibFields];
    std::copy(block(), block() + imu::kCalibFields, before);
    root.remove(kRawFile);
    testing::internal::CaptureStdout();
    imu::calculate_bias();
    testing::internal::GetCapturedStdout();
    for (int k = 0; k < 3; ++k) {
        EXPECT_NEAR(block()[imu::kAccOffset + k], 1000 * before[imu::kAccOffset + k], 200.0);
        EXPECT_NEAR(block()[imu::kAccScale + k], before[imu::kAccScale + k] / 1000, 2e-5);
    }
    expect_finite_block();
}

TEST(FitInput, NullWorkspaceOrUnknownSensorChangesNothing) {
    auto& ws = calibrator_workspace();
    ws.sample[0].acc[0] = 3.0F;
    EXPECT_EQ(imu::fitting(nullptr, imu::kAccSensor), -22);
    EXPECT_EQ(imu::fitting(&ws, 0), -22);
    EXPECT_EQ(imu::fitting(&ws, 3), -22);
    EXPECT_EQ(imu::sphere(nullptr, imu::kMagSensor), 0.0F);
    EXPECT_EQ(imu::sphere(&ws, 7), 0.0F);
    EXPECT_EQ(ws.sample[0].acc[0], 3.0F);
}

// ---- Sphere ----

// Points spread over a sphere of radius r about c, in the unit of the
// samples, put into the magnetometer triple already multiplied by 1000.
void sphere_points(const double* c, double r) {
    const CalibRun run = imu::test::make_calib_run(noiseless());
    for (int i = 0; i < imu::kCalibSamples; ++i) {
        const float* m = run.steps[i].matrix;  // its third column: a spread unit vector
        const double u[3] = {m[2], m[5], m[8]};
        for (int k = 0; k < 3; ++k) {
            calibrator_workspace().sample[i].mag[k] = static_cast<float>((c[k] + r * u[k]) * 1000);
        }
    }
}

double mean_distance_from_centroid() {
    double g[3] = {0, 0, 0};
    for (const auto& s : calibrator_workspace().sample) {
        for (int k = 0; k < 3; ++k) {
            g[k] += s.mag[k] / 240.0;
        }
    }
    double mean = 0;
    for (const auto& s : calibrator_workspace().sample) {
        mean += std::hypot(s.mag[0] - g[0], s.mag[1] - g[1], s.mag[2] - g[2]) / 240.0;
    }
    return mean / 1000.0;
}

TEST(Sphere, WithScaledNumbersTheCentreStaysAtTheCentroid) {
    const double c[3] = {25.0, -12.0, 40.0};
    sphere_points(c, 45.0);  // numbers up to 10^5: divisor 100
    // Differences and lengths are cut to whole multiples of the divisor:
    // a little short.
    const double expected = mean_distance_from_centroid();
    const float r = imu::sphere(&calibrator_workspace(), imu::kMagSensor);
    EXPECT_LE(r, expected + 1e-3);
    EXPECT_GE(r, expected - 0.3);
}

TEST(Sphere, UnscaledNumbersFindTheCentre) {
    const double c[3] = {0.3, -0.2, 0.1};
    sphere_points(c, 1.2);  // numbers below 2000 after the factor 1000
    EXPECT_NEAR(imu::sphere(&calibrator_workspace(), imu::kMagSensor), 1.2, 0.012);
}

// ---- distance and bisector ----

struct CentreCase {
    std::int32_t p[6];
    std::int32_t s;
    std::int32_t expected;
};

class DistanceAtCentre : public testing::TestWithParam<CentreCase> {};

// The centre's distance is the smallest semi-axis, squared, in scaled units.
TEST_P(DistanceAtCentre, IsTheSquaredSmallestSemiAxis) {
    const CentreCase& c = GetParam();
    EXPECT_EQ(imu::distance(c.p, c.p, c.s), c.expected);
}

INSTANTIATE_TEST_SUITE_P(
    Ellipsoids, DistanceAtCentre,
    testing::Values(CentreCase{{0, 0, 0, 3000, 2000, 1000}, 1, 1000000},
                    CentreCase{{0, 0, 0, 3000, 2000, 1000}, 10, 10000},
                    CentreCase{{500, -200, 100, 1000, 3000, 2000}, 1, 1000000},
                    CentreCase{{-7, 7, 70, 2500, 900, 1800}, 100, 81},
                    CentreCase{{0, 0, 0, 1500, 1500, 1500}, 1, 2250000},
                    CentreCase{{0, 0, 0, 0, 5, 9}, 1, 0},
                    CentreCase{{1, 2, 3, 2000, 1000, 3000}, 0, 1000000}));  // s 0 counts as 1

// Off the plane of the two larger axes (there the integer closed form
// applies; see PlanarPointNearTheCentreUsesTheClosedForm).
TEST(Distance, PointsOnTheSurfaceAreAtNearlyZero) {
    const std::int32_t p[6] = {100, -50, 20, 3000, 2000, 1000};
    for (double lat = -75; lat <= 75; lat += 30) {
        for (double lon = 5; lon < 360; lon += 30) {
            const double a = lat * M_PI / 180;
            const double b = lon * M_PI / 180;
            const std::int32_t q[3] = {
                static_cast<std::int32_t>(std::lround(100 + 3000 * std::cos(a) * std::cos(b))),
                static_cast<std::int32_t>(std::lround(-50 + 2000 * std::cos(a) * std::sin(b))),
                static_cast<std::int32_t>(std::lround(20 + 1000 * std::sin(a)))};
            EXPECT_LE(imu::distance(p, q, 1), 9) << "lat " << lat << " lon " << lon;
        }
    }
}

// The nearest surface point's coordinate is cut to an integer, so the gap
// may come out one unit long.
TEST(Distance, OutsideAlongAnAxisIsTheSquaredGap) {
    const std::int32_t p[6] = {0, 0, 0, 3000, 2000, 1000};
    for (const std::int32_t gap : {10, 100, 500, 2000}) {
        const std::int32_t qx[3] = {3000 + gap, 0, 0};
        const std::int32_t qz[3] = {0, 0, -1000 - gap};
        for (const std::int32_t d : {imu::distance(p, qx, 1), imu::distance(p, qz, 1)}) {
            EXPECT_GE(d, gap * gap) << gap;
            EXPECT_LE(d, (gap + 1) * (gap + 1)) << gap;
        }
    }
}

TEST(Distance, MirroredPointsAreAtTheSameDistance) {
    const std::int32_t p[6] = {-300, 400, 50, 1800, 2400, 2100};
    for (const std::int32_t dx : {0, 37, 900, 2500}) {
        for (const std::int32_t dy : {0, 11, 1200, 3000}) {
            const std::int32_t a[3] = {-300 + dx, 400 + dy, 50 + dx / 2};
            const std::int32_t b[3] = {-300 - dx, 400 - dy, 50 - dx / 2};
            EXPECT_EQ(imu::distance(p, a, 1), imu::distance(p, b, 1)) << dx << " " << dy;
        }
    }
}

// In the plane of the two larger axes, close to the centre, the integer
// closed form gives sum y^2 + emin^2 (its quotients are 0).
TEST(Distance, PlanarPointNearTheCentreUsesTheClosedForm) {
    const std::int32_t p[6] = {0, 0, 0, 3000, 2000, 1000};
    const std::int32_t q[3] = {100, 0, 0};
    EXPECT_EQ(imu::distance(p, q, 1), 100 * 100 + 1000 * 1000);
    const std::int32_t q2[3] = {100, -40, 0};
    EXPECT_EQ(imu::distance(p, q2, 1), 100 * 100 + 40 * 40 + 1000 * 1000);
}

TEST(Distance, ExtremeIntegersGiveADefinedResult) {
    constexpr std::int32_t kMax = INT32_MAX;
    constexpr std::int32_t kMin = INT32_MIN;
    const std::int32_t ellipsoids[][6] = {{kMin, kMax, 0, kMax, kMax, 1},
                                          {kMax, kMin, kMin, 1, 1, 1},
                                          {0, 0, 0, kMax, kMax, kMax},
                                          {0, 0, 0, kMin, -5, kMax},
                                          {5, 5, 5, 0, 0, 0}};
    const std::int32_t points[][3] = {{kMax, kMin, 5}, {kMin, kMin, kMin}, {0, 0, 1}, {1, 2, 3}};
    for (const auto& p : ellipsoids) {
        for (const auto& q : points) {
            for (const std::int32_t s : {1, 10, 1000000}) {
                EXPECT_GE(imu::distance(p, q, s), 0);
            }
        }
    }
    EXPECT_EQ(imu::distance(nullptr, points[0], 1), 0);
    EXPECT_EQ(imu::distance(ellipsoids[0], nullptr, 1), 0);
}

TEST(Distance, SummedDistanceMatchesTheSingleCalls) {
    const std::int32_t p[6] = {120, -80, 45, 2100, 1900, 2300};
    std::int32_t points[50][3];
    std::int64_t sum = 0;
    for (int i = 0; i < 50; ++i) {
        for (int k = 0; k < 3; ++k) {
            points[i][k] = (i * 7919 + k * 104729) % 5000 - 2500;
        }
        points[i][i % 3] = p[i % 3];  // some in the planes through the centre
        sum += imu::distance(p, points[i], 1 + i % 2 * 9);
    }
    std::int64_t by_divisor = 0;
    for (const std::int32_t s : {1, 10}) {
        std::int32_t subset[25][3];
        for (int i = 0; i < 25; ++i) {
            std::copy(points[2 * i + (s == 10)], points[2 * i + (s == 10)] + 3, subset[i]);
        }
        by_divisor += imu::summed_distance(p, subset, 25, s);
    }
    EXPECT_EQ(by_divisor, sum);
}

struct BisectorCase {
    const char* name;
    int n;
    std::int64_t e[3];
    std::int64_t y[3];
    std::int32_t expected;
};

class Bisector : public testing::TestWithParam<BisectorCase> {};

TEST_P(Bisector, GivesTheSquaredDistance) {
    const BisectorCase& c = GetParam();
    EXPECT_EQ(imu::bisector(c.n, c.e, c.y), c.expected);
}

INSTANTIATE_TEST_SUITE_P(
    Cases, Bisector,
    testing::Values(
        // Bracket [0, 1]: the midpoint is an end at once; x = 1 * 1 / 1.
        BisectorCase{"AdjacentEnds", 1, {1}, {1}, 0},
        // Bracket [-4, -4]: x = esq * y as t + esq is 0.
        BisectorCase{"EqualEnds", 1, {2}, {0}, 0},
        // F(1) is exactly 0 here, so t stays 1 and x = 9e6 * 3000 / (9e6 + 1)
        // is cut to 2999: one unit short.
        BisectorCase{"OnTheSurface", 1, {3000}, {3000}, 1},
        BisectorCase{"OutsideOneAxis", 1, {2000}, {2100}, 101 * 101},
        BisectorCase{"NoAxis", 0, {1}, {1}, 0},
        BisectorCase{"FourAxes", 4, {1, 1, 1}, {1, 1, 1}, 0},
        // Far beyond the 32-bit range: saturates instead of overflowing.
        BisectorCase{"Huge", 3, {std::int64_t{1} << 40, 1 << 20, 3}, {std::int64_t{1} << 41, 0, 1},
                     INT32_MAX}),
    [](const testing::TestParamInfo<BisectorCase>& info) { return std::string(info.param.name); });

TEST(Bisector, NullArraysGiveZero) {
    const std::int64_t v[1] = {5};
    EXPECT_EQ(imu::bisector(1, nullptr, v), 0);
    EXPECT_EQ(imu::bisector(1, v, nullptr), 0);
}

}  // namespace
