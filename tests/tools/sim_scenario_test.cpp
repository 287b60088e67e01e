// Scenario files that imu-sim cannot use: each stops it with the file, the
// line and what is wrong.

#include <gtest/gtest.h>

#include <sstream>
#include <string>

#include "sim/scenario.h"

namespace imu::sim {
namespace {

struct BadScenario {
    const char* text;
    int line;
    const char* message;  // what() is "s.scenario:<line>: <message>"
};

void PrintTo(const BadScenario& c, std::ostream* os) {
    for (const char* p = c.text; *p != '\0'; ++p) {
        *os << (*p == '\n' ? ';' : *p);
    }
}

class ScenarioErrors : public testing::TestWithParam<BadScenario> {};

TEST_P(ScenarioErrors, NameTheFileAndLine) {
    const BadScenario& c = GetParam();
    std::istringstream in(c.text);
    try {
        parse_scenario(in, "s.scenario");
        FAIL() << "accepted: " << c.text;
    } catch (const ScenarioError& e) {
        const std::string where = c.line > 0 ? ":" + std::to_string(c.line) : "";
        EXPECT_EQ(std::string(e.what()), "s.scenario" + where + ": " + c.message);
        EXPECT_EQ(e.line(), c.line);
    }
}

INSTANTIATE_TEST_SUITE_P(
    Table, ScenarioErrors,
    testing::Values(
        BadScenario{"", 0, "no steps"}, BadScenario{"# only a comment\nrate 100\n", 0, "no steps"},
        BadScenario{"still 1\n\n# note\njump 3\n", 4,
                    "unknown step 'jump' (steps: still, pick_up, lay_flat, turn, walk, shake, "
                    "double_tap, snap, face_down, face_up; settings: rate, mag_rate, seed, "
                    "noise, start)"},
        BadScenario{"still\n", 1, "still needs seconds"},
        BadScenario{"still 1 2\n", 1, "still takes at most 1 number"},
        BadScenario{"start hand\nwalk 3 0.5 1\n", 2, "walk takes at most 2 numbers"},
        BadScenario{"shake now\n", 1, "shake takes no numbers"},
        BadScenario{"still abc\n", 1, "still: seconds must be a number, not 'abc'"},
        BadScenario{"still 1s\n", 1, "still: seconds must be a number, not '1s'"},
        BadScenario{"still nan\n", 1, "still: seconds must be a number, not 'nan'"},
        BadScenario{"still inf\n", 1, "still: seconds must be a number, not 'inf'"},
        BadScenario{"still 0\n", 1, "still: seconds must be from 0.001 to 3600, not '0'"},
        BadScenario{"start hand\nwalk 2.5\n", 2,
                    "walk: steps must be a whole number from 1 to 10000, not '2.5'"},
        BadScenario{"start hand\nwalk 20 2\n", 2, "walk: period must be from 0.3 to 1.5, not '2'"},
        BadScenario{"start hand\ndouble_tap 0.6\n", 2,
                    "double_tap: gap must be from 0.1 to 0.5, not '0.6'"},
        BadScenario{"turn 0\n", 1, "turn: degrees must not be 0"},
        BadScenario{"walk 20\n", 1,
                    "walk needs the phone held in the hand, but it is lying flat face up "
                    "(pick_up first)"},
        BadScenario{"pick_up\npick_up\n", 2,
                    "pick_up needs the phone lying flat face up, but it is held in the hand "
                    "(lay_flat or face_up first)"},
        BadScenario{"face_up\n", 1,
                    "face_up needs the phone lying face down, but it is lying flat face up "
                    "(face_down first)"},
        BadScenario{"start face_down\ndouble_tap\n", 2,
                    "double_tap needs the phone held in the hand, but it is lying face down "
                    "(pick_up first)"},
        BadScenario{"still 1\nrate 100\n", 2, "rate must come before the first step"},
        BadScenario{"rate 10\n", 1, "rate must be from 20 to 1000, not '10'"},
        BadScenario{"rate\n", 1, "rate takes one number"},
        BadScenario{"seed 1.5\n", 1, "seed must be a whole number from 0 to 4294967295, not '1.5'"},
        BadScenario{"noise -1\n", 1, "noise must be from 0 to 10, not '-1'"},
        BadScenario{"start sideways\n", 1,
                    "start: unknown pose 'sideways' (flat, face_down or hand)"},
        BadScenario{"start\n", 1,
                    "start takes a pose (flat, face_down or hand) and an optional azimuth in "
                    "degrees"},
        BadScenario{"start flat 400\n", 1, "start: azimuth must be from 0 to 360, not '400'"}));

// Comments, blank lines, defaults and the pose each step leaves behind.
TEST(Scenario, ReadsSettingsStepsAndDefaults) {
    std::istringstream in(
        "# a walk\n"
        "rate 100   # Hz\n"
        "mag_rate 50\n"
        "noise 0.5\n"
        "seed 7\n"
        "start flat 90\n"
        "\n"
        "pick_up\n"
        "walk 4\n"
        "turn -45 3\n");
    const Scenario s = parse_scenario(in, "w");
    EXPECT_EQ(s.rate_hz, 100.0);
    EXPECT_EQ(s.mag_rate_hz, 50.0);
    EXPECT_EQ(s.noise, 0.5);
    EXPECT_EQ(s.seed, 7U);
    EXPECT_EQ(s.start, HeldPose::kFlat);
    EXPECT_EQ(s.start_azimuth_deg, 90.0);
    ASSERT_EQ(s.steps.size(), 3U);
    EXPECT_EQ(s.steps[0].kind, StepKind::kPickUp);
    EXPECT_EQ(s.steps[0].args[0], 1.0);
    EXPECT_EQ(s.steps[0].line, 8);
    EXPECT_EQ(s.steps[1].kind, StepKind::kWalk);
    EXPECT_EQ(s.steps[1].args[0], 4.0);
    EXPECT_EQ(s.steps[1].args[1], 0.5);
    EXPECT_EQ(s.steps[2].kind, StepKind::kTurn);
    EXPECT_EQ(s.steps[2].args[0], -45.0);
    EXPECT_EQ(s.steps[2].args[1], 3.0);
}

TEST(Scenario, BuiltInDemoParses) {
    ASSERT_NE(builtin_scenario("demo"), nullptr);
    EXPECT_EQ(builtin_scenario("nosuch"), nullptr);
    std::istringstream in(builtin_scenario("demo"));
    EXPECT_FALSE(parse_scenario(in, "demo").steps.empty());
}

}  // namespace
}  // namespace imu::sim
