// The pose-change and wrist-movement detectors on synthetic sequences with
// a known gesture, and on the near misses they must refuse.

#include <gtest/gtest.h>

#include <cmath>
#include <functional>
#include <set>
#include <vector>

#include "gestures/detector.h"
#include "gestures/orientation_gestures.h"
#include "gestures/shake_snap.h"
#include "imu/gestures.h"
#include "sim/gesture_sequences.h"

namespace {

using imu::test::GestureSequence;
using Make = GestureSequence (*)();

constexpr double kPi = 3.14159265358979323846;
constexpr imu::test::Vec3d kX = {1.0, 0.0, 0.0};
constexpr imu::test::Vec3d kY = {0.0, 1.0, 0.0};
constexpr imu::test::Vec3d kZ = {0.0, 0.0, 1.0};
constexpr double kQ = kPi / 2.0;  // a quarter turn
constexpr float kAny = -1.0F;

struct Seen {
    double t_s;
    float first, second;
};

// The recognitions (third value 1.0) of the detector over the sequence.
std::vector<Seen> replay(const GestureSequence& s, const std::function<int(float*)>& detect) {
    std::vector<Seen> seen;
    for (auto f : s.frames()) {
        sfc_update_gesture(&f.imu, &f.out, f.dt_us);
        float slot[3] = {-1.0F, -1.0F, -1.0F};
        detect(slot);
        if (slot[2] == 1.0F) {
            seen.push_back({f.t_s, slot[0], slot[1]});
        }
    }
    return seen;
}

template <class D>
std::vector<Seen> fresh(const GestureSequence& s) {
    D d;
    return replay(s, [&](float* out) { return imu::run_detector(d, out); });
}

struct Case {
    const char* name;
    std::vector<Seen> (*run)(const GestureSequence&);
    std::function<GestureSequence()> make;
    int expected;  // recognitions
    float first = kAny;
    float second = kAny;
};

// clang-format off
#define SEQ(...) [] { GestureSequence s; s.__VA_ARGS__; return s; }
// clang-format on

TEST(GestureDetectors, RecogniseTheirGestureOnceAndRefuseNearMisses) {
    using namespace imu::test;
    using imu::TurnOver, imu::DoubleFlip, imu::PutDown, imu::RaiseUp, imu::Rolling, imu::Shake,
        imu::Snap;
    // clang-format off
    const Case cases[] = {
        {"turn over in 0.6 s", fresh<TurnOver>, [] { return turn_face_down(); }, 1},
        {"turn over in 1.0 s", fresh<TurnOver>, [] { return turn_face_down(1.0); }, 1},
        {"two turns over", fresh<TurnOver>, [] { return turn_twice(1.0); }, 2},
        {"turn paused 0.8 s", fresh<TurnOver>, [] { return turn_with_pause(0.8); }, 1},
        {"turn paused 1.5 s: too long", fresh<TurnOver>, [] { return turn_with_pause(1.5); }, 0},
        {"fall back face up", fresh<TurnOver>,
         SEQ(face_up().hold(0.5).turn(kY, kQ, 0.3).turn(kY, -kQ, 0.3).hold(0.5)), 0},
        {"double flip 1.0 s apart", fresh<DoubleFlip>, [] { return turn_twice(1.0); }, 1},
        {"double flip 2.0 s apart", fresh<DoubleFlip>, [] { return turn_twice(2.0); }, 0},
        {"double flip, one turn", fresh<DoubleFlip>, [] { return turn_face_down(); }, 0},
        {"put down", fresh<PutDown>, put_down_on_table, 1, 0.0F, 1.0F},
        {"put down, never covered", fresh<PutDown>,
         SEQ(upright().proximity(5.0F).hold(0.5).turn(kX, -kQ, 0.5).hold(0.5)), 0},
        {"put down 1.2 s after uncovering", fresh<PutDown>,
         SEQ(upright().proximity(0.0F).hold(0.5).proximity(5.0F).hold(1.2)
             .turn(kX, -kQ, 0.5).hold(0.5)), 0},
        {"raise up", fresh<RaiseUp>, raise_from_pocket, 1, 0.0F, 1.0F},
        {"raise up, never covered", fresh<RaiseUp>,
         SEQ(upright().proximity(5.0F).hold(0.5).turn(kX, -kPi / 3, 0.8)
             .turn(kX, kPi / 3, 0.5).hold(0.5)), 0},
        {"raise up, covered lying flat", fresh<RaiseUp>,
         SEQ(face_up().proximity(5.0F).hold(0.5).proximity(0.0F).turn(kY, 0.6, 0.3).hold(0.5)), 0},
        {"rolling", fresh<Rolling>, [] { return roll_y(true); }, 1, 1.0F, 0.0F},
        {"rolling, same direction twice", fresh<Rolling>, [] { return roll_y(false); }, 0},
        {"rolling, second twist within the rest", fresh<Rolling>,
         SEQ(face_up().hold(0.5).turn(kY, 0.9, 0.15).turn(kY, -0.36, 0.06)
             .turn(kY, 0.9, 0.15).hold(0.5)), 0},
        {"shake + - +", fresh<Shake>, [] { return twist_z(true, 1.0); }, 1, 1.0F, 0.0F},
        {"shake - + -", fresh<Shake>, [] { return twist_z(true, -1.0); }, 1, 0.0F, 1.0F},
        {"shake, twists about y", fresh<Shake>, [] { return roll_y(true); }, 0},
        {"shake, twists 0.5 s apart", fresh<Shake>,
         SEQ(face_up().hold(0.5).turn(kZ, 0.9, 0.15).hold(0.5).turn(kZ, -0.9, 0.15).hold(0.5)
             .turn(kZ, 0.9, 0.15).hold(0.5)), 0},
        {"snap +x", fresh<Snap>, [] { return flick(kX, 1.0); }, 1, 1.0F, 0.0F},
        {"snap -x", fresh<Snap>, [] { return flick(kX, -1.0); }, 1, -1.0F, 0.0F},
        {"snap +z", fresh<Snap>, [] { return flick(kZ, 1.0); }, 1, 0.0F, 1.0F},
        {"snap, short x in a stronger z", fresh<Snap>,
         [] { return flick_xz(9.0, 0.08, 12.0, 0.16); }, 1, 0.0F, 1.0F},
        {"snap, short z in a stronger x", fresh<Snap>,
         [] { return flick_xz(-12.0, 0.16, 9.0, 0.08); }, 1, -1.0F, 0.0F},
        {"snap, x ends first, smaller", fresh<Snap>,
         [] { return flick_xz(9.0, 0.12, 12.0, 0.12); }, 0},
        {"snap within 0.2 s of free fall", fresh<Snap>, fall_then_flick, 0},
        {"snap 0.3 s after free fall", fresh<Snap>,
         SEQ(face_up().hold(0.5).accelerate({0.0, 0.0, -9.8066}, 0.05).hold(0.3)
             .turn(kX, 0.72, 0.12).hold(0.5)), 1},
    };
    // clang-format on
#undef SEQ
    for (const Case& c : cases) {
        const auto seen = c.run(c.make());
        ASSERT_EQ(static_cast<int>(seen.size()), c.expected) << c.name;
        if (c.first != kAny) {
            EXPECT_EQ(seen[0].first, c.first) << c.name;
            EXPECT_EQ(seen[0].second, c.second) << c.name;
        }
    }
}

// Three z twists of 0.15 s with the given peak rates. A pulse needs 4.5
// rad/s but a direction is taken beyond 5.5 only: a second twist between
// the two fails as "same direction" (-2) and the third starts an attempt
// that runs out (-1); below 4.5 the third is taken as the second.
TEST(GestureDetectors, TheSecondShakeTwistNeedsADirection) {
    struct {
        bool alternate;
        double second, third;
        size_t expected;
        std::set<int> failures;
    } const cases[] = {
        // clang-format off
        {true, 12.0, 12.0, 1, {}}, {true, 6.0, 12.0, 1, {}}, {true, 5.0, 12.0, 0, {-2, -1}},
        {true, 4.0, 12.0, 0, {-2}}, {true, 12.0, 5.0, 0, {-3}},
        {false, 12.0, 12.0, 0, {-2, -1}},  // second twist in the first's direction
        // clang-format on
    };
    for (const auto& c : cases) {
        GestureSequence s;
        s.face_up().hold(0.5).turn(kZ, 12.0 * 0.075, 0.15);
        s.turn(kZ, (c.alternate ? -1.0 : 1.0) * c.second * 0.075, 0.15);
        s.turn(kZ, c.third * 0.075, 0.15).hold(0.5);
        imu::Shake detector;
        std::set<int> failures;
        const auto seen = replay(s, [&](float* out) {
            const int r = imu::run_detector(detector, out);
            if (detector.shake_state < 0) {
                failures.insert(detector.shake_state);
            }
            return r;
        });
        EXPECT_EQ(seen.size(), c.expected) << c.second << ", " << c.third;
        EXPECT_EQ(failures, c.failures) << c.second << ", " << c.third;
    }
}

// The exported detectors over their process-wide instances: -22 for a null
// slot, their gesture recognised once, the slot cleared after; rotate is a
// placeholder that leaves the slot alone.
TEST(GestureDetectors, ExportedDetectorsFollowTheConvention) {
    using namespace imu::test;
    const std::pair<int (*)(float*), Make> detectors[] = {
        {sfc_get_put_down, put_down_on_table},
        {sfc_get_raise_up, raise_from_pocket},
        {sfc_get_turn_over, [] { return turn_face_down(); }},
        {sfc_get_double_flip, [] { return turn_twice(1.0); }},
        {sfc_get_rolling, [] { return roll_y(true); }},
        {sfc_get_shake, [] { return twist_z(true, 1.0); }},
        {sfc_get_snap, [] { return flick(kX, 1.0); }}};
    for (const auto& [fn, make] : detectors) {
        const auto index = &fn - &detectors[0].first;
        EXPECT_EQ(fn(nullptr), -22) << index;
        EXPECT_EQ(replay(make(), fn).size(), 1U) << index;
        float slot[3] = {7.0F, 7.0F, 7.0F};
        EXPECT_EQ(fn(slot), 0) << index;
        EXPECT_TRUE(slot[0] == 0.0F && slot[2] == 0.0F) << index;
    }
    EXPECT_EQ(sfc_get_hand_held(nullptr), -22);
    float slot[3] = {7.0F, 8.0F, 9.0F};
    EXPECT_EQ(sfc_get_rotate(nullptr), -22);
    EXPECT_EQ(sfc_get_rotate(slot), 1);
    EXPECT_EQ(slot[2], 9.0F);
}

// A timer just at 7200 s reads 0 after the call, one below keeps growing.
TEST(GestureDetectors, TimersWrapAt7200Seconds) {
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

// Still and flat: 0; spinning at 1 rad/s (a level near 15198): 3; still
// and upright once the level has decayed: 1.
TEST(GestureDetectors, HandHeldReportsTheMotionClass) {
    GestureSequence s;
    s.face_up().hold(0.3).spin(kX, 1.0, 0.5).upright().hold(0.6);
    imu::HandHeld detector;
    std::vector<float> classes;
    const std::size_t n = s.frames().size();
    for (std::size_t i = 0; i < n; ++i) {
        auto f = s.frames()[i];
        sfc_update_gesture(&f.imu, &f.out, f.dt_us);
        float slot[3];
        ASSERT_EQ(imu::run_detector(detector, slot), 0);
        if (std::fabs(f.t_s - 0.29) < 0.0025 || std::fabs(f.t_s - 0.79) < 0.0025 || i + 1 == n) {
            classes.push_back(slot[2]);
        }
    }
    EXPECT_EQ(classes, (std::vector<float>{0.0F, 3.0F, 1.0F}));
}

}  // namespace
