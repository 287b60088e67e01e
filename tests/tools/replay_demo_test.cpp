// The bundled demo recording, replayed as imu-replay does without
// arguments: the library recognises what the recording's script ("# event"
// lines) says happened, when it happened, and nothing else.

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

TEST(DemoTest, ReplayMatchesTheScript) {
    test::TempRoot root;
    const std::string path = std::string(IMU_SOURCE_DIR) + "/data/demo.csv";
    ASSERT_EQ(find_demo(), path);
    Recording rec;
    ASSERT_EQ(read_recording(path, Layout::kAuto, Units{}, rec), "");
    Options o;
    ASSERT_EQ(parse_options({}, o), "");
    ReplaySettings s;
    s.enable = o.enable;
    ReplayResult r;
    ASSERT_EQ(run_replay(rec, s, r), "");

    // The gesture each scripted event must produce and how soon (the motion
    // itself takes time); any gesture must follow some event within 2.5 s.
    const std::map<std::string, std::pair<std::string, double>> recognised = {
        {"shake", {"Shake", 2.0}}, {"double_tap", {"Tap", 1.5}}, {"face_down", {"Turn_Over", 2.0}}};
    int checked = 0;
    const ScriptEvent* walk = nullptr;
    for (const ScriptEvent& e : rec.script) {
        walk = e.name == "walk" ? &e : walk;
        const auto want = recognised.find(e.name);
        if (want == recognised.end()) {
            continue;
        }
        ++checked;
        int found = 0;
        for (const Gesture& g : r.gestures) {
            found += slot_name(g.index) == want->second.first && g.t_s >= e.t_s &&
                     g.t_s <= e.t_s + want->second.second;
        }
        EXPECT_EQ(found, 1) << e.name << " at " << e.t_s << " s";
    }
    EXPECT_EQ(checked, 3);
    for (const Gesture& g : r.gestures) {
        bool explained = false;
        for (const ScriptEvent& e : rec.script) {
            explained = explained || (g.t_s >= e.t_s && g.t_s <= e.t_s + 2.5);
        }
        EXPECT_TRUE(explained) << slot_name(g.index) << " at " << g.t_s << " s";
    }

    // The steps fall in the walk; the pedometer holds the first five back
    // until the walk is regular, and may drop one at its start.
    ASSERT_NE(walk, nullptr);
    const int scripted = std::atoi(walk->detail.c_str());  // "20 steps"
    ASSERT_GT(scripted, 0);
    EXPECT_NEAR(r.step_count, scripted, 1.0);
    ASSERT_FALSE(r.steps.empty());
    EXPECT_GE(r.steps.front().t_s, walk->t_s);
    EXPECT_LE(r.steps.back().t_s, walk->t_s + 1.0 * scripted);
    EXPECT_GT(r.distance_m, 0.5 * scripted);
    EXPECT_LT(r.distance_m, 1.0 * scripted);

    EXPECT_EQ(r.cycles, rec.count[static_cast<int>(Sensor::kGyro)]);
    EXPECT_GT(r.error_cycles, 0U);
    EXPECT_LT(r.error_rms_deg, 5.0);
}

}  // namespace
}  // namespace imu::replay
