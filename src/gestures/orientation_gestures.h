#pragma once
// Detectors of pose changes: put down, raise up, turn over, double flip,
// rolling and hand held. Each reads the shared gesture signals and keeps its
// own state; run them through run_detector (gestures/detector.h).

#include <array>
#include <cstdint>

#include "imu/gestures.h"

namespace imu {

// Covered (proximity 0), uncovered, then within 1 s a rate pulse that ends
// lying flat (|gz| > 8.5). out[1] = 1.0 while |gz| > 9.0.
//   0 -(prox 0)-> 1 -(prox > 0, timer 0)-> 2 -(pulse, flat)-> 0
//                                          2 -(1 s)-> -1 -> 0
struct PutDown {
    std::int32_t put_down_state = 0;
    float put_down_timer = 0.0F;
    sfc_gesture_trigger trigger;

    void step(float* out) noexcept;
    std::array<float*, 1> timers() noexcept { return {&put_down_timer}; }
};

// Uncovered, then a rate pulse while covered and upright (|gz| < 4.0).
// out[1] = 1.0 while |gz| < 7.5.
//   0 -(prox > 0)-> 1 -(pulse while prox 0 and upright)-> 0
struct RaiseUp {
    std::int32_t raise_up_state = 0;
    sfc_gesture_trigger trigger;

    void step(float* out) noexcept;
    std::array<float*, 0> timers() noexcept { return {}; }
};

// Face up to face down or back: the rate pulse must end on the other side
// within 1.5 s after the phone left its flat pose.
//   0 -(face up)-> 1 -(leaves)-> 2 -(pulse, face down)-> 0
//   0 -(face down)-> 3 -(leaves)-> 4 -(pulse, face up)-> 0
//   2, 4 -(1.5 s)-> -1;  -(back on the same side)-> -2;  -1, -2 -> 0
struct TurnOver {
    std::int32_t turn_over_state = 0;
    float turn_over_timer = 0.0F;
    sfc_gesture_trigger trigger;

    void step(float* out) noexcept;
    std::array<float*, 1> timers() noexcept { return {&turn_over_timer}; }
};

// Two turn-overs: the second must begin within 1.5 s after the first ends.
// States as TurnOver; -1 and -2 also clear the count on the next call.
struct DoubleFlip {
    std::int32_t double_flip_state = 0;
    float double_flip_timer = 0.0F;
    std::int32_t double_flip_count = 0;
    sfc_gesture_trigger trigger;

    void step(float* out) noexcept;
    std::array<float*, 1> timers() noexcept { return {&double_flip_timer}; }
};

// Three short twists about y alternating in sign, each completed 0.05 to
// 0.2 s after the previous one. out[0] / out[1]: the third was positive /
// negative.
//   0 -(twist)-> 1 -(opposite twist)-> 2 -(opposite twist)-> 3 -(0.3 s)-> 0
//   1 -(0.2 s)-> -1;  1 -(same direction)-> -2;  2 -(0.2 s)-> -3
struct Rolling {
    std::int32_t rolling_state = 0;
    float rolling_timer = 0.0F;
    std::int32_t rolling_direction = 1;
    std::int32_t rolling_last_direction = 1;
    sfc_gesture_trigger trigger;

    void step(float* out) noexcept;
    std::array<float*, 1> timers() noexcept { return {&rolling_timer}; }
};

// Motion class from gyro_static_level_g into out[2]: 0 still and flat,
// 1 still (for more than 0.1 s), 2 moving or just stopped, 3 moving strongly.
struct HandHeld {
    float hand_held_timer = 0.0F;

    void step(float* out) noexcept;
    std::array<float*, 1> timers() noexcept { return {&hand_held_timer}; }
};

}  // namespace imu
