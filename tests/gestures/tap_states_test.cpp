// Every numbered failure state of the three tap state machines, and the
// transitions the recordings of tap_test.cpp do not reach: one call from a
// given state with the shared signals set directly. A "burst" row has the
// trigger above its band with 50 ms accumulated, so the call's zero rate
// completes a 55 ms pulse, which every tap trigger accepts.

#include <gtest/gtest.h>

#include <ostream>
#include <string>
#include <tuple>
#include <utility>

#include "gestures/taps.h"
#include "imu/gestures.h"

namespace {

using namespace imu;  // NOLINT(google-build-using-namespace): state names

enum Det { kHand, kDesk, kPocket };

HandTap& hand() { return hand_tap(); }
PocketTap& pocket() { return pocket_tap(); }

void set_signals(float level) {
    gyro_static_level_g = level;
    w_filtered_mag = w_filtered_mag_h = 0.0F;
    w_filtered[0] = w_filtered[1] = w_filtered[2] = 0.0F;
    dt_g = 0.005F;
    comp_acc = 9.8F;
    comp_gyro = 0.2F;
    gravity_g_abs[0] = 0.0F;
}

void strong_maxima() {
    pocket().tap_pocket_acc_max = 11.0F;
    pocket().tap_pocket_gyro_max = 1.0F;
}

struct Row {
    const char* name;
    Det d;
    int from;
    float timer;  // the detector's tap timer
    float still;  // its still timer (the quiet timer in a pocket)
    bool burst;
    float level;  // gyro_static_level_g
    int to;
    void (*extra)() = nullptr;  // further state or signals
};

void PrintTo(const Row& c, std::ostream* os) { *os << c.name; }

class TapState : public ::testing::TestWithParam<Row> {};

TEST_P(TapState, OneCall) {
    const Row& c = GetParam();
    set_signals(c.level);
    DeskTap& desk = desk_tap();
    PocketTap& p = pocket();
    // state, tap timer, still timer, trigger of the detector
    const auto [state, timer, still, trigger] =
        c.d == kHand   ? std::tie(hand().tap_state, hand().tap_timer, hand().tap_still_timer,
                                  hand().trigger)
        : c.d == kDesk ? std::tie(desk.tap_desk_state, desk.tap_desk_timer,
                                  desk.tap_desk_still_timer, desk.trigger)
                       : std::tie(p.tap_pocket_state, p.tap_pocket_timer,
                                  p.tap_pocket_quiet_timer, p.trigger);
    state = c.from;
    timer = c.timer;
    still = c.still;
    if (c.burst) {
        strong_maxima();  // only the pocket looks at them
        trigger.state = 2;
        trigger.total = 0.05F;
    }
    if (c.extra != nullptr) {
        c.extra();
    }
    float out[3] = {7.0F, 7.0F, 7.0F};
    ASSERT_EQ(c.d == kHand ? sfc_get_tap(out) : c.d == kDesk ? sfc_get_tap_desk(out)
                                                             : sfc_get_tap_pocket(out), 0);
    EXPECT_EQ(state, c.to);
    EXPECT_TRUE(out[0] == 0.0F && out[2] == 0.0F);
}

// clang-format off
INSTANTIATE_TEST_SUITE_P(Transitions, TapState, ::testing::Values(
    Row{"hand_idle_still_rearms", kHand, kHandIdle, 0, 0.05F, false, 1, kHandRearm},
    Row{"hand_idle_flag_set_waits", kHand, kHandIdle, 0, 0, false, 1000, kHandIdle,
        [] { gyro_static_state = 1; }},
    Row{"hand_rearm_moderate_listens", kHand, kHandRearm, 0, 0.15F, false, 100, kHandIdle},
    Row{"hand_first_too_strong", kHand, kHandFirstTap, 0, 0, false, 200000, kHandFirstTooStrong},
    Row{"hand_first_faded", kHand, kHandFirstTap, 0, 0, false, 100, kHandFirstFaded},
    Row{"hand_first_late", kHand, kHandFirstTap, 0.5F, 0, false, 1000, kHandFirstLate},
    // A burst completes only below 0.015, where a level under 700 has
    // already failed as faded: a weak first burst never ends in -5.
    Row{"hand_first_weak_is_faded", kHand, kHandFirstTap, 0.2F, 0, true, 300, kHandFirstFaded},
    Row{"hand_first_burst", kHand, kHandFirstTap, 0.2F, 0, true, 1000, kHandSecondTap,
        [] { hand().tap_axis_peak = {0.03F, 0.0F, 0.04F}; }},  // z only 0.01 above x
    Row{"hand_first_too_soon", kHand, kHandFirstTap, 0.05F, 0, true, 1000, kHandFirstTap},
    // Near vertical x (|gravity x| > 9) the burst ends below 0.013, not 0.015.
    Row{"hand_burst_end_flat", kHand, kHandFirstTap, 0.2F, 0, true, 1000, kHandSecondTap,
        [] { w_filtered_mag = 0.014F; gravity_g_abs[0] = 5.0F; }},
    Row{"hand_burst_end_upright", kHand, kHandFirstTap, 0.2F, 0, true, 1000, kHandFirstTap,
        [] { w_filtered_mag = 0.014F; gravity_g_abs[0] = 9.5F; }},
    Row{"hand_second_too_strong", kHand, kHandSecondTap, 0, 0, false, 200000, kHandSecondTooStrong},
    Row{"hand_second_weak", kHand, kHandSecondTap, 0.2F, 0, true, 300, kHandSecondWeak},
    Row{"hand_second_z", kHand, kHandSecondTap, 0.2F, 0, true, 1000, kHandSecondZAxis,
        [] { hand().tap_axis_peak = {0.0F, 0.0F, 0.03F}; }},
    Row{"hand_settle_too_strong", kHand, kHandSettling, 0, 0, false, 200000, kHandSettleTooStrong},
    Row{"hand_settle_third_burst", kHand, kHandSettling, 0, 0, true, 1000, kHandSettleThirdBurst,
        [] { dt_g = 0.0001F; }},
    Row{"hand_settle_late", kHand, kHandSettling, 0.4F, 0, false, 1000, kHandSettleLate},
    Row{"hand_confirm_still", kHand, kHandConfirm, 0, 0.05F, false, 1, kHandConfirmStill},
    Row{"hand_holdoff_ends", kHand, kHandHoldOff, 0.2F, 0, false, 100, kHandIdle},
    Row{"hand_unknown_returns", kHand, 42, 0, 0, false, 100, kHandIdle},
    Row{"desk_first_too_strong", kDesk, kDeskFirstTap, 0, 0, false, 5000, kDeskFirstTooStrong},
    Row{"desk_first_restless", kDesk, kDeskFirstTap, 0, 1, false, 100, kDeskFirstRestless},
    Row{"desk_first_burst_wins", kDesk, kDeskFirstTap, 0, 1, true, 100, kDeskSecondTap},
    Row{"desk_second_restless", kDesk, kDeskSecondTap, 0, 1, false, 100, kDeskSecondRestless},
    Row{"desk_second_too_soon", kDesk, kDeskSecondTap, 0.05F, 0, true, 10, kDeskSecondTap},
    Row{"desk_after_not_still", kDesk, kDeskStillAfter, 0.25F, 0, false, 10, kDeskNotStillAfter},
    Row{"desk_after_moving_waits", kDesk, kDeskStillAfter, 0, 0.1F, false, 100, kDeskStillAfter},
    Row{"desk_holdoff_ends", kDesk, kDeskHoldOff, 0.2F, 0, false, 10, kDeskWaitStill},
    Row{"desk_unknown_returns", kDesk, 5, 0, 0, false, 10, kDeskWaitStill},
    Row{"pocket_acc_low", kPocket, kPocketFirstTap, 0, 0, false, 100, kPocketOutOfRange,
        [] { comp_acc = 3.0F; }},
    Row{"pocket_gyro_high", kPocket, kPocketFirstTap, 0, 0, false, 100, kPocketOutOfRange,
        [] { comp_gyro = 20.0F; }},
    Row{"pocket_first_too_light", kPocket, kPocketFirstTap, 0, 0, true, 100, kPocketFirstTap,
        [] { pocket().tap_pocket_acc_max = 10.0F; }},
    Row{"pocket_second_range", kPocket, kPocketSecondTap, 0, 0, false, 100, kPocketOutOfRange,
        [] { comp_acc = 26.0F; }},
    Row{"pocket_second_weak", kPocket, kPocketSecondTap, 0.1F, 0, true, 100, kPocketWeak,
        [] { pocket().tap_pocket_gyro_max = 0.4F; }},
    Row{"pocket_second_too_soon", kPocket, kPocketSecondTap, 0.04F, 0, true, 100, kPocketSecondTap},
    Row{"pocket_after_z", kPocket, kPocketAfter, 0.2F, 0, false, 100, kPocketZAxis,
        [] { pocket().tap_pocket_axis_peak = {0.0F, 0.0F, 0.02F}; }},
    Row{"pocket_after_quiet", kPocket, kPocketAfter, 0, 0.1F, false, 5, kPocketQuiet},
    Row{"pocket_after_range", kPocket, kPocketAfter, 0, 0, false, 100, kPocketOutOfRange,
        [] { comp_acc = 30.0F; }},
    // While the level is low, only the quiet count runs.
    Row{"pocket_quiet_no_range", kPocket, kPocketAfter, 0, 0, false, 5, kPocketAfter,
        [] { comp_acc = 30.0F; }},
    Row{"pocket_holdoff_ends", kPocket, kPocketHoldOff, 0.4F, 0, false, 100, kPocketFirstTap},
    Row{"pocket_unknown_returns", kPocket, -9, 0, 0, false, 100, kPocketFirstTap}),
    [](const auto& info) { return std::string(info.param.name); });
// clang-format on

// The flag follows the level across max(0.3 x peak, 700), the peak decaying
// by 0.85 per 5 ms call: after 5000 the threshold is 1275, so 1200 is below.
TEST(HandTapFlag, FollowsTheAdaptiveThreshold) {
    const std::pair<float, int> steps[] = {{1000, 1}, {800, 1}, {650, 0}, {5000, 1}, {1200, 0}};
    float out[3];
    for (const auto& [level, flag] : steps) {
        set_signals(level);
        sfc_get_tap(out);
        EXPECT_EQ(gyro_static_state, flag) << "level " << level;
    }
}

// Lying still for more than 50 ms re-arms (11 calls); lying still on, the
// count of moderate motion restarts, and 150 ms of it (5 < L < 700, 31
// calls) is needed before an attempt can open.
TEST(HandTapRearm, StillPhoneNeedsModerateMotionBeforeListening) {
    float out[3];
    int still = 0;
    int moving = 0;
    set_signals(1.0F);
    for (; hand().tap_state != kHandRearm && still < 100; ++still) {
        sfc_get_tap(out);
    }
    sfc_get_tap(out);
    set_signals(100.0F);
    for (; hand().tap_state != kHandIdle && moving < 100; ++moving) {
        sfc_get_tap(out);
    }
    EXPECT_EQ(still, 11);
    EXPECT_EQ(moving, 31);
}

// A failed attempt and the end of the hold-off clear both pocket maxima.
TEST(PocketTapMaxima, ClearedWhenAnAttemptEnds) {
    float out[3];
    for (const int from : {int{kPocketWeak}, int{kPocketHoldOff}}) {
        pocket().tap_pocket_state = from;
        pocket().tap_pocket_timer = 0.4F;
        strong_maxima();
        set_signals(100.0F);
        sfc_get_tap_pocket(out);
        EXPECT_EQ(pocket().tap_pocket_acc_max + pocket().tap_pocket_gyro_max, 0.0F) << from;
    }
}

}  // namespace
