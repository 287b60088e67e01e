// The command line: what each option sets, and the error for each misuse.

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "imu-replay/options.h"
#include "imu-replay/replay.h"

namespace imu::replay {
namespace {

TEST(OptionsTest, EachMisuseIsRefusedWithItsReason) {
    const std::string unknown = "' (a name such as Orientation, or 0 to 26)";
    const std::pair<std::vector<std::string>, std::string> cases[] = {
        {{"--mode"}, "--mode needs a value"},
        {{"--mode", "6"}, "--mode takes 0 to 5, not '6'"},
        {{"-m", "x"}, "--mode takes 0 to 5, not 'x'"},
        {{"-s", "Orientation,Bogus"}, "unknown virtual sensor 'Bogus" + unknown},
        {{"-s", "27"}, "unknown virtual sensor '27" + unknown},
        {{"-s", "Tap,"}, "unknown virtual sensor '" + unknown},
        {{"--slots", "Gravity,-1"}, "unknown virtual sensor '-1" + unknown},
        {{"--plot", "out.jpg"}, "--plot takes a file name ending in .png, not 'out.jpg'"},
        {{"--format", "xml"}, "--format takes auto, event or wide, not 'xml'"},
        {{"--acc-unit", "km/h"}, "--acc-unit takes g or m/s2, not 'km/h'"},
        {{"--gyro-unit", "rpm"}, "--gyro-unit takes deg/s or rad/s, not 'rpm'"},
        {{"--mag-unit", "G"}, "--mag-unit takes uT, not 'G'"},
        {{"--settle", "-1"}, "--settle takes seconds (0 or more), not '-1'"},
        {{"--root", ""}, "--root needs a folder"},
        {{"-s", "Gyro,6"}, "--sensors needs a virtual sensor besides Gyro and Acceleration (they "
                           "only prepare; no cycle runs without another)"},
        {{"--frobnicate"}, "unknown option --frobnicate"},
        {{"a.csv", "b.csv"}, "one recording at a time ('a.csv' and 'b.csv')"},
    };
    for (const auto& [args, error] : cases) {
        Options o;
        EXPECT_EQ(parse_options(args, o), error) << args[0];
    }
}

TEST(OptionsTest, SetsWhatItIsGiven) {
    Options o;
    ASSERT_EQ(parse_options({}, o), "");
    EXPECT_EQ(o.enable.size(), 26U);  // everything but the calibration
    for (const int i : o.enable) {
        EXPECT_NE(i, kCalibrationSlot);
    }
    EXPECT_EQ(o.out_slots, std::vector<int>{kOrientationSlot});
    o = Options{};
    ASSERT_EQ(parse_options({"-s", "orientation,TAP,24", "--slots", "Gravity,Orientation", "-m",
                             "2", "--acc-unit", "g", "--gyro-unit", "deg/s", "--format", "wide",
                             "-o", "-", "--plot", "a.png", "--root", "/tmp/r", "rec.csv"},
                            o),
              "");
    EXPECT_EQ(o.enable, (std::vector<int>{4, 12, 24}));
    EXPECT_EQ(o.out_slots, (std::vector<int>{2, 4}));
    EXPECT_EQ(o.mode, 2);
    EXPECT_TRUE(o.units.acc_in_g && o.units.gyro_in_deg);
    EXPECT_EQ(o.layout, Layout::kWide);
    EXPECT_EQ((std::vector<std::string>{o.output, o.plot, o.root, o.input}),
              (std::vector<std::string>{"-", "a.png", "/tmp/r", "rec.csv"}));
    EXPECT_EQ(plot_next_to("data/demo.csv"), "data/demo.png");
    EXPECT_EQ(plot_next_to("a.b/rec"), "a.b/rec.png");
}

}  // namespace
}  // namespace imu::replay
