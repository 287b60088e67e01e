// Pose-change detectors on synthetic sequences with a known gesture, and on
// the near misses they must refuse.

#include "gestures/orientation_gestures.h"

#include <gtest/gtest.h>

#include <cmath>
#include <functional>
#include <string>

#include "detector_replay.h"
#include "gestures/detector.h"
#include "imu/gestures.h"
#include "support/gesture_sequences.h"

namespace {

using imu::test::GestureSequence;
using imu::test::replay;

constexpr double kPi = 3.14159265358979323846;
constexpr imu::test::Vec3d kX = {1.0, 0.0, 0.0};
constexpr imu::test::Vec3d kY = {0.0, 1.0, 0.0};

using DetectorFn = int (*)(float*);

struct Exported {
    const char* name;
    DetectorFn fn;
};

const Exported kDetectors[] = {
    {"put_down", sfc_get_put_down},   {"raise_up", sfc_get_raise_up},
    {"turn_over", sfc_get_turn_over}, {"double_flip", sfc_get_double_flip},
    {"rolling", sfc_get_rolling},     {"hand_held", sfc_get_hand_held},
    {"shake", sfc_get_shake},         {"snap", sfc_get_snap},
};

TEST(DetectorConvention, NullSlotIsRefusedAndAValidSlotIsCleared) {
    GestureSequence quiet;
    quiet.face_up().hold(0.05);
    for (const Exported& d : kDetectors) {
        EXPECT_EQ(d.fn(nullptr), -22) << d.name;
        float slot[3] = {7.0F, 7.0F, 7.0F};
        const auto seen = replay(quiet, d.fn);
        EXPECT_EQ(d.fn(slot), 0) << d.name;
        EXPECT_EQ(slot[0], 0.0F) << d.name;
        EXPECT_NE(slot[2], 7.0F) << d.name;
        EXPECT_TRUE(seen.empty()) << d.name;
    }
    EXPECT_EQ(sfc_get_rotate(nullptr), -22);
}

TEST(DetectorConvention, RotateIsAPlaceholderThatWritesNothing) {
    float slot[3] = {7.0F, 8.0F, 9.0F};
    EXPECT_EQ(sfc_get_rotate(slot), 1);
    EXPECT_EQ(slot[0], 7.0F);
    EXPECT_EQ(slot[1], 8.0F);
    EXPECT_EQ(slot[2], 9.0F);
}

// The wrap at 7200 s is shared by every detector: a timer just above it
// reads 0 after the call, one below it keeps growing.
TEST(DetectorConvention, TimersWrapAbove7200Seconds) {
    GestureSequence quiet;
    quiet.face_up().hold(0.005);
    imu::TurnOver turn;
    turn.turn_over_timer = 7200.0F;
    imu::HandHeld held;
    held.hand_held_timer = 7199.0F;
    replay(quiet, [&](float* out) { return imu::run_detector(turn, out); });
    replay(quiet, [&](float* out) { return imu::run_detector(held, out); });
    EXPECT_EQ(turn.turn_over_timer, 0.0F);
    EXPECT_GT(held.hand_held_timer, 7199.0F);
}

struct SequenceCase {
    const char* name;
    std::function<GestureSequence()> make;
    int expected;  // recognitions
};

int count(const GestureSequence& s, imu::TurnOver& d) {
    return static_cast<int>(
        replay(s, [&](float* out) { return imu::run_detector(d, out); }).size());
}

TEST(TurnOver, RecognisesATurnFaceDownOnceAfterItEnds) {
    const GestureSequence s = imu::test::turn_face_down();
    const auto seen = replay(s, sfc_get_turn_over);
    ASSERT_EQ(seen.size(), 1U);
    EXPECT_GT(seen[0].t_s, 0.5 + 0.45) << "while the phone is still turning";
    EXPECT_LT(seen[0].t_s, 0.5 + 0.6 + 0.05);
}

TEST(TurnOver, RefusesATurnThatTakesTooLong) {
    const SequenceCase cases[] = {
        {"0.3 s turn", [] { return imu::test::turn_face_down(0.3); }, 1},
        {"1.0 s turn", [] { return imu::test::turn_face_down(1.0); }, 1},
        {"two turns", [] { return imu::test::turn_twice(1.0); }, 2},
        {"turn paused on its edge for 1.5 s", [] { return imu::test::turn_with_pause(1.5); }, 0},
        {"turn paused on its edge for 0.8 s", [] { return imu::test::turn_with_pause(0.8); }, 1},
    };
    for (const SequenceCase& c : cases) {
        imu::TurnOver detector;
        EXPECT_EQ(count(c.make(), detector), c.expected) << c.name;
    }
}

// Back to face up after leaving it: -2, then listening again.
TEST(TurnOver, FallingBackToTheSameSideIsNoTurn) {
    GestureSequence s;
    s.face_up().hold(0.5).turn(kY, kPi / 2.0, 0.3).turn(kY, -kPi / 2.0, 0.3).hold(0.5);
    imu::TurnOver detector;
    bool fell_back = false;
    const auto seen = replay(s, [&](float* out) {
        const int r = imu::run_detector(detector, out);
        fell_back = fell_back || detector.turn_over_state == -2;
        return r;
    });
    EXPECT_TRUE(seen.empty());
    EXPECT_TRUE(fell_back);
}

TEST(DoubleFlip, NeedsTheSecondTurnWithinOneAndAHalfSeconds) {
    const SequenceCase cases[] = {
        {"turns 1.0 s apart", [] { return imu::test::turn_twice(1.0); }, 1},
        {"turns 2.0 s apart", [] { return imu::test::turn_twice(2.0); }, 0},
        {"one turn", [] { return imu::test::turn_face_down(); }, 0},
    };
    for (const SequenceCase& c : cases) {
        imu::DoubleFlip detector;
        const GestureSequence s = c.make();
        const auto seen = replay(s, [&](float* out) { return imu::run_detector(detector, out); });
        EXPECT_EQ(static_cast<int>(seen.size()), c.expected) << c.name;
        if (c.expected == 1) {
            EXPECT_GT(seen[0].t_s, s.duration_s() - 0.5 - 0.1) << "on the second turn";
        }
    }
}

TEST(DoubleFlip, ExportedDetectorRecognisesTwoTurnsOnTheSecond) {
    const auto seen = replay(imu::test::turn_twice(1.0), sfc_get_double_flip);
    ASSERT_EQ(seen.size(), 1U);
    EXPECT_GT(seen[0].t_s, 0.5 + 0.6 + 1.0 + 0.4);
}

TEST(PutDown, RecognisesAPhoneLaidOnATableOnce) {
    const GestureSequence s = imu::test::put_down_on_table();
    const auto seen = replay(s, sfc_get_put_down);
    ASSERT_EQ(seen.size(), 1U);
    EXPECT_EQ(seen[0].second, 1.0F) << "lying flat when recognised";
}

TEST(PutDown, SecondValueShowsLyingFlatInEveryCall) {
    const GestureSequence s = imu::test::put_down_on_table();
    imu::PutDown detector;
    for (const auto& f : s.frames()) {
        auto frame = f;
        sfc_update_gesture(&frame.imu, &frame.out, frame.dt_us);
        float slot[3];
        imu::run_detector(detector, slot);
        EXPECT_EQ(slot[1], std::fabs(frame.out.gravity[2]) > 9.0F ? 1.0F : 0.0F) << f.t_s;
        EXPECT_EQ(slot[0], 0.0F);
    }
}

TEST(PutDown, RefusesNearMisses) {
    const SequenceCase cases[] = {
        {"laid down", [] { return imu::test::put_down_on_table(); }, 1},
        {"never covered",
         [] {
             GestureSequence s;
             s.upright().proximity(5.0F).hold(0.5).turn(kX, -kPi / 2.0, 0.5).hold(0.5);
             return s;
         },
         0},
        {"laid down 1.2 s after uncovering",
         [] {
             GestureSequence s;
             s.upright().proximity(0.0F).hold(0.5).proximity(5.0F).hold(1.2);
             s.turn(kX, -kPi / 2.0, 0.5).hold(0.5);
             return s;
         },
         0},
        {"laid on its side, not flat",
         [] {
             GestureSequence s;
             s.upright().proximity(0.0F).hold(0.5).proximity(5.0F).hold(0.1);
             s.turn(kX, -kPi / 4.0, 0.4).hold(0.5);
             return s;
         },
         0},
    };
    for (const SequenceCase& c : cases) {
        imu::PutDown detector;
        const auto seen =
            replay(c.make(), [&](float* out) { return imu::run_detector(detector, out); });
        EXPECT_EQ(static_cast<int>(seen.size()), c.expected) << c.name;
    }
}

TEST(RaiseUp, RecognisesAPhoneRaisedFromAPocketOnce) {
    const GestureSequence s = imu::test::raise_from_pocket();
    const auto seen = replay(s, sfc_get_raise_up);
    ASSERT_EQ(seen.size(), 1U);
    EXPECT_EQ(seen[0].second, 1.0F) << "not lying flat";
}

TEST(RaiseUp, RefusesNearMisses) {
    const SequenceCase cases[] = {
        {"raised to the ear", [] { return imu::test::raise_from_pocket(); }, 1},
        {"never uncovered",
         [] {
             GestureSequence s;
             s.upright().proximity(0.0F).hold(0.5).turn(kX, -kPi / 3.0, 0.8);
             s.turn(kX, kPi / 3.0, 0.5).hold(0.5);
             return s;
         },
         0},
        {"raised but never covered",
         [] {
             GestureSequence s;
             s.upright().proximity(5.0F).hold(0.5).turn(kX, -kPi / 3.0, 0.8);
             s.turn(kX, kPi / 3.0, 0.5).hold(0.5);
             return s;
         },
         0},
        {"covered while lying flat",
         [] {
             GestureSequence s;
             s.face_up().proximity(5.0F).hold(0.5).proximity(0.0F).turn(kY, 0.6, 0.3).hold(0.5);
             return s;
         },
         0},
    };
    for (const SequenceCase& c : cases) {
        imu::RaiseUp detector;
        const auto seen =
            replay(c.make(), [&](float* out) { return imu::run_detector(detector, out); });
        EXPECT_EQ(static_cast<int>(seen.size()), c.expected) << c.name;
    }
}

TEST(Rolling, RecognisesThreeAlternatingTwistsOnceWithTheLastDirection) {
    const auto seen = replay(imu::test::roll_y(true), sfc_get_rolling);
    ASSERT_EQ(seen.size(), 1U);
    EXPECT_EQ(seen[0].first, 1.0F) << "third twist positive";
    EXPECT_EQ(seen[0].second, 0.0F);
}

TEST(Rolling, ASecondTwistInTheSameDirectionFails) {
    imu::Rolling detector;
    bool same_direction = false;
    const auto seen = replay(imu::test::roll_y(false), [&](float* out) {
        const int r = imu::run_detector(detector, out);
        same_direction = same_direction || detector.rolling_state == -2;
        return r;
    });
    EXPECT_TRUE(seen.empty());
    EXPECT_TRUE(same_direction);
}

// After a twist the trigger rests 0.05 s: a twist over within that time is
// not seen, and the next one comes too late.
TEST(Rolling, ATwistWithinTheRestIsNotSeen) {
    const auto make = [](double second_s) {
        GestureSequence s;
        s.face_up().hold(0.5).turn(kY, 0.9, 0.15).turn(kY, -12.0 * second_s / 2.0, second_s);
        s.turn(kY, 0.9, 0.15).hold(0.5);
        return s;
    };
    imu::Rolling normal;
    imu::Rolling hurried;
    EXPECT_EQ(replay(make(0.15), [&](float* out) { return imu::run_detector(normal, out); }).size(),
              1U);
    EXPECT_TRUE(
        replay(make(0.06), [&](float* out) { return imu::run_detector(hurried, out); }).empty());
}

// L < 7: 2.0 for the first 0.1 s, then 0 flat or 1.0 not flat; L >= 7: 2.0,
// above 1000: 3.0, and the stillness timer starts over.
TEST(HandHeld, ReportsTheMotionClass) {
    GestureSequence s;
    s.face_up().hold(0.3).spin(kX, 1.0, 0.5).upright().hold(0.6);
    imu::HandHeld detector;
    for (const auto& f : s.frames()) {
        auto frame = f;
        sfc_update_gesture(&frame.imu, &frame.out, frame.dt_us);
        float slot[3];
        ASSERT_EQ(imu::run_detector(detector, slot), 0);
        const float level = gyro_static_level_g;
        float want = 2.0F;
        if (level >= 7.0F) {
            want = level > 1000.0F ? 3.0F : 2.0F;
        } else if (detector.hand_held_timer > 0.1F + 1e-4F) {
            want = std::fabs(frame.out.gravity[2]) > 8.5F ? 0.0F : 1.0F;
        } else if (detector.hand_held_timer > 0.1F - 1e-4F) {
            continue;  // on the boundary of float sums
        }
        ASSERT_EQ(slot[2], want) << "t=" << f.t_s << " L=" << level;
    }
    float slot[3];
    imu::run_detector(detector, slot);
    EXPECT_EQ(slot[2], 1.0F) << "still, standing upright";
}

TEST(HandHeld, ExportedDetectorSeesAStillFlatPhone) {
    GestureSequence s;
    s.face_up().hold(0.2);
    std::vector<float> classes;
    replay(s, [&](float* out) {
        const int r = sfc_get_hand_held(out);
        classes.push_back(out[2]);
        return r;
    });
    EXPECT_EQ(classes.front(), 2.0F);
    EXPECT_EQ(classes.back(), 0.0F);
}

}  // namespace
