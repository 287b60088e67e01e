// The bundled demo recording, replayed with every virtual sensor on as
// imu-replay does without arguments: the library recognises what the
// recording's script ("# event" lines) says happened, when it happened, and
// nothing else.

#include <gtest/gtest.h>

#include <cstdlib>
#include <map>
#include <string>

#include "imu-replay/options.h"
#include "imu-replay/recording.h"
#include "imu-replay/replay.h"
#include "support/temp_root.h"

namespace imu::replay {
namespace {

// The gesture each scripted event must produce, and how long after the
// scripted start it may come (the motion itself takes time).
struct Expected {
    const char* gesture;
    double within_s;
};
const std::map<std::string, Expected> kRecognised = {
    {"shake", {"Shake", 2.0}},
    {"double_tap", {"Tap", 1.5}},
    {"face_down", {"Turn_Over", 2.0}},
};
constexpr double kAfterEventS = 2.5;  // any gesture must follow some event by at most this

class DemoTest : public testing::Test {
protected:
    void SetUp() override {
        path_ = std::string(IMU_SOURCE_DIR) + "/data/demo.csv";
        ASSERT_EQ(find_demo(), path_);
        ASSERT_EQ(read_recording(path_, Layout::kAuto, Units{}, rec_), "");
        Options o;
        ASSERT_EQ(parse_options({}, o), "");
        ReplaySettings s;
        s.enable = o.enable;
        ASSERT_EQ(run_replay(rec_, s, result_), "");
    }

    std::string path_;
    test::TempRoot root_;
    Recording rec_;
    ReplayResult result_;
};

TEST_F(DemoTest, ScriptedGesturesAreFoundAtTheirTimes) {
    ASSERT_FALSE(rec_.script.empty());
    int checked = 0;
    for (const ScriptEvent& e : rec_.script) {
        const auto want = kRecognised.find(e.name);
        if (want == kRecognised.end()) {
            continue;
        }
        ++checked;
        int found = 0;
        for (const Gesture& g : result_.gestures) {
            found += slot_name(g.index) == std::string(want->second.gesture) && g.t_s >= e.t_s &&
                             g.t_s <= e.t_s + want->second.within_s
                         ? 1
                         : 0;
        }
        EXPECT_EQ(found, 1) << e.name << " at " << e.t_s << " s";
    }
    EXPECT_EQ(checked, 3);
}

TEST_F(DemoTest, NoGestureWithoutAScriptedEvent) {
    for (const Gesture& g : result_.gestures) {
        bool explained = false;
        for (const ScriptEvent& e : rec_.script) {
            explained = explained || (g.t_s >= e.t_s && g.t_s <= e.t_s + kAfterEventS);
        }
        EXPECT_TRUE(explained) << slot_name(g.index) << " at " << g.t_s << " s";
    }
}

// The walk's steps are counted during the walk; the pedometer holds the
// first five back until the walk is regular, and may drop one at its start.
TEST_F(DemoTest, WalkStepsAreCountedDuringTheWalk) {
    const ScriptEvent* walk = nullptr;
    for (const ScriptEvent& e : rec_.script) {
        walk = e.name == "walk" ? &e : walk;
    }
    ASSERT_NE(walk, nullptr);
    const int scripted = std::atoi(walk->detail.c_str());  // "20 steps"
    ASSERT_GT(scripted, 0);
    EXPECT_NEAR(result_.step_count, scripted, 1.0);
    ASSERT_FALSE(result_.steps.empty());
    EXPECT_GE(result_.steps.front().t_s, walk->t_s);
    EXPECT_LE(result_.steps.back().t_s, walk->t_s + 1.0 * scripted);
    EXPECT_GT(result_.distance_m, 0.5 * scripted);
    EXPECT_LT(result_.distance_m, 1.0 * scripted);
}

// The orientation follows the truth through the whole minute.
TEST_F(DemoTest, OrientationStaysNearTheTruth) {
    EXPECT_EQ(result_.cycles, rec_.count[static_cast<int>(Sensor::kGyro)]);
    EXPECT_GT(result_.error_cycles, 0U);
    EXPECT_LT(result_.error_rms_deg, 5.0);
}

}  // namespace
}  // namespace imu::replay
