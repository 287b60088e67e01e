// The calibration run: the collector's gate, the states and the reference
// flip, and the ellipsoid fit with its integer distance.

#include "calibration/calibration_run.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <climits>
#include <cmath>
#include <cstdint>
#include <regex>
#include <string>
#include <vector>

#include "calibration/calibration_block.h"
#include "calibration/fitting.h"
#include "calibration/run_files.h"
#include "imu/calibration.h"
#include "sim/calib_samples.h"
#include "support/log_capture.h"
#include "support/temp_root.h"

namespace {

using imu::test::CalibRun;
using imu::test::TempRoot;

constexpr const char* kRawFile = "/data/system/acc_mag_raw.txt";

struct Direction {
    float m[9];
};

// A rotation whose third column is the unit vector at polar angle theta
// (from +z) and azimuth phi, in degrees.
Direction direction(double theta_deg, double phi_deg) {
    const double t = theta_deg * M_PI / 180.0;
    const double p = phi_deg * M_PI / 180.0;
    const double v[3] = {std::sin(t) * std::cos(p), std::sin(t) * std::sin(p), std::cos(t)};
    Direction d{};
    imu::test::direction_matrix(v, 0.0, d.m);
    return d;
}

const float* block() { return imu::calibration_state().s_calib2; }

int update(const CalibRun& run, int i) {
    return sfc_update_sensor_calibration(&run.steps[i].imu, run.steps[i].matrix);
}

// Runs f with stdout captured and returns what it printed.
template <typename F>
std::string printed(F f) {
    testing::internal::CaptureStdout();
    f();
    return testing::internal::GetCapturedStdout();
}

// A kept step counts and moves the reference, a too small one only prints,
// a refused one does nothing.
TEST(CollectGate, KeepsOnlyBoundedSteps) {
    const struct {
        double step_deg;  // from the reference (0, 0, 1)
        bool kept;
        int returned;
        const char* printed;
    } cases[] = {{1.0, false, 0, "+0.000\t   0\n"},
                 {2.9, false, 0, "+0.003\t   0\n"},
                 {3.1, true, 1, "+0.003\t   1\n"},
                 {18.0, true, 2, "+0.098\t   2\n"},
                 {18.5, false, 0, ""},
                 {180.0, false, 0, ""}};
    const IMU imu{};
    for (const auto& c : cases) {
        TempRoot root;
        imu::run_file_state().raw_file_started = 0;
        const Direction d = direction(c.step_deg, 30.0);
        float ref[3] = {0.0F, 0.0F, 1.0F};
        EXPECT_EQ(printed([&] { EXPECT_EQ(imu::collect(&imu, d.m, ref), c.returned); }), c.printed)
            << c.step_deg;
        EXPECT_EQ(root.exists(kRawFile), c.kept) << c.step_deg;
        EXPECT_EQ(ref[2], c.kept ? d.m[8] : 1.0F) << c.step_deg;
    }
    EXPECT_EQ(return_data_collect_counter(), 2);
}

struct EndCase {
    bool scatter_acc, scatter_mag;
    int state;
    const char* printed;
};

class RunEnd : public testing::TestWithParam<EndCase> {};

// The 120th sample sets state 1 and flips the reference's z to -1; the
// 240th sets state 2; the next update fits and the state holds.
TEST_P(RunEnd, FitRunsInTheUpdateAfterTheLastSample) {
    const EndCase& c = GetParam();
    TempRoot root;
    CalibRun run = imu::test::make_calib_run();
    // Samples from 100 on scaled radially by 0.3 to 1.7: no ellipsoid fits.
    for (int i = 100; i < imu::kCalibSamples; ++i) {
        const float f = 0.3F + 1.4F * static_cast<float>(i * 37 % 100) / 100.0F;
        for (int k = 0; k < 3; ++k) {
            run.steps[i].imu.acc_raw[k] *= c.scatter_acc ? f : 1.0F;
            run.steps[i].imu.mag_raw[k] *= c.scatter_mag ? f : 1.0F;
        }
    }
    init_zarncalibrator();
    printed([&] {
        for (int i = 0; i < imu::kCalibSamples; ++i) {
            ASSERT_EQ(update(run, i), i < 119 ? 0 : i < 239 ? 1 : 2) << "sample " << i;
            if (i == 119) {
                const float* r = imu::calibration_run().collect_reference;
                EXPECT_EQ(std::vector<float>(r, r + 3),
                          (std::vector<float>{run.steps[i].matrix[2], run.steps[i].matrix[5], -1}));
            }
        }
    });
    EXPECT_EQ(root.read(kRawFile), imu::test::raw_file_text(run));

    imu::test::LogCapture log;
    EXPECT_EQ(printed([&] { EXPECT_EQ(update(run, 0), c.state); }), c.printed);  // the fit
    EXPECT_EQ(update(run, 1), c.state);
    EXPECT_EQ(return_data_collect_counter(), imu::kRunSamples);
    // A rejected accelerometer fit logs one sample beyond the limit.
    ASSERT_EQ(log.texts().size(), c.scatter_acc ? 1U : 0U);
    std::smatch m;
    if (c.scatter_acc) {
        const std::string line = log.texts()[0];
        ASSERT_TRUE(std::regex_match(line, m, std::regex("dist =(\\d+) \ttemp =(\\d+)"))) << line;
        EXPECT_GT(std::max(std::stol(m[1].str()), std::stol(m[2].str())), imu::kAccFitLimit);
    }
    // Accepted or not, the fit is in use and saved.
    const auto& fit = imu::calibrator_workspace();
    EXPECT_EQ(block()[imu::kAccOffset], fit.acc_fit[0]);
    EXPECT_EQ(block()[imu::kMagOffset + 2], fit.mag_fit[2]);
    EXPECT_NE(root.read("/data/system/velmoGR.ini"), "<missing>");
}

INSTANTIATE_TEST_SUITE_P(
    Results, RunEnd,
    testing::Values(EndCase{false, false, 3, "Calibration Finished!\nCalibration Finished!\n"},
                    EndCase{true, false, -1, "Acc Calibration Failed!\nCalibration Finished!\n"},
                    EndCase{false, true, -2, "Calibration Finished!\nMag Calibration Failed!\n"},
                    EndCase{true, true, -3, "Acc Calibration Failed!\nMag Calibration Failed!\n"}));

// A first half ending at (0.9, 0, 0.436) leaves the reference at
// (0.9, 0, -1), 0.119 from the nearest unit direction: the run is stuck
// until a restart, which starts a new raw file.
TEST(CalibrationRun, SecondHalfFromAFarReferenceIsStuckUntilRestart) {
    TempRoot root;
    const double last = std::asin(0.9) * 180.0 / M_PI;  // 64.16 deg
    const IMU imu{};
    init_zarncalibrator();
    int state = 0;
    printed([&] {
        for (int i = 0; i < imu::kFirstHalf; ++i) {  // out in 8 deg steps, then to and fro
            const double theta = i < 8 ? 8.0 * (i + 1) : last - 8.0 * ((119 - i) % 2);
            state = sfc_update_sensor_calibration(&imu, direction(theta, 0).m);
        }
    });
    ASSERT_EQ(state, 1);
    const std::string out = printed([&] {
        for (double theta = 0; theta <= 180; theta += 2.5) {
            for (double phi = 0; phi < 360; phi += 5) {
                EXPECT_EQ(sfc_update_sensor_calibration(&imu, direction(theta, phi).m), 1);
            }
        }
    });
    EXPECT_EQ(out, "");
    EXPECT_EQ(return_data_collect_counter(), imu::kFirstHalf);
    init_zarncalibrator();
    printed([&] { EXPECT_EQ(sfc_update_sensor_calibration(&imu, direction(10, 0).m), 0); });
    EXPECT_EQ(return_data_collect_counter(), 1);
    const std::string raw = root.read(kRawFile);
    EXPECT_EQ(std::count(raw.begin(), raw.end(), '\n'), 1);
}

class SyntheticRun : public testing::TestWithParam<imu::test::CalibRunSetup> {};

// Sensors with known offsets and axis scales: offsets within 2 % of the
// radius, scales within 2 %, the gyro offset kept, the block saved.
TEST_P(SyntheticRun, RecoversOffsetsAndScales) {
    const imu::test::CalibRunSetup& t = GetParam();
    TempRoot root;
    const CalibRun run = imu::test::make_calib_run(t);
    imu::calibration_state().s_calib2[imu::kGyroOffset] = 0.125F;
    root.write(kRawFile, imu::test::raw_file_text(run));
    EXPECT_EQ(printed([] { EXPECT_EQ(imu::calculate_bias(), 0); }),
              "Calibration Finished!\nCalibration Finished!\n");
    const float* c = block();
    for (int k = 0; k < 3; ++k) {
        EXPECT_NEAR(c[imu::kAccOffset + k], t.acc.offset[k], 0.02 * imu::test::kStandardGravity);
        EXPECT_NEAR(c[imu::kAccScale + k] / t.acc.scale[k], 1.0, 0.02);
        EXPECT_NEAR(c[imu::kMagOffset + k], t.mag.offset[k], 0.02 * t.field_ut);
        // The magnetometer maps onto a sphere of the readings' mean radius.
        EXPECT_NEAR(c[imu::kMagScale + k] * t.field_ut / (run.mag_radius * t.mag.scale[k]), 1.0,
                    0.02);
    }
    EXPECT_EQ(c[imu::kGyroOffset], 0.125F);
    const std::vector<float> fitted(c, c + imu::kCalibFields);
    ASSERT_EQ(read_calibration(), 0);
    for (int i = 0; i < imu::kCalibFields; ++i) {
        EXPECT_NEAR(c[i], fitted[i], 1e-5) << "field " << i;
    }
}

imu::test::CalibRunSetup strong_errors(double noise) {
    imu::test::CalibRunSetup s{{{-0.6F, 0.45F, -0.8F}, {0.93F, 1.08F, 0.96F}},
                               {{-60.0F, 80.0F, 35.0F}, {0.85F, 1.15F, 1.05F}}};
    s.field_ut = 52.0;
    s.inclination_deg = 20.0;
    s.acc_noise = noise;
    s.mag_noise = noise * 10;
    s.seed = 7;
    return s;
}

imu::test::CalibRunSetup noiseless() {
    imu::test::CalibRunSetup s;
    s.acc_noise = s.mag_noise = 0.0;
    return s;
}

INSTANTIATE_TEST_SUITE_P(Phones, SyntheticRun,
                         testing::Values(imu::test::CalibRunSetup{}, strong_errors(0.02),
                                         noiseless()));

// A sensor flat on some axis has a semi-axis of 0: the fit is rejected and
// the old scales stay.
TEST(FitInput, FlatAxisKeepsTheScales) {
    TempRoot root;
    CalibRun run = imu::test::make_calib_run();
    for (auto& step : run.steps) {
        std::fill(step.imu.acc_raw, step.imu.acc_raw + 3, 9.75F);
        step.imu.mag_raw[2] = 12.0F;
    }
    float* c = imu::calibration_state().s_calib2;
    std::fill(c + imu::kAccScale, c + imu::kAccScale + 3, 1.5F);
    std::fill(c + imu::kMagScale, c + imu::kMagScale + 3, 0.75F);
    root.write(kRawFile, imu::test::raw_file_text(run));
    EXPECT_EQ(printed([] { EXPECT_EQ(imu::calculate_bias(), -3); }),
              "Acc Calibration Failed!\nMag Calibration Failed!\n");
    EXPECT_EQ(c[imu::kMagOffset + 2], 12.0F);
    EXPECT_EQ(std::vector<float>(c + imu::kAccScale, c + imu::kMagOffset),
              std::vector<float>(3, 1.5F));
    EXPECT_EQ(std::vector<float>(c + imu::kMagScale, c + imu::kCalibFields),
              std::vector<float>(3, 0.75F));
}

// Bad sample files after a good run (whose entries the table keeps,
// multiplied by 1000): a defined result and a finite block.
TEST(FitInput, BadSampleFilesGiveADefinedResult) {
    const std::string full = imu::test::raw_file_text(imu::test::make_calib_run());
    std::string extreme;
    for (int i = 0; i < 240; ++i) {
        extreme += i % 3 == 0 ? "1e38\t-1e38\tnan\tinf\t-inf\t3e9\n"
                              : "2147483.648\t-2147483.649\t0\t1e-40\t-5\t7\n";
    }
    for (const std::string& raw : {std::string("<missing>"), std::string(),
                                   full.substr(0, full.size() / 240 * 100), extreme}) {
        TempRoot root;
        root.write(kRawFile, full);
        int result = 1;
        printed([&] { result = imu::calculate_bias(); });
        ASSERT_EQ(result, 0);
        root.write(kRawFile, raw);
        if (raw == "<missing>") {
            root.remove(kRawFile);
        }
        printed([&] { result = imu::calculate_bias(); });
        EXPECT_TRUE(result <= 0 && result >= -3) << raw.substr(0, 20) << ": " << result;
        for (int i = 0; i < imu::kCalibFields; ++i) {
            EXPECT_TRUE(std::isfinite(block()[i])) << raw.substr(0, 20) << " field " << i;
        }
    }
}

TEST(FitInput, NullArgumentsChangeNothing) {
    auto& ws = imu::calibrator_workspace();
    ws.sample[0].acc[0] = 3.0F;
    EXPECT_EQ(imu::fitting(nullptr, imu::kAccSensor) + imu::fitting(&ws, 3), -44);
    EXPECT_EQ(imu::sphere(nullptr, imu::kMagSensor) + imu::sphere(&ws, 7), 0.0F);
    EXPECT_EQ(ws.sample[0].acc[0], 3.0F);
    const std::int32_t p[6] = {0, 0, 0, 1, 1, 1};
    const std::int64_t v[1] = {5};
    EXPECT_EQ(imu::distance(nullptr, p, 1) + imu::distance(p, nullptr, 1), 0);
    EXPECT_EQ(imu::bisector(1, nullptr, v) + imu::bisector(1, v, nullptr), 0);
    const IMU imu{};
    float ref[3] = {0.0F, 0.0F, 1.0F};
    const Direction d = direction(10.0, 0.0);
    const std::string out = printed([&] {
        EXPECT_EQ(imu::collect(&imu, nullptr, ref) + imu::collect(nullptr, d.m, ref) +
                      imu::collect(&imu, d.m, nullptr) +
                      sfc_update_sensor_calibration(nullptr, d.m) +
                      sfc_update_sensor_calibration(&imu, nullptr),
                  0);
    });
    EXPECT_EQ(out, "");
    EXPECT_EQ(return_data_collect_counter(), 0);
}

TEST(Distance, CentreSurfaceAndOutside) {
    // At the centre: the smallest semi-axis squared, in units of the divisor.
    const struct {
        std::int32_t p[6], s, expected;
    } centres[] = {{{0, 0, 0, 3000, 2000, 1000}, 1, 1000000},
                   {{500, -200, 100, 1000, 3000, 2000}, 10, 10000},
                   {{-7, 7, 70, 2500, 900, 1800}, 100, 81},
                   {{1, 2, 3, 2000, 1000, 3000}, 0, 1000000}};  // s 0 counts as 1
    for (const auto& c : centres) {
        EXPECT_EQ(imu::distance(c.p, c.p, c.s), c.expected) << c.p[3] << " " << c.s;
    }
    const std::int32_t p[6] = {100, -50, 20, 3000, 2000, 1000};
    for (double lat = -75; lat <= 75; lat += 30) {
        for (double lon = 5; lon < 360; lon += 30) {
            const double a = lat * M_PI / 180;
            const double b = lon * M_PI / 180;
            const double q[3] = {100 + 3000 * std::cos(a) * std::cos(b),
                                 -50 + 2000 * std::cos(a) * std::sin(b), 20 + 1000 * std::sin(a)};
            const std::int32_t qi[3] = {static_cast<std::int32_t>(std::lround(q[0])),
                                        static_cast<std::int32_t>(std::lround(q[1])),
                                        static_cast<std::int32_t>(std::lround(q[2]))};
            EXPECT_LE(imu::distance(p, qi, 1), 9) << "lat " << lat << " lon " << lon;
        }
    }
    // Along an axis: the squared gap, one unit long at most (the surface
    // coordinate is cut to an integer).
    for (const std::int32_t gap : {10, 500, 2000}) {
        const std::int32_t q[3] = {100, -50, 20 - 1000 - gap};
        EXPECT_GE(imu::distance(p, q, 1), gap * gap) << gap;
        EXPECT_LE(imu::distance(p, q, 1), (gap + 1) * (gap + 1)) << gap;
    }
    // Extreme integers: a defined answer, no overflow.
    const std::int32_t huge[][6] = {{INT32_MIN, INT32_MAX, 0, INT32_MAX, INT32_MAX, 1},
                                    {INT32_MAX, INT32_MIN, INT32_MIN, 1, 1, 1},
                                    {0, 0, 0, INT32_MIN, -5, INT32_MAX},
                                    {5, 5, 5, 0, 0, 0}};
    for (const auto& e : huge) {
        for (const std::int32_t s : {1, 1000000}) {
            EXPECT_GE(imu::distance(e, huge[1], s), 0);
            EXPECT_GE(imu::distance(e, huge[0] + 1, s), 0);
        }
    }
}

TEST(Bisector, GivesTheSquaredDistance) {
    const struct {
        int n;
        std::int64_t e[3], y[3];
        std::int32_t expected;
    } cases[] = {
        {1, {1}, {1}, 0},        // bracket [0, 1]: the midpoint is an end at once
        {1, {3000}, {3000}, 1},  // F(1) is 0: x = 9e6 * 3000 / (9e6 + 1) is cut to 2999
        {1, {2000}, {2100}, 101 * 101},
        {4, {1, 1, 1}, {1, 1, 1}, 0},
        {3, {std::int64_t{1} << 40, 1 << 20, 3}, {std::int64_t{1} << 41, 0, 1}, INT32_MAX},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(imu::bisector(c.n, c.e, c.y), c.expected) << c.n << " " << c.e[0];
    }
}

}  // namespace
