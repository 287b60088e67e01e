// Every transition of the three tap state machines, from a given state with
// the shared signals set directly (no pipeline): one call each.
//
// "burst ready" below means the detector's trigger is above its band with
// 50 ms accumulated, so a rate below the band completes a pulse of 55 ms,
// which every tap trigger accepts.

#include <gtest/gtest.h>

#include <functional>
#include <ostream>
#include <string>

#include "gestures/taps.h"
#include "imu/gestures.h"

namespace {

struct Signals {
    float level = 1000.0F;  // gyro_static_level_g
    float rate = 0.0F;      // w_filtered_mag
    float rate_h = 0.0F;    // w_filtered_mag_h
    float dt = 0.005F;
    float acc = 9.8F;        // comp_acc
    float gyro = 0.2F;       // comp_gyro
    float gravity_x = 0.0F;  // |gravity x|
};

void apply(const Signals& s) {
    gyro_static_level_g = s.level;
    w_filtered_mag = s.rate;
    w_filtered_mag_h = s.rate_h;
    w_filtered[0] = w_filtered[1] = w_filtered[2] = 0.0F;
    dt_g = s.dt;
    comp_acc = s.acc;
    comp_gyro = s.gyro;
    gravity_g_abs[0] = s.gravity_x;
}

void burst_ready(sfc_gesture_trigger& t) {
    t.state = 2;
    t.total = 0.05F;
}

struct Case {
    const char* name;
    std::function<void()> setup;  // puts the detector into its start state
    Signals signals;
    int expected_state;
    bool recognised = false;
};

void PrintTo(const Case& c, std::ostream* os) { *os << c.name; }

imu::HandTap& hand() { return imu::hand_tap(); }
imu::DeskTap& desk() { return imu::desk_tap(); }
imu::PocketTap& pocket() { return imu::pocket_tap(); }

// ------------------------------------------------------------------ hand ----

class HandTapStates : public ::testing::TestWithParam<Case> {};

TEST_P(HandTapStates, OneCall) {
    const Case& c = GetParam();
    c.setup();
    apply(c.signals);
    float out[3] = {7.0F, 7.0F, 7.0F};
    ASSERT_EQ(sfc_get_tap(out), 0);
    EXPECT_EQ(hand().tap_state, c.expected_state);
    EXPECT_EQ(out[2], c.recognised ? 1.0F : 0.0F);
    EXPECT_EQ(out[0], 0.0F);
}

Signals level(float l) {
    Signals s;
    s.level = l;
    return s;
}

INSTANTIATE_TEST_SUITE_P(
    Transitions, HandTapStates,
    ::testing::Values(
        Case{"idle_still_goes_to_rearm", [] { hand().tap_still_timer = 0.05F; }, level(1.0F),
             imu::kHandRearm},
        Case{"idle_level_up_opens_attempt", [] {}, level(1000.0F), imu::kHandFirstTap},
        Case{"idle_flag_set_keeps_idle", [] { gyro_static_state = 1; }, level(1000.0F),
             imu::kHandIdle},
        Case{"rearm_moderate_motion_listens_again",
             [] {
                 hand().tap_state = imu::kHandRearm;
                 hand().tap_still_timer = 0.15F;
             },
             level(100.0F), imu::kHandIdle},
        Case{"rearm_still_stays",
             [] {
                 hand().tap_state = imu::kHandRearm;
                 hand().tap_still_timer = 0.15F;
             },
             level(1.0F), imu::kHandRearm},
        Case{"first_too_strong", [] { hand().tap_state = imu::kHandFirstTap; }, level(200000.0F),
             imu::kHandFirstTooStrong},
        Case{"first_faded", [] { hand().tap_state = imu::kHandFirstTap; }, level(100.0F),
             imu::kHandFirstFaded},
        Case{"first_late",
             [] {
                 hand().tap_state = imu::kHandFirstTap;
                 hand().tap_timer = 0.5F;
             },
             level(1000.0F), imu::kHandFirstLate},
        // A burst only completes below 0.015, where a level under 700 has
        // already failed as faded: a weak first burst ends in -3, not -5.
        Case{"first_weak_burst_fails_as_faded",
             [] {
                 hand().tap_state = imu::kHandFirstTap;
                 hand().tap_timer = 0.2F;
                 burst_ready(hand().trigger);
             },
             level(300.0F), imu::kHandFirstFaded},
        Case{"first_z_burst",
             [] {
                 hand().tap_state = imu::kHandFirstTap;
                 hand().tap_timer = 0.2F;
                 hand().tap_axis_peak = {0.01F, 0.0F, 0.04F};
                 burst_ready(hand().trigger);
             },
             level(1000.0F), imu::kHandFirstZAxis},
        Case{"first_burst_goes_to_second",
             [] {
                 hand().tap_state = imu::kHandFirstTap;
                 hand().tap_timer = 0.2F;
                 hand().tap_axis_peak = {0.03F, 0.0F, 0.04F};  // z only 0.01 above x
                 burst_ready(hand().trigger);
             },
             level(1000.0F), imu::kHandSecondTap},
        Case{"first_burst_too_soon_is_not_looked_at",
             [] {
                 hand().tap_state = imu::kHandFirstTap;
                 hand().tap_timer = 0.05F;
                 burst_ready(hand().trigger);
             },
             level(1000.0F), imu::kHandFirstTap},
        Case{"second_too_strong", [] { hand().tap_state = imu::kHandSecondTap; }, level(200000.0F),
             imu::kHandSecondTooStrong},
        Case{"second_late",
             [] {
                 hand().tap_state = imu::kHandSecondTap;
                 hand().tap_timer = 0.5F;
             },
             level(1000.0F), imu::kHandSecondLate},
        Case{"second_weak_burst",
             [] {
                 hand().tap_state = imu::kHandSecondTap;
                 hand().tap_timer = 0.2F;
                 burst_ready(hand().trigger);
             },
             level(300.0F), imu::kHandSecondWeak},
        Case{"second_z_burst",
             [] {
                 hand().tap_state = imu::kHandSecondTap;
                 hand().tap_timer = 0.2F;
                 hand().tap_axis_peak = {0.0F, 0.0F, 0.03F};
                 burst_ready(hand().trigger);
             },
             level(1000.0F), imu::kHandSecondZAxis},
        Case{"second_burst_goes_to_settling",
             [] {
                 hand().tap_state = imu::kHandSecondTap;
                 hand().tap_timer = 0.2F;
                 burst_ready(hand().trigger);
             },
             level(1000.0F), imu::kHandSettling},
        Case{"settling_too_strong", [] { hand().tap_state = imu::kHandSettling; }, level(200000.0F),
             imu::kHandSettleTooStrong},
        Case{"settling_third_burst_at_once",
             [] {
                 hand().tap_state = imu::kHandSettling;
                 burst_ready(hand().trigger);
             },
             [] {
                 Signals s = level(1000.0F);
                 s.dt = 0.0001F;  // the call right after the second burst
                 return s;
             }(),
             imu::kHandSettleThirdBurst},
        Case{"settling_late",
             [] {
                 hand().tap_state = imu::kHandSettling;
                 hand().tap_timer = 0.4F;
             },
             level(1000.0F), imu::kHandSettleLate},
        Case{"settling_level_down_confirms", [] { hand().tap_state = imu::kHandSettling; },
             level(100.0F), imu::kHandConfirm},
        Case{"confirm_recognises",
             [] {
                 hand().tap_state = imu::kHandConfirm;
                 hand().tap_timer = 0.05F;
             },
             level(100.0F), imu::kHandHoldOff, true},
        Case{"confirm_lying_still",
             [] {
                 hand().tap_state = imu::kHandConfirm;
                 hand().tap_still_timer = 0.05F;
             },
             level(1.0F), imu::kHandConfirmStill},
        Case{"holdoff_ends",
             [] {
                 hand().tap_state = imu::kHandHoldOff;
                 hand().tap_timer = 0.2F;
             },
             level(100.0F), imu::kHandIdle},
        Case{"failed_returns_to_idle", [] { hand().tap_state = imu::kHandConfirmStill; },
             level(100.0F), imu::kHandIdle},
        Case{"out_of_range_returns_to_idle", [] { hand().tap_state = 42; }, level(100.0F),
             imu::kHandIdle}),
    [](const auto& info) { return std::string(info.param.name); });

// Near vertical x (|gravity x| > 9) the burst must fall below 0.013 instead
// of 0.015 to complete.
TEST(HandTapBurst, UprightPhoneUsesTheLowerBurstEnd) {
    for (const float gx : {5.0F, 9.5F}) {
        hand().tap_state = imu::kHandFirstTap;
        hand().tap_timer = 0.2F;
        burst_ready(hand().trigger);
        Signals s = level(1000.0F);
        s.rate = 0.014F;
        s.gravity_x = gx;
        apply(s);
        float out[3];
        sfc_get_tap(out);
        EXPECT_EQ(hand().tap_state, gx < 9.0F ? imu::kHandSecondTap : imu::kHandFirstTap)
            << "gx=" << gx;
    }
}

// The flag follows the level across max(0.3 peak, 700) with hysteresis.
TEST(HandTapFlag, FollowsTheLevelThreshold) {
    float out[3];
    apply(level(1000.0F));
    sfc_get_tap(out);
    EXPECT_EQ(gyro_static_state, 1);
    EXPECT_EQ(hand().tap_state, imu::kHandFirstTap);
    // The level peak of 1000 decays by 0.85 per call; 0.3 of it stays under
    // 700, so 800 is still above the threshold.
    apply(level(800.0F));
    sfc_get_tap(out);
    EXPECT_EQ(gyro_static_state, 1);
    apply(level(650.0F));
    sfc_get_tap(out);
    EXPECT_EQ(gyro_static_state, 0);
    // A peak of 5000 lifts the threshold to 1500, 1275 after one call's
    // decay: 1200 is below it.
    apply(level(5000.0F));
    sfc_get_tap(out);
    EXPECT_EQ(gyro_static_state, 1);
    apply(level(1200.0F));
    sfc_get_tap(out);
    EXPECT_EQ(gyro_static_state, 0);
}

// Lying perfectly still for more than 50 ms drops to re-arm; 150 ms of
// moderate motion (5 < L < 700) is needed before an attempt can open.
TEST(HandTapRearm, StillPhoneNeedsModerateMotionBeforeListening) {
    float out[3];
    int calls = 0;
    apply(level(1.0F));
    while (hand().tap_state != imu::kHandRearm && calls < 100) {
        sfc_get_tap(out);
        ++calls;
    }
    EXPECT_EQ(calls, 11);  // 11 x 5 ms > 50 ms
    sfc_get_tap(out);      // still lying still: the count starts from 0
    EXPECT_EQ(hand().tap_still_timer, 0.0F);
    calls = 0;
    apply(level(100.0F));
    while (hand().tap_state != imu::kHandIdle && calls < 100) {
        sfc_get_tap(out);
        ++calls;
    }
    EXPECT_EQ(calls, 31);  // 31 x 5 ms > 150 ms
}

// ------------------------------------------------------------------ desk ----

class DeskTapStates : public ::testing::TestWithParam<Case> {};

TEST_P(DeskTapStates, OneCall) {
    const Case& c = GetParam();
    c.setup();
    apply(c.signals);
    float out[3] = {7.0F, 7.0F, 7.0F};
    ASSERT_EQ(sfc_get_tap_desk(out), 0);
    EXPECT_EQ(desk().tap_desk_state, c.expected_state);
    EXPECT_EQ(out[2], c.recognised ? 1.0F : 0.0F);
}

INSTANTIATE_TEST_SUITE_P(
    Transitions, DeskTapStates,
    ::testing::Values(Case{"still_long_enough", [] { desk().tap_desk_still_timer = 0.1F; },
                           level(10.0F), imu::kDeskFirstTap},
                      Case{"not_still_restarts", [] { desk().tap_desk_still_timer = 0.1F; },
                           level(50.0F), imu::kDeskWaitStill},
                      Case{"first_too_strong", [] { desk().tap_desk_state = imu::kDeskFirstTap; },
                           level(5000.0F), imu::kDeskFirstTooStrong},
                      Case{"first_restless",
                           [] {
                               desk().tap_desk_state = imu::kDeskFirstTap;
                               desk().tap_desk_still_timer = 1.0F;
                           },
                           level(100.0F), imu::kDeskFirstRestless},
                      Case{"first_burst_overrides_restless",
                           [] {
                               desk().tap_desk_state = imu::kDeskFirstTap;
                               desk().tap_desk_still_timer = 1.0F;
                               burst_ready(desk().trigger);
                           },
                           level(100.0F), imu::kDeskSecondTap},
                      Case{"second_too_strong", [] { desk().tap_desk_state = imu::kDeskSecondTap; },
                           level(5000.0F), imu::kDeskSecondTooStrong},
                      Case{"second_restless",
                           [] {
                               desk().tap_desk_state = imu::kDeskSecondTap;
                               desk().tap_desk_still_timer = 1.0F;
                           },
                           level(100.0F), imu::kDeskSecondRestless},
                      Case{"second_late",
                           [] {
                               desk().tap_desk_state = imu::kDeskSecondTap;
                               desk().tap_desk_timer = 0.5F;
                           },
                           level(10.0F), imu::kDeskSecondLate},
                      Case{"second_burst_too_soon",
                           [] {
                               desk().tap_desk_state = imu::kDeskSecondTap;
                               desk().tap_desk_timer = 0.05F;
                               burst_ready(desk().trigger);
                           },
                           level(10.0F), imu::kDeskSecondTap},
                      Case{"second_burst",
                           [] {
                               desk().tap_desk_state = imu::kDeskSecondTap;
                               desk().tap_desk_timer = 0.2F;
                               burst_ready(desk().trigger);
                           },
                           level(10.0F), imu::kDeskStillAfter},
                      Case{"after_not_still_in_time",
                           [] {
                               desk().tap_desk_state = imu::kDeskStillAfter;
                               desk().tap_desk_timer = 0.25F;
                           },
                           level(10.0F), imu::kDeskNotStillAfter},
                      Case{"after_still_recognises",
                           [] {
                               desk().tap_desk_state = imu::kDeskStillAfter;
                               desk().tap_desk_still_timer = 0.1F;
                           },
                           level(10.0F), imu::kDeskHoldOff, true},
                      Case{"after_moving_waits",
                           [] {
                               desk().tap_desk_state = imu::kDeskStillAfter;
                               desk().tap_desk_still_timer = 0.1F;
                           },
                           level(100.0F), imu::kDeskStillAfter},
                      Case{"holdoff_ends",
                           [] {
                               desk().tap_desk_state = imu::kDeskHoldOff;
                               desk().tap_desk_timer = 0.2F;
                           },
                           level(10.0F), imu::kDeskWaitStill},
                      Case{"failed_returns",
                           [] { desk().tap_desk_state = imu::kDeskNotStillAfter; }, level(10.0F),
                           imu::kDeskWaitStill},
                      Case{"out_of_range_returns", [] { desk().tap_desk_state = 5; }, level(10.0F),
                           imu::kDeskWaitStill}),
    [](const auto& info) { return std::string(info.param.name); });

// After the taps, a moving phone neither adds to the still time nor
// restarts it.
TEST(DeskTapStill, MovingAfterTheTapsKeepsTheStillCount) {
    desk().tap_desk_state = imu::kDeskStillAfter;
    desk().tap_desk_still_timer = 0.05F;
    apply(level(100.0F));
    float out[3];
    sfc_get_tap_desk(out);
    EXPECT_EQ(desk().tap_desk_still_timer, 0.05F);
}

// ---------------------------------------------------------------- pocket ----

class PocketTapStates : public ::testing::TestWithParam<Case> {};

TEST_P(PocketTapStates, OneCall) {
    const Case& c = GetParam();
    c.setup();
    apply(c.signals);
    float out[3] = {7.0F, 7.0F, 7.0F};
    ASSERT_EQ(sfc_get_tap_pocket(out), 0);
    EXPECT_EQ(pocket().tap_pocket_state, c.expected_state);
    EXPECT_EQ(out[2], c.recognised ? 1.0F : 0.0F);
}

Signals pocket_motion(float acc, float gyro, float l = 100.0F) {
    Signals s = level(l);
    s.acc = acc;
    s.gyro = gyro;
    return s;
}

void strong_maxima() {
    pocket().tap_pocket_acc_max = 11.0F;
    pocket().tap_pocket_gyro_max = 1.0F;
}

INSTANTIATE_TEST_SUITE_P(
    Transitions, PocketTapStates,
    ::testing::Values(
        Case{"first_acc_too_high", [] {}, pocket_motion(30.0F, 0.2F), imu::kPocketOutOfRange},
        Case{"first_acc_too_low", [] {}, pocket_motion(3.0F, 0.2F), imu::kPocketOutOfRange},
        Case{"first_gyro_too_high", [] {}, pocket_motion(9.8F, 20.0F), imu::kPocketOutOfRange},
        Case{"first_burst",
             [] {
                 strong_maxima();
                 burst_ready(pocket().trigger);
             },
             pocket_motion(9.8F, 0.2F), imu::kPocketSecondTap},
        Case{"first_burst_too_light",
             [] {
                 pocket().tap_pocket_acc_max = 10.0F;
                 pocket().tap_pocket_gyro_max = 1.0F;
                 burst_ready(pocket().trigger);
             },
             pocket_motion(9.8F, 0.2F), imu::kPocketFirstTap},
        Case{"second_out_of_range", [] { pocket().tap_pocket_state = imu::kPocketSecondTap; },
             pocket_motion(26.0F, 0.2F), imu::kPocketOutOfRange},
        Case{"second_late",
             [] {
                 pocket().tap_pocket_state = imu::kPocketSecondTap;
                 pocket().tap_pocket_timer = 0.4F;
             },
             pocket_motion(9.8F, 0.2F), imu::kPocketLate},
        Case{"second_z_burst",
             [] {
                 pocket().tap_pocket_state = imu::kPocketSecondTap;
                 pocket().tap_pocket_timer = 0.1F;
                 pocket().tap_pocket_axis_peak = {0.0F, 0.0F, 0.02F};
                 strong_maxima();
                 burst_ready(pocket().trigger);
             },
             pocket_motion(9.8F, 0.2F), imu::kPocketZAxis},
        Case{"second_weak_burst",
             [] {
                 pocket().tap_pocket_state = imu::kPocketSecondTap;
                 pocket().tap_pocket_timer = 0.1F;
                 pocket().tap_pocket_gyro_max = 0.4F;
                 pocket().tap_pocket_acc_max = 11.0F;
                 burst_ready(pocket().trigger);
             },
             pocket_motion(9.8F, 0.2F), imu::kPocketWeak},
        Case{"second_burst_too_soon",
             [] {
                 pocket().tap_pocket_state = imu::kPocketSecondTap;
                 pocket().tap_pocket_timer = 0.04F;
                 strong_maxima();
                 burst_ready(pocket().trigger);
             },
             pocket_motion(9.8F, 0.2F), imu::kPocketSecondTap},
        Case{"second_burst",
             [] {
                 pocket().tap_pocket_state = imu::kPocketSecondTap;
                 pocket().tap_pocket_timer = 0.1F;
                 strong_maxima();
                 burst_ready(pocket().trigger);
             },
             pocket_motion(9.8F, 0.2F), imu::kPocketAfter},
        Case{"after_recognises",
             [] {
                 pocket().tap_pocket_state = imu::kPocketAfter;
                 pocket().tap_pocket_timer = 0.2F;
             },
             pocket_motion(9.8F, 0.2F), imu::kPocketHoldOff, true},
        Case{"after_z_dominant",
             [] {
                 pocket().tap_pocket_state = imu::kPocketAfter;
                 pocket().tap_pocket_timer = 0.2F;
                 pocket().tap_pocket_axis_peak = {0.0F, 0.0F, 0.02F};
             },
             pocket_motion(9.8F, 0.2F), imu::kPocketZAxis},
        Case{"after_too_quiet",
             [] {
                 pocket().tap_pocket_state = imu::kPocketAfter;
                 pocket().tap_pocket_quiet_timer = 0.1F;
             },
             pocket_motion(9.8F, 0.2F, 5.0F), imu::kPocketQuiet},
        Case{"after_out_of_range", [] { pocket().tap_pocket_state = imu::kPocketAfter; },
             pocket_motion(30.0F, 0.2F), imu::kPocketOutOfRange},
        // While the level is low, only the quiet count runs.
        Case{"after_quiet_ignores_range", [] { pocket().tap_pocket_state = imu::kPocketAfter; },
             pocket_motion(30.0F, 0.2F, 5.0F), imu::kPocketAfter},
        Case{"holdoff_ends",
             [] {
                 pocket().tap_pocket_state = imu::kPocketHoldOff;
                 pocket().tap_pocket_timer = 0.4F;
             },
             pocket_motion(9.8F, 0.2F), imu::kPocketFirstTap},
        Case{"failed_returns", [] { pocket().tap_pocket_state = imu::kPocketQuiet; },
             pocket_motion(9.8F, 0.2F), imu::kPocketFirstTap},
        Case{"out_of_range_returns", [] { pocket().tap_pocket_state = -9; },
             pocket_motion(9.8F, 0.2F), imu::kPocketFirstTap}),
    [](const auto& info) { return std::string(info.param.name); });

// A failed attempt and the end of the hold-off clear both maxima, so the
// next attempt needs a jolt of its own.
TEST(PocketTapMaxima, ClearedWhenAnAttemptEnds) {
    for (const int from :
         {static_cast<int>(imu::kPocketWeak), static_cast<int>(imu::kPocketHoldOff)}) {
        pocket().tap_pocket_state = from;
        pocket().tap_pocket_timer = 0.4F;
        strong_maxima();
        apply(pocket_motion(9.8F, 0.2F));
        float out[3];
        sfc_get_tap_pocket(out);
        EXPECT_EQ(pocket().tap_pocket_state, imu::kPocketFirstTap);
        EXPECT_EQ(pocket().tap_pocket_acc_max, 0.0F) << "from " << from;
        EXPECT_EQ(pocket().tap_pocket_gyro_max, 0.0F) << "from " << from;
    }
}

// ---------------------------------------------------------------- timers ----

// Every tap timer is set back to 0 at the end of a call once above 7200 s
// (7200 itself is kept).
TEST(TapTimers, WrapAfterTwoHours) {
    hand().tap_state = imu::kHandHoldOff;
    hand().tap_timer = 7200.0F;
    hand().tap_still_timer = 7200.5F;
    desk().tap_desk_state = imu::kDeskHoldOff;
    desk().tap_desk_timer = 7200.0F;
    desk().tap_desk_still_timer = 7200.5F;
    pocket().tap_pocket_state = imu::kPocketHoldOff;
    pocket().tap_pocket_timer = 7200.0F;
    pocket().tap_pocket_quiet_timer = 7200.5F;
    Signals s = level(100.0F);
    s.dt = 0.01F;
    apply(s);
    float out[3];
    sfc_get_tap(out);
    sfc_get_tap_desk(out);
    sfc_get_tap_pocket(out);
    EXPECT_EQ(hand().tap_timer, 0.0F);
    EXPECT_EQ(desk().tap_desk_timer, 0.0F);
    EXPECT_EQ(pocket().tap_pocket_timer, 0.0F);
    // The still and quiet timers do not grow in these states; past 7200 s
    // they wrap all the same.
    EXPECT_EQ(hand().tap_still_timer, 0.0F);
    EXPECT_EQ(desk().tap_desk_still_timer, 0.0F);
    EXPECT_EQ(pocket().tap_pocket_quiet_timer, 0.0F);

    desk().tap_desk_state = imu::kDeskHoldOff;
    desk().tap_desk_still_timer = 7200.0F;
    sfc_get_tap_desk(out);
    EXPECT_EQ(desk().tap_desk_still_timer, 7200.0F);
}

}  // namespace
