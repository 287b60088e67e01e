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

std::vector<float> read_values(int* result, float start = 7.0F) {
    float v[3] = {start, start, start};
    *result = read_screen_position_resolution(v);
    return {v[0], v[1], v[2]};
}

// Position mode and screen size in use.
std::vector<double> applied() {
    const imu::AirMouseState& s = imu::air_mouse_state();
    return {static_cast<double>(s.position_mode), s.screen_width, s.screen_height};
}

// An existing file leaves the check armed: a file gone later is created again.
TEST(AirMouseSettings, MissingFileIsCreatedWithDefaults) {
    TempRoot root;
    root.write(kFile, "1 2 3\n");
    int result = 1;
    EXPECT_EQ(read_values(&result), (std::vector<float>{1, 2, 3}));
    root.remove(kFile);
    EXPECT_EQ(read_values(&result, -1), (std::vector<float>{0, 1680, 1050}));
    EXPECT_EQ(result, 0);
    EXPECT_EQ(root.read(kFile), "0 1680 1050\n");
}

TEST(AirMouseSettings, WrittenValuesAreAppliedTruncatedAndLoggedAsRead) {
    TempRoot root;
    const float rounding[3] = {-0.04F, 800.04F, 600.06F};
    EXPECT_EQ(write_screen_position_resolution(rounding), 0);
    EXPECT_EQ(root.read(kFile), "-0.0 800.0 600.1\n");
    LogCapture log;
    const float values[3] = {1.0F, 1920.5F, 1080.0F};
    EXPECT_EQ(write_screen_position_resolution(values), 0);
    EXPECT_EQ(root.read(kFile), "1.0 1920.5 1080.0\n");
    EXPECT_EQ(set_screen_position_resolution(), 0);
    EXPECT_EQ(applied(), (std::vector<double>{1, 1920, 1080}));
    ASSERT_EQ(log.lines().size(), 1U);
    EXPECT_TRUE(log.lines()[0].tag == "AirMouseAlgorithm" && log.lines()[0].prio == 6);
    EXPECT_EQ(log.lines()[0].text,
              "Load position: 1.000000 screen_resolution=(1920.500000,1080.000000)\n");
}

struct ReadCase {
    std::string content;
    int result;
    std::vector<float> values;  // starting from (7, 7, 7)
};

// The leading numbers are taken; bad contents leave the values alone.
TEST(AirMouseSettings, ReadTakesTheLeadingNumbers) {
    const ReadCase cases[] = {{"0 1680 1050\n", 0, {0, 1680, 1050}},
                              {"1.0 1920.5 1080.0\n", 0, {1, 1920.5F, 1080}},
                              {"1 2 3", 0, {1, 2, 3}},
                              {"1\n", 0, {1, 7, 7}},
                              {"1 19", 0, {1, 19, 7}},  // truncated
                              {"1 x 3\n", 0, {1, 7, 7}},
                              {"", -EINVAL, {7, 7, 7}},
                              {" \n\n", -EINVAL, {7, 7, 7}},
                              {"velmo\n", -EINVAL, {7, 7, 7}},
                              {"nan 1 2\n", -EINVAL, {7, 7, 7}},
                              {"1e99 1 2\n", -ERANGE, {7, 7, 7}},
                              {"1 -1e99 2\n", 0, {1, 7, 7}},
                              {"3e38 1 1\n", 0, {3e38F, 1, 1}},
                              {"1 2 3" + std::string(100000, ' ') + "junk\n", 0, {1, 2, 3}}};
    for (const ReadCase& c : cases) {
        TempRoot root;
        root.write(kFile, c.content);
        LogCapture log;
        int result = 1;
        EXPECT_EQ(read_values(&result), c.values) << c.content.substr(0, 20);
        EXPECT_EQ(result, c.result) << c.content.substr(0, 20);
        EXPECT_EQ(log.lines().size(), c.result < 0 ? 1U : 0U);
        if (c.result < 0) {
            EXPECT_EQ(log.count(std::string(std::strerror(-c.result)) + "\n"), 1);
        }
    }
}

// A directory in the file's place fails with its error; a missing folder
// is tried once and reported, then only the access failure is logged.
TEST(AirMouseSettings, UnopenableOrUncreatableFileFailsWithItsError) {
    const float values[3] = {1, 2, 3};
    for (const bool folder_missing : {false, true}) {
        TempRoot root;
        folder_missing ? root.remove("/data/system") : root.mkdir(kFile);
        const std::string path = root.path(kFile);
        const int error = folder_missing ? -ENOENT : -EISDIR;
        LogCapture log;
        int result = 0;
        EXPECT_EQ(read_values(&result), (std::vector<float>{7, 7, 7}));
        EXPECT_EQ(result, error);
        read_values(&result);
        EXPECT_EQ(write_screen_position_resolution(values), error);
        EXPECT_EQ(log.count("open file '" + path + "' failed: " + std::strerror(-error) + "\n"), 1);
        EXPECT_EQ(log.count("Unable to open " + path + " (No such file or directory)"),
                  folder_missing ? 1 : 0);
        EXPECT_EQ(log.count("Cannot access \"" + path + "\": No such file or directory"),
                  folder_missing ? 2 : 0);
        for (const auto& line : log.lines()) {
            EXPECT_EQ(line.tag, "AirMouseAlgorithm");
        }
    }
    EXPECT_EQ(write_screen_position_resolution(nullptr), -22);
    EXPECT_EQ(read_screen_position_resolution(nullptr), -22);
}

TEST(AirMouseSettings, SetKeepsCurrentValuesForMissingEntriesAndSaturates) {
    TempRoot root;
    input_screen_resolution(800.0F, 600.0F);
    set_position(1);
    root.write(kFile, "0\n");
    EXPECT_EQ(set_screen_position_resolution(), 0);
    EXPECT_EQ(applied(), (std::vector<double>{0, 800, 600}));
    root.write(kFile, "garbage\n");
    set_position(1);
    EXPECT_EQ(set_screen_position_resolution(), 0);
    EXPECT_EQ(applied(), (std::vector<double>{1, 800, 600}));
    root.write(kFile, "1e10 1366.9 -768.9\n");
    EXPECT_EQ(set_screen_position_resolution(), 0);
    EXPECT_EQ(applied(), (std::vector<double>{INT_MAX, 1366, -768}));
}

}  // namespace
