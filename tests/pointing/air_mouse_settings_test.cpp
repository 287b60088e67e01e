// The air mouse's settings file "/data/system/velmoAR.ini".

#include <gtest/gtest.h>

#include <cerrno>
#include <climits>
#include <cstring>
#include <string>
#include <vector>

#include "imu/pointing.h"
#include "pointing/air_mouse.h"
#include "support/log_capture.h"
#include "support/temp_root.h"

namespace {

using imu::test::LogCapture;
using imu::test::TempRoot;

constexpr const char* kFile = "/data/system/velmoAR.ini";

std::vector<float> read_values(float a, float b, float c, int* result) {
    float v[3] = {a, b, c};
    *result = read_screen_position_resolution(v);
    return {v[0], v[1], v[2]};
}

TEST(AirMouseSettings, MissingFileIsCreatedWithDefaults) {
    TempRoot root;
    int result = 1;
    EXPECT_EQ(read_values(-1, -1, -1, &result), (std::vector<float>{0, 1680, 1050}));
    EXPECT_EQ(result, 0);
    EXPECT_EQ(root.read(kFile), "0 1680 1050\n");
}

TEST(AirMouseSettings, WrittenValuesAreAppliedTruncatedAndLoggedAsRead) {
    TempRoot root;
    LogCapture log;
    const float values[3] = {1.0F, 1920.5F, 1080.0F};
    EXPECT_EQ(write_screen_position_resolution(values), 0);
    EXPECT_EQ(root.read(kFile), "1.0 1920.5 1080.0\n");
    EXPECT_EQ(set_screen_position_resolution(), 0);
    const imu::AirMouseState& s = imu::air_mouse_state();
    EXPECT_EQ(s.position_mode, 1);
    EXPECT_EQ(s.screen_width, 1920.0F);
    EXPECT_EQ(s.screen_height, 1080.0F);
    ASSERT_EQ(log.lines().size(), 1U);
    EXPECT_EQ(log.lines()[0].tag, "AirMouseAlgorithm");
    EXPECT_EQ(log.lines()[0].prio, 6);
    EXPECT_EQ(log.lines()[0].text,
              "Load position: 1.000000 screen_resolution=(1920.500000,1080.000000)\n");
}

TEST(AirMouseSettings, NegativeZeroIsWrittenAsItRounds) {
    TempRoot root;
    const float values[3] = {-0.04F, 800.04F, 600.06F};
    EXPECT_EQ(write_screen_position_resolution(values), 0);
    EXPECT_EQ(root.read(kFile), "-0.0 800.0 600.1\n");
}

struct ReadCase {
    const char* name;
    std::string content;
    int result;
    std::vector<float> values;  // starting from (7, 7, 7)
};

class AirMouseSettingsRead : public testing::TestWithParam<ReadCase> {};

TEST_P(AirMouseSettingsRead, TakesTheLeadingNumbers) {
    const ReadCase& c = GetParam();
    TempRoot root;
    root.write(kFile, c.content);
    LogCapture log;
    int result = 1;
    EXPECT_EQ(read_values(7, 7, 7, &result), c.values);
    EXPECT_EQ(result, c.result);
    if (c.result < 0) {
        EXPECT_EQ(log.count(std::string(std::strerror(-c.result)) + "\n"), 1);
    } else {
        EXPECT_TRUE(log.lines().empty());
    }
}

INSTANTIATE_TEST_SUITE_P(
    Contents, AirMouseSettingsRead,
    testing::Values(ReadCase{"WholeNumbers", "0 1680 1050\n", 0, {0, 1680, 1050}},
                    ReadCase{"OneDecimal", "1.0 1920.5 1080.0\n", 0, {1, 1920.5F, 1080}},
                    ReadCase{"NoNewline", "1 2 3", 0, {1, 2, 3}},
                    ReadCase{"SingleNumber", "1\n", 0, {1, 7, 7}},
                    ReadCase{"TruncatedInsideTheSecond", "1 19", 0, {1, 19, 7}},
                    ReadCase{"GarbageAfterOne", "1 x 3\n", 0, {1, 7, 7}},
                    ReadCase{"Empty", "", -EINVAL, {7, 7, 7}},
                    ReadCase{"OnlyBlank", " \n\n", -EINVAL, {7, 7, 7}},
                    ReadCase{"NotANumber", "velmo\n", -EINVAL, {7, 7, 7}},
                    ReadCase{"NanText", "nan 1 2\n", -EINVAL, {7, 7, 7}},
                    ReadCase{"FirstBeyondFloatRange", "1e99 1 2\n", -ERANGE, {7, 7, 7}},
                    ReadCase{"SecondBeyondFloatRange", "1 -1e99 2\n", 0, {1, 7, 7}},
                    ReadCase{"HugeButFinite", "3e38 1 1\n", 0, {3e38F, 1, 1}},
                    ReadCase{
                        "LongLine", "1 2 3" + std::string(100000, ' ') + "junk\n", 0, {1, 2, 3}}),
    [](const testing::TestParamInfo<ReadCase>& info) { return std::string(info.param.name); });

TEST(AirMouseSettings, FileThatIsADirectoryFailsWithItsError) {
    TempRoot root;
    root.mkdir(kFile);
    int result = 0;
    EXPECT_EQ(read_values(7, 7, 7, &result), (std::vector<float>{7, 7, 7}));
    EXPECT_EQ(result, -EISDIR);
    const float values[3] = {1, 2, 3};
    LogCapture log;
    EXPECT_EQ(write_screen_position_resolution(values), -EISDIR);
    EXPECT_EQ(log.count("open file '" + root.path(kFile) + "' failed: Is a directory\n"), 1);
}

TEST(AirMouseSettings, UncreatableFileIsTriedOnceAndReported) {
    TempRoot root;
    root.remove("/data/system");
    LogCapture log;
    int result = 0;
    read_values(7, 7, 7, &result);
    EXPECT_EQ(result, -ENOENT);
    read_values(7, 7, 7, &result);
    EXPECT_EQ(log.count("Unable to open " + root.path(kFile) + " (No such file or directory)"), 1);
    EXPECT_EQ(log.count("Cannot access \"" + root.path(kFile) + "\": No such file or directory"),
              2);
    const float values[3] = {1, 2, 3};
    EXPECT_EQ(write_screen_position_resolution(values), -ENOENT);
    EXPECT_EQ(log.count("open file '" + root.path(kFile) + "' failed: No such file or directory\n"),
              1);
    for (const auto& line : log.lines()) {
        EXPECT_EQ(line.tag, "AirMouseAlgorithm");
    }
}

TEST(AirMouseSettings, ExistingFileLeavesTheCheckArmed) {
    // An existing file leaves the check armed: when the file goes away it
    // is created again on the next call.
    TempRoot root;
    root.write(kFile, "1 2 3\n");
    int result = 0;
    read_values(7, 7, 7, &result);
    root.remove(kFile);
    EXPECT_EQ(read_values(7, 7, 7, &result), (std::vector<float>{0, 1680, 1050}));
}

TEST(AirMouseSettings, SetKeepsTheCurrentSettingsForMissingEntries) {
    TempRoot root;
    input_screen_resolution(800.0F, 600.0F);
    set_position(1);
    root.write(kFile, "0\n");
    EXPECT_EQ(set_screen_position_resolution(), 0);
    const imu::AirMouseState& s = imu::air_mouse_state();
    EXPECT_EQ(s.position_mode, 0);
    EXPECT_EQ(s.screen_width, 800.0F);
    EXPECT_EQ(s.screen_height, 600.0F);
    root.write(kFile, "garbage\n");
    set_position(1);
    EXPECT_EQ(set_screen_position_resolution(), 0);
    EXPECT_EQ(s.position_mode, 1);
    EXPECT_EQ(s.screen_width, 800.0F);
}

TEST(AirMouseSettings, SetSaturatesAPositionBeyondIntRange) {
    TempRoot root;
    root.write(kFile, "1e10 1366.9 -768.9\n");
    EXPECT_EQ(set_screen_position_resolution(), 0);
    const imu::AirMouseState& s = imu::air_mouse_state();
    EXPECT_EQ(s.position_mode, INT_MAX);
    EXPECT_EQ(s.screen_width, 1366.0F);
    EXPECT_EQ(s.screen_height, -768.0F);
}

TEST(AirMouseSettings, NullArgumentsAreRefused) {
    TempRoot root;
    EXPECT_EQ(write_screen_position_resolution(nullptr), -22);
    EXPECT_EQ(read_screen_position_resolution(nullptr), -22);
    EXPECT_FALSE(root.exists(kFile));
}

}  // namespace
