// Double taps on a phone held in the hand, lying on a desk, or in a pocket.
//
// A tap shows as a short burst of the band-filtered rate w_filtered_mag
// (w_filtered_mag_h in a pocket). The burst threshold follows the rate's
// recent peak, so a sharp tap stands out from the hand's own tremor, and the
// slow motion level L = gyro_static_level_g tells a phone at rest from one
// being moved.

#include "gestures/taps.h"

#include <algorithm>
#include <cmath>

#include "gestures/detector.h"

// The flag is 1 while the motion level is above the hand tap's level
// threshold (with hysteresis on that threshold).
extern "C" {
// NOLINTNEXTLINE(cppcoreguidelines-avoid-non-const-global-variables)
IMU_EXPORT int gyro_static_state = 0;
}

namespace imu {

namespace {

// ---- tunables (rates rad/s, levels in units of gyro_static_level_g, s) ----
constexpr double kHandPeakDecay = 0.85;    // rate and level peaks: 30 dt per call
constexpr double kHandRateShare = 0.7;     // burst threshold share of the rate peak
constexpr double kHandRateFloorA = 0.02;   // ... floor with |gravity x| < 9
constexpr double kHandRateFloorB = 0.018;  // ... floor with |gravity x| > 9
constexpr float kHandLowA = 0.015F;        // burst start level, |gravity x| < 9
constexpr float kHandLowB = 0.013F;        // burst start level, |gravity x| > 9
constexpr double kHandFadedRate = 0.015;   // rate below: the burst has died away
constexpr double kHandUprightG = 9.0;      // |gravity x| that picks threshold A or B
constexpr float kHandBurstMaxS = 0.4F;     // burst duration limits
constexpr float kHandBurstMinS = 0.02F;
constexpr double kHandLevelShare = 0.3;  // level threshold share of the level peak
constexpr double kHandLevelFloor = 700.0;
constexpr double kHandStillLevel = 5.0;  // below: lying perfectly still
constexpr double kHandStillS = 0.05;
constexpr double kHandRearmS = 0.15;         // moderate motion needed to listen again
constexpr double kHandTooStrong = 150000.0;  // the phone is being swung, not tapped
constexpr double kHandWeak = 400.0;          // a burst with less motion is no tap
constexpr double kHandZExcess = 0.02;        // z peak above x peak: a twist, not a tap
constexpr double kHandQuietGapS = 0.1;       // no burst sooner than this after a stage
constexpr double kHandTapWindowS = 0.5;      // ... and none later than this
constexpr double kHandThirdBurstS = 0.001;
constexpr double kHandSettleS = 0.4;
constexpr double kHandConfirmS = 0.05;
constexpr double kHandHoldOffS = 0.2;

constexpr double kDeskPeakDecay = 0.9;  // 20 dt per call
constexpr double kDeskRateShare = 0.9;
constexpr double kDeskRateFloor = 0.018;
constexpr float kDeskLow = 0.008F;
constexpr float kDeskBurstMaxS = 0.25F;
constexpr float kDeskBurstMinS = 0.01F;
constexpr double kDeskStillLevel = 30.0;   // lying on a desk
constexpr double kDeskTooStrong = 3000.0;  // picked up, not tapped
constexpr double kDeskStillS = 0.1;
constexpr double kDeskRestlessS = 1.0;  // moderate motion that ends an attempt
constexpr double kDeskQuietGapS = 0.1;
constexpr double kDeskTapWindowS = 0.5;
constexpr double kDeskStillAfterS = 0.25;
constexpr double kDeskHoldOffS = 0.2;

constexpr double kPocketLevelShare = 0.0000005;  // burst threshold from the level
constexpr double kPocketRateFloor = 0.05;
constexpr float kPocketLow = 0.03F;
constexpr float kPocketBurstMaxS = 0.3F;
constexpr float kPocketBurstMinS = 0.01F;
constexpr double kPocketGyroLimit = 15.0;  // rad/s: out of range above
constexpr double kPocketAccHigh = 25.0;    // m/s^2: out of range above ...
constexpr double kPocketAccLow = 5.0;      // ... and below
constexpr double kPocketTapAcc = 10.5;     // a tap jolts |acc| above this ...
constexpr double kPocketTapGyro = 0.5;     // ... and |gyro| above this
constexpr double kPocketZExcess = 0.01;
constexpr double kPocketQuietGapS = 0.05;
constexpr double kPocketTapWindowS = 0.4;
constexpr double kPocketAfterS = 0.2;
constexpr double kPocketQuietLevel = 10.0;  // a pocket this calm after the taps ...
constexpr double kPocketQuietS = 0.1;       // ... for this long was no tap
constexpr double kPocketHoldOffS = 0.4;

void track_axis_peaks(std::array<float, 3>& peaks) noexcept {
    for (std::size_t k = 0; k < peaks.size(); ++k) {
        peaks[k] = std::max(peaks[k], std::fabs(w_filtered[k]));
    }
}

// max(share x peak, floor) as a trigger threshold.
float rate_threshold(float peak, double share, double floor) noexcept {
    return static_cast<float>(std::max(share * static_cast<double>(peak), floor));
}

bool z_exceeds_x(const std::array<float, 3>& peaks, double excess) noexcept {
    return over(peaks[2] - peaks[0], excess);
}

}  // namespace

float decayed_peak(float peak, float x, double k, float dt_s) noexcept {
    if (x > peak) {
        return x;
    }
    const double c = static_cast<double>(0.005F);
    const double dt = static_cast<double>(dt_s);
    return static_cast<float>(static_cast<double>(peak) * (c + k * dt - dt) / c);
}

// ---------------------------------------------------------------- hand ----

HandTap::Thresholds HandTap::track_thresholds(float level, float dt) noexcept {
    tap_rate_peak = decayed_peak(tap_rate_peak, w_filtered_mag, kHandPeakDecay, dt);
    tap_level_peak = decayed_peak(tap_level_peak, level, kHandPeakDecay, dt);
    return {rate_threshold(tap_rate_peak, kHandRateShare, kHandRateFloorA),
            rate_threshold(tap_rate_peak, kHandRateShare, kHandRateFloorB),
            std::max(kHandLevelShare * static_cast<double>(tap_level_peak), kHandLevelFloor)};
}

// A burst counts only from 0.1 s into a stage; the trigger is not run before.
bool HandTap::burst_seen(const Thresholds& thr) noexcept {
    if (!over(tap_timer, kHandQuietGapS)) {
        return false;
    }
    const float gx = gravity_g_abs[0];
    if (under(gx, kHandUprightG) &&
        pulse_fires(trigger, w_filtered_mag,
                    {kHandLowA, thr.rate_a, kHandBurstMaxS, kHandBurstMinS})) {
        return true;
    }
    return over(gx, kHandUprightG) &&
           pulse_fires(trigger, w_filtered_mag,
                       {kHandLowB, thr.rate_b, kHandBurstMaxS, kHandBurstMinS});
}

void HandTap::start_stage(int next) noexcept {
    tap_timer = 0.0F;
    tap_axis_peak = {};
    tap_state = next;
}

void HandTap::on_rearm(float level, float dt) noexcept {
    if (over(level, kHandStillLevel) && under(level, kHandLevelFloor)) {
        tap_still_timer += dt;
        if (over(tap_still_timer, kHandRearmS)) {
            tap_state = kHandIdle;
            tap_still_timer = 0.0F;
        }
    } else {
        tap_still_timer = 0.0F;
    }
}

void HandTap::on_idle(float level, const Thresholds& thr, float dt) noexcept {
    if (under(level, kHandStillLevel)) {
        tap_still_timer += dt;
        if (over(tap_still_timer, kHandStillS)) {
            tap_state = kHandRearm;
        }
    } else {
        tap_still_timer = 0.0F;
    }
    if (over(level, thr.level) && gyro_static_state == 0) {
        start_stage(kHandFirstTap);
    }
}

// A burst completes only with the rate below 0.015, where a level under the
// level threshold (at least 700) has already failed as faded: the weak-burst
// failure (-5) is kept for symmetry with the second tap but never taken.
void HandTap::on_first_tap(float level, const Thresholds& thr) noexcept {
    if (over(level, kHandTooStrong)) {
        tap_state = kHandFirstTooStrong;
    } else if (under(level, thr.level) && under(w_filtered_mag, kHandFadedRate)) {
        tap_state = kHandFirstFaded;
    } else if (over(tap_timer, kHandTapWindowS)) {
        tap_state = kHandFirstLate;
    } else if (burst_seen(thr)) {
        if (under(level, kHandWeak)) {
            tap_state = kHandFirstWeak;
        } else if (z_exceeds_x(tap_axis_peak, kHandZExcess)) {
            tap_state = kHandFirstZAxis;
        } else {
            start_stage(kHandSecondTap);
        }
    }
}

void HandTap::on_second_tap(float level, const Thresholds& thr) noexcept {
    if (over(level, kHandTooStrong)) {
        tap_state = kHandSecondTooStrong;
    } else if (over(tap_timer, kHandTapWindowS)) {
        tap_state = kHandSecondLate;
    } else if (burst_seen(thr)) {
        if (under(level, kHandWeak)) {
            tap_state = kHandSecondWeak;
        } else if (z_exceeds_x(tap_axis_peak, kHandZExcess)) {
            tap_state = kHandSecondZAxis;
        } else {
            tap_timer = 0.0F;
            tap_state = kHandSettling;
        }
    }
}

// A third burst right at the start (only possible with a tiny dt) spoils it.
void HandTap::on_settling(float level, const Thresholds& thr) noexcept {
    if (over(level, kHandTooStrong)) {
        tap_state = kHandSettleTooStrong;
    } else if (under(tap_timer, kHandThirdBurstS) &&
               pulse_fires(trigger, w_filtered_mag,
                           {kHandLowA, thr.rate_a, kHandBurstMaxS, kHandBurstMinS})) {
        tap_state = kHandSettleThirdBurst;
    } else if (over(tap_timer, kHandSettleS)) {
        tap_state = kHandSettleLate;
    } else if (under(level, thr.level)) {
        tap_timer = 0.0F;
        tap_state = kHandConfirm;
    }
}

void HandTap::on_confirm(float level, float dt, float* out) noexcept {
    if (at_least(tap_timer, kHandConfirmS)) {
        mark_recognised(out);
        tap_state = kHandHoldOff;
        tap_timer = 0.0F;
        tap_still_timer = 0.0F;
    } else if (under(level, kHandStillLevel)) {
        tap_still_timer += dt;
        if (over(tap_still_timer, kHandStillS)) {
            tap_state = kHandConfirmStill;
            tap_still_timer = 0.0F;
        }
    }
}

void HandTap::step(float* out) noexcept {
    const float dt = dt_g;
    const float level = gyro_static_level_g;
    tap_timer += dt;
    const Thresholds thr = track_thresholds(level, dt);
    track_axis_peaks(tap_axis_peak);

    switch (tap_state) {
        case kHandRearm:
            on_rearm(level, dt);
            break;
        case kHandIdle:
            on_idle(level, thr, dt);
            break;
        case kHandFirstTap:
            on_first_tap(level, thr);
            break;
        case kHandSecondTap:
            on_second_tap(level, thr);
            break;
        case kHandSettling:
            on_settling(level, thr);
            break;
        case kHandConfirm:
            on_confirm(level, dt, out);
            break;
        case kHandHoldOff:
            if (over(tap_timer, kHandHoldOffS)) {
                tap_state = kHandIdle;
            }
            break;
        default:  // a failed attempt, or a value out of range
            tap_state = kHandIdle;
            break;
    }

    // Hysteresis: an attempt opens only on a level that has risen anew.
    if (over(level, thr.level) && gyro_static_state == 0) {
        gyro_static_state = 1;
    } else if (under(level, thr.level) && gyro_static_state == 1) {
        gyro_static_state = 0;
    }
}

// ---------------------------------------------------------------- desk ----

bool DeskTap::burst(float thr) noexcept {
    return pulse_fires(trigger, w_filtered_mag, {kDeskLow, thr, kDeskBurstMaxS, kDeskBurstMinS});
}

// Moderate motion (30 < L < 3000) for more than 1 s ends an attempt.
void DeskTap::count_restless(float level, float dt, int fail) noexcept {
    if (over(level, kDeskStillLevel) && under(level, kDeskTooStrong)) {
        tap_desk_still_timer += dt;
        if (over(tap_desk_still_timer, kDeskRestlessS)) {
            tap_desk_state = fail;
            tap_desk_still_timer = 0.0F;
        }
    } else {
        tap_desk_still_timer = 0.0F;
    }
}

void DeskTap::wait_still(float level, float dt) noexcept {
    if (under(level, kDeskStillLevel)) {
        tap_desk_still_timer += dt;
        if (over(tap_desk_still_timer, kDeskStillS)) {
            tap_desk_state = kDeskFirstTap;
            tap_desk_still_timer = 0.0F;
        }
    } else {
        tap_desk_still_timer = 0.0F;
    }
}

void DeskTap::second_tap(float level, float dt, float thr) noexcept {
    count_restless(level, dt, kDeskSecondRestless);
    if (over(level, kDeskTooStrong)) {
        tap_desk_state = kDeskSecondTooStrong;
    } else if (over(tap_desk_timer, kDeskTapWindowS)) {
        tap_desk_state = kDeskSecondLate;
    } else if (over(tap_desk_timer, kDeskQuietGapS) && burst(thr)) {
        tap_desk_state = kDeskStillAfter;
        tap_desk_timer = 0.0F;
    }
}

void DeskTap::still_after(float level, float dt, float* out) noexcept {
    if (at_least(tap_desk_timer, kDeskStillAfterS)) {
        tap_desk_state = kDeskNotStillAfter;
    } else if (under(level, kDeskStillLevel)) {
        tap_desk_still_timer += dt;
        if (over(tap_desk_still_timer, kDeskStillS)) {
            mark_recognised(out);
            tap_desk_state = kDeskHoldOff;
            tap_desk_still_timer = 0.0F;
        }
    }
}

void DeskTap::step(float* out) noexcept {
    const float dt = dt_g;
    const float level = gyro_static_level_g;
    tap_desk_timer += dt;
    tap_desk_rate_peak = decayed_peak(tap_desk_rate_peak, w_filtered_mag, kDeskPeakDecay, dt);
    const float thr = rate_threshold(tap_desk_rate_peak, kDeskRateShare, kDeskRateFloor);

    switch (tap_desk_state) {
        case kDeskWaitStill:
            wait_still(level, dt);
            break;
        case kDeskFirstTap:
            count_restless(level, dt, kDeskFirstRestless);
            if (over(level, kDeskTooStrong)) {
                tap_desk_state = kDeskFirstTooStrong;
            } else if (burst(thr)) {  // also overrides a -1 of this call
                tap_desk_state = kDeskSecondTap;
                tap_desk_timer = 0.0F;
            }
            break;
        case kDeskSecondTap:
            second_tap(level, dt, thr);
            break;
        case kDeskStillAfter:
            still_after(level, dt, out);
            break;
        case kDeskHoldOff:
            if (over(tap_desk_timer, kDeskHoldOffS)) {
                tap_desk_state = kDeskWaitStill;
            }
            break;
        default:  // a failed attempt, or a value out of range
            tap_desk_state = kDeskWaitStill;
            break;
    }
}

// -------------------------------------------------------------- pocket ----

bool PocketTap::z_dominant() const noexcept {
    return z_exceeds_x(tap_pocket_axis_peak, kPocketZExcess);
}

bool PocketTap::strong_enough() const noexcept {
    return over(tap_pocket_acc_max, kPocketTapAcc) && over(tap_pocket_gyro_max, kPocketTapGyro);
}

void PocketTap::clear_maxima() noexcept {
    tap_pocket_acc_max = 0.0F;
    tap_pocket_gyro_max = 0.0F;
}

void PocketTap::next_stage(int next) noexcept {
    tap_pocket_timer = 0.0F;
    tap_pocket_axis_peak = {};
    tap_pocket_state = next;
}

void PocketTap::on_first_tap(bool out_of_range, float thr) noexcept {
    if (out_of_range) {
        tap_pocket_state = kPocketOutOfRange;
    } else if (pulse_fires(trigger, w_filtered_mag_h,
                           {kPocketLow, thr, kPocketBurstMaxS, kPocketBurstMinS}) &&
               strong_enough()) {
        next_stage(kPocketSecondTap);
    }
}

void PocketTap::on_second_tap(bool out_of_range, float thr) noexcept {
    if (out_of_range) {
        tap_pocket_state = kPocketOutOfRange;
    } else if (over(tap_pocket_timer, kPocketTapWindowS)) {
        tap_pocket_state = kPocketLate;
    } else if (over(tap_pocket_timer, kPocketQuietGapS) &&
               pulse_fires(trigger, w_filtered_mag_h,
                           {kPocketLow, thr, kPocketBurstMaxS, kPocketBurstMinS})) {
        if (z_dominant()) {
            tap_pocket_state = kPocketZAxis;
        } else if (under(tap_pocket_acc_max, kPocketTapAcc) ||
                   under(tap_pocket_gyro_max, kPocketTapGyro)) {
            tap_pocket_state = kPocketWeak;
        } else {
            next_stage(kPocketAfter);
            tap_pocket_quiet_timer = 0.0F;
        }
    }
}

void PocketTap::on_after(bool out_of_range, float level, float dt, float* out) noexcept {
    if (at_least(tap_pocket_timer, kPocketAfterS)) {
        if (z_dominant()) {
            tap_pocket_state = kPocketZAxis;
        } else {
            mark_recognised(out);
            tap_pocket_state = kPocketHoldOff;
            tap_pocket_timer = 0.0F;
        }
    } else if (under(level, kPocketQuietLevel)) {
        tap_pocket_quiet_timer += dt;
        if (over(tap_pocket_quiet_timer, kPocketQuietS)) {
            tap_pocket_state = kPocketQuiet;
        }
    } else if (out_of_range) {
        tap_pocket_state = kPocketOutOfRange;
    }
}

void PocketTap::step(float* out) noexcept {
    const float dt = dt_g;
    const float level = gyro_static_level_g;
    tap_pocket_timer += dt;
    const float thr = rate_threshold(level, kPocketLevelShare, kPocketRateFloor);

    tap_pocket_acc_max = std::max(tap_pocket_acc_max, comp_acc);
    tap_pocket_gyro_max = std::max(tap_pocket_gyro_max, comp_gyro);
    track_axis_peaks(tap_pocket_axis_peak);
    const bool out_of_range = over(comp_gyro, kPocketGyroLimit) || over(comp_acc, kPocketAccHigh) ||
                              under(comp_acc, kPocketAccLow);

    switch (tap_pocket_state) {
        case kPocketFirstTap:
            on_first_tap(out_of_range, thr);
            break;
        case kPocketSecondTap:
            on_second_tap(out_of_range, thr);
            break;
        case kPocketAfter:
            on_after(out_of_range, level, dt, out);
            break;
        case kPocketHoldOff:
            if (over(tap_pocket_timer, kPocketHoldOffS)) {
                tap_pocket_state = kPocketFirstTap;
                clear_maxima();
            }
            break;
        default:  // a failed attempt, or a value out of range
            tap_pocket_state = kPocketFirstTap;
            clear_maxima();
            break;
    }
}

}  // namespace imu
