// The raw sample file and the request file of a calibration run.

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cerrno>
#include <climits>
#include <cmath>
#include <string>
#include <vector>

#include "calibration/fitting.h"
#include "calibration/run_files.h"
#include "imu/calibration.h"
#include "support/log_capture.h"
#include "support/temp_root.h"

namespace {

using imu::calibrator_workspace;
using imu::test::LogCapture;
using imu::test::TempRoot;

constexpr const char* kRawFile = "/data/system/acc_mag_raw.txt";
constexpr const char* kRequestFile = "/data/system/velmo_calibrator_s.ini";
// A stale errno of the caller must not become the result.
constexpr int kCallerErrno = ENOTRECOVERABLE;
constexpr float kUntouched = -7.0F;

IMU sample(float base) {
    IMU imu{};
    for (int k = 0; k < 3; ++k) {
        imu.acc_raw[k] = base + static_cast<float>(k);
        imu.mag_raw[k] = -base * 10.0F - static_cast<float>(k);
        imu.acc[k] = 99.0F;  // only the raw triples are written
        imu.mag[k] = 99.0F;
    }
    return imu;
}

TEST(RawSampleFile, FirstSampleOfARunReplacesTheFileLaterOnesAppend) {
    TempRoot root;
    root.write(kRawFile, "a line of the last run\n");
    IMU first{};
    first.acc_raw[0] = 1.0F;
    first.acc_raw[1] = -2.5F;
    first.acc_raw[2] = 9.80665F;
    first.mag_raw[0] = 30.123456F;
    first.mag_raw[1] = -0.000004F;
    first.mag_raw[2] = 1000.0F;
    ASSERT_EQ(imu::save_acc_mag_raw(&first), 0);
    const std::string line1 = "1.00000\t-2.50000\t9.80665\t30.12346\t-0.00000\t1000.00000\n";
    EXPECT_EQ(root.read(kRawFile), line1);

    const IMU second = sample(2.0F);
    ASSERT_EQ(imu::save_acc_mag_raw(&second), 0);
    const std::string line2 = "2.00000\t3.00000\t4.00000\t-20.00000\t-21.00000\t-22.00000\n";
    EXPECT_EQ(root.read(kRawFile), line1 + line2);

    imu::run_file_state().raw_file_started = 0;  // what a restart does
    ASSERT_EQ(imu::save_acc_mag_raw(&second), 0);
    EXPECT_EQ(root.read(kRawFile), line2);
}

TEST(RawSampleFile, WriteFailuresReportTheErrno) {
    TempRoot root;
    const IMU s = sample(1.0F);
    EXPECT_EQ(imu::save_acc_mag_raw(nullptr), -EINVAL);
    root.mkdir(kRawFile);
    EXPECT_EQ(imu::save_acc_mag_raw(&s), -EISDIR);
    root.remove(kRawFile);
    root.remove("/data/system");
    EXPECT_EQ(imu::save_acc_mag_raw(&s), -ENOENT);
}

// Line i of a generated file holds 6 * i + 0 .. 5.
std::string numbered_lines(int count) {
    std::string text;
    for (int i = 0; i < count; ++i) {
        for (int k = 0; k < 6; ++k) {
            text += std::to_string(6 * i + k) + (k < 5 ? "\t" : "\n");
        }
    }
    return text;
}

void fill_table(float value) {
    for (auto& s : calibrator_workspace().sample) {
        for (int k = 0; k < 3; ++k) {
            s.acc[k] = value;
            s.mag[k] = value;
        }
    }
}

// How many leading entries hold the numbered lines; the rest must be
// untouched.
int loaded_entries() {
    const auto& table = calibrator_workspace().sample;
    int n = 0;
    while (n < imu::kCalibSamples && table[n].acc[0] == static_cast<float>(6 * n)) {
        for (int k = 0; k < 3; ++k) {
            EXPECT_EQ(table[n].acc[k], static_cast<float>(6 * n + k)) << "entry " << n;
            EXPECT_EQ(table[n].mag[k], static_cast<float>(6 * n + 3 + k)) << "entry " << n;
        }
        ++n;
    }
    for (int i = n; i < imu::kCalibSamples; ++i) {
        if (table[i].acc[0] != kUntouched || table[i].mag[2] != kUntouched) {
            ADD_FAILURE() << "entry " << i << " was written";
            break;
        }
    }
    return n;
}

struct RawReadCase {
    const char* name;
    bool present;
    std::string content;
    int result;
    int loaded;
};

class RawSampleRead : public testing::TestWithParam<RawReadCase> {};

TEST_P(RawSampleRead, LoadsUpTo240Lines) {
    const RawReadCase& c = GetParam();
    TempRoot root;
    if (c.present) {
        root.write(kRawFile, c.content);
    }
    fill_table(kUntouched);
    errno = kCallerErrno;
    EXPECT_EQ(imu::read_acc_mag_raw(), c.result);
    EXPECT_EQ(loaded_entries(), c.loaded);
}

INSTANTIATE_TEST_SUITE_P(
    Contents, RawSampleRead,
    testing::Values(RawReadCase{"Missing", false, "", -ENOENT, 0},
                    RawReadCase{"Empty", true, "", -ENODATA, 0},
                    RawReadCase{"Full", true, numbered_lines(240), 0, 240},
                    RawReadCase{"Short", true, numbered_lines(100), -ENODATA, 100},
                    RawReadCase{"ThreeHundredLines", true, numbered_lines(300), 0, 240},
                    RawReadCase{"GarbageLine", true, numbered_lines(4) + "velmo\n" +
                                numbered_lines(10), -ENODATA, 4},
                    RawReadCase{"NoNewlineAtTheEnd", true,
                                numbered_lines(2) + "12\t13\t14\t15\t16\t17", -ENODATA, 3}),
    [](const testing::TestParamInfo<RawReadCase>& info) { return std::string(info.param.name); });

TEST(RawSampleRead, PartialLineFillsWhatItHoldsAndReadingGoesOn) {
    // The tab and newline of the format match any white space, so a short
    // line is completed from the next one.
    TempRoot root;
    root.write(kRawFile, "1\t2\t3\n4\t5\t6\n7 8 9 10 11 12\n");
    fill_table(kUntouched);
    errno = kCallerErrno;
    EXPECT_EQ(imu::read_acc_mag_raw(), -ENODATA);
    const auto& t = calibrator_workspace().sample;
    EXPECT_EQ(t[0].acc[0], 1.0F);
    EXPECT_EQ(t[0].mag[2], 6.0F);
    EXPECT_EQ(t[1].acc[0], 7.0F);
    EXPECT_EQ(t[1].mag[2], 12.0F);
    EXPECT_EQ(t[2].acc[0], kUntouched);
}

TEST(RawSampleRead, OutOfRangeAndNotANumberTextLoadAsTheirFloats) {
    TempRoot root;
    root.write(kRawFile, "1e39\t-1e39\tnan\tinf\t1e-50\t2\n");
    fill_table(kUntouched);
    imu::read_acc_mag_raw();
    const auto& s = calibrator_workspace().sample[0];
    EXPECT_TRUE(std::isinf(s.acc[0]) && s.acc[0] > 0);
    EXPECT_TRUE(std::isinf(s.acc[1]) && s.acc[1] < 0);
    EXPECT_TRUE(std::isnan(s.acc[2]));
    EXPECT_TRUE(std::isinf(s.mag[0]));
    EXPECT_EQ(s.mag[1], 0.0F);
    EXPECT_EQ(s.mag[2], 2.0F);
}

TEST(RawSampleRead, DirectoryInPlaceOfTheFileGivesItsErrno) {
    TempRoot root;
    root.mkdir(kRawFile);
    EXPECT_EQ(imu::read_acc_mag_raw(), -EISDIR);
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
    EXPECT_EQ(check_app_calibration_file(), 0);
}

TEST(RequestFile, CreationFailureIsLogged) {
    TempRoot root;
    root.remove("/data/system");
    LogCapture log;
    EXPECT_EQ(creat_app_calibration_file(), -ENOENT);
    const auto lines = log.lines();
    ASSERT_EQ(lines.size(), 1U);
    EXPECT_EQ(lines[0].prio, 6);
    EXPECT_EQ(lines[0].tag, "VLM_SFC");
    EXPECT_EQ(lines[0].text,
              "Unable to open " + root.path(kRequestFile) + " (No such file or directory)");
}

TEST(RequestFile, ModeChangeOfAMissingFileFails) {
    TempRoot root;
    LogCapture log;
    EXPECT_EQ(imu::changeFile_mode(), -1);
    EXPECT_EQ(log.texts(), std::vector<std::string>{"change file failed.\n"});
}

struct CheckCase {
    const char* name;
    bool present;
    std::string content;
    int result;
    bool logged;
};

class RequestCheck : public testing::TestWithParam<CheckCase> {};

TEST_P(RequestCheck, ReturnsTheStoredNumber) {
    const CheckCase& c = GetParam();
    TempRoot root;
    if (c.present) {
        root.write(kRequestFile, c.content);
    }
    LogCapture log;
    errno = kCallerErrno;
    EXPECT_EQ(check_app_calibration_file(), c.result);
    const std::vector<std::string> expected =
        c.logged ? std::vector<std::string>{"check_app_calibration_file = " +
                                            std::to_string(c.result)}
                 : std::vector<std::string>{};
    EXPECT_EQ(log.texts(), expected);
}

INSTANTIATE_TEST_SUITE_P(
    Contents, RequestCheck,
    testing::Values(CheckCase{"One", true, "1\n", 1, true},
                    CheckCase{"Zero", true, "0\n", 0, true},
                    CheckCase{"Missing", false, "", -ENOENT, false},
                    CheckCase{"Empty", true, "", -ENODATA, false},
                    CheckCase{"OnlySpace", true, " \n\t\n", -ENODATA, false},
                    CheckCase{"Garbage", true, "yes\n", -ENODATA, false},
                    CheckCase{"LoneSign", true, "-\n", -ENODATA, false},
                    CheckCase{"SpacedNegativeWithTail", true, "  -3junk\n", -3, true},
                    CheckCase{"PlusSign", true, "+1", 1, true},
                    CheckCase{"Decimal", true, "1.9\n", 1, true},
                    CheckCase{"BeyondIntRange", true, "99999999999999999999\n", INT_MAX, true},
                    CheckCase{"BelowIntRange", true, "-2147483649\n", INT_MIN, true},
                    CheckCase{"IntMin", true, "-2147483648\n", INT_MIN, true}),
    [](const testing::TestParamInfo<CheckCase>& info) { return std::string(info.param.name); });

TEST(RequestCheck, DirectoryInPlaceOfTheFileGivesItsErrno) {
    TempRoot root;
    root.mkdir(kRequestFile);
    LogCapture log;
    EXPECT_EQ(check_app_calibration_file(), -EISDIR);
    EXPECT_TRUE(log.texts().empty());
}

}  // namespace
