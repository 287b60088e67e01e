// The calibration block: its file, and the correction on both paths.

#include "calibration/calibration_block.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cerrno>
#include <string>
#include <vector>

#include "imu/calibration.h"
#include "support/log_capture.h"
#include "support/temp_root.h"

namespace {

using imu::test::LogCapture;
using imu::test::TempRoot;

constexpr const char* kFile = "/data/system/velmoGR.ini";
const std::vector<float> kDefaults = {0, 0, 0, 0, 0, 0, 1, 1, 1, 0, 0, 0, 1, 1, 1};

std::vector<float> block() {
    const float* c = imu::calibration_state().s_calib2;
    return {c, c + imu::kCalibFields};
}

TEST(CalibrationFile, FirstStartCreatesDefaultsAndLoadsThem) {
    TempRoot root;
    EXPECT_EQ(read_calibration(), 0);
    EXPECT_EQ(root.read(kFile),
              "0.000000 0.000000 0.000000 0.000000 0.000000 0.000000 1.000000 1.000000 "
              "1.000000 0.000000 0.000000 0.000000 1.000000 1.000000 1.000000\n");
    EXPECT_EQ(block(), kDefaults);
}

struct ReadCase {
    const char* name;
    std::string content;
    int result;
    std::vector<float> expected;
};

class CalibrationRead : public testing::TestWithParam<ReadCase> {};

TEST_P(CalibrationRead, LoadsWhatItCanAndKeepsTheRest) {
    const ReadCase& c = GetParam();
    TempRoot root;
    root.write(kFile, c.content);
    EXPECT_EQ(read_calibration(), c.result);
    EXPECT_EQ(block(), c.expected);
}

INSTANTIATE_TEST_SUITE_P(
    Contents, CalibrationRead,
    testing::Values(ReadCase{"FullLine",
                             "1 2 3 4 5 6 7 8 9 10 11 12 13 14 15\n",
                             0,
                             {1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15}},
                    ReadCase{"FiveNumbers",
                             "0.5 -0.25 1 4 5\n",
                             0,
                             {0.5F, -0.25F, 1, 4, 5, 0, 1, 1, 1, 0, 0, 0, 1, 1, 1}},
                    ReadCase{"Empty", "", -EINVAL, kDefaults},
                    ReadCase{"Garbage", "velmo\n", -EINVAL, kDefaults},
                    ReadCase{"TruncatedInsideANumber",
                             "1.5 2.",
                             0,
                             {1.5F, 2, 0, 0, 0, 0, 1, 1, 1, 0, 0, 0, 1, 1, 1}},
                    ReadCase{"GarbageAfterTwoNumbers",
                             "3 4 x 6\n",
                             0,
                             {3, 4, 0, 0, 0, 0, 1, 1, 1, 0, 0, 0, 1, 1, 1}},
                    ReadCase{"FirstBeyondFloatRange", "1e60 2 3\n", -ERANGE, kDefaults},
                    ReadCase{"ThirdBeyondFloatRange",
                             "1 2 -1e60 4\n",
                             0,
                             {1, 2, 0, 0, 0, 0, 1, 1, 1, 0, 0, 0, 1, 1, 1}},
                    ReadCase{"NotANumberText", "nan 1 2\n", -EINVAL, kDefaults},
                    ReadCase{
                        "VeryLongLine",
                        "1 2 3 4 5 6 7 8 9 10 11 12 13 14 15" + std::string(100000, ' ') + "junk\n",
                        0,
                        {1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15}}),
    [](const testing::TestParamInfo<ReadCase>& info) { return std::string(info.param.name); });

TEST(CalibrationFile, UncreatableFileIsLoggedOnceAndReported) {
    TempRoot root;
    root.remove("/data/system");
    LogCapture log;
    EXPECT_EQ(read_calibration(), -ENOENT);
    EXPECT_EQ(read_calibration(), -ENOENT);
    const auto lines = log.lines();
    ASSERT_EQ(lines.size(), 1U);
    EXPECT_EQ(lines[0].prio, 6);
    EXPECT_EQ(lines[0].tag, "VLM_SFC");
    EXPECT_EQ(lines[0].text, "Unable to open " + root.path(kFile) + " (No such file or directory)");
    EXPECT_EQ(block(), kDefaults);
}

TEST(CalibrationFile, DirectoryInPlaceOfFileFailsBothWays) {
    TempRoot root;
    root.mkdir(kFile);
    EXPECT_EQ(read_calibration(), -EISDIR);
    EXPECT_EQ(save_calibration(), -EISDIR);
    EXPECT_EQ(block(), kDefaults);
}

TEST(CalibrationFile, SavedValuesCarryFiveDecimals) {
    TempRoot root;
    imu::calibration_state().s_calib2[3] = 1.234567F;
    ASSERT_EQ(save_calibration(), 0);
    EXPECT_EQ(root.read(kFile),
              "0.00000 0.00000 0.00000 1.23457 0.00000 0.00000 1.00000 1.00000 1.00000 "
              "0.00000 0.00000 0.00000 1.00000 1.00000 1.00000\n");
    imu::calibration_state().s_calib2[3] = 0.0F;
    ASSERT_EQ(read_calibration(), 0);
    EXPECT_EQ(imu::calibration_state().s_calib2[3], 1.23457F);
}

// Block used by the correction tests: gyro offset, acc offset and scale,
// mag offset and scale.
constexpr const char* kBlockLine = "0.1 0.2 0.3 1 2 3 2 2 2 10 20 30 0.5 0.5 0.5\n";

IMU sample() {
    IMU imu{};
    for (int i = 0; i < 3; ++i) {
        imu.acc_raw[i] = 5.0F;
        imu.gyro_raw[i] = 1.0F;
        imu.mag_raw[i] = 40.0F;
        imu.acc[i] = -1.0F;  // sentinel: "not written"
        imu.mag[i] = -1.0F;
    }
    return imu;
}

struct ModeCase {
    int mode;
    float acc[3];
    float mag[3];
};

class ApplyCalibration : public testing::TestWithParam<ModeCase> {};

TEST_P(ApplyCalibration, CorrectsTheSensorsOfTheMode) {
    const ModeCase& c = GetParam();
    TempRoot root;
    root.write(kFile, kBlockLine);
    set_calibrator_mode(c.mode);
    IMU imu = sample();
    const float offset[3] = {0.1F, 0.2F, 0.3F};
    apply_calibration(&imu, offset);
    for (int i = 0; i < 3; ++i) {
        EXPECT_FLOAT_EQ(imu.gyro[i], 1.0F - offset[i]) << "axis " << i;
        EXPECT_FLOAT_EQ(imu.acc[i], c.acc[i]) << "axis " << i;
        EXPECT_FLOAT_EQ(imu.mag[i], c.mag[i]) << "axis " << i;
    }
}

INSTANTIATE_TEST_SUITE_P(Modes, ApplyCalibration,
                         testing::Values(ModeCase{0, {5, 5, 5}, {40, 40, 40}},
                                         ModeCase{1, {8, 6, 4}, {40, 40, 40}},
                                         ModeCase{2, {8, 6, 4}, {15, 10, 5}},
                                         ModeCase{5, {-1, -1, -1}, {-1, -1, -1}}),
                         [](const testing::TestParamInfo<ModeCase>& info) {
                             return "Mode" + std::to_string(info.param.mode);
                         });

TEST(ApplyCalibrationOffset, SameXKeepsBlockAndFileButUsesNewEstimate) {
    TempRoot root;
    root.write(kFile, kBlockLine);
    IMU imu = sample();
    const float offset[3] = {0.1F, 0.9F, 0.3F};
    apply_calibration(&imu, offset);
    EXPECT_EQ(root.read(kFile), kBlockLine);
    EXPECT_EQ(imu::calibration_state().s_calib2[1], 0.2F);
    EXPECT_FLOAT_EQ(imu.gyro[1], 0.1F);
}

TEST(ApplyCalibrationOffset, NewXIsStoredAndSaved) {
    TempRoot root;
    root.write(kFile, kBlockLine);
    IMU imu = sample();
    const float offset[3] = {0.01F, 0.02F, 0.03F};
    apply_calibration(&imu, offset);
    EXPECT_EQ(imu::calibration_state().s_calib2[2], 0.03F);
    EXPECT_EQ(root.read(kFile).substr(0, 24), "0.01000 0.02000 0.03000 ");
}

struct InputCase {
    int mode;
    int type;
    float expected[3];  // -1: not written
};

class InputCorrection : public testing::TestWithParam<InputCase> {};

TEST_P(InputCorrection, CorrectsByTypeAndMode) {
    const InputCase& c = GetParam();
    TempRoot root;
    root.write(kFile, kBlockLine);
    set_calibrator_mode(c.mode);
    const float in[3] = {6, 7, 8};
    float out[3] = {-1, -1, -1};
    GetZarnCalibratedData(c.type, in, out);
    for (int i = 0; i < 3; ++i) {
        EXPECT_FLOAT_EQ(out[i], c.expected[i]) << "mode " << c.mode << " type " << c.type;
    }
}

INSTANTIATE_TEST_SUITE_P(
    TypesAndModes, InputCorrection,
    testing::Values(InputCase{0, 0, {5.9F, 6.8F, 7.7F}}, InputCase{5, 0, {5.9F, 6.8F, 7.7F}},
                    InputCase{0, 6, {6, 7, 8}}, InputCase{1, 6, {10, 10, 10}},
                    InputCase{2, 6, {10, 10, 10}}, InputCase{5, 6, {-1, -1, -1}},
                    InputCase{1, 7, {6, 7, 8}}, InputCase{2, 7, {-2, -6.5F, -11}},
                    InputCase{5, 7, {-1, -1, -1}}, InputCase{2, 3, {-1, -1, -1}}),
    [](const testing::TestParamInfo<InputCase>& info) {
        return "Mode" + std::to_string(info.param.mode) + "Type" + std::to_string(info.param.type);
    });

TEST(Correction, NullArgumentsDoNothing) {
    TempRoot root;
    float v[3] = {1, 2, 3};
    IMU imu = sample();
    apply_calibration(nullptr, v);
    apply_calibration(&imu, nullptr);
    GetZarnCalibratedData(6, nullptr, v);
    GetZarnCalibratedData(6, v, nullptr);
    EXPECT_EQ(imu.acc[0], -1.0F);
    EXPECT_EQ(set_sensitive(nullptr), 0);
}

}  // namespace
