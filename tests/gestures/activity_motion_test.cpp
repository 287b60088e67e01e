// Motion classes from the motion level, and the host's tilt detector.

#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <string>
#include <vector>

#include "imu/gestures.h"
#include "sim/activity_sequences.h"

namespace {

using imu::test::ActivityRecording;

struct Recording {
    const char* name;
    ActivityRecording (*record)();
    double from_s;  // classes are looked at from here on
    float expected;
};

class MotionDetection : public ::testing::TestWithParam<Recording> {};

TEST_P(MotionDetection, RecordingHasOneClass) {
    const Recording& c = GetParam();
    const ActivityRecording frames = c.record();
    for (std::size_t i = 0; i < frames.size(); ++i) {
        imu::test::feed_pipeline(frames[i]);
        float out[3] = {5.0F, 5.0F, 5.0F};
        ASSERT_EQ(sfc_get_motion_detection(out), 0);
        ASSERT_EQ(out[0] + out[1], 0.0F);
        if (static_cast<double>(i) * imu::test::kActivityDtS >= c.from_s) {
            ASSERT_EQ(out[2], c.expected) << "frame " << i;
        }
    }
}

// In the hand the walk sways the phone by 0.15 rad/s (a level of a few
// hundred); carried loosely it swings by 1.2 rad/s (a level above 1000).
ActivityRecording held_still() {
    imu::test::ActivityScript s(imu::test::Carry::kHand);
    return s.hold(3.0).frames();
}
ActivityRecording still_flat() { return imu::test::still_flat(3.0); }
ActivityRecording hand_walk() { return imu::test::hand_walk(16, 0.5, 1.0); }
ActivityRecording carried_walk() { return imu::test::carried_walk(16, 0.5); }

INSTANTIATE_TEST_SUITE_P(Recordings, MotionDetection,
                         ::testing::Values(Recording{"still_flat", still_flat, 0, 0},
                                           Recording{"held_still", held_still, 0.5, 1},
                                           Recording{"hand_walk", hand_walk, 2.0, 1},
                                           Recording{"carried_walk", carried_walk, 1.0, 2}),
                         [](const auto& info) { return std::string(info.param.name); });

// Class 0 needs L < 7 and |gravity z| > 8.5 (9.0 here); class 2 needs L > 1000.
TEST(MotionDetectionLimits, ClassAtTheBoundaries) {
    const float cases[][3] = {{6.9F, 9.0F, 0}, {7.0F, 9.0F, 1}, {6.9F, 8.5F, 1},
                              {1000.0F, 0, 1}, {1000.1F, 0, 2}, {1000.1F, 9.8F, 2}};
    for (const auto& c : cases) {
        gyro_static_level_g = c[0];
        gravity_g_abs[2] = c[1];
        float out[3];
        EXPECT_EQ(sfc_get_motion_detection(out), 0);
        EXPECT_EQ(out[2], c[2]) << "L=" << c[0] << " |gz|=" << c[1];
    }
}

void detect(float a0, float a1, int times = 1) {
    for (int i = 0; i < times; ++i) {
        float angles[2] = {a0, a1};
        imu_motion_detect(angles);
    }
}

std::vector<int> flags() {
    std::vector<int> f;
    for (int i = 0; i < 5; ++i) {
        f.push_back(imu_motion_is_detected(i));
    }
    return f;
}

// Angles (deg) and the flag the seventh call raises, -1 for none.
TEST(TiltDetector, FlagOfTheDirection) {
    const float cases[][3] = {{0, 20, 0},    {0, -20, 1},   {20, 0, 3},
                              {-20, 0, 2},   {0, 10, -1},    // 10 is not beyond 10
                              {20, 20, 0},                   // angles[1] is looked at first
                              {0, 100, 1},   {200, 0, 3},    // tan(100 deg) < 0; -160 deg, tan > 0
                              {355, 0, -1},  {-355, 0, -1},  // +-5 deg: level
                              {NAN, NAN, -1}};
    for (const auto& c : cases) {
        imu_motion_reset();
        detect(c[0], c[1], 7);
        std::vector<int> expected(5, 0);
        if (c[2] >= 0) {
            expected[static_cast<std::size_t>(c[2])] = 1;
        }
        EXPECT_EQ(flags(), expected) << c[0] << ", " << c[1];
    }
}

// Six tilted calls only count, the seventh in a row raises the flag; a
// level call in between starts the count again. The other flag of a pair
// stays set while the tilt lasts; a tilt of the other angle clears the
// pair, a level call clears all four. A held tilt saturates the count;
// reset clears flags and count.
TEST(TiltDetector, SeventhTiltedCallRaisesAFlagUntilCleared) {
    detect(0.0F, 20.0F, 6);
    detect(0.0F, 5.0F);
    detect(0.0F, 20.0F, 6);
    EXPECT_EQ(flags(), (std::vector<int>{0, 0, 0, 0, 0}));
    EXPECT_EQ(motion.count, 6);
    const struct {
        float a0, a1;
        std::vector<int> flags;
    } steps[] = {{0, 20, {1, 0, 0, 0, 0}},  {0, -20, {1, 1, 0, 0, 0}}, {30, 0, {0, 0, 0, 1, 0}},
                 {-30, 0, {0, 0, 1, 1, 0}}, {0, 0, {0, 0, 0, 0, 0}}};
    for (const auto& s : steps) {
        detect(s.a0, s.a1);
        EXPECT_EQ(flags(), s.flags) << s.a0 << ", " << s.a1;
    }
    EXPECT_EQ(motion.count, 0);
    motion.count = INT32_MAX;
    detect(0.0F, 20.0F);
    EXPECT_EQ(motion.count, INT32_MAX);
    imu_motion_reset();
    EXPECT_EQ(flags(), (std::vector<int>{0, 0, 0, 0, 0}));
    EXPECT_EQ(motion.count, 0);
}

}  // namespace
