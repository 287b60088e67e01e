// Shake and snap on synthetic wrist movements with a known truth, and the
// near misses they must refuse.

#include "gestures/shake_snap.h"

#include <gtest/gtest.h>

#include <functional>
#include <set>

#include "detector_replay.h"
#include "gestures/detector.h"
#include "imu/gestures.h"
#include "support/gesture_sequences.h"

namespace {

using imu::test::GestureSequence;
using imu::test::replay;

constexpr imu::test::Vec3d kX = {1.0, 0.0, 0.0};
constexpr imu::test::Vec3d kZ = {0.0, 0.0, 1.0};

TEST(Shake, RecognisesThreeAlternatingTwistsOnceWithTheLastDirection) {
    const auto seen = replay(imu::test::twist_z(true, 1.0), sfc_get_shake);
    ASSERT_EQ(seen.size(), 1U);
    EXPECT_EQ(seen[0].first, 1.0F) << "+ - +: the third twist is positive";
    EXPECT_EQ(seen[0].second, 0.0F);
}

TEST(Shake, ReportsANegativeThirdTwist) {
    imu::Shake detector;
    const auto seen = replay(imu::test::twist_z(true, -1.0),
                             [&](float* out) { return imu::run_detector(detector, out); });
    ASSERT_EQ(seen.size(), 1U);
    EXPECT_EQ(seen[0].first, 0.0F);
    EXPECT_EQ(seen[0].second, 1.0F);
}

TEST(Shake, ASecondTwistInTheSameDirectionFails) {
    imu::Shake detector;
    bool same_direction = false;
    const auto seen = replay(imu::test::twist_z(false, 1.0), [&](float* out) {
        const int r = imu::run_detector(detector, out);
        same_direction = same_direction || detector.shake_state == -2;
        return r;
    });
    EXPECT_TRUE(seen.empty());
    EXPECT_TRUE(same_direction);
}

// Three alternating twists about z of 0.15 s with the given peak rates.
GestureSequence twists(double first, double second, double third) {
    GestureSequence s;
    s.face_up().hold(0.5);
    for (double peak : {first, -second, third}) {
        s.turn(kZ, peak * 0.15 / 2.0, 0.15);
    }
    s.hold(0.5);
    return s;
}

// The second twist's pulse only has to pass 4.5 rad/s, but a direction is
// taken beyond 5.5 only: a second twist between the two is a pulse without
// a new direction and fails as "same direction" (-2), and the third twist
// then starts a new attempt that runs out (-1). A second twist below 4.5 is
// no pulse, so the third is taken as the second, in the first's direction.
TEST(Shake, TheSecondTwistNeedsADirection) {
    struct Case {
        const char* name;
        double first, second, third;
        size_t expected;
        std::set<int> failures;  // negative states passed through
    } const cases[] = {
        {"12, 12, 12", 12.0, 12.0, 12.0, 1, {}},       {"12, 6.0, 12", 12.0, 6.0, 12.0, 1, {}},
        {"12, 5.0, 12", 12.0, 5.0, 12.0, 0, {-2, -1}}, {"12, 4.0, 12", 12.0, 4.0, 12.0, 0, {-2}},
        {"12, 12, 5.0", 12.0, 12.0, 5.0, 0, {-3}},
    };
    for (const Case& c : cases) {
        imu::Shake detector;
        std::set<int> failures;
        const auto seen = replay(twists(c.first, c.second, c.third), [&](float* out) {
            const int r = imu::run_detector(detector, out);
            if (detector.shake_state < 0) {
                failures.insert(detector.shake_state);
            }
            return r;
        });
        EXPECT_EQ(seen.size(), c.expected) << c.name;
        EXPECT_EQ(failures, c.failures) << c.name;
    }
}

// Twists about y or x are not shakes; neither are twists 0.5 s apart.
TEST(Shake, RefusesOtherAxesAndSlowSuccessions) {
    GestureSequence apart;
    apart.face_up().hold(0.5);
    for (double sign : {1.0, -1.0, 1.0}) {
        apart.turn(kZ, sign * 0.9, 0.15).hold(0.5);
    }
    imu::Shake a;
    imu::Shake b;
    EXPECT_TRUE(replay(imu::test::roll_y(true), [&](float* out) {
                    return imu::run_detector(a, out);
                }).empty());
    EXPECT_TRUE(replay(apart, [&](float* out) { return imu::run_detector(b, out); }).empty());
}

struct SnapCase {
    const char* name;
    std::function<GestureSequence()> make;
    int expected;  // recognitions
    float first;   // x direction of the recognition
    float second;  // z direction
};

TEST(Snap, CreditsAFlickToTheAxisWithTheLargerPeak) {
    const SnapCase cases[] = {
        {"flick about +x", [] { return imu::test::flick(kX, 1.0); }, 1, 1.0F, 0.0F},
        {"flick about -x", [] { return imu::test::flick(kX, -1.0); }, 1, -1.0F, 0.0F},
        {"flick about +z", [] { return imu::test::flick(kZ, 1.0); }, 1, 0.0F, 1.0F},
        {"flick about -z", [] { return imu::test::flick(kZ, -1.0); }, 1, 0.0F, -1.0F},
        {"short x pulse inside a stronger z flick",
         [] { return imu::test::flick_xz(9.0, 0.08, 12.0, 0.16); }, 1, 0.0F, 1.0F},
        {"short z pulse inside a stronger x flick",
         [] { return imu::test::flick_xz(-12.0, 0.16, 9.0, 0.08); }, 1, -1.0F, 0.0F},
        {"x pulse ends first with the smaller peak",
         [] { return imu::test::flick_xz(9.0, 0.12, 12.0, 0.12); }, 0, 0.0F, 0.0F},
        {"gentle turn below 7 rad/s",
         [] {
             GestureSequence s;
             s.face_up().hold(0.5).turn(kX, 0.3, 0.12).hold(0.5);
             return s;
         },
         0, 0.0F, 0.0F},
    };
    for (const SnapCase& c : cases) {
        imu::Snap detector;
        const auto seen =
            replay(c.make(), [&](float* out) { return imu::run_detector(detector, out); });
        ASSERT_EQ(static_cast<int>(seen.size()), c.expected) << c.name;
        if (c.expected == 1) {
            EXPECT_EQ(seen[0].first, c.first) << c.name;
            EXPECT_EQ(seen[0].second, c.second) << c.name;
        }
    }
}

TEST(Snap, ExportedDetectorRecognisesAFlickOnceThenHoldsOff) {
    GestureSequence s = imu::test::flick(kX, 1.0);
    const auto seen = replay(s, sfc_get_snap);
    ASSERT_EQ(seen.size(), 1U);
    EXPECT_EQ(seen[0].first, 1.0F);
}

TEST(Snap, FreeFallBlocksTheSnapFor0_2Seconds) {
    imu::Snap blocked;
    bool saw_free_fall = false;
    const auto seen = replay(imu::test::fall_then_flick(), [&](float* out) {
        const int r = imu::run_detector(blocked, out);
        saw_free_fall = saw_free_fall || blocked.snap_state == -1;
        return r;
    });
    EXPECT_TRUE(saw_free_fall);
    EXPECT_TRUE(seen.empty());

    GestureSequence later;
    later.face_up().hold(0.5).accelerate({0.0, 0.0, -9.8066}, 0.05).hold(0.3);
    later.turn(kX, 0.72, 0.12).hold(0.5);
    imu::Snap freed;
    EXPECT_EQ(replay(later, [&](float* out) { return imu::run_detector(freed, out); }).size(), 1U)
        << "0.3 s after the fall the snap listens again";
}

}  // namespace
