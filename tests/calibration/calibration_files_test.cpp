// The calibration file with the correction it drives, and the raw sample
// and request files of a calibration run.

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <string>
#include <vector>

#include "calibration/calibration_block.h"
#include "calibration/fitting.h"
#include "calibration/run_files.h"
#include "imu/calibration.h"
#include "support/log_capture.h"
#include "support/temp_root.h"

namespace {

using imu::test::LogCapture;
using imu::test::TempRoot;

constexpr const char* kCalibFile = "/data/system/velmoGR.ini";
constexpr const char* kRawFile = "/data/system/acc_mag_raw.txt";
constexpr const char* kRequestFile = "/data/system/velmo_calibrator_s.ini";
constexpr const char* kAbsent = "<absent>";
constexpr const char* kNoFolder = "<no folder>";
constexpr const char* kDirectory = "<directory>";
constexpr int kCallerErrno = ENOTRECOVERABLE;  // a stale errno must not become the result
const std::vector<float> kDefaults = {0, 0, 0, 0, 0, 0, 1, 1, 1, 0, 0, 0, 1, 1, 1};

// Puts content at rel, or leaves it absent, removes its folder, or puts a
// directory there.
void place(const TempRoot& root, const char* rel, const std::string& content) {
    if (content == kDirectory) {
        root.mkdir(rel);
    } else if (content == kNoFolder) {
        root.remove("/data/system");
    } else if (content != kAbsent) {
        root.write(rel, content);
    }
}

std::vector<float> block() {
    const float* c = imu::calibration_state().s_calib2;
    return {c, c + imu::kCalibFields};
}

std::vector<float> defaults_with(std::vector<float> head) {
    head.insert(head.end(), kDefaults.begin() + static_cast<long>(head.size()), kDefaults.end());
    return head;
}

TEST(CalibrationFile, FirstStartCreatesDefaultsAndSavesWithFiveDecimals) {
    TempRoot root;
    EXPECT_EQ(read_calibration(), 0);
    EXPECT_EQ(root.read(kCalibFile),
              "0.000000 0.000000 0.000000 0.000000 0.000000 0.000000 1.000000 1.000000 "
              "1.000000 0.000000 0.000000 0.000000 1.000000 1.000000 1.000000\n");
    EXPECT_EQ(block(), kDefaults);
    imu::calibration_state().s_calib2[3] = 1.234567F;
    ASSERT_EQ(save_calibration(), 0);
    EXPECT_EQ(root.read(kCalibFile),
              "0.00000 0.00000 0.00000 1.23457 0.00000 0.00000 1.00000 1.00000 1.00000 "
              "0.00000 0.00000 0.00000 1.00000 1.00000 1.00000\n");
}

TEST(CalibrationFile, LoadsWhatItCanAndKeepsTheRest) {
    const std::string full = "1 2 3 4 5 6 7 8 9 10 11 12 13 14 15";
    const std::vector<float> all = {1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15};
    const struct {
        std::string content;
        int result;
        std::vector<float> expected;
    } cases[] = {
        {full + "\n", 0, all},
        {full + std::string(100000, ' ') + "junk\n", 0, all},
        {"0.5 -0.25 1 4 5\n", 0, defaults_with({0.5F, -0.25F, 1, 4, 5})},
        {"1.5 2.", 0, defaults_with({1.5F, 2})},  // truncated inside a number
        {"3 4 x 6\n", 0, defaults_with({3, 4})},
        {"1 2 -1e60 4\n", 0, defaults_with({1, 2})},
        {"", -EINVAL, kDefaults},
        {"velmo\n", -EINVAL, kDefaults},
        {"nan 1 2\n", -EINVAL, kDefaults},
        {"1e60 2 3\n", -ERANGE, kDefaults},
        {kDirectory, -EISDIR, kDefaults},
        {kNoFolder, -ENOENT, kDefaults},
    };
    for (const auto& c : cases) {
        TempRoot root;
        std::copy(kDefaults.begin(), kDefaults.end(), imu::calibration_state().s_calib2);
        place(root, kCalibFile, c.content);
        EXPECT_EQ(read_calibration(), c.result) << c.content.substr(0, 40);
        EXPECT_EQ(block(), c.expected) << c.content.substr(0, 40);
        const int saved = c.content == kDirectory ? -EISDIR : c.content == kNoFolder ? -ENOENT : 0;
        EXPECT_EQ(save_calibration(), saved) << c.content.substr(0, 40);
    }
}

TEST(CalibrationFile, UncreatableFileIsLoggedOnce) {
    TempRoot root;
    root.remove("/data/system");
    LogCapture log;
    EXPECT_EQ(read_calibration(), -ENOENT);
    EXPECT_EQ(read_calibration(), -ENOENT);
    const auto lines = log.lines();
    ASSERT_EQ(lines.size(), 1U);
    EXPECT_EQ(lines[0].prio, 6);
    EXPECT_EQ(lines[0].tag, "VLM_SFC");
    EXPECT_EQ(lines[0].text,
              "Unable to open " + root.path(kCalibFile) + " (No such file or directory)");
}

// Gyro offset, acc offset and scale, mag offset and scale.
constexpr const char* kBlockLine = "0.1 0.2 0.3 1 2 3 2 2 2 10 20 30 0.5 0.5 0.5\n";

TEST(Correction, SampleCorrectsTheSensorsOfTheMode) {
    const struct {
        int mode;
        float acc[3], mag[3];  // -1: not written
    } cases[] = {{0, {5, 5, 5}, {40, 40, 40}},
                 {1, {8, 6, 4}, {40, 40, 40}},
                 {2, {8, 6, 4}, {15, 10, 5}},
                 {5, {-1, -1, -1}, {-1, -1, -1}}};
    TempRoot root;
    root.write(kCalibFile, kBlockLine);
    const float offset[3] = {0.1F, 0.9F, 0.3F};  // same x: block and file are kept
    for (const auto& c : cases) {
        set_calibrator_mode(c.mode);
        IMU imu{};
        for (int i = 0; i < 3; ++i) {
            imu.acc_raw[i] = 5.0F;
            imu.gyro_raw[i] = 1.0F;
            imu.mag_raw[i] = 40.0F;
            imu.acc[i] = imu.mag[i] = -1.0F;
        }
        apply_calibration(&imu, offset);
        for (int i = 0; i < 3; ++i) {
            EXPECT_FLOAT_EQ(imu.gyro[i], 1.0F - offset[i]) << "mode " << c.mode;
            EXPECT_FLOAT_EQ(imu.acc[i], c.acc[i]) << "mode " << c.mode;
            EXPECT_FLOAT_EQ(imu.mag[i], c.mag[i]) << "mode " << c.mode;
        }
    }
    EXPECT_EQ(root.read(kCalibFile), kBlockLine);
    EXPECT_EQ(imu::calibration_state().s_calib2[1], 0.2F);
    IMU imu{};
    const float moved[3] = {0.01F, 0.02F, 0.03F};  // a new x is stored and saved
    apply_calibration(&imu, moved);
    EXPECT_EQ(imu::calibration_state().s_calib2[2], 0.03F);
    EXPECT_EQ(root.read(kCalibFile).substr(0, 24), "0.01000 0.02000 0.03000 ");
}

TEST(Correction, InputCorrectsByTypeAndMode) {
    const struct {
        int mode, type;
        float expected[3];  // -1: not written
    } cases[] = {{0, 0, {5.9F, 6.8F, 7.7F}}, {5, 0, {5.9F, 6.8F, 7.7F}}, {0, 6, {6, 7, 8}},
                 {1, 6, {10, 10, 10}},       {2, 6, {10, 10, 10}},       {5, 6, {-1, -1, -1}},
                 {1, 7, {6, 7, 8}},          {2, 7, {-2, -6.5F, -11}},   {5, 7, {-1, -1, -1}},
                 {2, 3, {-1, -1, -1}}};
    TempRoot root;
    root.write(kCalibFile, kBlockLine);
    for (const auto& c : cases) {
        set_calibrator_mode(c.mode);
        const float in[3] = {6, 7, 8};
        float out[3] = {-1, -1, -1};
        GetZarnCalibratedData(c.type, in, out);
        for (int i = 0; i < 3; ++i) {
            EXPECT_FLOAT_EQ(out[i], c.expected[i]) << "mode " << c.mode << " type " << c.type;
        }
    }
    float v[3] = {1, 2, 3};
    apply_calibration(nullptr, v);
    GetZarnCalibratedData(6, nullptr, v);
    GetZarnCalibratedData(6, v, nullptr);
    EXPECT_EQ(v[0], 1.0F);
    EXPECT_EQ(set_sensitive(nullptr), 0);
}

TEST(RawSampleFile, FirstSampleOfARunReplacesTheFileLaterOnesAppend) {
    TempRoot root;
    root.write(kRawFile, "a line of the last run\n");
    IMU a{};
    const float values[6] = {1.0F, -2.5F, 9.80665F, 30.123456F, -0.000004F, 1000.0F};
    std::copy(values, values + 3, a.acc_raw);
    std::copy(values + 3, values + 6, a.mag_raw);
    ASSERT_EQ(imu::save_acc_mag_raw(&a), 0);
    const std::string line1 = "1.00000\t-2.50000\t9.80665\t30.12346\t-0.00000\t1000.00000\n";
    EXPECT_EQ(root.read(kRawFile), line1);
    IMU b{};
    b.acc_raw[0] = 2.0F;
    b.acc[0] = 99.0F;  // only the raw triples are written
    ASSERT_EQ(imu::save_acc_mag_raw(&b), 0);
    const std::string line2 = "2.00000\t0.00000\t0.00000\t0.00000\t0.00000\t0.00000\n";
    EXPECT_EQ(root.read(kRawFile), line1 + line2);
    imu::run_file_state().raw_file_started = 0;  // what a restart does
    ASSERT_EQ(imu::save_acc_mag_raw(&b), 0);
    EXPECT_EQ(root.read(kRawFile), line2);
    EXPECT_EQ(imu::save_acc_mag_raw(nullptr), -EINVAL);
    for (const char* bad : {kDirectory, kNoFolder}) {
        root.remove(kRawFile);
        place(root, kRawFile, bad);
        imu::run_file_state().raw_file_started = 0;
        EXPECT_EQ(imu::save_acc_mag_raw(&b), bad == kDirectory ? -EISDIR : -ENOENT);
    }
}

// Line i holds 6 * i + 0 .. 5.
std::string numbered_lines(int count) {
    std::string text;
    for (int i = 0; i < count; ++i) {
        for (int k = 0; k < 6; ++k) {
            text += std::to_string(6 * i + k) + (k < 5 ? "\t" : "\n");
        }
    }
    return text;
}

TEST(RawSampleFile, ReadLoadsUpTo240LinesAndLeavesTheRest) {
    const struct {
        std::string content;
        int result, loaded;
    } cases[] = {{kAbsent, -ENOENT, 0},
                 {kDirectory, -EISDIR, 0},
                 {"", -ENODATA, 0},
                 {numbered_lines(240), 0, 240},
                 {numbered_lines(100), -ENODATA, 100},
                 {numbered_lines(300), 0, 240},
                 {numbered_lines(4) + "velmo\n" + numbered_lines(10), -ENODATA, 4},
                 {numbered_lines(2) + "12\t13\t14\t15\t16\t17", -ENODATA, 3}};  // no newline
    auto& table = imu::calibrator_workspace().sample;
    for (const auto& c : cases) {
        TempRoot root;
        place(root, kRawFile, c.content);
        for (auto& s : table) {
            std::fill(s.acc, s.acc + 3, -7.0F);
            std::fill(s.mag, s.mag + 3, -7.0F);
        }
        errno = kCallerErrno;
        EXPECT_EQ(imu::read_acc_mag_raw(), c.result) << c.content.substr(0, 20);
        int n = 0;
        while (n < imu::kCalibSamples && table[n].acc[0] == static_cast<float>(6 * n) &&
               table[n].mag[2] == static_cast<float>(6 * n + 5)) {
            ++n;
        }
        EXPECT_EQ(n, c.loaded) << c.content.substr(0, 20);
        EXPECT_TRUE(n == imu::kCalibSamples || table[n].acc[0] == -7.0F) << c.content.substr(0, 20);
    }
}

TEST(RequestFile, CreationWritesZeroAndOpensTheMode) {
    TempRoot root;
    root.write(kRequestFile, "1\n");
    ::chmod(root.path(kRequestFile).c_str(), 0600);
    LogCapture log;
    EXPECT_EQ(creat_app_calibration_file(), 0);
    EXPECT_EQ(root.read(kRequestFile), "0\n");
    struct stat st {};
    ASSERT_EQ(::stat(root.path(kRequestFile).c_str(), &st), 0);
    EXPECT_EQ(st.st_mode & 07777, 0777U);
    EXPECT_TRUE(log.texts().empty());
}

TEST(RequestFile, CreationAndModeChangeFailuresAreLogged) {
    TempRoot root;
    LogCapture log;
    EXPECT_EQ(imu::changeFile_mode(), -1);
    root.remove("/data/system");
    EXPECT_EQ(creat_app_calibration_file(), -ENOENT);
    EXPECT_EQ(log.texts(), (std::vector<std::string>{"change file failed.\n",
                                                     "Unable to open " + root.path(kRequestFile) +
                                                         " (No such file or directory)"}));
}

TEST(RequestFile, CheckReturnsTheStoredNumber) {
    const struct {
        std::string content;
        int result;
        bool logged;
    } cases[] = {{"1\n", 1, true},
                 {"0\n", 0, true},
                 {kAbsent, -ENOENT, false},
                 {kDirectory, -EISDIR, false},
                 {"", -ENODATA, false},
                 {" \n\t\n", -ENODATA, false},
                 {"yes\n", -ENODATA, false},
                 {"-\n", -ENODATA, false},
                 {"  -3junk\n", -3, true},
                 {"1.9", 1, true},
                 {"99999999999999999999\n", INT_MAX, true},
                 {"-2147483649\n", INT_MIN, true}};
    for (const auto& c : cases) {
        TempRoot root;
        place(root, kRequestFile, c.content);
        LogCapture log;
        errno = kCallerErrno;
        EXPECT_EQ(check_app_calibration_file(), c.result) << c.content;
        EXPECT_EQ(log.texts().size(), c.logged ? 1U : 0U) << c.content;
        if (c.logged) {
            EXPECT_EQ(log.texts()[0], "check_app_calibration_file = " + std::to_string(c.result));
        }
    }
}

}  // namespace
