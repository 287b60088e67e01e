// Scenario files: what imu-sim reads from them, and for each kind of file it
// cannot use, the file, the line and what is wrong.

#include <gtest/gtest.h>

#include <sstream>
#include <string>

#include "sim/scenario.h"

namespace imu::sim {
namespace {

TEST(Scenario, BrokenFileNamesTheFileAndLine) {
    const struct {
        const char* text;
        int line;
        const char* message;  // what() is "s.scenario:<line>: <message>"
    } cases[] = {
        {"", 0, "no steps"},
        {"# only a comment\nrate 100\n", 0, "no steps"},
        {"still 1\n\n# note\njump 3\n", 4,
         "unknown step 'jump' (steps: still, pick_up, lay_flat, turn, walk, shake, double_tap, "
         "snap, face_down, face_up; settings: rate, mag_rate, seed, noise, start)"},
        {"still\n", 1, "still needs seconds"},
        {"start hand\nwalk 3 0.5 1\n", 2, "walk takes at most 2 numbers"},
        {"shake now\n", 1, "shake takes no numbers"},
        {"still 1s\n", 1, "still: seconds must be a number, not '1s'"},
        {"still nan\n", 1, "still: seconds must be a number, not 'nan'"},
        {"still 0\n", 1, "still: seconds must be from 0.001 to 3600, not '0'"},
        {"start hand\nwalk 2.5\n", 2,
         "walk: steps must be a whole number from 1 to 10000, not '2.5'"},
        {"turn 0\n", 1, "turn: degrees must not be 0"},
        {"walk 20\n", 1,
         "walk needs the phone held in the hand, but it is lying flat face up (pick_up first)"},
        {"pick_up\npick_up\n", 2,
         "pick_up needs the phone lying flat face up, but it is held in the hand (lay_flat or "
         "face_up first)"},
        {"face_up\n", 1,
         "face_up needs the phone lying face down, but it is lying flat face up (face_down "
         "first)"},
        {"still 1\nrate 100\n", 2, "rate must come before the first step"},
        {"rate 10\n", 1, "rate must be from 20 to 1000, not '10'"},
        {"rate\n", 1, "rate takes one number"},
        {"start sideways\n", 1, "start: unknown pose 'sideways' (flat, face_down or hand)"},
        {"start\n", 1,
         "start takes a pose (flat, face_down or hand) and an optional azimuth in degrees"},
    };
    for (const auto& c : cases) {
        std::istringstream in(c.text);
        try {
            parse_scenario(in, "s.scenario");
            ADD_FAILURE() << "accepted: " << c.text;
        } catch (const ScenarioError& e) {
            const std::string where = c.line > 0 ? ":" + std::to_string(c.line) : "";
            EXPECT_EQ(std::string(e.what()), "s.scenario" + where + ": " + c.message);
            EXPECT_EQ(e.line(), c.line);
        }
    }
}

// Comments, blank lines, defaults and the pose each step leaves behind.
TEST(Scenario, ReadsSettingsStepsAndDefaults) {
    std::istringstream in("# a walk\nrate 100   # Hz\nmag_rate 50\nnoise 0.5\nseed 7\n"
                          "start flat 90\n\npick_up\nwalk 4\nturn -45 3\n");
    const Scenario s = parse_scenario(in, "w");
    EXPECT_EQ(s.rate_hz, 100.0);
    EXPECT_EQ(s.mag_rate_hz, 50.0);
    EXPECT_EQ(s.noise, 0.5);
    EXPECT_EQ(s.seed, 7U);
    EXPECT_EQ(s.start, HeldPose::kFlat);
    EXPECT_EQ(s.start_azimuth_deg, 90.0);
    ASSERT_EQ(s.steps.size(), 3U);
    EXPECT_EQ(s.steps[0].line, 8);
    const StepKind kinds[] = {StepKind::kPickUp, StepKind::kWalk, StepKind::kTurn};
    const double args[][2] = {{1.0, 0.0}, {4.0, 0.5}, {-45.0, 3.0}};
    for (std::size_t i = 0; i < 3; ++i) {
        EXPECT_EQ(s.steps[i].kind, kinds[i]) << i;
        EXPECT_EQ(s.steps[i].args[0], args[i][0]) << i;
        EXPECT_TRUE(i == 0 || s.steps[i].args[1] == args[i][1]) << i;
    }
}

}  // namespace
}  // namespace imu::sim
