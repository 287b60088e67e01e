// Pose-change detectors. gz is gravity_g[2] (m/s^2, +9.8 face up), |gz| its
// absolute value; proximity is imu_g.proximity[0], of which only 0 and
// "above 0" matter.

#include "gestures/orientation_gestures.h"

#include "gestures/detector.h"
#include "gestures/twist_sequence.h"

namespace imu {
namespace {

// Common states.
constexpr std::int32_t kTimedOut = -1;
constexpr std::int32_t kFellBack = -2;  // turn over: back on the side it left

// Put down.
constexpr double kPutDownFlatMps2 = 9.0;                         // out[1]: lying flat
constexpr double kPutDownEndMps2 = 8.5;                          // |gz| when the pulse ends
constexpr double kPutDownWindowS = 1.0;                          // uncovered -> pulse
constexpr PulseLimits kPutDownPulse = {1.0F, 3.0F, 3.0F, 0.1F};  // rad/s, s

// Raise up.
constexpr double kRaiseUpTiltedMps2 = 7.5;   // out[1]: not flat
constexpr double kRaiseUpUprightMps2 = 4.0;  // pulse counted only this upright
constexpr PulseLimits kRaiseUpPulse = {0.3F, 3.0F, 3.0F, 0.1F};

// Turn over and double flip.
constexpr double kFaceMps2 = 8.0;     // gz beyond +-8: face up / face down
constexpr double kFlipWindowS = 1.5;  // leaving flat -> pulse end; flip -> next flip
constexpr PulseLimits kTurnOverPulse = {0.3F, 3.0F, 1.5F, 0.1F};
constexpr PulseLimits kDoubleFlipPulse = {1.0F, 3.0F, 1.5F, 0.1F};

// Rolling: twists about y of more than 7 rad/s, 0.05 to 0.2 s apart.
constexpr TwistSettings kRollTwists = {
    1, 7.0, {2.0F, 7.0F, 1.0F, 0.03F}, 7.0F, 0.05, 0.2, 0.3,
};

// Hand held.
constexpr double kStillLevel = 7.0;      // gyro_static_level_g below: still
constexpr double kStrongLevel = 1000.0;  // above: moving strongly
constexpr double kStillForS = 0.1;
constexpr double kHandHeldFlatMps2 = 8.5;

float gz() noexcept { return gravity_g[2]; }
float abs_gz() noexcept { return gravity_g_abs[2]; }
bool covered() noexcept { return imu_g.proximity[0] == 0.0F; }
bool uncovered() noexcept { return imu_g.proximity[0] > 0.0F; }

// States 0, 1 and 3 of a flip: waiting for a flat pose and for leaving it.
// Returns the next state; leaving sets the timer to 0.
std::int32_t track_flat_pose(std::int32_t state, float& timer) noexcept {
    switch (state) {
        case 0:
            if (over(gz(), kFaceMps2)) {
                return 1;
            }
            return under(gz(), -kFaceMps2) ? 3 : 0;
        case 1:
            if (at_most(gz(), kFaceMps2)) {
                timer = 0.0F;
                return 2;
            }
            return 1;
        default:  // 3
            if (at_least(gz(), -kFaceMps2)) {
                timer = 0.0F;
                return 4;
            }
            return 3;
    }
}

// States 2 and 4 of a flip: the pulse has to end on the other side.
constexpr std::int32_t kFlipDone = 100;

std::int32_t finish_flip(std::int32_t state, float timer, sfc_gesture_trigger& trigger,
                         const PulseLimits& pulse) noexcept {
    const bool from_face_up = state == 2;
    const bool fired = pulse_fires(trigger, comp_gyro, pulse);
    const bool other_side = from_face_up ? under(gz(), -kFaceMps2) : over(gz(), kFaceMps2);
    const bool same_side = from_face_up ? over(gz(), kFaceMps2) : under(gz(), -kFaceMps2);
    if (fired && other_side) {
        return kFlipDone;
    }
    if (over(timer, kFlipWindowS)) {
        return kTimedOut;
    }
    return same_side ? kFellBack : state;
}

}  // namespace

void PutDown::step(float* out) noexcept {
    put_down_timer += dt_g;
    out[1] = over(abs_gz(), kPutDownFlatMps2) ? 1.0F : 0.0F;
    switch (put_down_state) {
        case 0:
            if (covered()) {
                put_down_state = 1;
            }
            break;
        case 1:
            if (uncovered()) {
                put_down_state = 2;
                put_down_timer = 0.0F;
            }
            break;
        case 2:
            if (over(put_down_timer, kPutDownWindowS)) {
                put_down_state = kTimedOut;
            } else if (pulse_fires(trigger, comp_gyro, kPutDownPulse) &&
                       over(abs_gz(), kPutDownEndMps2)) {
                mark_recognised(out);
                put_down_state = 0;
            }
            break;
        default:
            put_down_state = 0;
            break;
    }
}

void RaiseUp::step(float* out) noexcept {
    out[1] = under(abs_gz(), kRaiseUpTiltedMps2) ? 1.0F : 0.0F;
    switch (raise_up_state) {
        case 0:
            if (uncovered()) {
                raise_up_state = 1;
            }
            break;
        case 1:
            if (covered() && under(abs_gz(), kRaiseUpUprightMps2) &&
                pulse_fires(trigger, comp_gyro, kRaiseUpPulse)) {
                mark_recognised(out);
                raise_up_state = 0;
            }
            break;
        default:
            raise_up_state = 0;
            break;
    }
}

void TurnOver::step(float* out) noexcept {
    turn_over_timer += dt_g;
    switch (turn_over_state) {
        case 0:
        case 1:
        case 3:
            turn_over_state = track_flat_pose(turn_over_state, turn_over_timer);
            break;
        case 2:
        case 4:
            turn_over_state =
                finish_flip(turn_over_state, turn_over_timer, trigger, kTurnOverPulse);
            if (turn_over_state == kFlipDone) {
                mark_recognised(out);
                turn_over_state = 0;
            }
            break;
        default:
            turn_over_state = 0;
            break;
    }
}

void DoubleFlip::step(float* out) noexcept {
    double_flip_timer += dt_g;
    const bool second_too_late = double_flip_count == 1 && over(double_flip_timer, kFlipWindowS);
    switch (double_flip_state) {
        case 0:
        case 1:
        case 3:
            double_flip_state =
                second_too_late ? kTimedOut : track_flat_pose(double_flip_state, double_flip_timer);
            break;
        case 2:
        case 4:
            double_flip_state =
                finish_flip(double_flip_state, double_flip_timer, trigger, kDoubleFlipPulse);
            break;
        default:
            double_flip_state = 0;
            double_flip_timer = 0.0F;
            double_flip_count = 0;
            break;
    }
    if (double_flip_state != kFlipDone) {
        return;
    }
    if (double_flip_count == 0) {
        double_flip_count = 1;
    } else if (double_flip_count == 1) {
        mark_recognised(out);
        double_flip_count = 0;
    }
    double_flip_state = 0;
    double_flip_timer = 0.0F;
}

void Rolling::step(float* out) noexcept {
    step_twists(kRollTwists,
                {rolling_state, rolling_timer, rolling_direction, rolling_last_direction, trigger},
                out);
}

void HandHeld::step(float* out) noexcept {
    const float level = gyro_static_level_g;
    if (under(level, kStillLevel)) {
        hand_held_timer += dt_g;
        if (over(hand_held_timer, kStillForS)) {
            out[kRecognised] = over(abs_gz(), kHandHeldFlatMps2) ? 0.0F : 1.0F;
        } else {
            out[kRecognised] = 2.0F;
        }
        return;
    }
    hand_held_timer = 0.0F;
    out[kRecognised] = over(level, kStrongLevel) ? 3.0F : 2.0F;
}

}  // namespace imu
