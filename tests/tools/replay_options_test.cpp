// The command line: what each option sets, and the error for each misuse.

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "imu-replay/options.h"
#include "imu-replay/replay.h"

namespace imu::replay {
namespace {

struct BadArgs {
    std::vector<std::string> args;
    const char* error;
};

class BadOptionTest : public testing::TestWithParam<BadArgs> {};

TEST_P(BadOptionTest, IsRefusedWithItsReason) {
    Options o;
    EXPECT_EQ(parse_options(GetParam().args, o), GetParam().error);
}

INSTANTIATE_TEST_SUITE_P(
    Options, BadOptionTest,
    testing::Values(
        BadArgs{{"--mode"}, "--mode needs a value"},
        BadArgs{{"--mode", "6"}, "--mode takes 0 to 5, not '6'"},
        BadArgs{{"-m", "x"}, "--mode takes 0 to 5, not 'x'"},
        BadArgs{{"-s", "Orientation,Bogus"},
                "unknown virtual sensor 'Bogus' (a name such as Orientation, or 0 to 26)"},
        BadArgs{{"-s", "27"}, "unknown virtual sensor '27' (a name such as Orientation, or 0 to 26)"},
        BadArgs{{"-s", "Tap,"}, "unknown virtual sensor '' (a name such as Orientation, or 0 to 26)"},
        BadArgs{{"--slots", "Gravity,-1"},
                "unknown virtual sensor '-1' (a name such as Orientation, or 0 to 26)"},
        BadArgs{{"--plot", "out.jpg"}, "--plot takes a file name ending in .png, not 'out.jpg'"},
        BadArgs{{"--format", "xml"}, "--format takes auto, event or wide, not 'xml'"},
        BadArgs{{"--acc-unit", "km/h"}, "--acc-unit takes g or m/s2, not 'km/h'"},
        BadArgs{{"--gyro-unit", "rpm"}, "--gyro-unit takes deg/s or rad/s, not 'rpm'"},
        BadArgs{{"--mag-unit", "G"}, "--mag-unit takes uT, not 'G'"},
        BadArgs{{"--settle", "-1"}, "--settle takes seconds (0 or more), not '-1'"},
        BadArgs{{"--root", ""}, "--root needs a folder"},
        BadArgs{{"-s", "Gyro,6"},
                "--sensors needs a virtual sensor besides Gyro and Acceleration (they only "
                "prepare; no cycle runs without another)"},
        BadArgs{{"--frobnicate"}, "unknown option --frobnicate"},
        BadArgs{{"a.csv", "b.csv"}, "one recording at a time ('a.csv' and 'b.csv')"}));

TEST(OptionsTest, DefaultsEnableEverySensorButTheCalibration) {
    Options o;
    ASSERT_EQ(parse_options({}, o), "");
    EXPECT_EQ(o.enable.size(), 26U);
    for (const int i : o.enable) {
        EXPECT_NE(i, kCalibrationSlot);
    }
    EXPECT_EQ(o.out_slots, std::vector<int>{kOrientationSlot});
    EXPECT_EQ(o.mode, 0);
    EXPECT_TRUE(o.input.empty());
    EXPECT_TRUE(o.plot.empty());
}

TEST(OptionsTest, SetsWhatItIsGiven) {
    Options o;
    ASSERT_EQ(parse_options({"-s", "orientation,TAP,24", "--slots", "Gravity,Orientation", "-m",
                             "2", "--acc-unit", "g", "--gyro-unit", "deg/s", "--format", "wide",
                             "-o", "-", "--plot", "a.png", "--root", "/tmp/r", "rec.csv"},
                            o),
              "");
    EXPECT_EQ(o.enable, (std::vector<int>{4, 12, 24}));
    EXPECT_EQ(o.out_slots, (std::vector<int>{2, 4}));
    EXPECT_EQ(o.mode, 2);
    EXPECT_TRUE(o.units.acc_in_g);
    EXPECT_TRUE(o.units.gyro_in_deg);
    EXPECT_EQ(o.layout, Layout::kWide);
    EXPECT_EQ(o.output, "-");
    EXPECT_EQ(o.plot, "a.png");
    EXPECT_EQ(o.root, "/tmp/r");
    EXPECT_EQ(o.input, "rec.csv");
}

TEST(OptionsTest, PlotGoesNextToTheRecording) {
    EXPECT_EQ(plot_next_to("data/demo.csv"), "data/demo.png");
    EXPECT_EQ(plot_next_to("a.b/rec"), "a.b/rec.png");
}

}  // namespace
}  // namespace imu::replay
