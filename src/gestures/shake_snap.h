#pragma once
// Detectors of quick wrist movements from single gyroscope axes: shake
// (three alternating twists about z) and snap (one flick about x or z).

#include <array>
#include <cstdint>

#include "imu/gestures.h"

namespace imu {

// Three twists about z beyond 5.5 rad/s (4.5 for the second), alternating,
// each completed 0.01 to 0.3 s after the previous one; 0.3 s hold-off.
// out[0] / out[1]: the third twist was positive / negative.
struct Shake {
    std::int32_t shake_state = 0;
    float shake_timer = 0.0F;
    std::int32_t shake_direction = 1;
    std::int32_t shake_last_direction = 1;
    sfc_gesture_trigger trigger;

    void step(float* out) noexcept;
    std::array<float*, 1> timers() noexcept { return {&shake_timer}; }
};

// One flick about x or z beyond 7 rad/s. A completed pulse is credited to
// its axis only when that axis holds the larger peak since the last reset;
// out[0] (x) or out[1] (z) = its direction +-1.0.
//   0 listening -(snap)-> 1 hold-off -(0.2 s)-> 0
//   0 -(|acc| < 1 m/s^2)-> -1 -(0.2 s without one)-> 0
struct Snap {
    std::int32_t snap_state = 0;
    float snap_timer = 0.0F;
    std::int32_t snap_x_direction = 1;
    std::int32_t snap_z_direction = 1;
    float snap_x_peak = 0.0F;
    float snap_y_peak = 0.0F;
    float snap_z_peak = 0.0F;
    sfc_gesture_trigger x_trigger;
    sfc_gesture_trigger z_trigger;

    void step(float* out) noexcept;
    std::array<float*, 1> timers() noexcept { return {&snap_timer}; }

private:
    void listen(float* out) noexcept;
    void clear_peaks() noexcept;
};

}  // namespace imu
