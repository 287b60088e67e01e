// Motion classes from the motion level, and the host's tilt detector.

#include <gtest/gtest.h>

#include <climits>
#include <cmath>
#include <ostream>
#include <string>
#include <vector>

#include "imu/gestures.h"
#include "support/activity_sequences.h"

namespace {

using imu::test::ActivityRecording;
using imu::test::ActivityScript;
using imu::test::Carry;

// ---------------------------------------------------------- motion class ----

// The classes reported over the frames from `from_s` on.
std::vector<float> classes(const ActivityRecording& frames, double from_s) {
    std::vector<float> seen;
    for (std::size_t i = 0; i < frames.size(); ++i) {
        imu::test::feed_pipeline(frames[i]);
        float out[3] = {5.0F, 5.0F, 5.0F};
        EXPECT_EQ(sfc_get_motion_detection(out), 0);
        EXPECT_EQ(out[0], 0.0F);
        EXPECT_EQ(out[1], 0.0F);
        if (static_cast<double>(i) * imu::test::kActivityDtS >= from_s &&
            (seen.empty() || seen.back() != out[2])) {
            seen.push_back(out[2]);
        }
    }
    return seen;
}

TEST(MotionDetection, StillFlatPhoneIsClassZero) {
    EXPECT_EQ(classes(imu::test::still_flat(3.0), 0.0), std::vector<float>{0.0F});
}

// Held in the hand without walking: still, but not lying flat.
TEST(MotionDetection, PhoneHeldStillIsMoving) {
    ActivityScript s(Carry::kHand);
    s.hold(3.0);
    EXPECT_EQ(classes(s.frames(), 0.5), std::vector<float>{1.0F});
}

// Walking with the phone in the hand sways it by 0.15 rad/s (level of a
// few hundred); carried loosely it swings by 1.2 rad/s (level above 1000).
TEST(MotionDetection, WalkingIsMovingAndSwingingIsMovingStrongly) {
    EXPECT_EQ(classes(imu::test::hand_walk(16, 0.5, 1.0), 2.0), std::vector<float>{1.0F});
    EXPECT_EQ(classes(imu::test::carried_walk(16, 0.5), 1.0), std::vector<float>{2.0F});
}

struct LevelCase {
    float level;
    float gravity_z;  // gravity_g_abs z, m/s^2
    float expected;
};

void PrintTo(const LevelCase& c, std::ostream* os) {
    *os << "L=" << c.level << " |gz|=" << c.gravity_z;
}

class MotionDetectionLimits : public ::testing::TestWithParam<LevelCase> {};

TEST_P(MotionDetectionLimits, ClassAtTheBoundaries) {
    const LevelCase& c = GetParam();
    gyro_static_level_g = c.level;
    gravity_g_abs[2] = c.gravity_z;
    float out[3] = {5.0F, 5.0F, 5.0F};
    EXPECT_EQ(sfc_get_motion_detection(out), 0);
    EXPECT_EQ(out[2], c.expected);
}

INSTANTIATE_TEST_SUITE_P(Boundaries, MotionDetectionLimits,
                         ::testing::Values(LevelCase{6.9F, 9.0F, 0.0F}, LevelCase{7.0F, 9.0F, 1.0F},
                                           LevelCase{6.9F, 8.5F, 1.0F},
                                           LevelCase{1000.0F, 0.0F, 1.0F},
                                           LevelCase{1000.1F, 0.0F, 2.0F},
                                           LevelCase{1000.1F, 9.8F, 2.0F}));

TEST(MotionDetection, NullSlotIsRefused) { EXPECT_EQ(sfc_get_motion_detection(nullptr), -22); }

// ------------------------------------------------------------ tilt ----

void detect(float a0, float a1, int times = 1) {
    for (int i = 0; i < times; ++i) {
        float angles[2] = {a0, a1};
        imu_motion_detect(angles);
    }
}

std::vector<int> flags() {
    std::vector<int> f;
    f.reserve(5);
    for (int i = 0; i < 5; ++i) {
        f.push_back(imu_motion_is_detected(i));
    }
    return f;
}

// Six tilted calls only count; the seventh in a row raises the flag.
TEST(TiltDetector, SeventhTiltedCallRaisesTheFlag) {
    detect(0.0F, 20.0F, 6);
    EXPECT_EQ(flags(), (std::vector<int>{0, 0, 0, 0, 0}));
    EXPECT_EQ(motion.count, 6);
    detect(0.0F, 20.0F);
    EXPECT_EQ(flags(), (std::vector<int>{1, 0, 0, 0, 0}));
    EXPECT_EQ(motion.count, 7);
}

// A level call in between starts the count again.
TEST(TiltDetector, LevelCallRestartsTheCount) {
    detect(0.0F, 20.0F, 6);
    detect(0.0F, 5.0F);
    EXPECT_EQ(motion.count, 0);
    detect(0.0F, 20.0F, 6);
    EXPECT_EQ(imu_motion_is_detected(0), 0);
}

struct TiltCase {
    float a0;
    float a1;
    int flag;  // the flag raised on the seventh call, -1 for none
};

void PrintTo(const TiltCase& c, std::ostream* os) {
    *os << "angles=(" << c.a0 << ", " << c.a1 << ")";
}

class TiltDirections : public ::testing::TestWithParam<TiltCase> {};

TEST_P(TiltDirections, SeventhCallRaisesTheFlagOfTheDirection) {
    const TiltCase& c = GetParam();
    detect(c.a0, c.a1, 7);
    std::vector<int> expected(5, 0);
    if (c.flag >= 0) {
        expected[static_cast<std::size_t>(c.flag)] = 1;
    }
    EXPECT_EQ(flags(), expected);
}

INSTANTIATE_TEST_SUITE_P(
    Angles, TiltDirections,
    ::testing::Values(TiltCase{0.0F, 20.0F, 0}, TiltCase{0.0F, -20.0F, 1}, TiltCase{20.0F, 0.0F, 3},
                      TiltCase{-20.0F, 0.0F, 2}, TiltCase{0.0F, 10.0F, -1},  // 10 is not beyond 10
                      TiltCase{20.0F, 20.0F, 0},    // angles[1] is looked at first
                      TiltCase{0.0F, 100.0F, 1},    // tan(100 deg) < 0
                      TiltCase{200.0F, 0.0F, 3},    // -160 deg, tan > 0
                      TiltCase{355.0F, 0.0F, -1},   // -5 deg: level
                      TiltCase{-355.0F, 0.0F, -1},  // 5 deg: level
                      TiltCase{NAN, NAN, -1}));

// The other flag of a pair stays set while the tilt lasts; a tilt of the
// other angle clears the pair, a level call clears all four.
TEST(TiltDetector, FlagsClearOnlyByTheOtherPairOrLevel) {
    detect(0.0F, 20.0F, 7);
    detect(0.0F, -20.0F);
    EXPECT_EQ(flags(), (std::vector<int>{1, 1, 0, 0, 0}));
    detect(30.0F, 0.0F);
    EXPECT_EQ(flags(), (std::vector<int>{0, 0, 0, 1, 0}));
    detect(-30.0F, 0.0F);
    EXPECT_EQ(flags(), (std::vector<int>{0, 0, 1, 1, 0}));
    detect(0.0F, 0.0F);
    EXPECT_EQ(flags(), (std::vector<int>{0, 0, 0, 0, 0}));
    EXPECT_EQ(motion.count, 0);
}

TEST(TiltDetector, IndexOutsideTheFlagsReadsZero) {
    motion.flags[4] = 1;
    EXPECT_EQ(imu_motion_is_detected(4), 1);
    EXPECT_EQ(imu_motion_is_detected(5), 0);
    EXPECT_EQ(imu_motion_is_detected(-1), 0);
    EXPECT_EQ(imu_motion_is_detected(INT_MAX), 0);
    EXPECT_EQ(imu_motion_is_detected(INT_MIN), 0);
}

TEST(TiltDetector, ResetClearsFlagsAndCount) {
    detect(0.0F, 20.0F, 9);
    motion.flags[4] = 1;
    imu_motion_reset();
    EXPECT_EQ(flags(), (std::vector<int>{0, 0, 0, 0, 0}));
    EXPECT_EQ(motion.count, 0);
}

TEST(TiltDetector, NullAnglesChangeNothing) {
    detect(0.0F, 20.0F, 3);
    imu_motion_detect(nullptr);
    EXPECT_EQ(motion.count, 3);
}

// A tilt held for ever saturates the count instead of overflowing it.
TEST(TiltDetector, CountSaturates) {
    motion.count = INT32_MAX;
    detect(0.0F, 20.0F);
    EXPECT_EQ(motion.count, INT32_MAX);
    EXPECT_EQ(imu_motion_is_detected(0), 1);
}

}  // namespace
