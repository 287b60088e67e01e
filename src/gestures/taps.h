#pragma once
// The three double-tap detectors: the phone held in the hand, lying on a
// desk, carried in a pocket. A tap is a short burst of the band-filtered
// angular rate, recognised by a pulse trigger whose upper threshold follows
// the recent peak of that rate.
//
// Each detector's state is one struct; the exported functions run the
// process's instance (hand_tap(), desk_tap(), pocket_tap()).

#include <array>

#include "imu/gestures.h"

namespace imu {

// Peak with decay:  P = x            if x > P
//                   P = P (c + k dt - dt) / c   otherwise, c = 0.005
// in double precision. With k = 0.85 the peak loses 30 dt of itself per
// call, with k = 0.9 it loses 20 dt.
float decayed_peak(float peak, float x, double k, float dt_s) noexcept;

// Hand tap states. A failed attempt (-2 to -14) returns to idle on the next
// call.
//
//   0 idle --level up--> 1 first tap --burst--> 2 second tap --burst-->
//   3 settling --level down--> 4 confirm --50 ms--> recognised, 5 hold-off
//   0 --50 ms still--> -1 re-arm --150 ms moderate motion--> 0
enum HandTapState : int {
    kHandRearm = -1,
    kHandIdle = 0,
    kHandFirstTap = 1,
    kHandSecondTap = 2,
    kHandSettling = 3,
    kHandConfirm = 4,
    kHandHoldOff = 5,
    kHandFirstTooStrong = -2,
    kHandFirstFaded = -3,
    kHandFirstLate = -4,
    kHandFirstWeak = -5,
    kHandFirstZAxis = -6,
    kHandSecondTooStrong = -7,
    kHandSecondLate = -8,
    kHandSecondWeak = -9,
    kHandSecondZAxis = -10,
    kHandSettleTooStrong = -11,
    kHandSettleThirdBurst = -12,
    kHandSettleLate = -13,
    kHandConfirmStill = -14,
};

struct HandTap {
    int tap_state = kHandIdle;
    float tap_timer = 0.0F;                // s since the last stage change
    float tap_still_timer = 0.0F;          // s of stillness or of moderate motion
    float tap_rate_peak = 0.0F;            // decaying peak of w_filtered_mag
    float tap_level_peak = 0.0F;           // decaying peak of gyro_static_level_g
    std::array<float, 3> tap_axis_peak{};  // |w_filtered| per axis this stage
    sfc_gesture_trigger trigger;

    void step(float* out) noexcept;
    std::array<float*, 2> timers() noexcept { return {&tap_timer, &tap_still_timer}; }

private:
    struct Thresholds {
        float rate_a;  // burst threshold, x axis away from vertical
        float rate_b;  // burst threshold, x axis near vertical
        double level;  // motion level that opens an attempt
    };
    Thresholds track_thresholds(float level, float dt) noexcept;
    bool burst_seen(const Thresholds& thr) noexcept;
    void start_stage(int next) noexcept;
    void on_rearm(float level, float dt) noexcept;
    void on_idle(float level, const Thresholds& thr, float dt) noexcept;
    void on_first_tap(float level, const Thresholds& thr) noexcept;
    void on_second_tap(float level, const Thresholds& thr) noexcept;
    void on_settling(float level, const Thresholds& thr) noexcept;
    void on_confirm(float level, float dt, float* out) noexcept;
};

// Desk tap states; -1 to -6 fail and return to 0 on the next call.
//
//   0 --100 ms still--> 1 first tap --burst--> 2 second tap --burst-->
//   3 --100 ms still--> recognised, 4 hold-off --200 ms--> 0
enum DeskTapState : int {
    kDeskWaitStill = 0,
    kDeskFirstTap = 1,
    kDeskSecondTap = 2,
    kDeskStillAfter = 3,
    kDeskHoldOff = 4,
    kDeskFirstRestless = -1,
    kDeskFirstTooStrong = -2,
    kDeskSecondRestless = -3,
    kDeskSecondTooStrong = -4,
    kDeskSecondLate = -5,
    kDeskNotStillAfter = -6,
};

struct DeskTap {
    int tap_desk_state = kDeskWaitStill;
    float tap_desk_timer = 0.0F;        // s since the last stage change
    float tap_desk_still_timer = 0.0F;  // s of stillness, or of restlessness
    float tap_desk_rate_peak = 0.0F;    // decaying peak of w_filtered_mag
    sfc_gesture_trigger trigger;

    void step(float* out) noexcept;
    std::array<float*, 2> timers() noexcept { return {&tap_desk_timer, &tap_desk_still_timer}; }

private:
    bool burst(float thr) noexcept;
    void wait_still(float level, float dt) noexcept;
    void second_tap(float level, float dt, float thr) noexcept;
    void still_after(float level, float dt, float* out) noexcept;
    void count_restless(float level, float dt, int fail) noexcept;
};

// Pocket tap states; -1 to -5 fail and return to 0 (maxima cleared) on the
// next call.
//
//   0 first tap --burst--> 1 second tap --burst--> 2 quiet check --200 ms-->
//   recognised, 3 hold-off --400 ms--> 0
enum PocketTapState : int {
    kPocketFirstTap = 0,
    kPocketSecondTap = 1,
    kPocketAfter = 2,
    kPocketHoldOff = 3,
    kPocketOutOfRange = -1,
    kPocketLate = -2,
    kPocketZAxis = -3,
    kPocketWeak = -4,
    kPocketQuiet = -5,
};

struct PocketTap {
    int tap_pocket_state = kPocketFirstTap;
    float tap_pocket_timer = 0.0F;                // s since the last stage change
    float tap_pocket_quiet_timer = 0.0F;          // s of a low motion level after the taps
    float tap_pocket_acc_max = 0.0F;              // highest comp_acc since the last clear
    float tap_pocket_gyro_max = 0.0F;             // highest comp_gyro since the last clear
    std::array<float, 3> tap_pocket_axis_peak{};  // |w_filtered| per axis this stage
    sfc_gesture_trigger trigger;

    void step(float* out) noexcept;
    std::array<float*, 2> timers() noexcept { return {&tap_pocket_timer, &tap_pocket_quiet_timer}; }

private:
    bool z_dominant() const noexcept;
    bool strong_enough() const noexcept;
    void clear_maxima() noexcept;
    void next_stage(int next) noexcept;
    void on_first_tap(bool out_of_range, float thr) noexcept;
    void on_second_tap(bool out_of_range, float thr) noexcept;
    void on_after(bool out_of_range, float level, float dt, float* out) noexcept;
};

// The process's instances behind sfc_get_tap, sfc_get_tap_desk and
// sfc_get_tap_pocket.
HandTap& hand_tap() noexcept;
DeskTap& desk_tap() noexcept;
PocketTap& pocket_tap() noexcept;

}  // namespace imu
