// Shake and snap. Rates are imu_g.gyro (signed, rad/s) and gyro_g_abs.

#include "gestures/shake_snap.h"

#include <algorithm>

#include "gestures/detector.h"
#include "gestures/twist_sequence.h"

namespace imu {
namespace {

// Shake: twists about z beyond 5.5 rad/s (the second beyond 4.5).
constexpr TwistSettings kShakeTwists = {
    2, 5.5, {2.0F, 5.5F, 0.4F, 0.03F}, 4.5F, 0.01, 0.3, 0.3,
};

// Snap.
constexpr double kSnapRateRps = 7.0;  // direction and peak beyond this
constexpr PulseLimits kSnapPulse = {2.0F, 7.0F, 0.4F, 0.03F};
constexpr double kFreeFallMps2 = 1.0;  // |acc| below: falling or thrown
constexpr double kSnapHoldOffS = 0.2;  // after a snap and after free fall
constexpr std::int32_t kListening = 0;
constexpr std::int32_t kHoldOff = 1;
constexpr std::int32_t kFreeFall = -1;

}  // namespace

void Shake::step(float* out) noexcept {
    step_twists(kShakeTwists,
                {shake_state, shake_timer, shake_direction, shake_last_direction, trigger}, out);
}

void Snap::clear_peaks() noexcept {
    snap_x_peak = 0.0F;
    snap_y_peak = 0.0F;
    snap_z_peak = 0.0F;
}

void Snap::step(float* out) noexcept {
    snap_timer += dt_g;
    const float gx = imu_g.gyro[0];
    const float gz = imu_g.gyro[2];
    snap_x_direction = direction_beyond(gx, kSnapRateRps, snap_x_direction);
    if (over(gyro_g_abs[0], kSnapRateRps)) {
        snap_x_peak = std::max(snap_x_peak, gyro_g_abs[0]);
    }
    if (over(gz, kSnapRateRps) || under(gz, -kSnapRateRps)) {
        snap_z_direction = direction_beyond(gz, kSnapRateRps, snap_z_direction);
        snap_z_peak = std::max(snap_z_peak, gyro_g_abs[2]);
    }

    switch (snap_state) {
        case kListening:
            listen(out);
            break;
        case kHoldOff:
            if (over(snap_timer, kSnapHoldOffS)) {
                snap_state = kListening;
                clear_peaks();
            }
            break;
        case kFreeFall:
            if (under(comp_acc, kFreeFallMps2)) {
                snap_timer = 0.0F;
            }
            if (over(snap_timer, kSnapHoldOffS)) {
                snap_state = kListening;
                clear_peaks();
            }
            break;
        default:
            snap_state = kListening;
            break;
    }
}

// Both triggers run on every listening call, even the one that sees free
// fall; a completed pulse counts for the axis with the larger peak.
void Snap::listen(float* out) noexcept {
    if (under(comp_acc, kFreeFallMps2)) {
        snap_state = kFreeFall;
        snap_timer = 0.0F;
    }
    if (pulse_fires(x_trigger, gyro_g_abs[0], kSnapPulse)) {
        if (snap_x_peak > snap_z_peak) {
            snap_state = kHoldOff;
            snap_timer = 0.0F;
            z_trigger.state = 0;
            out[0] = static_cast<float>(snap_x_direction);
            mark_recognised(out);
        } else {
            clear_peaks();
        }
    }
    if (!pulse_fires(z_trigger, gyro_g_abs[2], kSnapPulse)) {
        return;
    }
    if (snap_z_peak > snap_x_peak) {
        snap_timer = 0.0F;
        x_trigger.state = 0;
        snap_state = kHoldOff;
        out[1] = static_cast<float>(snap_z_direction);
        mark_recognised(out);
        return;
    }
    clear_peaks();
}

}  // namespace imu
